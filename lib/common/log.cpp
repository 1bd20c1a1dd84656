#include "common/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "trv/trv.h"

#if defined(__ANDROID__)
#include <android/log.h>
#endif

namespace trv {

namespace {

constexpr const char* kTag = "BMQ";

// The host's handler and its argument, swapped as one pair. Handler calls
// are made with the lock held: they never overlap, and once
// TRV_SetLogHandler returns the previous handler is not called again. The
// lock is recursive so that a handler may itself call TRV_SetLogHandler.
std::recursive_mutex gHandlerLock;
TRV_LogHandler gHandler = nullptr;
void* gHandlerUser = nullptr;

// The message without its line end: every message is one line.
void formatLine(char* text, size_t size, const char* format, va_list args) {
    vsnprintf(text, size, format, args);
    const size_t len = strlen(text);
    if (len > 0 && text[len - 1] == '\n') text[len - 1] = '\0';
}

}  // namespace

void logError(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::lock_guard<std::recursive_mutex> hold(gHandlerLock);
    if (gHandler != nullptr) {
        char text[512];
        formatLine(text, sizeof text, format, args);
        gHandler(kTag, text, gHandlerUser);
    } else {
#if defined(__ANDROID__)
        __android_log_vprint(ANDROID_LOG_ERROR, kTag, format, args);
#else
        // One write per message so that lines of concurrent callers stay whole.
        char text[512];
        formatLine(text, sizeof text, format, args);
        fprintf(stderr, "E/%s: %s\n", kTag, text);
#endif
    }
    va_end(args);
}

}  // namespace trv

extern "C" void TRV_SetLogHandler(TRV_LogHandler handler, void* user) {
    std::lock_guard<std::recursive_mutex> hold(trv::gHandlerLock);
    trv::gHandler = handler;
    trv::gHandlerUser = handler != nullptr ? user : nullptr;
}
