// Where metadata files lie, what is in them byte for byte, and what survives the way to disk and
// back. Every test works in a directory of its own and leaves the process's store as it was made.

#include "metadataprovider.h"

#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <locale>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using VORN::MetadataProvider;

using Entries = std::map<std::string, std::string>;
using Reported = std::vector<std::pair<std::string, std::string>>;

// Asked before main() runs, when no test can have changed the store yet.
const std::string initialRefDir = MetadataProvider::getInstance()->getRefDir();
const std::string initialPath = MetadataProvider::getInstance()->getRefPath("/a/b/c.dat", nullptr);

void collect(void* ctx, const std::string& key, const std::string& value)
{
    static_cast<Reported*>(ctx)->emplace_back(key, value);
}

// The result of `body` in a process of its own, which is given up after a minute: what must not
// wait for ever, or must run as somebody else, runs there.
int inOtherProcess(const std::function<int()>& body)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class MetadataProviderTest : public testing::Test
{
protected:
    MetadataProvider& store = *MetadataProvider::getInstance();
    std::string dir; // the test's own directory, ends with "/"; holds the project "p1/"
    std::string project;

    void SetUp() override
    {
        std::string name = fs::temp_directory_path().string() + "/metadata-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        dir = name + "/";
        project = dir + "p1/";
        fs::create_directory(project);
        reset();
    }

    void TearDown() override
    {
        reset();
        fs::current_path("/");
        fs::remove_all(dir);
    }

    void clearRefDir() { EXPECT_THROW(store.setRefDir(""), std::out_of_range); }

    void reset()
    {
        clearRefDir();
        store.setMetaDir(".metadata");
        store.setAllowNonDefault(true);
    }

    // The project becomes the reference directory and gets its metadata directory.
    void openProject()
    {
        store.setRefDir(project);
        fs::create_directory(project + ".metadata");
    }

    std::string pathOf(const std::string& file) { return store.getRefPath(file, nullptr); }

    static void write(const std::string& path, const std::string& content)
    {
        std::ofstream(path, std::ios::binary) << content;
    }

    static std::string contentOf(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string packed(const Entries& data)
    {
        char* buf = nullptr;
        const int size = store.packMetadata(&buf, data);
        std::string bytes(buf, static_cast<size_t>(size));
        std::free(buf);
        return bytes;
    }

    // Parses a block of exactly these bytes, so that a sanitizer sees a read past them.
    Reported parsed(const std::string& bytes)
    {
        const auto exact = std::make_unique<char[]>(bytes.size());
        bytes.copy(exact.get(), bytes.size());
        Reported entries;
        EXPECT_TRUE(
            store.parseMetadata(exact.get(), static_cast<int>(bytes.size()), collect, &entries));
        return entries;
    }
};

// ---- the store and its settings

TEST_F(MetadataProviderTest, StartsWithoutReferenceDirectoryAndAllowsFilesAnywhere)
{
    ASSERT_FALSE(fs::exists("/project.vpj"));
    EXPECT_EQ(initialRefDir, "");
    EXPECT_EQ(initialPath, "/.metadata/a_b_c.dat");
}

TEST_F(MetadataProviderTest, IsOneForTheProcess)
{
    EXPECT_EQ(MetadataProvider::getInstance(), &store);
}

TEST_F(MetadataProviderTest, ReferenceDirectoryEndsWithExactlyTheSlashItNeeds)
{
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"/x", "/x/"}, {"/x/", "/x/"}, {"/", "/"},       {"x", "x/"},
        {"//", "//"},  {".", "./"},    {"/x\\", "/x\\/"}};
    for (const auto& [given, kept] : rows) {
        SCOPED_TRACE(given);
        store.setRefDir(given);
        EXPECT_EQ(store.getRefDir(), kept);
    }
}

TEST_F(MetadataProviderTest, EmptyReferenceDirectoryIsStoredAndThrowsOutOfRange)
{
    store.setRefDir("/x");
    EXPECT_THROW(store.setRefDir(""), std::out_of_range);
    EXPECT_EQ(store.getRefDir(), "");
}

TEST_F(MetadataProviderTest, MetadataDirectoryNameIsUsedAsGiven)
{
    store.setRefDir("/data/p1");
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"meta", "/data/p1/meta/l001.sgy"},
        {"meta/", "/data/p1/meta//l001.sgy"},
        {"a/b\\c", "/data/p1/a/b\\c/l001.sgy"},
        {"", "/data/p1//l001.sgy"}};
    for (const auto& [name, path] : rows) {
        SCOPED_TRACE(name);
        store.setMetaDir(name);
        EXPECT_EQ(pathOf("/data/p1/l001.sgy"), path);
    }
}

