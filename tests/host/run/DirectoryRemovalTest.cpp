#include "run/DirectoryRemoval.h"

#include "KernelFixture.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

class DirectoryRemovalTest : public testing::Test
{
protected:
    DirectoryRemovalTest() { fs::create_directories(path("own")); }

    std::string path(const std::string& name) const { return directory / ("work/" + name); }
    void write(const std::string& name) const { std::ofstream(path(name)) << "content\n"; }
    bool remove() const
    {
        const int descriptor = open(path("own").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const bool done = host::removeEntries(descriptor);
        close(descriptor);
        return done;
    }

    TemporaryDirectory directory;
};

} // namespace

TEST_F(DirectoryRemovalTest, MoreEntriesThanOneReadOfTheDirectoryReturns)
{
    for (int i = 0; i < 500; ++i)
        write("own/" + std::string(100, 'x') + std::to_string(i));

    EXPECT_TRUE(remove());
    EXPECT_TRUE(fs::is_empty(path("own")));
}

TEST_F(DirectoryRemovalTest, DirectoriesInside)
{
    fs::create_directories(path("own/a/b/c"));
    write("own/a/b/c/file");
    write("own/a/file");

    EXPECT_TRUE(remove());
    EXPECT_TRUE(fs::is_empty(path("own")));
}

TEST_F(DirectoryRemovalTest, LinksAreRemovedAndNotFollowed)
{
    fs::create_directories(path("other"));
    write("other/file");
    fs::create_directory_symlink(path("other"), path("own/link"));
    fs::create_hard_link(path("other/file"), path("own/hard"));

    EXPECT_TRUE(remove());
    EXPECT_TRUE(fs::is_empty(path("own")));
    EXPECT_TRUE(fs::exists(path("other/file")));
}

TEST_F(DirectoryRemovalTest, WhatLiesTooDeepIsLeftAndReported)
{
    fs::create_directories(path("own/1/2/3/4/5/6/7/8/9/10"));
    write("own/file");

    EXPECT_FALSE(remove());
    EXPECT_FALSE(fs::exists(path("own/file")));
    EXPECT_TRUE(fs::exists(path("own/1/2/3/4/5/6/7/8/9/10")));
}
