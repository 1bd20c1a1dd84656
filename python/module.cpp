// The Python module trv: burst fusion, tone enhancement and retinex of the
// library on numpy arrays, with the colour helpers of the trv tool.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "operations.h"
#include "trv/trv.h"

namespace py = pybind11;
using namespace pybind11::literals;

namespace {

const char* const kModuleDoc = R"(Low-light burst fusion, tone enhancement and retinex on numpy arrays.

Frames are uint8 numpy arrays in the camera's YUV layouts (see fuse); the
helpers rgb_to_nv21 and nv21_to_rgb go to and from RGB pictures:

    import numpy as np, trv
    from PIL import Image
    burst = [trv.rgb_to_nv21(np.asarray(Image.open(p).convert("RGB"))) for p in paths]
    Image.fromarray(trv.nv21_to_rgb(trv.fuse(burst))).save("fused.png")

Every function checks its arguments as the library's validated entries do.
A refused call raises trv.Error, a ValueError whose message carries the
library's status text and code (also its attribute `status`); a dtype other
than uint8 raises TypeError.

C-contiguous uint8 arrays are read where they lie, without a copy; any other
uint8 array (a slice, a transposed view) is first copied into C order.
Results are new arrays.

The library works with the GIL released, so other Python threads run
meanwhile. Its calls share one process-wide lock: threads calling at once
are served one after another and each gets the result it would get alone.

The library's log lines are dropped unless set_verbose(True).)";

const char* const kFuseDoc = R"(fuse(frames, layout="nv21", report=False, size=None) -> ndarray, or (ndarray, dict) with report=True

Fuses a burst of 1 to 6 dark, noisy frames of one scene into one clean frame.

frames  sequence (list, tuple, 3-D array) of uint8 arrays in capture order,
        all W x H pixels (W and H even, at least 64), in one layout:
          "nv21"  shape (H * 3 / 2, W)  luma, then H/2 rows of V U pairs
          "nv16"  shape (2 * H, W)      luma, then H rows of U V pairs
          "yv16"  shape (2 * H, W)      luma, a V plane, a U plane (W/2 x H each)
          "yuyv"  shape (H, 2 * W)      rows of Y0 U Y1 V
        With size=(W, H) each frame may be a flat array of any shape, or a
        buffer (bytes, bytearray, memoryview), holding exactly the layout's
        bytes. None stands for a null frame.

Returns the fused frame as a new NV21 array of shape (H * 3 / 2, W); 4:2:2
inputs give their even chroma rows. With report=True it returns
(frame, report), report being a dict of what the pipeline decided:
  reference          input index of the reference frame
  swapped_reference  True when the second-sharpest frame became the
                     reference after the motion search
  frames_fused       frames that took part (1: the converted reference alone)
  order              input indices of the fused frames, reference first
  vectors            global vector (x, y) in luma pixels of each frame of
                     order against the reference; (0, 0) for the reference
  fates              per input frame: "fused", "blurred" (sharpness check),
                     "screened" (motion or noise screening) or "unused"
  mean_luma          sampled mean luma of the reference, which sets level
  level              enhancement level, 0 (bright) .. 3 (very dark)
  sharpness_ratio    second-sharpest frame's sharpness over the sharpest's

Runs TRV_FuseBurst. Raises trv.Error when it refuses the burst: status 100
(a frame is None), 101 (not 1 to 6 frames), 102 (frames of different
sizes), 103 (W or H odd, below 64, or 2 * W * H beyond 31 bits); ValueError
for an unknown layout or a shape that fits no frame of it; TypeError for a
dtype other than uint8.)";

const char* const kToneDoc = R"(tone(frame, enhance_id=1, level=0, out_layout="nv21") -> ndarray

Local tone enhancement: lifts each pixel by a tone curve chosen from the
blurred brightness of its surroundings.

frame       NV12 frame (U first): uint8, shape (H * 3 / 2, W), W and H even.
            For an NV21 frame f of height H, swap its chroma first:
            f = f.copy(); f[H:] = f[H:].reshape(-1, 2)[:, ::-1].reshape(-1, f.shape[1])
