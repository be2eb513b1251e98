// vorn run --each: one job on many files, as processes, with what they leave behind.
#include "ProcessingTree.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <thread>

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;
using Json = nlohmann::json;

namespace {

class ManyFilesTest : public ::testing::Test
{
protected:
    ManyFilesTest()
    {
        tree.write("make.yaml",
                   "modules:\n"
                   "  - {name: make, module: synthetic, shots: 1, channels: 5, "
                   "samples: 100, dead: [2]}\n"
                   "  - {name: write, module: segy_out, input: make, file: one.sgy}\n");
        const ProcessResult made = tree.run({"run", "make.yaml", "-q"});
        EXPECT_EQ(made.exitCode, 0) << made.errors;
        fs::create_directory(tree.path("data"));
        for (const char* name : {"a1", "a2", "a10"})
            addFile(std::string("data/") + name + ".sgy");
        tree.write("job.yaml",
                   "modules:\n"
                   "  - {name: read, module: segy_in, file: line.sgy}\n"
                   "  - {name: check, module: trace_qc, input: read}\n"
                   "  - {name: write, module: segy_out, input: check, file: out.sgy}\n");
        tree.write("slow.yaml",
                   "modules:\n"
                   "  - {name: read, module: segy_in, file: line.sgy}\n"
                   "  - {name: see, module: trace_qc, input: read}\n"
                   "  - {name: slow, module: host_source, traces: 1000, pause: 2 s}\n"
                   "  - {name: write, module: host_sink, input: slow, file: out.txt}\n");
    }

    void addFile(const std::string& name) const
    {
        fs::copy_file(tree.path("one.sgy"), tree.path(name));
    }

    // Runs the job for all files, with more words.
    ProcessResult runEach(const std::vector<std::string>& more = {},
                          const std::string& pattern = "data/*.sgy") const
    {
        std::vector<std::string> words = {"run", "job.yaml", "--each", pattern, "--into", "out"};
        words.insert(words.end(), more.begin(), more.end());
        return tree.run(words);
    }

    Json index() const { return Json::parse(tree.read("out/index.json")); }

    Json entry(const std::string& folder) const
    {
        const Json all = index();
        for (const Json& one : all.at("files")) {
            if (one.at("folder") == folder)
                return one;
        }
        return {};
    }

    // The folders whose results were not kept.
    std::vector<std::string> ranFolders() const
    {
        std::vector<std::string> folders;
        const Json all = index();
        for (const Json& one : all.at("files")) {
            if (!one.at("measured").at("kept").get<bool>())
                folders.push_back(one.at("folder").get<std::string>());
        }
        return folders;
    }

    // Processes that have the path of the working directory among their words.
    std::vector<pid_t> processes() const
    {
        std::vector<pid_t> found;
        for (const auto& one : fs::directory_iterator("/proc")) {
            const std::string name = one.path().filename().string();
            if (name.find_first_not_of("0123456789") == std::string::npos &&
                readFile((one.path() / "cmdline").string()).find(tree.work()) != std::string::npos)
                found.push_back(std::stoi(name));
        }
        return found;
    }

    template <typename Condition>
    static bool waitFor(Condition condition)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return condition();
    }

    // Starts a job that would take an hour on the three files, two at a time, and waits until both
    // are writing.
    pid_t startSlow()
    {
        const pid_t process = tree.start(
            {"run", "slow.yaml", "--each", "data/*.sgy", "--into", "out", "--jobs", "2"});
        EXPECT_TRUE(waitFor([&] {
            return tree.exists("out/a1/out.txt.part") && tree.exists("out/a2/out.txt.part");
        }));
        return process;
    }

    ProcessingTree tree;
};

} // namespace

