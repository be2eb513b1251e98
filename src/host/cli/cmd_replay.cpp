// vorn replay FILE: one module alone, on what a record says that it was given.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Programs.h"
#include "base/Text.h"
#include "cli/CommandTable.h"
#include "job/ModuleCatalog.h"
#include "watch/RecordFile.h"
#include "watch/Replay.h"
#include "watch/WatchedLibrary.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace host {

namespace {

ReplaySettings settingsOf(const Arguments& arguments)
{
    ReplaySettings settings;
    settings.file = arguments.text("FILE");
    settings.library = arguments.text("--library");
    settings.tolerance = arguments.number("--tolerance", 0);
    settings.showMessages = arguments.has("--verbose");
    if (!(settings.tolerance >= 0))
        throw CommandError("--tolerance: a number from 0 is expected");
    if (arguments.has("--gdb") && arguments.has("--valgrind"))
        throw CommandError("--gdb and --valgrind cannot be combined");
    return settings;
}

// Becomes the tool, with this command without the option.
[[noreturn]] void continueUnder(const std::string& tool, const ReplaySettings& settings)
{
    if (!isInstalled(tool))
        throw CommandError(tool + " is not installed");
    const RecordReader known(settings.file); // says what is wrong before the tool starts
    std::vector<std::string> words = {tool};
    if (tool == "gdb")
        words.insert(words.end(), {"-q", "-ex", "set breakpoint pending on", "--args"});
    words.push_back(ownProgram());
    words.insert(words.end(), {"replay", settings.file});
    if (!settings.library.empty())
        words.insert(words.end(), {"--library", settings.library});
    if (settings.tolerance > 0)
        words.insert(words.end(), {"--tolerance", std::to_string(settings.tolerance)});
    if (settings.showMessages)
        words.emplace_back("--verbose");
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    chooseWatchedLibrary();
    execvp(tool.c_str(), arguments.data());
    throw CommandError(tool + " cannot be started: " + std::strerror(errno));
}

void tell(const ReplayResult& result)
{
    std::printf("module       %s (%s) of the job %s, recorded by vorn %s\n",
                quote(result.module).c_str(), escaped(result.kind).c_str(),
                quote(result.job).c_str(), escaped(result.version).c_str());
    std::printf("library      %s\n", escaped(result.library).c_str());
    std::printf("compared     %s of entry points, %s of the interface\n",
                counted(result.entries, "call").c_str(), counted(result.calls, "call").c_str());
    if (result.difference.empty()) {
        std::printf("no difference\n");
    } else {
        std::printf("first difference %s\n", escaped(result.difference.front()).c_str());
        for (std::size_t i = 1; i < result.difference.size(); ++i)
            std::printf("  %s\n", escaped(result.difference[i]).c_str());
    }
    std::fflush(stdout);
    for (const std::string& note : result.notes)
        std::fprintf(stderr, "vorn: %s\n", escaped(note).c_str());
}

int runReplay(const Arguments& arguments)
{
    ReplaySettings settings = settingsOf(arguments);
    if (arguments.has("--gdb"))
        continueUnder("gdb", settings);
    if (arguments.has("--valgrind"))
        continueUnder("valgrind", settings);
    continueOnWatchedLibrary();
    settings.vornHome = findVornHome();
    const ReplayResult result = replay(settings);
    tell(result);
    if (!result.damage.empty())
        throw CommandError("the record " + quote(settings.file) + " " + result.damage +
                           "; only what stands before was compared");
    return result.difference.empty() ? exitDone : exitJobErrors;
}

} // namespace

Command replayCommand()
{
    return {
        "replay",
        runReplay,
        "Run a recorded module alone",
        "Runs one module on the record that \"vorn run JOB.yaml --record MODULE=FILE\" has made: "
        "in a kernel of its own, with the traces, parameters and metadata of the record, without "
        "the job and its data. Each call that the module makes is compared with the recorded one, "
        "and so are the traces that it gives. The first difference is told with the call and the "
        "values; the exit code is 1 then.\n\n"
        "Files, the clock and random numbers are those of this machine. Files that the module "
        "writes by a parameter of its manifest go to a directory that is removed at the end.",
        {{"FILE", "the record", ValueKind::file}},
        {{"--library", "LIBRARY", "replay with this library instead of the recorded module's",
          ValueKind::file},
         {"--tolerance", "SHARE",
          "how much samples may differ, as a share of the largest recorded one; 0 if not given",
          ValueKind::number},
         {"--gdb", "", "start the replay under the debugger gdb"},
         {"--valgrind", "", "start the replay under valgrind"},
         {"-v,--verbose", "", "show the messages of the module"}},
        {{"vorn replay agc.record", "does the module still do what it did?"},
         {"vorn replay agc.record --library build/libagc.so", "does a new version of it?"},
         {"vorn replay agc.record --gdb", "look at it in the debugger"}}};
}

} // namespace host
