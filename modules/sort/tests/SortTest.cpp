#include "../sort_order.h"
#include "DataChannel.h"
#include "ExpectedLeaks.h"
#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "ModuleTest.h"
#include "harness_data.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <tuple>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// ---- Keys ----

TEST(SortKeysTest, EachTextIsAKey)
{
    using Keys = std::vector<SortKey>;
    EXPECT_EQ(parseSortKeys({"cdp"}), (Keys{{"cdp", false}}));
    EXPECT_EQ(parseSortKeys({"cdp", "-offset", "tracf"}),
              (Keys{{"cdp", false}, {"offset", true}, {"tracf", false}}));
    EXPECT_EQ(parseSortKeys({"", "  cdp \r", " - offset", ""}),
              (Keys{{"cdp", false}, {"offset", true}}));
}

TEST(SortKeysTest, KeysAreRefused)
{
    const struct
    {
        std::vector<std::string> texts;
        const char* message;
    } rows[] = {
        {{}, "keys are missing; give the header words to sort by"},
        {{" ", ""}, "keys are missing; give the header words to sort by"},
        {{"cdp", "-"}, "keys hold \"-\"; give a header word"},
        {{"cdp", "-cdp"}, "keys name \"cdp\" twice"},
    };
    for (const auto& row : rows) {
        try {
            parseSortKeys(row.texts);
            FAIL() << row.message;
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), row.message);
        }
    }
}

// ---- Order ----

TEST(SortedOrderTest, OneKeyInEitherDirection)
{
    EXPECT_THAT(sortedOrder({3, 1, 2}, {{"cdp", false}}), ElementsAre(1, 2, 0));
    EXPECT_THAT(sortedOrder({3, 1, 2}, {{"cdp", true}}), ElementsAre(0, 2, 1));
}

TEST(SortedOrderTest, EqualTracesKeepTheirOrderInEitherDirection)
{
    EXPECT_THAT(sortedOrder({5, 1, 5, 1}, {{"cdp", false}}), ElementsAre(1, 3, 0, 2));
    EXPECT_THAT(sortedOrder({5, 1, 5, 1}, {{"cdp", true}}), ElementsAre(0, 2, 1, 3));
}

TEST(SortedOrderTest, LaterKeysDecideAmongEqualOnes)
{
    const std::vector<double> values = {2, 10, 1, 20, 2, 30, 1, 40};
    EXPECT_THAT(sortedOrder(values, {{"cdp", false}, {"offset", true}}), ElementsAre(3, 1, 2, 0));
}

TEST(SortedOrderTest, NoNumbersComeLastInEitherDirection)
{
    EXPECT_THAT(sortedOrder({NAN, 1, NAN, -INFINITY}, {{"x", false}}), ElementsAre(3, 1, 0, 2));
    EXPECT_THAT(sortedOrder({NAN, 1, NAN, -INFINITY}, {{"x", true}}), ElementsAre(1, 3, 0, 2));
}

TEST(SortedOrderTest, NothingIsInOrder)
{
    EXPECT_THAT(sortedOrder({}, {{"x", false}}), IsEmpty());
}

TEST(SortedOrderTest, TwoTracesAreInOrderUnlessTheSecondBelongsBefore)
{
    const std::vector<SortKey> keys = {{"cdp", false}, {"offset", true}};
    EXPECT_TRUE(isInOrder({1, 5, 2, 9}, keys));
    EXPECT_TRUE(isInOrder({1, 5, 1, 4}, keys));
    EXPECT_TRUE(isInOrder({1, 5, 1, 5}, keys));
    EXPECT_FALSE(isInOrder({1, 5, 1, 6}, keys));
    EXPECT_FALSE(isInOrder({2, 5, 1, 4}, keys));
}

// ---- In a job ----