TEST_F(ManyFilesTest, EachFileHasAFolderWithItsResults)
{
    const ProcessResult result = runEach();

    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(tree.namesIn("out"), ElementsAre("a1", "a10", "a2", "index.html", "index.json"));
    EXPECT_THAT(tree.namesIn("out/a2"), ElementsAre("log.txt", "out.sgy", "pictures", "report.html",
                                                    "run.json", "vorn-file.json"));
    EXPECT_THAT(tree.namesIn("out/a2/pictures"), ElementsAre("check.png"));
    EXPECT_EQ(tree.read("out/a2/out.sgy").size(), tree.read("one.sgy").size());
    EXPECT_FALSE(tree.exists("out.sgy"));
    EXPECT_THAT(result.errors,
                HasSubstr("vorn: 3 files for read.file; results in " + tree.path("out") + "\n"));
    EXPECT_THAT(result.output,
                testing::MatchesRegex("3 files: 3 passed, 0 failed; 15 traces, 3 flagged, .*\n" +
                                      tree.path("out/index.html") + "\n"));
}

TEST_F(ManyFilesTest, TheIndexHasTheFactsOfEachFileInTheOrderOfTheirNumbers)
{
    ASSERT_EQ(runEach().exitCode, 0);

    const Json all = index();
    EXPECT_EQ(all.at("format"), "vorn-set");
    EXPECT_EQ(all.at("parameter"), "read.file");
    EXPECT_EQ(all.at("result").at("passed"), 3);
    EXPECT_EQ(all.at("result").at("failed"), 0);
    EXPECT_EQ(all.at("result").at("traces"), 15);
    EXPECT_EQ(all.at("result").at("flagged"), 3);
    EXPECT_EQ(all.at("result").at("flags").at("dead"), 3);
    EXPECT_EQ(all.at("result").at("running"), false);
    std::vector<std::string> folders;
    for (const Json& one : all.at("files"))
        folders.push_back(one.at("folder").get<std::string>());
    EXPECT_THAT(folders, ElementsAre("a1", "a2", "a10"));
    const Json one = entry("a10");
    EXPECT_EQ(one.at("path"), tree.path("data/a10.sgy"));
    EXPECT_EQ(one.at("verdict"), "passed");
    EXPECT_EQ(one.at("exit_code"), 0);
    EXPECT_EQ(one.at("traces"), 5);
    EXPECT_EQ(one.at("flagged"), 1);
    EXPECT_EQ(one.at("flags"), Json({{"dead", 1}}));
    EXPECT_EQ(one.at("pictures"), Json({"a10/pictures/check.png"}));
    EXPECT_EQ(one.at("report"), "a10/report.html");
    EXPECT_EQ(one.at("outputs"), Json({tree.path("out/a10/out.sgy")}));
}

TEST_F(ManyFilesTest, TheCommandOfAFileRunsItAgain)
{
    ASSERT_EQ(runEach().exitCode, 0);
    const std::string command = entry("a1").at("command").get<std::string>();
    fs::remove(tree.path("out/a1/out.sgy"));

    const ProcessResult again = tree.shell("vorn() { \"$VORN\" \"$@\"; }; " + command);

    EXPECT_EQ(again.exitCode, 0) << again.errors;
    EXPECT_TRUE(tree.exists("out/a1/out.sgy"));
}

TEST_F(ManyFilesTest, AFailedFileKeepsNoOtherFromBeingRun)
{
    tree.write("data/a2.sgy", "not a trace\n");

    const ProcessResult result = runEach();

    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(entry("a1").at("verdict"), "passed");
    EXPECT_EQ(entry("a10").at("verdict"), "passed");
    EXPECT_EQ(entry("a2").at("verdict"), "failed");
    EXPECT_EQ(entry("a2").at("exit_code"), 1);
    EXPECT_THAT(entry("a2").at("message").get<std::string>(),
                HasSubstr("read: " + tree.path("data/a2.sgy") + ": is not a SEG-Y file"));
    EXPECT_THAT(result.errors, HasSubstr("failed a2: read: "));
    EXPECT_THAT(result.errors, HasSubstr("vorn: 1 of 3 files failed\n"));
    EXPECT_FALSE(tree.exists("out/a2/out.sgy"));
    // The page begins with what failed.
    const std::string page = tree.read("out/index.html");
    const auto failed = page.find("<tr class=\"failed\">");
    ASSERT_NE(failed, std::string::npos);
    EXPECT_LT(failed, page.find("<tr class=\"passed"));
}

