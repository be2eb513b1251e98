#include "job/JobFile.h"

#include "base/Escaping.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "job/Manifest.h"
#include "job/YamlFields.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr int mostDimension = 100000;

// The scheduler descends from a module to its producers, one call per module of a chain; the stack
// limits its depth.
constexpr std::size_t mostModules = 10000;

std::string absolutePath(const std::string& folder, const std::string& path)
{
    return fs::absolute(fs::path(folder) / path).lexically_normal().string();
}

// A "." would be read as the separator before a port.
bool isModuleName(const std::string& name)
{
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_' || c == '-';
    });
}

class JobReader
{
public:
    JobReader(JobFile& target, Diagnostics& list) : job(target), diagnostics(list) {}

    void read(const YamlValue& document)
    {
        YamlFields fields(document, "the job", diagnostics);
        job.name = fields.text("job").value_or(fs::path(job.path).stem().string());
        readProject(fields);
        readScratch(fields);
        readSchema(fields);
        if (const YamlEntry* words = fields.entry("words"))
            job.words = {words->key, words->place, words->value, job.folder};
        readModules(fields);
        fields.refuseOthers();
    }

private:
    void readProject(YamlFields& fields)
    {
        job.project = job.folder;
        job.projectPlace = fields.place();
        const YamlEntry* entry = fields.entry("project");
        if (const auto project = fields.text("project"); project && !project->empty()) {
            job.project = absolutePath(job.folder, *project);
            job.projectPlace = entry->value->place;
        }
    }

    void readScratch(YamlFields& jobFields)
    {
        const YamlEntry* entry = jobFields.entry("scratch");
        if (entry == nullptr)
            return;
        YamlFields fields(entry->value, "\"scratch\"", diagnostics);
        job.scratchPlace = entry->value->place;
        if (const YamlEntry* directory = fields.entry("directory"))
            job.scratchPlace = directory->value->place;
        if (const auto directory = fields.text("directory"); directory && !directory->empty())
            job.scratchDirectory = absolutePath(job.folder, *directory);
        if (const auto traces = fields.integer("traces", fewestScratchTraces, mostScratchTraces))
            job.scratchTraces = static_cast<int>(*traces);
        fields.refuseOthers();
    }

    void readSchema(YamlFields& jobFields)
    {
        const YamlEntry* entry = jobFields.entry("schema");
        if (entry == nullptr)
            return;
        job.schema = entry->value->isScalar() ? entry->value->text : "list";
        const std::vector<YamlValue> items =
            entry->value->isList() ? entry->value->items : std::vector<YamlValue>{entry->value};
        for (const YamlValue& item : items) {
            if (!item->isScalar())
                readAttribute(item);
            else if (item->text == "segy")
                job.hasSegySchema = true;
            else
                diagnostics.error(item->place, "there is no schema " + quote(item->text) +
                                                   suggestion(item->text, {"segy"}, "there is") +
                                                   (nearestName(item->text, {"segy"}).empty()
                                                        ? ", or a list of definitions"
                                                        : ""));
        }
    }

    void readAttribute(const YamlValue& item)
    {
        YamlFields fields(item, "the attribute", diagnostics);
        JobAttribute attribute;
        attribute.place = item->place;
        attribute.name = fields.requiredText("name").value_or("");
        attribute.type =
            attributeTypeCode(fields.choice("type", attributeTypeNames()).value_or("int32"));
        attribute.dimension =
            static_cast<int>(fields.integer("dimension", 1, mostDimension).value_or(1));
        attribute.description = fields.text("description").value_or("");
        fields.refuseOthers();
        for (const JobAttribute& former : job.attributes) {
            if (former.name == attribute.name && !attribute.name.empty())
                diagnostics.error(item->place,
                                  fmt::format("the attribute {} is already defined in line {}",
                                              quote(attribute.name), former.place.line));
        }
        job.attributes.push_back(attribute);
    }

    void readModules(YamlFields& jobFields)
    {
        const YamlEntry* entry = jobFields.entry("modules");
        if (entry == nullptr || !entry->value->isList() || entry->value->items.empty()) {
            if (jobFields.place().line > 0)
                diagnostics.error(entry != nullptr ? entry->value->place : jobFields.place(),
                                  "the job needs the key \"modules\" with a list of modules");
            return;
        }
        if (entry->value->items.size() > mostModules) {
            diagnostics.error(
                entry->value->place,
                fmt::format("the job has {}; a job can have up to {}",
                            counted(static_cast<int64_t>(entry->value->items.size()), "module"),
                            mostModules));
            return;
        }
        for (const YamlValue& item : entry->value->items)
            readModule(item);
    }

