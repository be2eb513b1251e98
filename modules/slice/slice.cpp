// slice: draws inlines, crosslines and time slices of 3-D data.
//
// Of each trace only what the chosen slices show is kept, until the end: only then the numbers of
// all lines are known.
#include "MOXKernel.h"
#include "SliceGrid.h"
#include "pictures/ImagePad.h"
#include "pictures/ValueRange.h"
#include "sampling/TraceTimes.h"
#include "segy/NumberRanges.h"
#include "slice_parameters.hpp"
#include "vorn_kit.hpp"
#include "words/TraceWords.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using slice_parameters::Parameters;
using vorn_kit::fail;
using vorn_kit::message;
using words::numberText;

constexpr float noData = std::numeric_limits<float>::quiet_NaN();
constexpr std::int64_t mostLines = 20000; // in a picture: more are wrong words
constexpr std::size_t mostNamed = 10;     // lines in a message
constexpr std::int64_t bytesOfTrace = 80; // of a table, beside its samples

// Inlines or crosslines.
struct Family
{
    const char* name;  // "inline"
    const char* along; // "crossline", across in the picture
    std::string word;
    VORN::NumberRanges chosen;
    std::map<std::int64_t, LineSlice> slices;
    std::int64_t least = 0; // of the data
    std::int64_t greatest = 0;
};

struct State
{
    State(const Parameters& given) : set(given), times(given.times.size()) {}

    Parameters set;
    std::array<Family, 2> families; // inlines, crosslines
    TimeSlices times;
    std::unique_ptr<words::TraceWords> reader;
    std::vector<double> values; // of the reader: inline and crossline
    double interval = 0;        // microseconds
    int length = 0;             // samples

    bool hasWindow = false;
    double start = 0; // microseconds: the first sample of lines
    int samples = 0;  // of lines
    std::vector<float> piece;

    std::int64_t traces = 0;
    std::int64_t repeated = 0; // at a place that has one
    std::int64_t bytes = 0;
};

// ---- Before the first trace ----

VORN::NumberRanges rangesOf(const char* parameter, const std::optional<std::string>& text)
{
    try {
        return text.value_or("").empty() ? VORN::NumberRanges() : VORN::NumberRanges(*text);
    } catch (const std::invalid_argument& error) {
        fail(std::string(parameter) + ": " + error.what());
    }
}

bool hasLines(const Parameters& set)
{
    return !set.inlines.value_or("").empty() || !set.crosslines.value_or("").empty();
}

void check(const Parameters& set)
{
    if (!hasLines(set) && set.times.empty())
        fail("there is nothing to draw; give inlines, crosslines or times");
    if (set.inline_word == set.crossline_word)
        fail("inline_word and crossline_word are both " + set.inline_word + "; name two words");
    if (set.tmin && set.tmax && *set.tmin >= *set.tmax)
        fail("tmin is " + numberText(*set.tmin) + " s and tmax is " + numberText(*set.tmax) +
             " s; tmin must be below tmax");
    if (!hasLines(set) && (set.tmin || set.tmax))
        fail("tmin and tmax are for inlines and crosslines, and only times are given; leave them "
             "out");
    if (set.values.size() == 2 && set.values[0] >= set.values[1])
        fail("values are " + numberText(set.values[0]) + " and " + numberText(set.values[1]) +
             "; give the lower one first");
    if (static_cast<std::int64_t>(set.times.size()) > set.max_pictures)
        fail("there are " + std::to_string(set.times.size()) + " times, and max_pictures is " +
             std::to_string(set.max_pictures) + "; raise it, or give fewer times");
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    vorn_build_output(0, in);
    const Parameters set = slice_parameters::readParameters();
    check(set);
    auto state = std::make_unique<State>(set);
    state->interval = getTraceSampleInterval(in);
    if (state->interval <= 0) {
        vorn_fail_without_interval();
        throw vorn_kit::Failed();
    }
    state->length = std::max(getTraceLength(in), 0);
    Family& inlines = state->families[0];
    inlines.name = "inline";
    inlines.along = "crossline";
    inlines.word = set.inline_word;
    inlines.chosen = rangesOf("inlines", set.inlines);
    Family& crosslines = state->families[1];
    crosslines.name = "crossline";
    crosslines.along = "inline";
    crosslines.word = set.crossline_word;
    crosslines.chosen = rangesOf("crosslines", set.crosslines);
    state->reader = std::make_unique<words::TraceWords>(
        std::vector<std::string>{set.inline_word, set.crossline_word});
    return state;
}

