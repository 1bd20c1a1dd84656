// Tone-mapping kernels: every pixel of a band is brightened by a gain chosen
// by the larger of its own luma floor and the blurred brightness around it;
// the chroma of each 2 x 2 quad is scaled by the gain of its top-left pixel
// and a chroma factor. One template serves the three output layouts and the
// two cell sizes (L = 4 or 8).
#include <algorithm>
#include <vector>

#include "tone/tone_band_walk.h"
#include "tone/tone_internal.h"
#include "trv/stages.h"

namespace {

// Rounding offsets of the chroma gain: U and V round differently, and
// negative differences differently from positive ones.
constexpr int32_t kUNegativeOffset = 922;
constexpr int32_t kUPositiveOffset = 102;
constexpr int32_t kVNegativeOffset = 778;
constexpr int32_t kVPositiveOffset = 246;

inline uint8_t average31(uint8_t a, uint8_t b) { return static_cast<uint8_t>((3 * a + b + 2) >> 2); }
inline uint8_t average11(uint8_t a, uint8_t b) { return static_cast<uint8_t>((a + b + 1) >> 1); }

// Blurred value at sub-position `sub` (column pairs into the cell) between
// cells c0 and c1.
inline uint8_t interpolateQuad(uint8_t c0, uint8_t c1, int sub, int L) {
    if (L == 4) return sub == 0 ? c0 : average11(c0, c1);
    switch (sub) {
        case 0: return c0;
        case 1: return average31(c0, c1);
        case 2: return average11(c0, c1);
        default: return average31(c1, c0);
    }
}

// (3a + b + 2) >> 2 on eight lanes.
inline uint8x8_t weighted31(uint8x8_t a, uint8x8_t b) {
    return vrshrn_n_u16(vaddw_u8(vmull_u8(a, vdup_n_u8(3)), b), 2);
}

struct Tone {
    uint8_t value;  // the mapped luma
    int t;          // brightness index of the gain
};

// One chroma sample scaled by the gain of brightness t: fixed-point gain
// with the given rounding offsets, then the float chroma factor.
inline uint8_t scaleChroma(uint8_t c, int t, int32_t negativeOffset, int32_t positiveOffset) {
    const int32_t d = c - 128;
    if (d == 0) return trv::kNeutralChroma;
    const int32_t m = (d * gScaleTb[t] + (d < 1 ? negativeOffset : positiveOffset)) >> 10;
    const float scaled = static_cast<float>(m) * gUVScaleTb[t];
    const double shifted = static_cast<double>(scaled) + 128.5;
    if (shifted < 1.0) return 0;
    if (shifted >= 256.0) return 255;
    return static_cast<uint8_t>(static_cast<int>(shifted));
}

// The per-pixel rule of one band at cell size L. Each row pair first builds
// its blurred cell row (interpolated between two cell rows, except for the
// last band's rows past its last whole interpolation step, which take the
// last cell row as it is) and expands it to one blurred value per column pair.
template <int L>
class ToneRule {
  public:
    ToneRule(const uint8_t* blurred, int W, int rows, bool last)
        : blurred_(blurred),
          cellsAcross_(trv::cellCount(W, L)),
          interpolatedRows_(last ? (trv::cellCount(rows, L) - 1) * L : rows),
          W_(W),
          cellRow_(static_cast<size_t>(cellsAcross_)),
          quads_(static_cast<size_t>((W + 1) / 2)) {}

    void startRowPair(int r) {
        const uint8_t* row;
        if (r < interpolatedRows_) {
            const uint8_t* a = blurred_ + static_cast<size_t>(r / L) * cellsAcross_;
            row = verticalStep(a, a + cellsAcross_, r % L);
        } else {
            row = blurred_ + static_cast<size_t>(interpolatedRows_ / L) * cellsAcross_;
        }
        trv::expandCellRow(row, quads_.data(), W_, L);
    }

    Tone luma(int q, uint8_t y) const {
        const int t = std::max<int>(gTHTable[y], quads_[q]);
        const int32_t mapped = (y * gScaleTb[t] + 512) >> 10;
        return {static_cast<uint8_t>(std::min(mapped, 255)), t};
    }

    uint8_t chromaU(const Tone& topLeft, uint8_t u) const {
        return scaleChroma(u, topLeft.t, kUNegativeOffset, kUPositiveOffset);
    }
    uint8_t chromaV(const Tone& topLeft, uint8_t v) const {
        return scaleChroma(v, topLeft.t, kVNegativeOffset, kVPositiveOffset);
    }

  private:
    // Cell row a, or a blend of cell rows a and b, for the row pair at
    // `phase` rows into the cell.
    const uint8_t* verticalStep(const uint8_t* a, const uint8_t* b, int phase) {
        uint8_t* out = cellRow_.data();
        if (phase == 0) return a;
        if (L == 4 || phase == 4) {
            createGuassRow_8_1(a, b, out, cellsAcross_);
        } else if (phase == 2) {
            createGuassRow_8_2(a, b, out, cellsAcross_);
        } else {
            createGuassRow_8_2(b, a, out, cellsAcross_);
        }
        return out;
    }

