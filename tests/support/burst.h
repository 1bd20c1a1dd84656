// A burst as a caller hands it to the library: the frames in one input
// layout, their records, the burst record, default parameters for that
// layout, and a caller-owned 4:2:0 output buffer with its record. A test
// using it links trv or trv_internal.
#pragma once

#include <utility>
#include <vector>

#include "support/layouts.h"
#include "trv/trv.h"

namespace trvtest {

struct Burst {
    std::vector<std::vector<uint8_t>> frames;  // the caller's bytes, one vector per frame
    std::vector<__tag_TRV_OFFSCREEN> pics;
    _tag_TRV_INPUTINFO in{};
    _tag_TRV_PARAM param{};                    // defaults, inputFormat = the layout code
    std::vector<uint8_t> result;               // W * H * 3 / 2 bytes of `fill`
    __tag_TRV_OFFSCREEN out{};                 // data = result

    // Frames already in layout `code` (0, 1, 2 or 4), each w x h.
    Burst(std::vector<std::vector<uint8_t>> bytes, int w, int h, int code, uint8_t fill = 0x5A)
        : frames(std::move(bytes)), pics(frames.size()), result(static_cast<size_t>(w) * h * 3 / 2, fill) {
        in.picNum = static_cast<int32_t>(frames.size());
        for (size_t i = 0; i < frames.size() && i < TRV_MAX_FRAMES; ++i) {
            pics[i] = {0, w, h, frames[i].data()};
            in.pics[i] = &pics[i];
        }
        out.data = result.data();
        TRV_GetDefaultParam(&param);
        param.inputFormat = code;
    }
    // The planes written in layout `code`.
    Burst(const std::vector<Planes422>& planes, int code, uint8_t fill = 0x5A)
        : Burst(toLayout(planes, code), planes[0].w, planes[0].h, code, fill) {}
    Burst(const Burst&) = delete;  // the records point into this burst's own vectors
    Burst& operator=(const Burst&) = delete;

    // TRV_FuseBurst with the whole output buffer.
    int32_t fuse(_tag_TRV_FUSE_REPORT* report = nullptr) {
        return TRV_FuseBurst(&in, &param, &out, result.size(), report);
    }
};

}  // namespace trvtest
