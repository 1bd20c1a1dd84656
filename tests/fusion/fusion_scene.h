// Bursts held as planes (reference first) with one vector per other frame,
// published to the fusion globals in any input layout.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "support/layouts.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace fusiontest {

// Frame-count tables for n other frames, as the fusion driver builds them.
inline void setFrameCount(int n) {
    gNum = n;
    for (int v = -120; v <= 120; ++v) {
        divNUM[v + 120] = n > 0 ? v / n : 0;
        divNUM_1[v + 120] = v / (n + 1);
    }
    setfunc();
}

inline void addNoise(std::vector<uint8_t>& plane, int reach, uint32_t seed) {
    trvtest::Rng rng(seed);
    for (auto& v : plane) v = static_cast<uint8_t>(std::clamp(v + rng.uniform(-reach, reach), 0, 255));
}

struct Frames {
    int W, H;
    std::vector<trvtest::Planes422> planes;
    std::vector<MV1> mvs;  // the same vector on every tile
    std::vector<std::vector<uint8_t>> bytes;
    std::vector<uint8_t> out;

    // Flat frames: luma 100, chroma 128.
    Frames(int w, int h, int others) : W(w), H(h), planes(others + 1), mvs(others) {
        for (auto& p : planes) {
            p.w = w, p.h = h;
            p.y.assign(w * h, 100);
            p.first.assign(w / 2 * h, 128);
            p.second.assign(w / 2 * h, 128);
        }
    }
    int others() const { return static_cast<int>(mvs.size()); }
    uint8_t& luma(int f, int x, int y) { return planes[f].y[y * W + x]; }
    uint8_t& chroma(int f, int which, int x, int y) {
        return (which ? planes[f].second : planes[f].first)[y * (W / 2) + x / 2];
    }

    // The frames in layout `code`; `out` gets `outBytes` random bytes.
    void publish(int code, size_t outBytes, uint32_t outSeed = 7) {
        bytes.clear();
        for (auto& p : planes) bytes.push_back(trvtest::toLayout(p, code));
        gINFormat = code, gW = W, gH = H, Y_SIZE = W * H, Y_SIZE_HALF = (W * H) >> 1;
        setFrameCount(others());
        for (size_t f = 0; f < bytes.size(); ++f) gMergeInput[f] = bytes[f].data();
        for (int k = 0; k < others(); ++k)
            for (int t = 0; t < 64; ++t) gMergeMV[k][t] = &mvs[k];
        out = trvtest::randomBytes(outBytes, outSeed);
        gMergrOut = out.data();
    }
};

}  // namespace fusiontest
