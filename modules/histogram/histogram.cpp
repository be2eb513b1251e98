// histogram: draws how often amplitudes, or values of a header word, occur.
#include "MOXKernel.h"
#include "distributions.h"
#include "histogram_parameters.hpp"
#include "sampling/TraceTimes.h"
#include "vorn_parts.hpp"
#include "words/TraceWords.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using histogram_parameters::Parameters;
using histogram_parameters::Scale;
using sampling::secondsText;
using vorn_kit::fail;
using vorn_kit::message;
using words::numberText;

struct State
{
    Parameters set;
    bool countsZeros = false;
    int interval = 0; // microseconds
    std::unique_ptr<SampleDistribution> samples;
    std::unique_ptr<ValueDistribution> values; // of the word; one of both is there
    std::optional<words::TraceWords> word;
    std::vector<double> value;

    std::int64_t traces = 0;
    std::int64_t outside = 0;                // traces without a sample in the window
    std::int64_t zeros = 0;                  // left out
    std::int64_t odd = 0;                    // infinite or NaN
    std::int64_t before = vorn_part_first(); // traces of the job before those of this process

    Distribution& distribution()
    {
        if (samples)
            return *samples;
        return *values;
    }
};

// Four digits at least: those of a percentile are right.
std::string shortText(double value)
{
    const double size = std::fabs(value);
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), size >= 1e4 && size < 1e9 ? "%.0f" : "%.4g", value);
    return text.data();
}

std::string countText(const State& state, std::int64_t count)
{
    return std::to_string(count) + (state.samples ? " samples" : " values of " + *state.set.word);
}

// ---- Before the first trace ----

void checkParameters(const Parameters& set)
{
    if (set.min && set.max && *set.min >= *set.max)
        fail("min is " + numberText(*set.min) + " and max is " + numberText(*set.max) +
             "; min must be below max");
    if (set.tmin && set.tmax && *set.tmin >= *set.tmax)
        fail("tmin is " + numberText(*set.tmin) + " s and tmax is " + numberText(*set.tmax) +
             " s; tmin must be below tmax");
    if (!std::is_sorted(set.percentiles.begin(), set.percentiles.end()))
        fail("percentiles is not in ascending order; sort the list");
    if (set.word && (set.tmin || set.tmax))
        fail(std::string(set.tmin ? "tmin" : "tmax") +
             " is given with word; a window is one of samples");
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    vorn_build_output(0, in);
    auto state = std::make_unique<State>();
    state->set = histogram_parameters::readParameters();
    const Parameters& set = state->set;
    checkParameters(set);
    state->countsZeros = set.zeros.value_or(set.word.has_value());
    if (set.word) {
        state->values = std::make_unique<ValueDistribution>();
        state->word.emplace(std::vector<std::string>{*set.word});
        return state;
    }
    state->interval = std::max(getTraceSampleInterval(in), 0);
    if (state->interval == 0 && (set.tmin || set.tmax)) {
        vorn_fail_without_interval();
        throw vorn_kit::Failed();
    }
    vorn_kit::allowMemory(set.memory_limit, SampleDistribution::bytes, "counting samples",
                          "count a header word");
    state->samples = std::make_unique<SampleDistribution>();
    return state;
}

// ---- For each trace ----

struct Window
{
    int from;
    int to; // excluded
};

Window windowOf(const State& state, void* in, int length)
{
    if (!state.set.tmin && !state.set.tmax)
        return {0, length};
    const auto delay = static_cast<double>(sampling::delayOf(in));
    constexpr double slack = 1e-6; // of a sample
    const auto sampleAt = [&](double seconds) {
        return std::clamp((seconds * 1e6 - delay) / state.interval, -1.0,
                          static_cast<double>(length));
    };
    const double first = state.set.tmin ? std::ceil(sampleAt(*state.set.tmin) - slack) : 0;
    const double last = state.set.tmax ? std::floor(sampleAt(*state.set.tmax) + slack) : length - 1;
    const int from = std::max(static_cast<int>(first), 0);
    return {from, std::min(static_cast<int>(last) + 1, length)};
}

void tellOutside(State& state, void* in, int length)
{
    if (state.outside++ > 0)
        return;
    const std::int64_t begin = sampling::delayOf(in);
    const std::int64_t end = begin + std::int64_t{state.interval} * (length - 1);
    const Parameters& set = state.set;
    vorn_kit::messageOnce(VORN_WARNING, "outside",
                          words::nameOfTrace(in, state.before + state.traces) +
                              " has samples from " + secondsText(begin) + " to " +
                              secondsText(end) + " s, none of them in the window" +
                              (set.tmin ? " from " + numberText(*set.tmin) + " s" : "") +
                              (set.tmax ? " to " + numberText(*set.tmax) + " s" : "") +
                              "; give times with their unit (900 ms)");
}

