#include "TraceAttribute.h"

#include "KernelFixture.h"

#include <climits>
#include <cstddef>
#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

class TraceAttributeTest : public KernelFixture
{
protected:
    void define(const std::string& name, int type, int dim)
    {
        job().addTraceAttributeDefinition(name, type, dim, "", 0, 0, 0, 0, 0);
    }
};

// Place of a member within its object, in bytes.
template <typename Object, typename Member>
std::ptrdiff_t placeOf(const Object& object, const Member& member)
{
    return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&object);
}

TEST_F(TraceAttributeTest, DefinitionHoldsTheConstantTypeBeforeTheBits)
{
    const trAttDefStr def = {};
    const std::vector<std::ptrdiff_t> places = {
        placeOf(def, def.type),    placeOf(def, def.dim),     placeOf(def, def.descr),
        placeOf(def, def.cstSlot), placeOf(def, def.cstType), placeOf(def, def.bitA),
        placeOf(def, def.bitZ),    placeOf(def, def.mapCoef)};
    EXPECT_EQ(places.front(), 0);
    for (size_t i = 1; i < places.size(); ++i)
        EXPECT_LT(places[i - 1], places[i]) << "field " << i + 1;
}

TEST_F(TraceAttributeTest, AddingTakesTheConstantTypeAfterTheBits)
{
    job().addTraceAttributeDefinition("cdp", 2, 3, "ensemble number", 10, 11, 12, 13, 14);

    const trAttDefStr& def = job().trAttDefsList.at("cdp");
    EXPECT_EQ(def.type, 2);
    EXPECT_EQ(def.dim, 3);
    EXPECT_EQ(def.descr, "ensemble number");
    EXPECT_EQ(def.cstSlot, 10);
    EXPECT_EQ(def.bitA, 11);
    EXPECT_EQ(def.bitZ, 12);
    EXPECT_EQ(def.cstType, 13);
    EXPECT_EQ(def.mapCoef, 14);
}

TEST_F(TraceAttributeTest, GettersGiveTheStoredFields)
{
    job().addTraceAttributeDefinition("cdp", 2, 3, "ensemble number", 10, 11, 12, 13, 14);

    EXPECT_EQ(job().getTraceAttributeType("cdp"), 2);
    EXPECT_EQ(job().getTraceAttributeDimension("cdp"), 3);
    EXPECT_EQ(job().getTraceAttributeDescription("cdp"), "ensemble number");
    EXPECT_EQ(job().getTraceAttributeCstSlot("cdp"), 10);
    EXPECT_EQ(job().getTraceAttributeBitA("cdp"), 11);
    EXPECT_EQ(job().getTraceAttributeBitZ("cdp"), 12);
    EXPECT_EQ(job().getTraceAttributeCstType("cdp"), 13);
    EXPECT_EQ(job().getTraceAttributeMapCoef("cdp"), 14);
}

TEST_F(TraceAttributeTest, DescriptiveValuesAreHandedBackAsGiven)
{
    for (const int value : {INT_MIN, -1, 0, 1, INT_MAX}) {
        SCOPED_TRACE(value);
        job().addTraceAttributeDefinition("a", value, value, "", value, value, value, value, value);
        EXPECT_EQ(job().getTraceAttributeType("a"), value);
        EXPECT_EQ(job().getTraceAttributeDimension("a"), value);
        EXPECT_EQ(job().getTraceAttributeCstSlot("a"), value);
        EXPECT_EQ(job().getTraceAttributeBitA("a"), value);
        EXPECT_EQ(job().getTraceAttributeBitZ("a"), value);
        EXPECT_EQ(job().getTraceAttributeCstType("a"), value);
        EXPECT_EQ(job().getTraceAttributeMapCoef("a"), value);
    }
}