// At most three traces stay in memory.
class SortTest : public ModuleTest
{
protected:
    SortTest()
        : ModuleTest("sort"), scratch("VORN_SCRATCH", scratchDirectory.path().c_str()),
          formerLimit(ScratchManager::MAX_TRACES_IN_SCRATCH_V)
    {
        ScratchManager::getInstance();
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = 3;
    }
    ~SortTest() override { ScratchManager::MAX_TRACES_IN_SCRATCH_V = formerLimit; }

    // A trace whose samples tell its number.
    void push(int cdp, int offset, int tracl)
    {
        harness.push(std::vector<float>(100, static_cast<float>(tracl)),
                     {{"cdp", UniVar(cdp)}, {"offset", UniVar(offset)}, {"tracl", UniVar(tracl)}});
    }

    // 20 traces of 4 midpoints.
    void pushGathers()
    {
        for (int i = 0; i < 20; ++i)
            push(i * 7 % 4, i * 3 % 5 * 100, i + 1);
    }

    // Every trace has the samples that belong to its header.
    void expectSamplesOfTheirOwn()
    {
        for (const HarnessTrace& trace : result.traces)
            EXPECT_THAT(
                trace.samples,
                testing::AllOf(SizeIs(100), testing::Each(static_cast<float>(
                                                trace.attributes.at("tracl").getI32Value()))));
    }

    bool usedScratch()
    {
        return std::any_of(result.messages.begin(), result.messages.end(), [](const auto& message) {
            return message.text.find("successfully created") != std::string::npos;
        });
    }

    TemporaryDirectory scratchDirectory;
    ScopedEnvironment scratch;
    int formerLimit;
};

TEST_F(SortTest, TracesComeInTheOrderOfTheirKeys)
{
    push(2, 100, 1);
    push(1, 100, 2);
    push(2, 300, 3);
    push(1, 200, 4);
    push(2, 100, 5);
    add({{"keys", UniVar("cdp\n-offset")}});

    run();

    EXPECT_THAT(all("tracl"), ElementsAre(4, 2, 3, 1, 5));
    expectSamplesOfTheirOwn();
    EXPECT_EQ(history(), "sort keys=cdp,-offset");
}

TEST_F(SortTest, TracesWaitInTheScratchFile)
{
    pushGathers();
    add({{"keys", UniVar("offset\ncdp")}});

    run();

    EXPECT_TRUE(usedScratch());
    EXPECT_THAT(scratchDirectory.names(), IsEmpty()) << "the file is gone";
    expectSamplesOfTheirOwn();
    std::vector<std::pair<int, int>> keys;
    for (size_t i = 0; i < result.traces.size(); ++i)
        keys.emplace_back(all("offset")[i], all("cdp")[i]);
    EXPECT_THAT(keys, SizeIs(20));
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
}

// Against a sort of tuples, whose last element makes it stable.
TEST_F(SortTest, ManyTracesOfAnyOrderAreSorted)
{
    std::mt19937 random(11);
    std::vector<std::tuple<int, int, int>> expected;
    for (int tracl = 1; tracl <= 2000; ++tracl) {
        const int cdp = static_cast<int>(random() % 50);
        const int offset = static_cast<int>(random() % 20) - 10;
        push(cdp, offset, tracl);
        expected.emplace_back(-cdp, offset, tracl);
    }
    std::sort(expected.begin(), expected.end());
    add({{"keys", UniVar("-cdp\noffset")}});

    run();

    std::vector<int> numbers;
    for (const auto& trace : expected)
        numbers.push_back(std::get<2>(trace));
    EXPECT_EQ(all("tracl"), numbers);
    expectSamplesOfTheirOwn();
}

TEST_F(SortTest, TwoSortsFollowEachOther)
{
    pushGathers();
    add({{"keys", UniVar("cdp")}});
    add({{"keys", UniVar("-tracl")}});

    run();

    std::vector<int> expected;
    for (int i = 20; i >= 1; --i)
        expected.push_back(i);
    EXPECT_EQ(all("tracl"), expected);
}

