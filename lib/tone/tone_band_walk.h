// The walk shared by the tone kernels and the 4:2:2 layout conversions: a
// band of a 4:2:0 frame (U first) visited two rows and two columns at a time,
// with a per-pixel luma rule and a per-quad chroma rule, written through a
// writer for the output layout.
//
// Frames of odd size: a lone last column has no chroma pair of its own (its
// byte in a W-byte chroma row would be the next row's first), so its chroma
// slot in the output, where the layout has one, is written neutral (128). A
// lone last row has no input chroma row; the 4:2:2 layouts repeat the chroma
// of the row above it (neutral for a one-row band), 4:2:0 has nothing to write.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace trv {

constexpr uint8_t kNeutralChroma = 128;

// Semi-planar 4:2:0 with V first; chroma row stride W.
struct Nv21Writer {
    uint8_t* y;
    uint8_t* c;
    int W;
    void luma(int r, int x, uint8_t v) { y[static_cast<size_t>(r) * W + x] = v; }
    void chroma(int r, int q, uint8_t u, uint8_t v) {
        uint8_t* pair = c + static_cast<size_t>(r >> 1) * W + 2 * q;
        pair[0] = v;
        pair[1] = u;
    }
    void spareChroma(int r) { c[static_cast<size_t>(r >> 1) * W + W - 1] = kNeutralChroma; }
    void loneRow(int) {}
};

// Planar 4:2:2: U plane then V plane, each W / 2 bytes per row.
struct Yv16Writer {
    uint8_t* y;
    uint8_t* first;
    uint8_t* second;
    int W;
    size_t half() const { return static_cast<size_t>(W >> 1); }
    void luma(int r, int x, uint8_t v) { y[static_cast<size_t>(r) * W + x] = v; }
    void chroma(int r, int q, uint8_t u, uint8_t v) {
        for (int row = r; row < r + 2; ++row) {
            first[row * half() + q] = u;
            second[row * half() + q] = v;
        }
    }
    void spareChroma(int) {}
    void loneRow(int r) {
        for (uint8_t* plane : {first, second}) {
            uint8_t* dst = plane + r * half();
            if (r > 0) {
                std::memcpy(dst, dst - half(), half());
            } else {
                std::memset(dst, kNeutralChroma, half());
            }
        }
    }
};

// Packed 4:2:2: Y0 U Y1 V per column pair, row stride 2W.
struct YuyvWriter {
    uint8_t* out;
    int W;
    uint8_t* row(int r) const { return out + static_cast<size_t>(r) * 2 * W; }
    void luma(int r, int x, uint8_t v) { row(r)[2 * x] = v; }
    void chroma(int r, int q, uint8_t u, uint8_t v) {
        for (int rr = r; rr < r + 2; ++rr) {
            row(rr)[4 * q + 1] = u;
            row(rr)[4 * q + 3] = v;
        }
    }
    void spareChroma(int r) {
        row(r)[2 * W - 1] = kNeutralChroma;
        row(r + 1)[2 * W - 1] = kNeutralChroma;
    }
    void loneRow(int r) {
        uint8_t* dst = row(r);
        for (int i = 1; i < 2 * W; i += 2) dst[i] = r > 0 ? dst[i - 2 * W] : kNeutralChroma;
    }
};

// Rule: struct with
//   void startRowPair(int r);
//   Tone luma(int q, uint8_t Y);               // Tone has a member `value`
//   uint8_t chromaU(const Tone& topLeft, uint8_t U);
//   uint8_t chromaV(const Tone& topLeft, uint8_t V);
template <class Rule, class Writer>
void walkBand(const uint8_t* inY, const uint8_t* inC, int W, int rows, Rule& rule, Writer& out) {
    for (int r = 0; r < rows; r += 2) {
        const bool paired = r + 1 < rows;
        rule.startRowPair(r);
        const uint8_t* top = inY + static_cast<size_t>(r) * W;
        const uint8_t* bottom = top + W;
        const uint8_t* uv = inC + static_cast<size_t>(r >> 1) * W;
        for (int x = 0; x < W; x += 2) {
            const int q = x >> 1;
            const bool hasRight = x + 1 < W;
            const auto topLeft = rule.luma(q, top[x]);
            out.luma(r, x, topLeft.value);
            if (hasRight) out.luma(r, x + 1, rule.luma(q, top[x + 1]).value);
            if (paired) {
                out.luma(r + 1, x, rule.luma(q, bottom[x]).value);
                if (hasRight) out.luma(r + 1, x + 1, rule.luma(q, bottom[x + 1]).value);
            }
            if (!paired) continue;
            if (hasRight) {
                out.chroma(r, q, rule.chromaU(topLeft, uv[x]), rule.chromaV(topLeft, uv[x + 1]));
            } else {
                out.spareChroma(r);
            }
        }
        if (!paired) out.loneRow(r);
    }
}

}  // namespace trv
