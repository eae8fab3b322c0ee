#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "codec/codec.h"
#include "helpers/bitmaps.h"

namespace {

typedef std::vector<unsigned char> Bytes;

const Bytes kBlackScreen = {0x00, 0xED, 0x07, 0xF2, 0x05, 0x02, 0x00, 0x00, 0x00, 0x00, 0x8A, 0xA0, 0x2E, 0x02};
// 1 x 2: (1,1,1) above (2,2,2); split, empty part + symbol, pixel, empty part + symbol, pixel.
const Bytes kTwoHigh = {0x00, 0x01, 0x02, 0x03, 0x01, 0x01, 0x01, 0x02, 0x02, 0x02, 0x00, 0x01, 0x01, 0xE1, 0x01};

// Decodes from a heap copy of exactly the stream's bytes; reports how many bytes `in` moved.
const char* decode(const Bytes& stream, Bitmap& bitmap, long* advanced = nullptr) {
    unsigned char* copy = (unsigned char*)malloc(stream.size() ? stream.size() : 1);
    if (!stream.empty()) memcpy(copy, stream.data(), stream.size());
    const unsigned char* in = copy;
    const char* error = decompress(bitmap, in, copy + stream.size());
    if (advanced) *advanced = in - copy;
    free(copy);
    return error;
}

void expectAll(const Bitmap& b, Color c) {
    for (int i = 0; i < b.width * b.height; i++) ASSERT_EQ(b.data[i], c) << "pixel " << i;
}

Bytes encode(Bitmap& b, bool raw) {
    vec<unsigned char> out;
    compress(b, out, raw);
    return Bytes(out.begin(), out.end());
}

// A bitmap whose pixels are many colours in small patches, to give the stream some depth.
void patchwork(Bitmap& b, int w, int h) {
    b.data = allocPixels(w, h);
    b.width = w;
    b.height = h;
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++)
            b.at(x, y) = (x / 3 + y / 2) % 5 == 0 ? color_SeeThrough
                                                  : Color{(unsigned char)(x * 7), (unsigned char)(y * 3), 9, 0};
}

void expectRejectedAndCleared(const Bytes& stream, const char* what) {
    Bitmap b;
    Color outside = {1, 2, 3, 4};
    b.owned = false;  // a view of someone else's pixel: must not be freed
    b.data = &outside;
    b.width = b.height = 1;
    const char* error = decode(stream, b);
    ASSERT_NE(error, nullptr) << what;
    EXPECT_GT(strlen(error), 0u);
    expectCleared(b);
}

}  // namespace

TEST(Decompress, BlackScreenExample) {
    Bitmap b;
    long advanced = 0;
    ASSERT_EQ(decode(kBlackScreen, b, &advanced), nullptr);
    EXPECT_EQ(b.width, 1005);
    EXPECT_EQ(b.height, 754);
    expectAll(b, Color{0, 0, 0, 0});
    EXPECT_EQ(advanced, 13);  // at the last byte: two of its bits were read
}

TEST(Decompress, RawBlackScreenReadsEveryPixel) {
    Bytes raw = {0x01, 0xED, 0x07, 0xF2, 0x05, 0x02, 0x00, 0x00, 0x00, 0x00, 0x8A, 0xA0, 0x2E};
    raw.insert(raw.end(), 94721, 0xFF);
    raw.push_back(0x03);
    Bitmap b;
    long advanced = 0;
    ASSERT_EQ(decode(raw, b, &advanced), nullptr);
    EXPECT_EQ(b.width, 1005);
    expectAll(b, Color{0, 0, 0, 0});
    EXPECT_EQ(advanced, (long)raw.size() - 1);
}

TEST(Decompress, RawStreamEndingOnAByteBoundaryLeavesInPastIt) {
    // 8 x 1 raw, two colours of one-bit codes: exactly one byte of bits.
    Bytes raw = {0x01, 0x08, 0x01, 0x02, 0x05, 0x06, 0x07, 0x00, 0x08, 0xFF};
    Bitmap b;
    long advanced = 0;
    ASSERT_EQ(decode(raw, b, &advanced), nullptr);
    EXPECT_EQ(advanced, (long)raw.size());
    expectAll(b, Color{5, 6, 7, 0});
}

TEST(Decompress, OnePixelHasNoSplitBit) {
    Bitmap b;
    long advanced = 0;
    ASSERT_EQ(decode({0x00, 0x01, 0x01, 0x02, 0x07, 0x08, 0x09, 0x00, 0x01, 0x01}, b, &advanced), nullptr);
    ASSERT_EQ(b.width, 1);
    ASSERT_EQ(b.height, 1);
    EXPECT_EQ(b.data[0], (Color{7, 8, 9, 0}));
    EXPECT_EQ(advanced, 9);
}

