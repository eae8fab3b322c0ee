// The packer's encoder: every stream decodes with decompress and, laid over what lies under it,
// gives back the page; see-through and unseen pixels are used to make streams smaller.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "codec/codec.h"
#include "helpers/run.h"
#include "png/png.h"
#include "codec/encoder.h"

namespace {

void makeBitmap(Bitmap& b, int width, int height) {
    b.clear();
    b.data = allocPixels(width, height);
    b.width = width;
    b.height = height;
}

Color randomColour(std::mt19937& rng, int palette) {
    int k = (int)(rng() % palette);
    return Color{(unsigned char)(k * 37), (unsigned char)(k * 11 >> 2), (unsigned char)k, 0};
}

// Decodes stream, lays it over under (null: nothing) and compares with page where any is 0.
::testing::AssertionResult reproduces(vec<unsigned char>& stream, const Bitmap& page, const Bitmap* under,
                                      const unsigned char* any) {
    Bitmap decoded;
    const unsigned char* in = stream.data;
    const unsigned char* end = stream.data + stream.size;
    if (const char* error = decompress(decoded, in, end))
        return ::testing::AssertionFailure() << "decompress: " << error;
    if (stream.size > 0 && in != end - 1 && in != end)
        return ::testing::AssertionFailure() << "stream has " << (end - in) << " bytes past its last bit";
    if (decoded.width != page.width || decoded.height != page.height)
        return ::testing::AssertionFailure() << "size " << decoded.width << "x" << decoded.height;
    for (int i = 0; i < page.width * page.height; i++) {
        Color c = decoded.data[i];
        if (isSeeThrough(c) && under) c = under->data[i];
        if ((!any || !any[i]) && c != page.data[i]) return ::testing::AssertionFailure() << "pixel " << i << " differs";
    }
    return ::testing::AssertionSuccess();
}

vec<unsigned char> encoded;

vec<unsigned char>& encode(const Bitmap& page, const Bitmap* under, const unsigned char* any,
                           Effort effort = kFullEffort) {
    IndexedPage indexed;
    indexPage(page, indexed);
    encoded.clear();
    EXPECT_TRUE(encodePage(indexed, under, any, effort, encoded));
    return encoded;
}

// A page of blocks of few colours with noise, the block edges falling anywhere.
void blockyPage(Bitmap& page, int width, int height, int palette, std::mt19937& rng) {
    makeBitmap(page, width, height);
    int block = 1 + (int)(rng() % 7);
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) {
            std::mt19937 cell((unsigned)(x / block * 7919 + y / block));
            page.at(x, y) = rng() % 9 == 0 ? randomColour(rng, palette) : randomColour(cell, palette);
        }
}

TEST(Encoder, AwkwardShapesRoundTrip) {
    std::mt19937 rng(5);
    const int shapes[][2] = {{1, 1}, {1, 2}, {2, 1}, {1, 37}, {41, 1}, {3, 3}, {5, 7}, {17, 9}, {33, 65}, {100, 3}};
    for (const auto& s : shapes)
        for (int palette : {1, 2, 5, 300}) {
            Bitmap page, under;
            blockyPage(page, s[0], s[1], palette, rng);
            blockyPage(under, s[0], s[1], palette, rng);
            for (int i = 0; i < s[0] * s[1]; i++)
                if (rng() % 3 == 0) under.data[i] = page.data[i];
            vec<unsigned char> any;
            any.resize(s[0] * s[1]);
            for (unsigned char& a : any) a = rng() % 4 == 0;
            std::string what = std::to_string(s[0]) + "x" + std::to_string(s[1]) + " palette " + std::to_string(palette);
            EXPECT_TRUE(reproduces(encode(page, nullptr, nullptr), page, nullptr, nullptr)) << what;
            EXPECT_TRUE(reproduces(encode(page, &under, nullptr), page, &under, nullptr)) << what;
            EXPECT_TRUE(reproduces(encode(page, &under, any.data), page, &under, any.data)) << what;
            EXPECT_TRUE(reproduces(encode(page, nullptr, any.data), page, nullptr, any.data)) << what;
        }
}

TEST(Encoder, ManyColoursRoundTrip) {
    std::mt19937 rng(11);
    Bitmap page, under;
    makeBitmap(page, 211, 157);
    makeBitmap(under, 211, 157);
    for (int i = 0; i < 211 * 157; i++) {
        page.data[i] = Color{(unsigned char)rng(), (unsigned char)rng(), (unsigned char)rng(), 0};
        under.data[i] = i % 5 ? page.data[i] : Color{1, 2, 3, 0};
    }
    for (Effort effort : {kQuickEffort, Effort{2, 2}, Effort{1, 5}}) {
        EXPECT_TRUE(reproduces(encode(page, nullptr, nullptr, effort), page, nullptr, nullptr));
        EXPECT_TRUE(reproduces(encode(page, &under, nullptr, effort), page, &under, nullptr));
    }
}

