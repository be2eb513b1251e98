// The flat records that hosts lay out for themselves: their sizes and places, and that C and C++
// read them alike.
#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "host_records.h"

#include <cstddef>
#include <gmock/gmock.h>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace {

using testing::StrEq;

static_assert(sizeof(int) == 4 && sizeof(float) == 4 && sizeof(void*) == 8);
static_assert(std::is_trivial_v<jobStatisticStruct> &&
              std::is_standard_layout_v<jobStatisticStruct>);
static_assert(std::is_trivial_v<modStatisticStruct> &&
              std::is_standard_layout_v<modStatisticStruct>);
static_assert(std::is_trivial_v<plotCommandStruct> && std::is_standard_layout_v<plotCommandStruct>);
static_assert(std::is_same_v<decltype(plotCommandStr::cbcd), const char*>);
static_assert(std::is_same_v<decltype(plotCommandStr::factor), float>);
static_assert(std::is_same_v<decltype(plotCommandStr::inchar), int>);
static_assert(std::is_same_v<decltype(jobStatisticStr::modStatistics), modStatisticStr[32]>);

// Fixed for good: hosts are compiled apart from the kernel.
// clang-format off
const host_record_field layout[] = {
    {"modStatisticStr", 0, 92},
    {"modStatisticStr.ident", 0, 4},
    {"modStatisticStr.modName", 4, 64},
    {"modStatisticStr.inp_traces", 68, 4},
    {"modStatisticStr.out_traces", 72, 4},
    {"modStatisticStr.total_time", 76, 4},
    {"modStatisticStr.avg_time", 80, 4},
    {"modStatisticStr.mem_used", 84, 4},
    {"modStatisticStr.progress", 88, 4},
    {"jobStatisticStr", 0, 3116},
    {"jobStatisticStr.jobName", 0, 64},
    {"jobStatisticStr.jobPhase", 64, 4},
    {"jobStatisticStr.jobStatus", 68, 4},
    {"jobStatisticStr.jobCmd", 72, 4},
    {"jobStatisticStr.numMod", 76, 4},
    {"jobStatisticStr.modStatistics", 80, 2944},
    {"jobStatisticStr.jobStatistics", 3024, 92},
    {"plotCommandStr", 0, 56},
    {"plotCommandStr.cmdType", 0, 4},
    {"plotCommandStr.xpage", 4, 4},
    {"plotCommandStr.ypage", 8, 4},
    {"plotCommandStr.ipen", 12, 4},
    {"plotCommandStr.height", 16, 4},
    {"plotCommandStr.fpn", 20, 4},
    {"plotCommandStr.angle", 24, 4},
    {"plotCommandStr.ndec", 28, 4},
    {"plotCommandStr.cbcd", 32, 8},
    {"plotCommandStr.inteq", 40, 4},
    {"plotCommandStr.inchar", 44, 4},
    {"plotCommandStr.factor", 48, 4},
};

#define FIELD(record, field) {#record "." #field, offsetof(record, field), sizeof(record::field)}
const host_record_field layoutInCpp[] = {
    {"modStatisticStr", 0, sizeof(modStatisticStr)},
    FIELD(modStatisticStr, ident),
    FIELD(modStatisticStr, modName),
    FIELD(modStatisticStr, inp_traces),
    FIELD(modStatisticStr, out_traces),
    FIELD(modStatisticStr, total_time),
    FIELD(modStatisticStr, avg_time),
    FIELD(modStatisticStr, mem_used),
    FIELD(modStatisticStr, progress),
    {"jobStatisticStr", 0, sizeof(jobStatisticStr)},
    FIELD(jobStatisticStr, jobName),
    FIELD(jobStatisticStr, jobPhase),
    FIELD(jobStatisticStr, jobStatus),
    FIELD(jobStatisticStr, jobCmd),
    FIELD(jobStatisticStr, numMod),
    FIELD(jobStatisticStr, modStatistics),
    FIELD(jobStatisticStr, jobStatistics),
    {"plotCommandStr", 0, sizeof(plotCommandStr)},
    FIELD(plotCommandStr, cmdType),
    FIELD(plotCommandStr, xpage),
    FIELD(plotCommandStr, ypage),
    FIELD(plotCommandStr, ipen),
    FIELD(plotCommandStr, height),
    FIELD(plotCommandStr, fpn),
    FIELD(plotCommandStr, angle),
    FIELD(plotCommandStr, ndec),
    FIELD(plotCommandStr, cbcd),
    FIELD(plotCommandStr, inteq),
    FIELD(plotCommandStr, inchar),
    FIELD(plotCommandStr, factor),
};
#undef FIELD
// clang-format on

