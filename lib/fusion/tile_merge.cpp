// Merging of one tile: classify its blocks, clean the block map, fuse the
// whole tile by the simple rule, then (in scenes of normal luminance) merge
// the moving blocks again by the strict rule, feathered into their static
// neighbours.
#include <cstddef>

#include "common/arith.h"
#include "common/small_buffer.h"
#include "fusion/blend_rules.h"
#include "fusion/block_classify.h"
#include "fusion/merge_geometry.h"
#include "fusion/strict_merge.h"
#include "trv/stages.h"

namespace {

using trv::TileGeometry;


// Block maps up to this many cells (grids of frames up to a few thousand
// rows high) stay on the stack.
constexpr size_t kInlineCells = 512;

// How far the strict merge of a tile may write into its neighbours.
constexpr int kApron = 4;
// Feather step: the share of the simple-fusion result kept drops by 2/16 per
// quad from 7/16 at a margin's outer edge.
constexpr float kFeatherStep = 0.0625f;

float ramp(int distanceFromOuterEdge) {
    return distanceFromOuterEdge < 8 ? static_cast<float>(7 - distanceFromOuterEdge) * kFeatherStep : 0.0f;
}

// Quads handed to the strict merge at a time, from one row.
constexpr int kRowChunk = 64;

struct StrictPass {
    const TileGeometry& g;
    const trv::StrictTile& strict;

    // Share of the simple-fusion output kept for the quad at (x, y) around
    // the block at (bx, by): the ramp of the margin it lies in, the larger
    // of the two in a corner, 0 in the block itself.
    float weight(int x, int y, int bx, int by) const {
        const int S = g.block, M = g.margin;
        const float column = x < bx ? ramp(x - (bx - M)) : (x >= bx + S ? ramp(bx + S + M - 2 - x) : 0.0f);
        const float row = y < by ? ramp(y - (by - M)) : (y >= by + S ? ramp(by + S + M - 2 - y) : 0.0f);
        return column > row ? column : row;
    }

    // Row by row, left to right, as many quads at a time as a chunk holds.
    void quads(int xFrom, int xTo, int yFrom, int yTo, int bx, int by) const {
        int xs[kRowChunk];
        float ws[kRowChunk];
        for (int y = yFrom; y < yTo; y += 2) {
            if (y < g.y0 - kApron || y > g.y1 + kApron - 1) continue;
            const int row = trv::reflectInto(y, gH);
            int n = 0;
            for (int x = xFrom; x < xTo; x += 2) {
                if (x < g.x0 - kApron || x > g.x1 + kApron - 1) continue;
                xs[n] = trv::reflectInto(x, gW);
                ws[n] = weight(x, y, bx, by);
                if (++n == kRowChunk) {
                    trv::strictMergeRow(strict, row, xs, ws, n);
                    n = 0;
                }
            }
            if (n > 0) trv::strictMergeRow(strict, row, xs, ws, n);
        }
    }

    // A moving block and the margins that border static blocks: corners and
    // top, then left, then the block with its right margin, then the bottom.
    void block(const int* map, int r, int c) const {
        const int S = g.block, M = g.margin, cols = g.cols;
        const int bx = g.x0 - S + c * S, by = g.y0 - S + r * S;
        const bool aboveStill = map[(r - 1) * cols + c] < 1;
        const bool leftStill = map[r * cols + c - 1] < 1;
        if (aboveStill && leftStill && map[(r - 1) * cols + c - 1] < 1) quads(bx - M, bx, by - M, by, bx, by);
        if (aboveStill) quads(bx, bx + S, by - M, by, bx, by);
        if (aboveStill && map[(r - 1) * cols + c + 1] < 1) quads(bx + S, bx + S + M, by - M, by, bx, by);
        if (leftStill) quads(bx - M, bx, by, by + S, bx, by);
        quads(bx, bx + S + M, by, by + S, bx, by);
        quads(bx - M, bx + S + M, by + S, by + S + M, bx, by);
    }
};

void mergeTile(int tile, trv::ClassifySamples samples, trv::StrictLayout layout) {
    // Tiles are numbered 0 .. 63; a frame without one 2 x 2 quad has
    // nothing to classify.
    if (tile < 0 || tile > 63) return;
    if (gW < 2 || gH < 2) {
        simpleFusion(tile);
        return;
    }
    const TileGeometry g = trv::tileGeometry(tile, gW, gH);
    const size_t cells = static_cast<size_t>(g.rows) * g.cols;
    trv::ZeroedInts<kInlineCells> mapCells(cells), secondCells(cells);
    trv::ZeroedInts<kInlineCells> labelCells(static_cast<size_t>(g.cols + 2) * (g.rows + 2));
    int* map = mapCells.data();
    int* second = secondCells.data();
    int* labels = labelCells.data();

    trv::classifyBlocks(g, tile, samples, map);
    if (g.cols == 14)
        findMovingBlock(map, second, labels, g.cols, g.rows);
    else
        findMovingBlock1(map, second, labels, g.cols, g.rows);

    simpleFusion(tile);

    if (gIsNormalLuminance) {
        const int others = trv::alignedFrameCount();
        int parity[trv::kMaxAlignedFrames];
        for (int k = 0; k < others; ++k) parity[k] = (gMergeMV[k][tile]->x & 1) ? -1 : 1;
        const trv::StrictTile strict = trv::strictTile(layout, tile, parity);
        const StrictPass pass{g, strict};
        // "the tile's own blocks only (grid rows from 1 ...)": rows 1 .. BR - 2, not the bottom ring row.
        for (int r = 1; r <= g.rows - 2; ++r)
            for (int c = 1; c <= g.cols - 2; ++c)
                if (map[r * g.cols + c] >= 1) pass.block(map, r, c);
    }

}

}  // namespace

extern "C" {

void Merging_NV21(int tile) { mergeTile(tile, trv::ClassifySamples::LumaAndColour, trv::StrictLayout::Nv21); }

void Merging_NV16(int tile) { mergeTile(tile, trv::ClassifySamples::PlanarLuma, trv::StrictLayout::Nv16); }

void Merging_YV16(int tile) { mergeTile(tile, trv::ClassifySamples::PlanarLuma, trv::StrictLayout::Yv16); }

void Merging_YUV422(int tile) { mergeTile(tile, trv::ClassifySamples::PackedLuma, trv::StrictLayout::Yuv422); }

}  // extern "C"
