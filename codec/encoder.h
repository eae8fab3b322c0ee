// The packer's encoder: writes codec streams that decompress reads, choosing for every region of
// the quadtree whether its pixels are coded as their own colour or as see-through (showing what
// lies under the screen), and writing the frequencies of the symbols actually coded.
#pragma once

#include "codec/bitmap.h"
#include "support/vec.h"

// A page's distinct colours and the colour number of every pixel (0 = the see-through pixel),
// computed once and shared by every encoding of the page.
struct IndexedPage {
    const Bitmap* bitmap = nullptr;
    vec<Color> colours;  // colours[0] is the see-through pixel
    vec<int> ids;        // one per pixel, row-major
};

void indexPage(const Bitmap& bitmap, IndexedPage& page);

// How hard encodePage tries: the rounds of code rebuilding start from `starts` (1 or 2)
// estimates, and each runs at most `rounds` rounds (at least 1).
struct Effort {
    int starts;
    int rounds;
};
const Effort kQuickEffort{1, 1};
const Effort kFullEffort{2, 2};

// Appends to out a stream whose decoded pixels, with see-through pixels replaced by under's
// pixels (under null: nothing replaces them), equal the page's opaque pixels wherever `any` is
// null or 0. Where any[i] is non-zero the pixel may decode to anything. under must have the
// page's size. Returns false when it had to fall back to the plain encoder (codes longer than
// 32 bits).
bool encodePage(const IndexedPage& page, const Bitmap* under, const unsigned char* any, Effort effort,
                vec<unsigned char>& out);
