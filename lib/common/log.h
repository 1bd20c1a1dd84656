// Error-priority logging under the tag "BMQ": the Android log on Android,
// "E/BMQ: <message>" on stderr elsewhere.
#pragma once

namespace trv {

void logError(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace trv
