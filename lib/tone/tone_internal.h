// Shared geometry and helpers of the local tone enhancement: the frame is cut
// into bands of whole L x L cells of the brightness plane, and each band is
// walked two rows and two columns (one 4:2:0 chroma pair) at a time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace trv {

// Cells across (or down) a run of n pixels at downscale factor L.
inline int cellCount(int n, int L) { return (L - 1 + n) / L; }

// Band height of the brightness conversion (four bands) and of the tone
// bands (eight), in whole cells; the last band takes the remaining rows.
inline int convertBandRows(int H, int L) { return ((H / 4) / L) * L; }
inline int toneBandRows(int H, int L) { return ((H / 8) / L) * L; }

// Bytes of the brightness plane that the conversion writes and the tone
// kernels read for a W x H frame: every cell of the frame, row stride
// cellCount(W, L). Zero for an empty frame.
inline size_t framePlaneBytes(int W, int H, int L) {
    if (W < 1 || H < 1 || L < 1) return 0;
    return static_cast<size_t>(cellCount(W, L)) * static_cast<size_t>(cellCount(H, L));
}

// Per-quad blurred brightness of one cell row: quads[q] for the column pair
// at x = 2q, q < (W + 1) / 2. Quads inside the last cell take that cell's
// value; the others interpolate between their cell and the next one.
void expandCellRow(const uint8_t* cells, uint8_t* quads, int W, int L);

}  // namespace trv
