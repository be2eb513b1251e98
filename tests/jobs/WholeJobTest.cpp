// Whole jobs of real module libraries: those of the example host, in C and Fortran, and probes that
// look at what they get.
#include "DataChannel.h"
#include "ExampleLibrary.h"
#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "ProbeModule.h"
#include "SeisTrace.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <memory>

namespace {

using testing::ElementsAre;
using testing::Eq;
using testing::FloatNear;
using testing::IsEmpty;
using testing::Pointwise;

constexpr int endOfData = 3;

struct Received
{
    int number;
    int offset;
    std::vector<float> samples;

    bool operator==(const Received& other) const
    {
        return number == other.number && offset == other.offset && samples == other.samples;
    }
};

using Traces = std::vector<Received>;

std::ostream& operator<<(std::ostream& text, const Received& trace)
{
    return text << "trace " << trace.number << " at " << trace.offset << ": "
                << testing::PrintToString(trace.samples);
}

std::vector<int> numbers(const Traces& traces)
{
    std::vector<int> all;
    for (const Received& trace : traces)
        all.push_back(trace.number);
    return all;
}

Received read(SeisTraceSet& set, int traceNo)
{
    const float* samples = set.getSamples(traceNo);
    return {set.getAttribute("tracl", traceNo).getI32Value(),
            set.getAttribute("offset", traceNo).getI32Value(),
            {samples, samples + set.getTrace(traceNo, true)->traceLength}};
}

// What the module `source` makes: an arch of 1/frequency seconds that reaches a receiver, 50 m from
// the one before, at the velocity of the wave.
struct Wave
{
    int traces = 6;
    int samples = 40;
    int interval = 4000;
    float frequency = 25;
    float velocity = 1000;

    Received trace(int number) const
    {
        Received made{number, 50 * (number - 1), {}};
        for (int i = 0; i < samples; ++i) {
            const float time = static_cast<float>(i * interval) / 1e6f;
            const float x = 2 * frequency * (time - static_cast<float>(made.offset) / velocity);
            made.samples.push_back(std::max(0.0f, 1 - x * x));
        }
        return made;
    }
};

// What the module `filter` does to samples.
std::vector<float> movingAverage(const std::vector<float>& samples, int window)
{
    const int reach = window / 2;
    const int count = static_cast<int>(samples.size());
    std::vector<float> means;
    for (int i = 0; i < count; ++i) {
        double sum = 0;
        int summed = 0;
        for (int j = std::max(0, i - reach); j <= std::min(count - 1, i + reach); ++j, ++summed)
            sum += static_cast<double>(samples[static_cast<std::size_t>(j)]);
        means.push_back(static_cast<float>(sum / summed));
    }
    return means;
}

class WholeJobTest : public KernelFixture
{
protected:
    WholeJobTest()
    {
        job().addTraceAttributeDefinition("tracl", 2, 1, "", 0, 0, 0, 0, 0);
        job().addTraceAttributeDefinition("offset", 2, 1, "", 0, 0, 0, 0, 0);
    }

    // A module of a library of the example host.
    ModuleEntity* module(const std::string& name, const std::string& library)
    {
        ModuleEntity* made = job().initJobModule(name, exampleLibrary(library));
        if (made == nullptr)
            throw std::runtime_error("lib" + library + ".so of examples/host is not there");
        return made;
    }

    ModuleEntity* source(const std::string& name, const Wave& wave)
    {
        ModuleEntity* made = module(name, "source");
        made->setParameter("TRACES", UniVar(wave.traces));
        made->setParameter("SAMPLES", UniVar(wave.samples));
        made->setParameter("INTERVAL", UniVar(wave.interval));
        made->setParameter("FREQUENCY", UniVar(wave.frequency));
        made->setParameter("VELOCITY", UniVar(wave.velocity));
        return made;
    }

    ModuleEntity* filter(const std::string& name, int window)
    {
        ModuleEntity* made = module(name, "filter");
        made->setParameter("WINDOW", UniVar(window));
        return made;
    }

    // A module that runs a function of the test.
    ModuleEntity* probe(const std::string& name, std::function<void(ModuleEntity&)> process)
    {
        probes.push_back(std::make_unique<ProbeModule>(name));
        ModuleEntity* entity = probes.back()->entity;
        probes.back()->process = [=] { process(*entity); };
        return entity;
    }

