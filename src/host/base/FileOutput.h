/// @file FileOutput.h
///
/// What the command writes, and what it never replaces.
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

/// A file that a command is asked to write.
struct Output
{
    std::string option; ///< that asks for it, which stands before messages: "--json"
    std::string path;   ///< as given
    std::string role;   ///< what messages call it: "the JSON file"
    Content content = Content::any;
};

/// The one rule for what the command writes. Throws CommandError when the output would replace
///
/// - a file that the command uses otherwise (`VORN::usedFiles`): an input, the job file, a module's
///   library or manifest, another output; also through links, and where hard links are one file;
/// - a directory, a socket or a disk;
/// - what is behind a link that somebody else has put into a directory for all;
/// - a write-protected file;
/// - a file whose beginning is not of the kind that is to be written there, such as recorded data
///   whose name was taken for that of an output.
///
/// Devices, pipes and descriptors (/dev/stdout) are written through. The output is one of the used
/// files from then on. VORN::OutputFile and LogFile apply the rule again, when the file gets its
/// name.
void claimOutput(const Output& output);

/// Writes `bytes` to a new file beside the output's path and gives it that name when it is
/// complete, so that no half a file ever has it. Throws CommandError.
void writeWholeFile(const Output& output, const std::string& bytes);

/// Whether the output goes to standard output, where nothing else should be printed then.
bool isStandardOutput(const std::string& path);

} // namespace host

#endif
