#include "image_io.h"

#include <jpeglib.h>
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
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

// Refuses a declared size beyond the limit before any pixel buffer exists:
// a few bytes of header can claim gigabytes.
void checkDeclaredSize(uint64_t width, uint64_t height, uint64_t maxPixels, const std::string& what) {
    if (width == 0 || height == 0 || width * height > maxPixels)
        throw std::runtime_error(what + ": declared size " + std::to_string(width) + "x" + std::to_string(height) +
                                 " is empty or beyond the limit of " + std::to_string(maxPixels) + " pixels");
}

RgbImage finishPngRead(png_image& png, uint64_t maxPixels, const std::string& what) {
    try {
        checkDeclaredSize(png.width, png.height, maxPixels, what);
    } catch (...) {
        png_image_free(&png);
        throw;
    }
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

// libjpeg only warns about corrupt or truncated data (level -1) and goes on
// with grey filler; such a picture is refused like a broken one.
void onJpegMessage(j_common_ptr info, int level) {
    if (level < 0) onJpegError(info);
}

using FilePtr = std::unique_ptr<FILE, int (*)(FILE*)>;

RgbImage readJpeg(const uint8_t* bytes, size_t size, uint64_t maxPixels, const std::string& what) {
    jpeg_decompress_struct info{};
    JpegError error{};
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = onJpegError;
    error.manager.emit_message = onJpegMessage;
    RgbImage image;
    if (setjmp(error.escape)) {
        jpeg_destroy_decompress(&info);
        throw std::runtime_error(what + ": cannot decode JPEG: " + error.message);
    }
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, bytes, static_cast<unsigned long>(size));
    jpeg_read_header(&info, TRUE);
    try {
        checkDeclaredSize(info.image_width, info.image_height, maxPixels, what);
    } catch (...) {
        jpeg_destroy_decompress(&info);
        throw;
    }
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

void writeJpeg(FILE* file, const std::string& path, const RgbImage& image) {
    jpeg_compress_struct info{};
    JpegError error{};
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = onJpegError;
    if (setjmp(error.escape)) {
        jpeg_destroy_compress(&info);
        throw std::runtime_error(path + ": cannot encode JPEG: " + error.message);
    }
    jpeg_create_compress(&info);
    jpeg_stdio_dest(&info, file);
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

// Permissions of a replaced file are kept; a new file gets the usual
// 0666 less the umask.
mode_t modeForNewFile(const std::string& path) {
    struct stat existing{};
    if (stat(path.c_str(), &existing) == 0) return existing.st_mode & 07777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// Writes through write(file) into a temporary file in the target's folder
// and renames it over the target only once everything is on disk: a failed
// write leaves an existing file as it was and no temporary behind.
void writeReplacing(const std::string& path, const std::function<void(FILE*)>& write) {
    const size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string temporary = folder + (slash == std::string::npos ? "/." : ".") + name + ".XXXXXX";
    const int fd = mkstemp(&temporary[0]);
    if (fd < 0) throw std::runtime_error(path + ": cannot create a file beside it (" + std::strerror(errno) + ")");
    FilePtr file(fdopen(fd, "wb"), fclose);
    if (!file) {
        close(fd);
        unlink(temporary.c_str());
        throw std::runtime_error(path + ": cannot write (" + std::strerror(errno) + ")");
    }
    try {
        write(file.get());
        bool written = fflush(file.get()) == 0 && !ferror(file.get()) && fsync(fd) == 0 &&
                       fchmod(fd, modeForNewFile(path)) == 0;
        int error = errno;
        if (fclose(file.release()) != 0 && written) {
            written = false;
            error = errno;
        }
        if (!written) throw std::runtime_error(path + ": cannot write (" + std::strerror(error) + ")");
        if (rename(temporary.c_str(), path.c_str()) != 0)
            throw std::runtime_error(path + ": cannot replace (" + std::strerror(errno) + ")");
    } catch (...) {
        file.reset();
        unlink(temporary.c_str());
        throw;
    }
}

}  // namespace

bool isPictureFile(const std::string& path) {
    const std::string ext = lowerExtension(path);
    return ext == "png" || isJpeg(path);
}

RgbImage decodePng(const uint8_t* bytes, size_t size, const std::string& what, uint64_t maxPixels) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&png, bytes, size))
        throw std::runtime_error(what + ": not a PNG: " + png.message);
    return finishPngRead(png, maxPixels, what);
}

RgbImage decodeJpeg(const uint8_t* bytes, size_t size, const std::string& what, uint64_t maxPixels) {
    return readJpeg(bytes, size, maxPixels, what);
}

RgbImage readPicture(const std::string& path) {
    const std::vector<uint8_t> bytes = readRawFile(path);
    return isJpeg(path) ? decodeJpeg(bytes.data(), bytes.size(), path) : decodePng(bytes.data(), bytes.size(), path);
}

void writePicture(const std::string& path, const RgbImage& image) {
    writeReplacing(path, [&](FILE* file) {
        if (isJpeg(path)) return writeJpeg(file, path, image);
        png_image png{};
        png.version = PNG_IMAGE_VERSION;
        png.width = static_cast<png_uint_32>(image.width);
        png.height = static_cast<png_uint_32>(image.height);
        png.format = PNG_FORMAT_RGB;
        if (!png_image_write_to_stdio(&png, file, 0, image.rgb.data(), 0, nullptr))
            throw std::runtime_error(path + ": cannot write PNG: " + png.message);
    });
}

std::vector<uint8_t> readRawFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error(path + ": cannot open (" + std::strerror(errno) + ")");
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeRawFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    writeReplacing(path, [&](FILE* file) { fwrite(bytes.data(), 1, bytes.size(), file); });
}

void refuseOutputAmongInputs(const std::string& output, const std::vector<std::string>& inputs) {
    struct stat out{};
    if (stat(output.c_str(), &out) != 0) return;  // a new file cannot be an input
    for (const std::string& input : inputs) {
        struct stat in{};
        if (stat(input.c_str(), &in) == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino)
            throw std::runtime_error(output + ": the output is one of the inputs");
    }
}

}  // namespace trvtool
