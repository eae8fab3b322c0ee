// Choosing backgrounds and encoding every page as a screen of a slide archive.
#pragma once
#include "show/archive.h"
#include "codec/bitmap.h"
#include "packer/page_store.h"
#include "packer/survey.h"

struct PackedShow {
    vec<vec<unsigned char> > backgrounds;
    vec<ScreenRecord> screens;
    vec<bool> flags;
};

// Encodes the surveyed pages (opaque, one size) into backgrounds and screens, with up to `jobs`
// worker processes; the bytes do not depend on their number. Each screen is coded over a
// background or the previous screen, whichever gives the smaller stream. Backgrounds are the
// survey's one-colour one (the first screen always has a background) and the colours most pages
// show, each kept only when it saves more bytes than it costs; pixels of a background that no
// screen shows are coded as whatever is cheapest. Calls progress(i, n) before page i.
// Returns null or a one-line error.
const char* packPages(PageStore& store, const Survey& survey, const vec<bool>& flags, int jobs,
                      PackedShow& show, void (*progress)(int i, int n));
