// A zero-filled array of 32-bit integers that lives on the stack up to a
// fixed size and on the heap beyond it: per-tile working arrays of the band
// threads cost no allocation in the common case.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace trv {

template <size_t kInline>
class ZeroedInts {
public:
    explicit ZeroedInts(size_t count) {
        if (count > kInline) {
            heap_.reset(new int32_t[count]());
            data_ = heap_.get();
        } else {
            std::fill(inline_, inline_ + count, 0);
        }
    }
    ZeroedInts(const ZeroedInts&) = delete;
    ZeroedInts& operator=(const ZeroedInts&) = delete;

    int32_t* data() { return data_; }
    int32_t& operator[](size_t i) { return data_[i]; }

private:
    int32_t inline_[kInline];
    std::unique_ptr<int32_t[]> heap_;
    int32_t* data_ = inline_;
};

}  // namespace trv
