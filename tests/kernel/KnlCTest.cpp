#include "knl.h"

#include "RunningModule.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

// ---------------------------------------------------------------------------- the typed families
//
// Everything that a family's functions have in common is tested for each of its functions. What a
// value type has is a table of functions; where values live is the fixture's.

template <typename T>
struct Functions;

template <>
struct Functions<int>
{
    static constexpr UniVarType scalarType = int32Type, arrayType = int32ArrayType;
    static constexpr int schemaType = 2;
    static constexpr auto getModule = knl_getI32ModuleParameter;
    static constexpr auto getGroup = knl_getI32GroupParameter;
    static constexpr auto getLibrary = knl_getI32LibraryParameter;
    static constexpr auto getTrace = knl_getI32TraceAttribute;
    static constexpr auto getModuleArray = knl_getI32ArrayModuleParameter;
    static constexpr auto getGroupArray = knl_getI32ArrayGroupParameter;
    static constexpr auto getLibraryArray = knl_getI32ArrayLibraryParameter;
    static constexpr auto getTraceArray = knl_getI32ArrayTraceAttribute;
    static constexpr auto setGroup = knl_setI32GroupParameter;
    static constexpr auto setLibrary = knl_setI32LibraryParameter;
    static constexpr auto setTrace = knl_setI32TraceAttribute;
    static constexpr auto setGroupArray = knl_setI32ArrayGroupParameter;
    static constexpr auto setLibraryArray = knl_setI32ArrayLibraryParameter;
    static constexpr auto setTraceArray = knl_setI32ArrayTraceAttribute;
};

template <>
struct Functions<int64_t>
{
    static constexpr UniVarType scalarType = int64Type, arrayType = int64ArrayType;
    static constexpr int schemaType = 3;
    static constexpr auto getModule = knl_getI64ModuleParameter;
    static constexpr auto getGroup = knl_getI64GroupParameter;
    static constexpr auto getLibrary = knl_getI64LibraryParameter;
    static constexpr auto getTrace = knl_getI64TraceAttribute;
    static constexpr auto getModuleArray = knl_getI64ArrayModuleParameter;
    static constexpr auto getGroupArray = knl_getI64ArrayGroupParameter;
    static constexpr auto getLibraryArray = knl_getI64ArrayLibraryParameter;
    static constexpr auto getTraceArray = knl_getI64ArrayTraceAttribute;
    static constexpr auto setGroup = knl_setI64GroupParameter;
    static constexpr auto setLibrary = knl_setI64LibraryParameter;
    static constexpr auto setTrace = knl_setI64TraceAttribute;
    static constexpr auto setGroupArray = knl_setI64ArrayGroupParameter;
    static constexpr auto setLibraryArray = knl_setI64ArrayLibraryParameter;
    static constexpr auto setTraceArray = knl_setI64ArrayTraceAttribute;
};

template <>
struct Functions<float>
{
    static constexpr UniVarType scalarType = float32Type, arrayType = float32ArrayType;
    static constexpr int schemaType = 4;
    static constexpr auto getModule = knl_getF32ModuleParameter;
    static constexpr auto getGroup = knl_getF32GroupParameter;
    static constexpr auto getLibrary = knl_getF32LibraryParameter;
    static constexpr auto getTrace = knl_getF32TraceAttribute;
    static constexpr auto getModuleArray = knl_getF32ArrayModuleParameter;
    static constexpr auto getGroupArray = knl_getF32ArrayGroupParameter;
    static constexpr auto getLibraryArray = knl_getF32ArrayLibraryParameter;
    static constexpr auto getTraceArray = knl_getF32ArrayTraceAttribute;
    static constexpr auto setGroup = knl_setF32GroupParameter;
    static constexpr auto setLibrary = knl_setF32LibraryParameter;
    static constexpr auto setTrace = knl_setF32TraceAttribute;
    static constexpr auto setGroupArray = knl_setF32ArrayGroupParameter;
    static constexpr auto setLibraryArray = knl_setF32ArrayLibraryParameter;
    static constexpr auto setTraceArray = knl_setF32ArrayTraceAttribute;
};

template <>
struct Functions<double>
{
    static constexpr UniVarType scalarType = float64Type, arrayType = float64ArrayType;
    static constexpr int schemaType = 5;
    static constexpr auto getModule = knl_getF64ModuleParameter;
    static constexpr auto getGroup = knl_getF64GroupParameter;
    static constexpr auto getLibrary = knl_getF64LibraryParameter;
    static constexpr auto getTrace = knl_getF64TraceAttribute;
    static constexpr auto getModuleArray = knl_getF64ArrayModuleParameter;
    static constexpr auto getGroupArray = knl_getF64ArrayGroupParameter;
    static constexpr auto getLibraryArray = knl_getF64ArrayLibraryParameter;
    static constexpr auto getTraceArray = knl_getF64ArrayTraceAttribute;
    static constexpr auto setGroup = knl_setF64GroupParameter;
    static constexpr auto setLibrary = knl_setF64LibraryParameter;
    static constexpr auto setTrace = knl_setF64TraceAttribute;
    static constexpr auto setGroupArray = knl_setF64ArrayGroupParameter;
    static constexpr auto setLibraryArray = knl_setF64ArrayLibraryParameter;
    static constexpr auto setTraceArray = knl_setF64ArrayTraceAttribute;
};

constexpr int row = 1;

template <typename T>
class KnlCTypedTest : public RunningModuleTest
{
protected:
    using Knl = Functions<T>;

    // One place where values live: how the job puts one there, and the functions for it.
    struct Place
    {
        const char* name;
        std::function<void(const UniVar&)> put;
        std::function<int(const char*, T*)> get;
        std::function<int(const char*, T**, int*)> getArray;
    };

    // Parameters take values of any type as they are; attributes have a type of their own.
    std::vector<Place> parameterPlaces()
    {
        return {{"module", [this](const UniVar& v) { module.setParameter("key", v); },
                 Knl::getModule, Knl::getModuleArray},
                {"group", [this](const UniVar& v) { group.setParameter("key", row, v); },
                 [this](const char* key, T* out) { return Knl::getGroup(&group, key, row, out); },
                 [this](const char* key, T** out, int* size) {
                     return Knl::getGroupArray(&group, key, row, out, size);
                 }},
                {"library", [this](const UniVar& v) { library.setParameter("key", v); },
                 [this](const char* key, T* out) { return Knl::getLibrary(&library, key, out); },
                 [this](const char* key, T** out, int* size) {
                     return Knl::getLibraryArray(&library, key, out, size);
                 }}};
    }

    std::vector<Place> places()
    {
        std::vector<Place> all = parameterPlaces();
        all.push_back(
            {"trace", [this](const UniVar& v) { traceSet.setAttribute("key", v, 0); },
             [this](const char* key, T* out) { return Knl::getTrace(&traceSet, key, out); },
             [this](const char* key, T** out, int* size) {
                 return Knl::getTraceArray(&traceSet, key, out, size);
             }});
        return all;
    }
};

using NumberTypes = testing::Types<int, int64_t, float, double>;
TYPED_TEST_SUITE(KnlCTypedTest, NumberTypes);

TYPED_TEST(KnlCTypedTest, GetterReturnsOneAndTheValue)
{
    this->define("key", Functions<TypeParam>::schemaType, 1);
    for (const auto& place : this->places()) {
        place.put(UniVar(TypeParam(42)));
        TypeParam value = 99;
        EXPECT_EQ(place.get("key", &value), 1) << place.name;
        EXPECT_EQ(value, TypeParam(42)) << place.name;
    }
}

