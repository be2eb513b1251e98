#include "job/JobCheck.h"
#include "TestTree.h"
#include "run/JobBuilder.h"

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>

using namespace host;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

// Checks jobs against the test modules.
class JobCheckTest : public KernelFixture
{
protected:
    JobCheckTest() : catalog(tree.home()) {}

    ResolvedJob check(const std::string& text, const std::vector<std::string>& settings = {})
    {
        diagnostics = Diagnostics();
        const std::string path = tree.path("job.yaml");
        writeFile(path, text);
        std::optional<JobFile> file = readJobFile(path, diagnostics);
        for (const std::string& setting : settings)
            applySetting(*file, setting, diagnostics);
        return checkJob(*file, catalog, diagnostics);
    }

    std::vector<std::string> lines() const
    {
        std::vector<std::string> lines;
        for (const Diagnostic& one : diagnostics.sorted())
            lines.push_back(one.line().substr(one.line().rfind('/') + 1));
        return lines;
    }

    static const ResolvedParameter* find(const ResolvedModule& module, const std::string& name)
    {
        for (const ResolvedParameter& parameter : module.parameters) {
            if (parameter.name == name)
                return &parameter;
        }
        return nullptr;
    }

    TestTree tree;
    ModuleCatalog catalog;
    Diagnostics diagnostics;
};

const char* const chain = "modules:\n"
                          "  - {name: read, module: host_source, pause: 1 ms}\n"
                          "  - {name: twice, module: host_filter, input: read}\n"
                          "  - {name: write, module: host_sink, input: twice, file: out.txt}\n";

} // namespace

TEST_F(JobCheckTest, DefaultsAreGivenToo)
{
    const ResolvedJob job = check(chain);

    ASSERT_THAT(lines(), IsEmpty());
    const ResolvedParameter* traces = find(job.modules[0], "traces");
    ASSERT_NE(traces, nullptr);
    EXPECT_FALSE(traces->given);
    EXPECT_EQ(traces->value.value.getI32Value(), 3);
    EXPECT_TRUE(find(job.modules[0], "pause")->given);
    EXPECT_EQ(find(job.modules[2], "like"), nullptr) << "optional without a default";
    EXPECT_EQ(find(job.modules[2], "file")->value.text, tree.path("out.txt"));
}

TEST_F(JobCheckTest, ATextThatNoBufferOfAModuleHoldsIsRefused)
{
    const auto withName = [](std::size_t bytes) {
        return std::string(chain) + "  - {name: other, module: host_plain, input: twice, text: " +
               std::string(bytes, 'x') + "}\n";
    };

    check(withName(4000));
    EXPECT_FALSE(diagnostics.hasErrors());
    check(withName(4001));
    EXPECT_TRUE(diagnostics.hasErrors());
    EXPECT_THAT(lines(),
                Contains("job.yaml:5:59: parameter \"text\" of module \"other\" is a text of "
                         "4001 bytes; expected at most 4000"));
}

TEST_F(JobCheckTest, ASettingReplacesWhatTheFileSays)
{
    const ResolvedJob job =
        check(chain, {"read.pause=2 ms", "read.traces=9", "twice.corners=[1, 2]"});

    ASSERT_THAT(lines(), IsEmpty());
    EXPECT_EQ(find(job.modules[0], "pause")->value.text, "0.002");
    EXPECT_EQ(find(job.modules[0], "traces")->value.text, "9");
    EXPECT_EQ(find(job.modules[1], "corners")->value.text, "1, 2");
}

TEST_F(JobCheckTest, PathsOfASettingAreTakenFromTheCurrentDirectory)
{
    const ResolvedJob job = check(chain, {"write.file=here.txt"});

    EXPECT_EQ(find(job.modules[2], "file")->value.text,
              (std::filesystem::current_path() / "here.txt").string());
}

TEST_F(JobCheckTest, ScratchComesFromTheJobElseFromTheEnvironment)
{
    std::filesystem::create_directory(tree.path("scratch"));
    const ScopedEnvironment size("VORN_SCRATCH_SIZE", "77");

    const ResolvedJob own =
        check("scratch: {directory: scratch, traces: 50}\n" + std::string(chain));
    EXPECT_EQ(own.scratchDirectory, tree.path("scratch"));
    EXPECT_EQ(own.scratchTraces, 50);

    const ResolvedJob fromOutside = check(chain);
    EXPECT_EQ(fromOutside.scratchDirectory, std::getenv("VORN_SCRATCH"));
    EXPECT_EQ(fromOutside.scratchTraces, 77);
}