enhance_id  tone curve: 1 (level up to 99 the gentler, 100 and above the
            stronger set), 2 or 3; 0 only converts the layout
level       read with enhance_id 1 only
out_layout  "nv21": shape (H * 3 / 2, W); "i422": shape (2 * H, W), luma,
            a U plane, a V plane (W/2 x H each); "yuyv": shape (H, 2 * W)

Returns a new array in out_layout. Runs TRV_ToneEnhance, under the same
lock as fuse; raises trv.Error with status 130 (frame is None), 131 (W or H
odd or zero, or 2 * W * H beyond 31 bits) or 132 (enhance_id not 0..3).

The curves floor each pixel's brightness with the library's process-wide
luma floor table, which only the library's createTHTable fills. This module
never calls it, like the trv tool, so unless something else in the process
did, the table is all zero and the gain follows the blurred brightness
alone. To have the floor, call it once before the first tone call; it stays
filled for the process:  ctypes.CDLL("libtrv.so.1").createTHTable())";

const char* const kRetinexDoc = R"(retinex(frame) -> ndarray

Multi-scale retinex: samples darker than their blurred surroundings are
darkened further, which deepens local contrast.

frame  4:2:0 semi-planar frame: uint8, shape (H * 3 / 2, W), W and H even;
       chroma pairs in either order (NV12 or NV21), kept in that order.

Returns a new array; frame itself is left as it was. Rows and columns past
the last multiple of 4 keep their values. Runs TRV_Retinex, under the same
lock as fuse; raises trv.Error with status 110 (frame is None) or 111 (W or
H odd or zero, or 2 * W * H beyond 31 bits).)";

const char* const kRgbToNv21Doc = R"(rgb_to_nv21(picture) -> ndarray

An RGB picture, uint8 of shape (H, W, 3) (PIL, imageio; OpenCV's BGR after
cv2.cvtColor(p, cv2.COLOR_BGR2RGB)), as an NV21 frame of shape
(H * 3 / 2, W). BT.601 full range (as in JFIF); each chroma pair is the
rounded mean of its 2 x 2 block. NV21 needs even sides: an odd side loses
its last row or column. The same bytes as the trv tool's conversion.)";

const char* const kNv21ToRgbDoc = R"(nv21_to_rgb(frame) -> ndarray

An NV21 frame, uint8 of shape (H * 3 / 2, W) with W even, as an RGB
picture of shape (H, W, 3). BT.601 full range; each chroma pair covers its
2 x 2 block. The same bytes as the trv tool's conversion.)";

const char* const kSetVerboseDoc = R"(set_verbose(on=True)

The library logs one-line messages ("BMQ-Version: ..." on every burst).
From import on the module drops them, as the trv tool does without
--verbose; set_verbose(True) sends them to stderr as "E/BMQ: <message>",
set_verbose(False) drops them again. The setting is process-wide.)";

}  // namespace

PYBIND11_MODULE(trv, m) {
    // The documentation strings open with their own signatures.
    py::options options;
    options.disable_function_signatures();
    m.doc() = kModuleDoc;
    trvpy::addErrorType(m);
    trvpy::setVerbose(false);

    m.def("fuse", &trvpy::fuse, kFuseDoc, "frames"_a, "layout"_a = "nv21", "report"_a = false, py::kw_only(),
          "size"_a = py::none());
    m.def("tone", &trvpy::tone, kToneDoc, "frame"_a, "enhance_id"_a = 1, "level"_a = 0, "out_layout"_a = "nv21");
    m.def("retinex", &trvpy::retinex, kRetinexDoc, "frame"_a);
    m.def("rgb_to_nv21", &trvpy::rgbToNv21, kRgbToNv21Doc, "picture"_a);
    m.def("nv21_to_rgb", &trvpy::nv21ToRgb, kNv21ToRgbDoc, "frame"_a);
    m.def("set_verbose", &trvpy::setVerbose, kSetVerboseDoc, "on"_a = true);

    _tag_TRV_Version version{};
    TRV_GetVersion(&version);
    m.attr("__version__") = version.version;
}
