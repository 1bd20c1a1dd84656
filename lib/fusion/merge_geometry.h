// Geometry shared by the merging of one tile and the strict merge: the
// mirror at the image edge and the tile's block grid.
#pragma once

#include <cstdint>

namespace trv {

// Mirrors a coordinate into 0 .. n - 2: v' = |v|, and v' >= n - 1 becomes
// 2n - 4 - v' (n - 1 lands on n - 3), so that v' + 1 is still inside. On
// frames too small for one mirror (the result would stay negative) the
// coordinate is clamped as a last resort; every other result is unchanged.
inline int32_t reflectInto(int32_t v, int32_t n) {
    int32_t r = v < 0 ? -v : v;
    if (r >= n - 1) r = 2 * n - 4 - r;
    if (r > n - 2) r = n - 2;
    if (r < 0) r = 0;
    return r;
}

// Block grid of one of the 8 x 8 tiles of a W x H frame.
struct TileGeometry {
    int32_t tileW, tileH;  // even tile pitch
    int32_t x0, x1, y0, y1;  // the tile's own pixels: [x0, x1) x [y0, y1)
    int32_t block;           // block size S, even
    int32_t cols, rows;      // grid columns (one ring block on each side) and rows
    int32_t margin;          // feathered margin M around a moving block, even
};

inline int32_t roundUpToEven(int32_t v) { return v + (v & 1); }

inline TileGeometry tileGeometry(int32_t tile, int32_t W, int32_t H) {
    TileGeometry g{};
    g.tileW = roundUpToEven((W + 7) / 8);
    g.tileH = roundUpToEven((H + 7) / 8);
    const int32_t col = tile % 8, row = tile / 8;
    g.x0 = g.tileW * col;
    g.x1 = g.tileW * (col + 1) < W ? g.tileW * (col + 1) : W;
    g.y0 = g.tileH * row;
    g.y1 = g.y0 + g.tileH < H ? g.y0 + g.tileH : H;
    const bool wide = g.tileW >= 100;
    const int32_t across = wide ? 12 : 6;
    g.block = roundUpToEven((g.tileW + across - 1) / across);
    g.cols = wide ? 14 : 8;
    // A frame less than one pixel wide or high gives block 0; a block of 2
    // keeps the grid defined.
    if (g.block < 2) g.block = 2;
    g.rows = g.tileH / g.block + 2 + (g.tileH % g.block != 0 ? 1 : 0);
    g.margin = g.block / 2;
    g.margin -= g.margin & 1;
    return g;
}

}  // namespace trv
