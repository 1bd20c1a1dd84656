// Frame screening: drops frames whose global vector is too large or whose
// alignment error is too large for the reference's noise, then compacts the
// frame lists so that the kept frames come first, in burst order.
#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

#include "common/arith.h"
#include "common/threads.h"
#include "motion/screening.h"
#include "trv/stages.h"

extern "C" {
int32_t gWidthS = 0;
int32_t gHeightS = 0;
uint8_t* gImageS[6] = {};
MV1* gRotateMV[5] = {};
int32_t* gRotatePID = nullptr;
float gEstSigma = 0.0f;
}

namespace {

constexpr int kMaxFrames = 6;
constexpr int kNoiseBlock = 12;
constexpr int kNoiseBlockSamples = kNoiseBlock * kNoiseBlock;
constexpr double kNoiseOutlierFactor = 3.0;  // blocks this many mean errors off are structure, not noise
constexpr int32_t kLargeMotion = 56;
constexpr float kMaxErrorRatio = 2.5f;
constexpr int32_t kDarkLuma = 20;       // mean luma below this is a dark scene
constexpr int32_t kFewFramesLimit = 4;  // fewer frames than this is "few"
constexpr int32_t kBrightLuma = 118;
constexpr float kUnsetErrorRatio = 1000.0f;

// Judgements are handed from slot to slot in index order, so that every
// worker reads gPicNum after the decrements of the slots before it: the
// same burst gives the same answer on every run. Set by RunRefineMV for the
// length of its fan-out; without it (a worker run on its own) no one waits.
struct JudgementOrder {
    std::mutex lock;
    std::condition_variable turnChanged;
    int nextSlot = 0;
};
JudgementOrder* gJudgementOrder = nullptr;

int64_t magnitude(int32_t v) { return v < 0 ? -static_cast<int64_t>(v) : v; }

// Mean absolute deviation of 12 x 12 blocks of the reference's quarter
// image, over the blocks that deviate less than three mean errors. The
// deviation is summed in double and rounded to float once divided. With no
// counted block the quotient is 0 / 0, NaN, and no ratio test can drop.
float estimateNoise(const uint8_t* img, int Ws, int Hs, double meanErr) {
    if (img == nullptr) Hs = 0;  // no image: no block
    float total = 0.0f;
    int count = 0;
    for (int top = 0; top < Hs - kNoiseBlock; top += kNoiseBlock) {
        for (int left = 0; left < Ws - kNoiseBlock; left += kNoiseBlock) {
            const uint8_t* block = img + static_cast<ptrdiff_t>(top) * Ws + left;
            int sum = 0;
            for (int r = 0; r < kNoiseBlock; ++r)
                for (int c = 0; c < kNoiseBlock; ++c) sum += block[r * Ws + c];
            const double mean = sum / static_cast<double>(kNoiseBlockSamples);
            double deviation = 0.0;
            for (int r = 0; r < kNoiseBlock; ++r)
                for (int c = 0; c < kNoiseBlock; ++c) deviation += std::abs(block[r * Ws + c] - mean);
            const float d = static_cast<float>(deviation / kNoiseBlockSamples);
            if (d < kNoiseOutlierFactor * meanErr) {
                total += d;
                ++count;
            }
        }
    }
    return total / static_cast<float>(count);
}

void dropFrame(int slot) {
    if (gRotatePID != nullptr) gRotatePID[slot + 1] = 0;
    __atomic_fetch_sub(&gPicNum, 1, __ATOMIC_SEQ_CST);
}

void judgeFrame(int slot) {
    MV1* mv = gRotateMV[slot];
    const float ratio = static_cast<float>(mv->err / static_cast<double>(gEstSigma));
    const int32_t frames = __atomic_load_n(&gPicNum, __ATOMIC_SEQ_CST);
    const bool darkAndFew = frames < kFewFramesLimit && gMeanY < kDarkLuma;
    if (magnitude(mv->x) < kLargeMotion && magnitude(mv->y) < kLargeMotion) {
        // A NaN ratio (no noise estimate) is not above the limit: kept.
        if (ratio > kMaxErrorRatio && !darkAndFew) dropFrame(slot);
    } else if (!darkAndFew) {
        dropFrame(slot);
    } else {
        // Dark scenes with few frames keep the frame and limit its motion.
        mv->x = trv::clampInt(mv->x, -kLargeMotion, kLargeMotion);
        mv->y = trv::clampInt(mv->y, -kLargeMotion, kLargeMotion);
    }
}

// Moves the kept frames (flag 1) to the front of the lists in burst order;
// records receive copies of the kept frames' records. Entries past the kept
// ones keep their old contents.
void compactLists(unsigned char** frames, unsigned char** smalls, MV1** mvs, int listed, const int32_t* keep) {
    unsigned char* oldFrames[kMaxFrames - 1];
    unsigned char* oldSmalls[kMaxFrames];
    MV1 oldRecords[kMaxFrames - 1];
    for (int i = 1; i < listed; ++i) {
        oldFrames[i - 1] = frames[i - 1];
        oldSmalls[i] = smalls[i];
        oldRecords[i - 1] = *mvs[i - 1];
    }
    int k = 1;
    for (int i = 1; i < listed; ++i) {
        if (keep[i] != 1) continue;
        frames[k - 1] = oldFrames[i - 1];
        smalls[k] = oldSmalls[i];
        *mvs[k - 1] = oldRecords[i - 1];
        ++k;
    }
}

}  // namespace

