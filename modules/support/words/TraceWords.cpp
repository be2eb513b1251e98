#include "words/TraceWords.h"

#include "MOXKernel.h"

#include <array>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <new>
#include <stdexcept>

namespace words {

namespace {

// How the kernel names types of stored attributes and of the schema.
enum TypeCode
{
    absent = 0,
    int32 = 2,
    int64 = 3,
    float32 = 4,
    float64 = 5
};

constexpr std::int64_t exactIntegers = std::int64_t{1} << 53; // of a double

} // namespace

TraceWords::TraceWords(const std::vector<std::string>& names) : words(names)
{
    std::vector<const char*> keys;
    keys.reserve(words.size());
    for (const std::string& word : words)
        keys.push_back(word.c_str());
    list = bldAttributeList(keys.data(), static_cast<int>(keys.size()));
    if (list == nullptr)
        throw std::bad_alloc();
}

// The layout of a channel stays the same from trace to trace.
void TraceWords::check(void* set)
{
    std::vector<int> types(words.size(), absent);
    getAttributeListPresence(list, set, types.data());
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (types[i] == absent)
            throw std::runtime_error("the traces have no header word \"" + words[i] +
                                     "\"; name one that they have");
        if (types[i] < int32 || types[i] > float64)
            throw std::runtime_error("the header word \"" + words[i] +
                                     "\" is not a single number; name one that is");
        if (types[i] == int64)
            longWords.push_back(i);
    }
    isChecked = true;
}

void TraceWords::read(void* set, std::int64_t trace, std::vector<double>& values)
{
    if (!isChecked)
        check(set);
    values.resize(words.size());
    getTraceAttributes(list, set, 0, values.data());
    for (const std::size_t i : longWords) {
        const std::int64_t exact = getTraceAttribute(set, words[i].c_str(), 0).getI64Value();
        if (exact > exactIntegers || exact < -exactIntegers)
            throw std::runtime_error(nameOfTrace(set, trace) + ": " + words[i] + " is " +
                                     std::to_string(exact) +
                                     "; numbers beyond 2^53 cannot be computed with exactly");
    }
}

WordType wordTypeOf(const std::string& name)
{
    const int type = getTraceAttributeType(name.c_str());
    if (type > 0 && getTraceAttributeDimension(name.c_str()) > 1)
        throw std::runtime_error("the header word \"" + name +
                                 "\" is not a single number; name one that is");
    switch (type) {
    case int64:
        return WordType::integer64;
    case float32:
        return WordType::real32;
    case float64:
        return WordType::real64;
    case int32:
    case -1:
        return WordType::integer32;
    default:
        throw std::runtime_error("the header word \"" + name +
                                 "\" is not a single number; name one that is");
    }
}

UniVar stored(double value, WordType type)
{
    const double rounded = std::round(value);
    switch (type) {
    case WordType::integer32:
        if (rounded < INT32_MIN || rounded > INT32_MAX)
            throw std::runtime_error(numberText(value) +
                                     " does not fit into an integer of 32 bits");
        return UniVar(static_cast<int>(rounded));
    case WordType::integer64:
        if (std::fabs(rounded) > static_cast<double>(exactIntegers))
            throw std::runtime_error(numberText(value) +
                                     " is beyond 2^53, where integers are not exact any more");
        return UniVar(static_cast<std::int64_t>(rounded));
    case WordType::real32:
        if (std::fabs(value) > FLT_MAX)
            throw std::runtime_error(numberText(value) + " does not fit into a float of 32 bits");
        return UniVar(static_cast<float>(value));
    default:
        return UniVar(value);
    }
}

std::string nameOfTrace(void* set, std::int64_t number)
{
    std::string telling;
    for (const char* word : {"fldr", "tracf", "cdp", "offset"}) {
        if (isTraceAttributeExist(set, word) == 0)
            continue;
        const int value = getTraceAttribute(set, word, 0).getI32Value();
        if (value != 0)
            telling +=
                (telling.empty() ? "" : ", ") + std::string(word) + " " + std::to_string(value);
    }
    return "trace " + std::to_string(number) + (telling.empty() ? "" : " (" + telling + ")");
}

std::string numberText(double value)
{
    std::array<char, 40> text;
    std::snprintf(text.data(), text.size(), "%.9g", value);
    return text.data();
}

} // namespace words
