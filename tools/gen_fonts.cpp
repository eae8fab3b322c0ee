// Builds the two glyph tables of the text renderer from freely licensed fonts:
//   font8     : an 8 x 8 console font in PSF form (gzip'ed), re-ordered to Latin-1 byte values;
//   font15x24 : a monospace TrueType font rasterised to 15 x 24 cells with FreeType.
// Writes display/font8.cpp and display/font15x24.cpp under the given source folder.
//
// usage: gen_fonts [SOURCE_DIR [PSF_GZ [TTF]]]
#include <ft2build.h>
#include FT_FREETYPE_H
#include <zlib.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

const char* const default_psf = "/usr/share/consolefonts/lat1-08.psf.gz";
const char* const default_ttf = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf";

const int big_width = 15, big_height = 24, big_glyphs = 192;
// Pixel sizes of the em square: a little wider than tall so the 0.6 em advance nearly fills
// the 15 columns, and ascender plus descender fit the 24 rows.
const int big_em_x = 23, big_em_y = 20;

[[noreturn]] void fail(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    fputs("ERROR! ", stderr);
    vfprintf(stderr, fmt, args);
    fputc('\n', stderr);
    va_end(args);
    exit(1);
}

std::vector<uint8_t> readGzip(const char* path) {
    gzFile in = gzopen(path, "rb");
    if (!in) fail("Cannot open %s", path);
    std::vector<uint8_t> data;
    uint8_t chunk[65536];
    int n;
    while ((n = gzread(in, chunk, sizeof chunk)) > 0) data.insert(data.end(), chunk, chunk + n);
    bool bad = n < 0;
    gzclose(in);
    if (bad) fail("Cannot read %s", path);
    return data;
}

uint32_t le32(const std::vector<uint8_t>& d, size_t at) {
    return d[at] | d[at + 1] << 8 | d[at + 2] << 16 | (uint32_t)d[at + 3] << 24;
}

// A console font: glyph bitmaps one byte per row (8 columns wide), and for each Unicode
// code point the first glyph that shows it.
struct ConsoleFont {
    unsigned count = 0, height = 0, width = 0;
    std::vector<uint8_t> glyphs;
    std::map<uint32_t, unsigned> glyphOf;
};

// Unicode table of a version 1 font: per glyph, 16-bit code points ending with 0xFFFF;
// 0xFFFE starts sequences, which are skipped.
void readPsf1Table(const std::vector<uint8_t>& d, size_t at, ConsoleFont& font) {
    bool inSequence = false;
    for (unsigned g = 0; g < font.count; at += 2) {
        if (at + 2 > d.size()) fail("Unicode table of the console font is cut short");
        uint32_t cp = d[at] | d[at + 1] << 8;
        if (cp == 0xFFFF) {
            g++;
            inSequence = false;
        } else if (cp == 0xFFFE) {
            inSequence = true;
        } else if (!inSequence) {
            font.glyphOf.emplace(cp, g);
        }
    }
}

// Decodes one UTF-8 character at d[at], advancing at; fails on malformed input.
uint32_t utf8At(const std::vector<uint8_t>& d, size_t& at) {
    uint8_t lead = d[at++];
    int more = lead < 0x80 ? 0 : lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : -1;
    if (more < 0) fail("Bad UTF-8 in the console font's Unicode table");
    uint32_t cp = more == 0 ? lead : lead & (0x3F >> more);
    for (int i = 0; i < more; i++) {
        if (at >= d.size() || (d[at] & 0xC0) != 0x80) fail("Bad UTF-8 in the console font's Unicode table");
        cp = cp << 6 | (d[at++] & 0x3F);
    }
    return cp;
}

// Unicode table of a version 2 font: per glyph, UTF-8 characters ending with 0xFF;
// 0xFE starts sequences, which are skipped.
void readPsf2Table(const std::vector<uint8_t>& d, size_t at, ConsoleFont& font) {
    bool inSequence = false;
    for (unsigned g = 0; g < font.count;) {
        if (at >= d.size()) fail("Unicode table of the console font is cut short");
        if (d[at] == 0xFF) {
            at++;
            g++;
            inSequence = false;
        } else if (d[at] == 0xFE) {
            at++;
            inSequence = true;
        } else {
            uint32_t cp = utf8At(d, at);
            if (!inSequence) font.glyphOf.emplace(cp, g);
        }
    }
}

