// Plans on disk: what comes back, what is refused, and what has changed since.
#include "parts/PlanFile.h"

#include "KernelFixture.h"
#include "TestTree.h"
#include "base/CommandError.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace host;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

class PlanFileTest : public ::testing::Test
{
protected:
    std::string path() const { return folder / planFileName; }

    static Plan example()
    {
        Plan plan;
        plan.vornVersion = "1.2.3";
        plan.vornHome = "/opt/vorn";
        plan.jobFile = "/jobs/\"a\" \xc3\xa4.yaml";
        plan.jobSha256 = "00ff";
        plan.settings = {"agc.window=1 s", "x.y=\n"};
        plan.moduleDirectories = {"/m"};
        plan.scratchDirectory = "/scratch";
        plan.scratchTraces = "500";
        plan.workingDirectory = "/jobs";
        plan.cpuClass = "avx2";
        plan.portable = false;
        plan.facts = false;
        plan.lasting = false;
        plan.traces = 9'000'000'000'000;
        plan.parts = {{0, 4'000'000'000'000}, {4'000'000'000'000, 5'000'000'000'000}};
        plan.modules = {{"read", Stage::parts, "read gives ranges of its traces"},
                        {"sort", Stage::merge, "sort needs all traces"}};
        plan.spools = {{0, 1}};
        plan.inputs = {{"/data/a.sgy", 123, 1700000000, 5}};
        plan.outputs = {{"write", "/out/a.sgy", "/out/.a.sgy.vorn-1"}};
        plan.order = PlannedOrder{0, "sort", {"cdp", "-offset"}, "/plan/order"};
        return plan;
    }

    std::string refusal() const
    {
        try {
            readPlan(folder / "");
        } catch (const CommandError& error) {
            EXPECT_EQ(error.code, exitWrongCall);
            return error.what();
        }
        return "not refused";
    }

    // The file with a text in it replaced.
    void replace(const std::string& from, const std::string& to) const
    {
        std::string text = readFile(path());
        const std::size_t place = text.find(from);
        ASSERT_NE(place, std::string::npos) << from;
        writeFile(path(), text.replace(place, from.size(), to));
    }

    TemporaryDirectory folder;
};

} // namespace

TEST_F(PlanFileTest, APlanComesBackAsItWas)
{
    const Plan plan = example();
    writePlan(plan, folder / "");
    const StoredPlan stored = readPlan(folder / "");
    const Plan& read = stored.plan;

    EXPECT_EQ(read.vornVersion, plan.vornVersion);
    EXPECT_EQ(read.vornHome, plan.vornHome);
    EXPECT_EQ(read.jobFile, plan.jobFile);
    EXPECT_EQ(read.jobSha256, plan.jobSha256);
    EXPECT_EQ(read.settings, plan.settings);
    EXPECT_EQ(read.moduleDirectories, plan.moduleDirectories);
    EXPECT_EQ(read.scratchDirectory, plan.scratchDirectory);
    EXPECT_EQ(read.scratchTraces, plan.scratchTraces);
    EXPECT_EQ(read.workingDirectory, plan.workingDirectory);
    EXPECT_EQ(read.cpuClass, plan.cpuClass);
    EXPECT_FALSE(read.portable);
    EXPECT_FALSE(read.facts);
    EXPECT_FALSE(read.lasting);
    EXPECT_EQ(read.traces, plan.traces);
    ASSERT_EQ(read.parts.size(), 2u);
    EXPECT_EQ(read.parts[1].first, 4'000'000'000'000);
    EXPECT_EQ(read.parts[1].count, 5'000'000'000'000);
    ASSERT_EQ(read.modules.size(), 2u);
    EXPECT_EQ(read.modules[0].stage, Stage::parts);
    EXPECT_EQ(read.modules[1].stage, Stage::merge);
    EXPECT_EQ(read.modules[1].reason, "sort needs all traces");
    ASSERT_EQ(read.spools.size(), 1u);
    EXPECT_EQ(read.spools[0].port, 1);
    ASSERT_EQ(read.inputs.size(), 1u);
    EXPECT_EQ(read.inputs[0].path, "/data/a.sgy");
    EXPECT_EQ(read.inputs[0].bytes, 123);
    EXPECT_EQ(read.inputs[0].modifiedSeconds, 1700000000);
    EXPECT_EQ(read.inputs[0].modifiedNanoseconds, 5);
    ASSERT_EQ(read.outputs.size(), 1u);
    EXPECT_EQ(read.outputs[0].target, "/out/.a.sgy.vorn-1");
    ASSERT_TRUE(read.order.has_value());
    EXPECT_EQ(read.order->source, 0);
    EXPECT_EQ(read.order->sorter, "sort");
    EXPECT_THAT(read.order->keys, ElementsAre("cdp", "-offset"));
    EXPECT_EQ(read.order->file, "/plan/order");
    EXPECT_EQ(stored.sha256.size(), 64u);

    Plan other = plan;
    other.traces += 0;
    other.settings.pop_back();
    writePlan(other, folder / "");
    EXPECT_NE(readPlan(folder / "").sha256, stored.sha256) << "receipts tell plans apart";
    EXPECT_THAT(std::vector<std::string>(
                    {fs::directory_iterator(fs::path(path()).parent_path())->path().filename()}),
                ElementsAre(planFileName))
        << "nothing else is left beside it";
}

