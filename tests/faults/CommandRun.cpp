#include "CommandRun.h"

#include "cli/CommandTable.h"
#include "failing.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

std::string readFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void redirect(const std::string& path, int descriptor, int flags)
{
    const int file = open(path.c_str(), flags, 0600);
    if (file < 0 || dup2(file, descriptor) < 0)
        throw std::runtime_error("cannot open " + path);
    close(file);
}

} // namespace

Files filesIn(const std::string& directory)
{
    Files files;
    for (const auto& entry : fs::directory_iterator(directory))
        files[entry.path().filename().string()] = readFile(entry.path());
    return files;
}

CommandRun::CommandRun()
{
    for (const char* name : {"in", "out", "scratch"})
        fs::create_directory(directory / name);
}

void CommandRun::makeInputs()
{
    writeJob("  - {name: make, module: synthetic, shots: 3, channels: 8, samples: 40}\n"
             "  - {name: segy, module: segy_out, input: make, file: in/line.sgy}\n"
             "  - {name: su, module: su_out, input: make, file: in/line.su}\n");
    if (run({}, {"malloc", 0, VORN_FAULT_ONCE}, 0).exitCode != 0)
        throw std::runtime_error("no inputs can be made: " + errors());
}

void CommandRun::writeJob(const std::string& modules) const
{
    std::ofstream file(directory / "job.yaml");
    file << "scratch: {directory: scratch}\nmodules:\n" << modules;
}

ChildResult CommandRun::run(const std::vector<std::string>& options, const Fault& fault, long nth,
                            const std::string& where)
{
    std::vector<std::string> words = {"run", "job.yaml"};
    if (!where.empty())
        words.insert(words.end(), {"--scratch", where});
    words.insert(words.end(), options.begin(), options.end());
    return runCommand(words, fault, nth);
}

ChildResult CommandRun::runCommand(const std::vector<std::string>& words, const Fault& fault,
                                   long nth)
{
    const auto job = [&](fault_record&, const std::function<void()>& armed) {
        if (chdir(directory.path().c_str()) != 0)
            throw std::runtime_error("no directory");
        setenv("VORN_HOME", VORN_TEST_HOME, 1);
        setenv("TMPDIR", (directory / "scratch").c_str(), 1);
        setenv("LC_ALL", "C", 1);
        redirect("/dev/null", STDIN_FILENO, O_RDONLY);
        redirect("output", STDOUT_FILENO, O_WRONLY | O_CREAT | O_TRUNC);
        redirect("errors", STDERR_FILENO, O_WRONLY | O_CREAT | O_TRUNC);
        armed();
        return host::runCommandLine(words);
    };
    fflush(nullptr);
    return faults.run(job, fault, nth);
}

void CommandRun::clear() const
{
    for (const char* name : {"out", "scratch"}) {
        for (const auto& entry : fs::directory_iterator(directory / name))
            fs::remove_all(entry.path());
    }
}

Files CommandRun::inputs() const
{
    return filesIn(directory / "in");
}

Files CommandRun::outputs() const
{
    return filesIn(directory / "out");
}

std::vector<std::string> CommandRun::scratch() const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory / "scratch"))
        names.push_back(entry.path().filename().string());
    return names;
}

std::string CommandRun::errors() const
{
    return readFile(directory / "errors");
}

bool CommandRun::isWhole(const std::string& name, const std::string& content,
                         const std::string& expected)
{
    if (name.ends_with(".json"))
        return nlohmann::json::accept(content);
    if (name.ends_with(".html"))
        return content.ends_with(expected.substr(expected.size() - 10));
    return content == expected;
}
