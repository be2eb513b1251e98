// Job files. Up to the first NUL the input is the file; the lines up to the next are
// settings of the command line.
#include "FuzzInput.h"
#include "base/Text.h"

#include "YamlChecks.h"
#include "job/JobFile.h"
#include "job/ParameterValue.h"

#include <set>

namespace {

using host::Diagnostics;
using host::JobFile;

bool isAbsolute(const std::string& path)
{
    return !path.empty() && path[0] == '/';
}

// What every later step relies on when there was no error.
void checkJob(const JobFile& job)
{
    std::set<std::string> names;
    for (const host::JobModule& module : job.modules) {
        VORN_ASSERT(!module.name.empty() && !module.module.empty());
        VORN_ASSERT(module.name.find('.') == std::string::npos);
        VORN_ASSERT(names.insert(module.name).second);
        VORN_ASSERT(job.find(module.name) == &module);
        for (const host::JobParameter& parameter : module.parameters)
            VORN_ASSERT(parameter.value != nullptr && isAbsolute(parameter.folder));
    }
    VORN_ASSERT(!job.modules.empty());
    for (const host::JobAttribute& attribute : job.attributes) {
        VORN_ASSERT(!attribute.name.empty() && attribute.type > 0 && attribute.dimension > 0);
    }
    VORN_ASSERT(isAbsolute(job.folder) && isAbsolute(job.project));
    VORN_ASSERT(!job.scratchDirectory || isAbsolute(*job.scratchDirectory));
    VORN_ASSERT(!job.scratchTraces || (*job.scratchTraces >= host::fewestScratchTraces &&
                                       *job.scratchTraces <= host::mostScratchTraces));
}

// Parameters of modules that no manifest describes.
void guessParameters(const JobFile& job)
{
    Diagnostics diagnostics;
    for (const host::JobModule& module : job.modules) {
        for (const host::JobParameter& parameter : module.parameters) {
            const int before = diagnostics.errors();
            const auto value = host::guessParameter(parameter.value, "parameter", diagnostics);
            VORN_ASSERT(value.has_value() == (diagnostics.errors() == before));
        }
    }
    checkDiagnostics(diagnostics);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(input.find('\0'), input.size());
    const std::string text = input.substr(0, end);
    checkYaml(text);

    Diagnostics diagnostics;
    std::optional<JobFile> job = host::parseJobFile(text, "jobs/input.yaml", diagnostics);
    VORN_ASSERT(job || diagnostics.hasErrors());
    if (job && !diagnostics.hasErrors())
        checkJob(*job);
    checkDiagnostics(diagnostics);
    if (!job)
        return 0;

    if (end < input.size()) {
        Diagnostics ofSettings;
        for (const std::string& setting : host::splitLines(input.c_str() + end + 1))
            host::applySetting(*job, setting, ofSettings);
        checkDiagnostics(ofSettings);
    }
    guessParameters(*job);
    return 0;
}
