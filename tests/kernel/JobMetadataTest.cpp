// Metadata of the job and of its modules: which scope is meant, how values are found upstream, and
// how they come to files and back.
#include "DataChannel.h"
#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "ProbeModule.h"
#include "metadataprovider.h"

#include <climits>
#include <cstring>
#include <deque>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using MetaData = std::map<std::string, std::string>;
using Modules = std::vector<ModuleEntity*>;

// Modules by name, and the active module `m`.
class JobMetadataTest : public KernelFixture
{
protected:
    JobMetadataTest() { activate(&m); }
    ~JobMetadataTest() override { activate(nullptr); }

    void activate(ModuleEntity* module) { job().setActiveModule(module); }

    // A channel from producers to one consumer, as its next input.
    void feed(const Modules& producers, ModuleEntity& consumer)
    {
        channels.emplace_back();
        for (ModuleEntity* producer : producers)
            producer->setOutputDataChannel(&channels.back(), 0);
        consumer.setInputDataChannel(&channels.back(), 0);
    }

    // Each module feeds the next through a channel of its own.
    void chain(const Modules& modules)
    {
        for (std::size_t i = 1; i < modules.size(); ++i)
            feed({modules[i - 1]}, *modules[i]);
    }

    std::string value(const std::string& key, int scope = 1)
    {
        return job().getMetaDataValue(scope, key);
    }
    MetaData values(int scope = 1) { return job().getMetaDataValues(scope); }

    ModuleEntity a{"a"}, b{"b"}, c{"c"}, d{"d"}, e{"e"}, m{"m"};

private:
    std::deque<DataChannel> channels;
};

// --------------------------------------------------------------------------------- scopes, writing

TEST_F(JobMetadataTest, ScopeZeroIsTheJobsMapAndAnyOtherTheActiveModules)
{
    job().setMetaDataValue(0, "k", "of the job");
    EXPECT_THAT(job().metaDataMap, ElementsAre(Pair("k", "of the job")));
    EXPECT_THAT(m.getMetaData(), IsEmpty());

    int number = 0;
    for (int scope : {1, 2, -1, INT_MAX, INT_MIN})
        job().setMetaDataValue(scope, std::string(1, static_cast<char>('k' + number++)), "m's");
    EXPECT_THAT(m.getMetaData(), ElementsAre(Pair("k", "m's"), Pair("l", "m's"), Pair("m", "m's"),
                                             Pair("n", "m's"), Pair("o", "m's")));
    EXPECT_EQ(job().metaDataMap.size(), 1u);
}

TEST_F(JobMetadataTest, WithoutAnActiveModuleEveryScopeIsTheJobs)
{
    a.setMetaData("k", "a's");
    chain({&a, &m});
    activate(nullptr);
    for (int scope : {0, 1, 2, -1}) {
        const std::string key = "k" + std::to_string(scope);
        job().setMetaDataValue(scope, key, "of the job");
        EXPECT_EQ(job().metaDataMap[key], "of the job") << scope;
        EXPECT_EQ(value(key, scope), "of the job") << scope;
        EXPECT_EQ(value("k", scope), "") << scope;
        EXPECT_EQ(values(scope), job().metaDataMap) << scope;
    }
    EXPECT_THAT(m.getMetaData(), IsEmpty());
}

TEST_F(JobMetadataTest, FirstValueOfAKeyIsKeptInEitherScope)
{
    for (int scope : {0, 1}) {
        job().setMetaDataValue(scope, "k", "1");
        job().setMetaDataValue(scope, "k", "2");
        job().setMetaDataValue(scope, "empty", "");
        job().setMetaDataValue(scope, "empty", "late");
    }
    EXPECT_THAT(job().metaDataMap, ElementsAre(Pair("empty", ""), Pair("k", "1")));
    EXPECT_THAT(m.getMetaData(), ElementsAre(Pair("empty", ""), Pair("k", "1")));
}

