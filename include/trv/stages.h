/*
 * TRV stage functions and process-wide state.
 *
 * Every stage of the pipeline is a plain exported function so that a host can
 * run one stage on its own; stages hand data to each other through the
 * process-wide variables below. Thread bodies take a pointer to their integer
 * index slot and return a null pointer (POSIX thread signature).
 *
 * Usable from C and C++. Declarations that carry NEON vector types need
 * <trv/simd.h> (native NEON on ARM, SIMDe elsewhere).
 */
#ifndef TRV_STAGES_H
#define TRV_STAGES_H

#include <stddef.h>
#include <stdint.h>

#include "trv/simd.h"
#include "trv/trv.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Motion vector of one frame (or one tile of one frame) against the
 * reference: the reference luma sample (c, r) matches the frame's sample
 * (c + x, r + y). */
typedef struct MV1 {
    int32_t x;
    int32_t y;
    int32_t reserved[4]; /* zero; copied with the record, never interpreted */
    double err;          /* matching cost of the vector */
} MV1;

/* ---- Frame state shared by the stages of one TRV_Enhancement call ---- */
TRV_API extern int32_t gINFormat;
TRV_API extern int32_t gOUTFormat;
TRV_API extern int32_t gW;
TRV_API extern int32_t gH;
TRV_API extern int32_t gPicNum;
TRV_API extern uint8_t* gImgInArr[6];
TRV_API extern uint8_t* gImgInSArr[6];
TRV_API extern float gErrorRatio[6];
TRV_API extern float* gSobel;
TRV_API extern float* gSobelInner;
TRV_API extern int32_t gMeanLux[6];
TRV_API extern int32_t gIsNormalPicLux[6];
TRV_API extern int32_t gIsNormalLuminance;
TRV_API extern int32_t gMeanY;

/* ---- Pipeline: dumps ---- */
TRV_API int32_t saveYUVPicAndParam(_tag_TRV_INPUTINFO* in, _tag_TRV_PARAM* param);

/* ---- Analysis: quarter-scale luma images ---- */
TRV_API void fillImageS_YV16(int i);
TRV_API void fillImageS_YUV422(int i);
TRV_API void fillImageS_YV16_line(const unsigned char* row, unsigned char* out, int W);
TRV_API void* fillImageThread_YV16(void* arg);
TRV_API void RunFillImage(int i);

/* ---- Analysis: sharpness and blurred-frame rejection ---- */
TRV_API float kickBlurPic(int* kept, int* ref, int* second, int n);
TRV_API void RunCalSobel(int n);
TRV_API void* SobelThread(void* index);
TRV_API void xCalcSobelHV(unsigned char* img, int w, int h, float* whole, float* inner);

/* ---- Analysis: luminance statistics ---- */
TRV_API int CalEnhanceID(unsigned char* img, int w, int h, int* mean, int* histogram);
TRV_API int CalEnhanceID_YV16(unsigned char* img, int w, int h, int* mean, int* histogram);
TRV_API int CalEnhanceID_YUV422(unsigned char* img, int w, int h, int* mean, int* histogram);

/* ---- Motion: global search ---- */
TRV_API extern uint8_t* gMEInput;
TRV_API extern uint8_t* gMEBaseInput;
TRV_API extern uint8_t* gMERef[5];
TRV_API extern MV1* gMEMV[5];
TRV_API void ME(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n);
TRV_API void ME_YV16(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n);
TRV_API void ME_YUV422(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n);
TRV_API void fillBaseImg_YV16(void);
TRV_API void fillBaseImg_YUV422(void);
TRV_API void* fillImg0_YV16(void* index);
TRV_API void* fillImg0_YUV422(void* index);
TRV_API void* METhread(void* index);
TRV_API void xMotionEstimation_YV16(unsigned char* crop, unsigned char* ref, MV1* mv, int W, int H);
TRV_API void xMotionEstimation_YUV422(unsigned char* crop, unsigned char* ref, MV1* mv, int W, int H);

/* ---- Motion: alignment error ---- */
TRV_API extern uint8_t* gCEInput;
TRV_API extern uint8_t* gCERef[5];
TRV_API extern MV1* gCEMV[5];
TRV_API void CalcError(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n);
TRV_API void CalcError_YV16(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n);
TRV_API void CalcError_YUV422(unsigned char* base, unsigned char** frames, MV1** mvs, int W, int H, int n);
TRV_API void* CEThread_YV16(void* index);
TRV_API void* CEThread_YUV422(void* index);

