// Lists of attributes (C form, Fortran form, facade), held against the functions by name called one
// after the other.
#include "KernelFixture.h"
#include "MOXKernel.h"
#include "RunningModule.h"
#include "ScratchManager.h"
#include "knl.h"
#include "knl_fortran.h"

#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <limits>
#include <random>
#include <utility>

namespace {

using testing::ElementsAre;

// ---- The functions of one value type ----

template <typename T>
struct Functions;

template <>
struct Functions<int>
{
    static constexpr auto get = knl_getI32TraceAttributes;
    static constexpr auto set = knl_setI32TraceAttributes;
    static constexpr auto fortranGet = knl_geti32traceattributes_;
    static constexpr auto fortranSet = knl_seti32traceattributes_;
    static constexpr auto getByName = knl_mgeti32traceattribute_;
    static constexpr auto setByName = knl_mseti32traceattribute_;
};

template <>
struct Functions<int64_t>
{
    static constexpr auto get = knl_getI64TraceAttributes;
    static constexpr auto set = knl_setI64TraceAttributes;
    static constexpr auto fortranGet = knl_geti64traceattributes_;
    static constexpr auto fortranSet = knl_seti64traceattributes_;
    static constexpr auto getByName = knl_mgeti64traceattribute_;
    static constexpr auto setByName = knl_mseti64traceattribute_;
};

template <>
struct Functions<float>
{
    static constexpr auto get = knl_getF32TraceAttributes;
    static constexpr auto set = knl_setF32TraceAttributes;
    static constexpr auto fortranGet = knl_getf32traceattributes_;
    static constexpr auto fortranSet = knl_setf32traceattributes_;
    static constexpr auto getByName = knl_mgetf32traceattribute_;
    static constexpr auto setByName = knl_msetf32traceattribute_;
};

template <>
struct Functions<double>
{
    static constexpr auto get = knl_getF64TraceAttributes;
    static constexpr auto set = knl_setF64TraceAttributes;
    static constexpr auto fortranGet = knl_getf64traceattributes_;
    static constexpr auto fortranSet = knl_setf64traceattributes_;
    static constexpr auto getByName = knl_mgetf64traceattribute_;
    static constexpr auto setByName = knl_msetf64traceattribute_;
};

using Names = std::vector<std::string>;

class TraceAttributeListTest : public RunningModuleTest
{
protected:
    static void* makeList(const Names& names)
    {
        std::vector<const char*> texts;
        for (const std::string& name : names)
            texts.push_back(name.c_str());
        void* list = nullptr;
        EXPECT_EQ(knl_bldAttributeList(texts.data(), static_cast<int>(texts.size()), &list), 0);
        return list;
    }

    // The set's header bytes, its layout and its traces: what writing has to leave alike.
    static std::string contentOf(SeisTraceSet& set)
    {
        std::string content;
        for (const auto& [name, ident] : set.attrDefs)
            content +=
                name + " " + std::to_string(ident.type) + " " + std::to_string(ident.offset) + "\n";
        for (int i = 0; i < set.getNumberOfTraces(); ++i)
            content.append(reinterpret_cast<const char*>(set.getHeader(i)),
                           static_cast<std::size_t>(set.getHeaderSize(i)));
        return content;
    }

    std::vector<int> read(void* list, int untouched = -7)
    {
        std::vector<int> values(static_cast<std::size_t>(knl_getAttributeListSize(list)),
                                untouched);
        knl_getI32TraceAttributes(list, &traceSet, 0, values.data());
        return values;
    }
};

template <typename T>
class TypedTraceAttributeListTest : public TraceAttributeListTest
{
protected:
    // Every type, and arrays of them; names of all lengths, and some that no schema knows.
    void defineSchema()
    {
        for (int i = 0; i < 40; ++i) {
            names.push_back(std::string(static_cast<std::size_t>(1 + random() % 20), 'a') +
                            std::to_string(i));
            const std::array types = {1, 2, 2, 2, 3, 4, 5, 9, 10};
            const int type = types[random() % types.size()];
            if (i % 7 != 0)
                define(names.back().c_str(), type, random() % 4 == 0 ? 3 : 1);
        }
    }