TEST_F(JobMetadataTest, EmptyAndHiddenKeysAreTheJobsOnly)
{
    for (const char* key : {"", "#", "#k", "#k$"}) {
        job().setMetaDataValue(1, key, "refused");
        EXPECT_THAT(m.getMetaData(), IsEmpty()) << key;
        EXPECT_THAT(job().metaDataMap, IsEmpty()) << key << " does not go to the other scope";

        job().setMetaDataValue(0, key, "taken");
        EXPECT_THAT(job().metaDataMap, ElementsAre(Pair(key, "taken")));
        EXPECT_EQ(value(key, 0), "taken");
        job().metaDataMap.clear();

        activate(nullptr);
        job().setMetaDataValue(1, key, "taken");
        EXPECT_THAT(job().metaDataMap, ElementsAre(Pair(key, "taken")));
        job().metaDataMap.clear();
        activate(&m);
    }
}

TEST_F(JobMetadataTest, MarkWithinAKeyHidesNothing)
{
    job().setMetaDataValue(1, "k#", "1");
    job().setMetaDataValue(1, " #k", "2");
    EXPECT_THAT(m.getMetaData(), ElementsAre(Pair(" #k", "2"), Pair("k#", "1")));
}

TEST_F(JobMetadataTest, EntryPointWritesIntoItsOwnModule)
{
    ProbeModule probe("probe");
    probe.process = [&] { job().setMetaDataValue(1, "k", "probe's"); };
    job().processModule(probe.entity);
    EXPECT_THAT(probe.entity->getMetaData(), ElementsAre(Pair("k", "probe's")));
    EXPECT_THAT(m.getMetaData(), IsEmpty());
}

// ------------------------------------------------------------------------------------ one value

TEST_F(JobMetadataTest, JobsValueIsFoundByScopeZeroOnly)
{
    job().setMetaDataValue(0, "k", "of the job");
    EXPECT_EQ(value("k", 0), "of the job");
    EXPECT_EQ(value("k", 1), "");
    EXPECT_EQ(value("missing", 0), "");
    EXPECT_EQ(job().metaDataMap.size(), 1u) << "looking up inserts nothing";
}

TEST_F(JobMetadataTest, ScopeZeroDoesNotLookUpstream)
{
    chain({&a, &m});
    a.setMetaData("k", "a's");
    m.setMetaData("k", "m's");
    EXPECT_EQ(value("k", 0), "");
}

TEST_F(JobMetadataTest, AnyScopeButZeroLooksUpstream)
{
    chain({&a, &m});
    a.setMetaData("k", "a's");
    for (int scope : {1, 2, -1, INT_MIN})
        EXPECT_EQ(value("k", scope), "a's") << scope;
}

TEST_F(JobMetadataTest, OwnValueIsNotLookedAt)
{
    chain({&a, &m});
    m.setMetaData("k", "m's");
    m.setMetaData("t$", "m's");
    EXPECT_EQ(value("k"), "");
    EXPECT_EQ(value("t$"), "");
    a.setMetaData("k", "a's");
    a.setMetaData("t$", "a's");
    EXPECT_EQ(value("k"), "a's");
    EXPECT_EQ(value("t$"), "a's");
}

TEST_F(JobMetadataTest, InAChainTheNearestValueIsFound)
{
    chain({&a, &b, &m});
    a.setMetaData("n", "a");
    EXPECT_EQ(value("n"), "a");
    b.setMetaData("n", "b");
    EXPECT_EQ(value("n"), "b");
    EXPECT_EQ(value("missing"), "");
}

TEST_F(JobMetadataTest, InAChainAdditiveValuesAreJoinedNearestFirst)
{
    chain({&a, &b, &m});
    a.setMetaData("t$", "x");
    b.setMetaData("t$", "y");
    EXPECT_EQ(value("t$"), "yx");
    EXPECT_EQ(value("missing$"), "");
}

TEST_F(JobMetadataTest, ModulesWithoutTheAdditiveKeyAreLookedThrough)
{
    chain({&a, &b, &c, &m});
    a.setMetaData("t$", "x");
    c.setMetaData("t$", "z");
    EXPECT_EQ(value("t$"), "zx");
}

TEST_F(JobMetadataTest, EmptyValueThatIsFoundEndsTheSearch)
{
    chain({&a, &b, &m});
    a.setMetaData("n", "a");
    b.setMetaData("n", "");
    EXPECT_EQ(value("n"), "");
}

