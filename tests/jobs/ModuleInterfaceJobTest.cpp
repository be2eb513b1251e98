// The module interface called from its own languages: test modules in C, in Fortran with implicit
// interfaces, and in Fortran with the module vorn_knl call every function of it within real jobs,
// and check results, outputs and statuses themselves. What they do not find as it should be they
// report as messages of type 3; what they do find they count.
#include "GroupEntity.h"
#include "LibraryEntity.h"
#include "ModuleHarness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

const std::filesystem::path testDirectory = VORN_TEST_SOURCE_DIR;

// ---- Jobs ----

struct InterfaceModule
{
    const char* library; // without "lib" and ".so"
    int checks;          // how many checks it makes when all are good
};

std::ostream& operator<<(std::ostream& stream, const InterfaceModule& module)
{
    return stream << module.library;
}

class ModuleInterfaceJobTest : public testing::TestWithParam<InterfaceModule>
{
protected:
    static std::string fileOf(const InterfaceModule& module)
    {
        return std::string("lib") + module.library + ".so";
    }

    static void expectAllChecksGood(const HarnessResult& result)
    {
        ASSERT_TRUE(result.loaded) << result.allMessages();
        EXPECT_THAT(result.messagesOf(3), IsEmpty());
        const std::string expected = std::to_string(GetParam().checks) + " checks passed";
        EXPECT_THAT(result.messagesOf(1, "tested"), Contains(expected));
    }
};

// -- Parameters, groups and libraries

class ParameterInterfaceJobTest : public ModuleInterfaceJobTest
{
protected:
    ParameterInterfaceJobTest() : library("HZ", "/none"), other("??", "/none")
    {
        inner.setParameter("DEPTH", 0, UniVar(2));
        setValues([this](const std::string& name, const UniVar& value) {
            library.setParameter(name, value);
            group.setParameter(name, 1, value);
        });
        library.setParameter("OTHER", UniVar(&other));
        library.setParameter("GROUP", UniVar(&inner));
        group.setParameter("LIBRARY", 1, UniVar(&library));
        group.setParameter("GROUP", 1, UniVar(&inner));
    }

    // Groups that modules make have no owner.
    ~ParameterInterfaceJobTest() override
    {
        delete library.getParameter("NEW GROUP").getGroupValue();
        delete group.getParameter("NEW GROUP", 3).getGroupValue();
    }

    static void setValues(const std::function<void(const std::string&, const UniVar&)>& set)
    {
        const int i32s[] = {1, -2, 3};
        const int64_t i64s[] = {int64_t{1} << 40, -1};
        const float f32s[] = {0.5f, 1.5f, 2.5f, 3.5f};
        const double f64s[] = {0.1};

        set("I32", UniVar(42));
        set("I64", UniVar(int64_t{1} << 40));
        set("F32", UniVar(1.5f));
        set("F64", UniVar(0.1));
        set("TEXT", UniVar("some text"));
        set("PATH", UniVar(std::string(299, 'a') + "z"));
        set("LINES", UniVar(std::string("one\n\ntwo  b")));
        set("EMPTY", UniVar(std::string()));
        set("I32S", UniVar(i32s, 3));
        set("I64S", UniVar(i64s, 2));
        set("F32S", UniVar(f32s, 4));
        set("F64S", UniVar(f64s, 1));
    }

    GroupEntity group;
    GroupEntity inner;
    LibraryEntity library;
    LibraryEntity other;
};

TEST_P(ParameterInterfaceJobTest, ReadsAndWritesParametersGroupsAndLibraries)
{
    ModuleHarness harness;
    HarnessModule& module = harness.add("tested", fileOf(GetParam()));
    setValues([&module](const std::string& name, const UniVar& value) {
        module.parameters[name] = value;
    });
    module.parameters["NUMBER"] = UniVar("12abc");
    module.parameters["GROUP"] = UniVar(&group);
    module.parameters["LIBRARY"] = UniVar(&library);

    const HarnessResult result = harness.run();

    expectAllChecksGood(result);
    EXPECT_EQ(result.bytesLeft.at("tested"), 0);
    // What the module wrote is there for the host: in the objects themselves, and as an option.
    EXPECT_EQ(group.getParameter("NEW I32", 3).getI32Value(), -3);
    EXPECT_EQ(library.getParameter("NEW F64").getF64Value(), 0.2);
    ASSERT_EQ(result.moduleOptions.at("tested").size(), 1u);
    EXPECT_THAT(result.moduleOptions.at("tested").begin()->first, testing::EndsWith(" OPTION"));
    EXPECT_EQ(result.moduleOptions.at("tested").begin()->second.getI32Value(), 17);
}

