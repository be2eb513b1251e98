/// @file FileOutput.h
///
/// Writing of whole files.
#ifndef FILEOUTPUT_H
#define FILEOUTPUT_H

#include <string>

namespace vorn {

/// Writes `bytes` to a new file beside `path` and gives it that name when it is complete, so that no
/// half a file ever has it. Throws CommandError, also when `path` is a device or a pipe.
void writeWholeFile(const std::string& path, const std::string& bytes);

} // namespace vorn

#endif
