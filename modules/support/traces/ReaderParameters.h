/// @file ReaderParameters.h
///
/// Parameters that the modules for trace files share: files, selections, words at other bytes.
#ifndef READERPARAMETERS_H
#define READERPARAMETERS_H

#include "segy/NumberRanges.h"
#include "segy/TraceSelection.h"
#include "segy/WordMap.h"

#include <optional>
#include <string>
#include <vector>

namespace traces {

/// The files of the parameter `file`, patterns replaced by their matches. Throws std::runtime_error
/// for a pattern without any, and for an empty list.
std::vector<std::string> filesToRead(const std::vector<std::string>& names);

/// The map of the parameter `words`. Throws std::invalid_argument for a text that is not one.
VORN::WordMap wordMap(const std::string& text);

/// Adds the conditions of the parameter `select` on words of `words`. Throws std::invalid_argument
/// for a text that is not a selection, and for a word that is not there.
void addConditions(const std::string& select, const std::vector<VORN::HeaderWord>& words,
                   VORN::TraceSelection& selection);

/// The positions of the parameter `part`; none without it. Throws std::invalid_argument for a text
/// that is not a list of numbers and ranges.
std::optional<VORN::NumberRanges> partOf(const std::optional<std::string>& part);

/// Whether the host has announced that nobody looks at the samples of the job: a reader may leave
/// them zero.
bool isForHeadersOnly();

} // namespace traces

#endif
