/// @file JobFiles.h
///
/// The trace files of a job as its modules announce them to each other, so that none replaces what
/// another one reads or writes. All functions need a running module.
#ifndef JOBFILES_H
#define JOBFILES_H

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

/// The samples of trace 0 of `input`, which becomes trace `number` (from 1) of the file `path` of
/// traces of `length` samples. Throws std::runtime_error when it has another length or no samples.
const float* samplesToWrite(void* input, const std::string& path, int64_t number, int length);

} // namespace traces

#endif
