#include "segy/SampleCoding.h"

#include "file/InputFile.h"
#include "segy/HeaderWords.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <set>
#include <vector>

namespace VORN {

namespace {

constexpr int64_t mostTraces = 24;
constexpr int mostSamples = 2000; // of a trace
constexpr std::size_t fewestSamples = 400;
constexpr std::size_t fewestDifferent = 100;

// One way to read the samples.
struct Coding
{
    SampleFormat format;
    bool littleEndian;
};

// What is looked at: sizes are what takes longest.
enum class Looking
{
    atSharesAlone,
    atSizesToo
};

// What the samples look like when they are read so. Samples whose bytes are all zero are left out:
// they are zero under every coding.
struct Evidence
{
    std::size_t samples = 0;
    double absurd = 0;    // share: not a number, beyond 1e25, an IBM float that is not normalised
    double tiny = 0;      // share below 1e-25, as tails of made-up wavelets have
    double roughness = 0; // mean of |a-b|/(|a|+|b|) over neighbours: 0 smooth, 0.7 noise, 1 chaos
    double spread = 0;    // standard deviation of log2|a|; a size
    double median = 0;    // of |a|; a size
    double large = 0;     // share of |a| of at least 2^28
    double small = 0;     // share of |a| below 2^27
    double jumps = 0;     // sum of |a-b| over neighbours, to the sum of |a|
    double negative = 0;  // share below 0
};

// How first hexadecimal digits of the fraction are distributed, if the samples are IBM floats.
struct FirstDigits
{
    double zero =
        0; // share: not normalised. In IEEE floats these are the lowest eighths of octaves
    int afterGaps =
        0; // exponents under which the digit 1 is frequent: IEEE floats just above those
};

bool isSignedInteger(SampleFormat format)
{
    return format == SampleFormat::int16 || format == SampleFormat::int24 ||
           format == SampleFormat::int32 || format == SampleFormat::int64;
}

bool isFloat(SampleFormat format)
{
    return format == SampleFormat::ibmFloat || format == SampleFormat::ieeeFloat;
}

class CodingJudge
{
public:
    CodingJudge(InputFile& input, const SegyLayout& where, const std::string& text)
        : file(input), layout(where), stated{where.format, where.samplesLittleEndian}
    {
        std::string upper = text;
        std::transform(upper.begin(), upper.end(), upper.begin(),
                       [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
        const bool ieee = upper.find("IEEE") != std::string::npos;
        const bool ibm = upper.find("IBM") != std::string::npos;
        textSaysIeee = ieee && !ibm;
        textSaysIbm = ibm && !ieee;
    }

    std::string verdict()
    {
        collect();
        if (bytes.empty() || !isEnough())
            return "";
        // Nothing that excludes another coding asks for the sizes of floats.
        now = evidenceOf(stated,
                         isFloat(stated.format) ? Looking::atSharesAlone : Looking::atSizesToo);
        for (const Coding& other : candidates()) {
            Reading then(*this, other);
            if (!isBetter(other, then))
                continue;
            now = evidenceOf(stated, Looking::atSizesToo);
            return line(other, then());
        }
        return "";
    }

private:
    // The evidence of a coding, found when it is first asked for: most codings are excluded by what
    // takes far less.
    class Reading
    {
    public:
        Reading(const CodingJudge& owner, const Coding& readAs) : judge(owner), coding(readAs) {}

        const Evidence& operator()()
        {
            if (!evidence)
                evidence = judge.evidenceOf(coding, Looking::atSizesToo);
            return *evidence;
        }

    private:
        const CodingJudge& judge;
        Coding coding;
        std::optional<Evidence> evidence;
    };

    void collect();
    bool isEnough() const;
    std::vector<Coding> candidates() const;
    Evidence evidenceOf(const Coding& coding, Looking looking) const;
    FirstDigits firstDigits(bool littleEndian) const;
    double entropyOfByte(std::size_t place) const;
    bool isSmallSwapped(Reading& then) const;
    bool isBetter(const Coding& other, Reading& then) const;
    bool isBetterInOrder(SampleFormat other, Reading& then) const;
    bool isBetterSwapped(SampleFormat other, Reading& then) const;
    bool areFloats(const Coding& other, Reading& then) const;
    std::string line(const Coding& other, const Evidence& then) const;

    uint32_t wordAt(std::size_t sample, bool littleEndian) const
    {
        static const HeaderWord word{"", 1, 4, true, ""};
        return static_cast<uint32_t>(readWord(bytes.data() + 4 * sample, word, littleEndian));
    }

    InputFile& file;
    const SegyLayout& layout;
    Coding stated;
    bool textSaysIeee = false;
    bool textSaysIbm = false;
    std::vector<unsigned char> bytes;   // of samples, piece behind piece
    std::vector<std::size_t> pieceEnds; // in samples
    Evidence now;
};

// The middle of some traces: their beginnings are often muted.
void CodingJudge::collect()
{
    const int width = sampleBytes(layout.format);
    const int64_t step = std::max<int64_t>(1, layout.traces / mostTraces);
    for (int64_t i = 0, seen = 0; i < layout.traces && seen < mostTraces; i += step, ++seen) {
        const auto at = static_cast<std::size_t>(i);
        const int64_t start = layout.variableLength
                                  ? layout.traceStarts[at]
                                  : layout.dataStart + i * layout.traceBytes(layout.samples);
        const int64_t samples =
            layout.variableLength
                ? (layout.traceStarts[at + 1] - start - layout.traceHeaderBytes) / width
                : layout.samples;
        const int64_t count = std::min<int64_t>(samples, mostSamples);
        const int64_t first = (samples - count) / 2;
        if (count <= 0)
            continue;
        const unsigned char* from =
            file.peek(start + layout.traceHeaderBytes + first * width, count * width);
        bytes.insert(bytes.end(), from, from + count * width);
        pieceEnds.push_back(bytes.size() / static_cast<std::size_t>(width));
    }
}

// Whether there are enough samples, different ones, to judge by.
bool CodingJudge::isEnough() const
{
    const auto width = static_cast<std::size_t>(sampleBytes(layout.format));
    std::set<uint64_t> different;
    std::size_t set = 0;
    for (std::size_t at = 0; at < bytes.size(); at += width) {
        uint64_t bits = 0;
        for (std::size_t i = 0; i < width; ++i)
            bits = bits << 8 | bytes[at + i];
        if (bits == 0)
            continue;
        ++set;
        if (different.size() < fewestDifferent)
            different.insert(bits);
        else if (set >= fewestSamples)
            break;
    }
    return set >= fewestSamples && different.size() >= fewestDifferent;
}

// The other readings, the likeliest mistakes first.
std::vector<Coding> CodingJudge::candidates() const
{
    std::vector<Coding> codings;
    const auto add = [&](SampleFormat format, bool swapped) {
        if (format != stated.format || swapped)
            codings.push_back({format, stated.littleEndian != swapped});
    };
    if (sampleBytes(stated.format) == 2)
        add(SampleFormat::int16, true);
    else if (stated.format == SampleFormat::ieeeDouble || isSignedInteger(stated.format))
        add(stated.format, true);
    if (sampleBytes(stated.format) != 4)
        return codings;
    add(SampleFormat::ieeeFloat, false);
    add(SampleFormat::ibmFloat, false);
    // Before integers: floats with few digits in the other order are small integers.
    add(SampleFormat::ieeeFloat, true);
    add(SampleFormat::ibmFloat, true);
    add(SampleFormat::int32, false);
    add(SampleFormat::int32, true);
    return codings;
}

Evidence CodingJudge::evidenceOf(const Coding& coding, Looking looking) const
{
    constexpr double least = 1e-25;
    constexpr double most = 1e25;
    const auto width = static_cast<std::size_t>(sampleBytes(layout.format));
    const std::size_t count = bytes.size() / width;
    std::vector<float> values(count);
    decodeSamples(bytes.data(), coding.format, coding.littleEndian, count, values.data());

    Evidence found;
    std::vector<double> magnitudes;
    double logs = 0;
    double squares = 0;
    double jumps = 0;
    double steps = 0;
    double sizes = 0;
    std::size_t negative = 0;
    std::size_t absurd = 0;
    std::size_t tiny = 0;
    std::size_t large = 0;
    std::size_t small = 0;
    std::size_t pairs = 0;
    std::size_t piece = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned char* from = bytes.data() + width * i;
        const bool isNewPiece = i == 0 || i == pieceEnds[piece];
        piece += i > 0 && isNewPiece ? 1 : 0;
        if (std::all_of(from, from + width, [](unsigned char byte) { return byte == 0; }))
            continue;
        ++found.samples;
        const double size = std::abs(static_cast<double>(values[i]));
        bool isAbsurd = !(size < most);
        bool isTiny = size <= least && size > 0;
        if (coding.format == SampleFormat::ibmFloat) {
            const uint32_t fraction = wordAt(i, coding.littleEndian) & 0xFFFFFF;
            isAbsurd = isAbsurd || (fraction != 0 && fraction < 0x100000);
        } else if (coding.format == SampleFormat::ieeeFloat ||
                   coding.format == SampleFormat::ieeeDouble) {
            isTiny = isTiny || size == 0; // minus zero, and doubles below floats
        }
        negative += values[i] < 0 ? 1U : 0U;
        absurd += isAbsurd ? 1 : 0;
        tiny += !isAbsurd && isTiny ? 1 : 0;
        large += size >= 0x1p28 ? 1 : 0;
        small += size < 0x1p27 ? 1 : 0;
        if (size > least && size < most) {
            sizes += size;
            if (looking == Looking::atSizesToo) {
                const double log = std::log2(size);
                logs += log;
                squares += log * log;
                magnitudes.push_back(size);
            }
        }
        if (isNewPiece)
            continue;
        const double before = values[i - 1];
        const double value = values[i];
        const double sum = std::abs(before) + std::abs(value);
        if (!(sum > 0)) // NaN too
            continue;
        ++pairs;
        jumps += std::isfinite(sum) ? std::abs(value - before) / sum : 1;
        steps += sum < most ? std::abs(value - before) : 0;
    }
    if (found.samples == 0)
        return found;
    const auto samples = static_cast<double>(found.samples);
    found.absurd = static_cast<double>(absurd) / samples;
    found.tiny = static_cast<double>(tiny) / samples;
    found.large = static_cast<double>(large) / samples;
    found.small = static_cast<double>(small) / samples;
    found.negative = static_cast<double>(negative) / samples;
    found.jumps = sizes > 0 ? steps / sizes : 0;
    found.roughness = pairs > 0 ? jumps / static_cast<double>(pairs) : 0;
    if (!magnitudes.empty()) {
        const auto kept = static_cast<double>(magnitudes.size());
        found.spread = std::sqrt(std::max(0.0, squares / kept - logs / kept * (logs / kept)));
        const auto middle = magnitudes.begin() + static_cast<std::ptrdiff_t>(magnitudes.size() / 2);
        std::nth_element(magnitudes.begin(), middle, magnitudes.end());
        found.median = *middle;
    }
    return found;
}

FirstDigits CodingJudge::firstDigits(bool littleEndian) const
{
    constexpr std::size_t frequent = 20;
    std::array<std::size_t, 128> ones{};
    std::size_t zeros = 0;
    std::size_t count = 0;
    for (std::size_t i = 0; i < bytes.size() / 4; ++i) {
        const uint32_t word = wordAt(i, littleEndian);
        if ((word & 0xFFFFFF) == 0)
            continue;
        ++count;
        const uint32_t digit = word >> 20 & 0xF;
        zeros += digit == 0 ? 1 : 0;
        ones[word >> 24 & 0x7F] += digit == 1 ? 1 : 0;
    }
    FirstDigits found;
    if (count == 0)
        return found;
    found.zero = static_cast<double>(zeros) / static_cast<double>(count);
    found.afterGaps = static_cast<int>(
        std::count_if(ones.begin(), ones.end(), [](std::size_t one) { return one >= frequent; }));
    return found;
}

// In bits, of the bytes at this place of the samples.
double CodingJudge::entropyOfByte(std::size_t place) const
{
    const auto width = static_cast<std::size_t>(sampleBytes(layout.format));
    std::array<std::size_t, 256> counts{};
    std::size_t all = 0;
    for (std::size_t at = 0; at < bytes.size(); at += width) {
        const unsigned char* from = bytes.data() + at;
        if (std::all_of(from, from + width, [](unsigned char byte) { return byte == 0; }))
            continue;
        ++counts[from[place]];
        ++all;
    }
    double entropy = 0;
    for (const std::size_t count : counts) {
        const double share = static_cast<double>(count) / static_cast<double>(all);
        if (count > 0)
            entropy -= share * std::log2(share);
    }
    return entropy;
}

// Whether the bytes that are read as the lowest ones are the signs of integers that do not fill
// their bytes, and those that are read as the highest ones differ from sample to sample. Bytes that
// were shifted up have no signs when they are read in the other order.
bool CodingJudge::isSmallSwapped(Reading& then) const
{
    constexpr double clear = 0.75; // bits
    const auto last = static_cast<std::size_t>(sampleBytes(layout.format)) - 1;
    const double high = entropyOfByte(stated.littleEndian ? last : 0);
    const double low = entropyOfByte(stated.littleEndian ? 0 : last);
    return high >= low + clear && then().median < now.median && then().jumps <= now.jumps &&
           then().negative >= 0.05 && then().negative <= 0.95;
}

// Whether the samples, read as floats of that kind, are what traces are made of.
bool isPlausible(const Evidence& evidence)
{
    return evidence.absurd <= 0.001 && evidence.tiny <= 0.3 && evidence.spread >= 0.8 &&
           evidence.spread <= 30;
}

// IEEE or IBM floats, which the first digits tell apart. IBM floats are normalised. Read as IEEE
// floats, they leave a gap of an eighth at the bottom of every second octave and are there right
// above it, which no smooth distribution of amplitudes does in two octaves.
bool CodingJudge::areFloats(const Coding& other, Reading& then) const
{
    if (!isFloat(other.format))
        return false;
    const FirstDigits digits = firstDigits(other.littleEndian);
    const bool fit = other.format == SampleFormat::ieeeFloat
                         ? digits.zero >= 0.02
                         : digits.zero <= 0.0002 && digits.afterGaps >= 2;
    return fit && isPlausible(then());
}

// In the byte order of the headers.
bool CodingJudge::isBetterInOrder(SampleFormat other, Reading& then) const
{
    const bool nowFloat = isFloat(stated.format);
    if (nowFloat && other == SampleFormat::int32)
        // Integers that do not fill their four bytes are floats without a sensible exponent.
        return now.absurd + now.tiny >= 0.3 && then().small >= 0.99;
    if (stated.format == SampleFormat::ibmFloat && other == SampleFormat::ieeeFloat) {
        const double limit = textSaysIeee ? 0.007 : textSaysIbm ? 0.05 : 0.02;
        return firstDigits(stated.littleEndian).zero >= limit && isPlausible(then()) &&
               then().roughness <= now.roughness + 0.02;
    }
    if (stated.format == SampleFormat::ieeeFloat && other == SampleFormat::ibmFloat)
        return areFloats({other, stated.littleEndian}, then);
    // Floats read as integers all have nearly one size, far from 0.
    return !nowFloat && isFloat(other) && now.large >= 0.99 && now.spread < 0.6 &&
           areFloats({other, stated.littleEndian}, then);
}

// In the other byte order.
bool CodingJudge::isBetterSwapped(SampleFormat other, Reading& then) const
{
    if (isFloat(other))
        return isFloat(stated.format) && now.absurd + now.tiny >= 0.1 &&
               areFloats({other, !stated.littleEndian}, then) && then().tiny <= 0.001 &&
               then().spread <= 6 && then().roughness <= now.roughness - 0.1;
    if (other != stated.format)
        return false;
    if (other == SampleFormat::ieeeDouble)
        return now.absurd + now.tiny >= 0.3 && isPlausible(then()) && then().tiny <= 0.001;
    if (isSignedInteger(other) && isSmallSwapped(then))
        return true;
    // The lowest byte of integers is noise, and their highest ones are alike.
    if (other == SampleFormat::int32 && now.small < 0.2 && then().small >= 0.99)
        return true;
    return now.roughness >= 0.6 && then().roughness <= 0.75 * now.roughness;
}

bool CodingJudge::isBetter(const Coding& other, Reading& then) const
{
    return other.littleEndian == stated.littleEndian ? isBetterInOrder(other.format, then)
                                                     : isBetterSwapped(other.format, then);
}

std::string numbers(const Coding& coding, const Evidence& evidence)
{
    std::array<char, 160> text{};
    std::snprintf(text.data(), text.size(),
                  "as %s %s endian %.1f %% of them are absurd, their median is %.3g and their "
                  "roughness %.2f",
                  sampleFormatKey(coding.format), coding.littleEndian ? "little" : "big",
                  100 * (evidence.absurd + evidence.tiny), evidence.median, evidence.roughness);
    return text.data();
}

std::string CodingJudge::line(const Coding& other, const Evidence& then) const
{
    const bool sameOrder = other.littleEndian == stated.littleEndian;
    const auto name = [&](const Coding& coding) {
        return sampleFormatName(coding.format) + std::string(sameOrder ? ""
                                                             : coding.littleEndian
                                                                 ? ", little endian"
                                                                 : ", big endian");
    };
    std::string options;
    if (other.format != stated.format)
        options = "`format: " + std::string(sampleFormatKey(other.format)) + "`";
    if (!sameOrder)
        options += std::string(options.empty() ? "" : " and ") +
                   "`sample_endian: " + (other.littleEndian ? "little" : "big") + "`";
    const std::string text =
        textSaysIeee && other.format == SampleFormat::ieeeFloat ? "; the text header says IEEE"
        : textSaysIbm && other.format == SampleFormat::ibmFloat ? "; the text header says IBM"
                                                                : "";
    return "the samples look like " + name(other) + " and not like " + name(stated) +
           ", as which " + "they are read: of " + std::to_string(now.samples) + " samples, " +
           numbers(other, then) + ", " + numbers(stated, now) + text + "; state " + options +
           " to read them so";
}

} // namespace

std::string doubtOfCoding(InputFile& file, const SegyLayout& layout, const std::string& text)
{
    return CodingJudge(file, layout, text).verdict();
}

} // namespace VORN
