// The statistics record: rows of modules, the row of the job, and the whole-number rules of both.
#include "DataChannel.h"
#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "ScopedClock.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <gmock/gmock.h>
#include <iterator>
#include <memory>

namespace {

constexpr int64_t second = 1000000; // microseconds

// Modules of the job, without libraries: their counters are set by the tests.
class StatisticsTest : public KernelFixture
{
protected:
    ModuleEntity& add(const std::string& name = "agc")
    {
        job().jobModules.push_back(new ModuleEntity(name));
        return *job().jobModules.back();
    }

    // A module with counters; it announces `expected` traces on its one output channel, which
    // nobody reads.
    ModuleEntity& add(const std::string& name, int tracesIn, int tracesOut, int64_t expected = 0)
    {
        ModuleEntity& module = add(name);
        module.inputTracesProcessed = tracesIn;
        module.outputTracesProcessed = tracesOut;
        announce(module, expected);
        return module;
    }

    void announce(ModuleEntity& module, int64_t expected)
    {
        DataChannel& channel = newChannel();
        channel.informTotalTracesNumber(expected);
        module.setOutputDataChannel(&channel, 0);
    }

    void connect(ModuleEntity& producer, ModuleEntity& consumer)
    {
        DataChannel& channel = newChannel();
        producer.setOutputDataChannel(&channel, 0);
        consumer.setInputDataChannel(&channel, 0);
    }

    const jobStatisticStruct& send(int phase = 2)
    {
        job().sendModulesStatistic(phase);
        return host.statistics.back();
    }

    DataChannel& newChannel()
    {
        channels.push_back(std::make_unique<DataChannel>());
        return *channels.back();
    }

private:
    std::vector<std::unique_ptr<DataChannel>> channels;
};

bool isZero(const void* record, std::size_t size)
{
    const auto* const bytes = static_cast<const unsigned char*>(record);
    return std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0; });
}

std::string textOf(std::size_t length)
{
    std::string text;
    while (text.size() < length)
        text += static_cast<char>('a' + text.size() % 26);
    return text;
}

template <std::size_t N>
std::string bytesOf(const char (&field)[N])
{
    return std::string(field, N);
}

// ------------------------------------------------------------------------------------ the record

TEST_F(StatisticsTest, JobWithoutModules)
{
    const ScopedClock clock(1700000000);
    job().jobStartTime = 1699999990 * second;
    job().totalJobMemoryUsed = 77;
    const jobStatisticStruct& record = send(1);
    EXPECT_TRUE(isZero(record.jobName, sizeof record.jobName));
    EXPECT_EQ(record.jobPhase, 1);
    EXPECT_EQ(record.jobStatus, 0);
    EXPECT_EQ(record.jobCmd, 0);
    EXPECT_EQ(record.numMod, 0);
    EXPECT_TRUE(isZero(record.modStatistics, sizeof record.modStatistics));
    EXPECT_EQ(record.jobStatistics.ident, 0);
    EXPECT_STREQ(record.jobStatistics.modName, "Job total");
    EXPECT_EQ(record.jobStatistics.inp_traces, -1);
    EXPECT_EQ(record.jobStatistics.out_traces, -1);
    EXPECT_EQ(record.jobStatistics.total_time, 10);
    EXPECT_EQ(record.jobStatistics.avg_time, -1);
    EXPECT_EQ(record.jobStatistics.mem_used, 77);
    EXPECT_EQ(record.jobStatistics.progress, -1);
}

TEST_F(StatisticsTest, PhaseIsTheArgument)
{
    for (int phase : {1, 2, 3, 0, -1, 99})
        EXPECT_EQ(send(phase).jobPhase, phase);
}

TEST_F(StatisticsTest, BytesThatHoldNothingAreZero)
{
    job().setJobName("line");
    add("agc");
    const jobStatisticStruct& record = send();
    EXPECT_TRUE(isZero(record.jobName + 4, sizeof record.jobName - 4));
    EXPECT_TRUE(
        isZero(record.modStatistics[0].modName + 3, sizeof record.modStatistics[0].modName - 3));
    EXPECT_TRUE(isZero(&record.modStatistics[1], 31 * sizeof record.modStatistics[1]));
    EXPECT_TRUE(isZero(record.jobStatistics.modName + 9, sizeof record.jobStatistics.modName - 9));
}

