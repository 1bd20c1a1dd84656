#include "motion/reference_swap.h"

#include "common/arith.h"

namespace trv {

namespace {
constexpr int32_t kSwapMargin = 25;
}

bool secondIsBetterAnchor(MV1* const* mvs, int32_t frames) {
    int32_t toSecond = 0, toReference = 0;
    for (int32_t k = 1; k <= frames - 2; ++k) {
        toSecond += absInt(mvs[0]->x - mvs[k]->x) + absInt(mvs[0]->y - mvs[k]->y);
        toReference += absInt(mvs[k]->x) + absInt(mvs[k]->y);
    }
    return toSecond + kSwapMargin < toReference;
}

void rebaseOnSecond(MV1* const* mvs, int32_t frames) {
    for (int32_t k = 1; k <= frames - 2; ++k) {
        mvs[k]->x -= mvs[0]->x;
        mvs[k]->y -= mvs[0]->y;
    }
    mvs[0]->x = -mvs[0]->x;
    mvs[0]->y = -mvs[0]->y;
}

}  // namespace trv
