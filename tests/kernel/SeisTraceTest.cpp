#include "SeisTrace.h"

#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "TraceVerbs.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <gmock/gmock.h>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::Each;
using testing::ElementsAre;

class SeisTraceTest : public KernelFixture
{
protected:
    // An unbuffered file of this test's own, at its start.
    struct File
    {
        File() : stream(std::tmpfile()) { std::setvbuf(stream, nullptr, _IONBF, 0); }
        ~File() { std::fclose(stream); }
        void rewind() { std::fseek(stream, 0, SEEK_SET); }
        std::string bytes()
        {
            std::string all;
            rewind();
            for (int c = std::fgetc(stream); c != EOF; c = std::fgetc(stream))
                all.push_back(static_cast<char>(c));
            return all;
        }
        FILE* stream;
    };

    static std::string headerOf(const SeisTrace& trace)
    {
        return std::string(reinterpret_cast<const char*>(trace.traceHeader),
                           static_cast<size_t>(trace.traceHeaderSize));
    }
    static std::vector<float> samplesOf(const SeisTrace& trace)
    {
        return std::vector<float>(trace.traceSamples, trace.traceSamples + trace.traceLength);
    }
    static std::string recordOf(const SeisTrace& trace)
    {
        return headerOf(trace) + std::string(reinterpret_cast<const char*>(trace.traceSamples),
                                             static_cast<size_t>(trace.traceLength) * 4);
    }
    ModuleEntity* newModule(const std::string& name)
    {
        job().jobModules.push_back(new ModuleEntity(name));
        return job().jobModules.back();
    }
    // Pages every trace out but `other`.
    void pageOutAllBut(SeisTrace* other)
    {
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
        scratch().touchTrace(other);
    }
};

template <typename Member>
std::ptrdiff_t placeOf(const SeisTrace& trace, const Member& member)
{
    return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&trace);
}

TEST_F(SeisTraceTest, FieldsStandInTheirOrder)
{
    const SeisTrace trace(1, 1);
    EXPECT_EQ(placeOf(trace, trace.traceSamples), 0);
    EXPECT_EQ(placeOf(trace, trace.traceHeader), 8);
    EXPECT_EQ(placeOf(trace, trace.traceLength), 16);
    EXPECT_EQ(placeOf(trace, trace.traceFlag), 20);
    EXPECT_EQ(placeOf(trace, trace.traceHeaderSize), 24);
    EXPECT_EQ(placeOf(trace, trace.traceOffset), 32);
}

TEST_F(SeisTraceTest, NewTraceIsZeroWithoutFlagOrRecord)
{
    SeisTrace trace(100, 12);
    EXPECT_EQ(trace.traceLength, 100);
    EXPECT_EQ(trace.traceHeaderSize, 12);
    EXPECT_EQ(trace.traceFlag, 0);
    EXPECT_EQ(trace.getTraceFlag(), 0);
    EXPECT_EQ(trace.traceOffset, -1);
    EXPECT_THAT(samplesOf(trace), Each(0.0f));
    EXPECT_EQ(headerOf(trace), std::string(12, '\0'));
    EXPECT_EQ(trace.getSamples(), trace.traceSamples);
    EXPECT_EQ(trace.getHeader(), trace.traceHeader);
    EXPECT_EQ(trace.getHeaderSize(), 12);
}

TEST_F(SeisTraceTest, TraceInTheMemoryOfAFormerOneIsZero)
{
    for (const int length : {1, 511, 512, 513, 1500, 4096, 4097, 20000}) {
        auto* former = new SeisTrace(length, 300);
        std::fill_n(former->traceSamples, length, 1.0F);
        std::memset(former->traceHeader, 7, 300);
        delete former;

        const SeisTrace trace(length, 300);
        EXPECT_THAT(samplesOf(trace), Each(0.0F)) << length << " samples";
        EXPECT_EQ(headerOf(trace), std::string(300, '\0')) << length << " samples";
    }
}

TEST_F(SeisTraceTest, EverySampleIsSet)
{
    for (const int length : {1, 511, 512, 513, 1500, 4096, 4097, 20000}) {
        SeisTrace trace(length, 0);
        std::vector<float> samples(static_cast<std::size_t>(length));
        std::iota(samples.begin(), samples.end(), 1.0F);
        EXPECT_EQ(trace.setSamples(samples.data()), 1);
        EXPECT_EQ(samplesOf(trace), samples) << length << " samples";
    }
}

TEST_F(SeisTraceTest, BothBlocksAreAccountedAndGivenBack)
{
    {
        const SeisTrace trace(100, 12);
        EXPECT_EQ(job().totalJobMemoryUsed, 412);
        EXPECT_EQ(job().jobMemoryMap.at(trace.traceSamples), 400);
        EXPECT_EQ(job().jobMemoryMap.at(trace.traceHeader), 12);
    }
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_TRUE(job().jobMemoryMap.empty());
}

