// The strict merge as the tile merging drives it: the quads of one row at a
// time, in the order given, which the vector form takes eight at a time
// where it can.
#pragma once

#include <cstdint>

#include "fusion/blend_rules.h"

namespace trv {

enum class StrictLayout { Nv21, Nv16, Yv16, Yuv422 };

// What one tile's strict merge reads, fixed for the tile.
struct StrictTile {
    StrictLayout layout;
    int tile;
    int* parity;
    int W, H, frames;
    int mvx[kMaxAlignedFrames], mvy[kMaxAlignedFrames];
    // The vector form's division of a sum s (|s| <= 120) by frames + 1,
    // truncating toward zero: (|s| * multiplier) >> 10 with the sign of s.
    // Zero when the quotient table does not hold that division, or the
    // layout has no vector form: every quad then takes the per-quad rule.
    int multiplier;
};

StrictTile strictTile(StrictLayout layout, int tile, int* parity);

// Merges the quads (x[i], y) with feather weights w[i], i = 0 .. count - 1,
// in that order, exactly as strictMerge_NV21 / _NV16_1 / _YV16 / _YUV422
// called once per quad would. x[i] and y are already reflected into the
// image.
void strictMergeRow(const StrictTile& t, int y, const int* x, const float* w, int count);

}  // namespace trv