TEST_F(MetadataProviderTest, MetadataDirectoryNameHoldsOutsideTheReferenceDirectoryToo)
{
    write(project + "project.vpj", "");
    store.setMetaDir("meta");
    EXPECT_EQ(pathOf(project + "x.sgy"), project + "meta/x.sgy");
}

// ---- paths below the reference directory

TEST_F(MetadataProviderTest, FileInTheProjectHasAFlattenedNameInItsMetadataDirectory)
{
    store.setRefDir("/data/p1/");
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"/data/p1/lines/l001.sgy", "/data/p1/.metadata/lines_l001.sgy"},
        {"/data/p1/l001.sgy", "/data/p1/.metadata/l001.sgy"},
        {"/data/p1/a\\b/c", "/data/p1/.metadata/a_b_c"},
        {"/data/p1/a//b", "/data/p1/.metadata/a__b"},
        {"/data/p1/../x", "/data/p1/.metadata/.._x"},
        {"/data/p1//", "/data/p1/.metadata/_"},
        {"/data/p1/", "/data/p1/.metadata/"},
        {"/data/p1/data/p1/x", "/data/p1/.metadata/data_p1_x"}};
    for (const auto& [file, path] : rows) {
        SCOPED_TRACE(file);
        std::string foundProject = "untouched";
        EXPECT_EQ(store.getRefPath(file, &foundProject), path);
        EXPECT_EQ(foundProject, "/data/p1/");
    }
}

TEST_F(MetadataProviderTest, ProjectMayBeStoredWhereThePathOfTheFileStands)
{
    store.setRefDir("/data/p1");
    std::string text = "/data/p1/lines/l001.sgy";
    EXPECT_EQ(store.getRefPath(text, &text), "/data/p1/.metadata/lines_l001.sgy");
    EXPECT_EQ(text, "/data/p1/");

    write(project + "project.vpj", "");
    text = project + "x/y.sgy";
    EXPECT_EQ(store.getRefPath(text, &text), project + ".metadata/x_y.sgy");
    EXPECT_EQ(text, project);
}

TEST_F(MetadataProviderTest, OnlyTheRelativePartIsFlattened)
{
    store.setRefDir("/data\\old/p1");
    EXPECT_EQ(pathOf("/data\\old/p1/a\\b"), "/data\\old/p1/.metadata/a_b");
}

TEST_F(MetadataProviderTest, FileInTheProjectHasAPathWhetherOrNotOthersAreAllowed)
{
    store.setRefDir("/data/p1");
    store.setAllowNonDefault(false);
    EXPECT_EQ(pathOf("/data/p1/l001.sgy"), "/data/p1/.metadata/l001.sgy");
}

TEST_F(MetadataProviderTest, ReferenceDirectoryComesBeforeANearerProjectFile)
{
    fs::create_directory(project + "sub");
    write(project + "sub/project.vpj", "");
    store.setRefDir(project);
    EXPECT_EQ(pathOf(project + "sub/x"), project + ".metadata/sub_x");
}

TEST_F(MetadataProviderTest, ReferenceDirectoryIsComparedAsText)
{
    store.setRefDir("/data/p1");
    store.setAllowNonDefault(false);
    for (const char* outside : {"/data/p10/x", "/data/p1", "/data/./p1/x", "data/p1/x", "/x", ""}) {
        SCOPED_TRACE(outside);
        EXPECT_EQ(pathOf(outside), "");
    }
}

// ---- paths outside the reference directory

TEST_F(MetadataProviderTest, FileOutsideHasNoPathWhenNotAllowed)
{
    write(project + "project.vpj", "");
    store.setAllowNonDefault(false);
    for (const char* refDir : {"", "/elsewhere"}) {
        SCOPED_TRACE(refDir);
        if (*refDir != '\0')
            store.setRefDir(refDir);
        std::string foundProject = "untouched";
        EXPECT_EQ(store.getRefPath(project + "x.sgy", &foundProject), "");
        EXPECT_EQ(foundProject, "untouched");
    }
}

