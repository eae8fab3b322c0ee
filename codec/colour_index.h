// Numbering a bitmap's colours for the encoders.
#pragma once
#include "codec/bitmap.h"
#include "support/vec.h"

// Numbers the bitmap's colours in order of first appearance in row order, the see-through pixel
// first (number 0, whether it appears or not): colours gets one entry per number, ids the number
// of every pixel.
void indexColours(const Bitmap& bitmap, vec<int>& ids, vec<Color>& colours);

// The same, also counting the pixels of every number into counts.
void indexColours(const Bitmap& bitmap, vec<int>& ids, vec<Color>& colours, vec<int>& counts);
