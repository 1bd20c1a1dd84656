// The burst pipeline behind TRV_Enhancement, with two additions for the
// library's own validated entry point: an output buffer that receives the
// result for every input layout, and a report of the decisions taken.
#pragma once

#include <cstdint>

#include "trv/stages.h"

namespace trv {

struct BurstReport {
    int32_t reference = -1;            // input index of the reference frame
    int32_t second = -1;               // input index of the second-sharpest frame
    float sharpnessRatio = 0.0f;       // second / reference sharpness
    int32_t keptByBlurCheck[6] = {};   // 1 kept, 0 dropped as blurred
    int32_t normalBrightness[6] = {};  // 0 for the burst's brightness outlier
    int32_t meanLuma = 0;              // reference mean luma
    int32_t level = 0;                 // enhancement level 0..3
    int32_t framesFused = 0;           // frames that took part in the result
    int32_t frameOrder[6] = {};        // input indices of the fused frames, reference first
    MV1 globalVectors[5] = {};         // global vector of frameOrder[k + 1] against the reference
    int32_t swappedReference = 0;      // 1 when the second frame became the reference
    int32_t droppedByScreening[6] = {};  // per input index: 1 when motion/noise screening dropped it
};

// Runs the pipeline. With deliverTo null this is exactly TRV_Enhancement.
// With deliverTo set, the result (fused or converted, 4:2:0 with the input's
// chroma order) is written there for every input layout, and out->data is not
// touched; deliverTo must hold singleFrameOutputBytes(W, H) bytes.
int32_t enhanceBurst(_tag_TRV_INPUTINFO* in, __tag_TRV_OFFSCREEN* out, _tag_TRV_PARAM* param, uint8_t* deliverTo,
                     BurstReport* report);

// Frame sizes the validated entry accepts for fusion: even sides of at least
// TRV_FUSE_MIN_WIDTH x TRV_FUSE_MIN_HEIGHT. Fusion writes every byte of the
// output frame at these sizes.
inline bool isFusedFrameSize(int32_t W, int32_t H) {
    return W >= TRV_FUSE_MIN_WIDTH && H >= TRV_FUSE_MIN_HEIGHT && (W & 1) == 0 && (H & 1) == 0;
}

// Whether the output frame holds the motion search's working images until
// fusion writes it (on by default; tests turn it off to compare).
extern bool gLendOutputToSearch;

}  // namespace trv
