/// @file TraceFileError.h
///
/// The exception of this library.
#ifndef TRACEFILEERROR_H
#define TRACEFILEERROR_H

#include "segy_export.h"

#include <stdexcept>

namespace VORN {

/// A file that cannot be read or written. The text is one line that names the file, what is wrong
/// and what to do.
class VORN_SEGY_EXPORT TraceFileError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
    ~TraceFileError() override; // one type for all libraries that throw or catch it
};

} // namespace VORN

#endif
