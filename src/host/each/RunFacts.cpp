#include "each/RunFacts.h"

#include "base/DirectoryNames.h"
#include "base/Text.h"
#include "job/RunResult.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>

namespace host {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr int signalBase = 128;

bool isWholeNumber(const std::string& text)
{
    constexpr std::size_t mostDigits = 18;
    return !text.empty() && text.size() <= mostDigits &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

// A module that has looked for bad traces notes their number, and the number for each flag.
void readFlags(const Json& modules, SetFile& file)
{
    const std::string prefix = "qc.";
    for (const Json& module : modules) {
        const Json& metadata = module.at("metadata");
        if (!metadata.contains(prefix + "flagged"))
            continue;
        for (const auto& [key, value] : metadata.items()) {
            const std::string text = value.get<std::string>();
            if (!key.starts_with(prefix) || !isWholeNumber(text))
                continue;
            const std::string flag = key.substr(prefix.size());
            const int64_t count = std::stoll(text);
            if (flag == "flagged")
                file.flagged = count;
            else if (flag != "traces" && flag.find('.') == std::string::npos && count > 0)
                file.flags[flag] = count;
        }
        file.isChecked = true;
        return;
    }
}

void readMessages(const Json& json, SetFile& file)
{
    const Json& counts = json.at("result").at("messages");
    file.warnings =
        counts.at("warning").get<int>() + static_cast<int>(json.at("job").at("warnings").size());
    file.errors = counts.at("error").get<int>() + counts.at("fatal").get<int>();
    for (const Json& message : json.at("messages")) {
        if (message.at("severity").get<int>() < errorSeverity)
            continue;
        const std::string module = message.at("module").get<std::string>();
        file.message =
            (module == "vorn" ? "" : module + ": ") + message.at("text").get<std::string>();
        return;
    }
}

void readFiles(const Json& json, SetFile& file, std::string& inputSha256)
{
    for (const Json& output : json.at("outputs")) {
        if (output.at("written").get<bool>())
            file.outputs.push_back(output.at("path").get<std::string>());
    }
    for (const Json& input : json.at("inputs")) {
        if (input.at("path").get<std::string>() == file.path)
            inputSha256 = input.at("sha256").get<std::string>();
    }
}

// The first error that the command has printed, without its "vorn: "; the last lines may be a
// summary of it.
std::string errorInLog(const std::string& path)
{
    constexpr std::size_t mostBytes = 4 << 20;
    std::ifstream log(path, std::ios::binary);
    std::string line;
    std::size_t bytes = 0;
    while (bytes < mostBytes && std::getline(log, line)) {
        bytes += line.size() + 1;
        if (line.starts_with("vorn: ") && line.find(": warning: ") == std::string::npos)
            return line.substr(std::strlen("vorn: "));
    }
    return "";
}

std::string endText(int exitCode)
{
    if (exitCode > signalBase)
        return fmt::format("the process was ended by signal {} ({})", exitCode - signalBase,
                           strsignal(exitCode - signalBase));
    return fmt::format("the process ended with exit code {}", exitCode);
}

void readPictures(const std::string& directory, SetFile& file)
{
    const fs::path folder = fs::path(file.folder) / picturesName;
    std::vector<std::string> names = namesIn((fs::path(directory) / folder).string());
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        return strverscmp(a.c_str(), b.c_str()) < 0;
    });
    for (const std::string& name : names)
        file.pictures.push_back((folder / name).string());
}

std::string existing(const std::string& directory, const fs::path& name)
{
    std::error_code error;
    return fs::exists(fs::path(directory) / name, error) ? name.string() : "";
}

} // namespace

void readRunFacts(const std::string& directory, SetFile& file, std::string& inputSha256)
{
    const fs::path folder = file.folder;
    file.report = existing(directory, folder / reportName);
    file.json = existing(directory, folder / jsonName);
    file.log = existing(directory, folder / logName);
    readPictures(directory, file);
    if (!file.json.empty()) {
        std::ifstream text(fs::path(directory) / file.json, std::ios::binary);
        try {
            const Json json = Json::parse(text);
            file.traces = json.at("result").at("traces").get<int64_t>();
            readMessages(json, file);
            readFlags(json.at("modules"), file);
            readFiles(json, file, inputSha256);
        } catch (const Json::exception&) {
            file.json.clear(); // nothing that this command has written
        }
    }
    if (file.exitCode == 0) {
        file.message.clear();
        return;
    }
    if (file.message.empty())
        file.message = errorInLog((fs::path(directory) / folder / logName).string());
    if (file.message.empty())
        file.message = endText(file.exitCode);
}

} // namespace host