TEST_F(ManyFilesTest, AFileThatCannotBeReadIsAFailureOfItsOwn)
{
    fs::remove(tree.path("data/a1.sgy"));
    fs::create_symlink("nowhere", tree.path("data/a1.sgy"));

    EXPECT_EQ(runEach().exitCode, 1);

    EXPECT_EQ(entry("a1").at("verdict"), "failed");
    EXPECT_EQ(entry("a1").at("exit_code"), 2);
    EXPECT_THAT(entry("a1").at("message").get<std::string>(), HasSubstr("the file does not exist"));
    EXPECT_EQ(entry("a2").at("verdict"), "passed");
}

TEST_F(ManyFilesTest, ACrashIsToldWithItsModuleAndKeepsNoOtherFileFromBeingRun)
{
    tree.write("job.yaml", "modules:\n"
                           "  - {name: read, module: segy_in, file: line.sgy}\n"
                           "  - {name: pass, module: host_filter, input: read, fault: crash, "
                           "fault_at: 6}\n"
                           "  - {name: write, module: segy_out, input: pass, file: out.sgy}\n");
    tree.write("long.yaml",
               "modules:\n"
               "  - {name: make, module: synthetic, shots: 1, channels: 7}\n"
               "  - {name: write, module: segy_out, input: make, file: data/a2.sgy}\n");
    ASSERT_EQ(tree.run({"run", "long.yaml", "-q"}).exitCode, 0);

    EXPECT_EQ(runEach().exitCode, 1);

    EXPECT_EQ(entry("a2").at("exit_code"), 128 + SIGABRT);
    EXPECT_THAT(entry("a2").at("message").get<std::string>(),
                HasSubstr("module \"pass\" crashed in process_, trace 6 of its input (SIGABRT)"));
    EXPECT_EQ(entry("a1").at("verdict"), "passed");
    EXPECT_EQ(entry("a10").at("verdict"), "passed");
}

TEST_F(ManyFilesTest, TheTimeLimitIsThatOfEachFile)
{
    const ProcessResult result = tree.run(
        {"run", "slow.yaml", "--each", "data/a1*.sgy", "--into", "out", "--time-limit", "500 ms"});

    EXPECT_EQ(result.exitCode, 1);
    for (const char* folder : {"a1", "a10"})
        EXPECT_THAT(entry(folder).at("message").get<std::string>(),
                    HasSubstr("the time limit of 500.0 ms has passed"));
    EXPECT_FALSE(tree.exists("out/a1/out.txt"));
}

TEST_F(ManyFilesTest, AMistakeInTheJobIsToldOnceAndNothingIsMade)
{
    tree.write("job.yaml", "modules:\n"
                           "  - {name: read, module: segy_in, file: line.sgy}\n"
                           "  - {name: check, module: trace_qc, input: read, gathr: fldr}\n");

    const ProcessResult result = runEach();

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.errors, "vorn: job.yaml:3:50: module \"check\" has no parameter \"gathr\"; "
                             "did you mean \"gather\"?\n");
    EXPECT_FALSE(tree.exists("out"));
}

// ---- a second call ----

TEST_F(ManyFilesTest, ResumeRunsNothingWhereNothingHasChanged)
{
    ASSERT_EQ(runEach().exitCode, 0);
    const std::string report = tree.read("out/a1/report.html");

    const ProcessResult again = runEach({"--resume"});

    EXPECT_EQ(again.exitCode, 0);
    EXPECT_THAT(ranFolders(), IsEmpty());
    EXPECT_THAT(again.output, HasSubstr("3 files: 3 passed, 0 failed (3 kept from an earlier "
                                        "call); 15 traces, 3 flagged"));
    EXPECT_EQ(tree.read("out/a1/report.html"), report);
}