TEST_F(SeisTraceTest, BlocksAreChargedToTheRunningModuleAndUnchargedFromIt)
{
    ModuleEntity* a = newModule("A");
    ModuleEntity* b = newModule("B");
    job().setActiveModule(a);
    OwnedTrace trace = ownedTrace(10, 4);
    EXPECT_EQ(a->getTotalModuleMemoryUsed(), 44);

    job().setActiveModule(b);
    trace.reset();
    EXPECT_EQ(a->getTotalModuleMemoryUsed(), 0);
    EXPECT_EQ(b->getTotalModuleMemoryUsed(), 0);
}

TEST_F(SeisTraceTest, MemorySizeIsHeaderPlusFourBytesASample)
{
    EXPECT_EQ(SeisTrace(100, 0).getTraceMemorySize(), 400);
    EXPECT_EQ(SeisTrace(100, 13).getTraceMemorySize(), 413);
    EXPECT_EQ(SeisTrace(0, 13).getTraceMemorySize(), 13);
    EXPECT_EQ(SeisTrace(0, 0).getTraceMemorySize(), 0);
}

TEST_F(SeisTraceTest, FirstIntegerGrowsAnEmptyHeaderTo64)
{
    SeisTrace trace(100, 0);
    ASSERT_EQ(trace.getTraceMemorySize(), 400);
    trace.setAttribute(identAt(int32AttType, 0, 4), UniVar(1));
    EXPECT_EQ(trace.traceHeaderSize, 64);
    EXPECT_EQ(trace.getTraceMemorySize(), 464);
}

TEST_F(SeisTraceTest, HeaderGrowsToTheMultipleOf64AboveTheNeed)
{
    const struct
    {
        int size, needed, grown;
    } rows[] = {{0, 0, 0},        {0, 1, 64},       {0, 10, 64},      {0, 63, 64},
                {0, 64, 128},     {0, 65, 128},     {0, 127, 128},    {0, 128, 192},
                {12, 12, 12},     {12, 13, 64},     {64, 64, 64},     {64, 65, 128},
                {100, 100, 100},  {100, 101, 128},  {100, 64, 100},   {128, 1, 128},
                {200, 256, 320},  {64, 6400, 6464}, {64, 6399, 6400}, {64, 0, 64},
                {64, INT_MIN, 64}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.size) + " for " + std::to_string(row.needed));
        SeisTrace trace(3, row.size);
        trace.expandHeader(row.needed);
        EXPECT_EQ(trace.traceHeaderSize, row.grown);
    }
}

TEST_F(SeisTraceTest, HeaderGrowsForAnAttributeAsForItsEnd)
{
    SeisTrace trace(3, 12);
    trace.expandHeader(identAt(float64AttType, 4, 8));
    EXPECT_EQ(trace.traceHeaderSize, 12) << "it ends where the header ends";
    trace.expandHeader(identAt(float64AttType, 56, 8));
    EXPECT_EQ(trace.traceHeaderSize, 128) << "64 bytes needed";
}

TEST_F(SeisTraceTest, HeaderThatIsLargeEnoughKeepsItsBlock)
{
    SeisTrace trace(3, 12);
    const unsigned char* header = trace.getHeader();
    trace.expandHeader(12);
    EXPECT_EQ(trace.getHeader(), header);
}

TEST_F(SeisTraceTest, GrowthKeepsHeaderBytesAndSamples)
{
    SeisTrace trace(5, 12);
    fill(trace, 3);
    const std::string header = headerOf(trace);
    const std::vector<float> samples = samplesOf(trace);
    const float* block = trace.getSamples();

    trace.expandHeader(1000);

    EXPECT_EQ(headerOf(trace).substr(0, 12), header);
    EXPECT_EQ(samplesOf(trace), samples);
    EXPECT_EQ(trace.getSamples(), block);
}

TEST_F(SeisTraceTest, GrowthReturnsTheOldBlockAndChargesTheRunningModule)
{
    ModuleEntity* a = newModule("A");
    ModuleEntity* b = newModule("B");
    job().setActiveModule(a);
    SeisTrace trace(10, 4);

    job().setActiveModule(b);
    trace.expandHeader(65);

    EXPECT_EQ(a->getTotalModuleMemoryUsed(), 40);
    EXPECT_EQ(b->getTotalModuleMemoryUsed(), 128);
    EXPECT_EQ(job().totalJobMemoryUsed, 168);
    EXPECT_EQ(job().jobMemoryMap.size(), 2u);
}

