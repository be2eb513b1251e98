#include "file/FileIdentity.h"

#include "TraceFileFixture.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace VORN;

namespace {

using FileIdentityTest = TraceFileFixture;

} // namespace

TEST_F(FileIdentityTest, OneFileHasOneIdentityUnderAllItsNames)
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

TEST_F(FileIdentityTest, OnePlaceHasOneCanonicalPath)
{
    std::filesystem::create_directory(directory / "sub");
    const std::string plain = canonicalPath(directory / "out.sgy");
    EXPECT_EQ(canonicalPath(directory / "sub/../out.sgy"), plain);
    EXPECT_EQ(canonicalPath(directory / "./out.sgy"), plain);
    EXPECT_NE(canonicalPath(directory / "sub/out.sgy"), plain);
}
