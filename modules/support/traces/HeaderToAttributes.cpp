#include "traces/HeaderToAttributes.h"

#include "MOXKernel.h"
#include "traces/AttributeList.h"

#include <algorithm>
#include <bit>
#include <new>
#include <string_view>

namespace traces {

namespace {

bool isKnown(const VORN::HeaderWord& word)
{
    const int type = getTraceAttributeType(word.key);
    return word.isFloat ? type == float32Type || type == float64Type : type > 0;
}

// Whether an int, or the bits of a float, holds all its values.
bool isUsual(const VORN::HeaderWord& word)
{
    return word.isFloat ? word.bytes == 4 && !word.isIbm
                        : word.bytes == 2 || (word.bytes == 4 && !word.isUnsigned);
}

UniVar valueOf(const VORN::WordValue& value)
{
    return value.isFloat ? UniVar(value.real) : UniVar(value.whole);
}

} // namespace

HeaderToAttributes::HeaderToAttributes(const std::vector<VORN::HeaderWord>& words)
{
    for (const VORN::HeaderWord& word : words) {
        Words& group = !isKnown(word)   ? unknown
                       : !isUsual(word) ? others
                       : word.isFloat   ? floats
                                        : integers;
        group.push_back(&word);
    }
    const auto find = [&](std::string_view key) {
        const auto word =
            std::find_if(integers.begin(), integers.end(),
                         [=](const VORN::HeaderWord* one) { return one->key == key; });
        return static_cast<std::size_t>(word - integers.begin());
    };
    numbered = getTraceAttributeType(fileTraceAttribute) > 0;
    lengthWord = find("ns");
    intervalWord = find("dt");
    integerRuns = VORN::WordRuns(integers);
    integerValues.resize(integers.size());
    floatValues.resize(floats.size());
}

const VORN::HeaderWord* HeaderToAttributes::integerWord(const std::string& key) const
{
    const int type = getTraceAttributeType(key.c_str());
    if (type != int32Type && type != int64Type && type != float64Type)
        return nullptr;
    for (std::size_t i = 0; i < integers.size(); ++i) {
        // Those two say what the trace has, whatever its header states.
        if (integers[i]->key == key && i != lengthWord && i != intervalWord)
            return integers[i];
    }
    return nullptr;
}

void HeaderToAttributes::begin(void* output, int interval)
{
    microseconds = interval;
    for (const Words* words : {&integers, &floats, &others}) {
        for (const VORN::HeaderWord* word : *words)
            defineTraceAttribute(output, word->key);
    }
    if (numbered) {
        defineTraceAttribute(output, fileTraceAttribute);
        numberList = bldAttributeList(&fileTraceAttribute, 1);
        if (numberList == nullptr)
            throw std::bad_alloc();
    }
    integerList = attributeList(integers);
    floatList = attributeList(floats);
}

float* HeaderToAttributes::addTrace(void* output, int64_t fileTrace, const unsigned char* header,
                                    bool littleEndian, int samples)
{
    const int number = getNumberOfTraces(output);
    integerRuns.read(header, littleEndian, integerValues.data());
    if (lengthWord < integers.size())
        integerValues[lengthWord] = samples;
    if (intervalWord < integers.size())
        integerValues[intervalWord] = microseconds;
    setTraceAttributes(integerList, output, number, integerValues.data());
    if (numbered)
        setTraceAttributes(numberList, output, number, &fileTrace);
    if (!floats.empty()) {
        for (std::size_t i = 0; i < floats.size(); ++i)
            floatValues[i] = std::bit_cast<float>(VORN::readWord(header, *floats[i], littleEndian));
        setTraceAttributes(floatList, output, number, floatValues.data());
    }
    for (const VORN::HeaderWord* word : others)
        setTraceAttribute(output, word->key,
                          valueOf(VORN::readWordValue(header, *word, littleEndian)), number);
    return getTraceSamples(output, number);
}

} // namespace traces
