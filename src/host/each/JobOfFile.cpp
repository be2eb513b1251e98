#include "each/JobOfFile.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "file/InputNames.h"
#include "job/Manifest.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fmt/format.h>

namespace host {

namespace {

namespace fs = std::filesystem;

// Errors of manifests are reported when the job is checked.
ManifestPointer manifestOf(const JobModule& module, const ModuleCatalog& catalog)
{
    const CatalogModule* found = catalog.find(module.module);
    if (found == nullptr || found->manifest.empty())
        return nullptr;
    Diagnostics ignored;
    return readManifest(found->manifest, found->name, ignored);
}

bool isInput(const ParameterSpec& spec)
{
    return spec.type == ParameterType::file || spec.type == ParameterType::fileList;
}

std::vector<FileParameter> inputsOf(const JobModule& module, const Manifest& manifest)
{
    std::vector<FileParameter> inputs;
    for (const ParameterSpec& spec : manifest.parameters) {
        if (isInput(spec))
            inputs.push_back({module.name, spec.name, spec.type == ParameterType::fileList});
    }
    return inputs;
}

// Of several input files of a module, those that it cannot do without.
std::vector<FileParameter> requiredOf(const std::vector<FileParameter>& inputs,
                                      const Manifest& manifest)
{
    std::vector<FileParameter> required;
    std::copy_if(inputs.begin(), inputs.end(), std::back_inserter(required),
                 [&](const FileParameter& one) { return manifest.find(one.parameter)->required; });
    return required.empty() ? inputs : required;
}

std::string namesOf(const std::vector<FileParameter>& parameters)
{
    std::vector<std::string> names;
    names.reserve(parameters.size());
    for (const FileParameter& one : parameters)
        names.push_back(one.name());
    return joined(names, ", ");
}

// The inputs of the modules without inputs, from which traces come.
std::vector<FileParameter> inputsOfReaders(const JobFile& job, const ModuleCatalog& catalog)
{
    std::vector<FileParameter> all;
    for (const JobModule& module : job.modules) {
        const ManifestPointer manifest = manifestOf(module, catalog);
        if (manifest == nullptr || manifest->inputs.max != 0)
            continue;
        const std::vector<FileParameter> some = requiredOf(inputsOf(module, *manifest), *manifest);
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

FileParameter onlyReader(const JobFile& job, const ModuleCatalog& catalog)
{
    const std::vector<FileParameter> all = inputsOfReaders(job, catalog);
    if (all.size() == 1)
        return all.front();
    if (all.empty())
        throw CommandError("--each: no module of the job reads a file that could be replaced; name "
                           "the parameter, as in --each MODULE.PARAMETER=PATTERN");
    throw CommandError(fmt::format("--each: the job reads {} files, {}; say which one is to be "
                                   "replaced, as in --each {}=PATTERN",
                                   all.size(), namesOf(all), all.front().module));
}

FileParameter namedParameter(const JobModule& module, const std::string& parameter,
                             const Manifest* manifest)
{
    if (manifest == nullptr) { // parameters are not known: it is as the user says
        if (parameter.empty())
            throw CommandError(fmt::format("--each: module {} has no manifest; name the parameter, "
                                           "as in --each {}.PARAMETER=PATTERN",
                                           quote(module.name), module.name));
        return {module.name, parameter, false};
    }
    if (!parameter.empty()) {
        const ParameterSpec* spec = manifest->find(parameter);
        if (spec == nullptr)
            throw CommandError(fmt::format(
                "--each: module {} has no parameter {}{}", quote(module.name), quote(parameter),
                suggestion(parameter, manifest->parameterNames(), "it has")));
        if (!isInput(*spec))
            throw CommandError(fmt::format("--each: parameter {} of module {} is {}; expected one "
                                           "that names an input file",
                                           quote(parameter), quote(module.name),
                                           parameterTypeName(spec->type)));
        return {module.name, parameter, spec->type == ParameterType::fileList};
    }
    const std::vector<FileParameter> inputs = requiredOf(inputsOf(module, *manifest), *manifest);
    if (inputs.empty())
        throw CommandError("--each: module " + quote(module.name) +
                           " has no parameter that names an input file");
    if (inputs.size() > 1)
        throw CommandError(fmt::format("--each: module {} reads {} files, {}; say which one is to "
                                       "be replaced, as in --each {}=PATTERN",
                                       quote(module.name), inputs.size(), namesOf(inputs),
                                       inputs.front().name()));
    return inputs.front();
}

const JobParameter* findGiven(const JobModule& module, const std::string& name)
{
    for (const JobParameter& parameter : module.parameters) {
        if (parameter.name == name)
            return &parameter;
    }
    return nullptr;
}

std::string withFolder(std::string text, const std::string& name)
{
    const std::string mark = folderPlaceholder;
    for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark, at + name.size()))
        text.replace(at, mark.size(), name);
    return text;
}

bool isParameterName(const std::string& text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-' || c == '.';
    });
}

} // namespace

