#include "run/OutputDigests.h"

#include "base/Sha256.h"
#include "file/OutputFile.h"
#include "run/RunFiles.h"

#include <KernelFixture.h>

#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <string>

using host::OutputDigests;
using host::sha256Of;
using VORN::OutputFile;

namespace {

class OutputDigestsTest : public ::testing::Test
{
protected:
    static void put(OutputFile& file, const std::string& text)
    {
        std::memcpy(file.append(text.size()), text.data(), text.size());
    }

    TemporaryDirectory directory;
    const std::string path = directory / "out";
    const std::string body = std::string(2500000, 'x') + "end"; // more than one buffer
    OutputDigests digests;
};

} // namespace

TEST_F(OutputDigestsTest, AnOutputHasTheChecksumOfItsBytesOnceItIsWhole)
{
    OutputFile file(path, true);
    put(file, "begin");
    put(file, body);
    EXPECT_EQ(digests.find(path), "");
    file.commit();
    EXPECT_EQ(digests.find(path), sha256Of("begin" + body));
    EXPECT_EQ(digests.find(path), host::sha256OfFile(path));
    EXPECT_EQ(digests.find(directory.path() + "/./out"), host::sha256OfFile(path));
}

TEST_F(OutputDigestsTest, OutputsThatAreWrittenInTurnsAreKeptApart)
{
    {
        OutputFile a(directory / "a", true);
        OutputFile b(directory / "b", true);
        put(a, body);
        put(b, "b");
        put(a, "a");
        put(b, body);
        a.commit();
        b.commit();
    }
    EXPECT_EQ(digests.find(directory / "a"), sha256Of(body + "a"));
    EXPECT_EQ(digests.find(directory / "b"), sha256Of("b" + body));
}

TEST_F(OutputDigestsTest, OneWithReplacedBytesHasNone)
{
    OutputFile file(path, true);
    put(file, "rows: ??" + body);
    file.replace(6, "17", 2);
    put(file, body);
    file.commit();
    EXPECT_EQ(digests.find(path), "");
}

TEST_F(OutputDigestsTest, OneThatIsGivenUpOrChangesLaterHasNone)
{
    {
        OutputFile file(path, true);
        put(file, "bytes");
    }
    std::ofstream(path) << "bytes";
    EXPECT_EQ(digests.find(path), "") << "not an output of this process";
    {
        OutputFile file(path, true);
        put(file, "bytes");
        file.commit();
    }
    EXPECT_EQ(digests.find(path), sha256Of("bytes"));
    std::ofstream(path, std::ios::app) << "more";
    EXPECT_EQ(digests.find(path), "");
    std::ofstream(path) << "bytes";
    EXPECT_EQ(digests.find(path), "") << "written again by somebody else";
}

TEST_F(OutputDigestsTest, AnEmptyOutputHasTheChecksumOfNothing)
{
    OutputFile file(path, true);
    file.commit();
    EXPECT_EQ(digests.find(path), sha256Of(""));
}

// What was not hashed while it was written is read.
TEST_F(OutputDigestsTest, EveryOutputOfAJobGetsItsChecksum)
{
    {
        OutputFile file(path, true);
        put(file, body);
        file.commit();
    }
    std::ofstream(directory / "other") << "other";
    std::vector<host::RunFile> files(3);
    files[0].path = path;
    files[1].path = directory / "other";
    files[2].path = directory / "none";
    files[0].exists = files[1].exists = true;
    addChecksums(files, digests);
    EXPECT_EQ(files[0].sha256, sha256Of(body));
    EXPECT_EQ(files[1].sha256, sha256Of("other"));
    EXPECT_EQ(files[2].sha256, "");
}
