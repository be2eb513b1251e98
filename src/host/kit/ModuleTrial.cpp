#include "kit/ModuleTrial.h"

#include "base/CommandError.h"
#include "base/Diagnostics.h"
#include "base/Escaping.h"
#include "base/Programs.h"
#include "base/Sanitizers.h"
#include "base/Text.h"
#include "each/ChildProcesses.h"
#include "file/TraceFileError.h"
#include "job/Manifest.h"
#include "job/ModuleCatalog.h"
#include "job/RunResult.h"
#include "kit/TraceComparison.h"
#include "run/Interrupt.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

namespace host {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr char synthetic[] = "synthetic";
constexpr char tested[] = "tested"; // the module's name in the job

// A directory that goes with everything in it.
class TrialDirectory
{
public:
    TrialDirectory()
    {
        std::string pattern = (fs::temp_directory_path() / "vorn-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw CommandError("no directory can be made in " +
                               quote(fs::temp_directory_path().string()) +
                               "; set TMPDIR to a directory that can be written");
        directory = pattern;
    }
    TrialDirectory(const TrialDirectory&) = delete;
    TrialDirectory& operator=(const TrialDirectory&) = delete;
    ~TrialDirectory() { remove(); }
    void remove() const
    {
        std::error_code ignored;
        fs::remove_all(directory, ignored);
    }
    std::string path(const std::string& name) const { return (directory / name).string(); }

private:
    fs::path directory;
};

std::string contentsOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

ManifestPointer manifestOf(const TrialSettings& settings, std::vector<std::string>& notes)
{
    const ModuleCatalog catalog(findVornHome(), settings.directories);
    const CatalogModule* module = catalog.find(settings.module);
    if (module == nullptr || module->library.empty())
        throw CommandError("the module " + quote(settings.module) + " is not in " +
                           quote(catalog.libraryDirectory()) +
                           " nor in a directory of --allow-modules-from");
    notes.push_back("library      " + escaped(module->library));
    if (const std::string text = ambiguity(*module); !text.empty())
        notes.push_back("warning      " + text);
    if (module->manifest.empty())
        throw CommandError("the module " + quote(settings.module) + " has no manifest " +
                           quote(settings.module + ".yaml") + " beside its library");
    Diagnostics diagnostics;
    ManifestPointer manifest = readManifest(module->manifest, module->name, diagnostics);
    if (diagnostics.hasErrors())
        throw CommandError(diagnostics.sorted().front().line());
    return manifest;
}

// Few traces, which differ, with gathers: 3 shots of 12 channels.
constexpr char syntheticReader[] =
    "module: synthetic, shots: 3, channels: 12, samples: 250, interval: 4 ms";

std::string readerOf(const std::string& input)
{
    if (input == synthetic)
        return syntheticReader;
    const std::string ending = lowerCase(fs::path(input).extension().string());
    if (ending != ".su" && ending != ".sgy" && ending != ".segy")
        throw CommandError("--in: " + quote(input) +
                           " must end with .su, .sgy or .segy, or be \"synthetic\"");
    if (!fs::exists(input))
        throw CommandError("--in: the file " + quote(input) + " does not exist");
    return fmt::format("module: {}, file: {}", ending == ".su" ? "su_in" : "segy_in",
                       Json(fs::absolute(input).string()).dump());
}

std::string jobText(const TrialSettings& settings, const Manifest& manifest,
                    const std::vector<std::string>& inputs, const std::string& output)
{
    std::string text = "job: test of " + settings.module + "\nmodules:\n";
    std::vector<std::string> names;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        names.push_back(fmt::format("input{}", i + 1));
        text += fmt::format("  - {{name: {}, {}}}\n", names.back(), readerOf(inputs[i]));
    }
    text += fmt::format("  - {{name: {}, module: {}", tested, Json(settings.module).dump());
    if (!names.empty())
        text += ", inputs: [" + joined(names, ", ") + "]";
    text += "}\n";
    if (manifest.outputs.max != 0)
        text += fmt::format("  - {{name: output, module: su_out, input: {}.1, file: {}}}\n", tested,
                            Json(output).dump());
    return text;
}

std::vector<std::string> inputsFor(const TrialSettings& settings, const Manifest& manifest)
{
    std::vector<std::string> inputs = settings.inputs;
    const auto fewest = static_cast<std::size_t>(manifest.inputs.min);
    if (manifest.inputs.max != PortSpec::any &&
        inputs.size() > static_cast<std::size_t>(manifest.inputs.max))
        throw CommandError(fmt::format("--in names {} inputs; the module {} has {}", inputs.size(),
                                       quote(settings.module), manifest.inputs.countText()));
    if (inputs.empty() && manifest.inputs.max != 0)
        inputs.push_back(synthetic);
    while (inputs.size() < fewest)
        inputs.push_back(inputs.back());
    return inputs;
}

// Runs the job, checked, and returns the exit code of the process.
int runTrial(const TrialSettings& settings, const TrialDirectory& directory)
{
    ChildProcesses processes;
    // The run removes what it has begun; then nobody needs the directory.
    const InterruptWatch interrupts([&](int signal) {
        processes.stop(signal);
        directory.remove();
    });
    std::vector<std::string> words = {"vorn",
                                      "run",
                                      directory.path("job.yaml"),
                                      "--check-modules",
                                      "--json",
                                      directory.path("run.json"),
                                      "--time-limit",
                                      settings.timeLimit,
                                      "--sanitizer-libs"};
    for (const std::string& parameter : settings.parameters) {
        words.emplace_back("--set");
        words.push_back(std::string(tested) + "." + parameter);
    }
    for (const std::string& place : settings.directories) {
        words.emplace_back("--allow-modules-from");
        words.push_back(place);
    }
    processes.start(ownProgram(), words, directory.path("log.txt"));
    const std::optional<ProcessOutcome> outcome = processes.waitForOne();
    return outcome ? outcome->exitCode : exitInterrupted;
}

