// Files that state much, or are mostly holes: the command needs the memory that the work takes, not
// what a header states.
#include "ProcessingTree.h"

#include "SegyBytes.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::SizeIs;

namespace fs = std::filesystem;

namespace {

constexpr long megabyte = 1000000;

class LargeInputTest : public ::testing::Test
{
protected:
    // With little memory: the command itself and its libraries need some 60 MB.
    ProcessResult runSmall(const std::vector<std::string>& words) const
    {
        const ProcessResult result = tree.run(words);
        if (memoryIsOurs) {
            EXPECT_LT(result.peakBytes, 120 * megabyte) << result.errors;
        }
        return result;
    }

    ProcessingTree tree;
};

} // namespace

// ---- Lengths that the file does not hold ----

TEST_F(LargeInputTest, AFewBytesThatStateManySamplesEndEachCommandAtOnce)
{
    SegyBytes file;
    file.describe(0, 4000, 5);
    file.header[3500] = 2;
    file.setBinary(3269, 4, 500000000);
    file.addIeeeTrace(1, 100, 1);
    file.setTrace(0, 115, 2, 0);
    file.write(tree.path("few.sgy"));
    ASSERT_EQ(fs::file_size(tree.path("few.sgy")), 4240u);
    const std::string refusal =
        "few.sgy: holds no whole trace: the binary header states 500000000 samples per trace and "
        "the first trace header 0; a trace of 500000000 samples in format 5, 4-byte IEEE float, "
        "takes 2000000240 bytes with its header, and 640 bytes follow the headers of the file; if "
        "its traces are shorter, state `samples`";

    const ProcessResult header = runSmall({"header", "few.sgy"});
    EXPECT_EQ(header.exitCode, 2);
    EXPECT_EQ(header.errors, "vorn: " + refusal + "\n");
    const ProcessResult picture = runSmall({"plot", "few.sgy", "-o", "few.png"});
    EXPECT_EQ(picture.exitCode, 2);
    EXPECT_EQ(picture.errors, "vorn: " + refusal + "\n");
    EXPECT_FALSE(tree.exists("few.png"));

    for (const std::string step : {"module: trace_qc", "module: bandpass, low: 10",
                                   "module: spectrum", "module: agc, window: 0.1"})
    {
        tree.write("job.yaml", "modules:\n"
                               "  - {name: read, module: segy_in, file: few.sgy}\n"
                               "  - {name: step, input: read, " +
                                   step + "}\n");
        const ProcessResult job = runSmall({"run", "job.yaml"});
        EXPECT_EQ(job.exitCode, 1) << step;
        const std::vector<std::string> fatal = linesWith(job.errors, " fatal ");
        ASSERT_THAT(fatal, SizeIs(1)) << job.errors;
        EXPECT_THAT(fatal[0], EndsWith(refusal + " (job.yaml:2)")) << step;
    }

    tree.write("job.yaml", "modules:\n"
                           "  - {name: read, module: segy_in, file: few.sgy, samples: 100}\n"
                           "  - {name: step, input: read, module: trace_qc}\n");
    EXPECT_EQ(runSmall({"run", "job.yaml"}).exitCode, 0) << "the advice of the message";
}

// ---- The limit of each module ----

