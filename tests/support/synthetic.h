// Deterministic test images: the same bytes on every CPU and every run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace trvtest {

// Small portable generator (xorshift32): identical sequences everywhere.
class Rng {
public:
    explicit Rng(uint32_t seed) : state_(seed ? seed : 0x9e3779b9u) {}
    uint32_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }
    int uniform(int lo, int hi) { return lo + static_cast<int>(next() % static_cast<uint32_t>(hi - lo + 1)); }
    uint8_t byte() { return static_cast<uint8_t>(next() >> 24); }

private:
    uint32_t state_;
};

std::vector<uint8_t> randomBytes(size_t count, uint32_t seed);

// A natural-looking texture: smooth gradients, blobs and fine detail, values
// in 16..239, rows of w bytes.
std::vector<uint8_t> texturedPlane(int w, int h, uint32_t seed);

}  // namespace trvtest
