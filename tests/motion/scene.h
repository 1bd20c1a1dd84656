// Frames cut from one larger textured scene at chosen origins, so that the
// true motion between any two of them is known exactly.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace motiontest {

class Scene {
public:
    // W x H frames whose origins may lie up to pad pixels off the centre.
    Scene(int W, int H, int pad, uint32_t seed)
        : W_(W), H_(H), pad_(pad), sceneW_(W + 2 * pad), texture_(trvtest::texturedPlane(W + 2 * pad, H + 2 * pad, seed)) {}

    // A frame whose luma (c, r) is the scene at (pad + ox + c, pad + oy + r).
    // planar: luma plane then W * H / 2 chroma bytes (NV21); otherwise packed
    // 4:2:2 with luma on the even bytes.
    std::vector<uint8_t> frame(int ox, int oy, bool planar) const {
        auto chroma = trvtest::randomBytes(static_cast<size_t>(W_) * H_, static_cast<uint32_t>(ox * 977 + oy + 5));
        std::vector<uint8_t> out(planar ? static_cast<size_t>(W_) * H_ * 3 / 2 : static_cast<size_t>(W_) * H_ * 2);
        for (int r = 0; r < H_; ++r) {
            for (int c = 0; c < W_; ++c) {
                const uint8_t y = texture_[static_cast<size_t>(pad_ + oy + r) * sceneW_ + pad_ + ox + c];
                const size_t p = static_cast<size_t>(r) * W_ + c;
                if (planar) {
                    out[p] = y;
                } else {
                    out[2 * p] = y;
                    out[2 * p + 1] = chroma[p];
                }
            }
        }
        if (planar) std::copy(chroma.begin(), chroma.begin() + W_ * H_ / 2, out.begin() + W_ * H_);
        return out;
    }

private:
    int W_, H_, pad_, sceneW_;
    std::vector<uint8_t> texture_;
};

// The vector of a frame cut at origin (ox, oy) against a reference cut at
// (rx, ry): reference (c, r) shows the same point as the frame's (c + x, r + y).
inline MV1 expectedVector(int rx, int ry, int ox, int oy) {
    MV1 mv{};
    mv.x = rx - ox;
    mv.y = ry - oy;
    return mv;
}

// Luma of a frame image read with clamped coordinates.
struct LumaView {
    const uint8_t* image;
    int W, H, bytes;
    int at(int c, int r) const {
        c = std::min(std::max(c, 0), W - 1);
        r = std::min(std::max(r, 0), H - 1);
        return image[(static_cast<size_t>(r) * W + c) * bytes];
    }
};

}  // namespace motiontest