TEST_F(ManyFilesTest, WithoutResumeAllAreRunAgain)
{
    ASSERT_EQ(runEach().exitCode, 0);
    ASSERT_EQ(runEach().exitCode, 0);

    EXPECT_THAT(ranFolders(), ElementsAre("a1", "a2", "a10"));
    EXPECT_THAT(tree.namesIn("out"), ElementsAre("a1", "a10", "a2", "index.html", "index.json"));
}

TEST_F(ManyFilesTest, ResumeKeepsResultsWhereOnlyFormOrTimesHaveChanged)
{
    ASSERT_EQ(runEach().exitCode, 0);
    tree.write("job.yaml", "# a comment\n" + tree.read("job.yaml"));
    fs::last_write_time(tree.path("data/a1.sgy"), fs::file_time_type::clock::now());
    fs::create_directory(tree.path("scratch"));

    EXPECT_EQ(runEach({"--resume", "--jobs", "2", "--scratch", "scratch", "--scratch-traces", "20"})
                  .exitCode,
              0);

    EXPECT_THAT(ranFolders(), IsEmpty());
}

TEST_F(ManyFilesTest, ResumeRunsFilesThatAreNewOrHaveChanged)
{
    ASSERT_EQ(runEach().exitCode, 0);
    addFile("data/a3.sgy");
    std::string bytes = tree.read("data/a2.sgy");
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    tree.write("data/a2.sgy", bytes); // of the same size

    EXPECT_EQ(runEach({"--resume"}).exitCode, 0);

    EXPECT_THAT(ranFolders(), ElementsAre("a2", "a3"));
    EXPECT_EQ(entry("a2").at("measured").at("reason"), "the file has changed");
}

TEST_F(ManyFilesTest, ResumeRunsFilesWhoseResultsAreMissingOrChanged)
{
    ASSERT_EQ(runEach().exitCode, 0);
    fs::remove(tree.path("out/a1/out.sgy"));
    tree.write("out/a10/report.html", "<p>changed");

    EXPECT_EQ(runEach({"--resume"}).exitCode, 0);

    EXPECT_THAT(ranFolders(), ElementsAre("a1", "a10"));
    EXPECT_TRUE(tree.exists("out/a1/out.sgy"));
}

TEST_F(ManyFilesTest, ResumeRunsFailedFilesAgain)
{
    const std::string good = tree.read("data/a2.sgy");
    tree.write("data/a2.sgy", "not a trace\n");
    ASSERT_EQ(runEach().exitCode, 1);
    tree.write("data/a2.sgy", good);

    EXPECT_EQ(runEach({"--resume"}).exitCode, 0);

    EXPECT_THAT(ranFolders(), ElementsAre("a2"));
    EXPECT_EQ(entry("a2").at("message"), "");
}

TEST_F(ManyFilesTest, ResumeRunsAllWhereTheJobAModuleOrAnOptionHasChanged)
{
    struct Change
    {
        const char* reason;
        std::vector<std::string> options;
        std::string appended; ///< to the manifest of trace_qc
    };
    const std::vector<Change> changes = {
        {"the job has changed", {"--set", "check.gather=cdp"}, ""},
        {"an option has changed", {"--set", "check.gather=cdp", "--format", "svg"}, ""},
        {"a module has changed", {"--set", "check.gather=cdp", "--format", "svg"}, "\n# changed\n"},
    };
    ASSERT_EQ(runEach().exitCode, 0);
    for (const Change& change : changes) {
        const std::string manifest = tree.home() + "/lib/trace_qc.yaml";
        writeFile(manifest, readFile(manifest) + change.appended);
        std::vector<std::string> words = {"--resume"};
        words.insert(words.end(), change.options.begin(), change.options.end());

        EXPECT_EQ(runEach(words).exitCode, 0) << change.reason;

        EXPECT_THAT(ranFolders(), ElementsAre("a1", "a2", "a10")) << change.reason;
        EXPECT_EQ(entry("a1").at("measured").at("reason"), change.reason);
    }
}

