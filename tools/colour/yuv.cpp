#include "yuv.h"

#include <algorithm>
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

// The top-left width x height pixels of rgb, whose rows are rowBytes long.
Yuv444 rgbToYuv444(const uint8_t* rgb, size_t rowBytes, int width, int height) {
    Yuv444 p;
    p.width = width;
    p.height = height;
    const size_t n = static_cast<size_t>(width) * height;
    p.y.resize(n);
    p.cb.resize(n);
    p.cr.resize(n);
    for (int row = 0; row < height; ++row) {
        for (int x = 0; x < width; ++x) {
            const uint8_t* px = rgb + row * rowBytes + static_cast<size_t>(x) * 3;
            const int32_t r = px[0], g = px[1], b = px[2];
            const size_t i = static_cast<size_t>(row) * width + x;
            p.y[i] = clampByte(fixedRound(19595 * r + 38470 * g + 7471 * b));
            p.cb[i] = clampByte(128 + fixedRound(-11059 * r - 21709 * g + 32768 * b));
            p.cr[i] = clampByte(128 + fixedRound(32768 * r - 27439 * g - 5329 * b));
        }
    }
    return p;
}

void yuv444ToNv21(const Yuv444& p, uint8_t* out) {
    const int w = p.width, h = p.height;
    std::copy(p.y.begin(), p.y.end(), out);
    uint8_t* chroma = out + static_cast<size_t>(w) * h;
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
}

}  // namespace

Yuv444 rgbToYuv444(const RgbImage& image) {
    return rgbToYuv444(image.rgb.data(), static_cast<size_t>(image.width) * 3, image.width, image.height);
}

std::vector<uint8_t> yuv444ToNv21(const Yuv444& p) {
    std::vector<uint8_t> out(static_cast<size_t>(p.width) * p.height * 3 / 2);
    yuv444ToNv21(p, out.data());
    return out;
}

void pictureToNv21(const uint8_t* rgb, int width, int height, uint8_t* nv21) {
    yuv444ToNv21(rgbToYuv444(rgb, static_cast<size_t>(width) * 3, width & ~1, height & ~1), nv21);
}

std::vector<uint8_t> pictureToNv21(const RgbImage& picture) {
    std::vector<uint8_t> out(static_cast<size_t>(picture.width & ~1) * (picture.height & ~1) * 3 / 2);
    pictureToNv21(picture.rgb.data(), picture.width, picture.height, out.data());
    return out;
}

void nv21ToRgb(const uint8_t* nv21, int width, int height, uint8_t* out) {
    const uint8_t* chroma = nv21 + static_cast<size_t>(width) * height;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const uint8_t* pair = chroma + static_cast<size_t>(y / 2) * width + (x & ~1);
            const int32_t luma = nv21[static_cast<size_t>(y) * width + x];
            const int32_t v = pair[0] - 128, u = pair[1] - 128;
            uint8_t* rgb = out + (static_cast<size_t>(y) * width + x) * 3;
            rgb[0] = clampByte(luma + fixedRound(91881 * v));
            rgb[1] = clampByte(luma - fixedRound(22554 * u + 46802 * v));
            rgb[2] = clampByte(luma + fixedRound(116130 * u));
        }
    }
}

RgbImage nv21ToRgb(const uint8_t* nv21, int width, int height) {
    RgbImage image;
    image.width = width;
    image.height = height;
    image.rgb.resize(static_cast<size_t>(width) * height * 3);
    nv21ToRgb(nv21, width, height, image.rgb.data());
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

void toNv21ChromaOrder(uint8_t* frame, int width, int height, bool uFirst) {
    if (!uFirst) return;
    uint8_t* chroma = frame + static_cast<size_t>(width) * height;
    const size_t pairs = static_cast<size_t>(width) * height / 4;
    for (size_t i = 0; i < pairs; ++i) std::swap(chroma[2 * i], chroma[2 * i + 1]);
}

void toNv21ChromaOrder(std::vector<uint8_t>& frame, int width, int height, bool uFirst) {
    toNv21ChromaOrder(frame.data(), width, height, uFirst);
}

}  // namespace trvtool
