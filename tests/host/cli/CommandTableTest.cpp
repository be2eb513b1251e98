#include "cli/CommandHelp.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

using namespace host;
using ::testing::HasSubstr;

TEST(CommandTableTest, EveryEntryExplainsItself)
{
    std::set<std::string> names;
    for (const Command& command : commandTable()) {
        EXPECT_TRUE(names.insert(command.name).second) << command.name << " is there twice";
        EXPECT_FALSE(command.summary.empty()) << command.name;
        EXPECT_FALSE(command.description.empty()) << command.name;
        EXPECT_FALSE(command.examples.empty()) << command.name;
        for (const ExampleSpec& example : command.examples)
            EXPECT_THAT(example.call, HasSubstr("vorn " + command.name));
        for (const OptionSpec& option : command.options) {
            EXPECT_FALSE(option.help.empty()) << command.name << " " << option.names;
            EXPECT_EQ(longName(option).substr(0, 2), "--") << command.name << " " << option.names;
            EXPECT_EQ(option.kind == ValueKind::choice, !option.choices.empty())
                << command.name << " " << option.names;
        }
    }
}

TEST(CommandTableTest, NoTwoOptionsOfACommandHaveOneName)
{
    for (const Command& command : commandTable()) {
        std::set<std::string> names = {"-h", "--help"};
        for (const OptionSpec& option : command.options) {
            for (const std::string& name : optionNames(option))
                EXPECT_TRUE(names.insert(name).second) << command.name << " " << name;
        }
    }
}

TEST(CommandTableTest, HelpManualAndCompletionHaveEveryOption)
{
    const std::string bash = completionScript("bash");
    const std::string zsh = completionScript("zsh");
    const std::string fish = completionScript("fish");
    for (const Command& command : commandTable()) {
        const std::string help = commandHelp(command);
        std::string manual = commandManual(command);
        for (auto at = manual.find("\\-"); at != std::string::npos; at = manual.find("\\-"))
            manual.erase(at, 1);
        for (const OptionSpec& option : command.options) {
            const std::string name = longName(option);
            EXPECT_THAT(help, HasSubstr(name)) << command.name;
            EXPECT_THAT(manual, HasSubstr(name)) << command.name;
            EXPECT_THAT(bash, HasSubstr(name)) << command.name;
            EXPECT_THAT(zsh, HasSubstr(name)) << command.name;
            EXPECT_THAT(fish, HasSubstr("-l " + name.substr(2))) << command.name;
        }
    }
}

TEST(CommandTableTest, TheCompletionIsAScriptThatBashReads)
{
    const std::string path = testing::TempDir() + "/vorn-completion-" + std::to_string(rand());
    std::ofstream(path) << completionScript("bash");

    EXPECT_EQ(std::system(("bash -n " + path).c_str()), 0);
    const std::string complete = "bash -c '. " + path +
                                 "; COMP_WORDS=(vorn gra); COMP_CWORD=1; _vorn; "
                                 "test \"${COMPREPLY[*]}\" = graph; a=$?;"
                                 "COMP_WORDS=(vorn run --progress al); COMP_CWORD=3; _vorn; "
                                 "test \"${COMPREPLY[*]}\" = always && test $a = 0'";
    EXPECT_EQ(std::system(complete.c_str()), 0);
    std::filesystem::remove(path);
}

TEST(CommandTableTest, WordsAreSplitIntoOptionsValuesAndArguments)
{
    struct Row
    {
        std::vector<std::string> words;
        std::string error;
    };
    // The errors show what was taken for what.
    const Row rows[] = {
        {{"run", "a", "--progress", "x"},
         "--progress is \"x\"; expected one of auto, always, never"},
        {{"run", "a", "--progress=x=y"},
         "--progress is \"x=y\"; expected one of auto, always, never"},
        {{"run", "a", "--progress="}, "--progress needs a value"},
        {{"run", "a", "--progress"}, "--progress needs a value"},
        {{"run", "a", "--progress", "never", "--progress", "never"},
         "--progress is given more than once"},
        {{"plot", "a", "-o", "b", "-m", "x"}, "--mode is \"x\"; expected one of density, wiggle"},
        {{"plot", "a", "-o", "b", "-mx"}, "--mode is \"x\"; expected one of density, wiggle"},
        {{"plot", "a", "-o", "b", "-m"}, "--mode needs a value"},
        {{"plot", "a", "-ob", "--clip", "--mode"}, "--clip is \"--mode\"; expected a number"},
        {{"plot", "a", "--clip", "-5"}, "-o or --output is missing"},
        {{"run", "a", "-qvx"}, "there is no option \"-x\""},
        {{"run", "a", "--quie"}, "there is no option \"--quie\"; did you mean \"--quiet\"?"},
        {{"run", "a", "--quiet=yes"}, "--quiet takes no value"},
        {{"run", "a", "--", "-q"}, "\"-q\" is one argument too many"},
        {{"run", "a", "-"}, "\"-\" is one argument too many"},
        {{"run", "-q"}, "JOB.yaml is missing"},
    };
    for (const Row& row : rows) {
        testing::internal::CaptureStderr();
        const int code = runCommandLine(row.words);
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_EQ(code, exitWrongCall) << row.error;
        EXPECT_EQ(errors, "vorn: " + row.words[0] + ": " + row.error + " (see \"vorn " +
                              row.words[0] + " --help\")\n");
    }
}

TEST(CommandTableTest, TheHelpIsShownWhateverElseTheCallSays)
{
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"run", "--help"},
                                               {"run", "a", "b", "-h"},
                                               {"run", "-qh"},
                                               {"run", "-h", "--no-such-option"},
                                               {"run", "--no-such-option", "--help"}})
    {
        testing::internal::CaptureStdout();
        const int code = runCommandLine(words);
        const std::string text = testing::internal::GetCapturedStdout();
        EXPECT_EQ(code, exitDone);
        EXPECT_THAT(text, ::testing::StartsWith("usage: vorn run JOB.yaml")) << words.back();
    }
}

TEST(CommandTableTest, WhatIsWrongWithAnOptionIsSaid)
{
    struct Row
    {
        std::vector<std::string> words;
        const char* text;
    };
    for (const Row& row : std::vector<Row>{
             {{"run", "j.yaml", "-q-report=zz"}, "there is no option \"-q-report=zz\""},
             {{"run", "j.yaml", "-q=1"}, "there is no option \"-q=1\""},
             {{"run", "j.yaml", "-\u00e9"}, "there is no option \"-\u00e9\""},
             {{"run", "j.yaml", "--help=x"}, "--help takes no value"},
             {{"run", "j.yaml", "--quiet=x"}, "--quiet takes no value"},
             {{"run", "j.yaml", "--log="}, "--log needs a value"},
             {{"run", "j.yaml", "--log"}, "--log needs a value"},
         })
    {
        testing::internal::CaptureStderr();
        const int code = runCommandLine(row.words);
        const std::string text = testing::internal::GetCapturedStderr();
        EXPECT_EQ(code, exitWrongCall) << row.words.back();
        EXPECT_THAT(text, ::testing::HasSubstr(row.text));
    }
}

TEST(CommandTableTest, LinesOfTheHelpFitATerminal)
{
    for (const Command& command : commandTable()) {
        std::string help = commandHelp(command);
        for (std::size_t end = help.find('\n'); end != std::string::npos; end = help.find('\n')) {
            EXPECT_LE(end, 100u) << help.substr(0, end);
            help.erase(0, end + 1);
        }
    }
}
