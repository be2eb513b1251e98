// Which part a process runs, from its call and from what batch systems and launchers tell it.
#include "parts/PartNumber.h"

#include "base/CommandError.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

using host::CommandError;
using host::PartChoice;
using host::partNumber;
using ::testing::AllOf;
using ::testing::HasSubstr;

namespace {

constexpr const char* all[] = {"SLURM_ARRAY_TASK_ID", "PBS_ARRAY_INDEX",      "PBS_ARRAYID",
                               "SGE_TASK_ID",         "OMPI_COMM_WORLD_RANK", "PMI_RANK",
                               "SLURM_PROCID"};

// The tests may run under a batch system themselves.
class PartNumberTest : public ::testing::Test
{
protected:
    PartNumberTest() { clear(); }
    ~PartNumberTest() override { clear(); }

    static void clear()
    {
        for (const char* name : all)
            unsetenv(name);
    }

    static void set(const std::string& name, const std::string& value)
    {
        setenv(name.c_str(), value.c_str(), 1);
    }

    static std::string failure(const std::string& text, int parts)
    {
        try {
            const PartChoice choice = partNumber(text, parts);
            return "no failure, but part " + std::to_string(choice.part);
        } catch (const CommandError& error) {
            return error.code == host::exitWrongCall ? error.what() : "another exit code";
        }
    }
};

} // namespace

TEST_F(PartNumberTest, NumberOfTheCallIsThePart)
{
    set("SLURM_ARRAY_TASK_ID", "2");

    EXPECT_EQ(partNumber("1", 8).part, 1);
    EXPECT_EQ(partNumber("8", 8).part, 8);
}

TEST_F(PartNumberTest, NumberOfTheCallMustBeThatOfAPart)
{
    EXPECT_EQ(failure("0", 8), "there is no part 0: the plan has parts 1 to 8");
    EXPECT_EQ(failure("9", 8), "there is no part 9: the plan has parts 1 to 8");
    EXPECT_EQ(failure("2", 1), "there is no part 2: the plan has one part, 1");
    EXPECT_EQ(failure("4294967297", 8), "there is no part 4294967297: the plan has parts 1 to 8");
    EXPECT_EQ(failure("three", 8), "the part is \"three\"; expected a number from 1, or auto");
    EXPECT_EQ(failure("", 8), "the part is \"\"; expected a number from 1, or auto");
}

TEST_F(PartNumberTest, TaskOfAnArrayIsThePartOfThatNumber)
{
    for (const char* name :
         {"SLURM_ARRAY_TASK_ID", "PBS_ARRAY_INDEX", "PBS_ARRAYID", "SGE_TASK_ID"}) {
        SCOPED_TRACE(name);
        clear();
        set(name, "3");

        EXPECT_EQ(partNumber("auto", 8).part, 3);
        EXPECT_THAT(failure("auto", 2),
                    AllOf(HasSubstr(std::string(name) + " is 3"), HasSubstr("parts 1 to 2")));
        set(name, "0");
        EXPECT_THAT(failure("auto", 8), HasSubstr(std::string(name) + " is 0"));
    }
}

TEST_F(PartNumberTest, RankZeroIsTheFirstPart)
{
    for (const char* name : {"OMPI_COMM_WORLD_RANK", "PMI_RANK", "SLURM_PROCID"}) {
        SCOPED_TRACE(name);
        clear();
        set(name, "0");
        EXPECT_EQ(partNumber("auto", 8).part, 1);
        set(name, "7");
        EXPECT_EQ(partNumber("auto", 8).part, 8);
    }
}

TEST_F(PartNumberTest, RankBeyondTheLastPartHasNothingToDo)
{
    set("OMPI_COMM_WORLD_RANK", "8");

    const PartChoice choice = partNumber("auto", 8);

    EXPECT_EQ(choice.part, 0);
    EXPECT_EQ(choice.idle,
              "OMPI_COMM_WORLD_RANK is 8, and the plan has parts 1 to 8: nothing is left "
              "for this process");
}

// In a task of an array, SLURM_PROCID is 0, and in the processes of an mpirun in a Slurm job, too.
TEST_F(PartNumberTest, ArrayCountsBeforeLauncherAndLauncherBeforeTheJobThatItIsIn)
{
    set("SLURM_PROCID", "0");
    set("OMPI_COMM_WORLD_RANK", "4");
    EXPECT_EQ(partNumber("auto", 8).part, 5);

    set("SLURM_ARRAY_TASK_ID", "7");
    EXPECT_EQ(partNumber("auto", 8).part, 7);
}

TEST_F(PartNumberTest, UndefinedTaskAndEmptyVariablesDoNotCount)
{
    set("SGE_TASK_ID", "undefined");
    set("PBS_ARRAYID", "");
    set("PMI_RANK", "2");

    EXPECT_EQ(partNumber("auto", 8).part, 3);
}

TEST_F(PartNumberTest, ValueThatIsNotANumberIsNamedWithItsVariable)
{
    for (const char* value : {"1-8", "-1", "2.5", " 3"}) {
        set("SLURM_ARRAY_TASK_ID", value);
        EXPECT_THAT(failure("auto", 8),
                    HasSubstr("SLURM_ARRAY_TASK_ID is \"" + std::string(value) + "\"; expected"));
    }
    clear();
    set("PMI_RANK", "first");
    EXPECT_THAT(failure("auto", 8),
                HasSubstr("PMI_RANK is \"first\"; expected the number of a process"));
}

TEST_F(PartNumberTest, WithoutAnyOfThemAllAreNamed)
{
    const std::string text = failure("auto", 8);
    for (const char* name : all)
        EXPECT_THAT(text, HasSubstr(name));
}
