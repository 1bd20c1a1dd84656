#include "common/threads.h"

#include <pthread.h>
#include <sys/mman.h>

#include <mutex>

namespace trv {

namespace {

// Worker stacks. The C library maps a fresh stack for every thread beyond
// the few it keeps cached, and hands pages of every cached stack back to the
// system when its thread ends; with fan-outs of up to eight threads per
// stage that costs more than the work of a small frame. Workers therefore
// run on stacks of their own: slots of 1 MiB, mapped once with a guard page
// below each, taken and given back around each thread. Should every slot be
// in use (nested fan-outs), a thread gets a stack of the library's as
// before.
constexpr size_t kStackBytes = size_t{1} << 20;
constexpr size_t kGuardBytes = 4096;
constexpr int kStackSlots = 32;

class StackSlots {
public:
    StackSlots() { map(); }

    // A free slot's stack, or null.
    void* take(int* slot) {
        const std::lock_guard<std::mutex> hold(lock_);
        if (!mapped_ && !map()) return nullptr;
        for (int i = 0; i < kStackSlots; ++i) {
            if (inUse_[i]) continue;
            inUse_[i] = true;
            *slot = i;
            return base_ + i * (kStackBytes + kGuardBytes) + kGuardBytes;
        }
        return nullptr;
    }
    void give(int slot) {
        const std::lock_guard<std::mutex> hold(lock_);
        inUse_[slot] = false;
    }

private:
    bool map() {
        const size_t bytes = kStackSlots * (kStackBytes + kGuardBytes);
        void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED) return false;
        base_ = static_cast<uint8_t*>(p);
        for (int i = 0; i < kStackSlots; ++i) mprotect(base_ + i * (kStackBytes + kGuardBytes), kGuardBytes, PROT_NONE);
        mapped_ = true;
        return true;
    }

    std::mutex lock_;
    uint8_t* base_ = nullptr;
    bool mapped_ = false;
    bool inUse_[kStackSlots] = {};
};

StackSlots& stackSlots() {
    static StackSlots slots;
    return slots;
}

// The slots are mapped when the library is loaded rather than inside a
// process's first burst, whose time a camera app shows at the shutter:
// address space only, no memory is touched. (Should that mapping fail, the
// first take() tries again.)
StackSlots& kSlotsMappedAtLoad = stackSlots();

struct Worker {
    pthread_t thread;
    int stack = -1;  // slot of the stack it runs on, or -1
    bool started = false;
};

bool start(Worker& w, ThreadBody body, int* slot, bool ownStack) {
    pthread_attr_t attributes;
    void* stack = nullptr;
    if (ownStack && pthread_attr_init(&attributes) == 0) {
        stack = stackSlots().take(&w.stack);
        if (stack != nullptr && pthread_attr_setstack(&attributes, stack, kStackBytes) == 0) {
            w.started = pthread_create(&w.thread, &attributes, body, slot) == 0;
        } else {
            w.started = pthread_create(&w.thread, nullptr, body, slot) == 0;
        }
        pthread_attr_destroy(&attributes);
    } else {
        w.started = pthread_create(&w.thread, nullptr, body, slot) == 0;
    }
    if (!w.started && w.stack >= 0) {
        stackSlots().give(w.stack);
        w.stack = -1;
    }
    return w.started;
}

int runOn(bool ownStacks, ThreadBody body, const int* args, int count) {
    if (count > kMaxWorkers) count = kMaxWorkers;
    int slots[kMaxWorkers];
    Worker workers[kMaxWorkers];
    for (int i = 0; i < count; ++i) {
        slots[i] = args[i];
        if (!start(workers[i], body, &slots[i], ownStacks)) body(&slots[i]);
    }
    int status = 0;
    for (int i = 0; i < count; ++i) {
        if (!workers[i].started) continue;
        status = pthread_join(workers[i].thread, nullptr);
        if (workers[i].stack >= 0) stackSlots().give(workers[i].stack);
    }
    return status;
}

}  // namespace

int runWorkers(ThreadBody body, const int* args, int count) { return runOn(true, body, args, count); }

int runWorkers(ThreadBody body, int count) {
    int args[kMaxWorkers];
    if (count > kMaxWorkers) count = kMaxWorkers;
    for (int i = 0; i < count; ++i) args[i] = i;
    return runWorkers(body, args, count);
}

int runWorkersWithoutAttributes(ThreadBody body, int count) {
    int args[kMaxWorkers];
    if (count > kMaxWorkers) count = kMaxWorkers;
    for (int i = 0; i < count; ++i) args[i] = i;
    return runOn(false, body, args, count);
}

}  // namespace trv
