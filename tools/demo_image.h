// The demo photograph (data/dandelions.png), built into the tool.
#pragma once

#include "image_io.h"

namespace trvtool {

RgbImage builtInDemoPicture();

}  // namespace trvtool
