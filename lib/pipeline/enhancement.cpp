// TRV_Enhancement: validation, frame analysis, then single-frame conversion
// or motion search, screening and fusion.
#include <cstdlib>
#include <cstring>

#include "common/log.h"
#include "pipeline/driver.h"
#include "pipeline/dump.h"
#include "pipeline/single_frame.h"
#include "trv/stages.h"

namespace trv {

namespace {

constexpr const char* kVersionTag = "2018-2-24-Normal-BMQ";

// Quarter-scale image buffer of a frame. Twice the image size and zeroed:
// for packed formats the brightness statistics read the quarter image with
// packed addressing, which reaches twice as far as the image itself.
uint8_t* allocateQuarter(int32_t W, int32_t H) {
    int32_t q = W >> 2, qh = H >> 2;
    size_t bytes = (q > 0 && qh > 0) ? 2 * static_cast<size_t>(q) * static_cast<size_t>(qh) : 1;
    return static_cast<uint8_t*>(calloc(bytes, 1));
}

bool framesPresent(const _tag_TRV_INPUTINFO* in, int32_t frames) {
    if (frames < 1) return false;
    for (int32_t i = 0; i < frames; ++i) {
        if (in->pics[i] == nullptr || in->pics[i]->data == nullptr) return false;
    }
    return true;
}

}  // namespace

int32_t enhanceBurst(_tag_TRV_INPUTINFO* in, __tag_TRV_OFFSCREEN* out, _tag_TRV_PARAM* param, uint8_t* deliverTo,
                     BurstReport* report) {
    logError("BMQ-Version: %s", kVersionTag);
    if (param == nullptr) {
        logError("param empty\n");
        return 0;
    }
    gIsNormalLuminance = 1;
    gINFormat = param->inputFormat;
    gOUTFormat = param->outputFormat;
    if (gINFormat > 5) {
        logError("This is error input Format\n");
        return 1;
    }
    if (gOUTFormat > 5) {
        logError("This is error output Format\n");
        return 1;
    }
    if (in == nullptr || in->pics[0] == nullptr) {
        logError("in memory empty\n");
        return 0;
    }
    const int32_t W = in->pics[0]->width;
    const int32_t H = in->pics[0]->height;
    gW = W;
    gH = H;
    if (param->dump) saveYUVPicAndParam(in, param);
    if (out != nullptr) {
        out->width = W;
        out->height = H;
    }

    // The per-frame state has room for six frames; a longer burst is cut to
    // its first six rather than overrunning it.
    const int32_t picNum = in->picNum < 6 ? in->picNum : 6;
    gPicNum = picNum;
    uint8_t* quarters[6] = {};
    for (int32_t i = 0; i < picNum; ++i) {
        gErrorRatio[i] = 1000.0f;
        gImgInArr[i] = in->pics[i] != nullptr ? in->pics[i]->data : nullptr;
        quarters[i] = allocateQuarter(W, H);
        gImgInSArr[i] = quarters[i];
    }

    uint8_t* O = nullptr;
    bool ownsOutput = false;
    // A frame without pixels cannot be analysed: treated like a missing
    // reference. A frame without area has nothing to fuse or convert.
    if (!framesPresent(in, picNum)) {
        logError("in memory empty\n");
    } else if (W <= 0 || H <= 0) {
        logError("empty frame size %dx%d\n", W, H);
    } else {
        int32_t kept[6] = {};
        int32_t ref = 0, second = 0;
        const float ratio = kickBlurPic(kept, &ref, &second, picNum);
        (void)ratio;  // read by the reference-swap rule of the motion stage

        uint8_t* R = in->pics[ref]->data;
        uint8_t* Q[7] = {};
        uint8_t* F[6] = {};
        int32_t order[7] = {ref};  // input index of each listed frame, reference first
        int32_t listed = 1;
        Q[0] = quarters[ref];
        if (gPicNum >= 2) {
            // The second frame is listed even when the blur check dropped it:
            // the lists then hold one frame more than gPicNum and the last one
            // is never used.
            Q[1] = quarters[second];
            F[0] = in->pics[second]->data;
            order[1] = second;
            listed = 2;
            for (int32_t i = 0; i < picNum; ++i) {
                if (kept[i] && i != ref && i != second) {
                    Q[listed] = quarters[i];
                    F[listed - 1] = in->pics[i]->data;
                    order[listed] = i;
                    ++listed;
                }
            }
        }

        if (deliverTo != nullptr) {
            O = deliverTo;
        } else if (gINFormat == 4) {
            O = out != nullptr ? out->data : nullptr;
        } else {
            O = static_cast<uint8_t*>(malloc(singleFrameOutputBytes(W, H) + 1));
            ownsOutput = true;
        }
        int32_t histogram[256] = {};
        if (O == nullptr) {
            logError("out memory empty\n");
        } else {
            int32_t mean = 0;
            const int32_t level = CalEnhanceID(R, W, H, &mean, histogram);
            gMeanY = mean;
            MV1 records[5] = {};
            MV1* mvs[5] = {&records[0], &records[1], &records[2], &records[3], &records[4]};
            if (gPicNum < 2) {
                convertSingleFrame(gINFormat, R, O, W, H);
            } else {
                // Global motion, the reference swap and frame screening set
                // the vectors and the surviving count before fusion. Fused:
                // the reference, then the non-reference frames that survived.
                uint8_t* FR[6] = {R};
                for (int32_t k = 0; k + 1 < gPicNum && k < 5; ++k) FR[k + 1] = F[k];
                Merge(FR, Q, O, mvs, gPicNum, W, H, level, mean);
            }
            if (report != nullptr) {
                report->reference = ref;
                report->second = second;
                report->sharpnessRatio = ratio;
                for (int32_t i = 0; i < picNum; ++i) {
                    report->keptByBlurCheck[i] = kept[i];
                    report->normalBrightness[i] = gIsNormalPicLux[i];
                }
                report->meanLuma = mean;
                report->level = level;
                report->framesFused = gPicNum < 2 ? 1 : gPicNum;
                for (int32_t k = 0; k < report->framesFused && k < 6; ++k) report->frameOrder[k] = order[k];
                for (int32_t k = 0; k + 1 < report->framesFused && k < 5; ++k) report->globalVectors[k] = records[k];
            }
        }
    }

    for (int32_t i = 0; i < picNum; ++i) free(quarters[i]);
    if (ownsOutput) free(O);
    if (param->dump && out != nullptr) writeResultDump(out->data, W, H);
    return 0;
}

}  // namespace trv

extern "C" int32_t TRV_Enhancement(_tag_TRV_INPUTINFO* in, __tag_TRV_OFFSCREEN* out, _tag_TRV_PARAM* param,
                                   int (*callback)(long, long, void*)) {
    (void)callback;  // accepted for interface compatibility, never called
    return trv::enhanceBurst(in, out, param, nullptr, nullptr);
}
