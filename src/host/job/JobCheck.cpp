#include "job/JobCheck.h"

#include "base/Escaping.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "job/LibraryProbe.h"
#include "segy/HeaderWords.h"
#include "segy/TraceSelection.h"
#include "segy/WordMap.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr int defaultScratchTraces = 10000; // the default of the kernel

// Finds libraries and manifests. Each is read once, however many modules of the job use it.
class ModuleFinder
{
public:
    ModuleFinder(const JobFile& job, const ModuleCatalog& modules, Diagnostics& list)
        : catalog(modules), diagnostics(list), replaced(job.replaced)
    {
        probe(job);
    }

    void find(const JobModule& job, ResolvedModule& module)
    {
        module.name = job.name;
        module.place = job.place;
        module.module = job.module;
        if (const auto own = replaced.find(job.name); own != replaced.end()) {
            module.replaced = own->second;
            module.manifest = manifestInPlaceOf(job, *own->second);
            return;
        }
        if (job.module.empty())
            return; // the error has been reported
        const CatalogModule* found = catalog.find(job.module);
        if (found == nullptr) {
            complainAboutName(job);
            return;
        }
        if (const std::string text = ambiguity(*found);
            !text.empty() && ambiguous.insert(text).second)
            diagnostics.warning(job.modulePlace, text);
        module.manifest = manifestOf(*found, job);
        if (found->library.empty()) {
            diagnostics.error(job.modulePlace,
                              fmt::format("module {}: there is a manifest, {}, but no library lib{}"
                                          ".so beside it",
                                          quote(job.module), found->manifest, job.module));
            return;
        }
        module.library = catalog.relativeLibrary(*found);
        const std::string& problem = problems.at(found->library);
        if (!problem.empty())
            diagnostics.error(job.modulePlace,
                              fmt::format("module {}: its library {} {}", quote(job.module),
                                          escaped(found->library), escaped(problem)));
    }

private:
    // Loads the libraries of all modules for trial.
    void probe(const JobFile& job)
    {
        std::vector<std::string> libraries;
        for (const JobModule& module : job.modules) {
            const CatalogModule* found = catalog.find(module.module);
            if (found != nullptr && !found->library.empty() && replaced.count(module.name) == 0 &&
                problems.emplace(found->library, "").second)
                libraries.push_back(found->library);
        }
        const std::vector<std::string> results = probeLibraries(libraries);
        for (std::size_t i = 0; i < libraries.size(); ++i)
            problems[libraries[i]] = results[i];
    }

    void complainAboutName(const JobModule& job)
    {
        if (job.module.find('/') != std::string::npos) {
            diagnostics.error(job.modulePlace,
                              "module " + quote(job.module) +
                                  " must be a plain name; modules of another directory are allowed "
                                  "by --allow-modules-from DIR");
            return;
        }
        diagnostics.error(job.modulePlace,
                          fmt::format("there is no module {} in {}{}", quote(job.module),
                                      escaped(catalog.libraryDirectory()),
                                      suggestion(job.module, catalog.names(), "there are")));
    }

    ManifestPointer manifestOf(const CatalogModule& found, const JobModule& job)
    {
        if (found.manifest.empty()) {
            diagnostics.warning(job.modulePlace,
                                fmt::format("module {} has no manifest; its parameters are passed "
                                            "unchecked",
                                            quote(job.module)));
            return nullptr;
        }
        const auto known = manifests.find(found.name);
        if (known != manifests.end())
            return known->second;
        return manifests[found.name] = readManifest(found.manifest, found.name, diagnostics);
    }

    // The manifest of the module, where it has one, with the ports of what the application puts in
    // its place. The attributes that a reader defines stay defined: the modules behind it may need
    // them. What is wrong with the manifest does not matter.
    ManifestPointer manifestInPlaceOf(const JobModule& job, const ReplacedModule& own) const
    {
        Manifest manifest;
        const CatalogModule* found = catalog.find(job.module);
        Diagnostics ignored;
        if (found != nullptr && !found->manifest.empty()) {
            if (const auto read = readManifest(found->manifest, found->name, ignored))
                manifest = *read;
        }
        const auto isNoMap = [](const ParameterSpec& spec) {
            return spec.type != ParameterType::wordMap;
        };
        manifest.parameters.erase(
            std::remove_if(manifest.parameters.begin(), manifest.parameters.end(), isNoMap),
            manifest.parameters.end());
        manifest.rules.clear();
        manifest.reads.clear();
        manifest.parallel = {};
        if (!own.isSource)
            manifest.writes.clear();
        manifest.inputs = own.isSource ? PortSpec{} : PortSpec{1, 1, {}};
        std::vector<std::string> names = std::move(manifest.outputs.names);
        names.resize(std::min<std::size_t>(names.size(), 1));
        manifest.outputs = own.isSource ? PortSpec{1, 1, std::move(names)} : PortSpec{};
        return std::make_shared<const Manifest>(std::move(manifest));
    }

