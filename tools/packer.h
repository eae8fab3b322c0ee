// Choosing backgrounds and encoding every page as a screen of a slide archive.
#pragma once
#include "app/archive.h"
#include "codec/bitmap.h"

struct PackedShow {
    vec<vec<unsigned char> > backgrounds;
    vec<ScreenRecord> screens;
    vec<bool> flags;
};

// Encodes the pages (opaque, one size) into backgrounds and screens. Each screen is coded over
// the background or the previous screen, whichever gives the smaller stream, with the pixels
// equal to what lies under them made see-through. Calls progress(i, n) before page i.
void packPages(const vec<Bitmap>& pages, const vec<bool>& flags, PackedShow& show,
               void (*progress)(int i, int n));
