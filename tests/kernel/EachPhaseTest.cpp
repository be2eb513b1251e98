// Every public function of the job manager, and every function of the facade, called where it makes
// no sense: before a job, in each entry point, in call-backs, between the phases and after the job.
// Nothing may crash, and the job's traces go on as if nothing had been called.
#include "DataChannel.h"
#include "HostModules.h"
#include "JobOutcome.h"
#include "KernelFixture.h"
#include "LibraryEntity.h"
#include "MOXKernel.h"
#include "ModuleEntity.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <map>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

// `set` is a work buffer, or null.
void callFacade(void* set)
{
    const char* const names[] = {"cdp"};
    int ints[8] = {};
    int64_t longs[8] = {};
    float floats[8] = {};
    double doubles[8] = {};
    char* buffer = nullptr;
    isModuleParameterPresent("cdp");
    getModuleParameter("cdp");
    isModuleResourcePresent("cdp");
    getModuleResource("cdp");
    setModuleResource("cdp", UniVar(1));
    setModuleProcessingOption("cdp", UniVar(1));
    getModuleProcessingOption("cdp");
    getInputTraceBuffer(0);
    getOutputTraceBuffer(0);
    getWorkTraceBuffer(0);
    bldOutputTraceBuffer(9, 1, 1, set);
    bldWorkTraceBuffer(1, 1, 1, 1, set);
    bldWorkTraceBufferLike(2, set);
    setInputTraceBufferFlag(9, 1);
    isInputTraceBufferFlagged(0, 0);
    isTraceAttributeExist(set, "cdp");
    defineTraceAttribute(set, "cdp");
    getTraceAttribute(set, "cdp", 0);
    setTraceAttribute(set, "cdp", UniVar(1), 0);
    getTraceSamples(set, 0);
    setTraceSamples(set, floats, 0);
    getNumberOfTraces(set);
    getTraceLength(set);
    getTraceSampleInterval(set);
    setNumberOfTraces(set, 0);
    setTraceLength(set, 0);
    setTraceSampleInterval(set, 0);
    clearTraceSet(set);
    copyTraceToTrace(set, set, 0, 0, 0, 0);
    moveTraceToTrace(set, set, 0, 0);
    transferTraceToTrace(set, set, 0, 0);
    removeTrace(set, 0);
    removeWorkTraces();
    informTotalTracesNumber(set, 0);
    setTraceBufferUseScratch(set, 0);
    isTraceBufferUseScratch(set);
    getDataChannelFlag(set);
    setDataChannelFlag(set, 0);
    isJobCancelled();
    setMetaDataOfRun("name", "name");
    freeAttributeList(bldAttributeList(names, 1));
    freeAttributeList(nullptr);
    getAttributeListSize(nullptr);
    getAttributeListPresence(nullptr, set, ints);
    getTraceAttributes(nullptr, set, 0, ints);
    getTraceAttributes(nullptr, set, 0, longs);
    getTraceAttributes(nullptr, set, 0, floats);
    getTraceAttributes(nullptr, set, 0, doubles);
    setTraceAttributes(nullptr, set, 0, ints);
    setTraceAttributes(nullptr, set, 0, longs);
    setTraceAttributes(nullptr, set, 0, floats);
    setTraceAttributes(nullptr, set, 0, doubles);
    getLibraryType(nullptr);
    isLibraryParameterPresent(nullptr, "cdp");
    getLibraryParameter(nullptr, "cdp");
    setLibraryParameter(nullptr, "cdp", UniVar(1));
    getGroupParameterSize(nullptr);
    isGroupParameterPresent(nullptr, "cdp", 0);
    getGroupParameter(nullptr, "cdp", 0);
    setGroupParameter(nullptr, "cdp", 0, UniVar(1));
    getTraceAttributeType("cdp");
    getTraceAttributeDimension("cdp");
    getTraceAttributeCstSlot("cdp");
    getTraceAttributeBitA("cdp");
    getTraceAttributeBitZ("cdp");
    getTraceAttributeCstType("cdp");
    getTraceAttributeMapCoef("cdp");
    getTraceAttributeDescription("cdp");
    getTraceAttributeDef("cdp", ints, ints, ints, ints, ints, ints, ints);
    sendMessage(0, "cdp");
    addMessageArgument(UniVar(1));
    execAppliCmd("cdp");
    createPad(0, 0, 0, "cdp");
    addTraceToPad(0, set);
    addPlotToPad(0, 1.0F, 1.0F, 0);
    addNumberToPad(0, 1.0F, 1.0F, 1.0F, 1.0F, 1.0F, 0);
    addSymbolToPad(0, 1.0F, 1.0F, 1.0F, "name", 0, 1.0F, 0);
    addFactorToPad(0, 1.0F);
    addNewPenToPad(0, 0);
    freeResource(allocateResource(8));
    freeResource(nullptr);
    fileOpen("/no/such/file");
    fileCreate("/no/such/file");
    fileClose(-1);
    getScratchDir();
    getProjectDir();
    getModuleName();
    getCurrentDate();
    setMetaDataValue(0, "name", "name");
    getMetaDataValue(0, "name");
    packMetaDataValues(&buffer);
    std::free(buffer);
    storeExternalMetaDataFor("/no/such/file");
    loadExternalMetaDataFor("/no/such/file");
    lockDataFile("/no/such/file", 0);
    unlockDataFile("/no/such/file");
    broadcastEvent("name", 0);
}