    Names someNames()
    {
        Names some;
        const std::size_t count = random() % 50;
        for (std::size_t i = 0; i < count; ++i)
            some.push_back(names[random() % names.size()]);
        return some;
    }

    T someValue()
    {
        if (random() % 3 == 0) {
            const std::array<T, 5> edges = {T{}, std::numeric_limits<T>::max(),
                                            std::numeric_limits<T>::lowest(),
                                            std::numeric_limits<T>::min(), static_cast<T>(-1)};
            return edges[random() % edges.size()];
        }
        return static_cast<T>(static_cast<int>(random() % 2000001) - 1000000) / static_cast<T>(7);
    }

    std::vector<T> someValues(std::size_t count)
    {
        std::vector<T> values(count);
        for (T& value : values)
            value = someValue();
        return values;
    }

    void fill(SeisTraceSet& set)
    {
        for (const std::string& name : names) {
            const int trace = static_cast<int>(random() % 3);
            if (random() % 4 == 0)
                continue;
            if (random() % 3 == 0)
                set.setAttribute(name, UniVar(std::to_string(someValue())), trace);
            else
                set.setAttribute(name, UniVar(someValue()), trace);
        }
    }

    static int traceFromOne(int traceNo) { return traceNo < 0 ? traceNo : traceNo + 1; }

    static int getByName(const Names& some, SeisTraceSet& set, int traceNo, T* values)
    {
        void* handle = &set;
        int trace = traceFromOne(traceNo);
        int found = 0;
        for (std::size_t i = 0; i < some.size(); ++i) {
            int status = -1;
            Functions<T>::getByName(&handle, some[i].c_str(), &values[i], &trace, &status,
                                    static_cast<int>(some[i].size()));
            found += status == 0 ? 1 : 0;
        }
        return found;
    }

    static int setByName(const Names& some, SeisTraceSet& set, int traceNo, std::vector<T> values)
    {
        void* handle = &set;
        int trace = traceFromOne(traceNo);
        int written = 0;
        for (std::size_t i = 0; i < some.size(); ++i) {
            int status = -1;
            Functions<T>::setByName(&handle, some[i].c_str(), &values[i], &trace, &status,
                                    static_cast<int>(some[i].size()));
            written += status;
        }
        return written;
    }

    static std::string bytesOf(const std::vector<T>& values)
    {
        return values.empty() ? std::string()
                              : std::string(reinterpret_cast<const char*>(values.data()),
                                            values.size() * sizeof(T));
    }

