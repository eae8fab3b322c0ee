// Checks on bitmaps shared by the codec and PNG tests.
#pragma once
#include <gtest/gtest.h>

#include "codec/bitmap.h"

// A bitmap left in the cleared state: owned, no pixels, 0 x 0.
inline void expectCleared(const Bitmap& b) {
    EXPECT_TRUE(b.owned);
    EXPECT_EQ(b.data, nullptr);
    EXPECT_EQ(b.width, 0);
    EXPECT_EQ(b.height, 0);
}
