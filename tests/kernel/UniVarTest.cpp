#include "UniVar.h"

#include "GroupEntity.h"
#include "LibraryEntity.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <limits>
#include <locale>
#include <malloc.h>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

constexpr auto unknownType = static_cast<UniVarType>(13);

const std::string text5 = "hello";
const std::string text15(15, 'f');
const std::string text16(16, 's');

LibraryEntity aLibrary;
GroupEntity aGroup;
int aBlock = 0;

struct NamedValue
{
    std::string name;
    UniVar value;
};

// One value of each kind.
std::vector<NamedValue> oneOfEachKind()
{
    const int i32[] = {1, 2, 3};
    const int64_t i64[] = {1, 2, 3, 4};
    const float f32[] = {0.5F, 1.5F};
    const double f64[] = {0.25, 1.25, 2.25};
    return {{"undefined", UniVar()},
            {"short text", UniVar(text15)},
            {"long text", UniVar(text16)},
            {"int32", UniVar(7)},
            {"int64", UniVar(int64_t{8})},
            {"float32", UniVar(1.5F)},
            {"float64", UniVar(2.5)},
            {"library", UniVar(&aLibrary)},
            {"group", UniVar(&aGroup)},
            {"pointer", UniVar(static_cast<void*>(&aBlock), 4)},
            {"int32 array", UniVar(i32, 3)},
            {"int64 array", UniVar(i64, 4)},
            {"float32 array", UniVar(f32, 2)},
            {"float64 array", UniVar(f64, 3)},
            {"unknown tag", UniVar(unknownType)}};
}

// Everything that can be seen of a value, array addresses apart.
std::string picture(const UniVar& value)
{
    std::ostringstream out;
    out << value.getType() << ' ' << value.getArraySize() << ' ' << value.getStrType() << ' '
        << value.getStrValue() << ' ' << value.getPointerValue() << ' ' << value.getLibraryValue()
        << ' ' << value.getGroupValue();
    return out.str();
}

std::string written(const UniVar& value)
{
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

// A text as the reader takes it, with the size that it really has.
std::string readableText(const std::string& bytes)
{
    std::ostringstream stream;
    stream << strType << ' ' << bytes.size() << bytes;
    return stream.str();
}

void read(const std::string& text, UniVar& value)
{
    std::istringstream stream(text);
    stream >> value;
}

// Bytes of the heap in use, by the C library's own count.
size_t heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Runs `action` often enough that 1 KB lost each time is told from the noise of the heap.
template <typename Action>
void expectNoGrowth(Action action)
{
    constexpr size_t rounds = 200;
    action();
    const size_t before = heapInUse();
    for (size_t i = 0; i < rounds; ++i)
        action();
    EXPECT_LT(heapInUse(), before + rounds * 1024 / 2);
}

// --- Layout and kinds ----------------------------------------------------------------------------

TEST(UniVarTest, TypeNumbersAreFixed)
{
    EXPECT_EQ(undefinedType, 0);
    EXPECT_EQ(strType, 1);
    EXPECT_EQ(int32Type, 2);
    EXPECT_EQ(int64Type, 3);
    EXPECT_EQ(float32Type, 4);
    EXPECT_EQ(float64Type, 5);
    EXPECT_EQ(libraryType, 6);
    EXPECT_EQ(groupType, 7);
    EXPECT_EQ(pointerType, 8);
    EXPECT_EQ(int32ArrayType, 9);
    EXPECT_EQ(int64ArrayType, 10);
    EXPECT_EQ(float32ArrayType, 11);
    EXPECT_EQ(float64ArrayType, 12);
    EXPECT_EQ(sizeof(UniVarType), 4u);
}

TEST(UniVarTest, FieldsLieAtTheirPlaces)
{
    UniVar value;
    const char* base = reinterpret_cast<const char*>(&value);
    const auto offset = [base](const void* field) {
        return static_cast<const char*>(field) - base;
    };

    EXPECT_EQ(sizeof(UniVar), 24u);
    EXPECT_EQ(sizeof value.strValue, 16u);
    EXPECT_EQ(offset(&value.varType), 0);
    EXPECT_EQ(offset(&value.varArraySize), 4);
    for (const void* member :
         {static_cast<const void*>(&value.strValue), static_cast<const void*>(&value.strBlock),
          static_cast<const void*>(&value.pointerValue),
          static_cast<const void*>(&value.int32Value), static_cast<const void*>(&value.int64Value),
          static_cast<const void*>(&value.float32Value),
          static_cast<const void*>(&value.float64Value),
          static_cast<const void*>(&value.libraryValue),
          static_cast<const void*>(&value.groupValue),
          static_cast<const void*>(&value.int32ArrayValue),
          static_cast<const void*>(&value.int64ArrayValue),
          static_cast<const void*>(&value.float32ArrayValue),
          static_cast<const void*>(&value.float64ArrayValue)})
        EXPECT_EQ(offset(member), 8);
}

TEST(UniVarTest, DefaultValueIsUndefined)
{
    const UniVar value;
    EXPECT_EQ(value.getType(), undefinedType);
    EXPECT_EQ(value.getArraySize(), 0);
    EXPECT_EQ(value.getStrValue(), "");
}

TEST(UniVarTest, ConstructorsTagWhatTheyHold)
{
    const int i32[] = {1};
    const int64_t i64[] = {1};
    const float f32[] = {1};
    const double f64[] = {1};
    EXPECT_EQ(UniVar(1).getType(), int32Type);
    EXPECT_EQ(UniVar(int64_t{1}).getType(), int64Type);
    EXPECT_EQ(UniVar(1.0F).getType(), float32Type);
    EXPECT_EQ(UniVar(1.0).getType(), float64Type);
    EXPECT_EQ(UniVar(text5).getType(), strType);
    EXPECT_EQ(UniVar("hello").getType(), strType);
    EXPECT_EQ(UniVar(static_cast<void*>(&aBlock)).getType(), pointerType);
    EXPECT_EQ(UniVar(&aLibrary).getType(), libraryType);
    EXPECT_EQ(UniVar(&aGroup).getType(), groupType);
    EXPECT_EQ(UniVar(i32, 1).getType(), int32ArrayType);
    EXPECT_EQ(UniVar(i64, 1).getType(), int64ArrayType);
    EXPECT_EQ(UniVar(f32, 1).getType(), float32ArrayType);
    EXPECT_EQ(UniVar(f64, 1).getType(), float64ArrayType);
    EXPECT_EQ(UniVar(static_cast<void*>(&aBlock), 4).getType(), pointerType);
}

TEST(UniVarTest, ConstructorsConvertImplicitly)
{
    const auto typeOf = [](UniVar value) { return value.getType(); };
    EXPECT_EQ(typeOf(1), int32Type);
    EXPECT_EQ(typeOf(int64_t{1}), int64Type);
    EXPECT_EQ(typeOf(1.0F), float32Type);
    EXPECT_EQ(typeOf(1.0), float64Type);
    EXPECT_EQ(typeOf(text5), strType);
    EXPECT_EQ(typeOf(&aLibrary), libraryType);
}

TEST(UniVarTest, MutableCharAddressIsAPointerAndNoText)
{
    char buffer[] = "42";
    char* address = buffer;
    EXPECT_EQ(UniVar(address).getPointerValue(), buffer);

    UniVar value;
    value = address;
    EXPECT_EQ(value.getType(), pointerType);
    value.setValue(address);
    EXPECT_EQ(value.getType(), pointerType);

    EXPECT_EQ(UniVar(std::string(address)).getI32Value(), 42);
}

TEST(UniVarTest, TagConstructorHoldsNothing)
{
    for (int type = undefinedType; type <= float64ArrayType + 1; ++type) {
        SCOPED_TRACE(type);
        const UniVar value(static_cast<UniVarType>(type));
        EXPECT_EQ(value.getType(), type);
        EXPECT_EQ(value.getArraySize(), 0);
        EXPECT_EQ(value.int64Value, 0);
    }
}

// --- Setters and assignment ----------------------------------------------------------------------

TEST(UniVarTest, SettersReplaceEveryKindByEveryOther)
{
    const std::vector<NamedValue> kinds = oneOfEachKind();
    const int i32[] = {4, 5};
    const int64_t i64[] = {6};
    const float f32[] = {7};
    const double f64[] = {8};
    for (const NamedValue& kind : kinds) {
        SCOPED_TRACE(kind.name);
        UniVar value = kind.value;
        value.setValue(-1);
        EXPECT_EQ(value.getI32Value(), -1);
        value = kind.value;
        value.setValue(int64_t{-2});
        EXPECT_EQ(value.getI64Value(), -2);
        value = kind.value;
        value.setValue(-3.5F);
        EXPECT_EQ(value.getF32Value(), -3.5F);
        value = kind.value;
        value.setValue(-4.5);
        EXPECT_EQ(value.getF64Value(), -4.5);
        value = kind.value;
        value.setValue(text5);
        EXPECT_EQ(value.getStrValue(), text5);
        value = kind.value;
        value.setValue(text16);
        EXPECT_EQ(value.getStrValue(), text16);
        value = kind.value;
        value.setValue(static_cast<void*>(&aBlock));
        EXPECT_EQ(value.getPointerValue(), &aBlock);
        value = kind.value;
        value.setValue(&aLibrary);
        EXPECT_EQ(value.getLibraryValue(), &aLibrary);
        value = kind.value;
        value.setValue(&aGroup);
        EXPECT_EQ(value.getGroupValue(), &aGroup);
        value = kind.value;
        value.setValue(i32, 2);
        EXPECT_EQ(value.getStrValue(), "[4,5]");
        value = kind.value;
        value.setValue(i64, 1);
        EXPECT_EQ(value.getStrValue(), "[6]");
        value = kind.value;
        value.setValue(f32, 1);
        EXPECT_EQ(value.getStrValue(), "[7.000000]");
        value = kind.value;
        value.setValue(f64, 1);
        EXPECT_EQ(value.getStrValue(), "[8.000000000000]");
    }
}

TEST(UniVarTest, AssignmentStoresAsTheSetterAndReturnsTheValue)
{
    UniVar value;
    EXPECT_EQ(&(value = 1), &value);
    EXPECT_EQ(picture(value), picture(UniVar(1)));
    EXPECT_EQ(&(value = int64_t{2}), &value);
    EXPECT_EQ(picture(value), picture(UniVar(int64_t{2})));
    EXPECT_EQ(&(value = 1.5F), &value);
    EXPECT_EQ(picture(value), picture(UniVar(1.5F)));
    EXPECT_EQ(&(value = 2.5), &value);
    EXPECT_EQ(picture(value), picture(UniVar(2.5)));
    EXPECT_EQ(&(value = text16), &value);
    EXPECT_EQ(picture(value), picture(UniVar(text16)));
    EXPECT_EQ(&(value = "literal"), &value);
    EXPECT_EQ(value.getStrValue(), "literal");
    EXPECT_EQ(&(value = static_cast<void*>(&aBlock)), &value);
    EXPECT_EQ(value.getPointerValue(), &aBlock);
    EXPECT_EQ(&(value = &aLibrary), &value);
    EXPECT_EQ(value.getLibraryValue(), &aLibrary);
    EXPECT_EQ(&(value = &aGroup), &value);
    EXPECT_EQ(value.getGroupValue(), &aGroup);
    const UniVar other(text15);
    EXPECT_EQ(&(value = other), &value);
    EXPECT_EQ(picture(value), picture(other));
}

TEST(UniVarTest, PointerKeepsItsByteCount)
{
    UniVar value;
    value.setValue(static_cast<void*>(&aBlock), 100);
    EXPECT_EQ(value.getPointerValue(), &aBlock);
    EXPECT_EQ(value.getArraySize(), 100);

    value.setValue(static_cast<void*>(&aBlock));
    EXPECT_EQ(value.getArraySize(), 0);
}

TEST(UniVarTest, ReplacedContentIsReleased)
{
    const std::string longText(5000, 'x');
    const std::vector<double> elements(700, 1.0);
    expectNoGrowth([&] {
        UniVar value(longText);
        value = 1;
        value = longText;
        value = longText;
        value.setValue(elements.data(), 700);
        value = UniVar(longText);
        value.setValue(elements.data(), 700);
        value.clear();
        value.setValue(elements.data(), 700);
    });
}

// --- Text ----------------------------------------------------------------------------------------

TEST(UniVarTest, TextOf15CharactersLiesInline)
{
    const UniVar value(text15);
    EXPECT_EQ(value.getArraySize(), 16);
    EXPECT_STREQ(value.strValue, text15.c_str());
    EXPECT_EQ(value.getStrValue(), text15);
}

TEST(UniVarTest, TextOf16CharactersLiesInABlockOfItsOwn)
{
    const UniVar value(text16);
    EXPECT_EQ(value.getArraySize(), 17);
    EXPECT_STREQ(value.strBlock, text16.c_str());
    EXPECT_EQ(value.getStrValue(), text16);
}

TEST(UniVarTest, TextsAreNeverCut)
{
    for (size_t length : {0, 1, 14, 17, 255, 4096, 1000000}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'a');
        const UniVar value(text);
        EXPECT_EQ(value.getArraySize(), static_cast<int>(length) + 1);
        EXPECT_EQ(value.getStrValue(), text);
    }
}

