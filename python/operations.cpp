#include "operations.h"

#include <cstring>
#include <limits>
#include <vector>

#include "trv/trv.h"
#include "yuv.h"

namespace trvpy {

namespace {

struct ToneLayout {
    const char* name;
    int32_t code;
};
const ToneLayout kToneLayouts[] = {{"nv21", 4}, {"i422", 0}, {"yuyv", 2}};

py::dict reportDict(const _tag_TRV_FUSE_REPORT& r, size_t frames) {
    static const char* const kFates[] = {"fused", "blurred", "screened", "unused"};
    py::list order, vectors, fates;
    for (int32_t k = 0; k < r.framesFused && k < TRV_MAX_FRAMES; ++k) {
        order.append(r.frameOrder[k]);
        vectors.append(py::make_tuple(r.vectorX[k], r.vectorY[k]));
    }
    for (size_t i = 0; i < frames && i < TRV_MAX_FRAMES; ++i) fates.append(kFates[r.frameFate[i] & 3]);
    py::dict d;
    d["reference"] = r.reference;
    d["swapped_reference"] = r.swappedReference != 0;
    d["frames_fused"] = r.framesFused;
    d["order"] = order;
    d["vectors"] = vectors;
    d["fates"] = fates;
    d["mean_luma"] = r.meanLuma;
    d["level"] = r.level;
    d["sharpness_ratio"] = r.sharpnessRatio;
    return d;
}

// The colour helpers index with int sides.
void refuseHugeSides(int64_t rows, int64_t cols, const char* function) {
    if (rows > std::numeric_limits<int32_t>::max() || cols > std::numeric_limits<int32_t>::max())
        throw py::value_error(std::string(function) + ": a side beyond 2^31 - 1 pixels");
}

void silent(const char*, const char*, void*) {}

}  // namespace

py::object fuse(const py::sequence& frames, const std::string& layout, bool report, const SizeArgument& size) {
    const trvtool::RawFormat* format = trvtool::findRawFormat(layout);
    if (format == nullptr)
        throw py::value_error("trv.fuse: unknown layout '" + layout + "' (use " + trvtool::rawFormatNames() + ")");
    std::optional<Size> given;
    if (size) given = Size{size->first, size->second};
    std::vector<FrameView> views;
    for (size_t i = 0; i < frames.size(); ++i)
        views.push_back(frameView(frames[i], shapeOfCode(format->code), given, "trv.fuse: frame " + std::to_string(i)));

    __tag_TRV_OFFSCREEN pics[TRV_MAX_FRAMES] = {};
    _tag_TRV_INPUTINFO in{};
    // Any count beyond six is refused alike; only six records exist.
    in.picNum = static_cast<int32_t>(std::min<size_t>(views.size(), TRV_MAX_FRAMES + 1));
    for (size_t i = 0; i < views.size() && i < TRV_MAX_FRAMES; ++i) {
        // The library only reads input frames.
        pics[i] = {0, views[i].width, views[i].height, const_cast<uint8_t*>(views[i].data)};
        in.pics[i] = &pics[i];
    }
    const int32_t width = views.empty() ? 0 : views[0].width, height = views.empty() ? 0 : views[0].height;
    // Every size the library accepts leaves frame 0 at least as many bytes as
    // the result; a size given beyond the 32-bit range gets no result
    // buffer, since the library refuses it before writing.
    const size_t firstBytes = views.empty() ? 0 : views[0].bytes;
    ByteArray fused = TRV_FuseOutputBytes(width, height) <= firstBytes ? newFrame(Shape::Rows420, width, height)
                                                                         : ByteArray(0);
    __tag_TRV_OFFSCREEN out{0, 0, 0, writableBytes(fused)};
    _tag_TRV_PARAM param{};
    TRV_GetDefaultParam(&param);
    param.inputFormat = format->code;
    _tag_TRV_FUSE_REPORT decisions{};
    int32_t status = TRV_FUSE_OK;
    {
        py::gil_scoped_release released;
        status = TRV_FuseBurst(&in, &param, &out, static_cast<size_t>(fused.size()), &decisions);
        // The result keeps the input's chroma order; callers get NV21.
        if (status == TRV_FUSE_OK) trvtool::toNv21ChromaOrder(out.data, width, height, format->uFirst);
    }
    if (status != TRV_FUSE_OK) raiseRefusal("trv.fuse", status);
    if (!report) return fused;
    return py::make_tuple(fused, reportDict(decisions, views.size()));
}

ByteArray tone(py::handle frame, int32_t enhanceId, int32_t level, const std::string& outLayout) {
    const ToneLayout* layout = nullptr;
    for (const ToneLayout& l : kToneLayouts) {
        if (outLayout == l.name) layout = &l;
    }
    if (layout == nullptr) throw py::value_error("trv.tone: unknown out_layout '" + outLayout + "' (use nv21|i422|yuyv)");
    const FrameView in = frameView(frame, Shape::Rows420, std::nullopt, "trv.tone: frame");
    ByteArray out = newFrame(shapeOfCode(layout->code), in.width, in.height);
    uint8_t* outData = writableBytes(out);
    const size_t outBytes = static_cast<size_t>(out.size());
    int32_t status = TRV_FUSE_OK;
    {
        py::gil_scoped_release released;
        status = TRV_ToneEnhance(in.data, in.bytes, outData, outBytes, in.width, in.height, layout->code, enhanceId, level);
    }
    if (status != TRV_FUSE_OK) raiseRefusal("trv.tone", status);
    return out;
}

ByteArray retinex(py::handle frame) {
    const FrameView in = frameView(frame, Shape::Rows420, std::nullopt, "trv.retinex: frame");
    // The operation works in place: on a copy, the caller's frame stays as it was.
    ByteArray out = in.data ? ByteArray({in.array.shape(0), in.array.shape(1)}) : ByteArray(0);
    uint8_t* outData = in.data ? writableBytes(out) : nullptr;
    int32_t status = TRV_FUSE_OK;
    {
        py::gil_scoped_release released;
        if (in.bytes > 0) std::memcpy(outData, in.data, in.bytes);
        status = TRV_Retinex(outData, in.bytes, in.width, in.height);
    }
    if (status != TRV_FUSE_OK) raiseRefusal("trv.retinex", status);
    return out;
}

ByteArray rgbToNv21(py::handle picture) {
    const ByteArray rgb = asByteArray(picture, "trv.rgb_to_nv21: picture");
    if (rgb.ndim() != 3 || rgb.shape(2) != 3)
        throw py::value_error("trv.rgb_to_nv21: expected an RGB picture of shape (H, W, 3)");
    refuseHugeSides(rgb.shape(0), rgb.shape(1), "trv.rgb_to_nv21");
    const int width = static_cast<int>(rgb.shape(1)), height = static_cast<int>(rgb.shape(0));
    ByteArray nv21 = newFrame(Shape::Rows420, width & ~1, height & ~1);
    uint8_t* out = writableBytes(nv21);
    {
        py::gil_scoped_release released;
        trvtool::pictureToNv21(rgb.data(), width, height, out);
    }
    return nv21;
}

ByteArray nv21ToRgb(py::handle frame) {
    if (frame.is_none()) throw py::type_error("trv.nv21_to_rgb: expected a uint8 array, got None");
    const FrameView in = frameView(frame, Shape::Rows420, std::nullopt, "trv.nv21_to_rgb: frame");
    refuseHugeSides(in.array.shape(0), in.array.shape(1), "trv.nv21_to_rgb");
    // Each chroma pair covers two columns.
    if (in.width % 2 != 0) throw py::value_error("trv.nv21_to_rgb: an NV21 frame has an even width");
    ByteArray rgb({static_cast<py::ssize_t>(in.height), static_cast<py::ssize_t>(in.width), py::ssize_t{3}});
    uint8_t* out = writableBytes(rgb);
    {
        py::gil_scoped_release released;
        trvtool::nv21ToRgb(in.data, in.width, in.height, out);
    }
    return rgb;
}

void setVerbose(bool on) { TRV_SetLogHandler(on ? nullptr : silent, nullptr); }

}  // namespace trvpy
