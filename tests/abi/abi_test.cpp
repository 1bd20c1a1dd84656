// The shared library as a host sees it: entry points callable from C, record
// layouts, format validation through the exported entry.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <vector>

#include "trv/stages.h"
#include "trv/trv.h"

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
    const int W = 64, H = 48;
    std::vector<uint8_t> frame(W * H * 3 / 2);
    for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<uint8_t>(i * 7 + 3);
    std::vector<uint8_t> result(frame.size(), 0);
    __tag_TRV_OFFSCREEN pic = {0, W, H, frame.data()};
    __tag_TRV_OFFSCREEN out = {0, 0, 0, result.data()};
    _tag_TRV_INPUTINFO in = {};
    in.picNum = 1;
    in.pics[0] = &pic;
    _tag_TRV_PARAM param = {};
    TRV_GetDefaultParam(&param);
    param.inputFormat = 4;
    ASSERT_EQ(TRV_Enhancement(&in, &out, &param, nullptr), 0);
    EXPECT_EQ(out.width, W);
    EXPECT_EQ(out.height, H);
    EXPECT_EQ(result, frame);
}
