// Alignment error after a change of reference: the co-located luma
// difference between the new reference's central crop and each frame, one
// sample in 4 x 4, with no displacement applied.
#include <algorithm>
#include <cstdlib>

#include "common/arith.h"
#include "common/threads.h"
#include "motion/crop.h"
#include "trv/stages.h"

extern "C" {
uint8_t* gCEInput = nullptr;
uint8_t* gCERef[5] = {};
MV1* gCEMV[5] = {};
}

namespace {

using trv::CropGeometry;

constexpr int kSampleStep = 4;
constexpr int kMaxMeasuredFrames = 4;  // a six-frame burst re-measures frames 2 .. 5

// Frame size of the CalcError call in progress (the pipeline passes gW, gH).
CropGeometry gErrorCrop;

template <int kBytes>
void measureSlot(int i) {
    const CropGeometry& g = gErrorCrop;
    double sum = 0.0;
    for (int32_t r = 0; r < g.cropH; r += kSampleStep) {
        const uint8_t* cropRow = gCEInput + static_cast<ptrdiff_t>(r) * g.cropW;
        uint64_t rowSum = 0;
        for (int32_t c = 0; c < g.cropW; c += kSampleStep) {
            rowSum += static_cast<uint64_t>(
                trv::absInt(cropRow[c] - trv::lumaAt<kBytes>(gCERef[i], g.W, g.mx + c, g.my + r)));
        }
        sum += static_cast<double>(rowSum);
    }
    gCEMV[i]->err = sum;
}

template <int kBytes>
void measureFrames(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n,
                   trv::ThreadBody worker) {
    gErrorCrop = CropGeometry::of(W, H);
    gCEInput = trv::cropBuffer(gErrorCrop);
    if (!gErrorCrop.empty()) trv::copyCropRows<kBytes>(base, gCEInput, gErrorCrop, 0, gErrorCrop.cropH);
    // Slot 0 (frames[0], mvs[0]) is skipped on purpose: after a reference
    // swap it holds the former reference, whose search cost against the new
    // one already measures the pair.
    if (n > 2) {
        const int measured = std::min(n - 2, kMaxMeasuredFrames);
        for (int i = 0; i < measured; ++i) {
            gCERef[i] = frames[i + 1];
            gCEMV[i] = mvs[i + 1];
        }
        trv::runWorkers(worker, measured);
    }
    gCEInput = nullptr;  // the buffer stays for the next burst
}

}  // namespace

extern "C" {

void* CEThread_YV16(void* index) {
    measureSlot<1>(*static_cast<int*>(index));
    return nullptr;
}

void* CEThread_YUV422(void* index) {
    measureSlot<2>(*static_cast<int*>(index));
    return nullptr;
}

void CalcError_YV16(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n) {
    measureFrames<1>(base, frames, mvs, W, H, n, CEThread_YV16);
}

void CalcError_YUV422(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n) {
    measureFrames<2>(base, frames, mvs, W, H, n, CEThread_YUV422);
}

void CalcError(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n) {
    if (trv::isPlanarLuma(gINFormat)) {
        CalcError_YV16(base, frames, mvs, W, H, n);
    } else {
        CalcError_YUV422(base, frames, mvs, W, H, n);
    }
}

}  // extern "C"
