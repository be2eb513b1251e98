// The stream form in each language: three modules do the same, and what comes out must be the same.
#include "DataChannel.h"
#include "ExpectedLeaks.h"
#include "KernelFixture.h"
#include "MOXKernel.h"
#include "ProbeModule.h"
#include "SeisTrace.h"
#include "TraceVerbs.h"

#include <gmock/gmock.h>

#include <deque>
#include <functional>
#include <memory>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr int endOfData = 3;

// A trace as a reader finds it.
struct Seen
{
    int number;
    float sample; // the last one
    int flag;
    bool operator==(const Seen&) const = default;
};

void PrintTo(const Seen& seen, std::ostream* out)
{
    *out << seen.number << "/" << seen.sample << "/" << seen.flag;
}

// Sources, one stream module, and readers, each with a channel to itself.
class StreamTest : public KernelFixture, public testing::WithParamInterface<const char*>
{
protected:
    // Gives traces of numbers from `first` on, `bursts` of them at a time; the last one is marked,
    // or the channel in a call of its own.
    struct Source
    {
        explicit Source(int first) : module("source " + std::to_string(first)), number(first)
        {
            module.entity->setOutputDataChannel(out, 0);
            module.pre = [this] {
                out->configureByTemplate(2, 2000, nullptr);
                out->defineAttribute("number");
                out->defineAttribute("key");
            };
            module.process = [this] { give(); };
        }

        void give()
        {
            for (int i = bursts.empty() ? 0 : bursts.front(); i > 0; --i) {
                const int place = out->getNumberOfTraces();
                setTraceAttribute(out, "number", UniVar(number), place);
                if (!keys.empty()) {
                    setTraceAttribute(out, "key", UniVar(keys.front()), place);
                    keys.pop_front();
                }
                out->getSamples(place)[1] = static_cast<float>(10 * number++);
            }
            if (!bursts.empty())
                bursts.pop_front();
            if (bursts.empty() && (marked || out->getNumberOfTraces() == 0))
                out->setDataChannelFlag(endOfData);
        }

        ProbeModule module;
        DataChannel* out = new DataChannel;
        int number;
        std::deque<int> bursts = {1, 1, 1};
        std::deque<int> keys;
        bool marked = true;
    };

    struct Reader
    {
        Reader(int number, DataChannel* from) : module("reader " + std::to_string(number)), in(from)
        {
            module.entity->setInputDataChannel(in, 0);
            module.process = [this] { read(); };
        }

        void read()
        {
            if (in->getNumberOfTraces() == 0) {
                ++callsAtTheEnd;
                setInputTraceBufferFlag(0, 1);
                setModuleProcessingOption("RespectEOD", UniVar(0));
                return;
            }
            seen.push_back({getTraceAttribute(in, "number", 0).getI32Value(),
                            in->getSamples(0)[in->getTraceLength() - 1], in->getDataChannelFlag()});
            if (isTraceAttributeExist(in, "ended") != 0)
                ended.push_back(getTraceAttribute(in, "ended", 0).getI32Value());
            if (isTraceAttributeExist(in, "late") != 0)
                late.push_back(getTraceAttribute(in, "late", 0).getI32Value());
        }

        std::vector<int> numbers() const
        {
            std::vector<int> all;
            for (const Seen& one : seen)
                all.push_back(one.number);
            return all;
        }

        ProbeModule module;
        DataChannel* in;
        std::vector<Seen> seen;
        std::vector<int> ended;
        std::vector<int> late;
        int callsAtTheEnd = 0;
    };

    StreamTest()
    {
        stream = job().initJobModule("stream", std::string("lib") + GetParam() + ".so");
        EXPECT_NE(stream, nullptr);
    }

    Source& addSource(int first = 1)
    {
        sources.push_back(std::make_unique<Source>(first));
        stream->setInputDataChannel(sources.back()->out, 0);
        return *sources.back();
    }

    // Asks for a call at the end, as a module that looks ahead does, so that it would notice an end
    // that is not marked.
    Reader& addReader()
    {
        auto* channel = new DataChannel;
        stream->setOutputDataChannel(channel, 0);
        readers.push_back(std::make_unique<Reader>(static_cast<int>(readers.size()) + 1, channel));
        readers.back()->module.pre = [] { setModuleProcessingOption("RespectEOD", UniVar(1)); };
        return *readers.back();
    }

    void with(const std::string& name, const UniVar& value) { stream->setParameter(name, value); }

