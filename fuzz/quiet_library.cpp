// Start-up of every fuzzer: the library's log lines would bury libFuzzer's
// own, and the luma floor table is filled as a host would fill it.
#include "trv/trv.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    TRV_SetLogHandler([](const char*, const char*, void*) {}, nullptr);
    createTHTable();
    return 0;
}
