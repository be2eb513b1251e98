// The parameters of each module, checked against its manifest, and the files among them.
#include "base/Escaping.h"
#include "base/Numbers.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "file/FileIdentity.h"
#include "file/InputNames.h"
#include "job/JobCheck.h"
#include "job/JobFileRoles.h"
#include "segy/TraceSelection.h"
#include "segy/WordMap.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <stdexcept>
#include <unistd.h>

namespace host {

namespace {

namespace fs = std::filesystem;

std::string subjectOf(const std::string& parameter, const std::string& module)
{
    return fmt::format("parameter {} of module {}", quote(parameter), quote(module));
}

const JobParameter* findGiven(const JobModule& module, const std::string& name)
{
    for (const JobParameter& parameter : module.parameters) {
        if (parameter.name == name)
            return &parameter;
    }
    return nullptr;
}

// Whether a number is written without a unit. Zero is the same in all.
bool hasBareNumber(const YamlNode& value)
{
    if (value.isScalar()) {
        const auto number = parseNumber(trimmed(value.text));
        return number && *number != 0;
    }
    return std::any_of(value.items.begin(), value.items.end(),
                       [](const YamlValue& item) { return hasBareNumber(*item); });
}

// `given` is what the job gives; null for a default.
void addParameter(const ParameterSpec& spec, std::optional<ParameterValue> value,
                  const JobParameter* given, ResolvedModule& module)
{
    if (!value)
        return;
    ResolvedParameter parameter;
    parameter.name = spec.name;
    parameter.value = std::move(*value);
    parameter.type = parameterTypeName(spec.type);
    parameter.unit = spec.unit;
    parameter.given = given != nullptr;
    parameter.isInputFile =
        spec.type == ParameterType::file || spec.type == ParameterType::fileList;
    parameter.isOutputFile = spec.type == ParameterType::outfile;
    if (given != nullptr) {
        parameter.place = given->value->place;
        parameter.isUnitAssumed = !spec.unit.empty() && hasBareNumber(*given->value);
    }
    module.parameters.push_back(std::move(parameter));
}

void checkGiven(const JobParameter& given, const ParameterSpec& spec, ResolvedModule& module,
                Diagnostics& diagnostics)
{
    const std::string subject = subjectOf(spec.name, module.name);
    if (given.value->isNull())
        diagnostics.error(
            given.place, fmt::format("{} has no value; expected {}", subject, expectedValue(spec)));
    else
        addParameter(spec, convertParameter(spec, given.value, given.folder, subject, diagnostics),
                     &given, module);
}

// What the job gives the parameter: in its entry, or for all readers in `words` of the job.
const JobParameter* findGiven(const JobModule& module, const JobFile& job, const Manifest& manifest,
                              const ParameterSpec& spec)
{
    const JobParameter* given = findGiven(module, spec.name);
    const bool isOfReader = spec.type == ParameterType::wordMap && manifest.inputs.max == 0;
    return given == nullptr && isOfReader && job.words ? &*job.words : given;
}

void checkAgainstManifest(const JobModule& job, const JobFile& file, ResolvedModule& module,
                          Diagnostics& diagnostics)
{
    const Manifest& manifest = *module.manifest;
    const std::string& folder = file.folder;
    for (const JobParameter& given : job.parameters) {
        if (manifest.find(given.name) == nullptr)
            diagnostics.error(
                given.place,
                fmt::format("module {} has no parameter {}{}", quote(module.name),
                            quote(given.name),
                            suggestion(given.name, manifest.parameterNames(), "it has")));
    }
    for (const ParameterSpec& spec : manifest.parameters) {
        if (const JobParameter* given = findGiven(job, file, manifest, spec))
            checkGiven(*given, spec, module, diagnostics);
        else if (spec.required)
            diagnostics.error(job.place, fmt::format("module {} needs the parameter {}, {} ({})",
                                                     quote(module.name), quote(spec.name),
                                                     expectedValue(spec), escaped(spec.help)));
        else if (spec.defaultValue != nullptr)
            addParameter(spec,
                         convertParameter(spec, spec.defaultValue, folder,
                                          subjectOf(spec.name, module.name), diagnostics),
                         nullptr, module);
    }
}

void passUnchecked(const JobModule& job, ResolvedModule& module, Diagnostics& diagnostics)
{
    for (const JobParameter& given : job.parameters) {
        const auto value =
            guessParameter(given.value, subjectOf(given.name, module.name), diagnostics);
        if (value)
            module.parameters.push_back(
                {given.name, *value, "", "", true, false, false, given.value->place, false});
    }
}

// Modules hand the kernel a buffer for a text without its length; those of this project have 4096
// bytes.
constexpr std::size_t longestText = 4000;

void refuseLongTexts(const JobModule& job, const ResolvedModule& module, Diagnostics& diagnostics)
{
    for (const ResolvedParameter& parameter : module.parameters) {
        const JobParameter* given = findGiven(job, parameter.name);
        const std::size_t bytes = parameter.value.value.getType() == strType
                                      ? parameter.value.value.getStrValue().size()
                                      : 0;
        if (given != nullptr && bytes > longestText)
            diagnostics.error(given->value->place,
                              fmt::format("{} is a text of {} bytes; expected at most {}",
                                          subjectOf(parameter.name, module.name), bytes,
                                          longestText));
    }
}

// ---- Header words ----

// Calls `check`, which throws for what is wrong with the text of a parameter.
template <typename Check>
void reportRefusal(const std::string& parameter, const Place& place, const ResolvedModule& module,
                   Diagnostics& diagnostics, Check check)
{
    try {
        check();
    } catch (const std::invalid_argument& error) {
        diagnostics.error(
            place, fmt::format("{}: {}", subjectOf(parameter, module.name), escaped(error.what())));
    }
}

// A map of header words defines attributes of the job, whoever makes the traces. Of those of the
// module itself, errors do not matter; that of the whole job may be for other readers, too.
void keepWordMaps(const JobModule& job, const JobFile& file, ResolvedModule& module,
                  Diagnostics& diagnostics)
{
    Diagnostics ignored;
    for (const ParameterSpec& spec : module.manifest->parameters) {
        const JobParameter* given = findGiven(job, file, *module.manifest, spec);
        if (given == nullptr || given->value->isNull())
            continue;
        Diagnostics& heard = file.words && given == &*file.words ? diagnostics : ignored;
        const std::size_t before = module.parameters.size();
        checkGiven(*given, spec, module, heard);
        if (module.parameters.size() > before)
            reportRefusal(spec.name, given->value->place, module, heard,
                          [&] { VORN::WordMap(module.parameters.back().value.text); });
    }
}

// The words that a selection of a reader may name: what it writes, and what the job maps. That
// traces from other modules have a word is checked with the other names of attributes.
class WordsOfModule
{
public:
    WordsOfModule(const Manifest& manifest, const VORN::WordMap& map)
    {
        for (const AttributeSpec& attribute : manifest.writes)
            words.push_back({attribute.name.c_str(), 1, 4, false, ""});
        isReader = manifest.inputs.max == 0;
        words = map.applied(words);
        for (const VORN::HeaderWord& word : words)
            names.emplace_back(word.key);
        names.emplace_back("traces");
    }

