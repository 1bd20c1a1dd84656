// Simple fusion of all 64 tiles against a model written from the tile rules:
// interior rectangles through the vector and tail rules (by column position),
// border strips through the table rule with reflected 2 x 2 groups.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "fusion/blend_model.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

using blendmodel::clampTo;

struct Scene {
    int w, h, format, n;
    std::vector<std::vector<uint8_t>> frames;    // reference first
    std::array<std::array<MV1, 64>, 5> vectors{};

    size_t frameBytes() const {
        return format == 4 ? static_cast<size_t>(w) * h * 3 / 2 : static_cast<size_t>(w) * h * 2;
    }
    size_t outBytes() const { return static_cast<size_t>(w) * h * 3 / 2; }
};

// Frames that resemble each other: a texture plus noise per frame.
Scene makeScene(int w, int h, int format, int n, int reach, uint32_t seed) {
    Scene s{w, h, format, n, {}, {}};
    trvtest::Rng rng(seed);
    auto base = trvtest::randomBytes(s.frameBytes(), seed);
    for (int k = 0; k <= n; ++k) {
        std::vector<uint8_t> f(base);
        for (auto& v : f) v = static_cast<uint8_t>(clampTo(v + rng.uniform(-30, 30), 0, 255));
        s.frames.push_back(std::move(f));
    }
    for (int k = 0; k < n; ++k)
        for (int t = 0; t < 64; ++t) {
            s.vectors[k][t].x = rng.uniform(-reach, reach);
            s.vectors[k][t].y = rng.uniform(-reach, reach);
        }
    return s;
}

struct Model {
    const Scene& s;
    std::vector<uint8_t> out;
    int bw, bh;

    explicit Model(const Scene& scene, uint8_t fill) : s(scene), out(scene.outBytes(), fill) {
        bw = (s.w + 7) / 8 + ((s.w + 7) / 8 & 1);
        bh = (s.h + 7) / 8 + ((s.h + 7) / 8 & 1);
    }
    int Y() const { return s.w * s.h; }
    const std::vector<uint8_t>& frame(int k) const { return s.frames[k]; }
    const MV1& mv(int k, int t) const { return s.vectors[k][t]; }

    int lumaAt(int k, int x, int y) const {
        return s.format == 2 ? frame(k)[2 * (x + s.w * y)] : frame(k)[static_cast<size_t>(y) * s.w + x];
    }
    // Chroma sample `which` of the pair starting at even column x, row y.
    int chromaAt(int k, int x, int y, int which) const {
        switch (s.format) {
            case 0: return frame(k)[Y() + which * (s.w / 2) * s.h + (s.w / 2) * y + x / 2];
            case 1: return frame(k)[Y() + s.w * y + x + which];
            case 4: return frame(k)[Y() + s.w * (y / 2) + x + which];
            default: return frame(k)[2 * (x + s.w * y) + 1 + 2 * which];
        }
    }

    static int reflect(int v, int size) {
        v = v < 0 ? -v : v;
        return v >= size - 1 ? 2 * size - 4 - v : v;
    }

    // A read outside its plane takes the mirror image in the plane: luma by
    // pixels, chroma (and packed pixels) by whole pairs or samples.
    static int mirror(int v, int n) { return v >= 0 && v < n ? v : reflect(v, n); }
    static int mirrorPair(int byte, int pairs) { return 2 * mirror(byte >> 1, pairs) + (byte & 1); }

