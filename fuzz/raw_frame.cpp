// The trv tool's raw frame path on fuzzer bytes:
//   "<format> <size>\n" <adjust> <content...>
// The format name and size text go through the tool's parsing; the frame is
// the content repeated to the layout's size (adjust 1: one byte more, 2: one
// less, 3: the content as it is). An accepted frame is fused alone, as
// `trv fuse` would, and its result turned into NV21 and RGB.
// Checked: only a frame of exactly the layout's size is accepted.
#include <algorithm>
#include <stdexcept>
#include <string>

#include "fuzz_support.h"
#include "fusion_run.h"
#include "yuv.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const uint8_t* end = data + size;
    const uint8_t* newline = std::find(data, end, '\n');
    if (newline == end || newline + 1 == end) return 0;
    const std::string header(data, newline);
    const size_t space = header.find(' ');
    if (space == std::string::npos) return 0;
    const int adjust = newline[1] & 3;
    const trvfuzz::Bytes content(newline + 2, end);

    const trvtool::RawFormat* format = trvtool::findRawFormat(header.substr(0, space));
    if (format == nullptr) return 0;
    int w = 0, h = 0;
    try {
        trvtool::parseFrameSize(header.substr(space + 1), w, h);
    } catch (const std::runtime_error&) {
        return 0;
    }
    FUZZ_REQUIRE(w > 0 && h > 0);
    const uint64_t expected = trvtool::rawFrameBytes(*format, w, h);
    // Frames are built up to 256 x 256; larger sizes are tried against the
    // content as it is.
    trvfuzz::Bytes frame = content;
    if (adjust != 3 && expected <= 2 * 256 * 256) {
        frame.resize(expected + (adjust == 1) - (adjust == 2 && expected > 0));
        for (size_t i = content.size(); i < frame.size(); ++i) frame[i] = content.empty() ? 0 : frame[i - content.size()];
    }
    try {
        trvtool::checkRawFrame(frame, *format, w, h, "frame");
    } catch (const std::runtime_error&) {
        FUZZ_REQUIRE(frame.size() != expected);
        return 0;
    }
    FUZZ_REQUIRE(frame.size() == expected);
    std::vector<trvfuzz::Bytes> frames{frame};
    trvtool::FusionResult result;
    try {
        result = trvtool::fuseFrames(frames, w, h, format->code);
    } catch (const std::runtime_error&) {
        return 0;  // a size the library refuses
    }
    trvtool::toNv21ChromaOrder(result.frame, w, h, format->uFirst);
    FUZZ_REQUIRE(trvtool::nv21ToRgb(result.frame.data(), w, h).rgb.size() == static_cast<size_t>(w) * h * 3);
    return 0;
}
