#include "job/Manifest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>

using namespace host;
using ::testing::ElementsAre;

namespace {

struct Parsing
{
    Diagnostics diagnostics;
    ManifestPointer manifest;

    explicit Parsing(const std::string& text, const std::string& module = "agc")
        : manifest(parseManifest(text, "agc.yaml", module, diagnostics))
    {
    }
    std::vector<std::string> lines() const
    {
        std::vector<std::string> lines;
        for (const Diagnostic& one : diagnostics.sorted())
            lines.push_back(one.line());
        return lines;
    }
};

const char* const head = "module: agc\n"
                         "purpose: Gain control\n"
                         "inputs: {min: 1, max: 2, names: [data, pilot]}\n"
                         "outputs: {min: 1, max: any}\n";

} // namespace

TEST(ManifestTest, EverythingIsRead)
{
    const Parsing parsing(std::string(head) +
                          "version: 1.2.3\n"
                          "language: fortran\n"
                          "description: |\n  Long.\n"
                          "parameters:\n"
                          "  - name: window\n"
                          "    type: float\n"
                          "    unit: s\n"
                          "    default: 500 ms\n"
                          "    exclusive_min: 0\n"
                          "    max: 100\n"
                          "    help: Length\n"
                          "  - {name: file, type: file, required: true, help: f}\n"
                          "reads: [dt]\n"
                          "writes: [fold, {name: gain, type: float32, dimension: 2}]\n"
                          "draws: a line\n");

    ASSERT_TRUE(parsing.manifest) << ::testing::PrintToString(parsing.lines());
    const Manifest& manifest = *parsing.manifest;
    EXPECT_EQ(manifest.version, "1.2.3");
    EXPECT_EQ(manifest.language, "fortran");
    EXPECT_EQ(manifest.description, "Long.\n");
    EXPECT_EQ(manifest.inputs.countText(), "1 or 2");
    EXPECT_EQ(manifest.outputs.countText(), "1 or more");
    EXPECT_THAT(manifest.inputs.names, ElementsAre("data", "pilot"));
    EXPECT_THAT(manifest.parameterNames(), ElementsAre("window", "file"));
    const ParameterSpec& window = *manifest.find("window");
    EXPECT_EQ(window.type, ParameterType::real);
    EXPECT_EQ(window.unit, "s");
    EXPECT_EQ(window.exclusiveMin, 0);
    EXPECT_EQ(window.max, 100);
    EXPECT_FALSE(window.min);
    EXPECT_TRUE(manifest.find("file")->required);
    EXPECT_EQ(manifest.writes[0].type, 0);
    EXPECT_EQ(manifest.writes[1].type, attributeTypeCode("float32"));
    EXPECT_EQ(manifest.writes[1].dimension, 2);
    EXPECT_EQ(manifest.draws, "a line");
}

struct Mistake
{
    const char* name;
    const char* text;
    const char* line;
};

void PrintTo(const Mistake& mistake, std::ostream* stream)
{
    *stream << mistake.name;
}

class ManifestMistakeTest : public ::testing::TestWithParam<Mistake>
{
};

TEST_P(ManifestMistakeTest, IsToldWithItsPlace)
{
    const Parsing parsing(std::string(head) + GetParam().text);

    EXPECT_EQ(parsing.manifest, nullptr);
    EXPECT_THAT(parsing.lines(), ElementsAre(GetParam().line));
}

INSTANTIATE_TEST_SUITE_P(
    Mistakes, ManifestMistakeTest,
    ::testing::Values(
        Mistake{"UnknownKey", "porpose: x\n",
                "agc.yaml:5:1: the manifest has no key \"porpose\"; did you mean \"purpose\"?"},
        Mistake{"ReservedName", "parameters: [{name: input, type: text, help: h}]\n",
                "agc.yaml:5:14: parameter \"input\" has a name that job files use themselves"},
        Mistake{"BadName", "parameters: [{name: a b, type: text, help: h}]\n",
                "agc.yaml:5:14: parameter \"a b\" needs a name of letters, digits and \"_\""},
        Mistake{"NoChoices", "parameters: [{name: a, type: choice, help: h}]\n",
                "agc.yaml:5:14: parameter \"a\" is of type choice but has no \"choices\""},
        Mistake{"RangeOfText", "parameters: [{name: a, type: text, min: 1, help: h}]\n",
                "agc.yaml:5:14: parameter \"a\" has a range or a unit but is not a number"},
        Mistake{"CountOfScalar", "parameters: [{name: a, type: int, min_count: 1, help: h}]\n",
                "agc.yaml:5:14: parameter \"a\" has a number of elements but is not a list"},
        Mistake{
            "DefaultOutOfRange",
            "parameters: [{name: a, type: int, max: 3, default: 4, help: h}]\n",
            "agc.yaml:5:52: the default of parameter \"a\" is \"4\"; expected a whole number of "
            "at most 3"},
        Mistake{"RequiredDefault",
                "parameters: [{name: a, type: int, required: yes, default: 4, help: h}]\n",
                "agc.yaml:5:14: parameter \"a\" is required and has a default; remove one of them"},
        Mistake{
            "BadAttribute", "writes: [{name: a, type: float}]\n",
            "agc.yaml:5:26: the attribute: \"type\" is \"float\"; expected one of int32, int64, "
            "float32, float64, text32, text64"},
        Mistake{"ParametersNoList", "parameters: {name: a}\n",
                "agc.yaml:5:13: \"parameters\" is a group of keys; expected a list"}),
    [](const auto& row) { return row.param.name; });

