#include "file/OutputFile.h"

#include "TraceFileFixture.h"
#include "file/FileIdentity.h"

#include <TraceVerbs.h>

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace VORN;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

namespace {

class OutputFileTest : public TraceFileFixture
{
protected:
    static int mode(const std::string& name)
    {
        struct stat status;
        return stat(name.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
    }
};

} // namespace

TEST_F(OutputFileTest, AFileAppearsUnderItsNameWhenItIsCommitted)
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

TEST_F(OutputFileTest, BytesAreReplacedWhereTheyStand)
{
    const std::string body(3000000, 'x'); // more than the buffer has room for
    OutputFile file(path, true);
    put(file, "rows: ?? " + body);

    file.replace(6, "17", 2);
    put(file, "end");
    file.commit();

    EXPECT_EQ(content(path), "rows: 17 " + body + "end");
}

TEST_F(OutputFileTest, TheTemporaryFileLiesBesideTheFinalOneAndIsPrivate)
{
    OutputFile file(path, true);
    EXPECT_THAT(file.temporaryPath(),
                MatchesRegex(directory.path() + "/\\.out\\.sgy\\.vorn-......"));
    EXPECT_EQ(mode(file.temporaryPath()), 0600);
}

TEST_F(OutputFileTest, TheFinalFileHasThePermissionsOfANewOne)
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

TEST_F(OutputFileTest, WhatIsNotCommittedIsRemoved)
{
    {
        OutputFile file(path, true);
        put(file, std::string(5000000, 'x'));
        EXPECT_EQ(directory.names().size(), 1u);
    }
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(OutputFileTest, AnExistingFileIsReplacedOnlyByTheCommit)
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

TEST_F(OutputFileTest, AnExistingFileStaysWhereReplacingIsNotAllowed)
{
    writeBytes(path, {'o', 'l', 'd'});
    EXPECT_THAT(failure([&] { OutputFile file(path, false); }),
                HasSubstr("out.sgy: is there already; remove it, or allow it to be overwritten"));
    EXPECT_THAT(directory.names(), ElementsAre("out.sgy"));
}

TEST_F(OutputFileTest, AFileThatAppearsMeanwhileStaysToo)
{
    OutputFile file(path, false);
    put(file, "new");
    writeBytes(path, {'o', 'l', 'd'});
    EXPECT_THAT(failure([&] { file.commit(); }), HasSubstr("made by somebody else meanwhile"));
    EXPECT_EQ(content(path), "old");
    EXPECT_THAT(directory.names(), ElementsAre("out.sgy"));
}

TEST_F(OutputFileTest, WithoutReplacingANewFileIsMadeAsUsual)
{
    OutputFile file(path, false);
    put(file, "new");
    file.commit();
    EXPECT_EQ(content(path), "new");
    EXPECT_THAT(directory.names(), ElementsAre("out.sgy"));
}

TEST_F(OutputFileTest, ALinkStaysAndTheFileBehindItIsReplaced)
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

TEST_F(OutputFileTest, ALinkOfSomebodyElseInADirectoryForAllIsRefused)
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

// By the mode alone: root is refused, too.
TEST_F(OutputFileTest, AWriteProtectedFileIsRefused)
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

TEST_F(OutputFileTest, ALinkOfSomebodyElseOnTheWayIsRefused)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can make links of others";
    const std::string shared = directory / "shared";
    const std::string trap = shared + "/folder";
    const std::string own = directory / "own.sgy";
    std::filesystem::create_directory(shared);
    std::filesystem::create_directory(directory / "real");
    ASSERT_EQ(chmod(shared.c_str(), 01777), 0);
    ASSERT_EQ(symlink((directory / "real").c_str(), trap.c_str()), 0);
    ASSERT_EQ(symlink("shared/folder/out.sgy", own.c_str()), 0);
    EXPECT_EQ(foreignLinkOn(own), "");
    ASSERT_EQ(lchown(trap.c_str(), 12345, 12345), 0);

    for (const std::string& name : {trap + "/out.sgy", own}) {
        EXPECT_EQ(foreignLinkOn(name), trap);
        EXPECT_THAT(failure([&] { OutputFile file(name, true); }),
                    HasSubstr("leads through " + trap + ", which is a link that somebody else"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory / "real"));
}

TEST_F(OutputFileTest, ADirectoryOrASocketIsNeverReplaced)
{
    const std::string socketPath = directory / "socket";
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    for (const std::string& name : {directory.path(), socketPath})
        EXPECT_THAT(failure([&] { OutputFile file(name, true); }),
                    HasSubstr(name + ": is there already and is not a regular file"));
    EXPECT_THAT(failure([&] { OutputFile file("", true); }), HasSubstr("has no name"));
    close(descriptor);
}

// ---- Devices, pipes and descriptors ----

TEST_F(OutputFileTest, APipeGetsEverythingAtTheCommitAndStaysAPipe)
{
    const std::string pipe = directory / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    char bytes[16];
    {
        OutputFile dropped(pipe, false);
        put(dropped, "half");
    }
    EXPECT_EQ(read(reader, bytes, sizeof bytes), 0) << "what is not committed";
    OutputFile file(pipe, false);
    put(file, "sums bytes");
    file.replace(1, "ome", 3);
    EXPECT_EQ(read(reader, bytes, sizeof bytes), 0) << "before the commit";
    file.commit();
    ASSERT_EQ(read(reader, bytes, sizeof bytes), 10);
    EXPECT_EQ(std::string(bytes, 10), "some bytes");
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    EXPECT_THAT(directory.names(), ElementsAre("pipe"));
    close(reader);
}

// "command -o /dev/stdout >> file": what the file holds stays, and so does the file itself.
TEST_F(OutputFileTest, AnOpenDescriptorIsWrittenToAtItsPlace)
{
    writeBytes(path, {'o', 'l', 'd'});
    const std::string identity = fileIdentity(path);
    const int descriptor = open(path.c_str(), O_WRONLY | O_APPEND);
    const std::string number = std::to_string(descriptor);
    const std::string link = directory / "link";
    ASSERT_EQ(symlink(("/dev/fd/" + number).c_str(), link.c_str()), 0);
    for (const std::string& name : {"/dev/fd/" + number, "/proc/self/fd/" + number, link}) {
        EXPECT_EQ(descriptorOf(name), descriptor) << name;
        OutputFile file(name, false);
        put(file, "+new");
        file.commit();
    }
    EXPECT_EQ(content(path), "old+new+new+new");
    EXPECT_EQ(fileIdentity(path), identity);
    close(descriptor);

    EXPECT_EQ(descriptorOf("/dev/stdout"), 1);
    EXPECT_EQ(descriptorOf(path), -1);
    const int readOnly = open(path.c_str(), O_RDONLY);
    const std::string unwritable = "/dev/fd/" + std::to_string(readOnly);
    EXPECT_EQ(failure([&] { OutputFile file(unwritable, true); }),
              unwritable + ": is not open for writing");
    close(readOnly);
}

TEST_F(OutputFileTest, ADeviceIsWrittenThrough)
{
    OutputFile file("/dev/null", false);
    put(file, "x");
    file.commit();
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
    EXPECT_THAT(failure([&] {
                    OutputFile full("/dev/full", true);
                    put(full, "x");
                    full.commit();
                }),
                HasSubstr("/dev/full: cannot be written beyond its first 0 bytes (1 more were to "
                          "follow now): No space left on device"));
}

TEST_F(OutputFileTest, ADirectoryThatCannotBeWrittenIsNamedAtOnce)
{
    const std::string missing = directory / "none/out.sgy";
    EXPECT_THAT(failure([&] { OutputFile file(missing, true); }),
                HasSubstr("none/out.sgy: cannot be written: no file can be created in its "
                          "directory: No such file or directory"));
}

TEST_F(OutputFileTest, ANameOfFullLengthIsWritten)
{
    const std::string name = directory / std::string(255, 'n');
    OutputFile file(name, true);
    put(file, "x");
    file.commit();
    EXPECT_EQ(content(name), "x");
}

TEST_F(OutputFileTest, LargePiecesGoThroughWhole)
{
    OutputFile file(path, true);
    std::string all;
    for (const int size : {1, 3000000, 70, 262144, 262145, 1048576, 1048577, 0, 5}) {
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
TEST_F(OutputFileTest, AFullDiskIsReportedWhereverItHappens)
{
    constexpr std::size_t total = 2500000;
    for (const rlim_t room : {0, 1, 4096, 262143, 262144, 262145, 1048576, 2499999}) {
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

TEST_F(OutputFileTest, AfterAFailureNothingIsWrittenAndNothingCommitted)
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

TEST_F(OutputFileTest, AFailedRenamingIsReportedAndLeavesNothing)
{
    const std::string sub = directory / "sub";
    std::filesystem::create_directory(sub);
    OutputFile file(sub + "/out.sgy", true);
    std::filesystem::create_directory(sub + "/out.sgy");
    EXPECT_THAT(failure([&] { file.commit(); }),
                HasSubstr("out.sgy: is there already and is not a regular file"));
    EXPECT_TRUE(std::filesystem::is_directory(sub + "/out.sgy"));
    EXPECT_FALSE(std::filesystem::exists(file.temporaryPath()));
}
