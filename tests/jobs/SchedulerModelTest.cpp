// Jobs made at random, run by the kernel and by the model: the calls of the entry points, what the
// modules see in their inputs, the statistics and what is left in the channels must be the same.
#include "SchedulerModel.h"

#include "DataChannel.h"
#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "ProbeModule.h"

#include <QtGlobal>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>

using namespace scheduler_model;

namespace {

constexpr unsigned jobsPerTest = 500;
constexpr int passesAtMost = 4000;
constexpr int callsAtMost = 300;
constexpr int callsOfLongJobs = 20000;
constexpr int passesOfEndlessJobs = 30;

// A job of the kernel whose modules do what `job` says, and which writes down the same events as
// the simulation.
class KernelRun
{
public:
    KernelRun(const Job& jobToRun, int eventLimit) : job(jobToRun), eventsAtMost(eventLimit)
    {
        manager().installStatisticFunc(noteStatistic, this);
        for (int i = 0; i < job.channels; ++i) {
            channels.push_back(new DataChannel);
            channels.back()->setTraceLength(1);
        }
        for (std::size_t i = 0; i < job.modules.size(); ++i)
            addModule(static_cast<int>(i));
        for (const Wiring& wire : job.wiring)
            connect(wire);
    }

    std::vector<std::string> events;

    int process() { return manager().processJob(); }

    // For jobs that do not end.
    void processPasses(int passes)
    {
        ModuleList sinks;
        for (ModuleEntity* module : manager().jobModules) {
            if (module->isOutputModule() && !module->isInputModule())
                sinks.push_back(module);
        }
        EndOfDataFlags eod;
        for (int i = 0; i < passes && !sinks.empty(); ++i)
            manager().processModules(sinks, eod);
    }

    std::vector<std::string> channelTexts()
    {
        std::vector<std::string> texts;
        for (DataChannel* channel : channels)
            texts.push_back(textOf(*channel));
        return texts;
    }

    // What a job leaves in its channels has no owner, nor have channels that no module uses.
    void destroyLeftovers()
    {
        for (DataChannel* channel : channels) {
            for (SeisTrace* trace : channel->traces)
                delete trace;
            channel->traces.clear();
            if (channel->inputModules.empty() && channel->outputModules.empty())
                delete channel;
        }
        channels.clear();
    }

private:
    struct Actor
    {
        std::unique_ptr<ProbeModule> probe;
        int calls = 0;
        int written = 0;
    };

    const Job& job;
    const int eventsAtMost;
    std::vector<DataChannel*> channels;
    std::deque<Actor> actors;

    static JobManager& manager() { return *JobManager::getInstance(); }

    void addModule(int number)
    {
        const Module& module = job.modules[number];
        actors.push_back({std::make_unique<ProbeModule>(module.name)});
        ProbeModule& probe = *actors.back().probe;
        probe.pre = [=, this] {
            note(callText("preprocess", module.name, {}));
            perform(number, module.preProcess);
        };
        probe.process = [=, this] {
            note(callText("process", module.name, look(number)));
            perform(number, module.stepOfCall(actors[number].calls++));
        };
        probe.post = [=, this] { note(callText("postprocess", module.name, {})); };
        if (module.respectEod)
            probe.entity->setProcessingOption("RespectEOD", UniVar(1));
    }

    void connect(const Wiring& wire)
    {
        DataChannel* channel = channels[wire.channel];
        ModuleEntity* module = actors[wire.module].probe->entity;
        if (wire.kind == Wiring::trace)
            channel->setNumberOfTraces(channel->getNumberOfTraces() + 1);
        else if (wire.kind == Wiring::input)
            module->setInputDataChannel(channel, 0);
        else
            module->setOutputDataChannel(channel, 0);
    }

    // A scheduler that goes astray need not come to an end.
    void note(const std::string& event)
    {
        events.push_back(event);
        if (static_cast<int>(events.size()) <= eventsAtMost)
            return;
        std::fprintf(stderr, "more events than the model has\n%s", describe(job).c_str());
        for (std::size_t i = events.size() - 20; i < events.size(); ++i)
            std::fprintf(stderr, "%s\n", events[i].c_str());
        std::abort();
    }

    static int numberOf(SeisTraceSet& set, int traceNo)
    {
        const int number = set.getAttribute("number", traceNo).getI32Value();
        EXPECT_EQ(set.getSamples(traceNo)[0], static_cast<float>(number));
        return number;
    }

    static void setNumber(SeisTraceSet& set, int traceNo, int number)
    {
        set.setAttribute("number", UniVar(number), traceNo);
        set.getSamples(traceNo)[0] = static_cast<float>(number);
    }

    std::vector<InputView> look(int number)
    {
        ModuleEntity* module = actors[number].probe->entity;
        EXPECT_EQ(manager().getActiveModule(), module);
        std::vector<InputView> views;
        for (int i = 0; i < module->getNumberOfInputDataChannels(); ++i) {
            DataChannel* channel = module->getInputDataChannel(i);
            if (job.modules[number].readsBlindly)
                channel->getSamples(0);
            const int held = channel->getNumberOfTraces();
            views.push_back({channel->getNumberOfInputTraces(module), held,
                             held > 0 ? numberOf(*channel, 0) : 0});
        }
        return views;
    }

    void perform(int number, const Step& step)
    {
        ModuleEntity* module = actors[number].probe->entity;
        if (step.respectEod != unchanged)
            module->setProcessingOption("RespectEOD", UniVar(step.respectEod));
        for (int i = 0; i < static_cast<int>(step.inputBits.size()); ++i) {
            if (step.inputBits[i] != 0)
                module->getInputDataChannel(i)->setFlag(step.inputBits[i], true);
        }
        for (int i = 0; i < static_cast<int>(step.outputs.size()); ++i)
            write(number, *module->getOutputDataChannel(i), step.outputs[i]);
    }

