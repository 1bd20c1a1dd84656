// Puts a process-wide variable (or table) back when a test ends.
#pragma once

#include <cstring>

namespace trvtest {

template <typename T>
struct Restore {
    explicit Restore(T& v) : ref(v) { std::memcpy(&copy, &v, sizeof copy); }
    ~Restore() { std::memcpy(&ref, &copy, sizeof copy); }
    T& ref;
    T copy;
};

}  // namespace trvtest