TYPED_TEST(KnlCTypedTest, GetterOfAnAbsentNameReturnsZeroAndLeavesTheOutput)
{
    for (const auto& place : this->places()) {
        TypeParam value = 99;
        EXPECT_EQ(place.get("none", &value), 0) << place.name;
        EXPECT_EQ(value, TypeParam(99)) << place.name;
        EXPECT_EQ(place.get("none", &value), 0) << place.name << ": asking makes nothing";
    }
}

TYPED_TEST(KnlCTypedTest, GetterConvertsNumbersAndText)
{
    for (const auto& place : this->parameterPlaces()) {
        TypeParam value = 99;
        for (const UniVar& stored : {UniVar(-7), UniVar(int64_t{-7}), UniVar(-7.0F), UniVar(-7.0),
                                     UniVar("-7"), UniVar(" -7 ms")})
        {
            place.put(stored);
            value = 99;
            EXPECT_EQ(place.get("key", &value), 1) << place.name << stored.getStrType();
            EXPECT_EQ(value, TypeParam(-7)) << place.name << stored.getStrType();
        }
    }
}

TYPED_TEST(KnlCTypedTest, WhatIsNoNumberArrivesAsZeroWithSuccess)
{
    const int elements[] = {1, 2};
    for (const auto& place : this->parameterPlaces()) {
        for (const UniVar& stored :
             {UniVar(), UniVar(&this->library), UniVar(&this->group), UniVar(elements, 2),
              UniVar("abc"), UniVar(static_cast<void*>(&this->group))})
        {
            place.put(stored);
            TypeParam value = 99;
            EXPECT_EQ(place.get("key", &value), 1) << place.name << stored.getStrType();
            EXPECT_EQ(value, TypeParam(0)) << place.name << stored.getStrType();
        }
    }
}

TYPED_TEST(KnlCTypedTest, AttributeOfAnotherTypeIsConverted)
{
    this->define("i32", 2, 1);
    this->define("f64", 5, 1);
    this->traceSet.setAttribute("i32", UniVar(7), 0);
    this->traceSet.setAttribute("f64", UniVar(7.0), 0);
    for (const char* key : {"i32", "f64"}) {
        TypeParam value = 99;
        EXPECT_EQ(Functions<TypeParam>::getTrace(&this->traceSet, key, &value), 1) << key;
        EXPECT_EQ(value, TypeParam(7)) << key;
    }
}

TYPED_TEST(KnlCTypedTest, AttributeThatWasNeverWrittenArrivesAsZeroWithSuccess)
{
    using F = Functions<TypeParam>;
    this->traceSet.setNumberOfTraces(1);
    this->define("key", F::schemaType, 1);
    ASSERT_EQ(knl_defineTraceAttribute(&this->traceSet, "key"), 1);
    TypeParam value = 99;
    EXPECT_EQ(F::getTrace(&this->traceSet, "key", &value), 1);
    EXPECT_EQ(value, TypeParam(0));

    this->define("array", F::schemaType, 2);
    ASSERT_EQ(knl_defineTraceAttribute(&this->traceSet, "array"), 1);
    TypeParam* elements = &value;
    int size = 99;
    EXPECT_EQ(F::getTraceArray(&this->traceSet, "array", &elements, &size), 1);
    EXPECT_EQ(elements, nullptr);
    EXPECT_EQ(size, 0);
}

TYPED_TEST(KnlCTypedTest, ArrayGetterPointsAtTheElements)
{
    this->define("key", Functions<TypeParam>::schemaType, 3);
    const TypeParam stored[] = {1, 2, 3};
    for (const auto& place : this->places()) {
        place.put(UniVar(stored, 3));
        TypeParam* elements = nullptr;
        int size = 99;
        EXPECT_EQ(place.getArray("key", &elements, &size), 1) << place.name;
        ASSERT_NE(elements, nullptr) << place.name;
        ASSERT_EQ(size, 3) << place.name;
        EXPECT_TRUE(std::equal(stored, stored + 3, elements)) << place.name;
    }
}

TYPED_TEST(KnlCTypedTest, ArrayGetterOfAnAbsentNameReturnsZeroAndLeavesBothOutputs)
{
    TypeParam mark = 0;
    for (const auto& place : this->places()) {
        TypeParam* elements = &mark;
        int size = 99;
        EXPECT_EQ(place.getArray("none", &elements, &size), 0) << place.name;
        EXPECT_EQ(elements, &mark) << place.name;
        EXPECT_EQ(size, 99) << place.name;
    }
}

TYPED_TEST(KnlCTypedTest, ArrayGetterOfAnotherTypeGivesNullAndTheValuesSize)
{
    const int ints[] = {1, 2};
    const double doubles[] = {1, 2};
    const bool wantsInts = std::is_same_v<TypeParam, int>;
    TypeParam mark = 0;
    for (const auto& place : this->parameterPlaces()) {
        place.put(wantsInts ? UniVar(doubles, 2) : UniVar(ints, 2));
        TypeParam* elements = &mark;
        int size = 99;
        EXPECT_EQ(place.getArray("key", &elements, &size), 1) << place.name;
        EXPECT_EQ(elements, nullptr) << place.name;
        EXPECT_EQ(size, 2) << place.name;

        place.put(UniVar(TypeParam(5)));
        elements = &mark;
        EXPECT_EQ(place.getArray("key", &elements, &size), 1) << place.name << ", scalar";
        EXPECT_EQ(elements, nullptr) << place.name << ", scalar";
    }
}

TYPED_TEST(KnlCTypedTest, AnEmptyArrayHasNoElements)
{
    const TypeParam none[1] = {};
    for (const auto& place : this->parameterPlaces()) {
        place.put(UniVar(none, 0));
        TypeParam* elements = nullptr;
        int size = 99;
        EXPECT_EQ(place.getArray("key", &elements, &size), 1) << place.name;
        EXPECT_EQ(size, 0) << place.name;
    }
}

TYPED_TEST(KnlCTypedTest, ArraysStayAsTheyWereWhenTheirParameterChanges)
{
    const TypeParam first[] = {1, 2}, second[] = {3, 4};
    for (const auto& place : this->parameterPlaces()) {
        place.put(UniVar(first, 2));
        TypeParam* before = nullptr;
        int size = 0;
        place.getArray("key", &before, &size);
        place.put(UniVar(second, 2));
        TypeParam* after = nullptr;
        place.getArray("key", &after, &size);
        EXPECT_EQ(before[0], TypeParam(1)) << place.name;
        EXPECT_EQ(after[0], TypeParam(3)) << place.name;
    }
}

TYPED_TEST(KnlCTypedTest, SetterStoresAValueOfItsOwnType)
{
    using F = Functions<TypeParam>;
    EXPECT_EQ(F::setGroup(&this->group, "key", row, TypeParam(42)), 1);
    EXPECT_EQ(F::setLibrary(&this->library, "key", TypeParam(43)), 1);
    this->define("key", F::schemaType, 1);
    EXPECT_EQ(F::setTrace(&this->traceSet, "key", TypeParam(44)), 1);

    EXPECT_EQ(this->group.getParameter("key", row).getType(), F::scalarType);
    EXPECT_EQ(this->group.getParameter("key", row).getF64Value(), 42);
    EXPECT_EQ(this->library.getParameter("key").getType(), F::scalarType);
    EXPECT_EQ(this->library.getParameter("key").getF64Value(), 43);
    EXPECT_EQ(this->traceSet.getAttribute("key", 0).getType(), F::scalarType);
    EXPECT_EQ(this->traceSet.getAttribute("key", 0).getF64Value(), 44);
    EXPECT_EQ(this->traceSet.getNumberOfTraces(), 1);
}

