/// @file RecentNames.h
///
/// Private to the kernel: finds entries of a map by name without walking down its tree each time.
#ifndef RECENTNAMES_H
#define RECENTNAMES_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <string_view>

/// Whether two names are equal. Short ones are compared in two words, which may overlap: a call for
/// a dozen bytes takes longer than the comparison.
inline bool isSameName(const std::string& known, std::string_view name)
{
    if (known.size() != name.size())
        return false;
    const auto areSameEnds = [&known, name](auto word) {
        const std::size_t last = name.size() - sizeof word;
        const auto wordAt = [&word](const char* from) {
            std::memcpy(&word, from, sizeof word);
            return word;
        };
        return wordAt(known.data()) == wordAt(name.data()) &&
               wordAt(known.data() + last) == wordAt(name.data() + last);
    };
    if (name.size() >= 4 && name.size() <= 8)
        return areSameEnds(uint32_t{});
    if (name.size() > 8 && name.size() <= 16)
        return areSameEnds(uint64_t{});
    if (name.size() == 2 || name.size() == 3)
        return areSameEnds(uint16_t{});
    return known == name;
}

/// A name that is compared with others again and again. What `isSameName` works out for each
/// comparison is known beforehand.
class NameToCompare
{
public:
    /// Keeps a copy of what it needs of `name`, which must live as long where it has one letter or
    /// more than 16.
    explicit NameToCompare(std::string_view name) : text(name)
    {
        if (name.size() < 2 || name.size() > 16)
            return;
        width = name.size() > 8 ? 8 : name.size() > 3 ? 4 : 2;
        lastWord = name.size() - width;
        std::memcpy(&head, name.data(), width);
        std::memcpy(&tail, name.data() + lastWord, width);
    }

    /// Whether `name` is the same.
    bool is(const std::string& name) const
    {
        if (name.size() != text.size())
            return false;
        if (width == 4)
            return areEnds<uint32_t>(name.data());
        if (width == 2)
            return areEnds<uint16_t>(name.data());
        return width == 8 ? areEnds<uint64_t>(name.data()) : name == text;
    }

private:
    template <typename Word>
    bool areEnds(const char* from) const
    {
        Word first;
        Word last;
        std::memcpy(&first, from, sizeof first);
        std::memcpy(&last, from + lastWord, sizeof last);
        return first == static_cast<Word>(head) && last == static_cast<Word>(tail);
    }

    std::string_view text;
    std::size_t width = 0; // of the words at both ends; 0: the whole text is compared
    std::size_t lastWord = 0;
    uint64_t head = 0;
    uint64_t tail = 0;
};

/// Remembers where the names that were looked up last stand in one map. Modules ask for the same
/// few names trace after trace; a comparison finds them again, where the tree takes a comparison at
/// every level.
///
/// The maps are public, so that hosts may change or exchange their entries by hand: what is
/// remembered counts as long as the map has as many entries as when it was remembered, the same
/// first and last of them, and `forget` has not been called, which the owner of the map does
/// whenever it adds an entry itself.
template <typename Value>
class RecentNames
{
public:
    using Map = std::map<std::string, Value>;

    /// The value under `name`, or null. Requires: always the same map.
    Value* find(Map& map, std::string_view name)
    {
        if (map.empty())
            return nullptr;
        const Entry* const first = &*map.begin();
        const Entry* const last = &*map.rbegin();
        if (map.size() != count || first != knownFirst || last != knownLast) {
            forget();
            count = map.size();
            knownFirst = first;
            knownLast = last;
        }
        Entry** const set = &places[placeOf(name) * ways];
        if (set[0] != nullptr && isSameName(set[0]->first, name))
            return &set[0]->second;
        return findFurther(map, set, name);
    }

    void forget() { places.fill(nullptr); }

private:
    using Entry = typename Map::value_type;

    // Apart from the first place, which most names have for themselves.
    [[gnu::noinline]] static Value* findFurther(Map& map, Entry** set, std::string_view name)
    {
        for (std::size_t i = 1; i < ways && set[i] != nullptr; ++i) {
            if (isSameName(set[i]->first, name))
                return &set[i]->second;
        }
        const auto found = map.find(std::string(name));
        if (found == map.end())
            return nullptr;
        std::copy_backward(set, set + ways - 1, set + ways);
        set[0] = &*found;
        return &found->second;
    }

    // Names of one schema differ in length or in their last letters.
    static std::size_t placeOf(std::string_view name)
    {
        const std::size_t size = name.size();
        if (size == 0)
            return 0;
        const auto letter = [&](std::size_t i) { return static_cast<unsigned char>(name[i]); };
        return (size * 5 + letter(size - 1) * 3u + letter(size / 2) * 7u + letter(0)) % sets;
    }

    // Each name has as many places as names have the same number: so all ninety words of a trace
    // header, and some more, are remembered at a time, the one that came last in front.
    static constexpr std::size_t sets = 64;
    static constexpr std::size_t ways = 4;

    std::array<Entry*, sets * ways> places{};
    std::size_t count = 0;
    const Entry* knownFirst = nullptr;
    const Entry* knownLast = nullptr;
};

#endif
