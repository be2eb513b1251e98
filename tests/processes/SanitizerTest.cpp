// Modules that were compiled with -fsanitize, in a command that was not.
#include "JobDirectory.h"

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <string>
#include <vector>

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

// A module that hands its traces on. `fault` is what it does at its third trace, `before` stands
// before its functions.
std::string source(const std::string& fault, const std::string& before = "")
{
    return "#include \"knl.h\"\n#include <stdlib.h>\n" + before +
           "static int calls;\n"
           "static volatile int ten = 10;\n"
           "static int* volatile block;\n"
           "int preprocess_(void)\n"
           "{\n"
           "    void* in;\n"
           "    knl_getInputTraceBuffer(&in, 0);\n"
           "    knl_bldOutputTraceBuffer(0, knl_getTraceLength(in),\n"
           "                             knl_getTraceSampleInterval(in), in);\n"
           "    return 0;\n"
           "}\n"
           "int process_(void)\n"
           "{\n"
           "    void* in;\n"
           "    void* out;\n"
           "    if (++calls == 3) {\n" +
           fault +
           "    }\n"
           "    knl_getInputTraceBuffer(&in, 0);\n"
           "    knl_getOutputTraceBuffer(&out, 0);\n"
           "    knl_mcopyTraceToTrace(in, out, 1, 1, 0, knl_getNumberOfTraces(out));\n"
           "    knl_setDataChannelFlag(out, knl_getDataChannelFlag(in));\n"
           "    return 0;\n"
           "}\n"
           "int postprocess_(void)\n"
           "{\n"
           "    return 0;\n"
           "}\n";
}

const char* const overrun = "        block = malloc(10 * sizeof *block);\n"
                            "        block[ten] = 1;\n"
                            "        free(block);\n";
const char* const tooLarge = "        ten = 2147483647;\n"
                             "        ten = ten + 1;\n";

class SanitizerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
#ifdef __SANITIZE_ADDRESS__
        GTEST_SKIP() << "the command has the sanitizers itself";
#endif
        std::filesystem::create_directories(directory.path("lib"));
    }

    // Makes the module `bad`; false where the compiler has no such sanitizer.
    bool compile(const std::string& text, const std::string& kind)
    {
        directory.write("bad.c", text);
        directory.write("job.yaml",
                        "scratch: {directory: scratch}\n"
                        "modules:\n"
                        "  - {name: make, module: synthetic, shots: 1, channels: 9, samples: 50}\n"
                        "  - {name: bad, module: bad, input: make}\n"
                        "  - {name: write, module: su_out, input: bad, file: out.su}\n");
        directory.write("lib/bad.yaml", "module: bad\npurpose: Has a fault\n"
                                        "inputs: {min: 1, max: 1}\noutputs: {min: 1, max: 1}\n");
        const std::string call = std::string(VORN_TEST_C_COMPILER) + " -g -fPIC -shared -I" +
                                 VORN_TEST_SOURCE_DIR + "/../src/kernel -fsanitize=" + kind +
                                 " -o " + directory.path("lib/libbad.so") + " " +
                                 directory.path("bad.c") + " > /dev/null 2>&1";
        return std::system(call.c_str()) == 0;
    }

    JobEnd run(std::vector<std::string> options = {})
    {
        std::vector<std::string> words = {"run", "job.yaml", "-q", "--allow-modules-from", "lib"};
        words.insert(words.end(), options.begin(), options.end());
        return directory.run(words);
    }

    JobDirectory directory;
};

TEST_F(SanitizerTest, WhatTheAddressSanitizerFindsIsShownWithTheModule)
{
    if (!compile(source(overrun), "address"))
        GTEST_SKIP() << "the compiler has no such sanitizer";
    const JobEnd end = run({"--sanitizer-libs"});

    EXPECT_EQ(end.exitCode, 1) << end.errors;
    EXPECT_THAT(end.errors,
                AllOf(HasSubstr("ERROR: AddressSanitizer: heap-buffer-overflow"),
                      ContainsRegex("#0 [^\n]* in process_ [^\n]*bad\\.c:"),
                      HasSubstr("\nvorn: module \"bad\" was ended by a sanitizer in process_, "
                                "trace 3 of its input\nvorn: incomplete, removed: "),
                      HasSubstr("\nvorn: crash report\n  module      bad: bad, job.yaml:4\n"
                                "  input       trace 3: ")));
    EXPECT_THAT(directory.names(), ElementsAre("bad.c", "job.yaml", "lib", "scratch"));
    EXPECT_THAT(directory.names("scratch"), IsEmpty());
}

