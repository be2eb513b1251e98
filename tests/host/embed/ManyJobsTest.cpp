// Many jobs of all processing modules in one process: every third one fails, others are cancelled
// at any moment from another thread, and none of them is noticed by the next. VORN_JOBS is their
// number.
#include "FileSizeLimit.h"
#include "JobManager.h"
#include "ProcessingTree.h"
#include "ScratchManager.h"
#include "draw/PadStore.h"
#include "embed/vorn_job.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <map>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using testing::ElementsAreArray;
using VORN::Job;
using VORN::JobResult;
using VORN::RunOutcome;
namespace fs = std::filesystem;

// A chain of modules in two parts, between which a module that fails can stand: `first` has one
// module, "make".
struct Chain
{
    const char* first;
    const char* rest;
};

constexpr const char* synthetic =
    "  - {name: make, module: synthetic, shots: 4, channels: 24, samples: 200}\n";
constexpr const char* segy = "  - {name: make, module: segy_in, file: line.sgy}\n";
constexpr const char* su = "  - {name: make, module: su_in, file: line.su}\n";

// Every processing module is in one of them; `in` stands for the module before.
const std::vector<Chain> chains = {
    {synthetic, "  - {name: a, module: bandpass, input: in, corners: [5, 10, 60, 80]}\n"
                "  - {name: b, module: agc, input: a, window: 100 ms}\n"
                "  - {name: write, module: su_out, input: b, file: out.su}\n"},
    {synthetic, "  - {name: a, module: sort, input: in, keys: [-offset]}\n"
                "  - {name: b, module: stack, input: a, key: offset}\n"
                "  - {name: write, module: su_out, input: b, file: out.su}\n"},
    {synthetic, "  - {name: a, module: trace_qc, input: in, table: qc.csv}\n"
                "  - {name: s, module: spectrum, input: a}\n"
                "  - {name: h, module: histogram, input: a}\n"
                "  - {name: write, module: su_out, input: a, file: out.su}\n"},
    {synthetic, "  - {name: a, module: gain, input: in, factor: 3}\n"
                "  - {name: b, module: combine, inputs: [in, a], operation: difference}\n"
                "  - {name: c, module: shift, input: b, time: 3 ms}\n"
                "  - {name: write, module: su_out, input: c, file: out.su}\n"},
    {su,
     "  - {name: a, module: mute, input: in, offsets: [0, 3000], times: [0 s, 10 ms]}\n"
     "  - {name: b, module: resample, input: a, interval: 2 ms}\n"
     "  - {name: c, module: fk, input: b, spacing: 25 m, filter: reject, velocities: [0, 900]}\n"
     "  - {name: write, module: segy_out, input: c, file: out.sgy}\n"},
    {segy,
     "  - {name: a, module: header_math, input: in, set: ['cdp = fldr + tracf'],\n"
     "     table: shots.csv, key: fldr}\n"
     "  - {name: b, module: header_table, input: a, file: words.csv, words: [fldr, cdp, sdel]}\n"
     "  - {name: write, module: segy_out, input: b, file: out.sgy}\n"},
    {su, "  - {name: a, module: select, input: in, where: 'tracf > 5'}\n"
         "  - {name: b, module: kill, input: a, traces: '7:40:11'}\n"
         "  - {name: c, module: nmo, input: b, times: [0.2, 0.7], velocities: [1800, 2500]}\n"
         "  - {name: write, module: su_out, input: c, file: out.su}\n"},
    {segy, "  - {name: a, module: amplitude_map, input: in, measure: rms, x: fldr, y: tracf}\n"
           "  - {name: p, module: header_plot, input: a, x: tracf, y: fldr}\n"
           "  - {name: s, module: section, input: a, gather: fldr}\n"
           "  - {name: t, module: slice, input: a, inline_word: fldr, crossline_word: tracf,\n"
           "     times: [0.1, 0.5]}\n"
           "  - {name: g, module: spectrogram, input: a, traces: '1,50'}\n"
           "  - {name: write, module: segy_out, input: a, file: out.sgy}\n"},
    {synthetic, "  - {name: a, module: window, input: in, start: 100 ms, end: 700 ms}\n"
                "  - {name: b, module: autocorrelation, input: a, lag: 100 ms}\n"
                "  - {name: t, module: tee, input: b}\n"
                "  - {name: write, module: su_out, input: t, file: out.su}\n"
                "  - {name: again, module: segy_out, input: t, file: out.sgy}\n"},
};

