// A process's first TRV_Enhancement call against the calls after it, with
// page faults and peak memory: each iteration starts trv_first_call, a fresh
// process that builds the benchmark burst and calls the pipeline 5 times,
// and reads its per-call lines. The reported time is the first call's.
//   first_ms, later_ms    medians over the processes of the first call and
//                         of the later calls (a first call varies by a
//                         tenth or more from one process to the next on a
//                         virtual machine, hence 9 processes a case)
//   x_later               first_ms / later_ms
//   faults_first, faults_later   minor page faults of a call
//   peak_first_mib, peak_later_mib  memory a call held beyond the process's
//                         frames and output (largest over the calls)
//   peak_x_frame          the larger peak over one input frame's bytes
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

struct Call {
    double ms;
    long faults, peakKiB;
};

std::vector<Call> runFreshProcess(int w, int h, int frames, int calls) {
    const std::string command = std::string(TRV_FIRST_CALL_HELPER) + " " + std::to_string(w) + " " + std::to_string(h) +
                                " " + std::to_string(frames) + " " + std::to_string(calls);
    std::vector<Call> result;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return result;
    int index = 0;
    Call c{};
    while (fscanf(pipe, " call %d %lf %ld %ld", &index, &c.ms, &c.faults, &c.peakKiB) == 4) result.push_back(c);
    pclose(pipe);
    return result;
}

double median(std::vector<double> v) {
    if (v.empty()) return 0.0;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

void BM_FreshProcess(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    const int frames = static_cast<int>(state.range(2));
    std::vector<double> first, later, faultsFirst, faultsLater;
    long peakFirst = 0, peakLater = 0;
    for (auto _ : state) {
        const std::vector<Call> calls = runFreshProcess(w, h, frames, 5);
        if (calls.size() < 2) {
            state.SkipWithError("trv_first_call failed");
            return;
        }
        first.push_back(calls[0].ms);
        faultsFirst.push_back(static_cast<double>(calls[0].faults));
        peakFirst = std::max(peakFirst, calls[0].peakKiB);
        for (size_t i = 1; i < calls.size(); ++i) {
            later.push_back(calls[i].ms);
            faultsLater.push_back(static_cast<double>(calls[i].faults));
            peakLater = std::max(peakLater, calls[i].peakKiB);
        }
        state.SetIterationTime(calls[0].ms / 1000.0);
    }
    const double firstMs = median(first), laterMs = median(later);
    state.counters["first_ms"] = firstMs;
    state.counters["later_ms"] = laterMs;
    state.counters["x_later"] = laterMs > 0.0 ? firstMs / laterMs : 0.0;
    state.counters["faults_first"] = median(faultsFirst);
    state.counters["faults_later"] = median(faultsLater);
    state.counters["peak_first_mib"] = static_cast<double>(peakFirst) / 1024.0;
    state.counters["peak_later_mib"] = static_cast<double>(peakLater) / 1024.0;
    const double frameBytes = static_cast<double>(w) * h * 3 / 2;
    state.counters["peak_x_frame"] = static_cast<double>(std::max(peakFirst, peakLater)) * 1024.0 / frameBytes;
}

BENCHMARK(BM_FreshProcess)
    ->ArgNames({"w", "h", "frames"})
    ->Args({4000, 3000, 6})
    ->Args({4000, 3000, 2})
    ->Args({1920, 1080, 6})
    ->Iterations(9)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