// A trace of 200,000 samples takes less than a megabyte, and every module a few of them.
TEST_F(LargeInputTest, EveryModuleRefusesWhatExceedsItsMemoryLimit)
{
    SegyBytes file;
    file.describe(200000 & 0xFFFF, 4000, 5);
    file.header[3500] = 2;
    file.setBinary(3269, 4, 200000);
    file.addIeeeTrace(1, 200000, 1);
    file.write(tree.path("long.sgy"));
    const std::string ending = " MB of memory, and memory_limit is 1 MB; raise memory_limit, or ";
    const struct
    {
        const char* step;
        std::string says;
    } rows[] = {
        {"module: agc", "the sums over traces of 200000 samples would need 4" + ending + "shorten"},
        {"module: autocorrelation",
         "autocorrelations of 200000 samples with 125 lags would need 10" + ending + "choose a "},
        {"module: bandpass, low: 10",
         "the transform of traces of 200000 samples would need 15" + ending + "shorten"},
        {"module: gain, time_power: 1",
         "a curve for traces of 200000 samples would need 2" + ending + "shorten"},
        {"module: nmo, times: [0 s], velocities: [2000]",
         "correcting traces of 200000 samples would need 4" + ending + "shorten"},
        {"module: resample, interval: 8 ms",
         "resampling 200000 samples to 100000 would need 2" + ending + "choose a longer"},
        {"module: section",
         "a window of 200000 samples would need 2" + ending + "choose a shorter"},
        {"module: shift, time: 1 s",
         "shifting traces of 200000 samples would need 4" + ending + "shorten"},
        {"module: spectrum", "the spectrum of 200000 samples would need 25" + ending + "choose a "},
        {"module: stack", "the sums of traces of 200000 samples would need 3" + ending + "shorten"},
        {"module: trace_qc",
         "measuring traces of 200000 samples would need 234" + ending + "short"},
        {"module: window, end: 2000 s",
         "a window of 500001 samples would need 3" + ending + "choose a shorter"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.step);
        const auto job = [&](const char* limit) {
            tree.write("job.yaml", "modules:\n"
                                   "  - {name: read, module: segy_in, file: long.sgy}\n"
                                   "  - {name: step, input: read, memory_limit: " +
                                       std::string(limit) + ", " + row.step +
                                       "}\n"
                                       "  - {name: write, module: su_out, input: step, file: o.su, "
                                       "overwrite: true}\n");
            if (row.step == std::string("module: section") ||
                row.step == std::string("module: spectrum"))
                tree.write("job.yaml", "modules:\n"
                                       "  - {name: read, module: segy_in, file: long.sgy}\n"
                                       "  - {name: step, input: read, memory_limit: " +
                                           std::string(limit) + ", " + row.step + "}\n");
            return tree.run({"run", "job.yaml"});
        };
        const ProcessResult low = job("1");
        EXPECT_EQ(low.exitCode, 1);
        const std::vector<std::string> fatal = linesWith(low.errors, " fatal ");
        ASSERT_THAT(fatal, SizeIs(1)) << low.errors;
        EXPECT_THAT(fatal[0], HasSubstr(" step   " + row.says));
        const ProcessResult high = job("0.3 GB");
        EXPECT_THAT(linesWith(high.errors, "memory_limit"), SizeIs(0)) << high.errors;
    }
}

TEST_F(LargeInputTest, ReadersAndSourcesHaveALimitToo)
{
    const struct
    {
        const char* step;
        std::string says;
    } rows[] = {
        {"module: segy_in, file: hole.sgy",
         "hole.sgy: a trace of 300000000 samples would need 2401 MB of memory, and memory_limit is "
         "1000 MB; raise memory_limit, or state `samples` if its traces are shorter"},
        {"module: su_in, file: hole.su, samples: 300000000",
         "hole.su: a trace of 300000000 samples would need 2401 MB of memory, and memory_limit is "
         "1000 MB; raise memory_limit, or state `samples` if its traces are shorter"},
        {"module: synthetic, samples: 300000000, shots: 1",
         "shots of 48 channels with 300000000 samples would need 1201 MB of memory, and "
         "memory_limit is 1000 MB; raise memory_limit, or lower channels or samples"},
        {"module: synthetic, samples: 1, channels: 2000000000, shots: 1, spacing: 0",
         "shots of 2000000000 channels with 1 samples would need 16001 MB of memory, and "
         "memory_limit is 1000 MB; raise memory_limit, or lower channels or samples"},
    };
    SegyBytes file;
    file.describe(0, 4000, 5);
    file.header[3500] = 2;
    file.setBinary(3269, 4, 300000000);
    file.write(tree.path("hole.sgy"));
    fs::resize_file(tree.path("hole.sgy"), 3600 + 240 + 4 * int64_t{300000000});
    tree.write("hole.su", std::string(240, '\1'));
    fs::resize_file(tree.path("hole.su"), 240 + 4 * int64_t{300000000});
    for (const auto& row : rows) {
        SCOPED_TRACE(row.step);
        tree.write("job.yaml", "modules:\n  - {name: read, " + std::string(row.step) +
                                   "}\n  - {name: step, module: spectrum, input: read}\n");
        const ProcessResult job = runSmall({"run", "job.yaml"});
        EXPECT_EQ(job.exitCode, 1);
        const std::vector<std::string> fatal = linesWith(job.errors, " fatal ");
        ASSERT_THAT(fatal, SizeIs(1)) << job.errors;
        EXPECT_THAT(fatal[0], EndsWith(row.says + std::string(" (job.yaml:2)")));
    }
}

