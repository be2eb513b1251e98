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

std::string trimmed(std::string_view text);
std::string joined(const std::vector<std::string>& items, const std::string& separator);
std::vector<std::string> splitLines(std::string_view text);
std::string lowerCase(std::string_view text);

/// "1 module", "2 modules"
std::string counted(int64_t count, const std::string& noun);

} // namespace host

#endif