    // The job in the given mode; it ends, and the module leaves no memory.
    void run(const std::string& mode, int n = 1)
    {
        with("mode", UniVar(mode));
        with("n", UniVar(n));
        ASSERT_EQ(job().preProcessJob(), 0);
        ASSERT_EQ(job().processJob(), 0);
        int left = -1;
        atTheEnd = [&] { left = stream->totalModuleMemoryUsed; };
        last = std::make_unique<ProbeModule>("last"); // post-processed behind all others
        last->post = atTheEnd;
        ASSERT_EQ(job().postProcessJob(), 0);
        EXPECT_EQ(left, 0);
    }

    std::vector<std::string> messages(int type)
    {
        std::vector<std::string> texts;
        for (const HostMessage& message : host.messages) {
            if (message.type == type && message.moduleName == "stream" &&
                message.text.rfind("***", 0) != 0)
                texts.push_back(message.text);
        }
        return texts;
    }

    std::vector<std::unique_ptr<Source>> sources;
    std::vector<std::unique_ptr<Reader>> readers;
    std::unique_ptr<ProbeModule> last;
    std::function<void()> atTheEnd;
    ModuleEntity* stream;
};

INSTANTIATE_TEST_SUITE_P(Languages, StreamTest,
                         testing::Values("stream_c", "stream_cxx", "stream_fortran"));

const std::vector<Seen> three = {{1, 10, 0}, {2, 20, 0}, {3, 30, 3}};

TEST_P(StreamTest, TracesPassWithTheMarkOnTheLastOne)
{
    for (const char* mode : {"pass", "copy"}) {
        for (const std::deque<int>& bursts :
             {std::deque<int>{1, 1, 1}, {3}, {0, 2, 0, 1}, {1, 2, 0}}) {
            for (const bool marked : {true, false}) {
                SCOPED_TRACE(std::string(mode) + (marked ? ", marked" : ", not marked"));
                renewSingletons();
                installRecorder();
                host.messages.clear();
                stream = job().initJobModule("stream", std::string("lib") + GetParam() + ".so");
                sources.clear();
                readers.clear();
                Source& source = addSource();
                Reader& reader = addReader();
                source.bursts = bursts;
                source.marked = marked;

                run(mode);

                EXPECT_EQ(reader.seen, three);
                EXPECT_EQ(reader.callsAtTheEnd, 1);
                EXPECT_THAT(messages(1), ElementsAre("end after 3", "finish after 3"));
            }
        }
    }
}

// The trace itself: neither header nor samples are copied where the layouts are the same.
TEST_P(StreamTest, PassedTracesAreMoved)
{
    Source& source = addSource();
    Reader& reader = addReader();
    std::vector<const float*> given;
    std::vector<const float*> taken;
    const auto give = source.module.process;
    source.module.process = [&] {
        give();
        given.push_back(source.out->getSamples(0));
    };
    const auto read = reader.module.process;
    reader.module.process = [&] {
        if (reader.in->getNumberOfTraces() > 0)
            taken.push_back(reader.in->getSamples(0));
        read();
    };

    run("pass");

    ASSERT_EQ(given.size(), 3u);
    EXPECT_EQ(taken, given);
}

TEST_P(StreamTest, BurstsHaveTheMarkOnTheLastTraceAlone)
{
    addSource().bursts = {2, 1};
    Reader& reader = addReader();

    run("burst", 3);

    EXPECT_EQ(reader.seen, (std::vector<Seen>{{1, 10, 0},
                                              {101, 10, 0},
                                              {201, 10, 0},
                                              {2, 20, 0},
                                              {102, 20, 0},
                                              {202, 20, 0},
                                              {3, 30, 0},
                                              {103, 30, 0},
                                              {203, 30, 3}}));
    EXPECT_EQ(reader.callsAtTheEnd, 1);
}

TEST_P(StreamTest, ModuleThatEmitsNothingEndsItsOutput)
{
    addSource();
    Reader& reader = addReader();

    run("burst", 0);

    EXPECT_THAT(reader.seen, IsEmpty());
    EXPECT_EQ(reader.callsAtTheEnd, 1);
    EXPECT_THAT(messages(1), ElementsAre("end after 3", "finish after 3"));
}

TEST_P(StreamTest, ModuleThatGetsNoTraceEndsItsOutput)
{
    for (const char* mode : {"pass", "tail", "join"}) {
        SCOPED_TRACE(mode);
        renewSingletons();
        installRecorder();
        host.messages.clear();
        stream = job().initJobModule("stream", std::string("lib") + GetParam() + ".so");
        sources.clear();
        readers.clear();
        addSource().bursts = {0};
        Reader& reader = addReader();

        run(mode);

        EXPECT_THAT(reader.seen, IsEmpty());
        EXPECT_EQ(reader.callsAtTheEnd, 1);
        EXPECT_THAT(messages(1), ElementsAre("end after 0", "finish after 0"));
    }
}

