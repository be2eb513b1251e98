
#include "base/Escaping.h"
#include "base/Numbers.h"
#include "base/Quantities.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "base/TextLayout.h"

#include <gtest/gtest.h>

using namespace host;

TEST(TextToolsTest, NothingThatATerminalObeysIsLeft)
{
    struct
    {
        const char* text;
        const char* expected;
    } const rows[] = {
        {"plain Größe 日本", "plain Größe 日本"},
        {"\x1b[31mred", "\\x1b[31mred"},
        {"a\r\n\tb", "a\\r\\n\\tb"},
        {"\x7f", "\\x7f"},
        {"\xc2\x9b", "\\x9b"},                        // a control of eight bits, as UTF-8
        {"\x9b", "\\x9b"},                            // the same without
        {"\xe2\x80\xae", "\\u202e"},                  // right to left from here
        {"\xef\xbb\xbf", "\\ufeff"},                  // byte order mark
        {"\xc0\x80", "\\xc0\\x80"},                   // overlong
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},          // half of a surrogate pair
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"}, // beyond Unicode
        {"\xe2\x82", "\\xe2\\x82"},                   // cut
    };
    for (const auto& row : rows)
        EXPECT_EQ(escaped(row.text), row.expected);
}

TEST(TextToolsTest, AnEmptyByteIsShown)
{
    EXPECT_EQ(escaped(std::string("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(escapedLines(std::string("a\0\nb", 4)), "a\\x00\nb");
}

TEST(TextToolsTest, QuotedTextShowsItsOwnQuotes)
{
    EXPECT_EQ(quote("a \"b\" \\ c\n"), "\"a \\\"b\\\" \\\\ c\\n\"");
}

TEST(TextToolsTest, AWordOfTheShellIsOneWordThere)
{
    EXPECT_EQ(shellWord("data/line_7.sgy"), "data/line_7.sgy");
    EXPECT_EQ(shellWord(""), "''");
    EXPECT_EQ(shellWord("two words"), "'two words'");
    EXPECT_EQ(shellWord("it's"), "'it'\\''s'");
    EXPECT_EQ(shellWord("$(rm) `x` *"), "'$(rm) `x` *'");
    EXPECT_EQ(shellWord("Größe"), "'Größe'");
    EXPECT_EQ(shellWord("a\nb'\\\xff"), "$'a\\012b\\'\\\\\\377'");
}

TEST(TextToolsTest, TheNearestNameIsNearEnough)
{
    const std::vector<std::string> names = {"window", "mode", "level"};

    EXPECT_EQ(nearestName("windw", names), "window");
    EXPECT_EQ(nearestName("WINDOW", names), "window");
    EXPECT_EQ(nearestName("wnidow", names), "window");
    EXPECT_EQ(nearestName("mod", names), "mode");
    EXPECT_EQ(nearestName("width", names), "");
    EXPECT_EQ(nearestName("x", names), "");
    EXPECT_EQ(nearestName("", names), "");
    EXPECT_EQ(nearestName(std::string(1000000, 'w'), names), "");
}

TEST(TextToolsTest, TextIsBrokenAtBlanks)
{
    EXPECT_EQ(wrapped("one two three\n\nfour", 9, 2), "  one two\n  three\n\n  four\n");
    EXPECT_EQ(wrapped("averylongword b", 5, 0), "averylongword\nb\n");
    EXPECT_EQ(wrapped("", 80, 0), "");
}

TEST(TextToolsTest, ColumnsAreAlignedByCharacters)
{
    TextTable table("lr");
    table.row({"größe", "1"});
    table.row({"x", "100"});

    EXPECT_EQ(table.text(1), " größe    1\n x      100\n");
}

TEST(TextToolsTest, DurationsHaveAUnitOrAreSeconds)
{
    EXPECT_EQ(parseDuration("90"), 90.0);
    EXPECT_EQ(parseDuration("90 s"), 90.0);
    EXPECT_EQ(parseDuration("0.5s"), 0.5);
    EXPECT_EQ(parseDuration("250 ms"), 0.25);
    EXPECT_EQ(parseDuration("5 min"), 300.0);
    EXPECT_EQ(parseDuration("2 h"), 7200.0);
    EXPECT_EQ(parseDuration("1 d"), 86400.0);
    EXPECT_EQ(parseDuration("-1 s"), -1.0) << "whether it makes sense is the caller's business";
    for (const char* text : {"", " ", "s", "soon", "5 minutes", "5 min 3 s", "5 m in", "1:30", "1e",
                             "inf", "nan", "0x10", "5\n"})
        EXPECT_EQ(parseDuration(text), std::nullopt) << text;
}

TEST(TextToolsTest, QuantitiesHaveAFewDigits)
{
    EXPECT_EQ(formatMicros(0), "0 us");
    EXPECT_EQ(formatMicros(7.25), "7.2 us");
    EXPECT_EQ(formatMicros(999), "999 us");
    EXPECT_EQ(formatMicros(1234), "1.234 ms");
    EXPECT_EQ(formatMicros(123456), "123.5 ms");
    EXPECT_EQ(formatMicros(999960), "1.000 s");
    EXPECT_EQ(formatMicros(61.5e6), "61.50 s");
    EXPECT_EQ(formatMicros(125e6), "2 min 05 s");
    EXPECT_EQ(formatMicros(7500e6), "2 h 05 min");
    EXPECT_EQ(formatBytes(0), "0 B");
    EXPECT_EQ(formatBytes(999), "999 B");
    EXPECT_EQ(formatBytes(1234567), "1.235 MB");
    EXPECT_EQ(formatBytes(999999), "1.000 MB");
    EXPECT_EQ(formatRate(0.25), "0.250");
    EXPECT_EQ(formatRate(12345.6), "12346");
    EXPECT_EQ(formatNumber(10000000), "10000000");
    EXPECT_EQ(formatSignificant(0), "0.000");
    EXPECT_EQ(formatSignificant(0.8125), "0.8125");
    EXPECT_EQ(formatSignificant(12.5), "12.50");
    EXPECT_EQ(formatSignificant(40961.4), "40961");
    EXPECT_EQ(formatSignificant(1.225e-9), "1.225e-09");
    EXPECT_EQ(formatSignificant(-3.5e+20), "-3.5e+20");
    EXPECT_EQ(formatNumber(0.1), "0.1");
    EXPECT_EQ(counted(1, "trace"), "1 trace");
    EXPECT_EQ(counted(0, "trace"), "0 traces");
}

TEST(TextToolsTest, OrdinalsAreThoseOfEnglish)
{
    const std::pair<int64_t, const char*> rows[] = {
        {1, "1st"},       {2, "2nd"},        {3, "3rd"},     {4, "4th"},     {10, "10th"},
        {11, "11th"},     {12, "12th"},      {13, "13th"},   {21, "21st"},   {22, "22nd"},
        {23, "23rd"},     {101, "101st"},    {111, "111th"}, {112, "112th"}, {122, "122nd"},
        {1013, "1013th"}, {50000, "50000th"}};
    for (const auto& [number, text] : rows)
        EXPECT_EQ(ordinal(number), text);
}
