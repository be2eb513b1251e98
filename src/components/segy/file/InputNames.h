/// @file InputNames.h
///
/// Several files that are read one after the other.
#ifndef INPUTNAMES_H
#define INPUTNAMES_H

#include "segy_export.h"

#include <string>
#include <vector>

namespace VORN {

/// The files that `name` stands for: itself, where it has none of `*`, `?` and `[` or a file has
/// exactly this name; else the existing files that it matches as in a shell, in the order of their
/// names, in which numbers count as such (line_9 before line_10). Empty where none matches.
VORN_SEGY_EXPORT std::vector<std::string> inputFiles(const std::string& name);

/// Whether the name has characters that stand for others.
VORN_SEGY_EXPORT bool isFilePattern(const std::string& name);

} // namespace VORN

#endif
