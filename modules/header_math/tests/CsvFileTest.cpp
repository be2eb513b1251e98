#include "words/CsvFile.h"
#include "TextFiles.h"
#include "words/KeyedTable.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

std::string refusal(const std::function<void()>& action)
{
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

class CsvFileTest : public testing::Test
{
protected:
    std::string csv(const std::string& text) { return files.write("table.csv", text); }

    TextFiles files;
};

TEST_F(CsvFileTest, CellsAreNumbersByColumnAndRow)
{
    const words::CsvFile table(csv("# statics\n\nfldr, tstat ,note\n3,-1.5e1,\"a, b\"\n4,+20,c\n"));

    EXPECT_THAT(table.columns(), ElementsAre("fldr", "tstat", "note"));
    ASSERT_EQ(table.rows(), 2U);
    EXPECT_EQ(table.number(0, table.column("tstat")), -15);
    EXPECT_EQ(table.number(1, table.column("tstat")), 20);
    EXPECT_EQ(table.number(1, table.column("fldr")), 4);
    EXPECT_EQ(table.line(1), 5);
}

TEST_F(CsvFileTest, SemicolonsTabsMarksAndCarriageReturnsAreUnderstood)
{
    for (const char* text : {"a;b\n1;2\n", "a\tb\n1\t2\n",
                             "\xEF\xBB\xBF"
                             "a,b\r\n1,2\r\n"})
    {
        const words::CsvFile table(csv(text));
        EXPECT_THAT(table.columns(), ElementsAre("a", "b"));
        EXPECT_EQ(table.number(0, 1), 2);
    }
}

TEST_F(CsvFileTest, FilesAreRefusedWithTheirLine)
{
    const struct
    {
        std::string text;
        const char* message;
    } rows[] = {
        {"", "the file is empty"},
        {"a,b\n", "no row follows"},
        {"a,,c\n1,2,3\n", ":1: column 2 has no name"},
        {"a,b,a\n1,2,3\n", ":1: two columns are named \"a\""},
        {"a,b\n1,2\n3\n", ":3: the row has 1 cells, and there are 2 columns"},
        {std::string("a,b\n1,\0\n", 8), ":2: a byte is 0"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(refusal([&] { words::CsvFile table(csv(row.text)); }), HasSubstr(row.message));
    EXPECT_THAT(refusal([&] { words::CsvFile table(files.path("none")); }),
                HasSubstr("No such file"));
    EXPECT_THAT(refusal([&] { words::CsvFile table(files.path("")); }),
                HasSubstr("not a regular file"));
}

TEST_F(CsvFileTest, CellsThatAreNotNumbersAreRefused)
{
    const words::CsvFile table(csv("a,b\nx,\n1e999,nan\n1 2,inf\n"));

    EXPECT_THAT(refusal([&] { table.number(0, 0); }),
                EndsWith(":2: a is \"x\"; give a finite number"));
    EXPECT_THAT(refusal([&] { table.number(0, 1); }), HasSubstr("b is \"\""));
    for (std::size_t row = 1; row < 3; ++row)
        for (std::size_t column = 0; column < 2; ++column)
            EXPECT_THAT(refusal([&] { table.number(row, column); }), HasSubstr("finite number"));
    EXPECT_THAT(refusal([&] { table.column("c"); }),
                EndsWith("the column \"c\" does not exist; the columns are a, b"));
}

TEST_F(CsvFileTest, RowsAreFoundByTheirKey)
{
    const words::KeyedTable table(csv("shot,x,rec,y\n1,10,1,11\n1,20,2,21\n2,30,1,31\n"),
                                  {"shot", "rec"}, {"y", "x"});

    EXPECT_EQ(table.size(), 3U);
    ASSERT_NE(table.find({1, 2}), nullptr);
    EXPECT_EQ(table.find({1, 2})[0], 21);
    EXPECT_EQ(table.find({1, 2})[1], 20);
    EXPECT_EQ(table.find({2, 1})[0], 31);
    EXPECT_EQ(table.find({2, 2}), nullptr);
}

TEST_F(CsvFileTest, KeysThatRepeatAreRefusedWithBothLines)
{
    const std::string path = csv("a,b\n1.5,2\n3,4\n1.5,5\n");

    EXPECT_THAT(refusal([&] { words::KeyedTable table(path, {"a"}, {"b"}); }),
                EndsWith(":4: a 1.5 is also in line 2; give each key one row"));
}

TEST_F(CsvFileTest, AFirstLineOfNumbersIsARowWhereNamesAreGiven)
{
    const std::string path = csv("7,0.5\n8,1\n");

    const words::CsvFile table(path, {"cdp", "weight"});
    EXPECT_EQ(table.rows(), 2U);
    EXPECT_EQ(table.number(0, table.column("weight")), 0.5);
    EXPECT_EQ(table.text(1, 0), "8");
    EXPECT_EQ(words::CsvFile(path, {"cdp"}).columns().front(), "7") << "of other widths, names";
    EXPECT_EQ(words::CsvFile(path).rows(), 1U);
    EXPECT_EQ(words::CsvFile(csv("a,b\n1,2\n"), {"cdp", "weight"}).columns().front(), "a");
}

} // namespace
