// Reading text drawn with the 15 x 24 font back from a capture: each glyph cell is sampled at the
// middle of its scaled font pixels and matched against every glyph of the font.
#pragma once
#include <functional>
#include <string>

#include "xserver.h"

// Whether a captured pixel (8-bit red, green, blue) is ink rather than background.
using Ink = std::function<bool(const unsigned char* rgb)>;

// Light text on a dark background: a channel above 100.
bool lightInk(const unsigned char* rgb);

// The text of `chars` glyph cells from (x, y) at the whole scale, trailing spaces dropped; a
// cell that matches no glyph reads as '#'. Cells outside the capture read as spaces.
std::string readText(const Pixels& p, int x, int y, int scale, int chars, const Ink& ink = lightInk);

// The colour (0xRRGGBB) of the first ink pixel of those cells, or -1 when there is none.
long inkColour(const Pixels& p, int x, int y, int scale, int chars, const Ink& ink = lightInk);
