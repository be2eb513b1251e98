// vorn merge DIR: makes one result of the parts of a planned job.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Text.h"
#include "cli/PlannedJob.h"
#include "cli/RunJob.h"
#include "file/PartOutputs.h"
#include "parts/MergeRun.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <optional>
#include <sys/file.h>
#include <unistd.h>

namespace host {

namespace {

namespace fs = std::filesystem;

// Held while a plan is merged: two at once would take each other's files away.
class MergeLock
{
public:
    explicit MergeLock(const std::string& directory)
        : path((fs::path(directory) / "merge.lock").string()),
          descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666))
    {
        if (descriptor < 0)
            throw CommandError("the file " + quote(path) +
                               " cannot be written: " + std::strerror(errno));
        if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
            close(descriptor);
            throw CommandError("another \"vorn merge\" works on " + quote(directory) +
                               "; wait for its end");
        }
    }
    ~MergeLock() { close(descriptor); }
    MergeLock(const MergeLock&) = delete;
    MergeLock& operator=(const MergeLock&) = delete;

private:
    std::string path;
    int descriptor;
};

// Parts that have run elsewhere, by their receipts.
class StoredParts : public PartsOfJob
{
public:
    explicit StoredParts(const PlannedJob& planned)
        : merging(planned.plan, planned.directory, receiptsOf(planned))
    {
        for (const PlannedOutput& output : planned.plan.outputs)
            VORN::setWholeOutput(output.path, output.target);
    }

    void work(const std::string& /*scratchDirectory*/) override {}
    ProgressState progress() override { return {}; }
    void stop(int /*signal*/) override {}
    std::optional<int64_t> workMicros() const override { return std::nullopt; }
    MergeRun* merge() override { return &merging; }

private:
    static std::vector<Receipt> receiptsOf(const PlannedJob& planned)
    {
        std::vector<Receipt> receipts;
        std::vector<std::string> missing;
        std::string failures;
        const int parts = static_cast<int>(planned.plan.parts.size());
        for (int part = 1; part <= parts; ++part) {
            const std::string path = receiptPath(planned.directory, part);
            if (!fs::exists(path)) {
                missing.push_back(std::to_string(part));
                if (failures.size() < 1000)
                    failures += failureOf(planned.directory, part);
                continue;
            }
            receipts.push_back(readReceipt(path));
            const Receipt& receipt = receipts.back();
            if (receipt.planSha256 != planned.planSha256 || receipt.part != part)
                throw CommandError(fmt::format(
                    "the receipt {} is of another plan (checksum {}; this plan: {}); run part {} "
                    "again",
                    quote(path), receipt.planSha256, planned.planSha256, part));
        }
        if (!missing.empty())
            throw CommandError(fmt::format(
                "{} of {} parts have no receipt: {}; \"vorn status\" tells more, \"vorn part\" "
                "runs them again, and nothing has got its name{}",
                missing.size(), parts, joined(missing, ","), failures));
        return receipts;
    }

    // The last word of a part that has failed; "" when it has not said any.
    static std::string failureOf(const std::string& directory, int part)
    {
        const std::string path = failurePath(directory, part);
        if (!fs::exists(path))
            return "";
        std::string text;
        for (const PartMessage& one : readReceipt(path).messages) {
            if (one.message.severity >= errorSeverity)
                text = fmt::format("\npart {}: {}: {}", part, one.message.module, one.message.text);
        }
        return text;
    }

    MergeRun merging;
};

// Exists when the job has ended, and says when.
std::string endPath(const PlannedJob& planned)
{
    return (fs::path(planned.directory) / "merged").string();
}

void refuseSecondMerge(const PlannedJob& planned)
{
    if (fs::exists(endPath(planned)))
        throw CommandError("the plan in " + quote(planned.directory) +
                           " has been merged; its outputs have their names");
}

// Spools may be as large as the data.
void noteEnd(const PlannedJob& planned)
{
    std::ofstream(endPath(planned)) << "merged\n";
    std::error_code error;
    for (int part = 1; part <= static_cast<int>(planned.plan.parts.size()); ++part) {
        for (std::size_t spool = 0; spool < planned.plan.spools.size(); ++spool)
            fs::remove(spoolPath(planned.directory, part, spool), error);
    }
}

int runMerge(const Arguments& arguments)
{
    checkTimeLimit(arguments);
    const PlannedJob planned = loadPlannedJob(arguments);
    const MergeLock lock(planned.directory);
    refuseSecondMerge(planned);
    StoredParts parts(planned);
    const int code = runJob(arguments, planned.loaded, &parts);
    if (code == exitDone)
        noteEnd(planned);
    return code;
}

} // namespace

Command mergeCommand()
{
    return {"merge",
            runMerge,
            "Make one result of the parts of a job",
            "Ends the job whose parts have run: runs the modules that need all traces, merges what "
            "the others have gathered, gives the outputs their names, and shows messages, table, "
            "report and pictures as \"vorn run\" does with one process. Nothing gets its name "
            "unless every part has left its receipt.",
            {planArgument()},
            runOptions(),
            {{"vorn merge run1 --report job.html", "end the job and write a page with pictures"}}};
}

} // namespace host
