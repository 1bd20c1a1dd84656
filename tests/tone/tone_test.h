// Shared by the tone tests: frames, output sizes, the band kernel for a
// layout and cell size, and a fixture that restores the tone state.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "support/restore.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace tonetest {

using Bytes = std::vector<uint8_t>;

// Output layouts: 0 planar 4:2:2, 2 packed 4:2:2 (Y0 U Y1 V), 4 NV21.
inline size_t outputBytes(int W, int H, int format) {
    return format == 4 ? static_cast<size_t>(W) * H + W * (H / 2) : static_cast<size_t>(W) * H * 2;
}

// A 4:2:0 frame with U first: W x H luma, then H / 2 rows of W chroma bytes.
inline Bytes randomFrame(int W, int H, uint32_t seed) { return trvtest::randomBytes(outputBytes(W, H, 4), seed); }

// One band through the kernel for `format` and cell size L (outC unused by
// the packed layout).
inline void toneBand(int format, int L, uint8_t* inY, uint8_t* inC, uint8_t* outY, uint8_t* outC, uint8_t* cells,
                     int W, int rows, bool last) {
    const bool eight = L == 8;
    if (format == 4) {
        (eight ? xImgEnhance_NV21_8 : xImgEnhance_NV21_4)(inY, inC, outY, outC, cells, W, rows, last);
    } else if (format == 0) {
        (eight ? xImgEnhance_YV16_8 : xImgEnhance_YV16_4)(inY, inC, outY, outC, cells, W, rows, last);
    } else {
        (eight ? xImgEnhance_YUYV_8 : xImgEnhance_YUYV_4)(inY, inC, outY, cells, W, rows, last);
    }
}

class ToneTest : public ::testing::Test {
protected:
    trvtest::Restore<int32_t> w_{gW}, h_{gH}, format_{gOUTFormat}, level_{gDown_level}, id_{gColorEnhanceID};
    trvtest::Restore<uint8_t[256]> floor_{gTHTable};
    trvtest::Restore<const int32_t*> gain_{gScaleTb}, luma_{gYTb};
    trvtest::Restore<const float*> chroma_{gUVScaleTb};
};

}  // namespace tonetest
