/// @file Plan.h
///
/// How a job runs in parts: which of its modules run on ranges of the traces, on which, and what is
/// left for the end.
#ifndef PLAN_H
#define PLAN_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// Where a module runs.
enum class Stage
{
    parts = 1, ///< in each part, on its range of the traces
    merge = 2  ///< in one process, when all parts have ended
};

/// A module of the job, in the order of the job file.
struct PlannedModule
{
    std::string name;
    Stage stage = Stage::merge;
    std::string reason; ///< one sentence: why there, and not before
};

/// An output port of a module of the first stage that modules of the second read. Its traces wait
/// in a spool, a file for each part.
struct PlannedSpool
{
    int module = 0; ///< index in the job
    int port = 0;   ///< from 0
};

/// A range of the traces that the sources give, in their order.
struct PlannedPart
{
    int64_t first = 0; ///< number of the first trace, from 0
    int64_t count = 0; ///< traces
};

/// A file that the modules of the job read, as it was when the plan was made.
struct PlannedInput
{
    std::string path;
    int64_t bytes = 0;
    int64_t modifiedSeconds = 0;
    int64_t modifiedNanoseconds = 0;
};

/// A file that the parts write together, each its own range.
struct PlannedOutput
{
    std::string module; ///< name in the job
    std::string path;   ///< as the parameter of the module names it, absolute
    std::string target; ///< the hidden file beside it that the parts write
};

class OrderFile;

/// That the source gives its traces sorted: the parts are ranges of that order.
struct PlannedOrder
{
    int source = 0;                ///< index in the job
    std::string sorter;            ///< name of the module that sorts
    std::vector<std::string> keys; ///< "cdp", "-offset"
    std::string file;              ///< that has the order, absolute
};

/// A plan. Parts and merge are made by the same version from the same job and inputs.
struct Plan
{
    std::string vornVersion;
    std::string vornHome;
    std::string jobFile;                        ///< absolute path
    std::string jobPath;                        ///< as it was given, for messages
    std::string jobSha256;                      ///< of the job file, hexadecimal
    std::vector<std::string> settings;          ///< the values of --set
    std::vector<std::string> moduleDirectories; ///< the values of --allow-modules-from
    std::string scratchDirectory;               ///< of --scratch; empty: the job's
    std::string scratchTraces;                  ///< of --scratch-traces; empty: the job's
    std::string workingDirectory;               ///< relative paths of --set begin here
    std::string cpuClass;  ///< the vector instructions of the machine that made it, as "avx2"
    bool portable = false; ///< no vector instructions beyond those that every machine has
    bool facts = true;     ///< parts note what reports show: ranges of header words, bytes read
    /// Receipts may be read after a loss of power: what a part has written is on the disk before.
    bool lasting = true;
    int64_t traces = 0;             ///< that the sources give, in all
    std::vector<PlannedPart> parts; ///< in order, without gaps
    std::vector<PlannedModule> modules;
    std::vector<PlannedSpool> spools;
    std::vector<PlannedInput> inputs;
    std::vector<PlannedOutput> outputs;
    std::optional<PlannedOrder> order;
    /// The order, until it lies in the directory of the plan: see Planner.h.
    std::shared_ptr<const OrderFile> orderFile;

    /// Whether anything is left to be processed when the parts have ended.
    bool hasSecondStage() const { return !spools.empty(); }
};

} // namespace host

#endif
