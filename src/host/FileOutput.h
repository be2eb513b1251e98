/// @file FileOutput.h
///
/// Writing of whole files.
#ifndef FILEOUTPUT_H
#define FILEOUTPUT_H

#include <string>

namespace vorn {

/// Writes `bytes` to a temporary name beside `path` and renames it, so that no half a file ever has
/// that name. Throws CommandError.
void writeWholeFile(const std::string& path, const std::string& bytes);

} // namespace vorn

#endif