void countSamples(State& state, void* in)
{
    const int length = std::max(getTraceLength(in), 0);
    const float* samples = length > 0 ? getTraceSamples(in, 0) : nullptr;
    if (samples == nullptr)
        return;
    const Window window = windowOf(state, in, length);
    if (window.from >= window.to)
        tellOutside(state, in, length);
    for (int i = window.from; i < window.to; ++i) {
        if (!std::isfinite(samples[i]))
            ++state.odd;
        else if (samples[i] == 0 && !state.countsZeros)
            ++state.zeros;
        else
            state.samples->add(samples[i]);
    }
}

void countValue(State& state, void* in)
{
    if (const std::int64_t bytes = state.values->bytesOfGrowth(); bytes > 0)
        vorn_kit::allowMemory(state.set.memory_limit, bytes,
                              "counting the values of more than " +
                                  std::to_string(state.traces - 1) + " traces",
                              "count those of some of them");
    state.word->read(in, state.before + state.traces, state.value);
    const double value = state.value.front();
    if (!std::isfinite(value))
        ++state.odd;
    else if (value == 0 && !state.countsZeros)
        ++state.zeros;
    else
        state.values->add(value);
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    ++state.traces;
    if (state.samples)
        countSamples(state, in);
    else
        countValue(state, in);
    state.distribution().endTrace();
    if (out != nullptr)
        vorn_pass_trace(in, out);
}

// ---- After the last trace ----

// "99 % of the absolute amplitudes are at most 1.2, 99.9 % at most 3.4"
std::string percentilesText(const State& state, const std::vector<double>& clips)
{
    std::string text;
    for (std::size_t i = 0; i < clips.size(); ++i)
        text += (i == 0 ? "" : ", ") + numberText(state.set.percentiles[i]) + " %" +
                (i > 0           ? ""
                 : state.samples ? " of the absolute amplitudes are"
                                 : " of the values are") +
                " at most " + shortText(clips[i]);
    return text;
}

void note(const std::string& name, const std::string& value)
{
    setMetaDataValue(VORN_SCOPE_MODULE, "qc.histogram." + name, value);
}

void report(State& state, const std::vector<double>& clips)
{
    const Statistics& all = state.distribution().statistics();
    message(VORN_INFORMATION,
            countText(state, all.count) + " of " + std::to_string(state.traces) + " traces from " +
                shortText(all.least) + " to " + shortText(all.greatest) + ", mean " +
                shortText(all.mean()) + ", RMS " + shortText(all.rms()) + "; " +
                percentilesText(state, clips) +
                (state.zeros > 0 ? "; zeros left out: " + std::to_string(state.zeros) : ""));
    note("count", std::to_string(all.count));
    note("zeros", std::to_string(state.zeros));
    note("least", shortText(all.least));
    note("greatest", shortText(all.greatest));
    note("mean", shortText(all.mean()));
    note("rms", shortText(all.rms()));
    for (std::size_t i = 0; i < clips.size(); ++i)
        note("p" + numberText(state.set.percentiles[i]), shortText(clips[i]));
}

void warn(const State& state, std::int64_t counted)
{
    if (state.odd > 0)
        message(VORN_WARNING, countText(state, state.odd) + " are infinite or NaN and left out");
    if (state.outside > 0)
        message(VORN_WARNING, std::to_string(state.outside) + " of " +
                                  std::to_string(state.traces) +
                                  " traces have no sample in the window");
    if (counted == 0 && !vorn_job_has_failed())
        message(VORN_WARNING, "there is nothing to draw: of " + std::to_string(state.traces) +
                                  " traces, " + countText(state, state.zeros) + " are 0, and " +
                                  std::to_string(state.odd) + " infinite or NaN");
}

// ---- Picture ----

// A few wild samples would make one bar of all others.
Bars barsOf(State& state, double farthest)
{
    constexpr double room = 1.2;
    const Statistics& all = state.distribution().statistics();
    double left = all.least;
    double right = all.greatest;
    if (state.samples && farthest > 0) {
        left = std::max(left, -room * farthest);
        right = std::min(right, room * farthest);
    }
    left = state.set.min.value_or(left);
    right = state.set.max.value_or(right);
    Bars bars = emptyBars(left, right, state.set.bins, all.areWhole);
    state.distribution().fill(bars);
    return bars;
}

constexpr double lowestLog = -0.5; // where an empty bar ends

double heightOf(const State& state, double count)
{
    if (state.set.scale == Scale::linear)
        return count;
    return count > 0 ? std::max(std::log10(count), lowestLog) : lowestLog;
}