    const ModuleCatalog& catalog;
    Diagnostics& diagnostics;
    const std::map<std::string, ReplacedModulePointer>& replaced; // by the name in the job
    std::map<std::string, ManifestPointer> manifests;
    std::map<std::string, std::string> problems; // by library
    std::set<std::string> ambiguous;             // names that were told
};

void checkDirectory(const std::string& path, const Place& place, const std::string& what,
                    bool written, Diagnostics& diagnostics)
{
    if (!fs::is_directory(path))
        diagnostics.error(place, fmt::format("the {} {} is not a directory", what, quote(path)));
    else if (written && access(path.c_str(), W_OK | X_OK) != 0)
        diagnostics.error(place, fmt::format("the {} {} cannot be written to", what, quote(path)));
}

std::string environment(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

// The value of VORN_SCRATCH_SIZE, parsed as the kernel parses it: a number, and anything behind it.
int scratchTracesOfEnvironment(Diagnostics& diagnostics)
{
    const std::string text = environment("VORN_SCRATCH_SIZE");
    if (text.empty())
        return defaultScratchTraces;
    const long traces = std::strtol(text.c_str(), nullptr, 10);
    if (traces >= fewestScratchTraces && traces <= mostScratchTraces)
        return static_cast<int>(traces);
    diagnostics.warning({"VORN_SCRATCH_SIZE", 0, 0},
                        fmt::format("{} is ignored, {} traces stay in memory; expected a number "
                                    "from {} to {}",
                                    quote(text), defaultScratchTraces, fewestScratchTraces,
                                    mostScratchTraces));
    return defaultScratchTraces;
}

// The directory for temporary files, of the first variable that is set, as the C++ library chooses
// it. A wrong value is an error: data must not go to a place that nobody has meant.
std::string temporaryDirectory(Diagnostics& diagnostics)
{
    for (const char* variable : {"TMPDIR", "TMP", "TEMP", "TEMPDIR"}) {
        const char* value = std::getenv(variable);
        if (value == nullptr)
            continue;
        std::string path = value;
        std::error_code none;
        const std::string problem = path.empty()                      ? "is empty"
                                    : path.front() != '/'             ? "is a relative path"
                                    : !fs::is_directory(path, none)   ? "is not a directory"
                                    : access(value, W_OK | X_OK) != 0 ? "cannot be written to"
                                                                      : "";
        if (!problem.empty())
            diagnostics.error({variable, 0, 0},
                              fmt::format("the value {} {}; set {} to the absolute path of a "
                                          "directory that can be written to, or unset it",
                                          quote(path), problem, variable));
        return path;
    }
    return "/tmp";
}

void resolveScratch(const JobFile& job, ResolvedJob& resolved, Diagnostics& diagnostics)
{
    resolved.scratchDirectory = job.scratchDirectory.value_or(environment("VORN_SCRATCH"));
    const Place place = job.scratchDirectory ? job.scratchPlace : Place{"VORN_SCRATCH", 0, 0};
    if (!resolved.scratchDirectory.empty())
        checkDirectory(resolved.scratchDirectory, place, "scratch directory", true, diagnostics);
    else
        resolved.scratchDirectory = temporaryDirectory(diagnostics);

    resolved.scratchTraces =
        job.scratchTraces ? *job.scratchTraces : scratchTracesOfEnvironment(diagnostics);
}

// Whether module `i` or one before it writes the attribute.
bool isWrittenBefore(const std::vector<ResolvedModule>& modules, std::size_t i,
                     const std::string& attribute)
{
    std::vector<bool> seen(modules.size(), false);
    std::vector<std::size_t> ahead = {i};
    while (!ahead.empty()) {
        const ResolvedModule& module = modules[ahead.back()];
        const bool isNew = !seen[ahead.back()];
        seen[ahead.back()] = true;
        ahead.pop_back();
        if (!isNew)
            continue;
        if (module.manifest != nullptr &&
            std::any_of(module.manifest->writes.begin(), module.manifest->writes.end(),
                        [&](const AttributeSpec& written) { return written.name == attribute; }))
            return true;
        for (const ResolvedInput& input : module.inputs)
            ahead.push_back(static_cast<std::size_t>(input.module));
    }
    return false;
}

// An attribute that is defined nowhere reads as zero, which is hard to notice later.
void warnOfUnknownReads(const JobFile& job, const std::vector<ResolvedModule>& modules,
                        const std::map<std::string, ResolvedAttribute>& defined,
                        Diagnostics& diagnostics)
{
    for (std::size_t i = 0; i < modules.size(); ++i) {
        if (modules[i].manifest == nullptr)
            continue;
        for (const std::string& name : modules[i].manifest->reads) {
            // Most are in the schema; the preceding modules are searched for the others only.
            if (defined.count(name) == 0 && !isWrittenBefore(modules, i, name))
                diagnostics.warning(job.modules[i].place,
                                    fmt::format("module {} reads the trace attribute {}, which "
                                                "neither the schema nor a module before it has",
                                                quote(modules[i].name), quote(name)));
        }
    }
}

// Names of attributes among the values of parameters.
class AttributeNames
{
public:
    AttributeNames(const std::map<std::string, ResolvedAttribute>& defined, const JobFile& job,
                   const std::vector<ResolvedModule>& modules)
    {
        for (const auto& one : defined)
            names.push_back(one.first);
        for (std::size_t i = 0; i < modules.size(); ++i)
            addWritten(job.modules[i], modules[i]);
        std::sort(names.begin(), names.end());
    }

    void check(const JobModule& job, const Manifest& manifest, Diagnostics& diagnostics) const
    {
        for (const JobParameter& given : job.parameters) {
            const ParameterSpec* spec = manifest.find(given.name);
            if (spec == nullptr)
                continue;
            const std::string subject =
                fmt::format("parameter {} of module {}", quote(spec->name), quote(job.name));
            for (const YamlValue& item :
                 given.value->isList() ? given.value->items : std::vector{given.value}) {
                if (namesAttributes(spec->meaning))
                    checkNode(*item, *spec, subject, diagnostics);
                for (const std::string& name : namesInFormulas(*spec, *item))
                    checkFormulaName(*item, name, subject, diagnostics);
            }
        }
    }

    // Readers select words of their files; modules behind them, attributes of traces.
    void checkSelections(const JobModule& job, const ResolvedModule& module,
                         Diagnostics& diagnostics) const
    {
        if (module.manifest->inputs.max == 0)
            return;
        for (const ResolvedParameter& parameter : module.parameters) {
            const auto given =
                std::find_if(job.parameters.begin(), job.parameters.end(),
                             [&](const JobParameter& one) { return one.name == parameter.name; });
            if (given == job.parameters.end() ||
                module.manifest->find(parameter.name)->type != ParameterType::selection)
                continue;
            const std::string subject =
                fmt::format("parameter {} of module {}", quote(parameter.name), quote(job.name));
            for (const std::string& name : selectedWords(parameter.value.text))
                checkName(name, given->value->place, subject, diagnostics);
        }
    }

private:
    // None where the text is not a selection, which has been reported.
    static std::vector<std::string> selectedWords(const std::string& selection)
    {
        std::vector<std::string> words;
        try {
            for (const auto& condition : VORN::TraceSelection::split(selection))
                if (condition.first != "traces")
                    words.push_back(condition.first);
        } catch (const std::invalid_argument&) {
            words.clear();
        }
        return words;
    }

    void addWritten(const JobModule& job, const ResolvedModule& module)
    {
        for (const AttributeSpec& written : module.manifest->writes)
            names.push_back(written.name);
        for (const JobParameter& given : job.parameters) {
            const ParameterSpec* spec = module.manifest->find(given.name);
            if (spec == nullptr)
                continue;
            const std::vector<std::string> assigned = wordsAssigned(*spec, *given.value);
            names.insert(names.end(), assigned.begin(), assigned.end());
        }
        const std::vector<std::string> columns = wordsOfTable(module);
        names.insert(names.end(), columns.begin(), columns.end());
    }

    bool isKnown(const std::string& name) const
    {
        return std::binary_search(names.begin(), names.end(), name);
    }

    // "trace" is the number of the trace; the columns of tables have been looked up in them.
    void checkFormulaName(const YamlNode& node, const std::string& name, const std::string& subject,
                          Diagnostics& diagnostics) const
    {
        if (name == "trace" || name.starts_with("table.") || isKnown(name))
            return;
        diagnostics.error(node.place,
                          fmt::format("{} uses {}; the traces of this job have no attribute of "
                                      "that name{}",
                                      subject, quote(name), suggestion(name, names, "")));
    }

    void checkNode(const YamlNode& node, const ParameterSpec& spec, const std::string& subject,
                   Diagnostics& diagnostics) const
    {
        std::string name = trimmed(node.text);
        if (spec.meaning == ParameterMeaning::sortKey && name.starts_with('-'))
            name = trimmed(name.substr(1));
        const bool isAllowed =
            std::find(spec.besides.begin(), spec.besides.end(), name) != spec.besides.end();
        // Values that are not texts have been reported; an empty one means none.
        if (node.isScalar() && !name.empty() && !isAllowed)
            checkName(name, node.place, subject, diagnostics);
    }

    void checkName(const std::string& name, const Place& place, const std::string& subject,
                   Diagnostics& diagnostics) const
    {
        if (isKnown(name))
            return;
        diagnostics.error(place,
                          fmt::format("{} is {}; the traces of this job have no attribute of that "
                                      "name{}",
                                      subject, quote(name), suggestion(name, names, "")));
    }

    std::vector<std::string> names; // sorted
};

void refuseUnknownNames(const JobFile& job, const std::vector<ResolvedModule>& modules,
                        const std::map<std::string, ResolvedAttribute>& defined,
                        Diagnostics& diagnostics)
{
    const auto isKnown = [](const ResolvedModule& one) { return one.manifest != nullptr; };
    if (!std::all_of(modules.begin(), modules.end(), isKnown))
        return; // what modules without a manifest write is unknown
    const AttributeNames names(defined, job, modules);
    for (std::size_t i = 0; i < modules.size(); ++i) {
        names.check(job.modules[i], *modules[i].manifest, diagnostics);
        names.checkSelections(job.modules[i], modules[i], diagnostics);
    }
}

// Each of several readers of an output has a channel to itself, which a module of that name fills.
void findTee(const JobFile& job, const ModuleCatalog& catalog, ResolvedJob& resolved,
             Diagnostics& diagnostics)
{
    const CatalogModule* tee = catalog.find("tee");
    if (tee != nullptr && !tee->library.empty()) {
        resolved.teeLibrary = catalog.relativeLibrary(*tee);
        return;
    }
    for (std::size_t i = 0; i < resolved.modules.size(); ++i) {
        const std::vector<int>& consumers = resolved.modules[i].consumers;
        if (std::none_of(consumers.begin(), consumers.end(), [](int count) { return count > 1; }))
            continue;
        diagnostics.error(
            job.modules[i].place,
            fmt::format("the output of module {} has several readers, which needs the "
                        "module \"tee\"; there is none in {}: install the modules of "
                        "this version of vorn",
                        quote(job.modules[i].name), escaped(catalog.libraryDirectory())));
        return;
    }
}

// ---- Words at other bytes ----

// The map of the module's parameter of that type; an empty one where there is none, or a wrong one,
// which has been reported.
VORN::WordMap wordMapOf(const ResolvedModule& module)
{
    for (const ResolvedParameter& parameter : module.parameters) {
        if (parameter.type != parameterTypeName(ParameterType::wordMap))
            continue;
        try {
            return VORN::WordMap(parameter.value.text);
        } catch (const std::invalid_argument&) {
            return {};
        }
    }
    return {};
}

// The type of attribute that holds every value of the word.
int attributeTypeOf(const VORN::HeaderWord& word)
{
    if (word.isFloat)
        return attributeTypeCode(word.bytes == 4 && !word.isIbm ? "float32" : "float64");
    const bool fits = word.bytes < 4 || (word.bytes == 4 && !word.isUnsigned);
    return attributeTypeCode(fits ? "int32" : "int64");
}

// Types stand in the order int32, int64, float32, float64; an integer of 64 bits and a float of 32
// meet in a float of 64.
int commonType(int a, int b)
{
    const bool mixed =
        std::min(a, b) != std::max(a, b) && std::max(a, b) == attributeTypeCode("float32");
    return mixed ? attributeTypeCode("float64") : std::max(a, b);
}

// What readers map gets the type that it has in the file, unless the job states another.
void defineMappedWords(const JobFile& job, const std::vector<ResolvedModule>& modules,
                       std::map<std::string, ResolvedAttribute>& defined)
{
    std::map<std::string, int> types;
    for (const ResolvedModule& module : modules) {
        if (module.manifest == nullptr || module.manifest->inputs.max != 0)
            continue;
        const VORN::WordMap map = wordMapOf(module);
        for (const VORN::HeaderWord& word : map.words()) {
            const int type = attributeTypeOf(word);
            const auto [known, added] = types.insert({word.key, type});
            if (!added)
                known->second = commonType(known->second, type);
            defined.insert({word.key, {word.key, type, 1, word.text}});
        }
    }
    for (const auto& [name, type] : types) {
        const bool isStated = std::any_of(
            job.attributes.begin(), job.attributes.end(),
            [&, wanted = name](const JobAttribute& attribute) { return attribute.name == wanted; });
        if (!isStated)
            defined[name].type = type;
    }
}

// A map that no module takes would be forgotten in silence.
void refuseUnusedMap(const JobFile& job, const std::vector<ResolvedModule>& modules,
                     Diagnostics& diagnostics)
{
    const auto takesMaps = [](const ResolvedModule& module) {
        return module.manifest != nullptr && module.manifest->inputs.max == 0 &&
               std::any_of(
                   module.manifest->parameters.begin(), module.manifest->parameters.end(),
                   [](const ParameterSpec& spec) { return spec.type == ParameterType::wordMap; });
    };
    const auto isOwnSource = [](const ResolvedModule& module) {
        return module.replaced != nullptr && module.replaced->isSource;
    };
    if (job.words && std::none_of(modules.begin(), modules.end(), takesMaps) &&
        std::none_of(modules.begin(), modules.end(), isOwnSource))
        diagnostics.error(job.words->place, "\"words\" maps header words for the modules that read "
                                            "files, and this job has none; remove it");
}

} // namespace