TEST_F(ManyFilesTest, WhatAnEarlierRunHasReportedDoesNotStayBesideAFailure)
{
    ASSERT_EQ(runEach().exitCode, 0);
    tree.write("data/a2.sgy", "not a trace\n");

    ASSERT_EQ(runEach({"--set", "check.gathr=fldr"}).exitCode, 2);
    EXPECT_TRUE(tree.exists("out/a2/report.html")) << "nothing was run";
    ASSERT_EQ(runEach({"--time-limit", "1 ms"}).exitCode, 1);

    EXPECT_FALSE(tree.exists("out/a2/report.html"));
    EXPECT_FALSE(tree.exists("out/a2/pictures/check.png"));
    EXPECT_EQ(entry("a2").at("report"), "");
}

// ---- ends ----

TEST_F(ManyFilesTest, CtrlCStopsTheRunsAndWritesTheIndex)
{
    const pid_t process = startSlow();
    EXPECT_FALSE(tree.exists("out/a10")) << "two at a time";
    kill(process, SIGINT);
    const ProcessResult result = tree.finish(process);

    EXPECT_EQ(result.exitCode, 130);
    EXPECT_THAT(processes(), IsEmpty());
    EXPECT_EQ(index().at("result").at("interrupted"), true);
    EXPECT_EQ(index().at("result").at("not_run"), 3);
    EXPECT_EQ(entry("a1").at("message"), "interrupted");
    EXPECT_EQ(entry("a10").at("message"), "");
    EXPECT_THAT(result.errors, HasSubstr("vorn: interrupted; 0 of 3 files are done; the same call "
                                         "with --resume runs the others\n"));
    EXPECT_THAT(tree.read("out/a1/log.txt"), HasSubstr("vorn: interrupted; "));
    EXPECT_THAT(tree.read("out/index.html"), HasSubstr("interrupted"));
}

TEST_F(ManyFilesTest, FilesThatWereInterruptedAreRunByResume)
{
    const pid_t process = startSlow();
    kill(process, SIGTERM);
    EXPECT_EQ(tree.finish(process).exitCode, 128 + SIGTERM);

    const ProcessResult result =
        tree.run({"run", "slow.yaml", "--each", "data/*.sgy", "--into", "out", "--resume", "--set",
                  "slow.pause=0 s", "--set", "slow.traces=3"});

    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(ranFolders(), ElementsAre("a1", "a2", "a10"));
    EXPECT_TRUE(tree.exists("out/a1/out.txt"));
}

TEST_F(ManyFilesTest, NoRunOutlivesAKilledCommand)
{
    const pid_t process = startSlow();
    EXPECT_GE(processes().size(), 2u);
    kill(process, SIGKILL);
    tree.finish(process);

    EXPECT_TRUE(waitFor([&] { return processes().empty(); }));
    EXPECT_FALSE(tree.exists("out/a1/out.txt"));
}

TEST_F(ManyFilesTest, TwoCallsDoNotWorkInOneDirectory)
{
    const pid_t process = startSlow();

    const ProcessResult second = runEach();
    kill(process, SIGINT);
    tree.finish(process);

    EXPECT_EQ(second.exitCode, 2);
    EXPECT_EQ(second.errors, "vorn: --into: another call of vorn works in \"" + tree.path("out") +
                                 "\"; wait for its end, or give another directory\n");
}

// ---- where files go ----

TEST_F(ManyFilesTest, OutputsThatTwoFilesWouldWriteAreRefused)
{
    for (const std::string& name : {tree.path("all.sgy"), std::string("../all.sgy")}) {
        const ProcessResult result = runEach({"--set", "write.file=" + name});

        EXPECT_EQ(result.exitCode, 2);
        EXPECT_THAT(result.errors, HasSubstr("which the runs of \"" + tree.path("data/a1.sgy") +
                                             "\" and \"" + tree.path("data/a2.sgy") +
                                             "\" would both write; give a relative name"));
        EXPECT_FALSE(tree.exists("out"));
    }
}

