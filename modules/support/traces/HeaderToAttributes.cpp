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

} // namespace

HeaderToAttributes::HeaderToAttributes(const std::vector<VORN::HeaderWord>& words)
{
    for (const VORN::HeaderWord& word : words)
        (!isKnown(word) ? unknown : word.isFloat ? floats : integers).push_back(&word);
    const auto find = [&](std::string_view key) {
        const auto word =
            std::find_if(integers.begin(), integers.end(),
                         [=](const VORN::HeaderWord* one) { return one->key == key; });
        return static_cast<std::size_t>(word - integers.begin());
    };
    numbered = getTraceAttributeType(fileTraceAttribute) > 0;
    lengthWord = find("ns");
    intervalWord = find("dt");
    integerValues.resize(integers.size());
    floatValues.resize(floats.size());
}

void HeaderToAttributes::begin(void* output, int interval)
{
    microseconds = interval;
    for (const Words* words : {&integers, &floats}) {
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
    for (std::size_t i = 0; i < integers.size(); ++i)
        integerValues[i] = VORN::readWord(header, *integers[i], littleEndian);
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
    return getTraceSamples(output, number);
}

} // namespace traces