TEST_F(SortTest, AllTracesComeHoweverTheInputEnds)
{
    for (const int tracesPerCall : {1, 2, 3, 7, 19, 20, 50}) {
        SCOPED_TRACE(tracesPerCall);
        restart();
        harness.tracesPerCall = tracesPerCall;
        pushGathers();
        add({{"keys", UniVar("tracl")}});

        run();

        EXPECT_THAT(result.traces, SizeIs(20));
        expectSamplesOfTheirOwn();
    }
}

TEST_F(SortTest, AllTracesComeAfterAnEndWithoutAMark)
{
    pushGathers();
    harness.add("before", "libunmarked_end.so");
    add({{"keys", UniVar("-tracl")}});

    run();

    ASSERT_THAT(result.traces, SizeIs(20));
    EXPECT_EQ(all("tracl").front(), 20);
}

// The producer does not say that it has ended: the kernel sees that only when it asks it again.
TEST_F(SortTest, AllTracesComeFromAProducerThatEmitsSeveralAtATime)
{
    pushGathers();
    harness.add("before", "libemit_twice.so");
    add({{"keys", UniVar("-tracl")}});

    run();

    ASSERT_THAT(result.traces, SizeIs(40));
    EXPECT_EQ(all("tracl").front(), 20);
    EXPECT_EQ(all("tracl").back(), 1);
}

TEST_F(SortTest, AttributesThatCameLateStayWithTheirTraces)
{
    pushGathers();
    harness.add("before", "liblate_attributes.so");
    add({{"keys", UniVar("-tracl")}});

    run();

    ASSERT_THAT(result.traces, SizeIs(20));
    for (const int number : {20, 4, 3, 2, 1}) {
        const HarnessTrace& trace = result.traces[static_cast<size_t>(20 - number)];
        EXPECT_EQ(trace.attributes.at("tracl").getI32Value(), number);
        EXPECT_EQ(trace.attributes.at("zulu").getI32Value(), number >= 2 ? number : 0);
        EXPECT_EQ(trace.attributes.at("alpha").getI32Value(), number >= 4 ? number : 0);
    }
}

TEST_F(SortTest, OneTraceIsSorted)
{
    push(1, 2, 3);
    add({{"keys", UniVar("cdp")}});

    run();

    EXPECT_THAT(all("tracl"), ElementsAre(3));
}

TEST_F(SortTest, TracesWithoutSamplesAreSorted)
{
    for (const int cdp : {3, 1, 2})
        harness.push({}, {{"cdp", UniVar(cdp)}});
    add({{"keys", UniVar("cdp")}});

    run();

    EXPECT_THAT(all("cdp"), ElementsAre(1, 2, 3));
}

TEST_F(SortTest, EmptyInputIsNoError)
{
    add({{"keys", UniVar("cdp")}});

    run();

    EXPECT_THAT(result.traces, IsEmpty());
}

// The reader has said so.
TEST_F(SortTest, AnInputThatComesInOrderIsPassedOn)
{
    for (int i = 0; i < 20; ++i)
        push(i / 4, -i, i + 1);
    add({{"keys", UniVar("cdp\n-offset")}});
    harness.jobMetadata["vorn.ordered.module1"] = "cdp,-offset";

    run();

    EXPECT_FALSE(usedScratch());
    EXPECT_THAT(result.traces, SizeIs(20));
    EXPECT_EQ(all("tracl").back(), 20);
    expectSamplesOfTheirOwn();
    EXPECT_EQ(history(), "sort keys=cdp,-offset");
}

