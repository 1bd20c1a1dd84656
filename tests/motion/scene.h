// Shared motion-test helpers: frames cut from one textured scene at known
// origins, and short ways to make and compare vectors.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace motiontest {

struct Origin {
    int x, y;
};

inline MV1 vec(int x, int y) {
    MV1 m{};
    m.x = x;
    m.y = y;
    return m;
}

// A vector's (x, y), for one-line comparisons.
inline std::pair<int, int> xy(const MV1& m) { return {m.x, m.y}; }

class Scene {
public:
    // W x H frames whose origins may lie up to pad pixels off the centre.
    Scene(int W, int H, int pad, uint32_t seed)
        : W_(W), H_(H), pad_(pad), texture_(trvtest::texturedPlane(W + 2 * pad, H + 2 * pad, seed)) {}

    // Luma (c, r) is the scene at (pad + ox + c, pad + oy + r). planar: luma
    // plane then W * H / 2 chroma bytes; otherwise packed 4:2:2, luma on even bytes.
    std::vector<uint8_t> frame(int ox, int oy, bool planar) const {
        const size_t n = static_cast<size_t>(W_) * H_;
        auto chroma = trvtest::randomBytes(n, static_cast<uint32_t>(ox * 977 + oy + 5));
        std::vector<uint8_t> out(planar ? n * 3 / 2 : n * 2);
        for (int r = 0; r < H_; ++r) {
            for (int c = 0; c < W_; ++c) {
                const uint8_t y = texture_[static_cast<size_t>(pad_ + oy + r) * (W_ + 2 * pad_) + pad_ + ox + c];
                const size_t p = static_cast<size_t>(r) * W_ + c;
                out[planar ? p : 2 * p] = y;
                if (!planar) out[2 * p + 1] = chroma[p];
            }
        }
        if (planar) std::copy(chroma.begin(), chroma.begin() + n / 2, out.begin() + n);
        return out;
    }

private:
    int W_, H_, pad_;
    std::vector<uint8_t> texture_;
};

}  // namespace motiontest
