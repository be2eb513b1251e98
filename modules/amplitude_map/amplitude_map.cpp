// amplitude_map: draws a measure of the traces in each bin of a map.
#include "BinMap.h"
#include "MOXKernel.h"
#include "amplitude_map_parameters.hpp"
#include "pictures/ImagePad.h"
#include "sampling/TraceTimes.h"
#include "vorn_parts.hpp"
#include "words/TraceWords.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using amplitude_map_parameters::Measure;
using amplitude_map_parameters::Parameters;
using amplitude_map_parameters::Scales;
using vorn_kit::fail;
using vorn_kit::message;
using words::numberText;

constexpr int pictureBuffer = 0;
constexpr std::int64_t mostBins = 4000; // across and upwards: more than a picture has pixels

// What a trace adds to the map. A part keeps it: the first trace of the job says where bins begin,
// and the order of all traces in which order values are summed.
struct KeptTrace
{
    double x;
    double y;
    double value;
    double weight;
};

struct State
{
    State(const Parameters& given, BinMap::Choice choice,
          std::optional<std::array<double, 2>> sizes, std::optional<std::array<double, 2>> origin)
        : set(given), map(choice, sizes, origin)
    {
    }

    Parameters set;
    BinMap map;
    bool hasScalar = false;    // scalco is among the words
    bool isCoordinate = false; // both words are
    bool hasUnit = false;      // counit has been read
    int unit = 0;              // counit of the first trace
    std::unique_ptr<words::TraceWords> reader;
    std::vector<double> values; // of a trace, in the order of the reader
    int interval = 0;           // microseconds

    std::int64_t traces = 0;
    std::int64_t unplaced = 0;               // coordinates 0, 0
    std::int64_t wild = 0;                   // positions that no bin has
    std::int64_t outside = 0;                // without a sample in the window
    std::int64_t odd = 0;                    // samples that are infinite or NaN
    std::int64_t before = vorn_part_first(); // traces of the job before those of this process
    bool isPart = false;
    std::vector<KeptTrace> kept; // in a part
};

// ---- Before the first trace ----

bool isScaled(const std::string& word)
{
    const auto coordinates = {"sx", "sy", "gx", "gy", "cdpx", "cdpy"};
    return std::any_of(coordinates.begin(), coordinates.end(),
                       [&](const char* one) { return word == one; });
}

bool needsWord(Measure measure)
{
    return measure == Measure::mean || measure == Measure::min || measure == Measure::max;
}

void check(const Parameters& set)
{
    const std::string measure = wordOf(set.measure);
    if (needsWord(set.measure) && set.word.value_or("").empty())
        fail("measure is " + measure + " and word is missing; name the header word to map");
    if (!needsWord(set.measure) && set.word)
        fail("word is " + *set.word + " and measure is " + measure +
             "; give mean, min or max as measure, or no word");
    if (set.measure != Measure::rms && (set.tmin || set.tmax))
        fail("tmin and tmax are the window of rms, and measure is " + measure +
             "; give rms as measure, or no window");
    if (set.tmin && set.tmax && *set.tmin >= *set.tmax)
        fail("tmin is " + numberText(*set.tmin) + " s and tmax is " + numberText(*set.tmax) +
             " s; tmin must be below tmax");
    if (set.values.size() == 2 && set.values[0] >= set.values[1])
        fail("values are " + numberText(set.values[0]) + " and " + numberText(set.values[1]) +
             "; give the lower one first");
    if (set.x == set.y)
        fail("x and y are both " + set.x + "; name two words");
}

std::optional<std::array<double, 2>> pairOf(const std::vector<double>& list)
{
    if (list.empty())
        return {};
    return std::array<double, 2>{list.front(), list.back()};
}