TEST_F(SeisTraceTest, NumbersAreStoredInNativeBytesWithoutAlignment)
{
    SeisTrace trace(1, 64);
    const int i32 = -123456789;
    const int64_t i64 = INT64_MIN + 5;
    const float f32 = -1.5e-7f;
    const double f64 = 3.25e199;
    EXPECT_EQ(trace.setAttribute(identAt(int32AttType, 1, 4), UniVar(i32)), 1);
    EXPECT_EQ(trace.setAttribute(identAt(int64AttType, 5, 8), UniVar(i64)), 1);
    EXPECT_EQ(trace.setAttribute(identAt(float32AttType, 13, 4), UniVar(f32)), 1);
    EXPECT_EQ(trace.setAttribute(identAt(float64AttType, 17, 8), UniVar(f64)), 1);

    std::string expected(64, '\0');
    std::memcpy(&expected[1], &i32, 4);
    std::memcpy(&expected[5], &i64, 8);
    std::memcpy(&expected[13], &f32, 4);
    std::memcpy(&expected[17], &f64, 8);
    EXPECT_EQ(headerOf(trace), expected);
}

TEST_F(SeisTraceTest, NumbersComeBackWithTheirType)
{
    SeisTrace trace(1, 0);
    const traceAttIdent i32 = identAt(int32AttType, 1, 4);
    const traceAttIdent i64 = identAt(int64AttType, 5, 8);
    const traceAttIdent f32 = identAt(float32AttType, 13, 4);
    const traceAttIdent f64 = identAt(float64AttType, 17, 8);
    trace.setAttribute(i32, UniVar(-7));
    trace.setAttribute(i64, UniVar(INT64_MAX));
    trace.setAttribute(f32, UniVar(2.5f));
    trace.setAttribute(f64, UniVar(-1e300));

    EXPECT_EQ(trace.getAttribute(i32).getType(), int32Type);
    EXPECT_EQ(trace.getAttribute(i32).getI32Value(), -7);
    EXPECT_EQ(trace.getAttribute(i64).getType(), int64Type);
    EXPECT_EQ(trace.getAttribute(i64).getI64Value(), INT64_MAX);
    EXPECT_EQ(trace.getAttribute(f32).getType(), float32Type);
    EXPECT_EQ(trace.getAttribute(f32).getF32Value(), 2.5f);
    EXPECT_EQ(trace.getAttribute(f64).getType(), float64Type);
    EXPECT_EQ(trace.getAttribute(f64).getF64Value(), -1e300);
}

TEST_F(SeisTraceTest, ValuesAreConvertedToTheAttributesType)
{
    SeisTrace trace(1, 0);
    const traceAttIdent i32 = identAt(int32AttType, 0, 4);
    trace.setAttribute(i32, UniVar("42"));
    EXPECT_EQ(trace.getAttribute(i32).getI32Value(), 42);
    trace.setAttribute(i32, UniVar(-3.9));
    EXPECT_EQ(trace.getAttribute(i32).getI32Value(), -3);
    trace.setAttribute(i32, UniVar());
    EXPECT_EQ(trace.getAttribute(i32).getI32Value(), 0);

    const traceAttIdent i64 = identAt(int64AttType, 0, 8);
    trace.setAttribute(i64, UniVar(5));
    EXPECT_EQ(trace.getAttribute(i64).getI64Value(), 5);
    const traceAttIdent f32 = identAt(float32AttType, 0, 4);
    trace.setAttribute(f32, UniVar(2));
    EXPECT_EQ(trace.getAttribute(f32).getF32Value(), 2.0f);
    const traceAttIdent f64 = identAt(float64AttType, 0, 8);
    trace.setAttribute(f64, UniVar("0.25"));
    EXPECT_EQ(trace.getAttribute(f64).getF64Value(), 0.25);
    const traceAttIdent text = identAt(strAttType, 0, 32);
    trace.setAttribute(text, UniVar(-12));
    EXPECT_EQ(trace.getAttribute(text).getStrValue(), "-12");
}

TEST_F(SeisTraceTest, TextOfOneByteKeepsTheFirstCharacter)
{
    SeisTrace trace(1, 8);
    EXPECT_EQ(trace.setAttribute(identAt(strAttType, 2, 1, 8), UniVar("ABCDEFGH")), 1);
    EXPECT_EQ(headerOf(trace), std::string("\0\0A\0\0\0\0\0", 8));
    EXPECT_EQ(trace.getAttribute(identAt(strAttType, 2, 1, 8)).getStrValue(), "A");
}

TEST_F(SeisTraceTest, TextIsReadUpToTheNextZeroAcrossItsOwnEnd)
{
    SeisTrace trace(1, 8);
    trace.setHeader(reinterpret_cast<const unsigned char*>("xxxxCD\0x"), 8);
    trace.setAttribute(identAt(strAttType, 2, 1, 8), UniVar("ABCDEFGH"));

    const UniVar text = trace.getAttribute(identAt(strAttType, 2, 1, 8));
    EXPECT_EQ(text.getType(), strType);
    EXPECT_EQ(text.getStrValue(), "AxCD");
}

