#include "segy/HeaderWords.h"

#include "segy/Samples.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>
#include <limits>

namespace VORN {

namespace {

// clang-format off
constexpr HeaderWord traceWords[] = {
    {"tracl",    1, 4, false, "trace number in the line"},
    {"tracr",    5, 4, false, "trace number in the reel"},
    {"fldr",     9, 4, false, "field record number"},
    {"tracf",   13, 4, false, "trace number in the field record"},
    {"ep",      17, 4, false, "energy source point number"},
    {"cdp",     21, 4, false, "CDP ensemble number"},
    {"cdpt",    25, 4, false, "trace number in the CDP ensemble"},
    {"trid",    29, 2, false, "trace identification code (1 seismic, 2 dead)"},
    {"nvs",     31, 2, false, "vertically summed traces"},
    {"nhs",     33, 2, false, "horizontally stacked traces"},
    {"duse",    35, 2, false, "data use (1 production, 2 test)"},
    {"offset",  37, 4, false, "distance from source to receiver group"},
    {"gelev",   41, 4, false, "receiver group elevation"},
    {"selev",   45, 4, false, "surface elevation at the source"},
    {"sdepth",  49, 4, false, "source depth below the surface"},
    {"gdel",    53, 4, false, "datum elevation at the receiver group"},
    {"sdel",    57, 4, false, "datum elevation at the source"},
    {"swdep",   61, 4, false, "water depth at the source"},
    {"gwdep",   65, 4, false, "water depth at the receiver group"},
    {"scalel",  69, 2, false, "scalar of elevations and depths"},
    {"scalco",  71, 2, false, "scalar of coordinates"},
    {"sx",      73, 4, false, "source coordinate, x"},
    {"sy",      77, 4, false, "source coordinate, y"},
    {"gx",      81, 4, false, "receiver group coordinate, x"},
    {"gy",      85, 4, false, "receiver group coordinate, y"},
    {"counit",  89, 2, false, "coordinate units (1 length, 2 seconds of arc)"},
    {"wevel",   91, 2, false, "weathering velocity"},
    {"swevel",  93, 2, false, "subweathering velocity"},
    {"sut",     95, 2, false, "uphole time at the source, ms"},
    {"gut",     97, 2, false, "uphole time at the receiver group, ms"},
    {"sstat",   99, 2, false, "source static correction, ms"},
    {"gstat",  101, 2, false, "receiver group static correction, ms"},
    {"tstat",  103, 2, false, "total static applied, ms"},
    {"laga",   105, 2, false, "lag time A, ms"},
    {"lagb",   107, 2, false, "lag time B, ms"},
    {"delrt",  109, 2, false, "delay recording time, ms"},
    {"muts",   111, 2, false, "mute start time, ms"},
    {"mute",   113, 2, false, "mute end time, ms"},
    {"ns",     115, 2, true,  "samples in this trace"},
    {"dt",     117, 2, true,  "sample interval, microseconds"},
    {"gain",   119, 2, false, "gain type of field instruments"},
    {"igc",    121, 2, false, "instrument gain constant, dB"},
    {"igi",    123, 2, false, "instrument initial gain, dB"},
    {"corr",   125, 2, false, "correlated (1 no, 2 yes)"},
    {"sfs",    127, 2, false, "sweep frequency at the start, Hz"},
    {"sfe",    129, 2, false, "sweep frequency at the end, Hz"},
    {"slen",   131, 2, false, "sweep length, ms"},
    {"styp",   133, 2, false, "sweep type"},
    {"stas",   135, 2, false, "sweep taper at the start, ms"},
    {"stae",   137, 2, false, "sweep taper at the end, ms"},
    {"tatyp",  139, 2, false, "taper type"},
    {"afilf",  141, 2, false, "alias filter frequency, Hz"},
    {"afils",  143, 2, false, "alias filter slope, dB/octave"},
    {"nofilf", 145, 2, false, "notch filter frequency, Hz"},
    {"nofils", 147, 2, false, "notch filter slope, dB/octave"},
    {"lcf",    149, 2, false, "low-cut frequency, Hz"},
    {"hcf",    151, 2, false, "high-cut frequency, Hz"},
    {"lcs",    153, 2, false, "low-cut slope, dB/octave"},
    {"hcs",    155, 2, false, "high-cut slope, dB/octave"},
    {"year",   157, 2, false, "year recorded"},
    {"day",    159, 2, false, "day of the year"},
    {"hour",   161, 2, false, "hour of the day"},
    {"minute", 163, 2, false, "minute of the hour"},
    {"sec",    165, 2, false, "second of the minute"},
    {"timbas", 167, 2, false, "time basis (1 local, 2 GMT, 3 other, 4 UTC)"},
    {"trwf",   169, 2, false, "trace weighting factor"},
    {"grnors", 171, 2, false, "group number of roll switch position one"},
    {"grnofr", 173, 2, false, "group number of the first trace of the record"},
    {"grnlof", 175, 2, false, "group number of the last trace of the record"},
    {"gaps",   177, 2, false, "gap size, groups dropped"},
    {"otrav",  179, 2, false, "over travel of taper"},
    {"cdpx",   181, 4, false, "CDP coordinate, x"},
    {"cdpy",   185, 4, false, "CDP coordinate, y"},
    {"iline",  189, 4, false, "in-line number"},
    {"xline",  193, 4, false, "cross-line number"},
    {"sp",     197, 4, false, "shotpoint number"},
    {"scalsp", 201, 2, false, "scalar of the shotpoint number"},
    {"tunit",  203, 2, false, "unit of the samples"},
    {"tdcm",   205, 4, false, "transduction constant, mantissa"},
    {"tdce",   209, 2, false, "transduction constant, exponent of ten"},
    {"tdunit", 211, 2, false, "transduction unit"},
    {"triden", 213, 2, false, "device or trace identifier"},
    {"sctrh",  215, 2, false, "scalar of times in bytes 95 to 114"},
    {"stype",  217, 2, false, "source type and orientation"},
    {"sedm",   219, 4, false, "source energy direction, mantissa"},
    {"sede",   223, 2, false, "source energy direction, exponent"},
    {"smm",    225, 4, false, "source measurement, mantissa"},
    {"sme",    229, 2, false, "source measurement, exponent of ten"},
    {"smunit", 231, 2, false, "source measurement unit"},
    {"unas1",  233, 4, false, "unassigned, bytes 233 to 236"},
    {"unas2",  237, 4, false, "unassigned, bytes 237 to 240"},
};

// Behind byte 180 Seismic Unix has words of its own.
constexpr HeaderWord suTail[] = {
    {"d1",      181, 4, false, "sample spacing where it is not time", true},
    {"f1",      185, 4, false, "first sample location", true},
    {"d2",      189, 4, false, "sample spacing between traces", true},
    {"f2",      193, 4, false, "first trace location", true},
    {"ungpow",  197, 4, false, "negative of the power used for dynamic range compression", true},
    {"unscale", 201, 4, false, "reciprocal of the scaling factor to normalise the range", true},
    {"ntr",     205, 4, false, "number of traces"},
    {"mark",    209, 2, false, "mark of selected traces"},
    {"shortpad",211, 2, false, "alignment"},
};

constexpr HeaderWord binaryWords[] = {
    {"jobid",    1, 4, false, "job identification number"},
    {"lino",     5, 4, false, "line number"},
    {"reno",     9, 4, false, "reel number"},
    {"ntrpr",   13, 2, true,  "data traces per ensemble"},
    {"nart",    15, 2, true,  "auxiliary traces per ensemble"},
    {"hdt",     17, 2, true,  "sample interval, microseconds"},
    {"dto",     19, 2, true,  "sample interval of the field recording, microseconds"},
    {"hns",     21, 2, true,  "samples per trace"},
    {"nso",     23, 2, true,  "samples per trace of the field recording"},
    {"format",  25, 2, false, "sample format code"},
    {"fold",    27, 2, false, "CDP fold"},
    {"tsort",   29, 2, false, "trace sorting code (1 as recorded, 2 CDP, 3 single fold, 4 stacked)"},
    {"vscode",  31, 2, false, "vertical sum code"},
    {"hsfs",    33, 2, false, "sweep frequency at the start, Hz"},
    {"hsfe",    35, 2, false, "sweep frequency at the end, Hz"},
    {"hslen",   37, 2, false, "sweep length, ms"},
    {"hstyp",   39, 2, false, "sweep type"},
    {"schn",    41, 2, false, "trace number of the sweep channel"},
    {"hstas",   43, 2, false, "sweep taper at the start, ms"},
    {"hstae",   45, 2, false, "sweep taper at the end, ms"},
    {"htatyp",  47, 2, false, "taper type"},
    {"hcorr",   49, 2, false, "correlated data traces (1 no, 2 yes)"},
    {"bgrcv",   51, 2, false, "binary gain recovered (1 yes, 2 no)"},
    {"rcvm",    53, 2, false, "amplitude recovery method"},
    {"mfeet",   55, 2, false, "measurement system (1 metres, 2 feet)"},
    {"polyt",   57, 2, false, "impulse signal polarity"},
    {"vpol",    59, 2, false, "vibratory polarity code"},
    {"rev",    301, 2, true,  "format revision, 256 for 1.0"},
    {"fixed",  303, 2, false, "fixed length trace flag"},
    {"next",   305, 2, false, "extended text headers; -1 for a variable number"},
};
// clang-format on

const HeaderWord* find(const std::vector<HeaderWord>& words, std::string_view key)
{
    const auto word = std::find_if(words.begin(), words.end(),
                                   [=](const HeaderWord& one) { return one.key == key; });
    return word != words.end() ? &*word : nullptr;
}

std::vector<HeaderWord> makeSuWords()
{
    constexpr int lastSharedByte = 180;
    std::vector<HeaderWord> words;
    std::copy_if(std::begin(traceWords), std::end(traceWords), std::back_inserter(words),
                 [](const HeaderWord& word) { return word.byte <= lastSharedByte; });
    words.insert(words.end(), std::begin(suTail), std::end(suTail));
    return words;
}

} // namespace

// Made on first use: others may ask before this file's own variables are there.
const std::vector<HeaderWord>& traceHeaderWords()
{
    static const std::vector<HeaderWord> words(std::begin(traceWords), std::end(traceWords));
    return words;
}

const std::vector<HeaderWord>& binaryHeaderWords()
{
    static const std::vector<HeaderWord> words(std::begin(binaryWords), std::end(binaryWords));
    return words;
}

const std::vector<HeaderWord>& suHeaderWords()
{
    static const std::vector<HeaderWord> words = makeSuWords();
    return words;
}

const HeaderWord* findTraceHeaderWord(std::string_view key)
{
    return find(traceHeaderWords(), key);
}

const HeaderWord* findBinaryHeaderWord(std::string_view key)
{
    return find(binaryHeaderWords(), key);
}

namespace {

uint64_t bitsAt(const unsigned char* from, int bytes, bool littleEndian)
{
    uint64_t bits = 0;
    for (int i = 0; i < bytes; ++i)
        bits = bits << 8 | from[littleEndian ? bytes - 1 - i : i];
    return bits;
}

void putBits(unsigned char* to, int bytes, bool littleEndian, uint64_t bits)
{
    for (int i = 0; i < bytes; ++i, bits >>= 8)
        to[littleEndian ? i : bytes - 1 - i] = static_cast<unsigned char>(bits);
}

// Sign, exponent of 16 from 64, six hexadecimal digits behind the point.
double ibmValue(uint32_t bits)
{
    const int exponent = static_cast<int>(bits >> 24 & 0x7F) - 64;
    const double fraction = std::ldexp(static_cast<double>(bits & 0xFFFFFF), -24);
    return std::ldexp((bits >> 31 != 0) ? -fraction : fraction, 4 * exponent);
}

WordValue floatAt(const unsigned char* from, const HeaderWord& word, bool littleEndian)
{
    const uint64_t bits = bitsAt(from, word.bytes, littleEndian);
    if (word.isIbm)
        return WordValue::ofFloat(ibmValue(static_cast<uint32_t>(bits)));
    if (word.bytes == 8)
        return WordValue::ofFloat(std::bit_cast<double>(bits));
    return WordValue::ofFloat(std::bit_cast<float>(static_cast<uint32_t>(bits)));
}

bool putFloat(unsigned char* to, const HeaderWord& word, bool littleEndian, double value)
{
    if (word.bytes == 8) {
        putBits(to, 8, littleEndian, std::bit_cast<uint64_t>(value));
        return true;
    }
    const double largest = std::numeric_limits<float>::max();
    const bool fits = !(std::abs(value) > largest) || std::isinf(value);
    const auto narrow = static_cast<float>(fits ? value : std::copysign(largest, value));
    const SampleFormat format = word.isIbm ? SampleFormat::ibmFloat : SampleFormat::ieeeFloat;
    return encodeSamples(&narrow, 1, format, littleEndian, to) == 0 && fits;
}

} // namespace

WordValue readWordValue(const unsigned char* header, const HeaderWord& word, bool littleEndian)
{
    const unsigned char* from = header + word.byte - 1;
    if (word.isFloat)
        return floatAt(from, word, littleEndian);
    const uint64_t bits = bitsAt(from, word.bytes, littleEndian);
    if (word.isUnsigned)
        return static_cast<int64_t>(std::min(bits, static_cast<uint64_t>(INT64_MAX)));
    const int spare = 64 - 8 * word.bytes;
    return static_cast<int64_t>(bits << spare) >> spare;
}

bool writeWordValue(unsigned char* header, const HeaderWord& word, bool littleEndian,
                    const WordValue& value)
{
    unsigned char* to = header + word.byte - 1;
    if (word.isFloat)
        return putFloat(to, word, littleEndian, value.number());

    const int bits = 8 * word.bytes;
    const int64_t highest = word.isUnsigned ? (bits == 64 ? INT64_MAX : (int64_t{1} << bits) - 1)
                                            : INT64_MAX >> (64 - bits);
    const int64_t lowest = word.isUnsigned ? 0 : INT64_MIN >> (64 - bits);
    int64_t whole = value.whole;
    bool fits = true;
    if (value.isFloat) {
        constexpr double beyond = 9223372036854775808.0; // 2^63
        const double rounded = std::round(value.real);
        fits = rounded >= -beyond && rounded < beyond;
        whole = fits                  ? static_cast<int64_t>(rounded)
                : std::isnan(rounded) ? 0
                : rounded < 0         ? INT64_MIN
                                      : INT64_MAX;
    }
    const int64_t nearest = std::clamp(whole, lowest, highest);
    putBits(to, word.bytes, littleEndian, static_cast<uint64_t>(nearest));
    return fits && nearest == whole;
}

std::string wordTypeName(const HeaderWord& word)
{
    if (word.isFloat)
        return word.isIbm ? "ibm" : word.bytes == 8 ? "double" : "ieee";
    return (word.isUnsigned ? "uint" : "int") + std::to_string(8 * word.bytes);
}

double applyScalar(int32_t value, int scalar)
{
    if (scalar > 0)
        return static_cast<double>(value) * scalar;
    return scalar < 0 ? static_cast<double>(value) / -static_cast<double>(scalar) : value;
}

} // namespace VORN
