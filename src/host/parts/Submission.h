/// @file Submission.h
///
/// The parts of a plan as an array of tasks of a batch system, and the merge behind them.
#ifndef SUBMISSION_H
#define SUBMISSION_H

#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// The batch systems that a submission can be written for.
enum class Engine
{
    slurm,
    pbs,
    sge
};

/// What is to be submitted.
struct Submission
{
    Engine engine = Engine::slurm;
    std::string program;                   ///< `vorn`, absolute: nodes run this one
    std::string directory;                 ///< of the plan, absolute
    std::vector<int> parts;                ///< to be run, ascending; none: only the merge
    int64_t tasks = 0;                     ///< of the array at most, 0: as many as there are parts
    int64_t arrayLimit = 0;                ///< numbers of tasks must be below it, see arrayLimit()
    std::vector<std::string> options;      ///< for the batch system, as the shell takes them
    std::vector<std::string> mergeOptions; ///< for "vorn merge", likewise
};

/// The numbers of tasks in an array must be below this: with Slurm its MaxArraySize, from
/// `configuration`, the output of "scontrol show config", else the number that systems have where
/// nobody has changed it.
int64_t arrayLimit(Engine engine, const std::string& configuration);

/// A script for the shell that submits the parts as one array, and the merge for when all of them
/// have ended well, and prints the numbers of both jobs. Where there are more parts than tasks, a
/// task runs several in turn. A task whose part ends with exit code 75 is tried again three times.
/// Throws CommandError for paths and options that cannot be written into it.
std::string submissionScript(const Submission& submission);

/// The program that submits jobs to the batch system: "sbatch", "qsub".
std::string submitProgram(Engine engine);

} // namespace host

#endif
