// Where the strict merge finds a pixel's bytes in each input layout, and
// where it writes them: shared by the per-quad rule and its vector form.
#pragma once

#include <cstddef>
#include <cstdint>

#include "trv/stages.h"

namespace trv {
namespace strict {

// ---- Byte addressing of each layout ----
// Offsets are from the frame's first byte. The reference quad's x is even;
// an aligned frame's x may be odd.

struct Nv21Layout {
    static constexpr int kLumaBytes = 1;
    static constexpr bool kPairedChroma = true;   // both samples in one pair
    static constexpr bool kHalfHeightChroma = true;
    static size_t chroma(int x, int y) { return Y_SIZE + static_cast<size_t>(gW) * (y / 2) + x; }
    static size_t second() { return 1; }
    static size_t frameChroma(int x, int y, const int*, int) { return chroma(x & ~1, y); }
};

struct Nv16Layout {
    static constexpr int kLumaBytes = 1;
    static constexpr bool kPairedChroma = true;
    static constexpr bool kHalfHeightChroma = false;
    static size_t chroma(int x, int y) { return Y_SIZE + static_cast<size_t>(gW) * y + x; }
    static size_t second() { return 1; }
    static size_t frameChroma(int x, int y, const int*, int) { return chroma(x & ~1, y); }
};

struct Yv16Layout {
    static constexpr int kLumaBytes = 1;
    static constexpr bool kPairedChroma = false;
    static constexpr bool kHalfHeightChroma = false;
    static size_t chroma(int x, int y) { return Y_SIZE + (static_cast<size_t>(x) + static_cast<size_t>(gW) * y) / 2; }
    static size_t second() { return static_cast<size_t>(Y_SIZE_HALF); }
    static size_t frameChroma(int x, int y, const int*, int) { return chroma(x, y); }
};

// Packed Y0 U Y1 V. The reference's U and V follow its luma byte; a frame
// pixel on an odd column finds them one byte before (parity -1).
struct Yuv422Layout {
    static constexpr int kLumaBytes = 2;
    static constexpr bool kPairedChroma = true;
    static constexpr bool kHalfHeightChroma = false;
    static size_t chroma(int x, int y) { return 2 * (static_cast<size_t>(x) + static_cast<size_t>(gW) * y) + 1; }
    static size_t second() { return 2; }
    static size_t frameChroma(int x, int y, const int* parity, int k) {
        // A last-resort clamp on tiny frames can leave an even column with
        // parity -1; the pair is then taken from the column's own group.
        const int64_t luma = 2 * (static_cast<int64_t>(x) + static_cast<int64_t>(gW) * y);
        const int64_t first = luma + parity[k];
        return static_cast<size_t>(first < 0 ? luma + 1 : first);
    }
};

// Output: the fused 4:2:0 frame, or (for the unused packed variant) one
// packed 4:2:2 frame of 2 W H bytes with the chroma of the quad's top row.
struct SemiPlanarOut {
    static size_t luma(int x, int y) { return static_cast<size_t>(x) + static_cast<size_t>(gW) * y; }
    static size_t chroma(int x, int y) { return Y_SIZE + static_cast<size_t>(gW) * (y / 2) + x; }
    static size_t second() { return 1; }
};

struct PackedOut {
    static size_t luma(int x, int y) { return 2 * (static_cast<size_t>(x) + static_cast<size_t>(gW) * y); }
    static size_t chroma(int x, int y) { return luma(x, y) + 1; }
    static size_t second() { return 2; }
};

template <class In>
int lumaAt(const uint8_t* frame, int x, int y) {
    return frame[In::kLumaBytes * (static_cast<size_t>(x) + static_cast<size_t>(gW) * y)];
}

}  // namespace strict
}  // namespace trv
