// Kernels in several processes that share a scratch directory and the metadata of a project.
#include "ChildProcess.h"
#include "KernelFixture.h"
#include "SeisTraceSet.h"
#include "TraceVerbs.h"
#include "metadataprovider.h"

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <sched.h>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr int processes = 8;
constexpr unsigned secondsAtMost = 300;

class SharedProjectTest : public KernelFixture
{
protected:
    const std::vector<int> allWell = std::vector<int>(processes, 0);
};

// Writes and reads traces that only this process writes; 0 when every one came back.
int pageTraces(int process, int traces)
{
    Owning<SeisTraceSet> set;
    set.setTraceLength(50);
    for (int i = 0; i < traces; ++i)
        fill(*set.getTrace(i, true), process * traces + i);
    for (int turn = 0; turn < 3; ++turn) {
        for (int i = traces - 1; i >= 0; --i) {
            const std::string difference =
                differsFromFill(*set.getTrace(i, true), process * traces + i);
            if (difference.empty())
                continue;
            std::fprintf(stderr, "process %d, trace %d: %s\n", process, i, difference.c_str());
            return 1;
        }
    }
    return 0;
}

struct FileNames
{
    char of[processes][200] = {};
};

// Processes that fork from one another draw the same numbers for the names of their files.
TEST_F(SharedProjectTest, KernelsThatDrawTheSameNamesKeepTheirScratchFilesApart)
{
    Shared<std::atomic<int>> arrived;
    arrived->store(0);
    Shared<FileNames> names;
    const std::vector<int> results = runProcesses(processes, secondsAtMost, [&](int process) {
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = 3;
        const int result = pageTraces(process, 500);
        std::snprintf(names->of[process], sizeof names->of[process], "%s",
                      scratch().scratchFileName.c_str());
        // No file goes before all are there.
        arrived->fetch_add(1);
        while (arrived->load() < processes)
            sched_yield();
        scratch().deleteScratch();
        return result;
    });

    EXPECT_EQ(results, allWell);
    std::set<std::string> different;
    for (const char* name : names->of)
        different.insert(name);
    EXPECT_EQ(different.size(), static_cast<size_t>(processes)) << *different.begin();
    EXPECT_EQ(scratchDirectory.names(), std::vector<std::string>());
}

void readNumber(void* number, const std::string& key, const std::string& value)
{
    if (key == "jobs")
        *static_cast<int*>(number) = std::stoi(value);
}

TEST_F(SharedProjectTest, LockFilesKeepUpdatesOfMetadataFromGettingLost)
{
    const TemporaryDirectory project;
    std::filesystem::create_directory(project / ".metadata");
    const std::string data = project / "line.sgy";
    const int updates = numberFromEnvironment("VORN_LOCK_ROUNDS", 4000) / 10;

    const std::vector<int> results = runProcesses(processes, secondsAtMost, [&](int) {
        VORN::MetadataProvider* metadata = VORN::MetadataProvider::getInstance();
        metadata->setRefDir(project.path());
        for (int done = 0; done < updates;) {
            if (job().lockFile(data, 0) != 0) {
                sched_yield();
                continue;
            }
            int number = 0;
            metadata->loadMetadata(data, readNumber, &number);
            sched_yield();
            metadata->storeMetadata(data, {{"jobs", std::to_string(number + 1)}});
            if (job().unlockFile(data, 0) != 0)
                return 1;
            ++done;
        }
        return 0;
    });

    EXPECT_EQ(results, allWell);
    VORN::MetadataProvider::getInstance()->setRefDir(project.path());
    int number = 0;
    EXPECT_TRUE(VORN::MetadataProvider::getInstance()->loadMetadata(data, readNumber, &number));
    EXPECT_EQ(number, processes * updates);
}

} // namespace
