// Process-wide state of the fusion stage: the burst published for the band
// threads, the per-tile motion vectors and the tables and thresholds built
// for each fusion.
#include "trv/stages.h"

extern "C" {
uint8_t* gMergeInput[6] = {};
uint8_t* gMergeInputs[6] = {};
uint8_t* gMergrOut = nullptr;
int32_t gNum = 5;  // the previous fusion's non-reference count; 5 before the first
int32_t gMergeEnhanceID = 0;
int32_t* gMergeMVS[5] = {};
MV1* gMergeMV[5][64] = {};
int32_t Y_SIZE = 0;
int32_t Y_SIZE_HALF = 0;
int32_t Y_SIZE_ONE_AND_HALF = 0;
int32_t width_half = 0;
int32_t y_weight[256] = {};
int32_t blur_weight[256] = {};
int32_t CbCr_weight[256] = {};
int32_t motion_weight[256] = {};
float gWeight_inverse[81] = {};
int32_t DIFFY[512] = {};
int32_t DIFFU[512] = {};
int32_t divNUM[241] = {};
int32_t divNUM_1[241] = {};
float gBlurTh = 0.0f;
float gColor_offset = 0.0f;
int32_t gBadPixelTh = 0;
extern const int32_t FUSETHREADNUM = 8;
}
