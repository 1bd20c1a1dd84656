// TRV_Retinex, TRV_Blur, TRV_ToneEnhance: the stand-alone operations behind
// the same kind of gate as TRV_FuseBurst. Each refuses what its operation
// cannot process, sets the frame state the operation reads from its own
// arguments, and runs under the process-wide lock.
#include <mutex>

#include "pipeline/entry_gate.h"
#include "trv/stages.h"
#include "trv/trv.h"

namespace trv {

namespace {

bool isEven(int32_t v) { return (v & 1) == 0; }

// The operations cope with any positive size, down to a single cell, pixel
// or chroma pair; 4:2:0 frames have one chroma pair per 2 x 2 pixels, so
// their sides are even.
bool isFrameSize(int32_t width, int32_t height) {
    return fitsStageArithmetic(width, height) && isEven(width) && isEven(height);
}

int32_t validateRetinex(const uint8_t* frame, size_t frameCapacity, int32_t width, int32_t height) {
    if (frame == nullptr) return TRV_RETINEX_NULL_ARGUMENT;
    if (!isFrameSize(width, height)) return TRV_RETINEX_BAD_SIZE;
    if (frameCapacity < frame420Bytes(width, height)) return TRV_RETINEX_FRAME_TOO_SMALL;
    return TRV_FUSE_OK;
}

int32_t validateBlur(const uint8_t* input, size_t inCapacity, const uint8_t* output, size_t outCapacity,
                     int32_t width, int32_t height) {
    if (input == nullptr || output == nullptr) return TRV_BLUR_NULL_ARGUMENT;
    if (!fitsStageArithmetic(width, height)) return TRV_BLUR_BAD_SIZE;
    const size_t plane = static_cast<size_t>(width) * static_cast<size_t>(height);
    if (inCapacity < plane) return TRV_BLUR_INPUT_TOO_SMALL;
    if (outCapacity < plane) return TRV_BLUR_OUTPUT_TOO_SMALL;
    if (buffersOverlap(input, plane, output, plane)) return TRV_BLUR_OVERLAP;
    return TRV_FUSE_OK;
}

// Output codes with a layout of their own in the tone bands: 0 planar 4:2:2,
// 4 NV21; every other code is written packed, so only 2 names it.
bool isToneOutputFormat(int32_t code) { return code == 0 || code == 2 || code == 4; }

size_t toneOutputBytes(int32_t code, int32_t width, int32_t height) {
    return code == 4 ? frame420Bytes(width, height) : frame422Bytes(width, height);
}

int32_t validateTone(const uint8_t* input, size_t inCapacity, const uint8_t* output, size_t outCapacity,
                     int32_t width, int32_t height, int32_t outputFormat, int32_t id) {
    if (input == nullptr || output == nullptr) return TRV_TONE_NULL_ARGUMENT;
    if (!isFrameSize(width, height)) return TRV_TONE_BAD_SIZE;
    if (id < 0 || id > 3) return TRV_TONE_BAD_ID;
    if (!isToneOutputFormat(outputFormat)) return TRV_TONE_BAD_OUTPUT_FORMAT;
    const size_t inBytes = frame420Bytes(width, height), outBytes = toneOutputBytes(outputFormat, width, height);
    if (inCapacity < inBytes) return TRV_TONE_INPUT_TOO_SMALL;
    if (outCapacity < outBytes) return TRV_TONE_OUTPUT_TOO_SMALL;
    if (buffersOverlap(input, inBytes, output, outBytes)) return TRV_TONE_OVERLAP;
    return TRV_FUSE_OK;
}

}  // namespace

}  // namespace trv

extern "C" {

int32_t TRV_Retinex(uint8_t* frame, size_t frameCapacity, int32_t width, int32_t height) {
    const int32_t status = trv::validateRetinex(frame, frameCapacity, width, height);
    if (status != TRV_FUSE_OK) return status;
    std::lock_guard<std::mutex> hold(trv::processStateLock());
    // The retinex blur sizes its quarter planes from the frame state.
    gW = width;
    gH = height;
    MSR(frame, width, height);
    return TRV_FUSE_OK;
}

int32_t TRV_Blur(const uint8_t* input, size_t inCapacity, uint8_t* output, size_t outCapacity, int32_t width,
                 int32_t height) {
    const int32_t status = trv::validateBlur(input, inCapacity, output, outCapacity, width, height);
    if (status != TRV_FUSE_OK) return status;
    std::lock_guard<std::mutex> hold(trv::processStateLock());
    // MultiBlur only reads its input plane.
    MultiBlur(const_cast<uint8_t*>(input), output, width, height);
    return TRV_FUSE_OK;
}

int32_t TRV_ToneEnhance(const uint8_t* input, size_t inCapacity, uint8_t* output, size_t outCapacity, int32_t width,
                        int32_t height, int32_t outputFormat, int32_t id, int32_t level) {
    const int32_t status =
        trv::validateTone(input, inCapacity, output, outCapacity, width, height, outputFormat, id);
    if (status != TRV_FUSE_OK) return status;
    std::lock_guard<std::mutex> hold(trv::processStateLock());
    // The band threads take the frame size, the cell size and the output
    // layout from the frame state.
    gW = width;
    gH = height;
    gOUTFormat = outputFormat;
    // The tone enhancement only reads its input frame.
    xImgEnhance_YCrCb(const_cast<uint8_t*>(input), output, width, height, id, level);
    return TRV_FUSE_OK;
}

}  // extern "C"
