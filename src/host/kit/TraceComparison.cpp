#include "kit/TraceComparison.h"

#include "base/Escaping.h"
#include "segy/HeaderWords.h"
#include "su/SuReader.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace host {

namespace {

using VORN::SuReader;

struct TraceBuffer
{
    explicit TraceBuffer(const SuReader& reader)
        : header(VORN::segyTraceHeaderBytes), samples(static_cast<std::size_t>(reader.samples()))
    {
    }
    void read(SuReader& reader, int64_t index)
    {
        reader.read(index, header.data(), samples.data());
    }

    std::vector<unsigned char> header;
    std::vector<float> samples;
};

double largestSample(SuReader& reader)
{
    TraceBuffer trace(reader);
    double largest = 0;
    for (int64_t i = 0; i < reader.traces(); ++i) {
        trace.read(reader, i);
        for (const float sample : trace.samples) {
            if (std::isfinite(sample))
                largest = std::max(largest, std::fabs(static_cast<double>(sample)));
        }
    }
    return largest;
}

// "offset is 100, expected 200", of the first three words that differ.
std::string differingWords(const SuReader& expected, const TraceBuffer& wanted,
                           const SuReader& given, const TraceBuffer& found)
{
    std::vector<std::string> words;
    std::size_t count = 0;
    for (const VORN::HeaderWord& word : VORN::suHeaderWords()) {
        const int32_t is = VORN::readWord(found.header.data(), word, given.littleEndian());
        const int32_t expectedValue =
            VORN::readWord(wanted.header.data(), word, expected.littleEndian());
        if (is == expectedValue)
            continue;
        if (++count <= 3)
            words.push_back(fmt::format("{} is {}, expected {}", word.key, is, expectedValue));
    }
    if (count > 3)
        words.push_back(fmt::format("{} more words differ", count - 3));
    return fmt::format("{}", fmt::join(words, "; "));
}

// The place of the sample that differs most from the one expected, by more than `allowed`; -1 for
// none. What is not finite must be so in both.
std::ptrdiff_t worstSample(const std::vector<float>& wanted, const std::vector<float>& found,
                           double allowed, double& largest)
{
    std::ptrdiff_t worst = -1;
    double most = allowed;
    for (std::size_t i = 0; i < wanted.size() && i < found.size(); ++i) {
        const double is = found[i];
        const double expected = wanted[i];
        if (is == expected || (std::isnan(is) && std::isnan(expected)))
            continue;
        const double difference = std::fabs(is - expected);
        if (std::isfinite(difference))
            largest = std::max(largest, difference);
        if (!(difference <= most)) {
            worst = static_cast<std::ptrdiff_t>(i);
            if (!std::isfinite(difference))
                return worst;
            most = difference;
        }
    }
    return worst;
}

} // namespace

TraceDifferences compareTraces(const std::string& expected, const std::string& given,
                               double tolerance, int mostTraces)
{
    SuReader wanted(expected);
    SuReader found(given);
    TraceDifferences result;
    if (found.traces() != wanted.traces())
        result.findings.push_back(
            fmt::format("{} traces, expected {}", found.traces(), wanted.traces()));
    if (found.samples() != wanted.samples())
        result.findings.push_back(
            fmt::format("{} samples in a trace, expected {}", found.samples(), wanted.samples()));
    const double unit = largestSample(wanted);
    const double allowed = tolerance * unit;
    TraceBuffer wantedTrace(wanted);
    TraceBuffer foundTrace(found);
    int64_t differing = 0;
    double largest = 0;
    result.traces = std::min(wanted.traces(), found.traces());
    for (int64_t i = 0; i < result.traces; ++i) {
        wantedTrace.read(wanted, i);
        foundTrace.read(found, i);
        std::string what = differingWords(wanted, wantedTrace, found, foundTrace);
        const std::ptrdiff_t worst =
            worstSample(wantedTrace.samples, foundTrace.samples, allowed, largest);
        if (worst >= 0) {
            const auto place = static_cast<std::size_t>(worst);
            what += fmt::format("{}sample {} is {:.9g}, expected {:.9g}", what.empty() ? "" : "; ",
                                worst + 1, foundTrace.samples[place], wantedTrace.samples[place]);
        }
        if (what.empty())
            continue;
        if (++differing <= mostTraces)
            result.findings.push_back(fmt::format("trace {}: {}", i + 1, what));
    }
    if (differing > mostTraces)
        result.findings.push_back(
            fmt::format("{} more traces differ from those expected", differing - mostTraces));
    result.largest = unit > 0 ? largest / unit : largest;
    return result;
}

std::string notFinite(const std::string& path)
{
    SuReader reader(path);
    TraceBuffer trace(reader);
    for (int64_t i = 0; i < reader.traces(); ++i) {
        trace.read(reader, i);
        const auto found = std::find_if(trace.samples.begin(), trace.samples.end(),
                                        [](float sample) { return !std::isfinite(sample); });
        if (found != trace.samples.end())
            return fmt::format("sample {} of trace {} is {}", found - trace.samples.begin() + 1,
                               i + 1, *found);
    }
    return "";
}

} // namespace host