    // The rectangle as sized, by column position; pixels past the frame are
    // not written.
    void interior(int t, int x, int y, int w, int h) {
        if (w <= 0 || h <= 0) return;
        const int n = s.n, cw = s.w / 2;
        int f[5];
        const int lumaVector = w & ~7;
        for (int r = 0; r < h && y + r < s.h; ++r)
            for (int c = 0; c < w && x + c < s.w; ++c) {
                for (int k = 0; k < n; ++k) {
                    const int fy = mirror(y + mv(k, t).y + r, s.h);
                    f[k] = s.format == 2 ? lumaAt(k + 1, mirrorPair(((x + mv(k, t).x) & ~1) + c, cw), fy)
                                         : lumaAt(k + 1, mirror(x + mv(k, t).x + c, s.w), fy);
                }
                const int ref = lumaAt(0, x + c, y + r);
                out[static_cast<size_t>(y + r) * s.w + x + c] =
                    c < lumaVector ? blendmodel::vectorLuma(ref, f, n) : blendmodel::tailLuma(ref, f, n);
            }
        for (int r = 0; r <= ((h - 1) & ~1) && y + r < s.h; r += 2)
            for (int c = 0; c < w && x + c < s.w; ++c) {
                int refC = 0;
                const int chromaVector = s.format == 0 ? w & ~15 : w & ~7;
                for (int k = 0; k <= n; ++k) {
                    const int dx = k ? mv(k - 1, t).x : 0, dy = k ? mv(k - 1, t).y : 0;
                    const int fx = k ? (x + dx) & ~1 : x, fy = y + dy;
                    const int row = mirror(fy + r, s.h);
                    int v = 0;
                    switch (s.format) {
                        case 0: v = frame(k)[Y() + (c & 1) * cw * s.h + cw * row + mirror(fx / 2 + c / 2, cw)]; break;
                        case 1: v = frame(k)[Y() + s.w * row + mirrorPair(fx + c, cw)]; break;
                        case 4:
                            v = frame(k)[Y() + s.w * mirror(fy / 2 + r / 2, s.h / 2) + mirrorPair(fx + c, cw)];
                            break;
                        default: v = frame(k)[2 * (mirrorPair(fx + c, cw) + s.w * row) + 1]; break;
                    }
                    (k ? f[k - 1] : refC) = v;
                }
                out[Y() + static_cast<size_t>(s.w) * (y / 2 + r / 2) + x + c] =
                    c < chromaVector ? blendmodel::vectorChroma(refC, f, n) : blendmodel::tableChroma(refC, f, n);
            }
    }

    // Strips are sized from whole tiles, so the last column's may reach past
    // the frame's right edge: pixels there do not exist and are not written.
    void strip(int t, int x0, int y0, int w, int h) {
        const int n = s.n;
        int f[5];
        for (int y = y0; y < std::min(y0 + h, s.h); y += 2)
            for (int x = x0; x < std::min(x0 + w, s.w); x += 2) {
                int px[5], py[5];
                for (int k = 0; k < n; ++k) {
                    px[k] = reflect(x + mv(k, t).x, s.w);
                    py[k] = reflect(y + mv(k, t).y, s.h);
                    if (s.format == 2) px[k] &= ~1;
                }
                for (int j = 0; j < 2; ++j)
                    for (int i = 0; i < 2; ++i) {
                        for (int k = 0; k < n; ++k) f[k] = lumaAt(k + 1, px[k] + i, py[k] + j);
                        out[static_cast<size_t>(y + j) * s.w + x + i] = blendmodel::tableLuma(lumaAt(0, x + i, y + j), f, n);
                    }
                for (int which = 0; which < 2; ++which) {
                    for (int k = 0; k < n; ++k) f[k] = chromaAt(k + 1, px[k] & ~1, py[k], which);
                    out[Y() + static_cast<size_t>(s.w) * (y / 2) + x + which] =
                        blendmodel::tableChroma(chromaAt(0, x, y, which), f, n);
                }
            }
    }

