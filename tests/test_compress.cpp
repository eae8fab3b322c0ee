#include <gtest/gtest.h>

#include <vector>

#include "codec/codec.h"
#include "codec/stream.h"

namespace {

typedef std::vector<unsigned char> Bytes;

void makeBitmap(Bitmap& b, int w, int h, Color fill) {
    b.data = allocPixels(w, h);
    b.width = w;
    b.height = h;
    for (int i = 0; i < w * h; i++) b.data[i] = fill;
}

Bytes encode(Bitmap& b, bool raw) {
    vec<unsigned char> out;
    compress(b, out, raw);
    return Bytes(out.begin(), out.end());
}

const Color kBlack = {0, 0, 0, 0};

}  // namespace

TEST(Compress, BlackScreen) {
    Bitmap b;
    makeBitmap(b, 1005, 754, kBlack);
    EXPECT_EQ(encode(b, false),
              (Bytes{0x00, 0xED, 0x07, 0xF2, 0x05, 0x02, 0x00, 0x00, 0x00, 0x00, 0x8A, 0xA0, 0x2E, 0x02}));
}

TEST(Compress, RawBlackScreenIsOneBitPerPixel) {
    Bitmap b;
    makeBitmap(b, 1005, 754, kBlack);
    Bytes expected = {0x01, 0xED, 0x07, 0xF2, 0x05, 0x02, 0x00, 0x00, 0x00, 0x00, 0x8A, 0xA0, 0x2E};
    expected.insert(expected.end(), 94721, 0xFF);
    expected.push_back(0x03);
    EXPECT_EQ(encode(b, true), expected);
}

TEST(Compress, OnePixel) {
    Bitmap b;
    makeBitmap(b, 1, 1, Color{7, 8, 9, 0});
    EXPECT_EQ(encode(b, false), (Bytes{0x00, 0x01, 0x01, 0x02, 0x07, 0x08, 0x09, 0x00, 0x01, 0x01}));
}

TEST(Compress, SeeThroughOnlyWritesOneColourAndOneSplitBit) {
    Bitmap b;
    makeBitmap(b, 3, 1, color_SeeThrough);
    EXPECT_EQ(encode(b, false), (Bytes{0x00, 0x03, 0x01, 0x01, 0x03, 0x00}));
    Bitmap one;
    makeBitmap(one, 1, 1, color_SeeThrough);
    EXPECT_EQ(encode(one, false), (Bytes{0x00, 0x01, 0x01, 0x01, 0x01}));
}

TEST(Compress, OneWideTwoHighWritesTheEmptyPartsWithTheirCornerColour) {
    Bitmap b;
    makeBitmap(b, 1, 2, Color{1, 1, 1, 0});
    b.data[1] = Color{2, 2, 2, 0};
    // Split 1; empty 0 + code of (1,1,1) "0"; pixel "0"; empty 0 + code of (2,2,2) "11"; pixel "11".
    EXPECT_EQ(encode(b, false),
              (Bytes{0x00, 0x01, 0x02, 0x03, 0x01, 0x01, 0x01, 0x02, 0x02, 0x02, 0x00, 0x01, 0x01, 0xE1, 0x01}));
}

TEST(Compress, AppendsAfterWhatTheOutputHolds) {
    Bitmap b;
    makeBitmap(b, 1, 1, Color{7, 8, 9, 0});
    vec<unsigned char> out;
    out.push(0xAB);
    out.push(0xCD);
    compress(b, out, false);
    ASSERT_EQ(out.size, 12);
    EXPECT_EQ(out[0], 0xAB);
    EXPECT_EQ(out[1], 0xCD);
    EXPECT_EQ(out[2], 0x00);
    EXPECT_EQ(out[11], 0x01);
}

