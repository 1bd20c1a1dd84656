// TRV_FuseBurst: the pipeline behind a gate that refuses what it cannot
// process, one caller at a time, with the result always delivered to the
// caller and the pipeline's decisions reported.
#include <cmath>
#include <cstring>
#include <mutex>

#include "pipeline/driver.h"
#include "pipeline/entry_gate.h"
#include "trv/trv.h"

namespace trv {

namespace {

bool isAcceptedInputFormat(int32_t code) { return code == 0 || code == 1 || code == 2 || code == 4; }

int32_t validateBurst(const _tag_TRV_INPUTINFO* in, const _tag_TRV_PARAM* param, const __tag_TRV_OFFSCREEN* out,
                      size_t outCapacity) {
    if (in == nullptr || param == nullptr || out == nullptr || out->data == nullptr) return TRV_FUSE_NULL_ARGUMENT;
    if (in->picNum < 1 || in->picNum > TRV_MAX_FRAMES) return TRV_FUSE_BAD_FRAME_COUNT;
    for (int32_t i = 0; i < in->picNum; ++i) {
        if (in->pics[i] == nullptr || in->pics[i]->data == nullptr) return TRV_FUSE_NULL_ARGUMENT;
    }
    const int32_t W = in->pics[0]->width, H = in->pics[0]->height;
    for (int32_t i = 1; i < in->picNum; ++i) {
        if (in->pics[i]->width != W || in->pics[i]->height != H) return TRV_FUSE_UNEQUAL_SIZES;
    }
    if (!trv::isFusedFrameSize(W, H)) return TRV_FUSE_BAD_SIZE;
    if (!fitsStageArithmetic(W, H)) return TRV_FUSE_BAD_SIZE;
    if (!isAcceptedInputFormat(param->inputFormat)) return TRV_FUSE_BAD_INPUT_FORMAT;
    if (param->outputFormat != 4) return TRV_FUSE_BAD_OUTPUT_FORMAT;
    if (outCapacity < TRV_FuseOutputBytes(W, H)) return TRV_FUSE_OUTPUT_TOO_SMALL;
    return TRV_FUSE_OK;
}

bool isFused(const _tag_TRV_FUSE_REPORT& report, int32_t frame) {
    for (int32_t k = 0; k < report.framesFused && k < TRV_MAX_FRAMES; ++k) {
        if (report.frameOrder[k] == frame) return true;
    }
    return false;
}

void fillReport(const BurstReport& burst, int32_t picNum, _tag_TRV_FUSE_REPORT* report) {
    memset(report, 0, sizeof *report);
    // After a reference swap the fused frame's anchor is the second frame:
    // the reference is whatever heads the fused order.
    report->reference = burst.frameOrder[0];
    report->swappedReference = burst.swappedReference;
    report->framesFused = burst.framesFused;
    report->meanLuma = burst.meanLuma;
    report->level = burst.level;
    // The blur check divides the second frame's sharpness by the sharpest
    // one's; when the sharpest measures 0 (featureless frames) that is 0/0.
    // The report says 0 there, as for a burst without a sharp second frame;
    // otherwise the ratio already lies in 0 .. 1.
    report->sharpnessRatio = std::isnan(burst.sharpnessRatio) ? 0.0f : burst.sharpnessRatio;
    for (int32_t k = 0; k < burst.framesFused && k < TRV_MAX_FRAMES; ++k) {
        report->frameOrder[k] = burst.frameOrder[k];
        if (k > 0) {
            report->vectorX[k] = burst.globalVectors[k - 1].x;
            report->vectorY[k] = burst.globalVectors[k - 1].y;
        }
    }
    for (int32_t i = 0; i < picNum; ++i) {
        if (isFused(*report, i)) {
            report->frameFate[i] = TRV_FRAME_FUSED;
        } else if (!burst.keptByBlurCheck[i]) {
            report->frameFate[i] = TRV_FRAME_BLURRED;
        } else if (burst.droppedByScreening[i]) {
            report->frameFate[i] = TRV_FRAME_SCREENED;
        } else {
            report->frameFate[i] = TRV_FRAME_UNUSED;
        }
    }
}

}  // namespace

}  // namespace trv

extern "C" {

size_t TRV_FuseOutputBytes(int32_t width, int32_t height) {
    if (width <= 0 || height <= 0) return 0;
    return trv::frame420Bytes(width, height);
}

int32_t TRV_FuseBurst(_tag_TRV_INPUTINFO* in, const _tag_TRV_PARAM* param, __tag_TRV_OFFSCREEN* out,
                      size_t outCapacity, _tag_TRV_FUSE_REPORT* report) {
    const int32_t status = trv::validateBurst(in, param, out, outCapacity);
    if (status != TRV_FUSE_OK) return status;

    // The pipeline takes a mutable parameter record; the caller's stays const.
    _tag_TRV_PARAM pipelineParam = *param;
    trv::BurstReport burst;
    {
        std::lock_guard<std::mutex> hold(trv::processStateLock());
        trv::enhanceBurst(in, out, &pipelineParam, out->data, &burst);
    }
    if (report != nullptr) trv::fillReport(burst, in->picNum, report);
    return TRV_FUSE_OK;
}

}  // extern "C"
