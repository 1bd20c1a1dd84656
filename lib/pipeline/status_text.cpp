// TRV_StatusText: one line for every status of the validated entry points.
#include "trv/trv.h"

extern "C" const char* TRV_StatusText(int32_t status) {
    switch (status) {
        case TRV_FUSE_OK: return "success";
        case TRV_FUSE_NULL_ARGUMENT: return "a required pointer (burst, frame, frame data, parameters or output) is null";
        case TRV_FUSE_BAD_FRAME_COUNT: return "the burst must hold 1 to 6 frames";
        case TRV_FUSE_UNEQUAL_SIZES: return "all frames of a burst must have the same width and height";
        case TRV_FUSE_BAD_SIZE: return "width and height must be even, at least 64 x 64, and 2 * W * H must fit in 31 bits";
        case TRV_FUSE_BAD_INPUT_FORMAT: return "input format must be 0 (planar 4:2:2), 1 (semi-planar 4:2:2), 2 (packed 4:2:2) or 4 (NV21)";
        case TRV_FUSE_BAD_OUTPUT_FORMAT: return "output format must be 4 (4:2:0 semi-planar)";
        case TRV_FUSE_OUTPUT_TOO_SMALL: return "output buffer smaller than W * H * 3 / 2 bytes";

        case TRV_RETINEX_NULL_ARGUMENT: return "retinex: the frame is null";
        case TRV_RETINEX_BAD_SIZE: return "retinex: width and height must be positive and even, and 2 * W * H must fit in 31 bits";
        case TRV_RETINEX_FRAME_TOO_SMALL: return "retinex: frame buffer smaller than W * H * 3 / 2 bytes";

        case TRV_BLUR_NULL_ARGUMENT: return "blur: the input or output plane is null";
        case TRV_BLUR_BAD_SIZE: return "blur: width and height must be positive, and 2 * W * H must fit in 31 bits";
        case TRV_BLUR_INPUT_TOO_SMALL: return "blur: input buffer smaller than W * H bytes";
        case TRV_BLUR_OUTPUT_TOO_SMALL: return "blur: output buffer smaller than W * H bytes";
        case TRV_BLUR_OVERLAP: return "blur: input and output planes overlap";

        case TRV_TONE_NULL_ARGUMENT: return "tone: the input or output frame is null";
        case TRV_TONE_BAD_SIZE: return "tone: width and height must be positive and even, and 2 * W * H must fit in 31 bits";
        case TRV_TONE_BAD_ID: return "tone: id must be 0 (layout only), 1, 2 or 3";
        case TRV_TONE_BAD_OUTPUT_FORMAT: return "tone: output format must be 0 (planar 4:2:2), 2 (packed 4:2:2) or 4 (NV21)";
        case TRV_TONE_INPUT_TOO_SMALL: return "tone: input buffer smaller than W * H * 3 / 2 bytes";
        case TRV_TONE_OUTPUT_TOO_SMALL: return "tone: output buffer smaller than the output layout (W * H * 3 / 2 for NV21, 2 * W * H for 4:2:2)";
        case TRV_TONE_OVERLAP: return "tone: input and output frames overlap";
        default: return "unknown status";
    }
}
