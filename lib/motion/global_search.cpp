// Global motion search: one translation per non-reference frame, found on a
// central luma crop of the reference by a coarse grid search followed by
// 3 x 3 refinements at halving steps.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "common/arith.h"
#include "common/threads.h"
#include "motion/crop.h"
#include "trv/stages.h"

extern "C" {
uint8_t* gMEInput = nullptr;
uint8_t* gMEBaseInput = nullptr;
uint8_t* gMERef[5] = {};
MV1* gMEMV[5] = {};
}

namespace {

using trv::CropGeometry;
using trv::lumaAt;

constexpr int kCropThreads = 8;
constexpr int kMaxSearchedFrames = 5;
constexpr int32_t kLargestUncappedRange = 66;
constexpr int32_t kRangeCap = 67;
constexpr int32_t kCoarseSide = 256;  // the coarse level brings both sides to 256 or less
constexpr int32_t kFinestRefineStep = 4;
constexpr double kErrScale = 16.0;  // refined costs sample 16 times sparser than the alignment error
constexpr double kNoCost = 1e30;

// The search in progress: the frame size ME was given (the pipeline passes
// gW, gH) and its luma family. Written by ME_* before any worker starts.
struct SearchState {
    CropGeometry crop;
    bool planar = true;
};
SearchState gSearch;

int32_t searchRange(int32_t W, int32_t H) {
    const int32_t R = std::min(W / 10, H / 10);
    return R > kLargestUncappedRange ? kRangeCap : R;
}

// Smallest k with (W >> k) <= 256 and (H >> k) <= 256.
int coarseLevel(int32_t W, int32_t H) {
    int k = 0;
    while ((W >> k) > kCoarseSide || (H >> k) > kCoarseSide) ++k;
    return k;
}

// The coarse search reads the crop and the frame only on two lattices: crop
// pixels (s0 c', s0 r'), and frame pixels (mx - R + s0 m, my - R + s0 n) of
// which candidate (dx, dy) = (-R + s0 i, -R + s0 j) compares sample (c', r')
// with lattice pixel (i + c', j + r'). Both lattices are gathered once per
// frame into small images, so every candidate row is a contiguous run.
struct Lattice {
    int32_t cols = 0, rows = 0;  // sampled crop columns and rows
    int32_t candidates = 0;      // per axis
    uint8_t* crop = nullptr;     // rows x cols
    uint8_t* frame = nullptr;    // (candidates - 1 + rows) x (candidates - 1 + cols)

