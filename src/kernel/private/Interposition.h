/// @file Interposition.h
///
/// Private to the kernel: whether modules reach the kernel's own functions.
#ifndef INTERPOSITION_H
#define INTERPOSITION_H

#include <string>
#include <vector>

/// The functions of MOXKernel.h are global names. Where the application, or a library that is
/// before the kernel in the loader's order, exports a function of the same name and arguments,
/// modules written in C++ call that one, and the kernel hears nothing. One text for each such
/// object, with the functions that it takes; none for a library that says that it means to (see
/// JobManager::initJobModule()).
std::vector<std::string> interposedFunctions();

#endif
