// Bitmap-font text in the frame buffer.
#include "display/winstd.h"

#include <cstring>

#include "display/win.h"

const Color color_White = {255, 255, 255, 0};
const Color color_Black = {0, 0, 0, 0};

namespace {

const int glyph_inverted_question = 127;   // character 191

// The frame-buffer pixel at (x, y), or null outside the buffer. The unsigned comparison
// clips negative coordinates as well.
Color* pixelAt(int x, int y) {
    if ((unsigned)x >= (unsigned)win_width || (unsigned)y >= (unsigned)win_height) return nullptr;
    return &win_data[y * win_width + x];
}

void plot(int x, int y, Color color) {
    if (Color* p = pixelAt(x, y)) *p = color;
}

// Two thirds of the way from the old pixel to the colour; the fourth byte becomes 0.
void blend(int x, int y, Color color) {
    Color* p = pixelAt(x, y);
    if (!p) return;
    p->r = (p->r + 2 * color.r) / 3;
    p->g = (p->g + 2 * color.g) / 3;
    p->b = (p->b + 2 * color.b) / 3;
    p->transparency = 0;
}

void drawBigGlyph(int g, int x, int y, Color color) {
    for (int row = 0; row < 24; row++) {
        unsigned bits = bigGlyphRow(g, row);
        for (int bit = 14; bit >= 0; bit--)
            if (bits >> bit & 1) plot(x + 14 - bit, y + row, color);
    }
}

// Each output column k shows the bit pair (15 - 2k, 14 - 2k): both set draws the colour,
// one set blends it in.
void drawCompactGlyph(int g, int x, int y, Color color) {
    for (int row = 0; row < 24; row++) {
        unsigned bits = bigGlyphRow(g, row);
        for (int k = 0; k < 8; k++) {
            unsigned pair = bits >> (14 - 2 * k) & 3;
            if (pair == 3)
                plot(x + k, y + row, color);
            else if (pair)
                blend(x + k, y + row, color);
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
    int n = strlen(text);
    if (halign == 0) x -= (8 * n) >> 1;
    if (halign == 1) x -= 8 * n;
    if (valign == 0) y -= 4;
    if (valign == 1) y -= 8;
    for (int i = 0; i < n; i++, x += 8) {
        const unsigned char* glyph = &font8[(unsigned char)text[i] * 8];
        for (int row = 0; row < 8; row++)
            for (int bit = 7; bit >= 0; bit--)
                if (glyph[row] >> bit & 1) plot(x + 7 - bit, y + row, color);
    }
}

void putBigText(const char* text, int x, int y, Color color, int halign, int valign, bool compact) {
    int n = strlen(text);
    int w = compact ? 8 : 15;
    if (halign == 0) x -= w * n / 2;
    if (halign == 1) x -= w * n;
    if (valign == 0) y -= 12;
    if (valign == 1) y -= 24;
    for (int i = 0; i < n; i++, x += w) {
        int g = bigGlyphIndex(text[i]);
        if (compact)
            drawCompactGlyph(g, x, y, color);
        else
            drawBigGlyph(g, x, y, color);
    }
}
