// Conversion of one frame to the 4:2:0 semi-planar output (luma plane, then
// one interleaved chroma pair per 2 x 2 pixels). Chroma keeps the even input
// rows and drops the odd ones; its byte order is the input's.
#pragma once

#include <cstddef>
#include <cstdint>

namespace trv {

// Bytes the converters may write for a W x H frame: the 4:2:0 size, plus
// the chroma row that an odd height adds and the pair an odd width adds.
size_t singleFrameOutputBytes(int32_t W, int32_t H);

void convertPlanar422(const uint8_t* src, uint8_t* dst, int32_t W, int32_t H);      // code 0
void convertSemiPlanar422(const uint8_t* src, uint8_t* dst, int32_t W, int32_t H);  // code 1
void convertPacked422(const uint8_t* src, uint8_t* dst, int32_t W, int32_t H);      // code 2

// Converts by input format code: 0, 1, 2 as above, 4 a plain copy of
// (H * W * 3) / 2 bytes; every other code leaves dst unwritten.
void convertSingleFrame(int32_t format, const uint8_t* src, uint8_t* dst, int32_t W, int32_t H);

}  // namespace trv
