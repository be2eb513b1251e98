// --report and --json of vorn run: which files are written, and which are refused.
#include "TestTree.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <unistd.h>

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

class RunReportTest : public ::testing::Test
{
protected:
    RunReportTest()
    {
        tree.write("job.yaml",
                   "modules:\n"
                   "  - {name: read, module: host_source, traces: 5}\n"
                   "  - {name: draw, module: host_section, input: read}\n"
                   "  - {name: write, module: host_sink, input: read, file: out.txt, like: "
                   "in.txt}\n");
        tree.write("in.txt", "input\n");
    }

    ProcessResult run(const std::vector<std::string>& words) const
    {
        std::vector<std::string> call = {"run", "job.yaml", "-q"};
        call.insert(call.end(), words.begin(), words.end());
        return tree.run(call);
    }

    // The call is refused with the text before anything has run.
    void expectRefusal(const std::vector<std::string>& words, const std::string& text)
    {
        const ProcessResult result = run(words);
        EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(words);
        EXPECT_EQ(result.errors, "vorn: " + text + "\n");
        EXPECT_FALSE(tree.exists("out.txt")) << "the job has run";
        EXPECT_EQ(tree.read("in.txt"), "input\n");
    }

    TestTree tree;
};

} // namespace

TEST_F(RunReportTest, APageIsWrittenUnderItsNameAndNothingElse)
{
    const ProcessResult result = run({"--report", "page.html", "--json", "facts.json"});

    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "facts.json\npage.html\n");
    EXPECT_THAT(tree.read("page.html"), HasSubstr("</html>\n"));
    EXPECT_THAT(tree.names(),
                ElementsAre("facts.json", "in.txt", "job.yaml", "out.txt", "page.html"));
}

TEST_F(RunReportTest, InADirectoryThePageHasTheJobsName)
{
    fs::create_directory(tree.path("there.html"));

    EXPECT_EQ(run({"--report", "there.html"}).output, "there.html/job-report.html\n");
    EXPECT_EQ(run({"--report", "new/deep"}).output, "new/deep/job-report.html\n");
    EXPECT_EQ(run({"--report", "other/"}).output, "other/job-report.html\n");
    EXPECT_THAT(tree.read("new/deep/job-report.html"), HasSubstr("first samples"));
}

TEST_F(RunReportTest, AJobWithErrorsHasAReport)
{
    tree.write("bad.yaml", "modules:\n"
                           "  - {name: read, module: host_source, traces: 5}\n"
                           "  - {name: pass, module: host_filter, input: read, fault: fatal}\n"
                           "  - {name: write, module: host_sink, input: pass, file: bad.txt}\n");

    const ProcessResult result = tree.run({"run", "bad.yaml", "-q", "--report", "bad.html"});

    EXPECT_EQ(result.exitCode, 1);
    const std::string page = tree.read("bad.html");
    EXPECT_THAT(page, HasSubstr(">ended with errors</span>"));
    EXPECT_THAT(page, HasSubstr("data-module=\"pass\" data-severity=\"fatal\" open"));
    EXPECT_THAT(page, HasSubstr("not written"));
}

TEST_F(RunReportTest, TheSumOfAnInputIsThatOfItsBytes)
{
    // "input\n", by sha256sum of GNU coreutils.
    run({"--report", "page.html"});
    EXPECT_THAT(tree.read("page.html"),
                HasSubstr("7d3f9b6284c6f36e77b425cac882e8fbbcc97a4727ec20790853076d0f463453"));
}

TEST_F(RunReportTest, WhatCannotBeWrittenIsRefusedBeforeTheJobRuns)
{
    expectRefusal({"--report", "no/page.html"}, "--report: there is no directory \"no\"");
    expectRefusal({"--json", "no/facts"}, "--json: there is no directory \"no\"");
    expectRefusal({"--report", "in.txt"}, "--report: the file \"in.txt\" is not a directory, and "
                                          "the name of a report must end with .html");
    expectRefusal({"--report", "in.txt/below"},
                  "--report: the directory \"in.txt/below\" cannot be made: Not a directory");
    fs::create_directory(tree.path("directory"));
    expectRefusal({"--json", "directory"},
                  "--json: \"directory\" is not a regular file; give the path of a file");
    expectRefusal({"--json", ""}, "--json: the name of a file is expected");
    expectRefusal({"--log", ""}, "--log: the name of a file is expected");
    expectRefusal({"--scratch", ""}, "--scratch: the name of a directory is expected");
    expectRefusal({"--report", ""},
                  "--report: a directory or a name that ends with .html is expected");
}