TEST_P(StreamTest, OnEndAloneEmits)
{
    addSource();
    Reader& reader = addReader();

    run("count");

    EXPECT_EQ(reader.seen, (std::vector<Seen>{{3, 3, 3}}));
}

TEST_P(StreamTest, OnEndEmitsWithoutAnyTraceToo)
{
    addSource().bursts = {0};
    Reader& reader = addReader();

    run("count");

    EXPECT_EQ(reader.seen, (std::vector<Seen>{{0, 0, 3}}));
}

TEST_P(StreamTest, QueuedTracesComeInAnyOrder)
{
    Source& source = addSource();
    Reader& reader = addReader();
    source.bursts = {2, 3};

    run("tail");

    EXPECT_EQ(reader.seen,
              (std::vector<Seen>{{5, 50, 0}, {4, 40, 0}, {3, 30, 0}, {2, 20, 0}, {1, 10, 3}}));
}

TEST_P(StreamTest, QueuedTracesArePaged)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 2;
    Source& source = addSource();
    Reader& reader = addReader();
    source.bursts = std::deque<int>(20, 1);
    std::size_t resident = 0;
    const auto give = source.module.process;
    source.module.process = [&] {
        give();
        resident = std::max(resident, scratch().traces_cache.size());
    };

    run("tail");

    ASSERT_EQ(reader.seen.size(), 20u);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(reader.seen[static_cast<std::size_t>(i)],
                  (Seen{20 - i, static_cast<float>(10 * (20 - i)), i == 19 ? endOfData : 0}));
    EXPECT_LE(resident, 3u);
}

TEST_P(StreamTest, LookAheadKeepsOrderAndCount)
{
    Source& source = addSource();
    Reader& reader = addReader();
    source.bursts = {1, 4, 2};

    run("ahead", 3);

    EXPECT_THAT(reader.numbers(), ElementsAre(1, 2, 3, 4, 5, 6, 7));
    EXPECT_EQ(reader.seen.back(), (Seen{7, 70, 3}));
}

TEST_P(StreamTest, FreshTracesHaveTheLengthOfTheOutput)
{
    addSource();
    Reader& reader = addReader();
    with("length", UniVar(5));

    run("fresh");

    EXPECT_EQ(reader.seen, (std::vector<Seen>{{1, 1, 0}, {2, 2, 0}, {3, 3, 3}}));
}

TEST_P(StreamTest, PassedTracesGetTheLengthOfTheOutput)
{
    addSource();
    Reader& reader = addReader();
    with("length", UniVar(5));
    std::vector<int> lengths;
    const auto read = reader.module.process;
    reader.module.process = [&] {
        if (reader.in->getNumberOfTraces() > 0)
            lengths.push_back(reader.in->getTrace(0, true)->traceLength);
        read();
    };

    run("pass");

    EXPECT_THAT(lengths, ElementsAre(5, 5, 5));
    EXPECT_EQ(reader.seen, (std::vector<Seen>{{1, 0, 0}, {2, 0, 0}, {3, 0, 3}}));
}

TEST_P(StreamTest, EmittedTracesCanBeChangedAndGetNewWords)
{
    addSource();
    Reader& reader = addReader();

    run("change");

    EXPECT_EQ(reader.seen, three);
    EXPECT_THAT(reader.late, ElementsAre(1001, 1002, 1003));
}

TEST_P(StreamTest, WordsDefinedWhileTracesFlowArrive)
{
    Source& source = addSource();
    Reader& reader = addReader();
    const auto give = source.module.process;
    source.module.process = [&] {
        give();
        if (source.number > 2)
            setTraceAttribute(source.out, "late", UniVar(source.number), 0);
    };

    run("pass");

    EXPECT_EQ(reader.seen, three);
    ASSERT_FALSE(reader.late.empty());
    EXPECT_EQ(reader.late.back(), 4);
}

