#include "knl_fortran.h"

#include "RunningModule.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

// A text as Fortran passes it: an address and a length, padded with blanks, without a NUL.
struct Field
{
    Field(const char* characters)
        : text(characters), length(static_cast<int>(std::strlen(characters)))
    {
    }
    const char* text;
    int length;
};
const Field key = "  key     ";
const Field none = "none";

// ------------------------------------------------------------------------------ the typed families
//
// Everything that a family's functions have in common is tested for each of its functions. What a
// value type has is a table of functions; where values live is the fixture's.

template <typename T>
struct Functions;

template <>
struct Functions<int>
{
    using Descriptor = one_int_arr;
    static constexpr UniVarType scalarType = int32Type, arrayType = int32ArrayType;
    static constexpr int schemaType = 2;
    static constexpr auto getModule = knl_geti32moduleparameter_;
    static constexpr auto getGroup = knl_geti32groupparameter_;
    static constexpr auto getLibrary = knl_geti32libraryparameter_;
    static constexpr auto getTrace = knl_geti32traceattribute_;
    static constexpr auto mgetTrace = knl_mgeti32traceattribute_;
    static constexpr auto getModuleArray = knl_geti32arraymoduleparameter_;
    static constexpr auto getGroupArray = knl_geti32arraygroupparameter_;
    static constexpr auto getLibraryArray = knl_geti32arraylibraryparameter_;
    static constexpr auto getTraceArray = knl_geti32arraytraceattribute_;
    static constexpr auto mgetTraceArray = knl_mgeti32arraytraceattribute_;
    static constexpr auto setGroup = knl_seti32groupparameter_;
    static constexpr auto setLibrary = knl_seti32libraryparameter_;
    static constexpr auto setTrace = knl_seti32traceattribute_;
    static constexpr auto msetTrace = knl_mseti32traceattribute_;
    static constexpr auto setGroupArray = knl_seti32arraygroupparameter_;
    static constexpr auto setLibraryArray = knl_seti32arraylibraryparameter_;
    static constexpr auto setTraceArray = knl_seti32arraytraceattribute_;
    static constexpr auto msetTraceArray = knl_mseti32arraytraceattribute_;
    static constexpr auto allocate = knl_allocatei32resource_;
    static constexpr auto zero = knl_zeroi32array_;
    static constexpr auto getResource = knl_getmodulei32resource_;
};

template <>
struct Functions<int64_t>
{
    using Descriptor = one_long_arr;
    static constexpr UniVarType scalarType = int64Type, arrayType = int64ArrayType;
    static constexpr int schemaType = 3;
    static constexpr auto getModule = knl_geti64moduleparameter_;
    static constexpr auto getGroup = knl_geti64groupparameter_;
    static constexpr auto getLibrary = knl_geti64libraryparameter_;
    static constexpr auto getTrace = knl_geti64traceattribute_;
    static constexpr auto mgetTrace = knl_mgeti64traceattribute_;
    static constexpr auto getModuleArray = knl_geti64arraymoduleparameter_;
    static constexpr auto getGroupArray = knl_geti64arraygroupparameter_;
    static constexpr auto getLibraryArray = knl_geti64arraylibraryparameter_;
    static constexpr auto getTraceArray = knl_geti64arraytraceattribute_;
    static constexpr auto mgetTraceArray = knl_mgeti64arraytraceattribute_;
    static constexpr auto setGroup = knl_seti64groupparameter_;
    static constexpr auto setLibrary = knl_seti64libraryparameter_;
    static constexpr auto setTrace = knl_seti64traceattribute_;
    static constexpr auto msetTrace = knl_mseti64traceattribute_;
    static constexpr auto setGroupArray = knl_seti64arraygroupparameter_;
    static constexpr auto setLibraryArray = knl_seti64arraylibraryparameter_;
    static constexpr auto setTraceArray = knl_seti64arraytraceattribute_;
    static constexpr auto msetTraceArray = knl_mseti64arraytraceattribute_;
    static constexpr auto allocate = knl_allocatei64resource_;
    static constexpr auto zero = knl_zeroi64array_;
    static constexpr auto getResource = knl_getmodulei64resource_;
};

template <>
struct Functions<float>
{
    using Descriptor = one_float_arr;
    static constexpr UniVarType scalarType = float32Type, arrayType = float32ArrayType;
    static constexpr int schemaType = 4;
    static constexpr auto getModule = knl_getf32moduleparameter_;
    static constexpr auto getGroup = knl_getf32groupparameter_;
    static constexpr auto getLibrary = knl_getf32libraryparameter_;
    static constexpr auto getTrace = knl_getf32traceattribute_;
    static constexpr auto mgetTrace = knl_mgetf32traceattribute_;
    static constexpr auto getModuleArray = knl_getf32arraymoduleparameter_;
    static constexpr auto getGroupArray = knl_getf32arraygroupparameter_;
    static constexpr auto getLibraryArray = knl_getf32arraylibraryparameter_;
    static constexpr auto getTraceArray = knl_getf32arraytraceattribute_;
    static constexpr auto mgetTraceArray = knl_mgetf32arraytraceattribute_;
    static constexpr auto setGroup = knl_setf32groupparameter_;
    static constexpr auto setLibrary = knl_setf32libraryparameter_;
    static constexpr auto setTrace = knl_setf32traceattribute_;
    static constexpr auto msetTrace = knl_msetf32traceattribute_;
    static constexpr auto setGroupArray = knl_setf32arraygroupparameter_;
    static constexpr auto setLibraryArray = knl_setf32arraylibraryparameter_;
    static constexpr auto setTraceArray = knl_setf32arraytraceattribute_;
    static constexpr auto msetTraceArray = knl_msetf32arraytraceattribute_;
    static constexpr auto allocate = knl_allocatef32resource_;
    static constexpr auto zero = knl_zerof32array_;
    static constexpr auto getResource = knl_getmodulef32resource_;
};

template <>
struct Functions<double>
{
    using Descriptor = one_double_arr;
    static constexpr UniVarType scalarType = float64Type, arrayType = float64ArrayType;
    static constexpr int schemaType = 5;
    static constexpr auto getModule = knl_getf64moduleparameter_;
    static constexpr auto getGroup = knl_getf64groupparameter_;
    static constexpr auto getLibrary = knl_getf64libraryparameter_;
    static constexpr auto getTrace = knl_getf64traceattribute_;
    static constexpr auto mgetTrace = knl_mgetf64traceattribute_;
    static constexpr auto getModuleArray = knl_getf64arraymoduleparameter_;
    static constexpr auto getGroupArray = knl_getf64arraygroupparameter_;
    static constexpr auto getLibraryArray = knl_getf64arraylibraryparameter_;
    static constexpr auto getTraceArray = knl_getf64arraytraceattribute_;
    static constexpr auto mgetTraceArray = knl_mgetf64arraytraceattribute_;
    static constexpr auto setGroup = knl_setf64groupparameter_;
    static constexpr auto setLibrary = knl_setf64libraryparameter_;
    static constexpr auto setTrace = knl_setf64traceattribute_;
    static constexpr auto msetTrace = knl_msetf64traceattribute_;
    static constexpr auto setGroupArray = knl_setf64arraygroupparameter_;
    static constexpr auto setLibraryArray = knl_setf64arraylibraryparameter_;
    static constexpr auto setTraceArray = knl_setf64arraytraceattribute_;
    static constexpr auto msetTraceArray = knl_msetf64arraytraceattribute_;
    static constexpr auto allocate = knl_allocatef64resource_;
    static constexpr auto zero = knl_zerof64array_;
    static constexpr auto getResource = knl_getmodulef64resource_;
};

int row = 2;
int traceNo = 3;

template <typename T>
class KnlFortranTypedTest : public RunningModuleTest
{
protected:
    using Knl = Functions<T>;

    // One place where values live: how the job puts one there, and the functions for it, with what
    // they write to `istat` for a name that is there and one that is not.
    struct Place
    {
        const char* name;
        std::function<void(const UniVar&)> put;
        std::function<void(Field, T*, int*)> get;
        std::function<void(Field, T**, int*, int*)> getArray;
        int found, absent;
    };

    std::vector<Place> parameterPlaces()
    {
        return {{"module", [this](const UniVar& v) { module.setParameter("key", v); },
                 [](Field name, T* out, int* istat) {
                     Knl::getModule(name.text, out, istat, name.length);
                 },
                 [](Field name, T** out, int* size, int* istat) {
                     Knl::getModuleArray(name.text, out, size, istat, name.length);
                 },
                 1, 0},
                {"group", [this](const UniVar& v) { group.setParameter("key", row - 1, v); },
                 [this](Field name, T* out, int* istat) {
                     Knl::getGroup(&groupHandle, name.text, &row, out, istat, name.length);
                 },
                 [this](Field name, T** out, int* size, int* istat) {
                     Knl::getGroupArray(&groupHandle, name.text, &row, out, size, istat,
                                        name.length);
                 },
                 1, 0},
                {"library", [this](const UniVar& v) { library.setParameter("key", v); },
                 [this](Field name, T* out, int* istat) {
                     Knl::getLibrary(&libraryHandle, name.text, out, istat, name.length);
                 },
                 [this](Field name, T** out, int* size, int* istat) {
                     Knl::getLibraryArray(&libraryHandle, name.text, out, size, istat, name.length);
                 },
                 1, 0}};
    }

