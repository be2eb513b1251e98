// Which modules of a job run in parts, and the reasons of those that do not.
#include "parts/Stages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace host;
using ::testing::ElementsAre;

namespace {

// A job of modules whose manifests have only what stages depend on.
class StagesTest : public ::testing::Test
{
protected:
    struct Given
    {
        std::vector<std::string> inputs; ///< "read", or "split.2"
        std::vector<std::pair<std::string, std::string>> parameters;
    };

    // `parallel` is the value of the key; empty: the manifest has none.
    int add(const std::string& name, const std::string& parallel, const Given& given,
            const std::string& more = "")
    {
        ResolvedModule module;
        module.name = name;
        module.module = "lib_" + name;
        Diagnostics diagnostics;
        module.manifest = parseManifest(
            "module: m\npurpose: p\n"
            "inputs: {min: " +
                std::to_string(given.inputs.empty() ? 0 : 1) +
                ", max: " + (given.inputs.empty() ? "0" : "any") +
                "}\n"
                "outputs: {min: 0, max: any}\n"
                "parameters:\n"
                "  - {name: gather, type: text_list, is: sort_key, besides: none, help: h}\n"
                "  - {name: block, type: int, default: 1000, help: h}\n"
                "  - {name: part, type: text, is: ranges, help: h}\n"
                "  - {name: mode, type: choice, choices: [a, b], default: a, help: h}\n"
                "  - {name: flag, type: bool, default: false, help: h}\n"
                "  - {name: file, type: outfile, help: h}\n"
                "  - {name: set, type: text_list, is: assignment, help: h}\n" +
                (parallel.empty() ? "" : "parallel: " + parallel + "\n") + more,
            "m.yaml", "m", diagnostics);
        for (const Diagnostic& one : diagnostics.sorted())
            ADD_FAILURE() << one.line();
        for (const std::string& input : given.inputs)
            module.inputs.push_back(connect(input));
        for (const auto& [key, value] : given.parameters) {
            ResolvedParameter parameter;
            parameter.name = key;
            parameter.value.text = value;
            parameter.isOutputFile = key == "file";
            module.parameters.push_back(parameter);
        }
        job.modules.push_back(module);
        return static_cast<int>(job.modules.size()) - 1;
    }

    ResolvedInput connect(const std::string& text)
    {
        const std::size_t point = text.find('.');
        ResolvedInput input;
        input.port = point == std::string::npos ? 0 : std::stoi(text.substr(point + 1)) - 1;
        for (std::size_t i = 0; i < job.modules.size(); ++i) {
            if (job.modules[i].name != text.substr(0, point))
                continue;
            input.module = static_cast<int>(i);
            auto& consumers = job.modules[i].consumers;
            consumers.resize(std::max(consumers.size(), static_cast<std::size_t>(input.port) + 1));
            ++consumers[static_cast<std::size_t>(input.port)];
        }
        return input;
    }

    int addSource(const std::string& name = "read")
    {
        return add(name, "{work: source, range: part}", {});
    }
    int addTraces(const std::string& name, const std::string& input)
    {
        return add(name, "{work: trace}", {{input}, {}});
    }
    int addSink(const std::string& name, const std::string& input)
    {
        return add(name, "{work: sink, merge: true}", {{input}, {{"file", "/out/" + name}}});
    }

    void run(const std::map<int, int64_t>& traces = {}) { stages = stagesOf(job, traces); }

    int stageOf(int module) const
    {
        return static_cast<int>(stages.modules[static_cast<std::size_t>(module)].stage);
    }
    std::string reasonOf(int module) const
    {
        return stages.modules[static_cast<std::size_t>(module)].reason;
    }
    std::vector<std::pair<int, int>> spools() const
    {
        std::vector<std::pair<int, int>> ports;
        for (const PlannedSpool& spool : stages.spools)
            ports.emplace_back(spool.module, spool.port);
        return ports;
    }

    ResolvedJob job;
    Stages stages;
};

} // namespace

TEST_F(StagesTest, AChainOfTracesRunsInParts)
{
    const int read = addSource();
    const int filter = addTraces("filter", "read");
    const int write = addSink("write", "filter");
    run();

    EXPECT_EQ(reasonOf(read), "read gives ranges of its traces");
    EXPECT_EQ(reasonOf(filter), "filter works trace by trace");
    EXPECT_EQ(reasonOf(write), "write writes its range of the file");
    EXPECT_THAT(stages.sources, ElementsAre(read));
    EXPECT_TRUE(stages.hasParts());
    ASSERT_EQ(stages.sinks.size(), 1u);
    EXPECT_EQ(stages.sinks[0].module, write);
    EXPECT_EQ(stages.sinks[0].source, read);
    EXPECT_EQ(stages.sinks[0].path, "/out/write");
    EXPECT_THAT(spools(), ElementsAre());
    EXPECT_TRUE(stages.gathers.empty());
}

