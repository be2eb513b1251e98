#include "job/ParameterValue.h"

#include "base/Units.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace host;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

ParameterSpec specOf(ParameterType type, const std::string& unit = "")
{
    ParameterSpec spec;
    spec.name = "p";
    spec.type = type;
    spec.unit = unit;
    return spec;
}

struct Conversion
{
    Diagnostics diagnostics;
    std::optional<ParameterValue> value;

    Conversion(const ParameterSpec& spec, const std::string& yaml)
    {
        const YamlValue node = readYaml(yaml, "f", diagnostics);
        value = convertParameter(spec, node, "/jobs", "parameter \"p\"", diagnostics);
    }
    std::string text() const { return value ? value->text : "(nothing)"; }
    std::string error() const
    {
        return diagnostics.hasErrors() ? diagnostics.sorted().front().text : "";
    }
};

} // namespace

TEST(UnitsTest, NumbersOfOneQuantityConvert)
{
    struct
    {
        double value;
        const char* from;
        const char* to;
        double expected;
    } const rows[] = {
        {500, "ms", "s", 0.5},    {3, "ms", "s", 0.003}, {0.5, "s", "ms", 500},
        {4000, "us", "s", 0.004}, {7, "µs", "us", 7},    {1.5, "kHz", "Hz", 1500},
        {30, "Hz", "kHz", 0.03},  {2, "km", "m", 2000},  {1.8, "km/s", "m/s", 1800},
        {10, "%", "percent", 10}, {3, "dB", "dB", 3},    {2, "GB", "MB", 2000},
        {500, "kB", "MB", 0.5},
    };
    for (const auto& row : rows)
        EXPECT_EQ(convertUnit(row.value, row.from, row.to), row.expected)
            << row.value << row.from << " in " << row.to;
}

TEST(UnitsTest, DifferentQuantitiesDoNotConvert)
{
    EXPECT_FALSE(convertUnit(1, "s", "Hz"));
    EXPECT_FALSE(convertUnit(1, "m", "s"));
    EXPECT_FALSE(convertUnit(1, "MB", "m"));
    EXPECT_FALSE(convertUnit(1, "ft", "m"));
    EXPECT_FALSE(convertUnit(1, "S", "s"));
    EXPECT_FALSE(convertUnit(1, "ms", "samples"));
}

TEST(ParameterValueTest, AFloatArrivesInTheUnitOfTheManifest)
{
    struct
    {
        const char* yaml;
        double expected;
    } const rows[] = {
        {"0.5 s", 0.5},     {"0.5s", 0.5}, {"500 ms", 0.5},  {"500ms", 0.5},
        {"0.5", 0.5},       {"5e-1", 0.5}, {"5E-1 s", 0.5},  {"+.5", 0.5},
        {"\"0.5 s\"", 0.5}, {"-2 s", -2},  {"1e3 us", 1e-3},
    };
    for (const auto& row : rows) {
        const Conversion conversion(specOf(ParameterType::real, "s"), row.yaml);
        ASSERT_TRUE(conversion.value) << row.yaml << ": " << conversion.error();
        EXPECT_EQ(conversion.value->value.getType(), float64Type) << row.yaml;
        EXPECT_EQ(conversion.value->value.getF64Value(), row.expected) << row.yaml;
    }
}

TEST(ParameterValueTest, WhatIsNoNumberIsRefused)
{
    for (const char* yaml : {"abc", "1,5", "1.2.3", "0x10", "nan", "inf", "1e999", "--1", "+-1",
                             "s", "1 Hz", "1 ms s", "[1]", "{a: 1}", "~"})
    {
        const Conversion conversion(specOf(ParameterType::real, "s"), yaml);
        EXPECT_FALSE(conversion.value) << yaml;
        EXPECT_THAT(conversion.error(),
                    ::testing::HasSubstr("expected a number in s (also ms, us)"))
            << yaml;
    }
}

TEST(ParameterValueTest, AnIntegerIsWide64BitOnlyWhereItMustBe)
{
    const Conversion narrow(specOf(ParameterType::integer), "-2147483648");
    const Conversion wide(specOf(ParameterType::integer), "2147483648");
    const Conversion widest(specOf(ParameterType::integer), "9223372036854775807");

    EXPECT_EQ(narrow.value->value.getType(), int32Type);
    EXPECT_EQ(narrow.value->value.getI32Value(), -2147483647 - 1);
    EXPECT_EQ(wide.value->value.getType(), int64Type);
    EXPECT_EQ(wide.value->value.getI64Value(), 2147483648);
    EXPECT_EQ(widest.value->value.getI64Value(), 9223372036854775807);
}

