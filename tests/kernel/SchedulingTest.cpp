// The three phases: in which order and how often modules run, what the host hears meanwhile, and
// what is deleted at the end.
#include "DataChannel.h"
#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "ProbeModule.h"
#include "SeisTrace.h"

#include <QString>
#include <QtGlobal>

#include <dlfcn.h>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <memory>
#include <random>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

using Texts = std::vector<std::string>;

constexpr int endOfData = 3;
constexpr int keepTrace = 1;

constexpr const char* preProcessingBanner =
    "********************* PRE-PROCESSING PHASE *********************";
constexpr const char* processingBanner =
    "*********************** PROCESSING PHASE ***********************";
constexpr const char* postProcessingBanner =
    "********************* POST-PROCESSING PHASE ********************";

Texts* diagnostics = nullptr;

void noteDiagnostic(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type == QtDebugMsg && diagnostics != nullptr)
        diagnostics->push_back(text.toStdString());
}

// Modules are named by one letter. What they do in their entry points is given as functions; every
// call is noted in `calls` by the letter, and with all that the host hears in `events`.
class SchedulingTest : public KernelFixture
{
protected:
    using Action = std::function<void()>;

    SchedulingTest()
    {
        diagnostics = &debugLines;
        formerHandler = qInstallMessageHandler(noteDiagnostic);
        job().installMessageFunc(noteMessage, nullptr, this);
        job().installStatisticFunc(noteStatistic, this);
    }

    ~SchedulingTest() override
    {
        destroyTraces();
        for (DataChannel* each : channels)
            delete each;
        qInstallMessageHandler(formerHandler);
        diagnostics = nullptr;
    }

    Texts calls;  // of process entry points
    Texts events; // of all entry points, messages and statistics
    Texts debugLines;

    ModuleEntity* module(const std::string& name, Action process = {})
    {
        probes.push_back(std::make_unique<ProbeModule>(name));
        ProbeModule& probe = *probes.back();
        probe.pre = [this, name] { events.push_back("pre " + name); };
        probe.process = [this, name, process] {
            calls.push_back(name);
            events.push_back(name);
            if (process)
                process();
        };
        probe.post = [this, name] { events.push_back("post " + name); };
        return probe.entity;
    }

    // Gives a module something to do in another entry point, in place of the note in `events`.
    void inPreProcess(ModuleEntity* entity, Action action) { probeOf(entity).pre = action; }
    void inPostProcess(ModuleEntity* entity, Action action) { probeOf(entity).post = action; }

    DataChannel* channel()
    {
        DataChannel* made = new DataChannel;
        made->setTraceLength(1);
        channels.push_back(made);
        return made;
    }

    // A channel from one module, or several, to others. Modules are joined in the order given.
    DataChannel* flow(const std::vector<ModuleEntity*>& producers,
                      const std::vector<ModuleEntity*>& consumers)
    {
        DataChannel* made = channel();
        for (ModuleEntity* producer : producers)
            producer->setOutputDataChannel(made, 0);
        for (ModuleEntity* consumer : consumers)
            consumer->setInputDataChannel(made, 0);
        return made;
    }

    // Entry points of sources: `count` traces, one a call, the last one marked.
    Action emits(int count)
    {
        auto emitted = std::make_shared<int>(0);
        return [=, this] {
            for (DataChannel* output : job().getActiveModule()->outputDataChannels) {
                if (*emitted < count)
                    write(output, *emitted + 1);
                if (*emitted + 1 >= count)
                    output->setDataChannelFlag(endOfData);
            }
            ++*emitted;
        };
    }

    // Entry point of filters: copies the first trace of input 0 to every output, flag included.
    Action passesOn()
    {
        return [this] {
            ModuleEntity* active = job().getActiveModule();
            for (DataChannel* output : active->outputDataChannels)
                output->copyFromTrace(active->getInputDataChannel(0), true, true, 0,
                                      output->getNumberOfTraces());
        };
    }

    static void write(DataChannel* output, int number)
    {
        const int place = output->getNumberOfTraces();
        output->getSamples(place)[0] = static_cast<float>(number);
    }

    static int firstTrace(ModuleEntity* entity, int input)
    {
        return static_cast<int>(entity->getInputDataChannel(input)->getSamples(0)[0]);
    }

    // Names of the job's modules in their present order.
    std::string order()
    {
        std::string names;
        for (ModuleEntity* entity : job().jobModules)
            names += entity->getName();
        return names;
    }

    // Runs pre-processing and returns the level of each module, from the table of diagnostics.
    std::map<std::string, int> levels()
    {
        job().preProcessJob();
        std::map<std::string, int> found;
        for (std::size_t i = 1; i < debugLines.size(); ++i)
            found[debugLines[i].substr(debugLines[i].size() - 1)] = std::stoi(debugLines[i]);
        return found;
    }

    // One pass of the scheduler, as processing makes them again and again.
    int pass() { return job().processModules(sinks, eod); }
    int pass(int times)
    {
        int status = 99;
        for (int i = 0; i < times; ++i)
            status = pass();
        return status;
    }
    ModuleList sinks;
    EndOfDataFlags eod;

    std::string called() const
    {
        std::string names;
        for (const std::string& name : calls)
            names += name;
        return names;
    }

    // What was called since the last time that this was asked.
    std::string newCalls()
    {
        const std::string names = called();
        calls.clear();
        return names;
    }

    // Traces that a job leaves in its channels have no owner; to be called before the channels end.
    void destroyTraces()
    {
        for (DataChannel* each : channels) {
            for (SeisTrace* trace : each->traces)
                delete trace;
            each->traces.clear();
        }
    }

    void runJob()
    {
        EXPECT_EQ(job().preProcessJob(), 0);
        EXPECT_EQ(job().processJob(), 0);
        postProcess();
    }

    void postProcess()
    {
        destroyTraces();
        channels.clear();
        EXPECT_EQ(job().postProcessJob(), 0);
    }

    std::vector<std::unique_ptr<ProbeModule>> probes;
    std::vector<DataChannel*> channels; // the job's

private:
    QtMessageHandler formerHandler;

    ProbeModule& probeOf(ModuleEntity* entity)
    {
        for (const auto& probe : probes) {
            if (probe->entity == entity)
                return *probe;
        }
        throw std::logic_error("no probe");
    }

    static int noteMessage(int type, char*, const char* name, const char* text, void* test)
    {
        static_cast<SchedulingTest*>(test)->events.push_back("message " + std::to_string(type) +
                                                             " " + name + ": " + text);
        return 0;
    }

    static int noteStatistic(jobStatisticStruct* statistic, void* test)
    {
        auto* self = static_cast<SchedulingTest*>(test);
        self->events.push_back("statistic " + std::to_string(statistic->jobPhase));
        self->host.statistics.push_back(*statistic);
        return 0;
    }
};

// ---- priorities

TEST_F(SchedulingTest, ChainIsSortedFromItsSourceToItsSink)
{
    ModuleEntity* c = module("C");
    ModuleEntity* a = module("A");
    ModuleEntity* b = module("B");
    flow({a}, {b});
    flow({b}, {c});

    EXPECT_THAT(levels(), ElementsAre(std::pair("A", 1), std::pair("B", 2), std::pair("C", 3)));
    EXPECT_EQ(order(), "ABC");
}