    std::vector<Place> tracePlaces()
    {
        return {{"first trace", [this](const UniVar& v) { traceSet.setAttribute("key", v, 0); },
                 [this](Field name, T* out, int* istat) {
                     Knl::getTrace(&traceHandle, name.text, out, istat, name.length);
                 },
                 [this](Field name, T** out, int* size, int* istat) {
                     Knl::getTraceArray(&traceHandle, name.text, out, size, istat, name.length);
                 },
                 0, 1},
                {"third trace",
                 [this](const UniVar& v) { traceSet.setAttribute("key", v, traceNo - 1); },
                 [this](Field name, T* out, int* istat) {
                     Knl::mgetTrace(&traceHandle, name.text, out, &traceNo, istat, name.length);
                 },
                 [this](Field name, T** out, int* size, int* istat) {
                     Knl::mgetTraceArray(&traceHandle, name.text, out, size, &traceNo, istat,
                                         name.length);
                 },
                 0, 1}};
    }

    std::vector<Place> places()
    {
        std::vector<Place> all = parameterPlaces();
        for (const Place& place : tracePlaces())
            all.push_back(place);
        return all;
    }

    void* groupHandle = &group;
    void* libraryHandle = &library;
    void* traceHandle = &traceSet;
};

using NumberTypes = testing::Types<int, int64_t, float, double>;
TYPED_TEST_SUITE(KnlFortranTypedTest, NumberTypes);

TYPED_TEST(KnlFortranTypedTest, GetterWritesTheValueAndTheStatusOfItsFamily)
{
    this->define("key", Functions<TypeParam>::schemaType, 1);
    TypeParam stored = 40;
    for (const auto& place : this->places()) {
        place.put(UniVar(++stored));
        TypeParam value = 99;
        int istat = 99;
        place.get(key, &value, &istat);
        EXPECT_EQ(istat, place.found) << place.name;
        EXPECT_EQ(value, stored) << place.name;
    }
}

TYPED_TEST(KnlFortranTypedTest, GetterOfAnAbsentNameLeavesTheOutput)
{
    for (const auto& place : this->places()) {
        TypeParam value = 99;
        int istat = 99;
        place.get(none, &value, &istat);
        EXPECT_EQ(istat, place.absent) << place.name;
        EXPECT_EQ(value, TypeParam(99)) << place.name;
    }
}

TYPED_TEST(KnlFortranTypedTest, GetterConvertsWhatIsStored)
{
    for (const auto& place : this->parameterPlaces()) {
        for (const UniVar& stored : {UniVar(-7), UniVar(-7.0), UniVar("-7 ms")}) {
            place.put(stored);
            TypeParam value = 99;
            int istat = 99;
            place.get(key, &value, &istat);
            EXPECT_EQ(istat, 1) << place.name << stored.getStrType();
            EXPECT_EQ(value, TypeParam(-7)) << place.name << stored.getStrType();
        }
        place.put(UniVar(&this->group));
        TypeParam value = 99;
        int istat = 99;
        place.get(key, &value, &istat);
        EXPECT_EQ(istat, 1) << place.name;
        EXPECT_EQ(value, TypeParam(0)) << place.name;
    }
}

TYPED_TEST(KnlFortranTypedTest, ParameterArrayIsCopiedToTheCallerWithItsSize)
{
    const TypeParam stored[] = {1, 2, 3};
    for (const auto& place : this->parameterPlaces()) {
        place.put(UniVar(stored, 3));
        TypeParam array[4] = {9, 9, 9, 9};
        TypeParam* address = array;
        int size = 99, istat = 99;
        place.getArray(key, &address, &size, &istat);
        EXPECT_EQ(istat, 1) << place.name;
        EXPECT_EQ(size, 3) << place.name;
        EXPECT_EQ(address, array) << place.name << ": the caller's address stays";
        EXPECT_TRUE(std::equal(stored, stored + 3, array)) << place.name;
        EXPECT_EQ(array[3], TypeParam(9)) << place.name;
    }
}

TYPED_TEST(KnlFortranTypedTest, ParameterArrayOfAnotherTypeWritesItsSizeAndCopiesNothing)
{
    const int ints[] = {1, 2};
    const double doubles[] = {1, 2};
    for (const auto& place : this->parameterPlaces()) {
        place.put(std::is_same_v<TypeParam, int> ? UniVar(doubles, 2) : UniVar(ints, 2));
        TypeParam array[2] = {9, 9};
        TypeParam* address = array;
        int size = 99, istat = 99;
        place.getArray(key, &address, &size, &istat);
        EXPECT_EQ(istat, 1) << place.name;
        EXPECT_EQ(size, 2) << place.name;
        EXPECT_EQ(array[0], TypeParam(9)) << place.name;
    }
}

TYPED_TEST(KnlFortranTypedTest, AbsentArrayWritesNeitherSizeNorElements)
{
    for (const auto& place : this->places()) {
        TypeParam array[2] = {9, 9};
        TypeParam* address = array;
        int size = 2, istat = 99;
        place.getArray(none, &address, &size, &istat);
        EXPECT_EQ(istat, place.absent) << place.name;
        EXPECT_EQ(size, 2) << place.name;
        EXPECT_EQ(array[0], TypeParam(9)) << place.name;
    }
}

TYPED_TEST(KnlFortranTypedTest, AttributeArrayIsCopiedUpToTheCallersCapacity)
{
    this->define("key", Functions<TypeParam>::schemaType, 3);
    const TypeParam stored[] = {1, 2, 3};
    for (const auto& place : this->tracePlaces()) {
        place.put(UniVar(stored, 3));
        for (int capacity : {-1, 0, 2, 3, 5}) {
            TypeParam array[5] = {9, 9, 9, 9, 9};
            TypeParam* address = array;
            int size = capacity, istat = 99;
            place.getArray(key, &address, &size, &istat);
            EXPECT_EQ(istat, 0) << place.name << capacity;
            EXPECT_EQ(size, capacity) << place.name << ": not updated";
            for (int i = 0; i < 5; ++i) {
                const bool copied = i < capacity && i < 3;
                EXPECT_EQ(array[i], copied ? stored[i] : TypeParam(9))
                    << place.name << " capacity " << capacity << " element " << i;
            }
        }
    }
}

TYPED_TEST(KnlFortranTypedTest, AttributeThatIsNoSuchArrayCopiesNothing)
{
    this->define("key", std::is_same_v<TypeParam, int> ? 5 : 2, 2);
    this->traceSet.setNumberOfTraces(traceNo);
    this->traceSet.defineAttribute("key");
    for (const auto& place : this->tracePlaces()) {
        TypeParam array[2] = {9, 9};
        TypeParam* address = array;
        int size = 2, istat = 99;
        place.getArray(key, &address, &size, &istat);
        EXPECT_EQ(istat, 0) << place.name;
        EXPECT_EQ(array[0], TypeParam(9)) << place.name;
    }
}

TYPED_TEST(KnlFortranTypedTest, SettersStoreAndReportOne)
{
    using F = Functions<TypeParam>;
    this->define("key", F::schemaType, 1);
    TypeParam value = 42;
    int istat[4] = {99, 99, 99, 99};
    F::setGroup(&this->groupHandle, key.text, &row, &value, &istat[0], key.length);
    F::setLibrary(&this->libraryHandle, key.text, &value, &istat[1], key.length);
    F::setTrace(&this->traceHandle, key.text, &value, &istat[2], key.length);
    F::msetTrace(&this->traceHandle, key.text, &value, &traceNo, &istat[3], key.length);
    for (int status : istat)
        EXPECT_EQ(status, 1);
    for (const UniVar& stored :
         {this->group.getParameter("key", 1), this->library.getParameter("key"),
          this->traceSet.getAttribute("key", 0), this->traceSet.getAttribute("key", 2)})
    {
        EXPECT_EQ(stored.getType(), F::scalarType);
        EXPECT_EQ(stored.getF64Value(), 42);
    }
    EXPECT_EQ(this->traceSet.getAttribute("key", 1).getF64Value(), 0);
}

TYPED_TEST(KnlFortranTypedTest, ArraySettersStoreACopyAndReportOne)
{
    using F = Functions<TypeParam>;
    this->define("key", F::schemaType, 3);
    TypeParam array[] = {1, 2, 3};
    TypeParam* address = array;
    int size = 3;
    int istat[4] = {99, 99, 99, 99};
    F::setGroupArray(&this->groupHandle, key.text, &row, &address, &size, &istat[0], key.length);
    F::setLibraryArray(&this->libraryHandle, key.text, &address, &size, &istat[1], key.length);
    F::setTraceArray(&this->traceHandle, key.text, &address, &size, &istat[2], key.length);
    F::msetTraceArray(&this->traceHandle, key.text, &address, &size, &traceNo, &istat[3],
                      key.length);
    for (int status : istat)
        EXPECT_EQ(status, 1);
    for (const UniVar& stored :
         {this->group.getParameter("key", 1), this->library.getParameter("key"),
          this->traceSet.getAttribute("key", 0), this->traceSet.getAttribute("key", 2)})
    {
        EXPECT_EQ(stored.getType(), F::arrayType);
        EXPECT_EQ(stored.getStrValue(), UniVar(array, 3).getStrValue());
    }
}