TEST_F(StatisticsTest, JobNameFillsItsFieldWithoutATerminator)
{
    for (std::size_t length : {0, 1, 63, 64, 65, 70, 1000}) {
        const std::string name = textOf(length);
        job().setJobName(name.c_str());
        std::string expected = name.substr(0, 64);
        expected.resize(64, '\0');
        const jobStatisticStruct& record = send(7);
        EXPECT_EQ(bytesOf(record.jobName), expected) << length;
        EXPECT_EQ(record.jobPhase, 7) << length;
    }
}

TEST_F(StatisticsTest, ModuleNameHas63CharactersAtMostAndATerminator)
{
    for (std::size_t length : {0, 1, 62, 63, 64, 65, 70, 1000})
        add(textOf(length));
    const jobStatisticStruct& record = send();
    ASSERT_EQ(record.numMod, 8);
    for (int i = 0; i < record.numMod; ++i) {
        std::string expected = job().jobModules[static_cast<std::size_t>(i)]->getName();
        expected.resize(std::min<std::size_t>(expected.size(), 63));
        expected.resize(64, '\0');
        EXPECT_EQ(bytesOf(record.modStatistics[i].modName), expected) << "row " << i;
        EXPECT_EQ(record.modStatistics[i].ident, i + 1) << "row " << i;
    }
}

TEST_F(StatisticsTest, RowsStandInTheOrderOfTheJob)
{
    add("zeta");
    add("alpha");
    add("mu");
    std::swap(job().jobModules[0], job().jobModules[2]);
    const jobStatisticStruct& record = send();
    ASSERT_EQ(record.numMod, 3);
    EXPECT_STREQ(record.modStatistics[0].modName, "mu");
    EXPECT_STREQ(record.modStatistics[1].modName, "alpha");
    EXPECT_STREQ(record.modStatistics[2].modName, "zeta");
    EXPECT_EQ(record.modStatistics[0].ident, 1);
    EXPECT_EQ(record.modStatistics[1].ident, 2);
    EXPECT_EQ(record.modStatistics[2].ident, 3);
}

TEST_F(StatisticsTest, RowHasTheModulesCounters)
{
    ModuleEntity& module = add("agc", 20, 40, 160);
    module.totalModuleWorkTime = 85 * second + 999999;
    module.totalModuleMemoryUsed = 123456;
    const modStatisticStruct row = send().modStatistics[0];
    EXPECT_EQ(row.ident, 1);
    EXPECT_STREQ(row.modName, "agc");
    EXPECT_EQ(row.inp_traces, 20);
    EXPECT_EQ(row.out_traces, 40);
    EXPECT_EQ(row.total_time, 85);
    EXPECT_EQ(row.avg_time, 2);
    EXPECT_EQ(row.mem_used, 123456);
    EXPECT_EQ(row.progress, 25);
}

TEST_F(StatisticsTest, ModulesPastThe32ndAreLeftOut)
{
    for (int i = 1; i <= 40; ++i)
        add("module " + std::to_string(i), i <= 32 ? 1 : 1000, i <= 32 ? 10 : 100000,
            i <= 32 ? 20 : 1);
    const jobStatisticStruct& record = send();
    EXPECT_EQ(record.numMod, 32);
    EXPECT_STREQ(record.modStatistics[31].modName, "module 32");
    EXPECT_EQ(record.modStatistics[31].ident, 32);
    EXPECT_EQ(record.jobStatistics.ident, 0) << "behind the last row";
    EXPECT_STREQ(record.jobStatistics.modName, "Job total");
    EXPECT_EQ(record.jobStatistics.inp_traces, 32);
    EXPECT_EQ(record.jobStatistics.out_traces, 320);
    EXPECT_EQ(record.jobStatistics.progress, 50);
}