// Nothing is taken before the check: the traces are a hole of 1.2 GB, which segy_in may pass on.
TEST_F(LargeInputTest, WhatIsRefusedIsNotTakenBefore)
{
    SegyBytes file;
    file.describe(0, 4000, 5);
    file.header[3500] = 2;
    file.setBinary(3269, 4, 300000000);
    file.write(tree.path("hole.sgy"));
    fs::resize_file(tree.path("hole.sgy"), 3600 + 240 + 4 * int64_t{300000000});
    const struct
    {
        const char* step;
        int megabytes;
    } rows[] = {{"module: agc", 4800},
                {"module: nmo, times: [0 s], velocities: [2000]", 4800},
                {"module: resample, interval: 8 ms", 3000},
                {"module: shift, time: 1 s", 4800},
                {"module: window, start: 0 s", 1200},
                {"module: bandpass, low: 10", 21601},
                {"module: gain, time_power: 1", 2400},
                {"module: stack", 3600},
                {"module: trace_qc", 214891}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.step);
        tree.write("job.yaml",
                   "modules:\n"
                   "  - {name: read, module: segy_in, file: hole.sgy, memory_limit: 3 GB}\n"
                   "  - {name: step, input: read, " +
                       std::string(row.step) +
                       "}\n"
                       "  - {name: write, module: su_out, input: step, file: o.su}\n");
        const ProcessResult job = runSmall({"run", "job.yaml"});
        EXPECT_EQ(job.exitCode, 1);
        EXPECT_THAT(linesWith(job.errors, " would need " + std::to_string(row.megabytes) + " MB"),
                    SizeIs(testing::Ge(1u)))
            << job.errors;
    }
}

// The limit allows what the machine does not have: FFTW would end the process.
TEST_F(LargeInputTest, TransformsWithoutMemoryEndTheModuleAndNotTheProcess)
{
    if (!memoryIsOurs)
        GTEST_SKIP() << "the address sanitizer needs all addresses";
    constexpr rlim_t memory = 1 << 30;
    const struct
    {
        const char* step;
        std::string says;
    } rows[] = {
        {"module: autocorrelation", "there is not enough memory"},
        {"module: bandpass, low: 10", "not enough memory to transform traces of 20000000 samples"},
        {"module: spectrum", "not enough memory for the spectrum of 20000000 samples"},
        {"module: trace_qc", "there is not enough memory"},
    };
    for (const auto& row : rows) {
        // At each of these sizes another of the module's blocks is the one that is not there.
        for (const int megabytes : {500, 700}) {
            tree.write("job.yaml", "modules:\n"
                                   "  - {name: read, module: synthetic, shots: 1, channels: 1, "
                                   "samples: 20000000, interval: 0.001, noise: 1}\n"
                                   "  - {name: step, input: read, memory_limit: 20 GB, " +
                                       std::string(row.step) + "}\n");
            const ProcessResult job = tree.runLimited(
                RLIMIT_AS, memory / 1000 * static_cast<rlim_t>(megabytes), {"run", "job.yaml"});
            EXPECT_TRUE(job.exitCode == 0 || job.exitCode == 1)
                << row.step << " with " << megabytes << " MB: " << job.exitCode << job.errors;
            if (megabytes == 500) {
                EXPECT_THAT(linesWith(job.errors, row.says), SizeIs(testing::Ge(1u))) << job.errors;
            }
        }
    }
}

