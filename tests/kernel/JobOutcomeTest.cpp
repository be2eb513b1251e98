#include "JobOutcome.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "KernelFixture.h"
#include "MOXKernel.h"
#include "ModuleEntity.h"
#include "ProbeModule.h"
#include "SeisTrace.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

// A source gives `traces` traces to a sink. `calls` has the entry points in order, as "process
// sink".
class JobOutcomeTest : public KernelFixture
{
protected:
    static constexpr int endOfData = 3;

    // Traces that a job leaves when it is cancelled end with it.
    JobOutcomeTest()
    {
        installRecorder();
        job().setReleaseAtEnd(true);
    }
    ~JobOutcomeTest() override { job().resetJob(); }

    std::vector<std::string> calls;
    int traces = 5;
    int given = 0;
    std::vector<std::unique_ptr<ProbeModule>> probes;

    ProbeModule& add(const std::string& name)
    {
        ProbeModule& probe = *probes.emplace_back(std::make_unique<ProbeModule>(name));
        probe.pre = [this, name] { calls.push_back("preprocess " + name); };
        probe.process = [this, name] { calls.push_back("process " + name); };
        probe.post = [this, name] { calls.push_back("postprocess " + name); };
        return probe;
    }

    DataChannel* connect(ProbeModule& from, ProbeModule& to)
    {
        auto* made = new DataChannel;
        made->setTraceLength(10);
        from.entity->setOutputDataChannel(made, 0);
        to.entity->setInputDataChannel(made, 0);
        return made;
    }

    // Gives a trace; the last one ends the data.
    void give()
    {
        calls.push_back("process source");
        auto* out = static_cast<SeisTraceSet*>(getOutputTraceBuffer(0));
        out->getTrace(0, true);
        if (++given == traces)
            out->setDataChannelFlag(endOfData);
    }

    void build()
    {
        source = &add("source");
        sink = &add("sink");
        source->process = [this] { give(); };
        channel = connect(*source, *sink);
    }

    ProbeModule* source = nullptr;
    ProbeModule* sink = nullptr;
    DataChannel* channel = nullptr;

    // In place of what the module does on its n-th call of process_, counted from 1.
    void onCall(ProbeModule& probe, int n, std::function<void()> action)
    {
        auto count = std::make_shared<int>(0);
        probe.process = [before = probe.process, count, n, action = std::move(action)] {
            before();
            if (++*count == n)
                action();
        };
    }

    std::string mark() { return job().getMetaDataValue(0, jobFailureKey); }

    // An entry point as C++ knows it: exceptions go through.
    static int throwing() { throw std::runtime_error("out of order"); }
};

// ---- Outcome ----

TEST_F(JobOutcomeTest, AJobThatHasNotRunHasNoOutcome)
{
    build();

    EXPECT_EQ(job().jobOutcome().end, JobEnd::notRun);
}

TEST_F(JobOutcomeTest, AJobWithoutFailuresIsDoneAfterEachPhase)
{
    build();

    ASSERT_EQ(job().preProcessJob(), 0);
    EXPECT_EQ(job().jobOutcome().end, JobEnd::done);
    ASSERT_EQ(job().processJob(), 0);
    EXPECT_EQ(job().jobOutcome().end, JobEnd::done);
    ASSERT_EQ(job().postProcessJob(), 0);

    const JobOutcome outcome = job().jobOutcome();
    EXPECT_EQ(outcome.end, JobEnd::done);
    EXPECT_EQ(outcome.module, "");
    EXPECT_EQ(outcome.entryPoint, "");
    EXPECT_EQ(outcome.text, "");
    EXPECT_THAT(outcome.messages, ElementsAre(Pair(1, 3))) << "the banners";
    EXPECT_EQ(mark(), "");
}

