// What the command never replaces, whatever asks for it, and outputs that are not files.
#include "ProcessingTree.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

class OutputRuleTest : public ::testing::Test
{
protected:
    OutputRuleTest()
    {
        tree.write("make.yaml",
                   "modules:\n"
                   "  - {name: make, module: synthetic, shots: 1, channels: 5, samples: 100}\n"
                   "  - {name: write, module: segy_out, input: make, file: in.sgy}\n");
        const ProcessResult made = tree.run({"run", "make.yaml", "-q"});
        EXPECT_EQ(made.exitCode, 0) << made.errors;
        tree.write("job.yaml", "modules:\n"
                               "  - {name: read, module: segy_in, file: in.sgy}\n"
                               "  - {name: draw, module: section, input: read}\n"
                               "  - {name: write, module: segy_out, input: read, file: out.sgy}\n");
        input = tree.read("in.sgy");
        job = tree.read("job.yaml");
    }

    // Inputs are as they were, and the directory has the entries that it had.
    void expectNothingChanged(const std::vector<std::string>& before)
    {
        EXPECT_EQ(tree.names(), before);
        EXPECT_TRUE(tree.read("in.sgy") == input);
        EXPECT_EQ(tree.read("job.yaml"), job);
    }

    // "name" under two more names: "soft-name" and "hard-name".
    void linkTo(const std::string& name, const std::string& ending = "") const
    {
        ASSERT_EQ(symlink(name.c_str(), tree.path("soft-" + name + ending).c_str()), 0);
        ASSERT_EQ(link(tree.path(name).c_str(), tree.path("hard-" + name + ending).c_str()), 0);
    }

    std::string named(const std::string& name) const { return "\"" + tree.path(name) + "\""; }

    ProcessingTree tree;
    std::string input;
    std::string job;
};

} // namespace

TEST_F(OutputRuleTest, NoOptionReplacesAFileOfTheJob)
{
    linkTo("job.yaml", ".dot");
    linkTo("in.sgy", ".png");
    const std::vector<std::string> before = tree.names();
    const std::string theInput = "the input file " + named("in.sgy") + " of module \"read\"";
    const std::string theJob = "the job file " + named("job.yaml");
    const std::string end = "; write to another file\n";
    const std::string manifest = tree.home() + "/lib/section.yaml";
    const std::string library = tree.home() + "/lib/libsegy_in.so";
    const struct
    {
        std::vector<std::string> call;
        std::string text;
    } rows[] = {
        {{"graph", "job.yaml", "-o", "soft-job.yaml.dot"},
         "-o: the picture \"soft-job.yaml.dot\" would replace " + theJob},
        {{"graph", "job.yaml", "-o", "hard-job.yaml.dot"},
         "-o: the picture \"hard-job.yaml.dot\" would replace " + theJob},
        {{"graph", "job.yaml", "-o", "soft-in.sgy.png"},
         "-o: the picture \"soft-in.sgy.png\" would replace " + theInput},
        {{"plot", "in.sgy", "-o", "hard-in.sgy.png"},
         "-o: the picture \"hard-in.sgy.png\" would replace the input file \"in.sgy\""},
        {{"run", "job.yaml", "--json", "soft-in.sgy.png"},
         "--json: the JSON file \"soft-in.sgy.png\" would replace " + theInput},
        {{"run", "job.yaml", "--log", "hard-job.yaml.dot"},
         "--log: the log \"hard-job.yaml.dot\" would replace " + theJob},
        {{"run", "job.yaml", "--log", manifest},
         "--log: the log \"" + manifest + "\" would replace the manifest \"" + manifest +
             "\" of module \"draw\""},
        {{"run", "job.yaml", "--json", library},
         "--json: the JSON file \"" + library + "\" would replace the library \"" +
             fs::canonical(library).string() + "\" of module \"read\""},
        {{"run", "job.yaml", "--log", "a.json", "--json", "a.json"},
         "--json: the JSON file \"a.json\" would replace the log \"a.json\""},
    };
    for (const auto& row : rows) {
        const ProcessResult result = tree.run(row.call);
        EXPECT_EQ(result.exitCode, 2) << row.text;
        EXPECT_EQ(result.errors, "vorn: " + row.text + end);
        expectNothingChanged(before);
    }
}