TEST(UniVarTest, NulCharactersWithinATextAreKept)
{
    const std::string shortText("a\0b\0", 4);
    const std::string longText("aaaaaaaa\0bbbbbbbbbbbbbbb\0\0", 26);
    EXPECT_EQ(UniVar(shortText).getStrValue(), shortText);
    EXPECT_EQ(UniVar(longText).getStrValue(), longText);
    EXPECT_EQ(UniVar(UniVar(longText)).getStrValue(), longText);
}

// --- Arrays --------------------------------------------------------------------------------------

TEST(UniVarTest, ArraysAreCopiedIn)
{
    int source[] = {1, 2, 3};
    const UniVar value(source, 3);
    source[0] = 9;

    EXPECT_EQ(value.getArraySize(), 3);
    EXPECT_NE(value.getI32ArrayValue(), source);
    EXPECT_EQ(value.getStrValue(), "[1,2,3]");
}

TEST(UniVarTest, NegativeCountStoresAnEmptyArray)
{
    const int64_t source[] = {1};
    for (int count : {-1, INT_MIN, 0}) {
        SCOPED_TRACE(count);
        const UniVar value(source, count);
        EXPECT_EQ(value.getType(), int64ArrayType);
        EXPECT_EQ(value.getArraySize(), 0);
        EXPECT_NE(value.getI64ArrayValue(), nullptr);
        EXPECT_EQ(value.getStrValue(), "[]");
    }
}

TEST(UniVarTest, NullSourceStoresZeros)
{
    const UniVar value(static_cast<const float*>(nullptr), 2);
    EXPECT_EQ(value.getArraySize(), 2);
    EXPECT_EQ(value.getStrValue(), "[0.000000,0.000000]");
    EXPECT_EQ(UniVar(static_cast<const int*>(nullptr), 0).getStrValue(), "[]");
}

TEST(UniVarTest, ValueCanBeSetFromItsOwnArray)
{
    const int source[] = {1, 2, 3, 4};
    UniVar value(source, 4);
    value.setValue(value.getI32ArrayValue() + 1, 2);
    EXPECT_EQ(value.getStrValue(), "[2,3]");
}

