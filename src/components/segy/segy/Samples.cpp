#include "segy/Samples.h"

#include "segy/SampleLoops.h"

#include <algorithm>
#include <iterator>

namespace VORN {

namespace {

struct FormatEntry
{
    SampleFormat format;
    int bytes;
    const char* key;
    const char* name;
};

constexpr FormatEntry formats[] = {
    {SampleFormat::ibmFloat, 4, "ibm", "4-byte IBM float"},
    {SampleFormat::int32, 4, "int32", "4-byte integer"},
    {SampleFormat::int16, 2, "int16", "2-byte integer"},
    {SampleFormat::ieeeFloat, 4, "ieee", "4-byte IEEE float"},
    {SampleFormat::ieeeDouble, 8, "double", "8-byte IEEE float"},
    {SampleFormat::int24, 3, "int24", "3-byte integer"},
    {SampleFormat::int8, 1, "int8", "1-byte integer"},
    {SampleFormat::int64, 8, "int64", "8-byte integer"},
    {SampleFormat::uint32, 4, "uint32", "4-byte unsigned integer"},
    {SampleFormat::uint16, 2, "uint16", "2-byte unsigned integer"},
    {SampleFormat::uint64, 8, "uint64", "8-byte unsigned integer"},
    {SampleFormat::uint24, 3, "uint24", "3-byte unsigned integer"},
    {SampleFormat::uint8, 1, "uint8", "1-byte unsigned integer"},
};

const FormatEntry* entryOf(SampleFormat format)
{
    const auto* entry = std::find_if(std::begin(formats), std::end(formats),
                                     [=](const FormatEntry& one) { return one.format == format; });
    return entry != std::end(formats) ? entry : nullptr;
}

const SampleLoops& fastest()
{
    static const SampleLoops& loops = sampleLoops().back();
    return loops;
}

} // namespace

bool isSampleFormat(int code)
{
    return entryOf(static_cast<SampleFormat>(code)) != nullptr;
}

int sampleBytes(SampleFormat format)
{
    const FormatEntry* entry = entryOf(format);
    return entry != nullptr ? entry->bytes : 0;
}

const char* sampleFormatName(SampleFormat format)
{
    const FormatEntry* entry = entryOf(format);
    return entry != nullptr ? entry->name : "unknown";
}

const char* sampleFormatKey(SampleFormat format)
{
    const FormatEntry* entry = entryOf(format);
    return entry != nullptr ? entry->key : "unknown";
}

std::optional<SampleFormat> sampleFormatOfKey(std::string_view key)
{
    for (const FormatEntry& entry : formats) {
        if (key == entry.key)
            return entry.format;
    }
    return std::nullopt;
}

std::string sampleFormatKeys()
{
    std::string keys;
    for (const FormatEntry& entry : formats)
        keys += (keys.empty() ? "" : ", ") + std::string(entry.key);
    return keys;
}

void decodeSamples(const unsigned char* from, SampleFormat format, bool littleEndian,
                   std::size_t count, float* to)
{
    fastest().decode(from, format, littleEndian, count, to);
}

std::size_t encodeSamples(const float* from, std::size_t count, SampleFormat format,
                          bool littleEndian, unsigned char* to)
{
    return fastest().encode(from, count, format, littleEndian, to);
}

} // namespace VORN