TEST_P(StreamTest, InputsInStepGoOnUntilTheLongestHasEnded)
{
    for (const bool marked : {true, false}) {
        SCOPED_TRACE(marked);
        renewSingletons();
        installRecorder();
        host.messages.clear();
        stream = job().initJobModule("stream", std::string("lib") + GetParam() + ".so");
        sources.clear();
        readers.clear();
        Source& one = addSource(1);
        Source& two = addSource(5);
        Reader& reader = addReader();
        one.bursts = {2, 2};
        two.bursts = {1, 1};
        one.marked = two.marked = marked;

        run("join");

        EXPECT_THAT(reader.numbers(), ElementsAre(15, 26, 30, 40));
        EXPECT_EQ(reader.seen.back().flag, endOfData);
        if (marked) {
            EXPECT_THAT(reader.ended, ElementsAre(0, 1, 1, 11));
        }
        EXPECT_THAT(messages(1), Contains("end after 4"));
    }
}

TEST_P(StreamTest, InputsMatchedByKeyHandOverWhatFindsNoPartner)
{
    Source& one = addSource(1);
    Source& two = addSource(5);
    Reader& reader = addReader();
    one.bursts = {1, 1, 1, 1};
    one.keys = {10, 20, 20, 40};
    two.bursts = {3, 1};
    two.keys = {20, 30, 40, 50};

    run("match");

    EXPECT_THAT(reader.numbers(), ElementsAre(10, 25, 30, 6, 47, 8));
    EXPECT_EQ(reader.seen.back().flag, endOfData);
    EXPECT_THAT(messages(1), Contains("end after 6"));
}

TEST_P(StreamTest, KeysOfSeveralWordsMayDescend)
{
    Source& one = addSource(1);
    Source& two = addSource(5);
    Reader& reader = addReader();
    with("keys", UniVar("-key\nnumber"));
    one.keys = {40, 20, 10};
    two.keys = {30, 20, 10};

    run("match");

    EXPECT_THAT(reader.numbers(), ElementsAre(10, 5, 20, 6, 30, 7)) << "no numbers are equal";
}

TEST_P(StreamTest, AnInputThatIsEmptyMatchesNothing)
{
    addSource(1).keys = {1, 2, 3};
    addSource(5).bursts = {0};
    Reader& reader = addReader();

    run("match");

    EXPECT_THAT(reader.numbers(), ElementsAre(10, 20, 30));
    EXPECT_EQ(reader.seen.back().flag, endOfData);
}

TEST_P(StreamTest, InputThatIsNotSortedByTheKeyIsRefused)
{
    addSource(1).keys = {1, 2, 3};
    addSource(5).keys = {3, 2, 4};
    Reader& reader = addReader();

    run("match");

    EXPECT_THAT(
        messages(4),
        ElementsAre("input 2 is not sorted by key: a trace with key = 2 comes after one with "
                    "3; sort each input by the words that they are matched by"));
    EXPECT_EQ(reader.seen.back().flag, endOfData);
    EXPECT_EQ(reader.callsAtTheEnd, 1);
}

TEST_P(StreamTest, WordThatAnInputLacksIsNamed)
{
    addSource(1);
    addSource(5);
    addReader();
    with("keys", UniVar("key\ncdp"));

    run("match");

    EXPECT_THAT(messages(4), ElementsAre("the traces of input 1 have no header word \"cdp\"; match "
                                         "the inputs by words that all of them have"));
}

TEST_P(StreamTest, EachOutputHasItsOwnEnd)
{
    addSource().bursts = {3, 2};
    Reader& even = addReader();
    Reader& odd = addReader();
    Reader& end = addReader();

    run("split");

    EXPECT_EQ(even.seen, (std::vector<Seen>{{2, 20, 0}, {4, 40, 3}}));
    EXPECT_EQ(odd.seen, (std::vector<Seen>{{1, 10, 0}, {3, 30, 0}, {5, 50, 3}}));
    EXPECT_EQ(end.seen, (std::vector<Seen>{{5, 5, 3}}));
}

TEST_P(StreamTest, OutputWithoutTracesEndsBesideOthers)
{
    addSource().bursts = {1};
    Reader& even = addReader();
    Reader& odd = addReader();

    run("split");

    EXPECT_THAT(even.seen, IsEmpty());
    EXPECT_EQ(even.callsAtTheEnd, 1);
    EXPECT_EQ(odd.seen, (std::vector<Seen>{{1, 10, 3}}));
}

TEST_P(StreamTest, ModuleThatStopsTakesNoMore)
{
    const ExpectedLeaks leaks; // traces that nobody takes
    Source& source = addSource();
    Reader& reader = addReader();
    source.bursts = {1, 3, 1, 1};

    run("first", 2);

    EXPECT_EQ(reader.seen, (std::vector<Seen>{{1, 10, 0}, {2, 20, 3}}));
    EXPECT_THAT(messages(1), ElementsAre("end after 2", "finish after 2"));
}