TEST_F(StatisticsTest, ThirtyTwoModulesAreAllReported)
{
    for (int i = 0; i < 32; ++i)
        add("agc", 1, 1);
    EXPECT_EQ(send().numMod, 32);
    EXPECT_EQ(host.statistics.back().jobStatistics.inp_traces, 32);
}

// ------------------------------------------------------------------------ whole-number rules

TEST_F(StatisticsTest, AverageTimeIsPerOutputTraceElsePerInputTrace)
{
    const struct
    {
        int seconds;
        int tracesOut;
        int tracesIn;
        int expected;
    } rows[] = {
        {50, 0, 10, 5},   // no output: per input trace
        {50, 0, 0, 0},    // neither
        {50, 10, 3, 5},   // output comes first
        {59, 10, 0, 5},   // cut
        {9, 10, 0, 0},    // faster than a second a trace
        {50, -1, 10, 5},  // not positive: as none
        {50, -1, -1, 0},  //
        {-59, 10, 0, -5}, // toward zero
        {INT_MAX, 1, 1, INT_MAX},
        {INT_MIN, 1, 1, INT_MIN},
    };
    ModuleEntity& module = add();
    for (const auto& row : rows) {
        module.totalModuleWorkTime = row.seconds * second;
        module.outputTracesProcessed = row.tracesOut;
        module.inputTracesProcessed = row.tracesIn;
        EXPECT_EQ(send().modStatistics[0].avg_time, row.expected)
            << row.seconds << " s, " << row.tracesOut << " out, " << row.tracesIn << " in";
    }
}

TEST_F(StatisticsTest, AverageTimeStartsFromWholeSeconds)
{
    ModuleEntity& module = add("agc", 0, 3);
    module.totalModuleWorkTime = 9 * second - 1;
    EXPECT_EQ(send().modStatistics[0].avg_time, 2) << "8 s for 3 traces";
}

TEST_F(StatisticsTest, ProgressIsThePercentageOfTheAnnouncedTraces)
{
    const struct
    {
        int tracesOut;
        int64_t expectedTraces;
        int expected;
    } rows[] = {
        {0, 10, 0},
        {5, 10, 50},
        {2, 3, 66}, // cut
        {10, 10, 100},
        {15, 10, 150}, // more than announced
        {5, 0, -1},    // nothing announced
        {5, -10, -1},  // not positive
        {-1, 3, -33},  // toward zero
        {1, 101, 0},
        {-1, 101, 0},
        {INT_MAX, INT_MAX, 0},         // the product is -100
        {21474836, 1, 2147483600},     // the last product that fits
        {21474837, 1, -2147483596},    // the first that does not
        {42949673, 2, 2},              // the product is 4
        {30000000, 30000000, -43},     // 100 with more bits
        {5, INT64_C(0x100000000), -1}, // 0 in 32 bits
        {5, INT64_C(0x10000000a), 50}, // 10 in 32 bits
        {5, INT64_C(0x80000000), -1},  // negative in 32 bits
    };
    ModuleEntity& module = add();
    DataChannel& channel = newChannel();
    module.setOutputDataChannel(&channel, 0);
    for (const auto& row : rows) {
        module.outputTracesProcessed = row.tracesOut;
        channel.informTotalTracesNumber(row.expectedTraces);
        EXPECT_EQ(send().modStatistics[0].progress, row.expected)
            << row.tracesOut << " of " << row.expectedTraces;
    }
}

TEST_F(StatisticsTest, ProgressCountsTheAnnouncementsOfAllOutputChannels)
{
    ModuleEntity& module = add("agc", 0, 30);
    announce(module, 40);
    announce(module, 60);
    EXPECT_EQ(send().modStatistics[0].progress, 30);
}

TEST_F(StatisticsTest, ModuleWithoutOutputChannelsHasNoProgress)
{
    add().outputTracesProcessed = 7;
    EXPECT_EQ(send().modStatistics[0].progress, -1);
}

TEST_F(StatisticsTest, InputChannelsDoNotCountForProgress)
{
    ModuleEntity& source = add("source", 0, 5, 10);
    ModuleEntity& sink = add("sink", 5, 5);
    connect(source, sink);
    sink.getInputDataChannel(0)->informTotalTracesNumber(10);
    EXPECT_EQ(send().modStatistics[1].progress, -1);
}

