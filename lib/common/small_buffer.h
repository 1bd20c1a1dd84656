// A zero-filled array that lives on the stack up to a fixed size and on the
// heap beyond it: per-tile working arrays of the band threads cost no
// allocation in the common case.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace trv {

template <class T, size_t kInline>
class ZeroedArray {
public:
    explicit ZeroedArray(size_t count) {
        if (count > kInline) {
            heap_.reset(new T[count]());
            data_ = heap_.get();
        } else {
            std::fill(inline_, inline_ + count, T{});
        }
    }
    ZeroedArray(const ZeroedArray&) = delete;
    ZeroedArray& operator=(const ZeroedArray&) = delete;

    T* data() { return data_; }
    T& operator[](size_t i) { return data_[i]; }

private:
    T inline_[kInline];
    std::unique_ptr<T[]> heap_;
    T* data_ = inline_;
};

template <size_t kInline>
using ZeroedInts = ZeroedArray<int32_t, kInline>;

}  // namespace trv