TEST_F(PlanFileTest, ADirectoryWithoutAPlanIsNamed)
{
    EXPECT_THAT(refusal(), HasSubstr("has no plan.json, so that it is not a plan; name a directory "
                                     "that \"vorn plan\" has made"));
    try {
        readPlan(folder / "none");
        ADD_FAILURE() << "not refused";
    } catch (const CommandError& error) {
        EXPECT_THAT(error.what(), HasSubstr("none\" is not a directory"));
    }
}

TEST_F(PlanFileTest, APlanThatIsCutAnywhereIsRefused)
{
    writePlan(example(), folder / "");
    const std::string whole = readFile(path());
    for (std::size_t size = 0; size + 2 < whole.size(); ++size) {
        writeFile(path(), whole.substr(0, size));
        ASSERT_THAT(refusal(), AllOf(HasSubstr(path()), HasSubstr("damaged or cut"),
                                     HasSubstr("make a new one with \"vorn plan\"")))
            << size << " bytes";
    }
}

TEST_F(PlanFileTest, AByteThatHasChangedIsFound)
{
    writePlan(example(), folder / "");
    const std::string whole = readFile(path());
    const std::size_t begin = whole.find("\"plan\"");
    for (std::size_t place = begin; place < whole.size(); ++place) {
        std::string changed = whole;
        if (std::isalnum(static_cast<unsigned char>(changed[place])) == 0)
            continue; // blanks between values mean nothing
        changed[place] = changed[place] == '7' ? '8' : '7';
        writeFile(path(), changed);
        ASSERT_THAT(refusal(), HasSubstr("damaged")) << "byte " << place;
    }
}

TEST_F(PlanFileTest, AnotherFormatIsRefused)
{
    writePlan(example(), folder / "");
    replace("\"format_version\": 1", "\"format_version\": 2");
    EXPECT_THAT(refusal(), HasSubstr("has the format version 2, and this vorn reads version 1"));
    replace("vorn-plan", "vorn-part");
    EXPECT_THAT(refusal(), HasSubstr("is not a plan of vorn"));
}

TEST_F(PlanFileTest, PartsWithGapsAreRefused)
{
    Plan plan = example();
    plan.parts[1].first += 1;
    writePlan(plan, folder / "");
    EXPECT_THAT(refusal(), HasSubstr("is damaged"));
    plan = example();
    plan.spools[0].module = 2;
    writePlan(plan, folder / "");
    EXPECT_THAT(refusal(), HasSubstr("is damaged"));
}

TEST_F(PlanFileTest, APlanThatCannotBeWrittenMayBeTriedAgain)
{
    try {
        writePlan(example(), folder / "none");
        ADD_FAILURE() << "it was written";
    } catch (const CommandError& error) {
        EXPECT_EQ(error.code, exitTryAgain);
        EXPECT_THAT(error.what(), HasSubstr("plan.json\" cannot be written: No such file"));
    }
    Plan plan = example();
    plan.workingDirectory = "/\xff";
    try {
        writePlan(plan, folder / "");
        ADD_FAILURE() << "it was written";
    } catch (const CommandError& error) {
        EXPECT_EQ(error.code, exitWrongCall);
        EXPECT_THAT(error.what(), HasSubstr("is not UTF-8"));
    }
    EXPECT_FALSE(fs::exists(path()));
}

TEST_F(PlanFileTest, NothingHasChangedByItself)
{
    EXPECT_THAT(differences(example(), example()), ElementsAre());
}

TEST_F(PlanFileTest, EachChangeIsToldWithBothValues)
{
    const Plan plan = example();
    Plan now = plan;
    now.vornVersion = "2.0.0";
    now.vornHome = "/usr";
    now.jobSha256 = "11";
    now.cpuClass = "avx512";
    EXPECT_THAT(differences(plan, now),
                ElementsAre("the plan was made by vorn 1.2.3, and this is vorn 2.0.0",
                            "the modules were those in \"/opt/vorn\", and are those in \"/usr\"",
                            AllOf(HasSubstr("has changed: its SHA-256 was 00ff, and is 11")),
                            AllOf(HasSubstr("avx2 instructions, and this one has avx512"),
                                  HasSubstr("--portable"))));
    Plan portable = plan;
    portable.portable = true;
    now = portable;
    now.cpuClass = "sse2";
    EXPECT_THAT(differences(portable, now), ElementsAre());
}

TEST_F(PlanFileTest, InputsAreComparedBySizeAndTime)
{
    Plan plan;
    const std::string input = folder / "in.sgy";
    writeFile(input, "12345");
    plan.inputs = {{input, 0, 0, 0}};
    noteInputs(plan);
    EXPECT_EQ(plan.inputs[0].bytes, 5);
    Plan now = plan;
    noteInputs(now);
    EXPECT_THAT(differences(plan, now), ElementsAre());

    writeFile(input, "123456");
    noteInputs(now);
    EXPECT_THAT(differences(plan, now),
                ElementsAre(AllOf(HasSubstr("had 5 bytes, changed at "),
                                  HasSubstr(", and has 6 bytes, changed at "))));

    now = plan;
    now.inputs[0].modifiedNanoseconds ^= 1;
    EXPECT_EQ(differences(plan, now).size(), 1u);

    fs::remove(input);
    noteInputs(now);
    EXPECT_EQ(now.inputs[0].bytes, -1);
    EXPECT_THAT(differences(plan, now),
                ElementsAre(AllOf(HasSubstr("in.sgy\" is gone; it had 5 bytes"))));
}

TEST_F(PlanFileTest, TheClassOfThisMachineIsAWord)
{
    EXPECT_THAT(cpuClass(), ::testing::AnyOf("sse2", "avx", "avx2", "avx512", "neon", "scalar"));
}
