#include "watch/CallCoding.h"

#include "DataChannel.h"
#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "watch/RecordedModule.h"

#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

using ::testing::HasSubstr;
using watched::Argument;
using watched::Call;
using watched::Numbers;

namespace host {

namespace {

// A module with an input, an output and a work buffer.
class CallCodingTest : public ::testing::Test
{
protected:
    CallCodingTest()
    {
        module.setInputDataChannel(&input, 0);
        module.setOutputDataChannel(&output, 0);
        module.workTraceSets.push_back(&work);
    }
    ~CallCodingTest() override { module.workTraceSets.clear(); }

    static const void* handle(SeisTraceSet& set) { return &set; }

    std::vector<CallValue> argumentsOf(const char* function, const std::vector<Argument>& arguments)
    {
        ByteWriter bytes;
        coder.called({function, arguments}, bytes);
        return readValues(bytes.bytes);
    }

    std::vector<CallValue> resultsOf(const char* function, const std::vector<Argument>& arguments,
                                     const Argument& result)
    {
        ByteWriter bytes;
        coder.returned({function, arguments}, result, bytes);
        return readValues(bytes.bytes);
    }

    DataChannel input;
    DataChannel output;
    SeisTraceSet work;
    ModuleEntity module{"some"};
    CallCoder coder{module};
};

} // namespace

TEST_F(CallCodingTest, HandlesAreWhatTheyStandFor)
{
    int other = 0;
    const auto values = argumentsOf(
        "copyTraceToTrace", {handle(input), handle(output), handle(work),
                             static_cast<const void*>(nullptr), static_cast<const void*>(&other)});
    ASSERT_EQ(values.size(), 5U);
    EXPECT_EQ(values[0].text(), "input 0");
    EXPECT_EQ(values[1].text(), "output 0");
    EXPECT_EQ(values[2].text(), "work buffer 0");
    EXPECT_EQ(values[3].text(), "a null handle");
    EXPECT_EQ(values[4].text(), "handle 0");
}

TEST_F(CallCodingTest, ObjectsAtOneAddressAreDifferentOnes)
{
    int memory = 0;
    const Argument address(static_cast<const void*>(&memory));
    EXPECT_EQ(resultsOf("allocateResource", {4}, address).back().identity.number, 0U);
    EXPECT_EQ(argumentsOf("freeResource", {address}).back().identity.number, 0U);
    resultsOf("freeResource", {address}, Argument(0));
    EXPECT_EQ(resultsOf("allocateResource", {4}, address).back().identity.number, 1U);
}

TEST_F(CallCodingTest, WhatDiffersByItsNatureIsLeftOut)
{
    EXPECT_EQ(resultsOf("getCurrentDate", {}, "22.10.126").back().kind, CallValue::Kind::none);
    EXPECT_EQ(resultsOf("fileOpen", {"a"}, 7).back().integer, 0);
    EXPECT_EQ(resultsOf("fileOpen", {"a"}, -1).back().integer, -1);
    EXPECT_TRUE(argumentsOf("fileClose", {7}).empty());
    resultsOf("createPad", {1, 1, 1, "a"}, 846930886);
    resultsOf("createPad", {1, 1, 1, "b"}, 1681692777);
    EXPECT_EQ(argumentsOf("addNewPenToPad", {1681692777, 2}).front().integer, 1);
    EXPECT_EQ(argumentsOf("addNewPenToPad", {5, 2}).front().integer, -1);
}

TEST_F(CallCodingTest, PathsOfAReplayAreThoseOfTheRecord)
{
    coder.replaceInTexts("/tmp/x/a.su", "/data/b.su");
    coder.replaceInTexts("_", "-");
    const auto values =
        argumentsOf("sendMessage", {1, "/tmp/x/a.su: copied to /tmp/x/a.su", "a_word", "_"});
    EXPECT_EQ(values[1].bytes, "/data/b.su: copied to /data/b.su");
    EXPECT_EQ(values[2].bytes, "a_word");
    EXPECT_EQ(values[3].bytes, "-");
}

TEST_F(CallCodingTest, ValuesComeBack)
{
    const std::vector<double> reals = {0.5, -1, 1e300};
    const UniVar array(reals.data(), 3);
    const char* const names[] = {"cdp", nullptr};
    const auto values = argumentsOf(
        "some", {UniVar(std::string("text")), array, UniVar(7), 0.25, watched::Names{names, 2},
                 Numbers{Numbers::Type::float64, reals.data(), 3, false},
                 Numbers{Numbers::Type::float64, reals.data(), 3, true},
                 static_cast<const char*>(nullptr)});
    ASSERT_EQ(values.size(), 8U);
    EXPECT_EQ(values[0].text(), "\"text\"");
    EXPECT_EQ(values[1].text(), "[0.5, -1, 1e+300]");
    EXPECT_EQ(values[2].text(), "7");
    EXPECT_EQ(values[3].text(), "0.25");
    EXPECT_EQ(values[4].names, (std::vector<std::string>{"cdp", ""}));
    EXPECT_EQ(values[5].text(), "[0.5, -1, 1e+300]");
    EXPECT_EQ(values[6].text(), "3 numbers"); // written by the call, later
    EXPECT_EQ(values[7].text(), "a null address");
    for (const CallValue& value : values)
        EXPECT_EQ(describeDifference(value, value, 0), "");
    EXPECT_THAT(describeDifference(values[0], values[2], 0), HasSubstr("recorded \"text\", now 7"));
}

TEST(NumberDifferenceTest, FirstAndLargestAreFound)
{
    const std::vector<float> recorded = {1, 2, 3, -10};
    const std::vector<float> now = {1, 2.5F, 3, -12};
    const auto bytes = [](const std::vector<float>& numbers) {
        return reinterpret_cast<const char*>(numbers.data());
    };
    const auto found = compareNumbers(Numbers::Type::float32, bytes(recorded), bytes(now), 4, 0);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->index, 1U);
    EXPECT_EQ(found->recorded, "2");
    EXPECT_EQ(found->now, "2.5");
    EXPECT_EQ(found->differing, 2U);
    EXPECT_EQ(found->largest, 2.0);
    EXPECT_EQ(compareNumbers(Numbers::Type::float32, bytes(recorded), bytes(now), 4, 0.06)->index,
              3U);
    EXPECT_FALSE(compareNumbers(Numbers::Type::float32, bytes(recorded), bytes(now), 4, 0.2));

    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> missing = {nan, 2, 3, -10};
    const auto toNan =
        compareNumbers(Numbers::Type::float32, bytes(recorded), bytes(missing), 4, 0.2);
    ASSERT_TRUE(toNan);
    EXPECT_TRUE(std::isnan(toNan->largest));
    EXPECT_FALSE(compareNumbers(Numbers::Type::float32, bytes(missing), bytes(missing), 4, 0));
}

