// Colour-difference tables of the brightness plane, indexed by a chroma byte
// c with d = c - 128: R - Y from V, the V and U shares of G - Y (in 1/16384
// units) and B - Y from U. Built at compile time from the conversion factors.
#include "trv/stages.h"

namespace {

// round(d * thousandths / 1000), halves away from zero, in exact integers.
constexpr int32_t roundedProduct(int index, int32_t thousandths) {
    const int32_t n = (index - 128) * thousandths;
    const int32_t magnitude = ((n < 0 ? -n : n) + 500) / 1000;
    return n < 0 ? -magnitude : magnitude;
}

constexpr int32_t redFromV(int c) { return roundedProduct(c, 1403); }
constexpr int32_t greenFromV(int c) { return -11698 * (c - 128); }
constexpr int32_t greenFromU(int c) { return -5636 * (c - 128); }
constexpr int32_t blueFromU(int c) { return roundedProduct(c, 1773); }

}  // namespace

// Spells out f(0), f(1), ..., f(255) for a 256-entry initializer.
#define TRV_ENTRIES_4(f, i) f(i), f(i + 1), f(i + 2), f(i + 3)
#define TRV_ENTRIES_16(f, i) TRV_ENTRIES_4(f, i), TRV_ENTRIES_4(f, i + 4), TRV_ENTRIES_4(f, i + 8), TRV_ENTRIES_4(f, i + 12)
#define TRV_ENTRIES_64(f, i) \
    TRV_ENTRIES_16(f, i), TRV_ENTRIES_16(f, i + 16), TRV_ENTRIES_16(f, i + 32), TRV_ENTRIES_16(f, i + 48)
#define TRV_ENTRIES_256(f) TRV_ENTRIES_64(f, 0), TRV_ENTRIES_64(f, 64), TRV_ENTRIES_64(f, 128), TRV_ENTRIES_64(f, 192)

extern "C" {

const int32_t C0Table[256] = {TRV_ENTRIES_256(redFromV)};
const int32_t C1Table[256] = {TRV_ENTRIES_256(greenFromV)};
const int32_t C2Table[256] = {TRV_ENTRIES_256(greenFromU)};
const int32_t C3Table[256] = {TRV_ENTRIES_256(blueFromU)};

}  // extern "C"