TEST_F(MetadataProviderTest, ProjectFileUpwardsMakesTheProject)
{
    write(project + "project.vpj", "");
    store.setRefDir("/elsewhere");
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"x/y.sgy", "x_y.sgy"},   {"y.sgy", "y.sgy"}, {"x/y/z\\w.sgy", "x_y_z_w.sgy"},
        {"x//y.sgy", "x__y.sgy"}, {"x/", "x_"},       {"", ""}};
    for (const auto& [file, name] : rows) {
        SCOPED_TRACE(file);
        std::string foundProject = "untouched";
        EXPECT_EQ(store.getRefPath(project + file, &foundProject), project + ".metadata/" + name);
        EXPECT_EQ(foundProject, project);
    }
}

TEST_F(MetadataProviderTest, NearestProjectFileWins)
{
    fs::create_directory(project + "sub");
    write(project + "project.vpj", "");
    write(project + "sub/project.vpj", "");
    EXPECT_EQ(pathOf(project + "sub/x/y"), project + "sub/.metadata/x_y");
}

TEST_F(MetadataProviderTest, ProjectFileMayBeADirectory)
{
    fs::create_directory(project + "project.vpj");
    EXPECT_EQ(pathOf(project + "x/y"), project + ".metadata/x_y");
}

TEST_F(MetadataProviderTest, BackslashSeparatesNothingInTheSearch)
{
    fs::create_directory(dir + "a\\b");
    write(dir + "a\\b/project.vpj", "");
    EXPECT_EQ(pathOf(dir + "a\\b/c\\d"), dir + "a\\b/.metadata/c_d");
    EXPECT_EQ(pathOf("a\\b\\c.dat"), "");
}

TEST_F(MetadataProviderTest, RootStandsInWhenNoProjectFileIsFound)
{
    ASSERT_FALSE(fs::exists("/project.vpj"));
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"/a/b/c.dat", "/.metadata/a_b_c.dat"},
        {"/c.dat", "/.metadata/c.dat"},
        {"/a/b/", "/.metadata/a_b_"},
        {"/", "/.metadata/"}};
    for (const auto& [file, path] : rows) {
        SCOPED_TRACE(file);
        std::string foundProject = "untouched";
        EXPECT_EQ(store.getRefPath(file, &foundProject), path);
        EXPECT_EQ(foundProject, "/");
    }
}

TEST_F(MetadataProviderTest, DoubledSlashAtTheRootIsNotNormalised)
{
    ASSERT_FALSE(fs::exists("/project.vpj"));
    EXPECT_EQ(pathOf("//x"), "//.metadata/x");
    EXPECT_EQ(pathOf("/a//b"), "/.metadata/a__b");
}

TEST_F(MetadataProviderTest, RelativePathIsSearchedAsItStands)
{
    struct Row
    {
        std::string file, path, foundProject;
    };
    const std::vector<Row> rows = {{"c.dat", "", "untouched"},
                                   {"a/b/c.dat", "a/.metadata/b_c.dat", "a/"},
                                   {"a/c.dat", "a/.metadata/c.dat", "a/"},
                                   {"a/", "a/.metadata/", "a/"},
                                   {"ab/c.dat", "", "untouched"},
                                   {"ab/cd/e.dat", "", "untouched"},
                                   {"ab/", "", "untouched"},
                                   {"./c.dat", "./.metadata/c.dat", "./"},
                                   {"", ".metadata/", ""}};
    fs::current_path(dir);
    for (const auto& [file, path, expectedProject] : rows) {
        SCOPED_TRACE(file);
        std::string foundProject = "untouched";
        EXPECT_EQ(store.getRefPath(file, &foundProject), path);
        EXPECT_EQ(foundProject, expectedProject);
        EXPECT_EQ(pathOf(file), path) << "without asking for the project";
    }
}

TEST_F(MetadataProviderTest, RelativePathFindsAProjectFileBelowTheWorkingDirectoryOnly)
{
    fs::current_path(dir);
    write("project.vpj", "");
    EXPECT_EQ(pathOf("p1/c.dat"), "") << "the working directory itself is never tried";

    write("p1/project.vpj", "");
    EXPECT_EQ(pathOf("p1/x/c.dat"), "p1/.metadata/x_c.dat");
}

// ---- packing