TYPED_TEST(KnlFortranTypedTest, NullHandlesAreAbsentOrRefused)
{
    using F = Functions<TypeParam>;
    void* null = nullptr;
    TypeParam value = 99;
    TypeParam* address = &value;
    int size = 1, istat = 99;
    F::getGroup(&null, key.text, &row, &value, &istat, key.length);
    EXPECT_EQ(istat, 0);
    F::getLibraryArray(&null, key.text, &address, &size, &istat, key.length);
    EXPECT_EQ(istat, 0);
    F::getTrace(&null, key.text, &value, &istat, key.length);
    EXPECT_EQ(istat, 1);
    F::mgetTraceArray(&null, key.text, &address, &size, &traceNo, &istat, key.length);
    EXPECT_EQ(istat, 1);
    F::setGroup(&null, key.text, &row, &value, &istat, key.length);
    EXPECT_EQ(istat, 0);
    F::setLibrary(&null, key.text, &value, &istat, key.length);
    EXPECT_EQ(istat, 0);
    F::setTrace(&null, key.text, &value, &istat, key.length);
    EXPECT_EQ(istat, 0);
    F::msetTraceArray(&null, key.text, &address, &size, &traceNo, &istat, key.length);
    EXPECT_EQ(istat, 0);
    EXPECT_EQ(value, TypeParam(99));
}

TYPED_TEST(KnlFortranTypedTest, TracesAndRowsBelowTheFirstHoldNothing)
{
    using F = Functions<TypeParam>;
    this->traceSet.setAttribute("key", UniVar(5), 0);
    this->group.setParameter("key", 0, UniVar(5));
    for (int number : {0, -5, std::numeric_limits<int>::min()}) {
        TypeParam value = 99;
        int istat = 99;
        F::mgetTrace(&this->traceHandle, key.text, &value, &number, &istat, key.length);
        EXPECT_EQ(istat, 1) << number;
        F::msetTrace(&this->traceHandle, key.text, &value, &number, &istat, key.length);
        EXPECT_EQ(istat, 0) << number;
        istat = 99;
        F::setGroup(&this->groupHandle, key.text, &number, &value, &istat, key.length);
        EXPECT_EQ(istat, 0) << number;
        istat = 99;
        F::getGroup(&this->groupHandle, key.text, &number, &value, &istat, key.length);
        EXPECT_EQ(istat, 0) << number;
        EXPECT_EQ(value, TypeParam(99)) << number;
    }
    EXPECT_EQ(this->traceSet.getNumberOfTraces(), 1);
}

// The nine words of a descriptor, as the caller's compiler sees them.
template <typename Descriptor>
std::vector<int64_t> words(const Descriptor& array)
{
    std::vector<int64_t> all(9);
    std::memcpy(all.data(), &array, sizeof array);
    return all;
}

template <typename Descriptor>
Descriptor untouched()
{
    Descriptor array;
    std::memset(static_cast<void*>(&array), 0x55, sizeof array);
    return array;
}
constexpr int64_t asBefore = 0x5555555555555555;

int64_t word(const void* address)
{
    return static_cast<int64_t>(reinterpret_cast<intptr_t>(address));
}

TYPED_TEST(KnlFortranTypedTest, AllocatedMemoryIsZeroChargedAndDescribed)
{
    using F = Functions<TypeParam>;
    const int width = sizeof(TypeParam);
    auto array = untouched<typename F::Descriptor>();
    int size = 5;
    F::allocate(&array, &size);
    ASSERT_NE(array.data, nullptr);
    EXPECT_EQ(words(array),
              (std::vector<int64_t>{word(array.data), width, 0, 3, 1, asBefore, 5, width, 1}));
    EXPECT_EQ(array.data[0], TypeParam(0));
    EXPECT_EQ(array.data[4], TypeParam(0));
    EXPECT_EQ(this->module.getTotalModuleMemoryUsed(), 5 * width);

    // The descriptor itself is passed: its data stand first.
    knl_freeresource_(reinterpret_cast<void**>(&array));
    EXPECT_EQ(this->job().totalJobMemoryUsed, 0);
}

TYPED_TEST(KnlFortranTypedTest, MemoryThatCannotBeHadIsAnArrayWithoutData)
{
    using F = Functions<TypeParam>;
    const int width = sizeof(TypeParam);
    const int tooMany = std::numeric_limits<int>::max() / width + 1;
    for (int size : {-3, tooMany, std::numeric_limits<int>::max()}) {
        this->messages.clear();
        auto array = untouched<typename F::Descriptor>();
        F::allocate(&array, &size);
        EXPECT_EQ(words(array), (std::vector<int64_t>{0, width, 0, 3, 1, asBefore, size, width, 1}))
            << size;
        const int asked = size < 0 ? size * width : -1;
        ASSERT_EQ(this->messages.size(), 1u) << size;
        EXPECT_EQ(this->messages[0].text,
                  "Can not allocate " + std::to_string(asked) + " byte memory block");
    }
    EXPECT_EQ(this->job().totalJobMemoryUsed, 0);
}

TYPED_TEST(KnlFortranTypedTest, EmptyArrayHasZeroesBehindIt)
{
    using F = Functions<TypeParam>;
    const int width = sizeof(TypeParam);
    auto array = untouched<typename F::Descriptor>();
    F::zero(&array);
    ASSERT_NE(array.data, nullptr);
    EXPECT_EQ(words(array),
              (std::vector<int64_t>{word(array.data), width, 0, 3, 1, asBefore, 0, width, 1}));
    const char zeroes[32] = {};
    EXPECT_EQ(std::memcmp(array.data, zeroes, 32), 0);

    knl_freeresource_(reinterpret_cast<void**>(&array)); // was never allocated, and is accepted
    EXPECT_EQ(std::memcmp(array.data, zeroes, 32), 0);
}

TYPED_TEST(KnlFortranTypedTest, ResourceIsDescribedInPlace)
{
    using F = Functions<TypeParam>;
    const int width = sizeof(TypeParam);
    TypeParam block[4] = {1, 2, 3, 4};
    int size = 4, istat = 99;
    knl_setmoduleresource_(key.text, reinterpret_cast<void**>(block), &size, &istat, key.length);
    EXPECT_EQ(istat, 1);

    auto array = untouched<typename F::Descriptor>();
    F::getResource(key.text, &array, &istat, key.length);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(words(array),
              (std::vector<int64_t>{word(block), width, 0, 3, 1, asBefore, 4, width, 1}));
}

TYPED_TEST(KnlFortranTypedTest, AbsentResourceLeavesTheDescriptor)
{
    using F = Functions<TypeParam>;
    auto array = untouched<typename F::Descriptor>();
    int istat = 99;
    F::getResource(none.text, &array, &istat, none.length);
    EXPECT_EQ(istat, 0);
    EXPECT_EQ(words(array), std::vector<int64_t>(9, asBefore));
}

TYPED_TEST(KnlFortranTypedTest, ResourceThatIsNoAddressHasNoData)
{
    using F = Functions<TypeParam>;
    this->module.setResource("key", UniVar(5));
    auto array = untouched<typename F::Descriptor>();
    int istat = 99;
    F::getResource(key.text, &array, &istat, key.length);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(array.data, nullptr);
}

// ------------------------------------------------------------------------------------- descriptors

template <typename Descriptor>
class DescriptorTest : public testing::Test
{
};

using Descriptors =
    testing::Types<one_int_arr, one_long_arr, one_float_arr, one_double_arr, one_char_arr>;
TYPED_TEST_SUITE(DescriptorTest, Descriptors);

TYPED_TEST(DescriptorTest, FieldsStandWhereTheCallersLookForThem)
{
    using D = TypeParam;
    const std::pair<size_t, size_t> rows[] = {{offsetof(D, data), 0},    {offsetof(D, dsize), 8},
                                              {offsetof(D, offset), 16}, {offsetof(D, bordr), 24},
                                              {offsetof(D, rank), 32},   {offsetof(D, rserv), 40},
                                              {offsetof(D, dim), 48},    {sizeof(one_arr_dim), 24}};
    for (const auto& [offset, expected] : rows)
        EXPECT_EQ(offset, expected);
    EXPECT_EQ(offsetof(one_arr_dim, extent), 0u);
    EXPECT_EQ(offsetof(one_arr_dim, distance), 8u);
    EXPECT_EQ(offsetof(one_arr_dim, lbound), 16u);
    EXPECT_EQ(sizeof(D), 72u);
}

// ------------------------------------------------------------------------ names, texts and handles

