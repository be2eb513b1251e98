// Jobs of processing modules through `vorn run`: how data flow from files to files, in channels
// that several modules share, through memory and scratch file alike.
#include "ProcessingTree.h"

#include "SegyBytes.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <thread>

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

namespace {

constexpr std::size_t fileHeader = 3600;

class WholeRunTest : public ::testing::Test
{
protected:
    // A job of these module entries.
    void writeJob(const std::string& modules, const std::string& name = "job.yaml") const
    {
        tree.write(name, "modules:\n" + modules);
    }
    void copyData() const
    {
        for (const char* name : {"line.sgy", "line.su"})
            std::filesystem::copy_file(std::string(VORN_TEST_SOURCE_DIR "/host/data/") + name,
                                       tree.path(name));
    }
    // Runs a job that is to succeed.
    ProcessResult run(const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> words = {"run", "job.yaml"};
        words.insert(words.end(), more.begin(), more.end());
        ProcessResult result = tree.run(words);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return result;
    }
    Bytes traces(const std::string& name) const
    {
        const Bytes bytes = readBytes(tree.path(name));
        return {bytes.begin() + fileHeader, bytes.end()};
    }
    // A word of 4 bytes of the trace headers in turn.
    std::vector<int64_t> words(const std::string& name, std::size_t byte, int samples) const
    {
        std::vector<int64_t> values;
        const Bytes bytes = traces(name);
        for (std::size_t at = 0; at < bytes.size();
             at += 240 + 4 * static_cast<std::size_t>(samples))
            values.push_back(getInteger(bytes, at + byte - 1, 4));
        return values;
    }

    ProcessingTree tree;
};

const char* const shots = "  - {name: shots, module: synthetic, shots: 3, channels: 8, "
                          "samples: 100, seed: 5}\n";

std::string writer(const std::string& name, const std::string& input)
{
    return "  - {name: " + name + ", module: segy_out, input: " + input + ", file: " + name +
           ".sgy}\n";
}

// Equal content, compared piece by piece: the files may be large.
bool isSameContent(const std::string& a, const std::string& b)
{
    std::ifstream first(a, std::ios::binary);
    std::ifstream second(b, std::ios::binary);
    std::vector<char> left(1 << 20);
    std::vector<char> right(1 << 20);
    while (first && second) {
        first.read(left.data(), static_cast<std::streamsize>(left.size()));
        second.read(right.data(), static_cast<std::streamsize>(right.size()));
        if (first.gcount() != second.gcount() ||
            !std::equal(left.begin(), left.begin() + first.gcount(), right.begin()))
            return false;
    }
    return first.eof() && second.eof() && std::filesystem::file_size(a) > 0;
}

} // namespace

// ---- Channels that several modules read ----

TEST_F(WholeRunTest, TwoConsumersOfOneChannelGetTheSameTraces)
{
    writeJob(shots + writer("alone", "shots"));
    run();
    writeJob(shots + writer("one", "shots") + writer("other", "shots"));
    run();

    EXPECT_THAT(words("alone.sgy", 1, 100), SizeIs(24));
    EXPECT_TRUE(traces("one.sgy") == traces("alone.sgy"));
    EXPECT_TRUE(traces("other.sgy") == traces("alone.sgy"));
}

TEST_F(WholeRunTest, WhatOneConsumerDoesToItsTracesTheOtherDoesNotSee)
{
    writeJob(shots + writer("alone", "shots"));
    run();
    writeJob(std::string(shots) + "  - {name: louder, module: gain, input: shots, factor: 2}\n" +
             writer("untouched", "shots") + writer("doubled", "louder"));
    run();

    EXPECT_TRUE(traces("untouched.sgy") == traces("alone.sgy"));
    EXPECT_FALSE(traces("doubled.sgy") == traces("alone.sgy"));
}

TEST_F(WholeRunTest, ThreeSinksOfThreeKindsAllGetEveryTrace)
{
    copyData();
    writeJob("  - {name: read, module: segy_in, file: line.sgy}\n"
             "  - {name: segy, module: segy_out, input: read, file: out.sgy}\n"
             "  - {name: su, module: su_out, input: read, file: out.su, endian: big}\n"
             "  - {name: draw, module: section, input: read}\n");

    const ProcessResult result = run({"--pictures", "pictures"});

    EXPECT_TRUE(traces("out.sgy") == traces("line.sgy"));
    EXPECT_EQ(problemOfPng(tree.path("pictures/draw.png")), "");
    EXPECT_THAT(linesWith(result.output, "pictures/draw.png"), SizeIs(1));
    writeJob("  - {name: read, module: su_in, file: out.su, endian: big}\n" +
             writer("again", "read"));
    run({"--set", "again.format=ibm"});
    EXPECT_TRUE(traces("again.sgy") == traces("line.sgy"));
}