// --- Copies and moves ----------------------------------------------------------------------------

TEST(UniVarTest, CopyLooksLikeTheOriginal)
{
    for (const NamedValue& kind : oneOfEachKind()) {
        SCOPED_TRACE(kind.name);
        const UniVar copy = kind.value;
        EXPECT_EQ(picture(copy), picture(kind.value));
        UniVar assigned(text16);
        assigned = kind.value;
        EXPECT_EQ(picture(assigned), picture(kind.value));
    }
}

TEST(UniVarTest, CopyOfAnArrayIsIndependent)
{
    const double source[] = {1, 2};
    UniVar original(source, 2);
    UniVar copy = original;
    EXPECT_NE(copy.getF64ArrayValue(), original.getF64ArrayValue());

    copy.getF64ArrayValue()[0] = 7;
    original.getF64ArrayValue()[1] = 8;
    EXPECT_EQ(original.getF64ArrayValue()[0], 1);
    EXPECT_EQ(copy.getF64ArrayValue()[1], 2);
}

TEST(UniVarTest, CopyOfALongTextIsIndependent)
{
    UniVar original(text16);
    const UniVar copy = original;
    original.strBlock[0] = '!';
    EXPECT_EQ(copy.getStrValue(), text16);
}

TEST(UniVarTest, CopiesShareWhatIsReferredTo)
{
    const UniVar library = UniVar(UniVar(&aLibrary));
    const UniVar group = UniVar(UniVar(&aGroup));
    const UniVar pointer = UniVar(UniVar(static_cast<void*>(&aBlock), 4));
    EXPECT_EQ(library.getLibraryValue(), &aLibrary);
    EXPECT_EQ(group.getGroupValue(), &aGroup);
    EXPECT_EQ(pointer.getPointerValue(), &aBlock);
    EXPECT_EQ(pointer.getArraySize(), 4);
}

TEST(UniVarTest, CopyOfAnArrayWithoutBlockIsZeros)
{
    for (UniVarType type : {int32ArrayType, int64ArrayType, float32ArrayType, float64ArrayType}) {
        SCOPED_TRACE(type);
        UniVar original(type);
        original.varArraySize = 3;
        const UniVar copy = original;
        ASSERT_EQ(copy.getArraySize(), 3);
        ASSERT_NE(copy.pointerValue, nullptr);
        const size_t bytes = type == int32ArrayType || type == float32ArrayType ? 12 : 24;
        const std::vector<char> zeros(bytes, 0);
        EXPECT_EQ(std::memcmp(copy.pointerValue, zeros.data(), bytes), 0);
    }
}

TEST(UniVarTest, CopyOfANumberLeavesTheSizeFieldBehind)
{
    for (UniVarType type : {undefinedType, int32Type, int64Type, float32Type, float64Type,
                            libraryType, groupType, unknownType})
    {
        SCOPED_TRACE(type);
        UniVar original(type);
        original.varArraySize = 77;

        const UniVar copy = original;
        EXPECT_EQ(copy.getArraySize(), 0);

        UniVar assigned(static_cast<void*>(&aBlock), 100);
        assigned = original;
        EXPECT_EQ(assigned.getType(), type);
        EXPECT_EQ(assigned.getArraySize(), 100) << "a pointer's count survives the clearing";
    }
}

TEST(UniVarTest, SelfAssignmentChangesNothing)
{
    for (const NamedValue& kind : oneOfEachKind()) {
        SCOPED_TRACE(kind.name);
        UniVar value = kind.value;
        const UniVar& itself = value;
        value = itself;
        EXPECT_EQ(picture(value), picture(kind.value));
    }
}

TEST(UniVarTest, MoveTakesOverAndLeavesUndefined)
{
    static_assert(std::is_nothrow_move_constructible_v<UniVar>);
    for (const NamedValue& kind : oneOfEachKind()) {
        SCOPED_TRACE(kind.name);
        UniVar source = kind.value;
        const UniVar target = std::move(source);
        EXPECT_EQ(picture(target), picture(kind.value));
        EXPECT_EQ(picture(source), picture(UniVar()));
    }
}

TEST(UniVarTest, MoveHandsTheBlockOn)
{
    const int elements[] = {1, 2};
    UniVar source(elements, 2);
    const int* block = source.getI32ArrayValue();
    UniVar target = std::move(source);
    EXPECT_EQ(target.getI32ArrayValue(), block);
    UniVar assigned;
    assigned = std::move(target);
    EXPECT_EQ(assigned.getI32ArrayValue(), block);
}

// --- Numbers out of values -----------------------------------------------------------------------

struct NumberRow
{
    const char* name;
    UniVar value;
    int i32;
    int64_t i64;
    float f32;
    double f64;
};

TEST(UniVarTest, NumericGettersConvert)
{
    const int64_t big = (int64_t{1} << 32) + 2;
    const int64_t odd = (int64_t{1} << 53) + 1;
    const int anInt[] = {5};
    const int64_t aLong[] = {5};
    const float aFloat[] = {5};
    const double aDouble[] = {5};
    const float infinity = std::numeric_limits<float>::infinity();
    const NumberRow rows[] = {
        {"text 42abc", UniVar("42abc"), 42, 42, 42.0F, 42.0},
        {"text abc", UniVar("abc"), 0, 0, 0.0F, 0.0},
        {"empty text", UniVar(""), 0, 0, 0.0F, 0.0},
        {"text with fraction", UniVar(" -1.75e1x"), -1, -1, -17.5F, -17.5},
        {"text beyond 32 bits", UniVar("4294967298"), 2, big, 4294967298.0F, 4294967298.0},
        {"text of 15 digits", UniVar("123456789012345"), -2045911175, 123456789012345,
         123456789012345.0F, 123456789012345.0},
        {"text of 16 digits", UniVar("1234567890123456"), 0, 0, 0.0F, 0.0},
        {"int32", UniVar(7), 7, 7, 7.0F, 7.0},
        {"negative int32", UniVar(-7), -7, -7, -7.0F, -7.0},
        {"smallest int32", UniVar(INT_MIN), INT_MIN, INT_MIN, -2147483648.0F, -2147483648.0},
        {"int32 no float", UniVar(16777217), 16777217, 16777217, 16777216.0F, 16777217.0},
        {"int64 wraps", UniVar(big), 2, big, 4294967298.0F, 4294967298.0},
        {"int64 wraps to negative", UniVar(int64_t{0xFFFFFFFF}), -1, 0xFFFFFFFF, 4294967296.0F,
         4294967295.0},
        {"negative int64", UniVar(-big), -2, -big, -4294967298.0F, -4294967298.0},
        {"int64 no double", UniVar(odd), 1, odd, 9007199254740992.0F, 9007199254740992.0},
        {"float32", UniVar(2.9F), 2, 2, 2.9F, static_cast<double>(2.9F)},
        {"negative float32", UniVar(-2.9F), -2, -2, -2.9F, static_cast<double>(-2.9F)},
        {"float32 beyond", UniVar(1e30F), INT_MAX, INT64_MAX, 1e30F, static_cast<double>(1e30F)},
        {"float32 below", UniVar(-1e30F), INT_MIN, INT64_MIN, -1e30F, static_cast<double>(-1e30F)},
        {"float32 2^31", UniVar(2147483648.0F), INT_MAX, 2147483648, 2147483648.0F, 2147483648.0},
        {"float64", UniVar(-2.9), -2, -2, -2.9F, -2.9},
        {"float64 at the top", UniVar(2147483647.9), INT_MAX, 2147483647, 2147483648.0F,
         2147483647.9},
        {"float64 at the bottom", UniVar(-2147483648.9), INT_MIN, -2147483648, -2147483648.0F,
         -2147483648.9},
        {"float64 2^63", UniVar(9223372036854775808.0), INT_MAX, INT64_MAX, 9223372036854775808.0F,
         9223372036854775808.0},
        {"float64 below 2^63", UniVar(9223372036854774784.0), INT_MAX, 9223372036854774784,
         9223372036854775808.0F, 9223372036854774784.0},
        {"float64 -2^63", UniVar(-9223372036854775808.0), INT_MIN, INT64_MIN,
         -9223372036854775808.0F, -9223372036854775808.0},
        {"float64 rounded", UniVar(16777219.0), 16777219, 16777219, 16777220.0F, 16777219.0},
        {"float64 no float", UniVar(1e300), INT_MAX, INT64_MAX, infinity, 1e300},
        {"undefined", UniVar(), 0, 0, 0.0F, 0.0},
        {"library", UniVar(&aLibrary), 0, 0, 0.0F, 0.0},
        {"group", UniVar(&aGroup), 0, 0, 0.0F, 0.0},
        {"pointer", UniVar(static_cast<void*>(&aBlock), 4), 0, 0, 0.0F, 0.0},
        {"int32 array", UniVar(anInt, 1), 0, 0, 0.0F, 0.0},
        {"int64 array", UniVar(aLong, 1), 0, 0, 0.0F, 0.0},
        {"float32 array", UniVar(aFloat, 1), 0, 0, 0.0F, 0.0},
        {"float64 array", UniVar(aDouble, 1), 0, 0, 0.0F, 0.0},
        {"unknown tag", UniVar(unknownType), 0, 0, 0.0F, 0.0},
    };
    for (const NumberRow& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.value.getI32Value(), row.i32);
        EXPECT_EQ(row.value.getI64Value(), row.i64);
        EXPECT_EQ(row.value.getF32Value(), row.f32);
        EXPECT_EQ(row.value.getF64Value(), row.f64);
    }
}

