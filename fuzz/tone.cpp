// TRV_ToneEnhance on fuzzer-chosen frames: sides -1 .. 260, output codes,
// curve ids and levels (in range or not), the claimed capacities and the
// content; input and output are separate buffers of exactly the claimed
// sizes.
// Checked: a refusal writes nothing; the input is only read; the result
// does not depend on what the output held, and bytes past it stay.
#include <algorithm>

#include "fuzz_support.h"
#include "trv/trv.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const int w = in.ConsumeIntegralInRange(-1, 260), h = in.ConsumeIntegralInRange(-1, 260);
    static const int kOutputCodes[] = {4, 0, 2, 1, 3, 5, -1};
    const int outCode = kOutputCodes[in.ConsumeIntegralInRange(0, 6)];
    const int id = in.ConsumeIntegralInRange(-1, 4);
    const int level = in.ConsumeBool() ? in.ConsumeIntegral<int32_t>() : in.ConsumeIntegralInRange(0, 200);
    const int nullPick = in.ConsumeIntegralInRange(0, 15);
    const size_t pixels = w > 0 && h > 0 ? static_cast<size_t>(w) * h : 0;
    const size_t inBytes = pixels * 3 / 2, outBytes = outCode == 4 ? pixels * 3 / 2 : pixels * 2;
    const size_t inCapacity = trvfuzz::claimedCapacity(in, inBytes), outCapacity = trvfuzz::claimedCapacity(in, outBytes);
    const trvfuzz::Bytes original = trvfuzz::content(in, inCapacity > 0 ? inCapacity : 1, w);
    const bool refuse = nullPick < 2 || pixels == 0 || (w & 1) || (h & 1) || id < 0 || id > 3 ||
                        !(outCode == 0 || outCode == 2 || outCode == 4) || inCapacity < inBytes ||
                        outCapacity < outBytes;

    trvfuzz::Bytes first;
    for (int run = 0; run < 2; ++run) {
        const uint8_t fill = run == 0 ? 0x00 : 0xFF;
        trvfuzz::Bytes input = original, output = trvfuzz::exactBuffer(outCapacity, fill);
        const trvfuzz::Bytes outputBefore = output;
        const int32_t status = TRV_ToneEnhance(nullPick == 0 ? nullptr : input.data(), inCapacity,
                                               nullPick == 1 ? nullptr : output.data(), outCapacity, w, h, outCode,
                                               id, level);
        if (refuse) FUZZ_REQUIRE(status != TRV_FUSE_OK);
        FUZZ_REQUIRE(input == original);
        if (status != TRV_FUSE_OK) {
            FUZZ_REQUIRE(output == outputBefore);
            return 0;
        }
        FUZZ_REQUIRE(std::all_of(output.begin() + outBytes, output.end(), [&](uint8_t v) { return v == fill; }));
        output.resize(outBytes);
        if (run == 0) first = output;
        if (run == 1) FUZZ_REQUIRE(output == first);
    }
    return 0;
}
