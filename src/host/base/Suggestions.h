/// @file Suggestions.h
///
/// The name that was most probably meant.
#ifndef SUGGESTIONS_H
#define SUGGESTIONS_H

#include <string>
#include <vector>

namespace host {

/// The name that `wrong` was most probably meant to be, or "" when none is near.
std::string nearestName(const std::string& wrong, const std::vector<std::string>& names);

/// "; did you mean \"window\"?", or, when no name is near, "; " and `otherwise` and the names. ""
/// when there are none, or when `otherwise` is empty.
std::string suggestion(const std::string& wrong, const std::vector<std::string>& names,
                       const std::string& otherwise);

} // namespace host

#endif