TEST(Encoder, PageEqualToWhatLiesUnderIsOneSeeThroughLeaf) {
    std::mt19937 rng(3);
    Bitmap page;
    blockyPage(page, 300, 200, 50, rng);
    vec<unsigned char>& stream = encode(page, &page, nullptr);
    EXPECT_TRUE(reproduces(stream, page, &page, nullptr));
    // Header (5 bytes), one colour, its frequency, one byte of bits: a single uniform leaf.
    EXPECT_LE(stream.size, 8);
    Bitmap decoded;
    ASSERT_EQ(decompress(decoded, stream), nullptr);
    for (int i = 0; i < 300 * 200; i++) ASSERT_TRUE(isSeeThrough(decoded.data[i]));
}

TEST(Encoder, RegionsThatMaySeeThroughMergeAcrossColours) {
    // Left half: noise that equals what lies under it; right half one colour. Coded as a split
    // into a see-through part and a one-colour part, the stream stays tiny.
    std::mt19937 rng(8);
    Bitmap page, under;
    blockyPage(page, 256, 128, 200, rng);
    makeBitmap(under, 256, 128);
    for (int y = 0; y < 128; y++)
        for (int x = 0; x < 256; x++) {
            if (x >= 128) page.at(x, y) = Color{9, 9, 9, 0};
            under.at(x, y) = x < 128 ? page.at(x, y) : Color{200, 0, 0, 0};
        }
    vec<unsigned char>& stream = encode(page, &under, nullptr);
    EXPECT_TRUE(reproduces(stream, page, &under, nullptr));
    EXPECT_LE(stream.size, 16);
}

TEST(Encoder, UnseenPixelsTakeAnyColour) {
    std::mt19937 rng(21);
    Bitmap page;
    makeBitmap(page, 190, 130);
    vec<unsigned char> any;
    any.resize(190 * 130);
    // Noise everywhere except a frame of one colour; only the frame is seen.
    for (int y = 0; y < 130; y++)
        for (int x = 0; x < 190; x++) {
            bool frame = x < 10 || y < 10 || x >= 180 || y >= 120;
            page.at(x, y) = frame ? Color{0, 80, 160, 0} : Color{(unsigned char)rng(), (unsigned char)rng(), 7, 0};
            any[y * 190 + x] = !frame;
        }
    vec<unsigned char>& stream = encode(page, nullptr, any.data);
    EXPECT_TRUE(reproduces(stream, page, nullptr, any.data));
    EXPECT_LE(stream.size, 16) << "the unseen noise should cost nothing";

    for (unsigned char& a : any) a = 1;
    EXPECT_LE(encode(page, nullptr, any.data).size, 10);
}

TEST(Encoder, FullEffortIsNeverLargerThanTheQuickEstimate) {
    // Full effort runs the quick estimate's round among others and keeps the smallest plan.
    std::mt19937 rng(31);
    for (int trial = 0; trial < 6; trial++) {
        Bitmap page, under;
        blockyPage(page, 120 + trial * 13, 90 + trial * 7, 3 + trial * 40, rng);
        blockyPage(under, page.width, page.height, 3 + trial * 40, rng);
        for (int i = 0; i < page.width * page.height; i++)
            if (rng() % (trial + 2) == 0) under.data[i] = page.data[i];
        int quick = encode(page, &under, nullptr, kQuickEffort).size;
        vec<unsigned char>& full = encode(page, &under, nullptr, kFullEffort);
        EXPECT_TRUE(reproduces(full, page, &under, nullptr)) << "trial " << trial;
        EXPECT_LE(full.size, quick) << "trial " << trial;
    }
}

TEST(Encoder, FewerBytesThanThePlainEncoderOnCorpusPages) {
    if (corpusDir().empty()) GTEST_SKIP() << "corpus folder ../shared/corpus is absent";
    for (const char* deck : {"conference-talk", "metropolis"}) {
        std::string dir = corpusDir() + "/" + deck;
        Bitmap previous, page, scratch;
        ASSERT_TRUE(readPng((dir + "/page_001.png").c_str(), previous));
        ASSERT_TRUE(readPng((dir + "/page_002.png").c_str(), page));
        makeBitmap(scratch, page.width, page.height);
        for (int i = 0; i < page.width * page.height; i++)
            scratch.data[i] = page.data[i] == previous.data[i] ? color_SeeThrough : page.data[i];
        vec<unsigned char> plain_over, plain_alone;
        compress(scratch, plain_over, false);
        compress(page, plain_alone, false);

        vec<unsigned char>& over = encode(page, &previous, nullptr);
        EXPECT_TRUE(reproduces(over, page, &previous, nullptr)) << deck;
        EXPECT_LT(over.size, plain_over.size) << deck;
        printf("%s page 2 over page 1: %d bytes, plain encoder %d\n", deck, over.size, plain_over.size);

        vec<unsigned char>& alone = encode(page, nullptr, nullptr);
        EXPECT_TRUE(reproduces(alone, page, nullptr, nullptr)) << deck;
        EXPECT_LT(alone.size, plain_alone.size) << deck;
        printf("%s page 2 alone: %d bytes, plain encoder %d\n", deck, alone.size, plain_alone.size);
    }
}

}  // namespace