class KnlFortranTest : public RunningModuleTest
{
protected:
    struct TextPlace
    {
        const char* name;
        std::function<void(const UniVar&)> put;
        std::function<void(Field, char*, int*, int)> get;
        int found, absent;
    };
    std::vector<TextPlace> textPlaces()
    {
        return {{"module", [this](const UniVar& v) { module.setParameter("key", v); },
                 [](Field name, char* out, int* istat, int lvar) {
                     knl_getstrmoduleparameter_(name.text, out, istat, name.length, lvar);
                 },
                 1, 0},
                {"group", [this](const UniVar& v) { group.setParameter("key", row - 1, v); },
                 [this](Field name, char* out, int* istat, int lvar) {
                     knl_getstrgroupparameter_(&groupHandle, name.text, &row, out, istat,
                                               name.length, lvar);
                 },
                 1, 0},
                {"library", [this](const UniVar& v) { library.setParameter("key", v); },
                 [this](Field name, char* out, int* istat, int lvar) {
                     knl_getstrlibraryparameter_(&libraryHandle, name.text, out, istat, name.length,
                                                 lvar);
                 },
                 1, 0},
                {"first trace", [this](const UniVar& v) { traceSet.setAttribute("key", v, 0); },
                 [this](Field name, char* out, int* istat, int lvar) {
                     knl_getstringtraceattribute_(&traceHandle, name.text, out, istat, name.length,
                                                  lvar);
                 },
                 0, 1},
                {"third trace",
                 [this](const UniVar& v) { traceSet.setAttribute("key", v, traceNo - 1); },
                 [this](Field name, char* out, int* istat, int lvar) {
                     knl_mgetstringtraceattribute_(&traceHandle, name.text, out, &traceNo, istat,
                                                   name.length, lvar);
                 },
                 0, 1}};
    }

    void* groupHandle = &group;
    void* libraryHandle = &library;
    void* traceHandle = &traceSet;
    void* null = nullptr;
};

TEST_F(KnlFortranTest, NamesLoseTheBlanksAroundThem)
{
    module.setParameter("two words", UniVar(5));
    module.setParameter("", UniVar(6));
    const std::pair<std::string, int> rows[] = {
        {"two words", 5}, {"  two words", 5}, {"two words  ", 5}, {"   two words   ", 5},
        {"", 6},          {"      ", 6}};
    for (const auto& [name, expected] : rows) {
        int value = 99, istat = 99;
        knl_geti32moduleparameter_(name.data(), &value, &istat, static_cast<int>(name.size()));
        EXPECT_EQ(istat, 1) << '"' << name << '"';
        EXPECT_EQ(value, expected) << '"' << name << '"';
    }
}

TEST_F(KnlFortranTest, NamesEndWhereTheirLengthSays)
{
    module.setParameter("WIN", UniVar(5));
    int value = 99, istat = 99;
    knl_geti32moduleparameter_("WINDOW", &value, &istat, 3);
    EXPECT_EQ(value, 5);
    value = 99;
    module.setParameter("", UniVar(6));
    knl_geti32moduleparameter_("WINDOW", &value, &istat, -1);
    EXPECT_EQ(value, 6) << "a negative length counts as 0";
}

TEST_F(KnlFortranTest, NamesAreCutAt255BytesAfterTheirLeadingBlanks)
{
    const std::string longest(255, 'n');
    module.setParameter(longest, UniVar(5));
    for (const std::string& name :
         {longest, longest + "x", "   " + longest + std::string(5000, 'x')}) {
        int value = 99, istat = 99;
        knl_geti32moduleparameter_(name.data(), &value, &istat, static_cast<int>(name.size()));
        EXPECT_EQ(istat, 1) << name.size();
        EXPECT_EQ(value, 5) << name.size();
    }
    int value = 99, istat = 99;
    knl_geti32moduleparameter_(longest.data(), &value, &istat, 254);
    EXPECT_EQ(istat, 0);
}

TEST_F(KnlFortranTest, TextIsPaddedWithBlanksToTheLengthOfTheVariable)
{
    define("key", 9, 1);
    for (const auto& place : textPlaces()) {
        place.put(UniVar("line 7"));
        char value[] = "xxxxxxxxxxxx";
        int istat = 99;
        place.get(key, value, &istat, 10);
        EXPECT_EQ(istat, place.found) << place.name;
        EXPECT_STREQ(value, "line 7    xx") << place.name;
    }
}

TEST_F(KnlFortranTest, TextIsCutToTheLengthOfTheVariable)
{
    define("key", 9, 1);
    for (const auto& place : textPlaces()) {
        place.put(UniVar("line 7"));
        char value[] = "xxxxxxxx";
        int istat = 99;
        place.get(key, value, &istat, 4);
        EXPECT_STREQ(value, "linexxxx") << place.name;
    }
}

TEST_F(KnlFortranTest, TextOfAnAbsentNameLeavesTheVariable)
{
    for (const auto& place : textPlaces()) {
        char value[] = "before";
        int istat = 99;
        place.get(none, value, &istat, 6);
        EXPECT_EQ(istat, place.absent) << place.name;
        EXPECT_STREQ(value, "before") << place.name;
    }
}

TEST_F(KnlFortranTest, LongTextIsCutTo255Bytes)
{
    for (const auto& place : textPlaces()) {
        if (place.found == 0)
            continue; // no attribute is that long
        place.put(UniVar(std::string(300, 't')));
        std::string value(400, 'x');
        int istat = 99;
        place.get(key, value.data(), &istat, 400);
        EXPECT_EQ(istat, place.found) << place.name;
        EXPECT_EQ(value, std::string(255, 't') + std::string(145, ' ')) << place.name;
    }
}

TEST_F(KnlFortranTest, TextEndsAtItsFirstNewline)
{
    module.setParameter("key", UniVar("a\nb"));
    char value[] = "xxxx";
    int istat = 99;
    knl_getstrmoduleparameter_(key.text, value, &istat, key.length, 4);
    EXPECT_STREQ(value, "a   ");
}

TEST_F(KnlFortranTest, TextParametersAreStoredWithoutTheirBlanks)
{
    const Field text = "  line 7   ";
    int istat = 99;
    knl_setstrgroupparameter_(&groupHandle, key.text, &row, text.text, &istat, key.length,
                              text.length);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(group.getParameter("key", row - 1).getStrValue(), "line 7");
    istat = 99;
    knl_setstringlibraryparameter_(&libraryHandle, key.text, text.text, &istat, key.length,
                                   text.length);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(library.getParameter("key").getStrValue(), "line 7");

    knl_setstrgroupparameter_(&null, key.text, &row, text.text, &istat, key.length, text.length);
    EXPECT_EQ(istat, 0);
    istat = 99;
    knl_setstringlibraryparameter_(&null, key.text, text.text, &istat, key.length, text.length);
    EXPECT_EQ(istat, 0);
}

TEST_F(KnlFortranTest, TextParametersMayHaveAnyLength)
{
    const std::string text(10000, 't');
    int istat = 99;
    knl_setstringlibraryparameter_(&libraryHandle, key.text, text.data(), &istat, key.length,
                                   10000);
    EXPECT_EQ(library.getParameter("key").getStrValue(), text);
}

TEST_F(KnlFortranTest, TextAttributesAreTakenUpToTheirNul)
{
    define("key", 9, 1);
    int istat = 99;
    knl_setstringtraceattribute_(&traceHandle, key.text, "  line 7 ", &istat, key.length);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(traceSet.getAttribute("key", 0).getStrValue(), "  line 7 ") << "blanks are kept";
    istat = 99;
    knl_msetstringtraceattribute_(&traceHandle, key.text, "line 8", &traceNo, &istat, key.length);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(traceSet.getAttribute("key", 2).getStrValue(), "line 8");
    knl_setstringtraceattribute_(&null, key.text, "x", &istat, key.length);
    EXPECT_EQ(istat, 0);
}

TEST_F(KnlFortranTest, HandlesOfLibrariesAndGroups)
{
    module.setParameter("lib", UniVar(&library));
    module.setParameter("grp", UniVar(&group));
    library.setParameter("lib", UniVar(&library));
    library.setParameter("grp", UniVar(&group));
    group.setParameter("lib", row - 1, UniVar(&library));
    group.setParameter("grp", row - 1, UniVar(&group));
    struct Row
    {
        const char* name;
        std::function<void(void**, int*)> get;
        void* expected;
    };
    const Row rows[] = {
        {"knl_getlibmoduleparameter_",
         [](void** out, int* istat) { knl_getlibmoduleparameter_("lib ", out, istat, 4); },
         &library},
        {"knl_getgroupmoduleparameter_",
         [](void** out, int* istat) { knl_getgroupmoduleparameter_("grp ", out, istat, 4); },
         &group},
        {"knl_getlibgroupparameter_",
         [this](void** out, int* istat) {
             knl_getlibgroupparameter_(&groupHandle, "lib ", &row, out, istat, 4);
         },
         &library},
        {"knl_getgrpgroupparameter_",
         [this](void** out, int* istat) {
             knl_getgrpgroupparameter_(&groupHandle, "grp ", &row, out, istat, 4);
         },
         &group},
        {"knl_getliblibraryparameter_",
         [this](void** out, int* istat) {
             knl_getliblibraryparameter_(&libraryHandle, "lib ", out, istat, 4);
         },
         &library},
        {"knl_getgrouplibraryparameter_",
         [this](void** out, int* istat) {
             knl_getgrouplibraryparameter_(&libraryHandle, "grp ", out, istat, 4);
         },
         &group}};
    for (const Row& handle : rows) {
        void* out = nullptr;
        int istat = 99;
        handle.get(&out, &istat);
        EXPECT_EQ(istat, 1) << handle.name;
        EXPECT_EQ(out, handle.expected) << handle.name;
    }

    module.moduleParameters.clear();
    library.libriParams.clear();
    group.groupParams.clear();
    for (const Row& handle : rows) {
        void* out = this;
        int istat = 99;
        handle.get(&out, &istat);
        EXPECT_EQ(istat, 0) << handle.name;
        EXPECT_EQ(out, this) << handle.name;
    }
}

