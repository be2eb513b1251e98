// Modules of jobs are recorded, and replayed without the job: as they are, changed, and from
// records that are not whole.
#include "FileSizeLimit.h"
#include "JobDirectory.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <map>
#include <string>
#include <vector>

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

namespace fs = std::filesystem;

constexpr const char* synthetic =
    "  - {name: make, module: synthetic, shots: 3, channels: 8, samples: 250, interval: 4 ms}\n";

class ReplayTest : public ::testing::Test
{
protected:
    void writeJob(const std::string& modules, const std::string& name = "job.yaml")
    {
        directory.write(name, "job: recorded\nmodules:\n" + modules);
    }

    JobEnd record(const std::vector<std::string>& modules,
                  const std::vector<std::string>& more = {})
    {
        std::vector<std::string> words = {"run", "job.yaml", "-q"};
        for (const std::string& module : modules) {
            words.emplace_back("--record");
            words.push_back(module + "=" + module + ".record");
        }
        words.insert(words.end(), more.begin(), more.end());
        return directory.run(words);
    }

    JobEnd replay(const std::string& module, const std::vector<std::string>& more = {})
    {
        std::vector<std::string> words = {"replay", module + ".record"};
        words.insert(words.end(), more.begin(), more.end());
        return directory.run(words);
    }

    // Records `bad: MODULE` behind a generator.
    void recordOne(const std::string& module, const std::vector<std::string>& more = {})
    {
        writeJob(std::string(synthetic) + "  - {name: bad, input: make, module: " + module +
                 "}\n  - {name: end, input: bad, module: histogram}\n");
        const JobEnd end = record({"bad"}, more);
        ASSERT_EQ(end.exitCode, 0) << end.errors;
    }

    static std::string library(const std::string& module)
    {
        return std::string(VORN_TEST_HOME) + "/lib/lib" + module + ".so";
    }

    JobDirectory directory;
};

// ------------------------------------------------------------------------- modules of the package

struct Step
{
    const char* name;  // which is the module, too, up to the first dot
    const char* entry; // the rest of its entry in the job
};

// Every module of the package. What each reads by itself is there when it is replayed.
const std::vector<Step> steps = {
    {"synthetic", "shots: 3, channels: 8, samples: 250, interval: 4 ms"},
    {"segy_out.first", "input: synthetic, file: first.sgy"},
    {"su_out.first", "input: synthetic, file: first.su"},
    {"agc", "input: synthetic, window: 400 ms"},
    {"amplitude_map", "input: synthetic, x: tracf, y: fldr"},
    {"autocorrelation", "input: synthetic, start: 100 ms, end: 900 ms, lag: 300 ms"},
    {"bandpass", "input: synthetic, low: 10 Hz, high: 60 Hz"},
    {"combine", "inputs: [synthetic, bandpass], operation: difference, keys: [fldr, tracf]"},
    {"fk", "input: synthetic, filter: reject, velocities: [0 m/s, 1200 m/s], fmax: 100 Hz"},
    {"gain", "input: synthetic, time_power: 2, balance: rms, clip: 4"},
    {"header_math", "input: synthetic, set: [cdpx = (sx + gx) / 2, tracf = count(fldr)]"},
    {"header_plot", "input: synthetic, x: tracf, y: offset"},
    {"trace_qc", "input: synthetic"},
    {"header_table", "input: trace_qc, file: table.csv, words: [fldr, tracf, qc_rms]"},
    {"histogram", "input: synthetic, scale: log"},
    {"kill", "input: trace_qc, where: abs(offset) > 200"},
    {"mute", "input: synthetic, offsets: [100 m, 1275 m], times: [150 ms, 880 ms]"},
    {"nmo", "input: synthetic, times: [0 s, 1 s], velocities: [1800 m/s, 2200 m/s]"},
    {"resample", "input: synthetic, interval: 8 ms"},
    {"section", "input: synthetic, colormap: seismic"},
    {"select", "input: synthetic, where: abs(offset) <= 150"},
    {"shift", "input: synthetic, time: 12.5 ms"},
    {"sort", "input: synthetic, keys: [cdp, offset]"},
    {"spectrogram", "input: synthetic, traces: '1,5', fmax: 120 Hz"},
    {"spectrum", "inputs: [synthetic, bandpass], labels: [before, after], scale: db"},
    {"stack", "input: sort, key: cdp"},
    {"tee", "input: synthetic"},
    {"gain.behind", "input: tee.1, factor: 2"},
    {"window", "input: synthetic, start: 200 ms, end: 800 ms"},
};