// The words of each trace: positions first.
std::vector<std::string> wordsToRead(const State& state)
{
    std::vector<std::string> names = {state.set.x, state.set.y};
    if (state.hasScalar)
        names.emplace_back("scalco");
    if (state.set.word && std::find(names.begin(), names.end(), *state.set.word) == names.end())
        names.push_back(*state.set.word);
    return names;
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    vorn_build_output(0, in);
    const Parameters set = amplitude_map_parameters::readParameters();
    check(set);
    const bool areCoordinates = isScaled(set.x) && isScaled(set.y);
    auto state = std::make_unique<State>(
        set, areCoordinates ? BinMap::Choice::coordinates : BinMap::Choice::numbers,
        pairOf(set.bin), pairOf(set.origin));
    vorn_part part;
    state->isPart = vorn_find_part(&part);
    state->isCoordinate = areCoordinates;
    state->hasScalar =
        (isScaled(set.x) || isScaled(set.y)) && isTraceAttributeExist(in, "scalco") != 0;
    state->interval = getTraceSampleInterval(in);
    if ((set.tmin || set.tmax) && state->interval <= 0 && !vorn_job_has_failed()) {
        vorn_fail_without_interval();
        throw vorn_kit::Failed();
    }
    state->reader = std::make_unique<words::TraceWords>(wordsToRead(*state));
    return state;
}

// ---- For each trace ----

// What scalco says: a factor above 0, a divisor below it.
double scaled(double value, double scalar)
{
    if (scalar == 0)
        return value;
    return scalar > 0 ? value * scalar : value / -scalar;
}

// Where a position lies, in the words' own units.
std::array<double, 2> positionOf(const State& state)
{
    std::array<double, 2> place = {state.values[0], state.values[1]};
    if (state.hasScalar) {
        place[0] = isScaled(state.set.x) ? scaled(place[0], state.values[2]) : place[0];
        place[1] = isScaled(state.set.y) ? scaled(place[1], state.values[2]) : place[1];
    }
    return place;
}

// Angles are no lengths: the axes say so.
void noteUnit(State& state, void* in)
{
    if (state.hasUnit)
        return;
    state.hasUnit = true;
    if (state.isCoordinate && isTraceAttributeExist(in, "counit") != 0)
        state.unit = getTraceAttribute(in, "counit", 0).getI32Value();
}

struct Power
{
    double sum = 0; // of the squares
    double samples = 0;
};

Power powerOf(State& state, void* in)
{
    const int length = std::max(getTraceLength(in), 0);
    const float* samples = length > 0 ? getTraceSamples(in, 0) : nullptr;
    Power power;
    if (samples == nullptr)
        return power;
    int from = 0;
    int to = length;
    if (state.interval > 0) {
        const auto delay = static_cast<double>(sampling::delayOf(in));
        const auto sampleAt = [&](double seconds) {
            return std::clamp((seconds * 1e6 - delay) / state.interval, -1.0, length + 1.0);
        };
        constexpr double slack = 1e-6; // of a sample
        if (state.set.tmin)
            from = std::max(0, static_cast<int>(std::ceil(sampleAt(*state.set.tmin) - slack)));
        if (state.set.tmax)
            to = std::min(length,
                          static_cast<int>(std::floor(sampleAt(*state.set.tmax) + slack)) + 1);
    }
    for (int i = from; i < to; ++i) {
        const double sample = samples[i];
        if (!std::isfinite(sample)) {
            ++state.odd;
            continue;
        }
        power.sum += sample * sample;
        power.samples += 1;
    }
    return power;
}

void addTrace(State& state, void* in)
{
    state.reader->read(in, state.before + state.traces, state.values);
    noteUnit(state, in);
    const std::array<double, 2> place = positionOf(state);
    if (state.isCoordinate && place[0] == 0 && place[1] == 0) {
        ++state.unplaced;
        return;
    }
    double value = 0;
    double weight = 1;
    if (state.set.measure == Measure::rms) {
        const Power power = powerOf(state, in);
        if (power.samples == 0) {
            ++state.outside;
            return;
        }
        value = power.sum;
        weight = power.samples;
    } else if (needsWord(state.set.measure)) {
        const std::vector<std::string>& names = state.reader->names();
        const auto at = std::find(names.begin(), names.end(), *state.set.word) - names.begin();
        value = state.values[static_cast<std::size_t>(at)];
    }
    if (state.isPart)
        state.kept.push_back({place[0], place[1], value, weight});
    else if (!state.map.add(place[0], place[1], value, weight))
        ++state.wild;
}

