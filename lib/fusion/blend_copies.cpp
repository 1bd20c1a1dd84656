// Seven tiles of an eighth of a side, rounded up to even, can already pass
// the frame's edge (66 pixels: 7 x 10 = 70), and vectors larger than an inner
// tile's distance to the edge move its displaced copies out of the frames.
// Run in place, the kernels would then write past row ends and read outside
// the frames. Such a rectangle is blended row by row through copies: every
// byte a kernel reads is copied into a row of its own, a byte outside its
// plane replaced by its mirror image in the plane (the reflection used at
// every image edge, by pixels, chroma pairs or samples); the kernel runs on
// the copies with the rectangle's full width, so that every column keeps its
// vector or tail rule; and only the results inside the frame are written
// back. Every pixel whose reads lie inside the frames thus gets exactly the
// bytes the kernels give it in place, and pixels past the frame are not
// written.
#include "fusion/blend_copies.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "common/arith.h"
#include "fusion/blend_rules.h"
#include "fusion/merge_geometry.h"
#include "trv/stages.h"

namespace {

using trv::kMaxAlignedFrames;

// Rows of one plane of an input frame.
struct PlaneRows {
    const uint8_t* base;
    ptrdiff_t rowBytes;
    int rows;
    int units;      // mirrored units across a row: pixels, chroma pairs or samples
    int unitBytes;  // bytes of a unit; a mirrored byte keeps its place in its unit

    uint8_t at(int row, int byte) const {
        if (row < 0 || row >= rows) row = trv::reflectInto(row, rows);
        if (byte < 0 || byte >= units * unitBytes) {
            const int unit = byte >= 0 ? byte / unitBytes : -((unitBytes - 1 - byte) / unitBytes);
            byte = trv::reflectInto(unit, units) * unitBytes + (byte - unit * unitBytes);
            // A packed row one pixel wide holds no whole pair to mirror.
            byte = trv::clampInt(byte, 0, static_cast<int>(rowBytes) - 1);
        }
        return base[row * rowBytes + byte];
    }
};

// Where a kernel's pointer for one input starts: row and byte in its plane.
struct Origin {
    int row, byte;
};

// One row of copies: the reference's bytes, then every frame's, and room for
// the result. For planar 4:2:2 chroma each input's second-plane bytes lie
// `planeOffset` after its first-plane bytes, where the kernel looks for them.
class RowCopies {
public:
    RowCopies(int inputs, int span, ptrdiff_t planeOffset = 0)
        : span_(span),
          // On a tiny frame the plane offset is shorter than all first-plane
          // rows together: each input then gets a stretch of its own.
          spacing_(inputs * span <= planeOffset || planeOffset == 0 ? span : span + planeOffset),
          planeOffset_(planeOffset),
          bytes_(static_cast<size_t>(inputs * spacing_ + planeOffset + 2 * span)) {}

    unsigned char* input(int j) { return bytes_.data() + j * spacing_; }
    unsigned char* result() { return bytes_.data() + bytes_.size() - 2 * span_; }

    void copy(int j, const PlaneRows& plane, const Origin& at, int planeRow, ptrdiff_t offset = 0) {
        unsigned char* dst = input(j) + offset;
        for (int i = 0; i < span_; ++i) dst[i] = plane.at(at.row + planeRow, at.byte + i);
    }
    void copySecondPlane(int j, const PlaneRows& plane, const Origin& at, int planeRow) {
        copy(j, plane, at, planeRow, planeOffset_);
    }

private:
    int span_;
    ptrdiff_t spacing_, planeOffset_;
    std::vector<unsigned char> bytes_;
};

// The rectangle, its part inside the frame, and each input's displacement
// (the reference first, not displaced).
struct Job {
    int x, y, w, h;
    int rows, cols;  // rows and columns inside the frame
    int n;
    const uint8_t* frame[kMaxAlignedFrames + 1];
    int dx[kMaxAlignedFrames + 1], dy[kMaxAlignedFrames + 1];

