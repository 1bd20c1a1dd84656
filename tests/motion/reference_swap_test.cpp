// The reference-swap rule and the re-expression of vectors on hand-built
// records.
#include <gtest/gtest.h>

#include "motion/reference_swap.h"

namespace {

struct Records {
    MV1 r[5] = {};
    MV1* mvs[5] = {&r[0], &r[1], &r[2], &r[3], &r[4]};
    Records(std::initializer_list<std::pair<int, int>> vectors) {
        int k = 0;
        for (auto [x, y] : vectors) {
            r[k].x = x;
            r[k].y = y;
            ++k;
        }
    }
};

TEST(ReferenceSwap, OtherFramesMustBeMoreThanTwentyFiveCloserToTheSecond) {
    // D = |10 - 12| + |0 - 30| = 32, A = 12 + 30 = 42: 57 < 42 fails.
    EXPECT_FALSE(trv::secondIsBetterAnchor(Records{{10, 0}, {12, 30}}.mvs, 3));
    // D = 2 + 3 = 5, A = 40 + 0 = 40: 30 < 40.
    EXPECT_TRUE(trv::secondIsBetterAnchor(Records{{38, 3}, {40, 0}}.mvs, 3));
    // Exactly equal is not enough: D = 15, A = 40.
    EXPECT_FALSE(trv::secondIsBetterAnchor(Records{{25, 0}, {40, 0}}.mvs, 3));
    // Sums over every other frame: with the second at (25, 0), D = 5 + 5 +
    // 25 = 35 and A = 30 + 30 + 0 = 60, exactly on the limit; at (26, 0),
    // D = 34 and the swap is taken.
    EXPECT_FALSE(trv::secondIsBetterAnchor(Records{{25, 0}, {30, 0}, {30, 0}, {0, 0}}.mvs, 5));
    EXPECT_TRUE(trv::secondIsBetterAnchor(Records{{26, 0}, {30, 0}, {30, 0}, {0, 0}}.mvs, 5));
    // Two frames: nothing to compare, never a swap.
    EXPECT_FALSE(trv::secondIsBetterAnchor(Records{{50, 50}}.mvs, 2));
}

TEST(ReferenceSwap, VectorsAreReexpressedAgainstTheSecondFrame) {
    Records rec{{8, -4}, {10, 0}, {-2, 6}, {99, 99}};
    trv::rebaseOnSecond(rec.mvs, 4);
    EXPECT_EQ(rec.r[0].x, -8);
    EXPECT_EQ(rec.r[0].y, 4);
    EXPECT_EQ(rec.r[1].x, 2);
    EXPECT_EQ(rec.r[1].y, 4);
    EXPECT_EQ(rec.r[2].x, -10);
    EXPECT_EQ(rec.r[2].y, 10);
    EXPECT_EQ(rec.r[3].x, 99);  // beyond the burst: untouched
}

}  // namespace