TEST_F(WholeRunTest, BothKindsOfFilesBecomeTheSameFile)
{
    copyData();
    writeJob("  - {name: read, module: su_in, file: line.su, endian: big}\n" +
             writer("from_su", "read"));

    run({"--set", "from_su.format=ibm"});

    EXPECT_TRUE(traces("from_su.sgy") == traces("line.sgy"));
}

// ---- Diamonds ----

namespace {

// Two arms from one source, joined by a module with two inputs, which hands on those of the first.
std::string diamond(const std::string& first, const std::string& second)
{
    return std::string(shots) +
           "  - {name: low, module: bandpass, input: shots, corners: [2, 4, 20, 30]}\n"
           "  - {name: loud, module: gain, input: shots, factor: 3}\n"
           "  - {name: join, module: spectrum, inputs: [" +
           first + ", " + second + "], labels: [" + first + ", " + second + "]}\n" +
           writer("joined", "join");
}

} // namespace

TEST_F(WholeRunTest, TheArmsOfADiamondArriveAtTheirPorts)
{
    writeJob(diamond("low", "loud") + writer("low_alone", "low") + writer("loud_alone", "loud"));
    run();
    EXPECT_THAT(words("joined.sgy", 1, 100), SizeIs(24));
    EXPECT_FALSE(traces("low_alone.sgy") == traces("loud_alone.sgy"));
    EXPECT_TRUE(traces("joined.sgy") == traces("low_alone.sgy"));

    writeJob(diamond("loud", "low"));
    run();
    EXPECT_TRUE(traces("joined.sgy") == traces("loud_alone.sgy"));
}

TEST_F(WholeRunTest, BothArmsOfADiamondAreUsed)
{
    writeJob(diamond("low", "loud"));

    const ProcessResult result = run({"--pictures", "pictures", "--format", "svg"});

    const std::vector<std::string> curves = linesWith(result.errors, " join ");
    ASSERT_THAT(curves, SizeIs(2)) << result.errors;
    EXPECT_THAT(curves[0], HasSubstr("low: "));
    EXPECT_THAT(curves[1], HasSubstr("loud: "));
    EXPECT_THAT(tree.namesIn("pictures"), ElementsAre("join.svg"));
    EXPECT_THAT(linesWith(result.output, "join "), SizeIs(1));
}

TEST_F(WholeRunTest, InputsOfDifferentLengthsLeaveNoFileBehindThem)
{
    for (const bool longerFirst : {true, false}) {
        writeJob(std::string(shots) +
                 "  - {name: few, module: synthetic, shots: 1, channels: 8, samples: 100}\n"
                 "  - {name: join, module: spectrum, inputs: [" +
                 (longerFirst ? "shots, few" : "few, shots") + "]}\n" + writer("joined", "join") +
                 writer("beside", "few"));

        const ProcessResult result = tree.run({"run", "job.yaml"});

        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(linesWith(result.errors, "has ended after 8 traces"), Not(IsEmpty()));
        EXPECT_THAT(tree.namesIn("."), ElementsAre("job.yaml"));
    }
}

TEST_F(WholeRunTest, ADiamondHoldsWithFewTracesInMemory)
{
    writeJob(diamond("low", "loud"));
    run({"--set", "shots.shots=20"});
    const Bytes many = readBytes(tree.path("joined.sgy"));
    run({"--set", "shots.shots=20", "--scratch-traces", "10"});

    EXPECT_TRUE(readBytes(tree.path("joined.sgy")) == many);
}

// ---- Jobs larger than memory ----