TEST(ParameterValueTest, AnIntegerWithAUnitMustStayWhole)
{
    EXPECT_EQ(Conversion(specOf(ParameterType::integer, "us"), "4 ms").text(), "4000");
    EXPECT_EQ(Conversion(specOf(ParameterType::integer, "ms"), "4.5 ms").text(), "(nothing)");
    EXPECT_EQ(Conversion(specOf(ParameterType::integer, "us"), "1e30 s").text(), "(nothing)");
}

TEST(ParameterValueTest, BoundsAreKeptAndSaid)
{
    ParameterSpec closed = specOf(ParameterType::real);
    closed.min = 0;
    closed.max = 100;
    ParameterSpec open = specOf(ParameterType::real, "Hz");
    open.exclusiveMin = 0;
    open.exclusiveMax = 250;

    EXPECT_EQ(Conversion(closed, "0").text(), "0");
    EXPECT_EQ(Conversion(closed, "100").text(), "100");
    EXPECT_EQ(Conversion(closed, "100.5").error(),
              "parameter \"p\" is \"100.5\"; expected a number from 0 to 100");
    EXPECT_EQ(Conversion(open, "0").error(),
              "parameter \"p\" is \"0\"; expected a number above 0 and below 250 in Hz (also kHz)");
    EXPECT_EQ(Conversion(open, "0.25 kHz").text(), "(nothing)");
    EXPECT_EQ(Conversion(open, "0.2499 kHz").text(), "249.9");
}

TEST(ParameterValueTest, BooleansAreZeroOrOne)
{
    for (const char* yaml : {"true", "yes", "on", "True", "YES"})
        EXPECT_EQ(Conversion(specOf(ParameterType::boolean), yaml).value->value.getI32Value(), 1)
            << yaml;
    for (const char* yaml : {"false", "no", "off"})
        EXPECT_EQ(Conversion(specOf(ParameterType::boolean), yaml).value->value.getI32Value(), 0)
            << yaml;
    EXPECT_FALSE(Conversion(specOf(ParameterType::boolean), "1").value);
}

TEST(ParameterValueTest, AChoiceIsOneOfItsWords)
{
    ParameterSpec spec = specOf(ParameterType::choice);
    spec.choices = {"rms", "mean"};

    EXPECT_EQ(Conversion(spec, "mean").text(), "mean");
    EXPECT_EQ(Conversion(spec, "rsm").error(), "parameter \"p\" is \"rsm\"; expected one of rms, "
                                               "mean; did you mean \"rms\"?");
}

TEST(ParameterValueTest, PathsAreTakenFromTheFolder)
{
    EXPECT_EQ(Conversion(specOf(ParameterType::file), "../data/./a.sgy").text(), "/data/a.sgy");
    EXPECT_EQ(Conversion(specOf(ParameterType::outfile), "/tmp/a.sgy").text(), "/tmp/a.sgy");
    EXPECT_FALSE(Conversion(specOf(ParameterType::file), "\"\"").value);
}

TEST(ParameterValueTest, ListsBecomeArrays)
{
    const Conversion reals(specOf(ParameterType::realList, "Hz"), "[5, 10 Hz, 0.06 kHz]");
    const Conversion integers(specOf(ParameterType::integerList), "[3, -4]");
    const Conversion wide(specOf(ParameterType::integerList), "[3, 3000000000]");
    const Conversion one(specOf(ParameterType::realList), "7");
    const Conversion texts(specOf(ParameterType::textList), "[a, \"b c\"]");

    ASSERT_EQ(reals.value->value.getType(), float64ArrayType);
    EXPECT_EQ(reals.value->value.getArraySize(), 3);
    EXPECT_EQ(reals.value->value.getF64ArrayValue()[2], 60);
    EXPECT_EQ(reals.text(), "5, 10, 60");
    ASSERT_EQ(integers.value->value.getType(), int32ArrayType);
    EXPECT_EQ(integers.value->value.getI32ArrayValue()[1], -4);
    ASSERT_EQ(wide.value->value.getType(), int64ArrayType);
    EXPECT_EQ(wide.value->value.getI64ArrayValue()[1], 3000000000);
    EXPECT_EQ(one.value->value.getArraySize(), 1);
    EXPECT_EQ(texts.value->value.getStrValue(), "a\nb c");
    EXPECT_THAT(texts.value->items, ::testing::Optional(ElementsAre("a", "b c")));
}

TEST(ParameterValueTest, AListHasAsManyElementsAsItShould)
{
    ParameterSpec spec = specOf(ParameterType::realList);
    spec.minCount = spec.maxCount = 4;

    EXPECT_TRUE(Conversion(spec, "[1, 2, 3, 4]").value);
    EXPECT_EQ(Conversion(spec, "[1, 2, 3]").error(),
              "parameter \"p\" has 3 elements; expected a list of 4 numbers");
}

