// What the module's functions do; their documentation is in module.cpp.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "arrays.h"

namespace trvpy {

using SizeArgument = std::optional<std::pair<int64_t, int64_t>>;

py::object fuse(const py::sequence& frames, const std::string& layout, bool report, const SizeArgument& size);
ByteArray tone(py::handle frame, int32_t enhanceId, int32_t level, const std::string& outLayout);
ByteArray retinex(py::handle frame);
ByteArray rgbToNv21(py::handle picture);
ByteArray nv21ToRgb(py::handle frame);
// Off: the library's log lines are dropped (the default); on: they go to
// stderr as "E/BMQ: <message>".
void setVerbose(bool on);

}  // namespace trvpy
