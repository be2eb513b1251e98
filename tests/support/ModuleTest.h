/// @file ModuleTest.h
///
/// The verbs of a test that runs one module in a job.
#ifndef MODULETEST_H
#define MODULETEST_H

#include "ModuleHarness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

/// Lists as modules receive them from a job file.
inline UniVar floats(const std::vector<double>& values)
{
    return UniVar(values.data(), static_cast<int>(values.size()));
}

inline UniVar integers(const std::vector<int>& values)
{
    return UniVar(values.data(), static_cast<int>(values.size()));
}

/// A job of the harness whose modules are all of one library, lib<library>.so.
class ModuleTest : public testing::Test
{
protected:
    explicit ModuleTest(const std::string& library) : libraryName("lib" + library + ".so") {}

    /// Adds the module once more; its name in messages is "module1", "module2", ...
    HarnessModule& add(std::map<std::string, UniVar> parameters = {})
    {
        names.push_back("module" + std::to_string(names.size() + 1));
        HarnessModule& module = harness.add(names.back(), libraryName);
        module.parameters = std::move(parameters);
        return module;
    }

    /// A new job, without input and modules.
    void restart()
    {
        harness = ModuleHarness();
        names.clear();
    }

    /// Runs the job, which comes to its end without complaint: the last trace, and no other, is
    /// marked as the last, and no module keeps memory.
    void run()
    {
        result = harness.run();
        ASSERT_TRUE(result.loaded);
        EXPECT_THAT(result.messagesOf(4), testing::IsEmpty());
        expectEnd();
    }

    /// Runs the job, which the last added module ends with this message.
    void runInVain(const std::string& message)
    {
        result = harness.run();
        ASSERT_TRUE(result.loaded);
        EXPECT_THAT(result.messagesOf(4, names.back()), testing::ElementsAre(message));
        EXPECT_THAT(result.traces, testing::IsEmpty());
        EXPECT_THAT(result.jobMetadata["vorn.failed"], testing::EndsWith(": " + message));
        expectNoMemoryLeft();
    }

    /// Adds traces of noise on levels that differ, and the words that `words` gives to each,
    /// counted from 0. Every ninth trace is dead, and every eleventh has a sample that is not a
    /// number.
    void pushNoise(int traces, int samples,
                   const std::function<std::map<std::string, UniVar>(int)>& words)
    {
        std::mt19937 random(5);
        for (int i = 0; i < traces; ++i) {
            std::vector<float> noise(static_cast<std::size_t>(samples));
            const float level = static_cast<float>(1 + random() % 1000) * 0.37F;
            for (float& sample : noise)
                sample = i % 9 == 8
                             ? 0
                             : level * (static_cast<float>(random() % 20001) / 10000.0F - 1.0F);
            if (i % 11 == 10 && samples > 1)
                noise[1] = std::numeric_limits<float>::quiet_NaN();
            harness.push(std::move(noise), words(i));
        }
    }

    /// Runs the job once, and in 1, 2, 3 and 7 parts, cut at random: all are the same. `units` are
    /// the numbers of traces after which the input may be cut; anywhere where it is empty.
    void expectSameInParts(std::vector<std::size_t> units = {})
    {
        const bool isAnywhere = units.empty();
        result = harness.run();
        ASSERT_TRUE(result.loaded);
        for (std::size_t cut = 1; isAnywhere && cut < harness.input.size(); ++cut)
            units.push_back(cut);
        std::mt19937 random(20);
        for (const std::size_t parts : {1, 2, 3, 7}) {
            std::vector<std::size_t> cuts;
            std::sample(units.begin(), units.end(), std::back_inserter(cuts), parts - 1, random);
            EXPECT_EQ(differenceOf(result, harness.runInParts(cuts)), "")
                << "in parts that begin after " << testing::PrintToString(cuts) << " traces";
        }
    }

    std::vector<std::string> messages(int type) { return result.messagesOf(type, names.back()); }

    std::string history() { return result.moduleMetadata[names.back()]["history$"]; }

    /// Attribute of all traces that came out.
    std::vector<int> all(const std::string& attribute)
    {
        std::vector<int> values;
        for (const HarnessTrace& trace : result.traces)
            values.push_back(trace.attributes.at(attribute).getI32Value());
        return values;
    }

    /// Flags of all traces that came out.
    std::vector<int> flags()
    {
        std::vector<int> values;
        for (const HarnessTrace& trace : result.traces)
            values.push_back(trace.flag);
        return values;
    }

    ModuleHarness harness;
    HarnessResult result;

private:
    void expectEnd()
    {
        std::vector<int> expected(result.traces.size(), 0);
        if (!expected.empty())
            expected.back() = 3;
        EXPECT_EQ(flags(), expected);
        expectNoMemoryLeft();
    }

    void expectNoMemoryLeft()
    {
        for (const std::string& name : names)
            EXPECT_EQ(result.bytesLeft.at(name), 0) << name;
    }

    std::string libraryName;
    std::vector<std::string> names;
};

#endif
