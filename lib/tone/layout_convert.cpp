// Plain layout conversions of one band of a 4:2:0 frame with U first, used
// when the tone enhancement runs with ID 0: luma copied, chroma reordered.
#include <cstring>

#include "tone/tone_band_walk.h"
#include "trv/stages.h"

namespace {

// Samples pass unchanged.
struct CopyRule {
    struct Sample {
        uint8_t value;
    };
    void startRowPair(int) {}
    Sample luma(int, uint8_t y) const { return {y}; }
    uint8_t chromaU(const Sample&, uint8_t u) const { return u; }
    uint8_t chromaV(const Sample&, uint8_t v) const { return v; }
};

template <class Writer>
void convertBand(const uint8_t* inY, const uint8_t* inC, Writer out, int W, int rows) {
    if (W < 1 || rows < 1) return;
    CopyRule copy;
    trv::walkBand(inY, inC, W, rows, copy, out);
}

}  // namespace

extern "C" {

// The chroma pairs are swapped as one run of (rows / 2) * (W / 2) pairs.
void trans_NV12_2_NV21(unsigned char* inY, unsigned char* inC, unsigned char* outY, unsigned char* outC, int W,
                       int rows) {
    if (W < 1 || rows < 1) return;
    std::memcpy(outY, inY, static_cast<size_t>(rows) * W);
    const size_t pairs = static_cast<size_t>(rows >> 1) * static_cast<size_t>(W >> 1);
    for (size_t k = 0; k < pairs; ++k) {
        outC[2 * k] = inC[2 * k + 1];
        outC[2 * k + 1] = inC[2 * k];
    }
}

// Each input chroma row serves two output rows; the second plane lies half a
// frame (of the pipeline's size) after the first.
void trans_NV12_2_YV16(unsigned char* inY, unsigned char* inC, unsigned char* outY, unsigned char* outC, int W,
                       int rows) {
    const size_t planeOffset = static_cast<size_t>(gW) * static_cast<size_t>(gH) / 2;
    convertBand(inY, inC, trv::Yv16Writer{outY, outC, outC + planeOffset, W}, W, rows);
}

// Rows of W luma bytes in, 2W bytes out.
void trans_NV12_2_YUYV(unsigned char* inY, unsigned char* inC, unsigned char* out, int W, int rows) {
    convertBand(inY, inC, trv::YuyvWriter{out, W}, W, rows);
}

}  // extern "C"