    void readModule(const YamlValue& item)
    {
        YamlFields fields(item, "the module", diagnostics);
        if (!item->isMap())
            return;
        JobModule module;
        module.place = item->place;
        module.name = readText(fields, "name", module.namePlace);
        module.module = readText(fields, "module", module.modulePlace);
        checkName(module);
        readInputs(fields, module);
        for (const YamlEntry& one : item->entries) {
            if (!isReservedKey(one.key))
                module.parameters.push_back({one.key, one.place, one.value, job.folder});
        }
        job.modules.push_back(module);
    }

    std::string readText(YamlFields& fields, const std::string& key, Place& place)
    {
        place = fields.place();
        if (const YamlEntry* entry = fields.entry(key))
            place = entry->value->place;
        return fields.requiredText(key).value_or("");
    }

    void checkName(const JobModule& module)
    {
        if (module.name.empty())
            return;
        if (!isModuleName(module.name))
            diagnostics.error(module.namePlace,
                              fmt::format("the name {} may have letters, digits, \"_\" and \"-\"",
                                          quote(module.name)));
        if (const JobModule* former = job.find(module.name))
            diagnostics.error(
                module.namePlace,
                fmt::format("the name {} is already used in line {}; names of modules must differ",
                            quote(module.name), former->namePlace.line));
    }

    void readInputs(YamlFields& fields, JobModule& module)
    {
        module.inputsPlace = module.place;
        const YamlEntry* one = fields.entry("input");
        const YamlEntry* several = fields.entry("inputs");
        if (one != nullptr && several != nullptr)
            diagnostics.error(several->place, "both \"input\" and \"inputs\" are given; keep one");
        const YamlEntry* entry = one != nullptr ? one : several;
        if (entry == nullptr)
            return;
        module.inputsPlace = entry->place;
        const std::vector<YamlValue> items =
            entry->value->isList() ? entry->value->items : std::vector<YamlValue>{entry->value};
        for (const YamlValue& item : items) {
            if (item->isScalar())
                module.inputs.push_back({item->text, item->place});
            else
                diagnostics.error(item->place,
                                  fmt::format("{} is {}; expected the name of a module",
                                              quote(entry->key), item->description()));
        }
    }

    JobFile& job;
    Diagnostics& diagnostics;
};

std::optional<JobFile> interpret(const YamlValue& document, const std::string& path,
                                 Diagnostics& diagnostics)
{
    if (document == nullptr)
        return std::nullopt;
    JobFile job;
    job.path = path;
    job.folder = fs::absolute(path).parent_path().lexically_normal().string();
    JobReader(job, diagnostics).read(document);
    return job;
}

JobModule* findModule(JobFile& job, const std::string& name)
{
    for (JobModule& module : job.modules) {
        if (module.name == name)
            return &module;
    }
    return nullptr;
}

} // namespace

const JobModule* JobFile::find(const std::string& moduleName) const
{
    for (const JobModule& module : modules) {
        if (module.name == moduleName)
            return &module;
    }
    return nullptr;
}

std::vector<std::string> JobFile::moduleNames() const
{
    std::vector<std::string> names;
    for (const JobModule& module : modules)
        names.push_back(module.name);
    return names;
}

std::optional<JobFile> readJobFile(const std::string& path, Diagnostics& diagnostics)
{
    return interpret(readYamlFile(path, diagnostics), path, diagnostics);
}

std::optional<JobFile> parseJobFile(const std::string& text, const std::string& path,
                                    Diagnostics& diagnostics)
{
    return interpret(readYaml(text, path, diagnostics), path, diagnostics);
}

void applySetting(JobFile& job, const std::string& setting, Diagnostics& diagnostics)
{
    const Place place{"--set " + setting, 0, 0};
    const auto equals = setting.find('=');
    const auto dot = setting.find('.');
    if (equals == std::string::npos || dot == std::string::npos || dot == 0 || dot + 1 >= equals) {
        diagnostics.error(place, "expected MODULE.PARAMETER=VALUE");
        return;
    }
    const std::string name = setting.substr(0, dot);
    const std::string parameter = setting.substr(dot + 1, equals - dot - 1);
    JobModule* module = findModule(job, name);
    if (module == nullptr) {
        diagnostics.error(place, "the job has no module " + quote(name) +
                                     suggestion(name, job.moduleNames(), "it has"));
        return;
    }
    if (isReservedKey(parameter)) {
        diagnostics.error(place,
                          fmt::format("{} is not a parameter and cannot be set", quote(parameter)));
        return;
    }
    const YamlValue value = readYamlValue(setting.substr(equals + 1), place.source, diagnostics);
    if (value == nullptr)
        return;
    const JobParameter given{parameter, place, value, fs::current_path().string()};
    for (JobParameter& former : module->parameters) {
        if (former.name == parameter) {
            former = given;
            return;
        }
    }
    module->parameters.push_back(given);
}

} // namespace host
