// Fusion driver: publishes the burst, builds the tables and thresholds the
// merging code reads, picks the division kernels and runs the band threads.
// Each band thread refines every frame's vector per block, first at quarter
// scale, then at full resolution, and merges its eight blocks left to right.
#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "common/arith.h"
#include "common/threads.h"
#include "fusion/merge_rules.h"
#include "trv/stages.h"

namespace {

// Per-frame arrays of the fusion state hold six frames.
constexpr int kMaxFrames = 6;

// One block's extent along one axis: the clipped range of the displaced
// block in the frame, and where it starts in the reference.
struct Span {
    int start = 0;
    int size = 0;
    int refStart = 0;
};

// Quarter scale: the nominal block widened by 30 on each side, kept 2
// samples from the edges for the +-2 search.
Span quarterSpan(int nominal, int size, int v, int frameSize) {
    Span s;
    s.start = std::max({nominal + v - 30, v, 2});
    const int end = std::min(nominal + v + size + 30, v < -1 ? frameSize + v : frameSize - 2);
    s.size = end - s.start;
    s.refStart = s.start - v;
    return s;
}

// Full resolution: the block itself. A vector pointing down or right by more
// than one clips at frameSize - v rather than frameSize - 2.
Span fullSpan(int nominal, int size, int v, int frameSize) {
    Span s;
    if (v <= 1) {
        s.start = std::max(nominal + v, 2);
        s.size = std::min(nominal + v + size, frameSize - 2) - s.start;
    } else {
        s.start = std::max(nominal + v, v);
        s.size = std::min(nominal + v + size, frameSize - v) - s.start;
    }
    s.refStart = s.start - v;
    return s;
}

// The clipping keeps +-2 around every non-empty block inside the image. On
// tiny frames or with vectors larger than the frame a block can come out
// empty; the refiners read nothing then, and its pointers are taken at the
// image origin rather than formed outside the image.
bool isEmpty(const Span& rows, const Span& cols) { return rows.size <= 0 || cols.size <= 0; }

void refineAtQuarterScale(int t) {
    const int Wq = gW >> 2, Hq = gH >> 2, bq = gH >> 5, cq = gW >> 5;
    for (int j = 0; j < gNum; ++j) {
        int32_t* start = gMergeMVS[j];
        for (int b = 0; b < 8; ++b) {
            const Span rows = quarterSpan(t * bq, bq, start[1], Hq);
            const Span cols = quarterSpan(b * cq, cq, start[0], Wq);
            uint8_t* ref = gMergeInputs[0];
            uint8_t* frame = gMergeInputs[j + 1];
            if (!isEmpty(rows, cols)) {
                ref += cols.refStart + static_cast<ptrdiff_t>(rows.refStart) * Wq;
                frame += cols.start + static_cast<ptrdiff_t>(rows.start) * Wq;
            }
            RefineMVS_neon(ref, frame, start, gMergeMV[j][8 * t + b], Wq, Hq, std::max(cols.size, 0),
                           std::max(rows.size, 0), 2);
        }
    }
}

void refineAtFullResolution(int t, int c) {
    const int W = gW, H = gH, bf = gH >> 3, cf = gW >> 3;
    const bool planar = trv::isPlanarLuma(gINFormat);
    const ptrdiff_t bytesPerPixel = planar ? 1 : 2;
    for (int j = 0; j < gNum; ++j) {
        MV1* mv = gMergeMV[j][8 * t + c];
        const Span rows = fullSpan(t * bf, bf, mv->y, H);
        const Span cols = fullSpan(c * cf, cf, mv->x, W);
        uint8_t* ref = gMergeInput[0];
        uint8_t* frame = gMergeInput[j + 1];
        if (!isEmpty(rows, cols)) {
            ref += bytesPerPixel * (cols.refStart + static_cast<ptrdiff_t>(rows.refStart) * W);
            frame += bytesPerPixel * (cols.start + static_cast<ptrdiff_t>(rows.start) * W);
        }
        const int width = std::max(cols.size, 0), height = std::max(rows.size, 0);
        if (planar) {
            RefineMV_YV16_neon(ref, frame, mv, W, H, width, height, 2);
        } else {
            RefineMV(ref, frame, mv, W, H, width, height, 2);
        }
        if (c == 7) trv::fallBackToLeftNeighbour(mv, gMergeMV[j][8 * t + 6]);
    }
}

void mergeBlock(int tile) {
    // Without another frame there is nothing to classify; simple fusion then
    // writes the reference in the output layout.
    if (gNum < 1) {
        simpleFusion(tile);
        return;
    }
    switch (gINFormat) {
        case 0: Merging_YV16(tile); break;
        case 1: Merging_NV16(tile); break;
        case 4: Merging_NV21(tile); break;
        default: Merging_YUV422(tile); break;
    }
}

}  // namespace