ConsoleFont parsePsf(const std::vector<uint8_t>& d, const char* path) {
    ConsoleFont font;
    size_t header = 0, bytesPerGlyph = 0;
    bool hasTable = false;
    if (d.size() >= 4 && d[0] == 0x36 && d[1] == 0x04) {
        font.count = (d[2] & 1) ? 512 : 256;
        font.height = bytesPerGlyph = d[3];
        font.width = 8;
        header = 4;
        hasTable = d[2] & 6;
    } else if (d.size() >= 32 && le32(d, 0) == 0x864AB572) {
        header = le32(d, 8);
        hasTable = le32(d, 12) & 1;
        font.count = le32(d, 16);
        bytesPerGlyph = le32(d, 20);
        font.height = le32(d, 24);
        font.width = le32(d, 28);
    } else {
        fail("%s is not a PSF console font", path);
    }
    if (font.width != 8 || font.height != 8 || bytesPerGlyph != 8)
        fail("%s is a %u x %u font; an 8 x 8 one is needed", path, font.width, font.height);
    if (font.count < 256 || font.count > 4096 || header > d.size() || d.size() - header < font.count * 8)
        fail("%s is cut short", path);
    font.glyphs.assign(d.begin() + header, d.begin() + header + font.count * 8);
    if (!hasTable) fail("%s has no Unicode table, so its glyphs cannot be put in Latin-1 order", path);
    if (d[0] == 0x36)
        readPsf1Table(d, header + font.count * 8, font);
    else
        readPsf2Table(d, header + font.count * 8, font);
    return font;
}

bool isLatin1Printable(unsigned c) { return (c >= 32 && c < 127) || c >= 160; }

// Latin-1 order: a printable byte value takes the glyph of that code point; the control codes
// (0-31, 127-159) take, in order, the glyphs no printable character uses, so the font's
// symbols and line-drawing pieces stay reachable.
std::vector<uint8_t> buildFont8(const ConsoleFont& font) {
    std::vector<bool> used(font.count, false);
    std::vector<int> glyphFor(256, -1);
    for (unsigned c = 0; c < 256; c++) {
        if (!isLatin1Printable(c)) continue;
        auto it = font.glyphOf.find(c);
        if (it == font.glyphOf.end()) fail("The console font has no glyph for character %u", c);
        glyphFor[c] = it->second;
        used[it->second] = true;
    }
    unsigned spare = 0;
    for (unsigned c = 0; c < 256; c++) {
        if (glyphFor[c] >= 0) continue;
        while (spare < font.count && used[spare]) spare++;
        if (spare == font.count) fail("The console font has too few glyphs for the control codes");
        glyphFor[c] = spare;
        used[spare] = true;
    }
    std::vector<uint8_t> table;
    for (unsigned c = 0; c < 256; c++)
        table.insert(table.end(), font.glyphs.begin() + glyphFor[c] * 8, font.glyphs.begin() + glyphFor[c] * 8 + 8);
    return table;
}

// Glyph g of the big font shows this Latin-1 character.
unsigned bigGlyphChar(unsigned g) { return g < 96 ? g + 32 : g + 64; }

struct Rasteriser {
    FT_Library library = nullptr;
    FT_Face face = nullptr;
    int baseline = 0;   // row of the baseline within the cell
    int lost = 0;       // set pixels that fell outside the cell

    explicit Rasteriser(const char* path) {
        if (FT_Init_FreeType(&library)) fail("Cannot start FreeType");
        if (FT_New_Face(library, path, 0, &face)) fail("Cannot load the font %s", path);
        if (FT_Set_Pixel_Sizes(face, big_em_x, big_em_y)) fail("Cannot size the font %s", path);
        int ascent = face->size->metrics.ascender >> 6;
        int descent = -face->size->metrics.descender >> 6;
        baseline = ascent + (big_height - ascent - descent) / 2;
    }
    ~Rasteriser() {
        FT_Done_Face(face);
        FT_Done_FreeType(library);
    }

