#include "report/HtmlReport.h"

#include "draw/PadRenderer.h"
#include "report/HtmlText.h"
#include "report/NotedTable.h"

#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

using namespace host;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

RunModule moduleNamed(const std::string& name, int order, std::vector<RunInput> inputs = {})
{
    RunModule module;
    module.name = name;
    module.module = "kind_of_" + name;
    module.order = order;
    module.inputs = std::move(inputs);
    return module;
}

RunMessage message(const std::string& module, int severity, const std::string& text)
{
    RunMessage one;
    one.time = "12:34:56";
    one.module = module;
    one.severity = severity;
    one.text = text;
    return one;
}

RunResult smallResult()
{
    RunResult result;
    result.jobName = "small";
    result.modules = {moduleNamed("read", 1), moduleNamed("show", 2, {{"read", 1, "data"}})};
    result.wallMicros = 2000000;
    result.busyMicros = 2000000;
    return result;
}

std::string reportOf(const RunResult& result)
{
    return htmlReport(result, {});
}

Pad graphPad(int points)
{
    Pad pad;
    pad.type = 2;
    pad.title = "graph";
    for (int i = 0; i < points; ++i) {
        PadCommand one;
        one.command.cmdType = 1;
        one.command.ipen = i == 0 ? 3 : 2;
        one.command.xpage = static_cast<float>(i);
        one.command.ypage = static_cast<float>(i % 7);
        pad.commands.push_back(one);
    }
    return pad;
}

Pad sectionPad()
{
    Pad pad;
    pad.type = 1;
    pad.title = "section";
    pad.sampleInterval = 4000;
    for (int trace = 0; trace < 3; ++trace)
        pad.traces.push_back({{0, 1, -1, 0.5f}, static_cast<double>(trace)});
    return pad;
}

const char* const graphvizText =
    "<?xml version=\"1.0\"?>\n<!-- a comment -->\n<svg width=\"10pt\" height=\"20pt\">\n"
    "<g class=\"node\"><text x=\"1\" y=\"2\">a</text></g>\n</svg>\n";

} // namespace

// ---- texts ----

TEST(HtmlTextTest, MarkupBecomesText)
{
    EXPECT_EQ(html("<a href=\"x\" class='y'>&amp;"),
              "&lt;a href=&quot;x&quot; class=&#39;y&#39;&gt;&amp;amp;");
}

TEST(HtmlTextTest, HarmfulCharactersAreMadeVisible)
{
    EXPECT_EQ(html(std::string("a\0\x1b\xff\n", 5)), "a\\x00\\x1b\\xff\\n");
    EXPECT_EQ(html("\u202egpj"), "\\u202egpj");
    EXPECT_EQ(htmlLines("a\nb\tc"), "a\nb\\tc");
}

TEST(HtmlTextTest, LongTextsAreCutBetweenCharacters)
{
    EXPECT_EQ(html("abcdef", 6), "abcdef");
    EXPECT_EQ(html("abcdef", 4), "abcd … (2 more bytes)");
    EXPECT_EQ(html("abc\u00e4\u00e4", 4), "abc … (4 more bytes)");
}

TEST(HtmlTextTest, BytesAndChecksumsAreInBase64)
{
    // RFC 4648, section 10; the checksum is that of the empty text in FIPS 180-4's examples.
    EXPECT_EQ(base64("foobar"), "Zm9vYmFy");
    EXPECT_EQ(base64("fooba"), "Zm9vYmE=");
    EXPECT_EQ(dataUri("image/png", "foo"), "data:image/png;base64,Zm9v");
    EXPECT_EQ(policyHash(""), "'sha256-47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU='");
}

// ---- pictures ----

TEST(PictureTest, GraphsAreSmallSvgs)
{
    const PadPicture picture = pictureOf(graphPad(100));
    EXPECT_EQ(picture.mediaType, "image/svg+xml");
    EXPECT_THAT(picture.bytes, HasSubstr("</svg>"));
    EXPECT_LT(picture.bytes.size(), 256u * 1024);
}

TEST(PictureTest, GraphsOfVeryManyCommandsAndSectionsArePngs)
{
    for (const Pad& pad : {graphPad(30000), sectionPad()}) {
        const PadPicture picture = pictureOf(pad);
        EXPECT_EQ(picture.mediaType, "image/png") << pad.title;
        EXPECT_EQ(picture.bytes.substr(1, 3), "PNG") << pad.title;
        EXPECT_LT(picture.bytes.size(), 256u * 1024) << pad.title;
    }
}

