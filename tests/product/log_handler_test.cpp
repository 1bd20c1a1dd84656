// The library's log lines as a host routes them: texts and tag through the
// handler, the default back with a null handler, and a replaced handler
// never called again while other threads keep logging.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "trv/trv.h"

namespace {

using Lines = std::vector<std::pair<std::string, std::string>>;

// A rejected format code: the version line, then the refusal, and nothing
// else runs.
void logTwoLines() {
    _tag_TRV_PARAM param = {9, 4, 0, 0, 0};
    ASSERT_EQ(TRV_Enhancement(nullptr, nullptr, &param, nullptr), 1);
}

TEST(LogHandler, LinesReachTheHandlerAndNullRestoresTheDefault) {
    Lines lines;
    TRV_SetLogHandler([](const char* tag, const char* text, void* to) { static_cast<Lines*>(to)->emplace_back(tag, text); },
                      &lines);
    logTwoLines();
    TRV_SetLogHandler(nullptr, nullptr);
    EXPECT_EQ(lines, (Lines{{"BMQ", "BMQ-Version: 2018-2-24-Normal-BMQ"}, {"BMQ", "This is error input Format"}}));
    testing::internal::CaptureStderr();
    logTwoLines();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "E/BMQ: BMQ-Version: 2018-2-24-Normal-BMQ\nE/BMQ: This is error input Format\n");
    EXPECT_EQ(lines.size(), 2u) << "the replaced handler was called";
}

// A caller thread keeps logging while the handler is swapped back and
// forth; a call that reaches a handler after its replacement returned counts
// as late.
TEST(LogHandler, AReplacedHandlerIsNeverCalledAgain) {
    struct Counter {
        std::atomic<int> calls{0}, lateCalls{0};
        std::atomic<bool> replaced{false};
    } counters[2];
    auto count = [](const char*, const char*, void* user) {
        auto* c = static_cast<Counter*>(user);
        ++c->calls;
        c->lateCalls += c->replaced;
    };
    TRV_SetLogHandler(count, &counters[0]);
    std::atomic<bool> done{false};
    std::thread caller([&done] {
        while (!done) logTwoLines();
    });
    // At least 200 swaps, and on until the caller has logged a few lines.
    for (int round = 1; round <= 200 || (counters[0].calls + counters[1].calls < 20 && round < 1000000); ++round) {
        Counter &next = counters[round % 2], &old = counters[1 - round % 2];
        next.replaced = false, TRV_SetLogHandler(count, &next), old.replaced = true;
        std::this_thread::yield();
    }
    done = true;
    caller.join();
    TRV_SetLogHandler(nullptr, nullptr);
    EXPECT_GE(counters[0].calls + counters[1].calls, 20);
    EXPECT_EQ(counters[0].lateCalls + counters[1].lateCalls, 0);
}

}  // namespace
