// One fresh process: builds the benchmark burst, then calls TRV_Enhancement
// `calls` times and prints, per call, its wall time, its minor page faults
// and the most memory it held beyond what the process held before the call
// (the frames and the output are part of that base):
//   call <i> <ms> <faults> <peak KiB>
// trv_bench's BM_FreshProcess runs it; it can also be run by hand:
//   trv_first_call 4000 3000 6 5
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "nv21_burst.h"
#include "trv/trv.h"

namespace {

long statusKiB(const char* field) {
    FILE* f = fopen("/proc/self/status", "r");
    if (f == nullptr) return -1;
    char line[256];
    long value = -1;
    const size_t n = strlen(field);
    while (fgets(line, sizeof line, f) != nullptr) {
        if (strncmp(line, field, n) == 0 && line[n] == ':') value = strtol(line + n + 1, nullptr, 10);
    }
    fclose(f);
    return value;
}

// Restarts the peak (VmHWM) at the current resident size.
void resetPeak() {
    FILE* f = fopen("/proc/self/clear_refs", "w");
    if (f == nullptr) return;
    fputs("5", f);
    fclose(f);
}

long minorFaults() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        fprintf(stderr, "usage: %s W H frames calls\n", argv[0]);
        return 2;
    }
    const int w = atoi(argv[1]), h = atoi(argv[2]), frames = atoi(argv[3]), calls = atoi(argv[4]);
    trvbench::NV21Burst burst(w, h);
    trvbench::EnhancementCall call(burst, frames);
    for (int c = 0; c < calls; ++c) {
        resetPeak();
        const long base = statusKiB("VmRSS"), faults = minorFaults();
        const auto start = std::chrono::steady_clock::now();
        TRV_Enhancement(&call.in, &call.out, &call.param, nullptr);
        const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        printf("call %d %.3f %ld %ld\n", c, ms, minorFaults() - faults, statusKiB("VmHWM") - base);
    }
    TRV_Uninit();
    return 0;
}
