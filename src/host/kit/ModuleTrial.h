/// @file ModuleTrial.h
///
/// One module alone in a real job: traces come in from files or a generator, what it gives is
/// compared with what is expected.
#ifndef MODULETRIAL_H
#define MODULETRIAL_H

#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// What is to be tried.
struct TrialSettings
{
    std::string module;                   ///< its name in the module tree or the directories
    std::vector<std::string> inputs;      ///< one for each input: a .sgy, .segy or .su file, or
                                          ///< "synthetic"
    std::vector<std::string> parameters;  ///< NAME=VALUE, as in a job file
    std::vector<std::string> directories; ///< with more module libraries
    std::string expected;                 ///< a .su file; empty: the output is not compared
    bool bless = false;                   ///< write the output to `expected` instead
    double tolerance = 1e-6;              ///< in shares of the largest expected sample
    std::vector<std::string> messages;    ///< texts that messages must contain
    bool fails = false;                   ///< the module must report an error
    std::string timeLimit = "60 s";
};

/// What happened.
struct TrialResult
{
    std::vector<std::string> findings; ///< what is wrong, one line each; empty: the module passes
    std::vector<std::string> lines;    ///< what the module did, for the person who looks on
    std::string log;                   ///< all that the run has printed
    bool hasNoFacts = false;           ///< it ended so early that `log` alone tells why
};

/// Runs the module in a process of its own. Found without being asked for: a module that crashes,
/// ends the process or does not end in time, memory and traces that it leaves, samples that are not
/// numbers where its input has none, and all that a checked run finds (watch/ModuleCheck.h). Throws
/// CommandError where the trial cannot be made.
TrialResult tryModule(const TrialSettings& settings);

} // namespace host

#endif