// With a host in C: its view of the records, and its call-backs, which write into `received`.
class HostRecordsTest : public KernelFixture
{
protected:
    HostRecordsTest()
    {
        ModuleEntity* module = job().initJobModule("records", "libhost_records.so");
        if (module == nullptr)
            throw std::runtime_error("no module library host_records");
        module->preProcessModule();
        inC = static_cast<const host_records*>(module->getResource("records").getPointerValue());
        job().jobModules.clear();
        owner.reset(module);
    }

    static void expectLayout(const host_record_field* fields, std::size_t count)
    {
        ASSERT_EQ(count, std::size(layout));
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_STREQ(fields[i].name, layout[i].name);
            EXPECT_EQ(fields[i].offset, layout[i].offset) << layout[i].name;
            EXPECT_EQ(fields[i].size, layout[i].size) << layout[i].name;
        }
    }

    const host_records* inC = nullptr;
    char received[1024] = "";

private:
    std::unique_ptr<ModuleEntity> owner; // of the library that `inC` lies in
};

TEST_F(HostRecordsTest, RecordsAreLaidOutAsPublished)
{
    expectLayout(layoutInCpp, std::size(layoutInCpp));
}

TEST_F(HostRecordsTest, CompilerForCLaysThemOutAlike)
{
    ASSERT_NE(inC, nullptr);
    expectLayout(inC->fields, inC->field_count);
}

TEST_F(HostRecordsTest, HostInCReadsStatistics)
{
    job().installStatisticFunc(inC->write_statistic, received);
    job().setJobName(std::string(70, 'j').c_str());
    for (int i = 1; i <= 33; ++i) {
        auto* module = new ModuleEntity("m" + std::to_string(i));
        module->inputTracesProcessed = 10 * i;
        module->outputTracesProcessed = 0;
        module->totalModuleWorkTime = 1000000LL * 30 * i;
        module->totalModuleMemoryUsed = 100 * i;
        job().jobModules.push_back(module);
    }
    job().totalJobMemoryUsed = 9;
    job().jobStartTime = job().getCurrentTime() + 500000; // 0 s, either side of the start

    job().sendModulesStatistic(3);

    EXPECT_THAT(received, StrEq(std::string(64, 'j') + " 3 0 0 32"
                                                       " 1 m1 10 0 30 3 100 -1"
                                                       " 2 m2 20 0 60 3 200 -1"
                                                       " 32 m32 320 0 960 3 3200 -1"
                                                       " 0 Job total 5280 -1 0 -1 9 -1"));
}

TEST_F(HostRecordsTest, HostInCReadsPlotCommands)
{
    job().installAddPlotToPadFuncFunc(inC->write_plot, received);
    job().addPlotToPad(9, 1.5f, 2.5f, 3);
    EXPECT_STREQ(received, "9 1 1.5 2.5 3 0 0 0 0 (null) 0 0 0");
    job().addPlotToPad(9, 1.5f, 2.5f, 3.5f, 4.5f, 5.5f, 6);
    EXPECT_STREQ(received, "9 2 1.5 2.5 0 3.5 4.5 5.5 6 (null) 0 0 0");
    job().addPlotToPad(9, 1.5f, 2.5f, 3.5f, std::string("offset"), 4, 5.5f, 6);
    EXPECT_STREQ(received, "9 3 1.5 2.5 0 3.5 0 5.5 0 offset 4 6 0");
    job().addPlotToPad(9, 1.5f);
    EXPECT_STREQ(received, "9 4 0 0 0 0 0 0 0 (null) 0 0 1.5");
    job().addPlotToPad(9, 4);
    EXPECT_STREQ(received, "9 5 0 0 4 0 0 0 0 (null) 0 0 0");
}

} // namespace