TEST(PictureTest, TextsThatAreNoUtf8DoNotSpoilIt)
{
    for (Pad pad : {graphPad(3), sectionPad()}) {
        pad.title = "\xff\xfe";
        pad.directives = {{"x", "\xc3"}, {"y", "\x80"}, {"note", "\xe2\x82"}, {"legend", "1=\xff"}};
        PadCommand text;
        text.command.cmdType = 3;
        text.command.inchar = 1; // half a character
        text.command.height = 10;
        text.text = "\u00e4";
        pad.commands.push_back(text);
        EXPECT_NO_THROW(pictureOf(pad)) << pad.type;
    }
}

TEST(PictureTest, LegendShowsALineOrTheSymbolOfAPen)
{
    const auto closedPaths = [](const std::string& legend) {
        Pad pad = graphPad(3);
        pad.directives = {{"legend", legend}};
        const std::string svg = pictureOf(pad).bytes;
        return std::count(svg.begin(), svg.end(), 'Z');
    };
    // The letters' paths are closed, too, so the texts are the same.
    const auto ofLines = closedPaths("2=one, 3=other");
    EXPECT_EQ(closedPaths("2:0=one, 3=other"), ofLines + 1) << "a square";
    EXPECT_EQ(closedPaths("2:2=one, 3:5=other"), ofLines + 2) << "a triangle and a diamond";
    EXPECT_EQ(closedPaths("2:4=one, 3:3=other"), ofLines) << "a cross and a plus";
}

// ---- the page ----

TEST(HtmlReportTest, NamesItsStyleAndScriptByTheirChecksums)
{
    const std::string page = reportOf(smallResult());
    const auto between = [&](const std::string& from, const std::string& to) {
        const auto begin = page.find(from) + from.size();
        return page.substr(begin, page.find(to, begin) - begin);
    };
    EXPECT_EQ(between("http-equiv=\"Content-Security-Policy\" content=\"", "\">"),
              "default-src 'none'; img-src data:; style-src " +
                  policyHash(between("<style>", "</style>")) + "; script-src " +
                  policyHash(between("<script>", "</script>")) +
                  "; base-uri 'none'; form-action 'none'");
}

TEST(HtmlReportTest, TellsHowTheJobEnded)
{
    const auto badge = [](const std::string& kind, const std::string& text) {
        return "<span class=\"badge " + kind + "\">" + text + "</span></div>";
    };
    RunResult result = smallResult();
    EXPECT_THAT(reportOf(result), HasSubstr(badge("good", "done")));
    result.messages = {message("read", warningSeverity, "look")};
    EXPECT_THAT(reportOf(result), HasSubstr(badge("warning", "done, with warnings")));
    result.failed = true;
    EXPECT_THAT(reportOf(result), HasSubstr(badge("error", "ended with errors")));
    result.end = RunEnd::stalled;
    EXPECT_THAT(reportOf(result), HasSubstr(badge("error", "deadlocked")));
    result.end = RunEnd::notStarted;
    EXPECT_THAT(reportOf(result), HasSubstr(badge("error", "not started")));
}

TEST(HtmlReportTest, WarningsOfTheCheckAreWarnings)
{
    RunResult result = smallResult();
    result.checkWarnings = {"job.yaml:3:5: look <here>"};
    const std::string page = reportOf(result);
    EXPECT_THAT(page, HasSubstr("done, with warnings"));
    EXPECT_THAT(page, HasSubstr("<dt>warnings</dt><dd>1</dd>"));
    EXPECT_THAT(page, HasSubstr("job.yaml:3:5: look &lt;here&gt;"));
}

TEST(HtmlReportTest, TheWorstMessagesStandFirst)
{
    RunResult result = smallResult();
    result.messages = {message("read", warningSeverity, "1st"), message("show", 1, "2nd"),
                       message("show", 17, "3rd"), message("show", errorSeverity, "4th"),
                       message("Kernel", -5, "5th")};
    const std::string page = reportOf(result);
    std::vector<std::size_t> places;
    for (const char* text : {"3rd", "4th", "1st", "id=\"messages\"", "2nd", "5th"})
        places.push_back(page.find(text));
    EXPECT_TRUE(std::is_sorted(places.begin(), places.end())) << testing::PrintToString(places);
    EXPECT_NE(places.back(), std::string::npos);
    EXPECT_THAT(page, HasSubstr("<dt>errors</dt><dd>2</dd>"));
}

TEST(HtmlReportTest, MessagesThatWereNotKeptAreCounted)
{
    RunResult result = smallResult();
    EXPECT_THAT(reportOf(result), Not(HasSubstr("further messages of modules")));
    result.messagesLeftOut = 42;
    EXPECT_THAT(reportOf(result), HasSubstr("42 further messages of modules"));
}