TEST_F(SeisTraceTest, TextWithoutAZeroEndsWithTheHeader)
{
    SeisTrace trace(1, 8);
    trace.setHeader(reinterpret_cast<const unsigned char*>("abcdefgh"), 8);
    EXPECT_EQ(trace.getAttribute(identAt(strAttType, 5, 3)).getStrValue(), "fgh");
    EXPECT_EQ(trace.getAttribute(identAt(strAttType, 0, 1)).getStrValue(), "abcdefgh");
}

TEST_F(SeisTraceTest, ShortTextBringsItsTerminatorIntoTheSlot)
{
    for (const int slot : {32, 64}) {
        SCOPED_TRACE(slot);
        SeisTrace trace(1, 100);
        fill(trace, 1);
        const std::string before = headerOf(trace);
        trace.setAttribute(identAt(strAttType, 10, slot), UniVar("line 7"));

        EXPECT_EQ(trace.getAttribute(identAt(strAttType, 10, slot)).getStrValue(), "line 7");
        EXPECT_EQ(headerOf(trace).substr(0, 10), before.substr(0, 10));
        EXPECT_EQ(headerOf(trace).substr(10, 7), std::string("line 7\0", 7));
        const size_t end = static_cast<size_t>(10 + slot);
        EXPECT_EQ(headerOf(trace).substr(end), before.substr(end));
    }
}

TEST_F(SeisTraceTest, LongTextFillsTheSlotAndNothingElse)
{
    SeisTrace trace(1, 64);
    fill(trace, 1);
    const std::string before = headerOf(trace);
    const std::string text = "0123456789abcdefghijklmnopqrstuvwxyz";
    trace.setAttribute(identAt(strAttType, 4, 32), UniVar(text));
    EXPECT_EQ(headerOf(trace), before.substr(0, 4) + text.substr(0, 32) + before.substr(36));
}

TEST_F(SeisTraceTest, ArraysAreStoredAndReadElementByElement)
{
    SeisTrace trace(1, 0);
    const int i32[] = {1, -2, 3};
    const int64_t i64[] = {INT64_MIN, 0, INT64_MAX};
    const float f32[] = {0.5f, -1.5f, 2.5f};
    const double f64[] = {1e-300, 0, 1e300};
    const traceAttIdent i32Ident = identAt(int32ArrayAttType, 1, 12, 3);
    const traceAttIdent i64Ident = identAt(int64ArrayAttType, 13, 24, 3);
    const traceAttIdent f32Ident = identAt(float32ArrayAttType, 37, 12, 3);
    const traceAttIdent f64Ident = identAt(float64ArrayAttType, 49, 24, 3);
    EXPECT_EQ(trace.setAttribute(i32Ident, UniVar(i32, 3)), 1);
    EXPECT_EQ(trace.setAttribute(i64Ident, UniVar(i64, 3)), 1);
    EXPECT_EQ(trace.setAttribute(f32Ident, UniVar(f32, 3)), 1);
    EXPECT_EQ(trace.setAttribute(f64Ident, UniVar(f64, 3)), 1);

    const UniVar i32Value = trace.getAttribute(i32Ident);
    const UniVar i64Value = trace.getAttribute(i64Ident);
    const UniVar f32Value = trace.getAttribute(f32Ident);
    const UniVar f64Value = trace.getAttribute(f64Ident);
    ASSERT_EQ(i32Value.getType(), int32ArrayType);
    ASSERT_EQ(i64Value.getType(), int64ArrayType);
    ASSERT_EQ(f32Value.getType(), float32ArrayType);
    ASSERT_EQ(f64Value.getType(), float64ArrayType);
    for (const UniVar* value : {&i32Value, &i64Value, &f32Value, &f64Value})
        ASSERT_EQ(value->getArraySize(), 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(i32Value.getI32ArrayValue()[i], i32[i]);
        EXPECT_EQ(i64Value.getI64ArrayValue()[i], i64[i]);
        EXPECT_EQ(f32Value.getF32ArrayValue()[i], f32[i]);
        EXPECT_EQ(f64Value.getF64ArrayValue()[i], f64[i]);
    }
    EXPECT_EQ(std::memcmp(trace.getHeader() + 49, f64, 24), 0);
}

TEST_F(SeisTraceTest, ArrayThatWasReadIsACopy)
{
    SeisTrace trace(1, 64);
    const traceAttIdent ident = identAt(int32ArrayAttType, 0, 8, 2);
    const UniVar value = trace.getAttribute(ident);
    value.getI32ArrayValue()[0] = 5;
    EXPECT_EQ(trace.getAttribute(ident).getI32ArrayValue()[0], 0);
}

