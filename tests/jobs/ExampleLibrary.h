/// @file ExampleLibrary.h
///
/// Where tests find the modules of examples.
#ifndef EXAMPLELIBRARY_H
#define EXAMPLELIBRARY_H

#include <string>

/// The library of the example host's module `name`, as a module's file name. These modules have a
/// module tree of their own; the kernel looks for libraries in that of the build.
inline std::string exampleLibrary(const std::string& name)
{
    return "../../examples/host/vorn_home/lib/lib" + name + ".so";
}

/// The same for the example module `name`, as it lies in examples to be copied.
inline std::string exampleModule(const std::string& name)
{
    return "../../examples/vorn_home/lib/lib" + name + ".so";
}

#endif
