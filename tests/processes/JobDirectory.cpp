#include "JobDirectory.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

const char* const program = VORN_TEST_HOME "/../bin/vorn";

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

JobDirectory::JobDirectory()
{
    fs::create_directories(path("scratch"));
}

std::string JobDirectory::path(const std::string& name) const
{
    return directory / ("work/" + name);
}

void JobDirectory::write(const std::string& name, const std::string& text) const
{
    std::ofstream file(path(name), std::ios::binary);
    file << text;
    if (!file.flush())
        throw std::runtime_error("cannot write " + path(name));
}

std::string JobDirectory::read(const std::string& name) const
{
    return contentOf(path(name));
}

bool JobDirectory::exists(const std::string& name) const
{
    return fs::exists(fs::symlink_status(path(name)));
}

std::vector<std::string> JobDirectory::names(const std::string& of) const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path(of)))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

RunningJob JobDirectory::start(const std::vector<std::string>& words)
{
    std::vector<std::string> call = {program};
    call.insert(call.end(), words.begin(), words.end());
    // Nothing of the machine's settings but where programs are.
    std::vector<std::string> settings = {"VORN_HOME=" VORN_TEST_HOME, "LC_ALL=C"};
    for (const char* name : {"PATH", "TMPDIR", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
        if (const char* value = std::getenv(name))
            settings.push_back(std::string(name) + "=" + value);
    }
    // The process is to die of a signal under the sanitizers, too, and on the command's own stack.
    for (std::string& setting : settings) {
        if (setting.starts_with("ASAN_OPTIONS="))
            setting += ":handle_segv=0:handle_sigbus=0:handle_abort=0:handle_sigill=0:"
                       "handle_sigfpe=0:handle_sigtrap=0:use_sigaltstack=0";
    }
    const std::string number = std::to_string(++started);
    RunningJob job{0, directory / ("output" + number), directory / ("errors" + number)};

    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, path("").c_str());
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, job.outputFile.c_str(), flags, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, job.errorFile.c_str(), flags, 0600);
    const int error = posix_spawn(&job.process, program, &actions, nullptr, pointersTo(call).data(),
                                  pointersTo(settings).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::runtime_error(std::string("cannot start ") + program + ": " +
                                 std::strerror(error));
    return job;
}

JobEnd JobDirectory::finish(const RunningJob& job) const
{
    int status = 0;
    while (waitpid(job.process, &status, 0) < 0 && errno == EINTR) {
    }
    JobEnd end;
    end.killed = WIFSIGNALED(status);
    end.exitCode = end.killed ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    end.output = contentOf(job.outputFile);
    end.errors = contentOf(job.errorFile);
    fs::remove(job.outputFile);
    fs::remove(job.errorFile);
    return end;
}

JobEnd JobDirectory::run(const std::vector<std::string>& words)
{
    return finish(start(words));
}

std::string makeSortingJob(JobDirectory& directory, int traces)
{
    directory.write("make.yaml", "modules:\n"
                                 "  - {name: make, module: synthetic, shots: " +
                                     std::to_string(traces / 40) +
                                     ", channels: 40, samples: 500}\n"
                                     "  - {name: write, module: segy_out, input: make, "
                                     "file: in.sgy}\n");
    directory.write("job.yaml", "scratch: {directory: scratch, traces: 20}\n"
                                "modules:\n"
                                "  - {name: read, module: segy_in, file: in.sgy}\n"
                                "  - {name: same, module: gain, input: read, factor: 1}\n"
                                "  - {name: sort, module: sort, input: same, "
                                "keys: [offset, -fldr]}\n"
                                "  - {name: write, module: segy_out, input: sort, "
                                "file: out.sgy}\n");
    for (const char* job : {"make.yaml", "job.yaml"}) {
        const JobEnd end = directory.run({"run", job, "-v"});
        if (end.exitCode != 0)
            throw std::runtime_error(end.errors);
        if (std::string(job) == "job.yaml" &&
            end.errors.find("successfully created") == std::string::npos)
            throw std::runtime_error("the job does not use its scratch file:\n" + end.errors);
    }
    fs::remove(directory.path("make.yaml"));
    std::string result = directory.read("out.sgy");
    fs::remove(directory.path("out.sgy"));
    return result;
}
