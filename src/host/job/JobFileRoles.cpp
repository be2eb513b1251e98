#include "job/JobFileRoles.h"

#include "base/Escaping.h"
#include "file/FileIdentity.h"

#include <filesystem>

namespace host {

namespace {

std::string libraryPath(const ResolvedJob& job, const std::string& relative)
{
    return VORN::canonicalPath((std::filesystem::path(job.vornHome) / "lib" / relative).string());
}

void addFiles(VORN::FileRoles& roles, const ResolvedJob& job, bool outputs)
{
    for (const ResolvedModule& module : job.modules) {
        for (const ResolvedParameter& parameter : module.parameters) {
            if (outputs ? !parameter.isOutputFile : !parameter.isInputFile)
                continue;
            for (const std::string& path : filesOf(parameter))
                roles.add(path,
                          (outputs ? "the output file " : "the input file ") + quote(path) +
                              " of module " + quote(module.name),
                          outputs ? module.name : "");
        }
    }
}

} // namespace

void addJobAndModules(VORN::FileRoles& roles, const ResolvedJob& job)
{
    roles.add(job.file, "the job file " + quote(job.file));
    for (const ResolvedModule& module : job.modules) {
        const std::string library = libraryPath(job, module.library);
        if (!module.library.empty())
            roles.add(library,
                      "the library " + quote(library) + " of module " + quote(module.name));
        if (module.manifest != nullptr && !module.manifest->path.empty())
            roles.add(module.manifest->path, "the manifest " + quote(module.manifest->path) +
                                                 " of module " + quote(module.name));
    }
    if (!job.teeLibrary.empty())
        roles.add(libraryPath(job, job.teeLibrary),
                  "the library " + quote(libraryPath(job, job.teeLibrary)));
}

void useFilesOf(const ResolvedJob& job)
{
    VORN::FileRoles& roles = VORN::usedFiles();
    roles.clear();
    addJobAndModules(roles, job);
    addFiles(roles, job, false);
    addFiles(roles, job, true);
}

} // namespace host
