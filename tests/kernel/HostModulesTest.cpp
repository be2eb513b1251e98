// Modules that are functions of the host: traces from arrays and call-backs, and into them.
#include "HostModules.h"

#include "DataChannel.h"
#include "KernelFixture.h"
#include "MOXKernel.h"
#include "ModuleEntity.h"

#include <gmock/gmock.h>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using VORN::CollectedTraces;
using VORN::MadeTrace;
using VORN::TraceArray;

class HostModulesTest : public KernelFixture
{
protected:
    HostModulesTest()
    {
        job().addTraceAttributeDefinition("cdp", int32AttType, 1, "", 0, 0, 0, 0, 0);
        job().addTraceAttributeDefinition("offset", float32AttType, 1, "", 0, 0, 0, 0, 0);
        job().installMessageFunc(
            [](int type, char*, const char* module, const char* text, void* into) {
                if (type == 4)
                    static_cast<std::vector<std::string>*>(into)->push_back(std::string(module) +
                                                                            ": " + text);
                return 0;
            },
            nullptr, &fatals);
    }

    void run()
    {
        job().preProcessJob();
        job().processJob();
        job().postProcessJob();
    }

    std::vector<std::string> fatals;
};

// A filter of the host between an array and an array.
TEST_F(HostModulesTest, AnArrayGoesThroughALambdaIntoAnArray)
{
    const std::vector<float> samples = {1, 2, 3, 4, 5, 6};
    const std::vector<int> cdps = {7, 8, 9};
    const std::vector<int> offsets = {100, -200, 300};
    CollectedTraces result;
    result.words["offset"];
    result.words["cdp"];
    result.samples = {99};
    ModuleEntity* source = VORN::addTraceSource(
        "in",
        TraceArray{samples.data(), 3, 2, 4000, {{"cdp", cdps.data()}, {"offset", offsets.data()}}});
    float factor = 2;
    ModuleEntity* filter =
        VORN::addModule("twice", {[] { bldOutputTraceBuffer(0, 2, 4000, getInputTraceBuffer(0)); },
                                  [&factor] {
                                      void* out = getOutputTraceBuffer(0);
                                      copyTraceToTrace(getInputTraceBuffer(0), out, 1, 1, 0, 0);
                                      float* trace = getTraceSamples(out, 0);
                                      trace[0] *= factor;
                                      trace[1] *= factor;
                                  },
                                  {}});
    ModuleEntity* sink = VORN::addTraceSink("out", &result);
    VORN::connect(source, filter);
    VORN::connect(filter, sink);
    run();

    EXPECT_THAT(result.samples, ElementsAre(2, 4, 6, 8, 10, 12));
    EXPECT_EQ(result.count, 3);
    EXPECT_EQ(result.traceLength, 2);
    EXPECT_EQ(result.sampleInterval, 4000);
    EXPECT_THAT(result.words["cdp"], ElementsAre(7, 8, 9));
    EXPECT_THAT(result.words["offset"], ElementsAre(100, -200, 300));
    EXPECT_THAT(fatals, ElementsAre());
    EXPECT_TRUE(job().jobModules.empty());
}

TEST_F(HostModulesTest, CallBacksMakeAndTakeTracesInPlace)
{
    int made = 0;
    std::vector<std::string> taken;
    const float* given = nullptr;
    bool same = true;
    ModuleEntity* source =
        VORN::addTraceSource("in", 3, 2000, {"cdp"}, [&](void* trace, float* samples) {
            given = samples;
            EXPECT_THAT(std::vector<float>(samples, samples + 3), ElementsAre(0, 0, 0));
            samples[1] = static_cast<float>(++made);
            setTraceAttribute(trace, "cdp", UniVar(10 * made), 0);
            return made < 4 ? MadeTrace::more : MadeTrace::last;
        });
    ModuleEntity* sink =
        VORN::addTraceSink("out", [&](void* trace, const float* samples, int length) {
            same = same && samples == given;
            taken.push_back(std::to_string(getTraceAttribute(trace, "cdp", 0).getI32Value()) + ":" +
                            std::to_string(static_cast<int>(samples[1])) + "/" +
                            std::to_string(length));
        });
    VORN::connect(source, sink);
    run();
    EXPECT_THAT(taken, ElementsAre("10:1/3", "20:2/3", "30:3/3", "40:4/3"));
    EXPECT_TRUE(same) << "samples were copied on the way";
}

