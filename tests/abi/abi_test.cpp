// The shared library as a host sees it: entry points callable from C, record
// layouts, format validation through the exported entry.
#include <gtest/gtest.h>

#include <cstddef>
#include <utility>

#include "support/burst.h"
#include "trv/stages.h"

extern "C" int trvCallFromC(void);

TEST(Abi, EntryPointsCallableFromC) {
    // 0 + 0 + sizeof(MV1) + outputFormat 4 + iMajor 1
    EXPECT_EQ(trvCallFromC(), 32 + 4 + 1);
}

TEST(Abi, MotionRecordLayout) {
    EXPECT_EQ(sizeof(MV1), 32u);
    EXPECT_EQ(offsetof(MV1, x), 0u);
    EXPECT_EQ(offsetof(MV1, y), 4u);
    EXPECT_EQ(offsetof(MV1, err), 24u);
}

TEST(Abi, SingleFrameNV21ThroughSharedLibrary) {
    trvtest::Burst burst({trvtest::randomPlanes(64, 48, 3)}, 4, 0);
    ASSERT_EQ(TRV_Enhancement(&burst.in, &burst.out, &burst.param, nullptr), 0);
    EXPECT_EQ(std::pair(burst.out.width, burst.out.height), std::pair(64, 48));
    EXPECT_EQ(burst.result, burst.frames[0]);
}
