#include "support/layouts.h"

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
