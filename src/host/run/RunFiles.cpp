#include "run/RunFiles.h"

#include "base/DirectoryNames.h"
#include "base/Escaping.h"
#include "base/Sha256.h"
#include "base/Text.h"
#include "file/FileIdentity.h"
#include "file/UnfinishedOutputs.h"
#include "run/InputDigests.h"
#include "run/OutputDigests.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

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

bool isSameTime(const timespec& a, const timespec& b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// ".out.sgy.x7" and "out.sgy.part" belong to "out.sgy".
bool belongsTo(const std::string& name, const std::string& output)
{
    return name.starts_with(output) || name.starts_with("." + output);
}

} // namespace

std::string sha256OfFile(const std::string& path)
{
    // Not QFile: opening a pipe waits for a writer.
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0)
        return "";
    struct Closing
    {
        int descriptor;
        ~Closing() { close(descriptor); }
    } const closing{descriptor};
    struct stat before;
    struct stat after;
    if (fstat(descriptor, &before) != 0 || !S_ISREG(before.st_mode))
        return "";
    Sha256 hash;
    std::vector<char> bytes(1 << 20);
    int64_t done = 0;
    while (done < before.st_size) { // a file that grows for ever has an end nevertheless
        const ssize_t got = read(descriptor, bytes.data(), bytes.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return "";
        hash.add(bytes.data(), static_cast<std::size_t>(got));
        done += got;
    }
    const bool isSame = fstat(descriptor, &after) == 0 && done == after.st_size &&
                        isSameTime(before.st_mtim, after.st_mtim);
    return isSame ? hash.hex() : "";
}

std::vector<RunFile> describeFiles(const ResolvedJob& job, bool outputs)
{
    std::vector<RunFile> files;
    for (const ResolvedModule& module : job.modules) {
        for (const ResolvedParameter& parameter : module.parameters) {
            if (outputs ? !parameter.isOutputFile : !parameter.isInputFile)
                continue;
            for (const std::string& path : filesOf(parameter))
                files.push_back(describe(path, module.name, parameter.name));
        }
    }
    return files;
}

void addChecksums(std::vector<RunFile>& files, const InputDigests* digests,
                  const std::function<bool(const std::string&)>& changed)
{
    for (RunFile& file : files) {
        const std::optional<ReadRecord> record =
            digests != nullptr ? digests->find(file.module, file.path) : std::nullopt;
        if (record) {
            file.bytesRead = record->bytesRead;
            file.sha256 = record->sha256;
        }
        // All of it was read, in another order: the bytes in the file are still the same.
        const bool isWhole = !record || record->bytesRead == file.bytes;
        if (file.sha256.empty() && file.exists && isWhole && !changed(file.path))
            file.sha256 = sha256OfFile(file.path);
    }
}

void addChecksums(std::vector<RunFile>& outputs, const OutputDigests& digests)
{
    for (RunFile& file : outputs) {
        if (!file.exists)
            continue;
        file.sha256 = digests.find(file.path);
        if (file.sha256.empty())
            file.sha256 = sha256OfFile(file.path);
    }
}

// ---- Inputs that change ----

InputWatch::InputWatch(const ResolvedJob& job)
{
    for (const RunFile& file : describeFiles(job, false))
        inputs.push_back({file, look(file.path)});
}

InputWatch::State InputWatch::look(const std::string& path)
{
    State state;
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return state;
    state.exists = true;
    state.device = status.st_dev;
    state.inode = status.st_ino;
    state.bytes = status.st_size;
    state.modified = status.st_mtim;
    state.changed = status.st_ctim;
    state.mode = status.st_mode;
    state.owner = status.st_uid;
    state.group = status.st_gid;
    state.links = status.st_nlink;
    return state;
}

// The time of change also moves when permissions, owner or links change, as by a backup that links
// files; the content is the same then. Where none of them explains it, somebody has set the time of
// modification back.
bool InputWatch::State::isSameContent(const State& other) const
{
    if (exists != other.exists || device != other.device || inode != other.inode ||
        bytes != other.bytes || !isSameTime(modified, other.modified))
        return false;
    return isSameTime(changed, other.changed) || mode != other.mode || owner != other.owner ||
           group != other.group || links != other.links;
}

std::string InputWatch::State::text() const
{
    return exists ? fmt::format("{}, last modified {}.{:06}",
                                counted(static_cast<int64_t>(bytes), "byte"),
                                timeText(modified.tv_sec), modified.tv_nsec / 1000)
                  : "missing";
}

std::vector<std::string> InputWatch::changes() const
{
    std::vector<std::string> texts;
    for (const Input& input : inputs) {
        const State now = look(input.file.path);
        if (!input.before.isSameContent(now))
            texts.push_back(fmt::format("the input file {} of module {} changed while the job ran: "
                                        "before {}; after {}; run the job again when nothing "
                                        "writes to the file",
                                        quote(input.file.path), quote(input.file.module),
                                        input.before.text(), now.text()));
    }
    return texts;
}

bool InputWatch::isChanged(const std::string& path) const
{
    return std::any_of(inputs.begin(), inputs.end(), [&](const Input& input) {
        return input.file.path == path && !input.before.isSameContent(look(path));
    });
}

// ---- Outputs ----

OutputWatch::OutputWatch(const ResolvedJob& job)
{
    for (const RunFile& file : describeFiles(job, true))
        outputs.push_back(file.path);
    before = look();
}

OutputWatch::State OutputWatch::stateOf(const struct stat& status)
{
    return {status.st_ino, status.st_mtim.tv_sec, status.st_mtim.tv_nsec, status.st_size};
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
                states[name] = stateOf(status);
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

std::vector<std::string> OutputWatch::incomplete() const
{
    std::vector<std::string> paths = written();
    std::erase_if(paths, [](const std::string& path) {
        struct stat status;
        return stat(path.c_str(), &status) == 0 && VORN::isCompletedOutput(status);
    });
    return paths;
}

void OutputWatch::listIncomplete(void (*tell)(const char* path)) const noexcept
{
    for (const std::string& output : outputs) {
        struct stat status;
        if (stat(output.c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
            VORN::isCompletedOutput(status))
            continue;
        const auto former = before.find(output);
        if (former == before.end() || !(former->second == stateOf(status)))
            tell(output.c_str());
    }
}

} // namespace host
