/* Fuses a two-frame NV21 burst of flat grey through the installed library. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <trv/trv.h>

int main(void) {
    enum { W = 128, H = 96 };
    static uint8_t frames[2][W * H * 3 / 2];
    static uint8_t result[W * H * 3 / 2];
    __tag_TRV_OFFSCREEN pics[2] = {{0, W, H, frames[0]}, {0, W, H, frames[1]}};
    __tag_TRV_OFFSCREEN out = {0, 0, 0, result};
    _tag_TRV_INPUTINFO in;
    _tag_TRV_PARAM param;
    _tag_TRV_FUSE_REPORT report;
    int32_t status;

    memset(frames, 90, sizeof frames);
    memset(&in, 0, sizeof in);
    in.picNum = 2;
    in.pics[0] = &pics[0];
    in.pics[1] = &pics[1];
    TRV_GetDefaultParam(&param);
    param.inputFormat = 4;
    status = TRV_FuseBurst(&in, &param, &out, sizeof result, &report);
    if (status != TRV_FUSE_OK) {
        fprintf(stderr, "trv_consumer: %s\n", TRV_StatusText(status));
        return 1;
    }
    printf("fused %dx%d, reference %d, %d frame(s)\n", (int)out.width, (int)out.height, (int)report.reference,
           (int)report.framesFused);
    return 0;
}
