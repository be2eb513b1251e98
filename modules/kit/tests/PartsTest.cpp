// Modules that are run in parts, in each form of the kit: what they have counted is saved and
// merged.
#include "ModuleTest.h"

#include <filesystem>
#include <fstream>
#include <functional>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class PartsTest : public ModuleTest, public testing::WithParamInterface<const char*>
{
protected:
    PartsTest() : ModuleTest(GetParam())
    {
        for (int i = 0; i < 12; ++i)
            harness.push({1, 2}, {{"tracf", UniVar(i + 1)}});
    }

    std::vector<std::string> failures(const std::vector<std::size_t>& cuts)
    {
        return harness.runInParts(cuts).messagesOf(4);
    }
};

INSTANTIATE_TEST_SUITE_P(Forms, PartsTest,
                         testing::Values("parts_c", "parts_cxx", "parts_fortran", "parts_stream_c",
                                         "parts_stream_cxx"));

TEST_P(PartsTest, PartsGiveWhatOneRunGives)
{
    add();
    expectSameInParts();
    EXPECT_THAT(messages(1), ElementsAre("traces=12 sum=78 names= 1 2 3 4 5 6 7 8 9 10 11 12"));
}

TEST_P(PartsTest, PartsOfModulesInARowAreKeptApart)
{
    add();
    add();

    result = harness.runInParts({1, 5});

    EXPECT_THAT(result.messagesOf(1, "module1"), SizeIs(1));
    EXPECT_THAT(messages(1), ElementsAre("traces=12 sum=78 names= 1 2 3 4 5 6 7 8 9 10 11 12"));
    EXPECT_THAT(messages(2), ElementsAre("trace 3 is above 2"));
    EXPECT_THAT(all("tracf"), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12));
}

TEST_P(PartsTest, AMessageThatIsSentOnceHasTheTraceOfTheJob)
{
    add();

    result = harness.runInParts({1, 2, 7});

    EXPECT_THAT(messages(2), ElementsAre("trace 3 is above 2"));
    EXPECT_THAT(result.arguments, IsEmpty());
    EXPECT_EQ(result.messagesOf(0, "module1").size(), 12);
}

TEST_P(PartsTest, FailuresAreReportedOnce)
{
    add({{"fails", UniVar("save")}});
    EXPECT_THAT(failures({}), Contains(HasSubstr("told to fail in save")));

    restart();
    harness.push({1}, {{"tracf", UniVar(1)}});
    add({{"fails", UniVar("merge")}});
    EXPECT_THAT(failures({}), ElementsAre(HasSubstr("told to fail in merge")));
}

TEST_P(PartsTest, AModuleThatHasFailedIsNotSaved)
{
    add({{"fails", UniVar("process")}});

    result = harness.runInParts({5});

    EXPECT_THAT(result.messagesOf(4), Contains(HasSubstr("told to fail in process")).Times(2));
    EXPECT_THAT(result.messagesOf(4), Contains("save_ returned 1 without a message").Times(0));
    EXPECT_THAT(messages(1), IsEmpty());
}

TEST_P(PartsTest, OtherValuesThanThoseSavedAreRefused)
{
    for (const char* saves : {"less", "other"}) {
        restart();
        harness.push({1}, {{"tracf", UniVar(1)}});
        add({{"saves", UniVar(saves)}});
        EXPECT_THAT(failures({}),
                    Contains(HasSubstr("module1 is not a state that can be merged: it "
                                       "holds other values than the module has saved; "
                                       "run the part again that has written it")))
            << saves;
    }
    restart();
    harness.push({1}, {{"tracf", UniVar(1)}});
    add({{"saves", UniVar("more")}});
    EXPECT_THAT(failures({}),
                Contains(HasSubstr("it holds more values than the module has saved")));
}

