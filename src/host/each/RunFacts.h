/// @file RunFacts.h
///
/// What a run of another process has left in the folder of its results.
#ifndef RUNFACTS_H
#define RUNFACTS_H

#include "report/SetResult.h"

#include <string>

namespace host {

/// @name Names within the folder of a file
/// @{
constexpr char reportName[] = "report.html";
constexpr char jsonName[] = "run.json";
constexpr char logName[] = "log.txt";
constexpr char picturesName[] = "pictures";
/// @}

/// Fills in what the files in `directory`/`file.folder` tell: numbers, message, pictures, outputs.
/// `file.exitCode` is known; `inputSha256` gets the checksum of the input at `file.path`, or "".
void readRunFacts(const std::string& directory, SetFile& file, std::string& inputSha256);

} // namespace host

#endif