TEST_F(JobOutcomeTest, TheFirstFailureIsKeptWithItsModuleAndEntryPoint)
{
    build();
    onCall(*sink, 2, [] { sendMessage(3, "no more room"); });
    sink->post = [] { sendMessage(4, "another one"); };
    source->post = [] { sendMessage(17, "of a type of its own"); };

    ASSERT_EQ(job().preProcessJob(), 0);
    EXPECT_EQ(job().jobOutcome().end, JobEnd::done);
    ASSERT_EQ(job().processJob(), 0);
    EXPECT_EQ(job().jobOutcome().end, JobEnd::failed);
    ASSERT_EQ(job().postProcessJob(), 0);

    const JobOutcome outcome = job().jobOutcome();
    EXPECT_EQ(outcome.end, JobEnd::failed);
    EXPECT_EQ(outcome.module, "sink");
    EXPECT_EQ(outcome.entryPoint, "process_");
    EXPECT_EQ(outcome.text, "no more room");
    EXPECT_THAT(outcome.messages,
                UnorderedElementsAre(Pair(1, 3), Pair(3, 1), Pair(4, 1), Pair(17, 1)));
}

TEST_F(JobOutcomeTest, EntryPointsOfOtherPhasesAreNamed)
{
    build();
    source->pre = [] { sendMessage(4, "no file"); };
    ASSERT_EQ(job().preProcessJob(), 0);
    EXPECT_EQ(job().jobOutcome().entryPoint, "preprocess_");
    EXPECT_EQ(job().jobOutcome().module, "source");

    ASSERT_EQ(job().resetJob(), 0);
    build();
    given = 0;
    sink->post = [] { sendMessage(3, "disk full"); };
    ASSERT_EQ(job().preProcessJob(), 0);
    ASSERT_EQ(job().processJob(), 0);
    ASSERT_EQ(job().postProcessJob(), 0);
    EXPECT_EQ(job().jobOutcome().entryPoint, "postprocess_");
    EXPECT_EQ(job().jobOutcome().text, "disk full");
}

TEST_F(JobOutcomeTest, WarningsAndMessagesBetweenPhasesAreNoFailure)
{
    build();
    sink->post = [] { sendMessage(2, "odd, but right"); };
    ASSERT_EQ(job().preProcessJob(), 0);
    job().sendMessage(4, "of the host");
    ASSERT_EQ(job().processJob(), 0);
    ASSERT_EQ(job().postProcessJob(), 0);

    EXPECT_EQ(job().jobOutcome().end, JobEnd::done);
    EXPECT_THAT(job().jobOutcome().messages, UnorderedElementsAre(Pair(1, 3), Pair(2, 1)));
}

TEST_F(JobOutcomeTest, MessagesCountWithoutACallBackToo)
{
    build();
    job().installMessageFunc(nullptr, nullptr, nullptr);
    onCall(*source, 1, [] { sendMessage(3, "nobody listens"); });
    ASSERT_EQ(job().preProcessJob(), 0);
    ASSERT_EQ(job().processJob(), 0);

    EXPECT_EQ(job().jobOutcome().end, JobEnd::failed);
    EXPECT_EQ(job().jobOutcome().text, "nobody listens");
}

TEST_F(JobOutcomeTest, TheNextJobHasAnOutcomeOfItsOwn)
{
    build();
    onCall(*sink, 1, [] { sendMessage(3, "broken"); });
    ASSERT_EQ(job().preProcessJob(), 0);
    ASSERT_EQ(job().processJob(), 0);
    ASSERT_EQ(job().postProcessJob(), 0);
    ASSERT_EQ(job().jobOutcome().end, JobEnd::failed);

    build();
    given = 0;
    ASSERT_EQ(job().preProcessJob(), 0);
    EXPECT_EQ(job().jobOutcome().end, JobEnd::done);
    EXPECT_EQ(job().jobOutcome().text, "");
}

TEST(FailureMessage, IsOfTypeThreeOrAboveUnlessATraceOnlyStaysInMemory)
{
    EXPECT_FALSE(isFailureMessage(2, "text"));
    EXPECT_TRUE(isFailureMessage(3, "text"));
    EXPECT_TRUE(isFailureMessage(4, "text"));
    EXPECT_FALSE(isFailureMessage(3, "Can not write to scratch file /tmp/SF1.tmp: disk full"));
    EXPECT_TRUE(isFailureMessage(4, "Can not write to scratch file /tmp/SF1.tmp: disk full"));
}

