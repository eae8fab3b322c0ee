#include "screen_text.h"

#include "display/winstd.h"

static const int GLYPH_WIDTH = 15, GLYPH_HEIGHT = 24, GLYPHS = 192;

bool lightInk(const unsigned char* rgb) { return rgb[0] > 100 || rgb[1] > 100 || rgb[2] > 100; }

static const unsigned char* pixelAt(const Pixels& p, int x, int y) {
    if (x < 0 || y < 0 || x >= p.width || y >= p.height) return nullptr;
    return &p.rgb[((size_t)y * p.width + x) * 3];
}

// The character whose glyph is g.
static char characterOf(int g) { return (char)(g < 96 ? g + 32 : g + 64); }

static char readCell(const Pixels& p, int x, int y, int scale, const Ink& ink) {
    unsigned rows[GLYPH_HEIGHT];
    for (int r = 0; r < GLYPH_HEIGHT; r++) {
        rows[r] = 0;
        for (int k = 0; k < GLYPH_WIDTH; k++) {
            const unsigned char* px = pixelAt(p, x + k * scale + scale / 2, y + r * scale + scale / 2);
            if (px && ink(px)) rows[r] |= 1u << (GLYPH_WIDTH - 1 - k);
        }
    }
    for (int g = 0; g < GLYPHS; g++) {
        int r = 0;
        while (r < GLYPH_HEIGHT && (bigGlyphRow(g, r) & 0x7FFF) == rows[r]) r++;
        if (r == GLYPH_HEIGHT) return characterOf(g);
    }
    return '#';
}

std::string readText(const Pixels& p, int x, int y, int scale, int chars, const Ink& ink) {
    std::string text;
    for (int c = 0; c < chars; c++) text += readCell(p, x + c * GLYPH_WIDTH * scale, y, scale, ink);
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

long inkColour(const Pixels& p, int x, int y, int scale, int chars, const Ink& ink) {
    for (int py = y; py < y + GLYPH_HEIGHT * scale; py++)
        for (int px = x; px < x + chars * GLYPH_WIDTH * scale; px++) {
            const unsigned char* rgb = pixelAt(p, px, py);
            if (rgb && ink(rgb)) return (long)rgb[0] << 16 | rgb[1] << 8 | rgb[2];
        }
    return -1;
}
