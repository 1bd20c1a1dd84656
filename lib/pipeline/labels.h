// Texts of the parameter dump.
#pragma once

#include <cstdint>

namespace trv {

const char* inputFormatLabel(int32_t code);
// There is no output label for code 1: unlabelled output codes take the
// input side's "INPUT_FORMAT_UNKNOWN".
const char* outputFormatLabel(int32_t code);
// 1 and 4 share a label, as do 3 and 6: the intensity wraps after 3.
const char* intensityLabel(int32_t intensity);

}  // namespace trv