class StateFileTest : public PartsTest
{
protected:
    // Saves the state of a run, and gives the file to `spoil` before it is merged.
    std::vector<std::string> mergeSpoilt(const std::function<void(std::string&)>& spoil)
    {
        add();
        harness.beforeMerge = [&](const std::string& state) {
            std::ifstream in(state, std::ios::binary);
            std::string bytes((std::istreambuf_iterator<char>(in)), {});
            spoil(bytes);
            std::ofstream(state, std::ios::binary) << bytes;
        };
        return failures({});
    }
};

INSTANTIATE_TEST_SUITE_P(Forms, StateFileTest,
                         testing::Values("parts_c", "parts_fortran", "parts_stream_cxx"));

TEST_P(StateFileTest, EveryTruncationIsRefused)
{
    add();
    std::size_t length = 0;
    harness.beforeMerge = [&](const std::string& state) {
        length = std::filesystem::file_size(state);
    };
    EXPECT_THAT(failures({}), IsEmpty());
    ASSERT_GT(length, 96);
    for (std::size_t bytes = 0; bytes < length; bytes += bytes < 90 ? 9 : 1) {
        harness.beforeMerge = [&](const std::string& state) {
            std::filesystem::resize_file(state, bytes);
        };
        EXPECT_THAT(failures({}), ElementsAre(HasSubstr("truncated"))) << bytes;
    }
}

TEST_P(StateFileTest, EveryDamagedByteIsRefused)
{
    add();
    std::size_t length = 1;
    for (std::size_t byte = 0; byte < length; ++byte) {
        harness.beforeMerge = [&](const std::string& state) {
            length = std::filesystem::file_size(state);
            std::fstream file(state, std::ios::binary | std::ios::in | std::ios::out);
            file.seekg(static_cast<std::streamoff>(byte));
            const int old = file.get();
            file.seekp(static_cast<std::streamoff>(byte));
            file.put(static_cast<char>(old ^ 0x10));
        };
        EXPECT_THAT(failures({}), ElementsAre(HasSubstr("is not a state that can be merged: ")))
            << byte;
    }
    EXPECT_GT(length, 96);
}

TEST_P(StateFileTest, FilesOfOthersAreRefused)
{
    const auto spoilt = [this](std::size_t from, const std::string& bytes) {
        restart();
        harness.push({1}, {{"tracf", UniVar(1)}});
        return mergeSpoilt([&](std::string& file) { file.replace(from, bytes.size(), bytes); });
    };
    EXPECT_THAT(spoilt(0, "SEGYFILE"),
                ElementsAre(HasSubstr("it does not begin as a saved state")));
    EXPECT_THAT(
        spoilt(8, "\x07"),
        ElementsAre(HasSubstr("version 7, and this version of the module reads version 1")));
    EXPECT_THAT(spoilt(12, "\x01\x02\x03\x04"), ElementsAre(HasSubstr("another byte order")));
    EXPECT_THAT(
        spoilt(32, std::string("gain\0", 5)),
        ElementsAre(HasSubstr("of the module gain, and this one is " + std::string(GetParam()))));
}

TEST_P(StateFileTest, AMissingFileIsRefused)
{
    add();
    harness.beforeMerge = [](const std::string& state) { std::filesystem::remove(state); };
    EXPECT_THAT(failures({}), ElementsAre(HasSubstr("No such file or directory")));
}

TEST_P(StateFileTest, AFileThatCannotBeWrittenIsAFailure)
{
    add();
    harness.beforeSave = [](const std::string& state) { std::filesystem::create_directory(state); };
    EXPECT_THAT(failures({}), Contains(HasSubstr("the state of this part cannot be written to")));
}

TEST_P(StateFileTest, AFullDiskIsAFailureAndLeavesNoFile)
{
    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP() << "the system has no /dev/full";
    add();
    harness.beforeSave = [](const std::string& state) {
        std::filesystem::create_symlink("/dev/full", state);
    };
    harness.beforeMerge = [](const std::string& state) {
        EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(state)));
    };
    EXPECT_THAT(failures({}), Contains(HasSubstr("No space left on device")));
}

} // namespace
