// Blending of a tile's interior rectangle that reaches past the frame, or
// whose displaced copies leave the frames, without touching memory outside
// them.
#pragma once

namespace trv {

// Blends the rectangle (x, y, w, h) of tile `tile` (x, y >= 0) with the
// `frames` aligned frames as the vector kernels do in place, writing only the
// pixels inside the frame.
void blendThroughCopies(int x, int y, int w, int h, int tile, int frames);

}  // namespace trv