TEST(Decompress, OneColourStreamReadsNoSymbolBits) {
    Bitmap b;
    long advanced = 0;
    ASSERT_EQ(decode({0x00, 0x03, 0x01, 0x01, 0x03, 0x00}, b, &advanced), nullptr);
    EXPECT_EQ(b.width, 3);
    EXPECT_EQ(b.height, 1);
    expectAll(b, color_SeeThrough);
    EXPECT_EQ(advanced, 5);  // only the split bit of byte 5 was read
}

TEST(Decompress, OnePixelOneColourReadsNothingAtAll) {
    Bitmap b;
    long advanced = 0;
    ASSERT_EQ(decode({0x00, 0x01, 0x01, 0x01, 0x01}, b, &advanced), nullptr);
    EXPECT_EQ(b.data[0], color_SeeThrough);
    EXPECT_EQ(advanced, 5);
}

TEST(Decompress, OneWideTwoHighReadsEmptyPartsAndTheirSymbols) {
    Bitmap b;
    long advanced = 0;
    ASSERT_EQ(decode(kTwoHigh, b, &advanced), nullptr);
    ASSERT_EQ(b.width, 1);
    ASSERT_EQ(b.height, 2);
    EXPECT_EQ(b.data[0], (Color{1, 1, 1, 0}));
    EXPECT_EQ(b.data[1], (Color{2, 2, 2, 0}));
    EXPECT_EQ(advanced, 14);  // 9 bits: at the second bit byte
}

TEST(Decompress, FrequenciesThatDisagreeWithThePixelsStillDecode) {
    // Frequencies (5, 0) put symbol 1 on the first branch: code 0.
    Bitmap b;
    ASSERT_EQ(decode({0x00, 0x01, 0x01, 0x02, 0x07, 0x08, 0x09, 0x05, 0x00, 0x00}, b), nullptr);
    EXPECT_EQ(b.data[0], (Color{7, 8, 9, 0}));
    Bitmap other;
    ASSERT_EQ(decode({0x00, 0x01, 0x01, 0x02, 0x07, 0x08, 0x09, 0x05, 0x00, 0x01}, other), nullptr);
    EXPECT_EQ(other.data[0], color_SeeThrough);
}

TEST(Decompress, ColourTableEntriesAreOpaque) {
    Bitmap source;
    source.data = allocPixels(2, 1);
    source.width = 2;
    source.height = 1;
    source.data[0] = Color{10, 20, 30, 128};
    source.data[1] = Color{10, 20, 30, 0};
    Bitmap b;
    ASSERT_EQ(decode(encode(source, false), b), nullptr);
    expectAll(b, Color{10, 20, 30, 0});
}

TEST(Decompress, EmptyBitmapHasNoBitStream) {
    Bitmap b;
    long advanced = 0;
    ASSERT_EQ(decode({0x00, 0x00, 0x05, 0x01, 0x00}, b, &advanced), nullptr);
    EXPECT_EQ(b.width, 0);
    EXPECT_EQ(b.height, 5);
    EXPECT_EQ(b.data, nullptr);
    EXPECT_EQ(advanced, 5);
    Bitmap raw;
    ASSERT_EQ(decode({0x01, 0x04, 0x00, 0x01, 0x00}, raw), nullptr);
    EXPECT_EQ(raw.width, 4);
    EXPECT_EQ(raw.height, 0);
}

TEST(Decompress, VecOverloadLeavesTheBufferAlone) {
    vec<unsigned char> buffer;
    for (unsigned char c : kBlackScreen) buffer.push(c);
    unsigned char* before = buffer.data;
    Bitmap b;
    ASSERT_EQ(decompress(b, buffer), nullptr);
    EXPECT_EQ(buffer.data, before);
    EXPECT_EQ(buffer.size, (int)kBlackScreen.size());
    EXPECT_EQ(b.width, 1005);
}

TEST(Decompress, UnboundedOverloadAdvancesThePointer) {
    Bytes stream = kTwoHigh;
    unsigned char* in = stream.data();
    Bitmap b;
    ASSERT_EQ(decompress(b, in), nullptr);
    EXPECT_EQ(in - stream.data(), 14);
    EXPECT_EQ(b.data[1], (Color{2, 2, 2, 0}));
}

TEST(Decompress, FillsOnlyTheNewArrayAndKeepsOwned) {
    Bitmap b;
    b.owned = false;
    ASSERT_EQ(decode(kTwoHigh, b), nullptr);
    EXPECT_FALSE(b.owned);
    free(b.data);
}

TEST(DecompressRejects, ColourCountZero) {
    expectRejectedAndCleared({0x00, 0x01, 0x01, 0x00, 0x00, 0x00}, "colour count 0");
}