TEST(HtmlReportTest, MessageArgumentsAreShown)
{
    RunResult result = smallResult();
    result.messages = {message("read", warningSeverity, "values")};
    result.messages[0].arguments = {"a<b", "7"};
    EXPECT_THAT(reportOf(result), HasSubstr("<span class=\"soft\">a&lt;b</span>\n"
                                            "<span class=\"soft\">7</span>"));
}

TEST(HtmlReportTest, WithoutGraphvizTheJobIsAListInTheOrderOfTheRun)
{
    RunResult result = smallResult();
    result.modules[0].order = 2;
    result.modules[1].order = 1;
    EXPECT_THAT(reportOf(result),
                HasSubstr("<ol>\n<li><strong>show</strong> (kind_of_show) takes from read</li>\n"
                          "<li><strong>read</strong> (kind_of_read)</li>\n</ol>"));
    result.graphSvg = graphvizText;
    EXPECT_THAT(reportOf(result),
                HasSubstr("<div class=\"flow\"><img src=\"data:image/svg+xml;base64,"));
    EXPECT_THAT(reportOf(result), HasSubstr("alt=\"Job graph: 2 modules; the inputs"));
    EXPECT_THAT(reportOf(result), Not(HasSubstr("takes from read</li>")));
}

TEST(HtmlReportTest, ItsStyleSheetAndScriptAreTheFilesAndNamedByThePolicy)
{
    const std::string page = reportOf(smallResult());
    for (const auto& [file, tag] :
         {std::pair("report.css", "style"), std::pair("report.js", "script")}) {
        std::ifstream stream(std::string(VORN_TEST_SOURCE_DIR "/../src/host/report/") + file);
        std::ostringstream content;
        content << '\n' << stream.rdbuf();
        ASSERT_GT(content.str().size(), 1000u) << file;
        EXPECT_THAT(page,
                    HasSubstr(std::string("<") + tag + ">" + content.str() + "</" + tag + ">"));
        EXPECT_THAT(page, HasSubstr(std::string(tag) + "-src " + policyHash(content.str())));
    }
}

TEST(HtmlReportTest, PortsAreNamedWhereThereAreSeveral)
{
    RunResult result = smallResult();
    result.modules.push_back(moduleNamed("odd", 3, {{"read", 2, "odd_ones"}}));
    EXPECT_THAT(reportOf(result), HasSubstr("takes from read.odd_ones</li>"));
    EXPECT_THAT(reportOf(result), HasSubstr("takes from read.data</li>"));
}

TEST(HtmlReportTest, OutputsThatWereNotWrittenStandOut)
{
    RunResult result = smallResult();
    RunFile file;
    file.path = "/data/a<b.sgy";
    result.outputs = {file};
    EXPECT_THAT(reportOf(result), HasSubstr("/data/a&lt;b.sgy"));
    EXPECT_THAT(reportOf(result), HasSubstr("not written"));
    EXPECT_THAT(reportOf(result), Not(HasSubstr("name is older")));
    result.outputs[0].exists = true;
    EXPECT_THAT(reportOf(result), HasSubstr("name is older"));
    result.outputs[0].written = true;
    EXPECT_THAT(reportOf(result), Not(HasSubstr("not written")));
}

TEST(HtmlReportTest, InputsHaveChecksumsOrSayWhyNot)
{
    RunResult result = smallResult();
    RunFile file;
    file.path = "/data/line.sgy";
    file.exists = true;
    file.sha256 = "00ff";
    result.inputs = {file};
    EXPECT_THAT(reportOf(result), HasSubstr("<code>00ff</code>"));
    result.inputs[0].sha256 = "";
    EXPECT_THAT(reportOf(result), HasSubstr("could not be read"));
}

TEST(HtmlReportTest, ASourceWithoutTracesIsNoTrouble)
{
    RunResult result = smallResult();
    result.wallMicros = 0;
    result.sources.push_back({});
    EXPECT_THAT(reportOf(result), HasSubstr("<p>0 traces</p>"));
    EXPECT_THAT(reportOf(result), Not(HasSubstr("nan")));
    EXPECT_THAT(reportOf(result), Not(HasSubstr("inf<")));
}

TEST(HtmlReportTest, PadsHaveTitleModuleSizeAndDescription)
{
    Pad pad = sectionPad();
    pad.title = "Shots <1>";
    pad.module = "show";
    pad.directives = {{"note", "\"raw\""}};
    const std::string page = htmlReport(smallResult(), {pad});
    EXPECT_THAT(page, HasSubstr("<h3>Shots &lt;1&gt;</h3><p class=\"soft small\">drawn by show, 3 "
                                "traces of 4 samples</p>"));
    EXPECT_THAT(page, HasSubstr("alt=\"Shots &lt;1&gt;: section, 3 traces of 4 samples; "
                                "&quot;raw&quot;\""));
    EXPECT_THAT(page, HasSubstr("<img src=\"data:image/png;base64,iVBOR"));
}

