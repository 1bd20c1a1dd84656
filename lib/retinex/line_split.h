// How the recursive blurs share a plane's lines among four threads.
#pragma once

#include <algorithm>

#include "common/threads.h"

namespace trv {

constexpr int kLineParts = 4;

struct LineRange {
    int begin, end;
};

// Part j of count lines: [j s, min((j + 1) s, count)) with s = count / 4 + 1.
// Both ends are clamped to count, so for tiny counts the later parts are
// empty; so is every part outside 0 .. 3.
inline LineRange lineQuarter(int j, int count) {
    if (j < 0 || j >= kLineParts) return {0, 0};
    const int span = count / kLineParts + 1;
    return {std::min(j * span, count), std::min((j + 1) * span, count)};
}

// Runs body on four threads with slot values first .. first + 3, one per part.
inline void runLineQuarters(ThreadBody body, int first) {
    const int args[kLineParts] = {first, first + 1, first + 2, first + 3};
    runWorkers(body, args, kLineParts);
}

}  // namespace trv