TEST_F(OutputRuleTest, NoModuleReplacesAFileOfTheJob)
{
    linkTo("job.yaml");
    const std::string manifest = tree.home() + "/lib/section.yaml";
    const std::string manifestText = readFile(manifest);
    const std::vector<std::string> before = tree.names();
    for (const std::string module : {"segy_out", "su_out"}) {
        tree.write("job.yaml", std::string(job).replace(job.find("segy_out"), 8, module));
        const std::string text = tree.read("job.yaml");
        for (const std::string name : {"job.yaml", "soft-job.yaml", "hard-job.yaml"}) {
            const ProcessResult result =
                tree.run({"run", "job.yaml", "--set", "write.file=" + name});
            EXPECT_EQ(result.exitCode, 2) << name;
            EXPECT_EQ(result.errors, "vorn: --set write.file=" + name +
                                         ": parameter \"file\" of module \"write\" is " +
                                         named(name) + "; it would replace the job file " +
                                         named("job.yaml") + "; write to another file\n");
            EXPECT_EQ(tree.read("job.yaml"), text);
        }
        const ProcessResult result =
            tree.run({"check", "job.yaml", "--set", "write.file=" + manifest});
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_THAT(result.errors, HasSubstr("it would replace the manifest \"" + manifest +
                                             "\" of module \"draw\"; write to another file"));
        EXPECT_EQ(readFile(manifest), manifestText);
    }
    EXPECT_EQ(tree.names(), before);
}

TEST_F(OutputRuleTest, TwoOutputsNeverShareAFile)
{
    fs::create_directory(tree.path("folder"));
    ASSERT_EQ(symlink("folder", tree.path("same").c_str()), 0);
    tree.write("a.sgy", "former");
    ASSERT_EQ(link(tree.path("a.sgy").c_str(), tree.path("b.sgy").c_str()), 0);
    tree.write("two.yaml", "modules:\n"
                           "  - {name: read, module: segy_in, file: in.sgy}\n"
                           "  - {name: one, module: segy_out, input: read, file: folder/x.sgy}\n"
                           "  - {name: two, module: su_out, input: read, file: same/x.sgy}\n");
    const ProcessResult soft = tree.run({"run", "two.yaml"});
    const ProcessResult hard =
        tree.run({"run", "two.yaml", "--set", "one.file=a.sgy", "--set", "two.file=b.sgy"});

    for (const ProcessResult& result : {soft, hard}) {
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_THAT(
            result.errors,
            HasSubstr("which parameter \"file\" of module \"one\" writes too; give them two "
                      "names"));
    }
    EXPECT_TRUE(fs::is_empty(tree.path("folder")));
    EXPECT_EQ(tree.read("a.sgy"), "former");
}

// Their names are known only when the job has run.
TEST_F(OutputRuleTest, PicturesReplaceNoFileOfTheJob)
{
    fs::create_directory(tree.path("p"));
    const std::string picture = tree.path("p/draw.png");
    const std::vector<std::string> call = {"run", "job.yaml", "-q", "--pictures", "p"};
    const auto expectRefusal = [&](const std::string& role) {
        const ProcessResult result = tree.run(call);
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_EQ(result.errors, "vorn: p/draw.png: the picture would replace " + role +
                                     "; write to another file\n");
        EXPECT_TRUE(tree.read("in.sgy") == input);
        EXPECT_EQ(tree.read("job.yaml"), job);
        fs::remove(picture);
    };
    ASSERT_EQ(link(tree.path("in.sgy").c_str(), picture.c_str()), 0);
    expectRefusal("the input file " + named("in.sgy") + " of module \"read\"");
    ASSERT_EQ(symlink("../in.sgy", picture.c_str()), 0);
    expectRefusal("the input file " + named("in.sgy") + " of module \"read\"");
    ASSERT_EQ(symlink("../job.yaml", picture.c_str()), 0);
    expectRefusal("the job file " + named("job.yaml"));
    ASSERT_EQ(symlink("../out.sgy", picture.c_str()), 0);
    expectRefusal("the output file " + named("out.sgy") + " of module \"write\"");
    EXPECT_TRUE(tree.read("out.sgy") == input) << "the job itself has done its work";

    EXPECT_EQ(tree.run(call).exitCode, 0);
    EXPECT_EQ(problemOfPng(picture), "");
}

// ---- The log ----

