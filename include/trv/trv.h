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
 * The library keeps process-wide state. TRV_Enhancement and the raw
 * operations serve one call at a time per process; the validated entries
 * (TRV_FuseBurst, TRV_Retinex, TRV_Blur, TRV_ToneEnhance) serialise their
 * callers themselves. Usable from C and C++.
 */
#ifndef TRV_TRV_H
#define TRV_TRV_H

#include <stddef.h>
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
TRV_API int32_t TRV_Uninit(void); /* releases the buffers kept between bursts */

/* ------------------------------------------------------------------------
 * TRV_FuseBurst: the validated entry point.
 *
 * Runs the same pipeline as TRV_Enhancement, but checks its arguments first,
 * serialises concurrent callers and always delivers the result.
 *
 * Input: in->picNum frames (1..6); in->pics[i] non-null, with non-null data,
 * all of the same width W and height H. W and H must be even and at least
 * TRV_FUSE_MIN_WIDTH x TRV_FUSE_MIN_HEIGHT (the motion search crops a 10 %
 * border and fusion divides the frame into 8 x 8 tiles of 4 x 4 blocks; a
 * smaller frame leaves them without pixels), and 2*W*H must fit in a signed
 * 32-bit integer (the pipeline's sizes are signed 32-bit). Frame sizes in
 * bytes:
 *   code 0 (planar 4:2:2), 1 (semi-planar 4:2:2), 2 (packed 4:2:2): 2*W*H
 *   code 4 (semi-planar 4:2:0, V first, "NV21"):                      W*H*3/2
 * Only these four input codes are accepted (3 and 5 have no layout).
 * param->outputFormat must be 4: the result is always 4:2:0 semi-planar.
 * param->dump and param->intensity act as for TRV_Enhancement.
 *
 * Output: out->data receives W*H*3/2 bytes (TRV_FuseOutputBytes): the luma
 * plane, then H/2 rows of W bytes of interleaved chroma pairs, for every
 * input code. The pair keeps the input's chroma order: the chroma sample the
 * input stores first lands on the even byte. So code 4 gives V first (NV21),
 * code 2 gives the first chroma byte of each 4-byte group first (U for YUYV),
 * code 1 its first interleaved byte, code 0 its first chroma plane.
 * Chroma rows come from the even input rows (4:2:2 inputs). out->width and
 * out->height are set to W and H. outCapacity is the size of out->data in
 * bytes.
 *
 * Ownership: the caller owns every frame, the output buffer and the report;
 * the library keeps no pointer after the call returns. Input frames are only
 * read.
 *
 * Thread safety: calls to TRV_FuseBurst, TRV_Retinex, TRV_Blur and
 * TRV_ToneEnhance are serialised by one process-wide lock, so several
 * threads may call them at once; each gets its own correct result. The lock
 * does not cover TRV_Enhancement or the raw stand-alone operations, which
 * share the same process-wide state: do not run those while a validated
 * call is in progress.
 *
 * Returns TRV_FUSE_OK or one of the refusal codes below; on refusal nothing
 * is written (neither out nor report) and no pipeline stage runs.
 * TRV_StatusText(status) gives a one-line description of any status.
 * ---------------------------------------------------------------------- */

/* Smallest accepted frame size. */
#define TRV_FUSE_MIN_WIDTH 64
#define TRV_FUSE_MIN_HEIGHT 64

/* Status codes of TRV_FuseBurst; distinct from TRV_Enhancement's 1. */
enum {
    TRV_FUSE_OK = 0,
    TRV_FUSE_NULL_ARGUMENT = 100,   /* in, out, param, out->data, a frame record or its data is null */
    TRV_FUSE_BAD_FRAME_COUNT = 101, /* picNum outside 1..6 */
    TRV_FUSE_UNEQUAL_SIZES = 102,   /* a frame's width/height differs from frame 0's */
    TRV_FUSE_BAD_SIZE = 103,        /* W or H odd, below the minimum, or 2*W*H too large */
    TRV_FUSE_BAD_INPUT_FORMAT = 104,  /* inputFormat not 0, 1, 2 or 4 */
    TRV_FUSE_BAD_OUTPUT_FORMAT = 105, /* outputFormat not 4 */
    TRV_FUSE_OUTPUT_TOO_SMALL = 106   /* outCapacity below W*H*3/2 */
};

/* Why a frame did not take part in the result. */
enum {
    TRV_FRAME_FUSED = 0,     /* fused (or the reference) */
    TRV_FRAME_BLURRED = 1,   /* dropped by the sharpness check */
    TRV_FRAME_SCREENED = 2,  /* dropped by motion-or-noise screening */
    TRV_FRAME_UNUSED = 3     /* kept by both checks but not fused */
};

