// A whole burst through the library's own entry point: the fused frame
// reaches the caller's buffer for input code 4 only; for every other code
// the buffer is left alone.
#include <gtest/gtest.h>

#include "fusion/fusion_scene.h"
#include "trv/trv.h"

namespace {

TEST(BurstDelivery, OnlyCodeFourReachesTheCallersBuffer) {
    constexpr int kW = 160, kH = 96;
    const trvtest::Planes422 scene = trvtest::texturedPlanes(kW, kH, 3);
    for (int format : {0, 4}) {
        std::vector<std::vector<uint8_t>> frames;
        std::vector<__tag_TRV_OFFSCREEN> records(3);
        _tag_TRV_INPUTINFO in{};
        in.picNum = 3;
        for (int i = 0; i < 3; ++i) {
            trvtest::Planes422 p = fusiontest::shifted(scene, 2 * i, -i);
            fusiontest::addNoise(p.y, 10, 100 + static_cast<uint32_t>(i));
            frames.push_back(trvtest::toLayout(p, format));
        }
        for (int i = 0; i < 3; ++i) {
            records[i] = __tag_TRV_OFFSCREEN{0, kW, kH, frames[i].data()};
            in.pics[i] = &records[i];
        }
        std::vector<uint8_t> buffer(static_cast<size_t>(kW) * kH * 3 / 2, 7);
        __tag_TRV_OFFSCREEN out{0, 0, 0, buffer.data()};
        _tag_TRV_PARAM param{};
        param.inputFormat = format;
        param.outputFormat = 4;
        EXPECT_EQ(TRV_Enhancement(&in, &out, &param, nullptr), 0);
        const size_t untouched = static_cast<size_t>(std::count(buffer.begin(), buffer.end(), 7));
        if (format == 4) {
            EXPECT_LT(untouched, buffer.size() / 100);
        } else {
            EXPECT_EQ(untouched, buffer.size());
        }
    }
}

}  // namespace
