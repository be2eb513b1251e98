#include "traces/AttributesToHeader.h"

#include "MOXKernel.h"

#include <bit>
#include <cmath>
#include <string_view>
#include <utility>

namespace traces {

namespace {

constexpr int warningMessage = 2;

// A number of any kind, rounded; what 64 bits cannot hold is the nearest that they can. Of a float
// word, the bits.
int64_t wordValue(const UniVar& value, const VORN::HeaderWord& word)
{
    if (word.isFloat)
        return std::bit_cast<int32_t>(value.getF32Value());
    const bool isFloat = value.getType() == float32Type || value.getType() == float64Type;
    return isFloat ? UniVar(std::round(value.getF64Value())).getI64Value() : value.getI64Value();
}

// What a trace header needs and the input does not know.
int64_t substitute(std::string_view key, int64_t traceNumber)
{
    if (key == "tracl" || key == "tracr")
        return traceNumber;
    return key == "trid" ? 1 : 0;
}

} // namespace

AttributesToHeader::AttributesToHeader(std::string file,
                                       const std::vector<VORN::HeaderWord>& wanted,
                                       bool littleEndian)
    : path(std::move(file)), little(littleEndian)
{
    for (const VORN::HeaderWord& word : wanted)
        words.push_back({&word, false, false});
}

int64_t AttributesToHeader::valueOf(Word& word, void* input, int64_t number) const
{
    const std::string_view key = word.place->key;
    if (key == "ns")
        return getTraceLength(input);
    if (key == "dt")
        return getTraceSampleInterval(input);
    word.present = word.present || isTraceAttributeExist(input, word.place->key) != 0;
    return word.present ? wordValue(getTraceAttribute(input, word.place->key, 0), *word.place)
                        : substitute(key, number);
}

void AttributesToHeader::fill(void* input, int64_t number, unsigned char* header)
{
    for (Word& word : words)
        put(word, valueOf(word, input, number), number, header);
}

void AttributesToHeader::put(Word& word, int64_t value, int64_t number, unsigned char* header) const
{
    const VORN::HeaderWord& place = *word.place;
    if (VORN::writeWord(header, place, little, value) || word.reported)
        return;
    word.reported = true;
    const std::string text = path + ": " + place.key + " of trace " + std::to_string(number) +
                             " is " + std::to_string(value) + ", more than " +
                             std::to_string(8 * place.bytes) + " bits hold; it is written as " +
                             std::to_string(VORN::readWord(header, place, little)) +
                             ", and others likewise";
    sendMessage(warningMessage, text.c_str());
}

} // namespace traces