TEST_F(SanitizerTest, WithoutTheOptionTheErrorHasTheLineToCopy)
{
    if (!compile(source(overrun), "address"))
        GTEST_SKIP() << "the compiler has no such sanitizer";
    const JobEnd end = run();

    EXPECT_EQ(end.exitCode, 2) << end.errors;
    EXPECT_THAT(
        end.errors,
        ContainsRegex("vorn: job\\.yaml:4:[0-9]+: module \"bad\": its library [^\n]*/lib"
                      "bad\\.so needs lib[^\n]*asan[^\n]*\\.so[.0-9]*, the run-time library "
                      "of a sanitizer, in front of all others; run LD_PRELOAD=/[^\n]* "
                      "[^\n]*vorn run job\\.yaml -q --allow-modules-from lib\n"));
    const auto begin = end.errors.find("LD_PRELOAD=");
    ASSERT_NE(begin, std::string::npos);
    const std::string line = end.errors.substr(begin, end.errors.find('\n', begin) - begin);
    const std::string call = "cd " + directory.path("") + " && " + line + " > copied.txt 2>&1";
    EXPECT_NE(std::system(call.c_str()), 0);
    EXPECT_THAT(directory.read("copied.txt"),
                AllOf(HasSubstr("ERROR: AddressSanitizer: heap-buffer-overflow"),
                      HasSubstr("vorn: module \"bad\" was ended by a sanitizer in process_")));
}

TEST_F(SanitizerTest, ALeakIsShownWithItsFunction)
{
    if (!compile(source("        block = malloc(40);\n        block = NULL;\n"), "address"))
        GTEST_SKIP() << "the compiler has no such sanitizer";
    const JobEnd end = run({"--sanitizer-libs"});

    EXPECT_EQ(end.exitCode, 1) << end.errors;
    EXPECT_THAT(end.errors, AllOf(HasSubstr("Direct leak of 40 byte(s) in 1 object(s)"),
                                  ContainsRegex("#1 [^\n]* in process_ [^\n]*bad\\.c:")));
    EXPECT_TRUE(directory.exists("out.su")) << "the job was done by then";
}

TEST_F(SanitizerTest, ASignalIsToldByTheSanitizerToo)
{
    if (!compile(source("        block = (int*)(long)(ten - 10);\n        *block = 1;\n"),
                 "address"))
        GTEST_SKIP() << "the compiler has no such sanitizer";
    const JobEnd end = run({"--sanitizer-libs"});

    EXPECT_EQ(end.exitCode, 1) << "that of the sanitizer";
    EXPECT_THAT(end.errors,
                AllOf(HasSubstr("vorn: module \"bad\" crashed in process_, trace 3 of its input "
                                "(SIGSEGV)\n"),
                      ContainsRegex("#0 [^\n]* in process_ [^\n]*bad\\.c:"),
                      Not(HasSubstr("\n  stack  "))));
    EXPECT_FALSE(directory.exists("out.su"));
}

TEST_F(SanitizerTest, UndefinedBehaviourIsShown)
{
    if (!compile(source(tooLarge), "undefined"))
        GTEST_SKIP() << "the compiler has no such sanitizer";
    const JobEnd end = run({"--sanitizer-libs"});

    EXPECT_EQ(end.exitCode, 0) << end.errors;
    EXPECT_THAT(end.errors,
                ContainsRegex("bad\\.c:[0-9]+:[0-9]+: runtime error: signed integer overflow: "
                              "2147483647 \\+ 1 cannot be represented in type 'int'"));
}

TEST_F(SanitizerTest, AModuleUnderTestDoesNotPassWithIt)
{
    for (const std::string kind : {"undefined", "address"}) {
        SCOPED_TRACE(kind);
        if (!compile(source(kind == "address" ? overrun : tooLarge), kind))
            GTEST_SKIP() << "the compiler has no such sanitizer";
        const JobEnd end = directory.run({"test", "bad", "--allow-modules-from", "lib"});

        EXPECT_EQ(end.exitCode, 1) << end.output;
        EXPECT_THAT(end.output,
                    AllOf(HasSubstr(kind == "address" ? "AddressSanitizer: heap-buffer-overflow"
                                                      : "runtime error: signed integer overflow"),
                          HasSubstr("bad does not pass\n")));
        EXPECT_THAT(end.errors, HasSubstr("bad.c:")) << "the report itself";
    }
}

// What happens while the library is loaded for trial, of which else nothing is shown.
TEST_F(SanitizerTest, AReportWhileTheLibraryIsTriedIsShown)
{
    if (!compile(source("", "static volatile int most = 2147483647;\n"
                            "__attribute__((constructor)) static void begin(void)\n"
                            "{\n"
                            "    most = most + 1;\n"
                            "}\n"),
                 "undefined"))
        GTEST_SKIP() << "the compiler has no such sanitizer";
    const JobEnd end = directory.run({"check", "job.yaml", "--allow-modules-from", "lib"});

    if (end.exitCode == 2) // the library of clang must be in front
        GTEST_SKIP() << end.errors;
    EXPECT_THAT(end.errors, HasSubstr("runtime error: signed integer overflow"));
}

} // namespace
