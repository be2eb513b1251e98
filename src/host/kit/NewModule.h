/// @file NewModule.h
///
/// A folder with a module that builds, passes its test and runs in a job as it is.
#ifndef NEWMODULE_H
#define NEWMODULE_H

#include <string>
#include <vector>

namespace host {

/// What module to make.
struct NewModule
{
    std::string name;
    std::string language = "c";  ///< "c", "c++", "fortran" or "fortran77"
    std::string kind = "filter"; ///< "filter", "source", "sink", "gather" or "two-inputs"
    std::string directory;       ///< to be made; it must not exist
};

/// Throws CommandError where no module can have the name, or a shipped one has it already.
void checkModuleName(const std::string& name);

/// Writes the folder; the files' names, relative to it. Throws CommandError, and leaves nothing
/// behind, where that cannot be done.
std::vector<std::string> makeModule(const NewModule& module);

} // namespace host

#endif
