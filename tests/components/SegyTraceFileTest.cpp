#include "tracefile.h"

#include <KernelFixture.h>
#include <SegyBytes.h>
#include <TraceVerbs.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace VORN;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

namespace {

class SegyTraceFileTest : public ::testing::Test
{
protected:
    static void put(OutputFile& file, const std::string& text)
    {
        std::memcpy(file.append(text.size()), text.data(), text.size());
    }
    static std::string content(const std::string& name)
    {
        const Bytes bytes = readBytes(name);
        return std::string(bytes.begin(), bytes.end());
    }
    static int mode(const std::string& name)
    {
        struct stat status;
        return stat(name.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
    }
    // The text of the error with which `action` ends.
    template <typename Action>
    static std::string failure(Action action)
    {
        try {
            action();
        } catch (const TraceFileError& error) {
            return error.what();
        }
        return "it did not fail";
    }

    TemporaryDirectory directory;
    const std::string path = directory / "out.sgy";
};

} // namespace

// ---- Output ----

TEST_F(SegyTraceFileTest, AFileAppearsUnderItsNameWhenItIsCommitted)
{
    OutputFile file(path, true);
    put(file, "some ");
    put(file, "bytes");
    EXPECT_EQ(file.size(), 10);
    EXPECT_FALSE(std::filesystem::exists(path));

    file.commit();

    EXPECT_EQ(content(path), "some bytes");
    EXPECT_THAT(directory.names(), ElementsAre("out.sgy"));
}

TEST_F(SegyTraceFileTest, TheTemporaryFileLiesBesideTheFinalOneAndIsPrivate)
{
    OutputFile file(path, true);
    EXPECT_THAT(file.temporaryPath(),
                MatchesRegex(directory.path() + "/\\.out\\.sgy\\.vorn-......"));
    EXPECT_EQ(mode(file.temporaryPath()), 0600);
}

TEST_F(SegyTraceFileTest, TheFinalFileHasThePermissionsOfANewOne)
{
    for (const mode_t mask : {0022u, 0077u}) {
        const mode_t former = umask(mask);
        OutputFile file(path, true);
        file.commit();
        umask(former);
        EXPECT_EQ(mode(path), static_cast<int>(0666 & ~mask));
        EXPECT_EQ(umask(former), former) << "the mask itself was changed";
    }
}

TEST_F(SegyTraceFileTest, WhatIsNotCommittedIsRemoved)
{
    {
        OutputFile file(path, true);
        put(file, std::string(5000000, 'x'));
        EXPECT_EQ(directory.names().size(), 1u);
    }
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(SegyTraceFileTest, AnExistingFileIsReplacedOnlyByTheCommit)
{
    writeBytes(path, {'o', 'l', 'd'});
    {
        OutputFile file(path, true);
        put(file, "new");
    }
    EXPECT_EQ(content(path), "old");
    OutputFile file(path, true);
    put(file, "new");
    file.commit();
    EXPECT_EQ(content(path), "new");
}

TEST_F(SegyTraceFileTest, AnExistingFileStaysWhereReplacingIsNotAllowed)
{
    writeBytes(path, {'o', 'l', 'd'});
    EXPECT_THAT(failure([&] { OutputFile file(path, false); }),
                HasSubstr("out.sgy: is there already; remove it, or allow it to be overwritten"));
    EXPECT_THAT(directory.names(), ElementsAre("out.sgy"));
}

TEST_F(SegyTraceFileTest, AFileThatAppearsMeanwhileStaysToo)
{
    OutputFile file(path, false);
    put(file, "new");
    writeBytes(path, {'o', 'l', 'd'});
    EXPECT_THAT(failure([&] { file.commit(); }), HasSubstr("made by somebody else meanwhile"));
    EXPECT_EQ(content(path), "old");
    EXPECT_THAT(directory.names(), ElementsAre("out.sgy"));
}

TEST_F(SegyTraceFileTest, WithoutReplacingANewFileIsMadeAsUsual)
{
    OutputFile file(path, false);
    put(file, "new");
    file.commit();
    EXPECT_EQ(content(path), "new");
    EXPECT_THAT(directory.names(), ElementsAre("out.sgy"));
}

TEST_F(SegyTraceFileTest, ALinkStaysAndTheFileBehindItIsReplaced)
{
    const std::string real = directory / "real.sgy";
    writeBytes(real, {'o', 'l', 'd'});
    ASSERT_EQ(symlink("real.sgy", path.c_str()), 0);
    OutputFile file(path, true);
    put(file, "new");
    file.commit();
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_EQ(content(real), "new");
}

TEST_F(SegyTraceFileTest, ALinkOfSomebodyElseInADirectoryForAllIsRefused)
{
    constexpr uid_t somebody = 12345;
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can make links of others";
    const std::string shared = directory / "shared";
    const std::string real = directory / "real.sgy";
    const std::string link = shared + "/out.sgy";
    writeBytes(real, {'o', 'l', 'd'});
    std::filesystem::create_directory(shared);
    ASSERT_EQ(chmod(shared.c_str(), 01777), 0);
    ASSERT_EQ(symlink(real.c_str(), link.c_str()), 0);

    ASSERT_EQ(lchown(link.c_str(), somebody, somebody), 0);
    EXPECT_THAT(failure([&] { OutputFile file(link, true); }),
                HasSubstr(link + ": is a link that somebody else has put into a directory for "
                                 "all; write to another place"));
    EXPECT_EQ(content(real), "old");

    ASSERT_EQ(chmod(shared.c_str(), 0777), 0);
    EXPECT_EQ(failure([&] { OutputFile file(link, true); }), "it did not fail") << "not sticky";
    ASSERT_EQ(chmod(shared.c_str(), 01777), 0);
    ASSERT_EQ(chown(shared.c_str(), somebody, somebody), 0);
    EXPECT_EQ(failure([&] { OutputFile file(link, true); }), "it did not fail")
        << "of the directory's owner";
    ASSERT_EQ(chown(shared.c_str(), 0, 0), 0);
    ASSERT_EQ(lchown(link.c_str(), 0, 0), 0);
    EXPECT_EQ(failure([&] { OutputFile file(link, true); }), "it did not fail") << "one's own";
}

// What a process leaves undestroyed when it ends.
TEST_F(SegyTraceFileTest, AProcessThatEndsRemovesWhatIsNotComplete)
{
    const pid_t child = fork();
    if (child == 0) {
        auto* first = new OutputFile(directory / "first.sgy", true);
        auto* second = new OutputFile(directory / "second.sgy", true);
        auto* third = new OutputFile(directory / "third.sgy", true);
        put(*first, "half");
        put(*second, "whole");
        second->commit();
        delete second;
        put(*third, "half");
        std::exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_THAT(directory.names(), ElementsAre("second.sgy"));
    EXPECT_EQ(content(directory / "second.sgy"), "whole");
}

TEST_F(SegyTraceFileTest, AChildThatEndsLeavesItsParentsFileAlone)
{
    OutputFile file(path, true);
    put(file, "whole");
    const pid_t child = fork();
    if (child == 0)
        std::exit(0);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    file.commit();
    EXPECT_EQ(content(path), "whole");
}

// By the mode alone: root is refused, too.
TEST_F(SegyTraceFileTest, AWriteProtectedFileIsRefused)
{
    const std::string link = directory / "link.sgy";
    writeBytes(path, {'o', 'l', 'd'});
    ASSERT_EQ(symlink("out.sgy", link.c_str()), 0);
    ASSERT_EQ(chmod(path.c_str(), 0466), 0) << "others may write it, its owner may not";
    for (const std::string& name : {path, link})
        EXPECT_EQ(failure([&] { OutputFile file(name, true); }),
                  name + ": is write-protected; write to another file, or give yourself permission "
                         "first (chmod u+w)");
    EXPECT_TRUE(isWriteProtected(link));
    EXPECT_EQ(content(path), "old");
    EXPECT_THAT(directory.names(), ElementsAre("link.sgy", "out.sgy"));

    ASSERT_EQ(chmod(path.c_str(), 0200), 0);
    EXPECT_EQ(failure([&] { OutputFile file(path, true); }), "it did not fail");
    EXPECT_FALSE(isWriteProtected(path));
    EXPECT_FALSE(isWriteProtected(directory / "none")) << "there is nothing to protect";
}

// ---- Ends that destroy nothing ----

namespace {

std::vector<std::string> removedOutputs()
{
    std::vector<std::string> removed;
    removeUnfinishedOutputs(
        [](void* paths, const char* name) {
            static_cast<std::vector<std::string>*>(paths)->emplace_back(name);
        },
        &removed);
    return removed;
}

} // namespace

TEST_F(SegyTraceFileTest, WhatIsBeingWrittenCanBeRemovedWithoutItsObjects)
{
    writeBytes(path, {'o', 'l', 'd'});
    OutputFile whole(directory / "whole.sgy", true);
    whole.commit();
    OutputFile first(path, true);
    OutputFile second(directory / "second.sgy", true);
    put(second, std::string(3000000, 'x'));
    const std::vector<std::string> expected = {first.temporaryPath(), second.temporaryPath()};

    EXPECT_THAT(removedOutputs(), ::testing::UnorderedElementsAreArray(expected));
    EXPECT_THAT(directory.names(), ElementsAre("out.sgy", "whole.sgy"));
    EXPECT_THAT(removedOutputs(), IsEmpty());

    EXPECT_THAT(failure([&] { second.commit(); }), HasSubstr("cannot be given its name"));
    EXPECT_EQ(content(path), "old");
}

// Names alone prove nothing: files of this kind may be somebody else's, or be read to save what
// they hold.
TEST_F(SegyTraceFileTest, WhatThisProcessIsNotWritingStays)
{
    const std::string read = directory / ".read.sgy.vorn-aaaaaa";
    const std::string closed = directory / ".closed.sgy.vorn-bbbbbb";
    const std::string inherited = directory / ".inherited.sgy.vorn-cccccc";
    const std::string other = directory / "other.vorn-dddddd";
    for (const std::string& name : {read, closed, inherited, other})
        writeBytes(name, {'x'});
    const int descriptors[] = {open(read.c_str(), O_RDONLY | O_CLOEXEC),
                               open(inherited.c_str(), O_RDWR),
                               open(other.c_str(), O_RDWR | O_CLOEXEC)};
    OutputFile replaced(path, true);
    std::filesystem::rename(replaced.temporaryPath(), directory / "moved");
    ASSERT_EQ(symlink("moved", replaced.temporaryPath().c_str()), 0);
    const auto before = directory.names();

    EXPECT_THAT(removedOutputs(), IsEmpty());

    EXPECT_EQ(directory.names(), before);
    for (const int descriptor : descriptors)
        close(descriptor);
}

TEST_F(SegyTraceFileTest, WhatIsNoRegularFileIsNeverReplaced)
{
    const std::string pipe = directory / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& name : {directory.path(), pipe})
        EXPECT_THAT(failure([&] { OutputFile file(name, true); }),
                    HasSubstr(name + ": is there already and no regular file"));
    EXPECT_THAT(failure([&] { OutputFile file("", true); }), HasSubstr("has no name"));
}

TEST_F(SegyTraceFileTest, ADirectoryThatCannotBeWrittenIsNamedAtOnce)
{
    const std::string missing = directory / "none/out.sgy";
    EXPECT_THAT(failure([&] { OutputFile file(missing, true); }),
                HasSubstr("none/out.sgy: cannot be written: no file can be created in its "
                          "directory: No such file or directory"));
}

TEST_F(SegyTraceFileTest, ANameOfFullLengthIsWritten)
{
    const std::string name = directory / std::string(255, 'n');
    OutputFile file(name, true);
    put(file, "x");
    file.commit();
    EXPECT_EQ(content(name), "x");
}

TEST_F(SegyTraceFileTest, LargePiecesGoThroughWhole)
{
    OutputFile file(path, true);
    std::string all;
    for (const int size : {1, 3000000, 70, 1048576, 1048577, 0, 5}) {
        const std::string piece(static_cast<std::size_t>(size), static_cast<char>('a' + size % 26));
        put(file, piece);
        all += piece;
    }
    file.commit();
    EXPECT_TRUE(content(path) == all);
    EXPECT_EQ(file.size(), static_cast<int64_t>(all.size()));
}

// The disk is full after so many bytes, wherever that is: one line says so, nothing stays, and the
// next file is written.
TEST_F(SegyTraceFileTest, AFullDiskIsReportedWhereverItHappens)
{
    constexpr std::size_t total = 2500000;
    for (const rlim_t room : {0, 1, 4096, 1048575, 1048576, 1048577, 2499999}) {
        const FileSizeLimit limit(room);
        const std::string text = failure([&] {
            OutputFile file(path, true);
            for (std::size_t done = 0; done < total; done += 50000)
                put(file, std::string(50000, 'x'));
            file.commit();
        });
        EXPECT_THAT(text, MatchesRegex(".*out.sgy: cannot be written beyond its first " +
                                       std::to_string(room) +
                                       " bytes .*: File too large; make room there.*"));
        EXPECT_THAT(directory.names(), IsEmpty()) << room;
    }
    const FileSizeLimit limit(total);
    OutputFile file(path, true);
    put(file, std::string(total, 'x'));
    file.commit();
    EXPECT_EQ(std::filesystem::file_size(path), total);
}

TEST_F(SegyTraceFileTest, AfterAFailureNothingIsWrittenAndNothingCommitted)
{
    OutputFile file(path, true);
    {
        const FileSizeLimit limit(10);
        put(file, std::string(2000000, 'x'));
        EXPECT_THAT(failure([&] { put(file, "y"); }), HasSubstr("cannot be written beyond"));
        EXPECT_THAT(directory.names(), IsEmpty()) << "the room is given back at once";
    }
    EXPECT_THAT(failure([&] { file.commit(); }), HasSubstr("is not open for writing"));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(SegyTraceFileTest, AFailedRenamingIsReportedAndLeavesNothing)
{
    const std::string sub = directory / "sub";
    std::filesystem::create_directory(sub);
    OutputFile file(sub + "/out.sgy", true);
    std::filesystem::create_directory(sub + "/out.sgy");
    EXPECT_THAT(failure([&] { file.commit(); }), HasSubstr("out.sgy: cannot be given its name"));
    EXPECT_TRUE(std::filesystem::is_directory(sub + "/out.sgy"));
    EXPECT_FALSE(std::filesystem::exists(file.temporaryPath()));
}

// ---- Input ----

TEST_F(SegyTraceFileTest, BytesAreReadForwardAndBackward)
{
    Bytes bytes(3000000);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i * 2654435761u >> 15);
    writeBytes(path, bytes);
    InputFile file(path);
    EXPECT_EQ(file.size(), 3000000);
    for (const int64_t offset : {0L, 100L, 1048570L, 1048576L, 2999990L, 5L, 1500000L}) {
        const auto start = bytes.begin() + offset;
        const Bytes expected(start, start + 10);
        EXPECT_EQ(Bytes(file.at(offset, 10), file.at(offset, 10) + 10), expected) << offset;
        EXPECT_EQ(Bytes(file.peek(offset, 10), file.peek(offset, 10) + 10), expected) << offset;
    }
    const unsigned char* most = file.at(3, 2999997);
    EXPECT_TRUE(std::equal(most, most + 2999997, bytes.begin() + 3)) << "more than is read ahead";
}

TEST_F(SegyTraceFileTest, BytesBehindTheEndAreRefused)
{
    writeBytes(path, Bytes(100));
    InputFile file(path);
    EXPECT_THAT(failure([&] { file.at(95, 6); }), HasSubstr("out.sgy: ends at byte 100"));
    EXPECT_THAT(failure([&] { file.peek(95, 6); }), HasSubstr("out.sgy: ends at byte 100"));
    EXPECT_EQ(failure([&] { file.at(95, 5); }), "it did not fail");
}

TEST_F(SegyTraceFileTest, AFileThatShrankIsNotReadFromMemoryOfOtherPlaces)
{
    writeBytes(path, Bytes(5000000, 7));
    InputFile file(path);
    file.at(0, 10);
    std::filesystem::resize_file(path, 3000000);
    EXPECT_THAT(failure([&] { file.at(4000000, 10); }), HasSubstr("it was longer when"));
    EXPECT_EQ(*file.at(2000000, 10), 7) << "what is there is read all the same";
}

TEST_F(SegyTraceFileTest, OneFileHasOneIdentityUnderAllItsNames)
{
    const std::string soft = directory / "soft";
    const std::string hard = directory / "hard";
    const std::string other = directory / "other";
    writeBytes(path, {1});
    writeBytes(other, {1});
    ASSERT_EQ(symlink("out.sgy", soft.c_str()), 0);
    ASSERT_EQ(link(path.c_str(), hard.c_str()), 0);
    EXPECT_FALSE(fileIdentity(path).empty());
    EXPECT_EQ(fileIdentity(soft), fileIdentity(path));
    EXPECT_EQ(fileIdentity(hard), fileIdentity(path));
    EXPECT_NE(fileIdentity(other), fileIdentity(path));
    EXPECT_EQ(fileIdentity(directory / "none"), "");
}

TEST_F(SegyTraceFileTest, OnePlaceHasOneCanonicalPath)
{
    std::filesystem::create_directory(directory / "sub");
    const std::string plain = canonicalPath(directory / "out.sgy");
    EXPECT_EQ(canonicalPath(directory / "sub/../out.sgy"), plain);
    EXPECT_EQ(canonicalPath(directory / "./out.sgy"), plain);
    EXPECT_NE(canonicalPath(directory / "sub/out.sgy"), plain);
}
