// Inputs that change while a job runs, inputs that have no end, and checksums of what was read.
#include "ProcessingTree.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

namespace {

class InputChangeTest : public ::testing::Test
{
protected:
    InputChangeTest()
    {
        tree.write("make.yaml",
                   "modules:\n"
                   "  - {name: make, module: synthetic, shots: 1, channels: 5, samples: 100}\n"
                   "  - {name: write, module: segy_out, input: make, file: in.sgy}\n"
                   "  - {name: write_su, module: su_out, input: make, file: in.su}\n");
        const ProcessResult made = tree.run({"run", "make.yaml", "-q"});
        EXPECT_EQ(made.exitCode, 0) << made.errors;
        tree.write("in.txt", "input\n");
        input = tree.read("in.sgy");
    }

    // A job of `reader` with the output out.sgy, during which the shell runs `change`: the files
    // are so short that they have been read by then, and the job takes a second more.
    ProcessResult runWhile(const std::string& reader, const std::string& change)
    {
        tree.write("job.yaml",
                   "modules:\n"
                   "  - {name: read, " +
                       reader +
                       "}\n"
                       "  - {name: write, module: segy_out, input: read, file: out.sgy}\n"
                       "  - {name: wait, module: host_source, traces: 2, pause: 300 ms}\n"
                       "  - {name: drop, module: host_sink, input: wait, like: in.txt}\n");
        fs::remove(tree.path("run.log"));
        fs::remove(tree.path("out.sgy"));
        return tree.shell(
            "\"$VORN\" run job.yaml -q --log run.log --json facts.json &\n"
            "tries=0\n"
            "until grep -qs '[*] PROCESSING PHASE' run.log || [ $tries -gt 5000 ]; do "
            "tries=$((tries + 1)); done\n" +
            change + "\nwait $!\n");
    }

    nlohmann::json readFacts(const std::string& path) const
    {
        return nlohmann::json::parse(tree.read("facts.json"))["inputs"][0].value(path,
                                                                                 nlohmann::json());
    }

    ProcessingTree tree;
    std::string input;
};

// SHA-256, by sha256sum of GNU coreutils.
std::string sumOf(const ProcessingTree& tree, const std::string& name)
{
    return tree.shell("sha256sum < " + name).output.substr(0, 64);
}

} // namespace

TEST_F(InputChangeTest, AnInputThatChangesIsAnErrorWithBothStates)
{
    const struct
    {
        std::string reader;
        std::string file;
        std::string change;
        std::string after;
    } rows[] = {
        {"module: segy_in, file: in.sgy", "in.sgy", "printf more >> in.sgy",
         "6804 bytes, last modified"},
        {"module: segy_in, file: in.sgy", "in.sgy", "printf X | dd of=in.sgy conv=notrunc 2>&-",
         "6800 bytes, last modified"},
        {"module: segy_in, file: in.sgy", "in.sgy",
         "touch -r in.sgy time; printf X | dd of=in.sgy conv=notrunc 2>&-; touch -r time in.sgy",
         "6800 bytes, last modified"},
        {"module: segy_in, file: in.sgy", "in.sgy", "cp -p in.sgy new; mv new in.sgy",
         "6800 bytes, last modified"},
        {"module: segy_in, file: in.sgy", "in.sgy", "mv in.sgy elsewhere", "missing"},
        {"module: su_in, file: in.su", "in.su", ": > in.su", "0 bytes, last modified"},
        {"module: host_source", "in.txt", "echo more >> in.txt", "11 bytes, last modified"},
    };
    const std::string bytes[] = {tree.read("in.sgy"), tree.read("in.su")};
    for (const auto& row : rows) {
        const std::string size = std::to_string(fs::file_size(tree.path(row.file)));
        const ProcessResult result = runWhile(row.reader, row.change);

        EXPECT_EQ(result.exitCode, 1) << row.change;
        EXPECT_FALSE(tree.exists("out.sgy")) << row.change;
        const std::vector<std::string> told = linesWith(result.errors, " fatal ");
        ASSERT_EQ(told.size(), 1u) << row.change << ": " << result.errors;
        EXPECT_THAT(told[0],
                    HasSubstr("the input file \"" + tree.path(row.file) + "\" of module \""));
        EXPECT_THAT(told[0], HasSubstr("before " + size + " bytes, last modified 20"));
        EXPECT_THAT(told[0], HasSubstr("; after " + row.after));
        tree.write("in.sgy", bytes[0]);
        tree.write("in.su", bytes[1]);
        tree.write("in.txt", "input\n");
    }
}