// They read what the others have written.
const std::vector<Step> readers = {
    {"segy_in", "file: first.sgy"},
    {"su_in", "file: first.su"},
    {"slice", "input: segy_in, times: [100 ms, 200 ms]"},
    {"segy_out.second", "input: segy_in, file: second.sgy"},
    {"su_out.second", "input: su_in, file: second.su"},
};

std::string nameOf(const Step& step)
{
    std::string name = step.name;
    std::replace(name.begin(), name.end(), '.', '_');
    return name;
}

std::string moduleOf(const Step& step)
{
    const std::string name = step.name;
    return name.substr(0, name.find('.'));
}

TEST_F(ReplayTest, EveryModuleOfThePackageDoesTheSameAgain)
{
    for (const auto* list : {&steps, &readers}) {
        std::string modules;
        std::vector<std::string> names;
        for (const Step& step : *list) {
            modules += "  - {name: " + nameOf(step) + ", module: " + moduleOf(step) + ", " +
                       step.entry + "}\n";
            names.push_back(nameOf(step));
        }
        writeJob(modules);
        const JobEnd recorded = record(names);
        ASSERT_EQ(recorded.exitCode, 0) << recorded.errors;
        for (const std::string& name : names) {
            const JobEnd end = replay(name);
            EXPECT_EQ(end.exitCode, 0) << name << "\n" << end.output << end.errors;
            EXPECT_THAT(end.output, HasSubstr("no difference")) << name;
            EXPECT_THAT(end.errors, IsEmpty()) << name;
        }
    }
}

TEST_F(ReplayTest, NoModuleOfThePackageIsForgotten)
{
    std::vector<std::string> known;
    for (const auto* list : {&steps, &readers}) {
        for (const Step& step : *list)
            known.push_back(moduleOf(step));
    }
    int manifests = 0;
    for (const auto& entry : fs::directory_iterator(VORN_TEST_MODULES)) {
        const std::string name = entry.path().filename().string();
        if (!fs::exists(entry.path() / (name + ".yaml")))
            continue;
        ++manifests;
        EXPECT_THAT(known, ::testing::Contains(name));
    }
    EXPECT_GT(manifests, 20);
}

TEST_F(ReplayTest, ReplayLeavesTheFilesOfTheJobAlone)
{
    writeJob(std::string(synthetic) +
             "  - {name: write, module: su_out, input: make, file: out.su}\n");
    ASSERT_EQ(record({"write"}).exitCode, 0);
    directory.write("out.su", "something newer\n");

    const JobEnd end = replay("write");
    EXPECT_EQ(end.exitCode, 0) << end.output;
    EXPECT_EQ(directory.read("out.su"), "something newer\n");
    EXPECT_EQ(directory.names(),
              (std::vector<std::string>{"job.yaml", "out.su", "scratch", "write.record"}));
}

TEST_F(ReplayTest, ModulesInFortranDoTheSameAgain)
{
    // One of them is called once more, after the last trace.
    const std::map<std::string, std::string> calls = {{"balance", "27"}, {"tpow", "26"}};
    for (const auto& [module, count] : calls) {
        recordOne(module,
                  {"--allow-modules-from", VORN_TEST_BINARY_DIR "/../examples/vorn_home/lib"});
        const JobEnd end = replay("bad");
        EXPECT_EQ(end.exitCode, 0) << module << "\n" << end.output << end.errors;
        EXPECT_THAT(end.output, HasSubstr(count + " calls of entry points")) << module;
    }
}

