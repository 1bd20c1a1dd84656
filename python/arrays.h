// Python arguments as the byte buffers the library reads, frame shapes per
// layout, and the library's refusals as Python exceptions.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <optional>
#include <string>

namespace trvpy {

namespace py = pybind11;

using ByteArray = py::array_t<uint8_t, py::array::c_style>;

// How a layout's frame of W x H pixels lies in a 2-D array.
enum class Shape {
    Rows420,  // (H * 3 / 2, W): NV21, NV12
    Rows422,  // (2 * H, W): NV16, YV16, planar 4:2:2
    Packed    // (H, 2 * W): YUYV
};
// The shape of the library's format code: 4 Rows420, 2 Packed, else Rows422.
Shape shapeOfCode(int32_t code);

struct Size {
    int64_t width = 0, height = 0;
};

// A frame handed to the library. data is null for None, which the library
// refuses as a null buffer itself. width and height are clamped to the
// 32-bit range: anything beyond it is a size the library refuses.
struct FrameView {
    ByteArray array;  // keeps the bytes alive while the library reads them
    const uint8_t* data = nullptr;
    size_t bytes = 0;
    int32_t width = 0, height = 0;
};

// `what` (e.g. "trv.fuse: frame 2") names the argument in messages.
// Without size, a 2-D array of the layout's shape; with size, any array of
// exactly the layout's bytes for that size. Raises TypeError for a dtype
// other than uint8 and ValueError for a shape that fits no frame.
FrameView frameView(py::handle object, Shape shape, const std::optional<Size>& size, const std::string& what);

// A uint8 array in C order without a copy when it already is one, else as
// a C-ordered copy; TypeError for anything that is not uint8.
ByteArray asByteArray(py::handle object, const std::string& what);

// A new array of the layout's shape for a W x H frame.
ByteArray newFrame(Shape shape, int32_t width, int32_t height);

// Where the library may write into `array`: never null, even for an empty
// array (the library refuses the null buffer before it looks at sizes).
uint8_t* writableBytes(ByteArray& array);

// Creates trv.Error in the module; raiseRefusal raises it with the
// library's status text and the status, also kept as the `status` attribute.
void addErrorType(py::module_& module);
[[noreturn]] void raiseRefusal(const char* function, int32_t status);

}  // namespace trvpy
