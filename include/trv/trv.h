/*
 * TRV: low-light burst fusion for YUV camera frames.
 *
 * The public records and entry points. A caller fills one
 * __tag_TRV_OFFSCREEN per frame, lists them in a _tag_TRV_INPUTINFO,
 * takes the default _tag_TRV_PARAM from TRV_GetDefaultParam, sets the input
 * format code and calls TRV_Enhancement once per burst.
 *
 * Format codes (inputFormat / outputFormat):
 *   0  planar 4:2:2          Y (W*H), first chroma plane (W/2*H), second chroma plane
 *   1  semi-planar 4:2:2     Y (W*H), H rows of W bytes of interleaved chroma pairs
 *   2  packed 4:2:2          H rows of 2W bytes: Y0 C0 Y1 C1 ...
 *   3, 5                     accepted, no layout of their own (treated as packed)
 *   4  semi-planar 4:2:0     Y (W*H), H/2 rows of W bytes of V/U pairs (NV21)
 *   >5                       rejected (status 1)
 *
 * The library keeps process-wide state: one burst at a time per process.
 * Usable from C and C++.
 */
#ifndef TRV_TRV_H
#define TRV_TRV_H

#include <stdint.h>

#if defined(_WIN32)
#define TRV_API
#else
#define TRV_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Most frames one burst can hold. */
#define TRV_MAX_FRAMES 6

/* One image: an input frame or the output frame. All planes follow
 * contiguously from data. */
typedef struct __tag_TRV_OFFSCREEN {
    uint32_t reserved; /* never read nor written by the library */
    int32_t width;     /* W in pixels */
    int32_t height;    /* H in rows */
    uint8_t* data;     /* first byte of the frame */
} __tag_TRV_OFFSCREEN;

/* The burst, in capture order. Only pics[0]'s width and height are read;
 * every frame is taken to have that size. */
typedef struct _tag_TRV_INPUTINFO {
    int32_t picNum;                                  /* frames in the burst, 1..6 */
    __tag_TRV_OFFSCREEN* pics[TRV_MAX_FRAMES];       /* one record per frame */
} _tag_TRV_INPUTINFO;

typedef struct _tag_TRV_PARAM {
    int32_t inputFormat;  /* format code of the input frames */
    int32_t outputFormat; /* validated and recorded; selects nothing in the pipeline */
    int32_t intensity;    /* 1..6; only labels the parameter dump */
    uint32_t reserved;    /* not read */
    uint8_t dump;         /* nonzero: write the diagnostic dumps */
} _tag_TRV_PARAM;

typedef struct _tag_TRV_Version {
    int32_t iMajor, iMinor, iRevision, iBuild; /* all 1 */
    const char* version;                       /* "1.9" */
    const char* date;                          /* "2015-06-18" */
    const char* notice;                        /* rights notice */
} _tag_TRV_Version;

/* Fuses the burst into out. Returns 1 for a format code above 5, else 0.
 * The fused 4:2:0 frame (V first) reaches out->data only when
 * param->inputFormat is 4; for other codes the work is done in a temporary
 * buffer and out->data is left untouched. out->width/height are set.
 * callback is accepted and never called. Not thread-safe. */
TRV_API int32_t TRV_Enhancement(_tag_TRV_INPUTINFO* in, __tag_TRV_OFFSCREEN* out,
                                 _tag_TRV_PARAM* param, int (*callback)(long, long, void*));
TRV_API void TRV_GetVersion(_tag_TRV_Version* v);
/* inputFormat 1, outputFormat 4, dump 0; intensity and reserved untouched. */
TRV_API int32_t TRV_GetDefaultParam(_tag_TRV_PARAM* p);
TRV_API int32_t TRV_Init(void);   /* does nothing */
TRV_API int32_t TRV_Uninit(void); /* does nothing */

/* Stand-alone operations; the burst pipeline never calls them. */

/* Multi-scale retinex, in place, on a 4:2:0 semi-planar frame of w x h.
 * The quarter-scale blur takes its size from the last TRV_Enhancement's
 * frame size, so call it on a frame of that size. */
TRV_API void MSR(unsigned char* image, int w, int h);
/* Three-level recursive Gaussian illumination estimate of an 8-bit plane. */
TRV_API void MultiBlur(unsigned char* input, unsigned char* output, int w, int h);
TRV_API void createDivTable(void);
/* Fills the luma floor table used by MultiBlur and the tone kernels; nothing
 * inside the library calls it. */
TRV_API void createTHTable(void);
/* Local tone enhancement of a 4:2:0 frame with U first; output layout from
 * the last TRV_Enhancement's output format, size from its frame size. */
TRV_API void xImgEnhance_YCrCb(unsigned char* in, unsigned char* out, int w, int h, int id, int level);

#ifdef __cplusplus
}
#endif

#endif /* TRV_TRV_H */
