#include "DataChannel.h"
#include "KernelFixture.h"
#include "MOXKernel.h"
#include "ProbeModule.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int endOfData = 3;

struct Trace
{
    std::vector<float> samples;
    std::map<std::string, int> words;
};

// Sources, the module, and a reader for each of its outputs.
class CombineTest : public KernelFixture
{
protected:
    struct Source
    {
        Source(const std::string& name, std::vector<Trace> given, int spacing)
            : module(name), traces(std::move(given)), interval(spacing)
        {
            module.entity->setOutputDataChannel(out, 0);
            module.pre = [this] {
                out->configureByTemplate(static_cast<int>(traces.front().samples.size()), interval,
                                         nullptr);
                for (const auto& word : traces.front().words)
                    out->defineAttribute(word.first.c_str());
            };
            module.process = [this] { give(); };
        }

        void give()
        {
            const Trace& trace = traces[next++];
            for (const auto& [word, value] : trace.words)
                setTraceAttribute(out, word.c_str(), UniVar(value), 0);
            std::copy(trace.samples.begin(), trace.samples.end(), out->getSamples(0));
            if (next == traces.size())
                out->setDataChannelFlag(endOfData);
        }

        ProbeModule module;
        DataChannel* out = new DataChannel;
        std::vector<Trace> traces;
        std::size_t next = 0;
        int interval;
    };

    struct Reader
    {
        Reader(const std::string& name, DataChannel* from) : module(name), in(from)
        {
            module.entity->setInputDataChannel(in, 0);
            module.process = [this] {
                const float* samples = in->getSamples(0);
                if (in->getNumberOfTraces() == 0 || samples == nullptr)
                    return;
                Trace trace;
                trace.samples.assign(samples, samples + in->getTraceLength());
                for (const char* word : {"cdp", "mark"})
                    if (isTraceAttributeExist(in, word) != 0)
                        trace.words[word] = getTraceAttribute(in, word, 0).getI32Value();
                traces.push_back(trace);
            };
        }

        ProbeModule module;
        DataChannel* in;
        std::vector<Trace> traces;
    };

    CombineTest() { restart(); }

    void restart()
    {
        sources.clear();
        readers.clear();
        renewSingletons();
        installRecorder();
        host.messages.clear();
        combine = job().initJobModule("combine", "libcombine.so");
    }

    void addInput(const std::vector<Trace>& traces, int interval = 2000)
    {
        sources.push_back(std::make_unique<Source>("source " + std::to_string(sources.size() + 1),
                                                   traces, interval));
        combine->setInputDataChannel(sources.back()->out, 0);
    }

    Reader& addReader()
    {
        auto* channel = new DataChannel;
        combine->setOutputDataChannel(channel, 0);
        readers.push_back(
            std::make_unique<Reader>("reader " + std::to_string(readers.size() + 1), channel));
        return *readers.back();
    }

    void run(const std::map<std::string, UniVar>& parameters)
    {
        for (const auto& [name, value] : parameters)
            combine->setParameter(name, value);
        job().preProcessJob();
        job().processJob();
        failure = job().getMetaDataValue(0, "vorn.failed");
        combine->postProcessModule(); // the job's further call finds nothing to do
        left = combine->totalModuleMemoryUsed;
        removeTraces();
        job().postProcessJob();
    }

    // A job that has failed leaves traces, which neither it nor trace sets destroy.
    void removeTraces()
    {
        for (const ModuleEntity* module : job().jobModules) {
            std::vector<SeisTraceSet*> sets = module->workTraceSets;
            sets.insert(sets.end(), module->outputDataChannels.begin(),
                        module->outputDataChannels.end());
            for (SeisTraceSet* set : sets)
                while (set->getNumberOfTraces() > 0)
                    set->removeTrace(0);
        }
    }

    // What the module makes of two inputs, by its first output.
    std::vector<Trace> combined(const std::vector<Trace>& first, const std::vector<Trace>& second,
                                const std::map<std::string, UniVar>& parameters)
    {
        restart();
        addInput(first);
        addInput(second);
        Reader& reader = addReader();
        run(parameters);
        EXPECT_THAT(messages(4), IsEmpty());
        EXPECT_EQ(left, 0);
        return reader.traces;
    }

