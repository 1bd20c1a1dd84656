// Shared geometry and the fixed-point line filter of the retinex stages.
#pragma once

#include <cstddef>
#include <cstdint>

namespace trv {

// Rows [begin, end) of one decimation / mapping band, always a multiple of 4.
struct MsrRowBand {
    int begin, end;
};

// Band t of T over h rows: B = h / T rounded down to a multiple of 4; band t
// is [t B, t B + B), the last band runs on to the last whole group of 4 rows.
// An index outside 0 .. T - 1 gets an empty band.
MsrRowBand msrRowBand(int t, int T, int h);

// gMSRThreadNUM limited to 1 .. the most workers one fan-out starts. The
// bands always cover the same rows whatever the count, so the limit never
// changes the result, only the parallelism.
int msrThreadCount();

// Fixed-point recursive Gaussian of n >= 1 samples line[0], line[step], ...,
// in place. fwd and back each hold n + 3 int32. Values are in 1/256 units:
// w[0..2] = 256 x[0], w[i+3] = (1792 x[i] + 570 w[i+2] - 433 w[i+1] + 112 w[i]) >> 8;
// b[n..n+2] = w[n+2], t = 7 w[j] + 570 b[j+1] - 433 b[j+2] + 112 b[j+3],
// b[j] = t >> 8, sample j = t >> 16 limited to 0 .. 255. Reading w[j] rather
// than w[j + 3] shifts the result three samples towards higher indices; the
// alignment is intended.
void msrGaussLine(uint8_t* line, int n, ptrdiff_t step, int32_t* fwd, int32_t* back);

}  // namespace trv
