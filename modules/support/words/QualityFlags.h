/// @file QualityFlags.h
///
/// The flags that quality control gives to traces, by their names.
#ifndef QUALITYFLAGS_H
#define QUALITYFLAGS_H

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

namespace words {

/// The attribute in which a trace carries its flags, as a sum of their numbers.
constexpr const char* flagWord = "qc_flags";

struct QualityFlag
{
    int number; ///< a power of two
    const char* name;
};

/// All flags, in the order of their numbers.
constexpr std::array<QualityFlag, 14> qualityFlags = {{
    {1, "dead"},
    {2, "weak"},
    {4, "noisy"},
    {8, "clipped"},
    {16, "spike"},
    {32, "reversed"},
    {64, "ringing"},
    {128, "invalid"},
    {256, "hum"},
    {512, "bias"},
    {1024, "duplicate"},
    {2048, "shifted"},
    {4096, "geometry"},
    {8192, "unlike"},
}};

/// The sum of the flags of these names; "any" stands for all of them. Throws std::runtime_error for
/// a name that is not one of them.
inline int flagMask(const std::vector<std::string>& names)
{
    int mask = 0;
    for (const std::string& name : names) {
        int number = 0;
        std::string all = "any";
        for (const QualityFlag& flag : qualityFlags) {
            number |= name == flag.name || name == "any" ? flag.number : 0;
            all += std::string(", ") + flag.name;
        }
        if (number == 0)
            throw std::runtime_error("flags: \"" + name + "\" is not a flag; give " + all);
        mask |= number;
    }
    return mask;
}

} // namespace words

#endif
