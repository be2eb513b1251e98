// Symbolic links that somebody has planted in the directories that a job writes to, at the names
// that it is about to use. Behind each lies a file that must not change, or nothing.
#include "JobDirectory.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using ::testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

int permissionsOf(const std::string& path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
}

// Files are created with the permissions asked for, not with fewer.
class NoCreationMask
{
public:
    NoCreationMask() : former(umask(0)) {}
    ~NoCreationMask() { umask(former); }
    NoCreationMask(const NoCreationMask&) = delete;
    NoCreationMask& operator=(const NoCreationMask&) = delete;

private:
    mode_t former;
};

class PlantedLinkTest : public ::testing::Test
{
protected:
    static constexpr const char* precious = "precious\n";

    PlantedLinkTest()
    {
        directory.write("victim", precious);
        directory.write("draw.yaml", "scratch: {directory: scratch}\n"
                                     "modules:\n"
                                     "  - {name: read, module: host_source}\n"
                                     "  - {name: draw, module: host_section, input: read}\n");
    }

    void plant(const std::string& name, const std::string& target)
    {
        fs::create_symlink(directory.path(target), directory.path(name));
    }

    void writeJob(const std::string& module, const std::string& file, int shots)
    {
        directory.write("job.yaml", "scratch: {directory: scratch, traces: 10}\n"
                                    "modules:\n"
                                    "  - {name: make, module: synthetic, shots: " +
                                        std::to_string(shots) +
                                        ", channels: 40}\n"
                                        "  - {name: sort, module: sort, input: make, "
                                        "keys: [offset]}\n"
                                        "  - {name: write, module: " +
                                        module + ", input: sort, file: " + file + "}\n");
    }

    bool isLink(const std::string& name) const { return fs::is_symlink(directory.path(name)); }

    JobDirectory directory;
};

// ---- outputs of modules

TEST_F(PlantedLinkTest, OutputsReplaceTheFileBehindALinkAndLeaveTheLink)
{
    for (const char* module : {"segy_out", "su_out"}) {
        SCOPED_TRACE(module);
        directory.write("behind", "older\n");
        fs::remove(directory.path("out"));
        plant("out", "behind");
        writeJob(module, "out", 2);

        const JobEnd end = directory.run({"run", "job.yaml", "-q"});

        EXPECT_EQ(end.exitCode, 0) << end.errors;
        EXPECT_TRUE(isLink("out"));
        EXPECT_FALSE(isLink("behind"));
        EXPECT_GT(fs::file_size(directory.path("behind")), 1000U);
    }
}

TEST_F(PlantedLinkTest, OutputsTakeThePlaceOfALinkToNowhere)
{
    for (const char* module : {"segy_out", "su_out"}) {
        SCOPED_TRACE(module);
        fs::remove(directory.path("out"));
        plant("out", "nowhere");
        writeJob(module, "out", 2);

        EXPECT_EQ(directory.run({"run", "job.yaml", "-q"}).exitCode, 0);
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(directory.path("out"))));
        EXPECT_FALSE(directory.exists("nowhere"));
    }
}

// While the job runs, nobody else may read what is not finished, nor the traces in the scratch
// file.
TEST_F(PlantedLinkTest, FilesOfARunningJobAreForItsOwnerOnly)
{
    for (const char* module : {"segy_out", "su_out"}) {
        SCOPED_TRACE(module);
        writeJob(module, "out", 300);
        RunningJob job;
        {
            const NoCreationMask allPermissions;
            job = directory.start({"run", "job.yaml", "-q"});
        }
        int output = -1, scratchDirectory = -1, scratchFile = -1;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while ((output < 0 || scratchFile < 0) && std::chrono::steady_clock::now() < end) {
            std::error_code gone;
            for (const auto& entry : fs::directory_iterator(directory.path(""), gone)) {
                if (entry.path().filename().string().starts_with(".out.vorn-"))
                    output = permissionsOf(entry.path());
            }
            for (const auto& entry :
                 fs::recursive_directory_iterator(directory.path("scratch"), gone)) {
                if (entry.is_directory(gone))
                    scratchDirectory = permissionsOf(entry.path());
                else if (entry.path().filename().string().starts_with("SF"))
                    scratchFile = permissionsOf(entry.path());
            }
        }
        kill(job.process, SIGKILL);
        directory.finish(job);

        EXPECT_EQ(output, 0600);
        EXPECT_EQ(scratchDirectory, 0700);
        EXPECT_EQ(scratchFile, 0600);
        fs::remove_all(directory.path("scratch"));
        fs::create_directory(directory.path("scratch"));
    }
}

// ---- what the command writes itself

struct OwnFile
{
    const char* option;
    const char* value;
    const char* result; // the file
};

