// Multi-scale retinex of one 4:2:0 semi-planar image, in place: point-sample
// quarter-scale luma and chroma planes, blur them, then push every sample
// that lies below its blurred level down by a power law.
#include <algorithm>
#include <cstdlib>

#include "common/threads.h"
#include "retinex/msr_internal.h"
#include "trv/stages.h"

extern "C" {

uint8_t* gMSRInput = nullptr;
int32_t gMSRw = 0;
int32_t gMSRh = 0;
int32_t gMSRThreadNUM = 8;
uint8_t* gGaussOut = nullptr;

}  // extern "C"

namespace trv {

MsrRowBand msrRowBand(int t, int T, int h) {
    if (T < 1 || t < 0 || t >= T || h < 4) return {0, 0};
    const int band = (h / T) & ~3;
    const int begin = t * band;
    const int end = t == T - 1 ? begin + ((h - begin) & ~3) : begin + band;
    return {begin, end};
}

int msrThreadCount() { return std::min(std::max<int>(gMSRThreadNUM, 1), kMaxWorkers); }

}  // namespace trv

namespace {

constexpr int kPlanes = 3;

// The image's quarter planes: plane p starts p (h / 4) (w / 4) bytes in.
struct MsrImage {
    uint8_t* luma;
    uint8_t* chroma;  // row r of chroma is buffer row h + r
    int w, h, qw, planeSize;
};

bool msrImage(MsrImage* img) {
    if (gMSRInput == nullptr || gGaussOut == nullptr || gMSRw < 4 || gMSRh < 4) return false;
    img->luma = gMSRInput;
    img->w = gMSRw;
    img->h = gMSRh;
    img->chroma = gMSRInput + static_cast<size_t>(gMSRw) * gMSRh;
    img->qw = gMSRw / 4;
    img->planeSize = (gMSRh / 4) * img->qw;
    return true;
}

// v below its blurred level g falls to about (v + 1)^1.3 / (g + 1)^0.3.
inline uint8_t darken(uint8_t v, uint8_t g) {
    if (g <= v) return v;
    return static_cast<uint8_t>((static_cast<int64_t>(ITable1_2[v]) * ITable0_2[g]) >> 20);
}

}  // namespace

extern "C" {

// Decimation band t: every fourth row and column, luma and both chroma bytes.
void* tpfillSmallImg(void* index) {
    MsrImage img;
    if (!msrImage(&img)) return nullptr;
    const trv::MsrRowBand band = trv::msrRowBand(*static_cast<int*>(index), trv::msrThreadCount(), img.h);
    for (int y = band.begin; y < band.end; y += 4) {
        const uint8_t* luma = img.luma + static_cast<size_t>(y) * img.w;
        const uint8_t* chroma = img.chroma + static_cast<size_t>(y / 2) * img.w;
        uint8_t* out = gGaussOut + static_cast<size_t>(y / 4) * img.qw;
        for (int x = 0; x < img.qw; ++x) {
            out[x] = luma[4 * x];
            out[img.planeSize + x] = chroma[4 * x];
            out[2 * img.planeSize + x] = chroma[4 * x + 1];
        }
    }
    return nullptr;
}

void RunDown(void) { trv::runWorkers(tpfillSmallImg, trv::msrThreadCount()); }

// Mapping band t: each 4 x 4 luma block and its two chroma rows against the
// blurred samples of its cell (even chroma bytes plane 1, odd ones plane 2).
void MSRResult(int t) {
    MsrImage img;
    if (!msrImage(&img)) return;
    const trv::MsrRowBand band = trv::msrRowBand(t, trv::msrThreadCount(), img.h);
    for (int y = band.begin; y < band.end; y += 4) {
        const uint8_t* blurred = gGaussOut + static_cast<size_t>(y / 4) * img.qw;
        for (int x = 0; x < img.qw; ++x) {
            const uint8_t g[kPlanes] = {blurred[x], blurred[img.planeSize + x], blurred[2 * img.planeSize + x]};
            for (int r = 0; r < 4; ++r) {
                uint8_t* luma = img.luma + static_cast<size_t>(y + r) * img.w + 4 * x;
                for (int c = 0; c < 4; ++c) luma[c] = darken(luma[c], g[0]);
            }
            for (int r = 0; r < 2; ++r) {
                uint8_t* chroma = img.chroma + static_cast<size_t>(y / 2 + r) * img.w + 4 * x;
                for (int c = 0; c < 4; ++c) chroma[c] = darken(chroma[c], g[1 + (c & 1)]);
            }
        }
    }
}

void* tpMSRResult(void* index) {
    MSRResult(*static_cast<int*>(index));
    return nullptr;
}

void RunMSRResultThread(void) { trv::runWorkers(tpMSRResult, trv::msrThreadCount()); }

// Sizes that are not multiples of 16 still work: only whole 4 x 4 cells are
// sampled and mapped, the rest of the image is left as it is. Below 4 x 4
// there is no cell and the image stays unchanged.
void MSR(unsigned char* image, int w, int h) {
    gMSRInput = image;
    gMSRw = w;
    gMSRh = h;
    create0_1_2Table();
    if (image == nullptr || w < 4 || h < 4) return;
    gGaussOut = static_cast<uint8_t*>(std::calloc(static_cast<size_t>(kPlanes) * (h / 4) * (w / 4), 1));
    RunDown();
    int planes[kPlanes] = {0, 1, 2};
    trv::runWorkers(singleMSR, planes, kPlanes);
    RunMSRResultThread();
    std::free(gGaussOut);
    gGaussOut = nullptr;
}

}  // extern "C"