TYPED_TEST(KnlCTypedTest, ArraySetterStoresACopy)
{
    using F = Functions<TypeParam>;
    TypeParam array[] = {1, 2, 3};
    this->define("key", F::schemaType, 3);
    EXPECT_EQ(F::setGroupArray(&this->group, "key", row, array, 3), 1);
    EXPECT_EQ(F::setLibraryArray(&this->library, "key", array, 3), 1);
    EXPECT_EQ(F::setTraceArray(&this->traceSet, "key", array, 3), 1);
    array[0] = 99;

    for (const UniVar& stored :
         {this->group.getParameter("key", row), this->library.getParameter("key"),
          this->traceSet.getAttribute("key", 0)})
    {
        EXPECT_EQ(stored.getType(), F::arrayType);
        EXPECT_EQ(stored.getArraySize(), 3);
    }
    TypeParam* elements = nullptr;
    int size = 0;
    F::getGroupArray(&this->group, "key", row, &elements, &size);
    EXPECT_EQ(elements[0], TypeParam(1));
    F::getLibraryArray(&this->library, "key", &elements, &size);
    EXPECT_EQ(elements[0], TypeParam(1));
    F::getTraceArray(&this->traceSet, "key", &elements, &size);
    EXPECT_EQ(elements[0], TypeParam(1));
}

TYPED_TEST(KnlCTypedTest, NullHandlesFindNothingAndRefuseEverything)
{
    using F = Functions<TypeParam>;
    TypeParam value = 99;
    TypeParam* elements = &value;
    int size = 99;
    EXPECT_EQ(F::getGroup(nullptr, "key", 0, &value), 0);
    EXPECT_EQ(F::getLibrary(nullptr, "key", &value), 0);
    EXPECT_EQ(F::getTrace(nullptr, "key", &value), 0);
    EXPECT_EQ(F::getGroupArray(nullptr, "key", 0, &elements, &size), 0);
    EXPECT_EQ(F::getLibraryArray(nullptr, "key", &elements, &size), 0);
    EXPECT_EQ(F::getTraceArray(nullptr, "key", &elements, &size), 0);
    EXPECT_EQ(F::setGroup(nullptr, "key", 0, value), 0);
    EXPECT_EQ(F::setLibrary(nullptr, "key", value), 0);
    EXPECT_EQ(F::setTrace(nullptr, "key", value), 0);
    EXPECT_EQ(F::setGroupArray(nullptr, "key", 0, &value, 1), 0);
    EXPECT_EQ(F::setLibraryArray(nullptr, "key", &value, 1), 0);
    EXPECT_EQ(F::setTraceArray(nullptr, "key", &value, 1), 0);
    EXPECT_EQ(value, TypeParam(99));
    EXPECT_EQ(elements, &value);
    EXPECT_EQ(size, 99);
}

TYPED_TEST(KnlCTypedTest, WithoutARunningModuleParametersAreAbsent)
{
    this->module.setParameter("key", UniVar(TypeParam(42)));
    this->run(nullptr);
    TypeParam value = 99;
    TypeParam* elements = &value;
    int size = 99;
    EXPECT_EQ(Functions<TypeParam>::getModule("key", &value), 0);
    EXPECT_EQ(Functions<TypeParam>::getModuleArray("key", &elements, &size), 0);
    EXPECT_EQ(value, TypeParam(99));
    EXPECT_EQ(size, 99);
}

// ----------------------------------------------------------------------------- texts and handles

class KnlCTest : public RunningModuleTest
{
protected:
    struct TextPlace
    {
        const char* name;
        std::function<void(const UniVar&)> put;
        std::function<int(const char*, char*)> get;
    };
    std::vector<TextPlace> textPlaces()
    {
        return {{"module", [this](const UniVar& v) { module.setParameter("key", v); },
                 knl_getStrModuleParameter},
                {"group", [this](const UniVar& v) { group.setParameter("key", row, v); },
                 [this](const char* key, char* out) {
                     return knl_getStrGroupParameter(&group, key, row, out);
                 }},
                {"library", [this](const UniVar& v) { library.setParameter("key", v); },
                 [this](const char* key, char* out) {
                     return knl_getStrLibraryParameter(&library, key, out);
                 }},
                {"trace", [this](const UniVar& v) { traceSet.setAttribute("key", v, 0); },
                 [this](const char* key, char* out) {
                     return knl_getStrTraceAttribute(&traceSet, key, out);
                 }}};
    }

    struct HandlePlace
    {
        const char* name;
        std::function<void(const UniVar&)> put;
        std::function<int(const char*, void**)> getLibrary;
        std::function<int(const char*, void**)> getGroup;
    };
    std::vector<HandlePlace> handlePlaces()
    {
        return {{"module", [this](const UniVar& v) { module.setParameter("key", v); },
                 knl_getLibModuleParameter, knl_getGroupModuleParameter},
                {"group", [this](const UniVar& v) { group.setParameter("key", row, v); },
                 [this](const char* key, void** out) {
                     return knl_getLibGroupParameter(&group, key, row, out);
                 },
                 [this](const char* key, void** out) {
                     return knl_getGrpGroupParameter(&group, key, row, out);
                 }},
                {"library", [this](const UniVar& v) { library.setParameter("key", v); },
                 [this](const char* key, void** out) {
                     return knl_getLibLibraryParameter(&library, key, out);
                 },
                 [this](const char* key, void** out) {
                     return knl_getGroupLibraryParameter(&library, key, out);
                 }}};
    }
};

TEST_F(KnlCTest, TextGetterCopiesTheWholeText)
{
    define("key", 10, 1);
    const std::string text(60, 't');
    for (const auto& place : textPlaces()) {
        place.put(UniVar(text));
        char value[64];
        std::memset(value, 'x', sizeof value);
        EXPECT_EQ(place.get("key", value), 1) << place.name;
        EXPECT_EQ(value, text) << place.name;
        EXPECT_EQ(value[61], 'x') << place.name << ": nothing behind the NUL";
    }
}

TEST_F(KnlCTest, BoundedTextGetterCutsTheTextAndTellsItsLength)
{
    module.setParameter("key", UniVar("some text"));
    const struct
    {
        int room;
        std::string copied; // with what the buffer held behind it
    } rows[] = {{-1, "xxxxxxxxxxx"},
                {0, "xxxxxxxxxxx"},
                {1, std::string("\0xxxxxxxxxx", 11)},
                {5, std::string("some\0xxxxxx", 11)},
                {9, std::string("some tex\0xx", 11)},
                {10, std::string("some text\0x", 11)},
                {11, std::string("some text\0x", 11)}};
    for (const auto& one : rows) {
        char value[11];
        std::memset(value, 'x', sizeof value);
        EXPECT_EQ(knl_getStrModuleParameterN("key", value, one.room), 9) << one.room;
        EXPECT_EQ(std::string(value, sizeof value), one.copied) << one.room;
    }
    EXPECT_EQ(knl_getStrModuleParameterN("key", nullptr, 0), 9);
}

TEST_F(KnlCTest, BoundedTextGetterOfAnAbsentNameReturnsMinusOneAndLeavesTheOutput)
{
    char value[8] = "before";
    EXPECT_EQ(knl_getStrModuleParameterN("none", value, sizeof value), -1);
    EXPECT_STREQ(value, "before");
    run(nullptr);
    EXPECT_EQ(knl_getStrModuleParameterN("key", value, sizeof value), -1);
}

TEST_F(KnlCTest, TextGetterRendersNumbersAndArrays)
{
    const int elements[] = {1, 2, 3};
    module.setParameter("i", UniVar(-5));
    module.setParameter("f", UniVar(0.5F));
    module.setParameter("a", UniVar(elements, 3));
    module.setParameter("u", UniVar());
    module.setParameter("l", UniVar(&library));
    const std::pair<const char*, const char*> rows[] = {
        {"i", "-5"}, {"f", "0.500000"}, {"a", "[1,2,3]"}, {"u", ""}, {"l", "-/-"}};
    for (const auto& [key, text] : rows) {
        char value[16] = "before";
        EXPECT_EQ(knl_getStrModuleParameter(key, value), 1) << key;
        EXPECT_STREQ(value, text) << key;
    }
}