// The chain as a job, with `between` after its first module, which is then named `last`.
std::string textOf(const Chain& chain, const std::string& between = "",
                   const std::string& last = "make")
{
    const std::string rest = std::regex_replace(chain.rest, std::regex("\\bin\\b(?=[,\\]])"), last);
    return "schema: segy\nmodules:\n" + (chain.first + between) + rest;
}

std::set<std::string> shippedModules()
{
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(VORN_TEST_SOURCE_DIR "/../modules")) {
        const std::string name = entry.path().filename();
        if (fs::exists(entry.path() / (name + ".yaml")))
            names.insert(name);
    }
    return names;
}

// Bytes of the process that are resident.
long residentBytes()
{
    long all = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

std::size_t entriesOf(const char* folder)
{
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

// What a job has drawn.
std::string describe(const std::vector<host::Pad>& pads)
{
    std::string text;
    for (const host::Pad& pad : pads) {
        text += pad.module + ": " + pad.title + ", " + std::to_string(pad.traces.size()) +
                " traces " + std::to_string(pad.fingerprint) + ", " +
                std::to_string(pad.commands.size()) + " commands";
        for (const host::PadCommand& one : pad.commands)
            text += " " + one.text;
        text += "\n";
    }
    return text;
}

class ManyJobsTest : public ::testing::Test
{
protected:
    using Files = std::map<std::string, std::string>; // bytes by name

    ManyJobsTest()
    {
        const Chain make = {synthetic,
                            "  - {name: one, module: su_out, input: in, file: line.su}\n"
                            "  - {name: two, module: segy_out, input: in, file: line.sgy}\n"};
        EXPECT_EQ(runAlone(textOf(make)).exitCode, 0);
        tree.write("shots.csv", "fldr,sdel\n1,10\n2,20\n3,30\n4,40\n");
        tree.write("broken.su", "not a trace");
        // As it is, with the parameter that tells when.
        writeFile(tree.home() + "/lib/host_throw.yaml",
                  readFile(tree.home() + "/lib/host_throw.yaml") +
                      "parameters: [{name: handled, type: int, default: 0, help: traces}]\n");
        inputs = tree.names();
    }
    ~ManyJobsTest() override
    {
        JobManager& kernel = *JobManager::getInstance();
        kernel.installCreatePadFunc(nullptr, nullptr);
        kernel.installAddTraceToPadFuncFunc(nullptr, nullptr);
        kernel.installAddPlotToPadFuncFunc(nullptr, nullptr);
        kernel.resetJob();
    }

    // In a process of its own.
    ProcessResult runAlone(const std::string& text)
    {
        tree.write("job.yaml", text);
        const ProcessResult result = tree.run({"run", "-q", "job.yaml"});
        unlink(tree.path("job.yaml").c_str());
        EXPECT_EQ(result.exitCode, 0) << result.errors << text;
        return result;
    }

    JobResult run(const std::string& text)
    {
        pads = {};
        pads.install(*JobManager::getInstance());
        return Job::fromText(text, tree.path("job.yaml"), {tree.home(), {}}).run();
    }

    // The files that a job has left, which are removed.
    Files take()
    {
        Files files;
        for (const std::string& name : tree.names()) {
            if (std::find(inputs.begin(), inputs.end(), name) != inputs.end())
                continue;
            files[name] = fs::is_regular_file(tree.path(name)) ? tree.read(name) : "no file";
            fs::remove_all(tree.path(name));
        }
        return files;
    }

    // Nothing but files of the job, each as the job writes it when it runs alone.
    static void expectWhole(const Files& files, const Files& expected)
    {
        for (const auto& [name, bytes] : files) {
            const auto whole = expected.find(name);
            ASSERT_NE(whole, expected.end()) << name;
            EXPECT_TRUE(bytes == whole->second) << name << " differs";
        }
    }

    // A job that fails in one of several ways, the first two at some trace.
    JobResult fail(std::size_t number, std::size_t way)
    {
        const Chain& chain = chains[number];
        const std::string trace = std::to_string(random() % 90);
        switch (way) {
        case 0: // a module in the middle ends its data with an error
            return run(textOf(chain,
                              "  - {name: bad, module: header_math, input: make,\n"
                              "     set: ['ep = 1 / (tracl - 1 - " +
                                  trace + ")']}\n",
                              "bad"));
        case 1: // a module throws, after the others have had traces
            return run(textOf(chain) +
                       "  - {name: bad, module: host_throw, input: make, handled: " + trace +
                       "}\n");
        case 2: // the input has no traces
            return run(textOf({"  - {name: make, module: su_in, file: broken.su}\n", chain.rest}));
        case 3: // there is no input
            return run(textOf({"  - {name: make, module: segy_in, file: none.sgy}\n", chain.rest}));
        default: // an output cannot be written to its end
            const FileSizeLimit disk(random() % 5000);
            return run(textOf(chain));
        }
    }

    const std::vector<const char*> errors = {// of each way of fail()
                                             "division by zero", "no luck today",
                                             "is not a Seismic Unix file",
                                             "the file does not exist", "cannot be written"};
    ProcessingTree tree;
    std::vector<std::string> inputs; // files that are there before each job
    host::PadStore pads;
    std::mt19937 random{5};
};

TEST_F(ManyJobsTest, EveryModuleHasAJob)
{
    std::set<std::string> inChains;
    for (const Chain& chain : chains) {
        const std::string text = textOf(chain);
        const std::regex module("module: (\\w+)");
        for (std::sregex_iterator one(text.begin(), text.end(), module), end; one != end; ++one)
            inChains.insert((*one)[1]);
    }
    EXPECT_THAT(inChains, ElementsAreArray(shippedModules()));
}

TEST_F(ManyJobsTest, NoneIsNoticedByTheNext)
{
    const char* wanted = std::getenv("VORN_JOBS");
    const int jobs = wanted != nullptr ? std::atoi(wanted) : 60;
    JobManager& kernel = *JobManager::getInstance();

    std::vector<Files> expected; // of each chain
    for (const Chain& chain : chains) {
        runAlone(textOf(chain));
        expected.push_back(take());
        ASSERT_FALSE(expected.back().empty()) << textOf(chain);
    }
    std::vector<std::string> drawn(chains.size());
    std::vector<std::chrono::duration<double>> shortest(chains.size());
    std::set<std::string> modulesRun;
    std::map<RunOutcome, int> outcomes;
    std::vector<std::size_t> next; // chains to come, each as often as the others
    const auto deal = [&] {
        if (next.empty()) {
            for (std::size_t i = 0; i < chains.size(); ++i)
                next.push_back(i);
            std::shuffle(next.begin(), next.end(), random);
        }
        const std::size_t chain = next.back();
        next.pop_back();
        return chain;
    };

    // What the first jobs load and learn stays.
    const int warm = jobs / 3;
    long residentBefore = 0;
    std::size_t heapBefore = 0;
    std::size_t descriptors = 0;
    std::size_t threads = 0;
    for (int i = 0; i < jobs; ++i) {
        SCOPED_TRACE("job " + std::to_string(i));
        if (i == warm) {
            residentBefore = residentBytes();
            heapBefore = mallinfo2().uordblks;
            descriptors = entriesOf("/proc/self/fd");
            threads = entriesOf("/proc/self/task");
        }
        JobResult result;
        if (i % 3 == 2) {
            const auto way = static_cast<std::size_t>(i / 3) % errors.size();
            const std::size_t chain = random() % chains.size();
            result = fail(chain, way);
            EXPECT_EQ(result.outcome, way == 3 ? RunOutcome::notStarted : RunOutcome::failed);
            EXPECT_THAT(result.error, testing::HasSubstr(errors[way]));
            const Files files = take();
            // A disk that is full when the job ends may have had room for one of its outputs.
            EXPECT_TRUE(files.empty() || way == 4) << files.begin()->first;
            expectWhole(files, expected[chain]);
        } else {
            const std::size_t chain = deal();
            const bool isFirst = drawn[chain].empty();
            std::thread other;
            if (!isFirst && random() % 2 == 0) {
                const auto after = shortest[chain] * static_cast<double>(random() % 1000) / 1000;
                other = std::thread([after] {
                    std::this_thread::sleep_for(after);
                    Job::cancel();
                });
            }
            const auto start = std::chrono::steady_clock::now();
            result = run(textOf(chains[chain]));
            if (other.joinable())
                other.join();
            const Files files = take();
            if (result.outcome == RunOutcome::done) {
                EXPECT_EQ(files.size(), expected[chain].size());
                for (const VORN::JobModuleFacts& module : result.modules)
                    modulesRun.insert(module.module);
                const std::string pictures = "drawn:\n" + describe(pads.pads());
                const std::chrono::duration<double> taken =
                    std::chrono::steady_clock::now() - start;
                if (isFirst) {
                    drawn[chain] = pictures;
                    shortest[chain] = taken;
                }
                shortest[chain] = std::min(shortest[chain], taken);
                EXPECT_EQ(pictures, drawn[chain]);
            } else {
                EXPECT_EQ(result.outcome, RunOutcome::cancelled) << result.error;
                EXPECT_FALSE(isFirst);
            }
            // Also where the end was asked for as they got their names.
            expectWhole(files, expected[chain]);
        }
        ++outcomes[result.outcome];
        EXPECT_EQ(kernel.totalJobMemoryUsed, 0);
        EXPECT_TRUE(kernel.jobMemoryMap.empty());
        EXPECT_TRUE(kernel.jobModules.empty());
        EXPECT_EQ(ScratchManager::getInstance()->traces_cache.size(), 0u);
    }

    const long resident = residentBytes();
    const std::size_t heap = mallinfo2().uordblks;
    std::printf("%d jobs done, %d cancelled, %d failed, %d not started; %.1f MB resident after a "
                "third of them, %.1f MB at the end; heap in use %.2f and %.2f MB\n",
                outcomes[RunOutcome::done], outcomes[RunOutcome::cancelled],
                outcomes[RunOutcome::failed], outcomes[RunOutcome::notStarted],
                static_cast<double>(residentBefore) / 1e6, static_cast<double>(resident) / 1e6,
                static_cast<double>(heapBefore) / 1e6, static_cast<double>(heap) / 1e6);
    EXPECT_EQ(outcomes[RunOutcome::failed] + outcomes[RunOutcome::notStarted], jobs / 3);
    EXPECT_THAT(modulesRun, testing::IsSupersetOf(shippedModules()));
    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
    EXPECT_EQ(entriesOf("/proc/self/task"), threads);
    // A sanitizer keeps what is freed for a while, and grows with each library that is loaded.
    EXPECT_LT(resident - residentBefore, (memoryIsOurs ? 20L : 200L + jobs) << 20);
    if (memoryIsOurs) {
        EXPECT_LT(heap, heapBefore + (128 << 10));
    }
}

} // namespace
