// Simple fusion of one tile: the interior through the vector kernels, the
// strips along the image border, which a displaced tile would read from
// outside the frame, through a scalar loop with reflected reads.
#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "common/arith.h"
#include "fusion/blend_copies.h"
#include "fusion/blend_rules.h"
#include "fusion/merge_geometry.h"
#include "trv/stages.h"

namespace {

using trv::alignedFrameCount;
using trv::kMaxAlignedFrames;

// Tile side: an eighth of the frame side, rounded up, then up to even.
int tileSide(int frameSide) {
    const int side = (frameSide + 7) / 8;
    return side + (side & 1);
}

int raisedToEven(int v) { return v + (v & 1); }

struct Rect {
    int x, y, w, h;
};

// How far the tile's vectors reach outside the frame on each side.
struct Margins {
    int top = 0, bottom = 0, left = 0, right = 0;
};

Margins marginsOf(int b, int n, int tileHeight) {
    Margins m;
    if (n < 1) return m;
    int minX = gMergeMV[0][b]->x, maxX = minX, minY = gMergeMV[0][b]->y, maxY = minY;
    for (int k = 1; k < n; ++k) {
        const MV1* v = gMergeMV[k][b];
        minX = v->x < minX ? v->x : minX;
        maxX = v->x > maxX ? v->x : maxX;
        minY = v->y < minY ? v->y : minY;
        maxY = v->y > maxY ? v->y : maxY;
    }
    // Vertical margins larger than a tile (vectors beyond any real motion, or
    // tiny frames) are cut to the tile height, so that a band's strips reach
    // no further than the next band, which never runs at the same time.
    m.top = std::min(raisedToEven(-minY > 0 ? -minY : 0), tileHeight);
    m.bottom = std::min(raisedToEven(maxY > 0 ? maxY : 0), tileHeight);
    m.left = raisedToEven(-minX > 0 ? -minX : 0);
    m.right = raisedToEven(maxX > 0 ? maxX : 0);
    return m;
}

// Where luma and chroma of a pixel lie in each input layout. Chroma is read
// from the pair that holds the pixel, clamped to the last whole pair of a row
// and to the last chroma row, so that odd frame sizes stay inside the frame.
struct LayoutReader {
    int format;

    uint8_t luma(const uint8_t* base, int col, int row) const {
        col = col < gW ? col : gW - 1;
        row = row < gH ? row : gH - 1;
        if (format == 2) return base[2 * (static_cast<ptrdiff_t>(gW) * row + col)];
        return base[static_cast<ptrdiff_t>(gW) * row + col];
    }

    // Packed frames are addressed from their even pixel, luma too ("the same
    // address rules as the interior"), so that chroma keeps its phase.
    int groupColumn(int px) const { return format == 2 ? px & ~1 : px; }

