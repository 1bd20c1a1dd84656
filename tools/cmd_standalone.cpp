// trv retinex / trv tone: the library's stand-alone operations on one
// picture. Both read the frame size (and tone its output layout) from the
// pipeline's process-wide state, so a one-frame pass through the validated
// entry point sets that state to the picture first.
#include <iostream>
#include <memory>
#include <stdexcept>

#include "commands.h"
#include "fusion_run.h"
#include "image_io.h"
#include "yuv.h"

namespace trvtool {

namespace {

struct OperationOptions {
    std::string input;
    std::string output;
    int id = 1;
    int level = 2;
};

// The picture as NV21, cropped to a multiple of `multiple` in both sizes;
// the pipeline's frame state is left describing it.
std::vector<uint8_t> loadAndPrime(const std::string& path, int multiple, int& w, int& h) {
    RgbImage picture = readPicture(path);
    w = picture.width - picture.width % multiple;
    h = picture.height - picture.height % multiple;
    if (w < TRV_FUSE_MIN_WIDTH || h < TRV_FUSE_MIN_HEIGHT)
        throw std::runtime_error(path + ": picture too small (at least 64x64)");
    std::vector<std::vector<uint8_t>> frame = {yuv444ToNv21(rgbToYuv444(cropPicture(picture, w, h)))};
    fuseFrames(frame, w, h, 4);
    return frame[0];
}

void runRetinex(const OperationOptions& o) {
    int w = 0, h = 0;
    std::vector<uint8_t> frame = loadAndPrime(o.input, 16, w, h);  // bands and quarter planes divide evenly
    MSR(frame.data(), w, h);
    writePicture(o.output, nv21ToRgb(frame.data(), w, h));
    std::cout << "wrote " << o.output << " (" << w << "x" << h << ")\n";
}

void runTone(const OperationOptions& o) {
    int w = 0, h = 0;
    std::vector<uint8_t> frame = loadAndPrime(o.input, 16, w, h);
    toNv21ChromaOrder(frame, w, h, true);  // NV21 <-> NV12: the operation reads U first
    // Output format 4 (set by the priming pass) writes NV21; the buffer has
    // room for the larger 4:2:2 layouts too.
    std::vector<uint8_t> out(static_cast<size_t>(w) * h * 2);
    xImgEnhance_YCrCb(frame.data(), out.data(), w, h, o.id, o.level);
    writePicture(o.output, nv21ToRgb(out.data(), w, h));
    std::cout << "wrote " << o.output << " (" << w << "x" << h << ")\n";
}

CLI::App* addOperation(CLI::App& app, const char* name, const char* description,
                       const std::shared_ptr<OperationOptions>& options) {
    CLI::App* cmd = app.add_subcommand(name, description);
    cmd->add_option("input", options->input, "Picture (PNG/JPEG)")->required()->check(CLI::ExistingFile);
    cmd->add_option("-o,--output", options->output, "Result picture (PNG/JPEG)")->required();
    return cmd;
}

}  // namespace

void addStandaloneCommands(CLI::App& app) {
    auto retinex = std::make_shared<OperationOptions>();
    addOperation(app, "retinex", "Multi-scale retinex of one picture (cropped to a multiple of 16)", retinex)
        ->callback([retinex] { runRetinex(*retinex); });
    auto tone = std::make_shared<OperationOptions>();
    CLI::App* cmd = addOperation(app, "tone", "Local tone enhancement of one picture", tone);
    cmd->add_option("--id", tone->id, "Enhancement table set 1..4")->check(CLI::Range(1, 4))->capture_default_str();
    cmd->add_option("--level", tone->level, "Enhancement level")->capture_default_str();
    cmd->callback([tone] { runTone(*tone); });
}

}  // namespace trvtool
