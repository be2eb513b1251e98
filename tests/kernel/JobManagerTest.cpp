// The job manager itself: the singleton, how a job is built, date and time, and what is resolved
// against the active module.
#include "DataChannel.h"
#include "KernelFixture.h"
#include "LibraryEntity.h"
#include "ModuleEntity.h"
#include "ProbeModule.h"
#include "ScopedClock.h"
#include "metadataprovider.h"

#include <climits>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <memory>
#include <stdexcept>
#include <sys/time.h>
#include <type_traits>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_same_v<decltype(JobManager::jobStartTime), int64_t>);
static_assert(std::is_same_v<decltype(JobManager::totalJobMemoryUsed), int32_t>);
static_assert(std::is_same_v<decltype(JobManager::projectDir), QString>);
static_assert(std::is_same_v<decltype(JobManager::scratchDir), QString>);

// The metadata store lives as long as the process; without its reference directory it is as new.
void forgetReferenceDirectory()
{
    EXPECT_THROW(VORN::MetadataProvider::getInstance()->setRefDir(""), std::out_of_range);
}

std::string referenceDirectory()
{
    return VORN::MetadataProvider::getInstance()->getRefDir();
}

int64_t now()
{
    timeval time;
    gettimeofday(&time, nullptr);
    return int64_t{time.tv_sec} * 1000000 + time.tv_usec;
}

class JobManagerTest : public KernelFixture
{
protected:
    JobManagerTest() { forgetReferenceDirectory(); }
    ~JobManagerTest() override { forgetReferenceDirectory(); }

    ModuleEntity* addModule(const std::string& name = "agc")
    {
        return job().initJobModule(name, "libcomplete.so");
    }
};

// -------------------------------------------------------------------------------- the singleton

TEST_F(JobManagerTest, InstanceIsCreatedOnFirstUseAndKept)
{
    renewSingletons();
    ASSERT_EQ(JobManager::jobManagerInstance, nullptr);
    JobManager* const created = JobManager::getInstance();
    ASSERT_NE(created, nullptr);
    EXPECT_EQ(JobManager::jobManagerInstance, created);
    EXPECT_EQ(JobManager::getInstance(), created);
}

TEST_F(JobManagerTest, NewManagerIsEmpty)
{
    const JobManager fresh;
    EXPECT_THAT(fresh.jobModules, IsEmpty());
    EXPECT_THAT(fresh.jobOutputTables, IsEmpty());
    EXPECT_THAT(fresh.jobResources, IsEmpty());
    EXPECT_EQ(fresh.activeModule, nullptr);
    EXPECT_THAT(fresh.trAttDefsList, IsEmpty());
    EXPECT_TRUE(fresh.projectDir.isEmpty());
    EXPECT_TRUE(fresh.scratchDir.isEmpty());
    EXPECT_EQ(fresh.jobName, "");
    EXPECT_EQ(fresh.totalJobMemoryUsed, 0);
    EXPECT_TRUE(fresh.jobMemoryMap.empty());
    EXPECT_THAT(fresh.metaDataMap, IsEmpty());
}

TEST_F(JobManagerTest, NewManagerHasNoCallBacks)
{
    // In storage that holds other things: what the constructor leaves alone does not read as null.
    alignas(JobManager) static unsigned char storage[sizeof(JobManager)];
    std::fill(std::begin(storage), std::end(storage), static_cast<unsigned char>(0x5a));
    JobManager* const fresh = new (storage) JobManager;
    EXPECT_EQ(fresh->messageFunc, nullptr);
    EXPECT_EQ(fresh->messageArgumentFunc, nullptr);
    EXPECT_EQ(fresh->statisticFunc, nullptr);
    EXPECT_EQ(fresh->createPadFunc, nullptr);
    EXPECT_EQ(fresh->addTraceToPadFunc, nullptr);
    EXPECT_EQ(fresh->addPlotToPadFunc, nullptr);
    EXPECT_EQ(fresh->execAppliFunc, nullptr);
    EXPECT_EQ(fresh->messageFuncObj, nullptr);
    EXPECT_EQ(fresh->statisticFuncObj, nullptr);
    EXPECT_EQ(fresh->createPadFuncObj, nullptr);
    EXPECT_EQ(fresh->addTraceToPadFuncObj, nullptr);
    EXPECT_EQ(fresh->addPlotToPadFuncObj, nullptr);
    EXPECT_EQ(fresh->execAppliFuncObj, nullptr);
    EXPECT_EQ(fresh->activeModule, nullptr);
    EXPECT_EQ(fresh->totalJobMemoryUsed, 0);
    fresh->~JobManager();
}