INSTANTIATE_TEST_SUITE_P(Languages, ParameterInterfaceJobTest,
                         testing::Values(InterfaceModule{"knl_c_parameters", 220},
                                         InterfaceModule{"knl_fortran_parameters", 156},
                                         InterfaceModule{"modern_parameters", 149}),
                         testing::PrintToStringParamName());

// -- Traces

class TraceInterfaceJobTest : public ModuleInterfaceJobTest
{
};

TEST_P(TraceInterfaceJobTest, UsesAttributesBuffersAndTraceSets)
{
    ModuleHarness harness;
    harness.define("number", 2);
    harness.define("copy", 2);
    harness.define("i32", 2, 1, "a number of 32 bits");
    harness.define("i64", 3);
    harness.define("f32", 4);
    harness.define("f64", 5);
    harness.define("text", 9);
    harness.define("i32s", 2, 3);
    harness.define("i64s", 3, 2);
    harness.define("f32s", 4, 4);
    harness.define("f64s", 5, 2);
    harness.push({1, 2, 3, 4}, {{"number", UniVar(1)}});
    harness.push({5, 6, 7, 8}, {{"number", UniVar(2)}});
    harness.push({9, 8, 7, 6}, {{"number", UniVar(3)}});
    harness.add("tested", fileOf(GetParam()));

    const HarnessResult result = harness.run();

    expectAllChecksGood(result);
    EXPECT_EQ(result.traceLength, 3);
    EXPECT_EQ(result.sampleInterval, 4000);
    // One of the modules emits every trace twice; the last one says that it is the last.
    const bool twice = result.traces.size() == 6;
    const size_t step = twice ? 2 : 1;
    ASSERT_EQ(result.traces.size(), 3 * step);
    for (size_t i = 0; i < result.traces.size(); ++i) {
        const HarnessTrace& trace = result.traces[i];
        EXPECT_EQ(trace.attributes.at("number").getI32Value(), 2 * static_cast<int>(i / step + 1));
        EXPECT_EQ(trace.flag, i + 1 == result.traces.size() ? 3 : 0) << "trace " << i;
    }
    EXPECT_THAT(result.traces.front().samples, ElementsAre(1, 2, 3));
    EXPECT_THAT(result.traces.back().samples, ElementsAre(9, 8, 7));
}

INSTANTIATE_TEST_SUITE_P(Languages, TraceInterfaceJobTest,
                         testing::Values(InterfaceModule{"knl_c_traces", 237},
                                         InterfaceModule{"knl_fortran_traces", 175},
                                         InterfaceModule{"modern_traces", 142}),
                         testing::PrintToStringParamName());

// -- Services

class ServiceInterfaceJobTest : public ModuleInterfaceJobTest
{
protected:
    ServiceInterfaceJobTest()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "vorn-XXXXXX").string();
        directory = mkdtemp(pattern.data());
    }

    ~ServiceInterfaceJobTest() override { std::filesystem::remove_all(directory); }

    std::string directory;
    int number = 1234;
    int i32s[3] = {1, -2, 3};
    int64_t i64s[2] = {5, -1};
    float f32s[2] = {0.5f, 1.5f};
    double f64s[1] = {0.1};
    char texts[9] = "abc d   ";
};

