// The benchmark burst: one textured scene with a photograph's spectrum, every
// frame a shifted copy with its own noise, in NV21. Shared by the pipeline
// cases and the fresh-process measure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/synthetic.h"
#include "trv/trv.h"

namespace trvbench {

// Natural pictures have little energy at the finest scale; a box blur of the
// synthetic texture gives it that spectrum, so that the one-pixel residual
// the global search leaves is judged as a photograph's would be.
inline std::vector<uint8_t> smoothed(const std::vector<uint8_t>& plane, int w, int h, int radius) {
    std::vector<uint8_t> out(plane.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int sum = 0, count = 0;
            for (int dy = -radius; dy <= radius; ++dy)
                for (int dx = -radius; dx <= radius; ++dx) {
                    const int yy = y + dy, xx = x + dx;
                    if (yy < 0 || yy >= h || xx < 0 || xx >= w) continue;
                    sum += plane[static_cast<size_t>(yy) * w + xx];
                    ++count;
                }
            out[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(sum / count);
        }
    return out;
}

// Six frames of W x H NV21 and an output frame.
struct NV21Burst {
    int w, h;
    std::vector<std::vector<uint8_t>> frames;
    std::vector<uint8_t> output;

    NV21Burst(int width, int height) : w(width), h(height) {
        static const size_t kShifts[6] = {0, 3, 7, 10, 14, 19};  // a few pixels of horizontal motion
        const size_t bytes = static_cast<size_t>(w) * h * 3 / 2;
        const std::vector<uint8_t> scene = smoothed(trvtest::texturedPlane(w, h * 3 / 2, 7), w, h * 3 / 2, 2);
        trvtest::Rng rng(11);
        for (int f = 0; f < 6; ++f) {
            std::vector<uint8_t> frame(bytes);
            const size_t shift = kShifts[f];
            for (size_t i = 0; i < bytes; ++i) {
                const int v = scene[i + shift < bytes ? i + shift : i] + static_cast<int>(rng.next() % 9) - 4;
                frame[i] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
            }
            frames.push_back(std::move(frame));
        }
        output.resize(bytes);
    }
};

// The records of a TRV_Enhancement call on the first `frames` frames of a
// burst, as a camera app fills them (NV21 in, the default parameters).
struct EnhancementCall {
    std::vector<__tag_TRV_OFFSCREEN> pics;
    _tag_TRV_INPUTINFO in{};
    __tag_TRV_OFFSCREEN out{};
    _tag_TRV_PARAM param{};

    EnhancementCall(NV21Burst& burst, int frames) : pics(frames) {
        in.picNum = frames;
        for (int i = 0; i < frames; ++i) {
            pics[i] = {0, burst.w, burst.h, burst.frames[i].data()};
            in.pics[i] = &pics[i];
        }
        out = {0, 0, 0, burst.output.data()};
        TRV_GetDefaultParam(&param);
        param.inputFormat = 4;
    }
};

}  // namespace trvbench
