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

#include "support/synthetic.h"
#include "trv/trv.h"

namespace {

constexpr size_t kShifts[6] = {0, 3, 7, 10, 14, 19};

// Natural pictures have little energy at the finest scale; a box blur of the
// synthetic texture gives it that spectrum, so that the one-pixel residual
// the global search leaves is judged as a photograph's would be.
std::vector<uint8_t> smoothed(const std::vector<uint8_t>& plane, int w, int h, int radius) {
    std::vector<uint8_t> out(plane.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int sum = 0, count = 0;
            for (int dy = -radius; dy <= radius; ++dy)
                for (int dx = -radius; dx <= radius; ++dx) {
                    const int yy = y + dy, xx = x + dx;
                    if (yy < 0 || yy >= h || xx < 0 || xx >= w) continue;
                    sum += plane[static_cast<size_t>(yy) * w + xx];
                    ++count;
                }
            out[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(sum / count);
        }
    return out;
}

// One textured scene, every frame a shifted copy with its own noise; built
// once per size and shared by the cases.
struct NV21Burst {
    int w, h;
    std::vector<std::vector<uint8_t>> frames;
    std::vector<uint8_t> output;

    NV21Burst(int width, int height) : w(width), h(height) {
        const size_t bytes = static_cast<size_t>(w) * h * 3 / 2;
        const std::vector<uint8_t> scene = smoothed(trvtest::texturedPlane(w, h * 3 / 2, 7), w, h * 3 / 2, 2);
        trvtest::Rng rng(11);
        for (int f = 0; f < 6; ++f) {
            std::vector<uint8_t> frame(bytes);
            const size_t shift = kShifts[f];  // a few pixels of horizontal motion
            for (size_t i = 0; i < bytes; ++i) {
                const int v = scene[i + shift < bytes ? i + shift : i] + static_cast<int>(rng.next() % 9) - 4;
                frame[i] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
            }
            frames.push_back(std::move(frame));
        }
        output.resize(bytes);
    }

    static NV21Burst& of(int width, int height) {
        static std::map<std::pair<int, int>, std::unique_ptr<NV21Burst>> cache;
        auto& slot = cache[{width, height}];
        if (!slot) slot = std::make_unique<NV21Burst>(width, height);
        return *slot;
    }
};

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
    NV21Burst& burst = NV21Burst::of(w, h);
    std::vector<__tag_TRV_OFFSCREEN> pics(frames);
    _tag_TRV_INPUTINFO in{};
    in.picNum = frames;
    for (int i = 0; i < frames; ++i) {
        pics[i] = {0, w, h, burst.frames[i].data()};
        in.pics[i] = &pics[i];
    }
    __tag_TRV_OFFSCREEN out{0, 0, 0, burst.output.data()};
    _tag_TRV_PARAM param{};
    TRV_GetDefaultParam(&param);
    param.inputFormat = 4;
    const double floor = floorSeconds(burst, frames);
    double total = 0.0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        TRV_Enhancement(&in, &out, &param, nullptr);
        total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    setSizeCounters(state, burst, frames);
    state.counters["x_floor"] = total / static_cast<double>(state.iterations()) / floor;
    // How many frames the timed pipeline really fused: a case whose frames
    // were screened out would time the single-frame path instead.
    _tag_TRV_FUSE_REPORT report{};
    TRV_FuseBurst(&in, &param, &out, burst.output.size(), &report);
    state.counters["fused"] = report.framesFused;
}

void BM_MemoryFloor(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const int frames = static_cast<int>(state.range(2));
    NV21Burst& burst = NV21Burst::of(w, h);
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