TEST_P(ServiceInterfaceJobTest, UsesResourcesFilesMessagesPadsAndMetadata)
{
    ModuleHarness harness;
    harness.push({1});
    harness.push({2});
    harness.scratchDirectory = directory;
    harness.projectDirectory = directory + "/project";
    HarnessModule& module = harness.add("tested", fileOf(GetParam()));
    module.resources["HOST"] = UniVar(static_cast<void*>(&number));
    module.resources["NUMBER"] = UniVar(42);
    module.resources["HOST I32S"] = UniVar(static_cast<void*>(i32s), 3);
    module.resources["HOST I64S"] = UniVar(static_cast<void*>(i64s), 2);
    module.resources["HOST F32S"] = UniVar(static_cast<void*>(f32s), 2);
    module.resources["HOST F64S"] = UniVar(static_cast<void*>(f64s), 1);
    module.resources["HOST TEXTS"] = UniVar(static_cast<void*>(texts), 2);

    const HarnessResult result = harness.run();

    expectAllChecksGood(result);
    EXPECT_EQ(result.bytesLeft.at("tested"), 0);
    EXPECT_TRUE(std::filesystem::is_empty(directory));

    // Each module asks for memory that cannot be had.
    const std::vector<std::string> refusals = result.messagesOf(4, "tested");
    EXPECT_THAT(refusals, Not(IsEmpty()));
    EXPECT_THAT(refusals,
                testing::Each(testing::MatchesRegex("Can not allocate -[0-9]+ byte memory block")));
    ASSERT_EQ(result.messagesOf(0, "tested").size(), 1u);
    EXPECT_THAT(result.messagesOf(0, "tested")[0],
                testing::MatchesRegex("from [A-Za-z ]*[A-Za-z]"));
    EXPECT_THAT(result.arguments,
                ElementsAre("-42", "1099511627776", "1.500000", "0.250000000000", "some text"));
    EXPECT_THAT(result.commands, ElementsAre(testing::MatchesRegex("show [cfm].sgy")));

    ASSERT_EQ(result.pads.size(), 1u);
    const HarnessPad& pad = result.pads[0];
    EXPECT_THAT(pad.title, testing::MatchesRegex("[A-Za-z]+ pad"));
    EXPECT_EQ(pad.type, 1);
    EXPECT_EQ(pad.align, 2);
    // The Fortran form has no such argument, and its pads are not visible at first.
    EXPECT_EQ(pad.visible, pad.title == "C pad" ? 3 : 0);
    ASSERT_EQ(pad.commands.size(), 5u);
    EXPECT_EQ(pad.commands[0].cmdType, 1);
    EXPECT_EQ(pad.commands[0].xpage, 1.5f);
    EXPECT_EQ(pad.commands[0].ypage, 2.5f);
    EXPECT_EQ(pad.commands[0].ipen, 3);
    EXPECT_EQ(pad.commands[1].cmdType, 2);
    EXPECT_EQ(pad.commands[1].height, 0.5f);
    EXPECT_EQ(pad.commands[1].fpn, 3.25f);
    EXPECT_EQ(pad.commands[1].angle, 90.0f);
    EXPECT_EQ(pad.commands[1].ndec, 4);
    EXPECT_EQ(pad.commands[2].cmdType, 3);
    EXPECT_EQ(pad.commands[2].inteq, 7);
    EXPECT_EQ(pad.commands[2].angle, 45.0f);
    EXPECT_EQ(pad.commands[2].inchar, 5);
    EXPECT_THAT(pad.texts, ElementsAre("label"));
    EXPECT_EQ(pad.commands[3].cmdType, 4);
    EXPECT_EQ(pad.commands[3].factor, 0.75f);
    EXPECT_EQ(pad.commands[4].cmdType, 5);
    EXPECT_EQ(pad.commands[4].ipen, 6);

    ASSERT_EQ(result.jobMetadata.size(), 1u);
    EXPECT_THAT(result.jobMetadata.at("job key"), testing::AnyOf("first", "a value"));
    EXPECT_EQ(result.moduleMetadata.at("tested").at("module key"), "abc");
}

INSTANTIATE_TEST_SUITE_P(Languages, ServiceInterfaceJobTest,
                         testing::Values(InterfaceModule{"knl_c_services", 54},
                                         InterfaceModule{"knl_fortran_services", 131},
                                         InterfaceModule{"modern_services", 56}),
                         testing::PrintToStringParamName());

// -- Old-style Fortran

TEST(OldStyleFortranJobTest, FixedFormWithImplicitInterfacesWorks)
{
    ModuleHarness harness;
    harness.push({1, 2, 3});
    harness.push({-4, 5, 6});
    HarnessModule& module = harness.add("tested", "libfortran77.so");
    module.parameters["WINDOW"] = UniVar(25);
    module.parameters["FACTOR"] = UniVar(1.5f);
    module.parameters["MODE"] = UniVar("rms");

    const HarnessResult result = harness.run();

    ASSERT_TRUE(result.loaded) << result.allMessages();
    EXPECT_THAT(result.messagesOf(3), IsEmpty());
    ASSERT_EQ(result.traces.size(), 2u);
    EXPECT_THAT(result.traces[0].samples, ElementsAre(2, 4, 6));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(-8, 10, 12));
    EXPECT_EQ(result.traces[1].attributes.at("own").getI32Value(), 2);
}

// ---- What is covered ----