TEST_F(JobMetadataTest, DownstreamModulesAreNotLookedAt)
{
    chain({&m, &a});
    a.setMetaData("n", "a");
    EXPECT_EQ(value("n"), "");
}

TEST_F(JobMetadataTest, AdditiveKeysEndWithTheMark)
{
    chain({&a, &b, &m});
    for (const char* key : {"$", "t$", "$$", "#$"}) {
        a.setMetaData(key, "a");
        b.setMetaData(key, "b");
        EXPECT_EQ(value(key), "ba") << key;
    }
    for (const char* key : {"$t", "t$ ", "t$t", "t"}) {
        a.setMetaData(key, "a");
        b.setMetaData(key, "b");
        EXPECT_EQ(value(key), "b") << key;
    }
}

TEST_F(JobMetadataTest, ProducersAreAskedByChannelsAndThenByAttachment)
{
    feed({&a, &b}, m);
    feed({&c}, m);
    c.setMetaData("n", "c");
    EXPECT_EQ(value("n"), "c");
    b.setMetaData("n", "b");
    EXPECT_EQ(value("n"), "b");
    a.setMetaData("n", "a");
    EXPECT_EQ(value("n"), "a");

    for (ModuleEntity* module : {&a, &b, &c})
        module->setMetaData("t$", module->getName());
    EXPECT_EQ(value("t$"), "abc");
}

TEST_F(JobMetadataTest, AllDirectProducersComeBeforeThoseBehindThem)
{
    feed({&a}, m);
    feed({&b}, m);
    feed({&c}, a);
    feed({&d}, b);
    b.setMetaData("n", "b");
    c.setMetaData("n", "c");
    d.setMetaData("n", "d");
    EXPECT_EQ(value("n"), "b");
}

TEST_F(JobMetadataTest, ProducerMetLastIsLookedBehindFirst)
{
    feed({&a}, m);
    feed({&b}, m);
    feed({&c}, a);
    feed({&d}, b);
    c.setMetaData("n", "c");
    d.setMetaData("n", "d");
    EXPECT_EQ(value("n"), "d");
}

TEST_F(JobMetadataTest, FarValueBehindTheProducerMetLastComesBeforeANearerOne)
{
    feed({&a}, m);
    feed({&b}, m);
    feed({&c}, a);
    chain({&e, &d, &b});
    c.setMetaData("n", "two steps away");
    e.setMetaData("n", "three steps away");
    EXPECT_EQ(value("n"), "three steps away");
}

TEST_F(JobMetadataTest, InADiamondTheSharedProducerCountsOncePerPath)
{
    chain({&a, &b, &m});
    chain({&a, &c, &m});
    for (ModuleEntity* module : {&a, &b, &c})
        module->setMetaData("t$", module->getName());
    EXPECT_EQ(value("t$"), "bcaa");

    a.setMetaData("n", "a");
    EXPECT_EQ(value("n"), "a");
}

TEST_F(JobMetadataTest, WhatIsBehindADiamondCountsOncePerPathToo)
{
    chain({&d, &a, &b, &m});
    chain({&a, &c, &m});
    for (ModuleEntity* module : {&a, &b, &c, &d})
        module->setMetaData("t$", module->getName());
    EXPECT_EQ(value("t$"), "bcadad");
}

TEST_F(JobMetadataTest, ProducerOnTwoChannelsCountsTwice)
{
    feed({&a}, m);
    feed({&a}, m);
    feed({&b}, a);
    a.setMetaData("t$", "a");
    b.setMetaData("t$", "b");
    EXPECT_EQ(value("t$"), "aabb");
}

TEST_F(JobMetadataTest, ProducerAttachedTwiceToOneChannelCountsTwice)
{
    feed({&a, &a}, m);
    a.setMetaData("t$", "a");
    EXPECT_EQ(value("t$"), "aa");
}

TEST_F(JobMetadataTest, EmptyKeyOfAModuleIsOutOfRange)
{
    EXPECT_THROW(value("", 1), std::out_of_range) << "also where nothing is upstream";
    chain({&a, &m});
    EXPECT_THROW(value("", 1), std::out_of_range);
    EXPECT_THROW(value("", -1), std::out_of_range);
    EXPECT_EQ(value("", 0), "");
    activate(nullptr);
    EXPECT_EQ(value("", 1), "");
}