    std::mt19937 random{20261122};
    Names names;
};

using ValueTypes = testing::Types<int, int64_t, float, double>;
TYPED_TEST_SUITE(TypedTraceAttributeListTest, ValueTypes);

TYPED_TEST(TypedTraceAttributeListTest, ReadsWhatTheFunctionByNameReads)
{
    this->defineSchema();
    for (int round = 0; round < 60; ++round) {
        WithTraces<SeisTraceSet> set;
        this->fill(set);
        const Names some = this->someNames();
        void* list = this->makeList(some);
        for (int traceNo = -1; traceNo < 5; ++traceNo) { // two of them are made by being read
            std::vector<TypeParam> expected = this->someValues(some.size());
            std::vector<TypeParam> values = expected;
            WithTraces<SeisTraceSet> absent;
            EXPECT_EQ(Functions<TypeParam>::get(list, &absent, traceNo, values.data()), 0);
            EXPECT_EQ(absent.getNumberOfTraces(), 0);

            const int found = Functions<TypeParam>::get(list, &set, traceNo, values.data());
            const int traces = set.getNumberOfTraces();

            EXPECT_EQ(found, this->getByName(some, set, traceNo, expected.data()));
            EXPECT_EQ(this->bytesOf(values), this->bytesOf(expected)) << "trace " << traceNo;
            EXPECT_EQ(traces, set.getNumberOfTraces());
        }
        knl_freeAttributeList(list);
    }
}

TYPED_TEST(TypedTraceAttributeListTest, WritesWhatTheFunctionByNameWrites)
{
    this->defineSchema();
    for (int round = 0; round < 60; ++round) {
        WithTraces<SeisTraceSet> set;
        WithTraces<SeisTraceSet> twin;
        const Names some = this->someNames();
        void* list = this->makeList(some);
        for (int step = 0; step < 5; ++step) {
            if (this->random() % 2 == 0) { // others write to the set between the calls
                const std::string& name = this->names[this->random() % this->names.size()];
                set.setAttribute(name, UniVar(step), 0);
                twin.setAttribute(name, UniVar(step), 0);
            }
            const int traceNo = static_cast<int>(this->random() % 4) - 1;
            const std::vector<TypeParam> values = this->someValues(some.size());

            const int written = Functions<TypeParam>::set(list, &set, traceNo, values.data());

            EXPECT_EQ(written, this->setByName(some, twin, traceNo, values));
            EXPECT_EQ(set.getNumberOfTraces(), twin.getNumberOfTraces());
            EXPECT_EQ(this->contentOf(set), this->contentOf(twin)) << "round " << round;
        }
        knl_freeAttributeList(list);
    }
}

TYPED_TEST(TypedTraceAttributeListTest, TheFortranFormCountsTracesFromOneAndStopsAtTheRoom)
{
    this->define("a", 5, 1);
    this->define("b", 5, 1);
    void* set = &this->traceSet;
    void* list = this->makeList({"a", "b"});
    int trace = 2, room = 1, count = -1;
    TypeParam values[2] = {5, 6};

    Functions<TypeParam>::fortranSet(&list, &set, &trace, values, &room, &count);
    EXPECT_EQ(count, 1);
    EXPECT_FALSE(this->traceSet.isAttributePresent("b", 0)) << "the name without a value";
    EXPECT_EQ(this->traceSet.getAttribute("a", 1).getF64Value(), 5);
    EXPECT_EQ(this->traceSet.getAttribute("a", 0).getF64Value(), 0);

    this->traceSet.setAttribute("b", UniVar(8.0), 1);
    TypeParam read[2] = {-7, -7};
    Functions<TypeParam>::fortranGet(&list, &set, &trace, read, &room, &count);
    EXPECT_EQ(count, 1);
    EXPECT_THAT(read, ElementsAre(5, -7));
    room = 9;
    Functions<TypeParam>::fortranGet(&list, &set, &trace, read, &room, &count);
    EXPECT_EQ(count, 2);
    EXPECT_THAT(read, ElementsAre(5, 8));
    trace = 0;
    Functions<TypeParam>::fortranGet(&list, &set, &trace, read, &room, &count);
    EXPECT_EQ(count, 0);
    room = -1;
    trace = 1;
    Functions<TypeParam>::fortranGet(&list, &set, &trace, read, &room, &count);
    EXPECT_EQ(count, 0);
    EXPECT_THAT(read, ElementsAre(5, 8));
}

TYPED_TEST(TypedTraceAttributeListTest, TheFacadeServesEveryType)
{
    this->define("a", 3, 1);
    const char* attributes[] = {"a"};
    void* list = bldAttributeList(attributes, 1);
    ASSERT_NE(list, nullptr);
    const TypeParam value = 12;
    TypeParam read = 0;

    EXPECT_EQ(setTraceAttributes(list, &this->traceSet, 1, &value), 1);
    EXPECT_EQ(getTraceAttributes(list, &this->traceSet, 1, &read), 1);
    EXPECT_EQ(read, 12);
    EXPECT_EQ(getAttributeListSize(list), 1);
    freeAttributeList(list);
    EXPECT_TRUE(this->module.attributeLists.empty());
}

// ---- Presence ----

TEST_F(TraceAttributeListTest, PresenceTellsHowEachAttributeIsStored)
{
    define("text", 9, 1);
    define("i64", 3, 1);
    define("f32s", 4, 5);
    for (const char* name : {"text", "i64", "f32s", "unknown"})
        traceSet.defineAttribute(name);
    void* list = makeList({"absent", "text", "i64", "f32s", "unknown", "i64"});
    int types[6] = {-7, -7, -7, -7, -7, -7};

    EXPECT_EQ(knl_getAttributeListPresence(list, &traceSet, types), 5);
    EXPECT_THAT(types, ElementsAre(0, 1, 3, 8, 2, 3));
    EXPECT_EQ(knl_getAttributeListPresence(list, &traceSet, nullptr), 5);
    EXPECT_EQ(traceSet.getNumberOfTraces(), 0);
}

// ---- Layouts that change ----

TEST_F(TraceAttributeListTest, AttributesThatTheSetDefinesLaterAreFound)
{
    void* list = makeList({"first", "second"});
    traceSet.setAttribute("second", UniVar(2), 0);
    EXPECT_THAT(read(list), ElementsAre(-7, 2));

    traceSet.setAttribute("first", UniVar(1), 0);

    EXPECT_THAT(read(list), ElementsAre(1, 2));
}

TEST_F(TraceAttributeListTest, APlaceThatTheHostMovesIsSeen)
{
    traceSet.setAttribute("a", UniVar(1), 0);
    traceSet.setAttribute("b", UniVar(2), 0);
    void* list = makeList({"a", "b"});
    traceAttIdent& place = traceSet.getAttributeKey("a");
    EXPECT_THAT(read(list), ElementsAre(1, 2));

    place.offset = traceSet.attrDefs["b"].offset;
    EXPECT_THAT(read(list), ElementsAre(2, 2));
    place.type = undefinedAttType;
    EXPECT_THAT(read(list), ElementsAre(0, 2));
    place.type = int32AttType;
    place.offset = 1 << 30; // beyond the header
    EXPECT_THAT(read(list), ElementsAre(0, 2));
}

TEST_F(TraceAttributeListTest, AMapThatTheHostExchangesIsLookedUpAgain)
{
    for (const char* name : {"a", "b", "c"})
        traceSet.setAttribute(name, UniVar(name[0] - 'a' + 1), 0);
    void* list = makeList({"a", "b", "c", "d"});
    EXPECT_THAT(read(list), ElementsAre(1, 2, 3, -7));
    const auto layout = traceSet.attrDefs;

    // An assignment uses the entries of the map again, and here for another name in the middle.
    std::map<std::string, traceAttIdent> other;
    other["a"] = layout.at("c");
    other["bb"] = layout.at("b");
    other["c"] = layout.at("a");
    traceSet.attrDefs = other;
    EXPECT_THAT(read(list), ElementsAre(3, -7, 1, -7));

    other["d"] = layout.at("b");
    traceSet.attrDefs.swap(other);
    EXPECT_THAT(read(list), ElementsAre(3, -7, 1, 2));

    traceSet.attrDefs.clear();
    EXPECT_THAT(read(list), ElementsAre(-7, -7, -7, -7));
}

TEST_F(TraceAttributeListTest, EntriesThatTheHostPutsIntoTheMapAreFound)
{
    for (const char* name : {"b", "d", "f"})
        traceSet.setAttribute(name, UniVar(name[0] - 'a' + 1), 0);
    void* list = makeList({"a", "b", "c", "d", "e", "f", "g"});
    EXPECT_THAT(read(list), ElementsAre(-7, 2, -7, 4, -7, 6, -7));

    auto& map = traceSet.attrDefs;
    map["c"] = map["b"]; // one more
    EXPECT_THAT(read(list), ElementsAre(-7, 2, 2, 4, -7, 6, -7));
    map["a"] = map["f"]; // another one in front
    map.erase("c");
    EXPECT_THAT(read(list), ElementsAre(6, 2, -7, 4, -7, 6, -7));
    map["g"] = map["d"]; // another one at the end
    map.erase("d");
    EXPECT_THAT(read(list), ElementsAre(6, 2, -7, -7, -7, 6, 4));
    auto entry = map.extract("b"); // the same one under another name
    entry.key() = "c";
    map.insert(std::move(entry));
    EXPECT_THAT(read(list), ElementsAre(6, -7, 2, -7, -7, 6, 4));
    void* later = makeList({"e"});
    EXPECT_THAT(read(later), ElementsAre(-7));
    map.erase("c"); // and one that the set defines itself in its place
    traceSet.setAttribute("e", UniVar(5), 0);
    EXPECT_THAT(read(list), ElementsAre(6, -7, -7, -7, 5, 6, 4));
    EXPECT_THAT(read(later), ElementsAre(5));
}

TEST_F(TraceAttributeListTest, ASetAtTheAddressOfAFormerOneIsAnotherSet)
{
    using Set = WithTraces<SeisTraceSet>;
    alignas(Set) std::array<unsigned char, sizeof(Set)> room;
    void* list = makeList({"a", "b"});
    int values[2] = {-7, -7};

    auto* set = new (room.data()) Set;
    set->setAttribute("a", UniVar(1), 0);
    set->setAttribute("b", UniVar(2), 0);
    knl_getI32TraceAttributes(list, set, 0, values);
    EXPECT_THAT(values, ElementsAre(1, 2));
    set->~Set();

    set = new (room.data()) Set;
    set->setAttribute("b", UniVar(3), 0);
    set->setAttribute("a", UniVar(4), 0);
    knl_getI32TraceAttributes(list, set, 0, values);
    EXPECT_THAT(values, ElementsAre(4, 3));
    set->~Set();
}

TEST_F(TraceAttributeListTest, OneListServesAnyNumberOfSets)
{
    constexpr int count = 40;
    std::array<WithTraces<SeisTraceSet>, count> sets;
    for (int i = 0; i < count; ++i) {
        for (int k = 0; k < i; ++k)
            sets[static_cast<std::size_t>(i)].defineAttribute("x" + std::to_string(k));
        sets[static_cast<std::size_t>(i)].setAttribute("a", UniVar(i), 0);
    }
    void* list = makeList({"a"});
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < count; ++i) {
            int value = -7;
            EXPECT_EQ(
                knl_getI32TraceAttributes(list, &sets[static_cast<std::size_t>(i)], 0, &value), 1);
            EXPECT_EQ(value, i);
        }
    }
}