TEST_F(SchedulingTest, NextChainStartsAtTheDeepestLevelOfTheOneBefore)
{
    ModuleEntity* s = module("S");
    ModuleEntity* t = module("T");
    ModuleEntity* u = module("U");
    ModuleEntity* v = module("V");
    flow({s}, {t});
    flow({u}, {v});

    EXPECT_THAT(levels(), ElementsAre(std::pair("S", 1), std::pair("T", 2), std::pair("U", 2),
                                      std::pair("V", 3)));
    EXPECT_EQ(order(), "STUV");
}

TEST_F(SchedulingTest, ShallowChainDoesNotRaiseTheLevelAtWhichTheNextOneStarts)
{
    ModuleEntity* a = module("A");
    ModuleEntity* b = module("B");
    ModuleEntity* c = module("C");
    module("L"); // lone: starts and ends at the level of C
    ModuleEntity* s = module("S");
    ModuleEntity* t = module("T");
    flow({a}, {b});
    flow({b}, {c});
    flow({s}, {t});

    const std::map<std::string, int> found = levels();
    EXPECT_EQ(found.at("C"), 3);
    EXPECT_EQ(found.at("L"), 3);
    EXPECT_EQ(found.at("S"), 3);
    EXPECT_EQ(found.at("T"), 4);
}

TEST_F(SchedulingTest, SourcesStartInTheOrderOfTheirCreation)
{
    ModuleEntity* v = module("V");
    ModuleEntity* u = module("U");
    ModuleEntity* t = module("T");
    ModuleEntity* s = module("S");
    flow({s}, {t});
    flow({u}, {v});

    EXPECT_THAT(levels(), ElementsAre(std::pair("S", 2), std::pair("T", 3), std::pair("U", 1),
                                      std::pair("V", 2)));
    EXPECT_EQ(order(), "UVST");
}

TEST_F(SchedulingTest, ModuleKeepsTheDeepestLevelWhenTheLongPathIsFollowedFirst)
{
    ModuleEntity* a = module("A");
    ModuleEntity* b = module("B");
    ModuleEntity* c = module("C");
    ModuleEntity* d = module("D");
    flow({a}, {b});
    flow({b}, {c});
    flow({c}, {d});
    flow({a}, {d});

    EXPECT_EQ(levels().at("D"), 4);
}

TEST_F(SchedulingTest, WhatLiesBelowMovesDownWhenALongerPathIsFoundLater)
{
    ModuleEntity* a = module("A");
    ModuleEntity* b = module("B");
    ModuleEntity* c = module("C");
    ModuleEntity* d = module("D");
    ModuleEntity* e = module("E");
    flow({a}, {d});
    flow({d}, {e});
    flow({a}, {b});
    flow({b}, {c});
    flow({c}, {d});

    const std::map<std::string, int> found = levels();
    EXPECT_EQ(found.at("D"), 4);
    EXPECT_EQ(found.at("E"), 5);
}

TEST_F(SchedulingTest, DiamondPutsItsArmsOnOneLevel)
{
    ModuleEntity* a = module("A");
    ModuleEntity* d = module("D");
    ModuleEntity* c = module("C");
    ModuleEntity* b = module("B");
    flow({a}, {b, c});
    flow({b}, {d});
    flow({c}, {d});

    EXPECT_THAT(levels(), ElementsAre(std::pair("A", 1), std::pair("B", 2), std::pair("C", 2),
                                      std::pair("D", 3)));
    EXPECT_EQ(order(), "ACBD") << "C was created before B";
}

TEST_F(SchedulingTest, ModuleOfTwoSourcesIsBelowTheLaterOne)
{
    ModuleEntity* s = module("S");
    ModuleEntity* x = module("X");
    ModuleEntity* u = module("U");
    flow({s}, {x});
    flow({u}, {x});

    // X is at 2 from S, where U starts then.
    EXPECT_THAT(levels(), ElementsAre(std::pair("S", 1), std::pair("U", 2), std::pair("X", 3)));
    EXPECT_EQ(order(), "SUX");
}

TEST_F(SchedulingTest, ModulesThatNoSourceReachesComeFirstAtLevelZero)
{
    ModuleEntity* a = module("A");
    ModuleEntity* b = module("B");
    ModuleEntity* x = module("X"); // its channel has no producer: an input module, yet no source
    ModuleEntity* y = module("Y");
    flow({a}, {b});
    flow({}, {x});
    flow({x}, {y});

    EXPECT_THAT(levels(), ElementsAre(std::pair("A", 1), std::pair("B", 2), std::pair("X", 0),
                                      std::pair("Y", 0)));
    EXPECT_EQ(order(), "XYAB");
}

TEST_F(SchedulingTest, ModulesOfOneLevelKeepTheOrderOfTheirCreation)
{
    const std::string names = "FSDBECA";
    std::map<char, ModuleEntity*> made;
    for (char name : names)
        made[name] = module(std::string(1, name));
    flow({made['S']}, {made['A'], made['B'], made['C'], made['D'], made['E'], made['F']});

    job().preProcessJob();

    EXPECT_EQ(order(), "SFDBECA");
}

TEST_F(SchedulingTest, DefiningAPriorityAnswersTheDeepestLevelReached)
{
    ModuleEntity* a = module("A");
    ModuleEntity* b = module("B");
    ModuleEntity* c = module("C");
    ModuleEntity* d = module("D");
    flow({a}, {b});
    flow({b}, {c});
    flow({a}, {d});
    std::map<ModuleEntity*, int> priorities;

    EXPECT_EQ(job().defineModulePriority(a, priorities, 7), 9);
    EXPECT_EQ(priorities, (std::map<ModuleEntity*, int>{{a, 7}, {b, 8}, {c, 9}, {d, 8}}));
}

TEST_F(SchedulingTest, PriorityThatIsKnownAlreadyIsRaisedAndNeverLowered)
{
    ModuleEntity* a = module("A");
    ModuleEntity* b = module("B");
    flow({a}, {b});
    std::map<ModuleEntity*, int> priorities = {{a, 5}, {b, 20}};

    EXPECT_EQ(job().defineModulePriority(a, priorities, 2), 20);
    EXPECT_EQ(priorities, (std::map<ModuleEntity*, int>{{a, 5}, {b, 20}}));

    EXPECT_EQ(job().defineModulePriority(a, priorities, 30), 31);
    EXPECT_EQ(priorities, (std::map<ModuleEntity*, int>{{a, 30}, {b, 31}}));
}

// There are 2^200 ways from the first module to the last one.
TEST_F(SchedulingTest, WaysThatPartAndMeetAgainAndAgainAreNotWalkedOneByOne)
{
    ModuleEntity* first = module("F");
    ModuleEntity* last = first;
    for (int i = 0; i < 200; ++i) {
        ModuleEntity* next = module("N");
        flow({last}, {next});
        flow({last}, {next});
        last = next;
    }
    std::map<ModuleEntity*, int> priorities;

    EXPECT_EQ(job().defineModulePriority(first, priorities, 1), 201);
    EXPECT_EQ(priorities[last], 201);
}