/* What the pipeline decided for one burst. Per-frame entries are indexed by
 * input frame index; entries at and beyond picNum are zero. Every field stays
 * within the range given here; none is ever NaN. */
typedef struct _tag_TRV_FUSE_REPORT {
    int32_t reference;        /* input index of the reference frame, 0 .. picNum-1 */
    int32_t swappedReference; /* 1 when the second-sharpest frame became the reference, else 0 */
    int32_t framesFused;      /* frames that took part in the result, 1 .. picNum (1 = single-frame output) */
    int32_t frameOrder[TRV_MAX_FRAMES]; /* input indices of the fused frames, reference first */
    int32_t vectorX[TRV_MAX_FRAMES];    /* global vector of frameOrder[k] against the reference, */
    int32_t vectorY[TRV_MAX_FRAMES];    /* luma pixels; entry 0 (the reference) is 0, 0 */
    int32_t frameFate[TRV_MAX_FRAMES];  /* TRV_FRAME_* per input index */
    /* Mean luma of the reference, sampled at every 8th pixel of every 8th
     * row and divided by (W/8)*(H/8). When W or H is not a multiple of 8 the
     * samples outnumber that divisor and the mean is larger than the true
     * mean, by design (it is the value that sets level): the range is
     * 0 .. 255*ceil(W/8)*ceil(H/8) / ((W/8)*(H/8)), at most 322 for accepted
     * sizes (reached at 66 x 66 .. 70 x 70), 0 .. 255 when both sides are
     * multiples of 8. */
    int32_t meanLuma;
    int32_t level;            /* enhancement level 0 (bright) .. 3 (very dark) */
    /* Sharpness of the second-sharpest frame over the sharpest, 0 .. 1; 0 for
     * a single frame. Featureless frames (flat, no edges at all) measure 0:
     * when the sharpest frame measures 0 the ratio would be 0/0, the report
     * gives 0, and the blur check keeps every frame. */
    float sharpnessRatio;
} _tag_TRV_FUSE_REPORT;

/* Output bytes for a W x H frame: W*H*3/2 (0 for a non-positive size). */
TRV_API size_t TRV_FuseOutputBytes(int32_t width, int32_t height);
/* Validated, serialised burst fusion; report may be null. */
TRV_API int32_t TRV_FuseBurst(_tag_TRV_INPUTINFO* in, const _tag_TRV_PARAM* param, __tag_TRV_OFFSCREEN* out,
                              size_t outCapacity, _tag_TRV_FUSE_REPORT* report);
/* One-line English description of any status of the validated entry points
 * (TRV_FuseBurst, TRV_Retinex, TRV_Blur, TRV_ToneEnhance); never null. */
TRV_API const char* TRV_StatusText(int32_t status);

/* ------------------------------------------------------------------------
 * Validated stand-alone operations.
 *
 * The raw operations below (MSR, MultiBlur, xImgEnhance_YCrCb) read the
 * pipeline's process-wide frame state (gW, gH, gOUTFormat) and keep their
 * own process-wide buffers. These entries check their arguments, set that
 * state from their own arguments, and hold the same process-wide lock as
 * TRV_FuseBurst while they run: any mix of TRV_FuseBurst, TRV_Retinex,
 * TRV_Blur and TRV_ToneEnhance calls from several threads gives each caller
 * the result it would get alone. The lock does not cover TRV_Enhancement or
 * the raw operations.
 *
 * Sizes: W and H are the frame's (or plane's) width and height in pixels,
 * at least 1, and even for the 4:2:0 frames of TRV_Retinex and
 * TRV_ToneEnhance; 2*W*H must fit in a signed 32-bit integer. Capacities
 * are buffer sizes in bytes. Input and output buffers must not overlap. The
 * caller owns every buffer; the library keeps no pointer after the call.
 *
 * On refusal nothing is written and no stage runs; TRV_StatusText gives the
 * reason. The luma floor table behind MultiBlur and the tone kernels is
 * filled only by createTHTable (all zero until a host calls it once); these
 * entries neither fill nor clear it, so call createTHTable, if at all,
 * before any of them runs.
 * ---------------------------------------------------------------------- */

enum {
    TRV_RETINEX_NULL_ARGUMENT = 110, /* frame is null */
    TRV_RETINEX_BAD_SIZE = 111,      /* W or H odd or not positive, or 2*W*H too large */
    TRV_RETINEX_FRAME_TOO_SMALL = 112, /* frameCapacity below W*H*3/2 */

    TRV_BLUR_NULL_ARGUMENT = 120,    /* input or output is null */
    TRV_BLUR_BAD_SIZE = 121,         /* W or H not positive, or 2*W*H too large */
    TRV_BLUR_INPUT_TOO_SMALL = 122,  /* inCapacity below W*H */
    TRV_BLUR_OUTPUT_TOO_SMALL = 123, /* outCapacity below W*H */
    TRV_BLUR_OVERLAP = 124,          /* input and output share bytes */

