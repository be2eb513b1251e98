/// @file ReadingOrder.h
///
/// Where a source can give its traces sorted, in place of the module that sorts them.
#ifndef READINGORDER_H
#define READINGORDER_H

#include "job/ResolvedJob.h"

#include <optional>

namespace host {

/// The order in which the source of a checked job can give its traces, so that the module that
/// sorts them has nothing left to hold; nothing where somebody might notice. That is so unless
/// - the job has one source, whose manifest says that it can sort,
/// - its traces go to one module alone, whose manifest says that it sorts,
/// - no module has several inputs: one that ends with its shorter input would leave the rest of the
///   file unread,
/// - the keys are header words, each once.
std::optional<ReadingOrder> readingOrderOf(const ResolvedJob& job);

} // namespace host

#endif
