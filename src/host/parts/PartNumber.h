/// @file PartNumber.h
///
/// Which part of a plan a process is to run: as its call says, or as the batch system or launcher
/// that started it says.
#ifndef PARTNUMBER_H
#define PARTNUMBER_H

#include <string>

namespace host {

/// The part for this process.
struct PartChoice
{
    int part = 0;     ///< from 1; 0: there is none for this process
    std::string idle; ///< then one sentence that says why
};

/// The part that `text` names in a plan of `parts` parts: a number from 1, or "auto".
///
/// For "auto", the environment tells. The number of a task in an array is the number of the part:
/// SLURM_ARRAY_TASK_ID, PBS_ARRAY_INDEX, PBS_ARRAYID, SGE_TASK_ID ("undefined", as in jobs without
/// an array, does not count). Where there is no array, the rank among the processes that a launcher
/// has started, which counts from 0: OMPI_COMM_WORLD_RANK, PMI_RANK, SLURM_PROCID. The first one
/// that is set is used: a task of an array has a SLURM_PROCID, too, which is 0 in all of them, and
/// so have the processes of an mpirun in a Slurm job.
///
/// A rank beyond the last part has no part, as a launcher may have more processes than the plan has
/// parts. Everything else that names no part throws CommandError, which names the variable.
PartChoice partNumber(const std::string& text, int parts);

} // namespace host

#endif
