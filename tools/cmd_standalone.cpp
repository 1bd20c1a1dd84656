// trv retinex / trv tone: the library's validated stand-alone operations on
// one picture, converted to 4:2:0 and back.
#include <iostream>
#include <memory>
#include <stdexcept>

#include "commands.h"
#include "image_io.h"
#include "trv/trv.h"
#include "yuv.h"

namespace trvtool {

namespace {

struct OperationOptions {
    std::string input;
    std::string output;
    int id = 1;
    int level = 2;
};

// The picture as NV21; 4:2:0 needs even sizes, so an odd side loses its last
// pixel.
std::vector<uint8_t> loadFrame(const OperationOptions& o, int& w, int& h) {
    refuseOutputAmongInputs(o.output, {o.input});
    RgbImage picture = readPicture(o.input);
    w = picture.width & ~1;
    h = picture.height & ~1;
    return pictureToNv21(picture);
}

void check(int32_t status) {
    if (status != TRV_FUSE_OK) throw std::runtime_error(std::string("refused: ") + TRV_StatusText(status));
}

void save(const OperationOptions& o, const std::vector<uint8_t>& nv21, int w, int h) {
    writePicture(o.output, nv21ToRgb(nv21.data(), w, h));
    std::cout << "wrote " << o.output << " (" << w << "x" << h << ")\n";
}

void runRetinex(const OperationOptions& o) {
    int w = 0, h = 0;
    std::vector<uint8_t> frame = loadFrame(o, w, h);
    check(TRV_Retinex(frame.data(), frame.size(), w, h));
    save(o, frame, w, h);
}

void runTone(const OperationOptions& o) {
    int w = 0, h = 0;
    std::vector<uint8_t> frame = loadFrame(o, w, h);
    toNv21ChromaOrder(frame, w, h, true);  // NV21 <-> NV12: the operation reads U first
    std::vector<uint8_t> out(frame.size());
    check(TRV_ToneEnhance(frame.data(), frame.size(), out.data(), out.size(), w, h, 4, o.id, o.level));
    save(o, out, w, h);
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
    addOperation(app, "retinex",
                 "Multi-scale retinex of one picture (rows and columns past the last multiple of 4 stay as they are)",
                 retinex)
        ->callback([retinex] { runRetinex(*retinex); });
    auto tone = std::make_shared<OperationOptions>();
    CLI::App* cmd = addOperation(app, "tone", "Local tone enhancement of one picture", tone);
    cmd->add_option("--id", tone->id, "Tone curve 1..3 (0: no tone change)")->check(CLI::Range(0, 3))->capture_default_str();
    cmd->add_option("--level", tone->level, "Enhancement level (id 1: up to 99 gentle, 100 and above strong)")
        ->capture_default_str();
    cmd->callback([tone] { runTone(*tone); });
}

}  // namespace trvtool
