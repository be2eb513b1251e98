#include "draw/JobGraph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

using namespace host;
using ::testing::ElementsAre;
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
    return graphDot(job, {1}, Tees::hidden);
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

// `split` has two outputs; `a` and `b` read the first one, `b` also the second.
TEST(JobGraphTest, TeesAreShownOnDemand)
{
    ResolvedJob job;
    job.modules.resize(3);
    const char* const names[] = {"split", "a", "b"};
    for (std::size_t i = 0; i < 3; ++i)
        job.modules[i].name = job.modules[i].module = names[i];
    job.modules[0].consumers = {2, 1};
    job.modules[1].inputs = {{0, 0}};
    job.modules[2].inputs = {{0, 0}, {0, 1}};
    const auto arrows = [&](Tees tees) {
        std::vector<std::string> lines;
        std::istringstream dot(graphDot(job, {1, 2, 3}, tees));
        for (std::string line; std::getline(dot, line);) {
            if (line.find("->") != std::string::npos || line.find("tee") != std::string::npos)
                lines.push_back(line.substr(4));
        }
        return lines;
    };
    EXPECT_THAT(arrows(Tees::hidden),
                ElementsAre("m0 -> m1 [label=\"1\"];", "m0 -> m2 [label=\"1\"];",
                            "m0 -> m2 [label=\"2\"];"));
    EXPECT_THAT(arrows(Tees::shown), ElementsAre("t0_0 [label=\"tee\", style=rounded, fontsize=9];",
                                                 "m0 -> t0_0 [label=\"1\"];", "t0_0 -> m1;",
                                                 "t0_0 -> m2;", "m0 -> m2 [label=\"2\"];"));
}