TEST_F(ReplayTest, RecordsAreBounded)
{
    recordOne("recorded", {"--record-traces", "5"});
    const JobEnd end = replay("bad");
    EXPECT_EQ(end.exitCode, 0) << end.output;
    EXPECT_THAT(end.output, HasSubstr("compared     6 calls of entry points"));
    EXPECT_THAT(end.errors, HasSubstr("as it was asked to, after 5 calls of process_"));
}

// ------------------------------------------------------------------------------- changed modules

TEST_F(ReplayTest, OtherSamplesAreToldWithTheirNumber)
{
    recordOne("recorded");
    const JobEnd end = replay("bad", {"--library", library("recorded_louder")});
    EXPECT_EQ(end.exitCode, 1);
    EXPECT_THAT(end.output,
                AllOf(HasSubstr("first difference in process_, call 1, trace 1 of its input"),
                      HasSubstr("what it leaves in output 0"), HasSubstr("trace 0 of it, sample "),
                      HasSubstr("samples differ, by ")));
    // 2.5 is a quarter more than 2.
    EXPECT_EQ(
        replay("bad", {"--library", library("recorded_louder"), "--tolerance", "0.26"}).exitCode,
        0);
    EXPECT_EQ(
        replay("bad", {"--library", library("recorded_louder"), "--tolerance", "0.24"}).exitCode,
        1);
}

TEST_F(ReplayTest, FurtherCallIsNamed)
{
    recordOne("recorded");
    const JobEnd end = replay("bad", {"--library", library("recorded_asks_more")});
    EXPECT_EQ(end.exitCode, 1);
    EXPECT_THAT(end.output,
                AllOf(HasSubstr("first difference in process_, call 3, trace 3 of its input"),
                      HasSubstr("call 4 of the interface in it"),
                      HasSubstr("recorded knl_mcopyTraceToTrace(input 0, output 0, 1, 1, 0, 0)"),
                      HasSubstr("now knl_getI32TraceAttribute(input 0, \"fldr\", 0)")));
}

TEST_F(ReplayTest, MissingCallIsNamed)
{
    recordOne("recorded");
    const JobEnd end = replay("bad", {"--library", library("recorded_asks_less")});
    EXPECT_EQ(end.exitCode, 1);
    EXPECT_THAT(end.output,
                AllOf(HasSubstr("first difference in process_, call 2, trace 2 of its input"),
                      HasSubstr("recorded knl_setI32TraceAttribute(output 0, \"ntr\", 3, 0)"),
                      HasSubstr("now knl_getDataChannelFlag(input 0)")));
}

TEST_F(ReplayTest, OtherMessageIsNamed)
{
    recordOne("recorded");
    const JobEnd end = replay("bad", {"--library", library("recorded_says_other")});
    EXPECT_EQ(end.exitCode, 1);
    EXPECT_THAT(end.output,
                AllOf(HasSubstr("first difference in process_, call 4, trace 4 of its input"),
                      HasSubstr("knl_sendMessage(1, \"trace 4 has been multiplied\")"),
                      HasSubstr("argument 2: recorded \"trace 4 is multiplied\", now "
                                "\"trace 4 has been multiplied\"")));
}

TEST_F(ReplayTest, ModuleThatReadsAMissingFileIsToldSo)
{
    writeJob(std::string(synthetic) +
             "  - {name: write, module: su_out, input: make, file: out.su}\n");
    ASSERT_EQ(record({}).exitCode, 0);
    writeJob("  - {name: read, module: su_in, file: out.su}\n"
             "  - {name: picture, module: section, input: read}\n");
    ASSERT_EQ(record({"read"}).exitCode, 0);
    fs::remove(directory.path("out.su"));

    const JobEnd end = replay("read");
    EXPECT_EQ(end.exitCode, 1);
    EXPECT_THAT(end.errors, AllOf(HasSubstr("out.su"),
                                  HasSubstr("of the parameter \"file\" does not exist here")));
}