TEST_F(HostModulesTest, ASourceThatHasNothingMoreEndsTheJob)
{
    int made = 0;
    CollectedTraces result;
    ModuleEntity* source = VORN::addTraceSource("in", 1, 2000, {}, [&](void*, float* samples) {
        samples[0] = static_cast<float>(made);
        return ++made > 2 ? MadeTrace::none : MadeTrace::more;
    });
    VORN::connect(source, VORN::addTraceSink("out", &result, 1));
    run();
    EXPECT_THAT(result.samples, ElementsAre(0, 1));

    CollectedTraces empty;
    VORN::connect(VORN::addTraceSource("none", TraceArray{nullptr, 0, 5, 4000, {}}),
                  VORN::addTraceSink("out", &empty));
    run();
    EXPECT_EQ(empty.count, 0);
    EXPECT_THAT(fatals, ElementsAre());
}

TEST_F(HostModulesTest, WrongArraysAreFatalMessagesAndTheJobEnds)
{
    const float sample = 1;
    const int number = 1;
    const std::vector<std::pair<TraceArray, const char*>> wrong = {
        {{&sample, 1, 0, 4000, {}}, "in: A trace needs at least 1 sample, not 0"},
        {{&sample, 1, 1, 0, {}}, "in: The sample interval must be at least 1 microsecond, not 0"},
        {{nullptr, 2, 1, 4000, {}}, "in: 2 traces were announced, but there are no samples"},
        {{&sample, -1, 1, 4000, {}}, "in: The number of traces is -1"},
        {{&sample, 1, 1, 4000, {{"depth", &number}}},
         "in: \"depth\" is not a trace attribute of the job's schema"},
        {{&sample, 1, 1, 4000, {{"cdp", nullptr}}}, "in: There are no values for \"cdp\""},
    };
    for (const auto& [traces, text] : wrong) {
        CollectedTraces result;
        fatals.clear();
        VORN::connect(VORN::addTraceSource("in", traces), VORN::addTraceSink("out", &result));
        run();
        EXPECT_EQ(result.count, 0) << text;
        EXPECT_THAT(fatals, ElementsAre(text));
    }
    fatals.clear();
    VORN::addTraceSource("in", TraceArray{&sample, 1, 1, 4000, {}});
    run();
    EXPECT_THAT(fatals, ElementsAre("in: The source has no output channel"));
}

TEST_F(HostModulesTest, PlainFunctionsHaveTheirContext)
{
    struct Counts
    {
        int pre = 0, all = 0, post = 0;
    } counts;
    const float samples[] = {1, 2};
    ModuleEntity* source = VORN::addTraceSource("in", TraceArray{samples, 2, 1, 4000, {}});
    ModuleEntity* sink = job().addModule(
        "count", [](void* to) { return ++static_cast<Counts*>(to)->pre; },
        [](void* to) { return ++static_cast<Counts*>(to)->all; },
        [](void* to) { return ++static_cast<Counts*>(to)->post; }, &counts);
    ModuleEntity* idle = job().addModule("idle", nullptr, nullptr, nullptr, nullptr);
    sink->setInputDataChannel(VORN::connect(source, idle), 0);
    run();
    EXPECT_EQ(counts.pre, 1);
    EXPECT_EQ(counts.all, 2);
    EXPECT_EQ(counts.post, 1);
    EXPECT_EQ(VORN::connect(nullptr, nullptr), nullptr);
}

// What functions have captured lives as long as the module.
TEST_F(HostModulesTest, FunctionsEndWithTheirModule)
{
    auto captured = std::make_shared<int>(1);
    const std::weak_ptr<int> watch = captured;
    VORN::addModule("holds", {{}, {}, [captured] {}});
    captured.reset();
    EXPECT_FALSE(watch.expired());
    run();
    EXPECT_TRUE(watch.expired());
}

TEST_F(HostModulesTest, AnExceptionReachesTheHost)
{
    VORN::addModule("throws", {[] { throw std::runtime_error("no memory"); }, {}, {}});
    EXPECT_THROW(job().preProcessJob(), std::runtime_error);
    job().postProcessJob();
    EXPECT_TRUE(job().jobModules.empty());
}

// The host's own calls of entry points: documented to be plain calls, as the active module.
class OwnCallsTest : public HostModulesTest
{
protected:
    OwnCallsTest()
    {
        job().installMessageFunc(
            [](int type, char*, const char* module, const char* text, void* into) {
                if (type == 3)
                    static_cast<std::vector<std::string>*>(into)->push_back(std::string(module) +
                                                                            ": " + text);
                return 0;
            },
            nullptr, &errors);
    }

    std::vector<std::string> errors;
};