/* ---- Motion: frame screening ---- */
TRV_API extern int32_t gWidthS;
TRV_API extern int32_t gHeightS;
TRV_API extern uint8_t* gImageS[6];
TRV_API extern MV1* gRotateMV[5];
TRV_API extern int32_t* gRotatePID;
TRV_API extern float gEstSigma;
TRV_API void KickRotatePic(unsigned char** frames, unsigned char** smalls, int Ws, int Hs, int W, int H,
                           MV1** mvs, int n, int count);
TRV_API void RunRefineMV(int n);
TRV_API void* RefineMVThread(void* index);

/* ---- Motion: per-block refinement ---- */
TRV_API void RefineMVS_neon(unsigned char* cur, unsigned char* ref, int* start, MV1* out, int W, int H, int bw,
                            int bh, int r);
TRV_API void RefineMVS(unsigned char* cur, unsigned char* ref, int* start, MV1* out, int W, int H, int bw, int bh,
                       int r);
TRV_API void RefineMV_YV16_neon(unsigned char* cur, unsigned char* ref, MV1* mv, int W, int H, int bw, int bh, int r);
TRV_API void RefineMV_YV16(unsigned char* cur, unsigned char* ref, MV1* mv, int W, int H, int bw, int bh, int r);
TRV_API void RefineMV_YV16_BLK_neon(unsigned char* cur, unsigned char* ref, MV1* mv, int W, int H, int bw, int bh,
                                    int r);
TRV_API void RefineMV_YV16_BLK_neon1(unsigned char* cur, unsigned char* ref, MV1* mv, int W, int H, int bw, int bh,
                                     int r);
TRV_API void RefineMV(unsigned char* cur, unsigned char* ref, MV1* mv, int W, int H, int bw, int bh, int r);
TRV_API float xCalcSobelHV2(unsigned char* img, int W, int H);
TRV_API float xCalcSobelHV2_YV16(unsigned char* img, int W, int H);

/* ---- Fusion: driver and band threads ---- */
TRV_API extern uint8_t* gMergeInput[6];
TRV_API extern uint8_t* gMergeInputs[6];
TRV_API extern uint8_t* gMergrOut;
TRV_API extern int32_t gNum;
TRV_API extern int32_t gMergeEnhanceID;
TRV_API extern int32_t* gMergeMVS[5];
TRV_API extern MV1* gMergeMV[5][64];
TRV_API extern int32_t Y_SIZE;
TRV_API extern int32_t Y_SIZE_HALF;
TRV_API extern int32_t Y_SIZE_ONE_AND_HALF;
TRV_API extern int32_t width_half;
TRV_API extern int32_t y_weight[256];
TRV_API extern int32_t blur_weight[256];
TRV_API extern int32_t CbCr_weight[256];
TRV_API extern int32_t motion_weight[256];
TRV_API extern float gWeight_inverse[81];
TRV_API extern int32_t DIFFY[512];
TRV_API extern int32_t DIFFU[512];
TRV_API extern int32_t divNUM[241];
TRV_API extern int32_t divNUM_1[241];
TRV_API extern float gBlurTh;
TRV_API extern float gColor_offset;
TRV_API extern int32_t gBadPixelTh;
TRV_API extern const int32_t FUSETHREADNUM;
TRV_API void Merge(unsigned char** frames, unsigned char** smalls, unsigned char* out, MV1** mvs, int n, int W,
                   int H, int enhanceID, int meanY);
TRV_API void* MergeThread(void* index);

/* ---- Fusion: moving-block detection ---- */
TRV_API void findMovingBlock(int* map, int* extra, int* scratch, int w, int h);
TRV_API void findMovingBlock1(int* map, int* extra, int* scratch, int w, int h);

/* ---- Fusion: strict merge of one 2 x 2 quad ---- */
TRV_API void strictMerge_NV21(int x, int y, float tune1, float tune2, int tile, int* parity, int tileX0, int tileY0,
                              int tileSpan, float w);
TRV_API void strictMerge_NV16_1(int x, int y, float tune1, float tune2, int tile, int* parity, int tileX0,
                                int tileY0, int tileSpan, float w);
TRV_API void strictMerge_NV16(int x, int y, float tune1, float tune2, int tile, int* parity, int tileX0, int tileY0,
                              int tileSpan, float w);