void checkMessages(const TrialSettings& settings, const Json& run, TrialResult& result)
{
    std::vector<std::string> texts;
    for (const Json& message : run.at("messages")) {
        texts.push_back(message.at("text").get<std::string>());
        if (message.at("module") == tested || message.at("severity").get<int>() >= warningSeverity)
            result.lines.push_back(fmt::format("{:<12} {}",
                                               message.at("severity_name").get<std::string>(),
                                               escaped(texts.back())));
    }
    for (const std::string& wanted : settings.messages) {
        if (std::none_of(texts.begin(), texts.end(), [&](const std::string& text) {
                return text.find(wanted) != std::string::npos;
            }))
            result.findings.push_back("no message contains " + quote(wanted));
    }
}

void checkLeaks(const Json& run, TrialResult& result)
{
    for (const Json& module : run.at("modules")) {
        if (module.at("name") != tested)
            continue;
        result.lines.push_back(fmt::format("traces       {} in, {} out",
                                           module.at("traces_in").get<int64_t>(),
                                           module.at("traces_out").get<int64_t>()));
        const auto left = module.at("measured").at("bytes_left").get<int64_t>();
        if (left != 0)
            result.findings.push_back(fmt::format(
                "{} bytes of memory are not freed at the end: call knl_freeResource for "
                "what knl_allocateResource gave, and knl_removeWorkTraces in "
                "postprocess_",
                left));
    }
}

// Mistakes of modules that the checked run has told.
void addFindings(const Json& run, TrialResult& result)
{
    for (const Json& finding : run.at("findings")) {
        const auto module = finding.at("module").get<std::string>();
        const auto place = finding.at("place").get<std::string>();
        const auto function = finding.at("function").get<std::string>();
        std::string text = module == tested ? "" : "module " + quote(module) + " ";
        text += finding.at("text").get<std::string>();
        const std::string separator = place.empty() || function.empty() ? "" : ", ";
        result.findings.push_back(fmt::format("{} ({}{}{})", text, function, separator, place));
    }
}

bool inputsAreFinite(const std::vector<std::string>& inputs)
{
    return std::all_of(inputs.begin(), inputs.end(), [](const std::string& input) {
        return lowerCase(fs::path(input).extension().string()) != ".su" || notFinite(input).empty();
    });
}

void compareOutput(const TrialSettings& settings, const std::string& output, TrialResult& result)
{
    if (settings.bless) {
        std::error_code error;
        fs::copy_file(output, settings.expected, fs::copy_options::overwrite_existing, error);
        if (error)
            throw CommandError("--expect: " + quote(settings.expected) +
                               " cannot be written: " + error.message());
        result.lines.push_back("expected     written to " + escaped(settings.expected));
        return;
    }
    if (!fs::exists(settings.expected))
        throw CommandError("--expect: the file " + quote(settings.expected) +
                           " does not exist; --bless writes what the module gives now");
    const TraceDifferences differences =
        compareTraces(settings.expected, output, settings.tolerance);
    result.findings.insert(result.findings.end(), differences.findings.begin(),
                           differences.findings.end());
    result.lines.push_back(
        fmt::format("expected     {} traces compared, largest difference {:.3g} of the largest "
                    "sample",
                    differences.traces, differences.largest));
}

} // namespace

TrialResult tryModule(const TrialSettings& settings)
{
    TrialResult result;
    const ManifestPointer manifest = manifestOf(settings, result.lines);
    if (manifest->outputs.max == 0 && !settings.expected.empty())
        throw CommandError("--expect: the module " + quote(settings.module) + " has no output");
    const std::vector<std::string> inputs = inputsFor(settings, *manifest);
    for (const std::string& input : inputs)
        result.lines.push_back("input        " + escaped(input));
    const TrialDirectory directory;
    const std::string output = directory.path("output.su");
    std::ofstream(directory.path("job.yaml")) << jobText(settings, *manifest, inputs, output);

    int exitCode = runTrial(settings, directory);
    result.log = contentsOf(directory.path("log.txt"));
    const Json run = Json::parse(contentsOf(directory.path("run.json")), nullptr, false);
    result.hasNoFacts = run.is_discarded();
    // What the check has found is no failure of the job.
    if (!result.hasNoFacts && exitCode == exitJobErrors && !run.at("result").at("failed"))
        exitCode = exitDone;
    if (hasSanitizerReport(result.log))
        result.findings.push_back(firstSanitizerReport(result.log));
    if (settings.fails && exitCode != exitJobErrors)
        result.findings.push_back(fmt::format(
            "the module was expected to fail, but the job ended with exit code {}", exitCode));
    if (!settings.fails && exitCode != exitDone)
        result.findings.push_back(fmt::format("the job ended with exit code {}", exitCode));
    if (!result.hasNoFacts) {
        checkMessages(settings, run, result);
        addFindings(run, result);
        checkLeaks(run, result);
    }
    if (exitCode != exitDone || manifest->outputs.max == 0)
        return result;
    try {
        if (const std::string place = notFinite(output); !place.empty() && inputsAreFinite(inputs))
            result.findings.push_back(place + ", and the input holds numbers only");
        if (!settings.expected.empty())
            compareOutput(settings, output, result);
    } catch (const VORN::TraceFileError& error) {
        result.findings.emplace_back(error.what());
    }
    return result;
}

} // namespace host
