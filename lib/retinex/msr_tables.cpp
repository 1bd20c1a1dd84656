// Power-law tables of the retinex mapping, shifted by one so that entry j
// serves the value j + 1 (no zero base): 65536 / (j + 1)^0.3 and
// 16 (j + 1)^1.3, whose product is about 2^20 (v + 1)^1.3 / (g + 1)^0.3.
#include <cmath>

#include "trv/stages.h"

extern "C" {

int32_t ITable0_2[256];
int32_t ITable1_2[256];

void create0_1_2Table(void) {
    for (int j = 0; j < 256; ++j) {
        const double v = j + 1;
        ITable0_2[j] = static_cast<int32_t>(std::floor(65536.0 / std::pow(v, 0.3) + 0.5));
        ITable1_2[j] = static_cast<int32_t>(std::floor(16.0 * std::pow(v, 1.3) + 0.5));
    }
}

// Kept as an identity hook; nothing calls it.
int colorBalance(int value) { return value; }

}  // extern "C"