TEST_F(RunReportTest, ADirectoryWithoutPermissionIsRefused)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "everything is permitted to root";
    fs::create_directory(tree.path("locked"));
    fs::permissions(tree.path("locked"), fs::perms::owner_read | fs::perms::owner_exec);
    expectRefusal({"--json", "locked/facts"},
                  "--json: the directory \"locked\" cannot be written to");
}

TEST_F(RunReportTest, FilesOfTheJobAreNotReplaced)
{
    const std::string end = "; write to another file";
    expectRefusal({"--json", "./in.txt"},
                  "--json: the JSON file \"./in.txt\" would replace the input file \"" +
                      tree.path("in.txt") + "\" of module \"write\"" + end);
    expectRefusal({"--json", "out.txt"},
                  "--json: the JSON file \"out.txt\" would replace the output file \"" +
                      tree.path("out.txt") + "\" of module \"write\"" + end);
    expectRefusal({"--json", "job.yaml"},
                  "--json: the JSON file \"job.yaml\" would replace the job file \"" +
                      tree.path("job.yaml") + "\"" + end);
    expectRefusal({"--json", "x.log", "--log", "x.log"},
                  "--json: the JSON file \"x.log\" would replace the log \"x.log\"" + end);
    expectRefusal({"--json", "x.html", "--report", "x.html"},
                  "--json: the JSON file \"x.html\" would replace the report \"x.html\"" + end);
}

TEST_F(RunReportTest, OlderResultsAndEmptyFilesAreReplaced)
{
    tree.write("page.html", "\n<!DOCTYPE html>\nold\n");
    tree.write("facts.json", "\n {\"old\": 1}\n");
    tree.write("empty.log", "");

    EXPECT_EQ(run({"--report", "page.html", "--json", "facts.json", "--log", "empty.log"}).exitCode,
              0);

    EXPECT_THAT(tree.read("page.html"), HasSubstr("</html>\n"));
    EXPECT_THAT(tree.read("facts.json"), HasSubstr("\"vorn-run\""));
    EXPECT_THAT(tree.read("empty.log"), HasSubstr("traces in"));
}

// Names that were meant for another option, or another file.
TEST_F(RunReportTest, DataOfAnotherKindAreNotReplaced)
{
    const std::string data(4000, '\x40');
    const std::string seismic = data.substr(0, 3200) + std::string(400, '\0');
    for (const char* name : {"line.sgy", "line.html"})
        tree.write(name, seismic);
    tree.write("text.json", "[1, 2]\n");
    const std::string end = ", so it is not replaced; write to another file, or remove it first";

    expectRefusal({"--json", "line.sgy"},
                  "--json: the file \"line.sgy\" is there already and is not JSON" + end);
    expectRefusal({"--json", "text.json"},
                  "--json: the file \"text.json\" is there already and is not JSON" + end);
    expectRefusal({"--report", "line.html"},
                  "--report: the file \"line.html\" is there already and is not an HTML page" +
                      end);
    expectRefusal({"--log", "line.sgy"},
                  "--log: the file \"line.sgy\" is there already and is not text" + end);
    EXPECT_EQ(tree.read("line.sgy"), seismic);
    EXPECT_EQ(tree.read("line.html"), seismic);
    EXPECT_EQ(tree.read("text.json"), "[1, 2]\n");
}

TEST_F(RunReportTest, WriteProtectedFilesAreNotReplaced)
{
    const struct
    {
        std::string option;
        std::string name;
        std::string content;
    } rows[] = {{"--json", "facts", "{}\n"},
                {"--report", "page.html", "<p>\n"},
                {"--report", "job-report.html", "<p>\n"},
                {"--log", "run.log", "text\n"}};
    for (const auto& row : rows) {
        tree.write(row.name, row.content);
        fs::permissions(tree.path(row.name), fs::perms::owner_read | fs::perms::group_read);
        const bool inDirectory = row.name == "job-report.html";
        expectRefusal({row.option, inDirectory ? "." : row.name},
                      row.option + ": the file \"" + (inDirectory ? "./" : "") + row.name +
                          "\" is write-protected; write to another file, or give yourself "
                          "permission first (chmod u+w)");
        EXPECT_EQ(tree.read(row.name), row.content);
    }
}

TEST_F(RunReportTest, APictureThatCannotBeWrittenDoesNotCostTheReport)
{
    tree.write("first.png", "");
    fs::permissions(tree.path("first.png"), fs::perms::owner_read);

    const ProcessResult result = run({"--pictures", ".", "--json", "facts.json"});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.errors,
              "vorn: ./first.png: is write-protected; write to another file, or give "
              "yourself permission first (chmod u+w)\n");
    EXPECT_THAT(tree.read("facts.json"), HasSubstr("\"vorn-run\""));
    EXPECT_EQ(tree.read("first.png"), "");
}