// What a damaged record holds behind its checksum, should it ever.
TEST(RecordedModuleTest, AnyBytesAreReadOrRefused)
{
    RecordedModule module;
    module.name = "some";
    module.inputs = 1;
    module.consumers = {1};
    module.schema.push_back({"cdp", 2, 1, "ensemble", 0, 0, 0, 0, 0});
    GroupEntity group(2);
    group.setParameter("x", 1, UniVar(1.5));
    module.parameters["rows"].setValue(&group);
    const std::vector<float> corners = {1, 2, 3};
    module.parameters["corners"].setValue(corners.data(), 3);
    ByteWriter bytes;
    writeModule(module, bytes);

    ByteReader reader(bytes.bytes);
    const RecordedModule back = readModule(reader);
    EXPECT_TRUE(reader.atEnd());
    EXPECT_EQ(back.name, "some");
    EXPECT_EQ(back.parameters.at("rows").getGroupValue()->getParameter("x", 1).getF64Value(), 1.5);
    EXPECT_EQ(back.parameters.at("corners").getF32ArrayValue()[2], 3.0F);

    std::mt19937 random(1);
    int refused = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string damaged = bytes.bytes;
        for (int changes = 0; changes < 3; ++changes)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        ByteReader damagedReader(damaged);
        try {
            readModule(damagedReader);
            readValues(damaged);
        } catch (const RecordError&) {
            ++refused;
        }
    }
    EXPECT_GT(refused, 1000);
}

} // namespace host