// ---- Exceptions ----

TEST_F(JobOutcomeTest, AnExceptionThatLeavesProcessingLeavesNoModuleActiveAndTheMark)
{
    build();
    ASSERT_EQ(job().preProcessJob(), 0);
    sink->entity->processFunction = throwing;

    EXPECT_THROW(job().processJob(), std::runtime_error);

    EXPECT_EQ(job().getActiveModule(), nullptr);
    const JobOutcome outcome = job().jobOutcome();
    EXPECT_EQ(outcome.end, JobEnd::failed);
    EXPECT_EQ(outcome.module, "sink");
    EXPECT_EQ(outcome.entryPoint, "process_");
    EXPECT_EQ(outcome.text, "out of order");
    EXPECT_EQ(outcome.thrownBy, "sink");
    EXPECT_EQ(mark(), "an exception has ended it");
    EXPECT_EQ(job().postProcessJob(), 0);
}

TEST_F(JobOutcomeTest, AnExceptionThatLeavesPreProcessingLeavesNoModuleActive)
{
    build();
    source->entity->preProcessFunction = throwing;

    EXPECT_THROW(job().preProcessJob(), std::runtime_error);

    EXPECT_EQ(job().getActiveModule(), nullptr);
    EXPECT_EQ(job().jobOutcome().entryPoint, "preprocess_");
    EXPECT_EQ(mark(), "an exception has ended it");
}

TEST_F(JobOutcomeTest, AnExceptionInPostProcessingMarksTheJobForTheModulesThatFollow)
{
    build();
    std::string seen = "not called";
    sink->post = [&] { seen = mark(); };
    ASSERT_EQ(job().preProcessJob(), 0);
    ASSERT_EQ(job().processJob(), 0);
    source->entity->postProcessFunction = throwing;

    EXPECT_THROW(job().postProcessJob(), std::runtime_error);

    EXPECT_EQ(seen, "an exception has ended it");
    EXPECT_EQ(job().jobOutcome().entryPoint, "postprocess_");
    EXPECT_THAT(job().jobModules, IsEmpty());
}

// ---- Jobs that are not finished ----

TEST_F(JobOutcomeTest, AJobWhoseLoopTheHostLeavesIsMarkedWhenItEnds)
{
    build();
    std::string seen = "not called";
    sink->post = [&] { seen = mark(); };
    ASSERT_EQ(job().preProcessJob(), 0);
    ModuleList sinks = {sink->entity};
    EndOfDataFlags flags;
    ASSERT_EQ(job().processModules(sinks, flags), 0);
    ASSERT_EQ(job().postProcessJob(), 0);

    EXPECT_EQ(seen, "it was not finished");
}

TEST_F(JobOutcomeTest, ALoopOfTheHostThatComesToItsEndLeavesNoMark)
{
    build();
    std::string seen = "not called";
    sink->post = [&] { seen = mark(); };
    ASSERT_EQ(job().preProcessJob(), 0);
    ModuleList sinks = {sink->entity};
    EndOfDataFlags flags;
    while (!sinks.empty())
        job().processModules(sinks, flags);
    ASSERT_EQ(job().postProcessJob(), 0);

    EXPECT_EQ(seen, "");
}

TEST_F(JobOutcomeTest, TheMarkOfAJobIsReadAfterItAndIsGoneInTheNext)
{
    build();
    sink->pre = [] { setMetaDataValue(0, jobFailureKey, "sink: no file"); };
    ASSERT_EQ(job().preProcessJob(), 0);
    ASSERT_EQ(job().processJob(), 0);
    ASSERT_EQ(job().postProcessJob(), 0);
    job().setMetaDataValue(0, "of the host", "stays");
    EXPECT_EQ(mark(), "sink: no file");

    build();
    ASSERT_EQ(job().preProcessJob(), 0);
    EXPECT_EQ(mark(), "");
    EXPECT_EQ(job().getMetaDataValue(0, "of the host"), "stays");
}