// ----------------------------------------------------------------------------------- all values

TEST_F(JobMetadataTest, ScopeZeroGivesTheJobsMapAsItIs)
{
    chain({&a, &m});
    a.setMetaData("k", "a's");
    m.setMetaData("l", "m's");
    for (const char* key : {"", "#k", "k", "t$"})
        job().setMetaDataValue(0, key, "of the job");
    MetaData copy = values(0);
    EXPECT_EQ(copy, job().metaDataMap);
    EXPECT_EQ(copy.size(), 4u);
    copy["k"] = "changed";
    EXPECT_EQ(value("k", 0), "of the job");
}

TEST_F(JobMetadataTest, ViewHasTheJobsValuesExceptThatOfTheEmptyKey)
{
    for (const char* key : {"", "#k", "k", "t$", "$"})
        job().setMetaDataValue(0, key, "of the job");
    EXPECT_THAT(values(), ElementsAre(Pair("#k", "of the job"), Pair("$", "of the job"),
                                      Pair("k", "of the job"), Pair("t$", "of the job")));
    EXPECT_EQ(job().metaDataMap.size(), 5u);
}

TEST_F(JobMetadataTest, PlainValueNearestToTheActiveModuleWinsAndItsOwnAboveAll)
{
    chain({&a, &b, &m});
    job().setMetaDataValue(0, "n", "of the job");
    EXPECT_THAT(values(), ElementsAre(Pair("n", "of the job")));
    a.setMetaData("n", "a");
    EXPECT_THAT(values(), ElementsAre(Pair("n", "a")));
    b.setMetaData("n", "b");
    EXPECT_THAT(values(), ElementsAre(Pair("n", "b")));
    m.setMetaData("n", "m");
    EXPECT_THAT(values(), ElementsAre(Pair("n", "m")));
    EXPECT_EQ(value("n", 0), "of the job") << "the maps themselves do not change";
}

TEST_F(JobMetadataTest, EmptyPlainValueWinsLikeAnyOther)
{
    chain({&a, &m});
    a.setMetaData("n", "a");
    m.setMetaData("n", "");
    EXPECT_THAT(values(), ElementsAre(Pair("n", "")));
}

TEST_F(JobMetadataTest, AdditiveValuesAreJoinedByLineFeedsFromUpstreamToTheJob)
{
    chain({&a, &b, &m});
    a.setMetaData("t$", "x");
    b.setMetaData("t$", "y");
    EXPECT_THAT(values(), ElementsAre(Pair("t$", "x\ny")));
    m.setMetaData("t$", "z");
    job().setMetaDataValue(0, "t$", "of the job");
    EXPECT_THAT(values(), ElementsAre(Pair("t$", "x\ny\nz\nof the job")));
}

TEST_F(JobMetadataTest, EmptyAdditiveValuesAreJoinedToo)
{
    chain({&a, &b, &m});
    a.setMetaData("t$", "");
    b.setMetaData("t$", "y");
    m.setMetaData("t$", "");
    EXPECT_THAT(values(), ElementsAre(Pair("t$", "\ny\n")));
}

TEST_F(JobMetadataTest, ViewOfADiamondHasSharedProducersOncePerPath)
{
    chain({&a, &b, &m});
    chain({&a, &c, &m});
    for (ModuleEntity* module : {&a, &b, &c, &m}) {
        module->setMetaData("t$", module->getName());
        module->setMetaData("of " + module->getName(), "1");
    }
    EXPECT_THAT(values(), ElementsAre(Pair("of a", "1"), Pair("of b", "1"), Pair("of c", "1"),
                                      Pair("of m", "1"), Pair("t$", "a\na\nc\nb\nm")));
}

TEST_F(JobMetadataTest, OfTwoProducersTheOneAttachedFirstWinsInTheView)
{
    feed({&a, &b}, m);
    feed({&c}, m);
    c.setMetaData("n", "c");
    b.setMetaData("n", "b");
    EXPECT_EQ(values()["n"], "b");
    a.setMetaData("n", "a");
    EXPECT_EQ(values()["n"], "a");
}