namespace {

// By definition: along every way.
int deepestAlongEveryWay(ModuleEntity* module, std::map<ModuleEntity*, int>& priorities,
                         int priority)
{
    const auto known = priorities.find(module);
    if (known != priorities.end())
        priority = std::max(priority, known->second);
    priorities[module] = priority;
    int deepest = priority;
    for (const DataChannel* channel : module->outputDataChannels) {
        for (ModuleEntity* consumer : channel->outputModules)
            deepest = std::max(deepest, deepestAlongEveryWay(consumer, priorities, priority + 1));
    }
    return deepest;
}

} // namespace

TEST_F(SchedulingTest, PrioritiesAreThoseAlongEveryWay)
{
    std::mt19937 numbers(1);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(numbers() % n); };
    for (int graph = 0; graph < 200; ++graph) {
        std::vector<ModuleEntity*> modules;
        for (std::size_t i = 0; i < 2 + below(9); ++i)
            modules.push_back(module("M"));
        for (std::size_t i = 0; i < modules.size() * 2; ++i) {
            const std::size_t to = 1 + below(modules.size() - 1);
            flow({modules[below(to)]}, {modules[to]});
        }
        std::map<ModuleEntity*, int> priorities;
        if (below(2) == 0)
            priorities[modules[below(modules.size())]] = static_cast<int>(below(20));
        std::map<ModuleEntity*, int> expected = priorities;
        for (int i = 0; i < 3; ++i) {
            ModuleEntity* from = modules[below(modules.size())];
            const int level = static_cast<int>(below(10));

            EXPECT_EQ(job().defineModulePriority(from, priorities, level),
                      deepestAlongEveryWay(from, expected, level))
                << "graph " << graph;
        }
        EXPECT_EQ(priorities, expected) << "graph " << graph;
    }
}

TEST_F(SchedulingTest, TableOfPrioritiesGoesToTheDiagnosticStreamAlone)
{
    ModuleEntity* b = module("B");
    ModuleEntity* a = module("A");
    flow({a}, {b});

    job().sortJobModules();

    EXPECT_THAT(debugLines, ElementsAre("Priority | Module:", "1  |  A", "2  |  B"));
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(SchedulingTest, TableOfAnEmptyJobIsItsHeading)
{
    job().sortJobModules();

    EXPECT_THAT(debugLines, ElementsAre("Priority | Module:"));
}

// ---- pre-processing

TEST_F(SchedulingTest, PreProcessingSendsItsBannerAndStatisticsBeforeEachModule)
{
    ModuleEntity* b = module("B");
    ModuleEntity* a = module("A");
    flow({a}, {b});

    EXPECT_EQ(job().preProcessJob(), 0);

    EXPECT_THAT(events, ElementsAre("message 1 Kernel: " + std::string(preProcessingBanner),
                                    "statistic 1", "pre A", "statistic 1", "pre B"));
}

TEST_F(SchedulingTest, BannerOfPreProcessingComesBeforeTheModulesAreSorted)
{
    module("A");
    job().installMessageFunc(
        [](int, char*, const char*, const char*, void* lines) {
            static_cast<Texts*>(lines)->push_back("banner");
            return 0;
        },
        nullptr, &debugLines);

    job().preProcessJob();

    EXPECT_THAT(debugLines, ElementsAre("banner", "Priority | Module:", "1  |  A"));
}

TEST_F(SchedulingTest, ModuleIsActiveDuringItsPreProcessingOnly)
{
    ModuleEntity* a = module("A");
    ModuleEntity* active = nullptr;
    inPreProcess(a, [&] { active = job().getActiveModule(); });

    job().preProcessJob();

    EXPECT_EQ(active, a);
    EXPECT_EQ(job().getActiveModule(), nullptr);
}

TEST_F(SchedulingTest, ResultsOfEntryPointsAreIgnored)
{
    static int runs;
    runs = 0;
    const AnyProcessFunctionType failing = [] {
        JobManager* manager = JobManager::getInstance();
        for (DataChannel* output : manager->getActiveModule()->outputDataChannels)
            output->setDataChannelFlag(endOfData);
        ++runs;
        return 1;
    };
    ModuleEntity* a = module("A");
    ModuleEntity* b = module("B");
    DataChannel* between = flow({a}, {b});
    for (ModuleEntity* each : {a, b})
        each->preProcessFunction = each->processFunction = each->postProcessFunction = failing;
    between->setNumberOfTraces(1);

    EXPECT_EQ(job().preProcessJob(), 0);
    EXPECT_EQ(runs, 2);
    EXPECT_EQ(job().processJob(), 0);
    EXPECT_EQ(runs, 4) << "B took the trace, then A ended its data";
    postProcess();
    EXPECT_EQ(runs, 6);
    EXPECT_THAT(job().jobModules, IsEmpty());
}

// ---- which modules are processed at all

TEST_F(SchedulingTest, ProcessingSendsItsBannerInTheNameOfTheKernel)
{
    EXPECT_EQ(job().processJob(), 0);

    EXPECT_THAT(events, ElementsAre("message 1 Kernel: " + std::string(processingBanner)));
}

TEST_F(SchedulingTest, ModuleWithoutChannelsIsPreAndPostProcessedButNeverRun)
{
    module("A");

    runJob();

    EXPECT_THAT(events,
                ElementsAre("message 1 Kernel: " + std::string(preProcessingBanner), "statistic 1",
                            "pre A", "message 1 Kernel: " + std::string(processingBanner),
                            "message 1 Kernel: " + std::string(postProcessingBanner), "statistic 3",
                            "post A", "statistic 3"));
}

TEST_F(SchedulingTest, SourceWithoutConsumersIsNeverRun)
{
    ModuleEntity* s = module("S", emits(1));
    flow({s}, {});

    runJob();

    EXPECT_EQ(called(), "");
}

TEST_F(SchedulingTest, SinkWithoutProducersIsNeverRunThoughTracesArePendingForIt)
{
    ModuleEntity* t = module("T");
    flow({}, {t})->setNumberOfTraces(2);

    runJob();

    EXPECT_EQ(called(), "");
}

TEST_F(SchedulingTest, SinkIsServedThoughItHasAnOutputThatNobodyReads)
{
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* t = module("T");
    flow({s}, {t});
    flow({t}, {});

    runJob();

    EXPECT_EQ(called(), "ST");
}

TEST_F(SchedulingTest, SinksAreVisitedInTheOrderOfTheSortedJob)
{
    ModuleEntity* z = module("Z");
    ModuleEntity* y = module("Y");
    ModuleEntity* s = module("S", emits(2));
    ModuleEntity* x = module("X", passesOn());
    ModuleEntity* w = module("W");
    flow({s}, {w, x, y});
    flow({x}, {z});

    runJob();

    // The order is S Y X W Z. Y has S emit; Z asks X.
    EXPECT_EQ(called(), "SYWXZSYWXZ");
}

// ---- the loop

TEST_F(SchedulingTest, EntryPointsOfAChainRunInTurnForEachTrace)
{
    ModuleEntity* a = module("A", emits(3));
    ModuleEntity* b = module("B", passesOn());
    ModuleEntity* c = module("C");
    flow({a}, {b});
    flow({b}, {c});

    runJob();

    EXPECT_EQ(called(), "ABCABCABC");
}

TEST_F(SchedulingTest, SinkTakesWhatIsPendingBeforeItsProducerIsAskedAgain)
{
    int round = 0;
    ModuleEntity* a = module("A", [&] {
        DataChannel* output = job().getActiveModule()->getOutputDataChannel(0);
        for (int i = 0; ++round <= 6 && i < 3; ++i)
            write(output, round);
        if (round > 6)
            output->setDataChannelFlag(endOfData);
    });
    ModuleEntity* b = module("B");
    flow({a}, {b});
    sinks = {b};

    EXPECT_EQ(pass(4), 0);

    EXPECT_EQ(called().substr(0, 5), "ABBBA");
}

TEST_F(SchedulingTest, ModuleRunsOnceInAPass)
{
    ModuleEntity* b = module("B");
    flow({}, {b})->setNumberOfTraces(3);
    sinks = {b};

    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "B");
    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "B");
}

