// Puts a process-wide variable (or table) back when a test ends.
#pragma once

#include <cstring>

namespace trvtest {

template <typename T>
class Restore {
public:
    explicit Restore(T& v) : ref_(v) { std::memcpy(&copy_, &v, sizeof copy_); }
    ~Restore() { std::memcpy(&ref_, &copy_, sizeof copy_); }
    Restore(const Restore&) = delete;
    Restore& operator=(const Restore&) = delete;

private:
    T& ref_;
    T copy_;
};

}  // namespace trvtest
