/// @file SortedTraces.h
///
/// Walks through the traces of files in an order given as a list of numbers.
#ifndef SORTEDTRACES_H
#define SORTEDTRACES_H

#include "order/PositionList.h"
#include "segy/NumberRanges.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace traces {

/// A trace of several files.
struct TracePlace
{
    std::size_t file = 0; ///< from 0
    int64_t index = 0;    ///< in it, from 0
};

/// Gives the traces of a list, or those at some places of it, one by one.
///
/// Files are then read in jumps, which is slow where they have to come from a disc. So the traces
/// that follow are announced in windows, each sorted by place in the files; the caller asks the
/// system to read them ahead. Where a window came from memory, the next one is not announced.
class SortedTraces
{
public:
    /// `count` traces of a file from index `first` on will be read soon.
    using Announce = std::function<void(std::size_t file, int64_t first, int64_t count)>;

    /// The numbers in `order` count the traces of all files from 0; `tracesOfFiles` says how many
    /// each has. With `part`, only its places of the list, from 1, are given. `window` is how many
    /// traces are announced at once.
    SortedTraces(order::PositionList order, const std::vector<int64_t>& tracesOfFiles,
                 std::optional<VORN::NumberRanges> part, Announce announce, int64_t window);

    int64_t left() const { return remaining; } ///< traces that are still to be given
    /// The trace that comes next. Throws std::runtime_error where the list cannot be read.
    /// Requires: one is left.
    TracePlace peek();
    /// The same trace, which is then given.
    TracePlace take();

private:
    void loadWindow();
    void announceWindow();
    bool isReadFromDisc();
    TracePlace placeOf(int64_t number) const;

    order::PositionList list;
    std::vector<int64_t> starts; // number of the first trace of each file, and behind the last
    std::optional<VORN::NumberRanges> part;
    Announce announce;
    std::size_t windowTraces;
    int64_t remaining = 0;
    std::optional<int64_t> nextPlace; // in the list, from 1, of what is to be loaded
    std::vector<int64_t> window;      // numbers
    std::vector<int64_t> following;   // likewise, of the window behind it
    std::size_t place = 0;            // in the window
    long blocksRead = 0;              // by this thread, at the last announcement
    int announced = 0;                // windows
};

} // namespace traces

#endif