TEST_F(OutputRuleTest, ALogFollowsNoLinkOfSomebodyElse)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can make links of others";
    fs::create_directory(tree.path("shared"));
    ASSERT_EQ(chmod(tree.path("shared").c_str(), 01777), 0);
    const std::string link = tree.path("shared/run.log");
    tree.write("precious", "mine\n");
    ASSERT_EQ(symlink("../precious", link.c_str()), 0);
    ASSERT_EQ(lchown(link.c_str(), 12345, 12345), 0);

    const ProcessResult result = tree.run({"run", "job.yaml", "-q", "--log", "shared/run.log"});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.errors, "vorn: --log: the link \"" + link +
                                 "\" has been put into a directory for all by somebody else and is "
                                 "not followed; write to another place\n");
    EXPECT_EQ(tree.read("precious"), "mine\n");
    EXPECT_FALSE(tree.exists("out.sgy")) << "the job has run";

    ASSERT_EQ(lchown(link.c_str(), geteuid(), getegid()), 0);
    EXPECT_EQ(tree.run({"run", "job.yaml", "-q", "--log", "shared/run.log"}).exitCode, 0);
    EXPECT_THAT(tree.read("precious"), HasSubstr("traces in")) << "one's own link leads on";
    EXPECT_TRUE(fs::is_symlink(link));
}

TEST_F(OutputRuleTest, ALogThatCannotBeWrittenIsAnErrorOfTheRun)
{
    const ProcessResult result = tree.run({"run", "job.yaml", "-q", "--log", "/dev/full"});

    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.errors, "vorn: the log file \"/dev/full\" cannot be written: No space left on "
                             "device; it ends after 0 bytes of this run; make room there, or write "
                             "to another place\n");
    EXPECT_TRUE(tree.read("out.sgy") == input) << "the outputs are whole all the same";
}

TEST_F(OutputRuleTest, ALogReplacesTheFormerOne)
{
    tree.write("run.log", std::string(100000, '#') + "\n");
    EXPECT_EQ(tree.run({"run", "job.yaml", "-q", "--log", "run.log"}).exitCode, 0);
    EXPECT_THAT(tree.read("run.log"), Not(HasSubstr("#")));
    EXPECT_THAT(tree.read("run.log"), HasSubstr("traces in"));
}

// The first run is held by a pipe that nobody reads yet.
TEST_F(OutputRuleTest, RunsThatShareALogLoseNothing)
{
    ASSERT_EQ(mkfifo(tree.path("pipe").c_str(), 0600), 0);
    const ProcessResult result = tree.shell(
        "\"$VORN\" run job.yaml -q --log run.log --set write.file=pipe &\n"
        "tries=0\n"
        "until grep -qs 'traces drawn' run.log || [ $tries -gt 5000 ]; do tries=$((tries + 1)); "
        "done\n"
        "\"$VORN\" run make.yaml -q --log run.log --set write.file=second.sgy || exit 3\n"
        "cat pipe > first.sgy\n"
        "wait $!\n");

    EXPECT_EQ(result.exitCode, 0) << result.errors;
    const std::string log = tree.read("run.log");
    EXPECT_EQ(log.find('\0'), std::string::npos) << "holes";
    EXPECT_THAT(log, HasSubstr("traces drawn: 5 of 5"));
    EXPECT_THAT(log, HasSubstr(tree.path("second.sgy") + ": 5 traces of 100 samples written"));
    EXPECT_THAT(log, HasSubstr(tree.path("pipe") + ": 5 traces of 100 samples written"));
    EXPECT_TRUE(tree.read("first.sgy") == input);
}

// ---- Devices, pipes, descriptors ----

TEST_F(OutputRuleTest, StandardOutputIsWrittenThroughAndHoldsNothingElse)
{
    tree.write("kept.sgy", "kept ");
    const ProcessResult appended =
        tree.shell("\"$VORN\" run job.yaml --set write.file=/dev/stdout >> kept.sgy");
    EXPECT_EQ(appended.exitCode, 0) << appended.errors;
    EXPECT_TRUE(tree.read("kept.sgy") == "kept " + input);
    EXPECT_THAT(appended.errors, Not(HasSubstr("did not write")));
    EXPECT_THAT(appended.errors, HasSubstr("traces in  traces out")) << "the table goes there";

    const ProcessResult piped =
        tree.shell("\"$VORN\" run job.yaml -q --set write.file=/dev/fd/1 | cat > piped.sgy");
    EXPECT_EQ(piped.exitCode, 0) << piped.errors;
    EXPECT_TRUE(tree.read("piped.sgy") == input);

    const std::string graph = tree.run({"graph", "job.yaml"}).output;
    for (const std::string place : {"/dev/stdout", "/proc/self/fd/1", "/dev/fd/1"}) {
        const ProcessResult drawn = tree.shell("\"$VORN\" graph job.yaml -o " + place + " > graph");
        EXPECT_EQ(drawn.exitCode, 0) << drawn.errors;
        EXPECT_EQ(tree.read("graph"), graph) << place;
    }
    const ProcessResult json = tree.shell("\"$VORN\" run job.yaml --json /dev/stdout > facts");
    EXPECT_EQ(json.exitCode, 0) << json.errors;
    EXPECT_THAT(tree.read("facts"), StartsWith("{\n  \"format\": \"vorn-run\""));
    EXPECT_THAT(tree.read("facts"), Not(HasSubstr("traces in  traces out")));
}

