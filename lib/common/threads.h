// Fan-out helper: one POSIX thread per unit of work, each given a pointer to
// its own integer slot, all joined before returning.
#pragma once

namespace trv {

using ThreadBody = void* (*)(void*);

// Most workers one fan-out starts.
constexpr int kMaxWorkers = 16;

// Runs body(&slot[i]) with slot[i] = args[i] on count threads (count <=
// kMaxWorkers) and joins them in index order. A worker whose thread cannot be
// created runs on the calling thread instead, so the work is never lost.
// Returns the status of the last join (0 on success).
int runWorkers(ThreadBody body, const int* args, int count);

// Same, with slot values 0 .. count - 1.
int runWorkers(ThreadBody body, int count);

// Same, the threads created with no attributes (default stacks).
int runWorkersWithoutAttributes(ThreadBody body, int count);

}  // namespace trv
