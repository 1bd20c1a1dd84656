// Reading and writing 8-bit RGB pictures (PNG through libpng, JPEG through
// libjpeg) and raw files. Errors are thrown as std::runtime_error with a
// one-line message naming the file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "yuv.h"

namespace trvtool {

// Largest picture the readers accept, checked against the size a file
// declares before any pixel buffer is allocated.
constexpr uint64_t kMaxPicturePixels = uint64_t{1} << 27;

// True for names ending in .png, .jpg or .jpeg (any case).
bool isPictureFile(const std::string& path);

// PNG or JPEG by the file name's extension. A truncated or corrupt file,
// or one that declares more than kMaxPicturePixels, is refused.
RgbImage readPicture(const std::string& path);
// The same from bytes in memory; `what` names them in messages, maxPixels
// lowers the limit (the fuzzers keep their allocations small with it).
RgbImage decodePng(const uint8_t* bytes, size_t size, const std::string& what,
                   uint64_t maxPixels = kMaxPicturePixels);
RgbImage decodeJpeg(const uint8_t* bytes, size_t size, const std::string& what,
                    uint64_t maxPixels = kMaxPicturePixels);
// PNG or JPEG (quality 95) by the file name's extension. Writers replace
// the file only when the whole new content is written: on failure an
// existing file stays as it was.
void writePicture(const std::string& path, const RgbImage& image);

std::vector<uint8_t> readRawFile(const std::string& path);
void writeRawFile(const std::string& path, const std::vector<uint8_t>& bytes);

// Refuses an output that names (or links to) one of the inputs.
void refuseOutputAmongInputs(const std::string& output, const std::vector<std::string>& inputs);

}  // namespace trvtool