// ---- For each trace ----

std::int64_t lineOf(const State& state, void* in, std::size_t which)
{
    const double value = state.values[which];
    if (value != std::round(value))
        fail(words::nameOfTrace(in, state.traces) + ": " + state.families[which].word + " is " +
             numberText(value) + "; lines have whole numbers; name another word");
    return static_cast<std::int64_t>(value);
}

// The first trace says which times lines have.
void openWindow(State& state, double delay)
{
    constexpr double slack = 1e-3; // of a sample
    const auto sampleAt = [&](const std::optional<double>& time, double otherwise) {
        return time ? (*time * 1e6 - delay) / state.interval : otherwise;
    };
    const double last = state.length - 1;
    const double first = std::max(0.0, std::ceil(sampleAt(state.set.tmin, 0) - slack));
    const double end = std::min(last, std::floor(sampleAt(state.set.tmax, last) + slack));
    if (end < first && state.length > 0)
        fail("the first trace has no sample from tmin to tmax; it begins at " +
             numberText(delay * 1e-6) + " s and ends at " +
             numberText((delay + last * state.interval) * 1e-6) +
             " s; give times with their unit "
             "(900 ms)");
    state.start = delay + first * state.interval;
    state.samples = std::max(0, static_cast<int>(end - first) + 1);
    state.hasWindow = true;
}

// The trace at the times of the picture.
void placeInWindow(State& state, const float* samples, double delay)
{
    state.piece.assign(static_cast<std::size_t>(state.samples), noData);
    const double first = std::round((state.start - delay) / state.interval);
    for (int i = 0; i < state.samples; ++i) {
        const double from = first + i;
        if (from >= 0 && from < state.length)
            state.piece[static_cast<std::size_t>(i)] = samples[static_cast<std::ptrdiff_t>(from)];
    }
}

void take(State& state, std::int64_t bytes)
{
    state.bytes += bytes;
    vorn_kit::allowMemory(state.set.memory_limit, state.bytes,
                          "the slices of " + std::to_string(state.traces) + " traces",
                          "choose fewer slices");
}

void limitPictures(const State& state)
{
    const std::size_t pictures =
        state.families[0].slices.size() + state.families[1].slices.size() + state.set.times.size();
    if (pictures > static_cast<std::size_t>(state.set.max_pictures))
        fail("there are more than " + std::to_string(state.set.max_pictures) +
             " slices; raise max_pictures, or choose fewer, as with 100:500:100");
}

void addToLines(State& state, const std::array<std::int64_t, 2>& lines, const float* samples,
                double delay)
{
    for (std::size_t i = 0; i < 2; ++i) {
        Family& family = state.families[i];
        if (!family.chosen.contains(lines[i]))
            continue;
        // The values' copy, of which the percentile is taken, counts too.
        take(state, 8 * std::int64_t{state.samples} + bytesOfTrace);
        placeInWindow(state, samples, delay);
        LineSlice& slice = family.slices[lines[i]];
        limitPictures(state);
        if (!slice.add(lines[1 - i], state.piece))
            ++state.repeated;
    }
}

void addToTimes(State& state, const std::array<std::int64_t, 2>& lines, const float* samples,
                double delay)
{
    const std::vector<double>& times = state.set.times;
    if (times.empty())
        return;
    // A vector takes up to three times as much while it grows.
    take(state, 16 * static_cast<std::int64_t>(times.size()) + bytesOfTrace);
    std::vector<float> found(times.size(), noData);
    for (std::size_t i = 0; i < times.size(); ++i) {
        const double sample = std::round((times[i] * 1e6 - delay) / state.interval);
        if (sample >= 0 && sample < state.length)
            found[i] = samples[static_cast<std::ptrdiff_t>(sample)];
    }
    if (!state.times.add(lines[0], lines[1], found))
        ++state.repeated;
}