TEST(UniVarTest, NanIsZeroAsAnInteger)
{
    const UniVar narrow(std::numeric_limits<float>::quiet_NaN());
    const UniVar wide(std::numeric_limits<double>::quiet_NaN());
    for (const UniVar& value : {narrow, wide}) {
        EXPECT_EQ(value.getI32Value(), 0);
        EXPECT_EQ(value.getI64Value(), 0);
        EXPECT_TRUE(std::isnan(value.getF32Value()));
        EXPECT_TRUE(std::isnan(value.getF64Value()));
    }
}

// --- Text out of values --------------------------------------------------------------------------

TEST(UniVarTest, TextOfEachKind)
{
    const int i32[] = {1, 2, 3};
    const int64_t i64[] = {-1, INT64_MAX};
    const float f32[] = {0.1F, -2.0F};
    const double f64[] = {1.0};
    const struct
    {
        const char* name;
        UniVar value;
        std::string text;
    } rows[] = {
        {"undefined", UniVar(), ""},
        {"text", UniVar("some text"), "some text"},
        {"int32", UniVar(-17), "-17"},
        {"int64", UniVar(INT64_MIN), "-9223372036854775808"},
        {"float32", UniVar(0.1F), "0.100000"},
        {"float64", UniVar(1.0), "1.000000000000"},
        {"library", UniVar(&aLibrary), "-/-"},
        {"group", UniVar(&aGroup), "-/-"},
        {"pointer", UniVar(static_cast<void*>(&aBlock)), "-/-"},
        {"int32 array", UniVar(i32, 3), "[1,2,3]"},
        {"int64 array", UniVar(i64, 2), "[-1,9223372036854775807]"},
        {"float32 array", UniVar(f32, 2), "[0.100000,-2.000000]"},
        {"float64 array", UniVar(f64, 1), "[1.000000000000]"},
        {"empty int32 array", UniVar(i32, 0), "[]"},
        {"empty int64 array", UniVar(i64, 0), "[]"},
        {"empty float32 array", UniVar(f32, 0), "[]"},
        {"empty float64 array", UniVar(f64, 0), "[]"},
        {"array without block", UniVar(float32ArrayType), "[]"},
        {"unknown tag", UniVar(unknownType), ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.value.getStrValue(), row.text) << row.name;
}

TEST(UniVarTest, TypeLabelOfEachKind)
{
    const std::vector<int> i32(1000000, 0);
    const int64_t i64[] = {0, 0, 0, 0};
    const std::vector<float> f32(250, 0);
    const double f64[] = {0};
    const struct
    {
        UniVar value;
        std::string label;
    } rows[] = {
        {UniVar(), "-"},
        {UniVar(""), "STR"},
        {UniVar(text16), "STR"},
        {UniVar(0), "I32"},
        {UniVar(int64_t{0}), "I64"},
        {UniVar(0.0F), "F32"},
        {UniVar(0.0), "F64"},
        {UniVar(&aLibrary), "-"},
        {UniVar(&aGroup), "-"},
        {UniVar(static_cast<void*>(&aBlock), 4), "-"},
        {UniVar(i32.data(), 1000000), "I32(1000000)"},
        {UniVar(i64, 4), "I64(4)"},
        {UniVar(f32.data(), 250), "F32(250)"},
        {UniVar(f64, 0), "F64(0)"},
        {UniVar(unknownType), "-"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.value.getStrType(), row.label) << row.value.getType();
}

// --- Addresses out of values ---------------------------------------------------------------------

TEST(UniVarTest, AddressGettersAnswerTheirOwnKindOnly)
{
    for (const NamedValue& kind : oneOfEachKind()) {
        SCOPED_TRACE(kind.name);
        const UniVar& value = kind.value;
        const auto expected = [&value](UniVarType type) {
            return value.getType() == type ? value.pointerValue : nullptr;
        };
        EXPECT_EQ(value.getPointerValue(), expected(pointerType));
        EXPECT_EQ(static_cast<void*>(value.getLibraryValue()), expected(libraryType));
        EXPECT_EQ(static_cast<void*>(value.getGroupValue()), expected(groupType));
        EXPECT_EQ(static_cast<void*>(value.getI32ArrayValue()), expected(int32ArrayType));
        EXPECT_EQ(static_cast<void*>(value.getI64ArrayValue()), expected(int64ArrayType));
        EXPECT_EQ(static_cast<void*>(value.getF32ArrayValue()), expected(float32ArrayType));
        EXPECT_EQ(static_cast<void*>(value.getF64ArrayValue()), expected(float64ArrayType));
    }
}

TEST(UniVarTest, ArrayGetterHandsOutTheValuesOwnBlock)
{
    const int64_t elements[] = {1, 2};
    const UniVar value(elements, 2);
    value.getI64ArrayValue()[1] = 5;
    EXPECT_EQ(value.getI64ArrayValue(), value.int64ArrayValue);
    EXPECT_EQ(value.getStrValue(), "[1,5]");
}

// --- clear, clean and size -----------------------------------------------------------------------

TEST(UniVarTest, ClearLeavesAnUndefinedValueOfSizeZero)
{
    for (const NamedValue& kind : oneOfEachKind()) {
        SCOPED_TRACE(kind.name);
        UniVar value = kind.value;
        value.clear();
        EXPECT_EQ(value.getType(), undefinedType);
        EXPECT_EQ(value.int64Value, 0);
        EXPECT_EQ(value.getArraySize(), kind.value.getType() == pointerType ? 4 : 0);
        value.clear();
        EXPECT_EQ(value.getType(), undefinedType);
    }
}

TEST(UniVarTest, ClearOfANumberLeavesTheSizeField)
{
    UniVar value(5);
    value.varArraySize = 9;
    value.clear();
    EXPECT_EQ(value.getArraySize(), 9);
}

TEST(UniVarTest, CleanChangesTheTagOnly)
{
    UniVar value(static_cast<void*>(&aBlock), 4);
    value.clean();
    EXPECT_EQ(value.getType(), undefinedType);
    EXPECT_EQ(value.getArraySize(), 4);
    EXPECT_EQ(value.pointerValue, &aBlock);
}

TEST(UniVarTest, MemorySizeOfEachKind)
{
    const int i32[] = {1, 2, 3};
    const int64_t i64[] = {1, 2, 3, 4};
    const float f32[] = {1, 2};
    const double f64[] = {1, 2, 3};
    UniVar clearedPointer(static_cast<void*>(&aBlock), 100);
    clearedPointer.clear();
    const struct
    {
        const char* name;
        UniVar value;
        int size;
    } rows[] = {
        {"undefined", UniVar(), 8},
        {"text of 5 characters", UniVar(text5), 14},
        {"text of 16 characters", UniVar(text16), 25},
        {"int32", UniVar(1), 8},
        {"float32", UniVar(1.0F), 8},
        {"int64", UniVar(int64_t{1}), 12},
        {"float64", UniVar(1.0), 12},
        {"int32 array of 3", UniVar(i32, 3), 20},
        {"float32 array of 2", UniVar(f32, 2), 16},
        {"int64 array of 4", UniVar(i64, 4), 40},
        {"float64 array of 3", UniVar(f64, 3), 32},
        {"empty array", UniVar(f64, 0), 8},
        {"library", UniVar(&aLibrary), 4},
        {"group", UniVar(&aGroup), 4},
        {"pointer", UniVar(static_cast<void*>(&aBlock), 100), 4},
        {"unknown tag", UniVar(unknownType), 4},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.value.getMemSize(), row.size) << row.name;
    EXPECT_EQ(clearedPointer.getMemSize(), 108) << "an undefined value counts its size field";
}

TEST(UniVarTest, MemorySizeWrapsAt32Bits)
{
    UniVar value(float64ArrayType);
    value.varArraySize = 0x20000000;
    EXPECT_EQ(value.getMemSize(), 8);
    value.varArraySize = 0;
    UniVar text;
    text.varArraySize = INT_MAX;
    EXPECT_EQ(text.getMemSize(), INT_MIN + 7);
}

// --- Writing -------------------------------------------------------------------------------------

TEST(UniVarTest, WriterPutsNothingBetweenItems)
{
    const int i32[] = {1, 2, 3};
    const int64_t i64[] = {-1, 4};
    const float f32[] = {0.5F, 100.0F};
    const double f64[] = {0.1, 1e20};
    const struct
    {
        const char* name;
        UniVar value;
        std::string text;
    } rows[] = {
        {"undefined", UniVar(), "0"},
        {"short text", UniVar(text5), std::string("16hello\0", 8)},
        {"text of 16 characters", UniVar(text16), "117" + text16 + std::string(1, '\0')},
        {"text with NUL", UniVar(std::string("a\0b", 3)), std::string("14a\0b\0", 6)},
        {"int32", UniVar(5), "25"},
        {"int64", UniVar(int64_t{-6}), "3-6"},
        {"float32", UniVar(1.5F), "41.5"},
        {"float64", UniVar(0.1234567891), "50.123457"},
        {"library", UniVar(&aLibrary), "6"},
        {"group", UniVar(&aGroup), "7"},
        {"pointer", UniVar(static_cast<void*>(&aBlock), 4), "8"},
        {"int32 array", UniVar(i32, 3), "93123"},
        {"int64 array", UniVar(i64, 2), "102-14"},
        {"float32 array", UniVar(f32, 2), "1120.5100"},
        {"float64 array", UniVar(f64, 2), "1220.11e+20"},
        {"empty array", UniVar(i32, 0), "90"},
        {"array without block", UniVar(int32ArrayType), "90"},
        {"unknown tag", UniVar(unknownType), "13"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(written(row.value), row.text) << row.name;
}

TEST(UniVarTest, WriterUsesTheStreamsNumberFormat)
{
    std::ostringstream stream;
    stream << std::fixed << std::setprecision(2) << std::showpos << UniVar(1.0);
    EXPECT_EQ(stream.str(), "+5+1.00");
}

// --- Reading -------------------------------------------------------------------------------------

TEST(UniVarTest, ReaderFillsNumbers)
{
    UniVar value(text16);
    read("2 -5", value);
    EXPECT_EQ(picture(value), "2 17 I32 -5 0 0 0");
    read("3 9223372036854775807", value);
    EXPECT_EQ(value.getType(), int64Type);
    EXPECT_EQ(value.getI64Value(), INT64_MAX);
    read("4 1.5", value);
    EXPECT_EQ(value.getType(), float32Type);
    EXPECT_EQ(value.getF32Value(), 1.5F);
    read("5\n-2.25", value);
    EXPECT_EQ(value.getType(), float64Type);
    EXPECT_EQ(value.getF64Value(), -2.25);
}

TEST(UniVarTest, ReaderTakesWhatTheWriterWroteOnlyWithSeparators)
{
    UniVar value;
    read(written(UniVar(5)), value);
    EXPECT_EQ(value.getType(), 25) << "tag and value are one number to a reader";
}

TEST(UniVarTest, ReaderNullsReferences)
{
    for (const NamedValue& kind : oneOfEachKind()) {
        for (UniVarType type : {libraryType, groupType, pointerType}) {
            SCOPED_TRACE(kind.name);
            UniVar value = kind.value;
            read(std::to_string(type), value);
            EXPECT_EQ(value.getType(), type);
            EXPECT_EQ(value.pointerValue, nullptr);
        }
    }
}

TEST(UniVarTest, ReaderKeepsTagsThatHoldNothing)
{
    UniVar value(7);
    read("0 5", value);
    EXPECT_EQ(value.getType(), undefinedType);
    read("77 5", value);
    EXPECT_EQ(value.getType(), 77);
    EXPECT_EQ(value.getI32Value(), 0);
    read("-3", value);
    EXPECT_EQ(value.getType(), -3);
}

TEST(UniVarTest, ReaderLeavesTheSizeFieldOfNumbersAlone)
{
    UniVar value(static_cast<void*>(&aBlock), 100);
    read("2 5", value);
    EXPECT_EQ(value.getArraySize(), 100);
}

TEST(UniVarTest, ReaderStopsAfterItsValue)
{
    std::istringstream stream("2 5 1 3abc 9 0 4 1.5");
    UniVar value;
    stream >> value;
    EXPECT_EQ(value.getI32Value(), 5);
    stream >> value;
    EXPECT_EQ(value.getStrValue(), "abc");
    stream >> value;
    EXPECT_EQ(value.getStrValue(), "[]");
    stream >> value;
    EXPECT_EQ(value.getF32Value(), 1.5F);
    EXPECT_TRUE(static_cast<bool>(stream));
}

TEST(UniVarTest, FailedTagMakesTheValueUndefined)
{
    for (const NamedValue& kind : oneOfEachKind()) {
        for (const char* text : {"", "x", "99999999999"}) {
            SCOPED_TRACE(kind.name + " from \"" + text + '"');
            UniVar value = kind.value;
            read(text, value);
            EXPECT_EQ(value.getType(), undefinedType);
        }
    }
}

TEST(UniVarTest, FailedNumberIsZero)
{
    for (const NamedValue& kind : oneOfEachKind()) {
        for (const char* text : {"2", "2 ", "2 x", "3", "3 x", "4", "4 x", "5", "5 x"}) {
            SCOPED_TRACE(kind.name + " from \"" + text + '"');
            UniVar value = kind.value;
            read(text, value);
            EXPECT_EQ(value.getType(), text[0] - '0');
            EXPECT_EQ(value.getF64Value(), 0.0);
        }
    }
}

TEST(UniVarTest, ReadTextComesBackWhole)
{
    for (int size : {0, 1, 14, 15, 16, 17, 18, 100, 65536, 65537, 200000}) {
        SCOPED_TRACE(size);
        std::string bytes(static_cast<size_t>(size), ' ');
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<char>('a' + i % 26);

        UniVar value;
        read(readableText(bytes), value);

        EXPECT_EQ(value.getType(), strType);
        EXPECT_EQ(value.getArraySize(), size);
        EXPECT_EQ(value.getStrValue(), bytes) << "without a NUL, every byte is text";
        const UniVar copy = value;
        EXPECT_EQ(copy.getStrValue(), bytes);
        EXPECT_EQ(written(copy).substr(1), readableText(bytes).substr(2));
        value.clear();
        EXPECT_EQ(value.getArraySize(), 0);
    }
}

TEST(UniVarTest, ReadTextLosesItsFinalNul)
{
    for (size_t length : {0, 5, 14, 15, 16, 40}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'n');
        UniVar value;
        read(readableText(text + '\0'), value);
        EXPECT_EQ(value.getArraySize(), static_cast<int>(length) + 1);
        EXPECT_EQ(value.getStrValue(), text);
    }
}

// Where digits follow the size, they belong to it: texts of digits are read with a blank before
// them.
TEST(UniVarTest, ReadTextOf16BytesLiesInABlockOfItsOwn)
{
    for (const std::string& text :
         {std::string(" 123456789012345"), std::string(" 12345678901234\0", 16)})
    {
        UniVar value;
        read("1 16" + text, value);
        EXPECT_EQ(value.getArraySize(), 16);
        EXPECT_GE(malloc_usable_size(value.strBlock), 16u) << "a block of the heap";
        EXPECT_EQ(std::string(value.strBlock, 16), text);
        EXPECT_EQ(value.getI64Value(), 0) << "only inline texts are converted";

        const UniVar copy(value);
        EXPECT_NE(copy.strBlock, value.strBlock);
        EXPECT_EQ(std::string(copy.strBlock, 16), text);
        UniVar assigned;
        assigned = value;
        EXPECT_EQ(std::string(assigned.strBlock, 16), text);
        EXPECT_EQ(written(value), "116" + text);
    }
    UniVar set(std::string(15, '7'));
    EXPECT_EQ(set.getArraySize(), 16);
    EXPECT_STREQ(set.strValue, "777777777777777") << "inline when it is set";
}

TEST(UniVarTest, BlocksOf16BytesAreReleased)
{
    expectNoGrowth([] {
        UniVar value;
        read("1 16abcdefghijklmnop", value);
        UniVar copy(value);
        copy = UniVar(5);
        read("0", value);
    });
}

TEST(UniVarTest, ATextWhoseBytesLookLikeABlockIsStillAText)
{
    // The second eight bytes are the complement of the first, with the NUL at the end.
    const std::string text = "\x21\x22\x23\x24\x25\x26\x27\xff\xde\xdd\xdc\xdb\xda\xd9\xd8";
    ASSERT_EQ(text.size(), 15u);
    UniVar value(text);
    UniVar copy(value);
    UniVar assigned;
    assigned = copy;
    copy = UniVar(5);
    EXPECT_EQ(value.getStrValue(), text);
    EXPECT_EQ(assigned.getStrValue(), text);
    const UniVar moved(std::move(assigned));
    EXPECT_EQ(moved.getStrValue(), text);
    std::ostringstream written;
    written << value;
    EXPECT_EQ(written.str(), "116" + text + std::string(1, 0));
}

TEST(UniVarTest, TagWithoutContentLeavesTheBytesOfAShortTextAndItsSize)
{
    for (const char* tag : {"0", "77", "x"}) {
        SCOPED_TRACE(tag);
        UniVar value("short text");
        read(tag, value);
        EXPECT_NE(value.getType(), strType);
        EXPECT_STREQ(value.strValue, "short text");
        EXPECT_EQ(value.getArraySize(), 11);
    }
    UniVar value("short text");
    read("2 5", value);
    EXPECT_EQ(std::string(value.strValue + 4), "t text") << "a number takes its four bytes";
    EXPECT_EQ(value.getArraySize(), 11);
}

TEST(UniVarTest, TagWithoutContentReleasesABlock)
{
    UniVar value(text16);
    read("0", value);
    EXPECT_EQ(value.getType(), undefinedType);
    EXPECT_EQ(value.strBlock, nullptr);
    EXPECT_EQ(value.getArraySize(), 17);
}

TEST(UniVarTest, ReadTextOf17BytesIsNotConverted)
{
    UniVar value;
    read("1 17 1234567890123456", value);
    EXPECT_EQ(value.getArraySize(), 17);
    EXPECT_EQ(value.getStrValue(), " 1234567890123456");
    EXPECT_EQ(value.getI64Value(), 0);
}

TEST(UniVarTest, ReadNumberEndsWithTheStoredText)
{
    const UniVar longer("999999999999999");
    for (const char* text : {"1 3 42", "1 9       42"}) {
        SCOPED_TRACE(text);
        UniVar value = longer;
        read(text, value);
        EXPECT_EQ(value.getI32Value(), 42);
        EXPECT_EQ(value.getI64Value(), 42);
        EXPECT_EQ(value.getF32Value(), 42.0F);
        EXPECT_EQ(value.getF64Value(), 42.0);
    }
}

TEST(UniVarTest, TextSizeEndsAsWhatTheStreamDelivered)
{
    const struct
    {
        const char* text;
        const char* stored;
    } rows[] = {
        {"1 2000000000abc", "abc"},
        {"1 2000000000abcdefghijklmnop", "abcdefghijklmnop"},
        {"1 2000000000abcdefghijklmnopq", "abcdefghijklmnopq"},
        {"1 99999999999abc", ""},
        {"1 10abc", "abc"},
        {"1 100", ""},
        {"1 -5abcdef", ""},
        {"1 xabc", ""},
        {"1", ""},
    };
    for (const auto& row : rows) {
        for (const NamedValue& kind : oneOfEachKind()) {
            SCOPED_TRACE(kind.name + " from " + row.text);
            UniVar value = kind.value;
            read(row.text, value);
            EXPECT_EQ(value.getType(), strType);
            EXPECT_EQ(value.getArraySize(), static_cast<int>(std::strlen(row.stored)));
            EXPECT_EQ(value.getStrValue(), row.stored);
        }
    }
}

TEST(UniVarTest, ReaderFillsTheArrayThatIsThere)
{
    const int i32[] = {0, 0, 0};
    UniVar value(i32, 3);
    const int* block = value.getI32ArrayValue();
    read("9 3 4 -5 6", value);
    EXPECT_EQ(value.getI32ArrayValue(), block);
    EXPECT_EQ(value.getStrValue(), "[4,-5,6]");

    const double f64[] = {0, 0};
    UniVar wide(f64, 2);
    read("12 2 0.5 -1e3", wide);
    EXPECT_EQ(wide.getStrValue(), "[0.500000000000,-1000.000000000000]");

    const float f32[] = {0, 0};
    UniVar narrow(f32, 2);
    read("11 2 0.5 -1e3", narrow);
    EXPECT_EQ(narrow.getStrValue(), "[0.500000,-1000.000000]");

    const int64_t i64[] = {0};
    UniVar integer(i64, 1);
    read("10 1 9223372036854775807", integer);
    EXPECT_EQ(integer.getStrValue(), "[9223372036854775807]");
}

TEST(UniVarTest, ReaderFillsABlockAssignedByHand)
{
    UniVar value(float32ArrayType);
    value.float32ArrayValue = new float[3];
    read("11 3 1 2 3", value);
    EXPECT_EQ(value.getStrValue(), "[1.000000,2.000000,3.000000]");
}

TEST(UniVarTest, BlockKeepsItsRoomThroughAShorterReading)
{
    const int i32[] = {0, 0, 0};
    UniVar value(i32, 3);
    read("9 1 7", value);
    EXPECT_EQ(value.getStrValue(), "[7]");
    read("9 3 1 2 3", value);
    EXPECT_EQ(value.getStrValue(), "[1,2,3]");
}

TEST(UniVarTest, BlockIsReusedForElementsOfAnotherWidth)
{
    const int i32[] = {0, 0, 0, 0};
    UniVar value(i32, 4);
    void* block = value.pointerValue;
    read("12 2 1 2", value);
    EXPECT_EQ(value.pointerValue, block);
    EXPECT_EQ(value.getStrValue(), "[1.000000000000,2.000000000000]");
    read("9 4 1 2 3 4", value);
    EXPECT_EQ(value.getStrValue(), "[1,2,3,4]");
}

TEST(UniVarTest, ReaderAllocatesNoArray)
{
    for (const NamedValue& kind : oneOfEachKind()) {
        const UniVarType before = kind.value.getType();
        if (before >= int32ArrayType && before <= float64ArrayType)
            continue;
        for (const char* text : {"9 2 1 2", "10 2 1 2", "11 2 1 2", "12 2 1 2"}) {
            SCOPED_TRACE(kind.name + " from " + text);
            UniVar value = kind.value;
            read(text, value);
            EXPECT_EQ(value.getType(), std::atoi(text));
            EXPECT_EQ(value.getArraySize(), 0);
            EXPECT_EQ(value.pointerValue, nullptr);
            EXPECT_EQ(value.getStrValue(), "[]");
        }
    }
}

TEST(UniVarTest, ElementsBeyondTheBlockAreReadAndDropped)
{
    const int i32[] = {0, 0, 0};
    UniVar value(i32, 3);
    const size_t room = malloc_usable_size(value.pointerValue) / sizeof(int);
    std::stringstream stream;
    stream << "9 1000";
    for (int i = 0; i < 1000; ++i)
        stream << ' ' << i;
    stream << " 2 42";

    stream >> value;

    ASSERT_EQ(value.getArraySize(), static_cast<int>(room));
    for (int i = 0; i < value.getArraySize(); ++i)
        EXPECT_EQ(value.getI32ArrayValue()[i], i);
    stream >> value;
    EXPECT_EQ(value.getI32Value(), 42) << "the stream stands behind the array";
}

TEST(UniVarTest, ArraySizeEndsAsWhatTheStreamDelivered)
{
    const struct
    {
        const char* text;
        const char* stored;
    } rows[] = {
        {"9 2000000000 1 2", "[1,2]"},
        {"9 99999999999 1 2", "[]"},
        {"9 3 1 2 x", "[1,2]"},
        {"9 3 1 99999999999", "[1]"},
        {"9 -5 1 2", "[]"},
        {"9 0 1 2", "[]"},
        {"9 x", "[]"},
        {"9", "[]"},
    };
    const int i32[] = {7, 8, 9};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        UniVar value(i32, 3);
        read(row.text, value);
        EXPECT_EQ(value.getType(), int32ArrayType);
        EXPECT_EQ(value.getStrValue(), row.stored);
    }
}

TEST(UniVarTest, StreamThatThrowsLeavesASoundArray)
{
    const std::vector<int> i32(100, 1);
    UniVar value(i32.data(), 100);
    std::istringstream stream("12 x");
    stream.exceptions(std::ios::failbit);
    EXPECT_THROW(stream >> value, std::ios::failure);
    EXPECT_EQ(UniVar(value).getStrValue(), "[]");
}

TEST(UniVarTest, ReaderReleasesWhatItReplaces)
{
    const std::string longText(5000, 'x');
    const std::vector<double> elements(700, 1.0);
    const std::string readable = readableText(longText);
    expectNoGrowth([&] {
        for (const char* text : {"", "0", "2 5", "1 2ab", "8", "12 1 5", "77"}) {
            UniVar value(longText);
            read(text, value);
            read(readable, value);
            read(readable, value);
            UniVar array(elements.data(), 700);
            read(text, array);
            UniVar other(elements.data(), 700);
            read(readable, other);
        }
    });
}

// --- Free conversions: numbers to text -----------------------------------------------------------

TEST(ConversionTest, IntegersAreDecimalDigits)
{
    EXPECT_EQ(int2string(0), "0");
    EXPECT_EQ(int2string(-1234567), "-1234567");
    EXPECT_EQ(int2string(INT_MIN), "-2147483648");
    EXPECT_EQ(lint2string(1234567890123), "1234567890123");
    EXPECT_EQ(lint2string(INT64_MIN), "-9223372036854775808");
}

TEST(ConversionTest, FloatsHaveSixDecimals)
{
    EXPECT_EQ(float2string(1.5F), "1.500000");
    EXPECT_EQ(float2string(0.1F), "0.100000");
    EXPECT_EQ(float2string(-0.0F), "-0.000000");
    EXPECT_EQ(float2string(1e-7F), "0.000000");
    EXPECT_EQ(float2string(FLT_MAX), "340282346638528859811704183484516925440.000000");
}

TEST(ConversionTest, DoublesHaveTwelveDecimals)
{
    EXPECT_EQ(double2string(1.0), "1.000000000000");
    EXPECT_EQ(double2string(0.1), "0.100000000000");
    EXPECT_EQ(double2string(-123456.5), "-123456.500000000000");
    EXPECT_EQ(double2string(0.0000000000006), "0.000000000001");
}

TEST(ConversionTest, LargestDoubleFits)
{
    const std::string text = double2string(-DBL_MAX);
    EXPECT_EQ(text.size(), 323u);
    EXPECT_EQ(text.substr(0, 18), "-17976931348623157");
    EXPECT_EQ(text.substr(310), ".000000000000");
}

TEST(ConversionTest, InfinityAndNanReadAsPrintfWritesThem)
{
    const double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(double2string(infinity), "inf");
    EXPECT_EQ(double2string(-infinity), "-inf");
    EXPECT_EQ(double2string(nan), "nan");
    EXPECT_EQ(double2string(std::copysign(nan, -1.0)), "-nan");
    EXPECT_EQ(float2string(static_cast<float>(-infinity)), "-inf");
    EXPECT_EQ(float2string(std::copysign(static_cast<float>(nan), -1.0F)), "-nan");
}

// Bit patterns at random: every exponent, both signs, infinities and NaNs among them.
TEST(ConversionTest, AnyNumberReadsAsPrintfWritesIt)
{
    std::mt19937_64 random(20240611);
    char expected[400];
    for (int i = 0; i < 20000; ++i) {
        const uint64_t bits = random();
        double wide;
        std::memcpy(&wide, &bits, sizeof wide);
        std::snprintf(expected, sizeof expected, "%0.12f", wide);
        ASSERT_EQ(double2string(wide), expected) << "bits " << bits;

        float narrow;
        std::memcpy(&narrow, &bits, sizeof narrow);
        std::snprintf(expected, sizeof expected, "%0.6f", static_cast<double>(narrow));
        ASSERT_EQ(float2string(narrow), expected) << "bits " << bits;

        const double ordinary = static_cast<double>(static_cast<int64_t>(bits)) / (1 << 30);
        std::snprintf(expected, sizeof expected, "%0.12f", ordinary);
        ASSERT_EQ(double2string(ordinary), expected);
    }
}

TEST(ConversionTest, ArraysAreListedInBrackets)
{
    const int i32[] = {1, -2, 3};
    const int64_t i64[] = {INT64_MAX};
    const float f32[] = {1.5F, 0.25F};
    const double f64[] = {0.1, -7.0};
    EXPECT_EQ(intarr2string(i32, 3), "[1,-2,3]");
    EXPECT_EQ(lintarr2string(i64, 1), "[9223372036854775807]");
    EXPECT_EQ(floatarr2string(f32, 2), "[1.500000,0.250000]");
    EXPECT_EQ(doublearr2string(f64, 2), "[0.100000000000,-7.000000000000]");
}

TEST(ConversionTest, ArrayWithoutElementsIsEmptyBrackets)
{
    const int i32[] = {1};
    const int64_t i64[] = {1};
    const float f32[] = {1};
    const double f64[] = {1};
    for (int count : {0, -1}) {
        EXPECT_EQ(intarr2string(i32, count), "[]");
        EXPECT_EQ(lintarr2string(i64, count), "[]");
        EXPECT_EQ(floatarr2string(f32, count), "[]");
        EXPECT_EQ(doublearr2string(f64, count), "[]");
    }
    EXPECT_EQ(intarr2string(nullptr, 3), "[]");
    EXPECT_EQ(lintarr2string(nullptr, 3), "[]");
    EXPECT_EQ(floatarr2string(nullptr, 3), "[]");
    EXPECT_EQ(doublearr2string(nullptr, 3), "[]");
}

// --- Free conversions: text to numbers -----------------------------------------------------------

TEST(ConversionTest, NumbersAreScannedFromTheStartOfTheText)
{
    const struct
    {
        const char* text;
        int i32;
        int64_t i64;
        double f64;
    } rows[] = {
        {"12abc", 12, 12, 12.0},
        {"  \t\n-12 13", -12, -12, -12.0},
        {"+7", 7, 7, 7.0},
        {"1.75", 1, 1, 1.75},
        {"-2.5e2", -2, -2, -250.0},
        {"0x10", 0, 0, 16.0},
        {"010", 10, 10, 10.0},
        {"1,500", 1, 1, 1.0},
        {"2147483647", INT_MAX, 2147483647, 2147483647.0},
        {"4294967298", 2, 4294967298, 4294967298.0},
        {"-9223372036854775808", 0, INT64_MIN, -9223372036854775808.0},
        {"", 0, 0, 0.0},
        {"   ", 0, 0, 0.0},
        {"abc", 0, 0, 0.0},
        {"-", 0, 0, 0.0},
        {".", 0, 0, 0.0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const std::string text = row.text;
        EXPECT_EQ(string2int(row.text), row.i32);
        EXPECT_EQ(string2int(text), row.i32);
        EXPECT_EQ(string2longint(row.text), row.i64);
        EXPECT_EQ(string2longint(text), row.i64);
        EXPECT_EQ(string2float(row.text), static_cast<float>(row.f64));
        EXPECT_EQ(string2float(text), static_cast<float>(row.f64));
        EXPECT_EQ(string2double(row.text), row.f64);
        EXPECT_EQ(string2double(text), row.f64);
    }
}

TEST(ConversionTest, LongIntegerBeyond64BitsDependsOnTheForm)
{
    EXPECT_EQ(string2longint("99999999999999999999"), INT64_MAX) << "scanned";
    EXPECT_EQ(string2longint(std::string("99999999999999999999")), 0) << "read from a stream";
}

TEST(ConversionTest, InfinityAndNanAreScanned)
{
    EXPECT_EQ(string2double("inf"), std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(string2float("nan")));
    EXPECT_EQ(string2int("inf"), 0);
}

TEST(ConversionTest, NullTextIsZero)
{
    const char* none = nullptr;
    EXPECT_EQ(string2int(none), 0);
    EXPECT_EQ(string2longint(none), 0);
    EXPECT_EQ(string2float(none), 0.0F);
    EXPECT_EQ(string2double(none), 0.0);
}

// --- Locales -------------------------------------------------------------------------------------

// Groups digits with points and has a decimal comma: wherever it shows, a text is wrong.
class ForeignNumbers : public std::numpunct<char>
{
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

void expectClassicNumbers()
{
    const int i32[] = {1234567};
    const double f64[] = {1234567.5};
    EXPECT_EQ(int2string(1234567), "1234567");
    EXPECT_EQ(lint2string(1234567890), "1234567890");
    EXPECT_EQ(float2string(1234567.5F), "1234567.500000");
    EXPECT_EQ(double2string(1234567.5), "1234567.500000000000");
    EXPECT_EQ(UniVar(i32, 1).getStrValue(), "[1234567]");
    EXPECT_EQ(UniVar(f64, 1).getStrValue(), "[1234567.500000000000]");
    EXPECT_EQ(UniVar(i32, 1).getStrType(), "I32(1)");

    EXPECT_EQ(string2int("1.234"), 1);
    EXPECT_EQ(string2longint("1.234"), 1);
    EXPECT_EQ(string2longint(std::string("1.234")), 1);
    EXPECT_EQ(string2longint(std::string("1234567")), 1234567);
    EXPECT_EQ(string2float("1.5"), 1.5F);
    EXPECT_EQ(string2float("1,5"), 1.0F);
    EXPECT_EQ(string2double(std::string("1.5")), 1.5);
    EXPECT_EQ(string2double("1,5"), 1.0);
    EXPECT_EQ(UniVar("2.75").getF64Value(), 2.75);
}

TEST(ConversionLocaleTest, NumbersDoNotFollowTheGlobalStreamLocale)
{
    const std::locale before =
        std::locale::global(std::locale(std::locale::classic(), new ForeignNumbers));
    std::ostringstream probe;
    probe << 1234567.5;
    EXPECT_NE(probe.str().find(','), std::string::npos) << "the locale is in force";

    expectClassicNumbers();

    std::locale::global(before);
}

TEST(ConversionLocaleTest, ScanningLeavesTheThreadsLocaleAsItWas)
{
    const locale_t before = uselocale(LC_GLOBAL_LOCALE);
    string2int("1");
    string2longint("1");
    string2float("1");
    string2double("1");
    EXPECT_EQ(uselocale(before), LC_GLOBAL_LOCALE);
}

// The process in a locale with a decimal comma: one that is installed, else one that is made for
// these tests from the system's locale sources.
class DecimalCommaTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        if (!useCommaLocale())
            makeLocale();
    }

    static void TearDownTestSuite()
    {
        if (directory.empty())
            return;
        unsetenv("LOCPATH");
        std::filesystem::remove_all(directory);
        directory.clear();
    }

    void SetUp() override
    {
        if (!useCommaLocale())
            GTEST_SKIP() << "no locale with a decimal comma is installed, and none could be made";
    }

    void TearDown() override { std::setlocale(LC_ALL, "C"); }

private:
    static bool useCommaLocale()
    {
        for (const char* name : {"de_DE", "de_DE.utf8", "fr_FR.utf8", "nb_NO.utf8"}) {
            if (std::setlocale(LC_ALL, name) != nullptr &&
                std::string(std::localeconv()->decimal_point) == ",")
                return true;
        }
        std::setlocale(LC_ALL, "C");
        return false;
    }

    static void makeLocale()
    {
        std::string name =
            (std::filesystem::temp_directory_path() / "decimal-comma-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            return;
        directory = name;
        const std::string command =
            "localedef -i de_DE -f ISO-8859-1 '" + name + "/de_DE' >/dev/null 2>&1";
        if (std::system(command.c_str()) == 0)
            setenv("LOCPATH", name.c_str(), 1);
    }

    static std::filesystem::path directory; // of the locale made here, empty without one
};

std::filesystem::path DecimalCommaTest::directory;

TEST_F(DecimalCommaTest, NumbersDoNotFollowTheProcessLocale)
{
    char probe[16];
    std::snprintf(probe, sizeof probe, "%.1f", 1.5);
    EXPECT_STREQ(probe, "1,5") << "the locale is in force";

    expectClassicNumbers();
}

} // namespace
