// Retinex blur: the fixed-point recursive Gaussian along the rows, then the
// columns, of each quarter-scale plane; per plane four row threads, a join,
// four column threads.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "retinex/line_split.h"
#include "retinex/msr_internal.h"
#include "trv/stages.h"

namespace {

constexpr int kPlanes = 3;

// The quarter planes as the blur sees them: gH / 4 rows of gW / 4 columns,
// row stride gW / 4, plane p at p (gH / 4) (gW / 4), taken from the
// pipeline's frame size even when it differs from the image's. Where those
// three planes would not fit in the 3 (h / 4) (w / 4) bytes allocated, only
// the top-left part that exists in both sizes is filtered, laid out as the
// image's planes are (stride w / 4, one plane every h / 4 rows), so nothing
// outside the allocation is touched.
struct PlaneView {
    uint8_t* base;
    int rows, cols, stride;
};

bool planeView(int p, PlaneView* view) {
    if (gGaussOut == nullptr || p < 0 || p >= kPlanes) return false;
    const int rows = gH / 4, cols = gW / 4;
    const int imageRows = gMSRh / 4, imageStride = gMSRw / 4;
    if (rows <= 0 || cols <= 0) return false;
    if (static_cast<int64_t>(rows) * cols <= static_cast<int64_t>(imageRows) * imageStride) {
        *view = {gGaussOut + static_cast<size_t>(p) * rows * cols, rows, cols, cols};
    } else {
        *view = {gGaussOut + static_cast<size_t>(p) * imageRows * imageStride, std::min(rows, imageRows),
                 std::min(cols, imageStride), imageStride};
    }
    return view->rows > 0 && view->cols > 0;
}

// Thread argument 100 p + j: plane p, part j.
void* filterPart(void* arg, bool columns) {
    const int value = *static_cast<int*>(arg);
    PlaneView v;
    if (!planeView(value / 100, &v)) return nullptr;
    const int lines = columns ? v.cols : v.rows;
    const int n = columns ? v.rows : v.cols;
    const trv::LineRange part = trv::lineQuarter(value % 100, lines);
    std::vector<int32_t> fwd(static_cast<size_t>(n) + 3), back(static_cast<size_t>(n) + 3);
    for (int k = part.begin; k < part.end; ++k) {
        if (columns) {
            trv::msrGaussLine(v.base + k, n, v.stride, fwd.data(), back.data());
        } else {
            trv::msrGaussLine(v.base + static_cast<size_t>(k) * v.stride, n, 1, fwd.data(), back.data());
        }
    }
    return nullptr;
}

}  // namespace

namespace trv {

void msrGaussLine(uint8_t* line, int n, ptrdiff_t step, int32_t* w, int32_t* b) {
    w[0] = w[1] = w[2] = line[0] * 256;
    for (int i = 0; i < n; ++i) {
        w[i + 3] = (1792 * line[i * step] + 570 * w[i + 2] - 433 * w[i + 1] + 112 * w[i]) >> 8;
    }
    b[n] = b[n + 1] = b[n + 2] = w[n + 2];
    for (int j = n - 1; j >= 0; --j) {
        const int32_t t = 7 * w[j] + 570 * b[j + 1] - 433 * b[j + 2] + 112 * b[j + 3];
        b[j] = t >> 8;
        line[j * step] = static_cast<uint8_t>(std::min(std::max(t >> 16, 0), 255));
    }
}

}  // namespace trv

extern "C" {

void* GaussThread1(void* arg) { return filterPart(arg, false); }

void* GaussThread2(void* arg) { return filterPart(arg, true); }

void RunGaussThread(int p) {
    trv::runLineQuarters(GaussThread1, 100 * p);
    trv::runLineQuarters(GaussThread2, 100 * p);
}

void* singleMSR(void* plane) {
    RunGaussThread(*static_cast<int*>(plane));
    return nullptr;
}

}  // extern "C"