TEST_F(JobOutcomeTest, WhatModulesTellEachOtherEndsWithTheJob)
{
    const auto value = [this](const char* key) { return job().getMetaDataValue(0, key); };
    build();
    sink->pre = [] {
        setMetaDataOfRun("of the run", "first");
        setMetaDataOfRun("of the run", "second");
        setMetaDataValue(0, "of the job", "stays");
    };
    ASSERT_EQ(job().preProcessJob(), 0);
    ASSERT_EQ(job().processJob(), 0);
    ASSERT_EQ(job().postProcessJob(), 0);
    EXPECT_EQ(value("of the run"), "first") << "the host reads it after the job";

    build();
    ASSERT_EQ(job().preProcessJob(), 0);
    EXPECT_EQ(value("of the run"), "");
    EXPECT_EQ(value("of the job"), "stays");
}

TEST_F(JobOutcomeTest, AMarkThatTheHostSetsBeforeAJobStays)
{
    for (int round = 0; round < 2; ++round) {
        job().metaDataMap.clear();
        job().setMetaDataValue(0, jobFailureKey, "the host knows better");
        build();
        ASSERT_EQ(job().preProcessJob(), 0);
        EXPECT_EQ(mark(), "the host knows better");
        ASSERT_EQ(job().postProcessJob(), 0);
    }
}

// ---- Cancel ----

TEST_F(JobOutcomeTest, ACancelledJobEndsWithTheCallThatRuns)
{
    build();
    onCall(*source, 3, [] { JobManager::requestCancel(); });
    std::string seen = "not called";
    sink->post = [&] { seen = mark(); };
    ASSERT_EQ(job().preProcessJob(), 0);
    calls.clear();

    EXPECT_EQ(job().processJob(), 1);

    EXPECT_THAT(calls, ElementsAre("process source", "process sink", "process source",
                                   "process sink", "process source"));
    EXPECT_EQ(job().jobOutcome().end, JobEnd::cancelled);
    EXPECT_EQ(host.statistics.back().jobPhase, 2) << "as before each failure of the phase";
    EXPECT_EQ(job().postProcessJob(), 0);
    EXPECT_EQ(seen, "it was cancelled");
    EXPECT_EQ(job().jobOutcome().end, JobEnd::cancelled);
    EXPECT_THAT(job().jobModules, IsEmpty());
}

TEST_F(JobOutcomeTest, ModulesSeeThatTheJobIsCancelled)
{
    build();
    std::vector<int> seen;
    onCall(*sink, 1, [&] {
        seen.push_back(isJobCancelled());
        JobManager::requestCancel();
        seen.push_back(isJobCancelled());
    });
    ASSERT_EQ(job().preProcessJob(), 0);
    EXPECT_EQ(job().processJob(), 1);

    EXPECT_THAT(seen, ElementsAre(0, 1));
}

TEST_F(JobOutcomeTest, ACancelInPreProcessingCallsNoFurtherModuleNeitherThenNorAtTheEnd)
{
    build();
    source->pre = [this] {
        calls.push_back("preprocess source");
        JobManager::requestCancel();
    };

    EXPECT_EQ(job().preProcessJob(), 1);
    EXPECT_EQ(job().processJob(), 1);
    EXPECT_EQ(job().postProcessJob(), 0);

    EXPECT_THAT(calls, ElementsAre("preprocess source", "postprocess source"));
    EXPECT_EQ(job().jobOutcome().end, JobEnd::cancelled);
}

TEST_F(JobOutcomeTest, ACancelInPostProcessingMarksTheJobForTheModulesThatFollow)
{
    build();
    std::string seen = "not called";
    source->post = [] { JobManager::requestCancel(); };
    sink->post = [&] { seen = mark(); };
    ASSERT_EQ(job().preProcessJob(), 0);
    ASSERT_EQ(job().processJob(), 0);

    EXPECT_EQ(job().postProcessJob(), 0);

    EXPECT_EQ(seen, "it was cancelled");
    EXPECT_EQ(job().jobOutcome().end, JobEnd::cancelled);
    EXPECT_THAT(job().jobModules, IsEmpty());
}