// ---------------------------------------------------------------------------- records of crashes

TEST_F(ReplayTest, CrashHappensAgainAtTheSameCall)
{
    writeJob(std::string(synthetic) +
             "  - {name: bad, input: make, module: end_process, how: raise, with: 11, where: "
             "process, at: 3}\n"
             "  - {name: end, input: bad, module: histogram}\n");
    const JobEnd crashed = record({"bad"});
    ASSERT_EQ(crashed.exitCode, 128 + SIGSEGV) << crashed.errors;

    const JobEnd end = replay("bad");
    EXPECT_EQ(end.exitCode, 128 + SIGSEGV) << end.output << end.errors;
    EXPECT_THAT(end.errors,
                AllOf(HasSubstr("in process_, trace 3 of its input"),
                      HasSubstr("in entry 4 of the record, before any call of the interface")));
}

TEST_F(ReplayTest, RecordOfAnEndedRunCanBeReplayed)
{
    writeJob(std::string(synthetic) +
             "  - {name: last, module: recorded, input: make}\n"
             "  - {name: bad, input: last, module: end_process, how: _exit, with: 3, where: "
             "process, at: 3}\n"
             "  - {name: end, input: bad, module: histogram}\n");
    ASSERT_EQ(record({"last"}).exitCode, 1);

    const JobEnd end = replay("last");
    EXPECT_EQ(end.exitCode, 0) << end.output << end.errors;
    EXPECT_THAT(end.output, HasSubstr("compared     4 calls of entry points"));
    EXPECT_THAT(end.errors, HasSubstr("ends before the run did"));
}

// As on a full disk: the file must not grow beyond a size.
TEST_F(ReplayTest, RecordThatCannotGrowDoesNotEndTheJob)
{
    writeJob(std::string(synthetic) + "  - {name: bad, input: make, module: recorded}\n"
                                      "  - {name: end, input: bad, module: histogram}\n");
    const JobEnd recorded = [this] {
        const FileSizeLimit full(20000);
        return record({"bad"});
    }();
    EXPECT_EQ(recorded.exitCode, 0) << recorded.errors;
    EXPECT_THAT(recorded.errors, AllOf(HasSubstr("the record \"bad.record\" is not whole"),
                                       HasSubstr("File too large")));

    const JobEnd end = replay("bad");
    EXPECT_EQ(end.exitCode, 0) << end.output << end.errors;
    EXPECT_THAT(end.output, HasSubstr("no difference"));
    EXPECT_THAT(end.errors, HasSubstr("is cut off"));
}

// ------------------------------------------------------------------- records that are not as
// written

TEST_F(ReplayTest, RecordsThatAreCutOffAreReplayedAsFarAsTheyGo)
{
    recordOne("recorded", {"--record-traces", "3"});
    const std::string whole = directory.read("bad.record");
    for (const double share : {0.1, 0.3, 0.5, 0.7, 0.9}) {
        const auto size = static_cast<std::size_t>(share * static_cast<double>(whole.size()));
        directory.write("bad.record", whole.substr(0, size));
        const JobEnd end = replay("bad");
        EXPECT_THAT(end.exitCode, AnyOf(0, 2)) << size << end.output << end.errors;
        EXPECT_THAT(end.errors,
                    AnyOf(HasSubstr("is cut off: it ends after " + std::to_string(size) + " bytes"),
                          HasSubstr("the record ends "))) // between two frames
            << size;
        EXPECT_THAT(end.output, Not(HasSubstr("first difference")));
    }
}

// Nobody takes the second one any more; the sanitizers tell where it is left.
TEST_F(ReplayTest, ARecordMayEndWithTracesInTheInput)
{
    writeJob(std::string(synthetic) + "  - {name: twice, input: make, module: emit_twice}\n"
                                      "  - {name: bad, input: twice, module: recorded}\n"
                                      "  - {name: end, input: bad, module: histogram}\n");
    ASSERT_EQ(record({"bad"}, {"--record-traces", "1"}).exitCode, 0);
    const JobEnd end = replay("bad");
    EXPECT_EQ(end.exitCode, 0) << end.errors;
    EXPECT_THAT(end.output, HasSubstr("2 calls of entry points"));
    EXPECT_THAT(end.output, HasSubstr("no difference"));
}

