#include "draw/DotProgram.h"

#include "KernelFixture.h"
#include "base/CommandError.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <pthread.h>

using namespace host;

namespace {

// A directory of programs, the only one of PATH besides those of the system's own.
class DotProgramTest : public testing::Test
{
protected:
    void SetUp() override
    {
        former = std::getenv("PATH");
        setenv("PATH", (std::string(directory / "") + ":/bin:/usr/bin").c_str(), 1);
    }
    void TearDown() override { setenv("PATH", former.c_str(), 1); }

    // The shell script `text` becomes the program `dot`.
    void install(const std::string& text) const
    {
        const std::string path = directory / "dot";
        std::ofstream(path) << "#!/bin/sh\n" << text << "\n";
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    }

    static std::string errorOf(const std::string& graph,
                               std::chrono::milliseconds limit = std::chrono::minutes(1))
    {
        try {
            return "no error: " + drawDot(graph, "svg", limit);
        } catch (const CommandError& error) {
            return error.what();
        }
    }

    TemporaryDirectory directory;
    std::string former;
};

} // namespace

TEST_F(DotProgramTest, GivesTheGraphAndTakesThePicture)
{
    install("echo \"$# $1\"; cat");
    EXPECT_EQ(drawDot("digraph x {}\n", "png"), "1 -Tpng\ndigraph x {}\n");
}

TEST_F(DotProgramTest, GraphsAndPicturesMayBeLargerThanAPipe)
{
    const std::string graph(3000000, 'g');
    install("head -c 2000000 /dev/zero; cat");
    EXPECT_EQ(drawDot(graph, "svg"), std::string(2000000, '\0') + graph);
}

TEST_F(DotProgramTest, AProgramThatReadsNothingMayStillDraw)
{
    install("echo picture");
    EXPECT_EQ(drawDot(std::string(3000000, 'g'), "svg"), "picture\n");
}

TEST_F(DotProgramTest, WithoutTheProgramTheErrorSaysWhatToInstall)
{
    setenv("PATH", (directory / "").c_str(), 1);
    EXPECT_FALSE(isDotInstalled());
    EXPECT_EQ(errorOf(""), "the program \"dot\" is needed to draw the graph; install graphviz, or "
                           "write the graph with -o FILE.dot");
    install("true");
    EXPECT_TRUE(isDotInstalled());
}

TEST_F(DotProgramTest, AProgramThatFailsIsAnError)
{
    const std::string failed = "the program \"dot\" could not draw the graph as svg";
    install("cat; exit 3");
    EXPECT_EQ(errorOf("picture"), failed);
    install("cat; kill -9 $$");
    EXPECT_EQ(errorOf("picture"), failed);
    install("cat > /dev/null");
    EXPECT_EQ(errorOf("nothing is printed"), failed);
}

TEST_F(DotProgramTest, AProgramThatCannotBeStartedIsAnError)
{
    install("");
    std::ofstream(directory / "dot") << "neither a script nor a program";
    EXPECT_EQ(errorOf(""), "the program \"dot\" cannot be started: Exec format error");
}

TEST_F(DotProgramTest, AProgramThatHangsIsEnded)
{
    for (const char* rest : {"exec tail -f /dev/null", "echo picture; exec sleep 600 >&-"}) {
        install("echo $$ > " + std::string(directory / "pid") + "; " + rest);
        EXPECT_EQ(errorOf("", std::chrono::seconds(2)),
                  "the program \"dot\" did not draw the graph within 2.0 s");
        pid_t process = 0;
        std::ifstream(directory / "pid") >> process;
        ASSERT_GT(process, 0);
        EXPECT_EQ(kill(process, 0), -1) << "it still runs: " << rest;
    }
}

TEST_F(DotProgramTest, SignalsThatAreBlockedHereReachTheProgram)
{
    sigset_t set;
    sigset_t before;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    pthread_sigmask(SIG_BLOCK, &set, &before);
    install("grep -h SigBlk /proc/self/status");
    const std::string mask = drawDot("", "svg");
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(mask, "SigBlk:\t0000000000000000\n");
}
