// Jobs whose process ends without a decision of the command: modules that call exit() in one way or
// another, that crash, and signals. Each such end is told with module and entry point, has an exit
// code that is not 0, and leaves neither half an output nor anything else.
#include "JobDirectory.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

constexpr const char* older = "an older result\n";

class EndedJobTest : public ::testing::Test
{
protected:
    // 200 traces go through the module `bad` to out.sgy, of which there is an older result.
    void writeJob(const std::string& module)
    {
        directory.write("job.yaml", "scratch: {directory: scratch, traces: 20}\n"
                                    "modules:\n"
                                    "  - {name: make, module: synthetic, shots: 5, channels: 40, "
                                    "samples: 500}\n"
                                    "  - {name: bad, input: make, " +
                                        module +
                                        "}\n"
                                        "  - {name: write, module: segy_out, input: bad, "
                                        "file: out.sgy}\n");
        directory.write("out.sgy", older);
    }

    static std::string endProcess(const std::string& how, int with = 0,
                                  const std::string& where = "process")
    {
        return "module: end_process, how: " + how + ", with: " + std::to_string(with) +
               ", where: " + where + ", at: 3";
    }

    JobEnd run(std::vector<std::string> options = {})
    {
        std::vector<std::string> words = {"run", "job.yaml", "-q"};
        words.insert(words.end(), options.begin(), options.end());
        return directory.run(words);
    }

    void expectNothingLeft(const JobEnd& end) const
    {
        EXPECT_THAT(directory.names(), ElementsAre("job.yaml", "out.sgy", "scratch")) << end.errors;
        EXPECT_TRUE(directory.read("out.sgy") == older) << end.errors;
        EXPECT_THAT(directory.names("scratch"), IsEmpty()) << end.errors;
    }

    // Waits until the module has said that its loop begins.
    static void awaitLoop(const RunningJob& job)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < end) {
            std::ifstream file(job.errorFile);
            std::ostringstream errors;
            errors << file.rdbuf();
            if (errors.str().find("from here on") != std::string::npos)
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    std::string removedOutput() const
    {
        return "\nvorn: incomplete, removed: " + directory.path(".out.sgy.vorn-");
    }

    JobDirectory directory;
};

// ---- A module that calls exit() ----

struct ExitCase
{
    const char* name;
    const char* how;
    int code;
    const char* told;
};

void PrintTo(const ExitCase& row, std::ostream* stream)
{
    *stream << row.name;
}

class ExitTest : public EndedJobTest, public ::testing::WithParamInterface<ExitCase>
{
};

TEST_P(ExitTest, EndsWithExitCodeOneAndNamesTheModule)
{
    writeJob(endProcess(GetParam().how, GetParam().code));
    const JobEnd end = run();

    EXPECT_EQ(end.exitCode, 1) << end.errors;
    EXPECT_FALSE(end.killed);
    EXPECT_THAT(end.errors,
                HasSubstr(std::string("vorn: module \"bad\" ") + GetParam().told +
                          "; modules must report errors by messages" + removedOutput()));
    expectNothingLeft(end);
}

