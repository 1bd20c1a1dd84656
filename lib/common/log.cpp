#include "common/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#if defined(__ANDROID__)
#include <android/log.h>
#endif

namespace trv {

void logError(const char* format, ...) {
    va_list args;
    va_start(args, format);
#if defined(__ANDROID__)
    __android_log_vprint(ANDROID_LOG_ERROR, "BMQ", format, args);
#else
    // One write per message so that lines of concurrent callers stay whole.
    char text[512];
    vsnprintf(text, sizeof text, format, args);
    size_t len = strlen(text);
    const char* end = (len > 0 && text[len - 1] == '\n') ? "" : "\n";
    fprintf(stderr, "E/BMQ: %s%s", text, end);
#endif
    va_end(args);
}

}  // namespace trv
