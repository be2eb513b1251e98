// Accounted memory against a plain model of ordered maps, under random operations: modules come and
// go, join and leave the job, blocks are freed behind the kernel's back and their addresses come
// again.
#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "SeisTrace.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace {

// What one holder is charged, by the rules.
struct Account
{
    int total = 0;
    std::map<void*, int> blocks;

    void charge(void* block, int size)
    {
        total += size;
        blocks[block] = size;
    }

    void uncharge(void* block)
    {
        const auto entry = blocks.find(block);
        if (entry == blocks.end())
            return;
        total -= entry->second;
        blocks.erase(entry);
    }
};

// Empty when `map` and `total` are what `account` says.
std::string difference(const std::string& holder, const BlockMap& map, int total,
                       const Account& account)
{
    std::ostringstream text;
    if (total != account.total)
        text << holder << ": total " << total << " instead of " << account.total << "\n";
    if (map.size() != account.blocks.size() || map.empty() != account.blocks.empty())
        text << holder << ": " << map.size() << " blocks instead of " << account.blocks.size()
             << "\n";
    return text.str();
}

// The same, looking at every block.
std::string differenceOfBlocks(const std::string& holder, const BlockMap& map,
                               const Account& account)
{
    std::ostringstream text;
    auto expected = account.blocks.begin();
    for (const auto& [block, size] : map) {
        if (expected == account.blocks.end() || block != expected->first ||
            size != expected->second) {
            text << holder << ": unexpected block " << block << " of " << size << " bytes\n";
            return text.str();
        }
        ++expected;
    }
    if (expected != account.blocks.end())
        text << holder << ": block " << expected->first << " is not iterated over\n";
    return text.str();
}

class MemoryModelTest : public KernelFixture, public testing::WithParamInterface<unsigned>
{
protected:
    ~MemoryModelTest() override
    {
        for (void* block : blocks)
            std::free(block);
        for (SeisTrace* trace : traces)
            delete trace;
        for (auto& [module, account] : modules) {
            if (!isOfJob(module))
                delete module;
        }
    }

    int random(int below) { return std::uniform_int_distribution<int>(0, below - 1)(engine); }

    // --- operations, each on the kernel and on the model

    void allocate()
    {
        const int size = random(4) == 0 ? random(5000) : random(100);
        void* block = job().allocateResource(size);
        ASSERT_NE(block, nullptr);
        taken(block, size);
        blocks.insert(block);
    }

    void freeOne()
    {
        if (blocks.empty())
            return;
        void* block = anyBlock();
        blocks.erase(block);
        given(block);
        job().freeResource(block);
    }

    // Traces remember where their blocks were entered, and are made of blocks of few sizes.
    void makeTrace()
    {
        static constexpr int lengths[] = {0, 16, 25, 1500};
        static constexpr int headers[] = {0, 64, 100, 240};
        const int length = lengths[random(4)];
        const int header = headers[random(4)];
        auto* trace = new SeisTrace(length, header);
        taken(trace->getSamples(), 4 * length);
        taken(trace->getHeader(), header);
        traces.push_back(trace);
    }

    void destroyTrace()
    {
        if (traces.empty())
            return;
        const auto trace = traces.begin() + random(static_cast<int>(traces.size()));
        given((*trace)->getHeader());
        given((*trace)->getSamples());
        delete *trace;
        traces.erase(trace);
    }

    void freeBehindTheKernelsBack()
    {
        if (blocks.empty())
            return;
        void* block = anyBlock();
        blocks.erase(block);
        lost.insert(block);
        std::free(block);
    }

    // A block that the heap gave to other code, or none.
    void freeUnknown()
    {
        void* block = random(4) == 0 ? nullptr : std::malloc(static_cast<std::size_t>(random(100)));
        given(block); // it may come at an address that was lost
        lost.erase(block);
        job().freeResource(block);
    }

    void chargeModule()
    {
        ModuleEntity* module = anyModule();
        if (module == nullptr)
            return;
        void* block = anyAddress();
        const int size = random(1000);
        EXPECT_EQ(module->calcAllocateResource(block, size), block);
        modules[module].charge(block, size);
    }

    void unchargeModule()
    {
        ModuleEntity* module = anyModule();
        if (module == nullptr)
            return;
        void* block = anyAddress();
        module->calcFreeResource(block);
        modules[module].uncharge(block);
    }

    void switchActiveModule() { job().setActiveModule(random(4) == 0 ? nullptr : anyModule()); }

    void createModule()
    {
        if (modules.size() >= 12)
            return;
        auto* module = new ModuleEntity("module");
        modules[module];
        if (random(3) != 0)
            job().jobModules.push_back(module);
    }

    void destroyModule()
    {
        ModuleEntity* module = anyModule();
        if (module == nullptr)
            return;
        leaveJob(module);
        if (job().getActiveModule() == module)
            job().setActiveModule(nullptr);
        modules.erase(module);
        delete module;
    }

    void joinOrLeaveJob()
    {
        ModuleEntity* module = anyModule();
        if (module == nullptr)
            return;
        ModuleList& list = job().jobModules;
        if (isOfJob(module))
            leaveJob(module);
        else
            list.insert(list.begin() + random(static_cast<int>(list.size()) + 1), module);
    }

    void reorderJob() { std::shuffle(job().jobModules.begin(), job().jobModules.end(), engine); }

    // The host deletes the job manager; the modules of the job go with it.
    void renewJob()
    {
        for (ModuleEntity* module : job().jobModules)
            modules.erase(module);
        jobAccount = Account();
        renewSingletons();
        installRecorder();
    }

    // --- comparison

    std::string differences()
    {
        std::string text =
            difference("job", job().jobMemoryMap, job().totalJobMemoryUsed, jobAccount);
        for (const auto& [module, account] : modules)
            text += difference(nameOf(module), module->moduleMemoryMap,
                               module->totalModuleMemoryUsed, account);
        return text;
    }

