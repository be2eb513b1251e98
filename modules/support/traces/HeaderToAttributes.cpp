#include "traces/HeaderToAttributes.h"

#include "MOXKernel.h"

#include <bit>
#include <string_view>

namespace traces {

namespace {

bool fits(const VORN::HeaderWord& word)
{
    const int type = getTraceAttributeType(word.key);
    return word.isFloat ? type == float32Type || type == float64Type : type > 0;
}

UniVar variant(const VORN::HeaderWord& word, int32_t value)
{
    return word.isFloat ? UniVar(std::bit_cast<float>(value)) : UniVar(value);
}

} // namespace

HeaderToAttributes::HeaderToAttributes(const std::vector<VORN::HeaderWord>& words)
{
    for (const VORN::HeaderWord& word : words) {
        if (fits(word))
            known.push_back({&word, 0});
        else
            unknown.push_back(&word);
    }
}

// The work buffer has traces of one sample, since only their header is used.
void HeaderToAttributes::begin(void* output, int interval)
{
    microseconds = interval;
    for (const Word& word : known)
        defineTraceAttribute(output, word.place->key);
    bldWorkTraceBuffer(0, 1, interval, 1, output);
}

int32_t HeaderToAttributes::valueOf(const Word& word, const unsigned char* header,
                                    bool littleEndian, int samples) const
{
    const std::string_view key = word.place->key;
    if (key == "ns")
        return samples;
    if (key == "dt")
        return microseconds;
    return VORN::readWord(header, *word.place, littleEndian);
}

float* HeaderToAttributes::addTrace(void* output, const unsigned char* header, bool littleEndian,
                                    int samples)
{
    void* work = getWorkTraceBuffer(0);
    for (Word& word : known) {
        const int32_t value = valueOf(word, header, littleEndian, samples);
        if (value == word.value)
            continue;
        setTraceAttribute(work, word.place->key, variant(*word.place, value), 0);
        word.value = value;
    }
    const int number = getNumberOfTraces(output);
    copyTraceToTrace(work, output, 1, 0, 0, number);
    return getTraceSamples(output, number);
}

} // namespace traces
