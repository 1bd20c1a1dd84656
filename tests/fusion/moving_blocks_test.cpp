// Moving-block map clean-up: isolated marks, gap closing, filling, the
// border rule and the general routine's lopsided neighbourhood.
#include <gtest/gtest.h>

#include <initializer_list>
#include <utility>
#include <vector>

#include "trv/stages.h"

namespace {

using Cells = std::initializer_list<std::pair<int, int>>;

struct MovingMap {
    int w, h;
    std::vector<int> map, extra, scratch;

    MovingMap(int w_, int h_, Cells marks)
        : w(w_), h(h_), map(w_ * h_, 0), extra(w_ * h_, 0x5A), scratch((w_ + 2) * (h_ + 2), 0) {
        for (auto [r, c] : marks) map[r * w + c] = 1;
    }
    int at(int r, int c) const { return map[r * w + c]; }
    int marks() const {
        int n = 0;
        for (int v : map) n += v;
        return n;
    }
    void clean() {
        if (w == 14)
            findMovingBlock(map.data(), extra.data(), scratch.data(), w, h);
        else
            findMovingBlock1(map.data(), extra.data(), scratch.data(), w, h);
        for (int v : ringOf()) EXPECT_EQ(v, 0);  // the outer ring stays unmarked
    }
    std::vector<int> ringOf() const {
        std::vector<int> ring;
        const int s = w + 2;
        for (int c = 0; c < s; ++c) ring.push_back(scratch[c]), ring.push_back(scratch[(h + 1) * s + c]);
        for (int r = 0; r < h + 2; ++r) ring.push_back(scratch[r * s]), ring.push_back(scratch[r * s + s - 1]);
        return ring;
    }
};

class MovingBlocks : public ::testing::Test {
protected:
    void SetUp() override { gMeanY = 40; }
};

TEST_F(MovingBlocks, SingleInteriorMarkClearsTheMapWhateverTheBrightness) {
    for (int meanY : {40, 0}) {
        gMeanY = meanY;
        for (int w : {14, 8}) {
            MovingMap m(w, 9, {{4, 4}});
            m.clean();
            EXPECT_EQ(m.marks(), 0) << "w " << w << " meanY " << meanY;
        }
    }
}

TEST_F(MovingBlocks, PairTwoRowsApartSurvivesOnlyTheSymmetricNeighbourhood) {
    // Wide routine: each mark sees the other two rows away and both stay.
    MovingMap wide(14, 9, {{3, 5}, {5, 5}});
    wide.clean();
    EXPECT_EQ(wide.at(3, 5), 1);
    EXPECT_EQ(wide.at(5, 5), 1);
    EXPECT_EQ(wide.at(4, 5), 1);  // filled: two marked 4-neighbours
    EXPECT_EQ(wide.marks(), 3);

    // General routine: the upper mark never looks down, is removed, and the
    // lone survivor clears the map.
    MovingMap narrow(8, 9, {{3, 5}, {5, 5}});
    narrow.clean();
    EXPECT_EQ(narrow.marks(), 0);

    // The lower one looks up (twice) and finds its partner, so a third mark
    // keeping the upper one alive leaves both.
    MovingMap kept(8, 9, {{3, 5}, {5, 5}, {3, 4}});
    kept.clean();
    EXPECT_EQ(kept.at(5, 5), 1);
    EXPECT_EQ(kept.at(3, 5), 1);
}

TEST_F(MovingBlocks, IsolatedMarksGoOnlyWithPositiveMeanLuma) {
    // Two far-apart marks: each is isolated.
    MovingMap bright(14, 9, {{2, 2}, {6, 10}});
    bright.clean();
    EXPECT_EQ(bright.marks(), 0);

    gMeanY = 0;
    MovingMap dark(14, 9, {{2, 3}, {6, 10}});
    dark.clean();
    EXPECT_EQ(dark.at(2, 3), 1);
    EXPECT_EQ(dark.at(6, 10), 1);
    EXPECT_EQ(dark.marks(), 2);
}

TEST_F(MovingBlocks, GapsCloseInRowsAndByFilling) {
    gMeanY = 0;  // keep marks regardless of isolation
    // (3, 4) and (3, 6): (3, 5) filled by two 4-neighbours.
    MovingMap fill(14, 9, {{3, 4}, {3, 6}});
    fill.clean();
    EXPECT_EQ(fill.at(3, 5), 1);
    EXPECT_EQ(fill.marks(), 3);

    // Row 1 closes a one-cell gap with a single marked side.
    MovingMap row1(14, 9, {{1, 4}, {6, 9}});
    row1.clean();
    EXPECT_EQ(row1.at(1, 3), 1);
    EXPECT_EQ(row1.at(1, 5), 1);
    EXPECT_EQ(row1.at(1, 6), 0);

    // The second closed row is 1 + (w + 2) / 2: 9 for w = 14, 6 for w = 8.
    MovingMap row9(14, 12, {{9, 6}, {3, 3}});
    row9.clean();
    EXPECT_EQ(row9.at(9, 5), 1);
    EXPECT_EQ(row9.at(9, 7), 1);
    MovingMap row6(8, 9, {{6, 3}, {2, 5}});
    row6.clean();
    EXPECT_EQ(row6.at(6, 2), 1);
    EXPECT_EQ(row6.at(6, 4), 1);
    EXPECT_EQ(row6.at(6, 5), 0);
    // A second row past the interior (w = 14, h = 9 puts it on row 9) is skipped.
    MovingMap shortMap(14, 9, {{7, 6}, {3, 3}});
    shortMap.clean();
    EXPECT_EQ(shortMap.marks(), 2);
}

TEST_F(MovingBlocks, ColumnGapsUseColumnOneAndTheHeightDerivedTestColumn) {
    gMeanY = 0;
    // Column 1: one marked neighbour above closes (r, 1).
    MovingMap left(14, 9, {{3, 1}, {6, 8}});
    left.clean();
    EXPECT_EQ(left.at(2, 1), 1);
    EXPECT_EQ(left.at(4, 1), 1);

    // w = 14, h = 9: the right-hand test reads map column h = 9 and writes
    // map column 12.
    MovingMap right(14, 9, {{4, 9}, {2, 2}});
    right.clean();
    EXPECT_EQ(right.at(3, 12), 1);
    EXPECT_EQ(right.at(5, 12), 1);
    EXPECT_EQ(right.at(4, 12), 1);  // not closed (its test cell is marked) but filled afterwards
    EXPECT_EQ(right.at(3, 9), 0);   // nothing written in the tested column

    // h > w: the test column lies past the grid and reads as unmarked (a
    // read running on into the next scratch row would see (5, 2) and close
    // (3, 6)).
    MovingMap tall(8, 12, {{4, 6}, {5, 2}});
    tall.clean();
    EXPECT_EQ(tall.at(3, 6), 0);
    EXPECT_EQ(tall.marks(), 2);
}

TEST_F(MovingBlocks, LastRowAndColumnKeepTheirMarksFirstOnesDoNot) {
    MovingMap m(8, 7, {{0, 3}, {3, 0}, {6, 4}, {2, 7}, {3, 3}, {3, 4}});
    m.clean();
    EXPECT_EQ(m.at(0, 3), 0);
    EXPECT_EQ(m.at(3, 0), 0);
    EXPECT_EQ(m.at(6, 4), 1);
    EXPECT_EQ(m.at(2, 7), 1);
    EXPECT_EQ(m.at(3, 3), 1);
    EXPECT_EQ(m.at(3, 4), 1);
}

TEST_F(MovingBlocks, TinyMapsAreClearedWithoutStrayAccess) {
    for (auto [w, h] : {std::pair{1, 1}, {2, 5}, {8, 2}, {3, 3}, {14, 1}}) {
        MovingMap m(w, h, {});
        for (int& v : m.map) v = 1;
        m.clean();
        // No interior, or a single interior cell, or fewer than 3 rows.
        EXPECT_EQ(m.marks(), 0) << w << " x " << h;
    }
}

}  // namespace
