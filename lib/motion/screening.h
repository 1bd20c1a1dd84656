// Frame screening with the keep decisions made visible to the driver.
#pragma once

#include <cstdint>

#include "trv/stages.h"

namespace trv {

// KickRotatePic; when keptOut is set it also receives the keep flag of every
// listed frame (index 0 the reference, i the frame of slot i - 1) as they
// stood before the lists were compacted.
void screenFrames(unsigned char** frames, unsigned char** smalls, int Ws, int Hs, int W, int H, MV1** mvs, int n,
                  int32_t keptOut[6]);

}  // namespace trv