TEST_F(KnlCTest, TextGetterOfAnAbsentNameReturnsZeroAndLeavesTheOutput)
{
    for (const auto& place : textPlaces()) {
        char value[8] = "before";
        EXPECT_EQ(place.get("none", value), 0) << place.name;
        EXPECT_STREQ(value, "before") << place.name;
    }
}

TEST_F(KnlCTest, TextSettersStoreText)
{
    define("key", 9, 1);
    char text[] = "line 7";
    EXPECT_EQ(knl_setStringGroupParameter(&group, "key", row, text), 1);
    EXPECT_EQ(knl_setStringLibraryParameter(&library, "key", text), 1);
    EXPECT_EQ(knl_setStrTraceAttribute(&traceSet, "key", text), 1);
    std::strcpy(text, "xxxxxx");
    EXPECT_EQ(group.getParameter("key", row).getType(), strType);
    EXPECT_EQ(group.getParameter("key", row).getStrValue(), "line 7");
    EXPECT_EQ(library.getParameter("key").getStrValue(), "line 7");
    EXPECT_EQ(traceSet.getAttribute("key", 0).getStrValue(), "line 7");
}

TEST_F(KnlCTest, ANullTextIsStoredAsTheEmptyOne)
{
    EXPECT_EQ(knl_setStringLibraryParameter(&library, "key", nullptr), 1);
    EXPECT_EQ(library.getParameter("key").getType(), strType);
    EXPECT_EQ(library.getParameter("key").getStrValue(), "");
}

TEST_F(KnlCTest, TextsOnNullHandlesAreAbsentOrRefused)
{
    char value[8] = "before";
    EXPECT_EQ(knl_getStrGroupParameter(nullptr, "key", 0, value), 0);
    EXPECT_EQ(knl_getStrLibraryParameter(nullptr, "key", value), 0);
    EXPECT_EQ(knl_getStrTraceAttribute(nullptr, "key", value), 0);
    EXPECT_STREQ(value, "before");
    EXPECT_EQ(knl_setStringGroupParameter(nullptr, "key", 0, "text"), 0);
    EXPECT_EQ(knl_setStringLibraryParameter(nullptr, "key", "text"), 0);
    EXPECT_EQ(knl_setStrTraceAttribute(nullptr, "key", "text"), 0);
}

TEST_F(KnlCTest, HandleGettersGiveTheHandle)
{
    for (const auto& place : handlePlaces()) {
        void* handle = nullptr;
        place.put(UniVar(&library));
        EXPECT_EQ(place.getLibrary("key", &handle), 1) << place.name;
        EXPECT_EQ(handle, &library) << place.name;

        handle = nullptr;
        place.put(UniVar(&group));
        EXPECT_EQ(place.getGroup("key", &handle), 1) << place.name;
        EXPECT_EQ(handle, &group) << place.name;
    }
}

TEST_F(KnlCTest, WhatIsNoHandleArrivesAsNullWithSuccess)
{
    for (const auto& place : handlePlaces()) {
        void* handle = &library;
        place.put(UniVar(&group));
        EXPECT_EQ(place.getLibrary("key", &handle), 1) << place.name;
        EXPECT_EQ(handle, nullptr) << place.name;

        handle = &library;
        place.put(UniVar(5));
        EXPECT_EQ(place.getGroup("key", &handle), 1) << place.name;
        EXPECT_EQ(handle, nullptr) << place.name;
    }
}

TEST_F(KnlCTest, HandleGettersOfAnAbsentNameReturnZeroAndLeaveTheOutput)
{
    for (const auto& place : handlePlaces()) {
        void* handle = &library;
        EXPECT_EQ(place.getLibrary("none", &handle), 0) << place.name;
        EXPECT_EQ(place.getGroup("none", &handle), 0) << place.name;
        EXPECT_EQ(handle, &library) << place.name;
    }
}

// ------------------------------------------------------------------------- how long arrays live

// An entry point that fetches many arrays and looks at all of them at its end.
int fetchManyArrays()
{
    int* first[1000];
    for (int*& elements : first) {
        int size = 0;
        if (knl_getI32ArrayModuleParameter("key", &elements, &size) != 1 || size != 3)
            return 1;
    }
    for (const int* elements : first) {
        if (elements[0] != 1 || elements[2] != 3)
            return 1;
    }
    knl_addI32MessageArgument(static_cast<int>(JobManager::getInstance()->keptValues.size()));
    return 0;
}

ModuleEntity* inner = nullptr;

int keepAnArray()
{
    int* elements = nullptr;
    int size = 0;
    return knl_getI32ArrayModuleParameter("key", &elements, &size) == 1 ? 0 : 1;
}

int runAnotherMeanwhile()
{
    int* elements = nullptr;
    int size = 0;
    if (knl_getI32ArrayModuleParameter("key", &elements, &size) != 1 || size != 1000)
        return 1;
    ModuleEntity* outer = JobManager::getInstance()->getActiveModule();
    inner->preProcessModule();
    JobManager::getInstance()->setActiveModule(outer);
    std::vector<int> other(1000, 7); // where freed memory would be taken again
    knl_addI32MessageArgument(static_cast<int>(std::count(elements, elements + size, 42)));
    return other[0] == 7 ? 0 : 1;
}

// A host may do so from within a call-back.
TEST_F(KnlCTest, ArraysOfAnEntryPointOutliveAnotherOneWithinIt)
{
    const std::vector<int> elements(1000, 42);
    ModuleEntity second("second");
    inner = &second;
    second.preProcessFunction = keepAnArray;
    second.setParameter("key", UniVar(elements.data(), 1000));
    module.setParameter("key", UniVar(elements.data(), 1000));
    module.preProcessFunction = runAnotherMeanwhile;
    EXPECT_EQ(module.preProcessModule(), 0);
    EXPECT_EQ(arguments, (std::vector<std::string>{"1000"}));
    EXPECT_TRUE(job().keptValues.empty());
}

int keepAndThrow()
{
    keepAnArray();
    throw std::runtime_error("thrown");
}

TEST_F(KnlCTest, ArraysOfAnEntryPointThatThrowsAreDroppedToo)
{
    const int elements[] = {1, 2, 3};
    module.setParameter("key", UniVar(elements, 3));
    module.preProcessFunction = keepAndThrow;
    EXPECT_THROW(module.preProcessModule(), std::runtime_error);
    EXPECT_TRUE(job().keptValues.empty());
}

TEST_F(KnlCTest, MapsThatAHostExchangesAreReadAsTheyAreThen)
{
    module.setParameter("key", UniVar(1));
    module.setResource("key", UniVar(1));
    job().setActiveModule(&module);
    const auto parameter = [] {
        int value = -1;
        return knl_getI32ModuleParameter("key", &value) == 1 ? value : -1;
    };
    ASSERT_EQ(parameter(), 1);

    std::map<std::string, UniVar> other = {{"key", UniVar(2)}};
    module.moduleParameters.swap(other);
    EXPECT_EQ(parameter(), 2);

    other = {{"another", UniVar(3)}};
    module.moduleParameters.swap(other);
    EXPECT_EQ(parameter(), -1);

    module.moduleParameters = {{"key", UniVar(4)}};
    EXPECT_EQ(parameter(), 4);
    module.moduleParameters.clear();
    module.moduleParameters["key"] = UniVar(5);
    EXPECT_EQ(parameter(), 5);
    module.moduleParameters.erase("key");
    module.moduleParameters["kez"] = UniVar(6);
    EXPECT_EQ(parameter(), -1);
    job().setActiveModule(nullptr);
}