void useTrace(State& state, void* in)
{
    state.reader->read(in, state.traces, state.values);
    const std::array<std::int64_t, 2> lines = {lineOf(state, in, 0), lineOf(state, in, 1)};
    for (std::size_t i = 0; i < 2; ++i) {
        Family& family = state.families[i];
        family.least = state.traces == 1 ? lines[i] : std::min(family.least, lines[i]);
        family.greatest = state.traces == 1 ? lines[i] : std::max(family.greatest, lines[i]);
    }
    const auto delay = static_cast<double>(sampling::delayOf(in));
    if (!state.hasWindow)
        openWindow(state, delay);
    const float* samples = state.length > 0 ? getTraceSamples(in, 0) : nullptr;
    if (samples == nullptr)
        fail("not enough memory for a trace; give the job a lower limit of traces in memory");
    addToLines(state, lines, samples, delay);
    addToTimes(state, lines, samples, delay);
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    ++state.traces;
    if (state.length > 0)
        useTrace(state, in);
    if (out != nullptr)
        vorn_pass_trace(in, out);
}

// ---- Pictures ----

void checkLines(const LineNumbers& numbers, const std::string& word)
{
    if (numbers.count > mostLines)
        fail(word + " goes from " + std::to_string(numbers.first) + " to " +
             std::to_string(numbers.at(numbers.count - 1)) + " in steps of " +
             std::to_string(numbers.step) + "; a picture has at most " + std::to_string(mostLines) +
             " lines; name another word, or map it in the reader");
}

double lowEdge(const LineNumbers& numbers)
{
    return static_cast<double>(numbers.first) - 0.5 * static_cast<double>(numbers.step);
}

double highEdge(const LineNumbers& numbers)
{
    return lowEdge(numbers) +
           static_cast<double>(numbers.count) * static_cast<double>(numbers.step);
}

// Colours on both sides of 0, or from 0 upwards for values that are not negative.
void setColours(const State& state, std::vector<float> values, pictures::ImageDescription& image)
{
    image.colourMap = wordOf(state.set.colormap);
    image.bar = "amplitude";
    if (state.set.values.size() == 2) {
        image.low = state.set.values[0];
        image.high = state.set.values[1];
        return;
    }
    const bool isSigned =
        std::any_of(values.begin(), values.end(), [](float value) { return value < 0; });
    std::transform(values.begin(), values.end(), values.begin(),
                   [](float value) { return std::fabs(value); });
    image.high = pictures::percentile(std::move(values), state.set.clip);
    image.low = isSigned ? -image.high : 0;
    image.note =
        "clip " + pictures::shortText(image.high) + " (" + numberText(state.set.clip) + " %)";
}

std::string titleOf(const State& state, const std::string& what)
{
    return state.set.title.value_or(getModuleName()) + ": " + what;
}

void drawLine(const State& state, const Family& family, const Family& other, std::int64_t number,
              const LineSlice& slice, int buffer)
{
    const LineNumbers numbers = slice.numbers();
    checkLines(numbers, other.word);
    pictures::ImageDescription image;
    image.title = titleOf(state, std::string(family.name) + " " + std::to_string(number));
    image.x = std::string(family.along) + " (" + other.word + ")";
    image.y = "time (s)";
    image.hasWholeX = true;
    image.left = lowEdge(numbers);
    image.right = highEdge(numbers);
    image.top = (state.start - 0.5 * state.interval) * 1e-6;
    image.bottom = image.top + state.samples * state.interval * 1e-6;
    setColours(state, slice.values(), image);
    pictures::ImagePad pad(image, state.samples, buffer);
    const std::vector<float> none(static_cast<std::size_t>(state.samples), noData);
    for (std::int64_t i = 0; i < numbers.count; ++i) {
        const std::vector<float>* trace = slice.trace(numbers.at(i));
        pad.addColumn(trace != nullptr ? *trace : none);
    }
}

