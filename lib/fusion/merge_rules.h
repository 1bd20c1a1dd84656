// Small rules of the fusion driver, shared with its tests.
#pragma once

#include <cstdint>

#include "common/arith.h"
#include "trv/stages.h"

namespace trv {

// Quarter-scale vector component, rounded to nearest with halves away from
// zero.
inline int32_t quarterOf(int32_t v) { return v >= 0 ? (v + 2) >> 2 : -((2 - v) >> 2); }

// The rightmost block of a band often has too little content to refine: it
// takes its left neighbour's vector when the two differ by more than 4 on
// either axis.
inline void fallBackToLeftNeighbour(MV1* rightmost, const MV1* left) {
    if (absInt(rightmost->x - left->x) > 4 || absInt(rightmost->y - left->y) > 4) {
        rightmost->x = left->x;
        rightmost->y = left->y;
    }
}

// Weight ramps, clamp and quotient tables, thresholds and division kernels
// for a fusion of `frames` frames (steps that do not depend on the burst's
// pixels).
void buildFusionTables(int frames, int enhanceID, int meanY);

}  // namespace trv