TEST(NotedTableTest, CellsAreThoseOfTheCsv)
{
    const auto table = notedTable("trace,\"a \"\"b\"\", c\",flags\r\n1,-2.5e3,weak\n2,,\"x\ny\"\n");
    ASSERT_TRUE(table);
    EXPECT_THAT(table->columns, ElementsAre("trace", "a \"b\", c", "flags"));
    EXPECT_THAT(table->rows,
                ElementsAre(ElementsAre("1", "-2.5e3", "weak"), ElementsAre("2", "", "x\ny")));
    EXPECT_THAT(table->isNumeric, ElementsAre(1, 1, 0));
    EXPECT_EQ(table->rowsLeftOut, 0u);
}

TEST(NotedTableTest, OnlyTablesAreTables)
{
    EXPECT_FALSE(notedTable(""));
    EXPECT_FALSE(notedTable("a,b\n1\n")) << "a row with a cell less";
    EXPECT_FALSE(notedTable("a,b\n1,2,3\n"));
    EXPECT_FALSE(notedTable(std::string(mostColumnsNoted, ',')));
    EXPECT_TRUE(notedTable(std::string(mostColumnsNoted - 1, ',')));
    const auto empty = notedTable("a,b");
    ASSERT_TRUE(empty);
    EXPECT_THAT(empty->isNumeric, ElementsAre(0, 0)) << "no cell is a number";
    EXPECT_TRUE(isTableKey("qc.table"));
    EXPECT_FALSE(isTableKey("qc.table.note"));
}

TEST(NotedTableTest, RowsAreLimitedAndCounted)
{
    std::string csv = "trace\n";
    for (std::size_t row = 0; row < mostRowsNoted + 7; ++row)
        csv += std::to_string(row) + "\n";
    const auto table = notedTable(csv);
    ASSERT_TRUE(table);
    EXPECT_EQ(table->rows.size(), mostRowsNoted);
    EXPECT_EQ(table->rowsLeftOut, 7u);
}

TEST(HtmlReportTest, TablesOfModulesStandBelowTheirPicturesOrByThemselves)
{
    RunResult result = smallResult();
    result.modules[1].order = 2;
    result.modules[1].metadata = {{"qc.table", "trace,flags\n7,<b>weak\n"},
                                  {"qc.table.note", "Flagged traces\nall 1 & more"}};
    const std::string table =
        "<div class=\"noted\" id=\"table-2-qc.table\"><div class=\"caption\"><div><h3>Flagged "
        "traces</h3><p class=\"soft small\">noted by show; all 1 &amp; more</p></div><button "
        "type=\"button\" hidden>Copy as CSV</button></div>";
    const std::string row = "<tr><th scope=\"row\" class=\"n\">7</th><td>&lt;b&gt;weak</td></tr>";

    std::string page = reportOf(result);
    EXPECT_THAT(page, HasSubstr("<li><a href=\"#tables\">Tables</a></li>"));
    EXPECT_THAT(page, HasSubstr(table));
    EXPECT_THAT(page, HasSubstr(row));
    EXPECT_THAT(page, HasSubstr("<a href=\"#table-2-qc.table\">1 row, shown as a table</a>"));

    Pad pad = sectionPad();
    pad.module = "show";
    page = htmlReport(result, {pad});
    EXPECT_THAT(page, HasSubstr("</figure>\n" + table));
    EXPECT_THAT(page, Not(HasSubstr("#tables")));

    result.modules[1].metadata = {{"qc.table", "trace,flags\n7\n"}};
    page = reportOf(result);
    EXPECT_THAT(page, Not(HasSubstr("table-2-qc.table")));
    EXPECT_THAT(page, HasSubstr("<td class=\"lines\">trace,flags\n7\n</td>"))
        << "what is not a table is shown as text";
}

TEST(HtmlReportTest, WhatModulesNotedIsShownAsText)
{
    RunResult result = smallResult();
    EXPECT_THAT(reportOf(result), HasSubstr("No module noted anything."));
    result.modules[1].metadata = {{"a<b", "1\n<script>"}, {"long", std::string(5000, 'x')}};

    const std::string page = reportOf(result);

    EXPECT_THAT(page, HasSubstr("aria-label=\"Metadata of show\""));
    EXPECT_THAT(page,
                HasSubstr("<code>a&lt;b</code></th><td class=\"lines\">1\n&lt;script&gt;</td>"));
    EXPECT_THAT(page, HasSubstr(" … (1000 more bytes)"));
    EXPECT_THAT(page, Not(HasSubstr("Metadata of read")));
}
