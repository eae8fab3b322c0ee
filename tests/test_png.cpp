#include <gtest/gtest.h>
#include <png.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "helpers/bitmaps.h"
#include "helpers/run.h"
#include "png/png.h"

namespace {

// A PNG as libpng would describe it, written directly so the reader meets every layout.
struct TestImage {
    int width, height, colour_type, bit_depth;
    std::vector<std::vector<unsigned char> > rows;
    std::vector<png_color> palette;
    std::vector<unsigned char> palette_alpha;
};

// A comment, when given, is written as a tEXt chunk.
void writeTestPng(const std::string& path, TestImage& img, const std::string& comment = "") {
    FILE* f = fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, img.width, img.height, img.bit_depth, img.colour_type, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!img.palette.empty()) png_set_PLTE(png, info, img.palette.data(), (int)img.palette.size());
    if (!img.palette_alpha.empty())
        png_set_tRNS(png, info, img.palette_alpha.data(), (int)img.palette_alpha.size(), nullptr);
    png_text text = {};
    text.compression = PNG_TEXT_COMPRESSION_NONE;
    text.key = (char*)"Comment";
    text.text = (char*)comment.c_str();
    text.text_length = comment.size();
    if (!comment.empty()) png_set_text(png, info, &text, 1);
    png_write_info(png, info);
    for (auto& row : img.rows) png_write_row(png, row.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    fclose(f);
}

// Reads a PNG as 8-bit RGBA with libpng directly.
std::vector<unsigned char> readRgba(const std::string& path, int& w, int& h) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    std::vector<unsigned char> pixels;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return pixels;
    image.format = PNG_FORMAT_RGBA;
    pixels.resize(PNG_IMAGE_SIZE(image));
    png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr);
    w = (int)image.width;
    h = (int)image.height;
    return pixels;
}

void makeBitmap(Bitmap& b, int w, int h) {
    b.data = allocPixels(w, h);
    b.width = w;
    b.height = h;
}

std::vector<unsigned char> fileBytes(const std::string& path) {
    std::vector<unsigned char> bytes;
    FILE* f = fopen(path.c_str(), "rb");
    int c;
    while (f && (c = fgetc(f)) != EOF) bytes.push_back((unsigned char)c);
    if (f) fclose(f);
    return bytes;
}

void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes) {
    FILE* f = fopen(path.c_str(), "wb");
    fwrite(bytes.data(), 1, bytes.size(), f);
    fclose(f);
}

}  // namespace

TEST(WritePng, TransparencyBecomesAlpha) {
    TempDir dir;
    Bitmap b;
    makeBitmap(b, 2, 1);
    b.data[0] = color_SeeThrough;
    b.data[1] = Color{10, 20, 30, 0};
    ASSERT_TRUE(writePng(dir.file("a.png").c_str(), b));
    int w = 0, h = 0;
    std::vector<unsigned char> rgba = readRgba(dir.file("a.png"), w, h);
    ASSERT_EQ(w, 2);
    ASSERT_EQ(h, 1);
    EXPECT_EQ(rgba, (std::vector<unsigned char>{0, 0, 0, 0, 10, 20, 30, 255}));
}

TEST(WritePng, FailsOnAnUnwritablePath) {
    Bitmap b;
    makeBitmap(b, 1, 1);
    b.data[0] = Color{1, 2, 3, 0};
    EXPECT_FALSE(writePng("/nonexistent-folder/x.png", b));
}

TEST(ReadPng, RoundTripKeepsEveryTransparency) {
    TempDir dir;
    Bitmap b;
    makeBitmap(b, 256, 3);
    for (int y = 0; y < 3; y++)
        for (int x = 0; x < 256; x++)
            b.at(x, y) = Color{(unsigned char)x, (unsigned char)(255 - x), (unsigned char)(y * 80), (unsigned char)x};
    ASSERT_TRUE(writePng(dir.file("t.png").c_str(), b));
    Bitmap back;
    ASSERT_TRUE(readPng(dir.file("t.png").c_str(), back));
    ASSERT_EQ(back.width, 256);
    ASSERT_EQ(back.height, 3);
    for (int i = 0; i < 256 * 3; i++) ASSERT_EQ(back.data[i], b.data[i]) << i;
}