TEST(DecompressRejects, NegativeColourCount) {
    expectRejectedAndCleared({0x00, 0x01, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F, 0x00}, "count -1");
}

TEST(DecompressRejects, ColourCountBeyondTheBytesLeft) {
    // Two colours need 3 table bytes and 2 frequency bytes; only 4 follow.
    expectRejectedAndCleared({0x00, 0x01, 0x01, 0x02, 0x07, 0x08, 0x09, 0x00}, "count 2");
    expectRejectedAndCleared({0x00, 0x01, 0x01, 0xFF, 0xFF, 0xFF, 0x7F, 0x00}, "huge count");
}

TEST(DecompressRejects, SplitOfAnEmptyRegion) {
    Bytes stream = kTwoHigh;
    stream[13] = 0x03;  // the empty top left part now claims to be split
    expectRejectedAndCleared(stream, "split of empty region");
}

TEST(DecompressRejects, SizesBeyondTheLimits) {
    expectRejectedAndCleared({0x00, 0x80, 0x80, 0x04, 0x01, 0x01, 0x00, 0x00}, "width 65536");
    expectRejectedAndCleared({0x00, 0x01, 0x80, 0x80, 0x04, 0x01, 0x00, 0x00}, "height 65536");
    // 8193 x 8193 is within each side but above the pixel limit.
    expectRejectedAndCleared({0x00, 0x81, 0x40, 0x81, 0x40, 0x01, 0x00, 0x00}, "too many pixels");
}

TEST(DecompressRejects, VarintRunningOffTheEnd) {
    expectRejectedAndCleared({0x00, 0x80, 0x80, 0x80}, "open varint");
    expectRejectedAndCleared(Bytes(1000, 0x80), "long open varint");
}

TEST(DecompressRejects, EveryTruncation) {
    Bitmap big, tall;
    patchwork(big, 37, 23);
    patchwork(tall, 1, 19);
    std::vector<Bytes> streams = {kBlackScreen, kTwoHigh, encode(big, false), encode(big, true), encode(tall, false),
                                  {0x00, 0x03, 0x01, 0x01, 0x03, 0x00}};
    for (const Bytes& full : streams) {
        Bitmap whole;
        ASSERT_EQ(decode(full, whole), nullptr);
        for (size_t n = 0; n < full.size(); n++)
            expectRejectedAndCleared(Bytes(full.begin(), full.begin() + n), "truncated stream");
    }
}

TEST(DecompressRejects, GarbageNeverCrashes) {
    // Random bytes after a plausible header: any result is fine as long as it is clean.
    unsigned state = 12345;
    for (int round = 0; round < 2000; round++) {
        Bytes stream = {0x00, 0x21, 0x11};
        int n = 1 + round % 60;
        for (int i = 0; i < n; i++) {
            state = state * 1103515245u + 12345u;
            stream.push_back((unsigned char)(state >> 16));
        }
        Bitmap b;
        const char* error = decode(stream, b);
        if (error) {
            EXPECT_EQ(b.data, nullptr);
        }
    }
}

namespace {

// A picture of the given size whose every pixel differs from its neighbours', with a few
// see-through pixels of its own.
void numbered(Bitmap& b, int w, int h) {
    b.data = allocPixels(w, h);
    b.width = w;
    b.height = h;
    for (int i = 0; i < w * h; i++)
        b.data[i] = i % 11 == 0 ? color_SeeThrough : Color{(unsigned char)i, (unsigned char)(i >> 8), 200, 0};
}

// What decompress followed by compositing over under gives.
void decodeThenComposite(const Bytes& stream, const Bitmap& under, Bitmap& out) {
    ASSERT_EQ(decode(stream, out), nullptr);
    for (int y = 0; y < out.height; y++)
        for (int x = 0; x < out.width; x++)
            if (isSeeThrough(out.at(x, y))) out.at(x, y) = under.at(x, y);
}

const char* decodeOver(const Bytes& stream, Bitmap& bitmap, const Bitmap& under, long* advanced = nullptr) {
    const unsigned char* in = stream.data();
    const char* error = decompressOver(bitmap, under, in, stream.data() + stream.size());
    if (advanced) *advanced = in - stream.data();
    return error;
}

void expectSamePixels(const Bitmap& a, const Bitmap& b) {
    ASSERT_EQ(a.width, b.width);
    ASSERT_EQ(a.height, b.height);
    for (int i = 0; i < a.width * a.height; i++) ASSERT_EQ(a.data[i], b.data[i]) << "pixel " << i;
}

}  // namespace

