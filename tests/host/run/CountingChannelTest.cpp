#include "run/CountingChannel.h"

#include "KernelFixture.h"
#include "ModuleEntity.h"

#include <memory>

using namespace host;

namespace {

// A producer, two consumers and the channel between them.
class CountingChannelTest : public KernelFixture
{
protected:
    CountingChannelTest()
    {
        job().addTraceAttributeDefinition("fldr", 2, 1, "", 0, 0, 0, 0, 0);
        job().addTraceAttributeDefinition("rms", 4, 1, "", 0, 0, 0, 0, 0);
        channel->setTraceLength(3);
        channel->defineAttribute("fldr");
        channel->defineAttribute("rms");
        channel->attachInputModule(&producer);
        channel->attachOutputModule(&first);
        channel->attachOutputModule(&second);
    }

    void TearDown() override
    {
        channel->onDeparture = nullptr;
        while (channel->getNumberOfTraces() > 0)
            channel->removeTrace(0);
    }

    void produce(int fldr)
    {
        job().setActiveModule(&producer);
        channel->setAttribute("fldr", UniVar(fldr), channel->getNumberOfTraces());
    }

    void consume(ModuleEntity& consumer)
    {
        job().setActiveModule(&consumer);
        channel->removeInputTrace(&consumer, 0);
    }

    ModuleEntity producer{"producer"};
    ModuleEntity first{"first"};
    ModuleEntity second{"second"};
    std::unique_ptr<CountingChannel> channel = std::make_unique<CountingChannel>();
};

} // namespace

TEST_F(CountingChannelTest, ATraceCountsOnceHoweverLongItIsQueued)
{
    produce(1);
    produce(2);
    produce(3);
    consume(first);

    EXPECT_EQ(channel->arrived(), 3);
    EXPECT_EQ(channel->taken(&first), 1);
    EXPECT_EQ(channel->taken(&second), 0);

    consume(second);
    EXPECT_EQ(channel->taken(&second), 1);
    EXPECT_EQ(channel->getNumberOfTraces(), 2);
}

TEST_F(CountingChannelTest, ATraceThatAConsumerAsksForInVainIsNoData)
{
    job().setActiveModule(&first);
    channel->getTrace(0, true); // makes one

    EXPECT_EQ(channel->arrived(), 0);
    EXPECT_EQ(channel->taken(&second), 0);
}

TEST_F(CountingChannelTest, RangesCoverTheIntegersOfAllTracesThatHaveLeft)
{
    channel->watchWords({"fldr", "rms", "unknown"});
    for (const int fldr : {7, 7, -2, 9}) {
        produce(fldr);
        consume(first);
        consume(second);
    }
    produce(100); // still there

    ASSERT_EQ(channel->words().size(), 1u);
    const CountingChannel::WordRange& range = channel->words().front();
    EXPECT_EQ(range.word, "fldr");
    EXPECT_EQ(range.minimum, -2);
    EXPECT_EQ(range.maximum, 9);
    EXPECT_EQ(range.first, 7);
    EXPECT_EQ(range.last, 9);
    EXPECT_EQ(range.changes, 2);
}

TEST_F(CountingChannelTest, ArrivalsAndDeparturesAreTold)
{
    std::string events;
    channel->onArrival = [&] { events += "+"; };
    channel->onDeparture = [&] { events += "-"; };

    produce(1);
    produce(2);
    consume(first);
    consume(second);

    EXPECT_EQ(events, "++-");
    EXPECT_EQ(channel->activity(), 3);
}
