// Runs a job that is part of the program; prints what it did.
#include "vorn_job.h"

#include <cstdio>

int main()
{
    VORN::Job job =
        VORN::Job::fromText("modules:\n"
                            "  - {name: shots, module: synthetic, shots: 2, channels: 3}\n"
                            "  - {name: write, module: segy_out, input: shots, file: o.sgy}\n");
    for (const VORN::JobDiagnostic& one : job.check())
        std::printf("%s\n", one.line.c_str());
    job.set("write", "file", "shots.sgy");
    const VORN::JobResult result = job.run();
    std::printf("%s\n", result.outcome == VORN::RunOutcome::done ? "done" : result.error.c_str());
    for (const VORN::JobModuleFacts& module : result.modules)
        std::printf("%s: %lld in, %lld out\n", module.name.c_str(),
                    static_cast<long long>(module.tracesIn),
                    static_cast<long long>(module.tracesOut));
    return 0;
}
