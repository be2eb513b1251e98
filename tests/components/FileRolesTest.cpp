// What the files of a process are for, and that no output replaces one that is used otherwise.
#include "file/FileRoles.h"

#include "TraceFileFixture.h"

#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace VORN;
using testing::ElementsAre;

namespace {

class FileRolesTest : public TraceFileFixture
{
protected:
    FileRolesTest()
    {
        writeBytes(input, {'d', 'a', 't', 'a'});
        usedFiles().clear();
    }
    ~FileRolesTest() override { usedFiles().clear(); }

    // The failure of an output from its beginning to its name, with `between` in the middle.
    std::string failureOf(const std::string& name, const std::string& owner = "",
                          const std::function<void()>& between = {})
    {
        return failure([&] {
            OutputFile file(name, true, "the picture", owner);
            put(file, "new");
            if (between)
                between();
            file.commit();
        });
    }

    const std::string input = directory / "in.sgy";
    const std::string role = "the input file \"in.sgy\" of module \"read\"";
    const std::string refusal = ": the picture would replace " + role + "; write to another file";
};

} // namespace

// File systems give the number of a file that is gone to the next one.
TEST_F(FileRolesTest, ANewFileIsNotTakenForOneThatIsGone)
{
    const auto numberOf = [](const std::string& name) {
        struct stat status = {};
        stat(name.c_str(), &status);
        return status.st_ino;
    };
    const std::string report = directory / "report.html";
    for (const bool isOutput : {true, false}) {
        writeBytes(report, {'o', 'l', 'd'});
        usedFiles().clear();
        usedFiles().add(report, "the report", isOutput ? "--report" : "");
        const ino_t gone = numberOf(report);
        if (isOutput)
            EXPECT_EQ(failureOf(report, "--report"), "it did not fail");
        else
            std::filesystem::remove(report);
        bool isReused = false;
        for (int i = 0; i < 200 && !isReused; ++i) {
            const std::string next = directory / ("next" + std::to_string(i));
            writeBytes(next, {'n', 'e', 'w'});
            isReused = numberOf(next) == gone;
            if (isReused) {
                EXPECT_EQ(failureOf(next, "--json"), "it did not fail") << isOutput;
            }
        }
        if (!isReused)
            GTEST_SKIP() << "this file system has not used the number again";
    }
}

TEST_F(FileRolesTest, AFileIsKnownUnderAllItsNames)
{
    const std::string soft = directory / "soft";
    const std::string hard = directory / "hard";
    const std::string folder = directory / "folder";
    ASSERT_EQ(symlink("in.sgy", soft.c_str()), 0);
    ASSERT_EQ(link(input.c_str(), hard.c_str()), 0);
    ASSERT_EQ(symlink(".", folder.c_str()), 0);
    usedFiles().add(input, role);

    for (const std::string& name :
         {input, soft, hard, folder + "/in.sgy",
          folder + "/../" + std::filesystem::path(directory.path()).filename().string() + "/hard"})
        EXPECT_EQ(failureOf(name), name + refusal);

    EXPECT_EQ(content(input), "data");
    EXPECT_EQ(failureOf(path), "it did not fail");
}

TEST_F(FileRolesTest, ANameThatDoesNotExistYetIsKnownToo)
{
    usedFiles().add(path, "the log \"out.sgy\"", "--log");

    EXPECT_EQ(failureOf(directory / "./out.sgy"),
              directory.path() + "/./out.sgy: the picture would replace the log \"out.sgy\"; write "
                                 "to another file");
    EXPECT_THAT(directory.names(), ElementsAre("in.sgy"));
}

TEST_F(FileRolesTest, WhatTheOwnerWritesReplacesItsOwnFileOnly)
{
    usedFiles().add(path, "the output file of module \"a\"", "a");
    usedFiles().add(input, role);

    EXPECT_EQ(failureOf(path, "a"), "it did not fail");
    EXPECT_EQ(content(path), "new");
    EXPECT_NE(failureOf(path, "b"), "it did not fail");
    EXPECT_EQ(failureOf(input, "a"), input + refusal);
}

// Each of them comes into being, or changes, while the output is being written.
TEST_F(FileRolesTest, TheRuleHoldsWhenTheFileGetsItsName)
{
    usedFiles().add(input, role);
    EXPECT_EQ(failureOf(path, "", [&] { EXPECT_EQ(link(input.c_str(), path.c_str()), 0); }),
              path + refusal);
    EXPECT_EQ(content(path), "data");
    std::filesystem::remove(path);

    EXPECT_EQ(failureOf(path, "",
                        [&] {
                            writeBytes(path, {'k', 'e', 'p', 't'});
                            EXPECT_EQ(chmod(path.c_str(), 0444), 0);
                        }),
              path + ": is write-protected; write to another file, or give yourself permission "
                     "first (chmod u+w)");
    EXPECT_EQ(content(path), "kept");
    std::filesystem::remove(path);

    EXPECT_EQ(failureOf(path, "", [&] { EXPECT_EQ(mkfifo(path.c_str(), 0600), 0); }),
              path + ": is there already and is not a regular file; give the path of a file");
    EXPECT_TRUE(std::filesystem::is_fifo(path));
    EXPECT_THAT(directory.names(), ElementsAre("in.sgy", "out.sgy")) << "no temporary file is left";
}

// Its content now has another name; the one it had will be asked for again.
TEST_F(FileRolesTest, AnInputThatIsMovedStaysProtected)
{
    usedFiles().add(input, role);
    std::filesystem::rename(input, directory / "moved");

    EXPECT_EQ(failureOf(directory / "moved"), directory.path() + "/moved" + refusal);
    EXPECT_EQ(failureOf(input), input + refusal);
    EXPECT_EQ(content(directory / "moved"), "data");
}
