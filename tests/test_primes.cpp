#include <gtest/gtest.h>

#include <cstdint>

#include "support/primes.h"

static bool isPrime(uint64_t n) {
    if (n < 2) return false;
    for (uint64_t d = 2; d * d <= n; d++)
        if (n % d == 0) return false;
    return true;
}

TEST(PrimeTwins, EveryEntryIsTheSmallerOfTwinPrimes) {
    for (int i = 0; i < 175; i++) {
        EXPECT_TRUE(isPrime(prime_twins[i])) << i;
        EXPECT_TRUE(isPrime((uint64_t)prime_twins[i] + 2)) << i;
    }
}

TEST(PrimeTwins, FixedStart) {
    const unsigned head[20] = {3, 11, 17, 29, 41, 59, 71, 101, 137, 179, 227, 269, 311, 347, 419, 521, 599, 809, 1019, 1151};
    for (int i = 0; i < 20; i++) EXPECT_EQ(prime_twins[i], head[i]) << i;
}

TEST(PrimeTwins, FixedEnd) {
    EXPECT_EQ(prime_twins[171], 3194246621u);
    EXPECT_EQ(prime_twins[172], 3513671969u);
    EXPECT_EQ(prime_twins[173], 3865039307u);
    EXPECT_EQ(prime_twins[174], 4251543449u);
}

TEST(PrimeTwins, AscendingWithBoundedGrowthFromTheTwentieth) {
    for (int i = 1; i < 175; i++) EXPECT_GT(prime_twins[i], prime_twins[i - 1]) << i;
    for (int i = 19; i < 175; i++) {
        uint64_t prev = prime_twins[i - 1], cur = prime_twins[i];
        EXPECT_GE(cur * 100, prev * 110) << i;
        EXPECT_LE(cur * 100, prev * 117) << i;
    }
}
