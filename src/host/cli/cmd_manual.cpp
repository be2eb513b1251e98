// vorn manual: manual pages, made from the table of commands.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/FileOutput.h"
#include "base/Suggestions.h"
#include "cli/CommandHelp.h"

#include <cstdio>
#include <filesystem>

namespace host {

namespace {

void writePage(const std::string& directory, const std::string& name, const std::string& text)
{
    const Output page = {"--directory", directory + "/" + name + ".1", "the manual page"};
    claimOutput(page);
    writeWholeFile(page, text);
}

int runManual(const Arguments& arguments)
{
    if (arguments.has("--directory")) {
        const std::string directory = arguments.text("--directory");
        std::error_code error;
        std::filesystem::create_directories(directory, error);
        writePage(directory, "vorn", generalManual());
        for (const Command& command : commandTable())
            writePage(directory, "vorn-" + command.name, commandManual(command));
        return exitDone;
    }
    const std::string name = arguments.text("COMMAND");
    if (name.empty()) {
        std::fputs(generalManual().c_str(), stdout);
        return exitDone;
    }
    std::vector<std::string> names;
    for (const Command& command : commandTable()) {
        if (command.name == name) {
            std::fputs(commandManual(command).c_str(), stdout);
            return exitDone;
        }
        names.push_back(command.name);
    }
    throw CommandError("there is no command " + quote(name) + suggestion(name, names, "there are"));
}

} // namespace

Command manualCommand()
{
    return {"manual",
            runManual,
            "Print manual pages",
            "Prints the manual page of a command, or of vorn as a whole, as input for man.",
            {{"COMMAND", "the command; without it, vorn as a whole", ValueKind::text, false}},
            {{"-d,--directory", "DIR", "write all pages to this directory", ValueKind::directory}},
            {{"vorn manual run | man -l -", "read the page of vorn run"},
             {"vorn manual -d ~/.local/share/man/man1", "install all pages for yourself"}}};
}

} // namespace host
