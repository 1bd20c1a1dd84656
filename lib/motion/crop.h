// The central luma crop that the global search and the alignment error
// compare frames on: 10 % of the width and height left out on each side.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "common/scratch.h"

namespace trv {

struct CropGeometry {
    int32_t W = 0, H = 0;          // frame size
    int32_t mx = 0, my = 0;        // left and top margin
    int32_t cropW = 0, cropH = 0;  // crop size; zero or negative: empty

    static CropGeometry of(int32_t W, int32_t H) {
        CropGeometry g;
        g.W = W;
        g.H = H;
        g.mx = W / 10;
        g.my = H / 10;
        g.cropW = W - 2 * g.mx;
        g.cropH = H - 2 * g.my;
        return g;
    }
    bool empty() const { return cropW <= 0 || cropH <= 0; }
    size_t bytes() const { return empty() ? 0 : static_cast<size_t>(cropW) * static_cast<size_t>(cropH); }
};

// Luma addressing of a frame image: one byte per pixel (planar, codes 0, 1,
// 4) or luma on the even bytes of two bytes per pixel (packed).
template <int kBytesPerPixel>
inline uint8_t lumaAt(const uint8_t* image, int32_t W, int32_t c, int32_t r) {
    return image[(static_cast<ptrdiff_t>(r) * W + c) * kBytesPerPixel];
}

// Copies crop rows [rowBegin, rowEnd) of the image's luma into crop.
template <int kBytesPerPixel>
void copyCropRows(const uint8_t* image, uint8_t* crop, const CropGeometry& g, int32_t rowBegin, int32_t rowEnd) {
    for (int32_t r = rowBegin; r < rowEnd; ++r) {
        uint8_t* dst = crop + static_cast<size_t>(r) * g.cropW;
        for (int32_t c = 0; c < g.cropW; ++c) dst[c] = lumaAt<kBytesPerPixel>(image, g.W, g.mx + c, g.my + r);
    }
}

// Bytes of the crop buffer: at least one, so that it is never null.
inline size_t cropBytes(const CropGeometry& g) { return g.empty() ? 1 : g.bytes(); }

// The crop buffer, kept between calls and shared by the motion search and
// the alignment error, which never run at the same time.
inline uint8_t* cropBuffer(const CropGeometry& g) { return scratchBuffer(ScratchUse::LumaCrop, cropBytes(g)); }

}  // namespace trv
