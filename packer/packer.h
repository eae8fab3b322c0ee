// Choosing backgrounds and encoding every page as a screen of a slide archive.
#pragma once
#include "show/archive.h"
#include "codec/bitmap.h"

struct PackedShow {
    vec<vec<unsigned char> > backgrounds;
    vec<ScreenRecord> screens;
    vec<bool> flags;
};

// Encodes the pages (opaque, one size) into backgrounds and screens. Each screen is coded over
// a background or the previous screen, whichever gives the smaller stream. Backgrounds are a
// one-colour one (the first screen always has a background) and the colours most pages show,
// each kept only when it saves more bytes than it costs; pixels of a background that no screen
// shows are coded as whatever is cheapest. Calls progress(i, n) before page i.
void packPages(const vec<Bitmap>& pages, const vec<bool>& flags, PackedShow& show,
               void (*progress)(int i, int n));