TEST_F(ManyFilesTest, ThePlaceholderMakesNamesDiffer)
{
    const std::string absolute = "write.file=" + tree.path("$file-checked.sgy");
    ASSERT_EQ(runEach({"--set", absolute}).exitCode, 0);
    EXPECT_THAT(tree.names(), Contains("a1-checked.sgy"));
    EXPECT_THAT(tree.names(), Contains("a10-checked.sgy"));

    ASSERT_EQ(runEach({"--set", "write.file=kept/$file.sgy"}).exitCode, 0);
    EXPECT_TRUE(tree.exists("out/a2/kept/a2.sgy"));
}

TEST_F(ManyFilesTest, OutputsThatReplaceInputsOrReportsAreRefused)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {tree.path("data/$file.sgy"), "which parameter \"file\" of module \"read\" reads"},
        {tree.path("data/a10.sgy"), "which is one of the files to be read"},
        {"report.html", "which is the name of report, log or record of a run"},
        {"../index.html", "which is the name of index of all files"},
        {"/dev/stdout", "which is not a file of its own for each input"},
    };
    for (const auto& [name, problem] : cases) {
        const ProcessResult result = runEach({"--set", "write.file=" + name});
        EXPECT_EQ(result.exitCode, 2) << name;
        EXPECT_THAT(result.errors, HasSubstr(problem)) << name;
    }
    EXPECT_EQ(tree.read("data/a1.sgy"), tree.read("one.sgy"));
    EXPECT_EQ(runEach({"--set", "write.file=/dev/null"}).exitCode, 0);
}

TEST_F(ManyFilesTest, ResultsOfAnEarlierCallAreNotInputs)
{
    ASSERT_EQ(runEach({}, "data/*.sgy").exitCode, 0);

    const ProcessResult result = tree.run(
        {"run", "job.yaml", "--each", "*/*.sgy", "--each", "out/*/*.sgy", "--into", "other"});

    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.errors, HasSubstr("vorn: 3 files for read.file"));
    EXPECT_THAT(result.errors,
                HasSubstr("vorn: 3 files left out: in a folder of results of an earlier call\n"));
}

TEST_F(ManyFilesTest, FilesOfOneNameHaveTwoFoldersAndKeepThem)
{
    fs::create_directory(tree.path("more"));
    addFile("more/a1.sgy");

    const ProcessResult first = runEach({"--each", "more/*.sgy"});
    EXPECT_EQ(first.exitCode, 0);
    EXPECT_THAT(first.errors,
                HasSubstr("vorn: the results of \"" + tree.path("more/a1.sgy") +
                          "\" are in the folder \"a1-2\", since \"a1\" is that of another "
                          "file\n"));
    EXPECT_EQ(entry("a1-2").at("path"), tree.path("more/a1.sgy"));

    // Alone, it is where it was.
    ASSERT_EQ(runEach({"--resume"}, "more/*.sgy").exitCode, 0);
    EXPECT_EQ(index().at("files").at(0).at("folder"), "a1-2");
    EXPECT_THAT(ranFolders(), IsEmpty());
}

TEST_F(ManyFilesTest, AFolderOfSomethingElseIsLeftAlone)
{
    fs::create_directories(tree.path("out/a1"));
    tree.write("out/a1/report.html", "mine");

    ASSERT_EQ(runEach().exitCode, 0);

    EXPECT_EQ(tree.read("out/a1/report.html"), "mine");
    EXPECT_EQ(entry("a1-2").at("path"), tree.path("data/a1.sgy"));
}