void drawTime(const State& state, std::size_t slice, const LineNumbers& inlines,
              const LineNumbers& crosslines, int buffer)
{
    pictures::ImageDescription image;
    image.title = titleOf(state, "time " + numberText(state.set.times[slice]) + " s");
    image.x = "crossline (" + state.set.crossline_word + ")";
    image.y = "inline (" + state.set.inline_word + ")";
    image.hasWholeX = image.hasWholeY = true;
    image.left = lowEdge(crosslines);
    image.right = highEdge(crosslines);
    image.bottom = lowEdge(inlines);
    image.top = highEdge(inlines);
    setColours(state, state.times.valuesOf(slice), image);
    pictures::ImagePad pad(image, static_cast<int>(inlines.count), buffer);
    std::vector<float> cells(static_cast<std::size_t>(inlines.count));
    for (std::int64_t column = 0; column < crosslines.count; ++column) {
        for (std::int64_t row = 0; row < inlines.count; ++row)
            cells[static_cast<std::size_t>(inlines.count - 1 - row)] =
                state.times.at(slice, inlines.at(row), crosslines.at(column));
        pad.addColumn(cells);
    }
}

// ---- After the last trace ----

// Lines that are chosen, lie within the data, and have no trace.
void warnOfMissing(const Family& family)
{
    std::string text;
    std::size_t missing = 0;
    for (std::optional<std::int64_t> number = family.chosen.next(family.least);
         number && *number <= family.greatest; number = family.chosen.next(*number + 1))
    {
        if (family.slices.count(*number) == 0 && missing++ < mostNamed)
            text += (text.empty() ? "" : ", ") + std::to_string(*number);
        if (*number == std::numeric_limits<std::int64_t>::max() || missing > mostNamed)
            break;
    }
    if (missing > 0)
        message(VORN_WARNING, std::string("no trace has the ") + family.name +
                                  (missing > 1 ? "s " : " ") + text +
                                  (missing > mostNamed ? " and others" : "") + ", which " +
                                  (missing > 1 ? "are" : "is") + " chosen");
}

void warnOfNone(const Family& family, const std::optional<std::string>& chosen)
{
    if (!chosen.value_or("").empty() && family.slices.empty())
        message(VORN_WARNING,
                std::string("no ") + family.name + " of " + *chosen + " is in the data, where " +
                    family.word + " goes from " + std::to_string(family.least) + " to " +
                    std::to_string(family.greatest) + "; choose others, or name another word");
    else
        warnOfMissing(family);
}

void drawLines(const State& state)
{
    int buffer = 0;
    for (std::size_t i = 0; i < 2; ++i)
        for (const auto& [number, slice] : state.families[i].slices)
            drawLine(state, state.families[i], state.families[1 - i], number, slice, buffer);
}

void drawTimes(const State& state)
{
    if (state.times.isEmpty())
        return;
    const LineNumbers inlines = state.times.inlines();
    const LineNumbers crosslines = state.times.crosslines();
    checkLines(inlines, state.set.inline_word);
    checkLines(crosslines, state.set.crossline_word);
    for (std::size_t i = 0; i < state.set.times.size(); ++i) {
        const std::vector<float> values = state.times.valuesOf(i);
        if (std::all_of(values.begin(), values.end(),
                        [](float value) { return std::isnan(value); }))
            message(VORN_WARNING, "no trace has a sample at " + numberText(state.set.times[i]) +
                                      " s; give times with their unit (900 ms)");
        else
            drawTime(state, i, inlines, crosslines, 1);
    }
}

void finish(State& state)
{
    if (state.traces == 0) {
        if (!vorn_job_has_failed())
            message(VORN_WARNING, "no trace arrived; there is no slice");
        return;
    }
    const Family& inlines = state.families[0];
    const Family& crosslines = state.families[1];
    message(VORN_INFORMATION, std::to_string(state.traces) + " traces; inlines (" + inlines.word +
                                  ") from " + std::to_string(inlines.least) + " to " +
                                  std::to_string(inlines.greatest) + ", crosslines (" +
                                  crosslines.word + ") from " + std::to_string(crosslines.least) +
                                  " to " + std::to_string(crosslines.greatest));
    warnOfNone(inlines, state.set.inlines);
    warnOfNone(crosslines, state.set.crosslines);
    if (state.repeated > 0)
        message(
            VORN_WARNING,
            "traces at a place of a slice that has one already: " + std::to_string(state.repeated) +
                "; the first one is drawn; stack them, or choose one of each place");
    drawLines(state);
    drawTimes(state);
}

} // namespace

VORN_MODULE(prepare, process, finish);