TEST_F(KnlCTest, ArraysLiveUntilTheEntryPointReturnsAndNoLonger)
{
    const int elements[] = {1, 2, 3};
    module.setParameter("key", UniVar(elements, 3));
    module.preProcessFunction = fetchManyArrays;
    for (int call = 0; call < 3; ++call) {
        EXPECT_EQ(module.preProcessModule(), 0);
        EXPECT_TRUE(job().keptValues.empty());
    }
    EXPECT_EQ(arguments, (std::vector<std::string>{"1000", "1000", "1000"}));
}

// ---------------------------------------------------------------------------- groups and libraries

TEST_F(KnlCTest, GroupSizeCountsRows)
{
    EXPECT_EQ(knl_getGroupParameterSize(&group), 0);
    EXPECT_EQ(knl_setI32GroupParameter(&group, "key", 2, 1), 1);
    EXPECT_EQ(knl_getGroupParameterSize(&group), 3);
    EXPECT_EQ(knl_getGroupParameterSize(nullptr), 0);
}

TEST_F(KnlCTest, RowsThatDoNotExistHoldNothingAndAreNotMadeByAsking)
{
    knl_setI32GroupParameter(&group, "key", 0, 1);
    int value = 99;
    EXPECT_EQ(knl_getI32GroupParameter(&group, "key", 1, &value), 0);
    EXPECT_EQ(knl_getI32GroupParameter(&group, "key", -1, &value), 0);
    EXPECT_EQ(value, 99);
    EXPECT_EQ(knl_getGroupParameterSize(&group), 1);
    EXPECT_EQ(knl_setI32GroupParameter(&group, "key", -1, 1), 0);
}

TEST_F(KnlCTest, GroupIsMadeOnceForItsNameAndRow)
{
    void* made = nullptr;
    EXPECT_EQ(knl_setGrpGroupParameter(&group, "layers", row, &made), 1);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(knl_getGroupParameterSize(made), 0) << "without rows";
    EXPECT_EQ(group.getParameter("layers", row).getGroupValue(), made);

    void* again = nullptr;
    EXPECT_EQ(knl_setGrpGroupParameter(&group, "layers", row, &again), 1);
    EXPECT_EQ(again, made);

    void* elsewhere = nullptr;
    EXPECT_EQ(knl_setGrpGroupParameter(&group, "layers", row + 1, &elsewhere), 1);
    EXPECT_NE(elsewhere, made);
    delete static_cast<GroupEntity*>(made);
    delete static_cast<GroupEntity*>(elsewhere);
}

TEST_F(KnlCTest, GroupIsMadeOnceForItsNameInALibrary)
{
    void* made = nullptr;
    EXPECT_EQ(knl_setGrpLibraryParameter(&library, "layers", &made), 1);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(knl_getGroupParameterSize(made), 0);
    EXPECT_EQ(library.getParameter("layers").getGroupValue(), made);

    void* again = nullptr;
    EXPECT_EQ(knl_setGrpLibraryParameter(&library, "layers", &again), 1);
    EXPECT_EQ(again, made);
    delete static_cast<GroupEntity*>(made);
}

TEST_F(KnlCTest, ParameterThatIsNoGroupIsLeftAndGivesANullHandle)
{
    library.setParameter("layers", UniVar(5));
    group.setParameter("layers", row, UniVar(5));
    void* handle = &library;
    EXPECT_EQ(knl_setGrpLibraryParameter(&library, "layers", &handle), 1);
    EXPECT_EQ(handle, nullptr);
    handle = &library;
    EXPECT_EQ(knl_setGrpGroupParameter(&group, "layers", row, &handle), 1);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(library.getParameter("layers").getI32Value(), 5);
}

TEST_F(KnlCTest, NoGroupIsMadeWhereItCannotBeStored)
{
    void* handle = &library;
    EXPECT_EQ(knl_setGrpGroupParameter(nullptr, "layers", 0, &handle), 0);
    EXPECT_EQ(knl_setGrpGroupParameter(&group, "layers", -1, &handle), 0);
    EXPECT_EQ(knl_setGrpLibraryParameter(nullptr, "layers", &handle), 0);
    EXPECT_EQ(handle, &library);
}

TEST_F(KnlCTest, LibraryKind)
{
    EXPECT_EQ(knl_getLibraryType(&library), 12);
    library.libraryType = "hz";
    EXPECT_EQ(knl_getLibraryType(&library), -1);
    EXPECT_EQ(knl_getLibraryType(nullptr), -1);
}

// ------------------------------------------------------------------------------ attributes, schema

TEST_F(KnlCTest, DefiningAnAttribute)
{
    EXPECT_EQ(knl_defineTraceAttribute(&traceSet, "CDP"), 1);
    EXPECT_EQ(knl_defineTraceAttribute(&traceSet, "CDP"), 1);
    EXPECT_TRUE(traceSet.isAttributePresent("CDP", 0));
    EXPECT_EQ(knl_defineTraceAttribute(nullptr, "CDP"), 0);
}

TEST_F(KnlCTest, AttributesAreThoseOfTraceZero)
{
    traceSet.setAttribute("CDP", UniVar(5), 0);
    traceSet.setAttribute("CDP", UniVar(6), 1);
    int value = 0;
    EXPECT_EQ(knl_getI32TraceAttribute(&traceSet, "CDP", &value), 1);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(knl_setI32TraceAttribute(&traceSet, "CDP", 7), 1);
    EXPECT_EQ(traceSet.getAttribute("CDP", 0).getI32Value(), 7);
    EXPECT_EQ(traceSet.getAttribute("CDP", 1).getI32Value(), 6);
}

TEST_F(KnlCTest, SchemaQueriesReturnZeroForAValueAndOneBelowIt)
{
    define("CDP", 5, 3);
    define("zero", 2, 0);
    int type = 99, dimension = 99;
    EXPECT_EQ(knl_getTraceAttributeType("CDP", &type), 0);
    EXPECT_EQ(knl_getTraceAttributeDimension("CDP", &dimension), 0);
    EXPECT_EQ(type, 5);
    EXPECT_EQ(dimension, 3);

    EXPECT_EQ(knl_getTraceAttributeDimension("zero", &dimension), 1);
    EXPECT_EQ(dimension, 0) << "written in both cases";

    EXPECT_EQ(knl_getTraceAttributeType("none", &type), 1);
    EXPECT_EQ(knl_getTraceAttributeDimension("none", &dimension), 1);
    EXPECT_EQ(type, -1);
    EXPECT_EQ(dimension, -1);
}

TEST_F(KnlCTest, DescriptionIsCopiedAndTheResultIsZero)
{
    const std::string description(300, 'd');
    job().addTraceAttributeDefinition("CDP", 2, 1, description, 0, 0, 0, 0, 0);
    char text[400] = "before";
    EXPECT_EQ(knl_getTraceAttributeDescription("CDP", text), 0);
    EXPECT_EQ(text, description);
    EXPECT_EQ(knl_getTraceAttributeDescription("none", text), 0);
    EXPECT_STREQ(text, "");
}

// ------------------------------------------------------------------ resources, memory and files

TEST_F(KnlCTest, ResourceIsTheAddressThatWasKept)
{
    int state = 0;
    EXPECT_EQ(knl_setModuleResource("state", &state), 1);
    void* address = nullptr;
    EXPECT_EQ(knl_getModuleResource("state", &address), 1);
    EXPECT_EQ(address, &state);
    EXPECT_EQ(module.getResource("state").getType(), pointerType);
    EXPECT_EQ(module.getResource("state").getArraySize(), 0);
}

