// Text drawn into the frame buffer with two built-in bitmap fonts.
#pragma once
#include "codec/bitmap.h"

// 256 glyphs of 8 rows, indexed by the character's byte value; bit 7 is the leftmost pixel.
extern const unsigned char font8[2048];
// 192 glyphs of 24 rows; each row a little-endian 16-bit word whose bits 14 (leftmost) to 0
// are the 15 columns. Glyphs 0-95 are characters 32-127, glyphs 96-191 characters 160-255.
extern const unsigned char font15x24[9216];

extern const Color color_White;
extern const Color color_Black;

// Pixels to draw text into: a frame buffer of width x height, row-major, no padding.
struct Canvas {
    Color* data;
    int width, height;
};

// halign: 0 centred on x, 1 text ends at x, other: text starts at x.
// valign: 0 centred on y, 1 bottom at y, other: top at y.
// Only pixels inside the frame buffer are written.
void putText(const char* text, int x, int y, Color color, int halign, int valign);
// compact draws every glyph at 8 columns, blending half-covered pixels.
void putBigText(const char* text, int x, int y, Color color, int halign, int valign, bool compact);
// Full-width big text on a canvas, every font pixel drawn as a scale x scale block; the
// alignments as above, measured on the scaled text. Only pixels inside the canvas are written.
void putBigTextOn(const Canvas& canvas, const char* text, int x, int y, Color color, int halign, int valign,
                  int scale);

// The glyph of font15x24 that shows character c (unprintable ones show the inverted question mark).
int bigGlyphIndex(unsigned char c);
// Row word `row` of glyph g of font15x24.
unsigned bigGlyphRow(int g, int row);
