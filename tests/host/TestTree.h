/// @file TestTree.h
///
/// A module tree and a working directory for tests of the command, and the command as a process.
#ifndef TESTTREE_H
#define TESTTREE_H

#include "KernelFixture.h"

#include <string>
#include <sys/types.h>
#include <vector>

/// What a process has printed, and how it ended.
struct ProcessResult
{
    int exitCode = -1;  ///< 128 and the signal's number when a signal ended it
    long peakBytes = 0; ///< of memory that were resident at once
    std::string output;
    std::string errors;
};

/// A directory with `home`, a module tree of the host_* test modules with their manifests and some
/// that are broken on purpose, and `work`, where processes run.
class TestTree
{
public:
    TestTree();

    std::string home() const { return directory / "home"; }
    std::string work() const { return directory / "work"; }
    /// A path in `work`.
    std::string path(const std::string& name) const { return work() + "/" + name; }

    void write(const std::string& name, const std::string& text) const;
    std::string read(const std::string& name) const;
    bool exists(const std::string& name) const;
    std::vector<std::string> names() const; ///< of `work`, sorted

    /// Runs `vorn` in `work` with the words given and waits for its end.
    ProcessResult run(const std::vector<std::string>& words) const;
    /// Runs a command line of the shell in `work`, in which "$VORN" is the command and the settings
    /// are those of `run`. What goes to file descriptors 1 and 2 is in the result.
    ProcessResult shell(const std::string& commandLine) const;
    /// Starts it; the caller waits with `finish`. Its output goes to files.
    pid_t start(const std::vector<std::string>& words) const;
    ProcessResult finish(pid_t process) const;

    std::vector<std::string> environment; ///< of `vorn`, beside that of all tests: NAME=VALUE

private:
    void addModule(const std::string& name) const;
    pid_t startProgram(const char* path, std::vector<std::string> call) const;

    TemporaryDirectory directory;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& text);

#endif
