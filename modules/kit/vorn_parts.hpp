/// @file vorn_parts.hpp
///
/// For modules in C++ that gather something over all traces, when a job runs in parts: vorn_parts.h
/// says how these run. What is gathered is saved in a part and merged in a last process:
///
///     void save(State& state, vorn_kit::StateWriter& file)
///     {
///         file(state.traces, state.heights);
///     }
///     void merge(State& state, vorn_kit::StateReader& file)
///     {
///         const auto traces = file.get<std::int64_t>();
///         ...
///         state.traces += traces;
///     }
///
///     VORN_MODULE(prepare, process, finish);
///     VORN_MODULE_IN_PARTS(save, merge);
///
/// Values are numbers, enumerators, texts, optional values, vectors, maps, arrays and structures
/// that may be copied byte by byte (they should have no gaps between their members, whose bytes are
/// arbitrary). A class of another kind has a member that names its values, for both directions:
///
///     template <typename File>
///     void transfer(File& file)
///     {
///         file(count, least, greatest);
///     }
#ifndef VORN_PARTS_HPP
#define VORN_PARTS_HPP

#include "vorn_kit.hpp"
#include "vorn_parts.h"
#include "vorn_stream.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace vorn_kit {

/// vorn_message_once() for a text of any length.
inline void messageOnce(int type, const char* key, const std::string& text)
{
    message(type, text);
    vorn_mark_message(key, 1);
}

/// vorn_message_first() for a text of any length.
inline void messageFirst(int type, const char* key, std::int64_t most, const std::string& text)
{
    message(type, text);
    vorn_mark_message(key, most);
}

// Whether a class names its values itself.
template <typename Value, typename File, typename = void>
struct HasTransfer : std::false_type
{
};
template <typename Value, typename File>
struct HasTransfer<Value, File,
                   std::void_t<decltype(std::declval<Value&>().transfer(std::declval<File&>()))>>
    : std::true_type
{
};

// The kind of item that elements of a type are.
template <typename Value>
constexpr int itemKind()
{
    if (std::is_floating_point_v<Value>)
        return VORN_ITEM_FLOATS;
    return std::is_integral_v<Value> || std::is_enum_v<Value> ? VORN_ITEM_INTEGERS
                                                              : VORN_ITEM_BYTES;
}

/// Writes the state of a part to a file. A file that was not closed is removed.
class StateWriter
{
public:
    static constexpr bool isReader = false;

    StateWriter(const char* path, int length) { vorn_open_state_writer(&to, path, length); }
    StateWriter(const StateWriter&) = delete;
    StateWriter& operator=(const StateWriter&) = delete;
    ~StateWriter()
    {
        if (!isClosed)
            vorn_close_state_writer(&to, false);
    }

    /// Writes the values in turn.
    template <typename... Values>
    void operator()(Values&... values)
    {
        (put(values), ...);
    }

    /// Writes `count` elements.
    template <typename Value>
    void putArray(const Value* elements, std::uint64_t count)
    {
        static_assert(std::is_trivially_copyable_v<Value> && !std::is_pointer_v<Value>);
        vorn_put_items(&to, itemKind<Value>(), sizeof(Value), elements, count);
    }

    template <typename Value>
    void put(Value& value)
    {
        if constexpr (HasTransfer<Value, StateWriter>::value)
            value.transfer(*this);
        else
            putArray(&value, 1);
    }
    void put(const std::string& text) { putArray(text.data(), text.size()); }
    void put(std::string& text) { put(std::as_const(text)); }
    template <typename Value>
    void put(std::optional<Value>& value)
    {
        const std::uint8_t isThere = value ? 1 : 0;
        put(isThere);
        if (value)
            put(*value);
    }
    template <typename Value>
    void put(std::vector<Value>& values)
    {
        if constexpr (std::is_trivially_copyable_v<Value> &&
                      !HasTransfer<Value, StateWriter>::value)
            putArray(values.data(), values.size());
        else
            putEach(values);
    }
    template <typename Key, typename Value>
    void put(std::map<Key, Value>& values)
    {
        putEach(values);
    }
    template <typename First, typename Second>
    void put(std::pair<First, Second>& both)
    {
        put(both.first);
        put(both.second);
    }

    /// Ends the file; throws after a fatal message.
    void close()
    {
        isClosed = true;
        if (!vorn_close_state_writer(&to, true))
            throw Failed();
    }

private:
    template <typename Container>
    void putEach(Container& values)
    {
        const std::uint64_t count = values.size();
        put(count);
        for (auto& value : values)
            put(value);
    }

    vorn_state_writer to{};
    bool isClosed = false;
};

/// Reads what a StateWriter has written. All functions throw after a fatal message when the file
/// holds something else.
class StateReader
{
public:
    static constexpr bool isReader = true;

    StateReader(const char* path, int length)
    {
        if (vorn_open_state_reader(&from, path, length))
            return;
        vorn_close_state_reader(&from);
        throw Failed();
    }
    StateReader(const StateReader&) = delete;
    StateReader& operator=(const StateReader&) = delete;
    ~StateReader()
    {
        if (isClosed)
            return;
        from.has_failed = true; // what is left was not read for another reason
        vorn_close_state_reader(&from);
    }

    /// Reads the values in turn.
    template <typename... Values>
    void operator()(Values&... values)
    {
        (read(values), ...);
    }

    /// Reads a value.
    template <typename Value>
    Value get()
    {
        Value value{};
        read(value);
        return value;
    }

    /// Refuses the file: it does not fit what the module has.
    [[noreturn]] void refuse(const std::string& problem)
    {
        vorn_refuse_state(&from, problem.c_str());
        throw Failed();
    }