// All but the phases, resetJob() and what ends or cancels the job.
void callManager(JobManager& job)
{
    job.setJobName(nullptr);
    job.setJobName("phases");
    job.getProjectDir();
    job.getScratchDir();
    job.setProjectDir("/tmp");
    job.setScratchDir("/tmp");
    job.getActiveModule();
    job.getCurrentModuleName();
    job.getInputTraceBuffer(-1);
    job.getOutputTraceBuffer(9);
    job.getWorkTraceBuffer(-1);
    job.bldOutputTraceBuffer(9, 1, 1, nullptr);
    job.bldWorkTraceBuffer(-1, 1, 1, 1, nullptr);
    job.setModuleParameter("name", UniVar(1));
    job.getModuleParameter("name");
    job.isModuleParameterPresent("name");
    job.setModuleResource("name", UniVar(1), nullptr);
    job.getModuleResource("name", nullptr);
    job.isModuleResourcePresent("name", nullptr);
    job.keepUntilReturn(UniVar("kept"));
    job.getCurrentDate();
    job.getCurrentTime();
    job.addTraceAttributeDefinition("extra", 2, 1, "\xff is not UTF-8", 0, 0, 0, 0, 0);
    job.getTraceAttributeType("extra");
    job.getTraceAttributeDimension("none");
    job.getTraceAttributeCstSlot("none");
    job.getTraceAttributeBitA("none");
    job.getTraceAttributeBitZ("none");
    job.getTraceAttributeCstType("none");
    job.getTraceAttributeMapCoef("none");
    job.getTraceAttributeDescription("none");
    job.getTraceAttributeDef("none", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    job.freeResource(job.allocateResource(16));
    job.allocateResource(-1);
    job.freeResource(nullptr);
    job.releaseSpareBlocks();
    job.addMessageArgument(UniVar("\xff"));
    job.execAppliCmdSend("");
    job.broadcastEvent("", 0);
    job.createPad(1, 1, 1, "");
    job.addTraceToPad(1, nullptr);
    job.addPlotToPad(1, 1.0F);
    job.addPlotToPad(1, 1);
    job.setMetaDataValue(1, "", "value");
    job.setMetaDataValue(0, "key$", "\xff");
    job.getMetaDataValue(0, "");
    job.getMetaDataValues(0);
    job.getMetaDataValues(1);
    job.storeExternalMetaData("/no/such/file");
    job.loadExternalMetaData("/no/such/file");
    job.lockFile("/no/such/file", 0);
    job.unlockFile("/no/such/file", 0);
    job.jobOutcome();
    JobManager::isCancelRequested();
    job.setStatisticInterval(250);
    job.setReleaseAtEnd(true);
}

class EachPhaseTest : public KernelFixture
{
public:
    void callAll()
    {
        callManager(job());
        callFacade(job().getActiveModule() != nullptr ? job().getWorkTraceBuffer(0) : nullptr);
    }

protected:
    // Within a job: the phases are refused.
    void callPhases()
    {
        EXPECT_EQ(job().preProcessJob(), 1);
        EXPECT_EQ(job().processJob(), 1);
        EXPECT_EQ(job().postProcessJob(), 1);
        EXPECT_EQ(job().resetJob(), 1);
    }

    VORN::ModuleFunctions filter()
    {
        VORN::ModuleFunctions functions;
        functions.preprocess = [this] {
            bldOutputTraceBuffer(0, 2, 4000, getInputTraceBuffer(0));
            bldWorkTraceBuffer(0, 2, 4000, 1, getInputTraceBuffer(0));
            callAll();
            callPhases();
        };
        functions.process = [this] {
            copyTraceToTrace(getInputTraceBuffer(0), getOutputTraceBuffer(0), 1, 1, 0, 0);
            callAll();
            callPhases();
        };
        functions.postprocess = [this] {
            callAll();
            callPhases();
        };
        return functions;
    }

    void addModules(VORN::CollectedTraces& result)
    {
        ModuleEntity* source =
            VORN::addTraceSource("in", {samples.data(), 3, 2, 4000, {{"cdp", cdps.data()}}});
        ModuleEntity* middle = VORN::addModule("middle", filter());
        VORN::connect(source, middle);
        VORN::connect(middle, VORN::addTraceSink("out", &result));
    }

    const std::vector<float> samples = {1, 2, 3, 4, 5, 6};
    const std::vector<int> cdps = {7, 8, 9};
};

TEST_F(EachPhaseTest, NothingCrashesAndTheTracesStay)
{
    for (int run = 0; run < 2; ++run) {
        job().resetJob();
        callAll();
        job().resetJob();
        job().addTraceAttributeDefinition("cdp", int32AttType, 1, "", 0, 0, 0, 0, 0);
        VORN::CollectedTraces result;
        result.words["cdp"];
        addModules(result);
        callAll();
        EXPECT_EQ(job().preProcessJob(), 0);
        callAll();
        EXPECT_EQ(job().processJob(), 0);
        callAll();
        EXPECT_EQ(job().postProcessJob(), 0);
        callAll();
        EXPECT_THAT(result.samples, ElementsAre(1, 2, 3, 4, 5, 6));
        EXPECT_THAT(result.words["cdp"], ElementsAre(7, 8, 9));
    }
    job().resetJob();
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
}

TEST_F(EachPhaseTest, PhasesOutOfOrderAndWithoutModules)
{
    EXPECT_EQ(job().postProcessJob(), 0);
    EXPECT_EQ(job().processJob(), 0);
    EXPECT_EQ(job().preProcessJob(), 0);
    EXPECT_EQ(job().processJob(), 0);
    EXPECT_EQ(job().resetJob(), 0);
    job().addTraceAttributeDefinition("cdp", int32AttType, 1, "", 0, 0, 0, 0, 0);
    VORN::CollectedTraces result;
    addModules(result);
    EXPECT_EQ(job().postProcessJob(), 0); // never prepared
    EXPECT_TRUE(job().jobModules.empty());
    EXPECT_EQ(result.count, 0);
}

// A cancelled job that is run again is still cancelled; after a reset it is not.
TEST_F(EachPhaseTest, ACancelledJobRunsAfterAReset)
{
    for (const bool reset : {false, true}) {
        if (reset)
            job().resetJob();
        else
            JobManager::requestCancel();
        job().addTraceAttributeDefinition("cdp", int32AttType, 1, "", 0, 0, 0, 0, 0);
        VORN::CollectedTraces result;
        addModules(result);
        EXPECT_EQ(job().preProcessJob(), reset ? 0 : 1);
        job().processJob();
        job().postProcessJob();
        EXPECT_EQ(job().jobOutcome().end == JobEnd::cancelled, !reset);
        EXPECT_EQ(result.count, reset ? 3 : 0);
    }
}

// In the middle of the kernel's work.
TEST_F(EachPhaseTest, CallBacksMayCallEverything)
{
    static int depth;
    depth = 0;
    const auto callEverything = [](void* test) {
        if (++depth == 1) // messages of the calls come here, too
            static_cast<EachPhaseTest*>(test)->callAll();
        --depth;
    };
    static void (*call)(void*);
    call = callEverything;
    job().installMessageFunc(
        [](int, char*, const char*, const char*, void* test) {
            call(test);
            return 0;
        },
        nullptr, this);
    job().installStatisticFunc(
        [](jobStatisticStruct*, void* test) {
            call(test);
            return 0;
        },
        this);
    job().addTraceAttributeDefinition("cdp", int32AttType, 1, "", 0, 0, 0, 0, 0);
    VORN::CollectedTraces result;
    addModules(result);
    job().preProcessJob();
    job().processJob();
    job().postProcessJob();
    EXPECT_THAT(result.samples, ElementsAre(1, 2, 3, 4, 5, 6));
}

} // namespace