INSTANTIATE_TEST_SUITE_P(
    Ways, ExitTest,
    ::testing::Values(
        ExitCase{"exit0", "exit", 0,
                 "ended the process in process_, trace 3 of its input by exit with exit code 0"},
        ExitCase{"exit7", "exit", 7,
                 "ended the process in process_, trace 3 of its input by exit with exit code 7"},
        ExitCase{"_exit0", "_exit", 0,
                 "ended the process in process_, trace 3 of its input by _exit with exit code 0"},
        ExitCase{"_Exit0", "_Exit", 0,
                 "ended the process in process_, trace 3 of its input by _Exit with exit code 0"},
        ExitCase{"quick_exit0", "quick_exit", 0,
                 "ended the process in process_, trace 3 of its input by quick_exit"},
        ExitCase{"thread", "exit in a thread", 0,
                 "ended the process in process_, trace 3 of its input by exit with exit code 0"},
        ExitCase{"pthread_exit", "pthread_exit", 0,
                 "ended the thread of the job in process_, trace 3 of its input"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(EndedJobTest, AnExitIsToldInEveryEntryPoint)
{
    for (const std::string entry : {"preprocess", "postprocess"}) {
        for (const std::string how : {"exit", "_exit", "pthread_exit"}) {
            SCOPED_TRACE(how + " in " + entry);
            writeJob(endProcess(how, 0, entry));
            const JobEnd end = run();

            EXPECT_EQ(end.exitCode, 1);
            EXPECT_THAT(end.errors, AllOf(HasSubstr("vorn: module \"bad\" ended the "),
                                          HasSubstr(" in " + entry + "_")));
            expectNothingLeft(end);
        }
    }
}

TEST_F(EndedJobTest, AnExitWhileALibraryIsLoadedIsTold)
{
    writeJob("module: exit_when_loaded");
    const JobEnd end = run();

    EXPECT_EQ(end.exitCode, 1);
    EXPECT_THAT(end.errors,
                HasSubstr("vorn: module \"bad\" ended the process while its library was "
                          "loaded by _exit with exit code 0"));
    expectNothingLeft(end);
}

TEST_F(EndedJobTest, AnExitWhileALibraryIsUnloadedIsTold)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "libraries stay loaded for the sanitizer's report of leaks";
#endif
    directory.write("job.yaml", "scratch: {directory: scratch, traces: 20}\n"
                                "modules:\n"
                                "  - {name: make, module: synthetic, shots: 1}\n"
                                "  - {name: bad, input: make, module: exit_when_unloaded}\n");
    const JobEnd end = run();

    EXPECT_EQ(end.exitCode, 1);
    EXPECT_THAT(end.errors,
                HasSubstr("vorn: module \"bad\" ended the process while its library was "
                          "unloaded by _exit with exit code 0"));
    EXPECT_THAT(directory.names("scratch"), IsEmpty());
}

TEST_F(EndedJobTest, FortranStopIsAnExit)
{
    for (const int error : {0, 1}) {
        SCOPED_TRACE(error);
        writeJob("module: fortran_stop, error: " + std::to_string(error));
        const JobEnd end = run();

        EXPECT_EQ(end.exitCode, 1);
        EXPECT_THAT(end.errors,
                    HasSubstr("vorn: module \"bad\" ended the process in process_, trace "
                              "1 of its input by exit with exit code " +
                              std::string(error == 1 ? "3" : "0")));
        expectNothingLeft(end);
    }
}

TEST_F(EndedJobTest, ChildProcessesOfModulesEndAsTheyLike)
{
    writeJob(endProcess("fork"));
    const JobEnd end = run();

    EXPECT_EQ(end.exitCode, 0) << end.errors;
    EXPECT_THAT(end.errors, HasSubstr("children: 5 6 7"));
    EXPECT_THAT(end.errors, Not(HasSubstr("ended the process")));
    EXPECT_GT(directory.read("out.sgy").size(), 200u * 500 * 4);
    EXPECT_THAT(directory.names("scratch"), IsEmpty());
}

// ---- Crashes, and signals that end a process ----

struct SignalCase
{
    const char* name;
    const char* how;
    int signal;
    const char* told;
};

void PrintTo(const SignalCase& row, std::ostream* stream)
{
    *stream << row.name;
}

class SignalTest : public EndedJobTest, public ::testing::WithParamInterface<SignalCase>
{
};

TEST_P(SignalTest, IsToldAndLeavesNothing)
{
#ifdef __SANITIZE_ADDRESS__
    const std::string how = GetParam().how;
    if (how == "corrupt heap" || how == "null pointer" || how == "overflow")
        GTEST_SKIP() << "the sanitizers end the process themselves";
#endif
    writeJob(endProcess(GetParam().how, GetParam().signal));
    const auto start = std::chrono::steady_clock::now();
    const JobEnd end = run();
    const auto seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    EXPECT_EQ(end.exitCode, 128 + GetParam().signal) << end.errors;
    EXPECT_TRUE(end.killed) << "the parent must see the signal";
    EXPECT_THAT(end.errors, HasSubstr(std::string("vorn: ") + GetParam().told + removedOutput()));
    EXPECT_LT(seconds, 4) << "nothing may have to be waited for";
    expectNothingLeft(end);
}

#define CRASHED "module \"bad\" crashed in process_, trace 3 of its input "
#define ENDED "ended by a signal; module \"bad\" was running in process_, trace 3 of its input "

INSTANTIATE_TEST_SUITE_P(
    Signals, SignalTest,
    ::testing::Values(SignalCase{"null_pointer", "null pointer", SIGSEGV, CRASHED "(SIGSEGV)"},
                      SignalCase{"stack_overflow", "overflow", SIGSEGV,
                                 CRASHED "(SIGSEGV, stack overflow)"},
                      SignalCase{"corrupt_heap", "corrupt heap", SIGABRT, CRASHED "(SIGABRT)"},
                      SignalCase{"SIGABRT", "raise", SIGABRT, CRASHED "(SIGABRT)"},
                      SignalCase{"SIGBUS", "raise", SIGBUS, CRASHED "(SIGBUS)"},
                      SignalCase{"SIGFPE", "raise", SIGFPE, CRASHED "(SIGFPE)"},
                      SignalCase{"SIGILL", "raise", SIGILL, CRASHED "(SIGILL)"},
                      SignalCase{"SIGSYS", "raise", SIGSYS, CRASHED "(SIGSYS)"},
                      SignalCase{"SIGTRAP", "raise", SIGTRAP, CRASHED "(SIGTRAP)"},
                      SignalCase{"file_limit", "write", SIGXFSZ,
                                 ENDED "(SIGXFSZ: the limit of the size of files is reached, see "
                                       "ulimit -f)"},
                      SignalCase{"SIGXCPU", "raise", SIGXCPU,
                                 ENDED "(SIGXCPU: the limit of processor time is reached, see "
                                       "ulimit -t)"},
                      SignalCase{"SIGQUIT", "kill", SIGQUIT, ENDED "(SIGQUIT)"},
                      SignalCase{"SIGALRM", "kill", SIGALRM, ENDED "(SIGALRM)"},
                      SignalCase{"SIGUSR1", "kill", SIGUSR1, ENDED "(SIGUSR1)"},
                      SignalCase{"SIGUSR2", "kill", SIGUSR2, ENDED "(SIGUSR2)"},
                      SignalCase{"SIGVTALRM", "raise", SIGVTALRM, ENDED "(SIGVTALRM)"},
                      SignalCase{"SIGPROF", "raise", SIGPROF, ENDED "(SIGPROF)"}),
    [](const auto& row) { return std::string(row.param.name); });

// ---- What is told of the module that has ended the process ----

class CrashReportTest : public EndedJobTest
{
protected:
    // The errors of a job whose module `bad` ends as `how` says.
    std::string errorsOf(const std::string& how, int with = 0, const std::string& where = "process")
    {
        writeJob(endProcess(how, with, where));
        return run().errors;
    }

    static bool hasLineReader() { return std::system("addr2line --version > /dev/null 2>&1") == 0; }
    static bool hasSanitizer()
    {
#ifdef __SANITIZE_ADDRESS__
        return true;
#else
        return false;
#endif
    }
};

TEST_F(CrashReportTest, NamesTraceParametersFunctionAndLine)
{
    if (!hasLineReader() || hasSanitizer())
        GTEST_SKIP() << "needs addr2line, and nobody else who reports crashes";
    const std::string errors = errorsOf("null pointer");

    EXPECT_THAT(errors, HasSubstr("\nvorn: crash report\n"
                                  "  module      bad: end_process, job.yaml:4\n"
                                  "  fault       access to the address 0x0, where no memory is\n"
                                  "  parameters  how = null pointer\n"
                                  "              with = 0\n"
                                  "              where = process\n"
                                  "              at = 3\n"
                                  "  input       trace 3: tracl 3, tracr 3, fldr 1, tracf 3, "));
    EXPECT_THAT(errors,
                ContainsRegex("  stack       end at .*tests/modules/end_process\\.c:[0-9]+\n"
                              "              process_ at .*/end_process\\.c:[0-9]+\n$"));
}

TEST_F(CrashReportTest, AnEndByExitHasItToo)
{
    if (!hasLineReader())
        GTEST_SKIP() << "needs addr2line";
    for (const std::string how : {"exit", "_exit", "quick_exit"}) {
        SCOPED_TRACE(how);
        const std::string errors = errorsOf(how);
        EXPECT_THAT(errors, HasSubstr("\n  parameters  how = " + how + "\n"));
        EXPECT_THAT(errors, HasSubstr("\n  input       trace 3: tracl 3, "));
        EXPECT_THAT(errors, ContainsRegex("  stack       end at .*end_process\\.c:[0-9]+\n"));
    }
    EXPECT_THAT(errorsOf("exit in a thread"), HasSubstr("  stack       exit_in_thread at "));
    EXPECT_THAT(errorsOf("pthread_exit"),
                AllOf(HasSubstr("\n  input       trace 3: "), Not(HasSubstr("  stack"))))
        << "the stack has been unwound";
}

// All of it, behind the messages that have come before.
TEST_F(CrashReportTest, IsInTheLogToo)
{
    if (hasSanitizer())
        GTEST_SKIP() << "what a sanitizer says is on standard error only";
    for (const std::string how : {"null pointer", "_exit", "pthread_exit"}) {
        SCOPED_TRACE(how);
        writeJob(endProcess(how));
        const std::string errors = run({"--log", "run.log"}).errors;
        const std::string end = errors.substr(errors.find("vorn: module \"bad\" "));
        ASSERT_THAT(end, HasSubstr("\nvorn: crash report\n  module      bad: end_process, job."));
        ASSERT_THAT(end, HasSubstr("\nvorn: incomplete, removed: "));
        EXPECT_THAT(directory.read("run.log"), EndsWith("\n" + end));
    }
}

TEST_F(CrashReportTest, FortranStopShowsItsLine)
{
    if (!hasLineReader())
        GTEST_SKIP() << "needs addr2line";
    writeJob("module: fortran_stop, error: 1");
    EXPECT_THAT(run().errors, ContainsRegex(" process_ at .*fortran_stop\\.f90:27\n"));
}

TEST_F(CrashReportTest, ABrokenHeapAFullStackAndACallOfNothingAreReported)
{
    if (!hasLineReader() || hasSanitizer())
        GTEST_SKIP() << "needs addr2line, and nobody else who reports crashes";
    EXPECT_THAT(errorsOf("corrupt heap"),
                AllOf(HasSubstr("\n  input       trace 3: "),
                      HasSubstr("              corrupt_heap at "), HasSubstr(" process_ at ")));
    EXPECT_THAT(errorsOf("overflow"),
                AllOf(HasSubstr("  stack       overflow at "), ContainsRegex(", [0-9]+ times\n"),
                      HasSubstr(" process_ at ")));
    EXPECT_THAT(errorsOf("null function"),
                AllOf(HasSubstr("  stack       end at "), HasSubstr(" process_ at ")));
    EXPECT_THAT(errorsOf("wrong handle"),
                AllOf(HasSubstr("  stack       SeisTraceSet::setTraceLength(int) at "),
                      HasSubstr("              break_kernel at ")));
}

TEST_F(CrashReportTest, WhatIsNotKnownIsLeftOut)
{
    const std::string before = errorsOf("raise", SIGFPE, "preprocess");
    EXPECT_THAT(before, AllOf(HasSubstr("  module      bad: "), Not(HasSubstr("  input  ")),
                              Not(HasSubstr("  fault  "))));

    writeJob("module: exit_when_loaded");
    EXPECT_THAT(run().errors,
                AllOf(HasSubstr("\n  module      bad: exit_when_loaded, job.yaml:4\n"),
                      Not(HasSubstr("  input  "))));
}

// The functions that the library exports are known without addr2line, and the report says how to
// get the rest.
TEST_F(CrashReportTest, WithoutLineReaderTheCallOfItIsShown)
{
    const std::string path = std::getenv("PATH");
    setenv("PATH", "/nowhere", 1);
    const std::string errors = errorsOf("exit");
    setenv("PATH", path.c_str(), 1);

    EXPECT_THAT(errors,
                ContainsRegex("  stack       libend_process\\.so\\+0x[0-9a-f]+\n"
                              "              process_ in libend_process\\.so\\+0x[0-9a-f]+\n"
                              "  lines       addr2line -Caife /.*/libend_process\\.so( "
                              "0x[0-9a-f]+){2}\n$"));
}

TEST_F(CrashReportTest, AnExceptionShowsWhereItWasThrown)
{
    if (!hasLineReader())
        GTEST_SKIP() << "needs addr2line";
    writeJob("module: host_throw");
    EXPECT_THAT(run().errors,
                ContainsRegex("that it does not handle: no luck today [^\n]*\n"
                              "vorn: crash report\n"
                              "  module      bad: host_throw, job.yaml:4\n"
                              "  input       trace 1: [^\n]*\n"
                              "  stack       process_ at .*host_throw\\.cpp:[0-9]+\n"));

    writeJob("module: fail_at_end, throws: 1");
    EXPECT_THAT(run().errors,
                ContainsRegex("  stack       postprocess_ at .*fail_at_end\\.cpp:[0-9]+\n"));
}

// Modules may throw one for each trace and handle it: only the first ones are noted.
TEST_F(CrashReportTest, AnExceptionAfterManyOthersHasNoStackButTheFacts)
{
    writeJob("module: host_throw, handled: 150");
    EXPECT_THAT(run().errors,
                AllOf(HasSubstr("does not handle: no luck today"),
                      HasSubstr("  input       trace 151: "), Not(HasSubstr("  stack"))));

    writeJob("module: host_throw, handled: 50");
    EXPECT_THAT(run().errors,
                AllOf(HasSubstr("  input       trace 51: "), HasSubstr("  stack       ")));
}

// The lock of the loader is held there, and without addr2line only the loader knows names.
TEST_F(CrashReportTest, ALibraryThatIsBeingLoadedIsNotWaitedFor)
{
    writeJob("module: exit_when_loaded");
    const std::string path = std::getenv("PATH");
    const auto start = std::chrono::steady_clock::now();
    setenv("PATH", "/nowhere", 1);
    const std::string errors = run().errors;
    setenv("PATH", path.c_str(), 1);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;

    EXPECT_THAT(errors, ContainsRegex("  stack       libexit_when_loaded\\.so\\+0x"));
    EXPECT_LT(taken.count(), 4) << "the time after which a report is given up";
}

TEST_F(CrashReportTest, WordsOfAnotherSchemaIdentifyTheTrace)
{
    directory.write("job.yaml", "schema:\n"
                                "  - {name: line_no, type: int32}\n"
                                "  - {name: point_no, type: int64}\n"
                                "modules:\n"
                                "  - {name: make, module: host_source, traces: 9}\n"
                                "  - {name: number, module: header_math, input: make, "
                                "set: [line_no = 7, point_no = 12345678901]}\n"
                                "  - {name: bad, input: number, " +
                                    endProcess("raise", SIGFPE) + "}\n");
    EXPECT_THAT(run().errors, HasSubstr(" line_no 7, point_no 12345678901, "));
}

// ---- Ends that the user decides ----

TEST_F(EndedJobTest, AnInterruptionNamesTheModuleThatLoops)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        writeJob(endProcess("loop"));
        const RunningJob job = directory.start({"run", "job.yaml", "-q"});
        awaitLoop(job);
        kill(job.process, signal);
        const JobEnd end = directory.finish(job);

        EXPECT_EQ(end.exitCode, 128 + signal);
        EXPECT_FALSE(end.killed);
        EXPECT_THAT(end.errors,
                    HasSubstr(std::string("vorn: ") +
                              (signal == SIGINT ? "interrupted" : "ended by a signal") +
                              "; module \"bad\" was running in process_, trace 3 of its input; "
                              "these outputs are incomplete:" +
                              removedOutput()));
        expectNothingLeft(end);
    }
}