TEST_F(LargeInputTest, SortCountsWhatItKeepsOfEachTrace)
{
    const auto job = [&](const char* limit) {
        tree.write("job.yaml",
                   "modules:\n"
                   "  - {name: read, module: synthetic, samples: 1, shots: 700, channels: 100}\n"
                   "  - {name: step, input: read, module: sort, keys: [offset], memory_limit: " +
                       std::string(limit) +
                       "}\n"
                       "  - {name: write, module: su_out, input: step, file: o.su}\n");
        return tree.run({"run", "job.yaml"});
    };
    const ProcessResult low = job("1");
    EXPECT_EQ(low.exitCode, 1);
    EXPECT_THAT(linesWith(low.errors, " fatal "),
                testing::ElementsAre(HasSubstr(
                    " step   sorting more than 65536 traces would need 2 MB of memory, and "
                    "memory_limit is 1 MB; raise memory_limit, or sort parts of them")));
    EXPECT_FALSE(tree.exists("o.su"));
    EXPECT_EQ(job("2").exitCode, 0);
}

// ---- Selections ----

// 241 gigabytes of a hole: traces of one byte.
TEST_F(LargeInputTest, TracesOfALargeFileAreWalkedAndNotListed)
{
    constexpr int64_t traces = 1000000000;
    SegyBytes file;
    file.describe(1, 4000, 8);
    file.addHeader(1, 1, 1, 4000);
    file.addSample(1, 1);
    file.write(tree.path("many.sgy"));
    fs::resize_file(tree.path("many.sgy"), 3600 + 241 * traces);
    // Every list of these numbers would take gigabytes.
    for (const char* numbers : {"1:1000000000:100000000", "999999991:", "999999990:1000000000:1,5"})
    {
        tree.write("job.yaml", "modules:\n"
                               "  - {name: read, module: segy_in, file: many.sgy, traces: \"" +
                                   std::string(numbers) +
                                   "\"}\n"
                                   "  - {name: write, module: su_out, input: read, file: o.su}\n");
        const ProcessResult job = runSmall({"run", "job.yaml"});
        EXPECT_EQ(job.exitCode, 0) << job.errors;
        const int selected = numbers == std::string("999999990:1000000000:1,5") ? 12 : 10;
        EXPECT_EQ(fs::file_size(tree.path("o.su")), static_cast<uintmax_t>(selected * 244));
    }
    const ProcessResult header =
        runSmall({"header", "many.sgy", "-t", "1:1000000000:250000000", "-w", "ns,cdp"});
    EXPECT_EQ(header.exitCode, 0) << header.errors;
    EXPECT_THAT(header.output, HasSubstr("trace headers of 4 traces"));
    const ProcessResult picture =
        runSmall({"plot", "many.sgy", "-o", "many.png", "-t", "1:1000000000"});
    EXPECT_THAT(picture.errors, HasSubstr("1000000000 traces are too many for a picture; every "
                                          "50000th is drawn"));
}

// ---- Pictures ----