TEST_F(JobCheckTest, TheScratchSizeOfTheEnvironmentIsReadAsTheKernelReadsIt)
{
    const auto ignored = [](const std::string& text) {
        return "VORN_SCRATCH_SIZE: warning: \"" + text +
               "\" is ignored, 10000 traces stay in memory; expected a number from 1 to 99999999";
    };
    struct Row
    {
        const char* text;
        int traces;
        bool isIgnored;
    };
    const Row rows[] = {
        {"1", 1, false},
        {"9", 9, false},
        {"99999999", 99999999, false},
        {"12 traces", 12, false},
        {"", 10000, false},
        {"0", 10000, true},
        {"-5", 10000, true},
        {"100000000", 10000, true},
        {"4294967297", 10000, true},
        {"many", 10000, true},
    };
    for (const Row& row : rows) {
        const ScopedEnvironment size("VORN_SCRATCH_SIZE", row.text);
        EXPECT_EQ(check(chain).scratchTraces, row.traces) << row.text;
        if (row.isIgnored)
            EXPECT_THAT(lines(), ElementsAre(ignored(row.text)));
        else
            EXPECT_THAT(lines(), ElementsAre()) << row.text;
        EXPECT_EQ(check("scratch: {traces: 50}\n" + std::string(chain)).scratchTraces, 50);
        EXPECT_THAT(lines(), ElementsAre()) << "it is not used";
    }
    EXPECT_EQ(check("scratch: {traces: 1}\n" + std::string(chain)).scratchTraces, 1);
}

TEST_F(JobCheckTest, TheSegySchemaIsThereUnlessTheJobListsItsOwn)
{
    const auto namesOf = [](const ResolvedJob& job) {
        std::vector<std::string> names;
        for (const ResolvedAttribute& attribute : job.attributes)
            names.push_back(attribute.name);
        return names;
    };
    EXPECT_THAT(namesOf(check(chain)), ::testing::IsSupersetOf({"fldr", "offset", "dt"}));
    EXPECT_THAT(
        namesOf(check("schema: [{name: a, type: float64, dimension: 3}]\n" + std::string(chain))),
        ElementsAre("a"));
    EXPECT_THAT(namesOf(check("schema: [segy, {name: a}]\n" + std::string(chain))),
                ::testing::IsSupersetOf({"fldr", "a"}));
}

TEST_F(JobCheckTest, AttributesOfManifestsJoinTheSchema)
{
    writeFile(tree.home() + "/lib/host_filter.yaml",
              "module: host_filter\npurpose: p\ninputs: {min: 1}\noutputs: {min: 1}\n"
              "writes: [{name: quality, type: float32, help: good or bad}]\n");

    const ResolvedJob job = check(chain);

    ASSERT_THAT(lines(), IsEmpty());
    const auto quality =
        std::find_if(job.attributes.begin(), job.attributes.end(),
                     [](const ResolvedAttribute& one) { return one.name == "quality"; });
    ASSERT_NE(quality, job.attributes.end());
    EXPECT_EQ(quality->type, 4);
    EXPECT_EQ(quality->description, "good or bad");

    check("schema: [segy, {name: quality, type: int32}]\n" + std::string(chain));
    EXPECT_THAT(lines(),
                ElementsAre("job.yaml:4:5: module \"twice\" writes the trace attribute \"quality\" "
                            "as float32, but it is int32 elsewhere in the job"));
}

TEST_F(JobCheckTest, ReadingAnAttributeThatNobodyHasIsAWarning)
{
    check("schema: [{name: fold}]\n"
          "modules:\n"
          "  - {name: read, module: host_source}\n"
          "  - {name: split, module: host_split, input: read}\n"
          "  - {name: write, module: host_sink, input: split}\n");
    EXPECT_THAT(lines(), IsEmpty()) << "the source writes tracl";

    writeFile(tree.home() + "/lib/host_sink.yaml",
              "module: host_sink\npurpose: p\ninputs: {min: 1}\noutputs: {min: 0}\nreads: [cdp]\n");
    check("schema: [{name: fold}]\n"
          "modules:\n"
          "  - {name: read, module: host_source}\n"
          "  - {name: write, module: host_sink, input: read}\n");
    EXPECT_THAT(lines(), ElementsAre("job.yaml:4:5: warning: module \"write\" reads the trace "
                                     "attribute \"cdp\", which neither the schema nor a module "
                                     "before it has"));
}

