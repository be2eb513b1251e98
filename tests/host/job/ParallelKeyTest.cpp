// The key `parallel` of manifests.
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

    Parsing(const std::string& inputs, const std::string& parallel)
        : manifest(parseManifest("module: m\n"
                                 "purpose: p\n"
                                 "inputs: " +
                                     inputs +
                                     "\n"
                                     "outputs: {min: 1}\n"
                                     "parameters:\n"
                                     "  - {name: gather, type: text_list, is: sort_key, help: h}\n"
                                     "  - {name: block, type: int, help: h}\n"
                                     "  - {name: part, type: text, is: ranges, help: h}\n"
                                     "  - {name: mode, type: choice, choices: [a, b], help: h}\n"
                                     "parallel: " +
                                     parallel + "\n",
                                 "m.yaml", "m", diagnostics))
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

const char* const oneInput = "{min: 1}";
const char* const noInput = "{min: 0, max: 0}";

} // namespace

TEST(ParallelKeyTest, AModuleWithoutItNeedsAllTraces)
{
    Diagnostics diagnostics;
    const auto manifest = parseManifest(
        "module: m\npurpose: p\ninputs: {min: 1}\noutputs: {min: 1}\n", "m.yaml", "m", diagnostics);
    ASSERT_NE(manifest, nullptr);
    EXPECT_FALSE(manifest->parallel.given);
    EXPECT_EQ(manifest->parallel.work, ParallelWork::whole);
    EXPECT_EQ(manifest->parallel.text(), "needs all traces");
}

TEST(ParallelKeyTest, GathersNameTheirParameters)
{
    const Parsing parsing(oneInput, "{work: gather, key: $gather, block: $block, count: fewer, "
                                    "merge: yes, whole_when: [part, {mode: [a, b]}], "
                                    "numbered_when: {mode: b}}");
    ASSERT_THAT(parsing.lines(), ElementsAre());
    const ParallelSpec& spec = parsing.manifest->parallel;
    EXPECT_TRUE(spec.given);
    EXPECT_EQ(spec.work, ParallelWork::gather);
    EXPECT_EQ(spec.keyParameter, "gather");
    EXPECT_THAT(spec.key, ElementsAre());
    EXPECT_EQ(spec.blockParameter, "block");
    EXPECT_EQ(spec.count, ParallelCount::fewer);
    EXPECT_TRUE(spec.merge);
    ASSERT_EQ(spec.wholeWhen.size(), 2U);
    EXPECT_EQ(spec.wholeWhen[0].text(), "part");
    EXPECT_EQ(spec.wholeWhen[1].text(), "mode a or b");
    EXPECT_EQ(spec.text(), "cut between gathers of the words in gather, and in them after each "
                           "block traces; needs all traces with part or mode a or b; counts its "
                           "input with mode b");
}

TEST(ParallelKeyTest, WordsOfGathersMayBeFixed)
{
    const Parsing parsing(oneInput, "{work: gather, key: [fldr, cdp]}");
    ASSERT_THAT(parsing.lines(), ElementsAre());
    EXPECT_THAT(parsing.manifest->parallel.key, ElementsAre("fldr", "cdp"));
    EXPECT_EQ(parsing.manifest->parallel.keyParameter, "");
    EXPECT_EQ(parsing.manifest->parallel.text(), "cut between gathers of fldr and cdp");
}

TEST(ParallelKeyTest, SourcesNameTheParameterOfTheRange)
{
    const Parsing parsing(noInput, "{work: source, range: part}");
    ASSERT_THAT(parsing.lines(), ElementsAre());
    EXPECT_EQ(parsing.manifest->parallel.rangeParameter, "part");
    EXPECT_EQ(parsing.manifest->parallel.text(), "each part gives a range of the traces");
}

TEST(ParallelKeyTest, AModuleThatSortsAndASourceThatCanFindEachOther)
{
    const Parsing sorter(oneInput, "{work: whole, sorts: $gather}");
    ASSERT_THAT(sorter.lines(), ElementsAre());
    EXPECT_EQ(sorter.manifest->parallel.sortParameter, "gather");
    EXPECT_FALSE(sorter.manifest->parallel.sortable);
    const Parsing source(noInput, "{work: source, range: part, sortable: true}");
    ASSERT_THAT(source.lines(), ElementsAre());
    EXPECT_TRUE(source.manifest->parallel.sortable);
}

namespace {

struct WrongKey
{
    const char* name;
    const char* inputs;
    const char* parallel;
    const char* line;
};

void PrintTo(const WrongKey& row, std::ostream* stream)
{
    *stream << row.name;
}

class WrongParallelKeyTest : public ::testing::TestWithParam<WrongKey>
{
};

} // namespace

