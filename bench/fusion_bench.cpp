// Fusion at 1920 x 1080: the blending kernels on one tile (240 x 136, five
// other frames), and the whole fusion stage on a six-frame NV21 burst.
#include <benchmark/benchmark.h>

#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

constexpr int kW = 1920, kH = 1080;
constexpr int kTileW = 240, kTileH = 136;

// Six NV21 frames of one texture, each shifted by a few pixels.
struct Burst {
    std::vector<std::vector<uint8_t>> frames;
    std::vector<std::vector<uint8_t>> quarters;
    std::vector<MV1> vectors;
    std::vector<uint8_t> out;

    Burst() : vectors(5), out(static_cast<size_t>(kW) * kH * 3 / 2) {
        const int pad = 8;
        auto scene = trvtest::texturedPlane(kW + 2 * pad, kH * 3 / 2 + 2 * pad, 7);
        // Frame i is the scene displaced by (dx_i, dy_i); its vector against
        // frame 0 is the difference of the displacements.
        auto dxOf = [](int i) { return (i * 3) % 7 - 3; };
        auto dyOf = [](int i) { return (i * 5) % 7 - 3; };
        for (int i = 0; i < 6; ++i) {
            const int dx = dxOf(i), dy = dyOf(i);
            std::vector<uint8_t> f(static_cast<size_t>(kW) * kH * 3 / 2);
            for (int r = 0; r < kH * 3 / 2; ++r)
                for (int c = 0; c < kW; ++c)
                    f[static_cast<size_t>(r) * kW + c] = scene[static_cast<size_t>(r + pad + dy) * (kW + 2 * pad) + c + pad + dx];
            frames.push_back(std::move(f));
            quarters.emplace_back(2 * (kW / 4) * (kH / 4));
            if (i > 0) vectors[i - 1] = MV1{dxOf(0) - dx, dyOf(0) - dy, {}, 0.0};
        }
    }
    void publishForKernels() {
        gW = kW;
        gH = kH;
        gINFormat = 4;
        gNum = 5;
        for (int i = 0; i < 6; ++i) gMergeInput[i] = frames[i].data();
        setfunc();
        for (int v = -120; v <= 120; ++v) {
            divNUM[v + 120] = v / 5;
            divNUM_1[v + 120] = v / 6;
        }
    }
};

Burst& burst() {
    static Burst b;
    return b;
}

void BM_MergeBlkY_Tile(benchmark::State& state) {
    Burst& b = burst();
    b.publishForKernels();
    const size_t at = static_cast<size_t>(kTileH) * kW + kTileW;
    unsigned char* frames[5];
    for (int k = 0; k < 5; ++k) frames[k] = b.frames[k + 1].data() + at;
    for (auto _ : state) {
        mergeBlk_Y_neon(b.frames[0].data() + at, frames, b.out.data() + at, kTileW, kTileH);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kTileW * kTileH);
}
BENCHMARK(BM_MergeBlkY_Tile);

void BM_MergeBlkUV_Tile(benchmark::State& state) {
    Burst& b = burst();
    b.publishForKernels();
    const size_t luma = static_cast<size_t>(kW) * kH;
    const size_t at = luma + static_cast<size_t>(kTileH / 2) * kW + kTileW;
    unsigned char* frames[5];
    for (int k = 0; k < 5; ++k) frames[k] = b.frames[k + 1].data() + at;
    for (auto _ : state) {
        mergeBlk_uv_neon(b.frames[0].data() + at, frames, b.out.data() + at, kTileW, kTileH);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kTileW * kTileH / 2);
}
BENCHMARK(BM_MergeBlkUV_Tile);

void BM_MergeBlkYUYV_Tile(benchmark::State& state) {
    Burst& b = burst();
    b.publishForKernels();
    gINFormat = 2;
    // The NV21 frames read as packed rows of 2 gW bytes: only the speed counts.
    const size_t at = static_cast<size_t>(kTileH / 2) * 2 * kW + 2 * kTileW;
    unsigned char* frames[5];
    for (int k = 0; k < 5; ++k) frames[k] = b.frames[k + 1].data() + at;
    for (auto _ : state) {
        mergeBlk_YUV_neon_YUYV(b.frames[0].data() + at, frames, b.out.data(), b.out.data() + kW * kH, kTileW,
                               kTileH / 2);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kTileW * (kTileH / 2));
}
BENCHMARK(BM_MergeBlkYUYV_Tile);

void BM_Merge_SixFrameNV21_1080p(benchmark::State& state) {
    Burst& b = burst();
    gW = kW;
    gH = kH;
    gINFormat = 4;
    gMeanY = 40;
    gIsNormalLuminance = 1;
    for (int i = 0; i < 6; ++i) gImgInArr[i] = b.frames[i].data();
    for (int i = 0; i < 6; ++i) {
        gImgInSArr[i] = b.quarters[i].data();
        fillImageS_YV16(i);
    }
    unsigned char* frames[6];
    unsigned char* smalls[6];
    MV1* mvs[5];
    for (int i = 0; i < 6; ++i) {
        frames[i] = b.frames[i].data();
        smalls[i] = b.quarters[i].data();
    }
    for (int k = 0; k < 5; ++k) mvs[k] = &b.vectors[k];
    for (auto _ : state) {
        Merge(frames, smalls, b.out.data(), mvs, 6, kW, kH, 1, 40);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kW * kH);
}
BENCHMARK(BM_Merge_SixFrameNV21_1080p)->Unit(benchmark::kMillisecond);

}  // namespace
