/// @file RecentNames.h
///
/// Finds entries of a map by name without walking down its tree each time.
#ifndef RECENTNAMES_H
#define RECENTNAMES_H

#include <array>
#include <cstddef>
#include <map>
#include <string>

/// Remembers where the names that were looked up last stand in one map. Modules ask for the same
/// few names trace after trace; a comparison finds them again, where the tree takes a comparison at
/// every level.
///
/// The maps are public, so that hosts may erase entries by hand: what is remembered counts as long
/// as the map has as many entries as when it was remembered, and nobody has called `forget`, which
/// the owner of the map does whenever it adds an entry itself.
template <typename Value>
class RecentNames
{
public:
    using Map = std::map<std::string, Value>;

    /// The value under `name`, or null. Requires: always the same map.
    Value* find(Map& map, const std::string& name)
    {
        if (map.size() != count) {
            forget();
            count = map.size();
        }
        Entry*& place = places[placeOf(name)];
        if (place != nullptr && place->first == name)
            return &place->second;
        const auto found = map.find(name);
        if (found == map.end())
            return nullptr;
        place = &*found;
        return &found->second;
    }

    void forget() { places.fill(nullptr); }

private:
    using Entry = typename Map::value_type;

    // Names of one schema differ in length or in their last letters.
    static std::size_t placeOf(const std::string& name)
    {
        const std::size_t size = name.size();
        if (size == 0)
            return 0;
        const auto letter = [&](std::size_t i) { return static_cast<unsigned char>(name[i]); };
        return (size * 5 + letter(size - 1) * 3u + letter(size / 2) * 7u + letter(0)) % placesKept;
    }

    static constexpr std::size_t placesKept = 64;

    std::array<Entry*, placesKept> places{};
    std::size_t count = 0;
};

#endif