    std::string differencesOfBlocks()
    {
        std::string text = differenceOfBlocks("job", job().jobMemoryMap, jobAccount);
        for (const auto& [module, account] : modules)
            text += differenceOfBlocks(nameOf(module), module->moduleMemoryMap, account);
        return text;
    }

    // One address in all maps.
    std::string differencesAt(void* block)
    {
        std::string text = differenceAt("job", job().jobMemoryMap, jobAccount, block);
        for (const auto& [module, account] : modules)
            text += differenceAt(nameOf(module), module->moduleMemoryMap, account, block);
        return text;
    }

    static std::string differenceAt(const std::string& holder, const BlockMap& map,
                                    const Account& account, void* block)
    {
        const auto expected = account.blocks.find(block);
        const bool listed = expected != account.blocks.end();
        const auto found = map.find(block);
        bool right = map.count(block) == (listed ? 1u : 0u);
        if (listed) {
            right = right && found != map.end() && found->first == block &&
                    found->second == expected->second && map.at(block) == expected->second;
            if (right) {
                auto next = found;
                ++next;
                const auto after = std::next(expected);
                right = after == account.blocks.end() ? next == map.end()
                                                      : next != map.end() && *next == *after;
            }
        } else {
            right = right && found == map.end();
            try {
                map.at(block);
                right = false;
            } catch (const std::out_of_range&) {
            }
        }
        if (right)
            return "";
        std::ostringstream text;
        text << holder << ": wrong about " << block << "\n";
        return text.str();
    }

    void step(int growth)
    {
        const int chance = random(100);
        if (chance < 30 + growth)
            allocate();
        else if (chance < 56)
            freeOne();
        else if (chance < 62)
            random(2) == 0 ? makeTrace() : destroyTrace();
        else if (chance < 64)
            freeBehindTheKernelsBack();
        else if (chance < 66)
            freeUnknown();
        else if (chance < 74)
            chargeModule();
        else if (chance < 80)
            unchargeModule();
        else if (chance < 90)
            switchActiveModule();
        else if (chance < 93)
            createModule();
        else if (chance < 95)
            destroyModule();
        else if (chance < 98)
            joinOrLeaveJob();
        else
            reorderJob();
    }

    // An address that some map knows, or one that none does.
    void* anyAddress()
    {
        switch (random(5)) {
        case 0:
            return blocks.empty() ? nowhere() : anyBlock();
        case 2:
            return returned.empty() ? nowhere() : anyOf(returned);
        case 1:
            return lost.empty() ? nowhere() : anyOf(lost);
        default:
            return nowhere();
        }
    }

    std::map<ModuleEntity*, Account> modules;

private:
    void taken(void* block, int size)
    {
        if (ModuleEntity* active = job().getActiveModule())
            modules[active].charge(block, size);
        jobAccount.charge(block, size);
        lost.erase(block);
        returned.erase(block);
    }

    void given(void* block)
    {
        jobAccount.uncharge(block);
        for (ModuleEntity* module : job().jobModules)
            modules[module].uncharge(block);
        returned.insert(block);
    }

    static std::string nameOf(const ModuleEntity* module)
    {
        std::ostringstream text;
        text << "module " << static_cast<const void*>(module);
        return text.str();
    }

    bool isOfJob(ModuleEntity* module)
    {
        const ModuleList& list = job().jobModules;
        return std::find(list.begin(), list.end(), module) != list.end();
    }

    void leaveJob(ModuleEntity* module)
    {
        ModuleList& list = job().jobModules;
        list.erase(std::remove(list.begin(), list.end(), module), list.end());
    }

    ModuleEntity* anyModule()
    {
        if (modules.empty())
            return nullptr;
        return std::next(modules.begin(), random(static_cast<int>(modules.size())))->first;
    }

    void* anyBlock() { return anyOf(blocks); }

    // From somewhere in the set, without walking through it.
    void* anyOf(const std::set<void*>& set)
    {
        const auto low = reinterpret_cast<uintptr_t>(*set.begin());
        const auto high = reinterpret_cast<uintptr_t>(*set.rbegin());
        const uintptr_t place = std::uniform_int_distribution<uintptr_t>(low, high)(engine);
        return *set.lower_bound(reinterpret_cast<void*>(place));
    }

    // Where no heap has blocks, or null; close together, so that the same ones come again.
    void* nowhere() { return reinterpret_cast<void*>(static_cast<uintptr_t>(random(60))); }

    std::mt19937 engine{GetParam()};
    std::set<void*> blocks;   // alive
    std::set<void*> lost;     // freed behind the kernel's back, and perhaps still listed
    std::set<void*> returned; // given back; the kernel may keep them for the next request
    std::vector<SeisTrace*> traces;
    Account jobAccount;
};

TEST_P(MemoryModelTest, AccountsFollowTheRules)
{
    for (int i = 0; i < 12000; ++i) {
        // More blocks are taken than freed for a while, then fewer.
        ASSERT_NO_FATAL_FAILURE(step((i / 3000) % 2 == 0 ? 25 : -25));
        ASSERT_EQ(differences(), "") << "after operation " << i;
        if (i % 10 == 0) {
            ASSERT_EQ(differencesAt(anyAddress()), "") << "after operation " << i;
        }
        if (i % 100 == 0) {
            ASSERT_EQ(differencesOfBlocks(), "") << "after operation " << i;
        }
        if (i % 5000 == 4999)
            renewJob();
    }
    EXPECT_EQ(differencesOfBlocks(), "");
}

INSTANTIATE_TEST_SUITE_P(Seeds, MemoryModelTest, testing::Range(1u, 13u));

} // namespace
