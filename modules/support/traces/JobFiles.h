/// @file JobFiles.h
///
/// The trace files of a job as its modules announce them to each other, so that none replaces what
/// another one reads or writes. All functions need a running module.
#ifndef JOBFILES_H
#define JOBFILES_H

#include "file/OutputFile.h"

#include <cstdint>
#include <string>

namespace traces {

/// Announces to all modules of the job that this one reads the file: they must not
/// replace it.
void announceInput(const std::string& path);

/// Throws std::runtime_error when a module of the job has announced the file behind `path`. Others
/// may be announced after a writer has started; hence it also asks before the file is replaced.
void refuseInputs(const std::string& path);

/// Announces that this module writes `path`. Throws std::runtime_error when another one has done
/// so.
void refuseSecondWriter(const std::string& path);

/// Whether an output, all its traces written, gets its name: not when the job has failed, nor
/// without a trace. Sends an error message that names `path` otherwise.
bool isToBePublished(const std::string& path, bool hasTraces);

/// Throws std::runtime_error where trace `number` (from 1) of the file `path`, which has `samples`
/// samples, has not the `length` samples of the traces before it.
void requireLength(const std::string& path, int64_t number, int samples, int length);

/// The samples of trace 0 of `input`, which becomes trace `number` (from 1) of the file `path` of
/// traces of `length` samples. Throws std::runtime_error when it has another length or no samples.
const float* samplesToWrite(void* input, const std::string& path, int64_t number, int length);

/// Throws std::runtime_error where `file` is not a range of a file that several processes write.
void requireRange(const VORN::OutputFile& file);

/// Why the traces of a part do not follow those of the parts before: the number, from 0, of its
/// first trace in the file, and how many traces the others have written.
std::string gapBetweenParts(int64_t first, int64_t before);

} // namespace traces

#endif