    const uint8_t* blurred_;
    int cellsAcross_;
    int interpolatedRows_;  // rows whose blurred row blends two cell rows
    int W_;
    std::vector<uint8_t> cellRow_;
    std::vector<uint8_t> quads_;
};

// Luma row stride and chroma row stride are W; `blurred` holds the band's
// cell rows, plus the next band's first one unless this is the last band.
template <int L, class Writer>
void enhanceBand(const uint8_t* inY, const uint8_t* inC, Writer out, const uint8_t* blurred, int W, int rows,
                 int last) {
    if (W < 1 || rows < 1) return;
    ToneRule<L> rule(blurred, W, rows, last != 0);
    trv::walkBand(inY, inC, W, rows, rule, out);
}

// The second 4:2:2 plane lies half a frame (of the pipeline's size) after the
// first.
trv::Yv16Writer planarWriter(uint8_t* outY, uint8_t* outC, int W) {
    const size_t planeOffset = static_cast<size_t>(gW) * static_cast<size_t>(gH) / 2;
    return {outY, outC, outC + planeOffset, W};
}

}  // namespace

namespace trv {

void expandCellRow(const uint8_t* cells, uint8_t* quads, int W, int L) {
    const int quadCount = (W + 1) / 2;
    const int quadsPerCell = L / 2;
    // Cells before the last one interpolate towards their right neighbour.
    const int interpolatedCells = std::max(cellCount(W, L) - 1, 0);
    int j = 0;
    if (L == 8) {
        for (; j + 8 <= interpolatedCells; j += 8) {
            const uint8x8_t c0 = vld1_u8(cells + j);
            const uint8x8_t c1 = vld1_u8(cells + j + 1);
            uint8x8x4_t q;
            q.val[0] = c0;
            q.val[1] = weighted31(c0, c1);
            q.val[2] = vrhadd_u8(c0, c1);
            q.val[3] = weighted31(c1, c0);
            vst4_u8(quads + 4 * j, q);
        }
    } else if (L == 4) {
        for (; j + 8 <= interpolatedCells; j += 8) {
            const uint8x8_t c0 = vld1_u8(cells + j);
            const uint8x8_t c1 = vld1_u8(cells + j + 1);
            uint8x8x2_t q;
            q.val[0] = c0;
            q.val[1] = vrhadd_u8(c0, c1);
            vst2_u8(quads + 2 * j, q);
        }
    }
    for (; j < interpolatedCells; ++j) {
        for (int sub = 0; sub < quadsPerCell; ++sub) {
            quads[j * quadsPerCell + sub] = interpolateQuad(cells[j], cells[j + 1], sub, L);
        }
    }
    for (int q = interpolatedCells * quadsPerCell; q < quadCount; ++q) quads[q] = cells[(2 * q) / L];
}

}  // namespace trv

extern "C" {

void createGuassRow_8_1(const unsigned char* a, const unsigned char* b, unsigned char* out, int n) {
    int i = 0;
    for (; i + 16 <= n; i += 16) vst1q_u8(out + i, vrhaddq_u8(vld1q_u8(a + i), vld1q_u8(b + i)));
    for (; i < n; ++i) out[i] = average11(a[i], b[i]);
}

void createGuassRow_8_2(const unsigned char* a, const unsigned char* b, unsigned char* out, int n) {
    int i = 0;
    for (; i + 16 <= n; i += 16) {
        const uint8x16_t va = vld1q_u8(a + i);
        const uint8x16_t vb = vld1q_u8(b + i);
        const uint8x8_t low = weighted31(vget_low_u8(va), vget_low_u8(vb));
        const uint8x8_t high = weighted31(vget_high_u8(va), vget_high_u8(vb));
        vst1q_u8(out + i, vcombine_u8(low, high));
    }
    for (; i < n; ++i) out[i] = average31(a[i], b[i]);
}

void xImgEnhance_NV21_8(unsigned char* inY, unsigned char* inC, unsigned char* outY, unsigned char* outC,
                        unsigned char* blurred, int W, int rows, int last) {
    enhanceBand<8>(inY, inC, trv::Nv21Writer{outY, outC, W}, blurred, W, rows, last);
}

void xImgEnhance_NV21_4(unsigned char* inY, unsigned char* inC, unsigned char* outY, unsigned char* outC,
                        unsigned char* blurred, int W, int rows, int last) {
    enhanceBand<4>(inY, inC, trv::Nv21Writer{outY, outC, W}, blurred, W, rows, last);
}

void xImgEnhance_YV16_8(unsigned char* inY, unsigned char* inC, unsigned char* outY, unsigned char* outC,
                        unsigned char* blurred, int W, int rows, int last) {
    enhanceBand<8>(inY, inC, planarWriter(outY, outC, W), blurred, W, rows, last);
}

void xImgEnhance_YV16_4(unsigned char* inY, unsigned char* inC, unsigned char* outY, unsigned char* outC,
                        unsigned char* blurred, int W, int rows, int last) {
    enhanceBand<4>(inY, inC, planarWriter(outY, outC, W), blurred, W, rows, last);
}

void xImgEnhance_YUYV_8(unsigned char* inY, unsigned char* inC, unsigned char* out, unsigned char* blurred, int W,
                        int rows, int last) {
    enhanceBand<8>(inY, inC, trv::YuyvWriter{out, W}, blurred, W, rows, last);
}

void xImgEnhance_YUYV_4(unsigned char* inY, unsigned char* inC, unsigned char* out, unsigned char* blurred, int W,
                        int rows, int last) {
    enhanceBand<4>(inY, inC, trv::YuyvWriter{out, W}, blurred, W, rows, last);
}

}  // extern "C"