TEST_F(EndedJobTest, AModuleThatSendsItsOwnThreadASignalIsInterrupted)
{
    writeJob(endProcess("raise and wait", SIGTERM));
    const JobEnd end = run();

    EXPECT_EQ(end.exitCode, 128 + SIGTERM);
    EXPECT_THAT(end.errors, HasSubstr("vorn: ended by a signal"));
    expectNothingLeft(end);
}

TEST_F(EndedJobTest, TheTimeLimitEndsAnEndlessLoop)
{
    writeJob(endProcess("loop"));
    const auto start = std::chrono::steady_clock::now();
    const JobEnd end = run({"--time-limit", "1500 ms"});
    const auto seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    EXPECT_EQ(end.exitCode, 1);
    EXPECT_FALSE(end.killed);
    EXPECT_THAT(
        end.errors,
        HasSubstr("vorn: the time limit of 1.500 s has passed; module \"bad\" was running in "
                  "process_, trace 3 of its input; these outputs are incomplete:" +
                  removedOutput()));
    EXPECT_GE(seconds, 1.4);
    EXPECT_LT(seconds, 10);
    expectNothingLeft(end);
}

TEST_F(EndedJobTest, TheLogSaysWhyTheJobHasEnded)
{
    writeJob(endProcess("loop"));
    const JobEnd end = run({"--time-limit", "1 s", "--log", "run.log"});
    EXPECT_EQ(end.exitCode, 1);
    const std::string reason = "\nvorn: the time limit of 1.000 s has passed; module ";
    ASSERT_THAT(end.errors, HasSubstr(reason));
    EXPECT_THAT(directory.read("run.log"), EndsWith(end.errors.substr(end.errors.find(reason))));
}

