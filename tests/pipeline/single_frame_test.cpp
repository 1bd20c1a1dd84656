// Single-frame conversion to 4:2:0, checked byte for byte against the
// independent layout conversion of the test support.
#include <gtest/gtest.h>

#include <vector>

#include "pipeline/single_frame.h"
#include "support/layouts.h"

namespace {

// An odd height adds a chroma row from the last (even) input row; codes
// without a layout leave the output unwritten. Exact-size vectors let the
// address sanitizer see overruns.
TEST(SingleFrame, EveryCodeConvertsLikeTheReferenceConversion) {
    for (int code : {0, 1, 2, 4, 3, 5, -1}) {
        for (auto [w, h] : {std::pair{64, 48}, {38, 22}, {10, 7}, {2, 2}}) {
            if (code == 4 && h % 2 != 0) continue;  // a 4:2:0 frame has an even height
            const auto planes = trvtest::randomPlanes(w, h, static_cast<uint32_t>(code * 100 + w));
            auto input = trvtest::toLayout(planes, code);
            input.resize(static_cast<size_t>(w) * h * (code == 4 ? 3 : 4) / 2, 9);
            std::vector<uint8_t> out(trv::singleFrameOutputBytes(w, h), 0xCD);
            trv::convertSingleFrame(code, input.data(), out.data(), w, h);
            const bool hasLayout = code == 0 || code == 1 || code == 2 || code == 4;
            EXPECT_EQ(out, hasLayout ? trvtest::toSemiPlanar420(planes) : std::vector<uint8_t>(out.size(), 0xCD))
                << "code " << code << " " << w << "x" << h;
        }
    }
}

// An odd width: the last chroma pair of a row reaches into the next row, and
// on the last row past the frame; such bytes are read only where they exist.
TEST(SingleFrame, OddWidthStaysInsideBuffers) {
    for (int code : {0, 1, 2}) {
        std::vector<uint8_t> input(9 * 6 * 2, 50), out(trv::singleFrameOutputBytes(9, 6), 0);
        trv::convertSingleFrame(code, input.data(), out.data(), 9, 6);
        EXPECT_EQ(out[9 * 6 - 1], 50) << code;
    }
}

}  // namespace
