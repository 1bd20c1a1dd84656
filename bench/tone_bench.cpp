// Local tone enhancement of whole frames (ID 1, semi-planar 4:2:0 output):
// 1080p at cell size 4 and 12 megapixels at cell size 8.
#include <benchmark/benchmark.h>

#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

void BM_xImgEnhance_YCrCb(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    std::vector<uint8_t> in = trvtest::texturedPlane(w, h + h / 2, 5), out(in.size());
    gW = w;  // the band geometry comes from the pipeline's frame size
    gH = h;
    gOUTFormat = static_cast<int32_t>(state.range(2));
    if (gOUTFormat != 4) out.resize(static_cast<size_t>(w) * h * 2);
    createTHTable();
    for (auto _ : state) {
        xImgEnhance_YCrCb(in.data(), out.data(), w, h, 1, 50);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * int64_t(w) * h);
}
BENCHMARK(BM_xImgEnhance_YCrCb)
    ->Args({1920, 1080, 4})
    ->Args({4000, 3000, 4})
    ->Args({1920, 1080, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