TEST_F(JobMetadataTest, ViewFollowsTheProducerMetLastFirst)
{
    feed({&a}, m);
    feed({&b}, m);
    feed({&c}, a);
    chain({&e, &d, &b});
    c.setMetaData("n", "two steps away");
    e.setMetaData("n", "three steps away");
    c.setMetaData("t$", "c");
    e.setMetaData("t$", "e");
    EXPECT_EQ(values()["n"], "three steps away");
    EXPECT_EQ(values()["t$"], "c\ne");
}

TEST_F(JobMetadataTest, EmptyKeyInAModulesMapIsOutOfRangeForTheView)
{
    chain({&a, &m});
    a.setMetaData("", "slipped in"); // not through the job
    EXPECT_THROW(values(1), std::out_of_range);
    EXPECT_NO_THROW(values(0));
    activate(&a);
    EXPECT_THROW(values(1), std::out_of_range) << "its own map counts as well";
    activate(nullptr);
    EXPECT_NO_THROW(values(1));
}

// ------------------------------------------------------------------------------- random graphs

// Looking up against a plain description of the order: a module's producers in turn, then what is
// behind each of them, the last one first.
class JobMetadataModelTest : public KernelFixture, public testing::WithParamInterface<unsigned>
{
protected:
    using Keys = std::vector<std::string>;
    const Keys keys{"n", "p", "t$", "$"};

    // Module 0 is active. Producers have higher numbers than their consumers.
    struct Graph
    {
        std::deque<ModuleEntity> modules;
        std::deque<DataChannel> channels;
        std::map<const ModuleEntity*, Modules> producers; // in the order in which they are asked
    };

    ~JobMetadataModelTest() override { job().setActiveModule(nullptr); }

    int random(int below) { return std::uniform_int_distribution<int>(0, below - 1)(engine); }

    void build(Graph& graph)
    {
        const int count = 2 + random(5);
        for (int i = 0; i < count; ++i)
            graph.modules.emplace_back(std::to_string(i));
        for (int i = 0; i + 1 < count; ++i) {
            ModuleEntity& consumer = graph.modules[static_cast<std::size_t>(i)];
            for (int inputs = random(3); inputs > 0; --inputs) {
                DataChannel& channel = graph.channels.emplace_back();
                for (int feeding = random(3); feeding > 0; --feeding) {
                    ModuleEntity& producer =
                        graph.modules[static_cast<std::size_t>(i + 1 + random(count - i - 1))];
                    producer.setOutputDataChannel(&channel, 0);
                    graph.producers[&consumer].push_back(&producer);
                }
                consumer.setInputDataChannel(&channel, 0);
            }
        }
        for (const std::string& key : keys) {
            for (ModuleEntity& module : graph.modules) {
                if (random(3) != 0)
                    module.setMetaData(key, key + " of " + module.getName());
            }
            if (random(2) != 0)
                job().setMetaDataValue(0, key, key + " of the job");
        }
        job().setActiveModule(&graph.modules[0]);
    }

    static void walk(Graph& graph, const ModuleEntity* module, Modules& order)
    {
        const Modules& producers = graph.producers[module];
        order.insert(order.end(), producers.begin(), producers.end());
        for (auto producer = producers.rbegin(); producer != producers.rend(); ++producer)
            walk(graph, *producer, order);
    }

    static std::string expectedValue(const Modules& upstream, const std::string& key)
    {
        std::string joined;
        for (const ModuleEntity* module : upstream) {
            const auto entry = module->moduleMetaData.find(key);
            if (entry == module->moduleMetaData.end())
                continue;
            if (key.back() != '$')
                return entry->second;
            joined += entry->second;
        }
        return joined;
    }