// ---- Traces ----

TEST_F(TraceAttributeListTest, AttributesOfATraceThatWasMovedAwayReadAsZeroAndAreNotWritten)
{
    WithTraces<SeisTraceSet> other;
    traceSet.setAttribute("a", UniVar(1), 0);
    other.moveFromTrace(&traceSet, 0, 0);
    void* list = makeList({"a", "absent"});
    int values[2] = {-7, -7};

    EXPECT_EQ(knl_getI32TraceAttributes(list, &traceSet, 0, values), 1);
    EXPECT_THAT(values, ElementsAre(0, -7));
    EXPECT_EQ(knl_setI32TraceAttributes(list, &traceSet, 0, values), 0);
    EXPECT_EQ(knl_setI32TraceAttributes(list, &traceSet, 0, values), 0); // both are defined now
    EXPECT_EQ(traceSet.traces[0], nullptr);
}

TEST_F(TraceAttributeListTest, TracesInTheScratchFileAreBroughtBack)
{
    const ScopedEnvironment scratchDirectory("VORN_SCRATCH", pathOf("").c_str());
    ScratchManager* scratch = ScratchManager::getInstance();
    const int limit = std::exchange(ScratchManager::MAX_TRACES_IN_SCRATCH_V, 1);
    traceSet.setTraceLength(4);
    traceSet.setAttribute("a", UniVar(1), 0);
    traceSet.setAttribute("a", UniVar(2), 1);
    void* list = makeList({"a"});
    int value = -7;

    ASSERT_EQ(traceSet.traces[0]->traceHeader, nullptr) << "it has not been paged out";
    EXPECT_EQ(knl_getI32TraceAttributes(list, &traceSet, 0, &value), 1);
    EXPECT_EQ(value, 1);
    ASSERT_EQ(traceSet.traces[1]->traceHeader, nullptr);
    value = 5;
    EXPECT_EQ(knl_setI32TraceAttributes(list, &traceSet, 1, &value), 1);
    ASSERT_EQ(traceSet.traces[0]->traceHeader, nullptr);
    EXPECT_EQ(traceSet.getAttribute("a", 0).getI32Value(), 1);
    EXPECT_EQ(traceSet.getAttribute("a", 1).getI32Value(), 5);

    ScratchManager::MAX_TRACES_IN_SCRATCH_V = limit;
    scratch->deleteScratch();
}

