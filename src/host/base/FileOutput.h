/// @file FileOutput.h
///
/// Writing of whole files.
#ifndef FILEOUTPUT_H
#define FILEOUTPUT_H

#include <string>

namespace host {

/// What a file holds, as far as its beginning tells.
enum class Content
{
    json,
    page, ///< HTML
    text,
    any
};

/// Throws CommandError when there is a file at `path` already that must not be replaced: one that
/// is write-protected, or one whose beginning is not of the kind that is to be written there, such
/// as recorded data whose name was taken for that of an output. `option` stands before the message.
void refuseToReplace(const std::string& option, const std::string& path, Content content);

/// Writes `bytes` to a new file beside `path` and gives it that name when it is complete, so that
/// no half a file ever has it. Throws CommandError, also when `path` is a device, a pipe or
/// write-protected.
void writeWholeFile(const std::string& path, const std::string& bytes);

} // namespace host

#endif
