#include "file/PartOutputs.h"

#include "TraceFileFixture.h"
#include "segy/SegyWriter.h"
#include "su/SuWriter.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <vector>

using namespace VORN;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

constexpr int64_t allTraces = 29;

class PartOutputsTest : public TraceFileFixture
{
protected:
    void SetUp() override
    {
        description.samples = samples;
        description.interval = 4000;
        description.cards = {"C 1 a file of several processes"};
    }
    void TearDown() override { clearPartOutputs(); }

    void makeTarget() const { std::ofstream(target).flush(); }

    // Writes traces to an output; the first one is number `first` of the whole file.
    template <typename Writer>
    static void writeTraces(Writer& writer, int64_t first, int64_t count)
    {
        for (int64_t i = first; i < first + count; ++i) {
            std::array<unsigned char, 240> header;
            header.fill(static_cast<unsigned char>(i + 1));
            std::array<float, samples> values;
            for (std::size_t k = 0; k < samples; ++k)
                values[k] = static_cast<float>(i * 100) + static_cast<float>(k);
            writer.write(header.data(), values.data());
        }
    }
    int64_t writeSegy(int64_t first, int64_t count) const
    {
        OutputFile file(path, true);
        SegyWriter writer(file, description);
        writeTraces(writer, first, count);
        file.commit();
        return writer.bytesOf(allTraces);
    }
    int64_t writeSu(int64_t first, int64_t count) const
    {
        OutputFile file(path, true);
        SuWriter writer(file, samples, false);
        writeTraces(writer, first, count);
        file.commit();
        return writer.bytesOf(allTraces);
    }

    using Write = std::function<int64_t(int64_t first, int64_t count)>;

    // The file that `parts` writers make, the last one first.
    std::string inParts(int64_t parts, const Write& write)
    {
        std::filesystem::remove(path);
        makeTarget();
        int64_t bytes = 0;
        for (int64_t part = parts; part-- > 0;) {
            const int64_t first = allTraces * part / parts;
            setPartOutput(path, target, first);
            bytes = write(first, allTraces * (part + 1) / parts - first);
            EXPECT_FALSE(std::filesystem::exists(path)) << "part " << part;
        }
        setWholeOutput(path, target);
        OutputFile whole(path, true);
        whole.expectSize(bytes);
        whole.commit();
        clearPartOutputs();
        return content(path);
    }

    // The error of the merge, whose file is expected to have `bytes` bytes.
    std::string refusal(int64_t bytes, bool overwrite = true) const
    {
        setWholeOutput(path, target);
        return failure([&] {
            OutputFile whole(path, overwrite);
            whole.expectSize(bytes);
            whole.commit();
        });
    }

    static constexpr int samples = 5;
    const std::string target = directory / ".out.sgy.parts";
    SegyDescription description;
};

} // namespace

TEST_F(PartOutputsTest, ASegyFileOfSeveralWritersHasTheBytesOfOneWritersFile)
{
    const Write write = [this](int64_t first, int64_t count) { return writeSegy(first, count); };
    EXPECT_EQ(write(0, allTraces), 3600 + 29 * 260);
    const std::string one = content(path);
    EXPECT_EQ(one.size(), 3600U + 29 * 260);
    for (const int64_t parts : {1, 2, 3, 7})
        EXPECT_TRUE(inParts(parts, write) == one) << parts;
}

TEST_F(PartOutputsTest, ASuFileOfSeveralWritersHasTheBytesOfOneWritersFile)
{
    const Write write = [this](int64_t first, int64_t count) { return writeSu(first, count); };
    EXPECT_EQ(write(0, allTraces), 29 * 260);
    const std::string one = content(path);
    for (const int64_t parts : {1, 2, 3, 7})
        EXPECT_TRUE(inParts(parts, write) == one) << parts;
}

TEST_F(PartOutputsTest, ExtendedTextHeadersCountForThePlaceOfTraces)
{
    description.extendedCards = std::vector<std::string>(50, "C an extended card");
    const Write write = [this](int64_t first, int64_t count) { return writeSegy(first, count); };
    EXPECT_EQ(write(0, allTraces), 3600 + 2 * 3200 + 29 * 260);
    const std::string one = content(path);
    EXPECT_TRUE(inParts(3, write) == one);
}

TEST_F(PartOutputsTest, ARangeThatIsWrittenTwiceAtOnceHasTheBytesOfOneWriter)
{
    writeSegy(0, allTraces);
    const std::string one = content(path);
    makeTarget();
    setPartOutput(path, target, 0);
    writeSegy(0, 10);
    setPartOutput(path, target, 10);
    {
        OutputFile a(path, true);
        OutputFile b(path, true);
        SegyWriter toA(a, description);
        SegyWriter toB(b, description);
        writeTraces(toA, 10, 7);
        writeTraces(toB, 10, 19);
        b.commit();
        writeTraces(toA, 17, 12);
        a.commit();
    }
    EXPECT_TRUE(content(target) == one);
}