bool JobOutput::isRelative() const
{
    return fs::path(written).is_relative();
}

std::string JobOutput::path(const std::string& resultFolder) const
{
    const std::string name = withFolder(written, fs::path(resultFolder).filename().string());
    return (fs::path(resultFolder) / name).lexically_normal().string();
}

EachPattern splitEach(const std::string& text, const JobFile& job)
{
    const std::size_t equals = text.find('=');
    const std::string parameter = text.substr(0, std::min(equals, text.size()));
    if (equals == std::string::npos || !isParameterName(parameter))
        return {"", text};
    const std::string module = parameter.substr(0, parameter.find('.'));
    std::error_code error;
    const std::vector<std::string> matches = VORN::inputFiles(text);
    const bool isFile = !matches.empty() && fs::exists(matches.front(), error);
    if (job.find(module) == nullptr && isFile)
        return {"", text};
    if (job.find(module) == nullptr)
        throw CommandError("--each: the job has no module " + quote(module) +
                           suggestion(module, job.moduleNames(), "it has"));
    return {parameter, text.substr(equals + 1)};
}

FileParameter findFileParameter(const JobFile& job, const ModuleCatalog& catalog,
                                const std::string& named)
{
    if (named.empty())
        return onlyReader(job, catalog);
    const std::size_t dot = named.find('.');
    const std::string name = named.substr(0, dot);
    const std::string parameter = dot == std::string::npos ? "" : named.substr(dot + 1);
    const JobModule* module = job.find(name);
    if (module == nullptr)
        throw CommandError("--each: the job has no module " + quote(name) +
                           suggestion(name, job.moduleNames(), "it has"));
    return namedParameter(*module, parameter, manifestOf(*module, catalog).get());
}

std::vector<JobOutput> jobOutputs(const JobFile& job, const ModuleCatalog& catalog)
{
    std::vector<JobOutput> outputs;
    for (const JobModule& module : job.modules) {
        const ManifestPointer manifest = manifestOf(module, catalog);
        if (manifest == nullptr)
            continue;
        for (const ParameterSpec& spec : manifest->parameters) {
            const JobParameter* given = findGiven(module, spec.name);
            const YamlValue value = given != nullptr ? given->value : spec.defaultValue;
            if (spec.type == ParameterType::outfile && value != nullptr && value->isScalar() &&
                !value->text.empty())
                outputs.push_back({module.name, spec.name, value->text});
        }
    }
    return outputs;
}

void setFile(JobFile& job, const std::string& module, const std::string& parameter,
             const std::string& value, bool keepPlace)
{
    auto node = std::make_shared<YamlNode>();
    node->kind = YamlNode::Kind::scalar;
    node->place = {eachSource, 0, 0};
    node->text = value;
    for (JobModule& one : job.modules) {
        if (one.name != module)
            continue;
        const auto former =
            std::find_if(one.parameters.begin(), one.parameters.end(),
                         [&](const JobParameter& given) { return given.name == parameter; });
        if (former == one.parameters.end()) {
            one.parameters.push_back({parameter, node->place, node, job.folder});
            continue;
        }
        if (keepPlace)
            node->place = former->value->place;
        else
            former->place = node->place;
        former->value = node;
    }
}

} // namespace host
