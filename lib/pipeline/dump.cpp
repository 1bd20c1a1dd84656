// Diagnostic dumps: the input frames, one parameter line and the result,
// written to fixed paths so that a burst can be replayed offline.
#include <cstdio>
#include <cstring>
#include <vector>

#include "pipeline/dump.h"
#include "pipeline/labels.h"
#include "trv/stages.h"

namespace trv {

const char* inputFormatLabel(int32_t code) {
    switch (code) {
        case 0: return "INPUT_FORMAT_YV_16";
        case 1: return "INPUT_FORMAT_NV_16";
        case 2: return "INPUT_FORMAT_YUV_422";
        case 4: return "INPUT_FORMAT_NV_21";
        default: return "INPUT_FORMAT_UNKNOWN";
    }
}

const char* outputFormatLabel(int32_t code) {
    switch (code) {
        case 0: return "OUTPUT_FORMAT_YV_16";
        case 2: return "OUTPUT_FORMAT_YUV_422";
        case 4: return "OUTPUT_FORMAT_NV_21";
        default: return "INPUT_FORMAT_UNKNOWN";
    }
}

const char* intensityLabel(int32_t intensity) {
    switch (intensity) {
        case 1:
        case 4: return "INTENSITY_LEVEL_3";
        case 3:
        case 6: return "INTENSITY_LEVEL_5";
        default: return "INTENSITY_LEVEL_4";
    }
}

// Bytes of a frame in the given input layout; 0 for a non-positive size.
static size_t frameBytes(int32_t format, int32_t W, int32_t H) {
    if (W <= 0 || H <= 0) return 0;
    size_t pixels = static_cast<size_t>(W) * static_cast<size_t>(H);
    return format == 4 ? pixels * 3 / 2 : pixels * 2;
}

void writeResultDump(const uint8_t* luma, int32_t W, int32_t H) {
    if (luma == nullptr || W <= 0 || H <= 0) return;
    FILE* f = fopen(TRV_DUMP_DIR "TRV_RESULT.yuv", "wb");
    if (f == nullptr) return;  // an unwritable dump is skipped, never fatal
    fwrite(luma, 1, static_cast<size_t>(W) * static_cast<size_t>(H), f);
    fclose(f);
}

}  // namespace trv

extern "C" int32_t saveYUVPicAndParam(_tag_TRV_INPUTINFO* in, _tag_TRV_PARAM* param) {
    static const char* const kFrameNames[6] = {
        TRV_DUMP_DIR "O1.yuv", TRV_DUMP_DIR "O2.yuv", TRV_DUMP_DIR "O3.yuv",
        TRV_DUMP_DIR "O4.yuv", TRV_DUMP_DIR "O5.yuv", TRV_DUMP_DIR "O6.yuv",
    };
    if (in == nullptr || param == nullptr) return -1;

    // Every frame is dumped as W * H * 2 bytes whatever its layout. A 4:2:0
    // frame holds only W * H * 3 / 2 bytes; the rest of its dump is zeros
    // rather than whatever memory follows the caller's frame.
    const size_t dumpBytes = trv::frameBytes(2, gW, gH);
    const size_t ownBytes = trv::frameBytes(gINFormat, gW, gH);
    const int frames = in->picNum < 6 ? in->picNum : 6;  // no dump name beyond O6
    for (int k = 0; k < frames; ++k) {
        const __tag_TRV_OFFSCREEN* pic = in->pics[k];
        if (pic == nullptr || pic->data == nullptr) continue;
        FILE* f = fopen(kFrameNames[k], "wb");
        if (f == nullptr) continue;
        size_t take = ownBytes < dumpBytes ? ownBytes : dumpBytes;
        fwrite(pic->data, 1, take, f);
        if (take < dumpBytes) {
            std::vector<uint8_t> zeros(dumpBytes - take, 0);
            fwrite(zeros.data(), 1, zeros.size(), f);
        }
        fclose(f);
    }

    _tag_TRV_Version version;
    TRV_GetVersion(&version);
    FILE* f = fopen(TRV_DUMP_DIR "KP_Param.txt", "wb");
    if (f == nullptr) return -1;
    char line[256];
    int len = snprintf(line, sizeof line, "version %s date %s INFormat %s OUTFormat %s intensity %s", version.version,
                       version.date, trv::inputFormatLabel(gINFormat), trv::outputFormatLabel(gOUTFormat),
                       trv::intensityLabel(param->intensity));
    if (len > 0) fwrite(line, 1, static_cast<size_t>(len), f);
    return fclose(f);
}