TEST_F(EndedJobTest, AJobWithinItsTimeLimitIsNotEnded)
{
    writeJob(endProcess("none"));
    const JobEnd end = run({"--time-limit", "5 min"});

    EXPECT_EQ(end.exitCode, 0) << end.errors;
    EXPECT_TRUE(directory.read("out.sgy") != older);
}

TEST_F(EndedJobTest, TheProgressNamesTheModuleThatLoops)
{
    writeJob(endProcess("loop"));
    const JobEnd end =
        directory.run({"run", "job.yaml", "--progress", "always", "--time-limit", "3500 ms"});

    EXPECT_THAT(end.errors, HasSubstr(", module \"bad\" in process_, trace 3 of its input\n"));
    EXPECT_THAT(end.errors, HasSubstr(", module \"bad\" in process_, trace 3 of its input for "));
}

// ---- Other commands that write files ----

// The size of files that this process and its children may write, for the life of an object.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &former);
        const rlimit limit = {bytes, former.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &former); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit former;
};

class EndedPlotTest : public EndedJobTest
{
protected:
    EndedPlotTest()
    {
        directory.write("make.yaml",
                        "modules:\n"
                        "  - {name: make, module: synthetic, shots: 10, channels: 100}\n"
                        "  - {name: write, module: segy_out, input: make, file: in.sgy}\n");
        directory.run({"run", "make.yaml", "-q"});
        directory.write("out.png", older);
    }

