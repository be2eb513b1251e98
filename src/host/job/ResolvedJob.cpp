#include "job/ResolvedJob.h"

#include "file/InputNames.h"

#include <yaml-cpp/emitter.h>

namespace host {

namespace {

void emitAttributes(YAML::Emitter& out, const ResolvedJob& job)
{
    if (job.schema != "list") {
        out << YAML::Key << "schema" << YAML::Value << job.schema;
        return;
    }
    out << YAML::Key << "schema" << YAML::Value << YAML::BeginSeq;
    for (const ResolvedAttribute& attribute : job.attributes)
        out << YAML::Flow << YAML::BeginMap << YAML::Key << "name" << YAML::Value << attribute.name
            << YAML::Key << "type" << YAML::Value << attributeTypeName(attribute.type) << YAML::Key
            << "dimension" << YAML::Value << attribute.dimension << YAML::EndMap;
    out << YAML::EndSeq;
}

void emitInputs(YAML::Emitter& out, const ResolvedJob& job, const ResolvedModule& module)
{
    if (module.inputs.empty())
        return;
    out << YAML::Key << "inputs" << YAML::Value << YAML::Flow << YAML::BeginSeq;
    for (const ResolvedInput& input : module.inputs) {
        const std::string& name = job.modules[static_cast<std::size_t>(input.module)].name;
        out << (input.port == 0 ? name : name + "." + std::to_string(input.port + 1));
    }
    out << YAML::EndSeq;
}

void emitParameter(YAML::Emitter& out, const ResolvedParameter& parameter)
{
    out << YAML::Key << parameter.name << YAML::Value;
    const std::string unit = parameter.unit.empty() ? "" : " " + parameter.unit;
    if (parameter.value.items) {
        out << YAML::Flow << YAML::BeginSeq;
        for (const std::string& item : *parameter.value.items)
            out << item + unit;
        out << YAML::EndSeq;
        return;
    }
    // Without a type, quotes distinguish the text 12 from the number.
    if (parameter.type.empty() && parameter.value.value.getType() == strType)
        out << YAML::DoubleQuoted;
    out << parameter.value.text + unit;
}

} // namespace

std::vector<std::string> filesOf(const ResolvedParameter& parameter)
{
    if (!parameter.value.items)
        return {parameter.value.text};
    std::vector<std::string> files;
    for (const std::string& name : *parameter.value.items) {
        const std::vector<std::string> found = VORN::inputFiles(name);
        if (found.empty())
            files.push_back(name);
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

std::string ResolvedJob::portName(int module, int port) const
{
    const ManifestPointer& manifest = modules[static_cast<std::size_t>(module)].manifest;
    const auto index = static_cast<std::size_t>(port);
    if (manifest != nullptr && index < manifest->outputs.names.size())
        return manifest->outputs.names[index];
    return std::to_string(port + 1);
}

std::string resolvedYaml(const ResolvedJob& job)
{
    YAML::Emitter out;
    out << YAML::BeginMap;
    out << YAML::Key << "job" << YAML::Value << job.name;
    out << YAML::Key << "project" << YAML::Value << job.project;
    out << YAML::Key << "scratch" << YAML::Value << YAML::Flow << YAML::BeginMap << YAML::Key
        << "directory" << YAML::Value << job.scratchDirectory << YAML::Key << "traces"
        << YAML::Value << job.scratchTraces << YAML::EndMap;
    emitAttributes(out, job);
    out << YAML::Key << "modules" << YAML::Value << YAML::BeginSeq;
    for (const ResolvedModule& module : job.modules) {
        out << YAML::BeginMap;
        out << YAML::Key << "name" << YAML::Value << module.name;
        out << YAML::Key << "module" << YAML::Value << module.module;
        emitInputs(out, job, module);
        for (const ResolvedParameter& parameter : module.parameters)
            emitParameter(out, parameter);
        out << YAML::EndMap;
    }
    out << YAML::EndSeq << YAML::EndMap;
    return std::string(out.c_str()) + "\n";
}

} // namespace host
