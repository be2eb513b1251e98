#include "report/SetJson.h"

#include "base/Escaping.h"

#include <nlohmann/json.hpp>

namespace host {

namespace {

using Json = nlohmann::ordered_json;

std::string commandLine(const std::vector<std::string>& words)
{
    std::string line;
    for (const std::string& word : words)
        line += (line.empty() ? "" : " ") + shellWord(word);
    return line;
}

Json fileJson(const SetFile& file)
{
    return {{"path", file.path},
            {"folder", file.folder},
            {"verdict", verdictName(file.verdict)},
            {"exit_code", file.exitCode >= 0 ? Json(file.exitCode) : Json(nullptr)},
            {"message", file.message},
            {"errors", file.errors},
            {"warnings", file.warnings},
            {"traces", file.traces},
            {"flagged", file.isChecked ? Json(file.flagged) : Json(nullptr)},
            {"flags", file.flags},
            {"pictures", file.pictures},
            {"report", file.report},
            {"json", file.json},
            {"log", file.log},
            {"outputs", file.outputs},
            {"words", file.words},
            {"command", commandLine(file.words)},
            {"measured",
             {{"kept", file.kept},
              {"reason", file.reason},
              {"started", file.started},
              {"seconds", file.seconds},
              {"peak_bytes", file.peakBytes}}}};
}

FileVerdict verdictOf(const std::string& name)
{
    for (const FileVerdict verdict : {FileVerdict::passed, FileVerdict::failed}) {
        if (name == verdictName(verdict))
            return verdict;
    }
    return FileVerdict::notRun;
}

std::string dumped(const Json& json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace

std::string setJson(const SetResult& result)
{
    Json files = Json::array();
    for (const SetFile& file : result.files)
        files.push_back(fileJson(file));
    return dumped(
        {{"format", setFormat},
         {"format_version", 1},
         {"job", {{"name", result.jobName}, {"file", result.jobFile}}},
         {"parameter", result.parameter},
         {"patterns", result.patterns},
         {"directory", result.directory},
         {"result",
          {{"passed", result.countOf(FileVerdict::passed)},
           {"failed", result.countOf(FileVerdict::failed)},
           {"not_run", result.countOf(FileVerdict::notRun)},
           {"interrupted", result.interrupted},
           {"running", result.running},
           {"warnings", result.warnings()},
           {"traces", result.traces()},
           {"flagged", result.isChecked() ? Json(result.flagged()) : Json(nullptr)},
           {"flags", result.flags()}}},
         {"notes", result.notes},
         {"files", files},
         {"environment", {{"vorn", result.vornVersion}, {"machine", result.host}}},
         {"measured",
          {{"started", result.started}, {"seconds", result.seconds}, {"jobs", result.atATime}}}});
}

std::string setFileJson(const SetFile& file)
{
    return dumped(fileJson(file));
}

std::optional<SetFile> readSetFileJson(const std::string& text)
{
    try {
        const Json json = Json::parse(text);
        SetFile file;
        json.at("path").get_to(file.path);
        json.at("folder").get_to(file.folder);
        file.verdict = verdictOf(json.at("verdict").get<std::string>());
        file.exitCode = json.at("exit_code").is_null() ? -1 : json.at("exit_code").get<int>();
        json.at("message").get_to(file.message);
        json.at("errors").get_to(file.errors);
        json.at("warnings").get_to(file.warnings);
        json.at("traces").get_to(file.traces);
        file.isChecked = !json.at("flagged").is_null();
        file.flagged = file.isChecked ? json.at("flagged").get<int64_t>() : 0;
        json.at("flags").get_to(file.flags);
        json.at("pictures").get_to(file.pictures);
        json.at("report").get_to(file.report);
        json.at("json").get_to(file.json);
        json.at("log").get_to(file.log);
        json.at("outputs").get_to(file.outputs);
        json.at("words").get_to(file.words);
        const Json& measured = json.at("measured");
        measured.at("started").get_to(file.started);
        measured.at("seconds").get_to(file.seconds);
        measured.at("peak_bytes").get_to(file.peakBytes);
        return file;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

} // namespace host