TEST_F(KnlCTest, ResourceThatIsAbsentOrNoAddress)
{
    int state = 0;
    void* address = &state;
    EXPECT_EQ(knl_getModuleResource("none", &address), 0);
    EXPECT_EQ(address, &state);

    module.setResource("number", UniVar(5));
    EXPECT_EQ(knl_getModuleResource("number", &address), 1);
    EXPECT_EQ(address, nullptr);
}

TEST_F(KnlCTest, ResourcesNeedARunningModule)
{
    int state = 0;
    void* address = &state;
    run(nullptr);
    EXPECT_EQ(knl_setModuleResource("state", &state), 0);
    EXPECT_EQ(knl_getModuleResource("state", &address), 0);
    EXPECT_EQ(address, &state);
}

TEST_F(KnlCTest, MemoryIsZeroAndChargedToTheModule)
{
    auto* block = static_cast<unsigned char*>(knl_allocateResource(64));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[0], 0);
    EXPECT_EQ(block[63], 0);
    EXPECT_EQ(module.getTotalModuleMemoryUsed(), 64);
    EXPECT_EQ(knl_freeResource(block), 0);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_EQ(knl_freeResource(nullptr), 0);
}

TEST_F(KnlCTest, MemoryThatCannotBeHadIsNullWithTheKernelsMessage)
{
    EXPECT_EQ(knl_allocateResource(-1), nullptr);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].type, 4);
    EXPECT_EQ(messages[0].text, "Can not allocate -1 byte memory block");
}

TEST_F(KnlCTest, FilesAreCreatedWrittenOpenedAndRead)
{
    const std::string path = pathOf("a");
    int handle = -99;
    knl_fileCreate(path.c_str(), &handle);
    ASSERT_GE(handle, 0);
    EXPECT_EQ(write(handle, "abc", 3), 3);
    knl_fileClose(handle);
    EXPECT_EQ(fcntl(handle, F_GETFD), -1);

    handle = -99;
    knl_fileOpen(path.c_str(), &handle);
    ASSERT_GE(handle, 0);
    char content[4] = {};
    EXPECT_EQ(read(handle, content, 4), 3);
    EXPECT_STREQ(content, "abc");
    knl_fileClose(handle);
}

TEST_F(KnlCTest, FilesThatCannotBeOpenedGiveMinusOne)
{
    int handle = 99;
    knl_fileOpen(pathOf("none").c_str(), &handle);
    EXPECT_EQ(handle, -1);
    handle = 99;
    knl_fileCreate(pathOf("none/a").c_str(), &handle);
    EXPECT_EQ(handle, -1);
}

// -------------------------------------------------------------------- buffers and trace sets

class KnlCBuffersTest : public RunningModuleTest
{
protected:
    KnlCBuffersTest()
    {
        module.setInputDataChannel(&input, 0);
        module.setOutputDataChannel(&output, 0);
    }

    WithTraces<DataChannel> input;
    WithTraces<DataChannel> output;
};

TEST_F(KnlCBuffersTest, BufferLookUpsReturnZeroAndTheHandle)
{
    void* handle = nullptr;
    EXPECT_EQ(knl_getInputTraceBuffer(&handle, 0), 0);
    EXPECT_EQ(handle, static_cast<SeisTraceSet*>(&input));
    EXPECT_EQ(knl_getOutputTraceBuffer(&handle, 0), 0);
    EXPECT_EQ(handle, static_cast<SeisTraceSet*>(&output));
    EXPECT_EQ(knl_getWorkTraceBuffer(&handle, 1), 0);
    EXPECT_EQ(handle, module.getWorkTraceBuffer(1));
    EXPECT_EQ(module.getNumberOfWorkTraceBuffers(), 2);
}

TEST_F(KnlCBuffersTest, BufferLookUpsThatFailReturnOneAndNull)
{
    for (int number : {-1, 1}) {
        void* handle = this;
        EXPECT_EQ(knl_getInputTraceBuffer(&handle, number), 1) << number;
        EXPECT_EQ(handle, nullptr) << number;
        handle = this;
        EXPECT_EQ(knl_getOutputTraceBuffer(&handle, number), 1) << number;
        EXPECT_EQ(handle, nullptr) << number;
    }
    void* handle = this;
    EXPECT_EQ(knl_getWorkTraceBuffer(&handle, -1), 1);
    EXPECT_EQ(handle, nullptr);
    run(nullptr);
    handle = this;
    EXPECT_EQ(knl_getWorkTraceBuffer(&handle, 0), 1);
    EXPECT_EQ(handle, nullptr);
}

TEST_F(KnlCBuffersTest, BuildingReturnsZeroAndConfiguresTheBuffer)
{
    input.defineAttribute("CDP");
    EXPECT_EQ(knl_bldOutputTraceBuffer(0, 100, 4000, static_cast<SeisTraceSet*>(&input)), 0);
    EXPECT_EQ(output.getTraceLength(), 100);
    EXPECT_EQ(output.getTraceSampleInterval(), 4000);
    EXPECT_TRUE(output.isAttributePresent("CDP", 0));

    EXPECT_EQ(knl_bldWorkTraceBuffer(0, 50, 2000, 10, nullptr), 0);
    EXPECT_EQ(module.getWorkTraceBuffer(0)->getTraceLength(), 50);
    EXPECT_EQ(module.getWorkTraceBuffer(0)->getNumberOfTraces(), 0);
    EXPECT_FALSE(module.getWorkTraceBuffer(0)->isAttributePresent("CDP", 0));
}

TEST_F(KnlCBuffersTest, BuildingWhatDoesNotExistReturnsOne)
{
    EXPECT_EQ(knl_bldOutputTraceBuffer(1, 100, 4000, nullptr), 1);
    EXPECT_EQ(knl_bldWorkTraceBuffer(-1, 100, 4000, 0, nullptr), 1);
    run(nullptr);
    EXPECT_EQ(knl_bldOutputTraceBuffer(0, 100, 4000, nullptr), 1);
    EXPECT_EQ(knl_bldWorkTraceBuffer(0, 100, 4000, 0, nullptr), 1);
    EXPECT_EQ(output.getTraceLength(), 0);
}

TEST_F(KnlCTest, SampleGetterReturnsOneUnlikeTheBufferLookUps)
{
    knl_setTraceLength(&traceSet, 3);
    float* samples = nullptr;
    EXPECT_EQ(knl_getTraceSamples(&traceSet, &samples, 1), 1);
    ASSERT_NE(samples, nullptr);
    EXPECT_EQ(samples, traceSet.getSamples(1));

    float mark = 0;
    samples = &mark;
    EXPECT_EQ(knl_getTraceSamples(&traceSet, &samples, -1), 0);
    EXPECT_EQ(samples, nullptr);
    samples = &mark;
    EXPECT_EQ(knl_getTraceSamples(nullptr, &samples, 0), 0);
    EXPECT_EQ(samples, nullptr);
}

TEST_F(KnlCTest, SampleSetterCopiesFromTheAddressBehindTheAddress)
{
    knl_setTraceLength(&traceSet, 2);
    float values[] = {5, 6};
    float* address = values;
    EXPECT_EQ(knl_setTraceSamples(&traceSet, &address, 1), 1);
    EXPECT_EQ(traceSet.getSamples(1)[1], 6.0F);
    EXPECT_EQ(knl_setTraceSamples(nullptr, &address, 0), 0);
}