namespace trv {

void screenFrames(unsigned char** frames, unsigned char** smalls, int Ws, int Hs, int W, int H, MV1** mvs, int n,
                  int32_t keptOut[6]) {
    // The per-frame tables hold six frames; a longer burst is screened on its first six.
    const int listed = std::min(n, kMaxFrames);
    int32_t keep[kMaxFrames] = {1, 1, 1, 1, 1, 1};
    gWidthS = Ws;
    gHeightS = Hs;
    gRotatePID = keep;
    gImageS[0] = smalls[0];

    // The errors become mean absolute differences per luma sample.
    const int64_t cropArea = static_cast<int64_t>(H - 2 * (H / 10)) * (W - 2 * (W / 10));
    const int32_t samples = static_cast<int32_t>(cropArea) / 16;
    double errSum = 0.0;
    for (int i = 0; i + 1 < listed; ++i) {
        mvs[i]->err = mvs[i]->err / static_cast<double>(samples);
        errSum += mvs[i]->err;
        gImageS[i + 1] = smalls[i + 1];
        gRotateMV[i] = mvs[i];
    }
    const double meanErr = errSum / (listed - 1);
    gEstSigma = estimateNoise(smalls[0], Ws, Hs, meanErr);

    RunRefineMV(listed);

    // Two frames left in a bright scene: the frame with the lowest error
    // ratio below 1000 is kept again (frame 0 when none is lower), without
    // raising gPicNum.
    if (gPicNum == 2 && gMeanY >= kBrightLuma) {
        float lowest = kUnsetErrorRatio;
        int chosen = 0;
        for (int f = 1; f < listed; ++f) {
            if (gErrorRatio[f] < lowest) {
                lowest = gErrorRatio[f];
                chosen = f;
            }
        }
        keep[chosen] = 1;
    }

    if (keptOut != nullptr) std::copy(keep, keep + kMaxFrames, keptOut);
    if (listed >= 2) compactLists(frames, smalls, mvs, listed, keep);
    gRotatePID = nullptr;  // the flags live on this call's stack
}

}  // namespace trv

extern "C" {

void* RefineMVThread(void* index) {
    const int slot = *static_cast<int*>(index);
    JudgementOrder* order = gJudgementOrder;
    if (order != nullptr) {
        std::unique_lock<std::mutex> hold(order->lock);
        order->turnChanged.wait(hold, [&] { return order->nextSlot == slot; });
    }
    judgeFrame(slot);
    if (order != nullptr) {
        std::lock_guard<std::mutex> hold(order->lock);
        order->nextSlot = slot + 1;
        order->turnChanged.notify_all();
    }
    return nullptr;
}

void RunRefineMV(int n) {
    if (n <= 1) return;
    JudgementOrder order;
    gJudgementOrder = &order;
    trv::runWorkers(RefineMVThread, std::min(n - 1, kMaxFrames - 1));
    gJudgementOrder = nullptr;
}

void KickRotatePic(unsigned char** frames, unsigned char** smalls, int Ws, int Hs, int W, int H, MV1** mvs, int n,
                   int count) {
    (void)count;  // part of the interface, not used
    trv::screenFrames(frames, smalls, Ws, Hs, W, H, mvs, n, nullptr);
}

}  // extern "C"
