// Clean-up of a tile's moving-block map: isolated marks go, one-cell gaps
// along the first interior row and column (and one more of each) close, and
// cells with at least two marked 4-neighbours are filled in.
//
// The map is w x h cells of 0/1, row-major. The scratch grid is the caller's
// zero-filled (w + 2) x (h + 2) grid: map cell (r, c) sits at scratch cell
// (r + 1, c + 1), so the outer ring of the scratch grid reads as unmarked.
#include <cstring>

#include "trv/stages.h"

namespace {

// Map width the 14-column routine always works with.
constexpr int kWideGrid = 14;

struct Grid {
    int* map;
    int* scratch;
    int w, h;

    int stride() const { return w + 2; }
    int& cell(int r, int c) const { return map[r * w + c]; }
    // Scratch value of map cell (r, c); r and c may be -1 .. h / w.
    int copy(int r, int c) const { return scratch[(r + 1) * stride() + c + 1]; }

    void copyWholeMap() const {
        for (int r = 0; r < h; ++r) std::memcpy(&scratch[(r + 1) * stride() + 1], &map[r * w], sizeof(int) * w);
    }

    void copyInteriorOnly() const {
        std::memset(scratch, 0, sizeof(int) * stride() * (h + 2));
        for (int r = 1; r < h - 1; ++r)
            for (int c = 1; c < w - 1; ++c) scratch[(r + 1) * stride() + c + 1] = cell(r, c);
    }

    int interiorMarks() const {
        int marks = 0;
        for (int r = 1; r < h - 1; ++r)
            for (int c = 1; c < w - 1; ++c) marks += cell(r, c) == 1;
        return marks;
    }
};

// Step 2: an interior mark with nothing marked in the radius-2 diamond around
// it is noise. The general routine looks two rows up twice and never two rows
// down; that lopsided neighbourhood is the routine's defined behaviour.
void removeIsolatedMarks(const Grid& g, bool looksTwoRowsDown) {
    for (int r = 1; r < g.h - 1; ++r) {
        for (int c = 1; c < g.w - 1; ++c) {
            if (g.copy(r, c) != 1) continue;
            int around = g.copy(r - 2, c) + g.copy(r - 1, c - 1) + g.copy(r - 1, c) + g.copy(r - 1, c + 1) +
                         g.copy(r, c - 2) + g.copy(r, c - 1) + g.copy(r, c + 1) + g.copy(r, c + 2) +
                         g.copy(r + 1, c - 1) + g.copy(r + 1, c) + g.copy(r + 1, c + 1);
            around += looksTwoRowsDown ? g.copy(r + 2, c) : g.copy(r - 2, c);
            if (around == 0 && gMeanY > 0) g.cell(r, c) = 0;
        }
    }
}

void closeGapsInRow(const Grid& g, int r) {
    for (int c = 1; c < g.w - 1; ++c)
        if (g.copy(r, c) == 0 && g.copy(r, c - 1) + g.copy(r, c + 1) > 0) g.cell(r, c) = 1;
}

// The right-hand column test reads scratch column h + 1 (taken from the
// height) and writes map column w - 2. Scratch columns past the grid's last
// column (h > w) read as unmarked, like the grid's outer ring.
int rightTestColumn(const Grid& g, int r) {
    const int column = g.h + 1;
    if (column > g.w + 1) return 0;
    return g.scratch[(r + 1) * g.stride() + column];
}

void closeGapsInColumns(const Grid& g) {
    for (int r = 1; r < g.h - 1; ++r) {
        if (g.copy(r, 1) == 0 && g.copy(r - 1, 1) + g.copy(r + 1, 1) > 0) g.cell(r, 1) = 1;
        if (rightTestColumn(g, r) == 0 && rightTestColumn(g, r - 1) + rightTestColumn(g, r + 1) > 0)
            g.cell(r, g.w - 2) = 1;
    }
}

void fillSurroundedCells(const Grid& g) {
    for (int r = 1; r < g.h - 1; ++r) {
        for (int c = 1; c < g.w - 1; ++c) {
            if (g.copy(r, c) != 0) continue;
            if (g.copy(r - 1, c) + g.copy(r, c - 1) + g.copy(r, c + 1) + g.copy(r + 1, c) > 1) g.cell(r, c) = 1;
        }
    }
}

void cleanMovingMap(Grid g, bool looksTwoRowsDown) {
    if (g.w <= 0 || g.h <= 0) return;
    g.copyWholeMap();
    removeIsolatedMarks(g, looksTwoRowsDown);
    g.copyInteriorOnly();

    if (g.h < 3 || g.interiorMarks() <= 1) {
        std::memset(g.map, 0, sizeof(int) * g.w * g.h);
    } else {
        if (g.w > 2) {
            closeGapsInRow(g, 1);
            // The second row is placed from the width. A row past the last
            // interior row holds nothing to close and is left alone.
            const int secondRow = 1 + (g.w + 2) / 2;
            if (secondRow <= g.h - 2) closeGapsInRow(g, secondRow);
        }
        closeGapsInColumns(g);
        g.copyInteriorOnly();
        fillSurroundedCells(g);
    }

    // Row 0 and column 0 never stay marked; the last row and column may.
    std::memset(g.map, 0, sizeof(int) * g.w);
    for (int r = 1; r < g.h; ++r) g.cell(r, 0) = 0;
}

}  // namespace

extern "C" {

// Always works on a 14-column map. A narrower w (no caller passes one) is
// used as given, so the routine never reaches past the caller's buffers.
void findMovingBlock(int* map, int* extra, int* scratch, int w, int h) {
    (void)extra;
    cleanMovingMap(Grid{map, scratch, w >= kWideGrid ? kWideGrid : w, h}, true);
}

void findMovingBlock1(int* map, int* extra, int* scratch, int w, int h) {
    (void)extra;
    cleanMovingMap(Grid{map, scratch, w, h}, false);
}

}  // extern "C"