    // From the farthest module to the active one, and then the job; of plain keys the job is first.
    MetaData expectedValues(const Modules& upstream, ModuleEntity* active)
    {
        std::vector<const MetaData*> maps;
        for (auto module = upstream.rbegin(); module != upstream.rend(); ++module)
            maps.push_back(&(*module)->moduleMetaData);
        maps.push_back(&active->moduleMetaData);

        MetaData view;
        for (const std::string& key : keys) {
            std::vector<std::string> found;
            for (const MetaData* map : maps) {
                if (map->count(key) != 0)
                    found.push_back(map->at(key));
            }
            const bool additive = key.back() == '$';
            if (job().metaDataMap.count(key) != 0)
                found.insert(additive ? found.end() : found.begin(), job().metaDataMap.at(key));
            if (found.empty())
                continue;
            view[key] = additive ? found.front() : found.back();
            for (std::size_t i = 1; additive && i < found.size(); ++i)
                view[key] += "\n" + found[i];
        }
        return view;
    }

    static std::string describe(Graph& graph)
    {
        std::ostringstream text;
        for (const ModuleEntity& module : graph.modules) {
            text << module.getName() << " <-";
            for (const ModuleEntity* producer : graph.producers[&module])
                text << " " << producer->getName();
            text << "\n";
        }
        return text.str();
    }

    std::mt19937 engine{GetParam()};
};

