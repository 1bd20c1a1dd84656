// Pinned results: fixed inputs through the whole burst pipeline and the
// stand-alone operations, checked against checksums recorded once. The same
// binary runs on x86-64, armv7 and aarch64, so a result that differs on any
// CPU (a fused multiply-add, a lane-order slip, a platform rounding) fails
// there.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "pipeline/driver.h"
#include "support/burst.h"
#include "support/restore.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

constexpr int kW = 320, kH = 240, kPad = 8;

// FNV-1a, 64-bit: a plain, portable checksum of a byte buffer.
uint64_t checksum(const std::vector<uint8_t>& bytes) {
    uint64_t h = 0xcbf29ce484222325ull;
    for (uint8_t b : bytes) h = (h ^ b) * 0x100000001b3ull;
    return h;
}

// Frame k of a handheld burst: a crop of a larger textured scene at its own
// even offset (on the search grid of this frame size, so screening keeps the
// frames; and chroma pairs stay whole), with noise of its own.
trvtest::Planes422 burstFrame(int k) {
    static const int kOffsets[6][2] = {{0, 0}, {4, -2}, {-6, 4}, {2, 6}, {-4, -6}, {8, 2}};
    static const trvtest::Planes422 scene = [] {
        trvtest::Planes422 s = trvtest::texturedPlanes(kW + 2 * kPad, kH + 2 * kPad, 11);
        std::swap(s.first, s.second);  // V (seed 13) stored first, as in NV21
        return s;
    }();
    trvtest::Planes422 p = trvtest::cropPlanes(scene, kPad + kOffsets[k][0], kPad + kOffsets[k][1], kW, kH);
    trvtest::Rng rng(100u + static_cast<uint32_t>(k));
    for (auto& v : p.y) v = static_cast<uint8_t>(std::clamp(v / 2 + rng.uniform(-3, 3), 0, 255));  // a dim scene
    return p;
}

// The burst's result for every input layout, delivered whatever the code.
std::vector<uint8_t> fuse(int frames, int format) {
    std::vector<trvtest::Planes422> planes;
    for (int k = 0; k < frames; ++k) planes.push_back(burstFrame(k));
    trvtest::Burst burst(planes, format, 0);
    trv::enhanceBurst(&burst.in, &burst.out, &burst.param, burst.result.data(), nullptr);
    return burst.result;
}

TEST(Golden, BurstFusionGivesTheSameBytesOnEveryCpu) {
    struct Case {
        int frames, format;
        uint64_t expected;
    };
    const Case cases[] = {
        {6, 4, 0x31e8fe6d8fd88243ull}, {4, 4, 0x4fea116ab83a2685ull}, {2, 4, 0x610b5ee29169742dull},
        {6, 0, 0xade9fb9296ca409bull}, {6, 1, 0x0c6a0cfb82c3b50eull}, {6, 2, 0x2b77bdbd5485c003ull},
    };
    for (const Case& c : cases) {
        const uint64_t got = checksum(fuse(c.frames, c.format));
        EXPECT_EQ(got, c.expected) << std::hex << "frames " << c.frames << " format " << c.format << " got 0x" << got;
    }
    // The pipeline keeps its working buffers from burst to burst. The packed
    // burst above read past its quarter images, where the planar burst before
    // it wrote images of its own: fresh buffers give the same bytes.
    TRV_Uninit();
    EXPECT_EQ(checksum(fuse(6, 2)), cases[5].expected);
}

// The stand-alone operations keep float and fixed-point recursions that are
// easy to perturb by a last bit: pin each once.
TEST(Golden, StandaloneOperationsGiveTheSameBytesOnEveryCpu) {
    const trvtest::Planes422 frame = burstFrame(0);
    std::vector<uint8_t> nv21 = trvtest::toSemiPlanar420(frame);
    gW = kW, gH = kH, gOUTFormat = 4;

    const trvtest::Restore<decltype(gTHTable)> keepFloor(gTHTable);
    std::memset(gTHTable, 0, sizeof gTHTable);

    std::vector<uint8_t> blurred(static_cast<size_t>(kW) * kH, 0);
    MultiBlur(nv21.data(), blurred.data(), kW, kH);
    EXPECT_EQ(checksum(blurred), 0x375e5a125744eb29ull) << std::hex << "MultiBlur 0x" << checksum(blurred);

    std::vector<uint8_t> retinex = nv21;
    MSR(retinex.data(), kW, kH);
    EXPECT_EQ(checksum(retinex), 0xdcc1485d04661decull) << std::hex << "MSR 0x" << checksum(retinex);

    createTHTable();
    for (int id : {1, 2, 3}) {
        std::vector<uint8_t> toned(nv21.size(), 0);
        xImgEnhance_YCrCb(nv21.data(), toned.data(), kW, kH, id, 50);
        const uint64_t expected[] = {0xc4c77beb7ce8f6f8ull, 0xbf5e2bfd6befec76ull, 0x7daac83e007c7725ull};
        EXPECT_EQ(checksum(toned), expected[id - 1]) << std::hex << "tone id " << id << " 0x" << checksum(toned);
    }
}

}  // namespace
