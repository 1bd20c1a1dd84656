// Lookup tables of the multi-level blur's merge step: division by three, the
// 0.8 damping factor and the luma floor curve.
#include "trv/stages.h"

extern "C" {

int32_t gDivTable[768];
uint8_t gDivTable_0_8[256];
// Stays all zero until the host calls createTHTable(); the blur never fills
// it, so by default the merge keeps the plain mean of the three levels.
uint8_t gTHTable[256];

void createDivTable(void) {
    for (int i = 0; i < 768; ++i) gDivTable[i] = i / 3;
    // 0.8 i never lies within 0.1 of a half, so the precision is immaterial.
    for (int i = 0; i < 256; ++i) gDivTable_0_8[i] = static_cast<uint8_t>(static_cast<int>(0.8 * i + 0.5));
}

void createTHTable(void) {
    // v (0.2 v / 255 + 0.7) in single precision, truncated: 0 .. 229.
    const float slope = 0.0007843137f;
    for (int v = 0; v < 256; ++v) {
        const float fv = static_cast<float>(v);
        gTHTable[v] = static_cast<uint8_t>(static_cast<int>(fv * (fv * slope + 0.7f)));
    }
}

}  // extern "C"
