/// @file PositionSorter.h
///
/// Sorts the numbers of traces by header words, however many there are.
#ifndef POSITIONSORTER_H
#define POSITIONSORTER_H

#include "order/PositionList.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace order {

/// Sorts by several keys, the first one being the most important; traces that are equal in all of
/// them stay in ascending order of their numbers.
///
///     PositionSorter sorter({false, true}, scratch);   // ascending, then descending
///     sorter.add(values, number) ...
///     PositionWriter writer(…);
///     sorter.finish(writer);
///
/// What exceeds the memory is sorted in runs that wait in a file without a name, and are merged.
class PositionSorter
{
public:
    static constexpr std::size_t mostKeys = 8;
    /// Bytes that are sorted at once unless the caller says otherwise.
    static constexpr int64_t usualMemory = int64_t{256} << 20;

    /// `descending` says for each key, of which there are 1 to `mostKeys`, in which order it comes.
    /// Files lie in `directory`. Throws std::invalid_argument for another number of keys.
    PositionSorter(std::vector<bool> descending, const std::string& directory,
                   int64_t memoryBytes = usualMemory);
    ~PositionSorter();
    PositionSorter(const PositionSorter&) = delete;
    PositionSorter& operator=(const PositionSorter&) = delete;

    /// `values` has as many as there are keys. Throws std::runtime_error where a file cannot be
    /// written.
    void add(const int32_t* values, int64_t number);
    /// Adds all numbers to `writer`, in order. Nothing can be added any more.
    void finish(PositionWriter& writer);

    class Records; ///< of one width
private:
    std::vector<bool> descending;
    std::unique_ptr<Records> records;
};

} // namespace order

#endif