TEST_P(JobMetadataModelTest, ValuesAreFoundInTheOrderOfTheModel)
{
    for (int i = 0; i < 100; ++i) {
        Graph graph;
        job().metaDataMap.clear();
        build(graph);
        Modules upstream;
        walk(graph, &graph.modules[0], upstream);
        for (const std::string& key : keys)
            ASSERT_EQ(job().getMetaDataValue(1, key), expectedValue(upstream, key))
                << key << "\n"
                << describe(graph);
        ASSERT_EQ(job().getMetaDataValues(1), expectedValues(upstream, &graph.modules[0]))
            << describe(graph);
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, JobMetadataModelTest, testing::Range(1u, 6u));

// -------------------------------------------------------------------------------- files and locks

// The project is a directory of the test's own with a place for metadata.
class JobMetadataFileTest : public JobMetadataTest
{
protected:
    JobMetadataFileTest()
    {
        std::filesystem::create_directory(project / ".metadata");
        job().setProjectDir(QString::fromStdString(project.path()));
    }

    ~JobMetadataFileTest() override
    {
        // The metadata store outlives the test: without a directory it is as new.
        EXPECT_THROW(VORN::MetadataProvider::getInstance()->setRefDir(""), std::out_of_range);
    }

    std::string metadataFile(const std::string& name) const
    {
        return project / ".metadata/" + name;
    }

    static std::string contentOf(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static void write(const std::string& path, const std::string& content)
    {
        std::ofstream(path, std::ios::binary) << content;
    }

    TemporaryDirectory project;
};

// A text with its NULs.
template <std::size_t N>
std::string bytes(const char (&literal)[N])
{
    return std::string(literal, N - 1);
}

TEST_F(JobMetadataFileTest, FileHoldsWhatIsVisibleFromTheActiveModule)
{
    chain({&a, &m});
    a.setMetaData("n", "a");
    a.setMetaData("t$", "x");
    m.setMetaData("own", "m");
    m.setMetaData("t$", "y");
    job().setMetaDataValue(0, "job", "j");
    job().setMetaDataValue(0, "", "left out");

    EXPECT_TRUE(job().storeExternalMetaData(project / "lines/l001.sgy"));

    EXPECT_EQ(contentOf(metadataFile("lines_l001.sgy")),
              bytes("job\0j\0n\0a\0own\0m\0t$\0x\ny\0\0\0"));
}

TEST_F(JobMetadataFileTest, WithoutAnActiveModuleFileHoldsTheJobsMetadata)
{
    job().setMetaDataValue(0, "k", "v");
    job().setMetaDataValue(0, "#h", "w");
    m.setMetaData("own", "m");
    activate(nullptr);
    EXPECT_TRUE(job().storeExternalMetaData(project / "l001.sgy"));
    EXPECT_EQ(contentOf(metadataFile("l001.sgy")), bytes("#h\0w\0k\0v\0\0\0"));
}

TEST_F(JobMetadataFileTest, FileWithoutAPlaceForMetadataIsNotStoredOrLoaded)
{
    m.setMetaData("k", "v");
    EXPECT_FALSE(job().storeExternalMetaData("no-directory-in-this-name"));
    EXPECT_FALSE(job().loadExternalMetaData("no-directory-in-this-name"));
}

TEST_F(JobMetadataFileTest, LoadedEntriesGoToTheActiveModule)
{
    write(metadataFile("l001.sgy"), bytes("k\0v\0t$\0x\0\0\0"));
    EXPECT_TRUE(job().loadExternalMetaData(project / "l001.sgy"));
    EXPECT_THAT(m.getMetaData(), ElementsAre(Pair("k", "v"), Pair("t$", "x")));
    EXPECT_THAT(job().metaDataMap, IsEmpty());
}

TEST_F(JobMetadataFileTest, WithoutAnActiveModuleLoadedEntriesGoToTheJob)
{
    write(metadataFile("l001.sgy"), bytes("#h\0w\0k\0v\0\0\0"));
    activate(nullptr);
    EXPECT_TRUE(job().loadExternalMetaData(project / "l001.sgy"));
    EXPECT_THAT(job().metaDataMap, ElementsAre(Pair("#h", "w"), Pair("k", "v")));
}

TEST_F(JobMetadataFileTest, LoadingFollowsTheRulesOfWriting)
{
    m.setMetaData("k", "present");
    write(metadataFile("l001.sgy"), bytes("#h\0w\0k\0late\0l\0v\0\0\0"));
    EXPECT_TRUE(job().loadExternalMetaData(project / "l001.sgy"));
    EXPECT_THAT(m.getMetaData(), ElementsAre(Pair("k", "present"), Pair("l", "v")));
    EXPECT_THAT(job().metaDataMap, IsEmpty());
}

TEST_F(JobMetadataFileTest, LoadingAMissingFileIsFalseAndAnEmptyOneTrue)
{
    EXPECT_FALSE(job().loadExternalMetaData(project / "missing.sgy"));
    write(metadataFile("empty.sgy"), "");
    EXPECT_TRUE(job().loadExternalMetaData(project / "empty.sgy"));
    EXPECT_THAT(m.getMetaData(), IsEmpty());
}

TEST_F(JobMetadataFileTest, WhatIsStoredComesBackInTheNextJob)
{
    m.setMetaData("k", "v");
    m.setMetaData("text", "with blanks, \xc3\xa9 and\na line feed");
    EXPECT_TRUE(job().storeExternalMetaData(project / "l001.sgy"));
    activate(&a);
    EXPECT_TRUE(job().loadExternalMetaData(project / "l001.sgy"));
    EXPECT_EQ(a.getMetaData(), m.getMetaData());
}

TEST_F(JobMetadataFileTest, VisitorIgnoresItsContext)
{
    int context = 0;
    for (void* object : {static_cast<void*>(nullptr), static_cast<void*>(&context)})
        VORN::JobManagerUtils::storeModuleMetadata(object, object != nullptr ? "k" : "l", "v");
    VORN::JobManagerUtils::storeModuleMetadata(nullptr, "#h", "refused");
    VORN::JobManagerUtils::storeModuleMetadata(nullptr, "k", "late");
    EXPECT_THAT(m.getMetaData(), ElementsAre(Pair("k", "v"), Pair("l", "v")));
    activate(nullptr);
    VORN::JobManagerUtils::storeModuleMetadata(nullptr, "#h", "w");
    EXPECT_THAT(job().metaDataMap, ElementsAre(Pair("#h", "w")));
}

TEST_F(JobMetadataFileTest, LocksAreTheFileLocks)
{
    const std::string file = project / "l001.sgy";
    EXPECT_EQ(job().lockFile(file, 0x01020304), 0);
    int32_t mode = 0;
    const std::string content = contentOf(file + ".lck");
    ASSERT_EQ(content.size(), sizeof mode);
    std::memcpy(&mode, content.data(), sizeof mode);
    EXPECT_EQ(mode, 0x01020304);

    EXPECT_EQ(job().lockFile(file, 1), -1) << "locked already";
    EXPECT_EQ(job().unlockFile(file, 1), 0);
    EXPECT_EQ(contentOf(file + ".lck"), "");
    EXPECT_EQ(job().unlockFile(file, 1), -2) << "not locked";
    EXPECT_EQ(job().lockFile(project / "missing/l001.sgy", 1), -2) << "can not be made";
}

} // namespace