// ---------------------------------------------------------------------------- groups and libraries

TEST_F(KnlFortranTest, GroupSizeAlwaysReportsOne)
{
    group.setNumberOfOccurences(2);
    int size = 99, istat = 99;
    knl_getgroupparametersize_(&groupHandle, &size, &istat);
    EXPECT_EQ(size, 3);
    EXPECT_EQ(istat, 1);
    istat = 99;
    knl_getgroupparametersize_(&null, &size, &istat);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(istat, 1);
}

TEST_F(KnlFortranTest, GroupsAreMadeOnceForTheirName)
{
    void *inGroup = nullptr, *inLibrary = nullptr, *again = nullptr;
    int istat = 99;
    knl_setgrpgroupparameter_(&groupHandle, key.text, &row, &inGroup, &istat, key.length);
    EXPECT_EQ(istat, 1);
    ASSERT_NE(inGroup, nullptr);
    EXPECT_EQ(group.getParameter("key", row - 1).getGroupValue(), inGroup);
    knl_setgrpgroupparameter_(&groupHandle, key.text, &row, &again, &istat, key.length);
    EXPECT_EQ(again, inGroup);

    istat = 99;
    knl_setgrplibraryparameter_(&libraryHandle, key.text, &inLibrary, &istat, key.length);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(library.getParameter("key").getGroupValue(), inLibrary);

    again = this;
    knl_setgrplibraryparameter_(&null, key.text, &again, &istat, key.length);
    EXPECT_EQ(istat, 0);
    knl_setgrpgroupparameter_(&null, key.text, &row, &again, &istat, key.length);
    EXPECT_EQ(istat, 0);
    EXPECT_EQ(again, this);
    delete static_cast<GroupEntity*>(inGroup);
    delete static_cast<GroupEntity*>(inLibrary);
}

TEST_F(KnlFortranTest, LibraryKindIsWrittenWhenItIsKnown)
{
    int type = 99, istat = 99;
    knl_getlibrarytype_(&libraryHandle, &type, &istat);
    EXPECT_EQ(type, 12);
    EXPECT_EQ(istat, 0);

    library.libraryType = "xx";
    type = 99;
    knl_getlibrarytype_(&libraryHandle, &type, &istat);
    EXPECT_EQ(type, 99);
    EXPECT_EQ(istat, 1);
    istat = 99;
    knl_getlibrarytype_(&null, &type, &istat);
    EXPECT_EQ(istat, 1);
}

TEST_F(KnlFortranTest, LibraryAttributeQueryLeavesTheStatus)
{
    library.setParameter("key", UniVar(5));
    int istat = 99;
    knl_islibraryattributeexist_(&libraryHandle, key.text, &istat, key.length);
    EXPECT_EQ(istat, 99);
}

// ------------------------------------------------------------------------------ attributes, schema

TEST_F(KnlFortranTest, AttributeQueryReportsZeroForPresent)
{
    int istat = 99;
    knl_istraceattributeexist_(&traceHandle, key.text, &istat, key.length);
    EXPECT_EQ(istat, 1);
    knl_definetraceattribute_(&traceHandle, key.text, &istat, key.length);
    EXPECT_EQ(istat, 1);
    knl_istraceattributeexist_(&traceHandle, key.text, &istat, key.length);
    EXPECT_EQ(istat, 0);

    istat = 99;
    knl_istraceattributeexist_(&null, key.text, &istat, key.length);
    EXPECT_EQ(istat, 1);
    knl_definetraceattribute_(&null, key.text, &istat, key.length);
    EXPECT_EQ(istat, 0);
}

TEST_F(KnlFortranTest, TraceOneIsTheFirst)
{
    traceSet.setAttribute("key", UniVar(5), 0);
    traceSet.setAttribute("key", UniVar(6), 1);
    int value = 99, istat = 99, one = 1;
    knl_mgeti32traceattribute_(&traceHandle, key.text, &value, &one, &istat, key.length);
    EXPECT_EQ(istat, 0);
    EXPECT_EQ(value, 5);
}

TEST_F(KnlFortranTest, SchemaQueriesWriteTheValueOrMinusOne)
{
    define("key", 5, 3);
    int type = 99, dimension = 99;
    knl_gettraceattributetype_(key.text, &type, key.length);
    knl_gettraceattributedimension_(key.text, &dimension, key.length);
    EXPECT_EQ(type, 5);
    EXPECT_EQ(dimension, 3);
    knl_gettraceattributetype_(none.text, &type, none.length);
    knl_gettraceattributedimension_(none.text, &dimension, none.length);
    EXPECT_EQ(type, -1);
    EXPECT_EQ(dimension, -1);
}

TEST_F(KnlFortranTest, DescriptionQueryLeavesTheText)
{
    job().addTraceAttributeDefinition("key", 2, 1, "description", 0, 0, 0, 0, 0);
    char text[] = "before";
    knl_gettraceattributedescription_(key.text, text, key.length, 6);
    EXPECT_STREQ(text, "before");
}

// ------------------------------------------------------------------- memory and module resources

TEST_F(KnlFortranTest, TextMemoryHasTheLengthOfItsTexts)
{
    auto array = untouched<one_char_arr>();
    int length = 7, size = 3;
    knl_allocatestrresource_(&array, &length, &size);
    ASSERT_NE(array.data, nullptr);
    EXPECT_EQ(words(array),
              (std::vector<int64_t>{word(array.data), 7, 0, 3, 1, asBefore, 3, 7, 1}));
    EXPECT_EQ(array.data[20], 0);
    EXPECT_EQ(module.getTotalModuleMemoryUsed(), 21);
    knl_freeresource_(reinterpret_cast<void**>(&array));
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
}

TEST_F(KnlFortranTest, TextMemoryThatCannotBeHad)
{
    struct Row
    {
        int length, size, asked;
    };
    const Row rows[] = {{-7, 3, -21},
                        {7, -3, -21},
                        {-7, -3, -1},
                        {1 << 16, 1 << 16, -1},
                        {std::numeric_limits<int>::min(), std::numeric_limits<int>::max(), -1}};
    for (Row request : rows) {
        messages.clear();
        auto array = untouched<one_char_arr>();
        knl_allocatestrresource_(&array, &request.length, &request.size);
        EXPECT_EQ(array.data, nullptr) << request.length << " x " << request.size;
        EXPECT_EQ(array.dim[0].extent, request.size) << request.length << " x " << request.size;
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_EQ(messages[0].text,
                  "Can not allocate " + std::to_string(request.asked) + " byte memory block");
    }
}

TEST_F(KnlFortranTest, EmptyTextArray)
{
    auto array = untouched<one_char_arr>();
    int length = 7;
    knl_zerostrarray_(&array, &length);
    ASSERT_NE(array.data, nullptr);
    EXPECT_EQ(words(array),
              (std::vector<int64_t>{word(array.data), 7, 0, 3, 1, asBefore, 0, 7, 1}));
}

TEST_F(KnlFortranTest, FreeingNothingIsAccepted)
{
    knl_freeresource_(&null);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
}

TEST_F(KnlFortranTest, TextResourceIsDescribedWithTheLengthGiven)
{
    char texts[] = "abcdef";
    int size = 2, length = 3, istat = 99;
    knl_setmoduleresource_(key.text, reinterpret_cast<void**>(texts), &size, &istat, key.length);
    auto array = untouched<one_char_arr>();
    knl_getmodulestrresource_(key.text, &array, &length, &istat, key.length);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(words(array), (std::vector<int64_t>{word(texts), 3, 0, 3, 1, asBefore, 2, 3, 1}));

    istat = 99;
    array = untouched<one_char_arr>();
    knl_getmodulestrresource_(none.text, &array, &length, &istat, none.length);
    EXPECT_EQ(istat, 0);
    EXPECT_EQ(words(array), std::vector<int64_t>(9, asBefore));
}

class StructResourceTest : public KnlFortranTest
{
protected:
    struct State
    {
        int count;
        double sum;
    };

    int set(State state)
    {
        int size = sizeof state, istat = 99;
        knl_setmodulestructresource_(key.text, reinterpret_cast<void**>(&state), &size, &istat,
                                     key.length);
        return istat;
    }

