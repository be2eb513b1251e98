#include "base/LogFile.h"

#include "TestTree.h"

#include <gtest/gtest.h>
#include <string>

using namespace host;

namespace {

class LogFileTest : public testing::Test
{
protected:
    static void addLine(const std::string& line) { addToOpenLog(line.data(), line.size()); }

    std::string path = testing::TempDir() + "log_file_test_" +
                       testing::UnitTest::GetInstance()->current_test_info()->name();
};

} // namespace

TEST_F(LogFileTest, LastLinesBeginAtTheBeginningOfALine)
{
    LogFile log(path);
    addLine("at first\n");
    log.write("whole\n");
    addLine("behind it\n");
    log.write("half a li");
    addLine("behind the half\n");
    addLine("and one more\n");
    log.write("whole again\n");
    EXPECT_EQ(log.close(), "");
    EXPECT_EQ(
        readFile(path),
        "at first\nwhole\nbehind it\nhalf a li\nbehind the half\nand one more\nwhole again\n");
}

TEST_F(LogFileTest, LastLinesGoToAnOpenLogOnly)
{
    addLine("nowhere\n");
    LogFile log(path);
    EXPECT_EQ(log.close(), "");
    addLine("too late\n");
    EXPECT_EQ(readFile(path), "");
    {
        const LogFile other(path);
        addLine("in time\n");
    }
    addLine("too late\n");
    EXPECT_EQ(readFile(path), "in time\n");
}

TEST_F(LogFileTest, ALogThatCannotBeWrittenGetsNoLastLines)
{
    LogFile full("/dev/full");
    full.write("a line\n");
    addLine("the last line\n");
    EXPECT_NE(full.close().find("it ends after 0 bytes"), std::string::npos);
}