    Lattice(const CropGeometry& g, int32_t R, int32_t s0)
        : cols((g.cropW + s0 - 1) / s0), rows((g.cropH + s0 - 1) / s0), candidates(2 * R / s0 + 1) {}
    int32_t frameCols() const { return candidates - 1 + cols; }
    size_t cropBytes() const { return static_cast<size_t>(cols) * rows; }
    size_t bytes() const { return cropBytes() + static_cast<size_t>(frameCols()) * (candidates - 1 + rows); }
};

// Memory for the lattice images of each search thread, after the crop in
// its buffer (set up by ME before its threads start); METhread hands its
// slot to the search it runs. A search called on its own uses memory of its
// own.
struct LatticeSlots {
    uint8_t* base = nullptr;
    size_t bytesPerSlot = 0;
};
LatticeSlots gLatticeSlots;
thread_local uint8_t* tLatticeMemory = nullptr;

template <int kBytes>
void gatherLattice(const uint8_t* crop, const uint8_t* ref, const CropGeometry& g, int32_t R, int32_t s0,
                   Lattice& l) {
    for (int32_t r = 0; r < l.rows; ++r)
        for (int32_t c = 0; c < l.cols; ++c)
            l.crop[static_cast<size_t>(r) * l.cols + c] = crop[static_cast<ptrdiff_t>(r) * s0 * g.cropW + c * s0];
    const int32_t fc = l.frameCols(), fr = l.candidates - 1 + l.rows;
    for (int32_t n = 0; n < fr; ++n)
        for (int32_t m = 0; m < fc; ++m)
            l.frame[static_cast<size_t>(n) * fc + m] = lumaAt<kBytes>(ref, g.W, g.mx - R + s0 * m, g.my - R + s0 * n);
}

// Sum of |a - b| over n bytes, exact: 16 a step in 16-bit lanes (a row of
// the coarse lattice holds at most a few hundred samples), the rest one by
// one.
uint64_t absDiffSum(const uint8_t* a, const uint8_t* b, int32_t n) {
    const int32_t vectorEnd = n & ~15;
    uint64_t sum = 0;
    int32_t c = 0;
    while (c < vectorEnd) {
        // Flush before any lane could pass 65535 (255 steps of 255).
        const int32_t chunkEnd = std::min(vectorEnd, c + 16 * 255);
        uint16x8_t even = vdupq_n_u16(0), odd = vdupq_n_u16(0);
        for (; c < chunkEnd; c += 16) {
            const uint16x8_t d = vreinterpretq_u16_u8(vabdq_u8(vld1q_u8(a + c), vld1q_u8(b + c)));
            even = vaddq_u16(even, vandq_u16(d, vdupq_n_u16(0xFF)));
            odd = vaddq_u16(odd, vshrq_n_u16(d, 8));
        }
        const uint64x2_t lanes = vpaddlq_u32(vaddq_u32(vpaddlq_u16(even), vpaddlq_u16(odd)));
        sum += vgetq_lane_u64(lanes, 0) + vgetq_lane_u64(lanes, 1);
    }
    for (; c < n; ++c) sum += static_cast<uint64_t>(trv::absInt(a[c] - b[c]));
    return sum;
}

// Cost of the coarse candidate (i, j) of the lattice: every step-th column
// of every step-th crop row. Gives up once a row ends above best (it can
// then never win).
double coarseCost(const Lattice& l, int32_t i, int32_t j, double best) {
    double cost = 0.0;
    const int32_t fc = l.frameCols();
    for (int32_t r = 0; r < l.rows; ++r) {
        cost += static_cast<double>(absDiffSum(&l.crop[static_cast<size_t>(r) * l.cols],
                                               &l.frame[static_cast<size_t>(j + r) * fc + i], l.cols));
        if (cost > best) break;
    }
    return cost;
}

// Cost of a refinement candidate. Refinement can carry the vector up to
// s0 - 4 pixels past the range, so the sampled reference coordinates are
// clamped into the frame; samples that lie inside are read unchanged.
template <int kBytes>
double refineCost(const uint8_t* crop, const uint8_t* ref, const CropGeometry& g, int32_t x, int32_t y,
                  int32_t step) {
    double cost = 0.0;
    for (int32_t r = 0; r < g.cropH; r += step) {
        const uint8_t* cropRow = crop + static_cast<ptrdiff_t>(r) * g.cropW;
        const int32_t refRow = trv::clampInt(g.my + y + r, 0, g.H - 1);
        uint64_t rowSum = 0;
        for (int32_t c = 0; c < g.cropW; c += step) {
            const int32_t refCol = trv::clampInt(g.mx + x + c, 0, g.W - 1);
            rowSum += static_cast<uint64_t>(trv::absInt(cropRow[c] - lumaAt<kBytes>(ref, g.W, refCol, refRow)));
        }
        cost += static_cast<double>(rowSum);
    }
    return cost;
}

// One 3 x 3 pass at step s, sampling one crop pixel in 4s x 4s. The fixed
// visiting order with a strict minimum makes the centre lose ties to the
// four candidates listed before it.
template <int kBytes>
void refinePass(const uint8_t* crop, const uint8_t* ref, const CropGeometry& g, int32_t s, MV1* mv) {
    static const int32_t kOrder[9][2] = {{-1, -1}, {0, -1}, {1, -1}, {-1, 0}, {0, 0},
                                         {1, 0},   {-1, 1}, {0, 1},  {1, 1}};
    const int32_t x0 = mv->x, y0 = mv->y;
    double best = kNoCost;
    for (const auto& offset : kOrder) {
        const int32_t x = x0 + offset[0] * s, y = y0 + offset[1] * s;
        const double cost = refineCost<kBytes>(crop, ref, g, x, y, 4 * s);
        if (cost < best) {
            best = cost;
            mv->x = x;
            mv->y = y;
            mv->err = cost;
        }
    }
}

template <int kBytes>
void searchFrame(const uint8_t* crop, const uint8_t* ref, MV1* mv, int32_t W, int32_t H) {
    const CropGeometry g = CropGeometry::of(W, H);
    const int32_t R = searchRange(W, H);
    const int k = coarseLevel(W, H);
    const int32_t s0 = int32_t{1} << k;

    // Coarse full search, row-major from (-R, -R); ties keep the first.
    // Without crop rows every candidate costs 0 and the first wins.
    Lattice lattice(g, R, s0);
    std::vector<uint8_t> own;
    if (!g.empty()) {
        uint8_t* memory = tLatticeMemory;
        if (memory == nullptr) {
            own.resize(lattice.bytes());
            memory = own.data();
        }
        lattice.crop = memory;
        lattice.frame = memory + lattice.cropBytes();
        gatherLattice<kBytes>(crop, ref, g, R, s0, lattice);
    }
    double best = kNoCost;
    for (int32_t dy = -R, j = 0; dy <= R; dy += s0, ++j) {
        for (int32_t dx = -R, i = 0; dx <= R; dx += s0, ++i) {
            const double cost = g.empty() ? 0.0 : coarseCost(lattice, i, j, best);
            if (cost < best) {
                best = cost;
                mv->x = dx;
                mv->y = dy;
                mv->err = cost;
            }
        }
    }
    if (k <= 2) return;  // the coarse grid is already 4 pixels or finer

    for (int32_t s = s0 >> 1; s >= kFinestRefineStep; s >>= 1) refinePass<kBytes>(crop, ref, g, s, mv);
    mv->err *= kErrScale;
}

template <int kBytes>
void fillCropBand(int band) {
    const CropGeometry& g = gSearch.crop;
    if (gMEInput == nullptr || gMEBaseInput == nullptr || g.empty()) return;
    const int32_t rowsPerBand = g.cropH / kCropThreads;
    const int32_t begin = band * rowsPerBand;
    const int32_t end = band == kCropThreads - 1 ? g.cropH : begin + rowsPerBand;
    trv::copyCropRows<kBytes>(gMEBaseInput, gMEInput, g, begin, end);
}

void runSearch(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n, bool planar) {
    gSearch.crop = CropGeometry::of(W, H);
    gSearch.planar = planar;
    // The per-frame tables hold five frames; a longer burst searches its
    // first five. Their lattice images follow the crop in its buffer.
    const int searched = n > 1 ? std::min(n - 1, kMaxSearchedFrames) : 0;
    const size_t cropBytes = (trv::cropBytes(gSearch.crop) + 63) & ~size_t{63};
    size_t latticeBytes = 0;
    if (!gSearch.crop.empty()) {
        const Lattice shape(gSearch.crop, searchRange(W, H), int32_t{1} << coarseLevel(W, H));
        latticeBytes = (shape.bytes() + 63) & ~size_t{63};
    }
    gMEInput = trv::scratchBuffer(trv::ScratchUse::LumaCrop, cropBytes + latticeBytes * searched);
    gMEBaseInput = base;
    if (planar) {
        fillBaseImg_YV16();
    } else {
        fillBaseImg_YUV422();
    }
    if (searched > 0) {
        for (int i = 0; i < searched; ++i) {
            gMERef[i] = frames[i];
            gMEMV[i] = mvs[i];
        }
        if (gMEInput != nullptr && latticeBytes > 0) gLatticeSlots = LatticeSlots{gMEInput + cropBytes, latticeBytes};
        trv::runWorkers(METhread, searched);
        gLatticeSlots = LatticeSlots{};
    }
    gMEInput = nullptr;  // the buffer stays for the next burst
}

}  // namespace

