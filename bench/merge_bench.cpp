// Merging of all 64 tiles of a 1920 x 1080 semi-planar 4:2:0 burst of three
// frames on one thread: a still scene (simple fusion and classification
// only) and a dark, noisy one where most blocks go through the strict merge.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

constexpr int kW = 1920, kH = 1080, kOthers = 2;

struct MergeBurst {
    std::vector<std::vector<uint8_t>> frames;
    std::vector<uint8_t> out;
    std::vector<MV1> mvs[kOthers];

    explicit MergeBurst(int noise) : out(kW * kH * 3 / 2) {
        frames.push_back(trvtest::texturedPlane(kW, kH * 3 / 2, 7));
        trvtest::Rng rng(11);
        for (int k = 0; k < kOthers; ++k) {
            std::vector<uint8_t> f = frames[0];
            for (uint8_t& v : f) v = static_cast<uint8_t>(std::min(255, std::max(0, v + rng.uniform(-noise, noise))));
            frames.push_back(f);
            mvs[k].assign(64, MV1{k + 1, -k, {0, 0, 0, 0}, 0.0});
        }
    }

    void publish(int meanY) {
        gW = kW;
        gH = kH;
        gINFormat = 4;
        Y_SIZE = kW * kH;
        Y_SIZE_HALF = Y_SIZE >> 1;
        gNum = kOthers;
        for (int v = -120; v <= 120; ++v) {
            divNUM[v + 120] = v / kOthers;
            divNUM_1[v + 120] = v / (kOthers + 1);
        }
        NUM_16 = vdupq_n_u16(16 * kOthers);
        setfunc();
        gMeanY = meanY;
        gMergeEnhanceID = 1;
        gIsNormalLuminance = 1;
        gColor_offset = 0.8f;
        for (size_t f = 0; f < frames.size(); ++f) gMergeInput[f] = frames[f].data();
        for (int k = 0; k < kOthers; ++k)
            for (int t = 0; t < 64; ++t) gMergeMV[k][t] = &mvs[k][t];
        gMergrOut = out.data();
    }
};

void BM_MergingNV21(benchmark::State& state) {
    const bool moving = state.range(0) != 0;
    MergeBurst burst(moving ? 20 : 2);
    burst.publish(moving ? 10 : 40);
    for (auto _ : state) {
        for (int t = 0; t < 64; ++t) Merging_NV21(t);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * int64_t(kW) * kH);
    state.SetLabel(moving ? "mostly moving" : "still");
}
BENCHMARK(BM_MergingNV21)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
