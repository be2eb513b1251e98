/// @file Sanitizers.h
///
/// Module libraries that were compiled with -fsanitize=address and the like.
///
/// The run-time library of a sanitizer replaces malloc() and others, so it must be loaded before
/// all other libraries; a program that was compiled without it cannot load such a module. It can be
/// started with that library at the front, by LD_PRELOAD.
#ifndef SANITIZERS_H
#define SANITIZERS_H

#include <optional>
#include <string>
#include <string_view>

namespace host {

/// The run-time library that a library needs in front of all others.
struct SanitizerRuntime
{
    std::string name; ///< as in libasan.so.8
    std::string path; ///< empty: it was not found
};

/// What the library at `path`, compiled by gcc or clang, needs; nothing where it needs nothing, or
/// this process has it already.
std::optional<SanitizerRuntime> neededRuntime(const std::string& path);

/// Whether a sanitizer's run-time library is part of this process.
bool hasSanitizerRuntime();

/// What is to be done, for the end of a sentence about the library that needs it: "needs ...". With
/// the command line that this process was started with, to be copied.
std::string describeNeed(const SanitizerRuntime& runtime);

/// Starts this program again, with its own words, behind that library. Returns where that has been
/// done before, or the library was not found. Throws CommandError.
void restartWith(const SanitizerRuntime& runtime);

/// Whether what a process has printed contains a report of a sanitizer.
bool hasSanitizerReport(std::string_view text);

/// The line of the first report in it that says what is wrong; "" where there is none.
std::string firstSanitizerReport(std::string_view text);

} // namespace host

#endif
