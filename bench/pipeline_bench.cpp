// The whole TRV_Enhancement on NV21 bursts of 2, 4 and 6 frames at 1080p and
// 12 megapixels, next to the memory floor of the same burst: reading every
// input frame once and writing one output frame. Each pipeline case also
// reports `x_floor`, its time divided by the floor's time.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "nv21_burst.h"
#include "trv/trv.h"

namespace {

using trvbench::NV21Burst;

// One burst per size, built once and shared by the cases.
NV21Burst& burstOf(int width, int height) {
    static std::map<std::pair<int, int>, std::unique_ptr<NV21Burst>> cache;
    auto& slot = cache[{width, height}];
    if (!slot) slot = std::make_unique<NV21Burst>(width, height);
    return *slot;
}

// Reads every frame once (a running sum the compiler cannot drop) and
// writes one output frame.
void memoryFloor(const NV21Burst& burst, int frames, std::vector<uint8_t>& out) {
    uint64_t sum = 0;
    for (int f = 0; f < frames; ++f) {
        const uint64_t* words = reinterpret_cast<const uint64_t*>(burst.frames[f].data());
        const size_t count = burst.frames[f].size() / sizeof(uint64_t);
        for (size_t i = 0; i < count; ++i) sum += words[i];
    }
    memset(out.data(), static_cast<int>(sum & 0xFF), out.size());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
}

double floorSeconds(NV21Burst& burst, int frames) {
    double best = 1e30;
    for (int rep = 0; rep < 5; ++rep) {
        const auto start = std::chrono::steady_clock::now();
        memoryFloor(burst, frames, burst.output);
        const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (s < best) best = s;
    }
    return best;
}

void setSizeCounters(benchmark::State& state, const NV21Burst& burst, int frames) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(burst.frames[0].size()) * (frames + 1));
    state.counters["input_pixels"] = benchmark::Counter(
        static_cast<double>(burst.w) * burst.h * frames * static_cast<double>(state.iterations()),
        benchmark::Counter::kIsRate);
}

void BM_Enhancement(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const int frames = static_cast<int>(state.range(2));
    NV21Burst& burst = burstOf(w, h);
    trvbench::EnhancementCall call(burst, frames);
    const double floor = floorSeconds(burst, frames);
    double total = 0.0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        TRV_Enhancement(&call.in, &call.out, &call.param, nullptr);
        total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    setSizeCounters(state, burst, frames);
    state.counters["x_floor"] = total / static_cast<double>(state.iterations()) / floor;
    // How many frames the timed pipeline really fused: a case whose frames
    // were screened out would time the single-frame path instead.
    _tag_TRV_FUSE_REPORT report{};
    TRV_FuseBurst(&call.in, &call.param, &call.out, burst.output.size(), &report);
    state.counters["fused"] = report.framesFused;
}

void BM_MemoryFloor(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const int frames = static_cast<int>(state.range(2));
    NV21Burst& burst = burstOf(w, h);
    for (auto _ : state) memoryFloor(burst, frames, burst.output);
    setSizeCounters(state, burst, frames);
}

void pipelineSizes(benchmark::internal::Benchmark* b) {
    b->ArgNames({"w", "h", "frames"});
    for (auto [w, h] : {std::pair{1920, 1080}, {4000, 3000}})
        for (int frames : {2, 4, 6}) b->Args({w, h, frames});
}

BENCHMARK(BM_Enhancement)->Apply(pipelineSizes)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(0.2);
BENCHMARK(BM_MemoryFloor)->Apply(pipelineSizes)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(0.2);

}  // namespace
