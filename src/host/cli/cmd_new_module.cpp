// vorn new-module NAME: a folder with a module to begin with.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "cli/CommandTable.h"
#include "kit/NewModule.h"

#include <cstdio>
#include <filesystem>

namespace host {

namespace {

std::string kindOf(const Arguments& arguments)
{
    std::string kind;
    for (const char* option : {"source", "sink", "gather", "two-inputs"}) {
        if (!arguments.has(std::string("--") + option))
            continue;
        if (!kind.empty())
            throw CommandError("--" + kind + " and --" + option + " exclude each other");
        kind = option;
    }
    return kind.empty() ? "filter" : kind;
}

int runNewModule(const Arguments& arguments)
{
    NewModule module;
    module.name = arguments.text("NAME");
    module.language = arguments.text("--language", module.language);
    module.kind = kindOf(arguments);
    module.directory = arguments.text("--into", module.name);
    if (module.directory.size() > 1 && module.directory.back() == '/')
        module.directory.pop_back();
    checkModuleName(module.name);
    for (const std::string& name : makeModule(module))
        std::printf("%s\n",
                    escaped((std::filesystem::path(module.directory) / name).string()).c_str());
    std::printf("\nBuild and test it:\n"
                "    cd %s\n"
                "    cmake -B build && cmake --build build && ctest --test-dir build\n",
                escaped(module.directory).c_str());
    return exitDone;
}

} // namespace

Command newModuleCommand()
{
    return {
        "new-module",
        runNewModule,
        "Make a folder with a new module",
        "Writes a module that builds, passes its test and runs in a job as it is: source, "
        "manifest, "
        "CMake project, test with data, job and README. Change it from there. Without one of "
        "--source, --sink, --gather and --two-inputs the module changes each trace by itself.\n\n"
        "The names of shipped modules are refused.",
        {{"NAME", "the module's name: small letters, digits and \"_\""}},
        {{"--language",
          "LANGUAGE",
          "c, c++, fortran, or fortran77 for fixed form without explicit interfaces; c if not "
          "given",
          ValueKind::choice,
          {"c", "c++", "fortran", "fortran77"}},
         {"--source", "", "a module without inputs, which makes traces"},
         {"--sink", "", "a module without outputs"},
         {"--gather", "", "a module that needs all traces of a gather at once"},
         {"--two-inputs", "", "a module that joins two inputs"},
         {"--into", "DIR", "the directory to make; the module's name if not given",
          ValueKind::directory}},
        {{"vorn new-module my_filter --language fortran", "a filter in Fortran"},
         {"vorn new-module my_stack --language c++ --gather", "a gather module in C++"}}};
}

} // namespace host
