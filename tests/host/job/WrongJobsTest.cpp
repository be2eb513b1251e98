// Job files that are wrong. In tests/host/wrong_jobs, each has one line with the comment
// "# wrong: CAUSE": there the error has to be, and its text has to contain CAUSE.
#include "ProcessingTree.h"
#include "job/JobCheck.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <sstream>

using namespace host;
using ::testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

const char* const mark = "# wrong: ";

struct WrongJob
{
    std::string name;
    std::string text;
    int line = 0; // from 1
    std::string cause;
};

WrongJob readWrongJob(const fs::path& path)
{
    WrongJob job{path.parent_path().filename().string() + "/" + path.stem().string(),
                 readFile(path.string()), 0, ""};
    std::istringstream lines(job.text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        const std::size_t found = line.find(mark);
        if (found == std::string::npos)
            continue;
        job.line = number;
        job.cause = line.substr(found + std::string(mark).size());
    }
    return job;
}

std::vector<WrongJob> wrongJobs()
{
    std::vector<WrongJob> jobs;
    for (const auto& entry :
         fs::recursive_directory_iterator(VORN_TEST_SOURCE_DIR "/host/wrong_jobs")) {
        if (entry.path().extension() == ".yaml")
            jobs.push_back(readWrongJob(entry.path()));
    }
    std::sort(jobs.begin(), jobs.end(),
              [](const WrongJob& a, const WrongJob& b) { return a.name < b.name; });
    return jobs;
}

void writeTables(const TestTree& tree)
{
    tree.write("shifts.csv", "fldr,shift\n1,4\n2,8\n");
    tree.write("words.csv", "fldr,shift\n1,4\n2,late\n");
    tree.write("repeated.csv", "fldr,shift\n1,4\n1,8\n");
    tree.write("ragged.csv", "fldr,shift\n1,4\n2\n");
    tree.write("velocities.csv", "time,velocity\n0.1,2000\n");
}

// Without what manifests say of rules and formulas, the check passes such jobs on to the modules.
void forgetRules(const std::string& home)
{
    for (const auto& entry : fs::directory_iterator(home + "/lib")) {
        if (entry.path().extension() != ".yaml" || !fs::is_regular_file(entry.path()))
            continue;
        std::istringstream lines(readFile(entry.path().string()));
        std::string rest;
        std::string line;
        bool inRules = false;
        while (std::getline(lines, line)) {
            inRules = line == "rules:" || (inRules && line.starts_with(" "));
            // What runs in parts takes its range by a parameter with a form.
            const bool isForm = line.starts_with("    is: ") || line.starts_with("    besides: ") ||
                                line.starts_with("parallel: ");
            if (!inRules && !isForm)
                rest += line + "\n";
        }
        writeFile(entry.path().string(), rest);
    }
}

class WrongJobsTest : public KernelFixture
{
protected:
    WrongJobsTest() { writeTables(tree); }

    const ProcessingTree tree;
};

} // namespace

TEST_F(WrongJobsTest, EachErrorStandsAtItsLineWithItsCause)
{
    const ModuleCatalog catalog(tree.home());
    const std::vector<WrongJob> jobs = wrongJobs();
    ASSERT_GE(jobs.size(), 40u);

    for (const WrongJob& job : jobs) {
        SCOPED_TRACE(job.name);
        const std::string path = tree.path("job.yaml");
        writeFile(path, job.text);
        Diagnostics diagnostics;
        const std::optional<JobFile> file = readJobFile(path, diagnostics);
        if (file)
            checkJob(*file, catalog, diagnostics);

        ASSERT_EQ(diagnostics.errors(), 1) << diagnostics.sorted().front().line();
        for (const Diagnostic& one : diagnostics.sorted()) {
            if (one.isWarning)
                continue;
            EXPECT_EQ(one.place.line, job.line) << one.line();
            EXPECT_THAT(one.line(), HasSubstr(job.cause));
        }
    }
}

// What the check refuses by a rule is what the modules refuse: no rule is stricter than the module,
// and the check finds what the run would have ended with.
TEST_F(WrongJobsTest, ModulesRefuseThemWithoutTheCheck)
{
    forgetRules(tree.home());

    for (const WrongJob& job : wrongJobs()) {
        SCOPED_TRACE(job.name);
        tree.write("job.yaml", job.text);
        const ProcessResult run = tree.run({"run", "job.yaml", "--quiet"});

        EXPECT_NE(run.exitCode, 0);
        EXPECT_FALSE(tree.exists("out.su")) << "nothing is written by a job that failed";
        if (!job.name.starts_with("values/")) { // which depend on no rule
            EXPECT_THAT(run.errors, HasSubstr(" work ")) << "the module has not refused it";
            EXPECT_EQ(tree.run({"check", "job.yaml"}).exitCode, 0) << "the check has refused it";
        }
    }
}

TEST_F(WrongJobsTest, WhatRulesAllowPasses)
{
    const ModuleCatalog catalog(tree.home());
    const std::string head = "modules:\n"
                             "  - {name: read, module: synthetic}\n";
    for (const char* lines :
         {"  - {name: a, module: header_math, input: read, set: [\"half = offset / 2\"]}\n"
          "  - {name: b, module: sort, input: a, keys: [half]}\n",
          "  - {name: b, module: header_math, input: read, table: shifts.csv,"
          " set: [tstat = table.shift]}\n",
          "  - {name: b, module: kill, input: read, where: \"count(fldr) > 3 && trace < 100\"}\n",
          "  - {name: b, module: mute, input: read, mode: surgical, offsets: [1, 2],"
          " times: [1, 1], end_times: [1, 2]}\n",
          "  - {name: b, module: nmo, input: read, times: [1, 2, 1], velocities: [2, 3, 4],"
          " locations: [7, 7, 9]}\n",
          "  - {name: b, module: nmo, input: read, table: velocities.csv}\n",
          "  - {name: b, module: trace_qc, input: read, gather: none}\n",
          "  - {name: b, module: spectrum, input: read, fmin: 10 Hz, word: offset, last: 9}\n"})
    {
        SCOPED_TRACE(lines);
        const std::string path = tree.path("job.yaml");
        writeFile(path, head + lines + "  - {name: c, module: su_out, input: b, file: out.su}\n");
        Diagnostics diagnostics;
        checkJob(*readJobFile(path, diagnostics), catalog, diagnostics);

        EXPECT_FALSE(diagnostics.hasErrors()) << diagnostics.sorted().front().line();
    }
}
