#include "vorn_tools.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace {

// The field, converted into a heap block of exactly the room that is asked for, of which every byte
// was '#' before.
using Converter = void (*)(const char*, char*, int);

std::string toC(Converter convert, const std::string& field)
{
    std::vector<char> room(field.size() + 1, '#');
    const std::vector<char> source(field.begin(), field.end()); // no NUL behind it
    convert(source.data(), room.data(), static_cast<int>(field.size()));
    return std::string(room.data());
}

std::string toFortran(const std::string& text, int length)
{
    std::vector<char> field(static_cast<size_t>(length), '#');
    c2fcpy(text.c_str(), field.data(), length);
    return std::string(field.begin(), field.end());
}

int compare(const std::string& field, const std::string& text)
{
    const std::vector<char> source(field.begin(), field.end());
    return f2ccmp(source.data(), text.c_str(), static_cast<int>(field.size()));
}

TEST(VornToolsTest, FieldLosesLeadingAndTrailingBlanks)
{
    const struct
    {
        const char* field;
        const char* text;
    } rows[] = {
        {"  ab  ", "ab"},     {"ab", "ab"},
        {"ab  ", "ab"},       {"  ab", "ab"},
        {"      ", ""},       {" ", ""},
        {"a", "a"},           {" a b ", "a b"},
        {"\tab\n", "\tab\n"}, {"  a  b  c  ", "a  b  c"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(toC(f2ccpy, row.field), row.text) << '"' << row.field << '"';
}

TEST(VornToolsTest, LeadingBlanksCanBeKept)
{
    const struct
    {
        const char* field;
        const char* text;
    } rows[] = {
        {"  ab  ", "  ab"}, {"ab", "ab"}, {"  ab", "  ab"}, {"      ", ""}, {" a b ", " a b"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(toC(f2ccpy_leadbl, row.field), row.text) << '"' << row.field << '"';
}

TEST(VornToolsTest, NulWithinAFieldIsCopied)
{
    const char field[] = {' ', 'a', '\0', 'b', ' '};
    char dest[6] = {'#', '#', '#', '#', '#', '#'};
    f2ccpy(field, dest, 5);
    EXPECT_EQ(std::string(dest, 6), std::string("a\0b\0\0#", 6));

    char kept[6] = {'#', '#', '#', '#', '#', '#'};
    f2ccpy_leadbl(field, kept, 5);
    EXPECT_EQ(std::string(kept, 6), std::string(" a\0b\0\0", 6));
}

TEST(VornToolsTest, EveryTrailingBlankBecomesANul)
{
    char dest[8] = {'#', '#', '#', '#', '#', '#', '#', '#'};
    f2ccpy(" ab   ", dest, 6);
    EXPECT_EQ(std::string(dest, 8), std::string("ab\0\0\0\0##", 8));
}

TEST(VornToolsTest, EmptyFieldGivesEmptyText)
{
    for (Converter convert : {f2ccpy, f2ccpy_leadbl}) {
        for (int length : {0, -1, INT_MIN}) {
            SCOPED_TRACE(length);
            char dest[2] = {'#', '#'};
            convert("ab", dest, length);
            EXPECT_EQ(std::string(dest, 2), std::string("\0#", 2));
        }
    }
}

TEST(VornToolsTest, NullFieldGivesEmptyTextAndNullDestinationNone)
{
    for (Converter convert : {f2ccpy, f2ccpy_leadbl}) {
        char dest[2] = {'#', '#'};
        convert(nullptr, dest, 5);
        EXPECT_EQ(std::string(dest, 2), std::string("\0#", 2));
        convert("ab", nullptr, 2);
    }
}

TEST(VornToolsTest, FieldCanBeConvertedInPlace)
{
    for (const char* field : {"  abc ", "abc   "}) {
        SCOPED_TRACE(field);
        char text[7];
        std::strcpy(text, field);
        f2ccpy(text, text, 6);
        EXPECT_STREQ(text, "abc");
    }
}

TEST(VornToolsTest, TextIsPaddedWithBlanks)
{
    EXPECT_EQ(toFortran("abc", 5), "abc  ");
    EXPECT_EQ(toFortran("", 3), "   ");
    EXPECT_EQ(toFortran(" a ", 5), " a   ");
}

TEST(VornToolsTest, LongTextIsCut)
{
    EXPECT_EQ(toFortran("abcdef", 3), "abc");
    EXPECT_EQ(toFortran("abc", 3), "abc") << "without a NUL";
}

TEST(VornToolsTest, TextEndsAtItsFirstNewline)
{
    EXPECT_EQ(toFortran("a\nb", 4), "a   ");
    EXPECT_EQ(toFortran("\nab", 2), "  ");
    EXPECT_EQ(toFortran("a\rb\t", 4), "a\rb\t");
}

TEST(VornToolsTest, FieldWithoutRoomIsLeftAlone)
{
    for (int length : {0, -1, INT_MIN}) {
        SCOPED_TRACE(length);
        char dest[2] = {'#', '#'};
        c2fcpy("ab", dest, length);
        EXPECT_EQ(std::string(dest, 2), "##");
    }
    c2fcpy("ab", nullptr, 2);
}

TEST(VornToolsTest, NullTextGivesABlankField)
{
    char dest[4] = {'#', '#', '#', '#'};
    c2fcpy(nullptr, dest, 3);
    EXPECT_EQ(std::string(dest, 4), "   #");
}

TEST(VornToolsTest, SourceIsNotReadBeyondTheField)
{
    const std::vector<char> unterminated = {'a', 'b', 'c'};
    char dest[3] = {'#', '#', '#'};
    c2fcpy(unterminated.data(), dest, 3);
    EXPECT_EQ(std::string(dest, 3), "abc");
}

TEST(VornToolsTest, FieldEqualsTextApartFromBlanksAround)
{
    const struct
    {
        const char* field;
        const char* text;
        int equal;
    } rows[] = {
        {"  ab   ", "ab", 1},   {"ab", "ab", 1},        {"ab", "abc", 0},   {"ab", "ab  ", 1},
        {"abc", "ab", 0},       {"ab c", "ab", 0},      {"ab", "ab  c", 0}, {"ab  ", "ab c", 0},
        {"  ab", "  ab", 0},    {"ab", " ab", 0},       {"Ab", "ab", 0},    {"a b", "a b", 1},
        {"a  b", "a b", 0},     {"    ", "", 1},        {"    ", "   ", 1}, {"", "", 1},
        {"", "  ", 1},          {"", "a", 0},           {"a", "", 0},       {"  ", "a", 0},
        {"ab  ", "ab     ", 1}, {"ab     ", "ab  ", 1},
    };
    for (const auto& row : rows)
        EXPECT_EQ(compare(row.field, row.text), row.equal)
            << '"' << row.field << "\" and \"" << row.text << '"';
}

TEST(VornToolsTest, NulWithinAFieldIsNoBlank)
{
    EXPECT_EQ(compare(std::string("ab\0", 3), "ab"), 0);
    EXPECT_EQ(compare(std::string("ab\0 ", 4), "ab"), 0);
}

TEST(VornToolsTest, ComparedWithNothingOnlyBlanksAreEqual)
{
    EXPECT_EQ(f2ccmp(nullptr, "ab", 2), 0);
    EXPECT_EQ(f2ccmp(nullptr, "  ", 2), 1);
    EXPECT_EQ(f2ccmp("ab", nullptr, 2), 0);
    EXPECT_EQ(f2ccmp("  ", nullptr, 2), 1);
    EXPECT_EQ(f2ccmp("ab", "", 0), 1);
    EXPECT_EQ(f2ccmp("ab", "ab", -1), 0);
}

} // namespace