TEST(ManifestTest, TheModuleIsNamedAsTheFile)
{
    const Parsing parsing(head, "gain");

    EXPECT_EQ(parsing.manifest, nullptr);
    EXPECT_THAT(
        parsing.lines(),
        ElementsAre("agc.yaml:1:1: the manifest is of the module \"agc\"; expected \"gain\", "
                    "as the file is named"));
}

TEST(ManifestTest, PortsAreCountedInWords)
{
    const auto text = [](int min, int max) {
        PortSpec ports;
        ports.min = min;
        ports.max = max;
        return ports.countText();
    };
    EXPECT_EQ(text(0, 0), "none");
    EXPECT_EQ(text(1, 1), "1");
    EXPECT_EQ(text(1, 3), "1 to 3");
    EXPECT_EQ(text(0, PortSpec::any), "any number");
}

TEST(ManifestTest, TextsMayNameAttributes)
{
    const Parsing parsing(std::string(head) +
                          "parameters:\n"
                          "  - {name: key, type: text, is: attribute, help: h}\n"
                          "  - {name: keys, type: text_list, is: sort_key, help: h}\n"
                          "  - {name: other, type: text, help: h}\n");
    ASSERT_NE(parsing.manifest, nullptr);
    EXPECT_EQ(parsing.manifest->find("key")->meaning, ParameterMeaning::attribute);
    EXPECT_EQ(parsing.manifest->find("keys")->meaning, ParameterMeaning::sortKey);
    EXPECT_EQ(parsing.manifest->find("other")->meaning, ParameterMeaning::plain);
}

TEST(ManifestTest, NumbersNameNoAttributes)
{
    const Parsing parsing(std::string(head) +
                          "parameters:\n"
                          "  - {name: key, type: int, is: attribute, help: h}\n"
                          "  - {name: keys, type: text, is: attributes, help: h}\n");
    EXPECT_THAT(
        parsing.lines(),
        ElementsAre(
            "agc.yaml:6:5: parameter \"key\" cannot name an attribute, since it is not a text",
            "agc.yaml:7:34: the parameter: \"is\" is \"attributes\"; expected one of attribute, "
            "sort_key, ranges, formula, assignment, time, span; did you mean \"attribute\"?"));
}

TEST(ManifestTest, RulesBetweenParametersAreReadAndHaveWords)
{
    const Parsing parsing(std::string(head) +
                          "parameters:\n"
                          "  - {name: times, type: float_list, unit: s, help: h}\n"
                          "  - {name: values, type: float_list, help: h}\n"
                          "  - {name: table, type: file, help: h}\n"
                          "  - {name: mode, type: choice, choices: [a, b, c], help: h}\n"
                          "rules:\n"
                          "  - {needs: [times, table]}\n"
                          "  - {when: times, needs: values}\n"
                          "  - {when: {mode: [a, b]}, excludes: values}\n"
                          "  - {same_count: [times, values]}\n"
                          "  - {ascending: times, within: values}\n"
                          "  - {not_above: [values, times]}\n"
                          "  - {multiple: times, step: 0.5}\n"
                          "  - {columns: [], named: time, of: table}\n");
    EXPECT_THAT(parsing.lines(), ElementsAre());
    ASSERT_NE(parsing.manifest, nullptr);
    std::vector<std::string> texts;
    for (const ParameterRule& rule : parsing.manifest->rules)
        texts.push_back(rule.text());
    EXPECT_THAT(texts, ElementsAre("times or table is required", "times needs values",
                                   "mode a or b excludes values",
                                   "times and values have the same number of elements",
                                   "the elements of times ascend where values is the same",
                                   "values is not above times", "times is a multiple of 0.5",
                                   "table has the columns time, with a number in each row"));
}

TEST(ManifestTest, RulesThatDoNotFitTheParametersAreRefused)
{
    const Parsing parsing(std::string(head) +
                          "parameters:\n"
                          "  - {name: times, type: float_list, help: h}\n"
                          "  - {name: mode, type: choice, choices: [a, b], help: h}\n"
                          "rules:\n"
                          "  - {below: [times, wrong]}\n"
                          "  - {ascending: mode}\n"
                          "  - {needs: times, excludes: times}\n"
                          "  - {when: {mode: c}, needs: times}\n"
                          "  - {multiple: times}\n"
                          "  - {columns: [], of: times}\n"
                          "  - {same_count: times}\n"
                          "  - {need: times}\n");
    EXPECT_EQ(parsing.manifest, nullptr);
    EXPECT_THAT(
        parsing.lines(),
        testing::AllOf(
            testing::Contains("agc.yaml:9:5: the rule names \"wrong\", which is not a parameter of "
                              "this module"),
            testing::Contains("agc.yaml:10:5: the rule names \"mode\", which is not a number"),
            testing::Contains(
                testing::StartsWith("agc.yaml:11:5: the rule has several of the keys")),
            testing::Contains(
                "agc.yaml:12:5: the rule names \"c\", which is not a choice of \"mode\""),
            testing::Contains(
                "agc.yaml:13:5: the rule needs the key \"step\" with a number above 0"),
            testing::Contains("agc.yaml:14:5: the rule for \"columns\" needs the key \"of\" with a "
                              "parameter that is a file"),
            testing::Contains("agc.yaml:15:5: the rule has 1 parameter for \"same_count\", which "
                              "needs 2 at least")));
}