TEST_F(MetadataProviderTest, PackedBytesAreEntriesInKeyOrderAndTwoNuls)
{
    const std::vector<std::pair<Entries, std::string>> rows = {
        {{}, "\0\0"s},
        {{{"a", "1"}, {"b", "22"}},
         "a\0"
         "1\0"
         "b\0"
         "22\0"
         "\0\0"s},
        {{{"b", "x"}, {"B", "y"}, {"aa", "z"}, {"a", "w"}}, "B\0y\0a\0w\0aa\0z\0b\0x\0\0\0"s},
        {{{"\xC3\xA4", "u"}, {"z", "v"}}, "z\0v\0\xC3\xA4\0u\0\0\0"s},
        {{{"a", ""}, {"b", "2"}},
         "a\0\0b\0"
         "2\0\0\0"s},
        {{{"", "v"}}, "\0v\0\0\0"s},
        {{{"k", "line\nfeed\t\x7F\xFF"}}, "k\0line\nfeed\t\x7F\xFF\0\0\0"s}};
    for (size_t row = 0; row < rows.size(); ++row) {
        SCOPED_TRACE("row " + std::to_string(row));
        EXPECT_EQ(packed(rows[row].first), rows[row].second);
    }
}

TEST_F(MetadataProviderTest, PackedExampleHasElevenBytes)
{
    EXPECT_EQ(packed({{"a", "1"}, {"b", "22"}}), "\x61\x00\x31\x00\x62\x00\x32\x32\x00\x00\x00"s);
}

// ---- parsing

TEST_F(MetadataProviderTest, ParsingReportsWhatWasPackedInKeyOrder)
{
    EXPECT_EQ(parsed(packed({{"b", "22"}, {"a", "1"}})), (Reported{{"a", "1"}, {"b", "22"}}));
}

TEST_F(MetadataProviderTest, ParsingEndsAtTheFirstEmptyText)
{
    struct Row
    {
        std::string name, bytes;
        Reported entries;
    };
    const std::vector<Row> rows = {
        {"end mark", "\0\0"s, {}},
        {"empty first value", packed({{"a", ""}, {"b", "2"}}), {}},
        {"empty second value", packed({{"a", "1"}, {"b", ""}, {"c", "3"}}), {{"a", "1"}}},
        {"empty key", packed({{"", "v"}, {"b", "2"}}), {}},
        {"bytes after the end mark", "a\0x\0\0\0b\0y\0"s, {{"a", "x"}}},
        {"a single nul as end mark", "a\0x\0\0b\0y\0"s, {{"a", "x"}}}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(parsed(row.bytes), row.entries);
    }
}

TEST_F(MetadataProviderTest, ParsingEndsWithTheBuffer)
{
    struct Row
    {
        std::string name, bytes;
        Reported entries;
    };
    const std::vector<Row> rows = {{"nothing", "", {}},
                                   {"no end mark", "a\0x\0"s, {{"a", "x"}}},
                                   {"value without its nul", "a\0xyz"s, {{"a", "xyz"}}},
                                   {"key without a value", "a\0x\0b\0"s, {{"a", "x"}}},
                                   {"key without its nul", "a\0x\0bcd"s, {{"a", "x"}}},
                                   {"a lone key", "abc"s, {}}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(parsed(row.bytes), row.entries);
    }
}

TEST_F(MetadataProviderTest, ParsingReportsRepeatedKeysAsTheyCome)
{
    EXPECT_EQ(parsed("k\0v\0k\0w\0\0\0"s), (Reported{{"k", "v"}, {"k", "w"}}));
}

TEST_F(MetadataProviderTest, ParsingStopsAtTheGivenSizeWithinLongerData)
{
    Reported entries;
    EXPECT_TRUE(store.parseMetadata("a\0x\0b\0y\0\0", 6, collect, &entries));
    EXPECT_EQ(entries, (Reported{{"a", "x"}}));

    entries.clear();
    EXPECT_TRUE(store.parseMetadata("a\0xyz\0\0", 4, collect, &entries));
    EXPECT_EQ(entries, (Reported{{"a", "xy"}}));
}

TEST_F(MetadataProviderTest, ParsingNoBytesReportsNothing)
{
    for (const int size : {0, -1, INT_MIN}) {
        SCOPED_TRACE(size);
        Reported entries;
        EXPECT_TRUE(store.parseMetadata("a\0x\0\0", size, collect, &entries));
        EXPECT_TRUE(store.parseMetadata(nullptr, size, collect, &entries));
        EXPECT_EQ(entries, Reported{});
    }
}

// ---- writing

TEST_F(MetadataProviderTest, StoredFileHoldsThePackedBytes)
{
    openProject();
    EXPECT_TRUE(store.storeMetadata(project + "lines/l1.sgy", {{"a", "1"}, {"b", "22"}}));
    EXPECT_EQ(contentOf(project + ".metadata/lines_l1.sgy"), "a\0"
                                                             "1\0"
                                                             "b\0"
                                                             "22\0"
                                                             "\0\0"s);
}

