#include "run/Progress.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

using namespace host;

namespace {

ProgressState halfway()
{
    ProgressState state;
    state.phase = "processing";
    state.seconds = 10;
    state.traces = 500;
    state.done = 500;
    state.announced = 1000;
    state.bytes = 2000000;
    return state;
}

} // namespace

TEST(ProgressTest, TheBarHasPercentTimeLeftTracesRateAndMemory)
{
    EXPECT_EQ(progressBar(halfway(), 120), "[##########..........]  50 %  0:10 left, 500 traces, "
                                           "50.0 traces/s, 2.000 MB, 0:10");
}

TEST(ProgressTest, WithoutAnAnnouncementThereIsNoBar)
{
    ProgressState state = halfway();
    state.announced = 0;
    state.done = 0;

    EXPECT_EQ(progressBar(state, 120), "processing  500 traces, 50.0 traces/s, 2.000 MB, 0:10");
    EXPECT_EQ(progressText(state),
              "processing: 500 traces, 50.0 traces/s, 2.000 MB, 0:10 since the "
              "start");
}

TEST(ProgressTest, NeverWiderThanTheTerminalAndNeverAboveHundredPercent)
{
    ProgressState state = halfway();
    state.done = 5000;

    EXPECT_EQ(progressBar(state, 30).size(), 29u);
    EXPECT_EQ(progressBar(state, 0), "");
    EXPECT_NE(progressText(state).find("100 %"), std::string::npos);
}

TEST(ProgressTest, ALineNamesTheModuleThatRuns)
{
    ProgressState state = halfway();
    state.module = "\"agc\"";
    state.place = "in process_, trace 17 of its input";

    EXPECT_EQ(progressText(state), "processing: 50 %, 500 traces, 50.0 traces/s, 0:10 left, "
                                   "2.000 MB, 0:10 since the start, module \"agc\" in process_, "
                                   "trace 17 of its input");
    EXPECT_EQ(progressBar(state, 200), progressBar(halfway(), 200)) << "it would only flicker";
}

TEST(ProgressTest, ACallThatTakesLongIsNamedFirst)
{
    ProgressState state = halfway();
    state.announced = 0;
    state.module = "\"agc\"";
    state.place = "in process_, trace 17 of its input";
    state.callSeconds = 12.7;

    EXPECT_EQ(progressBar(state, 200),
              "processing  module \"agc\" in process_, trace 17 of its input for 12.00 s  "
              "500 traces, 50.0 traces/s, 2.000 MB, 0:10");
}

TEST(ProgressTest, TheClockGoesOnWhileTheJobDoesNot)
{
    Console console;
    std::atomic<int> shown{0};
    testing::internal::CaptureStderr();
    {
        Progress progress(console, ProgressMode::lines, 0.02, [&] {
            ++shown;
            return halfway();
        });
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (shown < 5 && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const std::string text = testing::internal::GetCapturedStderr();

    EXPECT_GE(shown, 5);
    EXPECT_EQ(text.substr(0, 16), "processing: 50 %");
    EXPECT_EQ(text.find('\x1b'), std::string::npos) << "no control sequences in a log";
}

TEST(ProgressTest, NothingIsShownWhenNobodyWantsIt)
{
    Console console;
    std::atomic<int> shown{0};
    {
        Progress progress(console, ProgressMode::none, 0.001, [&] {
            ++shown;
            return halfway();
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
    EXPECT_EQ(shown, 0);
}
