/// @file SystemFailure.h
///
/// Whether the machine is to blame that a file could not be read or written.
#ifndef SYSTEMFAILURE_H
#define SYSTEMFAILURE_H

#include "segy_export.h"

#include <string>

namespace VORN {

/// The system's words for `errno`, for a message on a file that could not be opened, read or
/// written; notes the number for passingFailure(). May be used by several threads.
std::string systemReason();

/// The `errno` of the last such file, where the reason may pass while the same call is made again
/// later: a full disk or quota, a failing device, a file server that does not answer. 0 where there
/// was none: a file that is missing or must not be read stays so.
VORN_SEGY_EXPORT int passingFailure() noexcept;

} // namespace VORN

#endif
