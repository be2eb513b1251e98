/// @file JobRun.h
///
/// Private to the kernel: what a manager notes of the job that it runs, beside its documented
/// fields.
///
/// Kept apart from the class, in a table by manager, since hosts are built with the layout of the
/// class. The one thing that is looked at for every call of a module is a word of the process:
/// there is one job at a time in it, and a signal handler cannot look anything up.
#ifndef JOBRUN_H
#define JOBRUN_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <map>
#include <set>
#include <string>
#include <vector>

class JobManager;
class LibraryEntity;
class ModuleEntity;

class JobRun
{
public:
    enum class Phase
    {
        none,
        preProcessing,
        processing,
        postProcessing
    };
    enum class Processing
    {
        notBegun,
        unfinished,
        finished
    };

    /// @name The word that is looked at for every call
    /// @{
    enum Attention : unsigned
    {
        cancelRequested = 1,
        statisticsByTime = 2,
        releasesMemory = 4
    };
    static inline constinit std::atomic<unsigned> attention{0};
    static_assert(std::atomic<unsigned>::is_always_lock_free); // for signal handlers

    static bool isAsked(unsigned bits)
    {
        return (attention.load(std::memory_order_relaxed) & bits) != 0;
    }
    static void ask(unsigned bits, bool on)
    {
        if (on)
            attention.fetch_or(bits, std::memory_order_relaxed);
        else
            attention.fetch_and(~bits, std::memory_order_relaxed);
    }
    /// @}

    /// @name Numbers that are drawn
    /// @{
    static inline bool hasOwnNumbers = false; // the C library's are the host's alone
    static int newPadNumber();
    static int newFileNumber();
    /// @}

    /// The notes of `manager`, made where there are none.
    static JobRun& of(const JobManager& manager);
    /// Null where there are none.
    static JobRun* find(const JobManager& manager) noexcept;
    static void forget(const JobManager& manager) noexcept;

    /// As of a manager that has run no job; what the host has asked for stays.
    void reset();

    /// What follows belongs to a new outcome.
    void beginOutcome();
    /// Never throws: where memory runs out, the failure counts without its text.
    void noteMessage(int type, const std::string& sender, const std::string& text) noexcept;
    void noteException(const std::string& sender, const std::exception_ptr& exception) noexcept;
    /// The function that is running, as hosts know it: `processJob`; "an entry point" for one of a
    /// function module that the host has called outside the phases; null when nothing runs.
    const char* runningFunction() const;

    Phase phase = Phase::none;
    Processing processing = Processing::notBegun;
    std::set<const ModuleEntity*> prepared; // their pre-process entry has been called
    bool hasFailed = false;
    bool isCancelled = false;
    bool hasBegun = false;
    std::string module;
    std::string entryPoint;
    std::string text;
    std::string thrownBy;
    std::array<std::int64_t, 5> counts{}; // messages of the types 0 to 4
    std::map<int, std::int64_t> otherCounts;

    // The entry of the metadata that marks the job as failed, with room for its text: it is needed
    // where memory has run out, too. Empty once it has been used.
    std::map<std::string, std::string>::node_type spareMark;
    bool hadMark = false;     // when the job began: the host has set it
    bool leftMark = false;    // the job that ended last has left a mark
    std::string leftMarkText; // which

    std::map<std::string, std::string> runMetaData; // entries of the job's that end with it

    std::vector<LibraryEntity*> tables; // made by the manager
    std::set<void*> blocks;             // that modules hold, where the host asked for a release

    std::chrono::milliseconds statisticInterval{0}; // 0: by count only
    std::int64_t statisticDue = 0;                  // by the coarse clock, in nanoseconds

private:
    void noteFailure(const std::string& sender, const std::string& what) noexcept;
};

#endif
