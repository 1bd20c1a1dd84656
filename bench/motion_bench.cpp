// Motion estimation at phone-camera sizes: the global search of a six-frame
// 4000 x 3000 burst, and the refinement of one fusion tile (500 x 375).
#include <benchmark/benchmark.h>

#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

constexpr int kW = 4000, kH = 3000;

void BM_GlobalSearchSixFrames(benchmark::State& state) {
    std::vector<std::vector<uint8_t>> frames;
    for (int i = 0; i < 6; ++i) frames.push_back(trvtest::randomBytes(static_cast<size_t>(kW) * kH * 3 / 2, 40 + i));
    // A shared texture under the noise, moved by a few pixels per frame.
    const auto texture = trvtest::texturedPlane(kW + 64, kH + 64, 7);
    for (int i = 0; i < 6; ++i) {
        for (int r = 0; r < kH; ++r)
            for (int c = 0; c < kW; ++c)
                frames[i][static_cast<size_t>(r) * kW + c] = texture[static_cast<size_t>(r + 32 - i) * (kW + 64) + c + 32 + 2 * i];
    }
    unsigned char* others[5];
    MV1 records[5];
    MV1* mvs[5];
    for (int i = 0; i < 5; ++i) {
        others[i] = frames[i + 1].data();
        mvs[i] = &records[i];
    }
    gINFormat = 4;
    gW = kW;
    gH = kH;
    for (auto _ : state) {
        ME(frames[0].data(), others, mvs, kW, kH, 6);
        benchmark::DoNotOptimize(records[4].err);
    }
}
BENCHMARK(BM_GlobalSearchSixFrames)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_TileRefinement(benchmark::State& state) {
    // A 500 x 375 block of a 4000-wide frame: quarter-scale stage on the
    // 1000-wide quarter image (125 x 93 block), then the planar full-resolution stage.
    const int bw = 500, bh = 375;
    const auto cur = trvtest::texturedPlane(kW, bh + 8, 3);
    const auto ref = trvtest::texturedPlane(kW, bh + 8, 3);
    const auto curS = trvtest::texturedPlane(kW / 4, bh / 4 + 8, 4);
    const auto refS = trvtest::texturedPlane(kW / 4, bh / 4 + 8, 4);
    const size_t at = 4 * kW + 100, atS = 4 * (kW / 4) + 25;
    for (auto _ : state) {
        int start[2] = {1, -1};
        MV1 quarter{}, full{};
        RefineMVS_neon(const_cast<uint8_t*>(curS.data() + atS), const_cast<uint8_t*>(refS.data() + atS), start,
                       &quarter, kW / 4, kH / 4, bw / 4, bh / 4, 2);
        RefineMV_YV16_neon(const_cast<uint8_t*>(cur.data() + at), const_cast<uint8_t*>(ref.data() + at), &full, kW,
                           kH, bw, bh, 2);
        benchmark::DoNotOptimize(quarter.x + full.x);
    }
}
BENCHMARK(BM_TileRefinement)->Unit(benchmark::kMicrosecond);

}  // namespace
