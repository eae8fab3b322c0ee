// Text drawing into the frame buffer, checked pixel by pixel against the glyph tables.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "display/win.h"
#include "display/winstd.h"
#include "tests/helpers/run.h"

namespace {

const Color background = {1, 2, 3, 4};
const Color guard = {0xAB, 0xCD, 0xEF, 0x12};
const int guard_pixels = 4096;

bool sameColor(Color a, Color b) { return memcmp(&a, &b, sizeof a) == 0; }

bool font8Bit(unsigned char c, int col, int row) { return font8[c * 8 + row] >> (7 - col) & 1; }

unsigned bigRow(int glyph, int row) {
    const unsigned char* p = &font15x24[(glyph * 24 + row) * 2];
    return p[0] | p[1] << 8;
}

bool bigBit(int glyph, int col, int row) { return bigRow(glyph, row) >> (14 - col) & 1; }

// A frame buffer with guard pixels before and after it, installed in the window globals.
class TextTest : public ::testing::Test {
protected:
    std::vector<Color> memory;
    std::vector<Color> expected;

    void makeBuffer(int width, int height) {
        memory.assign(width * height + 2 * guard_pixels, guard);
        win_width = width;
        win_height = height;
        win_size = width * height;
        win_data = memory.data() + guard_pixels;
        for (int i = 0; i < win_size; i++) win_data[i] = background;
        expected.assign(win_data, win_data + win_size);
    }
    void SetUp() override { makeBuffer(160, 80); }
    void TearDown() override {
        win_data = nullptr;
        win_width = win_height = win_size = 0;
    }

    Color& pixel(int x, int y) { return win_data[y * win_width + x]; }
    bool inside(int x, int y) const { return x >= 0 && x < win_width && y >= 0 && y < win_height; }

    // Marks in `expected` the set bits of an 8 x 8 glyph placed with its top-left at (x, y).
    void expectSmall(unsigned char c, int x, int y, Color color) {
        for (int row = 0; row < 8; row++)
            for (int col = 0; col < 8; col++)
                if (font8Bit(c, col, row) && inside(x + col, y + row)) expected[(y + row) * win_width + x + col] = color;
    }
    void expectSmallText(const char* text, int x, int y, Color color) {
        for (; *text; text++, x += 8) expectSmall(*text, x, y, color);
    }
    void expectBig(int glyph, int x, int y, Color color) {
        for (int row = 0; row < 24; row++)
            for (int col = 0; col < 15; col++)
                if (bigBit(glyph, col, row) && inside(x + col, y + row)) expected[(y + row) * win_width + x + col] = color;
    }
    // Compact output column k shows glyph columns 2k - 1 and 2k (column -1 is the always-clear bit 15).
    void expectCompact(int glyph, int x, int y, Color color) {
        for (int row = 0; row < 24; row++)
            for (int k = 0; k < 8; k++) {
                if (!inside(x + k, y + row)) continue;
                bool left = k > 0 && bigBit(glyph, 2 * k - 1, row), right = bigBit(glyph, 2 * k, row);
                Color& e = expected[(y + row) * win_width + x + k];
                if (left && right)
                    e = color;
                else if (left || right)
                    e = {(unsigned char)((e.r + 2 * color.r) / 3), (unsigned char)((e.g + 2 * color.g) / 3),
                         (unsigned char)((e.b + 2 * color.b) / 3), 0};
            }
    }

    // Every pixel of the buffer matches `expected` and no guard pixel was touched.
    void checkBuffer() {
        int wrong = 0;
        for (int y = 0; y < win_height; y++)
            for (int x = 0; x < win_width; x++)
                if (!sameColor(pixel(x, y), expected[y * win_width + x]) && wrong++ < 5)
                    ADD_FAILURE() << "pixel (" << x << ", " << y << ") differs";
        EXPECT_EQ(wrong, 0);
        checkGuards();
    }
    void checkGuards() {
        for (int i = 0; i < guard_pixels; i++) {
            ASSERT_TRUE(sameColor(memory[i], guard)) << "written before the buffer";
            ASSERT_TRUE(sameColor(memory[guard_pixels + win_size + i], guard)) << "written after the buffer";
        }
    }

