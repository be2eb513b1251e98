/// @file ScratchManager.h
///
/// Keeps the number of traces in memory bounded by paging the least recently used to a file.
#ifndef SCRATCHMANAGER_H
#define SCRATCHMANAGER_H

#include "FrontArray.h"
#include "SeisTrace.h"
#include "TraceOrder.h"
#include "vorn_export.h"

#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <utility>

/// Trace sets touch every trace before they hand it out. The manager keeps the touched traces in
/// order of use; when more than the limit are resident it writes the last one to the scratch file
/// and gives its memory back. Touching it again reads it back and frees its record. Touching costs
/// the same with ten traces resident and with a million.
///
/// The file is a plain sequence of records (`SeisTrace::store`) at arbitrary positions; a trace
/// remembers its own position, and its lengths give the record's. Freed positions go to the next
/// trace of exactly the same record size, oldest first.
///
/// Environment: `VORN_SCRATCH_SIZE`, read when the manager is created, is the limit in traces (1 to
/// 99999999, anything else is ignored); `VORN_SCRATCH`, read when a file is needed, is the
/// directory of the file. A pointer to samples that a module holds stays valid as long as fewer
/// other traces than the limit are touched.
///
/// A trace leaves memory only when its record is with the operating system: the file is not
/// buffered, so a full disk shows at the write. No two records of living traces overlap, also not
/// across files (see `overwritten`).
class VORN_EXPORT ScratchManager
{
public:
    FILE* scratchFile;       ///< the open scratch file; null until a first trace is paged out
    TraceOrder traces_cache; ///< touched, resident traces, most recently touched first
    /// Positions (bytes) of free records by record size (bytes), the one freed first in front. They
    /// outlive the file: positions then refer to the next one.
    std::map<int, FrontArray<int64_t>> free_blocks;
    std::string scratchFileName; ///< path of the file opened last

    static ScratchManager* ScratchManagerInstance; ///< the singleton, or null before first use
    static int MAX_TRACES_IN_SCRATCH_V;            ///< limit of `traces_cache`, in traces

    /// Records listed as free whose place the current file has not reached yet, start to end in
    /// bytes.
    std::map<int64_t, int64_t> reserved;
    int64_t fileEnd; ///< bytes in the current file
    int fileNo;      ///< number of the current file; 0 when none is open
    SeisTrace* held; ///< trace that must stay resident for now (see `Hold`), or null
    bool heldLeft;   ///< the held trace has left the order and is to be paged out afterwards
    /// Sizes and positions listed as free, by a former file, where a record of the current file
    /// lies: passed over when it is their turn, so that no two living records overlap.
    std::multiset<std::pair<int, int64_t>> overwritten;

    /// The manager of the process, created on first use.
    static ScratchManager* getInstance()
    {
        if (ScratchManagerInstance == nullptr) [[unlikely]]
            makeInstance();
        return ScratchManagerInstance;
    }

    ScratchManager();
    ScratchManager(const ScratchManager&) = delete;
    ScratchManager& operator=(const ScratchManager&) = delete;
    ~ScratchManager();

    /// Makes `trace` the most recently used, reading it back if it was paged out, and pages out
    /// what exceeds the limit. A trace that cannot be written stays resident but leaves the order.
    void touchTrace(SeisTrace* trace)
    {
        if (trace != nullptr && traces_cache.front() != trace)
            bringToFront(trace);
    }

    /// Whether touching `trace` would do no more than bring it to the front.
    bool isAtRest(const SeisTrace* trace) const
    {
        return traces_cache.contains(trace) &&
               static_cast<int64_t>(traces_cache.size()) <= MAX_TRACES_IN_SCRATCH_V;
    }

    /// Forgets a trace that is about to be destroyed; its record becomes free.
    void removeTrace(SeisTrace* trace);
    /// The same; most traces have no record.
    void forget(SeisTrace* trace)
    {
        if (trace->traceOffset >= 0 || trace == held)
            removeTrace(trace);
        else if (trace->order != nullptr)
            trace->order->erase(trace);
    }

    /// Reads `trace` back. Returns 1 when its blocks are present afterwards; 0, nothing changed,
    /// when it is resident already, has no record, no file can be opened or no memory is left. A
    /// record that cannot be read (any more) leaves zeros, and a message of type 4 says so.
    int restoreFromScratch(SeisTrace* trace);

    /// Closes and deletes the scratch file. The order and the free positions stay.
    void deleteScratch();

    /// Returns 1 when a file is open afterwards; 0, with a message, when none can be had.
    int checkScratchFile();
    /// Writes `trace` out and gives its memory back. Returns 1; 0 when it stays as it is, with a
    /// message of type 3 when the file did not take it.
    int putToScratch(SeisTrace* trace);
    /// Called before a file is created; reserved for cleaning a scratch directory, does nothing.
    void selfCleaning();

    /// Keeps one trace resident while another is touched: copying from one to the other needs both,
    /// also with a limit of one trace. What the touch would have paged out is paged out when the
    /// hold ends, so the outcome is that of the touch alone.
    class VORN_EXPORT Hold
    {
    public:
        /// Holds `trace` (null: none) until the object is destroyed.
        explicit Hold(SeisTrace* trace)
            : manager(getInstance()), former(manager->held), formerLeft(manager->heldLeft)
        {
            manager->held = trace;
            manager->heldLeft = false;
        }
        ~Hold()
        {
            SeisTrace* trace = manager->held;
            const bool left = manager->heldLeft;
            manager->held = former;
            manager->heldLeft = formerLeft;
            if (left && trace != nullptr)
                manager->pageOutLeft(trace);
        }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        ScratchManager* manager;
        SeisTrace* former;
        bool formerLeft;
    };

private:
    static void makeInstance();
    void bringToFront(SeisTrace* trace);
    void pageOutLeft(SeisTrace* trace);
    int64_t choosePosition(int recordSize);
    int64_t endPosition(int64_t recordSize);
    static bool takeBlocks(SeisTrace* trace);
    int writeOut(SeisTrace* trace);
    bool writeRecord(SeisTrace* trace, int64_t position);
    bool isOfCurrentFile(const SeisTrace* trace) const;
    void readRecord(SeisTrace* trace);
    void keepPosition(int recordSize, int64_t position);
    void freeRecord(const SeisTrace* trace);
    void reserveOrPassOver(int64_t position, int recordSize);
    void reserve(int64_t position, int64_t recordSize);
    bool overlapsReserved(int64_t position, int64_t recordSize) const;
    void reserveListed();
    FILE* createFile(const std::string& directory);
};

#endif