// --------------------------------------------------------------------------------- the job's row

// A source, a filter and a sink in a chain.
class ChainStatisticsTest : public StatisticsTest
{
protected:
    ChainStatisticsTest()
    {
        connect(source, filter);
        connect(filter, sink);
    }

    ModuleEntity& source = add("source");
    ModuleEntity& filter = add("filter");
    ModuleEntity& sink = add("sink");
};

TEST_F(ChainStatisticsTest, JobsInputIsThatOfOutputModulesAndItsOutputThatOfInputModules)
{
    source.inputTracesProcessed = 1;
    source.outputTracesProcessed = 20;
    filter.inputTracesProcessed = 300;
    filter.outputTracesProcessed = 4000;
    sink.inputTracesProcessed = 50000;
    sink.outputTracesProcessed = 600000;
    const modStatisticStruct total = send().jobStatistics;
    EXPECT_EQ(total.inp_traces, 50000);
    EXPECT_EQ(total.out_traces, 20);
}

TEST_F(ChainStatisticsTest, JobsProgressIsThatOfInputModules)
{
    source.outputTracesProcessed = 4;
    source.getOutputDataChannel(0)->informTotalTracesNumber(10);
    filter.outputTracesProcessed = 9;
    filter.getOutputDataChannel(0)->informTotalTracesNumber(10);
    EXPECT_EQ(send().modStatistics[1].progress, 90);
    EXPECT_EQ(host.statistics.back().jobStatistics.progress, 40);
}

TEST_F(ChainStatisticsTest, JobsMemoryIsAllThatIsHeld)
{
    source.totalModuleMemoryUsed = 10;
    job().totalJobMemoryUsed = 1000;
    EXPECT_EQ(send().jobStatistics.mem_used, 1000);
    EXPECT_EQ(host.statistics.back().modStatistics[0].mem_used, 10);
}

TEST_F(ChainStatisticsTest, ModuleOnAChannelThatNobodyFeedsIsAnInputModule)
{
    ModuleEntity& module = add("reads from the host");
    module.setInputDataChannel(&newChannel(), 0);
    connect(module, sink);
    module.outputTracesProcessed = 8;
    EXPECT_EQ(send().jobStatistics.out_traces, 8);
}

TEST_F(ChainStatisticsTest, ModuleOnAChannelThatNobodyReadsIsAnOutputModule)
{
    ModuleEntity& module = add("writes for the host");
    connect(source, module);
    module.setOutputDataChannel(&newChannel(), 0);
    module.inputTracesProcessed = 8;
    EXPECT_EQ(send().jobStatistics.inp_traces, 8);
}

TEST_F(StatisticsTest, ModuleThatIsBothCountsInBoth)
{
    add("both", 3, 70, 100);
    const modStatisticStruct total = send().jobStatistics;
    EXPECT_EQ(total.inp_traces, 3);
    EXPECT_EQ(total.out_traces, 70);
    EXPECT_EQ(total.progress, 70);
}

TEST_F(StatisticsTest, JobsTracesAreSumsOrMinusOne)
{
    const struct
    {
        std::vector<int> traces; // of each module
        int expected;
    } rows[] = {
        {{1, 20, 300}, 321},
        {{0, 0}, -1},
        {{5, -5}, -1},
        {{-5, 2}, -1},
        {{-5, 6}, 1},
        {{INT_MAX, 1}, -1},                        // the sum is negative in 32 bits
        {{INT_MAX, INT_MAX, INT_MAX}, 2147483645}, // and positive again
        {{INT_MIN, INT_MIN}, -1},                  // 0 in 32 bits
    };
    for (const auto& row : rows) {
        for (ModuleEntity* module : job().jobModules)
            delete module;
        job().jobModules.clear();
        for (int traces : row.traces)
            add("agc", traces, traces);
        const modStatisticStruct total = send().jobStatistics;
        EXPECT_EQ(total.inp_traces, row.expected) << testing::PrintToString(row.traces);
        EXPECT_EQ(total.out_traces, row.expected) << testing::PrintToString(row.traces);
    }
}

