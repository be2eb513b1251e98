/// @file vorn_parameters.hpp
///
/// The readers of vorn_parameters.h for the types of C++. They are called by the code that is made
/// from manifests (NAME_parameters).
#ifndef VORN_PARAMETERS_HPP
#define VORN_PARAMETERS_HPP

#include "vorn_kit.hpp"
#include "vorn_parameters.h"

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace vorn_kit {

/// Frees what the readers of texts and lists have taken.
class ParameterMemory
{
public:
    ParameterMemory() = default;
    ParameterMemory(const ParameterMemory&) = delete;
    ParameterMemory& operator=(const ParameterMemory&) = delete;
    ~ParameterMemory() { vorn_free_memory(&memory); }

    vorn_memory* get() { return &memory; }

private:
    vorn_memory memory = {nullptr};
};

// A reader of vorn_parameters.h has sent its message when it returns false.
inline void orFail(bool good)
{
    if (!good)
        throw Failed();
}

/// @name Readers
/// Each returns whether the job has the parameter; `value` is untouched if not.
/// @{
inline bool readParameter(const vorn_parameter& p, double& value)
{
    bool given = false;
    orFail(vorn_read_double(&p, &value, &given));
    return given;
}

inline bool readParameter(const vorn_parameter& p, int& value)
{
    bool given = false;
    orFail(vorn_read_int(&p, &value, &given));
    return given;
}

inline bool readParameter(const vorn_parameter& p, std::int64_t& value)
{
    bool given = false;
    orFail(vorn_read_int64(&p, &value, &given));
    return given;
}

inline bool readParameter(const vorn_parameter& p, bool& value)
{
    bool given = false;
    orFail(vorn_read_bool(&p, &value, &given));
    return given;
}

inline bool readParameter(const vorn_parameter& p, std::string& value)
{
    ParameterMemory memory;
    const char* text = nullptr;
    bool given = false;
    orFail(vorn_read_text(&p, memory.get(), &text, &given));
    if (given)
        value = text;
    return given;
}

/// A choice: the enumerators count from 0, in the order of the words.
template <typename Enum, std::enable_if_t<std::is_enum_v<Enum>, int> = 0>
bool readParameter(const vorn_parameter& p, Enum& value)
{
    int word = 0;
    bool given = false;
    orFail(vorn_read_choice(&p, &word, &given));
    if (given)
        value = static_cast<Enum>(word);
    return given;
}

template <typename Value, typename Element, typename Reader>
bool readList(const vorn_parameter& p, std::vector<Value>& value, const Element* elements,
              Reader reader)
{
    ParameterMemory memory;
    int count = -1;
    orFail(reader(&p, memory.get(), &elements, &count));
    if (count >= 0)
        value.assign(elements, elements + count);
    return count >= 0;
}

inline bool readParameter(const vorn_parameter& p, std::vector<double>& value)
{
    return readList(p, value, static_cast<const double*>(nullptr), vorn_read_doubles);
}

inline bool readParameter(const vorn_parameter& p, std::vector<int>& value)
{
    return readList(p, value, static_cast<const int*>(nullptr), vorn_read_ints);
}

inline bool readParameter(const vorn_parameter& p, std::vector<std::int64_t>& value)
{
    return readList(p, value, static_cast<const std::int64_t*>(nullptr), vorn_read_int64s);
}

inline bool readParameter(const vorn_parameter& p, std::vector<std::string>& value)
{
    return readList(p, value, static_cast<const char* const*>(nullptr), vorn_read_texts);
}

template <typename Value>
bool readParameter(const vorn_parameter& p, std::optional<Value>& value)
{
    Value found{};
    const bool given = readParameter(p, found);
    if (given)
        value = std::move(found);
    return given;
}
/// @}

} // namespace vorn_kit

#endif