TEST_P(StreamTest, ModuleWithoutInputsIsASource)
{
    Reader& reader = addReader();

    run("source", 2);

    EXPECT_EQ(reader.seen, (std::vector<Seen>{{1, 1, 0}, {2, 2, 0}, {3, 3, 0}, {4, 4, 3}}));
    EXPECT_THAT(messages(1), ElementsAre("end after 2", "finish after 2"));
}

TEST_P(StreamTest, ModuleWithoutOutputsIsCalledAtTheEndOnce)
{
    for (const bool marked : {true, false}) {
        SCOPED_TRACE(marked);
        renewSingletons();
        installRecorder();
        host.messages.clear();
        stream = job().initJobModule("stream", std::string("lib") + GetParam() + ".so");
        sources.clear();
        addSource().marked = marked;

        run("pass");

        EXPECT_THAT(messages(1), ElementsAre("end after 3", "finish after 3"));
    }
}

TEST_P(StreamTest, FailureLetsOutWhatWasEmitted)
{
    const struct
    {
        const char* where;
        const char* message;
        std::vector<int> numbers; // that come out
    } rows[] = {{"prepare", "told to fail in prepare", {}},
                {"trace", "told to fail in on_trace", {1, 2}},
                {"end", "told to fail in on_end", {1, 2, 3}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.where);
        renewSingletons();
        installRecorder();
        host.messages.clear();
        stream = job().initJobModule("stream", std::string("lib") + GetParam() + ".so");
        sources.clear();
        readers.clear();
        addSource();
        Reader& reader = addReader();
        with("fails", UniVar(row.where));

        run("pass");

        EXPECT_THAT(messages(4), ElementsAre(row.message));
        EXPECT_EQ(reader.numbers(), row.numbers);
        if (row.numbers.empty()) {
            EXPECT_EQ(reader.callsAtTheEnd, 1);
        } else {
            EXPECT_EQ(reader.seen.back().flag, endOfData);
        }
        EXPECT_THAT(messages(1), testing::Not(Contains(StartsWith("finish"))));
    }
}

TEST_P(StreamTest, FailureFreesWhatIsQueued)
{
    addSource();
    addReader();
    with("fails", UniVar("trace"));

    run("tail");

    EXPECT_THAT(messages(4), ElementsAre("told to fail in on_trace"));
}

// ---- The plain form ----

class PlainFormTest : public StreamTest
{
protected:
    // The module of the plain form in the same language.
    void begin()
    {
        const std::string language = std::string(GetParam()).substr(std::string("stream").size());
        stream = job().initJobModule("stream", "libkit" + language + ".so");
        stream->setParameter("needed", UniVar(0.5));
    }

    void runToTheEnd()
    {
        ASSERT_EQ(job().preProcessJob(), 0);
        ASSERT_EQ(job().processJob(), 0);
        ASSERT_EQ(job().postProcessJob(), 0);
    }
};

INSTANTIATE_TEST_SUITE_P(Languages, PlainFormTest,
                         testing::Values("stream_c", "stream_cxx", "stream_fortran"));

TEST_P(PlainFormTest, TheEndOfAnInputWithoutTracesIsPassedOn)
{
    renewSingletons();
    installRecorder();
    begin();
    addSource().bursts = {0};
    Reader& reader = addReader();

    runToTheEnd();

    EXPECT_THAT(reader.seen, IsEmpty());
    EXPECT_EQ(reader.callsAtTheEnd, 1);
    EXPECT_THAT(messages(4), IsEmpty());
}

TEST_P(PlainFormTest, TheEndOfAnInputWithoutAMarkedTraceIsPassedOn)
{
    renewSingletons();
    installRecorder();
    begin();
    Source& source = addSource();
    source.bursts = {2, 1};
    source.marked = false;
    Reader& reader = addReader();

    runToTheEnd();

    EXPECT_EQ(reader.seen, (std::vector<Seen>{{1, 10, 0}, {2, 20, 0}, {3, 30, 0}}));
    EXPECT_EQ(reader.callsAtTheEnd, 1);
}

// Work buffers are the kernel's to delete, their traces are not.
TEST_P(StreamTest, ManyJobsInOneProcessLeaveNoMemory)
{
    for (int i = 0; i < 30; ++i) {
        renewSingletons();
        installRecorder();
        stream = job().initJobModule("stream", std::string("lib") + GetParam() + ".so");
        sources.clear();
        readers.clear();
        addSource();
        addReader();

        run(i % 2 == 0 ? "ahead" : "tail", 10);

        EXPECT_EQ(job().totalJobMemoryUsed, 0) << "job " << i;
    }
}

} // namespace