TEST_F(ManyFilesTest, APageOfSomebodyElseIsNotReplaced)
{
    fs::create_directory(tree.path("out"));
    tree.write("out/index.html", "<p>mine");

    const ProcessResult result = runEach();

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.errors, HasSubstr("is not the index of an earlier call"));
    EXPECT_EQ(tree.read("out/index.html"), "<p>mine");
}

TEST_F(ManyFilesTest, NamesOfAnyBytesAreHarmless)
{
    const std::string hostile = "it's <b>\"&\" $(touch hit) ;";
    for (const std::string& name :
         {hostile, std::string("-rf"), std::string(".hidden"), std::string("Gr\xc3\xb6\xc3\x9f"),
          std::string("bad\xff"), std::string("tab\t")})
        fs::copy_file(tree.path("one.sgy"), tree.path("more-" + name + ".sgy"));
    fs::rename(tree.path("more--rf.sgy"), tree.path("-rf.sgy"));

    const ProcessResult result =
        tree.run({"run", "job.yaml", "--each", "more-*.sgy", "--each", "-*.sgy", "--into", "out"});

    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(tree.namesIn("out"),
                UnorderedElementsAre("_rf", "index.html", "index.json", "more-.hidden",
                                     "more-Gr\xc3\xb6\xc3\x9f", "more-bad_",
                                     "more-it_s__b_______touch_hit___", "more-tab_"));
    const std::string page = tree.read("out/index.html");
    EXPECT_THAT(page, HasSubstr("more-it&#39;s &lt;b&gt;&quot;&amp;&quot; $(touch hit) ;.sgy"));
    EXPECT_THAT(page, HasSubstr("href=\"more-Gr%C3%B6%C3%9F/report.html\""));
    EXPECT_THAT(page, Not(HasSubstr("<b>")));
    EXPECT_THAT(page, HasSubstr("more-bad\\xff.sgy"));
    // Its command is one for a shell, too.
    const std::string command =
        entry("more-it_s__b_______touch_hit___").at("command").get<std::string>();
    fs::remove(tree.path("out/more-it_s__b_______touch_hit___/out.sgy"));
    EXPECT_EQ(tree.shell("vorn() { \"$VORN\" \"$@\"; }; " + command).exitCode, 0);
    EXPECT_TRUE(tree.exists("out/more-it_s__b_______touch_hit___/out.sgy"));
    EXPECT_FALSE(tree.exists("hit"));
}

TEST_F(ManyFilesTest, ALineFeedInANameIsAFailureWhereNamesAreLists)
{
    addFile("data/a\nb.sgy");

    EXPECT_EQ(runEach().exitCode, 1);

    EXPECT_THAT(entry("a_b").at("message").get<std::string>(), HasSubstr("has a line feed"));
    EXPECT_EQ(entry("a1").at("verdict"), "passed");
}

// ---- calls ----

TEST_F(ManyFilesTest, OneOfSeveralReadersIsNamed)
{
    tree.write("job.yaml", "modules:\n"
                           "  - {name: read, module: segy_in, file: one.sgy}\n"
                           "  - {name: base, module: segy_in, file: one.sgy}\n"
                           "  - {name: check, module: trace_qc, input: read}\n"
                           "  - {name: write, module: segy_out, input: base, file: out.sgy}\n");

    EXPECT_THAT(runEach().errors,
                HasSubstr("vorn: --each: the job reads 2 files, read.file, base.file; say which "
                          "one is to be replaced, as in --each read=PATTERN\n"));
    EXPECT_EQ(runEach({}, "base=data/*.sgy").exitCode, 0);
    EXPECT_EQ(index().at("parameter"), "base.file");
    EXPECT_EQ(runEach({}, "read.file=data/*.sgy").exitCode, 0);
    EXPECT_EQ(index().at("parameter"), "read.file");
    EXPECT_THAT(
        runEach({}, "raed=data/*.sgy").errors,
        HasSubstr("vorn: --each: the job has no module \"raed\"; did you mean \"read\"?\n"));
    EXPECT_THAT(runEach({}, "read.interval=data/*.sgy").errors,
                HasSubstr("parameter \"interval\" of module \"read\" is float; expected one that "
                          "names an input file\n"));
}