TEST(ReadPng, RgbIsOpaque) {
    TempDir dir;
    TestImage img{2, 1, PNG_COLOR_TYPE_RGB, 8, {{1, 2, 3, 250, 251, 252}}, {}, {}};
    writeTestPng(dir.file("rgb.png"), img);
    Bitmap b;
    ASSERT_TRUE(readPng(dir.file("rgb.png").c_str(), b));
    EXPECT_EQ(b.data[0], (Color{1, 2, 3, 0}));
    EXPECT_EQ(b.data[1], (Color{250, 251, 252, 0}));
}

TEST(ReadPng, PaletteWithTransparencyChunk) {
    TempDir dir;
    TestImage img{3, 1, PNG_COLOR_TYPE_PALETTE, 8, {{0, 1, 2}}, {{9, 8, 7}, {100, 110, 120}, {5, 6, 7}}, {0, 200}};
    writeTestPng(dir.file("pal.png"), img);
    Bitmap b;
    ASSERT_TRUE(readPng(dir.file("pal.png").c_str(), b));
    EXPECT_EQ(b.data[0], (Color{9, 8, 7, 255}));
    EXPECT_EQ(b.data[1], (Color{100, 110, 120, 55}));
    EXPECT_EQ(b.data[2], (Color{5, 6, 7, 0}));  // entries past the chunk are opaque
}

TEST(ReadPng, SixteenBitSamplesKeepTheirHighByte) {
    TempDir dir;
    TestImage img{1, 1, PNG_COLOR_TYPE_RGB_ALPHA, 16, {{0x12, 0x34, 0xAB, 0xCD, 0xFE, 0x01, 0x40, 0xFF}}, {}, {}};
    writeTestPng(dir.file("16.png"), img);
    Bitmap b;
    ASSERT_TRUE(readPng(dir.file("16.png").c_str(), b));
    EXPECT_EQ(b.data[0], (Color{0x12, 0xAB, 0xFE, 255 - 0x40}));
}

TEST(ReadPng, GreyAndGreyWithAlpha) {
    TempDir dir;
    TestImage grey{2, 1, PNG_COLOR_TYPE_GRAY, 8, {{0, 77}}, {}, {}};
    TestImage greyAlpha{1, 1, PNG_COLOR_TYPE_GRAY_ALPHA, 8, {{90, 30}}, {}, {}};
    TestImage bilevel{3, 1, PNG_COLOR_TYPE_GRAY, 1, {{0xA0}}, {}, {}};  // bits 1 0 1
    writeTestPng(dir.file("g.png"), grey);
    writeTestPng(dir.file("ga.png"), greyAlpha);
    writeTestPng(dir.file("g1.png"), bilevel);
    Bitmap g, ga, g1;
    ASSERT_TRUE(readPng(dir.file("g.png").c_str(), g));
    ASSERT_TRUE(readPng(dir.file("ga.png").c_str(), ga));
    ASSERT_TRUE(readPng(dir.file("g1.png").c_str(), g1));
    EXPECT_EQ(g.data[1], (Color{77, 77, 77, 0}));
    EXPECT_EQ(ga.data[0], (Color{90, 90, 90, 225}));
    EXPECT_EQ(g1.data[0], (Color{255, 255, 255, 0}));
    EXPECT_EQ(g1.data[1], (Color{0, 0, 0, 0}));
}

TEST(ReadPng, WrongSignatureLeavesTheBitmapUntouched) {
    TempDir dir;
    writeBytes(dir.file("not.png"), {'G', 'I', 'F', '8', '9', 'a', 0, 0, 0, 0, 0, 0});
    Bitmap b;
    Color pixel = {4, 5, 6, 7};
    b.owned = false;
    b.data = &pixel;
    b.width = b.height = 1;
    EXPECT_FALSE(readPng(dir.file("not.png").c_str(), b));
    EXPECT_FALSE(b.owned);
    EXPECT_EQ(b.data, &pixel);
    EXPECT_EQ(b.width, 1);
    EXPECT_FALSE(readPng(dir.file("missing.png").c_str(), b));
    EXPECT_EQ(b.data, &pixel);
}