    // The frames' copies, for the kernel; returns the reference's.
    unsigned char* pointers(RowCopies& copies, unsigned char** frames) const {
        for (int k = 0; k < n; ++k) frames[k] = copies.input(k + 1);
        return copies.input(0);
    }
    // Frame columns of chroma and packed pixels start at an even pixel, as the
    // kernels are called in place.
    int pairColumn(int j) const { return j == 0 ? x : (x + dx[j]) & ~1; }
};

void writeBack(const unsigned char* row, ptrdiff_t at, int count) {
    for (int c = 0; c < count; ++c) gMergrOut[at + c] = row[c];
}

void packedThroughCopies(const Job& job) {
    const ptrdiff_t W = gW;
    RowCopies copies(job.n + 1, 2 * job.w);
    unsigned char* frames[kMaxAlignedFrames];
    for (int i = 0; i < job.rows; ++i) {
        for (int j = 0; j <= job.n; ++j) {
            const Origin at{job.y + job.dy[j], 2 * job.pairColumn(j)};
            copies.copy(j, PlaneRows{job.frame[j], 2 * W, gH, gW / 2, 4}, at, i);
        }
        unsigned char* ref = job.pointers(copies, frames);
        unsigned char* out = copies.result();
        mergeBlk_YUV_neon_YUYV(ref, frames, out, out + job.w, job.w, 1);
        writeBack(out, W * (job.y + i) + job.x, job.cols);
        // Even rows carry the chroma of their pair of rows.
        if ((i & 1) == 0 && job.y + i < (gH & ~1))
            writeBack(out + job.w, Y_SIZE + W * ((job.y + i) / 2) + job.x, job.cols);
    }
}

void planarThroughCopies(const Job& job) {
    const ptrdiff_t W = gW, lumaSize = W * gH;
    unsigned char* frames[kMaxAlignedFrames];
    RowCopies luma(job.n + 1, job.w);
    for (int i = 0; i < job.rows; ++i) {
        for (int j = 0; j <= job.n; ++j)
            luma.copy(j, PlaneRows{job.frame[j], W, gH, gW, 1}, Origin{job.y + job.dy[j], job.x + job.dx[j]}, i);
        unsigned char* ref = job.pointers(luma, frames);
        mergeBlk_Y_neon(ref, frames, luma.result(), job.w, 1);
        writeBack(luma.result(), W * (job.y + i) + job.x, job.cols);
    }
    // Chroma needs a whole pair and a whole pair of rows.
    if (gW < 2 || gH < 2) return;
    const int format = gINFormat;
    const ptrdiff_t planeBytes = (W / 2) * gH;
    RowCopies chroma(job.n + 1, format == 0 ? (job.w + 1) / 2 : job.w, format == 0 ? planeBytes : 0);
    for (int i = 0; i < job.rows && job.y + i < (gH & ~1); i += 2) {
        for (int j = 0; j <= job.n; ++j) {
            const uint8_t* planes = job.frame[j] + lumaSize;
            const int x = job.pairColumn(j), y = job.y + job.dy[j];
            if (format == 0) {
                const Origin at{y, x / 2};
                chroma.copy(j, PlaneRows{planes, W / 2, gH, gW / 2, 1}, at, i);
                chroma.copySecondPlane(j, PlaneRows{planes + planeBytes, W / 2, gH, gW / 2, 1}, at, i);
            } else if (format == 1) {
                chroma.copy(j, PlaneRows{planes, W, gH, gW / 2, 2}, Origin{y, x}, i);
            } else {
                // Half-height rows: the kernel reads row y / 2 + i / 2 (y / 2
                // truncating, as in place).
                chroma.copy(j, PlaneRows{planes, W, gH / 2, gW / 2, 2}, Origin{y / 2, x}, i / 2);
            }
        }
        unsigned char* ref = job.pointers(chroma, frames);
        mergeBlk_uv_neon(ref, frames, chroma.result(), job.w, 1);
        writeBack(chroma.result(), lumaSize + W * ((job.y + i) / 2) + job.x, job.cols);
    }
}

}  // namespace

namespace trv {

void blendThroughCopies(int x, int y, int w, int h, int tile, int frames) {
    Job job{x, y, w, h, std::min(h, gH - y), std::min(w, gW - x), std::min(frames, kMaxAlignedFrames), {}, {}, {}};
    if (job.rows <= 0 || job.cols <= 0 || x < 0 || y < 0) return;
    job.frame[0] = gMergeInput[0];
    for (int k = 0; k < job.n; ++k) {
        job.frame[k + 1] = gMergeInput[k + 1];
        job.dx[k + 1] = gMergeMV[k][tile]->x;
        job.dy[k + 1] = gMergeMV[k][tile]->y;
    }
    if (gINFormat == 2) {
        packedThroughCopies(job);
    } else {
        planarThroughCopies(job);
    }
}

}  // namespace trv