TEST_F(JobManagerTest, FieldsLieInTheirOrder)
{
    const JobManager& manager = job();
    const void* const fields[] = {
        &manager.jobModules,           &manager.jobOutputTables,     &manager.jobResources,
        &manager.activeModule,         &manager.messageFunc,         &manager.messageArgumentFunc,
        &manager.statisticFunc,        &manager.createPadFunc,       &manager.addTraceToPadFunc,
        &manager.addPlotToPadFunc,     &manager.execAppliFunc,       &manager.trAttDefsList,
        &manager.projectDir,           &manager.scratchDir,          &manager.jobName,
        &manager.messageFuncObj,       &manager.statisticFuncObj,    &manager.createPadFuncObj,
        &manager.addTraceToPadFuncObj, &manager.addPlotToPadFuncObj, &manager.execAppliFuncObj,
        &manager.jobStartTime,         &manager.totalJobMemoryUsed,  &manager.jobMemoryMap,
        &manager.metaDataMap,
    };
    EXPECT_EQ(fields[0], &manager);
    for (std::size_t i = 1; i < std::size(fields); ++i)
        EXPECT_LT(fields[i - 1], fields[i]) << "field " << i;
}

TEST_F(JobManagerTest, StartTimeIsWhenTheManagerWasCreated)
{
    ScopedClock clock(1700000000, 123456);
    const JobManager fresh;
    clock.advance(5000000);
    EXPECT_EQ(fresh.jobStartTime, INT64_C(1700000000123456));
}

TEST_F(JobManagerTest, CreationSeedsTheRandomNumbersWithTheSeconds)
{
    const ScopedClock clock(1700000000, 999999);
    std::srand(1);
    const JobManager fresh;
    const int drawn[] = {std::rand(), std::rand()};

    std::srand(1700000000);
    EXPECT_EQ(drawn[0], std::rand());
    EXPECT_EQ(drawn[1], std::rand());
}

TEST_F(JobManagerTest, InstanceThatExistsDoesNotSeedAgain)
{
    job();
    std::srand(7);
    const int first = std::rand();
    std::srand(7);
    JobManager::getInstance();
    EXPECT_EQ(std::rand(), first);
}

TEST_F(JobManagerTest, EndOfTheManagerLeavesThePointerToIt)
{
    JobManager* const manager = JobManager::getInstance();
    delete manager;
    EXPECT_EQ(JobManager::jobManagerInstance, manager);
    JobManager::jobManagerInstance = nullptr;
    EXPECT_NE(JobManager::getInstance(), nullptr);
}

