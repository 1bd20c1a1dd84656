// Independent layout conversions for tests: a frame described by its planes
// (luma W x H, two chroma planes W/2 x H) written into every input layout,
// and the 4:2:0 semi-planar frame the pipeline is expected to produce from it.
#pragma once

#include <cstdint>
#include <vector>

namespace trvtest {

struct Planes422 {
    int w = 0, h = 0;
    std::vector<uint8_t> y;       // w x h
    std::vector<uint8_t> first;   // (w / 2) x h, the chroma sample stored first
    std::vector<uint8_t> second;  // (w / 2) x h
};

Planes422 randomPlanes(int w, int h, uint32_t seed);

// Planes of the natural-looking texture of texturedPlane (seeds seed,
// seed + 1, seed + 2 for luma, first and second chroma).
Planes422 texturedPlanes(int w, int h, uint32_t seed);

// The w x h window of `canvas` whose top-left is (x0, y0); x0 even, so that
// the window's chroma pairs are the canvas's.
Planes422 cropPlanes(const Planes422& canvas, int x0, int y0, int w, int h);

// `p` moved by (mx, my) pixels, edge samples repeated.
Planes422 shifted(const Planes422& p, int mx, int my);

// `count` frames of one scene (textured luma, random chroma), each with its
// own luma noise of up to 6 levels; with a reach, every frame after the
// first moved by up to that many pixels.
std::vector<Planes422> noisyScene(int count, int w, int h, uint32_t seed, int reach = 0);

// The frame in input layout `code` (0, 1, 2 or 4), as a caller would pass
// it; empty for other codes. The second form converts every frame.
std::vector<uint8_t> toLayout(const Planes422& p, int code);
std::vector<std::vector<uint8_t>> toLayout(const std::vector<Planes422>& planes, int code);

// 4:2:0 semi-planar: the luma plane, then for each even row one interleaved
// pair (first, second) per 2 pixels.
std::vector<uint8_t> toSemiPlanar420(const Planes422& p);

}  // namespace trvtest
