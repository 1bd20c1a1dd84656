// Colour and layout conversions shared by the trv tool and the Python
// module, so that both turn a picture into the same bytes. RGB <-> YCbCr
// uses the BT.601 full-range matrix (as in JFIF):
//   Y  =       0.299 R + 0.587 G + 0.114 B
//   Cb = 128 - 0.168736 R - 0.331264 G + 0.5 B
//   Cr = 128 + 0.5 R - 0.418688 G - 0.081312 B
// in 16-bit fixed point, rounded to nearest, and back with
//   R = Y + 1.402 (Cr - 128), G = Y - 0.344136 (Cb - 128) - 0.714136 (Cr - 128),
//   B = Y + 1.772 (Cb - 128).
// NV21 chroma is the rounded mean of each 2 x 2 block; going back, each
// chroma pair covers its 2 x 2 block (nearest neighbour).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace trvtool {

struct RgbImage {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgb;  // rows of width * 3 bytes, R G B
};

// Full-resolution luma and chroma planes.
struct Yuv444 {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> y, cb, cr;
};

Yuv444 rgbToYuv444(const RgbImage& image);
std::vector<uint8_t> yuv444ToNv21(const Yuv444& planes);  // width and height even

// A width x height picture (rows of width * 3 bytes, R G B) as NV21. 4:2:0
// needs even sides, so an odd side loses its last pixel: nv21 receives
// (width & ~1) * (height & ~1) * 3 / 2 bytes.
void pictureToNv21(const uint8_t* rgb, int width, int height, uint8_t* nv21);
std::vector<uint8_t> pictureToNv21(const RgbImage& picture);

// An NV21 frame (width and height even) as RGB, width * height * 3 bytes.
void nv21ToRgb(const uint8_t* nv21, int width, int height, uint8_t* rgb);
RgbImage nv21ToRgb(const uint8_t* nv21, int width, int height);

// Crops an image to its top-left part of the given size.
RgbImage cropPicture(const RgbImage& image, int width, int height);

// Raw frame layouts, with the library's format codes.
struct RawFormat {
    const char* name;
    int32_t code;
    bool uFirst;  // the first chroma sample the layout stores is U
};
// nv21 (4), nv16 (1), yv16 (0), yuyv (2); null for an unknown name.
const RawFormat* findRawFormat(const std::string& name);
std::string rawFormatNames();  // "nv21|nv16|yv16|yuyv"
uint64_t rawFrameBytes(const RawFormat& format, int width, int height);
// "WxH" (or "WXH"): two positive decimal numbers and nothing else; throws
// otherwise.
void parseFrameSize(const std::string& text, int& width, int& height);
// Refuses a raw frame that does not hold exactly rawFrameBytes; `what`
// names it in the message.
void checkRawFrame(const std::vector<uint8_t>& frame, const RawFormat& format, int width, int height,
                   const std::string& what);

// The library's 4:2:0 result keeps the input's chroma order; this turns a
// U-first width x height result into NV21 (V first) in place.
void toNv21ChromaOrder(uint8_t* frame, int width, int height, bool uFirst);
void toNv21ChromaOrder(std::vector<uint8_t>& frame, int width, int height, bool uFirst);

}  // namespace trvtool
