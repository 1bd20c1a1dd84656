// What the validated entry points share: the one lock over the library's
// process-wide state, and the checks they all make of sizes and buffers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

namespace trv {

// The pipeline and the stand-alone operations hand data to their stages
// through process-wide variables (frame size, output layout, buffers,
// tables): every validated entry holds this lock while any stage runs.
std::mutex& processStateLock();

// 2 * W * H fits in a signed 32-bit integer: the stages' sizes and offsets
// are signed 32-bit, and a 4:2:2 frame is the largest they address.
bool fitsStageArithmetic(int32_t width, int32_t height);

// Bytes of a 4:2:0 frame (W * H * 3 / 2) and of a 4:2:2 one (2 * W * H), for
// sizes that passed the checks above.
size_t frame420Bytes(int32_t width, int32_t height);
size_t frame422Bytes(int32_t width, int32_t height);

// The byte ranges [a, a + aBytes) and [b, b + bBytes) share a byte. The
// sizes are the bytes an operation touches, never a caller's capacity.
bool buffersOverlap(const void* a, size_t aBytes, const void* b, size_t bBytes);

}  // namespace trv
