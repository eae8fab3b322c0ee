#include <gtest/gtest.h>

#include <climits>

#include "support/alloc.h"
#include "support/vec.h"

TEST(SmartRealloc, SmallBlocksComeBackFromTheirClass) {
    char* a = smart_realloc(nullptr, 0, 10);
    ASSERT_NE(a, nullptr);
    smart_free(a, 11);  // 9..12 bytes share one class
    char* b = smart_realloc(nullptr, 0, 9);
    EXPECT_EQ(a, b);
    smart_free(b, 12);
}

TEST(SmartRealloc, ReleaseToZeroPutsTheBlockOnItsList) {
    char* a = smart_realloc(nullptr, 0, 20);
    EXPECT_EQ(smart_realloc(a, 20, 0), nullptr);
    char* b = smart_realloc(nullptr, 0, 17);
    EXPECT_EQ(a, b);
    smart_free(b, 20);
}

TEST(SmartRealloc, KeepsTheContentWhenGrowing) {
    char* a = smart_realloc(nullptr, 0, 8);
    for (int i = 0; i < 8; i++) a[i] = (char)(i + 1);
    char* b = smart_realloc(a, 8, 300);
    for (int i = 0; i < 8; i++) EXPECT_EQ(b[i], i + 1);
    smart_free(b, 300);
}

TEST(Vec, CapacityFollowsTheGrowthRule) {
    vec<int> v;
    std::vector<int> caps;
    for (int i = 0; i < 30; i++) {
        int before = v.cap;
        v.push(i);
        if (v.cap != before) caps.push_back(v.cap);
    }
    EXPECT_EQ(caps, (std::vector<int>{2, 3, 5, 8, 12, 18, 27, 41}));
    for (int i = 0; i < 30; i++) EXPECT_EQ(v[i], i);
}

TEST(StackAlloc, LargeRequestGetsItsOwnBlock) {
    StackAlloc<unsigned, 10000, 1000> s;
    s.owner = true;
    s.data = (unsigned*)malloc(40000);
    s.used = 9500;  // too little room left, so the request reaches the slow path
    unsigned* chunk = s.data;
    unsigned* big = s.alloc(1001);
    EXPECT_EQ(s.data, chunk);
    EXPECT_EQ(s.used, 9500u);
    ASSERT_NE(s.prev, nullptr);
    EXPECT_EQ(s.prev->data, big);
    EXPECT_EQ(s.prev->used, 0xFFFFFFFFu);
    EXPECT_EQ(s.alloc(10), chunk + 9500);
}

TEST(StackAlloc, ShortChunkIsAbandoned) {
    StackAlloc<unsigned, 10000, 1000> s;
    s.owner = true;
    s.data = (unsigned*)malloc(40000);
    s.used = 9995;
    unsigned* old = s.data;
    unsigned* p = s.alloc(8);
    EXPECT_NE(s.data, old);
    EXPECT_EQ(p, s.data);
    EXPECT_EQ(s.used, 8u);
    EXPECT_EQ(s.prev->data, old);
}

TEST(SmartRealloc, FreeingTinyBlocksLeavesTheirNeighboursIntact) {
    char* blocks[64];
    for (int i = 0; i < 64; i++) {
        blocks[i] = smart_realloc(nullptr, 0, 4);
        for (int j = 0; j < 4; j++) blocks[i][j] = (char)(i + j);
    }
    for (int i = 0; i < 64; i += 2) smart_free(blocks[i], 4);
    for (int i = 1; i < 64; i += 2)
        for (int j = 0; j < 4; j++) EXPECT_EQ(blocks[i][j], (char)(i + j)) << i;
    for (int i = 1; i < 64; i += 2) smart_free(blocks[i], 3);
}

TEST(SmartRealloc, OnlyBlocksUpTo128BytesArePooled) {
    char* pooled = smart_realloc(nullptr, 0, 128);  // no 128-byte block was freed before: carved fresh
    char* large = smart_realloc(nullptr, 0, 129);
    auto inChunk = [](char* p) {
        char* chunk = (char*)vec_mempool->chunks.data;
        return p >= chunk && p < chunk + 40000;
    };
    EXPECT_TRUE(inChunk(pooled));
    EXPECT_FALSE(inChunk(large));
    smart_free(pooled, 128);
    EXPECT_EQ(smart_realloc(nullptr, 0, 125), pooled);  // 125..128 bytes share the class
    smart_free(pooled, 128);
    smart_free(large, 129);
}

// The growth rule's steps past 2^30 elements overflowed an int and never ended; they stop at the
// largest capacity instead.
TEST(Vec, GrowthNearTheLimitStopsAtTheLargestCapacity) {
    EXPECT_EQ(grownCapacity(0, 1, INT_MAX), 2);
    EXPECT_EQ(grownCapacity(27, 28, INT_MAX), 41);
    EXPECT_EQ(grownCapacity(800000000, 800000001, INT_MAX), 1200000000);
    EXPECT_EQ(grownCapacity(1200000000, 1200000001, INT_MAX), 1800000000);
    EXPECT_EQ(grownCapacity(1800000000, 1800000001, INT_MAX), INT_MAX);
    EXPECT_EQ(grownCapacity(1200000000, 1500000000, 1073741823), 1073741823);
}

TEST(Vec, LargestSizeKeepsTheByteCountWithinAnUnsigned) {
    EXPECT_EQ(vec<char>::max_size, INT_MAX);
    EXPECT_EQ(vec<int>::max_size, (long long)(UINT_MAX / 4));
    EXPECT_EQ(vec<double>::max_size, (long long)(UINT_MAX / 8));
}

// 600 million doubles are 4.8 GB, beyond the unsigned byte size: the request used to be cut to
// its low 32 bits and served with a far smaller block.
TEST(Vec, RequestBeyondTheLargestSizeThrowsAtOnce) {
    vec<double> v;
    v.push(1.5);
    EXPECT_THROW(v.reserve(600000000), Exception_MemOut);
    EXPECT_THROW(v.resize(INT_MAX), Exception_MemOut);
    EXPECT_EQ(v.size, 1);
    EXPECT_EQ(v.cap, 2);
    EXPECT_EQ(v[0], 1.5);
}
