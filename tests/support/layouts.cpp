#include "support/layouts.h"

#include <algorithm>
#include <cstddef>

#include "support/synthetic.h"

namespace trvtest {

Planes422 randomPlanes(int w, int h, uint32_t seed) {
    Planes422 p;
    p.w = w;
    p.h = h;
    p.y = randomBytes(static_cast<size_t>(w) * h, seed);
    p.first = randomBytes(static_cast<size_t>(w / 2) * h, seed + 1);
    p.second = randomBytes(static_cast<size_t>(w / 2) * h, seed + 2);
    return p;
}

Planes422 texturedPlanes(int w, int h, uint32_t seed) {
    Planes422 p;
    p.w = w;
    p.h = h;
    p.y = texturedPlane(w, h, seed);
    p.first = texturedPlane(w / 2, h, seed + 1);
    p.second = texturedPlane(w / 2, h, seed + 2);
    return p;
}

Planes422 cropPlanes(const Planes422& canvas, int x0, int y0, int w, int h) {
    Planes422 p;
    p.w = w;
    p.h = h;
    const int cw = canvas.w / 2;
    for (int r = 0; r < h; ++r) {
        const auto luma = canvas.y.begin() + static_cast<ptrdiff_t>(r + y0) * canvas.w + x0;
        p.y.insert(p.y.end(), luma, luma + w);
        const ptrdiff_t at = static_cast<ptrdiff_t>(r + y0) * cw + x0 / 2;
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

std::vector<uint8_t> toLayout(const Planes422& p, int code) {
    const int w = p.w, h = p.h, cw = w / 2;
    std::vector<uint8_t> out;
    switch (code) {
        case 0:  // Y, first plane, second plane
            out = p.y;
            out.insert(out.end(), p.first.begin(), p.first.end());
            out.insert(out.end(), p.second.begin(), p.second.end());
            break;
        case 1:  // Y, then every row's pairs
            out = p.y;
            for (int r = 0; r < h; ++r)
                for (int k = 0; k < cw; ++k) {
                    out.push_back(p.first[r * cw + k]);
                    out.push_back(p.second[r * cw + k]);
                }
            break;
        case 2:  // Y0 C0 Y1 C1
            for (int r = 0; r < h; ++r)
                for (int k = 0; k < cw; ++k) {
                    out.push_back(p.y[r * w + 2 * k]);
                    out.push_back(p.first[r * cw + k]);
                    out.push_back(p.y[r * w + 2 * k + 1]);
                    out.push_back(p.second[r * cw + k]);
                }
            break;
        case 4:
            out = toSemiPlanar420(p);
            break;
        default:
            break;
    }
    return out;
}

std::vector<uint8_t> toSemiPlanar420(const Planes422& p) {
    const int w = p.w, h = p.h, cw = w / 2;
    std::vector<uint8_t> out = p.y;
    for (int r = 0; r < h; r += 2)
        for (int k = 0; k < cw; ++k) {
            out.push_back(p.first[r * cw + k]);
            out.push_back(p.second[r * cw + k]);
        }
    return out;
}

}  // namespace trvtest