    void expectOldPictureAndNothingElse(const JobEnd& end) const
    {
        EXPECT_THAT(directory.names(), ElementsAre("in.sgy", "make.yaml", "out.png", "scratch"))
            << end.errors;
        EXPECT_TRUE(directory.read("out.png") == older) << end.errors;
    }
};

// Processes that are started get as much time, in seconds, and this one no more either.
class ProcessorTimeLimit
{
public:
    explicit ProcessorTimeLimit(rlim_t seconds)
    {
        getrlimit(RLIMIT_CPU, &former);
        const rlimit limit = {seconds, former.rlim_max};
        setrlimit(RLIMIT_CPU, &limit);
    }
    ~ProcessorTimeLimit() { setrlimit(RLIMIT_CPU, &former); }
    ProcessorTimeLimit(const ProcessorTimeLimit&) = delete;
    ProcessorTimeLimit& operator=(const ProcessorTimeLimit&) = delete;

private:
    rlimit former;
};

TEST_F(EndedPlotTest, ASignalInTheMiddleOfThePictureLeavesNoHiddenFile)
{
    JobEnd end;
    {
        const FileSizeLimit limit(10000);
        end = directory.run({"plot", "in.sgy", "-o", "out.png"});
    }

    EXPECT_EQ(end.exitCode, 128 + SIGXFSZ);
    EXPECT_TRUE(end.killed);
    EXPECT_THAT(end.errors,
                StartsWith("vorn: ended by a signal (SIGXFSZ: the limit of the size of files is "
                           "reached, see ulimit -f)\nvorn: incomplete, removed: " +
                           directory.path(".out.png.vorn-")));
    expectOldPictureAndNothingElse(end);
}