    void write(int number, DataChannel& channel, const Writing& writing)
    {
        Actor& actor = actors[number];
        if (writing.overFirst)
            setNumber(channel, 0, traceNumber(number, ++actor.written));

        DataChannel* source = actor.probe->entity->getInputDataChannel(0);
        const bool copy = writing.passOn && source != nullptr && source->getNumberOfTraces() > 0;
        for (int i = 0; i < writing.traces; ++i) {
            const int place = channel.getNumberOfTraces();
            if (copy)
                channel.copyFromTrace(source, true, true, 0, place);
            else
                setNumber(channel, place, traceNumber(number, ++actor.written));
        }
        if (writing.flag != unchanged)
            channel.setDataChannelFlag(writing.flag);
    }

    static std::string textOf(DataChannel& channel)
    {
        std::vector<TraceView> traces;
        for (int i = 0; i < channel.getNumberOfTraces(); ++i)
            traces.push_back({numberOf(channel, i), channel.getTrace(i, false)->getTraceFlag()});
        std::vector<int> pending;
        for (int i = 0; i < channel.getNumberOfOutputModules(); ++i)
            pending.push_back(channel.getNumberOfInputTraces(channel.getAttachedOutputModule(i)));
        return channelText(traces, channel.dataChannelFlag, channel.flags, pending);
    }

    static int noteStatistic(jobStatisticStruct* statistic, void* run)
    {
        std::vector<StatisticRow> rows;
        for (int i = 0; i < statistic->numMod; ++i)
            rows.push_back(rowOf(statistic->modStatistics[i]));
        rows.push_back(rowOf(statistic->jobStatistics));
        static_cast<KernelRun*>(run)->note(statisticText(statistic->jobPhase, rows));
        return 0;
    }

    static StatisticRow rowOf(const modStatisticStruct& row)
    {
        return {row.modName, row.inp_traces, row.out_traces};
    }
};

void dropDiagnostics(QtMsgType, const QMessageLogContext&, const QString&) {}

class SchedulerModelTest : public KernelFixture, public testing::WithParamInterface<unsigned>
{
protected:
    SchedulerModelTest() : formerHandler(qInstallMessageHandler(dropDiagnostics))
    {
        job().installMessageFunc(nullptr, nullptr, nullptr);
    }
    ~SchedulerModelTest() override { qInstallMessageHandler(formerHandler); }

    struct Tally
    {
        int ended = 0;
        int endless = 0;
        int calls = 0;
        int withStatistics = 0; // during processing
    };
    Tally tally;

    void compare(const Job& toRun)
    {
        Simulation model(toRun);
        model.preProcess();
        const bool ends = model.process(passesAtMost, toRun.isLong ? callsOfLongJobs : callsAtMost);
        if (ends)
            compareWholeJob(toRun, model);
        else
            comparePasses(toRun);
    }

private:
    QtMessageHandler formerHandler;

    void compareWholeJob(const Job& toRun, Simulation& model)
    {
        ++tally.ended;
        tally.calls += model.calls;
        for (const std::string& event : model.events) {
            if (event.rfind("statistic 2", 0) == 0) {
                ++tally.withStatistics;
                break;
            }
        }
        const std::vector<std::string> left = model.channels();
        model.postProcess();

        KernelRun kernel(toRun, static_cast<int>(model.events.size()));
        ASSERT_EQ(job().preProcessJob(), 0);
        ASSERT_EQ(kernel.process(), 0);
        EXPECT_EQ(kernel.channelTexts(), left);
        kernel.destroyLeftovers();
        ASSERT_EQ(job().postProcessJob(), 0);
        EXPECT_EQ(kernel.events, model.events);
    }

    void comparePasses(const Job& toRun)
    {
        ++tally.endless;
        Simulation model(toRun);
        model.preProcess();
        model.processPasses(passesOfEndlessJobs);
        tally.calls += model.calls;
        const std::vector<std::string> left = model.channels();
        model.postProcess();

        KernelRun kernel(toRun, static_cast<int>(model.events.size()));
        ASSERT_EQ(job().preProcessJob(), 0);
        kernel.processPasses(passesOfEndlessJobs);
        EXPECT_EQ(kernel.channelTexts(), left);
        kernel.destroyLeftovers();
        ASSERT_EQ(job().postProcessJob(), 0);
        EXPECT_EQ(kernel.events, model.events);
    }
};

TEST_P(SchedulerModelTest, KernelRunsRandomJobsAsTheModelDoes)
{
    for (unsigned i = 0; i < jobsPerTest && !HasFailure(); ++i) {
        const unsigned seed = GetParam() + i;
        // Few resident traces make the job page; that must not show.
        const int residents[] = {10000, 10000, 1, 2, 3};
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = residents[seed % 5];
        const Job toRun = randomJob(seed);
        SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + describe(toRun));
        compare(toRun);
    }

    RecordProperty("ended", tally.ended);
    RecordProperty("endless", tally.endless);
    RecordProperty("calls", tally.calls);
    RecordProperty("withStatistics", tally.withStatistics);
    if (HasFailure())
        return;
    // The random jobs must stay of the kinds that they are for.
    EXPECT_GE(tally.ended, 290);
    EXPECT_GE(tally.endless, 100);
    EXPECT_GE(tally.calls, 10000);
    EXPECT_GE(tally.withStatistics, 1);
}

INSTANTIATE_TEST_SUITE_P(FirstSeed, SchedulerModelTest,
                         testing::Values(1, 501, 1001, 1501, 2001, 2501, 3001));

} // namespace
