/// @file ThrowWatch.h
///
/// Where in a module an exception was thrown that it does not handle.
///
/// By the time that the command catches it, the stack has been unwound. So the addresses of the
/// functions are noted when a module throws: the command defines __cxa_throw(), which compilers
/// call for `throw`, in the place of the library's, and goes on to that. This costs some
/// microseconds, so only the first hundred exceptions of a process are noted: a module may throw,
/// and handle, one for each trace.
#ifndef THROWWATCH_H
#define THROWWATCH_H

#include "run/RunningModule.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace host {

/// An exception that a module has let out.
struct KeptThrow
{
    RunningCode running;                  ///< what ran when the entry point was left
    std::array<uintptr_t, 32> codes = {}; ///< of the functions, innermost first: return addresses
    std::size_t count = 0;                ///< of `codes`; 0: not known
};

/// From now on, what modules throw on this thread is noted. The command only: see above.
void watchThrows() noexcept;

/// Notes where `object` is being thrown, when a module is running.
void noteThrow(const void* object) noexcept;

/// In the handler of an exception that leaves an entry point: keeps where `object`, the whole
/// exception object, was thrown, as far as it is known.
void keepThrow(const void* object) noexcept;

/// Nothing is kept any more: a new job begins.
void forgetThrows() noexcept;

/// The exception that has been kept last.
const KeptThrow& keptThrow() noexcept;

} // namespace host

#endif
