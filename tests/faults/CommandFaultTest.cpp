// `vorn run` in child processes, in which one call of the C library after the other fails: SEG-Y
// and Seismic Unix in and out, paging, reports. What must hold whatever fails: an exit code and a
// text say so, no output is there that is not whole and right, and nothing is left behind.
#include "CommandRun.h"
#include "FaultRun.h"
#include "failing.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

struct CommandJob
{
    const char* name;
    std::vector<std::string> options; // behind "vorn run job.yaml"
    std::string modules;              // of the job file
    std::vector<std::string> outputs; // in the directory "out"
    // The library that writes JSON ends the process when it finds no memory. The traces are written
    // by then.
    bool mayAbort;
};

void PrintTo(const CommandJob& job, std::ostream* stream)
{
    *stream << job.name;
}

const CommandJob jobs[] = {
    {"segy_in_and_out",
     {},
     "  - {name: read, module: segy_in, file: in/line.sgy}\n"
     "  - {name: loud, module: gain, input: read}\n"
     "  - {name: write, module: segy_out, input: loud, file: out/line.sgy}\n",
     {"line.sgy"},
     false},
    {"su_in_and_out",
     {},
     "  - {name: read, module: su_in, file: in/line.su}\n"
     "  - {name: write, module: su_out, input: read, file: out/line.su}\n",
     {"line.su"},
     false},
    {"paging",
     {"--scratch-traces", "10"},
     "  - {name: read, module: segy_in, file: in/line.sgy}\n"
     "  - {name: same, module: gain, input: read, factor: 1}\n"
     "  - {name: turned, module: sort, keys: [-tracl], input: same}\n"
     "  - {name: write, module: segy_out, input: turned, file: out/line.sgy}\n",
     {"line.sgy"},
     false},
    {"sorted_reading",
     {},
     "  - {name: read, module: segy_in, file: in/line.sgy}\n"
     "  - {name: turned, module: sort, keys: [-tracl], input: read}\n"
     "  - {name: write, module: segy_out, input: turned, file: out/line.sgy}\n",
     {"line.sgy"},
     false},
    {"two_outputs",
     {},
     "  - {name: read, module: segy_in, file: in/line.sgy}\n"
     "  - {name: first, module: segy_out, input: read, file: out/first.sgy}\n"
     "  - {name: second, module: su_out, input: read, file: out/second.su}\n",
     {"first.sgy", "second.su"},
     false},
    {"reports",
     {"--report", "out/report.html", "--json", "out/report.json"},
     "  - {name: read, module: segy_in, file: in/line.sgy}\n"
     "  - {name: write, module: su_out, input: read, file: out/line.su}\n",
     {"line.su", "report.html", "report.json"},
     true},
};

const Fault fileFaults[] = {
    {"open", EACCES, VORN_FAULT_ONCE},    {"open", EMFILE, VORN_FAULT_FROM_NOW},
    {"fopen", EACCES, VORN_FAULT_ONCE},   {"fdopen", ENOMEM, VORN_FAULT_ONCE},
    {"write", ENOSPC, VORN_FAULT_ONCE},   {"write", EIO, VORN_FAULT_ONCE},
    {"write", EINTR, VORN_FAULT_ONCE},    {"write", 0, VORN_FAULT_SHORT},
    {"fwrite", ENOSPC, VORN_FAULT_ONCE},  {"fwrite", 0, VORN_FAULT_SHORT},
    {"fflush", ENOSPC, VORN_FAULT_ONCE},  {"fclose", ENOSPC, VORN_FAULT_ONCE},
    {"read", EIO, VORN_FAULT_ONCE},       {"read", EINTR, VORN_FAULT_ONCE},
    {"read", 0, VORN_FAULT_SHORT},        {"fread", EIO, VORN_FAULT_ONCE},
    {"fseeko", EIO, VORN_FAULT_ONCE},     {"close", EIO, VORN_FAULT_ONCE},
    {"fcntl", EIO, VORN_FAULT_ONCE},      {"ftruncate", EIO, VORN_FAULT_ONCE},
    {"unlink", EACCES, VORN_FAULT_ONCE},  {"rename", EIO, VORN_FAULT_ONCE},
    {"fchmod", EPERM, VORN_FAULT_ONCE},   {"fsync", EIO, VORN_FAULT_ONCE},
    {"mkdtemp", EACCES, VORN_FAULT_ONCE}, {"dlopen", EACCES, VORN_FAULT_ONCE},
    {"stat", EACCES, VORN_FAULT_ONCE},
};

// Calls of the system may be interrupted and transfer less than they are asked for; a stream that
// does is at its end.
bool canGoOn(const Fault& fault)
{
    const bool isStream = fault.function[0] == 'f';
    return fault.error == EINTR || (fault.kind == VORN_FAULT_SHORT && !isStream);
}

class CommandFaultTest : public testing::TestWithParam<CommandJob>
{
protected:
    CommandFaultTest()
    {
        command.makeInputs();
        command.writeJob(GetParam().modules);
        command.run(GetParam().options, {"malloc", 0, VORN_FAULT_ONCE}, 0);
        expected = command.outputs();
        inputs = command.inputs();
    }