TEST_F(SchedulingTest, PassReadsAndWritesEndOfDataFlagsInAPlainMap)
{
    ModuleEntity* a = module("A", emits(1));
    ModuleEntity* b = module("B");
    ModuleEntity* ended = module("E");
    flow({a}, {b});
    flow({}, {ended})->setNumberOfTraces(1);
    sinks = {ended, b};
    std::map<ModuleEntity*, int> flags = {{ended, 1}};

    EXPECT_EQ(job().processModules(sinks, flags), 0);
    EXPECT_EQ(called(), "AB");
    EXPECT_THAT(flags, UnorderedElementsAre(Pair(a, 1), Pair(b, 0), Pair(ended, 1)));

    EXPECT_EQ(job().processModules(sinks, flags), -1);
    EXPECT_THAT(sinks, ElementsAre(ended));
    EXPECT_EQ(job().processModules(sinks, flags), -1) << "nothing is left to serve";
    EXPECT_THAT(sinks, ElementsAre(ended));
    EXPECT_EQ(called(), "AB");
}

TEST_F(SchedulingTest, ModuleWithoutInputsIsRunWithoutAsking)
{
    ModuleEntity* s = module("S");
    flow({s}, {});
    sinks = {s};

    EXPECT_EQ(pass(), 0);

    EXPECT_EQ(called(), "S");
}

TEST_F(SchedulingTest, ModuleRunsOnlyWhenEveryInputHasATrace)
{
    ModuleEntity* s = module("S", emits(5));
    ModuleEntity* u = module("U");
    ModuleEntity* x = module("X");
    flow({s}, {x});
    DataChannel* slow = flow({u}, {x});
    sinks = {x};

    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "SU") << "U gave nothing";
    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "U") << "S is not asked while its trace is pending";

    write(slow, 1);
    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "X");
}

TEST_F(SchedulingTest, ProducerThatGivesNothingIsAskedAgainInTheNextPass)
{
    ModuleEntity* s = module("S");
    ModuleEntity* t = module("T");
    flow({s}, {t});
    sinks = {t};

    EXPECT_EQ(pass(3), 0);

    EXPECT_EQ(called(), "SSS");
    EXPECT_THAT(sinks, ElementsAre(t));
}

TEST_F(SchedulingTest, ProducersAreAskedInTheOrderOfTheirAttachment)
{
    ModuleEntity* a = module("A");
    ModuleEntity* b = module("B");
    ModuleEntity* c = module("C");
    ModuleEntity* d = module("D");
    ModuleEntity* t = module("T");
    flow({d, b}, {t});
    flow({c, a}, {t});
    sinks = {t};

    EXPECT_EQ(pass(), 0);

    EXPECT_EQ(called(), "DBCA");
}

TEST_F(SchedulingTest, EveryProducerOfAChannelIsAskedThoughTheFirstGaveATrace)
{
    ModuleEntity* s = module("S", emits(5));
    ModuleEntity* u = module("U", emits(5));
    ModuleEntity* t = module("T");
    DataChannel* shared = flow({s, u}, {t});
    sinks = {t};

    EXPECT_EQ(pass(), 0);

    EXPECT_EQ(called(), "SUT");
    EXPECT_EQ(shared->getNumberOfInputTraces(t), 1);
}

TEST_F(SchedulingTest, ProducerOfTwoEmptyChannelsIsAskedTwice)
{
    ModuleEntity* s = module("S", emits(10));
    ModuleEntity* t = module("T");
    DataChannel* first = flow({s}, {t});
    flow({s}, {t});
    sinks = {t};

    EXPECT_EQ(pass(), 0);

    EXPECT_EQ(called(), "SST");
    EXPECT_EQ(first->getNumberOfTraces(), 1) << "one of two is taken";
}

TEST_F(SchedulingTest, ProducersOfChannelsWithPendingTracesAreNotAsked)
{
    ModuleEntity* s = module("S", emits(5));
    ModuleEntity* u = module("U", emits(5));
    ModuleEntity* t = module("T");
    write(flow({s}, {t}), 1);
    flow({u}, {t});
    sinks = {t};

    EXPECT_EQ(pass(), 0);

    EXPECT_EQ(called(), "UT");
}

TEST_F(SchedulingTest, ProducerThatHasEndedItsDataIsNotAskedAgain)
{
    ModuleEntity* s = module("S", emits(9));
    ModuleEntity* u = module("U", emits(9));
    ModuleEntity* t = module("T");
    flow({s, u}, {t});
    eod[s] = 1;
    sinks = {t};

    EXPECT_EQ(pass(2), 0);

    EXPECT_EQ(called(), "UTUT");
}

TEST_F(SchedulingTest, ConsumerWaitsWithoutAskingWhileAnotherHasNotCaughtUp)
{
    int rounds = 0;
    ModuleEntity* s = module("S", emits(4));
    ModuleEntity* u = module("U", [&] { // gives a trace every other time
        if (++rounds % 2 == 0)
            write(job().getActiveModule()->getOutputDataChannel(0), rounds);
    });
    ModuleEntity* x = module("X");
    ModuleEntity* y = module("Y");
    flow({s}, {x, y});
    flow({u}, {y});
    sinks = {x, y};

    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "SXU") << "Y lacks a trace of U";
    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "UY") << "X waits for Y to take the trace that X has taken";
    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "SXU");
}

TEST_F(SchedulingTest, WaitingConsumerDoesNotAskForItsOtherChannelsEither)
{
    for (const bool waitingFirst : {true, false}) {
        SCOPED_TRACE(waitingFirst ? "the channel held by the other first" : "it comes second");
        ModuleEntity* s = module("S", emits(9));
        ModuleEntity* u = module("U", emits(9));
        ModuleEntity* x = module("X");
        ModuleEntity* y = module("Y");
        DataChannel* held = channel();
        DataChannel* lacking = channel();
        s->setOutputDataChannel(held, 0);
        u->setOutputDataChannel(lacking, 0);
        x->setInputDataChannel(waitingFirst ? held : lacking, 0);
        x->setInputDataChannel(waitingFirst ? lacking : held, 1);
        y->setInputDataChannel(held, 0);
        write(held, 1);
        held->removeInputTrace(x, 0);
        sinks = {x};

        EXPECT_EQ(pass(), 0);

        EXPECT_EQ(newCalls(), "");
        EXPECT_THAT(sinks, ElementsAre(x));
    }
}

TEST_F(SchedulingTest, WaitingModuleDoesNotKeepLaterOnesFromTheirTurn)
{
    ModuleEntity* s = module("S");
    ModuleEntity* x = module("X");
    ModuleEntity* y = module("Y");
    DataChannel* shared = flow({s}, {x, y});
    write(shared, 1);
    shared->removeInputTrace(x, 0);
    sinks = {x, y};

    EXPECT_EQ(pass(), 0);

    EXPECT_EQ(called(), "Y");
}