    template <typename Value>
    void read(Value& value)
    {
        if constexpr (HasTransfer<Value, StateReader>::value)
            value.transfer(*this);
        else
            readArray(&value, 1);
    }
    void read(std::string& text)
    {
        text.resize(nextCount<char>());
        readArray(text.data(), text.size());
    }
    template <typename Value>
    void read(std::optional<Value>& value)
    {
        if (get<std::uint8_t>() == 0)
            value.reset();
        else
            value.emplace(get<Value>());
    }
    template <typename Value>
    void read(std::vector<Value>& values)
    {
        if constexpr (std::is_trivially_copyable_v<Value> &&
                      !HasTransfer<Value, StateReader>::value) {
            values.resize(nextCount<Value>());
            readArray(values.data(), values.size());
        } else {
            values.clear();
            for (auto left = get<std::uint64_t>(); left > 0; --left)
                read(values.emplace_back());
        }
    }
    template <typename Key, typename Value>
    void read(std::map<Key, Value>& values)
    {
        values.clear();
        for (auto left = get<std::uint64_t>(); left > 0; --left) {
            auto key = get<Key>();
            read(values[std::move(key)]);
        }
    }
    template <typename First, typename Second>
    void read(std::pair<First, Second>& both)
    {
        read(both.first);
        read(both.second);
    }

    /// Reads an array of exactly `count` elements.
    template <typename Value>
    void readArray(Value* elements, std::uint64_t count)
    {
        static_assert(std::is_trivially_copyable_v<Value> && !std::is_pointer_v<Value>);
        if (!vorn_get_items(&from, itemKind<Value>(), sizeof(Value), elements, count))
            throw Failed();
    }

    /// Throws after a fatal message where something was not read.
    void close()
    {
        isClosed = true;
        if (!vorn_close_state_reader(&from))
            throw Failed();
    }

private:
    // Elements of the next array; as many as are there are also in the file.
    template <typename Value>
    std::size_t nextCount()
    {
        std::uint64_t count = 0;
        if (!vorn_next_item(&from, itemKind<Value>(), sizeof(Value), &count))
            throw Failed();
        return static_cast<std::size_t>(count);
    }

    vorn_state_reader from{};
    bool isClosed = false;
};

/// @name Bodies of the entry points, for VORN_MODULE_IN_PARTS and VORN_STREAM_MODULE_IN_PARTS
/// @{

// What vorn_state() points to, and the module's own state in it.
template <typename State>
State& ownState(State& kept)
{
    return kept;
}
template <typename State>
State& ownState(StreamState<State>& kept)
{
    return *kept.own;
}

template <typename Kept, typename Own>
int saveState(void (*save)(Own&, StateWriter&), const char* path, int length)
{
    bool good = false;
    if (Kept* kept = state<Kept>())
        guarded<Kept>([&] {
            StateWriter file(path, length);
            save(ownState(*kept), file);
            file.close();
            good = true;
        });
    destroyState<Kept>();
    return good ? 0 : 1;
}

template <typename Kept, typename Own>
int mergeState(void (*merge)(Own&, StateReader&), const char* path, int length)
{
    bool good = false;
    if (Kept* kept = state<Kept>())
        guarded<Kept>([&] {
            StateReader file(path, length);
            merge(ownState(*kept), file);
            file.close();
            good = true;
        });
    return good ? 0 : 1;
}

template <typename State>
int save(void (*action)(State&, StateWriter&), const char* path, int length)
{
    return saveState<State>(action, path, length);
}
template <typename State>
int merge(void (*action)(State&, StateReader&), const char* path, int length)
{
    return mergeState<State>(action, path, length);
}
template <typename State>
int saveStream(void (*action)(State&, StateWriter&), const char* path, int length)
{
    return saveState<StreamState<State>>(action, path, length);
}
template <typename State>
int mergeStream(void (*action)(State&, StateReader&), const char* path, int length)
{
    return mergeState<StreamState<State>>(action, path, length);
}
/// @}

} // namespace vorn_kit

/// Defines save_ and merge_ of a module that VORN_MODULE defines, from two functions:
/// `void save(State&, StateWriter&)`, after the last trace of a part, in place of finish; sends no
/// messages, and the state is destroyed afterwards; and `void merge(State&, StateReader&)`, after
/// prepare, for each part in turn, which reads all that save has written. finish follows it.
#define VORN_MODULE_IN_PARTS(saver, merger)                                                        \
    extern "C" __attribute__((visibility("default"))) int save_(const char* path, int length)      \
    {                                                                                              \
        return vorn_kit::save(saver, path, length);                                                \
    }                                                                                              \
    extern "C" __attribute__((visibility("default"))) int merge_(const char* path, int length)     \
    {                                                                                              \
        return vorn_kit::merge(merger, path, length);                                              \
    }                                                                                              \
    static_assert(true, "the macro takes a semicolon")

/// The same for a module that VORN_STREAM_MODULE defines. What onEnd emits, it emits in each part,
/// from the traces of the part; the merge calls neither onTrace nor onEnd.
#define VORN_STREAM_MODULE_IN_PARTS(saver, merger)                                                 \
    extern "C" __attribute__((visibility("default"))) int save_(const char* path, int length)      \
    {                                                                                              \
        return vorn_kit::saveStream(saver, path, length);                                          \
    }                                                                                              \
    extern "C" __attribute__((visibility("default"))) int merge_(const char* path, int length)     \
    {                                                                                              \
        return vorn_kit::mergeStream(merger, path, length);                                        \
    }                                                                                              \
    static_assert(true, "the macro takes a semicolon")

#endif
