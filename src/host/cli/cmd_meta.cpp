// vorn meta FILE: the stored metadata of a data file.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Text.h"
#include "cli/CommandTable.h"
#include "metadataprovider.h"

#include <cstdio>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

namespace host {

namespace {

using Entries = std::map<std::string, std::string>;

void collect(void* entries, const std::string& key, const std::string& value)
{
    static_cast<Entries*>(entries)->emplace(key, value);
}

// JSON holds UTF-8; other bytes are escaped as on a terminal.
std::string jsonText(const std::string& text)
{
    return utf8Prefix(text) == text.size() ? text : escapedLines(text);
}

void printJson(const Entries& entries)
{
    nlohmann::json object = nlohmann::json::object();
    for (const auto& [key, value] : entries)
        object[jsonText(key)] = jsonText(value);
    std::printf("%s\n", object.dump(2).c_str());
}

void printText(const Entries& entries)
{
    for (const auto& [key, value] : entries) {
        const std::vector<std::string> lines = splitLines(value);
        if (lines.size() <= 1) {
            std::printf("%s: %s\n", escaped(key).c_str(), escaped(value).c_str());
            continue;
        }
        std::printf("%s:\n", escaped(key).c_str());
        for (const std::string& line : lines)
            std::printf("    %s\n", escaped(line).c_str());
    }
}

int runMeta(const Arguments& arguments)
{
    // The store compares paths as texts, so a relative path would not be found.
    const std::string file = std::filesystem::absolute(arguments.text("FILE")).lexically_normal();
    VORN::MetadataProvider* store = VORN::MetadataProvider::getInstance();
    const std::string project = arguments.text("--project");
    if (!project.empty())
        store->setRefDir(std::filesystem::absolute(project).lexically_normal());
    const bool outside = !project.empty() && !file.starts_with(store->getRefDir());

    Entries entries;
    if (!store->loadMetadata(file, collect, &entries)) {
        const std::string path = store->getRefPath(file, nullptr);
        throw CommandError(
            file + ": no metadata are stored for this file (looked for " + path +
            (outside ? ", since the file is not in the project directory " + store->getRefDir()
                     : "") +
            "); if the project directory is another, give it with --project");
    }
    if (arguments.has("--json"))
        printJson(entries);
    else
        printText(entries);
    return exitDone;
}

} // namespace

Command metaCommand()
{
    return {
        "meta",
        runMeta,
        "Show the stored metadata of a data file",
        "Metadata are stored by modules and programs that ask for it. The modules of vorn do not; "
        "what they note is in the report and the JSON file of a run. The files are in the "
        "directory "
        ".metadata of the project: the directory given with --project, for files in it, or else "
        "the nearest one above the file that holds project.vpj.",
        {{"FILE", "the data file; it need not exist any more", ValueKind::file}},
        {{"-p,--project", "DIR", "the project directory", ValueKind::directory},
         {"--json", "", "print a JSON object"}},
        {{"vorn meta line.sgy --project .",
          "what has been stored for line.sgy in the project here"}}};
}

} // namespace host