TEST_F(TraceAttributeListTest, ReadingTheLastPossibleTraceNumberMakesNoTrace)
{
    traceSet.defineAttribute("a");
    void* list = makeList({"a"});
    int value = -7;

    EXPECT_EQ(knl_getI32TraceAttributes(list, &traceSet, std::numeric_limits<int>::max(), &value),
              1);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(traceSet.getNumberOfTraces(), 0);
}

// ---- Handles ----

TEST_F(TraceAttributeListTest, WithoutARunningModuleThereIsNoList)
{
    const char* names[] = {"a"};
    int here = 0;
    void* list = &here;
    run(nullptr);

    EXPECT_EQ(knl_bldAttributeList(names, 1, &list), 1);
    EXPECT_EQ(list, nullptr);
    int count = 1, status = -1;
    list = &here;
    knl_bldattributelist_("a", &count, &list, &status, 1);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(list, nullptr);
}

TEST_F(TraceAttributeListTest, CountsAndNamesThatMakeNoListAreRefused)
{
    const char* names[] = {"a", nullptr};
    int here = 0;
    void* list = &here;
    EXPECT_EQ(knl_bldAttributeList(names, -1, &list), 1);
    EXPECT_EQ(list, nullptr);
    list = &here;
    EXPECT_EQ(knl_bldAttributeList(nullptr, 1, &list), 1);
    EXPECT_EQ(list, nullptr);
    EXPECT_TRUE(module.attributeLists.empty());

    EXPECT_EQ(knl_bldAttributeList(nullptr, 0, &list), 0);
    EXPECT_EQ(knl_getAttributeListSize(list), 0);
    EXPECT_EQ(knl_bldAttributeList(names, 2, &list), 0);
    traceSet.setAttribute("", UniVar(3), 0);
    EXPECT_THAT(read(list), ElementsAre(-7, 3)) << "a null name is the empty text";
}