    std::vector<std::string> messages(int type)
    {
        std::vector<std::string> texts;
        for (const HostMessage& message : host.messages)
            if (message.type == type && message.moduleName == "combine")
                texts.push_back(message.text);
        return texts;
    }

    std::vector<std::unique_ptr<Source>> sources;
    std::vector<std::unique_ptr<Reader>> readers;
    ModuleEntity* combine;
    std::string failure;
    int left = -1;
};

std::vector<float> firstSamples(const std::vector<Trace>& traces)
{
    std::vector<float> all;
    for (const Trace& trace : traces)
        all.push_back(trace.samples[0]);
    return all;
}

std::vector<int> words(const std::vector<Trace>& traces, const std::string& name)
{
    std::vector<int> all;
    for (const Trace& trace : traces)
        all.push_back(trace.words.at(name));
    return all;
}

// One sample a trace, and the key.
std::vector<Trace> keyed(const std::vector<std::pair<int, float>>& list, int mark = 0)
{
    std::vector<Trace> traces;
    for (const auto& [key, sample] : list)
        traces.push_back({{sample, 1}, {{"cdp", key}, {"mark", mark}}});
    return traces;
}

TEST_F(CombineTest, TracesInStepAreCombinedSampleBySample)
{
    const std::vector<Trace> a = {{{1, 2.5F, -3}, {{"cdp", 1}}}, {{8, 0, 6}, {{"cdp", 2}}}};
    const std::vector<Trace> b = {{{4, 0.5F, 3}, {{"cdp", 9}}}, {{-2, 7, 0.25F}, {{"cdp", 8}}}};

    const std::vector<Trace> difference = combined(a, b, {{"operation", UniVar("difference")}});
    ASSERT_EQ(difference.size(), 2U);
    EXPECT_THAT(difference[0].samples, ElementsAre(-3, 2, -6));
    EXPECT_THAT(difference[1].samples, ElementsAre(10, -7, 5.75F));
    EXPECT_THAT(words(difference, "cdp"), ElementsAre(1, 2)) << "headers are those of the first";
    EXPECT_THAT(messages(1), ElementsAre("2 traces made from 2 of input 1, 2 of input 2"));

    const std::vector<Trace> sum = combined(a, b, {{"operation", UniVar("sum")}});
    ASSERT_EQ(sum.size(), 2U);
    EXPECT_THAT(sum[0].samples, ElementsAre(5, 3, 0));
    EXPECT_THAT(sum[1].samples, ElementsAre(6, 7, 6.25F));

    const std::vector<Trace> ratio = combined(a, b, {{"operation", UniVar("ratio")}});
    ASSERT_EQ(ratio.size(), 2U);
    EXPECT_THAT(ratio[0].samples, ElementsAre(0.25F, 5, -1));
    EXPECT_THAT(ratio[1].samples, ElementsAre(-4, 0, 24));
}

TEST_F(CombineTest, SumsAreRoundedOnce)
{
    addInput({{{16777216}, {}}});
    addInput({{{1}, {}}});
    addInput({{{1}, {}}});
    const Reader& reader = addReader();

    run({{"operation", UniVar("sum")}});

    ASSERT_EQ(reader.traces.size(), 1U);
    EXPECT_EQ(reader.traces[0].samples[0], 16777218.0F) << "in single precision 1 is lost, twice";
}

TEST_F(CombineTest, SeveralInputsAreSubtracted)
{
    addInput(keyed({{1, 100}, {2, 200}}));
    addInput(keyed({{1, 1}, {2, 2}}));
    addInput(keyed({{1, 10}, {2, 30}}));
    const Reader& reader = addReader();

    run({{"operation", UniVar("difference")}, {"keys", UniVar("cdp")}});

    EXPECT_THAT(firstSamples(reader.traces), ElementsAre(89, 168));
}

TEST_F(CombineTest, ZerosInTheDivisorGiveZeros)
{
    const std::vector<Trace> a = {{{5, 5, 5, 5}, {}}};
    const std::vector<Trace> b = {{{0, 1, -10, -0.0F}, {}}};

    EXPECT_THAT(combined(a, b, {{"operation", UniVar("ratio")}})[0].samples,
                ElementsAre(0, 5, -0.5F, 0));
    EXPECT_EQ(messages(1).back(),
              "2 of 4 samples have no divisor above the least one and became 0");
    EXPECT_THAT(combined(a, b, {{"operation", UniVar("ratio")}, {"least_divisor", UniVar(10.0)}})[0]
                    .samples,
                ElementsAre(0, 0, -0.5F, 0));
}

