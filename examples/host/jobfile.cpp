// A job file whose reader and writer are arrays of the application: what stands between them comes
// from the file, and the command runs the same file on disk. Needs neither Qt nor the kernel.
// Run it with the job file as its argument.
#include "vorn_job.h"

#include <cstddef>
#include <cstdio>
#include <span>
#include <vector>

namespace {

constexpr int traces = 4;
constexpr int samples = 9;
constexpr int interval = 4000; // microseconds

// True when the job is done; says what is wrong otherwise.
bool run(const VORN::Job& job)
{
    for (const VORN::JobDiagnostic& one : job.check())
        std::printf("%s\n", one.line.c_str());
    const VORN::JobResult result = job.run();
    if (result.outcome != VORN::RunOutcome::done)
        std::printf("%s\n", result.error.c_str());
    return result.outcome == VORN::RunOutcome::done;
}

void print(const VORN::JobCollection& collection)
{
    const auto length = static_cast<std::size_t>(collection.traceLength);
    for (std::size_t i = 0; i < static_cast<std::size_t>(collection.count); ++i) {
        std::printf("%5g m:", collection.words.at("offset")[i]);
        for (std::size_t j = 0; j < length; ++j)
            std::printf(" %g", static_cast<double>(collection.samples[i * length + j]));
        std::printf("\n");
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::printf("usage: %s JOB.yaml\n", argv[0]);
        return 2;
    }
    std::vector<float> spikes(static_cast<std::size_t>(traces) * samples);
    std::vector<double> offsets;
    for (std::size_t i = 0; i < traces; ++i) {
        spikes[i * samples + samples / 2] = static_cast<float>(i + 1);
        offsets.push_back(100.0 * static_cast<double>(i + 1));
    }

    VORN::Job job = VORN::Job::fromFile(argv[1]);
    job.setSource("read", VORN::JobTraces{spikes, samples, interval, {{"offset", offsets}}});
    VORN::JobCollection result;
    result.words["offset"]; // is wanted
    job.setSink("write", result);
    std::printf("from an array into an array\n");
    if (!run(job))
        return 1;
    print(result);

    // The same job, with a function that makes traces and one that takes them.
    int made = 0;
    job.setSource("read", VORN::JobTraceMaker{samples,
                                              interval,
                                              {"offset"},
                                              [&](std::span<float> trace, std::span<double> words) {
                                                  if (made == 2)
                                                      return false;
                                                  trace[0] = 1;
                                                  words[0] = 50.0 * ++made;
                                                  return true;
                                              }});
    job.setSink("write", VORN::JobTraceTaker{{"offset"}, [](const VORN::JobTrace& trace) {
                                                 std::printf("%5g m begins with %g\n",
                                                             trace.values[0],
                                                             static_cast<double>(trace.samples[0]));
                                             }});
    std::printf("from a function to a function\n");
    return run(job) ? 0 : 1;
}
