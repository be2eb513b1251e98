/// @file ProcessingTree.h
///
/// A TestTree with the processing modules, and what tests ask of the files that runs leave.
#ifndef PROCESSINGTREE_H
#define PROCESSINGTREE_H

#include "TestTree.h"

#include <map>
#include <string>
#include <sys/resource.h>
#include <vector>

/// Whether the sizes of processes are those of the program: a sanitizer multiplies them, and takes
/// all addresses.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool memoryIsOurs = false;
#elif defined(__has_feature)
constexpr bool memoryIsOurs = !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer);
#else
constexpr bool memoryIsOurs = true;
#endif

/// The test modules, and the processing modules with their manifests.
class ProcessingTree : public TestTree
{
public:
    ProcessingTree();

    /// Everything in `work` and below by its path: kind, time of change and content.
    std::map<std::string, std::string> snapshot() const;
    /// Entries of a directory in `work`, sorted.
    std::vector<std::string> namesIn(const std::string& folder) const;

    /// Runs `vorn` under a limit of setrlimit. Writing beyond RLIMIT_FSIZE is an error for it, as
    /// on a full disk, and no signal.
    ProcessResult runLimited(decltype(RLIMIT_FSIZE) resource, rlim_t limit,
                             const std::vector<std::string>& words) const;
};

/// The lines that contain `part`.
std::vector<std::string> linesWith(const std::string& text, const std::string& part);

/// What is wrong with the PNG file as a whole: its signature, its size in pixels, its end. Empty
/// when nothing is.
std::string problemOfPng(const std::string& path);

#endif