TEST_F(WholeRunTest, TwoHundredThousandTracesAreTheSameWithAThousandInMemory)
{
    std::filesystem::create_directory(tree.path("scratch"));
    writeJob("  - {name: shots, module: synthetic, shots: 2000, channels: 100, samples: 50}\n"
             "  - {name: sorted, module: sort, input: shots, keys: [offset, -fldr]}\n"
             "  - {name: write, module: segy_out, input: sorted, file: out.sgy}\n");

    const ProcessResult few = run(
        {"-v", "--scratch", "scratch", "--scratch-traces", "1000", "--set", "write.file=few.sgy"});
    EXPECT_THAT(tree.namesIn("scratch"), IsEmpty());
    const ProcessResult many = run({"-v", "--scratch", "scratch", "--scratch-traces", "1000000",
                                    "--set", "write.file=many.sgy"});

    const std::string scratchFile = "Scratch file " + tree.path("scratch") + "/";
    EXPECT_THAT(few.errors, HasSubstr(scratchFile)) << "traces were to go to the file";
    EXPECT_THAT(few.errors, HasSubstr(" successfully removed\n"));
    EXPECT_THAT(many.errors, Not(HasSubstr(scratchFile)));
    EXPECT_EQ(std::filesystem::file_size(tree.path("few.sgy")), fileHeader + 200000 * (240 + 200));
    EXPECT_TRUE(isSameContent(tree.path("few.sgy"), tree.path("many.sgy")));
    EXPECT_THAT(tree.namesIn("scratch"), IsEmpty());
    EXPECT_THAT(tree.names(), ElementsAre("few.sgy", "job.yaml", "many.sgy", "scratch"));
    // All shots of the first offset, from the last to the first, then those of the next one.
    const ProcessResult headers =
        tree.run({"header", "few.sgy", "--traces", "1,2000,2001,200000", "--words", "fldr,tracf"});
    EXPECT_THAT(headers.output, HasSubstr("   trace  fldr  tracf\n"
                                          "       1  2000      1\n"
                                          "    2000     1      1\n"
                                          "    2001  2000      2\n"
                                          "  200000     1    100\n"));
}

// ---- Options ----

TEST_F(WholeRunTest, SetReplacesNumbersListsAndFilesAndAddsParameters)
{
    copyData();
    writeJob("  - {name: read, module: segy_in, file: nothing.sgy}\n"
             "  - {name: low, module: bandpass, input: read, corners: [1, 2, 3]}\n"
             "  - {name: write, module: segy_out, input: low, file: out.sgy}\n");

    run({"--set", "read.file=line.sgy", "--set", "read.traces=5:8", "--set",
         "low.corners=[2 Hz, 4, 0.02 kHz, 30]", "--set", "write.format=ieee"});

    EXPECT_THAT(words("out.sgy", 9, 40), ElementsAre(2, 2, 2, 2)) << "the second shot";
    EXPECT_EQ(getInteger(readBytes(tree.path("out.sgy")), 3224, 2), 5) << "IEEE floats";
}

TEST_F(WholeRunTest, PathsOfTheJobAreItsFoldersAndThoseOfSetTheCallers)
{
    copyData();
    std::filesystem::create_directory(tree.path("jobs"));
    writeJob("  - {name: read, module: segy_in, file: ../line.sgy}\n"
             "  - {name: write, module: segy_out, input: read, file: out.sgy}\n",
             "jobs/job.yaml");

    EXPECT_EQ(tree.run({"run", "jobs/job.yaml"}).exitCode, 0);
    EXPECT_TRUE(tree.exists("jobs/out.sgy"));
    EXPECT_EQ(tree.run({"run", "jobs/job.yaml", "--set", "write.file=here.sgy"}).exitCode, 0);
    EXPECT_TRUE(tree.exists("here.sgy"));
    EXPECT_THAT(tree.namesIn("jobs"), ElementsAre("job.yaml", "out.sgy"));
}

TEST_F(WholeRunTest, WhatTheJobDidIsOnTheCardsOfTheFile)
{
    copyData();
    writeJob("  - {name: read, module: segy_in, file: line.sgy}\n"
             "  - {name: sorted, module: sort, input: read, keys: [-cdp]}\n"
             "  - {name: write, module: segy_out, input: sorted, file: out.sgy}\n");

    run();

    EXPECT_THAT(words("out.sgy", 21, 40), ElementsAre(8, 7, 6, 5, 4, 3, 2, 1));
    const std::string headers = tree.run({"header", "out.sgy"}).output;
    EXPECT_THAT(headers, HasSubstr("  C37 synthetic shots=2 channels=4 seed=11\n"
                                   "  C38 sort keys=-cdp\n"));
}

// ---- What modules note ----