TEST_F(ReplayTest, DamagedRecordsAreTold)
{
    recordOne("recorded", {"--record-traces", "3"});
    const std::string whole = directory.read("bad.record");
    const auto second = whole.size() / 2;
    std::string damaged = whole;
    damaged[second] = static_cast<char>(damaged[second] ^ 0x10);
    directory.write("bad.record", damaged);
    const JobEnd end = replay("bad");
    EXPECT_EQ(end.exitCode, 2) << end.output << end.errors;
    EXPECT_THAT(end.errors, AllOf(HasSubstr("is damaged at byte "),
                                  HasSubstr("only what stands before was compared")));
    EXPECT_THAT(end.output, HasSubstr("no difference"));
}

TEST_F(ReplayTest, FilesThatAreNotRecordsAreRefused)
{
    writeJob(std::string(synthetic) + "  - {name: end, input: make, module: histogram}\n");
    directory.write("bad.record", "# a note\n");
    JobEnd end = replay("bad");
    EXPECT_EQ(end.exitCode, 2);
    EXPECT_THAT(end.errors, HasSubstr("is not a record of a module"));
    end = record({"make"}, {"--record", "make=job.yaml"});
    EXPECT_EQ(end.exitCode, 2);
    end = directory.run({"run", "job.yaml", "--record", "make=bad.record"});
    EXPECT_EQ(end.exitCode, 2);
    EXPECT_THAT(end.errors, HasSubstr("exists and is not a record"));
    EXPECT_EQ(directory.read("bad.record"), "# a note\n");

    directory.write("bad.record", "VORN module record, format 99\nM");
    end = replay("bad");
    EXPECT_EQ(end.exitCode, 2);
    EXPECT_THAT(end.errors, AllOf(HasSubstr("has format 99"), HasSubstr("reads format 1")));
}

TEST_F(ReplayTest, WrongCallsAreRefused)
{
    recordOne("recorded", {"--record-traces", "3"});
    struct
    {
        std::vector<std::string> words;
        const char* text;
    } const calls[] = {
        {{"run", "job.yaml", "--record", "bad"}, "expected MODULE=FILE"},
        {{"run", "job.yaml", "--record", "gone=a.record"}, "the job has no module \"gone\""},
        {{"run", "job.yaml", "--record", "bad=a.record", "--record", "bad=b.record"}, "twice"},
        {{"run", "job.yaml", "--record", "bad=no/a.record"}, "no/a.record"},
        {{"run", "job.yaml", "--record-traces", "3"}, "needs --record"},
        {{"run", "job.yaml", "--record", "bad=a.record", "--record-traces", "-3"}, "from 0"},
        {{"run", "job.yaml", "--record", "bad=a.record", "--jobs", "2"}, "cannot be combined"},
        {{"replay", "gone.record"}, "gone.record"},
        {{"replay", "bad.record", "--library", "gone.so"}, "--library: \"gone.so\""},
        {{"replay", "bad.record", "--library", "job.yaml"}, "cannot be loaded"},
        {{"replay", "bad.record", "--tolerance", "-1"}, "--tolerance"},
        {{"replay", "bad.record", "--gdb", "--valgrind"}, "cannot be combined"},
    };
    for (const auto& call : calls) {
        const JobEnd end = directory.run(call.words);
        EXPECT_EQ(end.exitCode, 2) << call.text << "\n" << end.errors;
        EXPECT_THAT(end.errors, HasSubstr(call.text));
    }
    const JobEnd end =
        replay("bad", {"--library", std::string(VORN_TEST_HOME) + "/lib/libmissing_process.so"});
    EXPECT_EQ(end.exitCode, 2);
    EXPECT_THAT(end.errors, HasSubstr("has no entry point process_"));
}

} // namespace
