// Working buffers of the burst pipeline, kept from call to call. A buffer is
// mapped only when a burst needs more than it holds, so later bursts of that
// size or smaller touch no fresh pages. Large buffers ask for huge pages
// where the system offers them (one fault for 2 MiB instead of 512).
// TRV_Uninit releases them all.
//
// The pipeline runs one burst at a time (TRV_FuseBurst holds the process
// lock); each buffer has one user at a time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace trv {

enum class ScratchUse {
    QuarterImages,   // the burst's quarter-scale luma images, for its whole call
    LumaCrop,        // the central luma crop of the motion search, then of the alignment error
    SearchLattices,  // per search thread, the lattice images of the coarse search
    Count
};

// At least `bytes` bytes, 64-byte aligned (lent memory: as lent), valid
// until a larger request for the same use, the end of a loan or
// releaseScratch(). The contents are whatever the previous
// user left (zero when freshly mapped). Null when the memory cannot be had.
uint8_t* scratchBuffer(ScratchUse use, size_t bytes);

// Bytes of `use` that may hold anything but zeros: everything written since
// it was mapped.
size_t scratchDirtyBytes(ScratchUse use);
void markScratchDirty(ScratchUse use, size_t bytes);

void releaseScratch();

// While a ScratchLoan lives, requests for `use` that fit in `bytes` get
// `memory` instead of the kept buffer: memory the caller has already
// touched, which a first burst would otherwise take fresh from the system.
// The lender must not read or write the memory meanwhile.
class ScratchLoan {
public:
    ScratchLoan(ScratchUse use, uint8_t* memory, size_t bytes);
    ~ScratchLoan();
    ScratchLoan(const ScratchLoan&) = delete;
    ScratchLoan& operator=(const ScratchLoan&) = delete;

private:
    ScratchUse use_;
};

}  // namespace trv
