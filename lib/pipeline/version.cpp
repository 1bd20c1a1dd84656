// Version query, default parameters and the life-cycle calls: TRV_Init does
// nothing, TRV_Uninit gives back the working buffers the pipeline keeps
// between bursts.
#include <mutex>

#include "common/scratch.h"
#include "pipeline/entry_gate.h"
#include "trv/trv.h"

extern "C" {

void TRV_GetVersion(_tag_TRV_Version* v) {
    if (v == nullptr) return;
    v->iMajor = 1;
    v->iMinor = 1;
    v->iRevision = 1;
    v->iBuild = 1;
    v->version = "1.9";
    v->date = "2015-06-18";
    v->notice = "TRV low-light burst fusion. Copyright (c) the TRV developers.";
}

int32_t TRV_GetDefaultParam(_tag_TRV_PARAM* p) {
    if (p == nullptr) return 0;
    p->inputFormat = 1;
    p->outputFormat = 4;
    p->dump = 0;
    return 0;
}

int32_t TRV_Init(void) { return 0; }

// Waits for a TRV_FuseBurst call in progress; the next burst maps its
// buffers afresh.
int32_t TRV_Uninit(void) {
    const std::lock_guard<std::mutex> hold(trv::processStateLock());
    trv::releaseScratch();
    return 0;
}

}  // extern "C"
