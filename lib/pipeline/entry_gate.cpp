#include "pipeline/entry_gate.h"

#include <climits>

namespace trv {

std::mutex& processStateLock() {
    static std::mutex lock;
    return lock;
}

bool fitsStageArithmetic(int32_t width, int32_t height) {
    return width > 0 && height > 0 && static_cast<int64_t>(width) * height * 2 <= INT32_MAX;
}

size_t frame420Bytes(int32_t width, int32_t height) {
    return static_cast<size_t>(width) * static_cast<size_t>(height) * 3 / 2;
}

size_t frame422Bytes(int32_t width, int32_t height) {
    return static_cast<size_t>(width) * static_cast<size_t>(height) * 2;
}

bool buffersOverlap(const void* a, size_t aBytes, const void* b, size_t bBytes) {
    if (aBytes == 0 || bBytes == 0) return false;
    // As addresses: pointers into unrelated buffers may not be compared.
    const uintptr_t ua = reinterpret_cast<uintptr_t>(a), ub = reinterpret_cast<uintptr_t>(b);
    return ua < ub + bBytes && ub < ua + aBytes;
}

}  // namespace trv