std::vector<ResolvedAttribute> checkAttributes(const JobFile& job,
                                               const std::vector<ResolvedModule>& modules,
                                               Diagnostics& diagnostics)
{
    std::map<std::string, ResolvedAttribute> defined;
    if (job.hasSegySchema || job.schema.empty()) {
        for (const VORN::HeaderWord& word : VORN::traceHeaderWords())
            defined[word.key] = {word.key, attributeTypeCode("int32"), 1, word.text};
    }
    for (const JobAttribute& attribute : job.attributes)
        defined[attribute.name] = {attribute.name, attribute.type, attribute.dimension,
                                   attribute.description};
    defineMappedWords(job, modules, defined);
    for (std::size_t i = 0; i < modules.size(); ++i) {
        if (modules[i].manifest == nullptr)
            continue;
        for (const AttributeSpec& attribute : modules[i].manifest->writes) {
            if (attribute.type == 0)
                continue;
            const auto [known, added] = defined.insert(
                {attribute.name,
                 {attribute.name, attribute.type, attribute.dimension, attribute.help}});
            if (!added && known->second.type != attribute.type)
                diagnostics.error(
                    job.modules[i].place,
                    fmt::format("module {} writes the trace attribute {} as {}, but it is {} "
                                "elsewhere in the job",
                                quote(modules[i].name), quote(attribute.name),
                                attributeTypeName(attribute.type),
                                attributeTypeName(known->second.type)));
        }
    }
    refuseUnknownNames(job, modules, defined, diagnostics);
    if (!diagnostics.hasErrors()) // a wrong name or connection would cause many of these
        warnOfUnknownReads(job, modules, defined, diagnostics);

    std::vector<ResolvedAttribute> attributes;
    attributes.reserve(defined.size());
    for (const auto& one : defined)
        attributes.push_back(one.second);
    return attributes;
}

ResolvedJob checkJob(const JobFile& job, const ModuleCatalog& catalog, Diagnostics& diagnostics)
{
    ResolvedJob resolved;
    resolved.file = fs::absolute(job.path).lexically_normal().string();
    resolved.name = job.name;
    resolved.project = job.project;
    resolved.schema = job.schema.empty() ? "segy" : job.schema;
    resolved.vornHome = catalog.home();
    checkDirectory(job.project, job.projectPlace, "project directory", false, diagnostics);
    resolveScratch(job, resolved, diagnostics);

    resolved.modules.resize(job.modules.size());
    ModuleFinder finder(job, catalog, diagnostics);
    for (std::size_t i = 0; i < job.modules.size(); ++i) {
        finder.find(job.modules[i], resolved.modules[i]);
        checkParameters(job, i, resolved.modules[i], diagnostics);
    }
    refuseUnusedMap(job, resolved.modules, diagnostics);
    checkWiring(job, resolved.modules, diagnostics);
    findTee(job, catalog, resolved, diagnostics);
    checkFiles(job, resolved, diagnostics);
    resolved.attributes = checkAttributes(job, resolved.modules, diagnostics);
    checkReplaced(job, resolved, diagnostics);
    return resolved;
}

} // namespace host
