// What keeps parts from running or from being merged, and loses nothing.
#include "parts/PartsFixture.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

class PartsRefuseTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(tree.made.exitCode, 0) << tree.made.errors;
        ASSERT_EQ(tree.run({"plan", "job.yaml", "--parts", "3", "-o", "plan"}).exitCode, 0);
    }

    void expectRefused(const std::vector<std::string>& words, const std::string& text,
                       int exitCode = 2)
    {
        const ProcessResult run = tree.run(words);
        EXPECT_EQ(run.exitCode, exitCode);
        EXPECT_THAT(run.errors, HasSubstr(text));
        EXPECT_FALSE(tree.exists("out.sgy"));
        EXPECT_FALSE(tree.exists("out.su"));
    }

    void runParts() { ASSERT_EQ(tree.run({"part", "plan", "missing"}).exitCode, 0); }

    PartsTree tree;
};

} // namespace

TEST_F(PartsRefuseTest, PartsThatThePlanDoesNotHave)
{
    expectRefused({"part", "plan", "4"}, "there is no part 4: the plan has parts 1 to 3");
    expectRefused({"part", "plan", "0"}, "0");
    expectRefused({"part", "plan", "two"}, "two");
    expectRefused({"part", "plan", "1", "--jobs", "2"}, "--jobs");
}

TEST_F(PartsRefuseTest, DirectoriesWithoutAPlan)
{
    expectRefused({"part", "none", "1"}, "none");
    expectRefused({"merge", "."}, "plan.json");
    expectRefused({"plan", "job.yaml", "-o", "plan"}, "there is a plan in \"plan\" already");
    expectRefused({"plan", "job.yaml"}, "--output DIR");
}

TEST_F(PartsRefuseTest, AMergeBeforeAllPartsHaveEnded)
{
    ASSERT_EQ(tree.run({"part", "plan", "2"}).exitCode, 0);
    expectRefused({"merge", "plan"}, "2 of 3 parts have no receipt: 1,3");
}

TEST_F(PartsRefuseTest, AReceiptThatIsCutOrOfAnotherPlan)
{
    runParts();
    const std::string whole = tree.read("plan/part-2.json");
    tree.write("plan/part-2.json", whole.substr(0, whole.size() / 2));
    expectRefused({"merge", "plan"}, "part-2.json\" is damaged or cut; remove it and run its part");
    tree.write("plan/part-2.json", "{}");
    expectRefused({"merge", "plan"}, "part-2.json\"");
    ASSERT_EQ(
        tree.run({"plan", "job.yaml", "--parts", "3", "-o", "other", "--set", "line.file=x.sgy"})
            .exitCode,
        0);
    ASSERT_EQ(tree.run({"part", "other", "2"}).exitCode, 0);
    tree.write("plan/part-2.json", tree.read("other/part-2.json"));
    expectRefused({"merge", "plan"}, "part-2.json\" is of another plan");
}

TEST_F(PartsRefuseTest, StatesAndSpoolsThatAreCut)
{
    runParts();
    for (const char* name :
         {"plan/part-2.state/line", "plan/part-2.state/spectrum", "plan/part-2.spool-1"})
    {
        SCOPED_TRACE(name);
        const std::string whole = tree.read(name);
        for (const std::size_t kept :
             {std::size_t{0}, std::size_t{7}, whole.size() / 2, whole.size() - 1}) {
            SCOPED_TRACE(kept);
            tree.write(name, whole.substr(0, kept));
            const ProcessResult run = tree.run({"merge", "plan", "-q"});
            EXPECT_EQ(run.exitCode, 1) << run.errors;
            EXPECT_THAT(run.errors, HasSubstr("part-2."));
            EXPECT_FALSE(tree.exists("out.sgy"));
            EXPECT_FALSE(tree.exists("out.su"));
            // The merge has removed the file that was to become the output: plan and run again.
            fs::remove_all(tree.path("plan"));
            ASSERT_EQ(tree.run({"plan", "job.yaml", "--parts", "3", "-o", "plan"}).exitCode, 0);
            runParts();
        }
        tree.write(name, whole);
    }
}

TEST_F(PartsRefuseTest, AnInputOrJobThatHasChanged)
{
    runParts();
    std::ofstream(tree.path("line.sgy"), std::ios::app) << "x";
    expectRefused({"merge", "plan"}, "line.sgy");
    expectRefused({"part", "plan", "1"}, "line.sgy");
    fs::resize_file(tree.path("line.sgy"), fs::file_size(tree.path("line.sgy")) - 1);
    tree.write("job.yaml", PartsTree::jobText() + "# changed\n");
    expectRefused({"merge", "plan"}, "job.yaml");
}

TEST_F(PartsRefuseTest, ASecondMerge)
{
    runParts();
    EXPECT_EQ(tree.run({"merge", "plan", "-q"}).exitCode, 0);
    const std::string output = tree.read("out.sgy");
    const ProcessResult again = tree.run({"merge", "plan", "-q"});
    EXPECT_EQ(again.exitCode, 2);
    EXPECT_THAT(again.errors, HasSubstr("has been merged"));
    EXPECT_TRUE(tree.read("out.sgy") == output);
}

TEST_F(PartsRefuseTest, AJobsOptionThatIsNotANumber)
{
    expectRefused({"run", "job.yaml", "--jobs", "many"},
                  "expected a number from 1 to 1000, or auto");
    expectRefused({"run", "job.yaml", "--jobs", "0"}, "--jobs is \"0\"");
    expectRefused({"plan", "job.yaml", "-o", "p", "--parts", "0"}, "--parts is 0");
}

TEST_F(PartsRefuseTest, AnOutputThatMustNotBeReplaced)
{
    tree.write("out.sgy", "kept");
    const ProcessResult run =
        tree.run({"run", "job.yaml", "-q", "--jobs", "2", "--set", "line.overwrite=no"});
    EXPECT_NE(run.exitCode, 0);
    EXPECT_THAT(run.errors, HasSubstr("out.sgy"));
    EXPECT_EQ(tree.read("out.sgy"), "kept");
}