TEST(ParameterValueTest, WithoutAManifestTypesAreGuessed)
{
    Diagnostics diagnostics;
    const YamlValue map =
        readYaml("{i: 12, f: 1.5, t: abc, q: \"12\", l: [1, 2.5], w: [a, 1]}", "f", diagnostics);
    const auto typeOf = [&](const char* key) {
        return guessParameter(map->find(key)->value, "p", diagnostics)->value.getType();
    };

    EXPECT_EQ(typeOf("i"), int32Type);
    EXPECT_EQ(typeOf("f"), float64Type);
    EXPECT_EQ(typeOf("t"), strType);
    EXPECT_EQ(typeOf("q"), strType);
    EXPECT_EQ(typeOf("l"), float64ArrayType);
    EXPECT_EQ(typeOf("w"), strType);
    EXPECT_FALSE(diagnostics.hasErrors());
}

// ---- Words of trace headers ----

TEST(ParameterValueTest, SelectionsBecomeTheTextThatModulesRead)
{
    const std::pair<const char*, const char*> rows[] = {
        {"{offset: [100, 2000], iline: [100, 200, 2]}", "offset=100:2000; iline=100:200:2"},
        {"{cdp: 7}", "cdp=7"},
        {"{cdp: \"1:9, 20\"}", "cdp=1:9, 20"},
        {"{cdp: [[1, 9], 20, [30, 40, 5], \"50:\"]}", "cdp=1:9,20,30:40:5,50:"},
        {"{offset: [-500, -100]}", "offset=-500:-100"},
        {"offset=1:2; cdp=3", "offset=1:2; cdp=3"},
    };
    for (const auto& [yaml, text] : rows) {
        const Conversion conversion(specOf(ParameterType::selection), yaml);
        EXPECT_EQ(conversion.text(), text) << yaml << conversion.error();
        EXPECT_EQ(conversion.value->value.getStrValue(), text);
    }
}

TEST(ParameterValueTest, NumbersOfASelectionThatCouldBeMeantOtherwiseAreRefused)
{
    const std::pair<const char*, const char*> rows[] = {
        {"{cdp: [7, 9, 12]}", "\"cdp\" in parameter \"p\" is a range from 7 to 9 whose step 12 "
                              "exceeds it; write single numbers as \"7, 9, 12\""},
        {"{cdp: [7, 8, 9, 10]}",
         "\"cdp\" in parameter \"p\" is 4 numbers in brackets; a range is [FIRST, LAST] or "
         "[FIRST, LAST, STEP]; write single numbers as \"7, 9, 12\""},
        {"{cdp: [1, x]}", "\"cdp\" in parameter \"p\" is \"x\"; expected a whole number"},
        {"{cdp: {a: 1}}",
         "\"cdp\" in parameter \"p\" is a group of keys; expected numbers: 7, [FIRST, LAST], "
         "[FIRST, LAST, STEP] or \"1:100:2, 200\""},
        {"[1, 2]",
         "parameter \"p\" is a list; expected header words with the numbers wanted, as in "
         "{offset: [100, 2000], cdp: 7}"},
    };
    for (const auto& [yaml, error] : rows) {
        const Conversion conversion(specOf(ParameterType::selection), yaml);
        EXPECT_FALSE(conversion.value.has_value()) << yaml;
        EXPECT_EQ(conversion.error(), error);
    }
}

TEST(ParameterValueTest, WordMapsBecomeTheTextThatModulesRead)
{
    EXPECT_EQ(Conversion(specOf(ParameterType::wordMap),
                         "{iline: 9, xline: 21, cdpx: {byte: 73, type: int32}, sx: \"5:ibm\"}")
                  .text(),
              "iline=9, xline=21, cdpx=73:int32, sx=5:ibm");
    EXPECT_EQ(Conversion(specOf(ParameterType::wordMap), "{cdpx: {bite: 73}}").error(),
              "\"cdpx\" in parameter \"p\" needs the key \"byte\"");
    EXPECT_EQ(Conversion(specOf(ParameterType::wordMap), "{cdpx: [73]}").error(),
              "\"cdpx\" in parameter \"p\" is a list; expected a byte, or {byte: 73, type: int32}");
}

TEST(ParameterValueTest, FilesAreOneNameOrAListOfThem)
{
    const Conversion one(specOf(ParameterType::fileList), "line_*.sgy");
    EXPECT_EQ(one.text(), "/jobs/line_*.sgy");
    const Conversion two(specOf(ParameterType::fileList), "[a.sgy, /data/b.sgy]");
    EXPECT_EQ(two.value->value.getStrValue(), "/jobs/a.sgy\n/data/b.sgy");
    EXPECT_THAT(*two.value->items, ElementsAre("/jobs/a.sgy", "/data/b.sgy"));
    EXPECT_EQ(Conversion(specOf(ParameterType::fileList), "[a.sgy, [b.sgy]]").error(),
              "parameter \"p\" is a list; expected the name of a file");
}