    std::string verdict(const ChildResult& result, const Fault& fault) const
    {
        if (result.signal == SIGALRM)
            return "the command hangs";
        const bool mayAbort = GetParam().mayAbort && std::strcmp(fault.function, "malloc") == 0;
        if (result.signal == SIGABRT && mayAbort && command.outputs().count("line.su") == 1)
            return wrongOutputs(false);
        if (result.signal != 0)
            return std::string("the command crashes: ") + strsignal(result.signal);
        if (result.exitCode < 0 || result.exitCode > 2)
            return "the exit code is " + std::to_string(result.exitCode);
        if (result.exitCode != 0 && command.errors().empty())
            return "the command fails without a word";
        if (result.exitCode != 0 && result.record->happened == 0)
            return "the command fails without need";
        if (result.exitCode != 0 && canGoOn(fault))
            return "the command fails although it could go on";
        if (command.inputs() != inputs)
            return "an input has changed";
        if (!command.scratch().empty())
            return "left in the scratch directory: " + command.scratch().front();
        return wrongOutputs(result.exitCode == 0);
    }

    std::string wrongOutputs(bool succeeded) const
    {
        const std::map<std::string, std::string> written = command.outputs();
        for (const auto& [name, content] : written) {
            const auto known = expected.find(name);
            if (known == expected.end())
                return "left among the outputs: " + name;
            if (!CommandRun::isWhole(name, content, known->second))
                return "the output " + name + " is not what it should be";
        }
        for (const std::string& name : GetParam().outputs) {
            if (succeeded && written.count(name) == 0)
                return "the command succeeds without its output " + name;
        }
        return "";
    }

    void sweep(const Fault& fault, long most)
    {
        command.clear();
        FaultSweep sweep(fault, command.run(GetParam().options, fault, 0).record->calls, most);
        while (sweep.next()) {
            command.clear();
            const ChildResult result = command.run(GetParam().options, fault, sweep.call());
            sweep.note(result, verdict(result, fault),
                       "exit code " + std::to_string(result.exitCode) + "\n" + command.errors());
        }
        sweep.tell(std::string("vorn run ") + GetParam().name);
    }

    CommandRun command;
    std::map<std::string, std::string> expected;
    std::map<std::string, std::string> inputs;
};

} // namespace

TEST_P(CommandFaultTest, RunsWithoutFaults)
{
    for (const std::string& name : GetParam().outputs)
        EXPECT_EQ(expected.count(name), 1u) << name << "\n" << command.errors();
    EXPECT_EQ(expected.size(), GetParam().outputs.size());
}

TEST_P(CommandFaultTest, SurvivesEveryFailureOfTheHeap)
{
    sweep({"malloc", ENOMEM, VORN_FAULT_ONCE}, 250);
}

TEST_P(CommandFaultTest, SurvivesEveryFailureOfTheHeapThatLasts)
{
    sweep({"malloc", ENOMEM, VORN_FAULT_FROM_NOW}, 120);
}

TEST_P(CommandFaultTest, SurvivesEveryFailureWithFiles)
{
    for (const Fault& fault : fileFaults)
        sweep(fault, 30);
}

// Whatever a loss of power leaves: a receipt says that everything else of its part is on the disk,
// and what has its name there has its contents, too.
TEST(PartFaultTest, APartThatIsNotOnTheDiskHasNoReceipt)
{
    CommandRun command;
    command.makeInputs();
    command.writeJob("  - {name: read, module: segy_in, file: in/line.sgy}\n"
                     "  - {name: write, module: segy_out, input: read, file: out/line.sgy}\n"
                     "  - {name: seen, module: spectrum, input: read}\n"
                     "  - {name: turned, module: sort, keys: [-tracl], input: read}\n"
                     "  - {name: last, module: su_out, input: turned, file: out/turned.su}\n");
    const Fault fault = {"fsync", EIO, VORN_FAULT_ONCE};
    ASSERT_EQ(
        command.runCommand({"plan", "job.yaml", "--parts", "2", "-o", "plan"}, fault, 0).exitCode,
        0)
        << command.errors();
    const std::string receipt = command / "plan/part-1.json";
    const std::string spool = command / "plan/part-1.spool-1";
    const std::string states = command / "plan/part-1.state";
    const auto stateCount = [&] { return static_cast<long>(filesIn(states).size()); };

    const ChildResult whole = command.runCommand({"part", "plan", "1"}, fault, 0);
    ASSERT_EQ(whole.exitCode, 0) << command.errors();
    EXPECT_TRUE(std::filesystem::exists(receipt));
    EXPECT_TRUE(std::filesystem::exists(spool));
    const long expectedStates = stateCount();
    EXPECT_GE(expectedStates, 1);
    // The spool, the states, the output, the directories of these three, and the receipt.
    const long calls = whole.record->calls;
    EXPECT_EQ(calls, 1 + expectedStates + 1 + 3 + 1);
    for (long call = 1; call <= calls; ++call) {
        std::filesystem::remove(receipt);
        std::filesystem::remove(spool);
        std::filesystem::remove_all(states);
        const ChildResult result = command.runCommand({"part", "plan", "1"}, fault, call);
        EXPECT_EQ(result.exitCode, 75) << call << command.errors();
        EXPECT_NE(command.errors().find("Input/output error"), std::string::npos) << call;
        EXPECT_FALSE(std::filesystem::exists(receipt)) << call;
        EXPECT_EQ(std::filesystem::exists(spool), call > 1) << call;
        EXPECT_EQ(stateCount(), std::clamp<long>(call - 2, 0, expectedStates)) << call;
    }
}

INSTANTIATE_TEST_SUITE_P(Jobs, CommandFaultTest, testing::ValuesIn(jobs),
                         [](const auto& row) { return std::string(row.param.name); });