// Vectors and hash tables take up to twice as much when they grow.
void allow(const State& state, std::int64_t bytes)
{
    vorn_kit::allowMemory(
        state.set.memory_limit, 2 * bytes, "the map of " + std::to_string(state.traces) + " traces",
        state.set.bin.empty() ? "give the size of the bins with bin" : "give larger bins with bin");
}

constexpr std::int64_t tracesBetweenQuestions = 1024;

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    ++state.traces;
    if (state.traces % tracesBetweenQuestions == 0)
        allow(state, state.map.bytes() +
                         static_cast<std::int64_t>(state.kept.capacity() * sizeof(KeptTrace)));
    addTrace(state, in);
    if (out != nullptr)
        vorn_pass_trace(in, out);
}

// ---- After the last trace ----

double valueOf(const Bin& bin, Measure measure)
{
    switch (measure) {
    case Measure::rms:
        return std::sqrt(bin.mean());
    case Measure::mean:
        return bin.mean();
    case Measure::min:
        return bin.least;
    case Measure::max:
        return bin.greatest;
    default:
        return static_cast<double>(bin.traces);
    }
}

std::string measureText(const Parameters& set)
{
    switch (set.measure) {
    case Measure::rms: {
        std::string text = "RMS amplitude";
        if (set.tmin)
            text += " from " + numberText(*set.tmin) + " s";
        if (set.tmax)
            text += " to " + numberText(*set.tmax) + " s";
        return text;
    }
    case Measure::mean:
        return "mean " + *set.word;
    case Measure::min:
        return "least " + *set.word;
    case Measure::max:
        return "greatest " + *set.word;
    default:
        return "fold";
    }
}

// The unit of coordinates that are angles. Headers often state angles where lengths stand: no
// angle is beyond a circle.
std::string unitOf(int unit, const pictures::ImageDescription& image)
{
    const struct
    {
        int unit;
        double circle;
        const char* text;
    } angles[] = {{2, 1296000, " (seconds of arc)"},
                  {3, 360, " (degrees)"},
                  {4, 3600000, " (degrees, minutes, seconds)"}};
    double farthest = 0;
    for (const double edge : {image.left, image.right, image.bottom, image.top})
        farthest = std::max(farthest, std::fabs(edge));
    for (const auto& angle : angles)
        if (angle.unit == unit && farthest <= angle.circle)
            return angle.text;
    return "";
}

void draw(const State& state, const BinGrid& grid, double greatest, const std::string& note)
{
    const Parameters& set = state.set;
    pictures::ImageDescription image;
    const std::string what = measureText(set);
    image.title = set.title.value_or("");
    if (image.title.empty())
        image.title = std::string(getModuleName()) + ": " + what + " by " + set.x + " and " + set.y;
    image.bar = set.measure == Measure::fold ? "fold (traces per bin)" : what;
    image.note = note;
    image.colourMap = wordOf(set.colormap);
    const auto lowEdge = [](const BinAxis& axis) { return axis.origin - axis.size / 2; };
    const auto highEdge = [](const BinAxis& axis, std::int64_t count) {
        return axis.origin + (static_cast<double>(count) - 0.5) * axis.size;
    };
    image.left = lowEdge(grid.axes[0]);
    image.right = highEdge(grid.axes[0], grid.count[0]);
    image.bottom = lowEdge(grid.axes[1]);
    image.top = highEdge(grid.axes[1], grid.count[1]);
    image.x = set.x + unitOf(state.unit, image);
    image.y = set.y + unitOf(state.unit, image);
    const auto hasWholeBins = [&](const BinAxis& axis) {
        return !state.isCoordinate && axis.size == std::round(axis.size);
    };
    image.hasWholeX = hasWholeBins(grid.axes[0]);
    image.hasWholeY = hasWholeBins(grid.axes[1]);
    image.hasWholeValues = set.measure == Measure::fold;
    image.low = image.high = 0;
    if (set.values.size() == 2) {
        image.low = set.values[0];
        image.high = set.values[1];
    } else if (set.measure == Measure::fold) {
        image.high = greatest; // a fold of 0 is the other end
    }
    image.hasEqualScales =
        set.scales == Scales::equal || (set.scales == Scales::auto_ && state.isCoordinate);
    pictures::ImagePad pad(image, static_cast<int>(grid.count[1]), pictureBuffer);
    std::vector<float> cells(static_cast<std::size_t>(grid.count[1]));
    for (std::int64_t column = 0; column < grid.count[0]; ++column) {
        for (std::int64_t row = 0; row < grid.count[1]; ++row) {
            const Bin* bin = grid.at(column, row);
            cells[static_cast<std::size_t>(grid.count[1] - 1 - row)] =
                bin != nullptr ? static_cast<float>(valueOf(*bin, set.measure))
                               : std::numeric_limits<float>::quiet_NaN();
        }
        pad.addColumn(cells);
    }
}

