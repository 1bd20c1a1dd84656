#include "yuv.h"

#include <charconv>
#include <stdexcept>
#include <utility>

namespace trvtool {

namespace {

uint8_t clampByte(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

// Rounded 16.16 fixed-point result; the shift is arithmetic for negatives.
int32_t fixedRound(int32_t v) { return (v + 32768) >> 16; }

const RawFormat kRawFormats[] = {
    {"nv21", 4, false},  // Y, then V U pairs at half height
    {"nv16", 1, true},   // Y, then U V pairs at full height
    {"yv16", 0, false},  // Y, then a V plane, then a U plane, each W/2 x H
    {"yuyv", 2, true},   // Y0 U Y1 V
};

}  // namespace

Yuv444 rgbToYuv444(const RgbImage& image) {
    Yuv444 p;
    p.width = image.width;
    p.height = image.height;
    const size_t n = static_cast<size_t>(image.width) * image.height;
    p.y.resize(n);
    p.cb.resize(n);
    p.cr.resize(n);
    for (size_t i = 0; i < n; ++i) {
        const int32_t r = image.rgb[3 * i], g = image.rgb[3 * i + 1], b = image.rgb[3 * i + 2];
        p.y[i] = clampByte(fixedRound(19595 * r + 38470 * g + 7471 * b));
        p.cb[i] = clampByte(128 + fixedRound(-11059 * r - 21709 * g + 32768 * b));
        p.cr[i] = clampByte(128 + fixedRound(32768 * r - 27439 * g - 5329 * b));
    }
    return p;
}

std::vector<uint8_t> yuv444ToNv21(const Yuv444& p) {
    const int w = p.width, h = p.height;
    std::vector<uint8_t> out(static_cast<size_t>(w) * h * 3 / 2);
    std::copy(p.y.begin(), p.y.end(), out.begin());
    uint8_t* chroma = out.data() + static_cast<size_t>(w) * h;
    for (int y = 0; y < h; y += 2) {
        for (int x = 0; x < w; x += 2) {
            const size_t i = static_cast<size_t>(y) * w + x;
            const int v = p.cr[i] + p.cr[i + 1] + p.cr[i + w] + p.cr[i + w + 1];
            const int u = p.cb[i] + p.cb[i + 1] + p.cb[i + w] + p.cb[i + w + 1];
            uint8_t* pair = chroma + static_cast<size_t>(y / 2) * w + x;
            pair[0] = static_cast<uint8_t>((v + 2) / 4);
            pair[1] = static_cast<uint8_t>((u + 2) / 4);
        }
    }
    return out;
}

RgbImage nv21ToRgb(const uint8_t* nv21, int width, int height) {
    RgbImage image;
    image.width = width;
    image.height = height;
    image.rgb.resize(static_cast<size_t>(width) * height * 3);
    const uint8_t* chroma = nv21 + static_cast<size_t>(width) * height;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const uint8_t* pair = chroma + static_cast<size_t>(y / 2) * width + (x & ~1);
            const int32_t luma = nv21[static_cast<size_t>(y) * width + x];
            const int32_t v = pair[0] - 128, u = pair[1] - 128;
            uint8_t* rgb = &image.rgb[(static_cast<size_t>(y) * width + x) * 3];
            rgb[0] = clampByte(luma + fixedRound(91881 * v));
            rgb[1] = clampByte(luma - fixedRound(22554 * u + 46802 * v));
            rgb[2] = clampByte(luma + fixedRound(116130 * u));
        }
    }
    return image;
}

RgbImage cropPicture(const RgbImage& image, int width, int height) {
    RgbImage out;
    out.width = width;
    out.height = height;
    out.rgb.resize(static_cast<size_t>(width) * height * 3);
    for (int y = 0; y < height; ++y) {
        const auto row = image.rgb.begin() + static_cast<std::ptrdiff_t>(y) * image.width * 3;
        std::copy(row, row + width * 3, out.rgb.begin() + static_cast<std::ptrdiff_t>(y) * width * 3);
    }
    return out;
}

const RawFormat* findRawFormat(const std::string& name) {
    for (const RawFormat& f : kRawFormats) {
        if (name == f.name) return &f;
    }
    return nullptr;
}

std::string rawFormatNames() {
    std::string names;
    for (const RawFormat& f : kRawFormats) names += (names.empty() ? "" : "|") + std::string(f.name);
    return names;
}

uint64_t rawFrameBytes(const RawFormat& format, int width, int height) {
    const uint64_t pixels = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
    return format.code == 4 ? pixels * 3 / 2 : pixels * 2;
}

void parseFrameSize(const std::string& text, int& width, int& height) {
    // from_chars, unlike scanf's %d, refuses numbers beyond int instead of
    // leaving them undefined, and takes no sign or blank.
    const char* end = text.data() + text.size();
    const auto w = std::from_chars(text.data(), end, width);
    const bool separated = w.ec == std::errc() && w.ptr != end && (*w.ptr == 'x' || *w.ptr == 'X');
    const auto h = separated ? std::from_chars(w.ptr + 1, end, height) : std::from_chars_result{end, std::errc::invalid_argument};
    if (h.ec != std::errc() || h.ptr != end || width <= 0 || height <= 0)
        throw std::runtime_error("--size must look like 1920x1080, got '" + text + "'");
}

void checkRawFrame(const std::vector<uint8_t>& frame, const RawFormat& format, int width, int height,
                   const std::string& what) {
    const uint64_t expected = rawFrameBytes(format, width, height);
    if (frame.size() != expected)
        throw std::runtime_error(what + ": " + std::to_string(frame.size()) + " bytes, expected " +
                                 std::to_string(expected) + " for " + format.name + " " + std::to_string(width) + "x" +
                                 std::to_string(height));
}

void toNv21ChromaOrder(std::vector<uint8_t>& frame, int width, int height, bool uFirst) {
    if (!uFirst) return;
    const size_t start = static_cast<size_t>(width) * height;
    for (size_t i = start; i + 1 < frame.size(); i += 2) std::swap(frame[i], frame[i + 1]);
}

}  // namespace trvtool