TEST_F(SchedulingTest, WaitingProducerLeavesItsConsumerWaiting)
{
    ModuleEntity* s = module("S");
    ModuleEntity* f = module("F");
    ModuleEntity* y = module("Y");
    ModuleEntity* t = module("T");
    DataChannel* shared = flow({s}, {f, y});
    flow({f}, {t});
    write(shared, 1);
    shared->removeInputTrace(f, 0);
    sinks = {t};

    EXPECT_EQ(pass(), 0);

    EXPECT_EQ(called(), "");
    EXPECT_THAT(sinks, ElementsAre(t));
}

// ---- end of data

TEST_F(SchedulingTest, EndedSourceAndDrainedChannelTakeFilterAndSinkOffTheList)
{
    ModuleEntity* a = module("A", emits(1));
    ModuleEntity* b = module("B", [] {});
    ModuleEntity* c = module("C");
    DataChannel* first = flow({a}, {b});
    flow({b}, {c});
    sinks = {c};

    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "AB");
    EXPECT_EQ(first->getNumberOfTraces(), 0);
    EXPECT_EQ(eod[a], 1);

    EXPECT_EQ(pass(), -1);
    EXPECT_EQ(newCalls(), "");
    EXPECT_THAT(sinks, IsEmpty());
    EXPECT_EQ(eod[b], 0) << "B never said that it had ended";
}

TEST_F(SchedulingTest, PassEndsAtOnceWhenASinkLeavesTheList)
{
    ModuleEntity* s = module("S");
    ModuleEntity* t = module("T");
    ModuleEntity* u = module("U");
    ModuleEntity* v = module("V");
    write(flow({}, {t}), 1);
    flow({s}, {u}); // S has ended
    write(flow({}, {v}), 1);
    eod[s] = 1;
    sinks = {t, u, v};

    EXPECT_EQ(pass(), -1);
    EXPECT_EQ(newCalls(), "T") << "V comes after U";
    EXPECT_THAT(sinks, ElementsAre(t, v));

    write(t->getInputDataChannel(0), 2);
    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "TV") << "the next pass begins at the front";
}

TEST_F(SchedulingTest, SinksLeaveTheListOnePassAfterTheOther)
{
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* t = module("T");
    ModuleEntity* u = module("U");
    flow({s}, {t, u});
    sinks = {t, u};

    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(called(), "STU");
    EXPECT_EQ(pass(), -1);
    EXPECT_THAT(sinks, ElementsAre(u));
    EXPECT_EQ(pass(), -1);
    EXPECT_THAT(sinks, IsEmpty());
}

TEST_F(SchedulingTest, ExhaustedFilterTakesItsConsumerAlongThoughAnotherProducerHasData)
{
    ModuleEntity* s = module("S");
    ModuleEntity* f = module("F"); // its source has ended, it has not said so itself
    ModuleEntity* u = module("U", emits(9));
    ModuleEntity* t = module("T");
    flow({s}, {f});
    flow({f, u}, {t});
    eod[s] = 1;
    sinks = {t};

    EXPECT_EQ(pass(), -1);

    EXPECT_EQ(called(), "") << "the producers' pass ended at F";
    EXPECT_THAT(sinks, IsEmpty());
}

TEST_F(SchedulingTest, ProducerAskedBeforeTheExhaustedOneHasRun)
{
    ModuleEntity* s = module("S");
    ModuleEntity* f = module("F");
    ModuleEntity* u = module("U", emits(9));
    ModuleEntity* t = module("T");
    flow({s}, {f});
    DataChannel* shared = flow({u, f}, {t});
    eod[s] = 1;
    sinks = {t};

    EXPECT_EQ(pass(), -1);

    EXPECT_EQ(called(), "U");
    EXPECT_EQ(shared->getNumberOfInputTraces(t), 1) << "its trace is not looked at any more";
    EXPECT_THAT(sinks, IsEmpty());
}

TEST_F(SchedulingTest, SourceThatEndsWithoutATraceIsMissedInTheNextPass)
{
    ModuleEntity* s = module("S", emits(0));
    ModuleEntity* f = module("F");
    ModuleEntity* t = module("T");
    flow({s}, {f});
    flow({f}, {t});
    sinks = {t};

    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "S");
    EXPECT_THAT(sinks, ElementsAre(t));
    EXPECT_EQ(pass(), -1);
    EXPECT_EQ(newCalls(), "");
    EXPECT_THAT(sinks, IsEmpty());
}

TEST_F(SchedulingTest, ProducerOfTwoChannelsThatEndsInItsFirstCallIsSkippedTheSecondTime)
{
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* t = module("T");
    flow({s}, {t});
    flow({s}, {t});

    runJob();

    EXPECT_EQ(called(), "ST");
}

TEST_F(SchedulingTest, MiddleModuleEndsTheJobThoughItsSourceGoesOn)
{
    int seen = 0;
    ModuleEntity* a = module("A", emits(100));
    ModuleEntity* b = module("B", [&] {
        ModuleEntity* active = job().getActiveModule();
        DataChannel* output = active->getOutputDataChannel(0);
        write(output, firstTrace(active, 0));
        if (++seen == 2)
            output->setDataChannelFlag(endOfData);
    });
    ModuleEntity* c = module("C");
    flow({a}, {b});
    flow({b}, {c});

    runJob();

    EXPECT_EQ(called(), "ABCABC");
}

TEST_F(SchedulingTest, LastOutputChannelAloneDecidesWhetherAModuleHasEnded)
{
    struct Row
    {
        int first, second;
        int ended;
    };
    for (const Row& row : {Row{endOfData, 0, 0}, Row{0, endOfData, 1}, Row{endOfData, endOfData, 1},
                           Row{0, 0, 0}, Row{endOfData, 2, 0}, Row{0, 7, 0}})
    {
        SCOPED_TRACE(std::to_string(row.first) + " and " + std::to_string(row.second));
        ModuleEntity* s = module("S", [&, row] {
            job().getActiveModule()->getOutputDataChannel(0)->setDataChannelFlag(row.first);
            job().getActiveModule()->getOutputDataChannel(1)->setDataChannelFlag(row.second);
        });
        flow({s}, {});
        flow({s}, {});
        sinks = {s};
        eod[s] = 0;

        EXPECT_EQ(pass(), 0);
        EXPECT_EQ(eod[s], row.ended);
        pass();
        EXPECT_EQ(newCalls(), row.ended == 1 ? "S" : "SS");
    }
}

TEST_F(SchedulingTest, ModuleWithoutOutputsNeverEnds)
{
    ModuleEntity* t = module("T", [&] {
        job().getActiveModule()->getInputDataChannel(0)->setDataChannelFlag(endOfData);
    });
    flow({}, {t})->setNumberOfTraces(2);
    sinks = {t};

    EXPECT_EQ(pass(2), 0);

    EXPECT_EQ(called(), "TT");
    EXPECT_EQ(eod[t], 0);
}

TEST_F(SchedulingTest, EndedModulesAreSkippedAndStayOnTheList)
{
    ModuleEntity* s = module("S", emits(9));
    ModuleEntity* t = module("T", [&] {
        job().getActiveModule()->getOutputDataChannel(0)->setDataChannelFlag(endOfData);
    });
    flow({s}, {t});
    flow({t}, {});
    sinks = {t};

    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "ST");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(pass(), -1) << "such a job does not end";
    EXPECT_EQ(newCalls(), "");
    EXPECT_THAT(sinks, ElementsAre(t));
}