TEST_F(TraceAttributeListTest, NullHandlesGiveZero)
{
    traceSet.setAttribute("a", UniVar(1), 0);
    void* list = makeList({"a"});
    int value = -7;

    EXPECT_EQ(knl_getI32TraceAttributes(nullptr, &traceSet, 0, &value), 0);
    EXPECT_EQ(knl_getI32TraceAttributes(list, nullptr, 0, &value), 0);
    EXPECT_EQ(knl_setI32TraceAttributes(nullptr, &traceSet, 0, &value), 0);
    EXPECT_EQ(knl_setI32TraceAttributes(list, nullptr, 0, &value), 0);
    EXPECT_EQ(knl_getAttributeListPresence(nullptr, &traceSet, &value), 0);
    EXPECT_EQ(knl_getAttributeListPresence(list, nullptr, &value), 0);
    EXPECT_EQ(knl_getAttributeListSize(nullptr), 0);
    EXPECT_EQ(value, -7);
    knl_freeAttributeList(nullptr);
}

TEST_F(TraceAttributeListTest, AListIsItsModulesWhicheverModuleFreesIt)
{
    void* kept = makeList({"a"});
    void* freed = makeList({"b"});
    ASSERT_EQ(module.attributeLists.size(), 2u);
    ModuleEntity other("other");
    run(&other);

    knl_freeattributelist_(&freed);

    EXPECT_EQ(freed, nullptr);
    EXPECT_EQ(module.attributeLists.size(), 1u);
    EXPECT_EQ(knl_getAttributeListSize(kept), 1);
    run(&module);
}

TEST_F(TraceAttributeListTest, NamesOfTheFortranFormArePadded)
{
    traceSet.setAttribute("a", UniVar(1), 0);
    traceSet.setAttribute("long name", UniVar(2), 0);
    void* list = nullptr;
    int count = 3, status = -1, size = -1;

    knl_bldattributelist_("a         long name  a        ", &count, &list, &status, 10);
    knl_getattributelistsize_(&list, &size);

    EXPECT_EQ(status, 0);
    EXPECT_EQ(size, 3);
    EXPECT_THAT(read(list), ElementsAre(1, 2, 1));
    void* set = &traceSet;
    int types[3] = {-7, -7, -7}, room = 2, present = -1;
    knl_getattributelistpresence_(&list, &set, types, &room, &present);
    EXPECT_EQ(present, 2);
    EXPECT_THAT(types, ElementsAre(2, 2, -7));
}

} // namespace
