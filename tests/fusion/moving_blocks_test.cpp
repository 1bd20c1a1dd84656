// Moving-block map clean-up: isolated marks, gap closing, filling, the
// border rule and the general routine's lopsided neighbourhood. Maps 14
// wide take the wide routine, others the general one.
#include <gtest/gtest.h>

#include <array>
#include <utility>
#include <vector>

#include "trv/stages.h"

namespace {

// Cleans the map in place; the scratch map's outer ring must stay unmarked.
void clean(std::vector<int>& map, int w, int h) {
    std::vector<int> extra(map.size(), 0x5A), scratch((w + 2) * (h + 2), 0);
    (w == 14 ? findMovingBlock : findMovingBlock1)(map.data(), extra.data(), scratch.data(), w, h);
    for (int r = 0; r < h + 2; ++r)
        for (int c = 0; c < w + 2; ++c)
            if (r == 0 || c == 0 || r == h + 1 || c == w + 1) {
                EXPECT_EQ(scratch[r * (w + 2) + c], 0);
            }
}

struct Case {
    const char* what;
    int w, h, meanY;
    std::vector<std::pair<int, int>> marks;
    std::vector<std::array<int, 3>> expect;  // row, column, value
    int total;                               // marks left, or -1
};

TEST(MovingBlocks, HandWorkedMaps) {
    const Case cases[] = {
        {"lone mark, bright", 14, 9, 40, {{4, 4}}, {}, 0},
        {"lone mark, dark", 14, 9, 0, {{4, 4}}, {}, 0},
        {"lone mark, general", 8, 9, 40, {{4, 4}}, {}, 0},
        {"lone mark, general, dark", 8, 9, 0, {{4, 4}}, {}, 0},
        // Wide: each of a pair two rows apart sees the other; the gap fills.
        {"pair, wide", 14, 9, 40, {{3, 5}, {5, 5}}, {{3, 5, 1}, {5, 5, 1}, {4, 5, 1}}, 3},
        // General: the upper mark never looks down and goes, then the lone
        // survivor clears the map; a third mark keeps the upper one alive.
        {"pair, general", 8, 9, 40, {{3, 5}, {5, 5}}, {}, 0},
        {"pair kept, general", 8, 9, 40, {{3, 5}, {5, 5}, {3, 4}}, {{5, 5, 1}, {3, 5, 1}}, -1},
        // Isolated marks go only with positive mean luma.
        {"isolated, bright", 14, 9, 40, {{2, 2}, {6, 10}}, {}, 0},
        {"isolated, dim", 14, 9, 10, {{2, 2}, {6, 10}}, {}, 0},
        {"isolated, dark", 14, 9, 0, {{2, 3}, {6, 10}}, {{2, 3, 1}, {6, 10, 1}}, 2},
        {"filled by two 4-neighbours", 14, 9, 0, {{3, 4}, {3, 6}}, {{3, 5, 1}}, 3},
        {"row 1 gap, one side", 14, 9, 0, {{1, 4}, {6, 9}}, {{1, 3, 1}, {1, 5, 1}, {1, 6, 0}}, -1},
        // The second closed row is 1 + (w + 2) / 2: 9 for w = 14, 6 for w = 8;
        // past the interior (w = 14, h = 9) it is skipped.
        {"row 9, wide", 14, 12, 0, {{9, 6}, {3, 3}}, {{9, 5, 1}, {9, 7, 1}}, -1},
        {"row 6, general", 8, 9, 0, {{6, 3}, {2, 5}}, {{6, 2, 1}, {6, 4, 1}, {6, 5, 0}}, -1},
        {"second row past interior", 14, 9, 0, {{7, 6}, {3, 3}}, {}, 2},
        {"column 1 gap", 14, 9, 0, {{3, 1}, {6, 8}}, {{2, 1, 1}, {4, 1, 1}}, -1},
        // w = 14, h = 9: the right test reads column h = 9, writes column 12;
        // (4, 12) is not closed (its test cell is marked) but filled after.
        {"right column", 14, 9, 0, {{4, 9}, {2, 2}}, {{3, 12, 1}, {5, 12, 1}, {4, 12, 1}, {3, 9, 0}}, -1},
        // h > w: the test column lies past the grid and reads as unmarked (a
        // read running into the next scratch row would see (5, 2)).
        {"test column past the grid", 8, 12, 0, {{4, 6}, {5, 2}}, {{3, 6, 0}}, 2},
        // Row 0 and column 0 are cleared down to the last row; the last row and column keep their marks.
        {"last row and column keep marks", 8, 7, 40, {{0, 3}, {3, 0}, {6, 0}, {6, 4}, {2, 7}, {3, 3}, {3, 4}},
         {{0, 3, 0}, {3, 0, 0}, {6, 0, 0}, {6, 4, 1}, {2, 7, 1}, {3, 3, 1}, {3, 4, 1}}, -1},
        // No interior, a single interior cell, or fewer than 3 rows: all cleared.
        {"1 x 1", 1, 1, 40, {{0, 0}}, {}, 0},
        {"3 x 3", 3, 3, 40, {{1, 1}, {2, 2}, {2, 1}}, {}, 0},
        {"two rows", 8, 2, 40, {{1, 3}, {1, 4}, {1, 7}}, {}, 0},
        {"one row, wide", 14, 1, 40, {{0, 5}, {0, 6}}, {}, 0},
    };
    for (const Case& cs : cases) {
        gMeanY = cs.meanY;
        std::vector<int> map(cs.w * cs.h, 0);
        for (auto [r, c] : cs.marks) map[r * cs.w + c] = 1;
        clean(map, cs.w, cs.h);
        for (auto [r, c, v] : cs.expect) EXPECT_EQ(map[r * cs.w + c], v) << cs.what << " at " << r << "," << c;
        int total = 0;
        for (int v : map) total += v;
        if (cs.total >= 0) {
            EXPECT_EQ(total, cs.total) << cs.what;
        }
    }
}

}  // namespace