TEST_F(JobCheckTest, ASelectionBehindAReaderNamesAttributesThatThereAre)
{
    writeFile(tree.home() + "/lib/host_sink.yaml",
              "module: host_sink\npurpose: p\ninputs: {min: 1}\noutputs: {min: 0}\nparameters:\n"
              "  - {name: select, type: selection, help: h}\n");
    const auto checkWith = [&](const std::string& selection) {
        check("schema: [segy, {name: quality, type: float32}]\n"
              "modules:\n"
              "  - {name: read, module: host_source}\n"
              "  - {name: write, module: host_sink, input: read, select: " +
              selection + "}\n");
    };
    checkWith("{quality: [1, 2], traces: 7, offset: [0, 500]}");
    EXPECT_THAT(lines(), IsEmpty());
    checkWith("{ofset: [1, 2], cdp: 7}");
    EXPECT_THAT(lines(), ElementsAre(HasSubstr("parameter \"select\" of module \"write\" is "
                                               "\"ofset\"; the traces of this job have no "
                                               "attribute of that name; did you mean "
                                               "\"offset\"?")));
    checkWith("{cdp: 7:1}");
    EXPECT_THAT(lines(), ElementsAre(HasSubstr("cdp")));
}

TEST_F(JobCheckTest, AParameterNamesAttributesThatThereAre)
{
    writeFile(tree.home() + "/lib/host_sink.yaml",
              "module: host_sink\npurpose: p\ninputs: {min: 1}\noutputs: {min: 0}\nparameters:\n"
              "  - {name: key, type: text, is: attribute, default: nothing, help: h}\n"
              "  - {name: keys, type: text_list, is: sort_key, help: h}\n");
    const auto checkWith = [&](const std::string& parameters, const std::string& more = "") {
        check("modules:\n"
              "  - {name: read, module: host_source}\n"
              "  - {name: split, module: host_split, input: read}\n"
              "  - {name: write, module: host_sink, input: split" +
              parameters + "}\n" + more);
    };
    checkWith(", key: cpd, keys: [-CDP, offset]");
    const std::string none = "; the traces of this job have no attribute of that name";
    EXPECT_THAT(lines(), ElementsAre("job.yaml:4:57: parameter \"key\" of module \"write\" is "
                                     "\"cpd\"" +
                                         none + "; did you mean \"cdp\"?",
                                     "job.yaml:4:69: parameter \"keys\" of module \"write\" is "
                                     "\"CDP\"" +
                                         none + "; did you mean \"cdp\"?"));
    checkWith(", key: -cdp");
    EXPECT_TRUE(diagnostics.hasErrors()) << "the order is nothing for an attribute";

    for (const std::string& good :
         {std::string(), std::string(", key: cdp, keys: ['- cdp', offset]"),
          std::string(", keys: [-tracl]"), std::string(", key: ''")})
    {
        checkWith(good);
        EXPECT_THAT(lines(), IsEmpty()) << good;
    }
    checkWith(", key: mine", "schema: [segy, {name: mine}]\n");
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(JobCheckTest, WhatModulesWithoutManifestWriteNobodyKnows)
{
    writeFile(tree.home() + "/lib/host_sink.yaml",
              "module: host_sink\npurpose: p\ninputs: {min: 1}\noutputs: {min: 0}\nparameters:\n"
              "  - {name: key, type: text, is: attribute, help: h}\n");
    std::filesystem::remove(tree.home() + "/lib/host_filter.yaml");
    catalog = ModuleCatalog(tree.home());
    check("modules:\n"
          "  - {name: read, module: host_source}\n"
          "  - {name: some, module: host_filter, input: read}\n"
          "  - {name: write, module: host_sink, input: some, key: theirs}\n");
    EXPECT_FALSE(diagnostics.hasErrors());
}

TEST_F(JobCheckTest, ModulesOfAnAllowedDirectoryAreFound)
{
    const std::string other = tree.path("other");
    std::filesystem::create_directory(other);
    std::filesystem::rename(tree.home() + "/lib/libhost_sink.so", other + "/libhost_sink.so");
    std::filesystem::rename(tree.home() + "/lib/host_sink.yaml", other + "/host_sink.yaml");

    catalog = ModuleCatalog(tree.home());
    check(chain);
    EXPECT_TRUE(diagnostics.hasErrors());

    catalog = ModuleCatalog(tree.home(), {other});
    const ResolvedJob job = check(chain);
    ASSERT_THAT(lines(), IsEmpty());
    EXPECT_TRUE(std::filesystem::exists(tree.home() + "/lib/" + job.modules[2].library));
}

TEST_F(JobCheckTest, OutputsThatAModuleNeedsAreThereAlsoUnread)
{
    const ResolvedJob job = check("modules:\n"
                                  "  - {name: read, module: host_source}\n"
                                  "  - {name: split, module: host_split, input: read}\n"
                                  "  - {name: even, module: host_sink, input: split.even}\n"
                                  "  - {name: last, module: host_filter, input: read}\n");

    EXPECT_THAT(job.modules[0].consumers, ElementsAre(2));
    EXPECT_THAT(job.modules[1].consumers, ElementsAre(0, 1)) << "the first is there for the second";
    EXPECT_THAT(job.modules[2].consumers, IsEmpty());
    EXPECT_THAT(job.modules[3].consumers, ElementsAre(0)) << "the manifest says one";
}

TEST_F(JobCheckTest, TheResolvedJobIsAJobFileOfTheSameMeaning)
{
    const ResolvedJob job =
        check("job: 'a: b'\n"
              "modules:\n"
              "  - {name: read, module: host_source, pause: 1 ms}\n"
              "  - {name: split, module: host_split, input: read}\n"
              "  - {name: twice, module: host_filter, input: split.even, corners: "
              "[10, 20], words: [a, 'b, c']}\n"
              "  - {name: plain, module: host_plain, inputs: [twice, split.2], "
              "text: '12', number: 12}\n");
    const std::string yaml = resolvedYaml(job);

    const ResolvedJob again = check(yaml);

    EXPECT_EQ(diagnostics.errors(), 0) << yaml;
    EXPECT_EQ(resolvedYaml(again), yaml);
    EXPECT_EQ(find(again.modules[2], "words")->value.value.getStrValue(), "a\nb, c");
    EXPECT_EQ(find(again.modules[3], "text")->value.value.getType(), strType);
    EXPECT_EQ(find(again.modules[3], "number")->value.value.getType(), int32Type);
    EXPECT_EQ(again.modules[3].inputs[1].port, 1);
}

TEST_F(JobCheckTest, TheOrderIsTheOneInWhichTheKernelRuns)
{
    const ResolvedJob job = check("modules:\n"
                                  "  - {name: write, module: host_sink, input: twice}\n"
                                  "  - {name: twice, module: host_filter, input: read}\n"
                                  "  - {name: read, module: host_source}\n"
                                  "  - {name: draw, module: host_section, input: read}\n");

    EXPECT_THAT(kernelOrder(job), ElementsAre(4, 2, 1, 3));
}

std::string chainOf(int modules)
{
    std::string text = "modules:\n  - {name: m0, module: host_source}\n";
    for (int i = 1; i < modules - 1; ++i)
        text += "  - {name: m" + std::to_string(i) + ", module: host_filter, input: m" +
                std::to_string(i - 1) + "}\n";
    return text + "  - {name: end, module: host_sink, input: m" + std::to_string(modules - 2) +
           "}\n";
}

TEST_F(JobCheckTest, SeveralReadersNeedTheModuleTee)
{
    const std::string shared = "modules:\n"
                               "  - {name: read, module: host_source}\n"
                               "  - {name: one, module: host_sink, input: read}\n"
                               "  - {name: two, module: host_sink, input: read}\n";
    check(shared);
    EXPECT_THAT(lines(), IsEmpty());

    std::filesystem::remove(tree.home() + "/lib/libtee.so");
    catalog = ModuleCatalog(tree.home());
    check(shared);
    ASSERT_EQ(diagnostics.errors(), 1);
    EXPECT_THAT(diagnostics.sorted()[0].line(),
                ::testing::EndsWith("job.yaml:2:5: the output of module \"read\" has several "
                                    "readers, which needs the module \"tee\"; there is none in " +
                                    tree.home() +
                                    "/lib: install the modules of this version of vorn"));
}

TEST_F(JobCheckTest, ALongChainIsNoTrouble)
{
    const ResolvedJob job = check(chainOf(501));

    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_EQ(kernelOrder(job).back(), 501);
}

TEST_F(JobCheckTest, AChainThatTheStackWouldNotHoldIsRefused)
{
    check(chainOf(10001));

    EXPECT_THAT(lines(), ElementsAre("job.yaml:2:3: the job has 10001 modules; a job can have up "
                                     "to 10000"));
}