TEST_F(MetadataProviderTest, StoredEmptyMapIsTwoNuls)
{
    openProject();
    EXPECT_TRUE(store.storeMetadata(project + "x", {}));
    EXPECT_EQ(contentOf(project + ".metadata/x"), "\0\0"s);
}

TEST_F(MetadataProviderTest, StoringReplacesTheWholeFile)
{
    openProject();
    write(project + ".metadata/x", "old\0and much longer\0\0\0"s);
    EXPECT_TRUE(store.storeMetadata(project + "x", {{"k", "v"}}));
    EXPECT_EQ(contentOf(project + ".metadata/x"), "k\0v\0\0\0"s);
}

TEST_F(MetadataProviderTest, StoringTouchesNeitherTheDataFileNorOtherMetadata)
{
    openProject();
    write(project + "x", "samples");
    write(project + ".metadata/y", "k\0v\0\0\0"s);
    EXPECT_TRUE(store.storeMetadata(project + "x", {{"a", "1"}}));
    EXPECT_EQ(contentOf(project + "x"), "samples");
    EXPECT_EQ(contentOf(project + ".metadata/y"), "k\0v\0\0\0"s);
}

TEST_F(MetadataProviderTest, StoringWithoutMetadataDirectoryWritesNothingAndReturnsTrue)
{
    store.setRefDir(project);
    EXPECT_TRUE(store.storeMetadata(project + "x", {{"k", "v"}}));
    EXPECT_TRUE(fs::is_empty(project));
}

TEST_F(MetadataProviderTest, StoringToAFullDiskReturnsTrue)
{
    openProject();
    fs::create_symlink("/dev/full", project + ".metadata/x");
    EXPECT_TRUE(store.storeMetadata(project + "x", {{"k", std::string(100000, 'v')}}));
}

TEST_F(MetadataProviderTest, FileWithoutMetadataPathIsNeitherStoredNorLoaded)
{
    openProject();
    store.setAllowNonDefault(false);
    fs::create_directory(dir + ".metadata");
    write(dir + ".metadata/x", "k\0v\0\0\0"s);
    write(dir + "project.vpj", "");
    Reported entries;
    EXPECT_FALSE(store.storeMetadata(dir + "x", {{"a", "1"}}));
    EXPECT_FALSE(store.loadMetadata(dir + "x", collect, &entries));
    EXPECT_EQ(contentOf(dir + ".metadata/x"), "k\0v\0\0\0"s);
    EXPECT_EQ(entries, Reported{});

    store.setAllowNonDefault(true);
    EXPECT_TRUE(store.loadMetadata(dir + "x", collect, &entries));
    EXPECT_EQ(entries, (Reported{{"k", "v"}}));
    EXPECT_FALSE(store.storeMetadata("x", {{"a", "1"}})) << "a bare name has no metadata path";
    EXPECT_FALSE(store.loadMetadata("x", collect, &entries));
}

// A conversion that throws is the way to make a plain file stream throw when it is closed.
class ThrowingConversion : public std::codecvt<char, char, std::mbstate_t>
{
protected:
    bool do_always_noconv() const noexcept override { return false; }
    result do_out(std::mbstate_t&, const char*, const char*, const char*&, char*, char*,
                  char*&) const override
    {
        throw std::runtime_error("no conversion");
    }
};

TEST_F(MetadataProviderTest, StoringReturnsFalseWhenTheStreamThrows)
{
    openProject();
    const std::locale before =
        std::locale::global(std::locale(std::locale::classic(), new ThrowingConversion));
    bool stored = true;
    EXPECT_NO_THROW(stored = store.storeMetadata(project + "x", {{"k", "v"}}));
    std::locale::global(before);
    EXPECT_FALSE(stored);
}

// ---- reading

TEST_F(MetadataProviderTest, LoadingReportsWhatWasStored)
{
    openProject();
    const Entries data = {{"name", "line 1"}, {"t$", "x\ny"}, {"#k", "\xC3\xA4\\/"}};
    ASSERT_TRUE(store.storeMetadata(project + "x", data));
    Reported entries;
    EXPECT_TRUE(store.loadMetadata(project + "x", collect, &entries));
    EXPECT_EQ(entries, Reported(data.begin(), data.end()));
}

