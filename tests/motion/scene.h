// Shared motion-test helpers: short ways to make and compare vectors.
#pragma once

#include <utility>

#include "trv/stages.h"

namespace motiontest {

inline MV1 vec(int x, int y) {
    MV1 m{};
    m.x = x;
    m.y = y;
    return m;
}

// A vector's (x, y), for one-line comparisons.
inline std::pair<int, int> xy(const MV1& m) { return {m.x, m.y}; }

}  // namespace motiontest
