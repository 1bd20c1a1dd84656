// TRV_FuseBurst on fuzzer-chosen bursts: 1 to 6 frames (and counts outside
// that), sides of 60 to 160, every format code, the output capacity, and the
// content: one scene seen through per-frame shifts, brightness changes and
// smears, with the fuzzer's bytes painted over it, or flat, or noise. Every
// frame and the output are allocated to their exact size.
// Checked: a refusal writes nothing; an accepted burst fills the output the
// same whatever it held before, and its report stays in range.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "fuzz_support.h"
#include "support/layouts.h"
#include "trv/trv.h"

namespace {

using trvfuzz::Bytes;
using trvtest::Planes422;

constexpr int kMargin = 16;          // largest shift of a frame against the scene
constexpr int kMaxSide = 160;
constexpr int kCanvas = kMaxSide + 2 * kMargin;

// Textured scenes are slow to draw; a few are drawn once and reused.
const Planes422& scene(int which) {
    static std::array<Planes422, 3> scenes;
    Planes422& s = scenes[which];
    if (s.y.empty()) s = trvtest::texturedPlanes(kCanvas, kCanvas, 11u + 7u * which);
    return s;
}

enum Scene { kTextured0, kTextured1, kTextured2, kFlat, kNoise };

Planes422 makeScene(Scene kind, uint32_t noiseSeed) {
    if (kind <= kTextured2) return scene(kind);
    if (kind == kNoise) return trvtest::randomPlanes(kCanvas, kCanvas, noiseSeed);
    Planes422 flat;
    flat.w = flat.h = kCanvas;
    flat.y.assign(static_cast<size_t>(kCanvas) * kCanvas, 90);
    flat.first.assign(flat.y.size() / 2, 120);
    flat.second.assign(flat.y.size() / 2, 136);
    return flat;
}

// The w x h window at (x0, y0); any x0, the chroma following at x0 / 2.
Planes422 window(const Planes422& s, int x0, int y0, int w, int h) {
    Planes422 p;
    p.w = w;
    p.h = h;
    for (int r = 0; r < h; ++r) {
        const size_t luma = static_cast<size_t>(y0 + r) * s.w + x0;
        const size_t chroma = static_cast<size_t>(y0 + r) * (s.w / 2) + x0 / 2;
        p.y.insert(p.y.end(), s.y.begin() + luma, s.y.begin() + luma + w);
        p.first.insert(p.first.end(), s.first.begin() + chroma, s.first.begin() + chroma + w / 2);
        p.second.insert(p.second.end(), s.second.begin() + chroma, s.second.begin() + chroma + w / 2);
    }
    return p;
}

void brighten(Planes422& p, int delta) {
    for (uint8_t& v : p.y) v = static_cast<uint8_t>(std::clamp(v + delta, 0, 255));
}

// Horizontal box blur of the luma, `radius` pixels either side.
void smear(Planes422& p, int radius) {
    if (radius == 0) return;
    const Bytes source = p.y;
    for (int r = 0; r < p.h; ++r)
        for (int x = 0; x < p.w; ++x) {
            int sum = 0;
            for (int k = -radius; k <= radius; ++k) sum += source[r * p.w + std::clamp(x + k, 0, p.w - 1)];
            p.y[r * p.w + x] = static_cast<uint8_t>(sum / (2 * radius + 1));
        }
}

size_t frameBytes(int code, int w, int h) {
    const size_t pixels = static_cast<size_t>(w) * static_cast<size_t>(h);
    return code == 4 ? pixels * 3 / 2 : pixels * 2;
}

// What a caller may get wrong; each of these must be refused.
enum Fault { kNone, kNullFrame, kNullData, kOtherSize, kOddWidth, kOddHeight, kBadCount, kNullOutput, kFaults };

void checkReport(const _tag_TRV_FUSE_REPORT& r, int picNum, int w, int h) {
    FUZZ_REQUIRE(r.reference >= 0 && r.reference < picNum);
    FUZZ_REQUIRE(r.swappedReference == 0 || r.swappedReference == 1);
    FUZZ_REQUIRE(r.framesFused >= 1 && r.framesFused <= picNum);
    FUZZ_REQUIRE(r.frameOrder[0] == r.reference && r.vectorX[0] == 0 && r.vectorY[0] == 0);
    for (int k = 0; k < r.framesFused; ++k) FUZZ_REQUIRE(r.frameOrder[k] >= 0 && r.frameOrder[k] < picNum);
    for (int i = 0; i < TRV_MAX_FRAMES; ++i) {
        FUZZ_REQUIRE(r.frameFate[i] >= TRV_FRAME_FUSED && r.frameFate[i] <= TRV_FRAME_UNUSED);
        if (i >= picNum)
            FUZZ_REQUIRE(r.frameFate[i] == 0 && r.frameOrder[i] == 0 && r.vectorX[i] == 0 && r.vectorY[i] == 0);
    }
    FUZZ_REQUIRE(r.level >= 0 && r.level <= 3);
    const int64_t samples = static_cast<int64_t>((w + 7) / 8) * ((h + 7) / 8);
    FUZZ_REQUIRE(r.meanLuma >= 0 && r.meanLuma <= 255 * samples / ((w / 8) * (h / 8)));
    FUZZ_REQUIRE(!std::isnan(r.sharpnessRatio) && r.sharpnessRatio >= 0.0f && r.sharpnessRatio <= 1.0f);
    if (picNum == 1) FUZZ_REQUIRE(r.sharpnessRatio == 0.0f);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    static const int kCodes[] = {4, 0, 1, 2, 3, 5, 6};
    const int code = kCodes[in.ConsumeIntegralInRange(0, 6)];
    const int outCode = in.ConsumeBool() ? in.ConsumeIntegralInRange(0, 6) : 4;
    int count = in.ConsumeIntegralInRange(1, TRV_MAX_FRAMES);
    int w = 2 * in.ConsumeIntegralInRange(30, kMaxSide / 2);
    int h = 2 * in.ConsumeIntegralInRange(30, kMaxSide / 2);
    const int faultPick = in.ConsumeIntegralInRange(0, 4 * kFaults - 1);  // mostly none
    const Fault fault = faultPick < kFaults ? static_cast<Fault>(faultPick) : kNone;
    if (fault == kOddWidth) --w;
    if (fault == kOddHeight) --h;
    const int faultyFrame = in.ConsumeIntegralInRange(0, count - 1);
    const size_t capacity = trvfuzz::claimedCapacity(in, frameBytes(4, w, h));
    const Scene kind = static_cast<Scene>(in.ConsumeIntegralInRange(0, 4));
    const Planes422 canvas = makeScene(kind, in.ConsumeIntegral<uint32_t>());

    std::array<Bytes, TRV_MAX_FRAMES> frames;
    std::array<__tag_TRV_OFFSCREEN, TRV_MAX_FRAMES> pics{};
    _tag_TRV_INPUTINFO burst{};
    for (int i = 0; i < count; ++i) {
        const int dx = trvfuzz::smallSigned(in, kMargin), dy = trvfuzz::smallSigned(in, kMargin);
        Planes422 p = window(canvas, kMargin + dx, kMargin + dy, w & ~1, h & ~1);
        brighten(p, trvfuzz::smallSigned(in, 40));
        smear(p, in.ConsumeIntegralInRange(0, 3));
        frames[i] = trvtest::toLayout(p, code == 0 || code == 1 || code == 2 ? code : 4);
        frames[i].resize(frameBytes(code, w, h));  // exactly the bytes the layout needs
        pics[i] = {0, w, h, frames[i].data()};
        burst.pics[i] = &pics[i];
    }
    // The fuzzer's bytes overwrite the start of the first frame.
    const Bytes paint = in.ConsumeRemainingBytes<uint8_t>();
    std::copy_n(paint.begin(), std::min(paint.size(), frames[0].size()), frames[0].begin());
    burst.picNum = count;
    if (fault == kNullFrame) burst.pics[faultyFrame] = nullptr;
    if (fault == kNullData) pics[faultyFrame].data = nullptr;
    if (fault == kOtherSize && count > 1) pics[faultyFrame == 0 ? 1 : faultyFrame].width += 2;
    if (fault == kBadCount) burst.picNum = count == 1 ? 0 : TRV_MAX_FRAMES + 1;

    _tag_TRV_PARAM param{};
    TRV_GetDefaultParam(&param);
    param.inputFormat = code;
    param.outputFormat = outCode;
    const bool mustRefuse = (fault != kNone && !(fault == kOtherSize && count == 1)) || code == 3 || code >= 5 ||
                            outCode != 4 || capacity < frameBytes(4, w, h) || w < 64 || h < 64;

    // Two runs over outputs of different old content must agree byte for
    // byte, and leave the bytes past the frame as they were.
    Bytes results[2];
    for (int run = 0; run < 2; ++run) {
        const uint8_t fill = run == 0 ? 0x00 : 0xFF;
        Bytes output = trvfuzz::exactBuffer(capacity, fill);
        const Bytes before = output;
        __tag_TRV_OFFSCREEN out{0, 0, 0, fault == kNullOutput ? nullptr : output.data()};
        _tag_TRV_FUSE_REPORT report;
        std::memset(&report, 0x5A, sizeof report);
        const int32_t status = TRV_FuseBurst(&burst, &param, &out, capacity, &report);
        if (mustRefuse) FUZZ_REQUIRE(status != TRV_FUSE_OK);
        if (status != TRV_FUSE_OK) {
            FUZZ_REQUIRE(output == before && out.width == 0 && out.height == 0);
            const unsigned char* r = reinterpret_cast<const unsigned char*>(&report);
            FUZZ_REQUIRE(std::all_of(r, r + sizeof report, [](unsigned char c) { return c == 0x5A; }));
            return 0;
        }
        FUZZ_REQUIRE(out.width == w && out.height == h);
        checkReport(report, count, w, h);
        const size_t written = frameBytes(4, w, h);
        FUZZ_REQUIRE(std::all_of(output.begin() + written, output.end(), [&](uint8_t v) { return v == fill; }));
        output.resize(written);
        results[run] = std::move(output);
    }
    FUZZ_REQUIRE(results[0] == results[1]);
    return 0;
}
