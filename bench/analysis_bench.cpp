// Frame analysis at the size of a 12-megapixel phone frame: quarter-scale
// images alone, and the whole blur check (quarter images, Sobel measure and
// brightness statistics on one thread per frame).
#include <benchmark/benchmark.h>

#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

constexpr int kW = 4000, kH = 3000;

struct Burst {
    std::vector<std::vector<uint8_t>> frames;
    std::vector<std::vector<uint8_t>> quarters;
    explicit Burst(int n) {
        for (int i = 0; i < n; ++i) {
            frames.push_back(trvtest::texturedPlane(kW, kH * 3 / 2, 100 + i));
            quarters.emplace_back(2 * (kW / 4) * (kH / 4));
        }
    }
    void publish() {
        gW = kW;
        gH = kH;
        gINFormat = 4;
        gPicNum = static_cast<int32_t>(frames.size());
        for (size_t i = 0; i < frames.size(); ++i) {
            gImgInArr[i] = frames[i].data();
            gImgInSArr[i] = quarters[i].data();
        }
    }
};

void BM_QuarterImage(benchmark::State& state) {
    Burst burst(1);
    burst.publish();
    for (auto _ : state) {
        fillImageS_YV16(0);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * int64_t(kW) * kH);
}
BENCHMARK(BM_QuarterImage)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_BlurCheck(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    Burst burst(n);
    for (auto _ : state) {
        burst.publish();
        int kept[6] = {}, ref = 0, second = 0;
        benchmark::DoNotOptimize(kickBlurPic(kept, &ref, &second, n));
    }
    state.SetBytesProcessed(state.iterations() * int64_t(kW) * kH * n);
}
BENCHMARK(BM_BlurCheck)->Arg(1)->Arg(6)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
