// Brightness plane of the tone enhancement: one byte per L x L cell, the
// largest of R, G and B of the cell's sample, built from averaged luma and
// the colour-difference tables on four threads.
#include <algorithm>

#include "common/arith.h"
#include "common/threads.h"
#include "tone/tone_internal.h"
#include "trv/stages.h"

namespace {

constexpr int kConvertThreads = 4;

// Largest of R - Y, G - Y and B - Y for one chroma pair; the terms that the
// chroma signs rule out are skipped.
int largestColourDifference(int u, int v) {
    const int green = (C1Table[v] + C2Table[u] + 8192) >> 14;
    const int red = C0Table[v];
    const int blue = C3Table[u];
    if (u <= 128) return v <= 128 ? green : std::max(green, red);
    return v > 128 ? std::max(red, blue) : std::max(green, blue);
}

struct Frame {
    const uint8_t* luma;    // W x H
    const uint8_t* chroma;  // H / 2 rows of W bytes, U first
    int W, H;

    int y(int r, int c) const { return luma[static_cast<size_t>(r) * W + c]; }

    // A sample whose chroma pair lies outside the frame (the last column of
    // an odd width, the last row of an odd height) counts as grey.
    int colourTerm(int r, int c) const {
        if (c + 1 >= W || (r >> 1) >= H / 2) return largestColourDifference(128, 128);
        const uint8_t* pair = chroma + static_cast<size_t>(r >> 1) * W + c;
        return largestColourDifference(pair[0], pair[1]);
    }
};

// Rows [first, first + rows) of the frame into consecutive plane bytes.
// Whole L-row steps average four luma samples (the second row always four
// rows down, the second column s = L / 2 right); a partial last step
// averages two, and the columns of a partial last cell take one.
void convertBand(const Frame& f, int first, int rows, int L, uint8_t* out) {
    const int s = L == 4 ? 2 : 4;
    const int wholeRows = (rows / L) * L;
    const int wholeCols = (f.W / L) * L;
    for (int br = 0; br < rows; br += L) {
        const int r = first + br;
        for (int c = 0; c < f.W; c += L) {
            int y;
            if (c < wholeCols && br < wholeRows) {
                y = (f.y(r, c) + f.y(r, c + s) + f.y(r + 4, c) + f.y(r + 4, c + s) + 2) >> 2;
            } else if (c < wholeCols) {
                y = (f.y(r, c) + f.y(r, c + s) + 1) >> 1;
            } else {
                y = f.y(r, c);
            }
            *out++ = static_cast<uint8_t>(trv::clampInt(y + f.colourTerm(r, c), 0, 255));
        }
    }
}

}  // namespace

extern "C" {

// The worker reading four rows down from the last whole step of the frame
// reads chroma bytes as luma, as the averaging rule asks; they lie inside the
// frame buffer.
void* RGBConvertThread(void* index) {
    const int t = *static_cast<int*>(index);
    const int L = gDown_level, W = gW, H = gH;
    if (W < 1 || H < 1 || L < 1) return nullptr;
    const int B = trv::convertBandRows(H, L);
    const int rows = t == kConvertThreads - 1 ? H - 3 * B : B;
    const Frame frame{gCImgIn, gCImgIn + static_cast<size_t>(W) * H, W, H};
    uint8_t* out = gV + static_cast<size_t>(t) * trv::cellCount(W, L) * (B / L);
    convertBand(frame, t * B, rows, L, out);
    return nullptr;
}

int RGBConvert(void) { return trv::runWorkers(RGBConvertThread, kConvertThreads); }

}  // extern "C"
