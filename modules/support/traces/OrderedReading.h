/// @file OrderedReading.h
///
/// Makes a reader give its traces sorted by header words.
#ifndef ORDEREDREADING_H
#define ORDEREDREADING_H

#include "segy/TraceSelection.h"
#include "traces/HeaderToAttributes.h"
#include "traces/OrderRequest.h"
#include "traces/TracesToGive.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

namespace traces {

/// What the host asks of the running module, a reader of `files` files with these words; nothing
/// where it asks for nothing, or the reader has to decline: where keys are not integers as they
/// stand in the headers, and where there are too many files to keep all of them open.
std::optional<OrderRequest> orderRequest(const HeaderToAttributes& words, std::size_t files);

/// What a reader can do with its files, which are numbered from 0.
struct FilesInOrder
{
    /// The 240 bytes of the header of a trace; called forward through the files.
    std::function<const unsigned char*(std::size_t file, int64_t index)> header;
    std::function<bool(std::size_t file)> isLittleEndian;
    std::function<VORN::TraceSelection::WordOf(std::size_t file)> wordOf;
    SortedTraces::Announce willRead;
    int64_t traceBytes = 0; ///< of the longest traces
};

/// Sorts the traces that `given` is about to give as the request says, has `given` give them so,
/// and tells the module that sorts. All headers are read for that, unless the request names a file
/// that has the order. With such a file, only the places `part` of the order are given. Throws
/// std::runtime_error where headers or the order cannot be read, or the order not be written.
void sortTraces(const OrderRequest& request, const HeaderToAttributes& words,
                const FilesInOrder& files, const std::optional<VORN::NumberRanges>& part,
                TracesToGive& given);

} // namespace traces

#endif
