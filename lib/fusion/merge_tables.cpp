// Tables and thresholds read by the merging code, rebuilt for every fusion.
#include "common/arith.h"
#include "fusion/merge_rules.h"
#include "trv/stages.h"

namespace {

void buildWeightRamps() {
    for (int i = 0; i < 256; ++i) {
        y_weight[i] = i < 12 ? 0 : (i - 10) >> 1;
        blur_weight[i] = i < 7 ? 0 : 2 * i - 12;
        CbCr_weight[i] = i < 7 ? 0 : i - 6;
        motion_weight[i] = i < 5 ? 0 : 2 * i - 8;
    }
    for (int k = 0; k <= 80; ++k) gWeight_inverse[k] = 1.0f / static_cast<float>(k + 16);
    for (int d = -255; d <= 256; ++d) {
        DIFFY[d + 255] = trv::clampInt(d, -24, 24);
        DIFFU[d + 255] = trv::clampInt(d, -10, 10);
    }
}

// Quotients of -120 .. 120 by the other frames and by all frames. A burst of
// one frame would divide by zero; its quotients are 0 instead.
void buildDivisionTables(int frames) {
    for (int v = -120; v <= 120; ++v) {
        divNUM[v + 120] = trv::divOrZero(v, frames - 1);
        divNUM_1[v + 120] = trv::divOrZero(v, frames);
    }
}

void setThresholds(int enhanceID, int meanY) {
    gBlurTh = enhanceID < 2 ? 20000.0f : 3900.0f;
    if (meanY < 22) {
        gColor_offset = 1.2f;
        gBadPixelTh = meanY < 19 ? 12 : 16;
    } else {
        gColor_offset = meanY > 34 ? 0.5f : 0.8f;
        gBadPixelTh = 16;
    }
}

}  // namespace

namespace trv {

void buildFusionTables(int frames, int enhanceID, int meanY) {
    buildWeightRamps();
    buildDivisionTables(frames);
    setThresholds(enhanceID, meanY);
    setfunc();
}

}  // namespace trv
