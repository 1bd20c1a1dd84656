#include "arrays.h"

#include <algorithm>
#include <limits>

#include "trv/trv.h"

namespace trvpy {

namespace {

PyObject* gErrorType = nullptr;  // trv.Error, alive as long as the process

// Sizes beyond 32 bits reach the library as the largest 32-bit value, which
// it refuses like any other size its arithmetic cannot hold.
int32_t clampToInt32(int64_t v) {
    return static_cast<int32_t>(std::clamp<int64_t>(v, std::numeric_limits<int32_t>::min(),
                                                    std::numeric_limits<int32_t>::max()));
}

const char* shapeText(Shape shape) {
    switch (shape) {
        case Shape::Rows420: return "(H * 3 / 2, W)";
        case Shape::Rows422: return "(2 * H, W)";
        default: return "(H, 2 * W)";
    }
}

uint64_t frameBytes(Shape shape, uint64_t width, uint64_t height) {
    return shape == Shape::Rows420 ? width * height * 3 / 2 : 2 * width * height;
}

std::string typeName(py::handle object) { return py::str(py::type::handle_of(object).attr("__name__")); }

}  // namespace

Shape shapeOfCode(int32_t code) {
    return code == 4 ? Shape::Rows420 : (code == 2 ? Shape::Packed : Shape::Rows422);
}

ByteArray asByteArray(py::handle object, const std::string& what) {
    // numpy reads bytes, bytearray and other buffers as one string unless
    // they come as a memoryview, which keeps their item type.
    const bool buffer = !py::isinstance<py::array>(object) && PyObject_CheckBuffer(object.ptr());
    const py::array array = py::array::ensure(buffer ? py::memoryview(py::reinterpret_borrow<py::object>(object)) : object);
    if (!array) throw py::type_error(what + ": expected a uint8 array, got " + typeName(object));
    if (!py::isinstance<py::array_t<uint8_t>>(array))
        throw py::type_error(what + ": expected dtype uint8, got " + std::string(py::str(array.dtype())));
    // Converting to C order returns the same array when it already is one.
    return ByteArray(array);
}

FrameView frameView(py::handle object, Shape shape, const std::optional<Size>& size, const std::string& what) {
    FrameView view;
    if (object.is_none()) return view;
    view.array = asByteArray(object, what);
    view.data = view.array.data();
    view.bytes = static_cast<size_t>(view.array.size());
    if (size) {
        // Sizes the library refuses anyway (not positive, beyond 32 bits)
        // reach it unchecked; it refuses them before reading a byte.
        const bool inRange = size->width > 0 && size->height > 0 &&
                             size->width <= std::numeric_limits<int32_t>::max() &&
                             size->height <= std::numeric_limits<int32_t>::max();
        const uint64_t need = inRange ? frameBytes(shape, size->width, size->height) : 0;
        if (inRange && view.bytes != need)
            throw py::value_error(what + " holds " + std::to_string(view.bytes) + " bytes; a " +
                                  std::to_string(size->width) + " x " + std::to_string(size->height) +
                                  " frame of this layout has " + std::to_string(need));
        view.width = clampToInt32(size->width);
        view.height = clampToInt32(size->height);
        return view;
    }
    if (view.array.ndim() != 2)
        throw py::value_error(what + ": expected a 2-D array of shape " + std::string(shapeText(shape)) +
                              " (or a flat buffer with size=(W, H)), got " + std::to_string(view.array.ndim()) +
                              " dimensions");
    const int64_t rows = view.array.shape(0), cols = view.array.shape(1);
    const bool fits = shape == Shape::Rows420 ? rows % 3 == 0 : (shape == Shape::Rows422 ? rows % 2 == 0 : cols % 2 == 0);
    if (!fits)
        throw py::value_error(what + ": shape (" + std::to_string(rows) + ", " + std::to_string(cols) +
                              ") is not " + shapeText(shape) + " of any frame");
    switch (shape) {
        case Shape::Rows420: view.width = clampToInt32(cols), view.height = clampToInt32(rows / 3 * 2); break;
        case Shape::Rows422: view.width = clampToInt32(cols), view.height = clampToInt32(rows / 2); break;
        case Shape::Packed: view.width = clampToInt32(cols / 2), view.height = clampToInt32(rows); break;
    }
    return view;
}

ByteArray newFrame(Shape shape, int32_t width, int32_t height) {
    const py::ssize_t w = std::max(width, 0), h = std::max(height, 0);
    switch (shape) {
        case Shape::Rows420: return ByteArray({h * 3 / 2, w});
        case Shape::Rows422: return ByteArray({2 * h, w});
        default: return ByteArray({h, 2 * w});
    }
}

uint8_t* writableBytes(ByteArray& array) {
    // Never written: the library refuses every empty frame before writing.
    static uint8_t spare = 0;
    return array.size() > 0 ? array.mutable_data() : &spare;
}

void addErrorType(py::module_& module) {
    gErrorType = PyErr_NewExceptionWithDoc(
        "trv.Error",
        "The library refused the call. A ValueError whose message carries the library's status text and\n"
        "code; the code is also the attribute `status` (e.g. 101: the burst must hold 1 to 6 frames).",
        PyExc_ValueError, nullptr);
    if (gErrorType == nullptr) throw py::error_already_set();
    module.add_object("Error", py::handle(gErrorType));
}

void raiseRefusal(const char* function, int32_t status) {
    const std::string message =
        std::string(function) + ": " + TRV_StatusText(status) + " (status " + std::to_string(status) + ")";
    py::object error = py::reinterpret_borrow<py::object>(gErrorType)(message);
    error.attr("status") = status;
    PyErr_SetObject(gErrorType, error.ptr());
    throw py::error_already_set();
}

}  // namespace trvpy