TRV_API void strictMerge_YV16(int x, int y, float tune1, float tune2, int tile, int* parity, int tileX0, int tileY0,
                              int tileSpan, float w);
TRV_API void strictMerge_YUV422(int x, int y, float tune1, float tune2, int tile, int* parity, int tileX0,
                                int tileY0, int tileSpan, float w);

/* ---- Fusion: per-format merging of one tile ---- */
TRV_API void Merging_NV21(int tile);
TRV_API void Merging_NV16(int tile);
TRV_API void Merging_YV16(int tile);
TRV_API void Merging_YUV422(int tile);

/* ---- Fusion: simple fusion ---- */
TRV_API void simpleFusion(int b);
TRV_API void simpleFusion_boundy(int x0, int y0, int w, int h, int b);

/* ---- Fusion: vector blending kernels and constants ---- */
TRV_API extern float32x4_t CONST0_5;
TRV_API extern float32x4_t CONST0_3_3;
TRV_API extern float32x4_t CONST0_2;
TRV_API extern float32x4_t CONST0_1_6_7;
TRV_API extern uint8x8_t CONST_16;
TRV_API extern uint8x8_t CONST_24;
TRV_API extern uint8x8_t CONST_10;
TRV_API extern uint8x8_t CONST_255;
TRV_API extern uint8x8_t CONST_0;
TRV_API extern int16x8_t CONST_1;
TRV_API extern int16x8_t CONST_2;
TRV_API extern int16x8_t MIN10;
TRV_API extern int16x8_t MAX10;
TRV_API extern int16x8_t MIN16;
TRV_API extern int16x8_t MAX16;
TRV_API extern int16x8_t MIN24;
TRV_API extern int16x8_t MAX24;
TRV_API extern uint16x8_t U16MIN16;
TRV_API extern uint16x8_t U16MAX25;
TRV_API extern uint16x8_t U16MAX1;
TRV_API extern uint16x8_t NUM_16;
TRV_API extern const int32_t DIFFY_1[49];
TRV_API extern uint8x8_t (*pfun24)(uint16x8_t);
TRV_API extern uint8x8_t (*pfun16)(uint16x8_t);
TRV_API void setfunc(void);
TRV_API uint8x8_t Divfun1(uint16x8_t v);
TRV_API uint8x8_t Divfun2(uint16x8_t v);
TRV_API uint8x8_t Divfun3(uint16x8_t v);
TRV_API uint8x8_t Divfun4(uint16x8_t v);
TRV_API uint8x8_t Divfun5(uint16x8_t v);
TRV_API uint8x8_t Divfun6(uint16x8_t v);
TRV_API void mergeBlk_Y_neon(unsigned char* ref, unsigned char** frames, unsigned char* out, int width, int height);
TRV_API void mergeBlk_uv_neon(unsigned char* ref, unsigned char** frames, unsigned char* out, int width, int height);
TRV_API void mergeBlk_YUV_neon_YUYV(unsigned char* ref, unsigned char** frames, unsigned char* outY,
                                    unsigned char* outUV, int width, int height);

/* ---- Tone: entry, brightness plane, band threads, layout conversions ---- */
TRV_API extern int32_t gDown_level;
TRV_API extern uint8_t* gCImgIn;
TRV_API extern uint8_t* gCImgOut;
TRV_API extern int32_t gColorEnhanceID;
TRV_API extern const int32_t* gYTb;
TRV_API extern const int32_t* gScaleTb;
TRV_API extern const float* gUVScaleTb;
TRV_API extern uint8_t* gV;
TRV_API extern uint8_t* gGauss;
TRV_API extern const int32_t C0Table[256];
TRV_API extern const int32_t C1Table[256];
TRV_API extern const int32_t C2Table[256];
TRV_API extern const int32_t C3Table[256];
TRV_API extern const int32_t transYTable1[256];
TRV_API extern const int32_t transYTable2[256];
TRV_API extern const int32_t transYTable3[256];
TRV_API extern const int32_t transYTable4[256];
TRV_API extern const int32_t ScaleTable1[256];
TRV_API extern const int32_t ScaleTable2[256];
TRV_API extern const int32_t ScaleTable3[256];
TRV_API extern const int32_t ScaleTable4[256];
TRV_API extern const float uvScaleTable1[256];
TRV_API extern const float uvScaleTable2[256];
TRV_API extern const float uvScaleTable3[256];
TRV_API extern const float uvScaleTable4[256];
TRV_API int RGBConvert(void);
TRV_API void* RGBConvertThread(void* index);
TRV_API int RunImgEnhance(void);
TRV_API void* IEThread(void* index);
TRV_API void trans_NV12_2_NV21(unsigned char* inY, unsigned char* inC, unsigned char* outY, unsigned char* outC, int W,
                               int rows);
