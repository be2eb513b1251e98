// vorn test MODULE: one module alone in a job, compared with what is expected.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Sanitizers.h"
#include "cli/CommandTable.h"
#include "cli/JobLoader.h"
#include "cli/RunJob.h"
#include "kit/ModuleTrial.h"

#include <cstdio>

namespace host {

namespace {

TrialSettings settingsOf(const Arguments& arguments)
{
    TrialSettings settings;
    settings.module = arguments.text("MODULE");
    settings.inputs = arguments.texts("--in");
    settings.parameters = arguments.texts("--set");
    settings.directories = allowedDirectories(arguments);
    settings.expected = arguments.text("--expect");
    settings.bless = arguments.has("--bless");
    settings.tolerance = arguments.number("--tolerance", settings.tolerance);
    settings.messages = arguments.texts("--message");
    settings.fails = arguments.has("--fails");
    settings.timeLimit = arguments.text("--time-limit", settings.timeLimit);
    checkTimeLimit(arguments);
    if (settings.bless && settings.expected.empty())
        throw CommandError("--bless: --expect names the file to write");
    if (settings.tolerance < 0)
        throw CommandError("--tolerance: a number from 0 is expected");
    if (settings.fails && !settings.expected.empty())
        throw CommandError("--expect: a module that fails gives no output");
    return settings;
}

int runTest(const Arguments& arguments)
{
    const TrialSettings settings = settingsOf(arguments);
    const TrialResult result = tryModule(settings);
    for (const std::string& line : result.lines)
        std::printf("%s\n", line.c_str());
    if (arguments.has("--verbose") || result.hasNoFacts || hasSanitizerReport(result.log))
        std::fputs(result.log.c_str(), stderr);
    for (const std::string& finding : result.findings)
        std::printf("%s: %s\n", escaped(settings.module).c_str(), escaped(finding).c_str());
    std::printf("%s %s\n", escaped(settings.module).c_str(),
                result.findings.empty() ? "passes" : "does not pass");
    return result.findings.empty() ? exitDone : exitJobErrors;
}

} // namespace

Command testCommand()
{
    return {
        "test",
        runTest,
        "Try one module alone in a job",
        "Runs the module in a job of its own, in a process of its own: traces come from a file or "
        "from the module synthetic (3 shots of 12 channels, 250 samples), and what the module "
        "gives is compared with a file. It is also reported when the module crashes, ends the "
        "process or does not end in time, when it leaves memory or traces behind, when it makes "
        "samples that are not numbers, and when it makes a mistake that \"vorn run "
        "--check-modules\" finds. The exit code is 1 when anything was found.\n\n"
        "The first output is compared, headers exactly and samples within the tolerance. --bless "
        "writes the file of --expect anew; look at it before you rely on it.",
        {{"MODULE", "the module to try", ValueKind::module}},
        {{"--in",
          "FILE",
          "read this .su, .sgy or .segy file, or \"synthetic\"; once for each input",
          ValueKind::file,
          {},
          true},
         {"--set", "PARAMETER=VALUE", "set a parameter of the module", ValueKind::text, {}, true},
         {"--expect", "FILE", "compare the output with this .su file", ValueKind::file},
         {"--tolerance", "SHARE",
          "how much samples may differ, as a share of the largest expected one; 1e-6 if not given",
          ValueKind::number},
         {"--bless", "", "write what the module gives to the file of --expect"},
         {"--message", "TEXT", "a message of the run must contain this", ValueKind::text, {}, true},
         {"--fails", "", "the module must report an error"},
         {"--time-limit", "TIME", "end the run after this time, \"60 s\" if not given"},
         {"--allow-modules-from",
          "DIR",
          "also use the module libraries in this directory",
          ValueKind::directory,
          {},
          true},
         {"-v,--verbose", "", "show all messages of the run"}},
        {{"vorn test agc --set 'window=0.5 s'", "does it run, and does it leave anything behind?"},
         {"vorn test agc --in line.su --set 'window=0.5 s' --expect agc.su",
          "compare with a file"}}};
}

} // namespace host
