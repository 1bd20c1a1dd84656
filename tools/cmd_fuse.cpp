// trv fuse: a burst from raw frames or pictures, fused into one frame.
#include <iostream>
#include <memory>
#include <stdexcept>

#include "commands.h"
#include "fusion_run.h"
#include "image_io.h"
#include "yuv.h"

namespace trvtool {

namespace {

struct FuseOptions {
    std::vector<std::string> inputs;
    std::string output;
    std::string format;
    std::string size;
};

void runFuse(const FuseOptions& o) {
    std::vector<std::vector<uint8_t>> frames;
    int width = 0, height = 0, firstWidth = 0, firstHeight = 0;
    const RawFormat* format = findRawFormat("nv21");
    refuseOutputAmongInputs(o.output, o.inputs);
    if (isPictureFile(o.inputs[0])) {
        if (!o.format.empty() || !o.size.empty())
            throw std::runtime_error("--format and --size are for raw frames; pictures carry their own");
        for (const std::string& path : o.inputs) {
            if (!isPictureFile(path)) throw std::runtime_error(path + ": mix of pictures and raw frames");
            RgbImage picture = readPicture(path);
            if (frames.empty()) {
                firstWidth = picture.width;
                firstHeight = picture.height;
                width = picture.width & ~1;  // 4:2:0 needs even sizes: an odd side loses its last pixel
                height = picture.height & ~1;
            } else if (picture.width != firstWidth || picture.height != firstHeight) {
                throw std::runtime_error(path + ": " + std::to_string(picture.width) + "x" +
                                         std::to_string(picture.height) + " differs from the first picture's " +
                                         std::to_string(firstWidth) + "x" + std::to_string(firstHeight));
            }
            frames.push_back(pictureToNv21(picture));
        }
    } else {
        if (o.format.empty() || o.size.empty()) throw std::runtime_error("raw frames need --format and --size");
        format = findRawFormat(o.format);
        if (format == nullptr) throw std::runtime_error("unknown format '" + o.format + "' (use " + rawFormatNames() + ")");
        parseFrameSize(o.size, width, height);
        for (const std::string& path : o.inputs) {
            frames.push_back(readRawFile(path));
            checkRawFrame(frames.back(), *format, width, height, path);
        }
    }
    FusionResult result = fuseFrames(frames, width, height, format->code);
    toNv21ChromaOrder(result.frame, width, height, format->uFirst);
    describeFusion(std::cout, result, o.inputs);
    if (isPictureFile(o.output)) {
        writePicture(o.output, nv21ToRgb(result.frame.data(), width, height));
    } else {
        writeRawFile(o.output, result.frame);
    }
    std::cout << "wrote " << o.output << " (" << width << "x" << height
              << (isPictureFile(o.output) ? ")" : ", raw NV21)") << "\n";
}

}  // namespace

void addFuseCommand(CLI::App& app) {
    auto options = std::make_shared<FuseOptions>();
    CLI::App* cmd = app.add_subcommand("fuse", "Fuse a burst of 1 to 6 frames into one clean frame");
    cmd->add_option("inputs", options->inputs,
                    "Frames in capture order: PNG/JPEG pictures (converted to NV21 with BT.601 full range) or "
                    "raw frames (with --format and --size)")
        ->required()
        ->check(CLI::ExistingFile);
    cmd->add_option("-o,--output", options->output,
                    "Result: .png/.jpg/.jpeg writes a picture, any other name raw NV21 (W*H*3/2 bytes)")
        ->required();
    cmd->add_option("--format", options->format, "Raw frame layout: " + rawFormatNames());
    cmd->add_option("--size", options->size, "Raw frame size WxH, e.g. 1920x1080");
    cmd->callback([options] { runFuse(*options); });
}

}  // namespace trvtool
