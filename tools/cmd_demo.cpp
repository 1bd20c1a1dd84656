// trv demo: a handheld low-light burst made from a photograph, fused, with
// the pictures to look at and the quality gained.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "burst_synth.h"
#include "commands.h"
#include "demo_image.h"
#include "fusion_run.h"
#include "metrics.h"
#include "yuv.h"

namespace trvtool {

namespace {

struct DemoOptions {
    std::string out = "out/demo";
    std::string image;
    std::string noise = "medium";
    uint32_t seed = 1;
    int frames = 6;
};

void makeFolders(const std::string& path) {
    for (size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos != path.size() && path[pos] != '/') continue;
        const std::string prefix = path.substr(0, pos);
        if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST)
            throw std::runtime_error(prefix + ": cannot create folder (" + std::strerror(errno) + ")");
    }
}

// The dark frames brightened for the eye: luma and chroma saturation scaled
// by the same gain.
RgbImage forViewing(std::vector<uint8_t> nv21, int w, int h, float gain) {
    const size_t luma = static_cast<size_t>(w) * h;
    for (size_t i = 0; i < nv21.size(); ++i) {
        const float v = i < luma ? nv21[i] * gain : 128.0f + (nv21[i] - 128.0f) * gain;
        nv21[i] = static_cast<uint8_t>(std::min(255.0f, std::max(0.0f, v + 0.5f)));
    }
    return nv21ToRgb(nv21.data(), w, h);
}

RgbImage sideBySide(const std::vector<RgbImage>& panels) {
    constexpr int kGap = 8;
    RgbImage out;
    out.height = panels[0].height;
    for (const RgbImage& p : panels) out.width += p.width + (out.width ? kGap : 0);
    out.rgb.assign(static_cast<size_t>(out.width) * out.height * 3, 255);
    int left = 0;
    for (const RgbImage& p : panels) {
        for (int y = 0; y < p.height; ++y)
            std::copy_n(&p.rgb[static_cast<size_t>(y) * p.width * 3], p.width * 3,
                        &out.rgb[(static_cast<size_t>(y) * out.width + left) * 3]);
        left += p.width + kGap;
    }
    return out;
}

const NoiseLevel& findNoise(const std::string& name) {
    for (const NoiseLevel& level : noiseLevels()) {
        if (name == level.name) return level;
    }
    throw std::runtime_error("unknown noise level '" + name + "' (use low|medium|high)");
}

void runDemo(const DemoOptions& o) {
    const NoiseLevel& noise = findNoise(o.noise);
    RgbImage picture = o.image.empty() ? builtInDemoPicture() : readPicture(o.image);
    picture = cropPicture(picture, picture.width & ~1, picture.height & ~1);
    const int w = picture.width, h = picture.height;

    BurstRecipe recipe;
    recipe.frames = o.frames;
    recipe.seed = o.seed;
    recipe.shotGain = noise.shotGain;
    recipe.readNoise = noise.readNoise;
    SyntheticBurst burst = synthesiseBurst(rgbToYuv444(picture), recipe);

    std::vector<std::string> names;
    for (int i = 0; i < o.frames; ++i) {
        const bool blurred = i == recipe.blurredFrame;
        names.push_back("shift " + std::to_string(burst.shiftX[i]) + "," + std::to_string(burst.shiftY[i]) +
                        (blurred ? ", blurred" : ""));
    }
    std::cout << "trv demo: " << o.frames << "-frame handheld burst of " << w << "x" << h << " (seed " << o.seed
              << ", noise " << noise.name << ", exposure " << recipe.exposure << ", one moving object)\n";
    FusionResult result = fuseFrames(burst.noisy, w, h, 4);
    describeFusion(std::cout, result, names);

    const int ref = result.report.reference;
    const LumaQuality before = lumaQuality(burst.noisy[ref].data(), burst.clean[ref].data(), w, h);
    const LumaQuality after = lumaQuality(result.frame.data(), burst.clean[ref].data(), w, h);
    std::printf("luma quality against the clean scene (SSIM: Gaussian window 11x11, sigma 1.5)\n");
    std::printf("  noisy reference  PSNR %6.2f dB  SSIM %.4f\n", before.psnr, before.ssim);
    std::printf("  TRV result       PSNR %6.2f dB  SSIM %.4f\n", after.psnr, after.ssim);

    makeFolders(o.out);
    const std::string reference = o.out + "/reference.png", fused = o.out + "/fused.png",
                      both = o.out + "/side_by_side.png";
    writePicture(reference, nv21ToRgb(burst.noisy[ref].data(), w, h));
    writePicture(fused, nv21ToRgb(result.frame.data(), w, h));
    const float gain = 1.0f / recipe.exposure;
    writePicture(both, sideBySide({forViewing(burst.noisy[ref], w, h, gain), forViewing(result.frame, w, h, gain),
                                   forViewing(burst.clean[ref], w, h, gain)}));
    std::cout << "pictures:\n  " << reference << "  (noisy reference frame)\n  " << fused << "  (fused result)\n  "
              << both << "  (noisy | fused | clean, brightened x" << gain << " for viewing)\n";
}

}  // namespace

void addDemoCommand(CLI::App& app) {
    auto options = std::make_shared<DemoOptions>();
    CLI::App* cmd = app.add_subcommand(
        "demo", "Make a noisy handheld burst from a photograph, fuse it, and write the pictures to look at");
    cmd->add_option("--out", options->out, "Output folder")->capture_default_str();
    cmd->add_option("--image", options->image, "Photograph to use instead of the built-in one (PNG/JPEG)")
        ->check(CLI::ExistingFile);
    cmd->add_option("--noise", options->noise, "Noise level: low|medium|high")->capture_default_str();
    cmd->add_option("--seed", options->seed, "Seed of the synthetic burst")->capture_default_str();
    cmd->add_option("--frames", options->frames, "Frames in the burst")->check(CLI::Range(1, 6))->capture_default_str();
    cmd->callback([options] { runDemo(*options); });
}

}  // namespace trvtool