TEST_F(CombineTest, SamplesWithoutAResultAreTold)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<Trace> result =
        combined({{{3e38F, nan, 1}, {}}}, {{{3e38F, 1, 1}, {}}}, {{"operation", UniVar("sum")}});

    EXPECT_TRUE(std::isinf(result[0].samples[0]));
    EXPECT_TRUE(std::isnan(result[0].samples[1]));
    EXPECT_THAT(messages(2), ElementsAre("2 of 3 samples of the result are infinite or NaN"));
}

TEST_F(CombineTest, KeysFindPartners)
{
    const std::vector<Trace> result =
        combined(keyed({{1, 10}, {3, 30}, {3, 31}, {5, 50}, {9, 90}}),
                 keyed({{2, 2}, {3, 3}, {5, 5}, {5, 6}}),
                 {{"operation", UniVar("difference")}, {"keys", UniVar("cdp")}});

    EXPECT_THAT(firstSamples(result), ElementsAre(27, 45));
    EXPECT_THAT(words(result, "cdp"), ElementsAre(3, 5));
    EXPECT_THAT(messages(2),
                ElementsAre("3 of 5 traces of input 1 have no partner and were dropped; the first: "
                            "trace 1 of input 1 (cdp 1)",
                            "2 of 4 traces of input 2 have no partner and were dropped; the first: "
                            "trace 1 of input 2 (cdp 2)"));
}

TEST_F(CombineTest, KeysMayDescend)
{
    const std::vector<Trace> result =
        combined(keyed({{5, 50}, {1, 10}}), keyed({{5, 5}, {2, 2}, {1, 1}}),
                 {{"operation", UniVar("sum")}, {"keys", UniVar("-cdp")}});

    EXPECT_THAT(firstSamples(result), ElementsAre(55, 11));
}

TEST_F(CombineTest, TracesWithoutPartnerMayHaveAnOutputOfTheirOwn)
{
    addInput(keyed({{1, 10}, {3, 30}}, 1));
    addInput(keyed({{2, 2}, {3, 3}, {4, 4}}, 2));
    const Reader& both = addReader();
    const Reader& alone = addReader();

    run({{"operation", UniVar("sum")}, {"keys", UniVar("cdp")}});

    EXPECT_THAT(firstSamples(both.traces), ElementsAre(33));
    EXPECT_THAT(firstSamples(alone.traces), ElementsAre(10, 2, 4));
    EXPECT_THAT(words(alone.traces, "mark"), ElementsAre(1, 2, 2));
    EXPECT_EQ(messages(2).front(), "1 of 2 traces of input 1 have no partner and were sent to the "
                                   "second output; the first: trace 1 of input 1 (cdp 1)");
}

TEST_F(CombineTest, TracesWithoutPartnerMayBeKept)
{
    EXPECT_THAT(firstSamples(combined(keyed({{1, 10}, {3, 30}}), keyed({{2, 2}, {3, 3}}),
                                      {{"operation", UniVar("sum")},
                                       {"keys", UniVar("cdp")},
                                       {"unmatched", UniVar("keep")}})),
                ElementsAre(10, 2, 33));
}

TEST_F(CombineTest, InputsInStepMayEndEarly)
{
    EXPECT_THAT(firstSamples(combined(keyed({{1, 10}, {3, 30}, {4, 40}}), keyed({{1, 1}}),
                                      {{"operation", UniVar("sum")}})),
                ElementsAre(11));
    EXPECT_THAT(messages(2), ElementsAre("2 of 3 traces of input 1 have no partner and were "
                                         "dropped; the first: trace 2 of input 1 (cdp 3)"));
}