    TRV_TONE_NULL_ARGUMENT = 130,    /* input or output is null */
    TRV_TONE_BAD_SIZE = 131,         /* W or H odd or not positive, or 2*W*H too large */
    TRV_TONE_BAD_ID = 132,           /* id not 0, 1, 2 or 3 */
    TRV_TONE_BAD_OUTPUT_FORMAT = 133, /* outputFormat not 0, 2 or 4 */
    TRV_TONE_INPUT_TOO_SMALL = 134,  /* inCapacity below W*H*3/2 */
    TRV_TONE_OUTPUT_TOO_SMALL = 135, /* outCapacity below the output layout's size */
    TRV_TONE_OVERLAP = 136           /* input and output share bytes */
};

/* Multi-scale retinex (MSR), in place, on a 4:2:0 semi-planar frame of
 * W x H (luma plane, then H/2 rows of W bytes of chroma pairs, either
 * order): samples darker than their blurred surroundings are darkened
 * further. Rows and columns past the last multiple of 4 are left as they
 * are. Sets gW, gH to W, H. */
TRV_API int32_t TRV_Retinex(uint8_t* frame, size_t frameCapacity, int32_t width, int32_t height);

/* Three-level recursive Gaussian illumination estimate (MultiBlur) of an
 * 8-bit plane of W x H bytes (row stride W) into output, W x H bytes. */
TRV_API int32_t TRV_Blur(const uint8_t* input, size_t inCapacity, uint8_t* output, size_t outCapacity,
                         int32_t width, int32_t height);

/* Local tone enhancement (xImgEnhance_YCrCb) of a 4:2:0 semi-planar frame of
 * W x H with U first (NV12: luma, then H/2 rows of U V pairs), W*H*3/2
 * bytes, into output in the layout of outputFormat:
 *   4  semi-planar 4:2:0, V first (NV21)       W*H*3/2 bytes
 *   0  planar 4:2:2: Y, U plane, V plane        2*W*H bytes
 *   2  packed 4:2:2: Y0 U Y1 V                  2*W*H bytes
 * id selects the tone curve: 1 (level <= 99 the gentler, level >= 100 the
 * stronger set), 2, 3; id 0 only converts the layout. level is read only
 * with id 1. Sets gW, gH, gOUTFormat to W, H, outputFormat. */
TRV_API int32_t TRV_ToneEnhance(const uint8_t* input, size_t inCapacity, uint8_t* output, size_t outCapacity,
                                int32_t width, int32_t height, int32_t outputFormat, int32_t id, int32_t level);

/* ------------------------------------------------------------------------
 * Log lines.
 *
 * The library logs one-line messages at error priority under the tag
 * "BMQ" ("BMQ-Version: ..." on every burst, and the errors of
 * TRV_Enhancement). By default they go to the Android log on Android and to
 * stderr as "E/BMQ: <message>" elsewhere. TRV_SetLogHandler routes them to
 * handler(tag, message, user) instead: tag is "BMQ", message the text
 * without a line end, both valid only during the call. A handler that does
 * nothing silences the library; a null handler restores the default.
 *
 * Handler calls never overlap (they may come from any thread of the library,
 * one at a time), and once TRV_SetLogHandler returns the previous handler
 * is not called again, so its user data may be freed. A handler may call
 * TRV_SetLogHandler but no other function of the library.
 * ---------------------------------------------------------------------- */
typedef void (*TRV_LogHandler)(const char* tag, const char* message, void* user);
TRV_API void TRV_SetLogHandler(TRV_LogHandler handler, void* user);

/* Raw stand-alone operations; the burst pipeline never calls them. They
 * read the process-wide frame state and are not thread-safe: prefer the
 * validated entries above. */

/* Multi-scale retinex, in place, on a 4:2:0 semi-planar frame of w x h.
 * The quarter-scale blur takes its size from the frame state (gW, gH, set
 * by the last TRV_Enhancement or validated entry), so call it on a frame of
 * that size. */
TRV_API void MSR(unsigned char* image, int w, int h);
/* Three-level recursive Gaussian illumination estimate of an 8-bit plane. */
TRV_API void MultiBlur(unsigned char* input, unsigned char* output, int w, int h);
TRV_API void createDivTable(void);
/* Fills the luma floor table used by MultiBlur and the tone kernels; nothing
 * inside the library calls it. */
TRV_API void createTHTable(void);
/* Local tone enhancement of a 4:2:0 frame with U first; output layout from
 * the frame state's output format (gOUTFormat), size from gW, gH. */
TRV_API void xImgEnhance_YCrCb(unsigned char* in, unsigned char* out, int w, int h, int id, int level);

#ifdef __cplusplus
}
#endif

#endif /* TRV_TRV_H */