TEST_F(EndedPlotTest, AJobThatReachesItsProcessorTimeLeavesNoHiddenFile)
{
    directory.write("long.yaml",
                    "job: long\n"
                    "modules:\n"
                    "  - {name: make, module: synthetic, shots: 100000, channels: 100}\n"
                    "  - {name: write, module: segy_out, input: make, file: long.sgy}\n");
    JobEnd end;
    {
        const ProcessorTimeLimit limit(1);
        end = directory.run({"run", "long.yaml", "-q"});
    }

    EXPECT_EQ(end.exitCode, 128 + SIGXCPU) << end.errors;
    EXPECT_TRUE(end.killed);
    EXPECT_THAT(end.errors, HasSubstr("(SIGXCPU: the limit of processor time is reached, see "
                                      "ulimit -t)\nvorn: incomplete, removed: " +
                                      directory.path(".long.sgy.vorn-")));
    EXPECT_THAT(directory.names(),
                ElementsAre("in.sgy", "long.yaml", "make.yaml", "out.png", "scratch"));
}

TEST_F(EndedPlotTest, CtrlCAtAnyMomentLeavesNoHiddenFile)
{
    const auto begin = std::chrono::steady_clock::now();
    directory.run({"plot", "in.sgy", "-o", "out.png"});
    const auto whole = std::chrono::steady_clock::now() - begin;
    int interrupted = 0;
    constexpr int turns = 20;
    for (int i = 0; i < turns && !HasFailure(); ++i) {
        directory.write("out.png", older);
        const RunningJob job = directory.start({"plot", "in.sgy", "-o", "out.png"});
        std::this_thread::sleep_for(whole * i / turns);
        kill(job.process, SIGINT);
        const JobEnd end = directory.finish(job);
        EXPECT_TRUE(end.exitCode == 0 || end.exitCode == 128 + SIGINT) << end.errors;
        if (end.exitCode == 0)
            continue;
        // Nothing is said where the signal comes before the command has begun.
        EXPECT_THAT(end.errors, AnyOf(IsEmpty(), StartsWith("vorn: interrupted\n")));
        EXPECT_THAT(directory.names(), ElementsAre("in.sgy", "make.yaml", "out.png", "scratch"));
        ++interrupted;
    }
    EXPECT_GT(interrupted, 3);
}

// What segy_out has published before the library of another module ends the process is whole, and
// is not among what is told.
TEST_F(EndedJobTest, AWholeOutputIsNotCalledIncomplete)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "libraries stay loaded for the sanitizer's report of leaks";
#endif
    directory.write("job.yaml", "scratch: {directory: scratch, traces: 20}\n"
                                "modules:\n"
                                "  - {name: make, module: synthetic, shots: 1, channels: 40}\n"
                                "  - {name: write, module: segy_out, input: make, file: out.sgy}\n"
                                "  - {name: again, module: synthetic, shots: 1, channels: 9}\n"
                                "  - {name: bad, input: again, module: exit_when_unloaded}\n");
    const JobEnd end = run();

    EXPECT_EQ(end.exitCode, 1);
    EXPECT_TRUE(directory.exists("out.sgy"));
    EXPECT_THAT(end.errors, HasSubstr("while its library was unloaded"));
    EXPECT_THAT(end.errors, Not(HasSubstr("incomplete: " + directory.path("out.sgy"))));
    EXPECT_THAT(directory.names("scratch"), IsEmpty());
}

} // namespace
