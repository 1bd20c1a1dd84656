// Local tone enhancement of one 4:2:0 frame (U first): a brightness plane at
// 1/L scale, its three-level blur, then eight band threads that tone-map (or,
// with ID 0, only convert) the frame into the output layout.
#include <algorithm>
#include <cstdlib>

#include "common/threads.h"
#include "tone/tone_internal.h"
#include "trv/stages.h"

extern "C" {

int32_t gDown_level = 8;
uint8_t* gCImgIn = nullptr;
uint8_t* gCImgOut = nullptr;
int32_t gColorEnhanceID = 0;
const int32_t* gYTb = transYTable1;
const int32_t* gScaleTb = ScaleTable1;
const float* gUVScaleTb = uvScaleTable1;
uint8_t* gV = nullptr;
uint8_t* gGauss = nullptr;

}  // extern "C"

namespace {

constexpr int kBands = 8;
constexpr int64_t kFineLevelMaxPixels = 8000000;

struct ToneTableSet {
    const int32_t* luma;
    const int32_t* gain;
    const float* chroma;
};

constexpr ToneTableSet kTableSets[4] = {
    {transYTable1, ScaleTable1, uvScaleTable1},
    {transYTable2, ScaleTable2, uvScaleTable2},
    {transYTable3, ScaleTable3, uvScaleTable3},
    {transYTable4, ScaleTable4, uvScaleTable4},
};

// Table set 1 .. 4 for an enhancement ID and level, 0 when the ID has none.
int tableSetFor(int id, int level) {
    switch (id) {
        case 1: return level <= 99 ? 1 : 2;
        case 2: return 3;
        case 3: return 4;
        default: return 0;
    }
}

// Band i of the eight: input and output pointers by the output layout, then
// the tone kernel for L or the plain conversion.
void processBand(int i, bool toneMap) {
    const int L = gDown_level, W = gW, H = gH;
    if (W < 1 || H < 1) return;
    const int B = L != 0 ? trv::toneBandRows(H, L) : 0;
    const int rows = i == kBands - 1 ? H - (kBands - 1) * B : B;
    const int last = i == kBands - 1 ? 1 : 0;
    const size_t frame = static_cast<size_t>(W) * H;
    uint8_t* inY = gCImgIn + static_cast<size_t>(i) * W * B;
    uint8_t* inC = gCImgIn + static_cast<size_t>(W) * (H + ((i * B) >> 1));
    uint8_t* outY = gCImgOut + static_cast<size_t>(i) * W * B;
    // Only cell sizes 4 and 8 have kernels; other bands stay unwritten.
    const bool kernelFits = L == 4 || L == 8;
    uint8_t* blurred =
        toneMap && kernelFits ? gGauss + static_cast<size_t>(i) * trv::cellCount(W, L) * (B / L) : nullptr;
    const int format = gOUTFormat;
    if (format == 0) {
        uint8_t* outC = gCImgOut + frame + static_cast<size_t>(i) * B * (W / 2);
        if (!toneMap) {
            trans_NV12_2_YV16(inY, inC, outY, outC, W, rows);
        } else if (L == 8) {
            xImgEnhance_YV16_8(inY, inC, outY, outC, blurred, W, rows, last);
        } else if (L == 4) {
            xImgEnhance_YV16_4(inY, inC, outY, outC, blurred, W, rows, last);
        }
    } else if (format == 4) {
        uint8_t* outC = gCImgOut + static_cast<size_t>(W) * (H + (i * B) / 2);
        if (!toneMap) {
            trans_NV12_2_NV21(inY, inC, outY, outC, W, rows);
        } else if (L == 8) {
            xImgEnhance_NV21_8(inY, inC, outY, outC, blurred, W, rows, last);
        } else if (L == 4) {
            xImgEnhance_NV21_4(inY, inC, outY, outC, blurred, W, rows, last);
        }
    } else {
        uint8_t* out = gCImgOut + static_cast<size_t>(i) * B * 2 * W;
        if (!toneMap) {
            trans_NV12_2_YUYV(inY, inC, out, W, rows);
        } else if (L == 8) {
            xImgEnhance_YUYV_8(inY, inC, out, blurred, W, rows, last);
        } else if (L == 4) {
            xImgEnhance_YUYV_4(inY, inC, out, blurred, W, rows, last);
        }
    }
}

void* convertBandThread(void* index) {
    processBand(*static_cast<int*>(index), false);
    return nullptr;
}

}  // namespace

extern "C" {

void* IEThread(void* index) {
    processBand(*static_cast<int*>(index), gColorEnhanceID != 0);
    return nullptr;
}

int RunImgEnhance(void) { return trv::runWorkers(IEThread, kBands); }

void xImgEnhance_YCrCb(unsigned char* in, unsigned char* out, int w, int h, int id, int level) {
    // The pipeline's frame size, not w x h, picks the cell size.
    const int64_t pixels = static_cast<int64_t>(gW) * gH;
    gDown_level = pixels <= kFineLevelMaxPixels ? 4 : 8;
    gCImgIn = in;
    gCImgOut = out;
    gColorEnhanceID = id;

    const int set = tableSetFor(id, level);
    if (set == 0) {
        // No tone mapping without a table set: ID 0 converts the layout. Any
        // other ID would tone-map with a brightness plane that an earlier call
        // has already freed, so it converts the layout too.
        if (id == 0) {
            RunImgEnhance();
        } else {
            trv::runWorkers(convertBandThread, kBands);
        }
        return;
    }
    gYTb = kTableSets[set - 1].luma;
    gScaleTb = kTableSets[set - 1].gain;
    gUVScaleTb = kTableSets[set - 1].chroma;

    // The plane is blurred at w x h but written and read at the pipeline's
    // frame size; both buffers cover the larger of the two, so a mismatch
    // blends garbage instead of reaching past the buffers.
    const int L = gDown_level;
    const int Ws = (w + L - 1) / L, Hs = (h + L - 1) / L;
    const size_t blurBytes = Ws > 0 && Hs > 0 ? static_cast<size_t>(Ws) * Hs : 0;
    const size_t bytes = std::max<size_t>({blurBytes, trv::framePlaneBytes(gW, gH, L), 1});
    uint8_t* plane = static_cast<uint8_t*>(std::calloc(bytes, 1));
    gV = plane;
    RGBConvert();

    uint8_t* blurred = static_cast<uint8_t*>(std::calloc(bytes, 1));
    if (blurBytes > 0) MultiBlur(gV, blurred, Ws, Hs);
    gGauss = blurred;
    RunImgEnhance();

    std::free(blurred);
    std::free(plane);
}

}  // extern "C"