TEST_F(StagesTest, WhatStandsBehindASortWaits)
{
    const int read = addSource();
    const int filter = addTraces("filter", "read");
    const int sort = add("sort", "{work: whole}", {{"filter"}, {}});
    const int write = addSink("write", "sort");
    const int look = addSink("look", "filter");
    run();

    EXPECT_EQ(stageOf(read), 1);
    EXPECT_EQ(stageOf(filter), 1);
    EXPECT_EQ(stageOf(sort), 2);
    EXPECT_EQ(reasonOf(sort), "sort needs all traces");
    EXPECT_EQ(stageOf(write), 2);
    EXPECT_EQ(reasonOf(write), "write reads sort, which does not run in parts");
    EXPECT_EQ(stageOf(look), 1) << "a module that is read by both stages";
    EXPECT_THAT(spools(), ElementsAre(std::pair(filter, 0)));
}

TEST_F(StagesTest, ModulesThatSayNothingWait)
{
    addSource();
    const int silent = add("silent", "", {{"read"}, {}});
    addTraces("filter", "read");
    const int bare = addTraces("bare", "read");
    job.modules.back().manifest = nullptr;
    run();

    EXPECT_EQ(stageOf(silent), 2);
    EXPECT_EQ(reasonOf(silent), "the manifest of lib_silent does not say how silent runs in parts");
    EXPECT_EQ(stageOf(bare), 2);
    EXPECT_EQ(reasonOf(bare), "bare has no manifest that says how it runs in parts");
}

TEST_F(StagesTest, ASourceThatOnlyTheSecondStageReadsWaitsToo)
{
    const int read = addSource();
    add("sort", "{work: whole}", {{"read"}, {}});
    run();

    EXPECT_EQ(stageOf(read), 2);
    EXPECT_EQ(reasonOf(read), "read has no reader that runs in parts");
    EXPECT_FALSE(stages.hasParts());
    EXPECT_THAT(spools(), ElementsAre());
}

TEST_F(StagesTest, GathersAreThoseOfTheParameter)
{
    const int read = addSource();
    const int check = add("check", "{work: gather, key: $gather, block: $block}",
                          {{"read"}, {{"gather", "fldr"}, {"block", "12"}}});
    const int stack =
        add("stack", "{work: gather, key: [cdp, offset], count: fewer}", {{"check"}, {}});
    run();

    EXPECT_EQ(reasonOf(check), "check works on gathers of fldr, in blocks of 12 traces");
    EXPECT_EQ(reasonOf(stack), "stack works on gathers of cdp and offset");
    ASSERT_EQ(stages.gathers.size(), 2u);
    EXPECT_EQ(stages.gathers[0].module, check);
    EXPECT_EQ(stages.gathers[0].source, read);
    EXPECT_THAT(stages.gathers[0].words, ElementsAre("fldr"));
    EXPECT_EQ(stages.gathers[0].block, 12);
    EXPECT_THAT(stages.gathers[1].words, ElementsAre("cdp", "offset"));
    EXPECT_EQ(stages.gathers[1].block, 0);
}

TEST_F(StagesTest, SignsAreNotPartsOfWordsAndSomeTextsAreNotWords)
{
    addSource();
    add("sorted", "{work: gather, key: $gather}", {{"read"}, {{"gather", "-cdp"}}});
    const int groups = add("groups", "{work: gather, key: $gather, block: $block}",
                           {{"read"}, {{"gather", "none"}, {"block", "5"}}});
    run();

    EXPECT_THAT(stages.gathers[0].words, ElementsAre("cdp"));
    EXPECT_THAT(stages.gathers[1].words, ElementsAre());
    EXPECT_EQ(stages.gathers[1].block, 5);
    EXPECT_EQ(reasonOf(groups), "groups works on groups of 5 traces");
}

