/// @file StackReport.h
///
/// The functions that were running when a module crashed, with their lines in its sources.
///
/// The addresses come from the unwinder of the compiler, which needs no lock and no memory; the
/// libraries that they lie in from /proc. addr2line of the binutils reads the debug information, in
/// a process of its own. Without it, the loader tells the functions that a library exports, and the
/// report ends with the command line that tells the rest.
#ifndef STACKREPORT_H
#define STACKREPORT_H

#include <cstddef>
#include <cstdint>

namespace host {

/// What was running.
struct StackOwner
{
    const uintptr_t* codes = nullptr; ///< return addresses, innermost first; null: those of now
    std::size_t count = 0;            ///< of `codes`
    void* context = nullptr;          ///< of the signal; null: none has come
    bool isModule = false; ///< code of a module: what lies above its entry point is left out
    bool isLoaderLocked =
        false; ///< libraries are being loaded: to ask the loader would wait for ever
};

/// Writes the functions to standard error, innermost first: from the one that has crashed (or that
/// has called exit()) up to the entry point of the module. Meant for a process that may crash: see
/// CrashReport.h.
void writeStack(const StackOwner& owner) noexcept;

} // namespace host

#endif
