/// @file TracesToGive.h
///
/// The order in which a module that reads trace files gives their traces.
#ifndef TRACESTOGIVE_H
#define TRACESTOGIVE_H

#include "segy/NumberRanges.h"
#include "segy/TraceSelection.h"
#include "traces/SortedTraces.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace traces {

/// Walks through the selected traces of several files. With a part, only those are given whose
/// positions are in it: position 1 is the first selected trace of the first file, and positions
/// count on from file to file.
///
/// Traces are walked, never listed: memory grows with the number of files alone, and where only
/// numbers of traces are selected, no time is spent on traces between those that are given. A
/// selection by header words reads headers once when its file is added, up to the end of the part,
/// and again from the first trace to be given on.
class TracesToGive
{
public:
    /// `selection` lives longer. An empty `part` means all positions.
    TracesToGive(const VORN::TraceSelection& selection, std::optional<VORN::NumberRanges> part);

    /// Adds the next file, which has `traces` traces. Returns how many of them are given.
    int64_t add(int64_t traces, const VORN::TraceSelection::WordOf& wordOf);

    bool isAll() const { return selection.isEmpty() && !part; } ///< whether all traces are given
    /// What is given, for messages: "traces 1:100, part 5:9".
    std::string text(const std::string& partText) const;

    /// The last file, from 0, of which traces are given. Requires: there are such traces.
    std::size_t lastFile() const { return lastGiven; }
    /// Traces of all files that are still to be given.
    int64_t left() const { return sorted ? sorted->left() : remaining; }

    /// From now on, the traces come as `order` says, and no others. Requires: all files have been
    /// added.
    void reorder(SortedTraces order) { sorted = std::make_shared<SortedTraces>(std::move(order)); }
    /// The first and the last trace, in the order of the files, where traces are selected by their
    /// numbers alone; nothing where all are given, where header words decide, or a part is given.
    /// Requires: none has been given yet.
    std::optional<std::pair<TracePlace, TracePlace>> endsByNumber() const;
    /// How many traces each of the files has.
    std::vector<int64_t> tracesOfFiles() const;

    /// The file, from 0, of the trace that comes next. Requires: one is left.
    std::size_t file();
    /// The index in that file, from 0, of the trace that comes next, which is then given.
    /// `wordOf` reads that file.
    int64_t next(const VORN::TraceSelection::WordOf& wordOf);

private:
    struct File
    {
        int64_t traces;   // in the file
        int64_t given;    // of them, still to be given
        int64_t index;    // of the next one, or of the last one given
        int64_t position; // of that one
    };

    int64_t addPart(File& file, const VORN::TraceSelection::WordOf& wordOf);

    const VORN::TraceSelection& selection;
    std::optional<VORN::NumberRanges> part;
    std::vector<File> files;
    int64_t positions = 0; // of the selected traces of all files so far
    int64_t remaining = 0;
    std::size_t current = 0;
    std::size_t lastGiven = 0;
    bool isFirst = true;                  // of the current file
    std::shared_ptr<SortedTraces> sorted; // null: in the order of the files
};

} // namespace traces

#endif
