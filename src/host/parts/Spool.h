/// @file Spool.h
///
/// Traces that wait in a file: from one process that runs a job's modules for the next.
#ifndef SPOOL_H
#define SPOOL_H

#include "SeisTraceSet.h"
#include "parts/OwnFile.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace host {

/// A trace file of the command's own, with everything that a trace has in a job: all attributes in
/// their types, samples, flag, and the layout of its set. Written and read by one version on one
/// type of machine, within the life of one plan. SEG-Y would lose types, and its writers add to the
/// history of the data.
class SpoolWriter
{
public:
    /// Makes the file anew. Throws CommandError that names it, here and below; `exitTryAgain` where
    /// the file system is at fault.
    explicit SpoolWriter(const std::string& path);
    SpoolWriter(const SpoolWriter&) = delete;
    SpoolWriter& operator=(const SpoolWriter&) = delete;

    /// Appends trace 0 of `set`.
    void write(SeisTraceSet& set);
    /// Writes the end mark and closes the file, which gets its name now; with `onDisk` it is on the
    /// disk before.
    void close(bool onDisk);

    int64_t traces() const { return count; } ///< so far

private:
    void put(const void* bytes, std::size_t size);
    template <typename Value>
    void put(const Value& value)
    {
        put(&value, sizeof value);
    }
    void putLayout(const SeisTraceSet& set);

    struct Close
    {
        void operator()(FILE* open) const noexcept { std::fclose(open); }
    };

    OwnFile own;
    std::string name;
    std::unique_ptr<FILE, Close> file;
    int64_t count = 0;
    int64_t layout = 0; ///< of the last trace, as its set numbers layouts
    int length = -1;    ///< of the set, likewise
    int interval = -1;
};

/// Reads what a SpoolWriter has written.
class SpoolReader
{
public:
    /// Throws CommandError, here and below, for a file that is not there, is cut, or is not a
    /// spool.
    explicit SpoolReader(const std::string& path);
    SpoolReader(const SpoolReader&) = delete;
    SpoolReader& operator=(const SpoolReader&) = delete;

    /// Whether there is one more trace.
    bool hasNext() const { return !ended; }
    /// Appends the next trace to `set`, which gets the attributes that it does not have, and the
    /// trace length and sample interval of the set that the trace comes from. Returns the flag that
    /// the trace had; it has none in `set`. Requires: hasNext().
    int read(SeisTraceSet& set);

private:
    void get(void* bytes, std::size_t size);
    template <typename Value>
    Value get()
    {
        Value value;
        get(&value, sizeof value);
        return value;
    }
    void advance();
    void readLayout();
    [[noreturn]] void refuse(const std::string& why) const;

    struct Close
    {
        void operator()(FILE* open) const noexcept { std::fclose(open); }
    };

    std::string name;
    std::unique_ptr<FILE, Close> file;
    std::unique_ptr<SeisTraceSet> staging; ///< of the layout of the next trace
    bool isNewLayout = false;
    bool ended = false;
    int64_t count = 0; ///< traces read
    int64_t bytes = 0; ///< of the file
};

} // namespace host

#endif
