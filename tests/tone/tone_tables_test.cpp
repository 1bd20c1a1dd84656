// Colour-difference and tone tables: exact entries at the known points, the
// shape between them.
#include <gtest/gtest.h>

#include <algorithm>

#include "trv/stages.h"

namespace {

TEST(ToneTables, ColourDifferencesRoundHalfAwayFromZero) {
    EXPECT_EQ(C0Table[0], -180);  // 1.403 * -128 = -179.58
    EXPECT_EQ(C0Table[255], 178);
    EXPECT_EQ(C3Table[0], -227);  // 1.773 * -128 = -226.94
    EXPECT_EQ(C3Table[255], 225);
    EXPECT_EQ(C0Table[130], 3);    // 2.806
    EXPECT_EQ(C0Table[126], -3);   // symmetric about 128
    EXPECT_EQ(C3Table[129], 2);    // 1.773
    EXPECT_EQ(C3Table[127], -2);
    EXPECT_EQ(C1Table[0], 11698 * 128);
    EXPECT_EQ(C2Table[255], -5636 * 127);
    for (const int32_t* table : {C0Table, C1Table, C2Table, C3Table}) {
        EXPECT_EQ(table[128], 0);
        for (int c = 1; c < 256; ++c) {
            // R and B grow with their chroma, the G shares shrink.
            if (table == C0Table || table == C3Table) {
                ASSERT_GE(table[c], table[c - 1]);
            } else {
                ASSERT_LT(table[c], table[c - 1]);
            }
        }
    }
}

struct GainSet {
    const int32_t* table;
    int values[6];
};

TEST(ToneTables, GainsPassThroughTheirAnchorsAndFallMonotonically) {
    const int points[6] = {1, 16, 64, 128, 192, 255};
    const GainSet sets[4] = {
        {ScaleTable1, {4210, 2401, 1570, 1256, 1110, 1024}},
        {ScaleTable2, {2820, 1779, 1313, 1139, 1064, 1024}},
        {ScaleTable3, {5056, 2645, 1654, 1292, 1123, 1024}},
        {ScaleTable4, {5056, 2645, 1654, 1292, 1123, 1024}},
    };
    for (const GainSet& set : sets) {
        EXPECT_EQ(set.table[0], 0);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(set.table[points[i]], set.values[i]) << "t " << points[i];
        for (int t = 2; t < 256; ++t) ASSERT_LE(set.table[t], set.table[t - 1]) << "t " << t;
        // Smooth: the fall per step shrinks toward the bright end (up to one
        // unit of rounding), with no kinks at the anchors.
        for (int t = 2; t < 255; ++t) {
            ASSERT_LE(set.table[t] - set.table[t + 1], set.table[t - 1] - set.table[t] + 1) << "t " << t;
        }
    }
    for (int t = 0; t < 256; ++t) ASSERT_EQ(ScaleTable3[t], ScaleTable4[t]);
}

TEST(ToneTables, ChromaFactorsPassThroughTheirAnchorsAndRise) {
    const int points[4] = {16, 64, 128, 255};
    const float set1[4] = {0.782f, 0.8383f, 0.8517f, 0.8603f};
    const float set4[4] = {0.6689f, 0.7988f, 0.8301f, 0.85f};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(uvScaleTable1[points[i]], set1[i]);
        EXPECT_EQ(uvScaleTable4[points[i]], set4[i]);
        // Set 3 lies between sets 1 and 4; set 2 follows set 1.
        EXPECT_GT(uvScaleTable3[points[i]], set4[i]);
        EXPECT_LT(uvScaleTable3[points[i]], set1[i]);
        EXPECT_EQ(uvScaleTable2[points[i]], set1[i]);
    }
    for (const float* table : {uvScaleTable1, uvScaleTable2, uvScaleTable3, uvScaleTable4}) {
        EXPECT_EQ(table[0], 0.0f);
        EXPECT_EQ(table[1], 0.0f);
        for (int t = 2; t < 256; ++t) {
            ASSERT_GE(table[t], table[t - 1]) << "t " << t;
            ASSERT_LT(table[t], 1.0f);
        }
    }
}

TEST(ToneTables, LumaTransferIsTheToneOfAnEvenlyLitPixel) {
    const int32_t* gains[4] = {ScaleTable1, ScaleTable2, ScaleTable3, ScaleTable4};
    const int32_t* transfers[4] = {transYTable1, transYTable2, transYTable3, transYTable4};
    for (int s = 0; s < 4; ++s) {
        EXPECT_EQ(transfers[s][0], 0);
        EXPECT_EQ(transfers[s][255], 255);
        for (int t = 1; t < 256; ++t) {
            ASSERT_EQ(transfers[s][t], std::min((t * gains[s][t] + 512) >> 10, 255));
            ASSERT_GE(transfers[s][t], transfers[s][t - 1]);
            ASSERT_GE(transfers[s][t], t);  // never darkens
        }
    }
    EXPECT_EQ(transYTable1[16], (16 * 2401 + 512) >> 10);
}

}  // namespace
