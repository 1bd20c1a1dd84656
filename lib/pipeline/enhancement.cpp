// TRV_Enhancement: validation, frame analysis, then single-frame conversion
// or motion search, screening and fusion.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "common/arith.h"
#include "common/log.h"
#include "common/scratch.h"
#include "motion/reference_swap.h"
#include "motion/screening.h"
#include "pipeline/driver.h"
#include "pipeline/dump.h"
#include "pipeline/single_frame.h"
#include "trv/stages.h"

namespace trv {

bool gLendOutputToSearch = true;

namespace {

constexpr const char* kVersionTag = "2018-2-24-Normal-BMQ";

// Where the quarter-scale images of a burst lie in their buffer, which is
// kept between calls: one slot per frame. The frame analysis writes each
// image whole before anything reads it. Packed formats get twice the image
// size, the second half zero: their brightness statistics read the quarter
// image with packed addressing, which reaches twice as far as the image.
struct QuarterLayout {
    size_t slot = 0, image = 0;
    int32_t frames = 0;
    bool operator==(const QuarterLayout& o) const { return slot == o.slot && image == o.image && frames == o.frames; }
};

void placeQuarters(int32_t W, int32_t H, int32_t frames, uint8_t** quarters) {
    static QuarterLayout previous;
    if (frames <= 0) return;
    const int32_t q = W >> 2, qh = H >> 2;
    QuarterLayout now;
    now.image = (q > 0 && qh > 0) ? static_cast<size_t>(q) * static_cast<size_t>(qh) : 0;
    const size_t reach = isPlanarLuma(gINFormat) ? now.image : 2 * now.image;
    now.slot = (std::max<size_t>(reach, 1) + 63) & ~size_t{63};
    now.frames = frames;
    uint8_t* base = scratchBuffer(ScratchUse::QuarterImages, now.slot * static_cast<size_t>(frames));
    for (int32_t i = 0; i < frames; ++i) quarters[i] = base != nullptr ? base + now.slot * i : nullptr;
    if (base == nullptr) return;
    // Past each image, whatever an earlier burst of another layout wrote
    // goes back to zero; with the same layout nothing has written there.
    if (!(now == previous)) {
        const size_t dirty = scratchDirtyBytes(ScratchUse::QuarterImages);
        for (int32_t i = 0; i < frames; ++i) {
            const size_t from = now.slot * i + now.image, to = std::min(now.slot * (i + 1), dirty);
            if (from < to) memset(base + from, 0, to - from);
        }
    }
    previous = now;
    markScratchDirty(ScratchUse::QuarterImages, now.slot * (frames - 1) + now.image);
}

bool framesPresent(const _tag_TRV_INPUTINFO* in, int32_t frames) {
    if (frames < 1) return false;
    for (int32_t i = 0; i < frames; ++i) {
        if (in->pics[i] == nullptr || in->pics[i]->data == nullptr) return false;
    }
    return true;
}

constexpr int kMotionRecords = 5;
constexpr double kSwapSharpnessRatio = 0.99;

// The frames of a burst in the order the stages take them: reference data
// R, quarter images Q (reference first), the other frames' data F in the
// order of Q[1..], and the input index of each entry of Q.
struct FrameLists {
    uint8_t* R = nullptr;
    uint8_t* Q[7] = {};
    uint8_t* F[6] = {};
    int32_t inputIndex[7] = {};
};

// Makes the second frame the reference: vectors are re-expressed against
// it and the errors measured again.
void swapReference(FrameLists& lists, MV1** mvs, int32_t frames, int32_t W, int32_t H) {
    std::swap(lists.Q[0], lists.Q[1]);
    std::swap(lists.R, lists.F[0]);
    std::swap(lists.inputIndex[0], lists.inputIndex[1]);
    rebaseOnSecond(mvs, frames);
    CalcError(lists.R, lists.F, mvs, W, H, frames);
}

// Nothing reads the output frame before fusion (or the single-frame
// conversion) writes it, and at the sizes the validated entry accepts that
// writes every byte of its 4:2:0 frame, whatever was there. Until then the
// frame can hold the working images of the motion search where they fit:
// pages the caller has already touched, where a first burst would otherwise
// take about as many fresh ones from the system and wait for them to be
// zeroed.
bool outputCanLend(int32_t W, int32_t H) { return gLendOutputToSearch && isFusedFrameSize(W, H); }

// Global motion, the reference swap, screening, then fusion of what is
// left (or the single-frame conversion when fewer than two frames remain).
void alignAndFuse(FrameLists& lists, uint8_t* O, int32_t W, int32_t H, float sharpnessRatio, int32_t level,
                  int32_t mean, BurstReport* report) {
    MV1* records = static_cast<MV1*>(calloc(kMotionRecords, sizeof(MV1)));
    MV1* mvs[kMotionRecords];
    for (int k = 0; k < kMotionRecords; ++k) mvs[k] = &records[k];

    bool swapped = false;
    const int32_t screened = gPicNum < 6 ? gPicNum : 6;
    int32_t kept[6] = {};
    {
        // The luma crop of the search and the alignment error lives in the
        // output frame until fusion writes it (see outputCanLend).
        const ScratchLoan loan(ScratchUse::LumaCrop, outputCanLend(W, H) ? O : nullptr, singleFrameOutputBytes(W, H));
        ME(lists.R, lists.F, mvs, W, H, gPicNum);
        swapped = gPicNum > 2 && static_cast<double>(sharpnessRatio) > kSwapSharpnessRatio &&
                  secondIsBetterAnchor(mvs, gPicNum);
        if (swapped) swapReference(lists, mvs, gPicNum, W, H);
        screenFrames(lists.F, lists.Q, W >> 2, H >> 2, W, H, mvs, gPicNum, kept);
    }
    // Screening compacted F and Q; the input indices follow the same rule.
    int32_t listedIndex[7];
    std::copy(lists.inputIndex, lists.inputIndex + 7, listedIndex);
    for (int32_t i = 1, k = 1; i < screened; ++i) {
        if (kept[i] == 1) lists.inputIndex[k++] = listedIndex[i];
    }

    if (gPicNum < 2) {
        convertSingleFrame(gINFormat, lists.R, O, W, H);
    } else {
        // Fused: the reference, then the frames that survived screening.
        uint8_t* FR[6] = {lists.R};
        for (int32_t k = 0; k + 1 < gPicNum && k < kMotionRecords; ++k) FR[k + 1] = lists.F[k];
        Merge(FR, lists.Q, O, mvs, gPicNum, W, H, level, mean);
    }

    if (report != nullptr) {
        report->swappedReference = swapped ? 1 : 0;
        for (int32_t i = 1; i < screened; ++i) {
            if (kept[i] == 0) report->droppedByScreening[listedIndex[i]] = 1;
        }
        for (int32_t k = 0; k + 1 < gPicNum && k < kMotionRecords; ++k) report->globalVectors[k] = records[k];
    }
    free(records);
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
    placeQuarters(W, H, picNum, quarters);
    for (int32_t i = 0; i < picNum; ++i) {
        gErrorRatio[i] = 1000.0f;
        gImgInArr[i] = in->pics[i] != nullptr ? in->pics[i]->data : nullptr;
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

        FrameLists lists;
        lists.R = in->pics[ref]->data;
        lists.Q[0] = quarters[ref];
        lists.inputIndex[0] = ref;
        if (gPicNum >= 2) {
            // The second frame is listed even when the blur check dropped it:
            // the lists then hold one frame more than gPicNum and the last one
            // is never used.
            int32_t listed = 0;
            auto list = [&](int32_t i) {
                lists.Q[listed + 1] = quarters[i];
                lists.F[listed] = in->pics[i]->data;
                lists.inputIndex[listed + 1] = i;
                ++listed;
            };
            list(second);
            for (int32_t i = 0; i < picNum; ++i) {
                if (kept[i] && i != ref && i != second) list(i);
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
            const int32_t level = CalEnhanceID(lists.R, W, H, &mean, histogram);
            gMeanY = mean;
            if (gPicNum < 2) {
                convertSingleFrame(gINFormat, lists.R, O, W, H);
            } else {
                alignAndFuse(lists, O, W, H, ratio, level, mean, report);
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
                // A burst left with one frame is its reference, converted.
                report->framesFused = gPicNum < 2 ? 1 : gPicNum;
                for (int32_t k = 0; k < report->framesFused && k < 6; ++k) report->frameOrder[k] = lists.inputIndex[k];
            }
        }
    }

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
