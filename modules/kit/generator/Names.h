/// @file Names.h
///
/// Names that a language accepts for what a manifest names.
#ifndef NAMES_H
#define NAMES_H

#include <cstddef>
#include <set>
#include <string>

namespace generator {

/// Hands out names that differ from each other and from the language's own words: a name that is
/// taken gets "_" behind it, one that begins with "_" gets "p" before it.
class Names
{
public:
    enum class Language
    {
        c,
        cxx,
        fortran ///< does not tell cases apart; names have at most 63 characters
    };

    static constexpr std::size_t longestInFortran = 63;

    explicit Names(Language language);

    /// `wanted`, or the nearest name that is free; it is taken now.
    std::string take(const std::string& wanted);
    /// From now on `name` is taken.
    void reserve(const std::string& name);

private:
    std::string folded(const std::string& name) const;

    Language language;
    std::set<std::string> taken;
};

/// Every character that is no letter, digit or "_" becomes "_".
std::string identifier(const std::string& text);
/// The same for the name of a module, as CMake names the files that are made: "_" comes before a
/// digit at the beginning.
std::string moduleIdentifier(const std::string& module);
std::string upperCase(const std::string& text);
/// "clip_run" becomes "ClipRun".
std::string camelCase(const std::string& text);

} // namespace generator

#endif
