// What is checked of files, selections and header words before a job runs, with the modules that
// read and write trace files.
#include "ProcessingTree.h"
#include "job/JobCheck.h"

#include <SegyBytes.h>

#include <filesystem>
#include <gmock/gmock.h>

using namespace host;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class JobCheckWordsTest : public KernelFixture
{
protected:
    JobCheckWordsTest() : catalog(tree.home())
    {
        for (const char* name : {"line_1.sgy", "line_2.sgy"})
            writeBytes(tree.path(name), ieeeFile(3, 4).bytes());
    }

    ResolvedJob check(const std::string& text)
    {
        diagnostics = Diagnostics();
        const std::string path = tree.path("job.yaml");
        writeFile(path, text);
        return checkJob(*readJobFile(path, diagnostics), catalog, diagnostics);
    }
    // A reader with some more lines, and a writer behind it.
    ResolvedJob checkReader(const std::string& lines, const std::string& before = "",
                            const std::string& ofWriter = "")
    {
        return check(before +
                     "modules:\n"
                     "  - {name: write, module: segy_out, input: read, file: out.sgy" +
                     ofWriter +
                     "}\n"
                     "  - name: read\n"
                     "    module: segy_in\n" +
                     lines);
    }
    std::vector<std::string> lines() const
    {
        std::vector<std::string> lines;
        for (const Diagnostic& one : diagnostics.sorted())
            lines.push_back(one.line().substr(one.line().find("job.yaml")));
        return lines;
    }
    static int typeOf(const ResolvedJob& job, const std::string& name)
    {
        for (const ResolvedAttribute& attribute : job.attributes) {
            if (attribute.name == name)
                return attribute.type;
        }
        return 0;
    }
    static std::string textOf(const ResolvedModule& module, const std::string& name)
    {
        for (const ResolvedParameter& parameter : module.parameters) {
            if (parameter.name == name)
                return parameter.value.text;
        }
        return "";
    }

    ProcessingTree tree;
    ModuleCatalog catalog;
    Diagnostics diagnostics;
};

} // namespace

TEST_F(JobCheckWordsTest, SelectionsMapsAndPatternsOfFilesAreAccepted)
{
    const ResolvedJob job =
        checkReader("    file: line_*.sgy\n"
                    "    words: {iline: 9, xline: 21, cdpx: {byte: 73, type: double}, crew: 233}\n"
                    "    select: {offset: [100, 2000], iline: [100, 200, 2], crew: 3}\n");
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_EQ(textOf(job.modules[1], "words"), "iline=9, xline=21, cdpx=73:double, crew=233");
    EXPECT_EQ(textOf(job.modules[1], "select"), "offset=100:2000; iline=100:200:2; crew=3");
    EXPECT_EQ(typeOf(job, "iline"), attributeTypeCode("int32"));
    EXPECT_EQ(typeOf(job, "cdpx"), attributeTypeCode("float64"));
    EXPECT_EQ(typeOf(job, "crew"), attributeTypeCode("int32"));
    EXPECT_EQ(typeOf(job, "filetrace"), attributeTypeCode("int64"));
}

TEST_F(JobCheckWordsTest, TheMapOfTheJobServesAllReadersWithoutTheirOwnAndNoWriter)
{
    const ResolvedJob job = check("words: {iline: 9, cdpx: {byte: 181, type: ieee}}\n"
                                  "modules:\n"
                                  "  - {name: a, module: segy_in, file: line_1.sgy}\n"
                                  "  - {name: b, module: segy_in, file: line_2.sgy, words: "
                                  "\"cdpx=5:uint32\"}\n"
                                  "  - {name: x, module: segy_out, input: a, file: x.sgy}\n"
                                  "  - {name: y, module: segy_out, input: b, file: y.sgy}\n");
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_EQ(textOf(job.modules[0], "words"), "iline=9, cdpx=181:ieee");
    EXPECT_EQ(textOf(job.modules[1], "words"), "cdpx=5:uint32");
    EXPECT_EQ(textOf(job.modules[2], "words"), "");
    EXPECT_EQ(typeOf(job, "cdpx"), attributeTypeCode("float64"))
        << "of unsigned integers and floats";
}

TEST_F(JobCheckWordsTest, WhatModulesRefuseIsFoundWithItsLine)
{
    struct Row
    {
        std::string lines;
        std::string error;
    };
    const Row rows[] = {
        {"    file: line_1.sgy\n    select: {ofset: [1, 2]}\n",
         "job.yaml:6:13: parameter \"select\" of module \"read\": there is no trace header word "
         "\"ofset\"; did you mean \"offset\"?"},
        {"    file: line_1.sgy\n    select: {offset: [2, 1]}\n",
         "job.yaml:6:13: parameter \"select\" of module \"read\": offset: \"2:1\" ends before it "
         "begins"},
        {"    file: line_1.sgy\n    select: offset\n",
         "job.yaml:6:13: parameter \"select\" of module \"read\": \"offset\" is not WORD=NUMBERS, "
         "as in offset=100:2000"},
        {"    file: line_1.sgy\n    traces: 5-9\n",
         "job.yaml:6:13: parameter \"traces\" of module \"read\": \"5-9\" in \"5-9\" is not a "
         "number; write numbers and ranges as in 1:100:2,200"},
        {"    file: line_1.sgy\n    words: {iline: 0}\n",
         "job.yaml:6:12: parameter \"words\" of module \"read\": \"iline=0\" begins at byte \"0\"; "
         "expected a number from 1 to 240"},
        {"    file: lime_*.sgy\n", "job.yaml:5:11: parameter \"file\" of module \"read\" is \"" +
                                       tree.path("lime_*.sgy") +
                                       "\"; no file matches this pattern"},
    };
    for (const Row& row : rows) {
        checkReader(row.lines);
        EXPECT_THAT(lines(), ElementsAre(row.error));
    }
}

TEST_F(JobCheckWordsTest, AnOutputThatAPatternReadsIsRefused)
{
    check("modules:\n"
          "  - {name: read, module: segy_in, file: line_*.sgy}\n"
          "  - {name: write, module: segy_out, input: read, file: line_2.sgy}\n");
    EXPECT_THAT(lines(),
                ElementsAre("job.yaml:3:56: parameter \"file\" of module \"write\" is \"" +
                            tree.path("line_2.sgy") +
                            "\", which parameter \"file\" of module \"read\" reads; write to "
                            "another file"));
}

TEST_F(JobCheckWordsTest, AMapWithWhichNothingCanBeWrittenIsRefused)
{
    checkReader("    file: line_1.sgy\n", "", ", words: {iline: 9, xline: 12}");
    EXPECT_THAT(
        lines(),
        ElementsAre("job.yaml:2:72: parameter \"words\" of module \"write\": the words iline "
                    "and xline share bytes of the trace header; map one of them to others"));
}

TEST_F(JobCheckWordsTest, AMapOfTheJobThatNoModuleTakesIsRefused)
{
    check("words: {iline: 9}\n"
          "modules:\n"
          "  - {name: made, module: synthetic}\n"
          "  - {name: write, module: segy_out, input: made, file: x.sgy}\n");
    EXPECT_THAT(lines(),
                ElementsAre("job.yaml:1:1: \"words\" maps header words for the modules that read "
                            "files, and this job has none; remove it"));
}