    void tile(int t) {
        const int row = t / 8, col = t % 8, n = s.n;
        int minX = 0, maxX = 0, minY = 0, maxY = 0;
        for (int k = 0; k < n; ++k) {
            minX = k ? std::min(minX, mv(k, t).x) : mv(k, t).x;
            maxX = k ? std::max(maxX, mv(k, t).x) : mv(k, t).x;
            minY = k ? std::min(minY, mv(k, t).y) : mv(k, t).y;
            maxY = k ? std::max(maxY, mv(k, t).y) : mv(k, t).y;
        }
        auto even = [](int v) { return v < 0 ? 0 : v + (v & 1); };
        const int T = even(-minY), B = even(maxY), L = even(-minX), R = even(maxX);
        int y = row * bh, h = bh, x = col * bw, w = bw;
        if (row == 0) y = T, h = bh - T;
        if (row == 7) h = s.h - 7 * bh - B;
        if (col == 0) x = L, w = bw - L;
        if (col == 7) w = s.w - 7 * bw - R;
        interior(t, x, y, w, h);
        const int lastW = s.w - 7 * bw, lastH = s.h - 7 * bh;
        if (t == 0) strip(t, 0, 0, bw, T), strip(t, 0, T, L, bh);
        if (t >= 1 && t <= 6) strip(t, col * bw, 0, bw, T);
        if (t == 7) strip(t, 7 * bw, 0, lastW, T), strip(t, s.w - R, T, R, bh);
        if (row >= 1 && row <= 6 && col == 0) strip(t, 0, row * bh, L, bh);
        if (row >= 1 && row <= 6 && col == 7) strip(t, s.w - R, row * bh, R, bh);
        if (t == 56) strip(t, 0, 7 * bh, L, lastH), strip(t, L, s.h - B, bw, B);
        if (t >= 57 && t <= 62) strip(t, col * bw, s.h - B, bw, B);
        if (t == 63) strip(t, 7 * bw, s.h - B, bw, B), strip(t, s.w - R, 7 * bh, R, lastH);
    }
};

class SimpleFusion : public ::testing::Test {
protected:
    void SetUp() override { saved = {gW, gH, gINFormat, gNum, Y_SIZE}; }
    void TearDown() override {
        gW = saved[0], gH = saved[1], gINFormat = saved[2], Y_SIZE = saved[4];
        blendmodel::setFrameCount(saved[3]);
        for (auto& p : gMergeInput) p = nullptr;
        gMergrOut = nullptr;
    }

    // All tiles, or only `onlyTile`.
    std::vector<uint8_t> fuse(Scene& s, uint8_t fill, int onlyTile = -1) {
        gW = s.w, gH = s.h, gINFormat = s.format, Y_SIZE = s.w * s.h;
        blendmodel::setFrameCount(s.n);
        for (int k = 0; k <= s.n; ++k) gMergeInput[k] = s.frames[k].data();
        for (int k = 0; k < s.n; ++k)
            for (int t = 0; t < 64; ++t) gMergeMV[k][t] = &s.vectors[k][t];
        std::vector<uint8_t> out(s.outBytes(), fill);
        gMergrOut = out.data();
        for (int t = 0; t < 64; ++t)
            if (onlyTile < 0 || t == onlyTile) simpleFusion(t);
        return out;
    }

    static std::vector<uint8_t> model(const Scene& s, uint8_t fill) {
        Model m(s, fill);
        for (int t = 0; t < 64; ++t) m.tile(t);
        return m.out;
    }

    static void expectSame(const std::vector<uint8_t>& got, const std::vector<uint8_t>& want, const Scene& s) {
        ASSERT_EQ(got.size(), want.size());
        for (size_t i = 0; i < got.size(); ++i) {
            const bool luma = i < static_cast<size_t>(s.w) * s.h;
            const size_t j = luma ? i : i - static_cast<size_t>(s.w) * s.h;
            ASSERT_EQ(got[i], want[i]) << (luma ? "luma" : "chroma") << " row " << j / s.w << " col " << j % s.w
                                       << " format " << s.format << " n " << s.n << " size " << s.w << "x" << s.h;
        }
    }

    std::array<int, 5> saved{};
};