// A backup that links files, and a change of permissions, leave the content as it is.
TEST_F(InputChangeTest, WhatLeavesTheContentAloneIsNoChange)
{
    for (const std::string change :
         {"true", "ln in.sgy backup", "chmod go-r in.sgy", "cat in.sgy > copy"})
    {
        const ProcessResult result = runWhile("module: segy_in, file: in.sgy", change);
        EXPECT_EQ(result.exitCode, 0) << change << ": " << result.errors;
        EXPECT_TRUE(tree.read("out.sgy") == input) << change;
    }
}

TEST_F(InputChangeTest, TheChecksumIsThatOfTheBytesThatWereRead)
{
    const std::string sum = sumOf(tree, "in.sgy");

    EXPECT_EQ(runWhile("module: segy_in, file: in.sgy", "printf more >> in.sgy").exitCode, 1);

    EXPECT_EQ(readFacts("sha256"), sum) << "without what was added later";
    EXPECT_EQ(readFacts("bytes_read"), input.size());
}

TEST_F(InputChangeTest, EveryWayOfReadingAWholeFileGivesItsChecksum)
{
    tree.write("make.yaml",
               "modules:\n"
               "  - {name: make, module: synthetic, shots: 2, channels: 90, samples: 3000}\n"
               "  - {name: write, module: segy_out, input: make, file: in.sgy}\n"
               "  - {name: write_su, module: su_out, input: make, file: in.su}\n");
    ASSERT_EQ(tree.run({"run", "make.yaml", "-q"}).exitCode, 0);
    ASSERT_GT(fs::file_size(tree.path("in.sgy")), 2u << 20) << "several windows of the reader";
    tree.write("su.yaml", "modules:\n"
                          "  - {name: read, module: su_in, file: in.su}\n"
                          "  - {name: write, module: su_out, input: read, file: out.su}\n");
    tree.write("segy.yaml", "modules:\n"
                            "  - {name: read, module: segy_in, file: in.sgy}\n"
                            "  - {name: write, module: segy_out, input: read, file: out.sgy}\n");
    const struct
    {
        std::string file;
        std::vector<std::string> call;
    } rows[] = {{"in.sgy", {"segy.yaml"}},
                {"in.sgy", {"segy.yaml", "--set", "read.fldr=1:"}},
                {"in.sgy", {"segy.yaml", "--set", "read.samples=500"}},
                {"in.su", {"su.yaml"}}};
    for (const auto& row : rows) {
        std::vector<std::string> call = {"run"};
        call.insert(call.end(), row.call.begin(), row.call.end());
        call.insert(call.end(), {"-q", "--json", "facts.json"});
        const ProcessResult result = tree.run(call);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(readFacts("sha256"), sumOf(tree, row.file)) << testing::PrintToString(row.call);
        EXPECT_EQ(readFacts("bytes_read"), fs::file_size(tree.path(row.file)));
    }

    const ProcessResult part =
        tree.run({"run", "segy.yaml", "-q", "--set", "read.traces=150:", "--json", "facts.json",
                  "--report", "page.html"});
    EXPECT_EQ(part.exitCode, 0) << part.errors;
    EXPECT_EQ(readFacts("sha256"), "") << "some bytes have never been read";
    EXPECT_GT(readFacts("bytes_read"), 31 * 12240);
    EXPECT_LT(readFacts("bytes_read"), fs::file_size(tree.path("in.sgy")));
    EXPECT_THAT(tree.read("page.html"), HasSubstr("read in part: "));
}

// Reports gave every input a checksum, and never came to the end of these.
TEST_F(InputChangeTest, WhatHasNoEndIsNotReadForAChecksum)
{
    ASSERT_EQ(mkfifo(tree.path("pipe").c_str(), 0600), 0);
    tree.write("job.yaml",
               "modules:\n"
               "  - {name: read, module: segy_in, file: in.sgy}\n"
               "  - {name: write, module: host_sink, input: read, file: out.txt, like: in.txt}\n");
    for (const std::string& place :
         {tree.path("pipe"), std::string("/dev/zero"), std::string("/dev/random")})
    {
        const ProcessResult refused =
            tree.shell("timeout 20 \"$VORN\" run job.yaml -q --report page.html --json facts.json "
                       "--set read.file=" +
                       place);
        EXPECT_EQ(refused.exitCode, 1) << place;
        EXPECT_THAT(refused.errors,
                    HasSubstr(place + ": is not a file that can be read; give the path "
                                      "of a trace file"));
        EXPECT_EQ(readFacts("sha256"), "");
        EXPECT_THAT(tree.read("page.html"), HasSubstr("</html>\n"));
        EXPECT_FALSE(tree.exists("out.txt"));

        const ProcessResult unread = tree.shell(
            "timeout 20 \"$VORN\" run job.yaml -q --json facts.json --set write.like=" + place);
        EXPECT_EQ(unread.exitCode, 0) << place << ": " << unread.errors;
        fs::remove(tree.path("out.txt"));
    }
}