void warn(std::int64_t count, const std::string& text)
{
    if (count > 0)
        message(VORN_WARNING, std::to_string(count) + (count == 1 ? " trace " : " traces ") + text);
}

void finish(State& state)
{
    const Parameters& set = state.set;
    if (state.traces == 0) {
        if (!vorn_job_has_failed())
            message(VORN_WARNING, "no trace arrived; there is no map");
        return;
    }
    warn(state.unplaced, "with " + set.x + " and " + set.y + " of 0 left out: not a position");
    warn(state.wild, "left out: too far from the first trace to be on one map with it");
    warn(state.outside, "left out: no sample in the window from tmin to tmax");
    if (state.odd > 0)
        message(VORN_WARNING, "samples that are infinite or NaN: " + std::to_string(state.odd) +
                                  "; they are left out");
    if (state.map.size() == 0) {
        message(VORN_WARNING, "no trace can be placed; there is no map; name other words with x "
                              "and y, or compute them with header_math");
        return;
    }
    const auto ask = [&state](std::int64_t bytes) { allow(state, bytes); };
    ask(state.map.bytes());
    const BinGrid grid = state.map.grid(mostBins, ask);
    double least = std::numeric_limits<double>::infinity();
    double greatest = -least;
    std::int64_t traces = 0;
    for (const auto& [key, bin] : grid.bins) {
        const double value = valueOf(bin, set.measure);
        least = std::min(least, value);
        greatest = std::max(greatest, value);
        traces += bin.traces;
    }
    const std::string summary =
        std::to_string(grid.bins.size()) + " bins of " + numberText(grid.axes[0].size) + " by " +
        numberText(grid.axes[1].size) + " with " + std::to_string(traces) + " traces";
    message(VORN_INFORMATION, measureText(set) + ": " + numberText(least) + " to " +
                                  numberText(greatest) + " in " + summary);
    setMetaDataValue(VORN_SCOPE_MODULE, "qc.map.bins", std::to_string(grid.bins.size()));
    setMetaDataValue(VORN_SCOPE_MODULE, "qc.map.least", numberText(least));
    setMetaDataValue(VORN_SCOPE_MODULE, "qc.map.greatest", numberText(greatest));
    draw(state, grid, greatest, summary);
}

// ---- Parts ----

void save(State& state, vorn_kit::StateWriter& file)
{
    file(state.traces, state.unplaced, state.outside, state.odd, state.hasUnit, state.unit,
         state.kept);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    const std::int64_t before = state.traces;
    state.traces += file.get<std::int64_t>();
    state.unplaced += file.get<std::int64_t>();
    state.outside += file.get<std::int64_t>();
    state.odd += file.get<std::int64_t>();
    const auto hasUnit = file.get<bool>();
    const auto unit = file.get<int>();
    if (!state.hasUnit && hasUnit)
        state.unit = unit;
    state.hasUnit = state.hasUnit || hasUnit;
    std::int64_t trace = before;
    for (const KeptTrace& one : file.get<std::vector<KeptTrace>>()) {
        if (!state.map.add(one.x, one.y, one.value, one.weight))
            ++state.wild;
        if (++trace % tracesBetweenQuestions == 0)
            allow(state, state.map.bytes());
    }
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