std::string contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path);
    EXPECT_TRUE(file) << path << " cannot be read";
    return {std::istreambuf_iterator<char>(file), {}};
}

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// Without comments, as they are in the lists, and without empty lines.
std::vector<std::string> linesOf(const std::filesystem::path& path)
{
    std::istringstream text(contentOf(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        line.erase(std::min(line.find('#'), line.size()));
        line.erase(line.find_last_not_of(" \t") + 1);
        if (!line.empty())
            lines.push_back(line);
    }
    return lines;
}

std::set<std::string> exportedNames()
{
    const std::vector<std::string> lines =
        linesOf(testDirectory / "../src/kernel/VORN_kernel.symbols");
    return {lines.begin(), lines.end()};
}

struct CoverageRow
{
    std::string function;
    std::string module; // a source of tests/modules
};

std::vector<CoverageRow> coverageTable()
{
    std::vector<CoverageRow> rows;
    for (const std::string& line : linesOf(testDirectory / "jobs/interface_coverage.txt")) {
        std::istringstream words(line);
        CoverageRow row;
        words >> row.function >> row.module;
        rows.push_back(row);
    }
    return rows;
}

// Whether the source of a test module calls a function that is exported as `function`, by the name
// that the function has in the language of the source.
bool calls(const std::string& source, const std::string& module, std::string function)
{
    const bool isFortran = std::filesystem::path(module).extension() != ".c";
    if (isFortran && function.back() != '_')
        return contains(source, "bind(C, name=\"" + function + "\")");
    if (isFortran)
        function.pop_back();
    const std::string before = isFortran ? "call " : "[^A-Za-z0-9_]";
    return std::regex_search(source, std::regex(before + function + "\\("));
}

TEST(InterfaceCoverageTest, EveryExportedNameIsInTheTable)
{
    std::set<std::string> covered;
    for (const CoverageRow& row : coverageTable())
        covered.insert(row.function);

    EXPECT_EQ(covered, exportedNames());
}

TEST(InterfaceCoverageTest, EveryFunctionOfTheTableIsCalledByTheModuleItNames)
{
    const std::vector<CoverageRow> rows = coverageTable();
    ASSERT_THAT(rows, Not(IsEmpty()));
    for (const CoverageRow& row : rows) {
        const std::string source = contentOf(testDirectory / "modules" / row.module);
        EXPECT_TRUE(calls(source, row.module, row.function))
            << row.module << " does not call " << row.function;
    }
}

TEST(InterfaceCoverageTest, EveryModuleOfTheTableIsRunHere)
{
    const std::string thisFile = contentOf(testDirectory / "jobs/ModuleInterfaceJobTest.cpp");
    for (const CoverageRow& row : coverageTable()) {
        const std::string library = std::filesystem::path(row.module).stem().string();
        EXPECT_TRUE(contains(thisFile, "InterfaceModule{\"" + library + "\"")) << library;
    }
}

TEST(InterfaceCoverageTest, TheFortranModuleReachesEveryNameOfTheFortranForm)
{
    const std::string module = contentOf(testDirectory / "../fortran/vorn_knl.f90");
    const std::set<std::string> unlike = {"knl_OpenFile", "knl_istracebufferusescratch"};
    for (const std::string& name : exportedNames()) {
        if (name.back() != '_' && unlike.count(name) == 0)
            continue;
        EXPECT_TRUE(contains(module, "bind(C, name=\"" + name + "\")")) << name;
    }
}

TEST(InterfaceCoverageTest, TheFortranModuleReachesNothingElse)
{
    const std::string module = contentOf(testDirectory / "../fortran/vorn_knl.f90");
    const std::set<std::string> exported = exportedNames();
    const std::regex label("name=\"([^\"]*)\"");
    for (std::sregex_iterator match(module.begin(), module.end(), label), end; match != end;
         ++match)
        EXPECT_EQ(exported.count((*match)[1].str()), 1u) << (*match)[1].str();
}

TEST(InterfaceCoverageTest, EveryPublicProcedureOfTheFortranModuleIsCalled)
{
    std::string tests;
    for (const char* name : {"modern_parameters.f90", "modern_traces.f90", "modern_services.f90"})
        tests += contentOf(testDirectory / "modules" / name);

    size_t procedures = 0;
    const std::regex name("knl_[a-z0-9_]+");
    for (const std::string& line : linesOf(testDirectory / "../fortran/vorn_knl.f90")) {
        if (line.rfind("  public ::", 0) != 0)
            continue;
        for (std::sregex_iterator match(line.begin(), line.end(), name), end; match != end; ++match)
        {
            ++procedures;
            EXPECT_TRUE(contains(tests, "call " + match->str() + "(")) << match->str();
        }
    }
    EXPECT_GT(procedures, 70u);
}

} // namespace