TEST_F(JobOutcomeTest, ACancelledJobStaysCancelledUntilTheReset)
{
    build();
    JobManager::requestCancel();
    EXPECT_TRUE(JobManager::isCancelRequested());
    EXPECT_EQ(job().preProcessJob(), 1);
    EXPECT_EQ(job().postProcessJob(), 0);
    EXPECT_THAT(calls, IsEmpty());
    build();
    EXPECT_EQ(job().preProcessJob(), 1);

    EXPECT_EQ(job().resetJob(), 0);

    EXPECT_FALSE(JobManager::isCancelRequested());
    build();
    EXPECT_EQ(job().preProcessJob(), 0);
    EXPECT_EQ(job().processJob(), 0);
    EXPECT_EQ(job().postProcessJob(), 0);
    EXPECT_EQ(job().jobOutcome().end, JobEnd::done);
    EXPECT_EQ(given, 5);
}

TEST_F(JobOutcomeTest, ALoopOfTheHostIsCancelledToo)
{
    build();
    ASSERT_EQ(job().preProcessJob(), 0);
    ModuleList sinks = {sink->entity};
    EndOfDataFlags flags;
    ASSERT_EQ(job().processModules(sinks, flags), 0);
    const std::size_t before = calls.size();
    JobManager::requestCancel();

    EXPECT_EQ(job().processModule(source->entity), 1);
    job().processModules(sinks, flags);

    EXPECT_EQ(calls.size(), before);
    EXPECT_EQ(mark(), "it was cancelled");
}

TEST_F(JobOutcomeTest, ASignalHandlerCancels)
{
    build();
    traces = -1; // without end
    auto* former = std::signal(SIGUSR1, [](int) { JobManager::requestCancel(); });
    onCall(*sink, 10, [] { std::raise(SIGUSR1); });
    ASSERT_EQ(job().preProcessJob(), 0);

    EXPECT_EQ(job().processJob(), 1);

    std::signal(SIGUSR1, former);
    EXPECT_EQ(given, 10);
}

TEST_F(JobOutcomeTest, AnotherThreadCancels)
{
    build();
    traces = -1;
    std::atomic<bool> runs = false;
    onCall(*sink, 1, [&] { runs = true; });
    ASSERT_EQ(job().preProcessJob(), 0);
    std::thread other([&] {
        while (!runs)
            std::this_thread::yield();
        JobManager::requestCancel();
    });

    EXPECT_EQ(job().processJob(), 1);

    other.join();
    EXPECT_EQ(job().jobOutcome().end, JobEnd::cancelled);
}

// ---- Reset ----

TEST_F(JobOutcomeTest, ResetLeavesNothingOfAJob)
{
    build();
    job().setJobName("first");
    job().setProjectDir("/tmp");
    job().setScratchDir("/var");
    job().addTraceAttributeDefinition("tracl", int32AttType, 1, "", 0, 0, 0, 0, 0);
    job().initCDTablePrototype("CN", "there");
    job().jobResources["key"] = UniVar(1);
    onCall(*sink, 1, [] { sendMessage(3, "broken"); });
    sink->pre = [] { setMetaDataValue(0, "key", "value"); };
    ASSERT_EQ(job().preProcessJob(), 0);
    ASSERT_EQ(job().processJob(), 0);
    ASSERT_EQ(job().postProcessJob(), 0);
    const int64_t started = job().jobStartTime;

    EXPECT_EQ(job().resetJob(), 0);

    EXPECT_THAT(job().metaDataMap, IsEmpty());
    EXPECT_THAT(job().trAttDefsList, IsEmpty());
    EXPECT_THAT(job().jobOutputTables, IsEmpty());
    EXPECT_THAT(job().jobResources, IsEmpty());
    EXPECT_THAT(job().keptValues, IsEmpty());
    EXPECT_EQ(job().jobName, "");
    EXPECT_GT(job().jobStartTime, started);
    EXPECT_EQ(job().getActiveModule(), nullptr);
    EXPECT_EQ(job().jobOutcome().end, JobEnd::notRun);
    EXPECT_THAT(job().jobOutcome().messages, IsEmpty());
    EXPECT_EQ(job().getProjectDir(), "/tmp") << "directories are the host's";
    EXPECT_EQ(job().getScratchDir(), "/var");
    EXPECT_NE(job().messageFunc, nullptr) << "and so are call-backs";
}