TEST_F(SchedulingTest, OneModuleToServeMakesThePassCountThoughOthersHaveEnded)
{
    ModuleEntity* s = module("S");
    ModuleEntity* t = module("T");
    ModuleEntity* u = module("U");
    flow({s}, {t, u});
    eod[t] = 1;
    sinks = {u, t};

    EXPECT_EQ(pass(), 0);
    sinks = {t, u};
    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(called(), "SS");
}

TEST_F(SchedulingTest, PassOverNothingAnswersMinusOne)
{
    EXPECT_EQ(pass(), -1);
}

TEST_F(SchedulingTest, MarkBehindOtherTracesEndsTheSourceWhenItHasComeToTheFront)
{
    int round = 0;
    ModuleEntity* s = module("S", [&] {
        DataChannel* output = job().getActiveModule()->getOutputDataChannel(0);
        if (++round == 1) {
            write(output, 1);
            write(output, 2);
            output->setDataChannelFlag(endOfData);
        }
    });
    ModuleEntity* t = module("T");
    flow({s}, {t});
    sinks = {t};

    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "ST");
    EXPECT_EQ(eod[s], 0) << "the first trace has no mark";
    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "T");
    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(newCalls(), "S") << "asked once more; the channel kept the mark of its last trace";
    EXPECT_EQ(eod[s], 1);
    EXPECT_EQ(pass(), -1);
    EXPECT_THAT(sinks, IsEmpty());
}

TEST_F(SchedulingTest, LoneMarkedTraceTakesItsMarkAwayAndTheSourceStaysEnded)
{
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* t = module("T");
    DataChannel* between = flow({s}, {t});
    sinks = {t};

    EXPECT_EQ(pass(), 0);

    EXPECT_EQ(between->getNumberOfTraces(), 0);
    EXPECT_EQ(between->getDataChannelFlag(), 0);
    EXPECT_EQ(eod[s], 1);
    EXPECT_EQ(pass(), -1);
    EXPECT_EQ(called(), "ST");
}

TEST_F(SchedulingTest, MarkAtTheFrontOfASharedChannelEndsWhateverProducerHasRun)
{
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* u = module("U", emits(9));
    ModuleEntity* t = module("T");
    flow({s, u}, {t});

    runJob();

    EXPECT_EQ(called(), "SUTT") << "the marked trace of S was still the first when U was asked";
}

TEST_F(SchedulingTest, SourceWithoutTracesEndsThroughTheMarkOfItsEmptyChannel)
{
    ModuleEntity* s = module("S", emits(0));
    ModuleEntity* t = module("T");
    flow({s}, {t});

    runJob();

    EXPECT_EQ(called(), "S");
}

// ---- RespectEOD

TEST_F(SchedulingTest, ModuleThatRespectsEndOfDataRunsOnWithoutInputUntilItEndsItself)
{
    int late = 0;
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* f = module("F", [&] {
        ModuleEntity* active = job().getActiveModule();
        DataChannel* output = active->getOutputDataChannel(0);
        if (active->getNumberOfInputTraces(0) > 0)
            return;
        write(output, ++late);
        if (late == 3)
            output->setDataChannelFlag(endOfData);
    });
    ModuleEntity* t = module("T");
    flow({s}, {f});
    flow({f}, {t});
    f->setProcessingOption("RespectEOD", UniVar(1));

    runJob();

    EXPECT_EQ(called(), "SFFTFTFT");
}

TEST_F(SchedulingTest, SinkThatRespectsEndOfDataRunsInEveryPassAndNeverLeaves)
{
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* t = module("T");
    flow({s}, {t});
    t->setProcessingOption("RespectEOD", UniVar(1));
    sinks = {t};

    EXPECT_EQ(pass(5), 0);

    EXPECT_EQ(called(), "STTTTT");
    EXPECT_THAT(sinks, ElementsAre(t));
}

TEST_F(SchedulingTest, SinkLeavesWhenItRespectsEndOfDataNoLonger)
{
    int rounds = 0;
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* t = module("T", [&] {
        if (++rounds == 3)
            job().getActiveModule()->setProcessingOption("RespectEOD", UniVar());
    });
    flow({s}, {t});
    t->setProcessingOption("RespectEOD", UniVar(1));

    runJob();

    EXPECT_EQ(called(), "STTT");
}

TEST_F(SchedulingTest, RespectingEndOfDataDoesNotHelpWhenAProducerLeavesItsList)
{
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* f = module("F", [] {}); // exhausted, but never marked as ended
    ModuleEntity* t = module("T");
    flow({s}, {f});
    flow({f}, {t});
    t->setProcessingOption("RespectEOD", UniVar(1));

    runJob();

    EXPECT_EQ(called(), "SF");
}

TEST_F(SchedulingTest, RespectingEndOfDataDoesNotMakeAModuleRunWhileAProducerIsAlive)
{
    ModuleEntity* s = module("S");
    ModuleEntity* t = module("T");
    flow({s}, {t});
    t->setProcessingOption("RespectEOD", UniVar(1));
    sinks = {t};

    EXPECT_EQ(pass(3), 0);

    EXPECT_EQ(called(), "SSS");
}

TEST_F(SchedulingTest, RespectingEndOfDataDoesNotOvertakeOtherConsumers)
{
    ModuleEntity* s = module("S");
    ModuleEntity* x = module("X");
    ModuleEntity* y = module("Y");
    DataChannel* shared = flow({s}, {x, y});
    write(shared, 1);
    shared->removeInputTrace(x, 0);
    eod[s] = 1;
    x->setProcessingOption("RespectEOD", UniVar(1));
    sinks = {x};

    EXPECT_EQ(pass(2), 0);

    EXPECT_EQ(called(), "");
}

TEST_F(SchedulingTest, ModuleThatRunsWithoutInputLeavesNoTraceBehind)
{
    ModuleEntity* s = module("S");
    ModuleEntity* t = module("T");
    DataChannel* between = flow({s}, {t});
    t->setProcessingOption("RespectEOD", UniVar(1));
    eod[s] = 1;
    sinks = {t};

    EXPECT_EQ(pass(2), 0);

    EXPECT_EQ(called(), "TT");
    EXPECT_EQ(between->getNumberOfTraces(), 0);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
}

TEST_F(SchedulingTest, ModuleThatRunsWithoutInputLeavesAnEmptyTraceToTheOtherConsumers)
{
    ModuleEntity* s = module("S");
    ModuleEntity* x = module("X");
    ModuleEntity* y = module("Y");
    DataChannel* shared = flow({s}, {x, y});
    x->setProcessingOption("RespectEOD", UniVar(1));
    eod[s] = 1;
    sinks = {x};

    EXPECT_EQ(pass(), 0);

    EXPECT_EQ(shared->getNumberOfInputTraces(x), 0);
    EXPECT_EQ(shared->getNumberOfInputTraces(y), 1);
}

// ---- consuming