TEST_P(WrongParallelKeyTest, IsToldWithItsPlace)
{
    const Parsing parsing(GetParam().inputs, GetParam().parallel);

    EXPECT_EQ(parsing.manifest, nullptr);
    EXPECT_THAT(parsing.lines(), ElementsAre(GetParam().line));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Mistakes, WrongParallelKeyTest,
    ::testing::Values(
        WrongKey{"NotAMap", oneInput, "trace",
            "m.yaml:10:11: \"parallel\" must be a group of keys, not \"trace\""},
        WrongKey{"NoWork", oneInput, "{count: same}",
            "m.yaml:10:11: \"parallel\" needs the key \"work\""},
        WrongKey{"UnknownWork", oneInput, "{work: traces}",
            "m.yaml:10:18: \"parallel\": \"work\" is \"traces\"; expected one of whole, source, trace, gather, sink; did you mean \"trace\"?"},
        WrongKey{"UnknownCount", oneInput, "{work: trace, count: less}",
            "m.yaml:10:32: \"parallel\": \"count\" is \"less\"; expected one of same, fewer, other"},
        WrongKey{"UnknownKey", oneInput, "{work: trace, merges: true}",
            "m.yaml:10:25: \"parallel\" has no key \"merges\"; did you mean \"merge\"?"},
        WrongKey{"MergeIsNotABoolean", oneInput, "{work: trace, merge: often}",
            "m.yaml:10:32: \"parallel\": \"merge\" is \"often\"; expected true or false"},
        WrongKey{"NoKey", oneInput, "{work: gather}",
            "m.yaml:10:11: \"parallel\" has \"work: gather\" without \"key\"; name the header words of a gather"},
        WrongKey{"KeyOfTraces", oneInput, "{work: trace, key: cdp}",
            "m.yaml:10:11: \"parallel\" has \"work: trace\" with \"key\" or \"block\", which belong to \"work: gather\""},
        WrongKey{"KeyIsNotAParameter", oneInput, "{work: gather, key: $gathers}",
            "m.yaml:10:31: \"parallel\" names \"gathers\", which is not a parameter of this module; did you mean \"gather\"?"},
        WrongKey{"KeyIsNotAWord", oneInput, "{work: gather, key: $block}",
            "m.yaml:10:31: \"parallel\" takes the words of gathers from \"block\", which does not name trace attributes"},
        WrongKey{"KeyIsMixed", oneInput, "{work: gather, key: [$gather, cdp]}",
            "m.yaml:10:31: \"parallel\" has a parameter and other words in \"key\"; give the parameter alone"},
        WrongKey{"BlockIsANumber", oneInput, "{work: gather, key: cdp, block: 10}",
            "m.yaml:10:43: \"parallel\" has \"10\" for \"block\"; expected \"$\" and the name of a parameter"},
        WrongKey{"BlockIsAText", oneInput, "{work: gather, key: cdp, block: $gather}",
            "m.yaml:10:43: \"parallel\" takes the size of blocks from \"gather\", which is not a whole number"},
        WrongKey{"NoRange", noInput, "{work: source}",
            "m.yaml:10:11: \"parallel\" has \"work: source\" without \"range\"; name the parameter that takes the range of traces"},
        WrongKey{"RangeIsNotAParameter", noInput, "{work: source, range: parts}",
            "m.yaml:10:33: \"parallel\" names \"parts\", which is not a parameter of this module; did you mean \"part\"?"},
        WrongKey{"RangeIsNotARange", noInput, "{work: source, range: mode}",
            "m.yaml:10:33: \"parallel\" takes ranges by \"mode\", which is not a text with \"is: ranges\""},
        WrongKey{"RangeOfTraces", oneInput, "{work: trace, range: part}",
            "m.yaml:10:11: \"parallel\" has \"work: trace\" with \"range\", which belongs to \"work: source\""},
        WrongKey{"SourceWithInput", oneInput, "{work: source, range: part}",
            "m.yaml:10:11: \"parallel\" has \"work: source\" but the module has inputs"},
        WrongKey{"TracesWithoutInput", noInput, "{work: trace}",
            "m.yaml:10:11: \"parallel\" has \"work: trace\" but the module may have no input"},
        WrongKey{"SinkWithoutMerge", oneInput, "{work: sink}",
            "m.yaml:10:11: \"parallel\" has \"work: sink\" without \"merge: true\", which every sink needs"},
        WrongKey{"SortsByNoParameter", oneInput, "{work: whole, sorts: cdp}",
            "m.yaml:10:32: \"parallel\" has \"cdp\" for \"sorts\"; expected \"$\" and the name of a parameter"},
        WrongKey{"SortsByNoWords", oneInput, "{work: whole, sorts: $mode}",
            "m.yaml:10:32: \"parallel\" takes the words to sort by from \"mode\", which is not a list with \"is: sort_key\""},
        WrongKey{"SortsInParts", oneInput, "{work: trace, sorts: $gather}",
            "m.yaml:10:11: \"parallel\" has \"work: trace\" with \"sorts\", which belongs to \"work: whole\""},
        WrongKey{"SortableWithInput", oneInput, "{work: trace, sortable: true}",
            "m.yaml:10:11: \"parallel\" has \"work: trace\" with \"sortable\", which belongs to \"work: source\""},
        WrongKey{"ConditionIsNotAParameter", oneInput, "{work: trace, whole_when: modes}",
            "m.yaml:10:37: \"parallel\" names \"modes\", which is not a parameter of this module; did you mean \"mode\"?"},
        WrongKey{"ConditionIsNotAChoice", oneInput, "{work: trace, numbered_when: {mode: c}}",
            "m.yaml:10:47: \"parallel\" names \"c\", which is not a choice of \"mode\""}),
    [](const auto& row) { return row.param.name; });
// clang-format on
