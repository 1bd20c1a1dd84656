// TRV_Retinex on fuzzer-chosen frames: sides -1 .. 260 (odd and
// non-positive ones refused), the claimed capacity and the content.
// Checked: a refusal writes nothing; two runs agree (no dependence on thread
// timing); rows and columns past the last multiple of 4, and bytes past the
// frame, stay as they were.
#include "fuzz_support.h"
#include "trv/trv.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const int w = in.ConsumeIntegralInRange(-1, 260), h = in.ConsumeIntegralInRange(-1, 260);
    const bool nullFrame = in.ConsumeIntegralInRange(0, 15) == 0;
    const size_t needed = w > 0 && h > 0 ? static_cast<size_t>(w) * h * 3 / 2 : 0;
    const size_t capacity = trvfuzz::claimedCapacity(in, needed);
    trvfuzz::Bytes frame = trvfuzz::content(in, capacity > 0 ? capacity : 1, w);
    const trvfuzz::Bytes original = frame;

    trvfuzz::Bytes first;
    for (int run = 0; run < 2; ++run) {
        frame = original;
        const int32_t status = TRV_Retinex(nullFrame ? nullptr : frame.data(), capacity, w, h);
        if (nullFrame || w <= 0 || h <= 0 || (w & 1) || (h & 1) || capacity < needed)
            FUZZ_REQUIRE(status != TRV_FUSE_OK);
        if (status != TRV_FUSE_OK) {
            FUZZ_REQUIRE(frame == original);
            return 0;
        }
        if (run == 0) first = frame;
    }
    FUZZ_REQUIRE(frame == first);
    // Only whole 4 x 4 cells (and their chroma) change.
    const int cellW = w & ~3, cellH = h & ~3;
    for (size_t i = 0; i < frame.size(); ++i) {
        const bool luma = i < static_cast<size_t>(w) * h;
        const size_t row = luma ? i / w : (i - static_cast<size_t>(w) * h) / w, column = i % w;
        const bool inCell = i < needed && column < static_cast<size_t>(cellW) &&
                            row < static_cast<size_t>(luma ? cellH : cellH / 2);
        if (!inCell) FUZZ_REQUIRE(frame[i] == original[i]);
    }
    return 0;
}
