#include "parts/LocalParts.h"

#include "file/PartOutputs.h"
#include "parts/PlanFile.h"
#include "parts/Planner.h"

#include <filesystem>
#include <numeric>
#include <unistd.h>

namespace host {

namespace fs = std::filesystem;

LocalParts::LocalParts(Plan made, int atATime) : plan(std::move(made)), processes(atATime) {}

// The hidden files of the outputs; false where one cannot be made.
bool LocalParts::makeTargets()
{
    for (PlannedOutput& output : plan.outputs) {
        auto target = std::make_unique<VORN::UnfinishedOutput>();
        const int descriptor = target->create(output.target);
        if (descriptor < 0)
            return false;
        close(descriptor);
        output.target = target->path();
        targets.push_back(std::move(target));
    }
    return true;
}

void LocalParts::work(const std::string& scratchDirectory)
{
    if (!makeTargets())
        return; // one process says why, as ever
    const std::string directory = (fs::path(scratchDirectory) / "parts").string();
    fs::create_directories(directory);
    keepOrder(plan, directory);
    plan.lasting = false; // its directory does not outlive this process
    writePlan(plan, directory);
    std::vector<int> parts(plan.parts.size());
    std::iota(parts.begin(), parts.end(), 1);
    processes.run(directory, parts);

    std::vector<Receipt> receipts;
    const std::map<int, int>& failures = processes.failures();
    for (const int part : parts) {
        if (failures.count(part) > 0) {
            receipts.push_back(processes.failureOf(part));
            break;
        }
        receipts.push_back(readReceipt(receiptPath(directory, part)));
    }
    for (const PlannedOutput& output : plan.outputs)
        VORN::setWholeOutput(output.path, output.target);
    merging.emplace(plan, directory, std::move(receipts));
}

ProgressState LocalParts::progress()
{
    return processes.progress();
}

void LocalParts::stop(int signal)
{
    processes.stop(signal);
}

MergeRun* LocalParts::merge()
{
    return merging ? &*merging : nullptr;
}

} // namespace host
