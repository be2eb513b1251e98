/// @file CommandRun.h
///
/// `vorn run` in a child process under faults, with directories for its files.
#ifndef COMMANDRUN_H
#define COMMANDRUN_H

#include "FaultRun.h"
#include "TestDirectory.h"

#include <map>
#include <string>
#include <vector>

/// Contents of files by name.
using Files = std::map<std::string, std::string>;

/// A directory with "job.yaml", inputs in "in", outputs in "out" and the scratch file in "scratch".
class CommandRun
{
public:
    CommandRun();

    /// Makes in/line.sgy and in/line.su, a few traces of made-up data.
    void makeInputs();
    void writeJob(const std::string& modules) const;
    /// Runs the job; the fault counts from the start of the command. `where` is the directory for
    /// the scratch file and stands in for "scratch".
    ChildResult run(const std::vector<std::string>& options, const Fault& fault, long nth,
                    const std::string& where = "");
    /// Runs another command, the first of `words`.
    ChildResult runCommand(const std::vector<std::string>& words, const Fault& fault, long nth);
    /// Removes outputs and what is left in the scratch directory.
    void clear() const;

    std::string operator/(const std::string& name) const { return directory / name; }
    Files inputs() const;
    Files outputs() const;
    std::vector<std::string> scratch() const;
    /// What the last run wrote to standard error.
    std::string errors() const;

    /// Whether an output is the whole of what is expected. Reports hold times; they are looked at
    /// for their end.
    static bool isWhole(const std::string& name, const std::string& content,
                        const std::string& expected);

private:
    TestDirectory directory;
    FaultRun faults;
};

/// Contents of the files in `directory`, by name.
Files filesIn(const std::string& directory);

#endif