TEST_F(CombineTest, ConcatenationPassesOneInputAfterTheOther)
{
    for (const bool firstIsLonger : {true, false}) {
        restart();
        addInput(firstIsLonger ? keyed({{1, 1}, {2, 2}, {3, 3}}) : keyed({{1, 1}}));
        addInput(keyed({{1, 4}, {2, 5}}));
        addInput(firstIsLonger ? keyed({{1, 6}}) : keyed({{1, 6}, {2, 7}, {3, 8}, {4, 9}}));
        const Reader& reader = addReader();

        run({{"operation", UniVar("concatenate")}});

        if (firstIsLonger)
            EXPECT_THAT(firstSamples(reader.traces), ElementsAre(1, 2, 3, 4, 5, 6));
        else
            EXPECT_THAT(firstSamples(reader.traces), ElementsAre(1, 4, 5, 6, 7, 8, 9));
        EXPECT_THAT(messages(2), IsEmpty());
        EXPECT_EQ(left, 0);
    }
}

TEST_F(CombineTest, ConcatenationByKeysMerges)
{
    const std::vector<Trace> result =
        combined(keyed({{1, 10}, {3, 30}, {3, 31}}), keyed({{2, 2}, {3, 3}, {4, 4}}),
                 {{"operation", UniVar("concatenate")}, {"keys", UniVar("cdp")}});

    EXPECT_THAT(firstSamples(result), ElementsAre(10, 2, 30, 3, 31, 4));
    EXPECT_THAT(messages(2), IsEmpty());
}

TEST_F(CombineTest, UnequalInputsAreRefused)
{
    const struct
    {
        std::vector<Trace> second;
        int interval;
        std::map<std::string, UniVar> parameters;
        std::string message;
    } rows[] = {
        {keyed({{1, 1}}),
         2000,
         {},
         "operation is missing; give difference, sum, ratio or "
         "concatenate"},
        {{{{1, 2, 3}, {{"cdp", 1}}}},
         2000,
         {{"operation", UniVar("concatenate")}},
         "input 2 has traces of 3 samples, and input 1 of 2; make them equal with the module "
         "window"},
        {keyed({{1, 1}}),
         2500,
         {{"operation", UniVar("sum")}},
         "input 2 has a sample interval of 2.5 ms, and input 1 of 2 ms; make them equal with the "
         "module resample"},
        {{{{1, 2}, {{"cdp", 1}, {"delrt", 100}}}},
         2000,
         {{"operation", UniVar("sum")}},
         "trace 1 of input 2 (cdp 1) begins at 0.1 s, and trace 1 of input 1 (cdp 1) at 0 s; make "
         "them equal with the module window"},
        {keyed({{7, 1}}),
         2000,
         {{"operation", UniVar("sum")}, {"keys", UniVar("cdp")}, {"unmatched", UniVar("fail")}},
         "trace 1 of input 1 (cdp 1) has no partner; complete the other inputs, or drop such "
         "traces with unmatched: drop"},
        {keyed({{7, 1}, {6, 1}}),
         2000,
         {{"operation", UniVar("sum")}, {"keys", UniVar("cdp")}},
         "input 2 is not sorted by cdp: a trace with cdp = 6 comes after one with 7; sort each "
         "input by the words that they are matched by"},
        {keyed({{7, 1}}),
         2000,
         {{"operation", UniVar("sum")}, {"keys", UniVar("fldr")}},
         "the traces of input 1 have no header word \"fldr\"; match the inputs by words that all "
         "of them have"},
        {keyed({{7, 1}}),
         2000,
         {{"operation", UniVar("ratio")}, {"least_divisor", UniVar(-1.0)}},
         "least_divisor is -1 percent; give a number from 0 to 100"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        addInput(keyed({{1, 1}}));
        addInput(row.second, row.interval);
        addReader();

        run(row.parameters);

        EXPECT_THAT(messages(4), ElementsAre(row.message));
        EXPECT_EQ(failure, "combine: " + row.message);
        EXPECT_EQ(left, 0);
    }
}

TEST_F(CombineTest, TheNumberOfInputsIsChecked)
{
    addInput(keyed({{1, 1}}));
    addReader();
    run({{"operation", UniVar("sum")}});
    EXPECT_THAT(messages(4), ElementsAre("the module has 1 input; connect two or more with "
                                         "inputs: [first, second]"));

    restart();
    for (int i = 0; i < 3; ++i)
        addInput(keyed({{1, 1}}));
    addReader();
    run({{"operation", UniVar("ratio")}});
    EXPECT_THAT(messages(4), ElementsAre("a ratio has two inputs, and 3 are connected"));
}

} // namespace