TEST_F(ManyFilesTest, TheOtherInputsCountForResume)
{
    tree.write("job.yaml", "modules:\n"
                           "  - {name: read, module: segy_in, file: line.sgy}\n"
                           "  - {name: write, module: host_sink, input: read, file: out.txt, "
                           "like: table.txt}\n");
    tree.write("table.txt", "1\n");
    ASSERT_EQ(runEach().exitCode, 0);
    tree.write("table.txt", "2 3\n");

    ASSERT_EQ(runEach({"--resume"}).exitCode, 0);

    EXPECT_THAT(ranFolders(), ElementsAre("a1", "a2", "a10"));
    EXPECT_EQ(entry("a1").at("measured").at("reason"),
              "the input \"" + tree.path("table.txt") + "\" has changed");
}

TEST_F(ManyFilesTest, WrongCallsSayWhatIsExpected)
{
    struct Call
    {
        std::vector<std::string> words;
        std::string error;
    };
    const std::vector<Call> calls = {
        {{"--each", "nothing/*.sgy"}, "--each: no file matches the pattern \"nothing/*.sgy\""},
        {{"--each", "data/a9.sgy"}, "--each: the file \"data/a9.sgy\" does not exist"},
        {{"--each", "data"},
         "--each: \"data\" is a directory; give a pattern of the files in it, "
         "as \"data/*.sgy\""},
        {{"--each", ""}, "--each: a pattern of file names is expected, as 'data/*.sgy'"},
        {{"--each", "data/a1.sgy", "data/a2.sgy"},
         "run: \"data/a2.sgy\" is one argument too many; put the pattern of --each in quotes, as "
         "in --each 'data/*.sgy' (see \"vorn run --help\")"},
        {{"--each", "data/*.sgy", "--jobs", "0"},
         "--jobs is \"0\"; expected a number from 1 to 1000, or auto"},
        {{"--each", "data/*.sgy", "--report", "r.html"},
         "--report: with --each, every file has its own in its folder; --into names the directory "
         "of all folders"},
        {{"--each", "data/*.sgy", "--into", ""}, "--into: the name of a directory is expected"},
        {{"--resume"}, "--resume: this is for runs of many files; give their pattern with --each"},
        {{"--into", "x"}, "--into: this is for runs of many files; give their pattern with --each"},
    };
    for (const Call& call : calls) {
        std::vector<std::string> words = {"run", "job.yaml"};
        words.insert(words.end(), call.words.begin(), call.words.end());
        const ProcessResult result = tree.run(words);
        EXPECT_EQ(result.exitCode, 2) << call.error;
        EXPECT_EQ(result.errors, "vorn: " + call.error + "\n");
    }
    EXPECT_FALSE(tree.exists("job-files"));
}

TEST_F(ManyFilesTest, TheJsonFileOfTheCallIsThatOfAllFiles)
{
    const ProcessResult result = runEach({"--json", "/dev/stdout"});

    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(Json::parse(result.output), index());
    EXPECT_THAT(result.errors, HasSubstr("3 files: 3 passed"));
}

TEST_F(ManyFilesTest, QuietTellsFailuresOnly)
{
    tree.write("data/a2.sgy", "not a trace\n");

    const ProcessResult result = runEach({"-q"});

    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, testing::StartsWith("[2/3] failed a2: read: "));
    EXPECT_THAT(result.errors, Not(HasSubstr("a10")));
}

TEST_F(ManyFilesTest, TheDefaultDirectoryIsNamedAfterTheJob)
{
    EXPECT_EQ(tree.run({"run", "job.yaml", "-q", "--each", "data/a1.sgy"}).exitCode, 0);
    EXPECT_TRUE(tree.exists("job-files/a1/out.sgy"));
    EXPECT_TRUE(tree.exists("job-files/index.html"));
}
