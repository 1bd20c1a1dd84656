#include "demo_image.h"

// The PNG's bytes are assembled straight into read-only data, so the tool
// runs from any folder without looking for the file.
asm(".section .rodata\n"
    ".balign 16\n"
    ".hidden trvtool_demo_png_begin\n"
    ".hidden trvtool_demo_png_end\n"
    ".global trvtool_demo_png_begin\n"
    ".global trvtool_demo_png_end\n"
    "trvtool_demo_png_begin:\n"
    ".incbin \"" TRV_DEMO_IMAGE "\"\n"
    "trvtool_demo_png_end:\n"
    ".previous\n");

extern "C" const uint8_t trvtool_demo_png_begin[];
extern "C" const uint8_t trvtool_demo_png_end[];

namespace trvtool {

RgbImage builtInDemoPicture() {
    return decodePng(trvtool_demo_png_begin, static_cast<size_t>(trvtool_demo_png_end - trvtool_demo_png_begin),
                     "built-in demo picture");
}

}  // namespace trvtool
