#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "codec/codec.h"
#include "helpers/run.h"
#include "png/png.h"

namespace {

void makeBitmap(Bitmap& b, int w, int h) {
    b.data = allocPixels(w, h);
    b.width = w;
    b.height = h;
}

// A palette of opaque colours plus the see-through pixel, painted in runs and blocks so that
// the region tree has both uniform parts and noisy ones.
void randomBitmap(Bitmap& b, int w, int h, int colours, std::mt19937& rng) {
    makeBitmap(b, w, h);
    std::vector<Color> palette = {color_SeeThrough};
    for (int i = 1; i < colours; i++)
        palette.push_back(Color{(unsigned char)rng(), (unsigned char)rng(), (unsigned char)rng(), 0});
    int blocks = 1 + (int)(rng() % 8);
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) {
            bool noisy = (x / blocks + y / blocks) % 3 == 0;
            b.at(x, y) = palette[noisy ? rng() % colours : (x / blocks * 31 + y / blocks) % colours];
        }
}

// Compresses, decompresses and checks the pixels and that the decoder stopped at the
// stream's last byte.
void expectRoundTrip(Bitmap& b, bool raw) {
    vec<unsigned char> stream;
    compress(b, stream, raw);
    Bitmap back;
    const unsigned char* in = stream.data;
    const unsigned char* end = stream.data + stream.size;
    const char* error = decompress(back, in, end);
    ASSERT_EQ(error, nullptr) << b.width << " x " << b.height << (raw ? " raw" : "");
    ASSERT_EQ(back.width, b.width);
    ASSERT_EQ(back.height, b.height);
    EXPECT_TRUE(in == end || in == end - 1);
    for (int i = 0; i < b.width * b.height; i++)
        ASSERT_EQ(back.data[i], b.data[i]) << "pixel " << i << " of " << b.width << " x " << b.height;
}

}  // namespace

TEST(RoundTrip, AwkwardShapes) {
    std::mt19937 rng(20240601);
    const int sides[] = {1, 2, 3, 5, 7, 8, 9, 16, 17, 31, 33, 64, 100, 127, 129};
    for (int w : sides)
        for (int h : sides) {
            Bitmap b;
            randomBitmap(b, w, h, 2 + (int)(rng() % 40), rng);
            expectRoundTrip(b, false);
            expectRoundTrip(b, true);
        }
}

TEST(RoundTrip, LongThinBitmaps) {
    std::mt19937 rng(7);
    for (int n : {2, 3, 1000, 1005, 4097}) {
        Bitmap row, column;
        randomBitmap(row, n, 1, 5, rng);
        randomBitmap(column, 1, n, 5, rng);
        expectRoundTrip(row, false);
        expectRoundTrip(column, false);
    }
}

TEST(RoundTrip, ManyColours) {
    std::mt19937 rng(99);
    Bitmap b;
    randomBitmap(b, 301, 197, 20000, rng);
    expectRoundTrip(b, false);
    expectRoundTrip(b, true);
}

TEST(RoundTrip, OneColourBitmaps) {
    Bitmap seeThrough, black;
    makeBitmap(seeThrough, 13, 6);
    makeBitmap(black, 6, 13);
    std::fill(seeThrough.data, seeThrough.data + 78, color_SeeThrough);
    std::fill(black.data, black.data + 78, Color{0, 0, 0, 0});
    for (bool raw : {false, true}) {
        expectRoundTrip(seeThrough, raw);
        expectRoundTrip(black, raw);
    }
}

TEST(RoundTrip, CodesLongerThanTheLookUpTable) {
    // Fibonacci-like counts give codes of about 20 bits, past the decoder's table.
    std::vector<Color> pixels;
    int a = 1, b = 1;
    for (int c = 0; c < 21; c++) {
        pixels.insert(pixels.end(), a, Color{(unsigned char)(c * 11), (unsigned char)(c * 5), 200, 0});
        int next = a + b;
        a = b;
        b = next;
    }
    std::shuffle(pixels.begin(), pixels.end(), std::mt19937(3));
    Bitmap bitmap;
    int w = 211, h = (int)pixels.size() / w;
    makeBitmap(bitmap, w, h);
    std::copy(pixels.begin(), pixels.begin() + w * h, bitmap.data);
    expectRoundTrip(bitmap, false);
    expectRoundTrip(bitmap, true);
}

TEST(RoundTrip, EmptyBitmaps) {
    for (int w : {0, 4})
        for (int h : {0, 4}) {
            if (w && h) continue;
            Bitmap b;
            b.width = w;
            b.height = h;
            vec<unsigned char> stream;
            compress(b, stream, false);
            Bitmap back;
            ASSERT_EQ(decompress(back, stream), nullptr);
            EXPECT_EQ(back.width, w);
            EXPECT_EQ(back.height, h);
            EXPECT_EQ(back.data, nullptr);
        }
}

TEST(RoundTrip, EveryCorpusPage) {
    std::string corpus = corpusDir();
    if (corpus.empty()) GTEST_SKIP() << "slide corpus not found beside the source folder";
    int pages = 0;
    for (const char* deck : {"conference-talk", "metropolis"}) {
        std::ifstream list(corpus + "/" + deck + "/slides.txt");
        std::string file;
        int flag;
        while (list >> file >> flag) {
            std::string path = corpus + "/" + deck + "/" + file;
            Bitmap page;
            ASSERT_TRUE(readPng(path.c_str(), page)) << path;
            SCOPED_TRACE(path);
            expectRoundTrip(page, false);
            if (pages % 16 == 0) expectRoundTrip(page, true);
            pages++;
        }
    }
    EXPECT_GT(pages, 0);
}
