// Strict merge of quads, every layout: rows of quads against one call per
// quad on random bursts, and hand-computed quads.
#include <gtest/gtest.h>

#include <array>

#include "fusion/fusion_scene.h"
#include "fusion/merge_geometry.h"
#include "fusion/strict_merge.h"

namespace {

using StrictMergeFn = void (*)(int, int, float, float, int, int*, int, int, int, float);

struct Member {
    const char* name;
    int code;  // input layout
    StrictMergeFn fn;
    bool packedOut;
    trv::StrictLayout layout;
};

const Member kMembers[] = {
    {"NV21", 4, strictMerge_NV21, false, trv::StrictLayout::Nv21},
    {"NV16_1", 1, strictMerge_NV16_1, false, trv::StrictLayout::Nv16},
    {"NV16", 1, strictMerge_NV16, true, trv::StrictLayout::Nv16},
    {"YV16", 0, strictMerge_YV16, false, trv::StrictLayout::Yv16},
    {"YUV422", 2, strictMerge_YUV422, false, trv::StrictLayout::Yuv422},
};

constexpr int kTile = 9;
using Scene = fusiontest::Frames;

// Output positions of the quad's luma sample i and chroma sample c.
size_t outLuma(const Scene& s, bool packed, int x, int y) { return (packed ? 2 : 1) * (x + s.W * y); }
size_t outChroma(const Scene& s, bool packed, int x, int y, int c) {
    if (packed) return 2 * (x + s.W * y) + 1 + 2 * c;
    return s.W * s.H + s.W * (y / 2) + x + c;
}

std::array<int, 5> parities(const Scene& s) {
    std::array<int, 5> parity{};
    for (int k = 0; k < s.others(); ++k) parity[k] = (s.mvs[k].x & 1) ? -1 : 1;
    return parity;
}

void runQuad(Scene& s, const Member& m, int x, int y, float w) {
    m.fn(x, y, 1.0f, 3.0f, kTile, parities(s).data(), 0, 0, 0, w);
}

void publish(Scene& s, const Member& m) { s.publish(m.code, static_cast<size_t>(s.W) * s.H * 2); }

// Random texture with frames that are the reference shifted by their vector
// plus noise wide enough to cross every clip.
Scene randomScene(int W, int H, int others, uint32_t seed) {
    trvtest::Rng rng(seed);
    Scene s(W, H, others);
    s.planes[0] = trvtest::texturedPlanes(W, H, seed);
    for (int k = 0; k < others; ++k) {
        s.mvs[k] = MV1{rng.uniform(-5, 5), rng.uniform(-5, 5), {0, 0, 0, 0}, 0.0};
        auto& p = s.planes[k + 1] = trvtest::shifted(s.planes[0], s.mvs[k].x, s.mvs[k].y);
        fusiontest::addNoise(p.y, 40, seed + 10 * k + 1);
        fusiontest::addNoise(p.first, 10, seed + 10 * k + 2);
        fusiontest::addNoise(p.second, 10, seed + 10 * k + 3);
    }
    return s;
}

// The tile merging hands the strict merge rows of quads, which it takes
// eight at a time where it can: the same bytes as one call per quad, in the
// same order, for every layout, frame count and weight (sixteenths, and
// others that keep the per-quad rule), with rows running past the frame's
// edges (mirrored quads) and widths that leave part groups.
TEST(StrictMerge, RowsGiveTheBytesOfOneCallPerQuad) {
    const float weights[] = {0.0f, 0.0f, 0.0f, 0.0625f, 0.1875f, 0.3125f, 0.4375f, 0.3f, 0.001f};
    for (int member : {0, 1, 3, 4}) {
        const Member& m = kMembers[member];
        for (int others = 1; others <= 5; ++others) {
            const int W = 62 + 6 * others, H = 30 + 2 * others;
            Scene s = randomScene(W, H, others, 300u + others);
            s.mvs[others - 1].x = 9 - 2 * others;  // far enough for some groups to reach an edge
            publish(s, m);
            gColor_offset = 0.8f;
            trvtest::Rng rng(others + 10u * member);
            std::vector<uint8_t> perQuad = s.out;
            std::array<int, 5> parity = parities(s);
            const trv::StrictTile tile = trv::strictTile(m.layout, kTile, parity.data());
            std::vector<int> xs;
            for (int x = -4; x <= W + 2; x += 2) xs.push_back(trv::reflectInto(x, W));
            for (int y = -2; y <= H; y += 2) {
                const int row = trv::reflectInto(y, H);
                std::vector<float> ws;
                for (size_t i = 0; i < xs.size(); ++i) ws.push_back(weights[rng.uniform(0, 8)]);
                gMergrOut = perQuad.data();
                for (size_t i = 0; i < xs.size(); ++i) runQuad(s, m, xs[i], row, ws[i]);
                gMergrOut = s.out.data();
                trv::strictMergeRow(tile, row, xs.data(), ws.data(), static_cast<int>(xs.size()));
            }
            ASSERT_EQ(s.out, perQuad) << m.name << " with " << others << " other frames";
        }
    }
}

// Flat reference 100 / chroma 128, one other frame, quad (6, 6) of 16 x 16.
// Column 4 at 150 makes the edge measure 50: clip limit 16, and the low-pass
// (left and two diagonals at 150) is clamped to -3.
struct HandQuad : ::testing::Test {
    Scene s{16, 16, 1};
    void SetUp() override {
        gColor_offset = 0.5f;
        for (int y = 0; y < 16; ++y) s.luma(0, 4, y) = 150;
    }
    // Output luma (x, y) and chroma c of the quad (6, 6) after one merge.
    std::vector<int> merge(const Member& m, float w = 0.0f) {
        publish(s, m);
        runQuad(s, m, 6, 6, w);
        return {s.out[outLuma(s, m.packedOut, 6, 6)], s.out[outLuma(s, m.packedOut, 7, 7)],
                s.out[outChroma(s, m.packedOut, 6, 6, 0)], s.out[outChroma(s, m.packedOut, 6, 6, 1)]};
    }
    void setFrameQuad(int yValue, int firstChroma) {
        for (int y = 6; y < 8; ++y)
            for (int x = 6; x < 8; ++x) {
                s.luma(1, x, y) = static_cast<uint8_t>(yValue);
                s.chroma(1, 0, x, y) = static_cast<uint8_t>(firstChroma);
            }
    }
};

TEST_F(HandQuad, LumaDifferenceOf32IsClippedButOf33Ignored) {
    for (const Member& m : kMembers) {
        setFrameQuad(68, 121);  // d = 32 -> 16, mean 16 / 2; chroma d = 7 counts, 7 / 2
        // 100 - 8 + 3 + 0.5; 128 - 3 + 0.5
        EXPECT_EQ(merge(m), (std::vector<int>{95, 95, 125, 128})) << m.name;
        setFrameQuad(67, 120);  // d = 33 and 8 count nothing: 100 + 3 + 0.5; 128.5
        EXPECT_EQ(merge(m), (std::vector<int>{103, 103, 128, 128})) << m.name;
    }
}

TEST_F(HandQuad, ColourOffsetRoundsUpAtTheTop) {
    gColor_offset = 1.2f;
    for (int f = 0; f < 2; ++f) std::fill(s.planes[f].first.begin(), s.planes[f].first.end(), 254);
    for (int f = 0; f < 2; ++f) std::fill(s.planes[f].second.begin(), s.planes[f].second.end(), 253);
    // 254 + 1.2 clips to 255; 253 + 1.2 truncates to 254.
    for (const Member& m : kMembers) EXPECT_EQ(merge(m), (std::vector<int>{103, 103, 255, 254})) << m.name;
}

// One chroma row up and down: rows 5 and 7 (first sample 132) on full-height
// chroma, P = (512 - 520) >> 2 = -2, 128 + 2 + 0.5; on NV21 chroma rows 2
// and 4 (luma rows 4 and 8, first sample 100), P = 56 >> 2 -> 3, 128 - 3 + 0.5.
TEST_F(HandQuad, ChromaLowPassTakesOneChromaRowUpAndDown) {
    for (int y : {4, 8}) s.chroma(0, 0, 6, y) = 100;
    for (int y : {5, 7}) s.chroma(0, 0, 6, y) = 132;
    for (const Member& m : kMembers) EXPECT_EQ(merge(m)[2], m.code == 4 ? 125 : 130) << m.name;
}

TEST(StrictMergeEdges, QuadsOutsideTheFrameAndTinyFramesWriteNothing) {
    gColor_offset = 0.5f;
    for (const Member& m : kMembers) {
        Scene s(8, 6, 2);
        s.mvs[0] = MV1{40, -40, {0, 0, 0, 0}, 0.0};  // reflects below zero: clamped
        publish(s, m);
        const std::vector<uint8_t> before = s.out;
        runQuad(s, m, 8, 0, 0.0f);
        runQuad(s, m, 0, 6, 0.0f);
        runQuad(s, m, -2, 0, 0.0f);
        EXPECT_EQ(s.out, before) << m.name;
        runQuad(s, m, 6, 4, 0.0f);  // the last quad, with a clamped frame position
        EXPECT_NE(s.out, before) << m.name;
    }
}

}  // namespace
