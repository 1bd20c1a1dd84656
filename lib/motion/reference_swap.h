// The rule that can move the burst's reference to the second-sharpest frame
// after the global search, and the re-expression of the vectors it needs.
#pragma once

#include <cstdint>

#include "trv/stages.h"

namespace trv {

// With `frames` frames (reference included) and mvs[0] the second frame's
// vector: true when the other frames lie, in sum, more than 25 pixels
// closer to the second frame than to the reference (L1 distances, 32-bit).
bool secondIsBetterAnchor(MV1* const* mvs, int32_t frames);

// Re-expresses the vectors against the second frame: mvs[1 .. frames - 2]
// lose mvs[0], then mvs[0] is negated (it now points at the old reference).
void rebaseOnSecond(MV1* const* mvs, int32_t frames);

}  // namespace trv
