// Module libraries are loaded for trial in as few processes as possible, and each gets the verdict
// that it would get alone.
#include "job/LibraryProbe.h"

#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace host;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

volatile std::sig_atomic_t childrenEnded = 0;

class LibraryProbeTest : public ::testing::Test
{
protected:
    LibraryProbeTest()
    {
        childrenEnded = 0;
        std::signal(SIGCHLD, [](int) { childrenEnded = childrenEnded + 1; });
    }
    ~LibraryProbeTest() override { std::signal(SIGCHLD, SIG_DFL); }

    static std::string library(const std::string& name)
    {
        return VORN_TEST_HOME "/lib/lib" + name + ".so";
    }

    // One after the other, since the next one begins when the one before has ended.
    static int children() { return childrenEnded; }
};

const char* const aborted = "ends the process that loads it (Aborted)";

} // namespace

TEST_F(LibraryProbeTest, OneProcessLoadsAllLibraries)
{
    EXPECT_THAT(probeLibraries({library("host_source"), library("host_filter"),
                                library("host_sink"), library("host_split")}),
                ElementsAre("", "", "", ""));
    EXPECT_EQ(children(), 1);
}

TEST_F(LibraryProbeTest, NoLibraryNeedsNoProcess)
{
    EXPECT_THAT(probeLibraries({}), IsEmpty());
    EXPECT_EQ(children(), 0);
}

TEST_F(LibraryProbeTest, LibrariesBehindACrashAreStillTried)
{
    EXPECT_THAT(probeLibraries({library("host_source"), library("host_crashing"),
                                library("host_noprocess"), library("host_sink")}),
                ElementsAre("", aborted, "lacks the entry point process_", ""));
    EXPECT_EQ(children(), 3); // together, the crashing one alone, the others together
}

TEST_F(LibraryProbeTest, EveryCrashIsTold)
{
    EXPECT_THAT(probeLibraries({library("host_crashing"), library("host_crashing"),
                                library("host_source"), library("host_crashing")}),
                ElementsAre(aborted, aborted, "", aborted));
}

TEST_F(LibraryProbeTest, ALibraryThatEndsTheProcessIsToldFromOneThatCrashes)
{
    setenv("VORN_SCRATCH", "/tmp", 1);
    EXPECT_THAT(probeLibraries({library("exit_when_loaded"), library("host_source")}),
                ElementsAre("ends the process that loads it", ""));
    unsetenv("VORN_SCRATCH");
    EXPECT_EQ(probeLibrary(library("exit_when_loaded")), "");
}

TEST_F(LibraryProbeTest, AnErrorOfOneLibraryEndsNoProcess)
{
    EXPECT_THAT(probeLibraries(
                    {library("undefined_host"), library("host_source"), "/there/is/no/library.so"}),
                ElementsAre("cannot be loaded: undefined symbol: knl_ofALaterKernel", "",
                            "cannot be loaded: cannot open shared object file: No such file or "
                            "directory"));
    EXPECT_EQ(children(), 1);
}

TEST_F(LibraryProbeTest, ManyLibrariesAndLongReasonsArriveWhole)
{
    const std::string missing = "/" + std::string(200, 'x') + "/library.so";
    const std::vector<std::string> problems =
        probeLibraries(std::vector<std::string>(2000, missing));
    EXPECT_EQ(problems.size(), 2000U);
    EXPECT_THAT(problems, Each(problems.front()));
}
