/// @file JobGraph.h
///
/// A job as a picture.
#ifndef JOBGRAPH_H
#define JOBGRAPH_H

#include "job/ResolvedJob.h"

#include <string>
#include <vector>

namespace host {

/// Whether a graph shows the modules that the command puts before several readers of an output.
enum class Tees
{
    hidden,
    shown
};

/// The job in Graphviz' language: a box for each module with its name, module and parameters, an
/// arrow for each connection. `order` (kernelOrder) numbers the boxes.
std::string graphDot(const ResolvedJob& job, const std::vector<int>& order, Tees tees);

} // namespace host

#endif
