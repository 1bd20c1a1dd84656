// Strict merge of one quad, every layout, against a model that reads the
// frames as planes (luma W x H, two chroma planes W/2 x H) rather than by
// byte address, plus hand-computed quads.
#include <gtest/gtest.h>

#include "fusion/fusion_scene.h"
#include "fusion/strict_merge.h"

namespace {

using StrictMergeFn = void (*)(int, int, float, float, int, int*, int, int, int, float);

struct Member {
    const char* name;
    int code;  // input layout
    StrictMergeFn fn;
    bool packedOut;
};

const Member kMembers[] = {
    {"NV21", 4, strictMerge_NV21, false},  {"NV16_1", 1, strictMerge_NV16_1, false},
    {"NV16", 1, strictMerge_NV16, true},   {"YV16", 0, strictMerge_YV16, false},
    {"YUV422", 2, strictMerge_YUV422, false},
};

constexpr int kTile = 9;
using Scene = fusiontest::Frames;

// Output positions of the quad's luma sample i and chroma sample c.
size_t outLuma(const Scene& s, bool packed, int x, int y) { return (packed ? 2 : 1) * (x + s.W * y); }
size_t outChroma(const Scene& s, bool packed, int x, int y, int c) {
    if (packed) return 2 * (x + s.W * y) + 1 + 2 * c;
    return s.W * s.H + s.W * (y / 2) + x + c;
}

int clip(double v) { return v >= 255.0 ? 255 : (v <= 0.0 ? 0 : static_cast<int>(v)); }
int clipF(float v) { return v >= 255.0f ? 255 : (v <= 0.0f ? 0 : static_cast<int>(v)); }

// The rule, pixel by pixel, on the planes.
void modelQuad(Scene& s, const Member& m, int x, int y, float w, std::vector<uint8_t>& out) {
    const int W = s.W, H = s.H, N = s.others();
    const bool halfChroma = m.code == 4;
    auto Y = [&](int f, int px, int py) { return static_cast<int>(s.luma(f, px, py)); };
    auto C = [&](int f, int which, int px, int py) {
        return static_cast<int>(s.chroma(f, which, px, halfChroma ? (py & ~1) : py));
    };
    const bool hasL = x > 1, hasR = x < W - 2, hasU = y >= 2, hasD = y < H - 2;
    const int y00 = Y(0, x, y);
    int G = 0;
    if (hasL) G += std::abs(y00 - Y(0, x - 2, y));
    if (hasR) G += std::abs(y00 - Y(0, x + 2, y));
    if (hasU) G += std::abs(y00 - Y(0, x, y - 2));
    if (hasD) G += std::abs(y00 - Y(0, x, y + 2));
    const int L = std::min(16, std::max(6, (51 * G) >> 7));

    int ring = (hasL ? Y(0, x - 2, y) : y00) + (hasR ? Y(0, x + 2, y) : y00) + (hasU ? Y(0, x, y - 2) : y00) +
               (hasD ? Y(0, x, y + 2) : y00);
    const bool diagonals = !(x <= 2 || y <= 2 || x >= W - 2 || y >= H - 2);
    ring += diagonals ? Y(0, x - 2, y - 2) + Y(0, x + 2, y - 2) + Y(0, x - 2, y + 2) + Y(0, x + 2, y + 2) : 4 * y00;
    const int P = std::min(3, std::max(-3, (8 * y00 - ring) >> 3));

    const int dx[4] = {0, 1, 0, 1}, dy[4] = {0, 0, 1, 1};
    int sy[4] = {}, sc[2] = {};
    for (int k = 0; k < N; ++k) {
        const int xk = fusiontest::reflect(x + s.mvs[k].x, W), yk = fusiontest::reflect(y + s.mvs[k].y, H);
        for (int i = 0; i < 4; ++i) {
            int d = Y(0, x + dx[i], y + dy[i]) - Y(k + 1, xk + dx[i], yk + dy[i]);
            if (std::abs(d) > 32) d = 0;
            sy[i] += std::min(L, std::max(-L, d));
        }
        for (int c = 0; c < 2; ++c) {
            const int d = C(0, c, x, y) - C(k + 1, c, xk, yk);
            if (std::abs(d) < 8) sc[c] += d;
        }
    }
    for (int i = 0; i < 4; ++i) {
        const int a = sy[i] / (N + 1);
        const int ref = Y(0, x + dx[i], y + dy[i]);
        uint8_t& o = out[outLuma(s, m.packedOut, x + dx[i], y + dy[i])];
        o = static_cast<uint8_t>(w > 0.001f ? clip(o * static_cast<double>(w) + (ref - a) * (1.0 - w) + 0.5)
                                            : clip(ref - a - P + 0.5));
    }
    for (int c = 0; c < 2; ++c) {
        const int centre = C(0, c, x, y);
        const int up = halfChroma ? 2 : 1;  // one chroma row
        const int nsum = (hasL ? C(0, c, x - 2, y) : centre) + (hasR ? C(0, c, x + 2, y) : centre) +
                         (hasU ? C(0, c, x, y - up) : centre) + (hasD ? C(0, c, x, y + up) : centre);
        const int Pc = std::min(3, std::max(-3, (4 * centre - nsum) >> 2));
        const int a = sc[c] / (N + 1);
        uint8_t& o = out[outChroma(s, m.packedOut, x, y, c)];
        o = static_cast<uint8_t>(w > 0.001f ? clipF(o * w + static_cast<float>(centre - a) * (1.0f - w) + gColor_offset)
                                            : clipF(static_cast<float>(centre - a - Pc) + gColor_offset));
    }
}

void runQuad(Scene& s, const Member& m, int x, int y, float w) {
    int parity[5];
    for (int k = 0; k < s.others(); ++k) parity[k] = (s.mvs[k].x & 1) ? -1 : 1;
    m.fn(x, y, 1.0f, 3.0f, kTile, parity, 0, 0, 0, w);
}

void publish(Scene& s, const Member& m) { s.publish(m.code, static_cast<size_t>(s.W) * s.H * 2); }

// Random texture with frames that are the reference shifted by their vector
// plus noise wide enough to cross every clip.
Scene randomScene(int W, int H, int others, uint32_t seed) {
    trvtest::Rng rng(seed);
    Scene s(W, H, others);
    s.planes[0] = fusiontest::texturedPlanes(W, H, seed);
    for (int k = 0; k < others; ++k) {
        s.mvs[k] = MV1{rng.uniform(-5, 5), rng.uniform(-5, 5), {0, 0, 0, 0}, 0.0};
        auto& p = s.planes[k + 1] = fusiontest::shifted(s.planes[0], s.mvs[k].x, s.mvs[k].y);
        fusiontest::addNoise(p.y, 40, seed + 10 * k + 1);
        fusiontest::addNoise(p.first, 10, seed + 10 * k + 2);
        fusiontest::addNoise(p.second, 10, seed + 10 * k + 3);
    }
    return s;
}

TEST(StrictMerge, EveryLayoutMatchesThePlaneModelOnRandomBursts) {
    const float weights[] = {0.0f, 0.001f, 0.0011f, 0.0625f, 0.1875f, 0.3125f, 0.4375f};
    const float offsets[] = {0.5f, 0.8f, 1.2f};
    for (const Member& m : kMembers) {
        for (int others = 1; others <= 5; ++others) {
            const int W = 26 + 2 * others, H = 18 + 2 * others;
            Scene s = randomScene(W, H, others, 100u + others);
            publish(s, m);
            gColor_offset = offsets[others % 3];
            std::vector<uint8_t> expected = s.out;
            trvtest::Rng rng(others);
            for (int y = 0; y <= H - 2; y += 2)
                for (int x = 0; x <= W - 2; x += 2) {
                    const float w = weights[rng.uniform(0, 6)];
                    runQuad(s, m, x, y, w);
                    modelQuad(s, m, x, y, w, expected);
                }
            ASSERT_EQ(s.out, expected) << m.name << " with " << others << " other frames";
        }
    }
}

// The tile merging hands the strict merge rows of quads, which it takes
// eight at a time where it can: the same bytes as one call per quad, in the
// same order, for every layout, frame count and weight (sixteenths, and
// others that keep the per-quad rule), with rows running past the frame's
// edges (mirrored quads) and widths that leave part groups.
TEST(StrictMerge, RowsGiveTheBytesOfOneCallPerQuad) {
    const trv::StrictLayout layouts[] = {trv::StrictLayout::Nv21, trv::StrictLayout::Nv16, trv::StrictLayout::Nv16,
                                         trv::StrictLayout::Yv16, trv::StrictLayout::Yuv422};
    const float weights[] = {0.0f, 0.0f, 0.0f, 0.0625f, 0.1875f, 0.3125f, 0.4375f, 0.3f, 0.001f};
    for (int member : {0, 1, 3, 4}) {
        const Member& m = kMembers[member];
        for (int others = 1; others <= 5; ++others) {
            const int W = 62 + 6 * others, H = 30 + 2 * others;
            Scene s = randomScene(W, H, others, 300u + others);
            s.mvs[others - 1].x = 9 - 2 * others;  // far enough for some groups to reach an edge
            publish(s, m);
            gColor_offset = 0.8f;
            const std::vector<uint8_t> before = s.out;
            trvtest::Rng rng(others + 10u * member);
            std::vector<std::vector<int>> xs;
            std::vector<std::vector<float>> ws;
            for (int y = -2; y <= H; y += 2) {
                xs.emplace_back();
                ws.emplace_back();
                for (int x = -4; x <= W + 2; x += 2) {
                    xs.back().push_back(fusiontest::reflect(x, W));
                    ws.back().push_back(weights[rng.uniform(0, 8)]);
                }
            }
            for (size_t r = 0; r < xs.size(); ++r)
                for (size_t i = 0; i < xs[r].size(); ++i)
                    runQuad(s, m, xs[r][i], fusiontest::reflect(-2 + 2 * static_cast<int>(r), H), ws[r][i]);
            const std::vector<uint8_t> perQuad = s.out;
            s.out = before;
            gMergrOut = s.out.data();
            int parity[5];
            for (int k = 0; k < others; ++k) parity[k] = (s.mvs[k].x & 1) ? -1 : 1;
            const trv::StrictTile tile = trv::strictTile(layouts[member], kTile, parity);
            for (size_t r = 0; r < xs.size(); ++r)
                trv::strictMergeRow(tile, fusiontest::reflect(-2 + 2 * static_cast<int>(r), H), xs[r].data(),
                                    ws[r].data(), static_cast<int>(xs[r].size()));
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