TEST_F(OutputRuleTest, ADeviceAndAPipeStayWhatTheyAre)
{
    ASSERT_EQ(mkfifo(tree.path("pipe").c_str(), 0600), 0);
    const ProcessResult result = tree.shell("cat pipe > got.json &\n"
                                            "\"$VORN\" run job.yaml -q --json pipe --log /dev/null "
                                            "--set write.file=/dev/null || exit\n"
                                            "wait $!\n");
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(tree.read("got.json"), HasSubstr("\"vorn-run\""));
    EXPECT_TRUE(fs::is_fifo(tree.path("pipe")));
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST_F(OutputRuleTest, ARightJobRunsWhateverIsClosed)
{
    for (const std::string closed :
         {"0<&-", "1>&-", "2>&-", "0<&- 1>&-", "0<&- 2>&-", "1>&- 2>&-", "0<&- 1>&- 2>&-"})
    {
        fs::remove(tree.path("out.sgy"));
        const ProcessResult result =
            tree.shell("\"$VORN\" run job.yaml --log run.log --report page.html " + closed);
        EXPECT_EQ(result.exitCode, 0) << closed << ": " << result.errors;
        EXPECT_TRUE(tree.read("out.sgy") == input) << closed;
        EXPECT_THAT(tree.read("page.html"), HasSubstr("</html>\n")) << closed;
        EXPECT_THAT(tree.read("run.log"), HasSubstr("traces in")) << closed;
        EXPECT_TRUE(tree.read("in.sgy") == input) << closed;
    }
    EXPECT_EQ(tree.shell("\"$VORN\" header in.sgy 1>&-").exitCode, 2) << "a result that is lost";
}

TEST_F(OutputRuleTest, AWrongTemporaryDirectoryIsNamedWithItsVariable)
{
    tree.write("a-file", "");
    const std::string end = " to the absolute path of a directory that can be written to, or unset "
                            "it\n";
    const struct
    {
        std::string setting;
        std::string text;
    } rows[] = {
        {"TMPDIR=" + tree.path("nowhere"),
         "TMPDIR: the value " + named("nowhere") + " is not a directory; set TMPDIR"},
        {"TMPDIR=" + tree.path("a-file"),
         "TMPDIR: the value " + named("a-file") + " is not a directory; set TMPDIR"},
        {"TMPDIR=.", "TMPDIR: the value \".\" is a relative path; set TMPDIR"},
        {"TMPDIR=", "TMPDIR: the value \"\" is empty; set TMPDIR"},
        {"TMPDIR=/proc/self", "TMPDIR: the value \"/proc/self\" cannot be written to; set TMPDIR"},
        {"-u TMPDIR TMP=nowhere", "TMP: the value \"nowhere\" is a relative path; set TMP"},
    };
    for (const auto& row : rows) {
        for (const std::string command : {"run", "check"}) {
            const ProcessResult result =
                tree.shell("env " + row.setting + " \"$VORN\" " + command + " job.yaml");
            EXPECT_EQ(result.exitCode, 2) << row.setting;
            EXPECT_THAT(result.errors, HasSubstr("vorn: " + row.text + end));
            EXPECT_FALSE(tree.exists("out.sgy")) << row.setting;
        }
        EXPECT_EQ(
            tree.shell("env " + row.setting + " \"$VORN\" check job.yaml --scratch .").exitCode, 0)
            << "not used then";
    }
    const ProcessResult scratch =
        tree.shell("env VORN_SCRATCH=" + tree.path("a-file") + " \"$VORN\" check job.yaml");
    EXPECT_THAT(scratch.errors, HasSubstr("vorn: VORN_SCRATCH: the scratch directory " +
                                          named("a-file") + " is not a directory\n"));
}