TEST_F(JobOutcomeTest, ResetOfAHalfBuiltJobCallsNoEntryPoint)
{
    build();
    job().setMetaDataValue(0, "key", "value");

    EXPECT_EQ(job().resetJob(), 0);

    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(job().jobModules, IsEmpty());
    EXPECT_THAT(job().metaDataMap, IsEmpty());
}

TEST_F(JobOutcomeTest, ResetEndsOnlyModulesThatHaveBeenPrepared)
{
    build();
    std::string seen = "not called";
    source->entity->preProcessFunction = throwing;
    source->post = [&] {
        calls.push_back("postprocess source");
        seen = mark();
    };
    EXPECT_THROW(job().preProcessJob(), std::runtime_error);

    EXPECT_EQ(job().resetJob(), 0);

    EXPECT_THAT(calls, ElementsAre("postprocess source"));
    EXPECT_EQ(seen, "an exception has ended it");
    EXPECT_THAT(job().jobModules, IsEmpty());
}

TEST_F(JobOutcomeTest, ResetOfAJobThatWasProcessedPublishesNothing)
{
    build();
    std::string seen = "not called";
    sink->post = [&] { seen = mark(); };
    ASSERT_EQ(job().preProcessJob(), 0);
    ASSERT_EQ(job().processJob(), 0);

    EXPECT_EQ(job().resetJob(), 0);

    EXPECT_EQ(seen, "it was dropped");
    EXPECT_EQ(mark(), "");
}

TEST_F(JobOutcomeTest, ResetFreesTracesThatWaitInChannels)
{
    build();
    ASSERT_EQ(job().preProcessJob(), 0);
    for (int i = 0; i < 3; ++i)
        channel->addTrace(new SeisTrace(100, 16));
    source->entity->getWorkTraceBuffer(1)->getTrace(2, true);
    ASSERT_GT(job().totalJobMemoryUsed, 1200);

    EXPECT_EQ(job().resetJob(), 0);

    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_TRUE(job().jobMemoryMap.empty());
}

// ---- What is refused within a phase ----

TEST_F(JobOutcomeTest, PhasesWithinAnEntryPointAreRefused)
{
    build();
    std::vector<int> results;
    onCall(*source, 2, [&] {
        results = {job().preProcessJob(), job().processJob(), job().postProcessJob(),
                   job().resetJob()};
    });
    ASSERT_EQ(job().preProcessJob(), 0);

    EXPECT_EQ(job().processJob(), 0);

    EXPECT_THAT(results, ElementsAre(1, 1, 1, 1));
    EXPECT_EQ(given, 5) << "the job goes on";
    const std::string end = " is refused, since processJob is still running; call it when that has "
                            "returned";
    std::vector<std::string> errors;
    for (const auto& message : host.messages) {
        if (message.type == 3)
            errors.push_back(message.moduleName + ": " + message.text);
    }
    EXPECT_THAT(errors, ElementsAre("source: preProcessJob" + end, "source: processJob" + end,
                                    "source: postProcessJob" + end, "source: resetJob" + end));
    EXPECT_EQ(job().jobOutcome().end, JobEnd::failed);
    EXPECT_EQ(job().postProcessJob(), 0);
}

