// Stand-alone operations: the multi-scale retinex on whole 4:2:0 frames, and
// the multi-level blur on the downscaled brightness planes the tone
// enhancement feeds it (1/4 of a 1080p frame, 1/8 of a 12-megapixel frame)
// and on a whole 1080p luma plane.
#include <benchmark/benchmark.h>

#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

void BM_MSR(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const std::vector<uint8_t> frame = trvtest::texturedPlane(w, h + h / 2, 42);
    std::vector<uint8_t> work(frame.size());
    gW = w;  // the blur takes its plane size from the pipeline's frame size
    gH = h;
    for (auto _ : state) {
        state.PauseTiming();
        work = frame;
        state.ResumeTiming();
        MSR(work.data(), w, h);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * int64_t(w) * h);
}
BENCHMARK(BM_MSR)->Args({1920, 1080})->Args({4000, 3000})->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MultiBlur(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    std::vector<uint8_t> in = trvtest::texturedPlane(w, h, 7), out(in.size());
    for (auto _ : state) {
        MultiBlur(in.data(), out.data(), w, h);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * int64_t(w) * h);
}
BENCHMARK(BM_MultiBlur)
    ->Args({(1920 + 3) / 4, (1080 + 3) / 4})
    ->Args({(4000 + 7) / 8, (3000 + 7) / 8})
    ->Args({1920, 1080})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