TEST_F(KnlCTest, CopyAndMoveGoFromTheFirstToTheSecond)
{
    WithTraces<SeisTraceSet> other;
    knl_setTraceLength(&traceSet, 1);
    knl_setTraceLength(&other, 1);
    traceSet.setAttribute("CDP", UniVar(5), 0);
    traceSet.setAttribute("CDP", UniVar(6), 1);
    traceSet.getSamples(0)[0] = 50;
    traceSet.getSamples(1)[0] = 60;

    EXPECT_EQ(knl_copyTraceToTrace(&traceSet, &other, 1, 1), 1);
    EXPECT_EQ(other.getAttribute("CDP", 0).getI32Value(), 5);
    EXPECT_EQ(other.getSamples(0)[0], 50.0F);

    EXPECT_EQ(knl_mcopyTraceToTrace(&traceSet, &other, 0, 1, 1, 2), 1);
    EXPECT_EQ(other.getAttribute("CDP", 2).getI32Value(), 0);
    EXPECT_EQ(other.getSamples(2)[0], 60.0F);

    EXPECT_EQ(knl_moveTraceToTrace(&traceSet, &other, 1, 3), 1);
    EXPECT_EQ(other.getAttribute("CDP", 3).getI32Value(), 6);
    EXPECT_EQ(knl_moveTraceToTrace(&traceSet, &other, 1, 3), 0);
    EXPECT_EQ(knl_copyTraceToTrace(nullptr, &other, 1, 1), 0);
    EXPECT_EQ(knl_mcopyTraceToTrace(&traceSet, nullptr, 1, 1, 0, 0), 0);
    EXPECT_EQ(knl_moveTraceToTrace(nullptr, &other, 0, 0), 0);
}

TEST_F(KnlCTest, AMoveThatCannotBeMadeChangesNothing)
{
    WithTraces<SeisTraceSet> other;
    knl_setNumberOfTraces(&traceSet, 2);
    knl_setNumberOfTraces(&other, 1);
    const std::vector<SeisTrace*> here(traceSet.traces.begin(), traceSet.traces.end());
    const std::vector<SeisTrace*> there(other.traces.begin(), other.traces.end());

    const int lowest = std::numeric_limits<int>::min();
    const int highest = std::numeric_limits<int>::max();
    for (const auto& [from, to] : {std::pair(2, 0), std::pair(7, 3), std::pair(highest, 0),
                                   std::pair(-1, 0), std::pair(lowest, 0), std::pair(0, -1),
                                   std::pair(0, lowest), std::pair(-1, -1), std::pair(2, -1)})
    {
        SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
        EXPECT_EQ(knl_moveTraceToTrace(&traceSet, &other, from, to), 0);
        EXPECT_EQ(traceSet.traces, here);
        EXPECT_EQ(other.traces, there);
    }
    EXPECT_EQ(knl_moveTraceToTrace(&traceSet, nullptr, 0, 0), 0);
    EXPECT_EQ(traceSet.traces, here);
}

// No trace has such a number: none is found, none is made, and the process goes on.
TEST_F(KnlCTest, NegativeNumbersHaveNoTraceInAnyFunction)
{
    WithTraces<SeisTraceSet> other;
    knl_setTraceLength(&traceSet, 2);
    knl_setNumberOfTraces(&traceSet, 1);
    knl_setNumberOfTraces(&other, 1);
    traceSet.setAttribute("CDP", UniVar(5), 0);
    traceSet.getSamples(0)[0] = 50;
    const char* const names[] = {"CDP"};
    void* list = nullptr;
    ASSERT_EQ(knl_bldAttributeList(names, 1, &list), 0);

    for (const int traceNo : {-1, -7, std::numeric_limits<int>::min()}) {
        SCOPED_TRACE(traceNo);
        float* samples = nullptr;
        EXPECT_EQ(knl_getTraceSamples(&traceSet, &samples, traceNo), 0);
        float values[] = {1, 2};
        float* given = values;
        EXPECT_EQ(knl_setTraceSamples(&traceSet, &given, traceNo), 0);
        EXPECT_EQ(knl_mcopyTraceToTrace(&traceSet, &other, 1, 1, traceNo, 0), 0);
        EXPECT_EQ(knl_mcopyTraceToTrace(&traceSet, &other, 1, 1, 0, traceNo), 0);
        EXPECT_EQ(knl_moveTraceToTrace(&traceSet, &other, traceNo, 0), 0);
        EXPECT_EQ(knl_moveTraceToTrace(&traceSet, &other, 0, traceNo), 0);
        int number = 99;
        EXPECT_EQ(knl_getI32TraceAttributes(list, &traceSet, traceNo, &number), 0);
        EXPECT_EQ(knl_setI32TraceAttributes(list, &traceSet, traceNo, &number), 0);
        double real = 99;
        EXPECT_EQ(knl_getF64TraceAttributes(list, &traceSet, traceNo, &real), 0);
        EXPECT_EQ(knl_setF64TraceAttributes(list, &traceSet, traceNo, &real), 0);
        EXPECT_EQ(knl_setNumberOfTraces(&traceSet, traceNo), 0);
        knl_informTotalTracesNumber(&traceSet, traceNo);

        EXPECT_EQ(knl_getNumberOfTraces(&traceSet), 1);
        EXPECT_EQ(knl_getNumberOfTraces(&other), 1);
    }
    EXPECT_EQ(traceSet.getAttribute("CDP", 0).getI32Value(), 5);
    EXPECT_EQ(traceSet.getSamples(0)[0], 50.0F);
}

TEST_F(KnlCTest, GeometryOfATraceSet)
{
    EXPECT_EQ(knl_setTraceLength(&traceSet, 100), 0);
    EXPECT_EQ(knl_setTraceSampleInterval(&traceSet, 4000), 0);
    EXPECT_EQ(knl_setNumberOfTraces(&traceSet, 3), 0);
    EXPECT_EQ(knl_getTraceLength(&traceSet), 100);
    EXPECT_EQ(knl_getTraceSampleInterval(&traceSet), 4000);
    EXPECT_EQ(knl_getNumberOfTraces(&traceSet), 3);

    EXPECT_EQ(knl_setTraceLength(nullptr, 100), 0);
    EXPECT_EQ(knl_setTraceSampleInterval(nullptr, 100), 0);
    EXPECT_EQ(knl_setNumberOfTraces(nullptr, 100), 0);
    EXPECT_EQ(knl_getTraceLength(nullptr), 0);
    EXPECT_EQ(knl_getTraceSampleInterval(nullptr), 0);
    EXPECT_EQ(knl_getNumberOfTraces(nullptr), 0);
}

TEST_F(KnlCTest, ClearingATraceSet)
{
    knl_setTraceLength(&traceSet, 1);
    traceSet.getSamples(0)[0] = 5;
    EXPECT_EQ(knl_clearTraceSet(&traceSet), 1);
    EXPECT_EQ(traceSet.getSamples(0)[0], 0.0F);
    EXPECT_EQ(knl_clearTraceSet(nullptr), 0);
}

TEST_F(KnlCTest, DataChannelFlag)
{
    EXPECT_EQ(knl_setDataChannelFlag(&traceSet, 3), 0);
    EXPECT_EQ(knl_getDataChannelFlag(&traceSet), 3);
    EXPECT_EQ(knl_setDataChannelFlag(nullptr, 5), 1);
    EXPECT_EQ(knl_getDataChannelFlag(nullptr), 0);
}

TEST_F(KnlCTest, AnnouncedTotalIsKeptInSixtyFourBits)
{
    knl_informTotalTracesNumber(&traceSet, int64_t{5} << 32);
    EXPECT_EQ(traceSet.getTotalTracesNumber(), int64_t{5} << 32);
    knl_informTotalTracesNumber(nullptr, 1);
}

// ---------------------------------------------------------------------- messages, commands, pads