TEST_F(JobOutcomeTest, PhasesWithinOtherPhasesAreRefused)
{
    build();
    std::vector<int> results;
    source->pre = [&] { results.push_back(job().postProcessJob()); };
    source->post = [&] { results.push_back(job().postProcessJob()); };

    ASSERT_EQ(job().preProcessJob(), 0);
    ASSERT_EQ(job().postProcessJob(), 0);

    EXPECT_THAT(results, ElementsAre(1, 1));
    EXPECT_THAT(job().jobModules, IsEmpty());
}

// ---- Memory ----

TEST_F(JobOutcomeTest, AJobLeavesNothingWhereTheHostAsksForIt)
{
    job().setReleaseAtEnd(true);
    build();
    void* block = nullptr;
    source->pre = [&] { block = allocateResource(77); };
    sink->pre = [&] { freeResource(allocateResource(33)); };
    sink->post = [&] {
        static_cast<SeisTraceSet*>(getWorkTraceBuffer(0))->getTrace(3, true);
        channel->addTrace(new SeisTrace(100, 16));
    };
    ASSERT_EQ(job().preProcessJob(), 0);
    ASSERT_EQ(job().processJob(), 0);
    ASSERT_EQ(job().postProcessJob(), 0);

    EXPECT_NE(block, nullptr);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_TRUE(job().jobMemoryMap.empty());
    job().setReleaseAtEnd(false);
}

TEST_F(JobOutcomeTest, ATraceInTwoSetsIsFreedOnce)
{
    job().setReleaseAtEnd(true);
    build();
    auto* trace = new SeisTrace(100, 16);
    channel->addTrace(trace);
    source->entity->getWorkTraceBuffer(0)->addTrace(trace);

    ASSERT_EQ(job().postProcessJob(), 0);

    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    job().setReleaseAtEnd(false);
}

// ---- Random numbers ----

// In processes of their own, since the choice is that of a process.
TEST_F(JobOutcomeTest, ASeedOfTheHostIsLostUnlessItIsAskedFor)
{
    const auto numbers = [this](bool asks) {
        if (asks)
            JobManager::leaveRandomNumbers();
        job().installCreatePadFunc([](int, int, int, int, const char*, void*) { return 0; },
                                   nullptr);
        std::srand(12345);
        const int expected = std::rand();
        std::srand(12345);
        renewSingletons(); // seeds with the time, once the manager is used
        job().installCreatePadFunc([](int, int, int, int, const char*, void*) { return 0; },
                                   nullptr);
        std::vector<int> pads;
        for (int seed = 0; seed < 2; ++seed) {
            if (seed == 1)
                std::srand(12345);
            pads.push_back(createPad(0, 0, 0, ""));
        }
        std::srand(12345);
        renewSingletons();
        job().setJobName("used");
        const bool isKept = std::rand() == expected;
        const bool isNumbered = pads[0] == 1 && pads[1] == 2;
        std::_Exit((isKept ? 1 : 0) + (isNumbered ? 2 : 0));
    };
    EXPECT_EXIT(numbers(false), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(numbers(true), testing::ExitedWithCode(3), "");
}

// ---- Statistics by time ----

TEST_F(JobOutcomeTest, StatisticsComeByTimeWhereTheHostAsksForThem)
{
    using std::chrono::milliseconds;
    traces = 30;
    for (const int interval : {0, 20}) {
        job().setStatisticInterval(interval);
        given = 0;
        build();
        source->process = [before = source->process] {
            before();
            std::this_thread::sleep_for(milliseconds(5));
        };
        ASSERT_EQ(job().preProcessJob(), 0);
        host.statistics.clear();
        ASSERT_EQ(job().processJob(), 0);
        if (interval == 0) {
            EXPECT_THAT(host.statistics, IsEmpty()) << "fewer than 1001 passes";
        } else {
            ASSERT_GE(host.statistics.size(), 3u) << "in 150 ms at least";
            EXPECT_LE(host.statistics.size(), 60u);
            EXPECT_EQ(host.statistics[0].jobPhase, 2);
            EXPECT_LT(host.statistics[0].modStatistics[0].out_traces, 30);
        }
        ASSERT_EQ(job().postProcessJob(), 0);
    }
    job().setStatisticInterval(0);
}

} // namespace
