// An application may call the entry points of modules itself, in any order: the processing modules
// answer with messages where something is missing, and never crash.
#include "ExpectedLeaks.h"
#include "HostModules.h"
#include "ModuleEntity.h"
#include "ProcessingTree.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

class EntryOrderTest : public KernelFixture
{
protected:
    void process(ModuleEntity* module)
    {
        job().setActiveModule(module);
        module->processModule();
        job().setActiveModule(nullptr);
    }

    // A job of `module` between a source of three traces and a sink, as far as it has such ports.
    ModuleEntity* build(const std::string& module, VORN::CollectedTraces& result)
    {
        job().resetJob();
        job().setReleaseAtEnd(true);
        job().defineSegySchema();
        ModuleEntity* one = job().initJobModule("one", ("lib" + module + ".so").c_str());
        if (one == nullptr)
            return nullptr;
        VORN::connect(VORN::addTraceSource("in", {samples.data(), 3, 2, 4000, {}}), one);
        VORN::connect(one, VORN::addTraceSink("out", &result));
        return one;
    }

    const std::vector<float> samples = {1, 2, 3, 4, 5, 6};
};

TEST_F(EntryOrderTest, NoOrderOfTheEntryPointsCrashes)
{
    const ExpectedLeaks lost; // of modules that begin twice, or do not end
    int modules = 0;
    for (const auto& entry : fs::directory_iterator(VORN_TEST_SOURCE_DIR "/../modules")) {
        const std::string name = entry.path().filename();
        if (!fs::exists(entry.path() / (name + ".yaml")))
            continue;
        SCOPED_TRACE(name);
        ++modules;
        // Begin, process, end.
        for (const std::string order :
             {"p", "e", "ep", "bb", "bbee", "be", "bepe", "bpebpe", "bpp"}) {
            VORN::CollectedTraces result;
            ModuleEntity* module = build(name, result);
            ASSERT_NE(module, nullptr);
            for (const char call : order) {
                if (call == 'b')
                    module->preProcessModule();
                else if (call == 'p')
                    process(module);
                else
                    module->postProcessModule();
            }
            EXPECT_EQ(job().getActiveModule(), nullptr);
            EXPECT_EQ(job().resetJob(), 0);
            EXPECT_EQ(job().totalJobMemoryUsed, 0) << order;
        }
    }
    EXPECT_GT(modules, 25);
}

} // namespace
