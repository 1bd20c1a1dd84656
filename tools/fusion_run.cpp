#include "fusion_run.h"

#include <chrono>
#include <stdexcept>

namespace trvtool {

namespace {

const char* fateText(int32_t fate) {
    switch (fate) {
        case TRV_FRAME_BLURRED: return "blurred (sharpness check)";
        case TRV_FRAME_SCREENED: return "too much motion or noise (screening)";
        case TRV_FRAME_UNUSED: return "not used";
        default: return "fused";
    }
}

}  // namespace

FusionResult fuseFrames(std::vector<std::vector<uint8_t>>& frames, int width, int height, int32_t formatCode) {
    std::vector<__tag_TRV_OFFSCREEN> pics(frames.size());
    _tag_TRV_INPUTINFO in{};
    in.picNum = static_cast<int32_t>(frames.size());
    for (size_t i = 0; i < frames.size() && i < TRV_MAX_FRAMES; ++i) {
        pics[i] = {0, width, height, frames[i].data()};
        in.pics[i] = &pics[i];
    }
    _tag_TRV_PARAM param{};
    TRV_GetDefaultParam(&param);
    param.inputFormat = formatCode;
    FusionResult result;
    result.frame.resize(TRV_FuseOutputBytes(width, height));
    __tag_TRV_OFFSCREEN out{0, 0, 0, result.frame.data()};
    const auto start = std::chrono::steady_clock::now();
    const int32_t status = TRV_FuseBurst(&in, &param, &out, result.frame.size(), &result.report);
    const auto stop = std::chrono::steady_clock::now();
    if (status != TRV_FUSE_OK) throw std::runtime_error(std::string("burst refused: ") + TRV_StatusText(status));
    result.milliseconds = std::chrono::duration<double, std::milli>(stop - start).count();
    return result;
}

void describeFusion(std::ostream& out, const FusionResult& result, const std::vector<std::string>& names) {
    const _tag_TRV_FUSE_REPORT& r = result.report;
    auto label = [&](int32_t i) {
        const std::string name = (i >= 0 && static_cast<size_t>(i) < names.size()) ? " (" + names[i] + ")" : "";
        return "frame " + std::to_string(i) + name;
    };
    out << "reference: " << label(r.reference) << (r.swappedReference ? ", chosen after motion search" : "") << "\n";
    out << "fused: " << r.framesFused << (r.framesFused == 1 ? " frame (single-frame output)" : " frames") << "\n";
    for (int32_t k = 1; k < r.framesFused && k < TRV_MAX_FRAMES; ++k)
        out << "  " << label(r.frameOrder[k]) << ": global vector (" << r.vectorX[k] << ", " << r.vectorY[k] << ")\n";
    for (size_t i = 0; i < names.size() && i < TRV_MAX_FRAMES; ++i) {
        if (r.frameFate[i] != TRV_FRAME_FUSED) out << "dropped: " << label(static_cast<int32_t>(i)) << ": " << fateText(r.frameFate[i]) << "\n";
    }
    out << "mean luma " << r.meanLuma << ", enhancement level " << r.level << "\n";
    out << "time: " << result.milliseconds << " ms\n";
}

std::vector<uint8_t> averageFrames(const std::vector<std::vector<uint8_t>>& frames) {
    std::vector<uint8_t> mean(frames.empty() ? 0 : frames[0].size());
    const unsigned count = static_cast<unsigned>(frames.size());
    for (size_t i = 0; i < mean.size(); ++i) {
        unsigned sum = 0;
        for (const auto& f : frames) sum += f[i];
        mean[i] = static_cast<uint8_t>((sum + count / 2) / count);
    }
    return mean;
}

}  // namespace trvtool