    // A sink that keeps what it gets on its inputs.
    ModuleEntity* collector(const std::string& name, std::vector<Traces*> inputs)
    {
        return probe(name, [=](ModuleEntity& self) {
            for (std::size_t i = 0; i < inputs.size(); ++i)
                inputs[i]->push_back(read(*self.getInputDataChannel(static_cast<int>(i)), 0));
        });
    }

    // A module that gathers all traces and gives them out in reverse order at the end of its input.
    ModuleEntity* reverser(const std::string& name)
    {
        ModuleEntity* made = probe(name, [](ModuleEntity& self) {
            DataChannel* input = self.getInputDataChannel(0);
            DataChannel* output = self.getOutputDataChannel(0);
            SeisTraceSet* gather = self.getWorkTraceBuffer(0);
            if (input->getNumberOfInputTraces(&self) > 0) {
                gather->setTraceLength(input->getTrace(0, true)->traceLength);
                output->setTraceLength(gather->getTraceLength());
                const int place = gather->getNumberOfTraces();
                gather->copyFromTrace(input, true, true, 0, place);
                gather->getTrace(place, false)->setTraceFlag(0);
                return;
            }
            for (int count = gather->getNumberOfTraces(); count > 0; --count) {
                output->copyFromTrace(gather, true, true, count - 1, output->getNumberOfTraces());
                gather->removeTrace(count - 1);
            }
            output->setDataChannelFlag(endOfData);
        });
        made->setProcessingOption("RespectEOD", UniVar(1));
        return made;
    }

    static DataChannel* join(ModuleEntity* producer, const std::vector<ModuleEntity*>& consumers)
    {
        DataChannel* made = new DataChannel;
        producer->setOutputDataChannel(made, 0);
        for (ModuleEntity* consumer : consumers)
            consumer->setInputDataChannel(made, 0);
        return made;
    }

    void run()
    {
        ASSERT_EQ(job().preProcessJob(), 0);
        ASSERT_EQ(job().processJob(), 0);
        ASSERT_EQ(job().postProcessJob(), 0);
        probes.clear();
    }

    std::vector<std::string> messagesOf(const std::string& name) const
    {
        std::vector<std::string> texts;
        for (const HostMessage& message : host.messages) {
            if (message.moduleName == name && message.text.rfind("***", 0) != 0)
                texts.push_back(message.text);
        }
        return texts;
    }

    static void expectWave(const Traces& traces, const Wave& wave)
    {
        ASSERT_EQ(static_cast<int>(traces.size()), wave.traces);
        for (int i = 0; i < wave.traces; ++i) {
            const Received expected = wave.trace(i + 1);
            const Received& found = traces[static_cast<std::size_t>(i)];
            EXPECT_EQ(found.number, expected.number);
            EXPECT_EQ(found.offset, expected.offset);
            EXPECT_THAT(found.samples, Pointwise(FloatNear(1e-5f), expected.samples));
        }
    }

    static void expectSmoothed(const Traces& traces, const Wave& wave, int window)
    {
        ASSERT_EQ(static_cast<int>(traces.size()), wave.traces);
        for (int i = 0; i < wave.traces; ++i) {
            const Received expected = wave.trace(i + 1);
            const Received& found = traces[static_cast<std::size_t>(i)];
            EXPECT_EQ(found.number, expected.number);
            EXPECT_EQ(found.offset, expected.offset);
            EXPECT_THAT(found.samples,
                        Pointwise(FloatNear(1e-5f), movingAverage(expected.samples, window)));
        }
    }