// It does not make its module the active one, so that the function of the active one would run
// again, for ever.
TEST_F(OwnCallsTest, AFunctionIsNotCalledFromWithinItself)
{
    ModuleEntity* other = VORN::addModule("other", {{}, [] {}, {}});
    int calls = 0;
    ModuleEntity* module = VORN::addModule("one", {{},
                                                   [&] {
                                                       ++calls;
                                                       EXPECT_EQ(other->processModule(), 0);
                                                   },
                                                   {}});
    job().setActiveModule(module);
    for (int call = 1; call <= 2; ++call) {
        EXPECT_EQ(module->processModule(), 0);
        EXPECT_EQ(calls, call);
        EXPECT_EQ(job().getActiveModule(), module);
        ASSERT_EQ(errors.size(), static_cast<std::size_t>(call));
    }
    EXPECT_THAT(errors[0], testing::StartsWith("one: The call of an entry point is refused"));
}

TEST_F(OwnCallsTest, AnotherFunctionIsCalledAsTheActiveModule)
{
    std::vector<std::string> called;
    const auto note = [&] { called.push_back(job().getCurrentModuleName()); };
    ModuleEntity* other = VORN::addModule("other", {note, note, {}});
    ModuleEntity* module = VORN::addModule("one", {note,
                                                   [&] {
                                                       note();
                                                       EXPECT_EQ(job().processModule(other), 0);
                                                       note();
                                                       EXPECT_EQ(other->preProcessModule(), 0);
                                                       note(); // no module is active any more
                                                       EXPECT_EQ(getInputTraceBuffer(0), nullptr);
                                                       EXPECT_EQ(other->postProcessModule(), 0);
                                                   },
                                                   {}});
    EXPECT_EQ(job().processModule(module), 0);
    EXPECT_THAT(called, ElementsAre("one", "other", "other", "other", ""));
    EXPECT_THAT(errors, testing::IsEmpty());
}

// An entry point that is missing does nothing, also where another one of the module is there.
TEST_F(OwnCallsTest, AMissingFunctionOfTheActiveModuleDoesNothing)
{
    ModuleEntity* empty = VORN::addModule("empty", {[] {}, {}, {}});
    ModuleEntity* module = VORN::addModule("one", {{}, [] { FAIL(); }, {}});
    job().setActiveModule(empty);
    EXPECT_EQ(module->processModule(), 0);
    EXPECT_THAT(errors, testing::IsEmpty());
}

// Outside the phases too, what would delete the module that runs is refused.
TEST_F(OwnCallsTest, TheJobDoesNotEndWithinAFunctionThatTheHostCalls)
{
    int calls = 0;
    ModuleEntity* module = VORN::addModule("one", {{},
                                                   [&] {
                                                       ++calls;
                                                       EXPECT_EQ(job().resetJob(), 1);
                                                       EXPECT_EQ(job().postProcessJob(), 1);
                                                       EXPECT_EQ(job().preProcessJob(), 1);
                                                   },
                                                   {}});
    EXPECT_EQ(job().processModule(module), 0);
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(errors, ElementsAre(HasSubstr("resetJob is refused, since an entry point is still "
                                              "running; call it when that has returned"),
                                    HasSubstr("postProcessJob is refused"),
                                    HasSubstr("preProcessJob is refused")));
    EXPECT_THAT(job().jobModules, ElementsAre(module));
    EXPECT_EQ(job().resetJob(), 0);
}

// A job in which modules are called by each other, between and after the phases, still ends.
TEST_F(OwnCallsTest, AJobWithOwnCallsInItGoesOn)
{
    const std::vector<float> samples = {1, 2, 3, 4, 5, 6};
    CollectedTraces result;
    ModuleEntity* source = VORN::addTraceSource("in", {samples.data(), 3, 2, 4000, {}});
    ModuleEntity* sink = VORN::addTraceSink("out", &result);
    ModuleEntity* middle = nullptr;
    VORN::ModuleFunctions functions;
    functions.preprocess = [] { bldOutputTraceBuffer(0, 2, 4000, getInputTraceBuffer(0)); };
    functions.process = [&] {
        void* input = getInputTraceBuffer(0);
        if (input != nullptr && getNumberOfTraces(input) > 0)
            copyTraceToTrace(input, getOutputTraceBuffer(0), 1, 1, 0, 0);
        if (job().getActiveModule() != middle)
            return;
        middle->processModule(); // refused
        sink->postProcessModule();
        source->processModule(); // with no active module: nothing
    };
    middle = VORN::addModule("middle", std::move(functions));
    VORN::connect(source, middle);
    VORN::connect(middle, sink);
    EXPECT_EQ(job().preProcessJob(), 0);
    sink->processModule();
    middle->processModule();
    EXPECT_EQ(job().processJob(), 0);
    source->postProcessModule();
    EXPECT_EQ(job().postProcessJob(), 0);
    EXPECT_THAT(result.samples, ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(errors.size(), 3u);
}

} // namespace