TEST_F(LargeInputTest, PicturesOfLongTracesNeedMemoryByTheirPixels)
{
    // 200 MB of samples, nearly all of them a hole.
    constexpr int traces = 800;
    constexpr int64_t bytes = 240 + 4 * int64_t{65535};
    SegyBytes file;
    file.describe(65535, 1000, 5);
    file.addHeader(1, 1, 65535, 1000);
    file.write(tree.path("sparse.sgy"));
    {
        std::fstream stream(tree.path("sparse.sgy"),
                            std::ios::in | std::ios::out | std::ios::binary);
        for (int i = 1; i < traces; ++i) {
            stream.seekp(3600 + i * bytes);
            stream.write(reinterpret_cast<const char*>(file.traces.data()), 240);
        }
    }
    fs::resize_file(tree.path("sparse.sgy"), static_cast<uintmax_t>(3600 + traces * bytes));
    for (const char* mode : {"density", "wiggle"}) {
        const ProcessResult picture =
            runSmall({"plot", "sparse.sgy", "-o", "sparse.png", "--mode", mode});
        EXPECT_EQ(picture.exitCode, 0) << picture.errors;
        EXPECT_EQ(problemOfPng(tree.path("sparse.png")), "");
    }

    tree.write("job.yaml", "modules:\n"
                           "  - {name: read, module: segy_in, file: sparse.sgy}\n"
                           "  - {name: picture, module: section, input: read}\n");
    const ProcessResult job = tree.run({"run", "job.yaml", "--pictures", "pictures"});
    EXPECT_EQ(job.exitCode, 0) << job.errors;
    if (memoryIsOurs) {
        EXPECT_LT(job.peakBytes, 220 * megabyte);
    }
    EXPECT_EQ(problemOfPng(tree.path("pictures/picture.png")), "");
}

// One trace of 240 MB.
TEST_F(LargeInputTest, ATraceIsDrawnInPieces)
{
    SegyBytes file;
    file.describe(0, 4000, 5);
    file.header[3500] = 2;
    file.setBinary(3269, 4, 60000000);
    file.write(tree.path("hole.sgy"));
    fs::resize_file(tree.path("hole.sgy"), 3600 + 240 + 4 * int64_t{60000000});

    const ProcessResult picture = runSmall({"plot", "hole.sgy", "-o", "hole.png"});

    EXPECT_EQ(picture.exitCode, 0) << picture.errors;
    EXPECT_EQ(problemOfPng(tree.path("hole.png")), "");
}

// ---- The shortest traces, and windows beyond all traces ----

TEST_F(LargeInputTest, TracesOfOneAndTwoSamplesGoThroughEveryModule)
{
    for (const char* samples : {"1", "2"}) {
        tree.write(
            "job.yaml",
            "modules:\n"
            "  - {name: read, module: synthetic, shots: 4, channels: 12, noise: 1, samples: " +
                std::string(samples) +
                "}\n"
                "  - {name: qc, module: trace_qc, input: read, spike_window: 1000000000, "
                "lag: 1000000000}\n"
                "  - {name: b, module: bandpass, input: qc, low: 10, high: 60}\n"
                "  - {name: g, module: gain, input: b, time_power: 2, balance: rms}\n"
                "  - {name: a, module: agc, input: g, window: 1e300}\n"
                "  - {name: m, module: mute, input: a, offsets: [0], times: [-1e300], "
                "taper: 1e300}\n"
                "  - {name: s, module: sort, input: m, keys: [cdp]}\n"
                "  - {name: t, module: stack, input: s}\n"
                "  - {name: picture, module: section, input: s}\n"
                "  - {name: amplitudes, module: spectrum, input: s}\n"
                "  - {name: fold, module: header_plot, input: s, mode: fold}\n"
                "  - {name: su, module: su_out, input: t, file: o.su}\n"
                "  - {name: segy, module: segy_out, input: t, file: o.sgy}\n");
        const ProcessResult job = tree.run({"run", "job.yaml", "--pictures", "pictures"});
        EXPECT_EQ(job.exitCode, 0) << job.errors;
        const ProcessResult header = tree.run({"header", "o.sgy"});
        EXPECT_THAT(header.output, HasSubstr(" of " + std::string(samples) + " samples"));
        EXPECT_EQ(tree.run({"plot", "o.sgy", "-o", "o.png"}).exitCode, samples[0] == '1' ? 2 : 0);
    }
}
