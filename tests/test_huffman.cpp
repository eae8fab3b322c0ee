#include <gtest/gtest.h>

#include <vector>

#include "codec/huffman.h"

namespace {

struct Built {
    vec<Huff> codes;
    vec<Pair<int, int> > tree;
};

void build(const std::vector<int>& weights, Built& b) {
    vec<int> freqs;
    for (int w : weights) freqs.push(w);
    computeHuffcodes(freqs, b.codes, b.tree);
}

// Follows a code from the root; returns the symbol it reaches, or -1 when it stops on a node.
int walk(const Built& b, const Huff& h) {
    int ref = b.tree.size - 1;
    for (int d = 0; d < h.length && ref >= 0; d++)
        ref = (h.code & codeBit(d)) ? b.tree[ref].second : b.tree[ref].first;
    return ref < 0 ? ~ref : -1;
}

}  // namespace

TEST(Huffman, TwoSymbolsZeroAndFive) {
    Built b;
    build({0, 5}, b);
    ASSERT_EQ(b.tree.size, 1);
    EXPECT_EQ(b.tree[0].first, ~0);
    EXPECT_EQ(b.tree[0].second, ~1);
    ASSERT_EQ(b.codes.size, 2);
    EXPECT_EQ(b.codes[0].length, 1);
    EXPECT_EQ(b.codes[0].code, 0u);
    EXPECT_EQ(b.codes[1].length, 1);
    EXPECT_EQ(b.codes[1].code, 1u);
}

TEST(Huffman, ThreeEqualWeightsKeepTheSinkTieBreak) {
    Built b;
    build({1, 1, 1}, b);
    ASSERT_EQ(b.tree.size, 2);
    EXPECT_EQ(b.tree[0].first, ~0);
    EXPECT_EQ(b.tree[0].second, ~2);
    EXPECT_EQ(b.tree[1].first, ~1);
    EXPECT_EQ(b.tree[1].second, 0);
    EXPECT_EQ(b.codes[1].length, 1);
    EXPECT_EQ(b.codes[1].code, 0u);
    EXPECT_EQ(b.codes[0].length, 2);
    EXPECT_EQ(b.codes[0].code, 1u);
    EXPECT_EQ(b.codes[2].length, 2);
    EXPECT_EQ(b.codes[2].code, 3u);
}

TEST(Huffman, OneSymbolHasAnEmptyTreeAndAnEmptyCode) {
    Built b;
    build({7}, b);
    EXPECT_EQ(b.tree.size, 0);
    ASSERT_EQ(b.codes.size, 1);
    EXPECT_EQ(b.codes[0].length, 0);
    EXPECT_EQ(b.codes[0].code, 0u);
}

TEST(Huffman, NoSymbolsStillGiveSymbolZero) {
    Built b;
    build({}, b);
    EXPECT_EQ(b.tree.size, 0);
    ASSERT_EQ(b.codes.size, 1);
    EXPECT_EQ(b.codes[0].length, 0);
}

TEST(Huffman, RisingNeedsStrictlyLessSoEqualWeightsStayInPlace) {
    // (2, 1, 1): symbol 1 rises above symbol 0; symbol 2 does not rise above symbol 1.
    Built b;
    build({2, 1, 1}, b);
    ASSERT_EQ(b.tree.size, 2);
    EXPECT_EQ(b.tree[0].first, ~1);
    EXPECT_EQ(b.tree[0].second, ~2);
    EXPECT_EQ(b.tree[1].first, ~0);
    EXPECT_EQ(b.tree[1].second, 0);
}

TEST(Huffman, DepthMaskIsSignExtendedAtBit31) {
    EXPECT_EQ(codeBit(0), 1u);
    EXPECT_EQ(codeBit(30), 1ull << 30);
    EXPECT_EQ(codeBit(31), 0xFFFFFFFF80000000ull);
    EXPECT_EQ(codeBit(32), 1u);
    EXPECT_EQ(codeBit(33), 2u);
}

TEST(Huffman, EveryCodeLeadsToItsSymbolAndLengthsFitTheTree) {
    std::vector<int> weights;
    for (int i = 0; i < 300; i++) weights.push_back((i * 7919) % 113);
    Built b;
    build(weights, b);
    ASSERT_EQ(b.tree.size, 299);
    ASSERT_EQ(b.codes.size, 300);
    double kraft = 0;
    for (int s = 0; s < 300; s++) {
        EXPECT_EQ(walk(b, b.codes[s]), s);
        kraft += 1.0 / (double)(1ull << b.codes[s].length);
    }
    EXPECT_DOUBLE_EQ(kraft, 1.0);
}

TEST(Huffman, HeavierSymbolsNeverGetLongerCodes) {
    Built b;
    build({1, 2, 4, 8, 16, 32, 64}, b);
    for (int s = 1; s < 7; s++) EXPECT_LE(b.codes[s].length, b.codes[s - 1].length);
    EXPECT_EQ(b.codes[6].length, 1);
    EXPECT_EQ(b.codes[0].length, 6);
}

TEST(Huffman, DeepChainFromNegativeWeightsIsBuiltWithoutRecursion) {
    // Weights of -1 make every merge the lightest entry: a chain as deep as it has symbols.
    std::vector<int> weights(200000, -1);
    Built b;
    build(weights, b);
    EXPECT_EQ(b.tree.size, 199999);
    ASSERT_EQ(b.codes.size, 200000);
    int longest = 0;
    for (const Huff& h : b.codes) longest = h.length > longest ? h.length : longest;
    EXPECT_GT(longest, 100000);
}