TEST_F(JobManagerTest, EndOfTheManagerDeletesItsModulesAndNothingElse)
{
    class WatchedChannel : public DataChannel
    {
    public:
        explicit WatchedChannel(int& deletions) : count(deletions) {}
        ~WatchedChannel() override { ++count; }

    private:
        int& count;
    };
    int deletions = 0;
    WatchedChannel channel(deletions);
    auto* const buffer = new SeisTraceSet;
    ModuleEntity* const module = addModule();
    module->setOutputDataChannel(&channel, 0);
    module->addWorkTraceBuffer(buffer);
    LibraryEntity* const table = job().initCDTablePrototype("HZ", "horizons");
    job().jobModules.push_back(nullptr); // is passed over
    const std::string library = VORN_TEST_HOME "/lib/libcomplete.so";

    renewSingletons();

    void* const open = dlopen(library.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    EXPECT_EQ(open, nullptr) << "the module was deleted and closed its library";
    EXPECT_EQ(deletions, 0);
    EXPECT_EQ(buffer->getNumberOfTraces(), 0);
    EXPECT_EQ(table->getLibraryPath(), "horizons");
    delete buffer;
    delete table;
}

// ------------------------------------------------------------------------------ building a job

TEST_F(JobManagerTest, NewModulesStandInTheOrderOfTheirCreation)
{
    ModuleEntity* const second = addModule("zeta");
    ModuleEntity* const first = addModule("alpha");
    ASSERT_NE(second, nullptr);
    ASSERT_NE(first, nullptr);
    EXPECT_THAT(job().jobModules, ElementsAre(second, first));
    EXPECT_EQ(second->getName(), "zeta");
    EXPECT_EQ(first->getName(), "alpha");
    EXPECT_EQ(job().getActiveModule(), nullptr);
    EXPECT_THAT(host.messages, IsEmpty());
}

TEST_F(JobManagerTest, ModuleNamesNeedNotBeUnique)
{
    ModuleEntity* const one = addModule("agc");
    ModuleEntity* const two = addModule("agc");
    EXPECT_NE(one, two);
    EXPECT_THAT(job().jobModules, ElementsAre(one, two));
}

TEST_F(JobManagerTest, NewModuleHasItsEntryPoints)
{
    const ModuleEntity* const module = addModule();
    EXPECT_NE(module->preProcessFunction, nullptr);
    EXPECT_NE(module->processFunction, nullptr);
    EXPECT_NE(module->postProcessFunction, nullptr);
}

TEST_F(JobManagerTest, ModuleThatCanNotBeLoadedLeavesTheJobAsItWas)
{
    ModuleEntity* const there = addModule();
    for (const char* library : {"libnothing.so", "libmissing_preprocess.so",
                                "libmissing_process.so", "libmissing_postprocess.so", ""})
    {
        host.messages.clear();
        EXPECT_EQ(job().initJobModule("agc", library), nullptr) << library;
        EXPECT_THAT(job().jobModules, ElementsAre(there)) << library;
        EXPECT_EQ(host.messages.size(), 2u) << library;
    }
}

TEST_F(JobManagerTest, ModuleIsNotAddedWithoutTheInstallation)
{
    const ScopedEnvironment unset("VORN_HOME", nullptr);
    EXPECT_EQ(addModule(), nullptr);
    EXPECT_THAT(job().jobModules, IsEmpty());
    EXPECT_THAT(host.texts(), ElementsAre("VORN_HOME environment variable is not set"));
}

TEST_F(JobManagerTest, OutputTablesAreListedInTheOrderOfTheirCreation)
{
    const std::unique_ptr<LibraryEntity> one(job().initCDTablePrototype("HZ", "/data/horizons"));
    const std::unique_ptr<LibraryEntity> two(job().initCDTablePrototype("HZ", "/data/horizons"));
    EXPECT_NE(one, two);
    EXPECT_THAT(job().jobOutputTables, ElementsAre(one.get(), two.get()));
    EXPECT_EQ(one->getLibraryType(), "HZ");
    EXPECT_EQ(one->getLibraryPath(), "/data/horizons");
    EXPECT_THAT(one->libriParams, IsEmpty());
}

TEST_F(JobManagerTest, TypeOfAnOutputTableIsNotChecked)
{
    for (const char* type : {"", "hz", "??", "a long type"}) {
        const std::unique_ptr<LibraryEntity> table(job().initCDTablePrototype(type, ""));
        EXPECT_EQ(table->getLibraryType(), type);
        EXPECT_EQ(table->getLibraryPath(), "");
    }
    EXPECT_EQ(job().jobOutputTables.size(), 4u);
}

TEST_F(JobManagerTest, OutputTablesOutliveTheJob)
{
    const std::unique_ptr<LibraryEntity> table(job().initCDTablePrototype("CN", "contours"));
    addModule();
    job().preProcessJob();
    job().processJob();
    job().postProcessJob();
    EXPECT_THAT(job().jobModules, IsEmpty());
    EXPECT_THAT(job().jobOutputTables, ElementsAre(table.get()));
    EXPECT_EQ(table->getLibraryPath(), "contours");
}

TEST_F(JobManagerTest, ManagerTakesTheNextJob)
{
    for (int i = 0; i < 2; ++i) {
        ASSERT_NE(addModule(), nullptr);
        EXPECT_EQ(job().jobModules.size(), 1u);
        job().preProcessJob();
        job().processJob();
        job().postProcessJob();
    }
}

// --------------------------------------------------------------------------------- directories

TEST_F(JobManagerTest, ScratchDirectoryIsStoredAndNothingElse)
{
    job().setScratchDir("/data/scratch \xc3\xa9");
    EXPECT_EQ(job().getScratchDir(), QString("/data/scratch \xc3\xa9"));
    EXPECT_EQ(job().scratchDir, QString("/data/scratch \xc3\xa9"));
    EXPECT_TRUE(job().getProjectDir().isEmpty());
    EXPECT_EQ(referenceDirectory(), "");
    EXPECT_STREQ(std::getenv("VORN_SCRATCH"), scratchDirectory.path().c_str());
}

TEST_F(JobManagerTest, ProjectDirectoryIsAlsoTheMetadataStores)
{
    job().setProjectDir("/data/p1");
    EXPECT_EQ(job().getProjectDir(), QString("/data/p1")) << "as it was given";
    EXPECT_EQ(referenceDirectory(), "/data/p1/");

    job().setProjectDir("/data/p2/");
    EXPECT_EQ(job().getProjectDir(), QString("/data/p2/"));
    EXPECT_EQ(referenceDirectory(), "/data/p2/");
    EXPECT_TRUE(job().getScratchDir().isEmpty());
}

TEST_F(JobManagerTest, MetadataStoreGetsTheProjectDirectoryAsUtf8)
{
    const char* const directory = "/data/\xc3\xa5\xe6\xb5\xb7\xf0\x9f\x8c\x8a/p";
    job().setProjectDir(QString::fromUtf8(directory));
    EXPECT_EQ(referenceDirectory(), std::string(directory) + "/");
}

TEST_F(JobManagerTest, EmptyProjectDirectoryIsStoredAndRefusedByTheMetadataStore)
{
    job().setProjectDir("/data/p1");
    EXPECT_THROW(job().setProjectDir(""), std::out_of_range);
    EXPECT_TRUE(job().getProjectDir().isEmpty());
    EXPECT_EQ(referenceDirectory(), "");
}

// ------------------------------------------------------------------------------- date and time

TEST_F(JobManagerTest, DateCountsMonthsFromZeroAndYearsFrom1900)
{
    const ScopedEnvironment zone("TZ", "UTC0");
    const struct
    {
        int64_t seconds;
        const char* expected;
    } rows[] = {
        {1794700800, "15.10.126"}, // 15 November 2026
        {946684800, "1.0.100"},    // 1 January 2000
        {946684799, "31.11.99"},   // one second before
        {0, "1.0.70"},
        {-2208988801, "31.11.-1"}, // one second before 1900
        {951782400, "29.1.100"},   // 29 February 2000
        {253402300800, "1.0.8100"},
    };
    for (const auto& row : rows) {
        const ScopedClock clock(row.seconds);
        EXPECT_EQ(job().getCurrentDate(), row.expected) << row.seconds;
    }
}

TEST_F(JobManagerTest, DateIsThatOfTheLocalTimeZone)
{
    const ScopedClock clock(946684800); // the first second of 2000 in London
    const struct
    {
        const char* zone;
        const char* expected;
    } rows[] = {{"UTC0", "1.0.100"}, {"WEST1", "31.11.99"}, {"EAST-14", "1.0.100"}};
    for (const auto& row : rows) {
        const ScopedEnvironment zone("TZ", row.zone);
        EXPECT_EQ(job().getCurrentDate(), row.expected) << row.zone;
    }
}

TEST_F(JobManagerTest, DateIsEmptyWhereThereIsNoLocalTime)
{
    const ScopedClock clock(INT64_MAX); // a year beyond 32 bits
    EXPECT_EQ(job().getCurrentDate(), "");
}

TEST_F(JobManagerTest, DateIsTodays)
{
    const auto today = [] {
        const std::time_t seconds = std::time(nullptr);
        const std::tm local = *std::localtime(&seconds);
        char text[40];
        std::snprintf(text, sizeof text, "%d.%d.%d", local.tm_mday, local.tm_mon, local.tm_year);
        return std::string(text);
    };
    const std::string before = today();
    const std::string date = job().getCurrentDate();
    EXPECT_THAT(date, testing::AnyOf(before, today()));
}

TEST_F(JobManagerTest, TimeIsInMicrosecondsSinceTheEpoch)
{
    const struct
    {
        int64_t seconds;
        int microseconds;
        int64_t expected;
    } rows[] = {
        {0, 0, 0},
        {0, 1, 1},
        {1, 0, 1000000},
        {1794700800, 999999, INT64_C(1794700800999999)},
        {INT64_C(0x100000000), 5, INT64_C(4294967296000005)},
    };
    for (const auto& row : rows) {
        const ScopedClock clock(row.seconds, row.microseconds);
        EXPECT_EQ(job().getCurrentTime(), row.expected);
    }
}

TEST_F(JobManagerTest, TimeIsTheWallClocks)
{
    const int64_t before = now();
    const int64_t time = job().getCurrentTime();
    EXPECT_GE(time, before);
    EXPECT_LE(time, now());
}

// --------------------------------------------------------------------------- the active module

// Two modules, of which the first is active, with channels that hold something to tell them apart.
class ActiveModuleTest : public JobManagerTest
{
protected:
    ActiveModuleTest()
    {
        for (DataChannel* channel : {&input0, &input1})
            active.setInputDataChannel(channel, 0);
        for (DataChannel* channel : {&output0, &output1})
            active.setOutputDataChannel(channel, 0);
        job().setActiveModule(&active);
    }

    ~ActiveModuleTest() override
    {
        for (SeisTraceSet* set : active.workTraceSets)
            delete set;
    }

    // Nothing is active from now on.
    void rest() { job().setActiveModule(nullptr); }

    ModuleEntity active{"agc"};
    ModuleEntity other{"other"};
    DataChannel input0, input1, output0, output1;
    SeisTraceSet templ;
};

TEST_F(ActiveModuleTest, ActiveModuleIsTheOneThatWasSet)
{
    EXPECT_EQ(job().getActiveModule(), &active);
    EXPECT_EQ(job().activeModule, &active);
    job().setActiveModule(&other);
    EXPECT_EQ(job().getActiveModule(), &other);
    rest();
    EXPECT_EQ(job().getActiveModule(), nullptr);
}

TEST_F(ActiveModuleTest, CurrentModuleNameIsTheActiveModulesOrEmpty)
{
    EXPECT_EQ(job().getCurrentModuleName(), "agc");
    rest();
    EXPECT_EQ(job().getCurrentModuleName(), "");
}

TEST_F(ActiveModuleTest, NameIsCurrentInsideOfAnEntryPoint)
{
    ProbeModule probe("probe");
    std::string name;
    probe.pre = [&] { name = job().getCurrentModuleName(); };
    probe.entity->preProcessModule();
    EXPECT_EQ(name, "probe");
    EXPECT_EQ(job().getCurrentModuleName(), "");
}

TEST_F(ActiveModuleTest, BuffersAreTheActiveModulesChannels)
{
    EXPECT_EQ(job().getInputTraceBuffer(0), &input0);
    EXPECT_EQ(job().getInputTraceBuffer(1), &input1);
    EXPECT_EQ(job().getOutputTraceBuffer(0), &output0);
    EXPECT_EQ(job().getOutputTraceBuffer(1), &output1);
}

TEST_F(ActiveModuleTest, BufferThatIsNotThereIsNull)
{
    for (int number : {2, 7, INT_MAX, -1, INT_MIN}) {
        EXPECT_EQ(job().getInputTraceBuffer(number), nullptr) << number;
        EXPECT_EQ(job().getOutputTraceBuffer(number), nullptr) << number;
    }
}

TEST_F(ActiveModuleTest, WorkBufferIsCreatedWithAllBelowIt)
{
    SeisTraceSet* const third = job().getWorkTraceBuffer(2);
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(active.getNumberOfWorkTraceBuffers(), 3);
    EXPECT_EQ(third, active.workTraceSets[2]);
    EXPECT_EQ(job().getWorkTraceBuffer(2), third);
    EXPECT_EQ(other.getNumberOfWorkTraceBuffers(), 0);
}

TEST_F(ActiveModuleTest, WithoutAnActiveModuleThereAreNoBuffers)
{
    rest();
    EXPECT_EQ(job().getInputTraceBuffer(0), nullptr);
    EXPECT_EQ(job().getOutputTraceBuffer(0), nullptr);
    EXPECT_EQ(job().getWorkTraceBuffer(0), nullptr);
    EXPECT_EQ(job().bldOutputTraceBuffer(0, 1, 1, nullptr), nullptr);
    EXPECT_EQ(job().bldWorkTraceBuffer(0, 1, 1, 1, nullptr), nullptr);
    EXPECT_EQ(active.getNumberOfWorkTraceBuffers(), 0);
}

TEST_F(ActiveModuleTest, BuildingAnOutputBufferConfiguresTheChannel)
{
    job().addTraceAttributeDefinition("offset", 2, 1, "", 0, 0, 0, 0, 0);
    job().addTraceAttributeDefinition("fldr", 2, 1, "", 0, 0, 0, 0, 0);
    templ.defineAttribute("offset");
    templ.defineAttribute("fldr");
    templ.setTraceLength(99); // length and interval are those asked for
    templ.setTraceSampleInterval(99);

    EXPECT_EQ(job().bldOutputTraceBuffer(1, 500, 2000, &templ), &output1);

    EXPECT_EQ(output1.getTraceLength(), 500);
    EXPECT_EQ(output1.getTraceSampleInterval(), 2000);
    EXPECT_THAT(output1.getAttributesList(), ElementsAre("fldr", "offset"));
    EXPECT_EQ(output0.getTraceLength(), 0);
    EXPECT_THAT(output0.getAttributesList(), IsEmpty());
}

TEST_F(ActiveModuleTest, BuildingWithoutATemplateSetsLengthAndInterval)
{
    EXPECT_EQ(job().bldOutputTraceBuffer(0, 500, 2000, nullptr), &output0);
    EXPECT_EQ(output0.getTraceLength(), 500);
    EXPECT_EQ(output0.getTraceSampleInterval(), 2000);
    EXPECT_THAT(output0.getAttributesList(), IsEmpty());
}

TEST_F(ActiveModuleTest, BuildingAnOutputBufferThatIsNotThereConfiguresNothing)
{
    for (int number : {2, 7, -1})
        EXPECT_EQ(job().bldOutputTraceBuffer(number, 500, 2000, &templ), nullptr) << number;
    for (const DataChannel* channel : {&input0, &input1, &output0, &output1}) {
        EXPECT_EQ(channel->getTraceLength(), 0);
        EXPECT_EQ(channel->getTraceSampleInterval(), 0);
    }
    EXPECT_EQ(active.getNumberOfOutputDataChannels(), 2);
}

TEST_F(ActiveModuleTest, BuildingAWorkBufferCreatesThoseBelowAndConfiguresIt)
{
    job().addTraceAttributeDefinition("offset", 2, 1, "", 0, 0, 0, 0, 0);
    templ.defineAttribute("offset");

    SeisTraceSet* const built = job().bldWorkTraceBuffer(2, 500, 2000, 10, &templ);

    ASSERT_EQ(active.getNumberOfWorkTraceBuffers(), 3);
    EXPECT_EQ(built, active.workTraceSets[2]);
    EXPECT_EQ(built->getTraceLength(), 500);
    EXPECT_EQ(built->getTraceSampleInterval(), 2000);
    EXPECT_THAT(built->getAttributesList(), ElementsAre("offset"));
    for (int below : {0, 1}) {
        EXPECT_EQ(active.workTraceSets[static_cast<size_t>(below)]->getTraceLength(), 0) << below;
        EXPECT_THAT(active.workTraceSets[static_cast<size_t>(below)]->getAttributesList(),
                    IsEmpty())
            << below;
    }
}

TEST_F(ActiveModuleTest, NumberOfTracesForAWorkBufferIsIgnored)
{
    for (int number : {0, 10, -1, INT_MAX})
        EXPECT_EQ(job().bldWorkTraceBuffer(0, 500, 2000, number, nullptr)->getNumberOfTraces(), 0);
}

TEST_F(ActiveModuleTest, ParametersAreTheActiveModules)
{
    job().setModuleParameter("window", UniVar(500));
    EXPECT_EQ(active.getParameter("window").getI32Value(), 500);
    EXPECT_TRUE(job().isModuleParameterPresent("window"));
    EXPECT_EQ(job().getModuleParameter("window").getI32Value(), 500);

    job().setActiveModule(&other);
    EXPECT_FALSE(job().isModuleParameterPresent("window"));
    EXPECT_THAT(other.moduleParameters, IsEmpty());
}

TEST_F(ActiveModuleTest, ParameterThatWasLookedUpIsPresent)
{
    EXPECT_EQ(job().getModuleParameter("x").getType(), undefinedType);
    EXPECT_TRUE(job().isModuleParameterPresent("x"));
    EXPECT_TRUE(active.isParameterPresent("x"));
}

TEST_F(ActiveModuleTest, WithoutAnActiveModuleThereAreNoParameters)
{
    rest();
    job().setModuleParameter("window", UniVar(500));
    EXPECT_FALSE(job().isModuleParameterPresent("window"));
    EXPECT_EQ(job().getModuleParameter("window").getType(), undefinedType);
    EXPECT_FALSE(job().isModuleParameterPresent("window"));
    EXPECT_THAT(active.moduleParameters, IsEmpty());
}

TEST_F(ActiveModuleTest, ResourcesAreTheActiveModulesWithoutAnotherOne)
{
    EXPECT_EQ(job().setModuleResource("state", UniVar(1), nullptr), 1);
    EXPECT_EQ(active.getResource("state").getI32Value(), 1);
    EXPECT_TRUE(job().isModuleResourcePresent("state", nullptr));
    EXPECT_EQ(job().getModuleResource("state", nullptr).getI32Value(), 1);
    EXPECT_THAT(other.moduleResources, IsEmpty());
}

TEST_F(ActiveModuleTest, GivenModuleComesBeforeTheActiveOneForResources)
{
    EXPECT_EQ(job().setModuleResource("state", UniVar(2), &other), 1);
    EXPECT_EQ(other.getResource("state").getI32Value(), 2);
    EXPECT_THAT(active.moduleResources, IsEmpty());
    EXPECT_TRUE(job().isModuleResourcePresent("state", &other));
    EXPECT_FALSE(job().isModuleResourcePresent("state", nullptr));
    EXPECT_EQ(job().getModuleResource("state", &other).getI32Value(), 2);
}

TEST_F(ActiveModuleTest, ResourceThatWasLookedUpIsPresent)
{
    EXPECT_EQ(job().getModuleResource("x", nullptr).getType(), undefinedType);
    EXPECT_TRUE(active.isResourcePresent("x"));
    EXPECT_EQ(job().getModuleResource("x", &other).getType(), undefinedType);
    EXPECT_TRUE(other.isResourcePresent("x"));
}

TEST_F(ActiveModuleTest, WithoutAnActiveModuleOnlyAGivenModuleHasResources)
{
    rest();
    EXPECT_EQ(job().setModuleResource("r", UniVar(1), nullptr), 0);
    EXPECT_EQ(job().getModuleResource("r", nullptr).getType(), undefinedType);
    EXPECT_FALSE(job().isModuleResourcePresent("r", nullptr));
    EXPECT_THAT(active.moduleResources, IsEmpty());
    EXPECT_THAT(job().jobResources, IsEmpty());

    EXPECT_EQ(job().setModuleResource("r", UniVar(1), &active), 1);
    EXPECT_TRUE(job().isModuleResourcePresent("r", &active));
    EXPECT_EQ(job().getModuleResource("r", &active).getI32Value(), 1);
}

} // namespace