TEST_F(PartOutputsTest, AnUnfinishedRangeIsNeitherRenamedNorRemoved)
{
    makeTarget();
    setPartOutput(path, target, 0);
    {
        OutputFile file(path, true);
        SegyWriter writer(file, description);
        writeTraces(writer, 0, 3);
        EXPECT_EQ(file.temporaryPath(), "");
    }
    EXPECT_THAT(directory.names(), ElementsAre(".out.sgy.parts"));
}

TEST_F(PartOutputsTest, OnlyTheOutputThatIsAnnouncedIsARange)
{
    makeTarget();
    setPartOutput(directory.path() + "/./out.sgy", target, 4);
    EXPECT_EQ(OutputFile(path, true).firstTrace(), 4);
    EXPECT_EQ(OutputFile(directory / "other.sgy", true).firstTrace(), 0);
    clearPartOutputs();
    EXPECT_EQ(OutputFile(path, true).firstTrace(), 0);
}

TEST_F(PartOutputsTest, AMissingTargetIsRefused)
{
    for (const bool isWhole : {false, true}) {
        isWhole ? setWholeOutput(path, target) : setPartOutput(path, target, 0);
        EXPECT_THAT(failure([this] { OutputFile file(path, true); }),
                    HasSubstr(path + ": cannot be written: the file of its parts, " + target +
                              ", does not exist"));
    }
    EXPECT_THAT(directory.names(), ElementsAre());
}

TEST_F(PartOutputsTest, ATargetThatIsALinkIsRefused)
{
    std::ofstream(directory / "precious") << "data";
    std::filesystem::create_symlink(directory / "precious", target);
    for (const bool isWhole : {false, true}) {
        isWhole ? setWholeOutput(path, target) : setPartOutput(path, target, 0);
        EXPECT_THAT(failure([this] { OutputFile file(path, true); }),
                    HasSubstr("cannot be opened: "));
    }
    EXPECT_EQ(content(directory / "precious"), "data");
}

TEST_F(PartOutputsTest, AWholeFileOfAnotherSizeIsRefused)
{
    std::ofstream(target) << "four";
    EXPECT_THAT(refusal(5), HasSubstr(path + ": is not whole: the file of its parts, " + target +
                                      ", has 4 bytes instead of 5"));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(PartOutputsTest, AWholeFileReplacesNothingThatAnOutputMayNotReplace)
{
    std::ofstream(path) << "old";
    std::ofstream(target) << "four";
    EXPECT_THAT(refusal(4, false), HasSubstr("is there already; remove it"));
    EXPECT_EQ(chmod(path.c_str(), 0444), 0);
    EXPECT_THAT(refusal(4), HasSubstr("is write-protected"));
    EXPECT_EQ(content(path), "old");
    // Both before anything was adopted: what the parts have written is still there.
    EXPECT_EQ(content(target), "four");
}

TEST_F(PartOutputsTest, AFileThatCameMeanwhileStays)
{
    std::ofstream(target) << "four";
    setWholeOutput(path, target);
    OutputFile whole(path, false);
    std::ofstream(path) << "theirs";
    EXPECT_THAT(failure([&] { whole.commit(); }), HasSubstr("has been made by somebody else"));
    EXPECT_EQ(content(path), "theirs");
}

TEST_F(PartOutputsTest, AWholeFileGetsTheNameAndThePermissionsOfANewOne)
{
    std::ofstream(target) << "four";
    chmod(target.c_str(), 0600);
    const mode_t former = umask(0027);
    EXPECT_EQ(refusal(4), "it did not fail");
    umask(former);
    EXPECT_THAT(directory.names(), ElementsAre("out.sgy"));
    EXPECT_EQ(content(path), "four");
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(PartOutputsTest, AWholeFileTakesNoBytesAndIsRemovedWhereItIsNotCommitted)
{
    std::ofstream(target) << "four";
    setWholeOutput(path, target);
    OutputFile whole(path, true);
    EXPECT_EQ(whole.size(), 4);
    put(whole, "more");
    EXPECT_THAT(failure([&] { whole.commit(); }), HasSubstr("is whole already"));
    EXPECT_THAT(directory.names(), ElementsAre());
}

TEST_F(PartOutputsTest, ADeviceIsNotWrittenInParts)
{
    makeTarget();
    setPartOutput("/dev/null", target, 0);
    EXPECT_THAT(failure([] { OutputFile file("/dev/null", true); }),
                HasSubstr("/dev/null: cannot be written by several processes"));
}
