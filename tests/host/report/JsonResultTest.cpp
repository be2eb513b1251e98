#include "report/JsonResult.h"

#include "TestTree.h"

#include <gmock/gmock.h>
#include <regex>

using namespace host;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

// The text without the objects under "measured", which hold no further objects.
std::string withoutMeasured(const std::string& json)
{
    return std::regex_replace(json, std::regex(",?\\s*\"measured\": \\{[^}]*\\}"), "");
}

Pad padOf(float sample, const std::string& text)
{
    Pad pad;
    pad.traces.push_back({{1, 2, sample}, 1});
    PadCommand command;
    command.command.cmdType = 3;
    command.text = text;
    pad.commands.push_back(command);
    return pad;
}

std::string padSum(const Pad& pad)
{
    const std::string json = jsonResult({}, {pad});
    const std::string key = "\"sha256\": \"";
    return json.substr(json.find(key) + key.size(), 64);
}

class JsonOfRunTest : public ::testing::Test
{
protected:
    JsonOfRunTest()
    {
        tree.write("job.yaml", "modules:\n"
                               "  - {name: read, module: host_source, traces: 7}\n"
                               "  - {name: draw, module: host_section, input: read}\n"
                               "  - {name: write, module: host_sink, input: read, file: out.txt, "
                               "like: job.yaml}\n");
    }

    std::string jsonOf(const std::vector<std::string>& words)
    {
        std::vector<std::string> call = {"run", "job.yaml", "--json", "out.json"};
        call.insert(call.end(), words.begin(), words.end());
        EXPECT_EQ(tree.run(call).exitCode, 0);
        return tree.read("out.json");
    }

    TestTree tree;
};

} // namespace

TEST(JsonResultTest, KeysComeInAFixedOrder)
{
    const std::string json = jsonResult({}, {});
    std::vector<std::size_t> places;
    for (const char* key : {"\"format\"", "\"format_version\"", "\"job\"", "\"result\"",
                            "\"modules\"", "\"sources\"", "\"pads\"", "\"inputs\"", "\"outputs\"",
                            "\"messages\": []", "\"environment\"", "\"measured\""})
        places.push_back(json.find(key));
    EXPECT_TRUE(std::is_sorted(places.begin(), places.end())) << json;
    EXPECT_NE(places.back(), std::string::npos);
    EXPECT_EQ(json.back(), '\n');
}

TEST(JsonResultTest, BytesThatAreNoUtf8AreReplaced)
{
    RunResult result;
    result.jobName = "a\xff z";
    EXPECT_THAT(jsonResult(result, {}), HasSubstr("\"name\": \"a\uFFFD z\""));
}

TEST(JsonResultTest, TextsAreQuoted)
{
    RunResult result;
    RunMessage message;
    message.text = "say \"no\"\n\x1b";
    message.severity = 9;
    message.arguments = {"\\"};
    result.messages = {message};
    const std::string json = jsonResult(result, {});
    EXPECT_THAT(json, HasSubstr("\"text\": \"say \\\"no\\\"\\n\\u001b\""));
    EXPECT_THAT(json, HasSubstr("\"severity\": 9,\n      \"severity_name\": \"fatal\""));
    EXPECT_THAT(json, HasSubstr("\"\\\\\""));
}

TEST(JsonResultTest, WhatModulesNotedIsAnObjectOfTexts)
{
    RunResult result;
    RunModule module;
    module.metadata = {{"qc.list", "1 \"dead\"\n2"}, {"qc.\xff", "\xff"}};
    result.modules = {module};
    EXPECT_THAT(jsonResult(result, {}),
                HasSubstr("\"metadata\": {\n        \"qc.list\": \"1 \\\"dead\\\"\\n2\",\n"
                          "        \"qc.\uFFFD\": \"\uFFFD\"\n      }"));
}

TEST(JsonResultTest, ThePadsChecksumChangesWithEverythingDrawn)
{
    const std::string sum = padSum(padOf(3, "text"));
    EXPECT_EQ(padSum(padOf(3, "text")), sum);
    EXPECT_NE(padSum(padOf(4, "text")), sum);
    EXPECT_NE(padSum(padOf(3, "texts")), sum);
    Pad moved = padOf(3, "text");
    moved.commands[0].command.ypage = 1;
    EXPECT_NE(padSum(moved), sum);
    Pad later = padOf(3, "text");
    later.delay = 100;
    EXPECT_NE(padSum(later), sum);
}

TEST_F(JsonOfRunTest, TwoRunsDifferInMeasuredValuesOnly)
{
    const std::string first = jsonOf({});
    const std::string second = jsonOf({"--set", "read.pause=10 ms"});
    const std::string third = jsonOf({});

    EXPECT_NE(first, third) << "times are never the same";
    EXPECT_EQ(withoutMeasured(first), withoutMeasured(third));
    EXPECT_NE(withoutMeasured(first), withoutMeasured(second)) << "a parameter differs";
}

TEST_F(JsonOfRunTest, HoldsWhatWasCountedAndSummed)
{
    const std::string json = jsonOf({});

    EXPECT_THAT(json, HasSubstr("\"traces_in\": 7,\n      \"traces_out\": 0"));
    EXPECT_THAT(json, HasSubstr("\"word\": \"tracl\""));
    EXPECT_THAT(json, HasSubstr("\"title\": \"first samples\""));
    EXPECT_THAT(json, HasSubstr("\"written\": true"));
    EXPECT_THAT(json, HasSubstr("\"end\": \"done\",\n    \"failed\": false"));
    // Both files, the input and the output, are there and have their sums.
    EXPECT_THAT(json, Not(HasSubstr("\"sha256\": \"\"")));
}
