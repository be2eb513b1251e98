// vorn check JOB.yaml: everything that can be known of a job without running it.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Text.h"
#include "cli/JobLoader.h"

#include <cstdio>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace host {

namespace {

void printJson(const LoadedJob& loaded)
{
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Diagnostic& one : loaded.diagnostics.sorted()) {
        nlohmann::ordered_json entry;
        entry["source"] = one.place.source;
        if (one.place.line > 0) {
            entry["line"] = one.place.line;
            entry["column"] = one.place.column;
        }
        entry["severity"] = one.isWarning ? "warning" : "error";
        entry["text"] = one.text;
        list.push_back(entry);
    }
    fmt::print("{}\n", list.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

int runCheck(const Arguments& arguments)
{
    const LoadedJob loaded = loadJob(arguments);
    const int code = loaded.diagnostics.hasErrors() ? exitWrongCall : exitDone;
    if (arguments.has("--json")) {
        printJson(loaded);
        return code;
    }
    loaded.diagnostics.print(stderr);
    fmt::print("{}: {}\n", escaped(loaded.path),
               code == exitDone
                   ? countText(loaded.diagnostics) + ", " +
                         counted(static_cast<int64_t>(loaded.job.modules.size()), "module")
                   : countText(loaded.diagnostics));
    return code;
}

} // namespace

Command checkCommand()
{
    std::vector<OptionSpec> options = jobOptions();
    options.push_back({"--json", "", "print the errors and warnings as a JSON array"});
    return {"check",
            runCheck,
            "Check a job without running it",
            "Reports every error in a job file, each with file, line and "
            "column: syntax, unknown and repeated keys, values, units, ranges, missing files, "
            "modules that cannot be loaded, and how the modules are connected. The exit code is 2 "
            "when there are errors.",
            {jobArgument()},
            options,
            {{"vorn check job.yaml", "find all errors before a long run"},
             {"vorn check job.yaml --set read.file=other.sgy",
              "would the job run with another file?"}}};
}

} // namespace host