TEST_F(SeisTraceTest, ArrayStoresItsOwnSizeOnly)
{
    SeisTrace trace(1, 64);
    fill(trace, 1);
    const std::string before = headerOf(trace);
    const int elements[] = {1, 2, 3, 4, 5};
    trace.setAttribute(identAt(int32ArrayAttType, 4, 8, 2), UniVar(elements, 5));
    EXPECT_EQ(headerOf(trace).substr(12), before.substr(12));
    EXPECT_EQ(std::memcmp(trace.getHeader() + 4, elements, 8), 0);
}

TEST_F(SeisTraceTest, ShortArrayIsNotReadBeyondItsEnd)
{
    SeisTrace trace(1, 64);
    fill(trace, 1);
    const std::string before = headerOf(trace);
    const double elements[] = {1.5};
    EXPECT_EQ(trace.setAttribute(identAt(float64ArrayAttType, 0, 24, 3), UniVar(elements, 1)), 1);
    EXPECT_EQ(std::memcmp(trace.getHeader(), elements, 8), 0);
    EXPECT_EQ(headerOf(trace).substr(8), before.substr(8));
}

TEST_F(SeisTraceTest, ArrayAttributeTakesNoOtherKindOfValue)
{
    const float floats[] = {1, 2};
    const UniVar values[] = {UniVar(), UniVar(7), UniVar("[1,2]"), UniVar(floats, 2)};
    for (const UniVar& value : values) {
        SCOPED_TRACE(value.getStrType());
        SeisTrace trace(1, 64);
        fill(trace, 1);
        EXPECT_EQ(trace.setAttribute(identAt(int32ArrayAttType, 0, 8, 2), value), 1);
        EXPECT_EQ(differsFromFill(trace, 1), "");
    }
}

TEST_F(SeisTraceTest, OtherTypesReadAsUndefinedAndStoreNothing)
{
    for (const int type : {0, -1, 10, 77}) {
        SCOPED_TRACE(type);
        SeisTrace trace(1, 64);
        fill(trace, 1);
        const traceAttIdent ident = identAt(static_cast<traceAttVarType>(type), 0, 4);
        EXPECT_EQ(trace.getAttribute(ident).getType(), undefinedType);
        EXPECT_EQ(trace.setAttribute(ident, UniVar(5)), 1);
        EXPECT_EQ(differsFromFill(trace, 1), "");
    }
}

TEST_F(SeisTraceTest, StoringGrowsTheHeaderEvenForATypeThatStoresNothing)
{
    SeisTrace trace(1, 0);
    EXPECT_EQ(trace.setAttribute(identAt(undefinedAttType, 60, 4), UniVar(5)), 1);
    EXPECT_EQ(trace.traceHeaderSize, 128);
}

TEST_F(SeisTraceTest, AttributeUpToTheHeadersEndIsReadAndOneByteFurtherIsUndefined)
{
    const struct
    {
        traceAttVarType type;
        int size, dim;
    } rows[] = {{strAttType, 1, 1},         {strAttType, 32, 1},       {int32AttType, 4, 1},
                {int64AttType, 8, 1},       {float32AttType, 4, 1},    {float64AttType, 8, 1},
                {int32ArrayAttType, 12, 3}, {int64ArrayAttType, 16, 2}};
    for (const auto& row : rows) {
        SCOPED_TRACE("type " + std::to_string(row.type));
        const SeisTrace trace(1, 41);
        const int last = 41 - row.size;
        EXPECT_NE(trace.getAttribute(identAt(row.type, last, row.size, row.dim)).getType(),
                  undefinedType);
        EXPECT_EQ(trace.getAttribute(identAt(row.type, last + 1, row.size, row.dim)).getType(),
                  undefinedType);
    }
}

TEST_F(SeisTraceTest, ReadingNeverGrowsTheHeader)
{
    const SeisTrace trace(1, 0);
    trace.getAttribute(identAt(int32AttType, 0, 4));
    EXPECT_EQ(trace.traceHeaderSize, 0);
}

TEST_F(SeisTraceTest, PlacesOutsideTheHeaderAreNeverTouched)
{
    for (const int offset : {INT_MAX, INT_MAX - 3, INT_MIN, -1}) {
        SCOPED_TRACE(offset);
        SeisTrace trace(1, 16);
        fill(trace, 1);
        const traceAttIdent ident = identAt(int32AttType, offset, 4);
        EXPECT_EQ(trace.getAttribute(ident).getType(), undefinedType);
        EXPECT_EQ(trace.setAttribute(ident, UniVar(5)), 1);
        EXPECT_EQ(trace.getHeader()[0], 1 * 31 + 1);
    }
}