TEST_F(SortTest, AnInputThatIsNotInTheOrderAnnouncedIsRefused)
{
    push(1, 5, 1);
    push(2, 5, 2);
    push(2, 6, 3);
    add({{"keys", UniVar("cdp\n-offset")}});
    harness.jobMetadata["vorn.ordered.module1"] = "cdp,-offset";

    result = harness.run();

    EXPECT_THAT(result.messagesOf(4, "module1"),
                ElementsAre("trace 3 by cdp,-offset does not belong behind the one before it: the "
                            "input has changed while it was read; run the job again"));
    EXPECT_THAT(all("tracl"), ElementsAre(1, 2));
}

TEST_F(SortTest, AnOrderByOtherKeysDoesNotCount)
{
    pushGathers();
    add({{"keys", UniVar("-tracl")}});
    harness.jobMetadata["vorn.ordered.module1"] = "tracl";

    run();

    EXPECT_EQ(all("tracl").front(), 20);
}

TEST_F(SortTest, KeysAreNeeded)
{
    pushGathers();
    add();

    runInVain("keys is missing; give a list of header words");
}

TEST_F(SortTest, TracesNeedTheHeaderWords)
{
    pushGathers();
    add({{"keys", UniVar("cdp\nazimuth")}});

    runInVain("the traces have no header word \"azimuth\"; name others with keys");
}

// ---- Beside another consumer of the same input ----

// A module and a sink that read one channel, which ends without a mark; a second sink behind the
// module.
class SharedInputTest : public KernelFixture
{
protected:
    static void count(void* context, void*) { ++*static_cast<int*>(context); }

    ModuleEntity* load(const std::string& name, const std::string& library)
    {
        ModuleEntity* module = job().initJobModule(name, library);
        EXPECT_NE(module, nullptr) << library;
        return module;
    }

    static void keepHarness(ModuleEntity* module, void* record)
    {
        module->setResource("HARNESS", UniVar(record));
    }

    static DataChannel* outputOf(ModuleEntity* module)
    {
        auto* channel = new DataChannel; // the job deletes it
        module->setOutputDataChannel(channel, 0);
        return channel;
    }

    void run(const std::string& library, const std::string& parameter, const std::string& value)
    {
        const int cdp = 7;
        const harness_attribute attribute = {"cdp", 2, 1, &cdp};
        const float samples[] = {1, 2};
        const std::vector<harness_trace> traces(5, {samples, &attribute, 1});
        harness_source data = {traces.data(), 5, 2, 2000, 1, 0, 0};
        harness_sink besideRecord = {count, &beside};
        harness_sink behindRecord = {count, &behind};

        ModuleEntity* source = load("source", "libharness_source.so");
        ModuleEntity* unmarked = load("unmarked", "libunmarked_end.so");
        ModuleEntity* module = load("module", library);
        ModuleEntity* sinkBeside = load("beside", "libharness_sink.so");
        ModuleEntity* sinkBehind = load("behind", "libharness_sink.so");
        keepHarness(source, &data);
        keepHarness(sinkBeside, &besideRecord);
        keepHarness(sinkBehind, &behindRecord);
        module->setParameter(parameter, UniVar(value));

        unmarked->setInputDataChannel(outputOf(source), 0);
        DataChannel* shared = outputOf(unmarked);
        module->setInputDataChannel(shared, 0);
        sinkBeside->setInputDataChannel(shared, 0);
        sinkBehind->setInputDataChannel(outputOf(module), 0);
        const ExpectedLeaks unmarkedEnd; // the channel keeps its last trace
        job().preProcessJob();
        job().processJob();
        job().postProcessJob();
    }

    int beside = 0;
    int behind = 0;
};

TEST_F(SharedInputTest, SortLeavesTheOtherConsumerItsTraces)
{
    run("libsort.so", "keys", "cdp");

    EXPECT_EQ(beside, 5);
    EXPECT_EQ(behind, 5);
}

TEST_F(SharedInputTest, StackLeavesTheOtherConsumerItsTraces)
{
    run("libstack.so", "key", "cdp");

    EXPECT_EQ(beside, 5);
    EXPECT_EQ(behind, 1);
}

} // namespace
