#include "job/YamlReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>

using namespace host;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

std::vector<std::string> linesOf(const Diagnostics& diagnostics)
{
    std::vector<std::string> lines;
    for (const Diagnostic& one : diagnostics.sorted())
        lines.push_back(one.line());
    return lines;
}

struct Reading
{
    Diagnostics diagnostics;
    YamlValue document;

    explicit Reading(const std::string& text) : document(readYaml(text, "f", diagnostics)) {}
    std::vector<std::string> lines() const { return linesOf(diagnostics); }
};

std::string placeText(const Place& place)
{
    return std::to_string(place.line) + ":" + std::to_string(place.column);
}

} // namespace

TEST(YamlReaderTest, KeysAndValuesKnowTheirPlaces)
{
    const Reading reading("a: 1\n"
                          "list:\n"
                          "  - x\n"
                          "  - {b:  two}\n");

    ASSERT_THAT(reading.lines(), IsEmpty());
    const YamlEntry* list = reading.document->find("list");
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(placeText(list->place), "2:1");
    EXPECT_EQ(placeText(list->value->items.at(0)->place), "3:5");
    const YamlEntry& b = list->value->items.at(1)->entries.at(0);
    EXPECT_EQ(placeText(b.place), "4:6");
    EXPECT_EQ(placeText(b.value->place), "4:10");
    EXPECT_EQ(b.value->text, "two");
}

TEST(YamlReaderTest, QuotesMakeATextOfWhatLooksLikeANumber)
{
    const Reading reading("{plain: 12, quoted: \"12\", single: '12'}");

    EXPECT_FALSE(reading.document->find("plain")->value->isQuoted);
    EXPECT_TRUE(reading.document->find("quoted")->value->isQuoted);
    EXPECT_TRUE(reading.document->find("single")->value->isQuoted);
}

TEST(YamlReaderTest, AnAliasHasTheValueOfItsAnchor)
{
    const Reading reading("a: &x [1, 2]\nb: *x\n");

    ASSERT_THAT(reading.lines(), IsEmpty());
    EXPECT_EQ(reading.document->find("b")->value->items.at(1)->text, "2");
}

TEST(YamlReaderTest, ARepeatedKeyKeepsTheFirstValue)
{
    const Reading reading("a: 1\nb: 2\na: 3\n");

    EXPECT_THAT(reading.lines(),
                ElementsAre("f:3:1: key \"a\" is already given in line 1; remove one of them"));
    EXPECT_EQ(reading.document->find("a")->value->text, "1");
    EXPECT_EQ(reading.document->entries.size(), 2u);
}

struct Refusal
{
    const char* name;
    std::string text;
    const char* line;
};

void PrintTo(const Refusal& refusal, std::ostream* stream)
{
    *stream << refusal.name;
}

class YamlRefusalTest : public ::testing::TestWithParam<Refusal>
{
};

TEST_P(YamlRefusalTest, IsToldWithItsPlace)
{
    const Reading reading(GetParam().text);
    EXPECT_THAT(reading.lines(), ElementsAre(GetParam().line)) << GetParam().name;
}

INSTANTIATE_TEST_SUITE_P(
    Mistakes, YamlRefusalTest,
    ::testing::Values(
        Refusal{"merge key", "a: {x: 1}\nb: {<<: {x: 1}}\n",
                "f:2:5: merge keys (\"<<\") are not supported; write the keys out"},
        Refusal{"key is a list", "[1]: a\n", "f:1:1: a key must be a name, not a list"},
        Refusal{"tag", "a: !!int 12\n",
                "f:1:4: tags are not supported; remove \"tag:yaml.org,2002:int\""},
        Refusal{"two documents", "a: 1\n---\nb: 1\n",
                "f:2:1: a second document begins here; only one is allowed"},
        Refusal{"empty", "", "f: is empty"}, Refusal{"comment only", "# nothing\n", "f: is empty"},
        Refusal{"tab", "a:\n\tb: 1\n",
                "f:2:1: this line is indented with a tab; YAML allows only blanks"},
        Refusal{"open bracket", "a: [1, 2\n",
                "f:2:1: this is not valid YAML: end of sequence flow not found"},
        Refusal{"unknown alias", "a: *x\n",
                "f:1:4: this is not valid YAML: the referenced anchor is not defined"},
        Refusal{"alias inside its anchor", "a: &x [*x]\n",
                "f:1:8: this alias is part of the value that it refers to"},
        Refusal{"NUL", std::string("a: 1\nb: \0", 9),
                "f:2:4: this is not UTF-8 text; is it a data file?"},
        Refusal{"Latin 1", "a: \xe4\n", "f:1:4: this is not UTF-8 text; is it a data file?"}),
    [](const auto& row) {
        std::string name = row.param.name;
        for (char& c : name)
            c = c == ' ' ? '_' : c;
        return name;
    });

TEST(YamlReaderTest, NestingWithoutEndIsAnErrorAndNoCrash)
{
    const Reading reading("a: " + std::string(200000, '['));

    EXPECT_EQ(reading.document, nullptr);
    EXPECT_EQ(reading.diagnostics.errors(), 1);
}

TEST(YamlReaderTest, AliasesOfAliasesAreNotCopied)
{
    std::string text = "a0: &a0 [x, x, x, x, x, x, x, x, x, x]\n";
    for (int i = 1; i < 40; ++i) {
        const std::string former = "*a" + std::to_string(i - 1);
        text += "a" + std::to_string(i) + ": &a" + std::to_string(i) + " [" + former + ", " +
                former + ", " + former + "]\n";
    }

    const Reading reading(text); // spelled out: 3 to the power of 39 lists

    EXPECT_THAT(reading.lines(), IsEmpty());
    EXPECT_EQ(reading.document->entries.size(), 40u);
}

TEST(YamlReaderTest, AWordOfTheCommandLineIsAScalarUnlessItBeginsAList)
{
    Diagnostics diagnostics;

    const YamlValue scalar = readYamlValue("a: b # c", "--set x", diagnostics);
    const YamlValue list = readYamlValue("[1, 2 s]", "--set x", diagnostics);
    const YamlValue nothing = readYamlValue("", "--set x", diagnostics);

    EXPECT_FALSE(diagnostics.hasErrors());
    EXPECT_EQ(scalar->text, "a: b # c");
    ASSERT_TRUE(list->isList());
    EXPECT_EQ(list->items.at(1)->text, "2 s");
    EXPECT_EQ(list->items.at(1)->place.text(), "--set x");
    EXPECT_TRUE(nothing->isNull());
}

TEST(YamlReaderTest, AFileThatCannotBeReadIsNamed)
{
    Diagnostics diagnostics;

    EXPECT_EQ(readYamlFile("/nowhere/job.yaml", diagnostics), nullptr);
    EXPECT_EQ(readYamlFile("/", diagnostics), nullptr);

    EXPECT_THAT(linesOf(diagnostics),
                ElementsAre("/nowhere/job.yaml: cannot be read: No such file or directory",
                            "/: is a directory; a file is needed"));
}