    int get(State& state)
    {
        int istat = 99;
        knl_getmodulestructresource_(key.text, reinterpret_cast<void**>(&state), &istat,
                                     key.length);
        return istat;
    }
};

TEST_F(StructResourceTest, StructIsKeptAsACopyThatIsNotCharged)
{
    EXPECT_EQ(set({5, 0.5}), 1);
    State state = {0, 0};
    EXPECT_EQ(get(state), 1);
    EXPECT_EQ(state.count, 5);
    EXPECT_EQ(state.sum, 0.5);
    EXPECT_EQ(module.getTotalModuleMemoryUsed(), 0);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_EQ(module.getResource("key").getArraySize(), static_cast<int>(sizeof(State)));
}

TEST_F(StructResourceTest, EachCallReplacesTheCopy)
{
    for (int call = 0; call < 100; ++call)
        set({call, 0.5});
    State state = {0, 0};
    EXPECT_EQ(get(state), 1);
    EXPECT_EQ(state.count, 99);
    EXPECT_EQ(module.structResources.size(), 1u) << "nothing piles up";
}

TEST_F(StructResourceTest, TheCopyMayBeItsOwnSource)
{
    set({5, 0.5});
    auto* block = static_cast<State*>(module.getResource("key").getPointerValue());
    block->count = 6;
    EXPECT_EQ(set(*block), 1);
    int size = sizeof(State), istat = 99;
    knl_setmodulestructresource_(key.text,
                                 static_cast<void**>(module.getResource("key").getPointerValue()),
                                 &size, &istat, key.length);
    State state = {0, 0};
    EXPECT_EQ(get(state), 1);
    EXPECT_EQ(state.count, 6);

    // Nor does it matter when the caller asks for the block to be copied onto itself.
    knl_getmodulestructresource_(key.text,
                                 static_cast<void**>(module.getResource("key").getPointerValue()),
                                 &istat, key.length);
    EXPECT_EQ(istat, 1);
}

TEST_F(StructResourceTest, WithoutARunningModuleNothingIsKept)
{
    run(nullptr);
    EXPECT_EQ(set({5, 0.5}), 0);
    State state = {7, 0.7};
    EXPECT_EQ(get(state), 0);
    EXPECT_EQ(state.count, 7);
    EXPECT_TRUE(module.structResources.empty());
}

TEST_F(StructResourceTest, AbsentStructLeavesTheCallersStorage)
{
    State state = {7, 0.7};
    EXPECT_EQ(get(state), 0);
    EXPECT_EQ(state.count, 7);
}

TEST_F(StructResourceTest, ResourceThatIsNoAddressCopiesNothing)
{
    const int elements[] = {1, 2, 3, 4};
    for (const UniVar& stored : {UniVar(5), UniVar(elements, 4)}) {
        module.setResource("key", stored);
        State state = {7, 0.7};
        EXPECT_EQ(get(state), 1) << stored.getStrType();
        EXPECT_EQ(state.count, 7) << stored.getStrType();
    }
}

TEST_F(StructResourceTest, NegativeSizeKeepsAnEmptyBlock)
{
    int size = -1, istat = 99;
    State state = {7, 0.7};
    knl_setmodulestructresource_(key.text, reinterpret_cast<void**>(&state), &size, &istat,
                                 key.length);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(module.getResource("key").getArraySize(), 0);
    State other = {8, 0.8};
    EXPECT_EQ(get(other), 1);
    EXPECT_EQ(other.count, 8);
}

TEST_F(KnlFortranTest, ResourcesNeedARunningModule)
{
    run(nullptr);
    int block = 0, size = 1, istat = 99;
    knl_setmoduleresource_(key.text, reinterpret_cast<void**>(&block), &size, &istat, key.length);
    EXPECT_EQ(istat, 0);
}

// ---------------------------------------------------------------------------------- trace samples

TEST_F(KnlFortranTest, SamplesAreDescribedInPlace)
{
    traceSet.setTraceLength(5);
    traceSet.setNumberOfTraces(2);
    auto array = untouched<one_float_arr>();
    int istat = 99;
    knl_sgettracesamples_(&traceHandle, &array, &istat);
    EXPECT_EQ(istat, 0);
    EXPECT_EQ(words(array),
              (std::vector<int64_t>{word(traceSet.getSamples(0)), 4, 0, 3, 1, asBefore, 5, 4, 1}));

    array = untouched<one_float_arr>();
    istat = 99;
    int two = 2;
    knl_mgettracesamples_(&traceHandle, &array, &two, &istat);
    EXPECT_EQ(istat, 0);
    EXPECT_EQ(array.data, traceSet.getSamples(1));
    EXPECT_EQ(array.dim[0].extent, 5);
}

// Traces are counted from 1: none is found below, none is made, and the process goes on.
TEST_F(KnlFortranTest, NumbersBelowOneHaveNoTraceInAnyFunction)
{
    WithTraces<SeisTraceSet> other;
    void* otherHandle = static_cast<SeisTraceSet*>(&other);
    traceSet.setTraceLength(2);
    traceSet.setNumberOfTraces(1);
    other.setNumberOfTraces(1);
    traceSet.setAttribute("CDP", UniVar(5), 0);
    traceSet.getSamples(0)[0] = 50;
    int yes = 1, one = 1;
    for (int below : {0, -1, -7, std::numeric_limits<int>::min()}) {
        SCOPED_TRACE(below);
        int istat = 99;
        auto array = untouched<one_float_arr>();
        knl_mgettracesamples_(&traceHandle, &array, &below, &istat);
        EXPECT_EQ(istat, 1);
        float values[] = {1, 2};
        float* given = values;
        knl_msettracesamples_(&traceHandle, &given, &below, &istat);
        EXPECT_EQ(istat, 0);
        istat = 99;
        knl_mcopytracetotrace_(&traceHandle, &otherHandle, &yes, &yes, &below, &one, &istat);
        EXPECT_EQ(istat, 0);
        istat = 99;
        knl_mcopytracetotrace_(&traceHandle, &otherHandle, &yes, &yes, &one, &below, &istat);
        EXPECT_EQ(istat, 0);
        int number = 99;
        knl_mgeti32traceattribute_(&traceHandle, "CDP", &number, &below, &istat, 3);
        knl_mseti32traceattribute_(&traceHandle, "CDP", &number, &below, &istat, 3);
        double real = 99;
        knl_mgetf64traceattribute_(&traceHandle, "CDP", &real, &below, &istat, 3);
        knl_msetf64traceattribute_(&traceHandle, "CDP", &real, &below, &istat, 3);

        EXPECT_EQ(traceSet.getNumberOfTraces(), 1);
        EXPECT_EQ(other.getNumberOfTraces(), 1);
    }
    EXPECT_EQ(traceSet.getAttribute("CDP", 0).getI32Value(), 5);
    EXPECT_EQ(traceSet.getSamples(0)[0], 50.0F);
}

TEST_F(KnlFortranTest, WithoutSamplesTheShapeIsWrittenAndTheDataAreNot)
{
    traceSet.setTraceLength(5);
    auto array = untouched<one_float_arr>();
    int istat = 99, zero = 0;
    knl_mgettracesamples_(&traceHandle, &array, &zero, &istat);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(words(array), (std::vector<int64_t>{asBefore, 4, 0, 3, 1, asBefore, 5, 4, 1}));

    array = untouched<one_float_arr>();
    istat = 99;
    knl_sgettracesamples_(&null, &array, &istat);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(words(array), (std::vector<int64_t>{asBefore, 4, 0, 3, 1, asBefore, 0, 4, 1}));
}

TEST_F(KnlFortranTest, ExtentNeverReachesBeyondTheTracesOwnSamples)
{
    traceSet.setTraceLength(5);
    traceSet.setNumberOfTraces(1);
    auto array = untouched<one_float_arr>();
    int istat = 99;
    traceSet.setTraceLength(3);
    knl_sgettracesamples_(&traceHandle, &array, &istat);
    EXPECT_EQ(array.dim[0].extent, 3) << "the set's length";
    traceSet.setTraceLength(100);
    knl_sgettracesamples_(&traceHandle, &array, &istat);
    EXPECT_EQ(array.dim[0].extent, 5) << "the trace has no more";
}

TEST_F(KnlFortranTest, SamplesAreCopiedIn)
{
    traceSet.setTraceLength(2);
    float values[] = {5, 6};
    float* address = values;
    int istat = 99;
    knl_ssettracesamples_(&traceHandle, &address, &istat);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(traceSet.getSamples(0)[1], 6.0F);
    istat = 99;
    knl_msettracesamples_(&traceHandle, &address, &traceNo, &istat);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(traceSet.getSamples(2)[1], 6.0F);

    int zero = 0;
    knl_msettracesamples_(&traceHandle, &address, &zero, &istat);
    EXPECT_EQ(istat, 0);
    istat = 99;
    knl_ssettracesamples_(&null, &address, &istat);
    EXPECT_EQ(istat, 0);
}

// -------------------------------------------------------------------- buffers and trace sets

