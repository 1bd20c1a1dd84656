#pragma once

#include <cstdint>

namespace trv {

// Writes the W * H luma bytes of the result to the result dump file.
void writeResultDump(const uint8_t* luma, int32_t W, int32_t H);

}  // namespace trv
