/// @file Text.h
///
/// Small operations on texts: trim, join, split, count.
#ifndef TEXT_H
#define TEXT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// The text without blanks, tabs and line ends at its beginning and end.
std::string trimmed(std::string_view text);
/// The items with `separator` between each two.
std::string joined(const std::vector<std::string>& items, const std::string& separator);
/// The lines of a text, without their line feeds; a line feed at the end begins no further line.
std::vector<std::string> splitLines(std::string_view text);
/// The text with its ASCII letters in lower case.
std::string lowerCase(std::string_view text);

/// "1 module", "2 modules"
std::string counted(int64_t count, const std::string& noun);

} // namespace host

#endif