TEST_F(StatisticsTest, JobsProgressIsTheMeanIncludingMinusOnes)
{
    const struct
    {
        std::vector<int> progress; // of each module; -1: announces nothing
        int expected;
    } rows[] = {
        {{50}, 50},
        {{50, 51}, 50},      // cut
        {{50, -1}, 24},      // 49 / 2
        {{100, -1, -1}, 32}, // 98 / 3
        {{2, -1}, 0},        // 1 / 2
        {{1, -1}, -1},       // the sum is 0
        {{-1}, -1},
        {{-1, -1}, -1},
        {{0, 0}, -1},
        {{2000000000, 2000000000}, -1},                    // the sum is negative in 32 bits
        {{2000000000, 2000000000, 2000000000}, 568344234}, // 1705032704 / 3
    };
    for (const auto& row : rows) {
        for (ModuleEntity* module : job().jobModules)
            delete module;
        job().jobModules.clear();
        for (int progress : row.progress) {
            // Percentages that are no multiple of 100 of one trace are made of 100 traces.
            if (progress == -1)
                add("agc", 0, 7, 0);
            else if (progress >= 1000)
                add("agc", 0, progress / 100, 1);
            else
                add("agc", 0, progress, 100);
        }
        EXPECT_EQ(send().jobStatistics.progress, row.expected)
            << testing::PrintToString(row.progress);
    }
}

TEST_F(StatisticsTest, JobsTimeIsInWholeSecondsSinceTheStart)
{
    const ScopedClock clock(1700000000);
    const struct
    {
        int64_t elapsed;
        int expected;
    } rows[] = {
        {0, 0},
        {999999, 0},
        {1000000, 1},
        {7999999, 7},
        {-999999, 0},
        {-1000000, -1},
        {INT64_C(0x80000000) * second, INT_MIN},
        {INT64_C(0x100000007) * second, 7},
    };
    for (const auto& row : rows) {
        job().jobStartTime = 1700000000 * second - row.elapsed;
        EXPECT_EQ(send().jobStatistics.total_time, row.expected) << row.elapsed;
    }
}

// --------------------------------------------------------------------------------- the call-back

TEST_F(StatisticsTest, CallBackGetsItsObjectAndItsResultIsIgnored)
{
    static void* given;
    static int count;
    given = nullptr;
    count = 0;
    int object;
    job().installStatisticFunc(
        [](jobStatisticStruct*, void* funcObj) {
            given = funcObj;
            ++count;
            return -1;
        },
        &object);
    job().sendModulesStatistic(1);
    job().sendModulesStatistic(1);
    EXPECT_EQ(given, &object);
    EXPECT_EQ(count, 2);
}

TEST_F(StatisticsTest, WhatTheHostWritesIntoTheRecordIsForgotten)
{
    add("agc", 1, 2, 4);
    const jobStatisticStruct before = send();
    job().installStatisticFunc(
        [](jobStatisticStruct* record, void*) {
            std::memset(record, 0x5a, sizeof *record);
            return 0;
        },
        nullptr);
    job().sendModulesStatistic(2);
    installRecorder();
    jobStatisticStruct after = send();
    after.jobStatistics.total_time = before.jobStatistics.total_time; // time goes on
    EXPECT_EQ(std::memcmp(&after, &before, sizeof before), 0);
}

TEST_F(StatisticsTest, RepeatedCallsTellTheCountersOfTheirTime)
{
    ModuleEntity& module = add("agc", 1, 1);
    EXPECT_EQ(send().modStatistics[0].out_traces, 1);
    module.outputTracesProcessed = 5;
    EXPECT_EQ(send().modStatistics[0].out_traces, 5);
    EXPECT_EQ(module.outputTracesProcessed, 5);
}

TEST_F(StatisticsTest, WithoutACallBackNothingIsDone)
{
    job().installStatisticFunc(nullptr, &host);
    job().jobModules.push_back(nullptr); // looking at the modules would end the process
    job().sendModulesStatistic(2);
    job().jobModules.clear();
    EXPECT_TRUE(host.statistics.empty());
}

} // namespace
