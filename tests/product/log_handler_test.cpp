// The library's log lines as a host routes them: texts and tag through the
// handler, the default back with a null handler, and a replaced handler
// never called again while other threads keep logging.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/burst.h"

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

TEST(LogHandler, AReplacedHandlerIsNeverCalledAgain) {
    struct Counter {
        std::atomic<int> calls{0}, callsAfterReplacement{0};
        std::atomic<bool> replaced{false};
    } counters[2];
    auto count = [](const char*, const char*, void* user) {
        auto* c = static_cast<Counter*>(user);
        ++c->calls;
        c->callsAfterReplacement += c->replaced;
    };
    TRV_SetLogHandler(count, &counters[0]);
    std::atomic<bool> done{false}, refused{false};
    std::vector<std::thread> callers;
    for (int t = 0; t < 2; ++t)
        callers.emplace_back([&done, &refused] {
            trvtest::Burst burst(trvtest::noisyScene(1, 64, 64, 1), 4);
            while (!done && !refused) refused = burst.fuse() != TRV_FUSE_OK;
        });
    // At least 200 swaps, and on until the callers have logged a few lines.
    for (int round = 1; !refused && (round <= 200 || (counters[0].calls + counters[1].calls < 20 && round < 1000000));
         ++round) {
        Counter &next = counters[round % 2], &old = counters[1 - round % 2];
        next.replaced = false, TRV_SetLogHandler(count, &next), old.replaced = true;
        std::this_thread::yield();
    }
    done = true;
    for (auto& t : callers) t.join();
    TRV_SetLogHandler(nullptr, nullptr);
    ASSERT_FALSE(refused);
    EXPECT_GT(counters[0].calls + counters[1].calls, 0);
    EXPECT_EQ(counters[0].callsAfterReplacement + counters[1].callsAfterReplacement, 0);
}

}  // namespace
