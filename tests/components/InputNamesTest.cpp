#include "file/InputNames.h"

#include <KernelFixture.h>
#include <SegyBytes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace VORN;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(InputNamesTest, APatternStandsForItsFilesInTheOrderOfTheirNumbers)
{
    const TemporaryDirectory directory;
    for (const char* name : {"line_10.sgy", "line_9.sgy", "line_1.sgy", "other.sgy"})
        writeBytes(directory / name, {});
    EXPECT_THAT(
        inputFiles(directory / "line_*.sgy"),
        ElementsAre(directory / "line_1.sgy", directory / "line_9.sgy", directory / "line_10.sgy"));
    EXPECT_THAT(inputFiles(directory / "line_[19].sgy"),
                ElementsAre(directory / "line_1.sgy", directory / "line_9.sgy"));
    EXPECT_THAT(inputFiles(directory / "none_*.sgy"), IsEmpty());
}

TEST(InputNamesTest, ANameWithoutAPatternIsTheFileItself)
{
    EXPECT_THAT(inputFiles("/nowhere/line.sgy"), ElementsAre("/nowhere/line.sgy"));
    EXPECT_FALSE(isFilePattern("/nowhere/line.sgy"));
    EXPECT_TRUE(isFilePattern("line?.sgy"));
}

TEST(InputNamesTest, AFileThatHasExactlyThisNameIsMeant)
{
    const TemporaryDirectory directory;
    writeBytes(directory / "line[1].sgy", {});
    writeBytes(directory / "line1.sgy", {});
    EXPECT_THAT(inputFiles(directory / "line[1].sgy"), ElementsAre(directory / "line[1].sgy"));
}
