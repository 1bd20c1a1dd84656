// What the fuzz targets share: reading parameters from the fuzzer's bytes,
// buffers of an exact size, and checks that end the run like a crash, so
// that libFuzzer keeps the input that broke them.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#define FUZZ_REQUIRE(condition)                                                   \
    do {                                                                          \
        if (!(condition)) {                                                       \
            std::fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                         \
        }                                                                         \
    } while (0)

namespace trvfuzz {

using Bytes = std::vector<uint8_t>;

// A value in -limit .. limit; 0 once the input is used up.
inline int smallSigned(FuzzedDataProvider& in, int limit) {
    return in.ConsumeIntegral<int8_t>() % (limit + 1);
}

// The size of a buffer the caller claims against the size an operation
// needs: exact, one byte more or less, or 0.
inline size_t claimedCapacity(FuzzedDataProvider& in, size_t needed) {
    switch (in.ConsumeIntegralInRange(0, 7)) {
        case 5: return needed + 1;
        case 6: return needed > 0 ? needed - 1 : 0;
        case 7: return 0;
        default: return needed;
    }
}

// n bytes of content: the rest of the fuzzer's bytes, repeated; a
// horizontal ramp when none are left.
inline Bytes content(FuzzedDataProvider& in, size_t n, int width) {
    const Bytes pattern = in.ConsumeRemainingBytes<uint8_t>();
    Bytes out(n);
    for (size_t i = 0; i < n; ++i)
        out[i] = pattern.empty() ? static_cast<uint8_t>(i % static_cast<size_t>(width > 0 ? width : 1))
                                 : pattern[i % pattern.size()];
    return out;
}

// A buffer of exactly `capacity` bytes (at least one, so that its data is
// never null), so AddressSanitizer reports the first byte touched past it.
inline Bytes exactBuffer(size_t capacity, uint8_t fill) { return Bytes(capacity > 0 ? capacity : 1, fill); }

}  // namespace trvfuzz