TEST_F(MetadataProviderTest, LoadingAFileOfManyEntriesReportsThemAll)
{
    openProject();
    Entries data;
    for (int i = 0; i < 20000; ++i)
        data["key" + std::to_string(i)] = std::string(static_cast<size_t>(1 + i % 50), 'v');
    ASSERT_TRUE(store.storeMetadata(project + "x", data));
    Reported entries;
    EXPECT_TRUE(store.loadMetadata(project + "x", collect, &entries));
    EXPECT_EQ(entries, Reported(data.begin(), data.end()));
}

TEST_F(MetadataProviderTest, EmptyValueDoesNotSurviveStoringAndLoading)
{
    openProject();
    ASSERT_TRUE(store.storeMetadata(project + "x", {{"a", "1"}, {"b", ""}, {"c", "3"}}));
    Reported entries;
    EXPECT_TRUE(store.loadMetadata(project + "x", collect, &entries));
    EXPECT_EQ(entries, (Reported{{"a", "1"}}));
}

TEST_F(MetadataProviderTest, LoadingAFileCutShortReportsWhatIsThere)
{
    openProject();
    write(project + ".metadata/x", "a\0x\0b\0y"s);
    Reported entries;
    EXPECT_TRUE(store.loadMetadata(project + "x", collect, &entries));
    EXPECT_EQ(entries, (Reported{{"a", "x"}, {"b", "y"}}));
}

TEST_F(MetadataProviderTest, LoadingAnEmptyFileReportsNothingAndReturnsTrue)
{
    openProject();
    write(project + ".metadata/x", "");
    Reported entries;
    EXPECT_TRUE(store.loadMetadata(project + "x", collect, &entries));
    EXPECT_EQ(entries, Reported{});
}

TEST_F(MetadataProviderTest, LoadingAMissingFileReturnsFalse)
{
    openProject();
    Reported entries;
    EXPECT_FALSE(store.loadMetadata(project + "x", collect, &entries));
    EXPECT_EQ(entries, Reported{});
}

TEST_F(MetadataProviderTest, LoadingADirectoryReturnsFalse)
{
    openProject();
    fs::create_directory(project + ".metadata/x");
    Reported entries;
    EXPECT_FALSE(store.loadMetadata(project + "x", collect, &entries));
    EXPECT_EQ(entries, Reported{});
}

TEST_F(MetadataProviderTest, LoadingAPipeReturnsFalseWithoutWaiting)
{
    openProject();
    ASSERT_EQ(mkfifo((project + ".metadata/x").c_str(), 0600), 0);
    EXPECT_EQ(inOtherProcess([&] {
                  Reported entries;
                  return store.loadMetadata(project + "x", collect, &entries) ? 1 : 0;
              }),
              0);
}

TEST_F(MetadataProviderTest, LoadingAFileTooLargeForAnIntReturnsFalse)
{
    openProject();
    write(project + ".metadata/x", "k\0v\0\0\0"s);
    ASSERT_EQ(truncate((project + ".metadata/x").c_str(), off_t{INT_MAX} + 1), 0);
    Reported entries;
    EXPECT_FALSE(store.loadMetadata(project + "x", collect, &entries));
    EXPECT_EQ(entries, Reported{});
}

TEST_F(MetadataProviderTest, LoadingAnUnreadableFileReturnsFalse)
{
    openProject();
    write(project + ".metadata/x", "k\0v\0\0\0"s);
    fs::permissions(dir, fs::perms::all);
    fs::permissions(project + ".metadata/x", fs::perms::none);
    EXPECT_EQ(inOtherProcess([&] {
                  // Nothing is unreadable for the superuser, so that one becomes somebody else.
                  if (geteuid() == 0 && setuid(65534) != 0)
                      return 2;
                  Reported entries;
                  return store.loadMetadata(project + "x", collect, &entries) ? 1 : 0;
              }),
              0);
}

TEST_F(MetadataProviderTest, VisitorGetsTheContextUnchanged)
{
    static void* seen;
    seen = nullptr;
    int context = 0;
    store.parseMetadata(
        "k\0v\0\0", 6, [](void* ctx, const std::string&, const std::string&) { seen = ctx; },
        &context);
    EXPECT_EQ(seen, &context);

    openProject();
    ASSERT_TRUE(store.storeMetadata(project + "x", {{"k", "v"}}));
    store.loadMetadata(
        project + "x", [](void* ctx, const std::string&, const std::string&) { seen = ctx; },
        nullptr);
    EXPECT_EQ(seen, nullptr);
}

} // namespace