class KnlFortranBuffersTest : public RunningModuleTest
{
protected:
    KnlFortranBuffersTest()
    {
        module.setInputDataChannel(&input, 0);
        module.setOutputDataChannel(&output, 0);
    }

    WithTraces<DataChannel> input;
    WithTraces<DataChannel> output;
    int zero = 0, one = 1, two = 2;
};

TEST_F(KnlFortranBuffersTest, BuffersAreCountedFromOne)
{
    void* handle = nullptr;
    int istat = 99;
    knl_getinputtracebuffer_(&handle, &one, &istat);
    EXPECT_EQ(istat, 0);
    EXPECT_EQ(handle, static_cast<SeisTraceSet*>(&input));
    istat = 99;
    knl_getoutputtracebuffer_(&handle, &one, &istat);
    EXPECT_EQ(istat, 0);
    EXPECT_EQ(handle, static_cast<SeisTraceSet*>(&output));
    istat = 99;
    knl_getworktracebuffer_(&handle, &two, &istat);
    EXPECT_EQ(istat, 0);
    EXPECT_EQ(handle, module.getWorkTraceBuffer(1));
    EXPECT_EQ(module.getNumberOfWorkTraceBuffers(), 2);
}

TEST_F(KnlFortranBuffersTest, BuffersThatDoNotExistReportOneAndNull)
{
    int least = std::numeric_limits<int>::min();
    for (int* number : {&zero, &two, &least}) {
        void* handle = this;
        int istat = 99;
        knl_getinputtracebuffer_(&handle, number, &istat);
        EXPECT_EQ(istat, 1) << *number;
        EXPECT_EQ(handle, nullptr) << *number;
        handle = this;
        knl_getoutputtracebuffer_(&handle, number, &istat);
        EXPECT_EQ(istat, 1) << *number;
        EXPECT_EQ(handle, nullptr) << *number;
    }
    void* handle = this;
    int istat = 99;
    knl_getworktracebuffer_(&handle, &zero, &istat);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(handle, nullptr);
}

TEST_F(KnlFortranBuffersTest, BuildingOutputAndWorkBuffers)
{
    input.defineAttribute("CDP");
    void* templ = static_cast<SeisTraceSet*>(&input);
    int length = 100, interval = 4000, traces = 7, istat = 99;
    knl_bldoutputtracebuffer_(&one, &length, &interval, &templ, &istat);
    EXPECT_EQ(istat, 0);
    EXPECT_EQ(output.getTraceLength(), 100);
    EXPECT_EQ(output.getTraceSampleInterval(), 4000);
    EXPECT_TRUE(output.isAttributePresent("CDP", 0));

    using Build = void (*)(int*, int*, int*, int*, void**, int*);
    int number = 1;
    for (Build build : {knl_bldworktracebufferf1_, knl_bldworktracebuffer_}) {
        istat = 99;
        build(&number, &length, &interval, &traces, &templ, &istat);
        EXPECT_EQ(istat, 0);
        SeisTraceSet* work = module.getWorkTraceBuffer(number - 1);
        EXPECT_EQ(work->getTraceLength(), 100);
        EXPECT_TRUE(work->isAttributePresent("CDP", 0));
        EXPECT_EQ(work->getNumberOfTraces(), 0);
        ++number;
    }
    istat = 99;
    knl_bldworktracebufferf0_(&number, &length, &interval, &traces, &istat);
    EXPECT_EQ(istat, 0);
    EXPECT_EQ(module.getWorkTraceBuffer(2)->getTraceSampleInterval(), 4000);
    EXPECT_FALSE(module.getWorkTraceBuffer(2)->isAttributePresent("CDP", 0));
    EXPECT_EQ(module.getNumberOfWorkTraceBuffers(), 3);
}

TEST_F(KnlFortranBuffersTest, BuildingWhatDoesNotExistReportsOne)
{
    void* templ = nullptr;
    int length = 100, interval = 4000, traces = 7;
    int istat[4] = {99, 99, 99, 99};
    knl_bldoutputtracebuffer_(&two, &length, &interval, &templ, &istat[0]);
    knl_bldworktracebufferf0_(&zero, &length, &interval, &traces, &istat[1]);
    knl_bldworktracebufferf1_(&zero, &length, &interval, &traces, &templ, &istat[2]);
    knl_bldworktracebuffer_(&zero, &length, &interval, &traces, &templ, &istat[3]);
    for (int status : istat)
        EXPECT_EQ(status, 1);
}

TEST_F(KnlFortranBuffersTest, FlagOfAnInputChannel)
{
    int flagged = 99;
    knl_isinputtracebufferflagged_(&one, &one, &flagged);
    EXPECT_EQ(flagged, 0);
    knl_setinputtracebufferflag_(&one, &one);
    knl_isinputtracebufferflagged_(&one, &one, &flagged);
    EXPECT_EQ(flagged, 1);
    EXPECT_EQ(input.flags, 1);
    knl_setinputtracebufferflag_(&two, &one);
    knl_isinputtracebufferflagged_(&two, &one, &flagged);
    EXPECT_EQ(flagged, 0);
}

TEST_F(KnlFortranTest, ScratchUse)
{
    int use = 0;
    knl_settracebufferusescratch_(&traceHandle, &use);
    EXPECT_FALSE(traceSet.isUseScratch());
    use = 99;
    knl_istracebufferusescratch(&traceHandle, &use);
    EXPECT_EQ(use, 0);
    use = 5;
    knl_settracebufferusescratch_(&traceHandle, &use);
    knl_istracebufferusescratch(&traceHandle, &use);
    EXPECT_EQ(use, 1);
}

TEST_F(KnlFortranTest, AnnouncedTotalIsWidenedWithItsSign)
{
    int total = -5;
    knl_informtotaltracesnumber_(&traceHandle, &total);
    EXPECT_EQ(traceSet.getTotalTracesNumber(), -5);
}

TEST_F(KnlFortranTest, GeometryIsReadWithStatusZero)
{
    traceSet.setTraceLength(100);
    traceSet.setTraceSampleInterval(4000);
    traceSet.setNumberOfTraces(3);
    int value = 99, istat = 99;
    knl_gettracelength_(&traceHandle, &value, &istat);
    EXPECT_EQ(value, 100);
    EXPECT_EQ(istat, 0);
    istat = 99;
    knl_gettracesampleinterval_(&traceHandle, &value, &istat);
    EXPECT_EQ(value, 4000);
    EXPECT_EQ(istat, 0);
    istat = 99;
    knl_getnumberoftraces_(&traceHandle, &value, &istat);
    EXPECT_EQ(value, 3);
    EXPECT_EQ(istat, 0);
}

TEST_F(KnlFortranTest, GeometryOfANullHandleReportsOneAndLeavesTheValue)
{
    using Get = void (*)(void**, int*, int*);
    for (Get get : {knl_gettracelength_, knl_gettracesampleinterval_, knl_getnumberoftraces_}) {
        int value = 99, istat = 99;
        get(&null, &value, &istat);
        EXPECT_EQ(value, 99);
        EXPECT_EQ(istat, 1);
    }
}

TEST_F(KnlFortranTest, GeometryIsSetWithStatusZeroAlways)
{
    int length = 100, interval = 4000, traces = 3;
    int istat[4] = {99, 99, 99, 99};
    knl_settracelength_(&traceHandle, &length, &istat[0]);
    knl_settracesampleinterval_(&traceHandle, &interval, &istat[1]);
    knl_setnumberoftraces_(&traceHandle, &traces, &istat[2]);
    knl_settracelength_(&null, &length, &istat[3]);
    for (int status : istat)
        EXPECT_EQ(status, 0);
    EXPECT_EQ(traceSet.getTraceLength(), 100);
    EXPECT_EQ(traceSet.getTraceSampleInterval(), 4000);
    EXPECT_EQ(traceSet.getNumberOfTraces(), 3);
}

TEST_F(KnlFortranTest, DataChannelFlag)
{
    int flag = 3, read = 99;
    knl_setdatachannelflag_(&traceHandle, &flag);
    knl_getdatachannelflag_(&traceHandle, &read);
    EXPECT_EQ(read, 3);
    knl_setdatachannelflag_(&null, &flag);
    knl_getdatachannelflag_(&null, &read);
    EXPECT_EQ(read, 0);
}

TEST_F(KnlFortranTest, ClearingATraceSet)
{
    traceSet.setTraceLength(1);
    traceSet.getSamples(0)[0] = 5;
    int istat = 99;
    knl_cleartraceset_(&traceHandle, &istat);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(traceSet.getSamples(0)[0], 0.0F);
    knl_cleartraceset_(&null, &istat);
    EXPECT_EQ(istat, 0);
}