TEST(Compress, ColoursAreIndexedInOrderOfFirstAppearance) {
    Bitmap b;
    makeBitmap(b, 5, 1, kBlack);
    b.data[0] = Color{9, 9, 9, 0};
    b.data[1] = color_SeeThrough;
    b.data[2] = Color{9, 9, 9, 0};
    b.data[3] = Color{5, 5, 5, 0};
    b.data[4] = Color{9, 9, 9, 0};
    Bytes s = encode(b, true);
    // raw, 5, 1, n = 3, table (9,9,9) (5,5,5), frequencies 1 3 1.
    Bytes head = {0x01, 0x05, 0x01, 0x03, 9, 9, 9, 5, 5, 5, 0x01, 0x03, 0x01};
    ASSERT_GE(s.size(), head.size());
    EXPECT_EQ(Bytes(s.begin(), s.begin() + head.size()), head);
}

TEST(Compress, TransparencyKeepsSeparateIndicesButIsNotWritten) {
    Bitmap b;
    makeBitmap(b, 2, 1, Color{10, 20, 30, 128});
    b.data[1] = Color{10, 20, 30, 0};
    Bytes s = encode(b, true);
    Bytes head = {0x01, 0x02, 0x01, 0x03, 10, 20, 30, 10, 20, 30, 0x00, 0x01, 0x01};
    ASSERT_GE(s.size(), head.size());
    EXPECT_EQ(Bytes(s.begin(), s.begin() + head.size()), head);
}

TEST(Compress, EmptyBitmapsWriteHeaderOneColourAndNoBits) {
    Bitmap none;
    EXPECT_EQ(encode(none, false), (Bytes{0x00, 0x00, 0x00, 0x01, 0x00}));
    Bitmap noColumns;
    noColumns.height = 5;
    EXPECT_EQ(encode(noColumns, false), (Bytes{0x00, 0x00, 0x05, 0x01, 0x00}));
    EXPECT_EQ(encode(noColumns, true), (Bytes{0x01, 0x00, 0x05, 0x01, 0x00}));
}

TEST(Compress, ManyColoursGetDistinctIndices) {
    // 4000 distinct colours make the colour map grow several times.
    Bitmap b;
    makeBitmap(b, 80, 50, kBlack);
    for (int i = 0; i < 4000; i++) b.data[i] = Color{(unsigned char)i, (unsigned char)(i >> 8), 77, 0};
    Bytes s = encode(b, false);
    // Header 00 50 32, then n = 4001 as a varint: A1 1F.
    ASSERT_GT(s.size(), 6u);
    EXPECT_EQ(s[3], 0xA1);
    EXPECT_EQ(s[4], 0x1F);
    for (int i = 1; i <= 4000; i++) {
        const unsigned char* entry = &s[5 + 3 * (i - 1)];
        ASSERT_EQ(entry[0], (unsigned char)(i - 1));
        ASSERT_EQ(entry[1], (unsigned char)((i - 1) >> 8));
        ASSERT_EQ(entry[2], 77);
    }
}

TEST(StreamSize, CountsWhatTheHeaderWriterWrites) {
    // Frequencies and sizes across the varint lengths: 1, 2, 3 and 5 bytes.
    const int sizes[][2] = {{1, 1}, {127, 128}, {1005, 754}, {65535, 16383}};
    const int freq_sets[][4] = {{0, 0, 0, 0}, {127, 128, 16383, 16384}, {0, 2097152, 1, 0x7FFFFFFF}};
    for (const auto& size : sizes)
        for (const auto& set : freq_sets)
            for (int n = 1; n <= 4; n++) {
                vec<Color> table;
                vec<int> freqs;
                for (int i = 0; i < n; i++) {
                    table.push(i ? Color{(unsigned char)i, 2, 3, 0} : color_SeeThrough);
                    freqs.push(set[i]);
                }
                vec<unsigned char> out;
                writeStreamHead(out, false, size[0], size[1], table, freqs);
                EXPECT_EQ(streamHeadBytes(size[0], size[1], freqs), out.size) << size[0] << " x " << size[1] << ", " << n;
            }
}

TEST(StreamSize, CountsAWholeStreamOfThePlainEncoder) {
    // A raw stream of one opaque colour codes every pixel with one bit.
    Bitmap b;
    makeBitmap(b, 1005, 754, kBlack);
    vec<unsigned char> out;
    compress(b, out, true);
    vec<int> freqs;
    freqs.push(0);
    freqs.push(1005 * 754);
    EXPECT_EQ(streamBytes(1005, 754, freqs, 1005 * 754), out.size);
}
