/// @file SecondStage.h
///
/// A job whose first modules have done their work in parts, as the scheduler is to see it.
#ifndef SECONDSTAGE_H
#define SECONDSTAGE_H

#include "parts/Plan.h"
#include "parts/Spool.h"
#include "run/RunExtension.h"

#include <memory>
#include <string>
#include <vector>

class DataChannel;

namespace host {

/// As long as it lives, the kernel processes only the modules of the second stage. Those of the
/// first whose outputs they read give the traces of the spools in place of their own work, and
/// those before them end at once; sinks of the first stage are not there. Everything else of the
/// job stays as it is connected, so that modules find the metadata of those before them.
///
/// At most one object exists at a time.
class SecondStage
{
public:
    /// Requires: all modules have prepared. Throws CommandError for a spool that cannot be read.
    SecondStage(const RunView& view, const Plan& plan, const std::string& directory);
    /// The job is as it was.
    ~SecondStage();
    SecondStage(const SecondStage&) = delete;
    SecondStage& operator=(const SecondStage&) = delete;

private:
    /// A spool of all parts, one file after the other.
    struct Feed
    {
        DataChannel* out = nullptr;
        std::vector<std::string> files;
        std::size_t next = 0; ///< of `files`
        std::unique_ptr<SpoolReader> reader;

        bool advance(); ///< to a file that has a trace; false at the end
        void give();    ///< the next trace
    };
    /// A module of the first stage, which gives the traces of spools, if any, and ends.
    struct StandIn
    {
        ModuleEntity* module = nullptr;
        std::vector<Feed> feeds;
        int (*function)() = nullptr; ///< its own
        bool respectEnd = false;     ///< likewise
    };
    struct Consumers
    {
        DataChannel* channel = nullptr;
        std::vector<ModuleEntity*> modules;
    };

    static int giveTraces();
    void addStandIns(const RunView& view, const Plan& plan, const std::string& directory);
    void hideFirstStage(const RunView& view, const Plan& plan);
    void detachReaders(const RunView& view, const Plan& plan);

    JobManager& manager;
    std::vector<StandIn> standIns;
    std::vector<ModuleEntity*> allModules; ///< of the manager
    std::vector<Consumers> consumers;      ///< of the first stage, taken from tees
    std::vector<ModuleEntity*> droppers;   ///< in their place
};

} // namespace host

#endif
