// The index page of many files, and the index as JSON.
#include "report/SetPage.h"

#include "report/SetJson.h"

#include <gmock/gmock.h>

using namespace host;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

SetFile makeFile(const std::string& name, FileVerdict verdict, int64_t flagged)
{
    SetFile file;
    file.path = "/data/" + name + ".sgy";
    file.folder = name;
    file.verdict = verdict;
    file.exitCode = verdict == FileVerdict::passed ? 0 : 1;
    file.message = verdict == FileVerdict::failed ? "read: </td><script>x</script>" : "";
    file.warnings = 1;
    file.traces = 100;
    file.isChecked = true;
    file.flagged = flagged;
    if (flagged > 0)
        file.flags["dead"] = flagged;
    file.pictures = {name + "/pictures/a \"b\".png", name + "/pictures/c.pdf"};
    file.report = name + "/report.html";
    file.json = name + "/run.json";
    file.words = {"vorn", "run", "it's"};
    file.started = "2026-01-01 00:00:00";
    file.seconds = 1.5;
    return file;
}

SetResult makeSet()
{
    SetResult set;
    set.jobName = "<job>";
    set.files = {
        makeFile("good", FileVerdict::passed, 0), makeFile("noisy", FileVerdict::passed, 3),
        makeFile("broken", FileVerdict::failed, 0), makeFile("worse", FileVerdict::passed, 7)};
    return set;
}

} // namespace

TEST(SetPageTest, WhatNeedsALookComesFirst)
{
    const std::string page = setPage(makeSet());

    const auto at = [&](const std::string& name) {
        return page.find(">" + name + ".sgy<span class=\"soft\">/data</span>");
    };
    ASSERT_NE(at("good"), std::string::npos);
    EXPECT_LT(at("broken"), at("worse"));
    EXPECT_LT(at("worse"), at("noisy"));
    EXPECT_LT(at("noisy"), at("good"));
    EXPECT_THAT(page, HasSubstr("<dt>failed</dt><dd>1</dd>"));
    EXPECT_THAT(page, HasSubstr("<dt>flagged traces</dt><dd>10</dd>"));
    EXPECT_THAT(page, HasSubstr("dead 10"));
    EXPECT_THAT(page, HasSubstr("<td class=\"n\" data-sort=\"7\">7</td>"));
}

TEST(SetPageTest, TextsAreShownAndLinksAreEncoded)
{
    const std::string page = setPage(makeSet());

    EXPECT_THAT(page, HasSubstr("read: &lt;/td&gt;&lt;script&gt;x"));
    EXPECT_THAT(page, HasSubstr("<h1>&lt;job&gt;</h1>"));
    EXPECT_THAT(page,
                HasSubstr("<img src=\"noisy/pictures/a%20%22b%22.png\" alt=\"a &quot;b&quot;\" "
                          "loading=\"lazy\""));
    EXPECT_THAT(page, HasSubstr("<a href=\"noisy/pictures/c.pdf\">c</a>"));
    EXPECT_THAT(page, Not(HasSubstr("<script>x")));
    EXPECT_EQ(linkTo("ö/a b#?.png"), "%C3%B6/a%20b%23%3F.png");
}

TEST(SetPageTest, NoFlagsAreShownWhereNobodyHasLooked)
{
    SetResult set = makeSet();
    for (SetFile& file : set.files)
        file.isChecked = false;

    const std::string page = setPage(set);

    EXPECT_THAT(page, Not(HasSubstr("flagged traces")));
    EXPECT_THAT(setJson(set), HasSubstr("\"flagged\": null"));
}

TEST(SetPageTest, AFileComesBackFromItsJson)
{
    const SetFile file = makeFile("noisy", FileVerdict::failed, 3);

    const std::optional<SetFile> read = readSetFileJson(setFileJson(file));

    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(setFileJson(*read), setFileJson(file));
    EXPECT_EQ(read->flags.at("dead"), 3);
    EXPECT_EQ(read->verdict, FileVerdict::failed);
    EXPECT_FALSE(readSetFileJson("{}").has_value());
    EXPECT_FALSE(readSetFileJson("[").has_value());
}