    uint8_t chroma(const uint8_t* base, int col, int row, int which) const {
        const ptrdiff_t W = gW, lumaSize = W * gH;
        const int pair = trv::clampInt(col & ~1, 0, (gW & ~1) - 2);
        switch (format) {
            case 0: return base[lumaSize + which * (W / 2) * gH + (W / 2) * row + pair / 2];
            case 1: return base[lumaSize + W * row + pair + which];
            case 4: {
                const int chromaRow = trv::clampInt(row / 2, 0, gH / 2 - 1);
                return base[lumaSize + W * chromaRow + pair + which];
            }
            default: return base[2 * (W * row + pair) + 1 + 2 * which];
        }
    }
};

bool knownLayout(int format) { return format == 0 || format == 1 || format == 2 || format == 4; }

// The scalar rule over 2 x 2 groups with reflected frame positions.
void blendReflected(const LayoutReader& layout, int x0, int y0, int w, int h, int b) {
    const int n = alignedFrameCount();
    const uint8_t* ref = gMergeInput[0];
    uint8_t* outLuma = gMergrOut;
    uint8_t* outChroma = gMergrOut + static_cast<ptrdiff_t>(gW) * gH;
    // The chroma pairs wanted by the groups have no sample beyond a frame
    // narrower than one pair.
    const bool haveChroma = gW >= 2 && gH >= 2;
    for (int y = y0; y < y0 + h; y += 2) {
        for (int x = x0; x < x0 + w; x += 2) {
            int px[kMaxAlignedFrames], py[kMaxAlignedFrames];
            for (int k = 0; k < n; ++k) {
                px[k] = trv::reflectInto(x + gMergeMV[k][b]->x, gW);
                py[k] = trv::reflectInto(y + gMergeMV[k][b]->y, gH);
            }
            int f[kMaxAlignedFrames];
            // "decided by itself with the scalar rule": the table rule for every N, no pair mean for N = 1.
            for (int j = 0; j < 2; ++j) {
                for (int i = 0; i < 2; ++i) {
                    const int col = x + i, row = y + j;
                    if (col < 0 || row < 0 || col >= gW || row >= gH) continue;
                    for (int k = 0; k < n; ++k)
                        f[k] = layout.luma(gMergeInput[k + 1], layout.groupColumn(px[k]) + i, py[k] + j);
                    outLuma[static_cast<ptrdiff_t>(gW) * row + col] = trv::lumaByTable(layout.luma(ref, col, row), f, n);
                }
            }
            // The group's chroma pair in output row y / 2.
            if (!haveChroma || x < 0 || y < 0 || y / 2 >= gH / 2) continue;
            const int pairCol = x & ~1;
            for (int which = 0; which < 2 && pairCol + which < gW; ++which) {
                for (int k = 0; k < n; ++k) f[k] = layout.chroma(gMergeInput[k + 1], px[k], py[k], which);
                outChroma[static_cast<ptrdiff_t>(gW) * (y / 2) + pairCol + which] =
                    trv::chromaByTable(layout.chroma(ref, x, y, which), f, n);
            }
        }
    }
}

// True when every frame's displaced copy of the rectangle lies inside it.
bool displacedInside(const Rect& r, int b, int n) {
    for (int k = 0; k < n; ++k) {
        const int x = r.x + gMergeMV[k][b]->x, y = r.y + gMergeMV[k][b]->y;
        if (x < 0 || y < 0 || x + r.w > gW || y + r.h > gH) return false;
    }
    return true;
}

// Luma rows from the top of r whose output chroma row exists and whose frame
// chroma rows (4:2:0) stay inside the frames: all of them unless the frame
// height is odd.
int rowsWithChroma(const Rect& r, int b, int n) {
    const int evenH = gH & ~1;
    int rows = evenH - r.y;
    for (int k = 0; k < n; ++k) {
        const int y = r.y + gMergeMV[k][b]->y;
        if (evenH - y < rows) rows = evenH - y;
    }
    return trv::clampInt(rows, 0, r.h);
}

void blendPlanarInterior(const Rect& r, int b, int n) {
    const ptrdiff_t W = gW, lumaSize = W * gH;
    const int cx = gINFormat == 0 ? 2 : 1, cy = gINFormat == 4 ? 2 : 1;
    const ptrdiff_t chromaStride = W / cx;
    unsigned char* lumaFrames[kMaxAlignedFrames];
    unsigned char* chromaFrames[kMaxAlignedFrames];
    for (int k = 0; k < n; ++k) {
        const int x = r.x + gMergeMV[k][b]->x, y = r.y + gMergeMV[k][b]->y;
        lumaFrames[k] = gMergeInput[k + 1] + W * y + x;
        chromaFrames[k] = gMergeInput[k + 1] + lumaSize + chromaStride * (y / cy) + (x & ~1) / cx;
    }
    mergeBlk_Y_neon(gMergeInput[0] + W * r.y + r.x, lumaFrames, gMergrOut + W * r.y + r.x, r.w, r.h);
    mergeBlk_uv_neon(gMergeInput[0] + lumaSize + chromaStride * (r.y / cy) + r.x / cx, chromaFrames,
                     gMergrOut + lumaSize + W * (r.y / 2) + r.x, r.w, rowsWithChroma(r, b, n));
}

void blendPackedInterior(const Rect& r, int b, int n, const LayoutReader& layout) {
    const ptrdiff_t W = gW;
    unsigned char* frames[kMaxAlignedFrames];
    for (int k = 0; k < n; ++k) {
        const int x = r.x + gMergeMV[k][b]->x, y = r.y + gMergeMV[k][b]->y;
        frames[k] = gMergeInput[k + 1] + 2 * ((x & ~1) + W * y);
    }
    // The packed kernel writes chroma with every even row; a last odd frame
    // row has no output chroma row and goes through the scalar path.
    const int rows = gH & 1 ? rowsWithChroma(r, b, 0) : r.h;
    mergeBlk_YUV_neon_YUYV(gMergeInput[0] + 2 * (r.x + W * r.y), frames, gMergrOut + r.x + W * r.y,
                           gMergrOut + Y_SIZE + W * (r.y >> 1) + r.x, r.w, rows);
    if (rows < r.h) blendReflected(layout, r.x, r.y + rows, r.w, r.h - rows, b);
}

bool insideFrame(const Rect& r) { return r.x >= 0 && r.y >= 0 && r.x + r.w <= gW && r.y + r.h <= gH; }

void blendInterior(const Rect& r, int b, int n) {
    if (r.w <= 0 || r.h <= 0) return;
    // Seven tiles can already pass the frame's edge, and large vectors move
    // an inner tile's copies out of the frames: such a rectangle is blended
    // on copies, so that nothing outside the frames is read or written.
    if (!insideFrame(r) || !displacedInside(r, b, n)) {
        trv::blendThroughCopies(r.x, r.y, r.w, r.h, b, n);
        return;
    }
    if (gINFormat == 2) {
        blendPackedInterior(r, b, n, LayoutReader{gINFormat});
    } else {
        blendPlanarInterior(r, b, n);
    }
}

// Interior of tile b: the tile less the border margins of border tiles. It
// keeps the size the tile grid gives it, which blendInterior() needs for the
// kernels' column rules: where seven tiles pass the frame's edge, tiles of
// column (row) 6 reach past the frame and those of column (row) 7 come out
// empty or negative; blendInterior() clips the former and skips the latter.
Rect interiorOf(int b, int bw, int bh, const Margins& m) {
    const int row = b / 8, col = b % 8;
    Rect r{col * bw, row * bh, bw, bh};
    if (row == 0) {
        r.y = m.top;
        r.h = bh - m.top;
    } else if (row == 7) {
        r.h = gH - 7 * bh - m.bottom;
    }
    if (col == 0) {
        r.x = m.left;
        r.w = bw - m.left;
    } else if (col == 7) {
        r.w = gW - 7 * bw - m.right;
    }
    return r;
}

void blendBorderStrips(int b, int bw, int bh, const Margins& m) {
    const int row = b / 8, col = b % 8;
    const int lastW = gW - 7 * bw, lastH = gH - 7 * bh;
    // Strips are sized from the full tile, not from its shortened interior,
    // and overlap the next tile consistently.
    if (row == 0) simpleFusion_boundy(col * bw, 0, col == 7 ? lastW : bw, m.top, b);
    if (b == 0) simpleFusion_boundy(0, m.top, m.left, bh, b);
    if (b == 7) simpleFusion_boundy(gW - m.right, m.top, m.right, bh, b);
    if (row >= 1 && row <= 6 && col == 0) simpleFusion_boundy(0, row * bh, m.left, bh, b);
    if (row >= 1 && row <= 6 && col == 7) simpleFusion_boundy(gW - m.right, row * bh, m.right, bh, b);
    if (b == 56) {
        simpleFusion_boundy(0, 7 * bh, m.left, lastH, b);
        simpleFusion_boundy(m.left, gH - m.bottom, bw, m.bottom, b);
    }
    if (row == 7 && col >= 1 && col <= 6) simpleFusion_boundy(col * bw, gH - m.bottom, bw, m.bottom, b);
    if (b == 63) {
        simpleFusion_boundy(7 * bw, gH - m.bottom, bw, m.bottom, b);
        simpleFusion_boundy(gW - m.right, 7 * bh, m.right, lastH, b);
    }
}

}  // namespace

extern "C" {

void simpleFusion(int b) {
    if (b < 0 || b > 63 || gW <= 0 || gH <= 0) return;
    const int n = alignedFrameCount();
    const int bw = tileSide(gW), bh = tileSide(gH);
    const Margins m = marginsOf(b, n, bh);
    if (knownLayout(gINFormat)) {
        blendInterior(interiorOf(b, bw, bh, m), b, n);
    } else {
        puts("error input format");
    }
    blendBorderStrips(b, bw, bh, m);
}

void simpleFusion_boundy(int x0, int y0, int w, int h, int b) {
    if (!knownLayout(gINFormat) || b < 0 || b > 63) return;
    blendReflected(LayoutReader{gINFormat}, x0, y0, w, h, b);
}

}  // extern "C"