TEST_F(SeisTraceTest, CopiedAttributeGrowsTheHeaderAndBringsItsBytes)
{
    SeisTrace from(1, 64), to(1, 4);
    from.setAttribute(identAt(int32AttType, 20, 4), UniVar(777));
    EXPECT_EQ(to.copyAttribute(identAt(int32AttType, 64, 4), &from, identAt(int32AttType, 20, 4)),
              1);
    EXPECT_EQ(to.traceHeaderSize, 128);
    EXPECT_EQ(to.getAttribute(identAt(int32AttType, 64, 4)).getI32Value(), 777);
}

TEST_F(SeisTraceTest, AttributesOfDifferentTypeOrSizeAreNotCopied)
{
    const struct
    {
        traceAttVarType type;
        int size;
        traceAttVarType otherType;
        int otherSize;
    } rows[] = {{int32AttType, 4, float32AttType, 4},
                {float32AttType, 4, int32AttType, 4},
                {strAttType, 32, strAttType, 64},
                {strAttType, 1, strAttType, 32},
                {int32ArrayAttType, 8, int32ArrayAttType, 12},
                {int32ArrayAttType, 8, int64AttType, 8}};
    for (const auto& row : rows) {
        SCOPED_TRACE("type " + std::to_string(row.type));
        SeisTrace from(1, 64), to(1, 8);
        fill(from, 2);
        fill(to, 1);
        EXPECT_EQ(to.copyAttribute(identAt(row.type, 4, row.size), &from,
                                   identAt(row.otherType, 0, row.otherSize)),
                  0);
        EXPECT_EQ(to.traceHeaderSize, 8);
        EXPECT_EQ(differsFromFill(to, 1), "");
    }
}

TEST_F(SeisTraceTest, DimensionsMayDifferInACopy)
{
    SeisTrace from(1, 64), to(1, 64);
    from.setAttribute(identAt(strAttType, 0, 32, 1), UniVar("line"));
    EXPECT_EQ(to.copyAttribute(identAt(strAttType, 0, 32, 3), &from, identAt(strAttType, 0, 32, 1)),
              1);
    EXPECT_EQ(to.getAttribute(identAt(strAttType, 0, 32)).getStrValue(), "line");
}

TEST_F(SeisTraceTest, AttributeBeyondTheOtherHeaderIsNotRead)
{
    for (const int otherOffset : {8, 4, 1000, INT_MAX}) {
        SCOPED_TRACE(otherOffset);
        SeisTrace from(1, 8), to(1, 64);
        fill(to, 1);
        EXPECT_EQ(to.copyAttribute(identAt(int64AttType, 0, 8), &from,
                                   identAt(int64AttType, otherOffset, 8)),
                  1);
        EXPECT_EQ(to.getAttribute(identAt(int64AttType, 0, 8)).getI64Value(), 0);
        EXPECT_EQ(from.traceHeaderSize, 8);
    }
}

TEST_F(SeisTraceTest, CopyWithinATraceUsesTheHeaderAfterItsGrowth)
{
    SeisTrace trace(1, 8);
    trace.setAttribute(identAt(int32AttType, 0, 4), UniVar(4711));
    EXPECT_EQ(
        trace.copyAttribute(identAt(int32AttType, 500, 4), &trace, identAt(int32AttType, 0, 4)), 1);
    EXPECT_EQ(trace.getAttribute(identAt(int32AttType, 500, 4)).getI32Value(), 4711);
    EXPECT_EQ(trace.getAttribute(identAt(int32AttType, 0, 4)).getI32Value(), 4711);
}

TEST_F(SeisTraceTest, ClearingConcernsSamplesOrHeaderOrBoth)
{
    SeisTrace trace(4, 12);
    fill(trace, 1);
    const std::string header = headerOf(trace);
    trace.clearTraceSamples();
    EXPECT_THAT(samplesOf(trace), Each(0.0f));
    EXPECT_EQ(headerOf(trace), header);

    fill(trace, 1);
    const std::vector<float> samples = samplesOf(trace);
    trace.clearTraceHeader();
    EXPECT_EQ(headerOf(trace), std::string(12, '\0'));
    EXPECT_EQ(samplesOf(trace), samples);

    fill(trace, 1);
    trace.clearTrace();
    EXPECT_THAT(samplesOf(trace), Each(0.0f));
    EXPECT_EQ(headerOf(trace), std::string(12, '\0'));
    EXPECT_EQ(trace.traceHeaderSize, 12);
}

TEST_F(SeisTraceTest, SamplesAreCopiedIn)
{
    SeisTrace trace(3, 0);
    float given[] = {1, 2, 3, 4};
    EXPECT_EQ(trace.setSamples(given), 1);
    given[0] = 9;
    EXPECT_THAT(samplesOf(trace), ElementsAre(1, 2, 3));
}

