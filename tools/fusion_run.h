// Running the library's validated entry point on frames held by the tool,
// timing it, and describing what it decided.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "trv/trv.h"

namespace trvtool {

struct FusionResult {
    std::vector<uint8_t> frame;  // 4:2:0, chroma in the input's order
    _tag_TRV_FUSE_REPORT report{};
    double milliseconds = 0.0;
};

// Fuses equally sized frames of one format code; throws std::runtime_error
// with the library's status text when the burst is refused.
FusionResult fuseFrames(std::vector<std::vector<uint8_t>>& frames, int width, int height, int32_t formatCode);

// Reference, fused frames with their global vectors, and dropped frames with
// the reason; names[i] labels input frame i.
void describeFusion(std::ostream& out, const FusionResult& result, const std::vector<std::string>& names);

// The plain per-byte mean of the frames, rounded, without any alignment.
std::vector<uint8_t> averageFrames(const std::vector<std::vector<uint8_t>>& frames);

}  // namespace trvtool
