#include "pipeline/single_frame.h"

#include <cstring>

namespace trv {

static size_t pixelCount(int32_t W, int32_t H) {
    return (W > 0 && H > 0) ? static_cast<size_t>(W) * static_cast<size_t>(H) : 0;
}

size_t singleFrameOutputBytes(int32_t W, int32_t H) {
    if (W <= 0 || H <= 0) return 0;
    size_t chromaRows = static_cast<size_t>(H + 1) / 2;
    size_t chromaRowBytes = static_cast<size_t>(W + 1) & ~static_cast<size_t>(1);
    return pixelCount(W, H) + chromaRows * chromaRowBytes;
}

void convertPlanar422(const uint8_t* src, uint8_t* dst, int32_t W, int32_t H) {
    const size_t pixels = pixelCount(W, H);
    if (pixels == 0) return;
    memcpy(dst, src, pixels);
    const uint8_t* first = src + pixels;
    const uint8_t* second = first + pixels / 2;
    const int32_t pairs = (W + 1) / 2;
    const int32_t planeStep = W & ~1;  // two input chroma rows of W / 2 bytes
    uint8_t* out = dst + pixels;
    for (int32_t r = 0; r < H; r += 2) {
        for (int32_t k = 0; k < pairs; ++k) {
            out[2 * k] = first[k];
            out[2 * k + 1] = second[k];
        }
        first += planeStep;
        second += planeStep;
        out += W;
    }
}

void convertSemiPlanar422(const uint8_t* src, uint8_t* dst, int32_t W, int32_t H) {
    const size_t pixels = pixelCount(W, H);
    if (pixels == 0) return;
    memcpy(dst, src, pixels);
    for (int32_t j = 0; 2 * j < H; ++j) {
        memcpy(dst + pixels + static_cast<size_t>(j) * W, src + pixels + static_cast<size_t>(2 * j) * W,
               static_cast<size_t>(W));
    }
}

void convertPacked422(const uint8_t* src, uint8_t* dst, int32_t W, int32_t H) {
    const size_t pixels = pixelCount(W, H);
    if (pixels == 0) return;
    const size_t frameEnd = 2 * pixels;
    const size_t inStride = 2 * static_cast<size_t>(W);
    const int32_t pairs = (W + 1) / 2;
    // Reads stay inside the frame: with an odd width the last pair of a row
    // would reach into the next row (and past the frame on the last row);
    // such bytes are read only where they exist. With an odd height the last
    // row has no partner row below it and is converted alone.
    auto read = [&](size_t index, uint8_t* to) {
        if (index < frameEnd) *to = src[index];
    };
    for (int32_t r = 0; r < H; r += 2) {
        const int32_t rows = (r + 1 < H) ? 2 : 1;
        for (int32_t dr = 0; dr < rows; ++dr) {
            const size_t in = static_cast<size_t>(r + dr) * inStride;
            uint8_t* out = dst + static_cast<size_t>(r + dr) * W;
            for (int32_t k = 0; k < pairs; ++k) {
                read(in + 4 * k, &out[2 * k]);
                read(in + 4 * k + 2, &out[2 * k + 1]);
            }
        }
        const size_t in = static_cast<size_t>(r) * inStride;
        uint8_t* chroma = dst + pixels + static_cast<size_t>(r / 2) * W;
        for (int32_t k = 0; k < pairs; ++k) {
            read(in + 4 * k + 1, &chroma[2 * k]);
            read(in + 4 * k + 3, &chroma[2 * k + 1]);
        }
    }
}

void convertSingleFrame(int32_t format, const uint8_t* src, uint8_t* dst, int32_t W, int32_t H) {
    switch (format) {
        case 0: convertPlanar422(src, dst, W, H); break;
        case 1: convertSemiPlanar422(src, dst, W, H); break;
        case 2: convertPacked422(src, dst, W, H); break;
        case 4: memcpy(dst, src, pixelCount(W, H) * 3 / 2); break;
        default: break;  // no layout of its own: the output stays unwritten
    }
}

}  // namespace trv
