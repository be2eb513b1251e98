#include "cli/SegyOptions.h"

#include "base/CommandError.h"
#include "base/Numbers.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <stdexcept>

namespace host {

std::vector<OptionSpec> segyOptions()
{
    return {{"--map",
             "WORD=BYTE[:TYPE],…",
             "header words that stand at other bytes, as in iline=9,cdpx=73:double",
             ValueKind::text,
             {},
             true},
            {"--format",
             "CODING",
             "coding of the samples, where the binary header is wrong",
             ValueKind::choice,
             {"ibm", "ieee", "double", "int8", "int16", "int24", "int32", "int64", "uint8",
              "uint16", "uint24", "uint32", "uint64"}},
            {"--endian",
             "ORDER",
             "byte order of headers and samples, where it is not recognised",
             ValueKind::choice,
             {"big", "little"}},
            {"--sample-endian",
             "ORDER",
             "byte order of the samples, where it is not that of the headers",
             ValueKind::choice,
             {"big", "little"}},
            {"--samples", "COUNT", "samples per trace, where the headers are wrong",
             ValueKind::integer},
            {"--interval", "MS", "sample interval in milliseconds, where the headers are wrong",
             ValueKind::number}};
}

VORN::SegyOverrides segyOverrides(const Arguments& arguments)
{
    VORN::SegyOverrides overrides;
    if (arguments.has("--format"))
        overrides.format = VORN::sampleFormatOfKey(arguments.text("--format"));
    if (arguments.has("--endian"))
        overrides.littleEndian = arguments.text("--endian") == "little";
    if (arguments.has("--sample-endian"))
        overrides.samplesLittleEndian = arguments.text("--sample-endian") == "little";
    if (arguments.has("--samples")) {
        const long long samples = arguments.integer("--samples", 0);
        if (samples < 1 || samples > INT_MAX)
            throw CommandError("--samples " + std::to_string(samples) +
                               ": expected a whole number of at least 1");
        overrides.samples = static_cast<int>(samples);
    }
    if (arguments.has("--interval")) {
        constexpr double least = 0.001;
        constexpr double most = 2e6;
        const double interval = arguments.number("--interval", 0);
        if (!(interval >= least && interval <= most))
            throw CommandError("--interval " + formatNumber(interval) +
                               ": expected milliseconds from 0.001 to 2000000");
        overrides.interval = static_cast<int>(std::lround(interval * 1000));
    }
    return overrides;
}

VORN::WordMap wordMap(const Arguments& arguments)
{
    std::string all;
    for (const std::string& text : arguments.texts("--map"))
        all += (all.empty() ? "" : ",") + text;
    if (!arguments.has("--map"))
        return {};
    try {
        return VORN::WordMap(all);
    } catch (const std::invalid_argument& error) {
        throw CommandError(std::string("--map: ") + error.what());
    }
}

std::vector<std::string> keysOf(const std::vector<VORN::HeaderWord>& words)
{
    std::vector<std::string> keys;
    keys.reserve(words.size());
    for (const VORN::HeaderWord& word : words)
        keys.emplace_back(word.key);
    return keys;
}

const VORN::HeaderWord* findWord(const std::vector<VORN::HeaderWord>& words, const std::string& key)
{
    const auto word = std::find_if(words.begin(), words.end(),
                                   [&](const VORN::HeaderWord& one) { return one.key == key; });
    return word != words.end() ? &*word : nullptr;
}

} // namespace host
