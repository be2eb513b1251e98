#include "parts/PartEntries.h"

#include "JobManager.h"
#include "ModuleEntity.h"
#include "base/CommandError.h"
#include "base/Escaping.h"

#include <dlfcn.h>

namespace host {

PartEntry findPartEntry(const ResolvedModule& module, const ModuleEntity& entity, const char* name)
{
    if (module.manifest == nullptr || !module.manifest->parallel.merge ||
        entity.moduleLibraryHandle == nullptr)
        return nullptr;
    void* const found = dlsym(entity.moduleLibraryHandle, name);
    if (found == nullptr)
        throw CommandError("module " + quote(module.name) +
                           ": its manifest says merge: true, but " + quote(module.library) +
                           " has no function " + name);
    return reinterpret_cast<PartEntry>(found);
}

void callPartEntry(const RunView& view, ModuleEntity& module, PartEntry entry,
                   const std::string& path, const std::string& failure)
{
    const bool failedBefore = view.result.failed;
    view.manager.setActiveModule(&module);
    const int status = entry(path.data(), static_cast<int>(path.size()));
    view.manager.setActiveModule(nullptr);
    if (view.result.failed && !failedBefore)
        return;
    if (status != 0)
        throw CommandError("module " + quote(module.getName()) + ": " + failure, exitJobErrors);
}

} // namespace host
