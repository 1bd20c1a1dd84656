#include "image_io.h"

#include <jpeglib.h>
#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace trvtool {

namespace {

std::string lowerExtension(const std::string& path) {
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return "";
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    return ext;
}

bool isJpeg(const std::string& path) {
    const std::string ext = lowerExtension(path);
    return ext == "jpg" || ext == "jpeg";
}

RgbImage finishPngRead(png_image& png, const std::string& what) {
    png.format = PNG_FORMAT_RGB;
    RgbImage image;
    image.width = static_cast<int>(png.width);
    image.height = static_cast<int>(png.height);
    image.rgb.resize(PNG_IMAGE_SIZE(png));
    if (!png_image_finish_read(&png, nullptr, image.rgb.data(), 0, nullptr)) {
        std::string message = png.message;
        png_image_free(&png);
        throw std::runtime_error(what + ": cannot decode PNG: " + message);
    }
    return image;
}

// libjpeg reports fatal errors through a callback; jump back out of it.
struct JpegError {
    jpeg_error_mgr manager;
    jmp_buf escape;
    char message[JMSG_LENGTH_MAX];
};

void onJpegError(j_common_ptr info) {
    auto* error = reinterpret_cast<JpegError*>(info->err);
    (*info->err->format_message)(info, error->message);
    longjmp(error->escape, 1);
}

using FilePtr = std::unique_ptr<FILE, int (*)(FILE*)>;

FilePtr openFile(const std::string& path, const char* mode) {
    FilePtr file(fopen(path.c_str(), mode), fclose);
    if (!file) throw std::runtime_error(path + ": cannot open (" + std::strerror(errno) + ")");
    return file;
}

RgbImage readJpeg(const std::string& path) {
    FilePtr file = openFile(path, "rb");
    jpeg_decompress_struct info{};
    JpegError error{};
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = onJpegError;
    RgbImage image;
    if (setjmp(error.escape)) {
        jpeg_destroy_decompress(&info);
        throw std::runtime_error(path + ": cannot decode JPEG: " + error.message);
    }
    jpeg_create_decompress(&info);
    jpeg_stdio_src(&info, file.get());
    jpeg_read_header(&info, TRUE);
    info.out_color_space = JCS_RGB;
    jpeg_start_decompress(&info);
    image.width = static_cast<int>(info.output_width);
    image.height = static_cast<int>(info.output_height);
    image.rgb.resize(static_cast<size_t>(image.width) * image.height * 3);
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = image.rgb.data() + static_cast<size_t>(info.output_scanline) * image.width * 3;
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return image;
}

void writeJpeg(const std::string& path, const RgbImage& image) {
    FilePtr file = openFile(path, "wb");
    jpeg_compress_struct info{};
    JpegError error{};
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = onJpegError;
    if (setjmp(error.escape)) {
        jpeg_destroy_compress(&info);
        throw std::runtime_error(path + ": cannot encode JPEG: " + error.message);
    }
    jpeg_create_compress(&info);
    jpeg_stdio_dest(&info, file.get());
    info.image_width = static_cast<JDIMENSION>(image.width);
    info.image_height = static_cast<JDIMENSION>(image.height);
    info.input_components = 3;
    info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, 95, TRUE);
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < info.image_height) {
        JSAMPROW row = const_cast<uint8_t*>(image.rgb.data()) + static_cast<size_t>(info.next_scanline) * image.width * 3;
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
}

}  // namespace

bool isPictureFile(const std::string& path) {
    const std::string ext = lowerExtension(path);
    return ext == "png" || isJpeg(path);
}

RgbImage decodePng(const uint8_t* bytes, size_t size, const std::string& what) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&png, bytes, size))
        throw std::runtime_error(what + ": not a PNG: " + png.message);
    return finishPngRead(png, what);
}

RgbImage readPicture(const std::string& path) {
    if (isJpeg(path)) return readJpeg(path);
    openFile(path, "rb");  // a clear message for a missing file
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str()))
        throw std::runtime_error(path + ": not a PNG: " + png.message);
    return finishPngRead(png, path);
}

void writePicture(const std::string& path, const RgbImage& image) {
    if (isJpeg(path)) return writeJpeg(path, image);
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image.width);
    png.height = static_cast<png_uint_32>(image.height);
    png.format = PNG_FORMAT_RGB;
    if (!png_image_write_to_file(&png, path.c_str(), 0, image.rgb.data(), 0, nullptr))
        throw std::runtime_error(path + ": cannot write PNG: " + png.message);
}

std::vector<uint8_t> readRawFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error(path + ": cannot open (" + std::strerror(errno) + ")");
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeRawFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error(path + ": cannot write");
}

}  // namespace trvtool