    struct Box {
        int x0, y0, x1, y1;   // inclusive; x0 > x1 when empty
    };
    Box changedBox() {
        Box box = {win_width, win_height, -1, -1};
        for (int y = 0; y < win_height; y++)
            for (int x = 0; x < win_width; x++)
                if (!sameColor(pixel(x, y), background)) {
                    box.x0 = std::min(box.x0, x);
                    box.y0 = std::min(box.y0, y);
                    box.x1 = std::max(box.x1, x);
                    box.y1 = std::max(box.y1, y);
                }
        return box;
    }
    // The box of the set bits of "AB" drawn in the small font at (x, y).
    Box glyphBoxAB(int x, int y) {
        Box box = {1 << 30, 1 << 30, -1, -1};
        const char* text = "AB";
        for (int i = 0; i < 2; i++)
            for (int row = 0; row < 8; row++)
                for (int col = 0; col < 8; col++)
                    if (font8Bit(text[i], col, row)) {
                        box.x0 = std::min(box.x0, x + 8 * i + col);
                        box.y0 = std::min(box.y0, y + row);
                        box.x1 = std::max(box.x1, x + 8 * i + col);
                        box.y1 = std::max(box.y1, y + row);
                    }
        return box;
    }
};

TEST(FontTables, UpperCaseAOfTheSmallFont) {
    const unsigned char rows[8] = {0x30, 0x78, 0xCC, 0xCC, 0xFC, 0xCC, 0xCC, 0x00};
    EXPECT_EQ(memcmp(&font8['A' * 8], rows, 8), 0);
}

TEST(FontTables, SmallFontSpaceIsBlankAndLettersAreNot) {
    for (int row = 0; row < 8; row++) EXPECT_EQ(font8[' ' * 8 + row], 0);
    for (int c = 'a'; c <= 'z'; c++) {
        int bits = 0;
        for (int row = 0; row < 8; row++) bits |= font8[c * 8 + row];
        EXPECT_NE(bits, 0) << "character " << c;
    }
}

TEST(FontTables, BigFontLeavesBit15ClearEverywhere) {
    for (int g = 0; g < 192; g++)
        for (int row = 0; row < 24; row++) ASSERT_EQ(bigRow(g, row) & 0x8000, 0u) << "glyph " << g << " row " << row;
}

TEST(FontTables, BigFontSpacesAreBlankAndPrintablesAreNot) {
    for (int g : {0, 96})   // characters 32 and 160
        for (int row = 0; row < 24; row++) EXPECT_EQ(bigRow(g, row), 0u);
    for (int g = 1; g < 192; g++) {
        if (g == 96) continue;   // no-break space
        unsigned bits = 0;
        for (int row = 0; row < 24; row++) bits |= bigRow(g, row);
        EXPECT_NE(bits, 0u) << "glyph " << g;
    }
}

TEST(FontTables, BigGlyphChoice) {
    EXPECT_EQ(bigGlyphIndex(' '), 0);
    EXPECT_EQ(bigGlyphIndex('A'), 33);
    EXPECT_EQ(bigGlyphIndex(127), 95);
    EXPECT_EQ(bigGlyphIndex(160), 96);
    EXPECT_EQ(bigGlyphIndex(191), 127);
    EXPECT_EQ(bigGlyphIndex(200), 136);
    EXPECT_EQ(bigGlyphIndex(255), 191);
    for (int c : {0, 10, 31, 128, 150, 159}) EXPECT_EQ(bigGlyphIndex(c), 127) << "character " << c;
}

TEST(FontTables, BigGlyphRowReadsLittleEndianWords) {
    for (int g = 0; g < 192; g++)
        for (int row = 0; row < 24; row++) ASSERT_EQ(bigGlyphRow(g, row), bigRow(g, row));
}

TEST_F(TextTest, EmptyStringDrawsNothing) {
    putText("", 10, 10, color_White, 0, 0);
    putBigText("", 10, 10, color_White, 0, 0, false);
    putBigText("", 10, 10, color_White, 1, 1, true);
    checkBuffer();
}

TEST_F(TextTest, NamedColours) {
    EXPECT_TRUE(sameColor(color_White, Color{255, 255, 255, 0}));
    EXPECT_TRUE(sameColor(color_Black, Color{0, 0, 0, 0}));
}

TEST_F(TextTest, CentredSmallTextCoversItsCells) {
    const Color c = {10, 20, 30, 40};
    putText("AB", 100, 50, c, 0, 0);
    expectSmallText("AB", 92, 46, c);
    checkBuffer();
    Box got = changedBox(), want = glyphBoxAB(92, 46);
    EXPECT_EQ(got.x0, want.x0);
    EXPECT_EQ(got.y0, want.y0);
    EXPECT_EQ(got.x1, want.x1);
    EXPECT_EQ(got.y1, want.y1);
    EXPECT_GE(got.x0, 92);
    EXPECT_LE(got.x1, 107);
    EXPECT_GE(got.y0, 46);
    EXPECT_LE(got.y1, 53);
}

TEST_F(TextTest, SmallTextWritesAllFourBytesOfTheColour) {
    const Color c = {9, 8, 7, 255};
    putText("A", 20, 20, c, 2, 2);
    EXPECT_TRUE(sameColor(pixel(22, 20), c));   // top row 0x30: columns 2 and 3
    EXPECT_TRUE(sameColor(pixel(23, 20), c));
    EXPECT_TRUE(sameColor(pixel(21, 20), background));
}

TEST_F(TextTest, SmallTextAlignments) {
    struct Case {
        int halign, valign, x, y;
    } cases[] = {{0, 0, 88, 46}, {1, 1, 76, 42}, {2, 2, 100, 50}, {-1, 7, 100, 50}, {1, 0, 76, 46}, {0, 1, 88, 42}};
    for (const Case& k : cases) {
        makeBuffer(160, 80);
        putText("ABC", 100, 50, color_White, k.halign, k.valign);
        expectSmallText("ABC", k.x, k.y, color_White);
        SCOPED_TRACE(testing::Message() << "halign " << k.halign << " valign " << k.valign);
        checkBuffer();
    }
}

TEST_F(TextTest, SmallTextIndexesGlyphsByUnsignedByte) {
    const char text[] = {(char)200, (char)10, 0};
    putText(text, 10, 10, color_White, 2, 2);
    expectSmall(200, 10, 10, color_White);
    expectSmall(10, 18, 10, color_White);
    checkBuffer();
}

TEST_F(TextTest, NegativeXIsClippedWithoutWrapping) {
    putText("AB", -5, 10, color_White, 2, 2);
    expectSmallText("AB", -5, 10, color_White);
    checkBuffer();
    putBigText("W", -9, 30, color_White, 2, 2, false);
    expectBig(bigGlyphIndex('W'), -9, 30, color_White);
    checkBuffer();
}

TEST_F(TextTest, TextAboveTheTopIsClipped) {
    putText("A", 10, -4, color_White, 2, 2);
    putBigText("g", 30, -20, color_White, 2, 2, true);
    expectSmall('A', 10, -4, color_White);
    expectCompact(bigGlyphIndex('g'), 30, -20, color_White);
    checkBuffer();
}

TEST_F(TextTest, RightAndBottomEdgesClip) {
    putText("AAAA", 150, 76, color_White, 2, 2);
    putBigText("MW", 140, 60, color_White, 2, 2, false);
    expectSmallText("AAAA", 150, 76, color_White);
    expectBig(bigGlyphIndex('M'), 140, 60, color_White);
    expectBig(bigGlyphIndex('W'), 155, 60, color_White);
    checkBuffer();
}

TEST_F(TextTest, TextWhollyOutsideDrawsNothing) {
    putText("Hello", 1000, 10, color_White, 2, 2);
    putText("Hello", 10, -100, color_White, 2, 2);
    putBigText("Hello", -2000, 10, color_White, 2, 2, false);
    putBigText("Hello", 10, 5000, color_White, 2, 2, true);
    checkBuffer();
}

TEST_F(TextTest, BigTextFullWidth) {
    putBigText("Ag", 10, 10, color_White, 2, 2, false);
    expectBig(bigGlyphIndex('A'), 10, 10, color_White);
    expectBig(bigGlyphIndex('g'), 25, 10, color_White);
    checkBuffer();
}

TEST_F(TextTest, BigTextAlignments) {
    struct Case {
        int halign, valign;
        bool compact;
        int x, y;
    } cases[] = {{0, 0, false, 100 - 45 / 2, 38}, {1, 1, false, 55, 26},    {2, 2, false, 100, 50},
                 {0, 0, true, 88, 38},            {1, 1, true, 76, 26},      {5, -3, true, 100, 50}};
    for (const Case& k : cases) {
        makeBuffer(160, 80);
        putBigText("AbC", 100, 50, color_Black, k.halign, k.valign, k.compact);
        for (int i = 0; i < 3; i++) {
            int g = bigGlyphIndex("AbC"[i]);
            if (k.compact)
                expectCompact(g, k.x + 8 * i, k.y, color_Black);
            else
                expectBig(g, k.x + 15 * i, k.y, color_Black);
        }
        SCOPED_TRACE(testing::Message() << "halign " << k.halign << " valign " << k.valign << " compact "
                                        << k.compact);
        checkBuffer();
    }
}

// At scale 3 every font pixel is a 3 x 3 block, on a canvas other than the frame buffer, which
// is left alone; the alignments measure the scaled text.
TEST_F(TextTest, ScaledBigTextOnACanvas) {
    const int W = 120, H = 90, S = 3;
    std::vector<Color> pixels(W * H, background);
    Canvas canvas = {pixels.data(), W, H};
    putBigTextOn(canvas, "Ag", 60, 45, color_White, 0, 0, S);  // 90 x 72, centred
    int x0 = 60 - 90 / 2, y0 = 45 - 36;
    for (int y = 0; y < H; y++)
        for (int x = 0; x < W; x++) {
            int cx = x - x0, cy = y - y0;
            bool set = cx >= 0 && cx < 90 && cy >= 0 && cy < 72 &&
                       bigBit(bigGlyphIndex("Ag"[cx / 45]), cx % 45 / S, cy / S);
            ASSERT_TRUE(sameColor(pixels[y * W + x], set ? color_White : background)) << "at " << x << "," << y;
        }
    checkBuffer();  // the frame buffer is untouched
}

TEST_F(TextTest, ScaledBigTextIsClippedToTheCanvas) {
    const int W = 40, H = 30;
    std::vector<Color> memory(W * H + 2 * guard_pixels, guard);
    Canvas canvas = {memory.data() + guard_pixels, W, H};
    putBigTextOn(canvas, "WWW", -20, -10, color_White, 2, 2, 4);
    putBigTextOn(canvas, "WWW", 30, 20, color_White, 2, 2, 4);
    for (int i = 0; i < guard_pixels; i++) {
        ASSERT_TRUE(sameColor(memory[i], guard)) << "written before the canvas";
        ASSERT_TRUE(sameColor(memory[guard_pixels + W * H + i], guard)) << "written after the canvas";
    }
}

TEST_F(TextTest, ScaleOneOnTheFrameBufferIsTheBigText) {
    putBigTextOn(Canvas{win_data, win_width, win_height}, "Ag", 100, 50, color_White, 1, 1, 1);
    std::vector<Color> scaled(win_data, win_data + win_size);
    makeBuffer(160, 80);
    putBigText("Ag", 100, 50, color_White, 1, 1, false);
    EXPECT_TRUE(std::equal(scaled.begin(), scaled.end(), win_data, sameColor));
}

TEST_F(TextTest, CentringAnOddWidthRoundsTowardZero) {
    putBigText("A", 50, 40, color_White, 0, 2, false);   // 15 / 2 = 7
    expectBig(bigGlyphIndex('A'), 43, 40, color_White);
    checkBuffer();
}

TEST_F(TextTest, Character200UsesGlyph136) {
    const char text[] = {(char)200, 0};
    putBigText(text, 10, 10, color_White, 2, 2, false);
    expectBig(136, 10, 10, color_White);
    checkBuffer();
}

TEST_F(TextTest, UnprintableCharactersShowTheInvertedQuestionMark) {
    const char text[] = {10, (char)150, (char)191, 0};
    putBigText(text, 10, 10, color_White, 2, 2, false);
    for (int i = 0; i < 3; i++) expectBig(127, 10 + 15 * i, 10, color_White);
    checkBuffer();
    // The glyph really is the inverted question mark: its dot is at the top, not the bottom.
    int firstInk = -1;
    for (int row = 0; row < 24 && firstInk < 0; row++)
        if (bigRow(127, row)) firstInk = row;
    int questionFirstInk = -1;
    for (int row = 0; row < 24 && questionFirstInk < 0; row++)
        if (bigRow(bigGlyphIndex('?'), row)) questionFirstInk = row;
    EXPECT_GT(firstInk, questionFirstInk);
}

TEST_F(TextTest, CompactBlendsHalfCoveredPixels) {
    for (int i = 0; i < win_size; i++) win_data[i] = {0, 0, 0, 77};
    expected.assign(win_data, win_data + win_size);
    const Color c = {255, 255, 255, 9};
    putBigText("AW", 20, 20, c, 2, 2, true);
    expectCompact(bigGlyphIndex('A'), 20, 20, c);
    expectCompact(bigGlyphIndex('W'), 28, 20, c);
    checkBuffer();
    int full = 0, blended = 0;
    for (Color p : expected) {
        full += sameColor(p, c);
        blended += sameColor(p, Color{170, 170, 170, 0});
    }
    EXPECT_GT(full, 0);
    EXPECT_GT(blended, 0);
}

TEST_F(TextTest, CompactBlendUsesIntegerThirds) {
    // Every pair with exactly one bit set gives (old + 2 * colour) / 3 per byte.
    for (int i = 0; i < win_size; i++) win_data[i] = {100, 50, 0, 33};
    const Color c = {10, 200, 255, 0};
    int g = bigGlyphIndex('W');
    putBigText("W", 0, 0, c, 2, 2, true);
    int checked = 0;
    for (int row = 0; row < 24; row++)
        for (int k = 0; k < 8; k++) {
            bool left = k > 0 && bigBit(g, 2 * k - 1, row), right = bigBit(g, 2 * k, row);
            if (left == right) continue;
            EXPECT_TRUE(sameColor(pixel(k, row), Color{40, 150, 170, 0})) << "column " << k << " row " << row;
            checked++;
        }
    EXPECT_GT(checked, 0);
}

TEST_F(TextTest, CompactFirstColumnIsNeverFull) {
    // Bit 15 is clear, so column 0 of every compact glyph is at most a blend.
    std::string all;
    for (int c = 33; c < 127; c++) all += (char)c;
    makeBuffer(8 * (int)all.size(), 24);
    const Color c = {200, 200, 200, 5};
    putBigText(all.c_str(), 0, 0, c, 2, 2, true);
    for (size_t i = 0; i < all.size(); i++)
        for (int row = 0; row < 24; row++) ASSERT_FALSE(sameColor(pixel(8 * (int)i, row), c));
    checkGuards();
}

}  // namespace