TEST_F(SeisTraceTest, HeaderBytesAreCopiedInAfterGrowth)
{
    SeisTrace trace(1, 4);
    const std::vector<unsigned char> bytes(70, 'h');
    EXPECT_EQ(trace.setHeader(bytes.data(), 70), 1);
    EXPECT_EQ(trace.getHeaderSize(), 128);
    EXPECT_EQ(headerOf(trace).substr(0, 70), std::string(70, 'h'));
}

TEST_F(SeisTraceTest, ShortHeaderReplacesTheFirstBytesOnly)
{
    SeisTrace trace(1, 64);
    fill(trace, 1);
    const std::string before = headerOf(trace);
    EXPECT_EQ(trace.setHeader(reinterpret_cast<const unsigned char*>("abc"), 3), 1);
    EXPECT_EQ(headerOf(trace), "abc" + before.substr(3));
}

TEST_F(SeisTraceTest, FlagIsAWordOfItsOwn)
{
    SeisTrace trace(1, 4);
    for (const int flag : {3, INT_MIN, -1, 0}) {
        trace.setTraceFlag(flag);
        EXPECT_EQ(trace.getTraceFlag(), flag);
        EXPECT_EQ(trace.traceFlag, flag);
    }
}

TEST_F(SeisTraceTest, RecordIsTheHeaderThenTheSamples)
{
    SeisTrace trace(3, 5);
    fill(trace, 1);
    File file;
    EXPECT_EQ(trace.store(file.stream), 1);
    EXPECT_EQ(std::ftell(file.stream), 17);
    EXPECT_EQ(file.bytes(), recordOf(trace));
}

TEST_F(SeisTraceTest, RecordIsReadFromThePlaceWhereItWasWritten)
{
    SeisTrace trace(3, 5), other(3, 5), copy(3, 5);
    fill(trace, 1);
    fill(other, 2);
    File file;
    other.store(file.stream);
    const long place = std::ftell(file.stream);
    trace.store(file.stream);
    other.store(file.stream);

    std::fseek(file.stream, place, SEEK_SET);
    EXPECT_EQ(copy.retrieve(file.stream), 1);
    EXPECT_EQ(std::ftell(file.stream), place + 17);
    EXPECT_EQ(differsFromFill(copy, 1), "");
}

TEST_F(SeisTraceTest, RecordsWithoutHeaderOrSamplesAreWrittenAndRead)
{
    const struct
    {
        int samples, headerSize;
    } rows[] = {{0, 0}, {0, 7}, {7, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.samples) + " samples, header " +
                     std::to_string(row.headerSize));
        SeisTrace trace(row.samples, row.headerSize), copy(row.samples, row.headerSize);
        fill(trace, 1);
        File file;
        EXPECT_EQ(trace.store(file.stream), 1);
        EXPECT_EQ(static_cast<int>(file.bytes().size()), row.samples * 4 + row.headerSize);
        file.rewind();
        EXPECT_EQ(copy.retrieve(file.stream), 1);
        EXPECT_EQ(differsFromFill(copy, 1), "");
    }
}

TEST_F(SeisTraceTest, LongRecordsAreWrittenAndRead)
{
    for (const int headerSize : {0, 100}) {
        SCOPED_TRACE(headerSize);
        SeisTrace trace(700000, headerSize), copy(700000, headerSize);
        fill(trace, 1);
        File file;
        EXPECT_EQ(trace.store(file.stream), 1);
        EXPECT_EQ(std::ftell(file.stream), 2800000 + headerSize);
        file.rewind();
        EXPECT_EQ(copy.retrieve(file.stream), 1);
        EXPECT_EQ(differsFromFill(copy, 1), "");
    }
}

TEST_F(SeisTraceTest, StoringReportsAFileThatTakesNoMore)
{
    FILE* full = std::fopen("/dev/full", "wb");
    ASSERT_NE(full, nullptr);
    std::setvbuf(full, nullptr, _IONBF, 0);
    for (const int samples : {3, 700000}) {
        SCOPED_TRACE(samples);
        SeisTrace trace(samples, 5);
        fill(trace, 1);
        EXPECT_EQ(trace.store(full), 0);
        EXPECT_EQ(differsFromFill(trace, 1), "");
    }
    std::fclose(full);
}

TEST_F(SeisTraceTest, ReadingReportsAFileThatEndsEarly)
{
    for (const int bytes : {0, 1, 5, 16}) {
        SCOPED_TRACE(bytes);
        File file;
        for (int i = 0; i < bytes; ++i)
            std::fputc('x', file.stream);
        file.rewind();
        SeisTrace trace(3, 5);
        EXPECT_EQ(trace.retrieve(file.stream), 0);
        EXPECT_TRUE(isResident(trace));
    }
}