TEST_F(TraceAttributeTest, UndefinedNameGivesMinusOneAndNoDescription)
{
    define("cdp", 2, 1);
    for (const char* name : {"", "cd", "cdp ", "CDP", "cdpx"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(job().getTraceAttributeType(name), -1);
        EXPECT_EQ(job().getTraceAttributeDimension(name), -1);
        EXPECT_EQ(job().getTraceAttributeCstSlot(name), -1);
        EXPECT_EQ(job().getTraceAttributeBitA(name), -1);
        EXPECT_EQ(job().getTraceAttributeBitZ(name), -1);
        EXPECT_EQ(job().getTraceAttributeCstType(name), -1);
        EXPECT_EQ(job().getTraceAttributeMapCoef(name), -1);
        EXPECT_EQ(job().getTraceAttributeDescription(name), "");
    }
}

TEST_F(TraceAttributeTest, LookingUpNeverInserts)
{
    int out = 0;
    job().getTraceAttributeType("a");
    job().getTraceAttributeDimension("a");
    job().getTraceAttributeCstSlot("a");
    job().getTraceAttributeBitA("a");
    job().getTraceAttributeBitZ("a");
    job().getTraceAttributeCstType("a");
    job().getTraceAttributeMapCoef("a");
    job().getTraceAttributeDescription("a");
    job().getTraceAttributeDef("a", &out, &out, &out, &out, &out, &out, &out);
    int next = 0;
    traceAttIdent("a", next);

    EXPECT_TRUE(job().trAttDefsList.empty());
}

TEST_F(TraceAttributeTest, SchemaOfANewJobIsEmpty)
{
    EXPECT_TRUE(job().trAttDefsList.empty());
}

TEST_F(TraceAttributeTest, AddingAgainReplacesTheWholeDefinition)
{
    job().addTraceAttributeDefinition("a", 2, 3, "old", 10, 11, 12, 13, 14);
    job().addTraceAttributeDefinition("a", 5, 1, "", 0, 0, 0, 0, 0);

    EXPECT_EQ(job().trAttDefsList.size(), 1u);
    EXPECT_EQ(job().getTraceAttributeType("a"), 5);
    EXPECT_EQ(job().getTraceAttributeDimension("a"), 1);
    EXPECT_EQ(job().getTraceAttributeDescription("a"), "");
    EXPECT_EQ(job().getTraceAttributeMapCoef("a"), 0);
}

TEST_F(TraceAttributeTest, DefinitionIsACopyOfWhatWasGiven)
{
    std::string name = "a", description = "as given";
    job().addTraceAttributeDefinition(name, 2, 1, description, 0, 0, 0, 0, 0);
    name = "b";
    description = "changed";
    EXPECT_EQ(job().getTraceAttributeDescription("a"), "as given");
}

TEST_F(TraceAttributeTest, NamesAreSortedByTheirBytes)
{
    for (const char* name : {"b", "aa", "\xff", "a", "B", "", "a0"})
        define(name, 2, 1);

    std::vector<std::string> names;
    for (const auto& definition : job().trAttDefsList)
        names.push_back(definition.first);
    EXPECT_THAT(names, ElementsAre("", "B", "a", "a0", "aa", "b", "\xff"));
}

TEST_F(TraceAttributeTest, WholeDefinitionComesInTheOrderOfAdding)
{
    job().addTraceAttributeDefinition("a", 2, 3, "", 10, 11, 12, 13, 14);
    int type = 77, dim = 77, cstSlot = 77, bitA = 77, bitZ = 77, cstType = 77, mapCoef = 77;

    EXPECT_EQ(
        job().getTraceAttributeDef("a", &type, &dim, &cstSlot, &bitA, &bitZ, &cstType, &mapCoef),
        1);
    EXPECT_THAT((std::vector<int>{type, dim, cstSlot, bitA, bitZ, cstType, mapCoef}),
                ElementsAre(2, 3, 10, 11, 12, 13, 14));
}

TEST_F(TraceAttributeTest, WholeDefinitionOfAnUndefinedNameIsMinusOne)
{
    int type = 77, dim = 77, cstSlot = 77, bitA = 77, bitZ = 77, cstType = 77, mapCoef = 77;

    EXPECT_EQ(
        job().getTraceAttributeDef("a", &type, &dim, &cstSlot, &bitA, &bitZ, &cstType, &mapCoef),
        -1);
    EXPECT_THAT((std::vector<int>{type, dim, cstSlot, bitA, bitZ, cstType, mapCoef}),
                ElementsAre(-1, -1, -1, -1, -1, -1, -1));
}

TEST_F(TraceAttributeTest, NullOutputsAreSkipped)
{
    job().addTraceAttributeDefinition("a", 2, 3, "", 10, 11, 12, 13, 14);
    const int expected[] = {2, 3, 10, 11, 12, 13, 14};
    for (int wanted = 0; wanted < 7; ++wanted) {
        SCOPED_TRACE(wanted);
        for (const bool defined : {true, false}) {
            int value = 77;
            int* outputs[7] = {};
            outputs[wanted] = &value;
            EXPECT_EQ(job().getTraceAttributeDef(defined ? "a" : "b", outputs[0], outputs[1],
                                                 outputs[2], outputs[3], outputs[4], outputs[5],
                                                 outputs[6]),
                      defined ? 1 : -1);
            EXPECT_EQ(value, defined ? expected[wanted] : -1);
        }
    }
}

TEST_F(TraceAttributeTest, WithoutOutputsTheAnswerSaysWhetherTheNameIsDefined)
{
    define("a", 2, 1);
    EXPECT_EQ(job().getTraceAttributeDef("a", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                         nullptr),
              1);
    EXPECT_EQ(job().getTraceAttributeDef("b", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                         nullptr),
              -1);
}

TEST_F(TraceAttributeTest, ValueTypesHaveTheirFixedNumbers)
{
    EXPECT_EQ(sizeof(traceAttVarType), 4u);
    EXPECT_EQ(static_cast<int>(undefinedAttType), 0);
    EXPECT_EQ(static_cast<int>(strAttType), 1);
    EXPECT_EQ(static_cast<int>(int32AttType), 2);
    EXPECT_EQ(static_cast<int>(int64AttType), 3);
    EXPECT_EQ(static_cast<int>(float32AttType), 4);
    EXPECT_EQ(static_cast<int>(float64AttType), 5);
    EXPECT_EQ(static_cast<int>(int32ArrayAttType), 6);
    EXPECT_EQ(static_cast<int>(int64ArrayAttType), 7);
    EXPECT_EQ(static_cast<int>(float32ArrayAttType), 8);
    EXPECT_EQ(static_cast<int>(float64ArrayAttType), 9);
}

TEST_F(TraceAttributeTest, IdentIsFourWordsInOrder)
{
    const traceAttIdent ident;
    EXPECT_EQ(placeOf(ident, ident.type), 0);
    EXPECT_EQ(placeOf(ident, ident.offset), 4);
    EXPECT_EQ(placeOf(ident, ident.dim), 8);
    EXPECT_EQ(placeOf(ident, ident.size), 12);
}

TEST_F(TraceAttributeTest, NewIdentIsAllZero)
{
    const traceAttIdent ident;
    EXPECT_EQ(ident.type, undefinedAttType);
    EXPECT_EQ(ident.offset, 0);
    EXPECT_EQ(ident.dim, 0);
    EXPECT_EQ(ident.size, 0);
}

TEST_F(TraceAttributeTest, CopyOfAnIdentHasAllFourFields)
{
    define("a", 4, 3);
    int next = 20;
    const traceAttIdent ident("a", next);
    const traceAttIdent copy(ident);
    EXPECT_EQ(copy.type, float32ArrayAttType);
    EXPECT_EQ(copy.offset, 20);
    EXPECT_EQ(copy.dim, 3);
    EXPECT_EQ(copy.size, 12);
}

TEST_F(TraceAttributeTest, NameResolvesByTypeAndDimension)
{
    const struct
    {
        int type, dim;
        traceAttVarType resolved;
        int resolvedDim, size, reserved;
    } rows[] = {
        // text of one stored character, whatever it reserves
        {1, 8, strAttType, 8, 1, 8},
        {1, 1, strAttType, 1, 1, 1},
        {1, 0, strAttType, 0, 1, 1},
        {1, -3, strAttType, -3, 1, 1},
        // 32-bit integers
        {2, 1, int32AttType, 1, 4, 4},
        {2, 0, int32AttType, 1, 4, 4},
        {2, -7, int32AttType, 1, 4, 4},
        {2, 2, int32ArrayAttType, 2, 8, 16},
        {2, 3, int32ArrayAttType, 3, 12, 36},
        {2, 4, int32ArrayAttType, 4, 16, 64},
        // 64-bit integers
        {3, 1, int64AttType, 1, 8, 8},
        {3, 0, int64AttType, 1, 8, 8},
        {3, -1, int64AttType, 1, 8, 8},
        {3, 2, int64ArrayAttType, 2, 16, 32},
        {3, 5, int64ArrayAttType, 5, 40, 200},
        // 32-bit floats
        {4, 1, float32AttType, 1, 4, 4},
        {4, 0, float32AttType, 1, 4, 4},
        {4, -1, float32AttType, 1, 4, 4},
        {4, 2, float32ArrayAttType, 2, 8, 16},
        {4, 10, float32ArrayAttType, 10, 40, 400},
        // 64-bit floats
        {5, 1, float64AttType, 1, 8, 8},
        {5, 0, float64AttType, 1, 8, 8},
        {5, -1, float64AttType, 1, 8, 8},
        {5, 2, float64ArrayAttType, 2, 16, 32},
        {5, 3, float64ArrayAttType, 3, 24, 72},
        // text slots
        {9, 1, strAttType, 1, 32, 32},
        {9, 0, strAttType, 0, 32, 32},
        {9, -2, strAttType, -2, 32, 32},
        {9, 3, strAttType, 3, 32, 96},
        {10, 1, strAttType, 1, 64, 64},
        {10, 0, strAttType, 0, 64, 64},
        {10, 2, strAttType, 2, 64, 128},
        // anything else is one 32-bit integer whose dimension stays and is reserved
        {0, 1, int32AttType, 1, 4, 4},
        {6, 0, int32AttType, 0, 4, 4},
        {7, 5, int32AttType, 5, 4, 20},
        {8, 1, int32AttType, 1, 4, 4},
        {11, 2, int32AttType, 2, 4, 8},
        {-1, -1, int32AttType, -1, 4, 4},
        {INT_MAX, 1, int32AttType, 1, 4, 4},
        {INT_MIN, 1, int32AttType, 1, 4, 4},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("type " + std::to_string(row.type) + ", dim " + std::to_string(row.dim));
        define("a", row.type, row.dim);
        int next = 1000;
        const traceAttIdent ident("a", next);
        EXPECT_EQ(ident.type, row.resolved);
        EXPECT_EQ(ident.offset, 1000);
        EXPECT_EQ(ident.dim, row.resolvedDim);
        EXPECT_EQ(ident.size, row.size);
        EXPECT_EQ(next, 1000 + row.reserved);
    }
}

TEST_F(TraceAttributeTest, UndefinedNameGetsAnIntegerOfItsOwn)
{
    int next = 10;
    const traceAttIdent ident("nobody", next);
    EXPECT_EQ(ident.type, int32AttType);
    EXPECT_EQ(ident.offset, 10);
    EXPECT_EQ(ident.dim, -1);
    EXPECT_EQ(ident.size, 4);
    EXPECT_EQ(next, 14);
}

TEST_F(TraceAttributeTest, NamesArePackedInTheOrderOfAskingWithoutAlignment)
{
    define("letter", 1, 1);
    define("time", 5, 1);
    define("pair", 2, 2);
    int next = 0;
    const traceAttIdent letter("letter", next);
    const traceAttIdent time("time", next);
    const traceAttIdent pair("pair", next);
    const traceAttIdent unknown("unknown", next);
    EXPECT_EQ(letter.offset, 0);
    EXPECT_EQ(time.offset, 1);
    EXPECT_EQ(pair.offset, 9);
    EXPECT_EQ(unknown.offset, 25);
    EXPECT_EQ(next, 29);
}

TEST_F(TraceAttributeTest, AbsurdDimensionsWrapTo32Bits)
{
    define("a", 2, INT_MAX);
    int next = 8;
    const traceAttIdent ident("a", next);
    EXPECT_EQ(ident.type, int32ArrayAttType);
    EXPECT_EQ(ident.size, -4);
    EXPECT_EQ(next, 12) << "8 plus the low 32 bits of INT_MAX * -4";
}

} // namespace