namespace {

const char* const console_font = "/usr/share/consolefonts/lat1-08.psf.gz";
const char* const mono_font = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf";

bool exists(const std::string& path) { return access(path.c_str(), R_OK) == 0; }

std::string fileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(GenFonts, RegeneratesTheCommittedTables) {
    if (!exists(buildProgram("gen_fonts")) || !exists(console_font) || !exists(mono_font))
        GTEST_SKIP() << "gen_fonts or its source fonts are not installed here";
    TempDir dir;
    ASSERT_EQ(mkdir(dir.file("display").c_str(), 0755), 0);
    RunResult r = runProgram({buildProgram("gen_fonts"), dir.path, console_font, mono_font});
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char* name : {"display/font8.cpp", "display/font15x24.cpp"}) {
        std::string made = fileText(dir.file(name));
        EXPECT_FALSE(made.empty()) << name;
        EXPECT_EQ(made, fileText(std::string(SLIDES_SOURCE_DIR) + "/" + name)) << name;
    }
}

TEST(GenFonts, RejectsAFileThatIsNoConsoleFont) {
    if (!exists(buildProgram("gen_fonts"))) GTEST_SKIP() << "gen_fonts is not built here";
    TempDir dir;
    ASSERT_EQ(mkdir(dir.file("display").c_str(), 0755), 0);
    std::string bogus = dir.file("bogus.psf");
    std::ofstream(bogus) << "not a font at all";
    RunResult r = runProgram({buildProgram("gen_fonts"), dir.path, bogus, mono_font});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("ERROR! "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("is not a PSF console font"), std::string::npos) << r.err;
    EXPECT_FALSE(exists(dir.file("display/font8.cpp")));
}

TEST(GenFonts, RejectsAConsoleFontCutShort) {
    if (!exists(buildProgram("gen_fonts"))) GTEST_SKIP() << "gen_fonts is not built here";
    TempDir dir;
    ASSERT_EQ(mkdir(dir.file("display").c_str(), 0755), 0);
    std::string cut = dir.file("cut.psf");
    std::ofstream(cut, std::ios::binary) << std::string("\x36\x04\x02\x08", 4) << std::string(100, '\x7E');
    RunResult r = runProgram({buildProgram("gen_fonts"), dir.path, cut, mono_font});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("is cut short"), std::string::npos) << r.err;
}

}  // namespace