    std::vector<std::unique_ptr<ProbeModule>> probes;
};

TEST_F(WholeJobTest, SourceReachesTheSinkAsItWasMade)
{
    const Wave wave;
    Traces traces;
    join(source("source", wave), {collector("sink", {&traces})});

    run();

    expectWave(traces, wave);
}

TEST_F(WholeJobTest, FortranFilterStandsBetweenModulesInC)
{
    const Wave wave;
    Traces traces;
    ModuleEntity* smooth = filter("filter", 5);
    join(source("source", wave), {smooth});
    join(smooth, {collector("sink", {&traces})});

    run();

    expectSmoothed(traces, wave, 5);
}

TEST_F(WholeJobTest, ModulesWorkWithTheirOwnDefaults)
{
    Traces traces;
    ModuleEntity* smooth = module("filter", "filter");
    join(module("source", "source"), {smooth});
    join(smooth, {collector("sink", {&traces})});

    run();

    expectSmoothed(traces, Wave{10, 101, 4000, 30, 2000}, 3);
}

TEST_F(WholeJobTest, SinkSaysWhatItReceives)
{
    Wave wave;
    wave.traces = 3;
    join(source("source", wave), {module("sink", "sink")});

    run();

    EXPECT_THAT(messagesOf("sink"), ElementsAre("trace 1 at 0 m: amplitude 1.000 at 0 ms",
                                                "trace 2 at 50 m: amplitude 0.990 at 48 ms",
                                                "trace 3 at 100 m: amplitude 1.000 at 100 ms"));
}

TEST_F(WholeJobTest, JobEndsAlsoWithOneTraceAndWithNone)
{
    for (const int count : {0, 1}) {
        Wave wave;
        wave.traces = count;
        Traces traces;
        ModuleEntity* smooth = filter("filter", 3);
        join(source("source", wave), {smooth});
        join(smooth, {collector("sink", {&traces})});

        run();

        expectSmoothed(traces, wave, 3);
    }
}

TEST_F(WholeJobTest, LongChainOfFiltersPassesEveryTraceOn)
{
    const Wave wave;
    Traces traces;
    ModuleEntity* last = source("source", wave);
    for (int i = 0; i < 20; ++i) {
        ModuleEntity* next = filter("filter", 1);
        join(last, {next});
        last = next;
    }
    join(last, {collector("sink", {&traces})});

    run();

    expectWave(traces, wave);
}

TEST_F(WholeJobTest, ArmsOfADiamondBringTheSameTraceTogether)
{
    const Wave wave;
    Traces left;
    Traces right;
    ModuleEntity* narrow = filter("narrow", 3);
    ModuleEntity* wide = filter("wide", 9);
    ModuleEntity* sink = collector("sink", {&left, &right});
    join(source("source", wave), {narrow, wide});
    join(narrow, {sink});
    join(wide, {sink});

    run();

    expectSmoothed(left, wave, 3);
    expectSmoothed(right, wave, 9);
}

TEST_F(WholeJobTest, BothConsumersOfAChannelGetEveryTrace)
{
    const Wave wave;
    Traces first;
    Traces second;
    join(source("source", wave), {collector("first", {&first}), collector("second", {&second})});

    run();

    expectWave(first, wave);
    expectWave(second, wave);
}

TEST_F(WholeJobTest, ThreeSinksAtDifferentDepthsAllGetEveryTrace)
{
    const Wave wave;
    Traces raw;
    Traces once;
    Traces twice;
    ModuleEntity* smooth = filter("smooth", 3);
    ModuleEntity* smoother = filter("smoother", 1);
    join(source("source", wave), {collector("raw", {&raw}), smooth});
    join(smooth, {smoother, collector("once", {&once})});
    join(smoother, {collector("twice", {&twice})});

    run();

    expectWave(raw, wave);
    expectSmoothed(once, wave, 3);
    EXPECT_EQ(twice, once);
}

TEST_F(WholeJobTest, ModulesOfOneLibraryKeepTheirStateApart)
{
    Wave slow;
    Wave fast;
    fast.velocity = 3000;
    fast.samples = 17;
    Traces slowTraces;
    Traces fastTraces;
    ModuleEntity* sink = collector("sink", {&slowTraces, &fastTraces});
    join(source("slow", slow), {sink});
    join(source("fast", fast), {sink});

    run();

    expectWave(slowTraces, slow);
    expectWave(fastTraces, fast);
}

TEST_F(WholeJobTest, ModuleThatWaitsForTheEndGivesItsTracesOutAfterwards)
{
    const Wave wave;
    Traces traces;
    ModuleEntity* smooth = filter("filter", 1);
    ModuleEntity* turn = reverser("reverser");
    join(source("source", wave), {smooth});
    join(smooth, {turn});
    join(turn, {collector("sink", {&traces})});

    run();

    EXPECT_THAT(numbers(traces), ElementsAre(6, 5, 4, 3, 2, 1));
    std::reverse(traces.begin(), traces.end());
    expectWave(traces, wave);
}

TEST_F(WholeJobTest, StatisticsCountTheTracesOfEachModule)
{
    const Wave wave;
    Traces traces;
    ModuleEntity* smooth = filter("filter", 3);
    join(source("source", wave), {smooth});
    join(smooth, {collector("sink", {&traces})});

    run();

    const jobStatisticStruct& last = host.statistics.back();
    EXPECT_EQ(last.numMod, 3);
    const modStatisticStruct* rows = last.modStatistics;
    EXPECT_STREQ(rows[0].modName, "source");
    EXPECT_EQ(rows[0].inp_traces, 0);
    EXPECT_EQ(rows[0].out_traces, 6);
    EXPECT_EQ(rows[0].progress, 100) << "it announced six";
    EXPECT_STREQ(rows[1].modName, "filter");
    EXPECT_EQ(rows[1].inp_traces, 6);
    EXPECT_EQ(rows[1].out_traces, 6);
    EXPECT_EQ(rows[1].progress, -1);
    EXPECT_STREQ(rows[2].modName, "sink");
    EXPECT_EQ(rows[2].inp_traces, 6);
    EXPECT_EQ(rows[2].out_traces, 0);
    EXPECT_EQ(last.jobStatistics.inp_traces, 6);
    EXPECT_EQ(last.jobStatistics.out_traces, 6);
    EXPECT_EQ(last.jobStatistics.progress, 100);
}

TEST_F(WholeJobTest, EveryByteIsReturnedWhenAJobHasEnded)
{
    Traces traces;
    ModuleEntity* smooth = filter("filter", 3);
    join(source("source", {}), {smooth});
    join(smooth, {collector("sink", {&traces})});

    run();

    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_EQ(job().jobMemoryMap.size(), 0u);
}

TEST_F(WholeJobTest, JobsInARowAreLikeTheFirst)
{
    Traces first;
    for (int round = 0; round < 20; ++round) {
        Wave wave;
        Traces left;
        Traces right;
        ModuleEntity* narrow = filter("narrow", 3);
        ModuleEntity* wide = filter("wide", 9);
        ModuleEntity* sink = collector("sink", {&left, &right});
        join(source("source", wave), {narrow, wide});
        join(narrow, {sink});
        join(wide, {sink});
        host.messages.clear();

        run();

        left.insert(left.end(), right.begin(), right.end());
        if (round == 0)
            first = left;
        ASSERT_EQ(left, first) << "round " << round;
        ASSERT_EQ(host.messages.size(), 3u) << "the banners";
        ASSERT_EQ(job().totalJobMemoryUsed, 0);
    }
    EXPECT_EQ(first.size(), 12u);
}

TEST_F(WholeJobTest, JobRunsWithoutAModuleThatCouldNotBeLoaded)
{
    const Wave wave;
    Traces traces;
    EXPECT_EQ(job().initJobModule("missing", "libmissing.so"), nullptr);
    join(source("source", wave), {collector("sink", {&traces})});

    run();

    expectWave(traces, wave);
}

// ---- paging

// A limit on the resident traces must not show in what comes out.
class PagingJobTest : public WholeJobTest, public testing::WithParamInterface<int>
{
protected:
    // source -> filter -+-> filter -> reverser -> reverser -> sink
    //                   +-> sink
    // so that many traces wait at several places. (A reverser can not share its input: run at the
    // end of data, it would leave an empty trace to the other consumer.)
    Traces result(int residentTraces)
    {
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = residentTraces;
        host.messages.clear();
        Wave wave;
        wave.traces = 60;
        Traces through;
        Traces aside;
        ModuleEntity* smooth = filter("filter", 5);
        ModuleEntity* again = filter("again", 1);
        ModuleEntity* there = reverser("there");
        ModuleEntity* back = reverser("back");
        join(source("source", wave), {smooth});
        join(smooth, {again, collector("aside", {&aside})});
        join(again, {there});
        join(there, {back});
        join(back, {collector("sink", {&through})});
        run();
        EXPECT_EQ(job().totalJobMemoryUsed, 0);
        EXPECT_EQ(aside, through);
        return through;
    }
};

TEST_P(PagingJobTest, JobGivesWhatItGivesInMemory)
{
    const Traces expected = result(10000);
    ASSERT_EQ(expected.size(), 60u);
    EXPECT_THAT(host.textsOfType(0), IsEmpty()) << "no scratch file was needed";

    EXPECT_EQ(result(GetParam()), expected);

    ASSERT_EQ(host.textsOfType(0).size(), 2u) << "one scratch file, created and removed";
    EXPECT_THAT(scratchDirectory.names(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(ResidentTraces, PagingJobTest, testing::Values(1, 2, 3, 10));

} // namespace