TEST_F(KnlFortranTest, CopyGoesFromTheFirstToTheSecondCountedFromOne)
{
    WithTraces<SeisTraceSet> other;
    void* otherHandle = &other;
    traceSet.setTraceLength(1);
    other.setTraceLength(1);
    traceSet.setAttribute("CDP", UniVar(5), 0);
    traceSet.setAttribute("CDP", UniVar(6), 1);
    traceSet.getSamples(1)[0] = 60;
    int yes = 1, no = 0, one = 1, two = 2, istat = 99;

    knl_scopytracetotrace_(&traceHandle, &otherHandle, &yes, &no, &istat);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(other.getAttribute("CDP", 0).getI32Value(), 5);

    istat = 99;
    knl_mcopytracetotrace_(&traceHandle, &otherHandle, &no, &yes, &two, &one, &istat);
    EXPECT_EQ(istat, 1);
    EXPECT_EQ(other.getSamples(0)[0], 60.0F);
    EXPECT_EQ(other.getAttribute("CDP", 0).getI32Value(), 5);

    knl_scopytracetotrace_(&null, &otherHandle, &yes, &yes, &istat);
    EXPECT_EQ(istat, 0);
    istat = 99;
    knl_mcopytracetotrace_(&traceHandle, &null, &yes, &yes, &one, &one, &istat);
    EXPECT_EQ(istat, 0);
}

// ---------------------------------------------------------------------- messages, commands, pads

TEST_F(KnlFortranTest, MessagesLoseTheirBlanksAndAreCutAt1023Bytes)
{
    int type = 2;
    knl_sendmessage_(&type, "  low fold   ", 13);
    const std::string longText(3000, 'm');
    knl_sendmessage_(&type, longText.data(), 3000);
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0].type, 2);
    EXPECT_EQ(messages[0].text, "low fold");
    EXPECT_EQ(messages[1].text, longText.substr(0, 1023));
}

TEST_F(KnlFortranTest, MessageArguments)
{
    int i32 = -5;
    int64_t i64 = int64_t{1} << 40;
    float f32 = 0.5F;
    double f64 = 0.25;
    knl_addi32messageargument_(&i32);
    knl_addi64messageargument_(&i64);
    knl_addf32messageargument_(&f32);
    knl_addf64messageargument_(&f64);
    knl_addstrmessageargument_("  line 7  ", 10);
    EXPECT_EQ(arguments, (std::vector<std::string>{"-5", "1099511627776", "0.500000",
                                                   "0.250000000000", "line 7"}));
}

TEST_F(KnlFortranTest, TextArgumentOf4095BytesIsTheLongest)
{
    const std::string text(4096, 'a');
    knl_addstrmessageargument_(text.data(), 4095);
    ASSERT_EQ(arguments.size(), 1u);
    EXPECT_EQ(arguments[0], text.substr(0, 4095));
}

using KnlFortranDeathTest = KnlFortranTest;

TEST_F(KnlFortranDeathTest, LongerTextArgumentStopsTheProcess)
{
    const std::string blanks(4096, ' ');
    EXPECT_DEATH(knl_addstrmessageargument_(blanks.data(), 4096), "larg < buf_size");
}

TEST_F(KnlFortranTest, CommandLosesItsBlanks)
{
    knl_execapplicmd_(" view section  ", 15);
    EXPECT_EQ(commands, std::vector<std::string>{"view section"});
}

TEST_F(KnlFortranTest, PadsAreNotVisible)
{
    int ident = 99, type = 1, align = 2;
    knl_createpad_(&ident, &type, &align, " section ", 9);
    ASSERT_EQ(pads.size(), 1u);
    EXPECT_EQ(pads[0].ident, ident);
    EXPECT_EQ(pads[0].type, 1);
    EXPECT_EQ(pads[0].align, 2);
    EXPECT_EQ(pads[0].visible, 0);
    EXPECT_EQ(pads[0].title, "section");

    job().installCreatePadFunc(nullptr, nullptr);
    knl_createpad_(&ident, &type, &align, "section", 7);
    EXPECT_EQ(ident, -1);
}

TEST_F(KnlFortranTest, Drawing)
{
    int ident = 7, i3 = 3, i4 = 4, i6 = 6;
    float f1 = 1, f2 = 2, f3 = 3, f4 = 4, f5 = 5;
    knl_plot_(&ident, &f1, &f2, &i3);
    knl_number_(&ident, &f1, &f2, &f3, &f4, &f5, &i6);
    knl_symbol_(&ident, &f1, &f2, &f3, " text ", &i4, &f5, &i6, 6);
    knl_factor_(&ident, &f1);
    knl_newpen_(&ident, &i3);
    ASSERT_EQ(plots.size(), 5u);
    for (int command = 1; command <= 5; ++command) {
        EXPECT_EQ(plots[static_cast<size_t>(command) - 1].ident, 7);
        EXPECT_EQ(plots[static_cast<size_t>(command) - 1].command.cmdType, command);
    }
    EXPECT_EQ(plots[0].command.xpage, 1.0F);
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
    EXPECT_EQ(plots[4].command.ipen, 3);
}

// ------------------------------------------------------------- files, directories, date, metadata

TEST_F(KnlFortranTest, FilesAreCreatedAndOpened)
{
    const std::string field = "  " + pathOf("a") + "   ";
    const int length = static_cast<int>(field.size());
    int handle = -99;
    knl_filecreate_(field.data(), &handle, length);
    ASSERT_GE(handle, 0);
    EXPECT_EQ(write(handle, "abc", 3), 3);
    knl_fileclose_(&handle);
    EXPECT_EQ(fcntl(handle, F_GETFD), -1);
    EXPECT_EQ(contentOf(pathOf("a")), "abc");

    handle = -99;
    knl_fileopen_(field.data(), &handle, length);
    ASSERT_GE(handle, 0);
    char content[4] = {};
    EXPECT_EQ(read(handle, content, 4), 3);
    knl_fileclose_(&handle);

    handle = 99;
    knl_fileopen_("/none/a", &handle, 7);
    EXPECT_EQ(handle, -1);
}

TEST_F(KnlFortranTest, FileNamesMayBeLong)
{
    const std::string folder = pathOf(std::string(200, 'd'));
    std::filesystem::create_directory(folder);
    const std::string path = folder + "/" + std::string(200, 'f');
    int handle = -99;
    knl_filecreate_(path.data(), &handle, static_cast<int>(path.size()));
    ASSERT_GE(handle, 0);
    knl_fileclose_(&handle);
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(KnlFortranTest, OpenFileTakesACTextFlagsAndMode)
{
    const std::string path = pathOf("a");
    int flags = O_WRONLY | O_CREAT, mode = 0600, unit = 99;
    const int handle = knl_OpenFile(path.c_str(), &flags, &mode, &unit, 3);
    ASSERT_GE(handle, 0);
    EXPECT_EQ(unit, 99);
    close(handle);
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);

    flags = O_RDONLY;
    EXPECT_EQ(knl_OpenFile("/none/a", &flags, &mode, &unit, 7), -1);
}

TEST_F(KnlFortranTest, DateAndScratchDirectoryArePadded)
{
    job().setScratchDir("/scratch");
    char scratch[] = "xxxxxxxxxxxx";
    knl_getscratchdir_(scratch, 10);
    EXPECT_STREQ(scratch, "/scratch  xx");
    knl_getscratchdir_(scratch, 4);
    EXPECT_STREQ(scratch, "/scratch  xx") << "cut, and nothing behind it";

    std::string date(20, 'x');
    knl_date_(date.data(), 20);
    std::string expected = job().getCurrentDate();
    expected.resize(20, ' ');
    EXPECT_EQ(date, expected);
}

TEST_F(KnlFortranTest, MetadataLoseTheirBlanksAndAreCutAt1023Bytes)
{
    int scope = 0;
    knl_setmetadatavalue_(&scope, " line ", "  L 1   ", 6, 8);
    EXPECT_EQ(job().getMetaDataValues(0).at("line"), "L 1");

    const std::string longText(2000, 'm');
    knl_setmetadatavalue_(&scope, longText.data(), longText.data(), 2000, 2000);
    EXPECT_EQ(job().getMetaDataValues(0).at(longText.substr(0, 1023)), longText.substr(0, 1023));

    scope = 1;
    knl_setmetadatavalue_(&scope, "line", "L2", 4, 2);
    EXPECT_EQ(module.getMetaData().at("line"), "L2");
}

TEST_F(KnlFortranTest, MetadataValueOfACountedLength)
{
    struct Row
    {
        const char* name;
        int n;
        const char* expected;
    };
    const Row rows[] = {
        {"a", 2, "12"}, {"b", 5, "12345"}, {"c", 99, "12345"}, {"d", 0, ""}, {"e", -1, ""}};
    int scope = 0;
    for (Row counted : rows) {
        knl_setmetadatavaluen_(&scope, counted.name, "12345678", &counted.n, 1, 5);
        EXPECT_EQ(job().getMetaDataValues(0).at(counted.name), counted.expected) << counted.n;
    }
}

TEST_F(KnlFortranTest, OptionNameIsTakenAsItStands)
{
    int value = 1;
    knl_setmoduleprocessingoption_("RespectEOD", &value, 3);
    EXPECT_TRUE(module.isRespectEOD());
    knl_setmoduleprocessingoption_(" x ", &value, 3);
    EXPECT_EQ(module.getProcessingOption(" x ").getI32Value(), 1);
    EXPECT_EQ(module.getProcessingOption("x").getType(), undefinedType);
}

} // namespace
