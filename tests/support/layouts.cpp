#include "support/layouts.h"

#include <algorithm>
#include <cstddef>

#include "support/synthetic.h"

namespace trvtest {

Planes422 randomPlanes(int w, int h, uint32_t seed) {
    const size_t n = static_cast<size_t>(w) * h, c = static_cast<size_t>(w / 2) * h;
    return {w, h, randomBytes(n, seed), randomBytes(c, seed + 1), randomBytes(c, seed + 2)};
}

Planes422 texturedPlanes(int w, int h, uint32_t seed) {
    return {w, h, texturedPlane(w, h, seed), texturedPlane(w / 2, h, seed + 1), texturedPlane(w / 2, h, seed + 2)};
}

Planes422 cropPlanes(const Planes422& canvas, int x0, int y0, int w, int h) {
    Planes422 p{w, h, {}, {}, {}};
    for (int r = y0; r < y0 + h; ++r) {
        const auto luma = canvas.y.begin() + static_cast<ptrdiff_t>(r) * canvas.w + x0;
        p.y.insert(p.y.end(), luma, luma + w);
        const ptrdiff_t at = static_cast<ptrdiff_t>(r) * (canvas.w / 2) + x0 / 2;
        p.first.insert(p.first.end(), canvas.first.begin() + at, canvas.first.begin() + at + w / 2);
        p.second.insert(p.second.end(), canvas.second.begin() + at, canvas.second.begin() + at + w / 2);
    }
    return p;
}

Planes422 shifted(const Planes422& ref, int mx, int my) {
    Planes422 p = ref;
    const int W = ref.w, H = ref.h;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const int sx = std::clamp(x - mx, 0, W - 1), sy = std::clamp(y - my, 0, H - 1);
            p.y[y * W + x] = ref.y[sy * W + sx];
            p.first[y * (W / 2) + x / 2] = ref.first[sy * (W / 2) + sx / 2];
            p.second[y * (W / 2) + x / 2] = ref.second[sy * (W / 2) + sx / 2];
        }
    return p;
}

std::vector<Planes422> noisyScene(int count, int w, int h, uint32_t seed, int reach) {
    Planes422 clean = randomPlanes(w, h, seed);
    clean.y = texturedPlane(w, h, seed);
    std::vector<Planes422> burst;
    Rng rng(seed * 31 + 1);
    for (int i = 0; i < count; ++i) {
        Planes422 p = reach > 0 && i > 0 ? shifted(clean, rng.uniform(-reach, reach), rng.uniform(-reach, reach)) : clean;
        for (auto& v : p.y) v = static_cast<uint8_t>(std::clamp(v + rng.uniform(-6, 6), 0, 255));
        burst.push_back(p);
    }
    return burst;
}

// The luma plane, then of every `step`-th row one interleaved pair (first,
// second) per 2 pixels.
static std::vector<uint8_t> lumaThenPairs(const Planes422& p, int step) {
    const int cw = p.w / 2;
    std::vector<uint8_t> out = p.y;
    for (int r = 0; r < p.h; r += step)
        for (int k = 0; k < cw; ++k) out.insert(out.end(), {p.first[r * cw + k], p.second[r * cw + k]});
    return out;
}

std::vector<uint8_t> toLayout(const Planes422& p, int code) {
    const int w = p.w, cw = w / 2;
    std::vector<uint8_t> out;
    if (code == 0) {  // Y, first plane, second plane
        out = p.y;
        out.insert(out.end(), p.first.begin(), p.first.end());
        out.insert(out.end(), p.second.begin(), p.second.end());
    } else if (code == 1 || code == 4) {  // the pairs of every row, or of every second row
        out = lumaThenPairs(p, code == 1 ? 1 : 2);
    } else if (code == 2) {  // Y0 C0 Y1 C1
        for (int r = 0; r < p.h; ++r)
            for (int k = 0; k < cw; ++k)
                out.insert(out.end(), {p.y[r * w + 2 * k], p.first[r * cw + k], p.y[r * w + 2 * k + 1], p.second[r * cw + k]});
    }
    return out;
}

std::vector<std::vector<uint8_t>> toLayout(const std::vector<Planes422>& planes, int code) {
    std::vector<std::vector<uint8_t>> frames;
    for (const Planes422& p : planes) frames.push_back(toLayout(p, code));
    return frames;
}

std::vector<uint8_t> toSemiPlanar420(const Planes422& p) { return lumaThenPairs(p, 2); }

}  // namespace trvtest