    void check(const std::string& selection) const
    {
        VORN::TraceSelection parsed;
        for (const auto& [key, numbers] : VORN::TraceSelection::split(selection)) {
            if (!isReader) {
                parsed.add(key, numbers, {{key.c_str(), 1, 4, false, ""}});
                continue;
            }
            if (std::find(names.begin(), names.end(), key) == names.end())
                throw std::invalid_argument("there is no trace header word " + quote(key) +
                                            suggestion(key, names, ""));
            parsed.add(key, numbers, words);
        }
    }

private:
    std::vector<VORN::HeaderWord> words;
    std::vector<std::string> names;
    bool isReader;
};

// What modules refuse in maps, selections and ranges, found before the job runs.
void checkWords(const JobModule& job, const JobFile& file, const ResolvedModule& module,
                Diagnostics& diagnostics)
{
    const Manifest& manifest = *module.manifest;
    const auto forEach = [&](auto isMeant, auto check) {
        for (const ResolvedParameter& parameter : module.parameters) {
            const ParameterSpec& spec = *manifest.find(parameter.name);
            const JobParameter* given = findGiven(job, file, manifest, spec);
            if (isMeant(spec) && given != nullptr)
                reportRefusal(parameter.name, given->value->place, module, diagnostics,
                              [&] { check(parameter.value.text); });
        }
    };
    VORN::WordMap map;
    forEach([](const ParameterSpec& spec) { return spec.type == ParameterType::wordMap; },
            [&](const std::string& text) {
                map = VORN::WordMap(text);
                const std::string problem =
                    manifest.outputs.max == 0 ? map.problemOfWriting() : std::string();
                if (!problem.empty())
                    throw std::invalid_argument(problem);
            });
    forEach([](const ParameterSpec& spec) { return spec.type == ParameterType::selection; },
            [&](const std::string& text) { WordsOfModule(manifest, map).check(text); });
    forEach([](const ParameterSpec& spec) { return spec.meaning == ParameterMeaning::ranges; },
            [](const std::string& text) { VORN::NumberRanges ranges(text); });
}

// Where the job names the file; for a default, the entry of the module.
Place placeOfFile(const JobModule& job, const std::string& parameter)
{
    const JobParameter* given = findGiven(job, parameter);
    return given != nullptr ? given->value->place : job.place;
}

std::vector<std::string> entriesOf(const fs::path& directory)
{
    constexpr std::size_t most = 2000; // enough for a suggestion
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end;
         !error && entry != end && names.size() < most; entry.increment(error))
        names.push_back(entry->path().filename().string());
    return names;
}

std::string problemOfInput(const std::string& path)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status)) {
        const fs::path file(path);
        if (VORN::isFilePattern(file.filename().string()))
            return "no file matches this pattern";
        const std::string nearest =
            nearestName(file.filename().string(), entriesOf(file.parent_path()));
        return "the file does not exist" +
               (nearest.empty() ? "" : "; did you mean " + quote(nearest) + "?");
    }
    if (fs::is_directory(status))
        return "this is a directory; a file is needed";
    return access(path.c_str(), R_OK) == 0 ? "" : "you have no permission to read the file";
}

