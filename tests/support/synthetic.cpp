#include "support/synthetic.h"

#include <cmath>

namespace trvtest {

std::vector<uint8_t> randomBytes(size_t count, uint32_t seed) {
    Rng rng(seed);
    std::vector<uint8_t> out(count);
    for (auto& v : out) v = rng.byte();
    return out;
}

std::vector<uint8_t> texturedPlane(int w, int h, uint32_t seed) {
    Rng rng(seed);
    // Integer-only construction so that every CPU builds the same bytes.
    struct Blob { int cx, cy, r2, amp; };
    std::vector<Blob> blobs;
    for (int i = 0; i < 24; ++i) {
        int r = rng.uniform(4, 12 + w / 16);
        blobs.push_back({rng.uniform(0, w), rng.uniform(0, h), r * r, rng.uniform(-60, 60)});
    }
    std::vector<uint8_t> out(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int v = 64 + (96 * x) / (w > 1 ? w : 1) + (32 * y) / (h > 1 ? h : 1);
            for (const Blob& b : blobs) {
                int dx = x - b.cx, dy = y - b.cy;
                if (dx * dx + dy * dy < b.r2) v += b.amp;
            }
            v += static_cast<int>(rng.next() % 17) - 8;  // fine detail
            out[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(v < 16 ? 16 : (v > 239 ? 239 : v));
        }
    return out;
}

}  // namespace trvtest