TRV_API void trans_NV12_2_YV16(unsigned char* inY, unsigned char* inC, unsigned char* outY, unsigned char* outC, int W,
                               int rows);
TRV_API void trans_NV12_2_YUYV(unsigned char* inY, unsigned char* inC, unsigned char* out, int W, int rows);

/* ---- Tone: multi-level blur ---- */
typedef struct TRVGauss3Coefs {
    double B;       /* input weight */
    double b1_b0;   /* b1 / b0 */
    double b2_b0;   /* b2 / b0 */
    double b3_b0;   /* b3 / b0 */
    double b0;
    int32_t order;  /* 3 */
    float sigma;
} TRVGauss3Coefs;
TRV_API extern uint8_t* gBlurSrc;
TRV_API extern uint8_t* gBlurImg;
TRV_API extern int32_t gBlurSrcW;
TRV_API extern int32_t gBlurSrcH;
TRV_API extern uint8_t* gVerImg[3];
TRV_API extern float gSigma[3];
TRV_API extern TRVGauss3Coefs gGauss3_coefs[3];
TRV_API extern float32x4_t vec_b0;
TRV_API extern float32x4_t vec_b1;
TRV_API extern int32_t gDivTable[768];
TRV_API extern uint8_t gDivTable_0_8[256];
TRV_API extern uint8_t gTHTable[256];
TRV_API extern int32_t* gBlurResult;

/* ---- Tone: tone-mapping kernels, one band each ---- */
TRV_API void createGuassRow_8_1(const unsigned char* a, const unsigned char* b, unsigned char* out, int n);
TRV_API void createGuassRow_8_2(const unsigned char* a, const unsigned char* b, unsigned char* out, int n);
TRV_API void xImgEnhance_NV21_8(unsigned char* inY, unsigned char* inC, unsigned char* outY, unsigned char* outC,
                                unsigned char* blurred, int W, int rows, int last);
TRV_API void xImgEnhance_NV21_4(unsigned char* inY, unsigned char* inC, unsigned char* outY, unsigned char* outC,
                                unsigned char* blurred, int W, int rows, int last);
TRV_API void xImgEnhance_YV16_8(unsigned char* inY, unsigned char* inC, unsigned char* outY, unsigned char* outC,
                                unsigned char* blurred, int W, int rows, int last);
TRV_API void xImgEnhance_YV16_4(unsigned char* inY, unsigned char* inC, unsigned char* outY, unsigned char* outC,
                                unsigned char* blurred, int W, int rows, int last);
TRV_API void xImgEnhance_YUYV_8(unsigned char* inY, unsigned char* inC, unsigned char* out, unsigned char* blurred,
                                int W, int rows, int last);
TRV_API void xImgEnhance_YUYV_4(unsigned char* inY, unsigned char* inC, unsigned char* out, unsigned char* blurred,
                                int W, int rows, int last);

/* ---- Retinex ---- */
TRV_API extern uint8_t* gMSRInput;
TRV_API extern int32_t gMSRw;
TRV_API extern int32_t gMSRh;
TRV_API extern int32_t gMSRThreadNUM;
TRV_API extern uint8_t* gGaussOut;
TRV_API extern int32_t ITable0_2[256];
TRV_API extern int32_t ITable1_2[256];
TRV_API void create0_1_2Table(void);
TRV_API int colorBalance(int value);
TRV_API void RunDown(void);
TRV_API void* tpfillSmallImg(void* index);
TRV_API void* singleMSR(void* plane);
TRV_API void RunGaussThread(int p);
TRV_API void* GaussThread1(void* arg);
TRV_API void* GaussThread2(void* arg);
TRV_API void RunMSRResultThread(void);
TRV_API void MSRResult(int t);
TRV_API void* tpMSRResult(void* index);

#ifdef __cplusplus
}
#endif

#endif /* TRV_STAGES_H */
