// vorn completion: scripts that complete calls in shells, made from the table of commands.
#include "base/CommandError.h"
#include "cli/CommandHelp.h"

#include <cstdio>

namespace host {

namespace {

int runCompletion(const Arguments& arguments)
{
    std::fputs(completionScript(arguments.text("SHELL")).c_str(), stdout);
    return exitDone;
}

} // namespace

Command completionCommand()
{
    return {"completion",
            runCompletion,
            "Print a script that completes calls of vorn",
            "Prints a script for bash, zsh or fish that completes commands, options and their "
            "values.",
            {{"SHELL",
              "the shell: bash, zsh, fish",
              ValueKind::choice,
              true,
              false,
              {"bash", "zsh", "fish"}}},
            {},
            {{"source <(vorn completion bash)", "complete in this shell"},
             {"vorn completion fish > ~/.config/fish/completions/vorn.fish",
              "complete in every fish from now on"}}};
}

} // namespace host
