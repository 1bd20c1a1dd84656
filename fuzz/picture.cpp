// The trv tool's picture reader on fuzzer bytes: JPEG when they start like
// one (FF D8), PNG otherwise, then the conversions every picture goes
// through (to 4:2:0 at even size, and the result back to RGB). The pixel
// limit is lowered to keep allocations small; the checks are the same.
// Checked: a decoded picture has its declared size, within the limit.
#include <stdexcept>

#include "fuzz_support.h"
#include "image_io.h"
#include "yuv.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr uint64_t kMaxPixels = uint64_t{1} << 18;
    const bool jpeg = size >= 2 && data[0] == 0xFF && data[1] == 0xD8;
    trvtool::RgbImage picture;
    try {
        picture = jpeg ? trvtool::decodeJpeg(data, size, "fuzz.jpg", kMaxPixels)
                       : trvtool::decodePng(data, size, "fuzz.png", kMaxPixels);
    } catch (const std::runtime_error&) {
        return 0;  // refused, as the tool would
    }
    FUZZ_REQUIRE(picture.width > 0 && picture.height > 0);
    FUZZ_REQUIRE(static_cast<uint64_t>(picture.width) * picture.height <= kMaxPixels);
    FUZZ_REQUIRE(picture.rgb.size() == static_cast<size_t>(picture.width) * picture.height * 3);
    // As trv fuse, retinex and tone: an odd side loses its last pixel.
    const int w = picture.width & ~1, h = picture.height & ~1;
    const std::vector<uint8_t> nv21 = trvtool::yuv444ToNv21(trvtool::rgbToYuv444(trvtool::cropPicture(picture, w, h)));
    FUZZ_REQUIRE(nv21.size() == static_cast<size_t>(w) * h * 3 / 2);
    if (w > 0 && h > 0) FUZZ_REQUIRE(trvtool::nv21ToRgb(nv21.data(), w, h).rgb.size() == static_cast<size_t>(w) * h * 3);
    return 0;
}