TEST_F(StagesTest, AGatherWordThatTheJobWritesCannotCutIt)
{
    addSource();
    add("math", "{work: trace}", {{"read"}, {{"set", "cdp = ep + 1"}}});
    const int stack = add("stack", "{work: gather, key: cdp}", {{"math"}, {}});
    const int check = add("check", "{work: gather, key: fldr}", {{"math"}, {}});
    add("label", "{work: trace}", {{"read"}, {}}, "writes: [ep]\n");
    addTraces("filter", "label");
    const int other = add("other", "{work: gather, key: [fldr, ep]}", {{"filter"}, {}});
    run();

    EXPECT_EQ(stageOf(stack), 2);
    EXPECT_EQ(reasonOf(stack), "stack groups by cdp, which math writes");
    EXPECT_EQ(stageOf(check), 1);
    EXPECT_EQ(reasonOf(other), "other groups by ep, which label writes");
}

TEST_F(StagesTest, AWriterOfTheWordOnAnotherBranchDoesNotMatter)
{
    addSource();
    add("math", "{work: trace}", {{"read"}, {{"set", "cdp = 1"}}});
    const int stack = add("stack", "{work: gather, key: cdp}", {{"read"}, {}});
    run();
    EXPECT_EQ(stageOf(stack), 1);
}

TEST_F(StagesTest, NothingThatNeedsPlacesStandsBehindAChangeOfTheCount)
{
    addSource();
    add("stack", "{work: gather, key: cdp, count: fewer}", {{"read"}, {}});
    const int filter = addTraces("filter", "stack");
    const int write = addSink("write", "filter");
    const int gather = add("gather", "{work: gather, key: cdp}", {{"filter"}, {}});
    const int kill =
        add("kill", "{work: trace, numbered_when: {mode: b}}", {{"filter"}, {{"mode", "b"}}});
    const int kill2 =
        add("kill2", "{work: trace, numbered_when: {mode: b}}", {{"filter"}, {{"mode", "a"}}});
    run();

    EXPECT_EQ(stageOf(filter), 1);
    EXPECT_EQ(reasonOf(write), "write writes each trace to its place in the file, and stack before "
                               "it changes the count of traces");
    EXPECT_EQ(reasonOf(gather),
              "gather works on gathers, and stack before it changes the count of traces");
    EXPECT_EQ(reasonOf(kill), "kill looks at numbers of traces with mode b, and stack before it "
                              "changes their count");
    EXPECT_EQ(stageOf(kill2), 1);
    EXPECT_THAT(spools(), ElementsAre(std::pair(filter, 0)));
}

TEST_F(StagesTest, ConditionsLookAtTheValues)
{
    addSource();
    const std::string parallel = "{work: trace, whole_when: [block, flag, {mode: b}]}";
    const int none = add("none", parallel, {{"read"}, {}});
    const int usual =
        add("usual", parallel, {{"read"}, {{"block", "1000"}, {"flag", "false"}, {"mode", "a"}}});
    const int block = add("block", parallel, {{"read"}, {{"block", "2"}}});
    const int flag = add("flag", parallel, {{"read"}, {{"flag", "true"}}});
    const int mode = add("mode", parallel, {{"read"}, {{"mode", "b"}}});
    run();

    EXPECT_EQ(stageOf(none), 1);
    EXPECT_EQ(stageOf(usual), 1);
    EXPECT_EQ(reasonOf(block), "block needs all traces with block 2");
    EXPECT_EQ(reasonOf(flag), "flag needs all traces with flag true");
    EXPECT_EQ(reasonOf(mode), "mode needs all traces with mode b");
}

TEST_F(StagesTest, FormulasThatCountNeedAllTraces)
{
    addSource();
    const int counts = add("counts", "{work: trace}", {{"read"}, {{"set", "tracf = count(fldr)"}}});
    run();
    EXPECT_EQ(reasonOf(counts), "counts counts traces or gathers in a formula");
}

TEST_F(StagesTest, AFileThatIsNotMergedIsWrittenAtTheEnd)
{
    addSource();
    const int table = add("table", "{work: trace}", {{"read"}, {{"file", "/t.csv"}}});
    const int merged =
        add("merged", "{work: trace, merge: true}", {{"read"}, {{"file", "/m.csv"}}});
    run();
    EXPECT_EQ(reasonOf(table), "table writes a file of all traces");
    EXPECT_EQ(stageOf(merged), 1);
    EXPECT_TRUE(stages.sinks.empty()) << "it does not write in place";
}