class OwnFileTest : public PlantedLinkTest, public ::testing::WithParamInterface<OwnFile>
{
protected:
    std::vector<std::string> call() const
    {
        std::vector<std::string> words = {"run", "draw.yaml", "-q", GetParam().option,
                                          GetParam().value};
        if (std::string(GetParam().result).ends_with(".svg"))
            words.insert(words.end(), {"--format", "svg"});
        return words;
    }

    // Names that processes with that number could give to the file while it is being written.
    static std::vector<std::string> temporaryNames(const std::string& result, pid_t process)
    {
        const fs::path path(result);
        const std::string number = std::to_string(process);
        const std::string name = path.filename();
        std::vector<std::string> names;
        for (const std::string& one : {name + "." + number + ".part", name + ".part", name + ".tmp",
                                       "." + name + ".vorn-" + number, name + "." + number})
            names.push_back((path.parent_path() / one).string());
        return names;
    }
};

TEST_P(OwnFileTest, IsNeverWrittenThroughALinkAtAGuessedTemporaryName)
{
    fs::create_directories(fs::path(directory.path(GetParam().result)).parent_path());
    const RunningJob job = directory.start(call());
    int planted = 0; // of them the program has made none itself so far: it has just been started
    for (const std::string& name : temporaryNames(GetParam().result, job.process)) {
        std::error_code exists;
        fs::create_symlink(directory.path(planted % 2 == 0 ? "victim" : "nowhere"),
                           directory.path(name), exists);
        planted += exists ? 0 : 1;
    }
    const JobEnd end = directory.finish(job);

    EXPECT_EQ(planted, 5);
    EXPECT_EQ(end.exitCode, 0) << end.errors;
    EXPECT_EQ(directory.read("victim"), precious);
    EXPECT_FALSE(directory.exists("nowhere"));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(directory.path(GetParam().result))));
}

TEST_P(OwnFileTest, ReplacesTheFileBehindALinkAsAWholeAndTakesThePlaceOfALinkToNowhere)
{
    const fs::path result = directory.path(GetParam().result);
    fs::create_directories(result.parent_path());
    const std::string older = result.extension() == ".json" ? "{}\n" : "<p>older\n";
    directory.write("behind", older);
    plant(GetParam().result, "behind");
    fs::create_hard_link(directory.path("behind"), directory.path("same"));

    ASSERT_EQ(directory.run(call()).exitCode, 0);
    EXPECT_TRUE(fs::is_symlink(result));
    EXPECT_GT(fs::file_size(directory.path("behind")), 500U);
    EXPECT_EQ(directory.read("same"), older) << "the older file itself was written to";

    fs::remove(result);
    plant(GetParam().result, "nowhere");
    ASSERT_EQ(directory.run(call()).exitCode, 0);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(result)));
    EXPECT_FALSE(directory.exists("nowhere"));
}

INSTANTIATE_TEST_SUITE_P(Options, OwnFileTest,
                         ::testing::Values(OwnFile{"--report", "report.html", "report.html"},
                                           OwnFile{"--json", "run.json", "run.json"},
                                           OwnFile{"--pictures", "pictures", "pictures/first.png"},
                                           OwnFile{"--pictures", "pictures", "pictures/first.svg"}),
                         [](const auto& row) {
                             std::string name = row.param.result;
                             std::replace_if(
                                 name.begin(), name.end(),
                                 [](char letter) { return letter == '/' || letter == '.'; }, '_');
                             return name;
                         });

// A log is written as it grows, like the output of a shell's command: through a link that the user
// names, but never into a file of the job.
TEST_F(PlantedLinkTest, ALogGoesWhereALinkLeads)
{
    plant("run.log", "behind");

    EXPECT_EQ(directory.run({"run", "draw.yaml", "-q", "--log", "run.log"}).exitCode, 0);
    EXPECT_TRUE(isLink("run.log"));
    EXPECT_THAT(directory.read("behind"), HasSubstr("POST-PROCESSING PHASE"));
}

TEST_F(PlantedLinkTest, ALogNeverReplacesAFileOfTheJob)
{
    makeSortingJob(directory, 400);
    const std::string input = directory.read("in.sgy");
    const std::string job = directory.read("job.yaml");
    plant("to-input", "in.sgy");

    for (const char* log : {"in.sgy", "to-input", "job.yaml", "out.sgy"}) {
        SCOPED_TRACE(log);
        const JobEnd end = directory.run({"run", "job.yaml", "-q", "--log", log});
        EXPECT_EQ(end.exitCode, 2) << end.errors;
        EXPECT_THAT(end.errors, HasSubstr("write to another file"));
        EXPECT_TRUE(directory.read("in.sgy") == input);
        EXPECT_TRUE(directory.read("job.yaml") == job);
        EXPECT_FALSE(directory.exists("out.sgy"));
    }
}

} // namespace
