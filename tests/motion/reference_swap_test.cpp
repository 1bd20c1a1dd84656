// The reference-swap rule and the re-expression of vectors, on hand-built records.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "motion/reference_swap.h"
#include "motion/scene.h"

namespace {

struct Records {
    MV1 r[5] = {};
    MV1* mvs[5] = {&r[0], &r[1], &r[2], &r[3], &r[4]};
    explicit Records(const std::vector<std::pair<int, int>>& vectors) {
        for (size_t k = 0; k < vectors.size(); ++k) r[k].x = vectors[k].first, r[k].y = vectors[k].second;
    }
};

TEST(ReferenceSwap, OtherFramesMustBeMoreThanTwentyFiveCloserToTheSecondThenRebase) {
    // D: distance of the others to the second frame, A: to the reference.
    const struct {
        std::vector<std::pair<int, int>> vectors;
        int n;
        bool swap;
    } cases[] = {
        {{{10, 0}, {12, 30}}, 3, false},  // D = 32, A = 42: 57 < 42 fails
        {{{38, 3}, {40, 0}}, 3, true},    // D = 5, A = 40: 30 < 40
        {{{25, 0}, {40, 0}}, 3, false},   // D = 15, A = 40: equal is not enough
        // Sums over every other frame: D = 35, A = 60 is on the limit; D = 34 swaps.
        {{{25, 0}, {30, 0}, {30, 0}, {0, 0}}, 5, false},
        {{{26, 0}, {30, 0}, {30, 0}, {0, 0}}, 5, true},
        {{{50, 50}}, 2, false},  // nothing to compare
    };
    for (const auto& t : cases) EXPECT_EQ(trv::secondIsBetterAnchor(Records(t.vectors).mvs, t.n), t.swap) << t.n;
    // After a swap the vectors are re-expressed against the second frame.
    Records rec({{8, -4}, {10, 0}, {-2, 6}, {99, 99}});
    trv::rebaseOnSecond(rec.mvs, 4);
    const std::pair<int, int> want[4] = {{-8, 4}, {2, 4}, {-10, 10}, {99, 99}};  // the last is beyond the burst
    for (int k = 0; k < 4; ++k) EXPECT_EQ(motiontest::xy(rec.r[k]), want[k]) << k;
}

}  // namespace