TEST_F(StagesTest, InputsOfOneCountAreJoined)
{
    const int read = addSource();
    const int read2 = addSource("read2");
    const int join = add("join", "{work: trace}", {{"read", "read2"}, {}});
    add("stack", "{work: gather, key: cdp}", {{"join"}, {}});
    run({{read, 100}, {read2, 100}});

    EXPECT_EQ(stageOf(join), 1);
    EXPECT_THAT(stages.sources, ElementsAre(read, read2));
    ASSERT_EQ(stages.gathers.size(), 2u) << "the gathers of both sources count";
    EXPECT_EQ(stages.gathers[0].source, read);
    EXPECT_EQ(stages.gathers[1].source, read2);
}

TEST_F(StagesTest, ASourceWithFewerTracesWaits)
{
    const int read = addSource();
    const int read2 = addSource("read2");
    const int join = add("join", "{work: trace}", {{"read", "read2"}, {}});
    const int write = addSink("write", "read2");
    run({{read, 100}, {read2, 120}});

    EXPECT_EQ(stageOf(read), 2);
    EXPECT_EQ(reasonOf(read), "read gives 100 traces, and read2 gives 120: they cannot be cut at "
                              "the same places");
    EXPECT_EQ(reasonOf(join), "join reads read, which does not run in parts");
    EXPECT_EQ(stageOf(write), 1);
    EXPECT_THAT(spools(), ElementsAre(std::pair(read2, 0)));
}

TEST_F(StagesTest, InputsOfDifferentCountsAreNotJoined)
{
    addSource();
    add("select", "{work: trace, count: fewer}", {{"read"}, {}});
    const int rejoin = add("rejoin", "{work: trace}", {{"select", "read"}, {}});
    addTraces("left", "select");
    addTraces("right", "select");
    const int same = add("same", "{work: trace}", {{"left", "right"}, {}});
    const int both = add("both", "{work: trace}", {{"left", "select.2"}, {}});
    run();

    EXPECT_EQ(reasonOf(rejoin), "rejoin reads inputs with different counts of traces");
    EXPECT_EQ(stageOf(same), 1) << "both have the count that select has left";
    EXPECT_EQ(stageOf(both), 2) << "the outputs of a module differ in their counts";
}

TEST_F(StagesTest, ASourceWithARangeOfItsOwnWaits)
{
    const int read = add("read", "{work: source, range: part}", {{}, {{"part", "1:10"}}});
    addTraces("filter", "read");
    run();
    EXPECT_EQ(reasonOf(read), "read has a range of its own (part), by which the job would be cut");
}

TEST_F(StagesTest, AModuleThatSortsTakesPartsOfSortedTraces)
{
    const int read = addSource();
    const int sort = add("sort", "{work: whole, sorts: $gather}", {{"read"}, {}});
    const int sum =
        add("sum", "{work: gather, key: $gather, count: fewer}", {{"sort"}, {{"gather", "cdp"}}});
    run();
    EXPECT_EQ(reasonOf(sort), "sort needs all traces");
    EXPECT_EQ(stageOf(read), 2);

    job.order = ReadingOrder{read, "sort", {"cdp", "-offset"}, ""};
    run();
    EXPECT_EQ(reasonOf(read), "read gives ranges of its sorted traces");
    EXPECT_EQ(reasonOf(sort), "sort takes the traces of read sorted by cdp and -offset");
    EXPECT_EQ(reasonOf(sum), "sum works on gathers of cdp");
    EXPECT_EQ(stageOf(sum), 1);
}

// Nothing is gained where all of what follows needs all traces.
TEST_F(StagesTest, AModuleThatSortsForTheSecondStageStaysThere)
{
    const int read = addSource();
    const int sort = add("sort", "{work: whole, sorts: $gather}", {{"read"}, {}});
    add("all", "{work: whole}", {{"sort"}, {}});
    job.order = ReadingOrder{read, "sort", {"cdp"}, ""};
    run();
    EXPECT_EQ(reasonOf(sort), "sort needs all traces");
    EXPECT_EQ(reasonOf(read), "read has no reader that runs in parts");
}

TEST_F(StagesTest, ModulesMayStandInAnyOrder)
{
    addSource();
    addTraces("filter", "read");
    addSink("write", "filter");
    std::swap(job.modules[0], job.modules[2]);
    job.modules[1].inputs[0].module = 2;
    job.modules[0].inputs[0].module = 1;
    run();
    EXPECT_EQ(stageOf(0), 1);
    EXPECT_EQ(stages.sinks[0].source, 2);
}