// Every byte is compared; a second run over a different background shows
// that every byte is written.
TEST_F(SimpleFusion, EveryLayoutMatchesTheTileModel) {
    struct Case {
        int w, h, format, n, reach;
        uint32_t seed;
    };
    std::vector<Case> cases;
    for (int format : {0, 1, 2, 4}) {
        for (int n : {1, 2, 3, 5}) cases.push_back({80, 48, format, n, 3, static_cast<uint32_t>(format * 10 + n)});
        cases.push_back({64, 32, format, 2, 0, 5});  // zero vectors: no strips
    }
    cases.push_back({1000, 16, 4, 2, 2, 11});  // tiles 126 wide, the last 1000 - 882 - R
    cases.push_back({1000, 16, 4, 2, 2, 1042});  // a bottom strip of tile 63 that reaches past the right edge
    // Seven tiles already pass the edge (66, 68: 7 x 10; 82: 7 x 12): tile 6
    // reaches past the frame, tile 7 is empty, and vectors move copies out.
    for (int format : {0, 1, 2, 4}) {
        cases.push_back({66, 68, format, 3, 5, static_cast<uint32_t>(66 + format)});
        cases.push_back({82, 66, format, 2, 7, static_cast<uint32_t>(82 + format)});
    }
    cases.push_back({68, 82, 4, 5, 6, 68});
    cases.push_back({130, 64, 0, 2, 8, 130});  // tile 6 moved out by 8 of its 16-column chroma step
    for (const Case& c : cases) {
        Scene s = makeScene(c.w, c.h, c.format, c.n, c.reach, c.seed);
        if (c.w == 1000) {  // tile 0 shifted left: a 4-column reflected margin
            s.vectors[0][0] = MV1{-3, 0, {}, 0.0};
            s.vectors[1][0] = MV1{1, 0, {}, 0.0};
        }
        if (c.w == 130) s.vectors[0][6] = MV1{8, -3, {}, 0.0};
        auto got = fuse(s, 0xEE);
        expectSame(got, model(s, 0xEE), s);
        EXPECT_EQ(got, fuse(s, 0x11)) << c.format << " " << c.w << "x" << c.h;
    }
}

TEST_F(SimpleFusion, UnknownLayoutPrintsAndLeavesInteriorUnwritten) {
    Scene s = makeScene(64, 32, 4, 2, 0, 3);
    s.format = 3;
    testing::internal::CaptureStdout();
    auto got = fuse(s, 0x42, 9);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "error input format\n");
    for (uint8_t v : got) ASSERT_EQ(v, 0x42);
}

// Packed strip of tile 0 shifted by -3, one other frame whose odd pixels
// have luma 120: group (0, 0) reads frame pixels 2 and 3 (the pair-aligned
// column, as the interior does), so the table rule gives 100 (d = 0) and
// 120 (|d| = 20 > 16: the frame alone); column 3 and 4 would swap them.
TEST_F(SimpleFusion, PackedStripReadsLumaFromThePairAlignedColumn) {
    Scene s = makeScene(64, 32, 2, 1, 0, 8);
    for (auto& f : s.frames) f.assign(s.frameBytes(), 100);
    for (size_t i = 2; i < s.frameBytes(); i += 4) s.frames[1][i] = 120;
    s.vectors[0][0] = MV1{-3, 0, {}, 0.0};
    const auto got = fuse(s, 0, 0);
    EXPECT_EQ(got[0], 100);
    EXPECT_EQ(got[1], 120);
}

// Tiles wider than a tiny frame, and vectors far larger than the tiles, must
// not read outside the frames: such tiles are blended on mirrored copies.
TEST_F(SimpleFusion, HugeVectorsOnTinyFramesStayInside) {
    for (int format : {0, 1, 2, 4}) {
        for (auto [w, h] : {std::pair{16, 16}, {18, 10}, {17, 13}, {2, 2}, {1, 4}}) {
            for (int reach : {0, 40}) {
                Scene s = makeScene(w, h, format, 3, reach, static_cast<uint32_t>(w * h + format));
                auto got = fuse(s, 0xEE);
                EXPECT_EQ(got, fuse(s, 0xEE)) << format << " " << w << "x" << h;
            }
        }
    }
}

}  // namespace
