#include "cli/RunReport.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/FileOutput.h"
#include "base/Text.h"
#include "report/HtmlReport.h"
#include "report/JsonResult.h"
#include "run/RunFiles.h"

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

bool isSameFile(const std::string& a, const std::string& b)
{
    std::error_code error;
    if (fs::equivalent(a, b, error) && !error)
        return true;
    // Made absolute first: the relative name of a file that does not exist would stay relative.
    return fs::weakly_canonical(fs::absolute(a), error) ==
           fs::weakly_canonical(fs::absolute(b), error);
}

void refuseUnwritable(const std::string& option, const std::string& path)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::exists(status) && !fs::is_regular_file(status))
        throw CommandError(option + ": " + quote(path) + " is not a regular file");
    fs::path directory = fs::path(path).parent_path();
    if (directory.empty())
        directory = ".";
    if (!fs::is_directory(directory, error))
        throw CommandError(option + ": there is no directory " + quote(directory.string()));
    if (access(directory.c_str(), W_OK | X_OK) != 0)
        throw CommandError(option + ": the directory " + quote(directory.string()) +
                           " cannot be written to");
}

void refuseClash(const std::string& option, const std::string& path, const std::string& other,
                 const std::string& role)
{
    if (!other.empty() && isSameFile(path, other))
        throw CommandError(option + ": the file " + quote(path) + " is " + role +
                           "; write to another file");
}

void refuseFilesOfJob(const std::string& option, const std::string& path, const ResolvedJob& job)
{
    refuseClash(option, path, job.file, "the job file");
    for (const bool outputs : {false, true}) {
        for (const RunFile& file : describeFiles(job, outputs, false))
            refuseClash(option, path, file.path,
                        "one that module " + quote(file.module) + (outputs ? " writes" : " reads"));
    }
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
        if (arguments.text("--log").empty())
            throw CommandError("--log: the name of a file is expected");
        refuseFilesOfJob("--log", arguments.text("--log"), job);
        refuseToReplace("--log", arguments.text("--log"), Content::text);
    }
    if (arguments.has("--report"))
        htmlPath = pagePath(arguments.text("--report"), job);
    if (arguments.has("--json")) {
        jsonPath = arguments.text("--json");
        if (jsonPath.empty())
            throw CommandError("--json: the name of a file is expected");
    }
    for (const auto& [option, path] : {std::pair<std::string, std::string>{"--report", htmlPath},
                                       std::pair<std::string, std::string>{"--json", jsonPath}})
    {
        if (path.empty())
            continue;
        refuseUnwritable(option, path);
        refuseFilesOfJob(option, path, job);
        refuseClash(option, path, arguments.text("--log"), "the log");
    }
    if (!htmlPath.empty() && !jsonPath.empty())
        refuseClash("--json", jsonPath, htmlPath, "the report");
    refuseToReplace("--report", htmlPath, Content::page);
    refuseToReplace("--json", jsonPath, Content::json);
}

std::vector<std::string> RunReport::write(const RunResult& result,
                                          const std::vector<Pad>& pads) const
{
    std::vector<std::string> paths;
    if (!jsonPath.empty()) {
        writeWholeFile(jsonPath, jsonResult(result, pads));
        paths.push_back(jsonPath);
    }
    if (!htmlPath.empty()) {
        writeWholeFile(htmlPath, htmlReport(result, pads));
        paths.push_back(htmlPath);
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
