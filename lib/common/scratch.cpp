#include "common/scratch.h"

#include <sys/mman.h>

namespace trv {

namespace {

constexpr size_t kHugePage = size_t{2} << 20;
constexpr size_t kPage = 4096;

struct Mapping {
    void* base = nullptr;      // what mmap returned
    size_t mapped = 0;         // its length
    uint8_t* data = nullptr;   // the usable start
    size_t capacity = 0;
    size_t dirty = 0;
};

Mapping gScratch[static_cast<int>(ScratchUse::Count)];

struct Loan {
    uint8_t* memory = nullptr;
    size_t bytes = 0;
};
Loan gLoans[static_cast<int>(ScratchUse::Count)];

void unmap(Mapping& m) {
    if (m.base != nullptr) munmap(m.base, m.mapped);
    m = Mapping{};
}

}  // namespace

uint8_t* scratchBuffer(ScratchUse use, size_t bytes) {
    const Loan& loan = gLoans[static_cast<int>(use)];
    if (loan.memory != nullptr && bytes <= loan.bytes) return loan.memory;
    Mapping& m = gScratch[static_cast<int>(use)];
    if (bytes <= m.capacity && m.data != nullptr) return m.data;
    unmap(m);
    // Large buffers: whole huge pages on a huge-page boundary, so the kernel
    // can back them with those. Small ones: whole pages, where a huge page
    // would only add resident memory. Fresh anonymous pages read as zeros.
    const bool huge = bytes >= kHugePage / 4;
    const size_t unit = huge ? kHugePage : kPage;
    const size_t capacity = (bytes + unit - 1) / unit * unit;
    const size_t length = huge ? capacity + kHugePage : capacity;
    void* base = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED) return nullptr;
    const uintptr_t start = (reinterpret_cast<uintptr_t>(base) + unit - 1) & ~(unit - 1);
    m.base = base;
    m.mapped = length;
    m.data = reinterpret_cast<uint8_t*>(start);
    m.capacity = capacity;
#ifdef MADV_HUGEPAGE
    if (huge) madvise(m.data, capacity, MADV_HUGEPAGE);
#endif
    return m.data;
}

size_t scratchDirtyBytes(ScratchUse use) { return gScratch[static_cast<int>(use)].dirty; }

void markScratchDirty(ScratchUse use, size_t bytes) {
    Mapping& m = gScratch[static_cast<int>(use)];
    if (bytes > m.dirty) m.dirty = bytes < m.capacity ? bytes : m.capacity;
}

ScratchLoan::ScratchLoan(ScratchUse use, uint8_t* memory, size_t bytes) : use_(use) {
    gLoans[static_cast<int>(use)] = {memory, memory != nullptr ? bytes : 0};
}

ScratchLoan::~ScratchLoan() { gLoans[static_cast<int>(use_)] = Loan{}; }

void releaseScratch() {
    for (Mapping& m : gScratch) unmap(m);
}

}  // namespace trv