TEST_F(SeisTraceTest, StreamCarriesTheSameRecord)
{
    SeisTrace trace(3, 5);
    fill(trace, 1);
    std::ostringstream stream;
    stream << trace;
    EXPECT_EQ(stream.str(), recordOf(trace));
}

TEST_F(SeisTraceTest, StreamIsReadIntoTheBlocksThatAreThere)
{
    SeisTrace trace(3, 5), copy(3, 5);
    fill(trace, 1);
    const float* samples = copy.getSamples();
    const unsigned char* header = copy.getHeader();
    const int memory = job().totalJobMemoryUsed;

    std::stringstream stream;
    stream << trace << "behind";
    stream >> copy;

    EXPECT_EQ(differsFromFill(copy, 1), "");
    EXPECT_EQ(copy.getSamples(), samples);
    EXPECT_EQ(copy.getHeader(), header);
    EXPECT_EQ(job().totalJobMemoryUsed, memory);
    std::string behind;
    stream >> behind;
    EXPECT_EQ(behind, "behind");
}

TEST_F(SeisTraceTest, StreamCarriesTracesWithoutSamplesOrHeader)
{
    const SeisTrace nothing(0, 0);
    std::stringstream stream;
    stream << nothing;
    EXPECT_EQ(stream.str(), "");
    SeisTrace copy(0, 0);
    stream >> copy;
    EXPECT_FALSE(stream.bad());
}

TEST_F(SeisTraceTest, DestroyedTraceIsForgottenByTheScratchManager)
{
    OwnedTrace a = ownedTrace(3), b = ownedTrace(3);
    scratch().touchTrace(a.get());
    scratch().touchTrace(b.get());
    a.reset();
    EXPECT_EQ(scratch().traces_cache.size(), 1u);
    EXPECT_EQ(scratch().traces_cache.front(), b.get());
    EXPECT_EQ(scratch().traces_cache.back(), b.get());
}

TEST_F(SeisTraceTest, DestroyedPagedOutTraceLeavesItsRecordFree)
{
    OwnedTrace a = ownedTrace(3, 8), b = ownedTrace(3, 8);
    scratch().touchTrace(a.get());
    pageOutAllBut(b.get());
    ASSERT_EQ(a->traceOffset, 0);

    a.reset();

    ASSERT_EQ(scratch().free_blocks[20].size(), 1u);
    EXPECT_EQ(scratch().free_blocks[20].front(), 0);
}

// All operations are meant for resident traces; on others they must not reach for missing blocks.
TEST_F(SeisTraceTest, PagedOutTraceIsLeftAlone)
{
    OwnedTrace a = ownedTrace(3, 8), b = ownedTrace(3, 8);
    fill(*a, 1);
    scratch().touchTrace(a.get());
    pageOutAllBut(b.get());
    ASSERT_FALSE(isResident(*a));
    const traceAttIdent ident = identAt(int32AttType, 0, 4);
    const float samples[3] = {};
    std::ostringstream stream;
    File file;

    EXPECT_EQ(a->getAttribute(ident).getType(), undefinedType);
    a->setAttribute(ident, UniVar(5));
    a->setAttribute(identAt(int32AttType, 500, 4), UniVar(5));
    a->copyAttribute(ident, b.get(), ident);
    b->copyAttribute(ident, a.get(), ident);
    a->setSamples(samples);
    a->setHeader(reinterpret_cast<const unsigned char*>("abc"), 3);
    a->clearTrace();
    stream << *a;
    EXPECT_EQ(a->store(file.stream), 0);
    EXPECT_EQ(a->retrieve(file.stream), 0);

    scratch().touchTrace(a.get());
    EXPECT_EQ(differsFromFill(*a, 1), "");
}

TEST_F(SeisTraceTest, NegativeSizesGiveAMessageAndNoBlock)
{
    SeisTrace trace(-1, -64);
    EXPECT_EQ(trace.traceSamples, nullptr);
    EXPECT_EQ(trace.traceHeader, nullptr);
    EXPECT_THAT(host.textsOfType(4), ElementsAre("Can not allocate -4 byte memory block",
                                                 "Can not allocate -64 byte memory block"));
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    const float sample = 0;
    trace.setSamples(&sample);
    trace.clearTrace();
    EXPECT_EQ(trace.getAttribute(identAt(int32AttType, 0, 4)).getType(), undefinedType);
}

// 32-bit sizes must not wrap to a block that is shorter than the trace says.
TEST_F(SeisTraceTest, LengthBeyond32BitsOfMemoryGivesNoBlock)
{
    SeisTrace trace((1 << 30) + 1, 0);
    EXPECT_EQ(trace.traceSamples, nullptr);
    EXPECT_EQ(host.textsOfType(4).size(), 1u);
    trace.clearTraceSamples();
}

} // namespace