TEST_F(SchedulingTest, TraceIsTakenFromEveryInputAfterTheCall)
{
    std::vector<int> seen;
    ModuleEntity* t = module("T", [&] {
        ModuleEntity* active = job().getActiveModule();
        seen.push_back(firstTrace(active, 0));
        seen.push_back(firstTrace(active, 1));
    });
    DataChannel* first = flow({}, {t});
    DataChannel* second = flow({}, {t});
    for (int i = 1; i <= 2; ++i) {
        write(first, i);
        write(second, 10 * i);
    }
    sinks = {t};

    pass(2);

    EXPECT_THAT(seen, ElementsAre(1, 10, 2, 20));
    EXPECT_EQ(first->getNumberOfTraces(), 0);
    EXPECT_EQ(second->getNumberOfTraces(), 0);
}

TEST_F(SchedulingTest, FlaggedTraceComesAgainWithTheNextCall)
{
    std::vector<int> seen;
    ModuleEntity* t = module("T", [&] {
        ModuleEntity* active = job().getActiveModule();
        seen.push_back(firstTrace(active, 0));
        if (seen.size() == 1 || seen.size() == 2)
            active->getInputDataChannel(0)->setFlag(keepTrace, true);
    });
    DataChannel* input = flow({}, {t});
    write(input, 1);
    write(input, 2);
    sinks = {t};

    pass(4);

    EXPECT_THAT(seen, ElementsAre(1, 1, 1, 2));
    EXPECT_EQ(input->getNumberOfTraces(), 0);
}

TEST_F(SchedulingTest, FlagOfOneInputKeepsTheTraceOfThatInputOnly)
{
    ModuleEntity* t = module(
        "T", [&] { job().getActiveModule()->getInputDataChannel(1)->setFlag(keepTrace, true); });
    DataChannel* first = flow({}, {t});
    DataChannel* second = flow({}, {t});
    write(first, 1);
    write(second, 1);
    sinks = {t};

    pass();

    EXPECT_EQ(first->getNumberOfTraces(), 0);
    EXPECT_EQ(second->getNumberOfTraces(), 1);
}

TEST_F(SchedulingTest, KeepingATraceClearsItsBitAndNoOther)
{
    ModuleEntity* t =
        module("T", [&] { job().getActiveModule()->getInputDataChannel(0)->setFlag(7, true); });
    DataChannel* input = flow({}, {t});
    write(input, 1);
    sinks = {t};

    pass();

    EXPECT_EQ(input->getNumberOfTraces(), 1);
    EXPECT_EQ(input->flags, 6);
}

TEST_F(SchedulingTest, OtherBitsDoNotKeepTheTrace)
{
    ModuleEntity* t =
        module("T", [&] { job().getActiveModule()->getInputDataChannel(0)->setFlag(6, true); });
    DataChannel* input = flow({}, {t});
    write(input, 1);
    sinks = {t};

    pass();

    EXPECT_EQ(input->getNumberOfTraces(), 0);
    EXPECT_EQ(input->flags, 6);
}

TEST_F(SchedulingTest, TraceOfTwoConsumersGoesWhenTheSecondHasTakenIt)
{
    std::vector<int> held;
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* x = module("X");
    ModuleEntity* y =
        module("Y", [&] { held.push_back(job().getActiveModule()->getNumberOfInputTraces(0)); });
    DataChannel* shared = flow({s}, {x, y});
    sinks = {x, y};

    pass();

    EXPECT_EQ(called(), "SXY");
    EXPECT_THAT(held, ElementsAre(1));
    EXPECT_EQ(shared->getNumberOfTraces(), 0);
}

TEST_F(SchedulingTest, InputIsConsumedBeforeTheOutputIsAskedForTheEnd)
{
    // A module that reads and writes one channel would see its own trace go first.
    ModuleEntity* t = module("T");
    DataChannel* loop = flow({t}, {t});
    write(loop, 1);
    loop->setDataChannelFlag(endOfData);
    sinks = {t};

    EXPECT_EQ(pass(), 0);

    EXPECT_EQ(loop->getNumberOfTraces(), 0);
    EXPECT_EQ(eod[t], 0) << "the marked trace was gone when the flag was read";
}

// ---- statistics of processing

class PassesTest : public SchedulingTest, public testing::WithParamInterface<int>
{
};

TEST_P(PassesTest, StatisticsAreSentWithEveryThousandAndFirstPass)
{
    const int passes = GetParam();
    ModuleEntity* s = module("S", emits(passes - 1)); // the last pass takes the sink off the list
    ModuleEntity* t = module("T");
    flow({s}, {t});
    job().preProcessJob();
    host.statistics.clear();

    EXPECT_EQ(job().processJob(), 0);

    ASSERT_EQ(host.statistics.size(), static_cast<std::size_t>(passes / 1001));
    for (std::size_t i = 0; i < host.statistics.size(); ++i) {
        EXPECT_EQ(host.statistics[i].jobPhase, 2);
        // Sent also after the very last pass, in which nothing is run.
        const int ran = std::min(static_cast<int>(i + 1) * 1001, passes - 1);
        EXPECT_EQ(host.statistics[i].modStatistics[0].out_traces, ran);
        EXPECT_EQ(host.statistics[i].modStatistics[1].inp_traces, ran);
    }
}

INSTANTIATE_TEST_SUITE_P(Numbers, PassesTest,
                         testing::Values(1, 2, 999, 1000, 1001, 1002, 2001, 2002, 2003, 3003));

TEST_F(SchedulingTest, ShortJobSendsNoStatisticsWhileItIsProcessed)
{
    ModuleEntity* s = module("S", emits(5));
    ModuleEntity* t = module("T");
    flow({s}, {t});

    EXPECT_EQ(job().processJob(), 0);

    EXPECT_THAT(host.statistics, IsEmpty());
}

// ---- the active module

TEST_F(SchedulingTest, RunningAModuleMakesItTheActiveOneForGood)
{
    ModuleEntity* active = nullptr;
    ModuleEntity* a = module("A", [&] { active = job().getActiveModule(); });

    EXPECT_EQ(job().processModule(a), 0);

    EXPECT_EQ(active, a);
    EXPECT_EQ(job().getActiveModule(), a);
}

TEST_F(SchedulingTest, LastModuleRunStaysActiveAfterProcessing)
{
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* t = module("T");
    flow({s}, {t});
    job().preProcessJob();

    job().processJob();

    EXPECT_EQ(job().getActiveModule(), t);
}

TEST_F(SchedulingTest, MemoryTakenBetweenTheLastPhasesIsChargedToTheLastModuleRun)
{
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* t = module("T");
    flow({s}, {t});
    job().preProcessJob();
    job().processJob();

    void* block = job().allocateResource(100);

    EXPECT_EQ(t->getTotalModuleMemoryUsed(), 100);
    EXPECT_EQ(s->getTotalModuleMemoryUsed(), 0);
    job().freeResource(block);
}

TEST_F(SchedulingTest, BannerOfPostProcessingIsSentInTheNameOfTheLastModuleRun)
{
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* t = module("T");
    flow({s}, {t});
    job().preProcessJob();
    job().processJob();
    events.clear();

    postProcess();

    EXPECT_THAT(events,
                ElementsAre("message 1 T: " + std::string(postProcessingBanner), "statistic 3",
                            "post S", "statistic 3", "post T", "statistic 3"));
}

// ---- post-processing