extern "C" {

void xMotionEstimation_YV16(unsigned char* crop, unsigned char* ref, MV1* mv, int W, int H) {
    searchFrame<1>(crop, ref, mv, W, H);
}

void xMotionEstimation_YUV422(unsigned char* crop, unsigned char* ref, MV1* mv, int W, int H) {
    searchFrame<2>(crop, ref, mv, W, H);
}

void* fillImg0_YV16(void* index) {
    fillCropBand<1>(*static_cast<int*>(index));
    return nullptr;
}

void* fillImg0_YUV422(void* index) {
    fillCropBand<2>(*static_cast<int*>(index));
    return nullptr;
}

void fillBaseImg_YV16(void) { trv::runWorkers(fillImg0_YV16, kCropThreads); }

void fillBaseImg_YUV422(void) { trv::runWorkers(fillImg0_YUV422, kCropThreads); }

// Searches with the luma family of the ME_* call in progress, which ME chose
// from gINFormat, so a frame is never read with the other family's stride.
void* METhread(void* index) {
    const int i = *static_cast<int*>(index);
    const CropGeometry& g = gSearch.crop;
    if (gLatticeSlots.base != nullptr && i >= 0 && i < kMaxSearchedFrames)
        tLatticeMemory = gLatticeSlots.base + gLatticeSlots.bytesPerSlot * i;
    if (gSearch.planar) {
        xMotionEstimation_YV16(gMEInput, gMERef[i], gMEMV[i], g.W, g.H);
    } else {
        xMotionEstimation_YUV422(gMEInput, gMERef[i], gMEMV[i], g.W, g.H);
    }
    tLatticeMemory = nullptr;
    return nullptr;
}

void ME_YV16(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n) {
    runSearch(base, frames, mvs, W, H, n, true);
}

void ME_YUV422(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n) {
    runSearch(base, frames, mvs, W, H, n, false);
}

void ME(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n) {
    if (trv::isPlanarLuma(gINFormat)) {
        ME_YV16(base, frames, mvs, W, H, n);
    } else {
        ME_YUV422(base, frames, mvs, W, H, n);
    }
}

}  // extern "C"
