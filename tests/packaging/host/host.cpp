// Runs feed -> MODULE -> collect, or feed -> collect without MODULE, and prints the messages of
// collect. All other messages go to the standard error.
//
//     package_host [MODULE.so [PARAMETER=VALUE]...]
#include "DataChannel.h"
#include "JobManager.h"
#include "ModuleEntity.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

int printMessage(int, char*, const char* module, const char* text, void*)
{
    if (std::strncmp(text, "trace:", 6) == 0)
        std::printf("%s\n", text);
    else
        std::fprintf(stderr, "%s: %s\n", module, text);
    return 0;
}

ModuleEntity* addModule(const char* name, const char* library)
{
    ModuleEntity* module = JobManager::getInstance()->initJobModule(name, library);
    if (module == nullptr)
        std::fprintf(stderr, "module %s was not loaded\n", name);
    return module;
}

void connect(ModuleEntity* producer, ModuleEntity* consumer)
{
    DataChannel* channel = new DataChannel; // the job deletes it after post-processing
    producer->setOutputDataChannel(channel, 0);
    consumer->setInputDataChannel(channel, 0);
}

void setParameter(ModuleEntity* module, const std::string& assignment)
{
    const size_t equals = assignment.find('=');
    module->setParameter(assignment.substr(0, equals), UniVar(assignment.substr(equals + 1)));
}

} // namespace

int main(int argc, char** argv)
{
    JobManager* job = JobManager::getInstance();
    job->installMessageFunc(printMessage, nullptr, nullptr);

    ModuleEntity* last = addModule("feed", "libfeed.so");
    if (last == nullptr)
        return 1;
    if (argc > 1) {
        ModuleEntity* module = addModule("module", argv[1]);
        if (module == nullptr)
            return 1;
        for (int i = 2; i < argc; ++i)
            setParameter(module, argv[i]);
        connect(last, module);
        last = module;
    }
    ModuleEntity* collect = addModule("collect", "libcollect.so");
    if (collect == nullptr)
        return 1;
    connect(last, collect);

    const bool failed =
        job->preProcessJob() != 0 || job->processJob() != 0 || job->postProcessJob() != 0;
    std::printf("job %s\n", failed ? "failed" : "finished");
    return failed ? 1 : 0;
}