std::string problemOfOutput(const std::string& path)
{
    const fs::path directory = fs::path(path).parent_path();
    std::error_code error;
    if (fs::is_directory(path, error))
        return "this is a directory; a file is needed";
    if (VORN::isWrittenThrough(path))
        return "";
    const std::string link = VORN::foreignLinkOn(path);
    if (!link.empty())
        return "the link " + quote(link) +
               " has been put into a directory for all by somebody else and is not followed; write "
               "to another place";
    if (!fs::is_directory(directory, error))
        return "there is no directory " + quote(directory.string()) + "; make it first";
    if (VORN::isWriteProtected(path))
        return "the file is write-protected; write to another file, or give yourself permission "
               "first (chmod u+w)";
    return access(directory.c_str(), W_OK | X_OK) == 0
               ? ""
               : "the directory " + quote(directory.string()) + " cannot be written to";
}

struct UsedFile
{
    const ResolvedModule* module;
    const ResolvedParameter* parameter;
    std::string path;
};

void refuseSharedOutput(const UsedFile& output, const std::vector<UsedFile>& before,
                        const Place& place, Diagnostics& diagnostics)
{
    for (const UsedFile& other : before) {
        if (!VORN::isWrittenThrough(output.path) && VORN::isSameFile(other.path, output.path))
            diagnostics.error(
                place,
                fmt::format(
                    "{} is {}, which {} {}", subjectOf(output.parameter->name, output.module->name),
                    quote(output.path), subjectOf(other.parameter->name, other.module->name),
                    other.parameter->isInputFile ? "reads; write to another file"
                                                 : "writes too; give them two names"));
    }
}

} // namespace

void checkParameters(const JobFile& job, std::size_t i, ResolvedModule& module,
                     Diagnostics& diagnostics)
{
    const JobModule& given = job.modules[i];
    if (module.replaced != nullptr) {
        keepWordMaps(given, job, module, diagnostics);
        return;
    }
    const int before = diagnostics.errors();
    if (module.manifest != nullptr)
        checkAgainstManifest(given, job, module, diagnostics);
    else
        passUnchecked(given, module, diagnostics);
    refuseLongTexts(given, module, diagnostics);
    if (module.manifest != nullptr)
        checkWords(given, job, module, diagnostics);
    // What is wrong by itself would break rules, too.
    if (module.manifest != nullptr && diagnostics.errors() == before)
        checkRules(given, module, diagnostics);
}

void checkFiles(const JobFile& job, const ResolvedJob& resolved, Diagnostics& diagnostics)
{
    const std::vector<ResolvedModule>& modules = resolved.modules;
    std::vector<UsedFile> inputs;
    std::vector<UsedFile> outputs;
    for (const ResolvedModule& module : modules) {
        for (const ResolvedParameter& parameter : module.parameters) {
            if (parameter.isInputFile) {
                for (const std::string& path : filesOf(parameter))
                    inputs.push_back({&module, &parameter, path});
            }
            if (parameter.isOutputFile)
                outputs.push_back({&module, &parameter, parameter.value.text});
        }
    }
    const auto placeOf = [&](const UsedFile& file) {
        const auto index = static_cast<std::size_t>(file.module - modules.data());
        return placeOfFile(job.modules[index], file.parameter->name);
    };
    const auto complain = [&](const UsedFile& file, const std::string& problem) {
        if (!problem.empty())
            diagnostics.error(placeOf(file),
                              fmt::format("{} is {}; {}",
                                          subjectOf(file.parameter->name, file.module->name),
                                          quote(file.path), problem));
    };
    for (const UsedFile& file : inputs)
        complain(file, problemOfInput(file.path));
    VORN::FileRoles others; // than inputs and outputs, which have words of their own
    addJobAndModules(others, resolved);
    std::vector<UsedFile> before = inputs;
    for (const UsedFile& file : outputs) {
        const std::string& path = file.path;
        complain(file, problemOfOutput(path));
        const std::string used = others.roleOf(path);
        complain(file, used.empty() ? "" : "it would replace " + used + "; write to another file");
        refuseSharedOutput(file, before, placeOf(file), diagnostics);
        before.push_back(file);
    }
}

} // namespace host
