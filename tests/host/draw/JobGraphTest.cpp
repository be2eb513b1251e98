#include "draw/JobGraph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace host;
using ::testing::HasSubstr;

namespace {

ResolvedParameter parameter(const std::string& text)
{
    ResolvedParameter one;
    one.name = "name";
    one.value.text = text;
    return one;
}

std::string graphOf(const ResolvedParameter& one)
{
    ResolvedJob job;
    job.modules.resize(1);
    job.modules[0].name = "read";
    job.modules[0].module = "segy_in";
    job.modules[0].parameters.push_back(one);
    return graphDot(job, {1});
}

const std::string longest(40, 'x');

} // namespace

TEST(JobGraphTest, TextIsShownAsItIs)
{
    EXPECT_THAT(graphOf(parameter("a&lt;b")), HasSubstr("name: a&amp;lt;b\\l"));
    EXPECT_THAT(graphOf(parameter("say \"x\"")), HasSubstr("name: say \\\"x\\\"\\l"));
    EXPECT_THAT(graphOf(parameter("\x1b[31m")), HasSubstr("name: \\\\x1b[31m\\l"));
}

TEST(JobGraphTest, ALongTextKeepsItsBeginning)
{
    EXPECT_THAT(graphOf(parameter(longest)), HasSubstr("name: " + longest + "\\l"));
    EXPECT_THAT(graphOf(parameter("a" + longest)),
                HasSubstr("name: a" + longest.substr(1) + "…\\l"));
    EXPECT_THAT(graphOf(parameter(longest.substr(1) + "éx")),
                HasSubstr("name: " + longest.substr(1) + "…\\l"));
}

TEST(JobGraphTest, ALongPathKeepsItsEnd)
{
    ResolvedParameter path = parameter("/folder/" + longest);
    path.isInputFile = true;
    EXPECT_THAT(graphOf(path), HasSubstr("name: …" + longest + "\\l"));
}
