#include "run/RunFiles.h"

#include "base/DirectoryNames.h"

#include <QCryptographicHash>
#include <QFile>
#include <algorithm>
#include <ctime>
#include <filesystem>
#include <sys/stat.h>

namespace host {

namespace {

namespace fs = std::filesystem;

std::string timeText(std::time_t time)
{
    std::tm local{};
    localtime_r(&time, &local);
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local));
}

RunFile describe(const std::string& path, const std::string& module, const std::string& parameter)
{
    RunFile file;
    file.path = path;
    file.module = module;
    file.parameter = parameter;
    struct stat status;
    file.exists = stat(path.c_str(), &status) == 0;
    if (file.exists) {
        file.bytes = status.st_size;
        file.modified = timeText(status.st_mtime);
    }
    return file;
}

// ".out.sgy.x7" and "out.sgy.part" belong to "out.sgy".
bool belongsTo(const std::string& name, const std::string& output)
{
    return name.starts_with(output) || name.starts_with("." + output);
}

} // namespace

std::string sha256OfFile(const std::string& path)
{
    QFile file(QString::fromStdString(path));
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file))
        return "";
    return hash.result().toHex().toStdString();
}

std::vector<RunFile> describeFiles(const ResolvedJob& job, bool outputs, bool checksums)
{
    std::vector<RunFile> files;
    for (const ResolvedModule& module : job.modules) {
        for (const ResolvedParameter& parameter : module.parameters) {
            if (outputs ? !parameter.isOutputFile : !parameter.isInputFile)
                continue;
            files.push_back(describe(parameter.value.text, module.name, parameter.name));
            if (checksums && files.back().exists)
                files.back().sha256 = sha256OfFile(parameter.value.text);
        }
    }
    return files;
}

OutputWatch::OutputWatch(const ResolvedJob& job)
{
    for (const RunFile& file : describeFiles(job, true, false))
        outputs.push_back(file.path);
    before = look();
}

OutputWatch::States OutputWatch::look() const
{
    States states;
    for (const std::string& output : outputs) {
        const fs::path path(output);
        for (const std::string& file : namesIn(path.parent_path().string())) {
            const std::string name = (path.parent_path() / file).string();
            struct stat status;
            if (belongsTo(file, path.filename().string()) && stat(name.c_str(), &status) == 0 &&
                S_ISREG(status.st_mode))
                states[name] = {status.st_ino, status.st_mtim.tv_sec, status.st_mtim.tv_nsec,
                                status.st_size};
        }
    }
    return states;
}

bool OutputWatch::isWritten(const std::string& path) const
{
    const std::vector<std::string> all = written();
    return std::find(all.begin(), all.end(), path) != all.end();
}

std::vector<std::string> OutputWatch::written() const
{
    std::vector<std::string> paths;
    for (const auto& [path, state] : look()) {
        const auto former = before.find(path);
        if (former == before.end() || !(former->second == state))
            paths.push_back(path);
    }
    return paths;
}

} // namespace host
