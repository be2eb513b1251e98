#include "file/TraceFileError.h"

namespace VORN {

TraceFileError::~TraceFileError() = default;

} // namespace VORN
