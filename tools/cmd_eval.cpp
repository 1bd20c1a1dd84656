// trv eval DIR: every picture of a folder, synthetic bursts at each noise
// level and burst length, the single noisy frame, a plain unaligned average
// and TRV compared on luma, as a markdown table. The seeds are fixed, so two
// runs print the same table.
#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "burst_synth.h"
#include "commands.h"
#include "fusion_run.h"
#include "image_io.h"
#include "metrics.h"
#include "yuv.h"

namespace trvtool {

namespace {

struct EvalOptions {
    std::string folder;
    std::vector<int> frameCounts = {2, 4, 6};
    uint32_t seed = 1;
};

std::vector<std::string> picturesIn(const std::string& folder) {
    std::vector<std::string> names;
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) throw std::runtime_error(folder + ": cannot open folder");
    while (const dirent* entry = readdir(dir)) {
        if (isPictureFile(entry->d_name)) names.push_back(entry->d_name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    if (names.empty()) throw std::runtime_error(folder + ": no PNG or JPEG pictures");
    return names;
}

void runEval(const EvalOptions& o) {
    std::printf("| image | noise | frames | single PSNR | single SSIM | average PSNR | average SSIM | TRV PSNR | TRV SSIM | TRV ms |\n");
    std::printf("|---|---|---:|---:|---:|---:|---:|---:|---:|---:|\n");
    for (const std::string& name : picturesIn(o.folder)) {
        RgbImage picture = readPicture(o.folder + "/" + name);
        picture = cropPicture(picture, picture.width & ~1, picture.height & ~1);
        const Yuv444 scene = rgbToYuv444(picture);
        const int w = picture.width, h = picture.height;
        for (const NoiseLevel& noise : noiseLevels()) {
            for (int frames : o.frameCounts) {
                BurstRecipe recipe;
                recipe.frames = frames;
                recipe.seed = o.seed;
                recipe.shotGain = noise.shotGain;
                recipe.readNoise = noise.readNoise;
                SyntheticBurst burst = synthesiseBurst(scene, recipe);
                const FusionResult fused = fuseFrames(burst.noisy, w, h, 4);
                // Everything is judged against the scene as the reference frame saw it.
                const std::vector<uint8_t>& clean = burst.clean[fused.report.reference];
                const LumaQuality single = lumaQuality(burst.noisy[fused.report.reference].data(), clean.data(), w, h);
                const LumaQuality average = lumaQuality(averageFrames(burst.noisy).data(), clean.data(), w, h);
                const LumaQuality trv = lumaQuality(fused.frame.data(), clean.data(), w, h);
                std::printf("| %s | %s | %d | %.2f | %.4f | %.2f | %.4f | %.2f | %.4f | %.1f |\n", name.c_str(),
                            noise.name, frames, single.psnr, single.ssim, average.psnr, average.ssim, trv.psnr,
                            trv.ssim, fused.milliseconds);
                std::fflush(stdout);
            }
        }
    }
}

}  // namespace

void addEvalCommand(CLI::App& app) {
    auto options = std::make_shared<EvalOptions>();
    CLI::App* cmd = app.add_subcommand(
        "eval", "Luma PSNR/SSIM of single frame, plain average and TRV on synthetic bursts of every picture in DIR");
    cmd->add_option("DIR", options->folder, "Folder of PNG/JPEG pictures")->required()->check(CLI::ExistingDirectory);
    cmd->add_option("--frames", options->frameCounts, "Burst lengths to try")
        ->delimiter(',')
        ->check(CLI::Range(1, 6))
        ->capture_default_str();
    cmd->add_option("--seed", options->seed, "Seed of the synthetic bursts")->capture_default_str();
    cmd->callback([options] { runEval(*options); });
}

}  // namespace trvtool