TEST(DecompressOver, ABackgroundEqualsDecodingThenCompositing) {
    Bitmap picture, background;
    patchwork(picture, 37, 23);
    numbered(background, 40, 25);  // wider and higher: rows of the background are 40 apart
    for (bool raw : {false, true}) {
        Bytes stream = encode(picture, raw);
        Bitmap expected, screen;
        decodeThenComposite(stream, background, expected);
        long advanced = 0, advanced_alone = 0;
        Bitmap alone;
        ASSERT_EQ(decode(stream, alone, &advanced_alone), nullptr);
        ASSERT_EQ(decodeOver(stream, screen, background, &advanced), nullptr);
        expectSamePixels(screen, expected);
        EXPECT_EQ(advanced, advanced_alone) << "raw " << raw;
    }
}

TEST(DecompressOver, ItselfKeepsWhatItShowsUnderSeeThroughPixels) {
    Bitmap picture, previous, expected;
    patchwork(picture, 37, 23);
    numbered(previous, 37, 23);
    Bytes stream = encode(picture, false);
    decodeThenComposite(stream, previous, expected);
    Color* array = previous.data;
    ASSERT_EQ(decodeOver(stream, previous, previous), nullptr);
    EXPECT_EQ(previous.data, array) << "decoded in place";
    expectSamePixels(previous, expected);
}

TEST(DecompressOver, ReusesAnArrayOfTheStreamsSizeOnly) {
    Bitmap picture, background, screen;
    patchwork(picture, 37, 23);
    numbered(background, 37, 23);
    Bytes stream = encode(picture, false);
    ASSERT_EQ(decodeOver(stream, screen, background), nullptr);
    Color* array = screen.data;
    ASSERT_EQ(decodeOver(stream, screen, background), nullptr);
    EXPECT_EQ(screen.data, array);

    Bitmap small;
    patchwork(small, 5, 3);
    ASSERT_EQ(decodeOver(encode(small, false), screen, background), nullptr);
    EXPECT_EQ(screen.width, 5);
    EXPECT_EQ(screen.height, 3);
    Bitmap expected;
    decodeThenComposite(encode(small, false), background, expected);
    expectSamePixels(screen, expected);
}

TEST(DecompressOver, OneColourEqualsDecodingThenCompositingOverIt) {
    Bitmap picture;
    patchwork(picture, 37, 23);
    const Color grey = {90, 91, 92, 0};
    Bitmap plain;
    plain.data = allocPixels(37, 23);
    plain.width = 37;
    plain.height = 23;
    for (int i = 0; i < 37 * 23; i++) plain.data[i] = grey;
    for (bool raw : {false, true}) {
        Bytes stream = encode(picture, raw);
        Bitmap expected, screen;
        decodeThenComposite(stream, plain, expected);
        const unsigned char* in = stream.data();
        ASSERT_EQ(decompressOver(screen, grey, in, stream.data() + stream.size()), nullptr);
        expectSamePixels(screen, expected);
        long advanced_alone = 0;
        Bitmap alone;
        ASSERT_EQ(decode(stream, alone, &advanced_alone), nullptr);
        EXPECT_EQ(in - stream.data(), advanced_alone) << "raw " << raw;
    }
    Bytes cut = encode(picture, false);
    cut.resize(cut.size() / 2);
    Bitmap screen;
    const unsigned char* in = cut.data();
    EXPECT_NE(decompressOver(screen, grey, in, cut.data() + cut.size()), nullptr);
}

TEST(DecompressOver, RejectsPicturesItCannotCover) {
    Bitmap picture, small, screen;
    patchwork(picture, 37, 23);
    numbered(small, 37, 22);
    Bytes stream = encode(picture, false);
    EXPECT_NE(decodeOver(stream, screen, small), nullptr) << "under is a row short";
    EXPECT_NE(decodeOver(stream, small, small), nullptr) << "in place, but of another size";
    EXPECT_EQ(small.height, 22);
}

TEST(DecompressOver, EveryTruncationIsRejected) {
    Bitmap picture, background;
    patchwork(picture, 37, 23);
    numbered(background, 37, 23);
    for (bool raw : {false, true}) {
        Bytes full = encode(picture, raw);
        for (size_t n = 0; n < full.size(); n++) {
            Bitmap screen;
            Bytes cut(full.begin(), full.begin() + n);
            EXPECT_NE(decodeOver(cut, screen, background), nullptr) << n << " of " << full.size() << " bytes";
        }
    }
}

TEST(ReadStreamSize, ReadsTheHeaderOnly) {
    int width = 0, height = 0;
    const unsigned char* in = kBlackScreen.data();
    ASSERT_EQ(readStreamSize(in, in + 5, width, height), nullptr);
    EXPECT_EQ(width, 1005);
    EXPECT_EQ(height, 754);
    EXPECT_NE(readStreamSize(in, in + 4, width, height), nullptr);
    const Bytes huge = {0x00, 0xFF, 0xFF, 0x7F, 0x01};
    EXPECT_NE(readStreamSize(huge.data(), huge.data() + huge.size(), width, height), nullptr);
}