TEST_F(WholeRunTest, WhatModulesNoteIsInTheFactsOfTheRun)
{
    copyData();
    writeJob("  - {name: read, module: segy_in, file: line.sgy}\n"
             "  - {name: sorted, module: sort, input: read, keys: [-cdp]}\n"
             "  - {name: qc, module: trace_qc, input: sorted}\n");

    run({"--json", "facts.json", "--report", "page.html"});

    const std::string facts = tree.read("facts.json");
    EXPECT_THAT(facts, HasSubstr("\"segy.file\": \"" + tree.path("line.sgy") + "\""));
    for (const char* key : {"segy.text", "segy.text.bytes", "segy.binary", "segy.binary.rest"})
        EXPECT_THAT(facts, HasSubstr("\"" + std::string(key) + "\": \"(a whole header of "));
    EXPECT_THAT(facts, HasSubstr("\"history$\": \"sort "));
    EXPECT_THAT(facts, HasSubstr("\"qc.traces\": \"8\"")) << "noted after the last trace";
    const std::string page = tree.read("page.html");
    EXPECT_THAT(page, HasSubstr("<code>qc.traces</code>"));
    const std::size_t cards = page.find("<summary>Text header of the file</summary>\n<pre>C 1");
    ASSERT_NE(cards, std::string::npos);
    EXPECT_NE(page.find("\nC40", cards), std::string::npos);
}

TEST_F(WholeRunTest, TheMeasuresOfTracesAreATable)
{
    copyData();
    writeJob("  - {name: read, module: segy_in, file: line.sgy}\n"
             "  - {name: qc, module: trace_qc, input: read, table: measures.csv}\n");
    for (int time = 0; time < 2; ++time) { // the second one replaces the first one's table
        const ProcessResult done = run({});
        EXPECT_EQ(done.exitCode, 0) << done.errors;
        const std::string table = tree.read("measures.csv");
        EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 1 + 8);
        EXPECT_THAT(table, testing::StartsWith("trace,filetrace,fldr,tracf,"));
    }
}

TEST_F(WholeRunTest, TheTableDoesNotReplaceAnInput)
{
    copyData();
    const std::string before = tree.read("line.sgy");
    writeJob("  - {name: read, module: segy_in, file: line.sgy}\n"
             "  - {name: qc, module: trace_qc, input: read, table: line.sgy}\n");
    EXPECT_NE(tree.run({"run", "job.yaml"}).exitCode, 0);
    EXPECT_EQ(tree.read("line.sgy"), before);
}

// ---- Signals ----

namespace {

// The job of WholeRunTest.ASignal... has written this much before it is told to end.
constexpr std::uintmax_t written = 3000000;

bool isWriting(const ProcessingTree& tree)
{
    for (const std::string& name : tree.names()) {
        std::error_code gone;
        if (name.starts_with(".big.sgy.vorn-") &&
            std::filesystem::file_size(tree.path(name), gone) > written && !gone)
            return true;
    }
    return false;
}

} // namespace

TEST_F(WholeRunTest, ASignalRemovesTheOutputsThatAreNotWholeAndNamesThem)
{
    writeJob("  - {name: shots, module: synthetic, shots: 100000, channels: 100, samples: 1000, "
             "shot_spacing: 1, spacing: 1}\n"
             "  - {name: big, module: segy_out, input: shots, file: big.sgy}\n"
             "  - {name: small, module: su_out, input: shots, file: small.su}\n");
    tree.write("big.sgy", "of an earlier job\n");
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        const pid_t process = tree.start({"run", "job.yaml", "-q"});
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!isWriting(tree) && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        kill(process, signal);
        const ProcessResult result = tree.finish(process);

        EXPECT_EQ(result.exitCode, 128 + signal);
        EXPECT_THAT(tree.names(), ElementsAre("big.sgy", "job.yaml"));
        EXPECT_EQ(tree.read("big.sgy"), "of an earlier job\n");
        EXPECT_THAT(result.errors,
                    testing::StartsWith(signal == SIGINT ? "vorn: interrupted"
                                                         : "vorn: ended by a signal"));
        EXPECT_THAT(result.errors, HasSubstr("; these outputs are incomplete:\n"));
        EXPECT_THAT(result.errors,
                    HasSubstr("vorn: incomplete, removed: " + tree.path(".big.sgy.vorn-")));
        EXPECT_THAT(result.errors,
                    HasSubstr("vorn: incomplete, removed: " + tree.path(".small.su.vorn-")));
    }
}

TEST_F(WholeRunTest, ACrashLeavesNoOutputThatIsNotWhole)
{
    writeJob(std::string(shots) +
             "  - {name: bad, module: host_filter, input: shots, fault: crash, fault_at: 9}\n" +
             writer("out", "shots") + "  - {name: last, module: host_sink, input: bad}\n");

    const ProcessResult result = tree.run({"run", "job.yaml"});

    EXPECT_EQ(result.exitCode, 128 + SIGABRT);
    EXPECT_THAT(tree.names(), ElementsAre("job.yaml"));
}