TEST_F(KnlCTest, MessagesAndTheirArgumentsReachTheHost)
{
    knl_sendMessage(3, "bad line");
    knl_addI32MessageArgument(-5);
    knl_addI64MessageArgument(int64_t{1} << 40);
    knl_addF32MessageArgument(0.5F);
    knl_addF64MessageArgument(0.25);
    knl_addStrMessageArgument("line 7");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].type, 3);
    EXPECT_EQ(messages[0].module, "agc");
    EXPECT_EQ(messages[0].text, "bad line");
    EXPECT_EQ(arguments, (std::vector<std::string>{"-5", "1099511627776", "0.500000",
                                                   "0.250000000000", "line 7"}));
}

TEST_F(KnlCTest, CommandReachesTheHost)
{
    knl_execAppliCmd("view section");
    EXPECT_EQ(commands, std::vector<std::string>{"view section"});
}

TEST_F(KnlCTest, PadsAndTheirDrawing)
{
    const int ident = knl_createPad(1, 2, 3, "section");
    ASSERT_EQ(pads.size(), 1u);
    EXPECT_EQ(pads[0].ident, ident);
    EXPECT_EQ(pads[0].type, 1);
    EXPECT_EQ(pads[0].align, 2);
    EXPECT_EQ(pads[0].visible, 3);
    EXPECT_EQ(pads[0].title, "section");

    knl_plot(ident, 1, 2, 3);
    knl_number(ident, 1, 2, 3, 4, 5, 6);
    knl_symbol(ident, 1, 2, 3, "text", 4, 5, 6);
    knl_factor(ident, 1);
    knl_newpen(ident, 2);
    ASSERT_EQ(plots.size(), 5u);
    for (int command = 1; command <= 5; ++command) {
        EXPECT_EQ(plots[static_cast<size_t>(command) - 1].ident, ident) << command;
        EXPECT_EQ(plots[static_cast<size_t>(command) - 1].command.cmdType, command);
    }
    EXPECT_EQ(plots[0].command.ypage, 2.0F);
    EXPECT_EQ(plots[0].command.ipen, 3);
    EXPECT_EQ(plots[1].command.height, 3.0F);
    EXPECT_EQ(plots[1].command.fpn, 4.0F);
    EXPECT_EQ(plots[1].command.angle, 5.0F);
    EXPECT_EQ(plots[1].command.ndec, 6);
    EXPECT_EQ(plots[2].text, "text");
    EXPECT_EQ(plots[2].command.inteq, 4);
    EXPECT_EQ(plots[2].command.angle, 5.0F);
    EXPECT_EQ(plots[2].command.inchar, 6);
    EXPECT_EQ(plots[3].command.factor, 1.0F);
    EXPECT_EQ(plots[4].command.ipen, 2);
}

TEST_F(KnlCTest, WithoutPadsTheIdentifierIsMinusOne)
{
    job().installCreatePadFunc(nullptr, nullptr);
    EXPECT_EQ(knl_createPad(1, 2, 3, "section"), -1);
}

// -------------------------------------------------------------------- directories, date, metadata

TEST_F(KnlCTest, DirectoriesAndDate)
{
    job().setScratchDir("/scratch");
    knl_setProjectDir("/project");
    const char* scratch = knl_getScratchDir();
    const char* project = knl_getProjectDir();
    EXPECT_EQ(knl_currentDate(), job().getCurrentDate());
    EXPECT_STREQ(scratch, "/scratch");
    EXPECT_STREQ(project, "/project");
    EXPECT_EQ(job().getProjectDir(), QString("/project"));
}

TEST_F(KnlCTest, AnEmptyProjectDirectoryIsStoredAndDoesNotThrow)
{
    knl_setProjectDir("/project");
    EXPECT_NO_THROW(knl_setProjectDir(""));
    EXPECT_STREQ(knl_getProjectDir(), "");
    EXPECT_NO_THROW(knl_setProjectDir(nullptr));
}

TEST_F(KnlCTest, OptionIsStoredOnTheRunningModule)
{
    knl_setModuleProcessingOption("RespectEOD", 1);
    EXPECT_TRUE(module.isRespectEOD());
    EXPECT_EQ(module.getProcessingOption("RespectEOD").getType(), int32Type);
    run(nullptr);
    knl_setModuleProcessingOption("RespectEOD", 0);
    EXPECT_TRUE(module.isRespectEOD());
}

TEST_F(KnlCTest, MetadataValueIsCutToTheRoomGivenAndItsLengthReturned)
{
    knl_setMetaDataValue(0, "five", "12345");
    struct Row
    {
        int n;
        std::string written; // the rest of the room stays as it was
    };
    const Row rows[] = {{0, "xxxxxxxx"},
                        {-5, "xxxxxxxx"},
                        {1, std::string("\0xxxxxxx", 8)},
                        {3, std::string("12\0xxxxx", 8)},
                        {5, std::string("1234\0xxx", 8)},
                        {6, std::string("12345\0xx", 8)},
                        {8, std::string("12345\0xx", 8)}};
    for (const Row& expected : rows) {
        char value[9] = "xxxxxxxx";
        EXPECT_EQ(knl_getMetaDataValue(0, "five", value, expected.n), 5) << "n = " << expected.n;
        EXPECT_EQ(std::string(value, 8), expected.written) << "n = " << expected.n;
    }
}

TEST_F(KnlCTest, MetadataValueThatIsEmptyWritesANulWhereThereIsRoom)
{
    char value[] = "xx";
    EXPECT_EQ(knl_getMetaDataValue(0, "none", value, 0), 0);
    EXPECT_STREQ(value, "xx");
    EXPECT_EQ(knl_getMetaDataValue(0, "none", value, 1), 0);
    EXPECT_EQ(std::string(value, 2), std::string("\0x", 2));
}

TEST_F(KnlCTest, MetadataValueOfACountedLengthMayHoldNuls)
{
    knl_setMetaDataValueN(0, "bytes", "a\0bcd", 3);
    char value[8] = "xxxxxxx";
    EXPECT_EQ(knl_getMetaDataValue(0, "bytes", value, 8), 3);
    EXPECT_EQ(std::string(value, 5), std::string("a\0b\0x", 5));

    knl_setMetaDataValueN(0, "none", "abc", -1);
    knl_setMetaDataValueN(0, "null", nullptr, 3);
    EXPECT_EQ(job().getMetaDataValues(0).at("none"), "");
    EXPECT_EQ(job().getMetaDataValues(0).at("null"), "");
}

TEST_F(KnlCTest, MetadataScopes)
{
    ModuleEntity producer("read");
    DataChannel feed;
    feed.attachInputModule(&producer);
    module.setInputDataChannel(&feed, 0);
    producer.setMetaData("line", "L0");

    knl_setMetaDataValue(1, "line", "L1");
    knl_setMetaDataValue(0, "line", "L2");
    knl_setMetaDataValue(0, "line", "L3");
    char value[8] = "";
    EXPECT_EQ(knl_getMetaDataValue(1, "line", value, 8), 2);
    EXPECT_STREQ(value, "L0") << "upstream, not the module's own";
    EXPECT_EQ(knl_getMetaDataValue(0, "line", value, 8), 2);
    EXPECT_STREQ(value, "L2") << "the first value stays";
    EXPECT_EQ(module.getMetaData().at("line"), "L1");
}

TEST_F(KnlCTest, TheEmptyMetadataNameHasNoValueInModuleScope)
{
    knl_setMetaDataValue(0, "", "job");
    char value[8] = "xxxxxxx";
    EXPECT_EQ(knl_getMetaDataValue(1, "", value, 8), 0);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(knl_getMetaDataValue(1, nullptr, value, 8), 0);
    EXPECT_EQ(knl_getMetaDataValue(0, "", value, 8), 3);
    EXPECT_STREQ(value, "job");
}

} // namespace