TEST_F(SchedulingTest, ModuleIsActiveDuringItsPostProcessingOnly)
{
    std::vector<ModuleEntity*> active;
    ModuleEntity* a = module("A");
    inPostProcess(a, [&] { active.push_back(job().getActiveModule()); });
    job().installStatisticFunc(
        [](jobStatisticStruct*, void* seen) {
            static_cast<std::vector<ModuleEntity*>*>(seen)->push_back(
                JobManager::getInstance()->getActiveModule());
            return 0;
        },
        &active);
    job().setActiveModule(a);

    job().postProcessJob();

    EXPECT_THAT(active, ElementsAre(a, a, nullptr)) << "statistics, entry point, statistics";
}

TEST_F(SchedulingTest, PostProcessingOfAnEmptyJobSendsBannerAndStatisticsOnce)
{
    EXPECT_EQ(job().postProcessJob(), 0);

    EXPECT_THAT(events, ElementsAre("message 1 Kernel: " + std::string(postProcessingBanner),
                                    "statistic 3"));
    EXPECT_EQ(host.statistics.back().numMod, 0);
}

// Counts its own end; remembers how many modules the job had then.
template <typename Set>
class Counted : public Set
{
public:
    Counted(int* ends, std::size_t* modules) : counter(ends), modulesLeft(modules) {}
    ~Counted() override
    {
        ++*counter;
        *modulesLeft = JobManager::getInstance()->jobModules.size();
    }

private:
    int* counter;
    std::size_t* modulesLeft;
};

TEST_F(SchedulingTest, ChannelsAndWorkBuffersAreDeletedOnceEach)
{
    ModuleEntity* a = module("A");
    ModuleEntity* b = module("B");
    ModuleEntity* c = module("C");
    int channelEnds = 0;
    int inputEnds = 0;
    int outputEnds = 0;
    int bufferEnds = 0;
    std::size_t modules = 0;
    auto* shared = new Counted<DataChannel>(&channelEnds, &modules);
    auto* input = new Counted<DataChannel>(&inputEnds, &modules);
    auto* output = new Counted<DataChannel>(&outputEnds, &modules);
    auto* buffer = new Counted<SeisTraceSet>(&bufferEnds, &modules);
    a->setOutputDataChannel(shared, 0);
    b->setOutputDataChannel(shared, 0);
    b->setInputDataChannel(shared, 0);
    c->setInputDataChannel(shared, 0);
    c->setInputDataChannel(shared, 0);
    a->setInputDataChannel(input, 0);
    c->setOutputDataChannel(output, 0);
    a->addWorkTraceBuffer(buffer);
    b->addWorkTraceBuffer(buffer); // two modules may be given one buffer
    b->addWorkTraceBuffer(nullptr);
    b->getWorkTraceBuffer(3);
    b->addWorkTraceBuffer(shared); // and a channel is a trace set

    EXPECT_EQ(job().postProcessJob(), 0);

    EXPECT_EQ(channelEnds, 1);
    EXPECT_EQ(inputEnds, 1);
    EXPECT_EQ(outputEnds, 1);
    EXPECT_EQ(bufferEnds, 1);
    EXPECT_EQ(modules, 3u) << "the modules are deleted afterwards";
}

TEST_F(SchedulingTest, ChannelsLiveUntilTheLastModuleIsPostProcessed)
{
    int ends = 0;
    int endsSeen = -1;
    std::size_t modules = 0;
    ModuleEntity* a = module("A");
    ModuleEntity* b = module("B");
    auto* between = new Counted<DataChannel>(&ends, &modules);
    a->setOutputDataChannel(between, 0);
    b->setInputDataChannel(between, 0);
    inPostProcess(b, [&] { endsSeen = ends; });

    job().postProcessJob();

    EXPECT_EQ(endsSeen, 0);
    EXPECT_EQ(ends, 1);
}

TEST_F(SchedulingTest, TracesLeftInAChannelSurviveIt)
{
    ModuleEntity* a = module("A");
    SeisTrace* left = flow({}, {a})->getTrace(0, true);
    channels.clear();

    job().postProcessJob();

    left->getSamples()[0] = 5;
    EXPECT_EQ(left->getSamples()[0], 5);
    delete left;
}

TEST_F(SchedulingTest, PostProcessingDeletesTheModulesAndClosesTheirLibraries)
{
    const std::string library = std::string(VORN_TEST_HOME) + "/lib/libprobe.so";
    const auto isLoaded = [&] {
        void* handle = dlopen(library.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        if (handle != nullptr)
            dlclose(handle);
        return handle != nullptr;
    };
    ASSERT_NE(job().initJobModule("A", "libprobe.so"), nullptr);
    ASSERT_NE(job().initJobModule("B", "libprobe.so"), nullptr);
    ASSERT_TRUE(isLoaded());

    job().postProcessJob();

    EXPECT_THAT(job().jobModules, IsEmpty());
    EXPECT_FALSE(isLoaded());
}

TEST_F(SchedulingTest, PostProcessingRemovesTheScratchFile)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    ModuleEntity* s = module("S");
    write(flow({s}, {}), 1);
    write(channels.back(), 2);
    ASSERT_EQ(scratchDirectory.names().size(), 1u) << "one trace is paged out";
    const std::string path = scratchDirectory / scratchDirectory.names().front();
    events.clear();

    postProcess();

    EXPECT_THAT(scratchDirectory.names(), IsEmpty());
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back(), "message 0 Kernel: Scratch file " + path + " successfully removed");
}

TEST_F(SchedulingTest, ScratchFileIsRemovedWhenTheModulesAreGone)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    ModuleEntity* s = module("S");
    write(flow({s}, {}), 1);
    write(channels.back(), 2);
    std::vector<std::size_t> modules; // at each message
    job().installMessageFunc(
        [](int, char*, const char*, const char*, void* counts) {
            static_cast<std::vector<std::size_t>*>(counts)->push_back(
                JobManager::getInstance()->jobModules.size());
            return 0;
        },
        nullptr, &modules);

    postProcess();

    EXPECT_THAT(modules, ElementsAre(1u, 0u)) << "the banner, and the end of the scratch file";
}

TEST_F(SchedulingTest, ManagerTakesTheNextJobAsIfItWereTheFirst)
{
    for (int round = 1; round <= 3; ++round) {
        SCOPED_TRACE(round);
        ModuleEntity* t = module("T");
        ModuleEntity* s = module("S", emits(2));
        flow({s}, {t});
        events.clear();
        calls.clear();

        runJob();

        EXPECT_EQ(called(), "STST");
        EXPECT_THAT(events,
                    ElementsAre("message 1 Kernel: " + std::string(preProcessingBanner),
                                "statistic 1", "pre S", "statistic 1", "pre T",
                                "message 1 Kernel: " + std::string(processingBanner), "S", "T", "S",
                                "T", "message 1 T: " + std::string(postProcessingBanner),
                                "statistic 3", "post S", "statistic 3", "post T", "statistic 3"));
        EXPECT_EQ(job().getActiveModule(), nullptr);
    }
}

TEST_F(SchedulingTest, PhasesRunWithoutAHost)
{
    job().installMessageFunc(nullptr, nullptr, nullptr);
    job().installStatisticFunc(nullptr, nullptr);
    ModuleEntity* s = module("S", emits(1));
    ModuleEntity* t = module("T");
    flow({s}, {t});

    runJob();

    EXPECT_EQ(called(), "ST");
}

} // namespace
