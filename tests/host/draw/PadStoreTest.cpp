// Pads with more samples than a picture shows keep the strongest ones.
#include "draw/PadStore.h"

#include "SeisTrace.h"
#include "SeisTraceSet.h"

#include <KernelFixture.h>
#include <gmock/gmock.h>

using namespace host;

namespace {

class PadStoreTest : public KernelFixture
{
protected:
    // One trace with `spike` at the sample `at`, shown on the pad.
    void show(PadStore& store, int samples, int at, float spike)
    {
        SeisTraceSet set;
        set.setTraceLength(samples);
        set.setTraceSampleInterval(4000);
        SeisTrace* trace = set.getTrace(0, true);
        float* values = trace->getSamples();
        std::fill(values, values + samples, 1.0F);
        values[at] = spike;
        store.addTraces(1, &set);
        delete trace; // a trace set leaves its traces to its owner
    }
};

} // namespace

TEST_F(PadStoreTest, UpTo16MillionSamplesStayAsTheyCame)
{
    PadStore store;
    store.create(1, 1, 0, 1, "section");
    for (int i = 0; i < 16; ++i)
        show(store, 1 << 20, 5, -3);
    const Pad& pad = store.pads()[0];
    EXPECT_FALSE(pad.isReduced());
    EXPECT_EQ(pad.samplesOf(15).size(), std::size_t{1} << 20);
    EXPECT_EQ(pad.samplesOf(15)[5], -3);
}

TEST_F(PadStoreTest, OfMoreSamplesTheStrongestOfSeveralStays)
{
    PadStore store;
    store.create(1, 1, 0, 1, "section");
    for (int i = 0; i < 40; ++i)
        show(store, 1 << 20, 1000 + i, i % 2 == 0 ? -9.0F : 9.0F);
    const Pad& pad = store.pads()[0];
    EXPECT_EQ(pad.samplesPerValue, 4);
    EXPECT_EQ(pad.keptEvery, 1u);
    EXPECT_EQ(pad.longest(), std::size_t{1} << 20);
    EXPECT_LE(pad.values, std::size_t{1} << 24);
    for (std::size_t i = 0; i < 40; ++i) {
        ASSERT_EQ(pad.samplesOf(i).size(), std::size_t{1} << 18) << i;
        EXPECT_EQ(pad.samplesOf(i)[(1000 + i) / 4], i % 2 == 0 ? -9.0F : 9.0F) << i;
        EXPECT_EQ(pad.samplesOf(i)[0], 1.0F) << i;
    }
}

TEST_F(PadStoreTest, OfMoreTracesEveryNthKeepsItsSamples)
{
    PadStore store;
    store.create(1, 1, 0, 1, "section");
    for (int i = 0; i < 10000; ++i)
        show(store, 4096, 0, static_cast<float>(i));
    const Pad& pad = store.pads()[0];
    EXPECT_EQ(pad.samplesPerValue, 1);
    EXPECT_EQ(pad.keptEvery, 4u);
    EXPECT_EQ(pad.traces.size(), 10000u);
    EXPECT_EQ(pad.traces[9999].label, 10000);
    EXPECT_EQ(pad.samplesOf(9999)[0], 9996);
    EXPECT_TRUE(pad.traces[9999].samples.empty());
}

// What a hash of the pad has to tell apart.
TEST_F(PadStoreTest, SamplesThatAreLeftOutChangeTheFingerprint)
{
    std::vector<uint64_t> prints;
    for (const float hidden : {0.5F, 0.25F}) {
        PadStore store;
        store.create(1, 1, 0, 1, "section");
        for (int i = 0; i < 20; ++i)
            show(store, 1 << 20, 77, i == 3 ? hidden : 1.0F);
        EXPECT_TRUE(store.pads()[0].isReduced());
        prints.push_back(store.pads()[0].fingerprint);
    }
    EXPECT_NE(prints[0], prints[1]);
}

// Of each trace the values that the directives name are kept, as they were when it was shown.
TEST_F(PadStoreTest, LabelsGathersAndPicksAreThoseOfTheAttributesNamed)
{
    PadStore store;
    store.create(1, 1, 0, 1, "section\nxattr: tracf\nxattr2: offset\ngather: fldr\npicks: fbpick");
    store.create(2, 1, 0, 1, "section\ngather: nothing");
    SeisTraceSet set;
    set.setTraceLength(4);
    SeisTrace* trace = set.getTrace(0, true);
    int value = 11;
    for (const char* name : {"tracf", "offset", "fldr", "fbpick"})
        set.setAttribute(name, UniVar(value++), 0);
    store.addTraces(1, &set);
    store.addTraces(2, &set);
    delete trace;

    const PadTrace& all = store.pads()[0].traces.at(0);
    EXPECT_EQ(all.label, 11);
    EXPECT_EQ(all.secondLabel, 12);
    EXPECT_EQ(all.gather, 13);
    EXPECT_EQ(all.pick, 14);
    const PadTrace& none = store.pads()[1].traces.at(0);
    EXPECT_EQ(none.label, 1);
    EXPECT_EQ(none.secondLabel, 0);
    EXPECT_EQ(none.gather, 0);
    EXPECT_EQ(none.pick, 0);
}
