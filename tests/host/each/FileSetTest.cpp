#include "each/FileSet.h"

#include "base/CommandError.h"

#include "TestTree.h"

#include <filesystem>
#include <gmock/gmock.h>

using namespace host;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(FileSetTest, FoldersHaveHarmlessNames)
{
    struct
    {
        const char* file;
        const char* folder;
    } const rows[] = {
        {"/data/line_7.sgy", "line_7"},
        {"line.2024.sgy", "line.2024"},
        {"line", "line"},
        {"a b'c\"d$e*.sgy", "a_b_c_d_e_"},
        {"-rf.sgy", "_rf"},
        {".hidden.sgy", "_hidden"},
        {"..sgy", "_"},
        {"...sgy", "_."},
        {"two\nlines.sgy", "two_lines"},
        {"Größe.sgy", "Größe"},
        {"\xe2\x80\xaegnp.sgy", "_gnp"}, // right to left from here
        {"bad\xff\xfe.sgy", "bad__"},    // bytes that are not UTF-8
        {"bad\xc3.sgy", "bad_"},         // half a character
    };
    for (const auto& row : rows)
        EXPECT_EQ(folderName(row.file), row.folder) << row.file;
    EXPECT_EQ(folderName(std::string(300, 'x') + ".sgy"), std::string(100, 'x'));
    std::string umlauts = "x";
    for (int i = 0; i < 100; ++i)
        umlauts += "ö";
    EXPECT_EQ(folderName(umlauts).size(), 99u) << "the last character is whole";
}

TEST(FileSetTest, FilesAreFoundOnceInTheOrderOfTheirNumbers)
{
    const TestTree tree;
    for (const char* name : {"l10.sgy", "l9.sgy", "m.txt"})
        tree.write(name, "x");
    std::filesystem::create_directory(tree.path("l.sgy"));

    const FileSet set =
        findFiles({tree.path("*.sgy"), tree.path("l9.*")}, tree.path("out"), "--each");

    EXPECT_THAT(set.files, ElementsAre(tree.path("l9.sgy"), tree.path("l10.sgy")));
    EXPECT_THAT(set.notes, ElementsAre("1 match left out: not regular files",
                                       "1 name left out: of a file that has another one"));
}

TEST(FileSetTest, WhereOnlyResultsMatchThereIsNothingToRun)
{
    const TestTree tree;
    std::filesystem::create_directories(tree.path("out/line/deep"));
    tree.write("out/line/deep/line.sgy", "x");
    const std::string pattern = tree.path("out/*/*/*.sgy");

    try {
        findFiles({pattern}, tree.path("out"), "--each");
        FAIL() << "the file was taken";
    } catch (const CommandError& error) {
        EXPECT_THAT(error.what(), HasSubstr("1 file left out: in a folder of results"));
    }
    EXPECT_EQ(findFiles({pattern}, tree.path("other"), "--each").files.size(), 1u);
    tree.write(std::string("out/line/") + recordName, "{}");
    EXPECT_THROW(findFiles({pattern}, tree.path("other"), "--each"), CommandError);
}

TEST(FileSetTest, NumbersTellFoldersOfOneNameApart)
{
    const TestTree tree;
    std::filesystem::create_directory(tree.path("b"));
    tree.write("b/something", "of somebody");
    FolderNames names(tree.work());
    std::vector<std::string> notes;

    EXPECT_THAT(names.forFiles({"/1/a.sgy", "/2/a.sgy", "/1/a.su", "/1/b.sgy", "/1/c.sgy"}, notes),
                ElementsAre("a", "a-2", "a-3", "b-2", "c"));

    EXPECT_THAT(notes,
                ElementsAre("the results of \"/2/a.sgy\" are in the folder \"a-2\", since \"a\" is "
                            "that of another file",
                            "the results of \"/1/a.su\" are in the folder \"a-3\", since \"a\" is "
                            "that of another file",
                            "the results of \"/1/b.sgy\" are in the folder \"b-2\", since \"b\" is "
                            "there already"));
    EXPECT_EQ(names.others(), 0);
}
