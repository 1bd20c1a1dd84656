/* The public headers compile as C and the entry points link from C. */
#include <stddef.h>

#include "trv/stages.h"
#include "trv/trv.h"

int trvCallFromC(void) {
    _tag_TRV_PARAM param;
    _tag_TRV_Version version;
    MV1 mv = {0, 0, {0, 0, 0, 0}, 0.0};
    TRV_GetDefaultParam(&param);
    TRV_GetVersion(&version);
    (void)mv;
    return TRV_Init() + TRV_Uninit() + (int)sizeof(MV1) + param.outputFormat + version.iMajor;
}
