// Classification of a tile's blocks (with the ring of blocks around the
// tile) as static or moving against the aligned frames.
#pragma once

#include <cstdint>

#include "fusion/merge_geometry.h"

namespace trv {

enum class ClassifySamples {
    LumaAndColour,  // semi-planar 4:2:0: luma plus both chroma bytes
    PlanarLuma,     // luma plane first, one byte a pixel
    PackedLuma,     // luma on the even bytes of 2 W byte rows
};

// Thresholds of the moving decision for the current burst.
struct MotionThresholds {
    float mean;
    float variance;
};
MotionThresholds motionThresholds(int32_t meanY, int32_t enhanceID);

// Moving decision from per-frame disagreement counts of one block.
bool isMovingBlock(const int32_t* counts, int32_t others, int32_t blockSize, MotionThresholds th);

// Per-frame counts of disagreeing pixels of every block of tile `tile`:
// counts[(r * g.cols + c) * kMaxClassifyFrames + k] for frame k + 1; the
// counts of frames beyond the aligned ones are left alone.
constexpr int32_t kMaxClassifyFrames = 5;
void countDisagreements(const TileGeometry& g, int32_t tile, ClassifySamples samples, int32_t* counts);

// Fills map (g.rows x g.cols, 1 = moving) for tile `tile`.
void classifyBlocks(const TileGeometry& g, int32_t tile, ClassifySamples samples, int32_t* map);

}  // namespace trv
