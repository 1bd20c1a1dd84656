// TRV_Blur on fuzzer-chosen planes: sides -1 .. 260, the claimed
// capacities, input and output inside one buffer at fuzzer-chosen places
// (overlapping or not), and the content.
// Checked: a refusal writes nothing; overlapping planes are refused; the
// result does not depend on what the output held, and bytes past it stay.
#include <algorithm>

#include "fuzz_support.h"
#include "trv/trv.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const int w = in.ConsumeIntegralInRange(-1, 260), h = in.ConsumeIntegralInRange(-1, 260);
    const int nullPick = in.ConsumeIntegralInRange(0, 15);
    const size_t plane = w > 0 && h > 0 ? static_cast<size_t>(w) * h : 0;
    const size_t inCapacity = trvfuzz::claimedCapacity(in, plane), outCapacity = trvfuzz::claimedCapacity(in, plane);
    // Usually two buffers; sometimes the output sits inside the input's
    // buffer, shifted by up to a plane either way.
    const bool shared = in.ConsumeIntegralInRange(0, 7) == 0;
    const long shift = shared ? in.ConsumeIntegralInRange(-static_cast<long>(plane), static_cast<long>(plane)) : 0;
    const trvfuzz::Bytes input = trvfuzz::content(in, inCapacity > 0 ? inCapacity : 1, w);
    const bool refuse = nullPick < 2 || plane == 0 || inCapacity < plane || outCapacity < plane ||
                        (shared && static_cast<size_t>(shift < 0 ? -shift : shift) < plane);

    trvfuzz::Bytes first;
    for (int run = 0; run < 2; ++run) {
        const uint8_t fill = run == 0 ? 0x00 : 0xFF;
        // [plane bytes before] input [plane bytes after], when shared.
        trvfuzz::Bytes buffer = shared ? trvfuzz::Bytes(3 * plane + inCapacity + 1, fill) : input;
        if (shared) std::copy(input.begin(), input.end(), buffer.begin() + plane);
        trvfuzz::Bytes output = trvfuzz::exactBuffer(outCapacity, fill);
        const trvfuzz::Bytes bufferBefore = buffer, outputBefore = output;
        const uint8_t* source = shared ? buffer.data() + plane : buffer.data();
        uint8_t* target = shared ? buffer.data() + plane + shift : output.data();
        const int32_t status = TRV_Blur(nullPick == 0 ? nullptr : source, inCapacity, nullPick == 1 ? nullptr : target,
                                        outCapacity, w, h);
        if (refuse) FUZZ_REQUIRE(status != TRV_FUSE_OK);
        if (status != TRV_FUSE_OK) {
            FUZZ_REQUIRE(buffer == bufferBefore && output == outputBefore);
            return 0;
        }
        trvfuzz::Bytes result(target, target + plane);
        FUZZ_REQUIRE(std::equal(source, source + plane, input.begin()));
        if (!shared) {
            for (size_t i = plane; i < output.size(); ++i) FUZZ_REQUIRE(output[i] == fill);
        }
        if (run == 0) first = result;
        if (run == 1) FUZZ_REQUIRE(result == first);
    }
    return 0;
}
