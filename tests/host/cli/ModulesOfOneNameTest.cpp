// Modules of one name in several directories: the command tells which of them it uses, once.
#include "ProcessingTree.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::SizeIs;

class ModulesOfOneNameTest : public testing::Test
{
protected:
    ModulesOfOneNameTest()
    {
        tree.write("job.yaml", "modules:\n"
                               "  - {name: made, module: synthetic, shots: 1, channels: 2}\n"
                               "  - {name: once, module: gain, input: made, factor: 2}\n"
                               "  - {name: again, module: gain, input: once, factor: 2}\n"
                               "  - {name: seen, module: trace_qc, input: again}\n");
    }

    // A copy of the module `gain`, under the name given, in a directory of the tests.
    std::string copyOfGain(const std::string& directory, const std::string& name) const
    {
        fs::create_directories(tree.path(directory));
        for (const std::string file : {"lib%.so", "%.yaml"}) {
            const auto named = [&](const std::string& module) {
                return std::string(file).replace(file.find('%'), 1, module);
            };
            fs::copy_file(tree.home() + "/lib/" + named("gain"),
                          tree.path(directory) + "/" + named(name));
        }
        return tree.path(directory) + "/lib" + name + ".so";
    }

    std::string ambiguity(const std::string& used, const std::string& hidden) const
    {
        return "is in more than one directory: " + used + " is used, and not " + hidden +
               "; give one of them another name\n";
    }

    std::string shippedGain() const { return tree.home() + "/lib/libgain.so"; }

    ProcessingTree tree;
};

TEST_F(ModulesOfOneNameTest, AJobIsToldOnceWhichOneItUses)
{
    const std::string mine = copyOfGain("mine", "gain");

    for (const std::string command : {"check", "run"}) {
        const ProcessResult result =
            tree.run({command, "job.yaml", "--allow-modules-from", "mine"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_THAT(linesWith(result.output + result.errors, "more than one directory"), SizeIs(1))
            << command;
        EXPECT_THAT(result.output + result.errors,
                    HasSubstr("vorn: job.yaml:3:26: warning: module \"gain\" " +
                              ambiguity(shippedGain(), mine)));
    }
}

TEST_F(ModulesOfOneNameTest, OfTwoAllowedDirectoriesTheFirstCounts)
{
    const std::string first = copyOfGain("first", "mine");
    const std::string second = copyOfGain("second", "mine");

    const ProcessResult list = tree.run(
        {"inspect", "--names", "--allow-modules-from", "first", "--allow-modules-from", "second"});
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_THAT(linesWith(list.output, "mine"), SizeIs(1));
    EXPECT_EQ(list.errors,
              "vorn: --allow-modules-from: warning: module \"mine\" " + ambiguity(first, second));

    const ProcessResult page = tree.run(
        {"inspect", "mine", "--allow-modules-from", "second", "--allow-modules-from", "first"});
    EXPECT_THAT(page.output, HasSubstr(second));
    EXPECT_THAT(page.errors, HasSubstr(ambiguity(second, first)));
}

TEST_F(ModulesOfOneNameTest, AManifestAloneHidesAModule)
{
    fs::create_directories(tree.path("mine"));
    fs::copy_file(tree.home() + "/lib/gain.yaml", tree.path("mine/gain.yaml"));

    EXPECT_THAT(tree.run({"inspect", "gain", "--allow-modules-from", "mine"}).errors,
                HasSubstr(ambiguity(shippedGain(), tree.path("mine/gain.yaml"))));
}

TEST_F(ModulesOfOneNameTest, ATrialIsToldThatTheShippedModuleIsTested)
{
    const std::string mine = copyOfGain("mine", "gain");

    const ProcessResult result =
        tree.run({"test", "gain", "--set", "factor=2", "--allow-modules-from", "mine"});
    EXPECT_THAT(result.output,
                HasSubstr("warning      module \"gain\" " + ambiguity(shippedGain(), mine)));
}

TEST_F(ModulesOfOneNameTest, WhatTheJobDoesNotUseIsNotTold)
{
    copyOfGain("mine", "agc");

    const ProcessResult result = tree.run({"check", "job.yaml", "--allow-modules-from", "mine"});
    EXPECT_THAT(linesWith(result.output + result.errors, "more than one directory"), SizeIs(0));
}

TEST_F(ModulesOfOneNameTest, ADirectoryGivenTwiceIsOne)
{
    copyOfGain("mine", "mine");
    fs::create_directory_symlink("mine", tree.path("link"));

    const ProcessResult result =
        tree.run({"inspect", "--names", "--allow-modules-from", "mine", "--allow-modules-from",
                  "link", "--allow-modules-from", tree.home() + "/lib"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "");
}

} // namespace
