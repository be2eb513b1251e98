#include "cli/RunReport.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Text.h"
#include "file/FileIdentity.h"
#include "report/HtmlReport.h"
#include "report/JsonResult.h"

#include <filesystem>
#include <unistd.h>

namespace host {

namespace {

namespace fs = std::filesystem;

bool isPageName(const fs::path& path)
{
    const std::string ending = lowerCase(path.extension().string());
    return ending == ".html" || ending == ".htm";
}

// A name that ends with .html is that of the page; any other is a directory, in which the page is
// named after the job.
std::string pagePath(const std::string& given, const ResolvedJob& job)
{
    if (given.empty())
        throw CommandError("--report: a directory or a name that ends with .html is expected");
    if (isPageName(given) && !fs::is_directory(given))
        return given;
    if (fs::exists(given) && !fs::is_directory(given))
        throw CommandError("--report: the file " + quote(given) +
                           " is not a directory, and the name of a report must end with .html");
    makeDirectory(given, "--report");
    return (fs::path(given) / (fs::path(job.file).stem().string() + "-report.html")).string();
}

void refuseUnwritable(const std::string& option, const std::string& path)
{
    std::error_code error;
    if (VORN::isWrittenThrough(path))
        return;
    fs::path directory = fs::path(path).parent_path();
    if (directory.empty())
        directory = ".";
    if (!fs::is_directory(directory, error))
        throw CommandError(option + ": there is no directory " + quote(directory.string()));
    if (access(directory.c_str(), W_OK | X_OK) != 0)
        throw CommandError(option + ": the directory " + quote(directory.string()) +
                           " cannot be written to");
}

} // namespace

std::vector<OptionSpec> reportOptions()
{
    return {
        {"--report", "DIR|FILE.html",
         "write a report with pictures, statistics and messages as one HTML page, in a directory "
         "as "
         "JOB-report.html",
         ValueKind::file},
        {"--json", "FILE", "write the same facts as JSON", ValueKind::file},
    };
}

RunReport::RunReport(const Arguments& arguments, const ResolvedJob& job)
{
    if (arguments.has("--log")) {
        log = {"--log", arguments.text("--log"), "the log", Content::text};
        if (log.path.empty())
            throw CommandError("--log: the name of a file is expected");
        claimOutput(log);
    }
    if (arguments.has("--report"))
        page = {"--report", pagePath(arguments.text("--report"), job), "the report", Content::page};
    if (arguments.has("--json")) {
        json = {"--json", arguments.text("--json"), "the JSON file", Content::json};
        if (json.path.empty())
            throw CommandError("--json: the name of a file is expected");
    }
    for (const Output& output : {page, json}) {
        if (output.path.empty())
            continue;
        claimOutput(output);
        refuseUnwritable(output.option, output.path);
    }
}

bool RunReport::usesStandardOutput() const
{
    return isStandardOutput(page.path) || isStandardOutput(json.path);
}

std::vector<std::string> RunReport::write(const RunResult& result,
                                          const std::vector<Pad>& pads) const
{
    std::vector<std::string> paths;
    if (!json.path.empty()) {
        writeWholeFile(json, jsonResult(result, pads));
        paths.push_back(json.path);
    }
    if (!page.path.empty()) {
        writeWholeFile(page, htmlReport(result, pads));
        paths.push_back(page.path);
    }
    return paths;
}

void makeDirectory(const std::string& directory, const std::string& option)
{
    std::error_code error;
    fs::create_directories(directory, error);
    if (!fs::is_directory(directory))
        throw CommandError(option + ": the directory " + quote(directory) +
                           " cannot be made: " + error.message());
    if (access(directory.c_str(), W_OK | X_OK) != 0)
        throw CommandError(option + ": the directory " + quote(directory) +
                           " cannot be written to");
}

} // namespace host