std::string titleOf(const State& state, const Bars& bars, double bottom, double top,
                    const std::vector<double>& clips)
{
    const Parameters& set = state.set;
    const std::string of = state.samples ? "samples" : "traces";
    const std::string x = state.samples ? "amplitude" : *set.word;
    std::string title = set.title.substr(0, set.title.find_first_of("\r\n")) + "\nx: " + x +
                        "\ny: " + (set.scale == Scale::log ? "log10 of " : "") + of +
                        " per bar of width " + shortText(bars.width()) +
                        "\nxrange: " + numberText(bars.left) + " " + numberText(bars.right) +
                        "\nyrange: " + numberText(bottom) + " " + numberText(top) +
                        "\nlegend: 1=" + of;
    for (std::size_t i = 0; i < clips.size(); ++i)
        title += ", " + std::to_string(i + 2) + "=" + numberText(set.percentiles[i]) +
                 (state.samples ? " % within " : " % up to ") + shortText(clips[i]);
    return title;
}

std::string noteOf(State& state, const Bars& bars)
{
    const Statistics& all = state.distribution().statistics();
    double inside = 0;
    for (const double height : bars.heights)
        inside += height;
    const auto beyond = static_cast<double>(all.count) - inside;
    std::string text = countText(state, all.count) + " from " + shortText(all.least) + " to " +
                       shortText(all.greatest) + ", mean " + shortText(all.mean()) + ", RMS " +
                       shortText(all.rms());
    if (beyond >= 0.5)
        text += "; " + shortText(100 * beyond / static_cast<double>(all.count)) +
                " % are outside the picture";
    if (state.zeros > 0)
        text += "; zeros left out: " + std::to_string(state.zeros);
    return text;
}

void drawLine(int pad, double x, double bottom, double top)
{
    addPlotToPad(pad, static_cast<float>(x), static_cast<float>(bottom), VORN_MOVE);
    addPlotToPad(pad, static_cast<float>(x), static_cast<float>(top), VORN_DRAW);
}

void drawBars(const State& state, int pad, const Bars& bars, double bottom)
{
    addNewPenToPad(pad, VORN_PEN_BLACK);
    const auto draw = [&](double x, double y, int how) {
        addPlotToPad(pad, static_cast<float>(x), static_cast<float>(y), how);
    };
    // The sides of many bars would fill the picture; their outline says the same.
    constexpr std::size_t mostWithSides = 60;
    const bool hasSides = bars.heights.size() <= mostWithSides;
    draw(bars.left, bottom, VORN_MOVE);
    for (std::size_t i = 0; i < bars.heights.size(); ++i) {
        const double left = bars.left + static_cast<double>(i) * bars.width();
        const double height = heightOf(state, bars.heights[i]);
        if (hasSides)
            draw(left, bottom, VORN_DRAW);
        draw(left, height, VORN_DRAW);
        draw(left + bars.width(), height, VORN_DRAW);
    }
    draw(bars.right, bottom, VORN_DRAW);
}

void drawHistogram(State& state, const std::vector<double>& clips)
{
    const Bars bars = barsOf(state, clips.back());
    const double bottom = state.set.scale == Scale::log ? lowestLog : 0;
    const double highest = *std::max_element(bars.heights.begin(), bars.heights.end());
    const double top = std::max(heightOf(state, highest) * 1.2, bottom + 1); // room for the legend
    const std::string title =
        titleOf(state, bars, bottom, top, clips) + "\nnote: " + noteOf(state, bars);
    const int pad = createPad(VORN_PAD_GRAPH, 0, 1, title.c_str());
    if (pad < 0)
        return; // the host has none
    drawBars(state, pad, bars, bottom);
    for (std::size_t i = 0; i < clips.size(); ++i) {
        addNewPenToPad(pad, static_cast<int>(i) + 2);
        for (const double sign : {-1.0, 1.0}) {
            const double x = sign * clips[i];
            if ((sign > 0 || state.samples) && x >= bars.left && x <= bars.right)
                drawLine(pad, x, bottom, top);
        }
    }
}

void finish(State& state)
{
    Distribution& all = state.distribution();
    warn(state, all.statistics().count);
    if (all.statistics().count == 0)
        return;
    std::vector<double> clips;
    clips.reserve(state.set.percentiles.size());
    for (const double percent : state.set.percentiles)
        clips.push_back(all.percentile(percent));
    report(state, clips);
    drawHistogram(state, clips);
}

// ---- Parts ----

void save(State& state, vorn_kit::StateWriter& file)
{
    file(state.traces, state.outside, state.zeros, state.odd);
    if (state.samples)
        state.samples->save(file);
    else
        state.values->save(file);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    state.traces += file.get<std::int64_t>();
    state.outside += file.get<std::int64_t>();
    state.zeros += file.get<std::int64_t>();
    state.odd += file.get<std::int64_t>();
    if (state.samples) {
        state.samples->merge(file);
        return;
    }
    state.values->merge(file, [&](std::int64_t bytes) {
        vorn_kit::allowMemory(state.set.memory_limit, bytes,
                              "counting the values of " + std::to_string(state.traces) + " traces",
                              "count those of some of them");
    });
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
