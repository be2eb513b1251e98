#include "traces/AttributesToHeader.h"

#include "MOXKernel.h"
#include "traces/AttributeList.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace traces {

namespace {

constexpr int warningMessage = 2;

// A number of any kind, rounded; what 64 bits cannot hold is the nearest that they can.
int64_t wholeNumber(const UniVar& value)
{
    const bool isFloat = value.getType() == float32Type || value.getType() == float64Type;
    return isFloat ? UniVar(std::round(value.getF64Value())).getI64Value() : value.getI64Value();
}

std::string textOf(const VORN::WordValue& value)
{
    if (!value.isFloat)
        return std::to_string(value.whole);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.9g", value.real);
    return text.data();
}

} // namespace

AttributesToHeader::AttributesToHeader(std::string file, const std::vector<VORN::HeaderWord>& words,
                                       const VORN::WordMap& map, bool littleEndian)
    : path(std::move(file)), little(littleEndian)
{
    if (const std::string problem = map.problemOfWriting(); !problem.empty())
        throw std::invalid_argument("words: " + problem);
    for (const VORN::HeaderWord& word : map.words())
        mapped.push_back(&word); // NOLINT(performance-inefficient-vector-operation)
    for (const VORN::HeaderWord& word : words) {
        const std::string_view key = word.key;
        if (map.has(key))
            continue;
        if (key == "ns")
            lengthWord = &word;
        else if (key == "dt")
            intervalWord = &word;
        else
            (word.isFloat ? floats : integers).push_back(&word);
    }
    for (std::size_t i = 0; i < integers.size(); ++i) {
        const std::string_view key = integers[i]->key;
        defaults.push_back(key == "trid" ? 1 : 0);
        if (key == "tracl" || key == "tracr")
            counting.push_back(i);
    }
    integerRuns = VORN::WordRuns(integers);
    integerList = attributeList(integers);
    floatList = attributeList(floats);
    integerValues.resize(integers.size());
    floatValues.resize(floats.size());
}

void AttributesToHeader::fill(void* input, int64_t number, unsigned char* header)
{
    readIntegers(input, number);
    if (!integerRuns.write(header, little, integerValues.data())) {
        for (std::size_t i = 0; i < integers.size(); ++i) // again, to report those that do not fit
            write(*integers[i], integerValues[i], number, header);
    }
    for (const std::size_t i : otherTypes)
        write(*integers[i], wholeNumber(getTraceAttribute(input, integers[i]->key, 0)), number,
              header);
    if (!floats.empty()) {
        std::fill(floatValues.begin(), floatValues.end(), 0.0F);
        getTraceAttributes(floatList, input, 0, floatValues.data());
        for (std::size_t i = 0; i < floats.size(); ++i)
            write(*floats[i], std::bit_cast<int32_t>(floatValues[i]), number, header);
    }
    for (const VORN::HeaderWord* word : mapped)
        writeMapped(*word, input, number, header);
    if (lengthWord != nullptr)
        write(*lengthWord, getTraceLength(input), number, header);
    if (intervalWord != nullptr)
        write(*intervalWord, getTraceSampleInterval(input), number, header);
}

void AttributesToHeader::readIntegers(void* input, int64_t number)
{
    integerValues = defaults;
    for (const std::size_t i : counting)
        integerValues[i] = static_cast<int>(number);
    const int read = getTraceAttributes(integerList, input, 0, integerValues.data());
    if (read != present)
        findOtherTypes(input);
    present = read;
    for (const std::size_t i : otherTypes)
        integerValues[i] = 0; // as 32-bit integers they would not be rounded, and could be cut
}

void AttributesToHeader::findOtherTypes(void* input)
{
    std::vector<int> types(integers.size());
    getAttributeListPresence(integerList, input, types.data());
    otherTypes.clear();
    for (std::size_t i = 0; i < types.size(); ++i) {
        if (types[i] != undefinedType && types[i] != int32Type)
            otherTypes.push_back(i);
    }
}

void AttributesToHeader::write(const VORN::HeaderWord& word, int64_t value, int64_t number,
                               unsigned char* header)
{
    if (!VORN::writeWord(header, word, little, value))
        report(word, std::to_string(value), number, header);
}

void AttributesToHeader::writeMapped(const VORN::HeaderWord& word, void* input, int64_t number,
                                     unsigned char* header)
{
    const std::string_view key = word.key;
    VORN::WordValue value = key == "trid" ? 1 : key == "tracl" || key == "tracr" ? number : 0;
    if (isTraceAttributeExist(input, word.key) != 0) {
        const UniVar attribute = getTraceAttribute(input, word.key, 0);
        const bool isFloat =
            attribute.getType() == float32Type || attribute.getType() == float64Type;
        value = isFloat ? VORN::WordValue::ofFloat(attribute.getF64Value())
                        : VORN::WordValue(attribute.getI64Value());
    }
    if (!VORN::writeWordValue(header, word, little, value))
        report(word, textOf(value), number, header);
}

// Says once per word that a value was written as another.
void AttributesToHeader::report(const VORN::HeaderWord& word, const std::string& value,
                                int64_t number, const unsigned char* header)
{
    if (std::find(reported.begin(), reported.end(), &word) != reported.end())
        return;
    reported.push_back(&word);
    const std::string text = path + ": " + word.key + " of trace " + std::to_string(number) +
                             " is " + value + ", more than " +
                             (word.isFloat ? VORN::wordTypeName(word) + " floats"
                                           : std::to_string(8 * word.bytes) + " bits") +
                             " hold; it is written as " +
                             textOf(VORN::readWordValue(header, word, little)) +
                             ", and others likewise";
    sendMessage(warningMessage, text.c_str());
    // Parts of a job send it once each; the job shows the first of them.
    constexpr int jobScope = 0;
    if (!getMetaDataValue(jobScope, "vorn.part").getStrValue().empty())
        addMessageArgument(std::string("vorn.once word.") + word.key);
}

} // namespace traces