extern "C" {

void* MergeThread(void* index) {
    const int t = *static_cast<int*>(index);
    refineAtQuarterScale(t);
    for (int c = 0; c < 8; ++c) {
        refineAtFullResolution(t, c);
        mergeBlock(8 * t + c);
    }
    return nullptr;
}

void Merge(unsigned char** frames, unsigned char** smalls, unsigned char* out, MV1** mvs, int n, int W, int H,
           int enhanceID, int meanY) {
    (void)W;  // the frame size is the process-wide gW x gH
    (void)H;
    if (n < 1) return;
    // The lanes carry the count of the previous fusion, read before it is
    // replaced below.
    NUM_16 = vdupq_n_u16(static_cast<uint16_t>(gNum * 16));
    Y_SIZE = gW * gH;
    Y_SIZE_HALF = Y_SIZE >> 1;
    width_half = gW >> 1;
    Y_SIZE_ONE_AND_HALF = Y_SIZE + Y_SIZE_HALF;

    // A longer burst is fused from its first six frames.
    const int count = std::min(n, kMaxFrames);
    int32_t** quarterVectors = static_cast<int32_t**>(calloc(static_cast<size_t>(count), sizeof(int32_t*)));
    gMergeInput[0] = frames[0];
    gMergeInputs[0] = smalls[0];
    gMergrOut = out;
    gNum = count - 1;
    gMergeEnhanceID = enhanceID;
    for (int j = 0; j < gNum; ++j) {
        gMergeInput[j + 1] = frames[j + 1];
        gMergeInputs[j + 1] = smalls[j + 1];
        int32_t* quarter = static_cast<int32_t*>(malloc(2 * sizeof(int32_t)));
        quarter[0] = trv::quarterOf(mvs[j]->x);
        quarter[1] = trv::quarterOf(mvs[j]->y);
        gMergeMVS[j] = quarter;
        quarterVectors[j] = quarter;
        // Zero-filled so that a block the refiners cannot reach still holds
        // a defined vector.
        MV1* blocks = static_cast<MV1*>(calloc(64, sizeof(MV1)));
        for (int k = 0; k < 64; ++k) gMergeMV[j][k] = blocks + k;
    }
    trv::buildFusionTables(count, enhanceID, meanY);

    // One thread per band. The strict merge of a block writes a few pixels
    // into the bands above and below; running the even bands, then the odd
    // ones, keeps adjacent bands apart so every run gives the same bytes.
    // Tiles under 8 rows (frames of 48 rows or fewer) let that apron reach
    // two bands away; their bands run one after the other.
    const int side = (gH + 7) / 8, tileHeight = side + (side & 1);
    if (tileHeight < 8) {
        for (int t = 0; t < FUSETHREADNUM; ++t) trv::runWorkers(MergeThread, &t, 1);
    } else {
        static const int kEvenBands[4] = {0, 2, 4, 6};
        static const int kOddBands[4] = {1, 3, 5, 7};
        // When seven tile rows already pass the last row (66, 68 or 82
        // rows), the last band holds no rows of its own and its bottom
        // strips, sized from whole tiles, reach up into band 5: it then
        // runs after all the others.
        const bool lastBandReachesUp = 7 * tileHeight > gH;
        trv::runWorkers(MergeThread, kEvenBands, 4);
        trv::runWorkers(MergeThread, kOddBands, lastBandReachesUp ? 3 : 4);
        if (lastBandReachesUp) trv::runWorkers(MergeThread, kOddBands + 3, 1);
    }

    for (int j = 0; j < gNum; ++j) {
        free(quarterVectors[j]);
        free(gMergeMV[j][0]);
    }
    free(quarterVectors);
}

}  // extern "C"