    // Renders one character bilevel into 24 row words, bits 14 (left) down to 0.
    std::vector<uint16_t> glyphRows(unsigned c) {
        FT_UInt index = FT_Get_Char_Index(face, c);   // 0, the missing-glyph box, when absent
        if (FT_Load_Glyph(face, index, FT_LOAD_RENDER | FT_LOAD_TARGET_MONO))
            fail("Cannot render character %u", c);
        const FT_GlyphSlot slot = face->glyph;
        const FT_Bitmap& bm = slot->bitmap;
        if (bm.rows && (bm.pixel_mode != FT_PIXEL_MODE_MONO || bm.pitch <= 0))
            fail("FreeType gave no top-down bilevel bitmap for character %u", c);
        int advance = slot->advance.x >> 6;
        int left = slot->bitmap_left + (big_width - advance) / 2;
        int top = baseline - slot->bitmap_top;
        std::vector<uint16_t> rows(big_height, 0);
        for (unsigned y = 0; y < bm.rows; y++)
            for (unsigned x = 0; x < bm.width; x++) {
                if (!(bm.buffer[y * bm.pitch + (x >> 3)] & (0x80 >> (x & 7)))) continue;
                int col = left + (int)x, row = top + (int)y;
                if (col < 0 || col >= big_width || row < 0 || row >= big_height)
                    lost++;
                else
                    rows[row] |= 1 << (big_width - 1 - col);
            }
        return rows;
    }
};

std::vector<uint8_t> buildFont15x24(const char* ttf) {
    Rasteriser raster(ttf);
    std::vector<uint8_t> table;
    for (int g = 0; g < big_glyphs; g++)
        for (uint16_t word : raster.glyphRows(bigGlyphChar(g))) {
            table.push_back(word & 0xFF);
            table.push_back(word >> 8);
        }
    if (raster.lost) fprintf(stderr, "note: %d pixels fell outside the 15 x 24 cells\n", raster.lost);
    return table;
}

std::string charLabel(unsigned c) {
    char text[32];
    if (c > 32 && c < 127 && c != '\\')
        snprintf(text, sizeof text, "%u '%c'", c, c);
    else
        snprintf(text, sizeof text, "%u", c);
    return text;
}

// Writes a table as one commented block per glyph.
void writeTable(const std::string& path, const char* name, const std::vector<uint8_t>& table,
                unsigned glyphBytes, unsigned (*glyphChar)(unsigned), const char* origin) {
    FILE* out = fopen(path.c_str(), "w");
    if (!out) fail("Cannot write %s", path.c_str());
    fprintf(out, "// Generated by tools/gen_fonts from %s; do not edit.\n", origin);
    fprintf(out, "// Font names and licences: display/FONTS.md.\n");
    fprintf(out, "#include \"display/winstd.h\"\n\nconst unsigned char %s[%zu] = {\n", name, table.size());
    for (unsigned g = 0; g * glyphBytes < table.size(); g++) {
        fprintf(out, "    // %s\n", charLabel(glyphChar(g)).c_str());
        for (unsigned i = 0; i < glyphBytes; i++)
            fprintf(out, "%s0x%02X,%s", i % 16 == 0 ? "    " : " ", table[g * glyphBytes + i],
                    i % 16 == 15 || i + 1 == glyphBytes ? "\n" : "");
    }
    fprintf(out, "};\n");
    if (fclose(out)) fail("Cannot write %s", path.c_str());
}

unsigned identity(unsigned g) { return g; }

std::string baseName(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

}  // namespace

int main(int argc, char** argv) {
    std::string dir = argc > 1 ? argv[1] : ".";
    const char* psf = argc > 2 ? argv[2] : default_psf;
    const char* ttf = argc > 3 ? argv[3] : default_ttf;

    std::vector<uint8_t> font8 = buildFont8(parsePsf(readGzip(psf), psf));
    writeTable(dir + "/display/font8.cpp", "font8", font8, 8, identity, baseName(psf).c_str());

    std::vector<uint8_t> big = buildFont15x24(ttf);
    writeTable(dir + "/display/font15x24.cpp", "font15x24", big, 2 * big_height, bigGlyphChar,
               baseName(ttf).c_str());
    return 0;
}
