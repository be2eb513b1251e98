#include "each/RunRecord.h"

#include "JobManager.h"
#include "base/Escaping.h"
#include "base/FileOutput.h"
#include "base/Sha256.h"
#include "each/FileSet.h"
#include "file/FileIdentity.h"
#include "report/SetJson.h"
#include "run/RunFiles.h"

#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <sys/stat.h>

#ifndef VORN_VERSION
#define VORN_VERSION "unknown"
#endif

namespace host {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr char recordFormat[] = "vorn-file";
constexpr int recordVersion = 1;

// The library, or the program, that has the code at `address`.
std::string fileOfCode(const void* address)
{
    Dl_info info = {};
    return dladdr(address, &info) != 0 && info.dli_fname != nullptr ? info.dli_fname : "";
}

std::string programFingerprint()
{
    std::error_code error;
    std::string text = VORN_VERSION;
    const auto* ofKernel = reinterpret_cast<const void*>(&JobManager::getInstance);
    const auto* ofSegy = reinterpret_cast<const void*>(&VORN::canonicalPath);
    for (const std::string& path : {fs::read_symlink("/proc/self/exe", error).string(),
                                    fileOfCode(ofKernel), fileOfCode(ofSegy)})
        text += "\n" + sha256OfFile(path);
    return sha256Of(text);
}

std::string modulesFingerprint(const ResolvedJob& job)
{
    std::set<std::string> paths;
    const fs::path libraries = fs::path(job.vornHome) / "lib";
    for (const ResolvedModule& module : job.modules) {
        paths.insert(VORN::canonicalPath((libraries / module.library).string()));
        if (module.manifest != nullptr)
            paths.insert(module.manifest->path);
    }
    if (!job.teeLibrary.empty())
        paths.insert(VORN::canonicalPath((libraries / job.teeLibrary).string()));
    // By their names, not their places: a module tree that has been moved is the same.
    std::set<std::string> lines;
    for (const std::string& path : paths)
        lines.insert(fs::path(path).filename().string() + " " + sha256OfFile(path));
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return sha256Of(text);
}

Json stateJson(const FileState& state)
{
    return {{"path", state.path},
            {"exists", state.exists},
            {"bytes", state.bytes},
            {"modified", state.modified},
            {"sha256", state.sha256}};
}

FileState stateFrom(const Json& json)
{
    FileState state;
    json.at("path").get_to(state.path);
    json.at("exists").get_to(state.exists);
    json.at("bytes").get_to(state.bytes);
    json.at("modified").get_to(state.modified);
    json.at("sha256").get_to(state.sha256);
    return state;
}

Json statesJson(const std::vector<FileState>& states)
{
    Json list = Json::array();
    for (const FileState& state : states)
        list.push_back(stateJson(state));
    return list;
}

std::vector<FileState> statesFrom(const Json& json)
{
    std::vector<FileState> states;
    states.reserve(json.size());
    for (const Json& one : json)
        states.push_back(stateFrom(one));
    return states;
}

bool isSameTime(const FileState& former, const FileState& now)
{
    return former.exists == now.exists && former.bytes == now.bytes &&
           former.modified == now.modified;
}

// Copied or touched, a file has another time and the same content.
bool isSameContent(const FileState& former, const FileState& now)
{
    if (isSameTime(former, now))
        return true;
    return former.exists && now.exists && former.bytes == now.bytes && !former.sha256.empty() &&
           sha256OfFile(now.path) == former.sha256;
}

std::string changedInput(const RunRecord& former, const RunRecord& now)
{
    if (former.inputs.size() != now.inputs.size())
        return "the inputs of the job have changed";
    for (std::size_t i = 0; i < now.inputs.size(); ++i) {
        if (!isSameContent(former.inputs[i], now.inputs[i]))
            return i == 0 ? "the file has changed"
                          : "the input " + quote(now.inputs[i].path) + " has changed";
    }
    return "";
}

} // namespace

Fingerprints fingerprintsOf(const ResolvedJob& job, const std::string& module,
                            const std::string& parameter,
                            const std::map<std::string, std::string>& outputs,
                            const std::string& options)
{
    ResolvedJob plain = job;
    plain.scratchDirectory.clear();
    plain.scratchTraces = 0;
    for (ResolvedModule& one : plain.modules) {
        for (ResolvedParameter& value : one.parameters) {
            const auto output = outputs.find(one.name + "." + value.name);
            const bool isFile = one.name == module && value.name == parameter;
            if (!isFile && output == outputs.end())
                continue;
            value.value.items.reset();
            value.value.text = isFile ? "" : output->second;
        }
    }
    return {{"the job", sha256Of(resolvedYaml(plain))},
            {"a module", modulesFingerprint(job)},
            {"vorn", programFingerprint()},
            {"an option", sha256Of(options)}};
}

FileState stateOf(const std::string& path)
{
    FileState state;
    state.path = path;
    struct stat status = {};
    state.exists = stat(path.c_str(), &status) == 0;
    if (!state.exists)
        return state;
    constexpr int64_t nanoseconds = 1000000000;
    state.bytes = status.st_size;
    state.modified = int64_t{status.st_mtim.tv_sec} * nanoseconds + status.st_mtim.tv_nsec;
    return state;
}

void writeRecord(const std::string& folder, const RunRecord& record)
{
    const Json json = {{"format", recordFormat},
                       {"format_version", recordVersion},
                       {"key", record.key},
                       {"complete", record.isComplete},
                       {"fingerprints", record.fingerprints},
                       {"inputs", statesJson(record.inputs)},
                       {"results", statesJson(record.results)},
                       {"file", Json::parse(setFileJson(record.file))}};
    const std::string path = (fs::path(folder) / recordName).string();
    writeWholeFile({"--each", path, "the record of the run", Content::json},
                   json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n");
}

std::optional<RunRecord> readRecord(const std::string& folder)
{
    std::ifstream file(fs::path(folder) / recordName, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    try {
        const Json json = Json::parse(text.str());
        if (json.at("format") != recordFormat || json.at("format_version") != recordVersion)
            return std::nullopt;
        RunRecord record;
        json.at("key").get_to(record.key);
        json.at("complete").get_to(record.isComplete);
        json.at("fingerprints").get_to(record.fingerprints);
        record.inputs = statesFrom(json.at("inputs"));
        record.results = statesFrom(json.at("results"));
        const std::optional<SetFile> read = readSetFileJson(json.at("file").dump());
        if (!read)
            return std::nullopt;
        record.file = *read;
        return record;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

std::string reasonToRun(const std::optional<RunRecord>& former, const RunRecord& now)
{
    if (!former || former->key != now.key)
        return "there is no earlier result";
    if (!former->isComplete || former->file.verdict == FileVerdict::notRun)
        return "the last run did not come to its end";
    if (former->file.verdict == FileVerdict::failed)
        return "the last run failed";
    for (const auto& [what, sum] : now.fingerprints) {
        const auto before = former->fingerprints.find(what);
        if (before == former->fingerprints.end() || before->second != sum)
            return what + " has changed";
    }
    std::string input = changedInput(*former, now);
    if (!input.empty())
        return input;
    for (const FileState& result : former->results) {
        const FileState today = stateOf(result.path);
        if (!today.exists)
            return "the result " + quote(result.path) + " is missing";
        if (!isSameTime(result, today))
            return "the result " + quote(result.path) + " has changed";
    }
    return "";
}

} // namespace host
