// Error-priority logging under the tag "BMQ". By default the Android log on
// Android and "E/BMQ: <message>" on stderr elsewhere; a host may route the
// lines through its own handler (TRV_SetLogHandler).
#pragma once

namespace trv {

void logError(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace trv
