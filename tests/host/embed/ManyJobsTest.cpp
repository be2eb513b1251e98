// Many jobs of the processing modules in one process: cancelled at any moment from another thread,
// every third one failing, none of them noticed by the next.
#include "JobManager.h"
#include "ProcessingTree.h"
#include "embed/vorn_job.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using VORN::Job;
using VORN::RunOutcome;

// Bytes of the process that are resident.
long residentBytes()
{
    long all = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

constexpr const char* source =
    "  - {name: make, module: synthetic, shots: 4, channels: 24, samples: "
    "200}\n";

// Chains behind it; each writes out.su.
const std::vector<std::string>& chains()
{
    static const std::vector<std::string> all = {
        "  - {name: a, module: bandpass, input: make, corners: [5, 10, 60, 80]}\n"
        "  - {name: b, module: agc, input: a, window: 100 ms}\n"
        "  - {name: write, module: su_out, input: b, file: out.su}\n",
        "  - {name: a, module: sort, input: make, keys: [-offset]}\n"
        "  - {name: b, module: stack, input: a, key: offset}\n"
        "  - {name: write, module: su_out, input: b, file: out.su}\n",
        "  - {name: a, module: trace_qc, input: make}\n"
        "  - {name: s, module: spectrum, input: a}\n"
        "  - {name: h, module: histogram, input: a}\n"
        "  - {name: write, module: su_out, input: a, file: out.su}\n",
        "  - {name: a, module: gain, input: make, factor: 3}\n"
        "  - {name: b, module: combine, inputs: [make, a], operation: difference}\n"
        "  - {name: c, module: shift, input: b, time: 3 ms}\n"
        "  - {name: write, module: su_out, input: c, file: out.su}\n",
        "  - {name: a, module: mute, input: make, offsets: [0, 3000], times: [0 s, 10 ms]}\n"
        "  - {name: b, module: resample, input: a, interval: 2 ms}\n"
        "  - {name: c, module: fk, input: b, gather: fldr, spacing: 25}\n"
        "  - {name: write, module: su_out, input: c, file: out.su}\n",
    };
    return all;
}

TEST(ManyJobsTest, NoneIsNoticedByTheNext)
{
    const char* wanted = std::getenv("VORN_JOBS");
    const int jobs = wanted != nullptr ? std::atoi(wanted) : 60;
    const ProcessingTree tree;
    const auto job = [&](const std::string& modules) {
        return Job::fromText("schema: segy\nmodules:\n" + modules, tree.path("job.yaml"),
                             {tree.home(), {}});
    };
    tree.write("broken.su", "not a trace");
    std::vector<std::string> expected; // of each chain
    for (const std::string& chain : chains()) {
        const VORN::JobResult result = job(source + chain).run();
        ASSERT_EQ(result.error, "") << chain;
        expected.push_back(tree.read("out.su"));
        ASSERT_GT(expected.back().size(), 0u);
        unlink(tree.path("out.su").c_str());
    }

    std::mt19937 random(5);
    std::map<RunOutcome, int> outcomes;
    long before = 0;
    const int bytesBefore = JobManager::getInstance()->totalJobMemoryUsed;
    for (int i = 0; i < jobs; ++i) {
        if (i == jobs / 3)
            before = residentBytes();
        const std::size_t chain = random() % chains().size();
        if (i % 3 == 2) {
            const VORN::JobResult failed =
                job("  - {name: make, module: su_in, file: broken.su}\n" + chains()[chain]).run();
            EXPECT_EQ(failed.outcome, RunOutcome::failed);
            EXPECT_FALSE(tree.exists("out.su")) << "job " << i;
            ++outcomes[failed.outcome];
            continue;
        }
        std::atomic<bool> ended{false};
        std::thread other;
        if (random() % 2 == 0) {
            const auto after = std::chrono::microseconds(random() % 20000);
            other = std::thread([&ended, after] {
                std::this_thread::sleep_for(after);
                if (!ended)
                    Job::cancel();
            });
        }
        const VORN::JobResult result = job(source + chains()[chain]).run();
        ended = true;
        if (other.joinable())
            other.join();
        ++outcomes[result.outcome];
        if (result.outcome == RunOutcome::done) {
            EXPECT_EQ(tree.read("out.su"), expected[chain]) << "job " << i;
        } else {
            EXPECT_EQ(result.outcome, RunOutcome::cancelled) << "job " << i << ": " << result.error;
        }
        if (tree.exists("out.su")) { // whole, also where the end was asked for as it got its name
            EXPECT_EQ(tree.read("out.su"), expected[chain]) << "job " << i;
        }
        unlink(tree.path("out.su").c_str());
        EXPECT_EQ(tree.names().size(), 1u) << "more than broken.su after job " << i;
    }
    std::printf("%d jobs done, %d cancelled, %d failed\n", outcomes[RunOutcome::done],
                outcomes[RunOutcome::cancelled], outcomes[RunOutcome::failed]);
    EXPECT_EQ(outcomes[RunOutcome::failed], jobs / 3);
    EXPECT_GT(outcomes[RunOutcome::done], 0);
    EXPECT_EQ(JobManager::getInstance()->totalJobMemoryUsed, bytesBefore);
    if (memoryIsOurs) {
        EXPECT_LT(residentBytes() - before, 20 << 20) << "the memory of the process grows";
    }
}

} // namespace
