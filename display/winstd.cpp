// Bitmap-font text in the frame buffer.
#include "display/winstd.h"

#include <cstring>

#include "display/win.h"

const Color color_White = {255, 255, 255, 0};
const Color color_Black = {0, 0, 0, 0};

namespace {

const int glyph_inverted_question = 127;   // character 191

Canvas frameBuffer() { return Canvas{win_data, win_width, win_height}; }

// The canvas pixel at (x, y), or null outside it. The unsigned comparison clips negative
// coordinates as well.
Color* pixelAt(const Canvas& c, int x, int y) {
    if ((unsigned)x >= (unsigned)c.width || (unsigned)y >= (unsigned)c.height) return nullptr;
    return &c.data[y * c.width + x];
}

void plot(const Canvas& c, int x, int y, Color color) {
    if (Color* p = pixelAt(c, x, y)) *p = color;
}

// Two thirds of the way from the old pixel to the colour; the fourth byte becomes 0.
void blend(const Canvas& c, int x, int y, Color color) {
    Color* p = pixelAt(c, x, y);
    if (!p) return;
    p->r = (p->r + 2 * color.r) / 3;
    p->g = (p->g + 2 * color.g) / 3;
    p->b = (p->b + 2 * color.b) / 3;
    p->transparency = 0;
}

// Every set font pixel becomes a scale x scale block.
void drawBigGlyph(const Canvas& c, int g, int x, int y, Color color, int scale) {
    for (int row = 0; row < 24; row++) {
        unsigned bits = bigGlyphRow(g, row);
        for (int bit = 14; bit >= 0; bit--) {
            if (!(bits >> bit & 1)) continue;
            int px = x + (14 - bit) * scale, py = y + row * scale;
            for (int dy = 0; dy < scale; dy++)
                for (int dx = 0; dx < scale; dx++) plot(c, px + dx, py + dy, color);
        }
    }
}

// Each output column k shows the bit pair (15 - 2k, 14 - 2k): both set draws the colour,
// one set blends it in.
void drawCompactGlyph(const Canvas& c, int g, int x, int y, Color color) {
    for (int row = 0; row < 24; row++) {
        unsigned bits = bigGlyphRow(g, row);
        for (int k = 0; k < 8; k++) {
            unsigned pair = bits >> (14 - 2 * k) & 3;
            if (pair == 3)
                plot(c, x + k, y + row, color);
            else if (pair)
                blend(c, x + k, y + row, color);
        }
    }
}

}  // namespace

int bigGlyphIndex(unsigned char c) {
    if (c >= 32 && c < 128) return c - 32;
    if (c >= 160) return c - 64;
    return glyph_inverted_question;
}

unsigned bigGlyphRow(int g, int row) {
    const unsigned char* word = &font15x24[(g * 24 + row) * 2];
    return word[0] | word[1] << 8;
}

void putText(const char* text, int x, int y, Color color, int halign, int valign) {
    Canvas canvas = frameBuffer();
    int n = strlen(text);
    if (halign == 0) x -= (8 * n) >> 1;
    if (halign == 1) x -= 8 * n;
    if (valign == 0) y -= 4;
    if (valign == 1) y -= 8;
    for (int i = 0; i < n; i++, x += 8) {
        const unsigned char* glyph = &font8[(unsigned char)text[i] * 8];
        for (int row = 0; row < 8; row++)
            for (int bit = 7; bit >= 0; bit--)
                if (glyph[row] >> bit & 1) plot(canvas, x + 7 - bit, y + row, color);
    }
}

// Moves (x, y) from the alignment point to the top left corner of text n glyphs of w x h wide.
static void align(int& x, int& y, int n, int w, int h, int halign, int valign) {
    if (halign == 0) x -= w * n / 2;
    if (halign == 1) x -= w * n;
    if (valign == 0) y -= h / 2;
    if (valign == 1) y -= h;
}

void putBigText(const char* text, int x, int y, Color color, int halign, int valign, bool compact) {
    if (!compact) return putBigTextOn(frameBuffer(), text, x, y, color, halign, valign, 1);
    Canvas canvas = frameBuffer();
    int n = strlen(text);
    align(x, y, n, 8, 24, halign, valign);
    for (int i = 0; i < n; i++, x += 8) drawCompactGlyph(canvas, bigGlyphIndex(text[i]), x, y, color);
}

void putBigTextOn(const Canvas& canvas, const char* text, int x, int y, Color color, int halign, int valign,
                  int scale) {
    int n = strlen(text), w = 15 * scale;
    align(x, y, n, w, 24 * scale, halign, valign);
    for (int i = 0; i < n; i++, x += w) drawBigGlyph(canvas, bigGlyphIndex(text[i]), x, y, color, scale);
}