TEST(ReadPng, TruncatedFileFailsAndClears) {
    TempDir dir;
    Bitmap b;
    makeBitmap(b, 40, 30);
    for (int i = 0; i < 1200; i++) b.data[i] = Color{(unsigned char)(i * 13), (unsigned char)i, 3, 0};
    ASSERT_TRUE(writePng(dir.file("full.png").c_str(), b));
    std::vector<unsigned char> bytes = fileBytes(dir.file("full.png"));
    for (size_t n : {9ul, 20ul, 40ul, bytes.size() / 2, bytes.size() - 13}) {
        writeBytes(dir.file("cut.png"), std::vector<unsigned char>(bytes.begin(), bytes.begin() + n));
        Bitmap back;
        EXPECT_FALSE(readPng(dir.file("cut.png").c_str(), back)) << n << " bytes";
        expectCleared(back);
        EXPECT_STRNE(pngLastError(), "");
    }
}

TEST(ReadPng, CorruptDataFailsAndClears) {
    TempDir dir;
    Bitmap b;
    makeBitmap(b, 16, 16);
    for (int i = 0; i < 256; i++) b.data[i] = Color{(unsigned char)i, 0, 0, 0};
    ASSERT_TRUE(writePng(dir.file("ok.png").c_str(), b));
    std::vector<unsigned char> bytes = fileBytes(dir.file("ok.png"));
    for (size_t i = 33; i < bytes.size() - 12; i++) bytes[i] ^= 0x5A;  // everything after IHDR
    writeBytes(dir.file("bad.png"), bytes);
    Bitmap back;
    EXPECT_FALSE(readPng(dir.file("bad.png").c_str(), back));
    expectCleared(back);
}

TEST(ReadPng, RejectsSizesBeyondTheLimits) {
    TempDir dir;
    TestImage wide{70000, 1, PNG_COLOR_TYPE_GRAY, 1, {std::vector<unsigned char>(8750, 0)}, {}, {}};
    writeTestPng(dir.file("wide.png"), wide);
    Bitmap b;
    EXPECT_FALSE(readPng(dir.file("wide.png").c_str(), b));
    expectCleared(b);
}

// A text chunk is skipped unread: libpng would otherwise allocate and fill a buffer of whatever
// length the chunk declares. The reading child's peak memory tells.
TEST(ReadPng, TextChunksCostNoMemory) {
    TempDir dir;
    TestImage img{16, 2, PNG_COLOR_TYPE_GRAY, 8, {std::vector<unsigned char>(16, 7), std::vector<unsigned char>(16, 9)},
                  {}, {}};
    writeTestPng(dir.file("text.png"), img, std::string(64 << 20, 'x'));
    pid_t child = fork();
    if (child == 0) {
        rusage before, after;
        getrusage(RUSAGE_SELF, &before);
        Bitmap b;
        bool read = readPng(dir.file("text.png").c_str(), b) && b.width == 16 && b.at(3, 1).r == 9;
        getrusage(RUSAGE_SELF, &after);
        long grown_kb = after.ru_maxrss - before.ru_maxrss;
        _exit(!read ? 1 : grown_kb > (16 << 10) ? 2 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_NE(WEXITSTATUS(status), 1) << "the image was not read";
    EXPECT_NE(WEXITSTATUS(status), 2) << "reading took the text chunk's 64 MB";
}

TEST(ReadPng, CorpusPageIsOpaque) {
    std::string corpus = corpusDir();
    if (corpus.empty()) GTEST_SKIP() << "slide corpus not found beside the source folder";
    Bitmap b;
    ASSERT_TRUE(readPng((corpus + "/metropolis/page_001.png").c_str(), b));
    EXPECT_EQ(b.width, 1005);
    EXPECT_EQ(b.height, 754);
    for (int i = 0; i < b.width * b.height; i++) ASSERT_EQ(b.data[i].transparency, 0);
}
