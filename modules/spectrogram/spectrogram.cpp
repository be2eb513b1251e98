// spectrogram: draws the spectra of chosen traces as they change with time.
#include "MOXKernel.h"
#include "ShortTimeSpectra.h"
#include "pictures/ImagePad.h"
#include "pictures/ValueRange.h"
#include "sampling/SampleCounts.h"
#include "sampling/TraceTimes.h"
#include "spectrogram_parameters.hpp"
#include "sums/ExactSums.h"
#include "vorn_parts.hpp"
#include "words/TraceChoice.h"
#include "words/TraceWords.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using spectrogram_parameters::Parameters;
using spectrogram_parameters::Scale;
using vorn_kit::fail;
using vorn_kit::message;
using words::numberText;

constexpr int pictureBuffer = 0;
constexpr int usualColumns = 400;
constexpr int mostCells = 4000; // in each direction: more than a picture has pixels

// Which times and frequencies a picture has.
struct Raster
{
    std::int64_t delay = 0; // of its first sample, microseconds
    int columns = 0;        // places of the window
    int step = 1;           // samples between them
    int from = 0;           // frequencies of the transform
    int rows = 0;
    int perRow = 1; // frequencies in a row; the strongest is drawn
};

// A trace that a part keeps: only the merge knows whether there is room for its picture.
struct KeptTrace
{
    std::string name;
    std::int64_t delay = 0;
    std::vector<double> samples;

    template <typename File>
    void transfer(File& file)
    {
        file(name, delay, samples);
    }
};

struct State
{
    State(const Parameters& given, int samples, void* in)
        : set(given), choice(rulesOf(given), in), spectra(samples)
    {
    }

    // The first trace, where nothing is chosen.
    static words::ChoiceRules rulesOf(const Parameters& set)
    {
        words::ChoiceRules rules;
        rules.where = set.where.value_or("");
        rules.traces = set.traces.value_or("");
        rules.select = set.select.value_or("");
        if (rules.where.empty() && rules.traces.empty() && rules.select.empty())
            rules.traces = "1";
        return rules;
    }

    Parameters set;
    words::TraceChoice choice;
    ShortTimeSpectra spectra;
    sampling::FiniteSamples finite;
    int interval = 0; // microseconds
    int length = 0;   // samples of a trace

    std::int64_t traces = 0;
    std::int64_t chosen = 0;
    std::int64_t drawn = 0; // or added to the mean
    std::int64_t dead = 0;
    std::int64_t beyond = 0;                 // traces that max_pictures leaves out
    Raster raster;                           // of the mean
    std::optional<sums::ExactSums> sum;      // column by column; there once a trace has been added
    std::int64_t before = vorn_part_first(); // traces of the job before those of this process
    bool isPart = false;
    std::vector<KeptTrace> kept; // in a part, where there is no mean
};

// ---- Before the first trace ----

void check(const Parameters& set, double nyquist)
{
    const double fmax = set.fmax.value_or(nyquist);
    if (set.fmin >= std::min(fmax, nyquist))
        fail("fmin is " + numberText(set.fmin) + " Hz; give a number below " +
             numberText(std::min(fmax, nyquist)) + " Hz, the highest frequency drawn");
}

// Samples in a length of time, at least 1.
int samplesIn(double seconds, int interval)
{
    return static_cast<int>(std::clamp(std::round(seconds * 1e6 / interval), 1.0, 1e9));
}

int stepOf(const Parameters& set, int interval, int length)
{
    if (set.step)
        return samplesIn(*set.step, interval);
    return std::clamp(length / usualColumns, 1, std::max(1, samplesIn(set.window, interval) / 8));
}

Raster rasterOf(const State& state, std::int64_t delay)
{
    Raster raster;
    raster.delay = delay;
    raster.step = stepOf(state.set, state.interval, state.length);
    const std::int64_t columns = (std::int64_t{state.length} - 1) / raster.step + 1;
    if (columns > mostCells)
        fail("with a step of " + numberText(raster.step * (state.interval * 1e-6)) +
             " s, the picture has " + std::to_string(columns) + " places of the window; at most " +
             std::to_string(mostCells) + " are drawn; give a larger step, or a part of the trace");
    raster.columns = static_cast<int>(columns);
    const double hertz = 1e6 / (static_cast<double>(state.spectra.length()) * state.interval);
    const int last = state.spectra.frequencies() - 1;
    raster.from = static_cast<int>(
        std::clamp(std::ceil(state.set.fmin / hertz - 1e-6), 0.0, static_cast<double>(last)));
    const double top = state.set.fmax.value_or(std::numeric_limits<double>::infinity());
    const int to =
        static_cast<int>(std::clamp(std::floor(top / hertz + 1e-6),
                                    static_cast<double>(raster.from), static_cast<double>(last)));
    const int lines = to - raster.from + 1;
    raster.perRow = (lines + mostCells - 1) / mostCells;
    raster.rows = (lines + raster.perRow - 1) / raster.perRow;
    return raster;
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    vorn_build_output(0, in);
    const Parameters set = spectrogram_parameters::readParameters();
    const int interval = getTraceSampleInterval(in);
    if (interval <= 0) {
        vorn_fail_without_interval();
        throw vorn_kit::Failed();
    }
    check(set, 0.5e6 / interval);
    const int length = std::max(getTraceLength(in), 0);
    const int samples = samplesIn(set.window, interval);
    if (samples > length && length > 0)
        fail("window is " + numberText(set.window) + " s, and the traces have " +
             numberText(length * (interval * 1e-6)) +
             " s; give a shorter one with its unit (200 ms)");
    if (samples < 3)
        fail("window is " + numberText(set.window) + " s, " + std::to_string(samples) +
             (samples == 1 ? " sample" : " samples") +
             "; give one of at least 3 samples with its unit (200 ms)");
    const std::int64_t needed = ShortTimeSpectra::bytesFor(samples);
    if (needed < 0)
        fail("window has " + std::to_string(samples) + " samples, too many for a transform");
    vorn_kit::allowMemory(set.memory_limit, needed,
                          "a window of " + std::to_string(samples) + " samples",
                          "give a shorter one with window");
    auto state = std::make_unique<State>(set, samples, in);
    state->interval = interval;
    state->length = length;
    vorn_part part;
    state->isPart = vorn_find_part(&part);
    return state;
}

// ---- Pictures ----

// Calls `add` with the number and the amplitude of each cell, column by column from 0 Hz upwards.
template <typename Add>
void addSpectra(State& state, const Raster& raster, std::int64_t delay, const double* samples,
                const Add& add)
{
    const auto shift = static_cast<std::int64_t>(
        std::llround(static_cast<double>(raster.delay - delay) / state.interval));
    std::size_t cell = 0;
    for (int column = 0; column < raster.columns; ++column) {
        const std::vector<double>& amplitudes =
            state.spectra.at(samples, state.length, std::int64_t{column} * raster.step + shift);
        for (int row = 0; row < raster.rows; ++row, ++cell) {
            const int first = raster.from + row * raster.perRow;
            const int end = std::min(first + raster.perRow, state.spectra.frequencies());
            add(cell, *std::max_element(amplitudes.begin() + first, amplitudes.begin() + end));
        }
    }
}

pictures::ImageDescription describe(const State& state, const Raster& raster,
                                    const std::string& what, double greatest)
{
    const Parameters& set = state.set;
    pictures::ImageDescription image;
    image.title = set.title.value_or(getModuleName()) + ": " + what;
    image.x = "time (s)";
    image.y = "frequency (Hz)";
    image.colourMap = wordOf(set.colormap);
    image.bar = set.scale == Scale::db ? "amplitude (dB)" : "amplitude";
    image.low = set.scale == Scale::db ? -set.db_range : 0;
    image.high = set.scale == Scale::db ? 0 : greatest;
    const double step = raster.step * (state.interval * 1e-6);
    const double start = static_cast<double>(raster.delay) * 1e-6;
    image.left = start - step / 2;
    image.right = start + (raster.columns - 0.5) * step;
    const double hertz = 1e6 / (static_cast<double>(state.spectra.length()) * state.interval);
    image.bottom = (raster.from - 0.5) * hertz;
    image.top = image.bottom + static_cast<double>(raster.rows) * raster.perRow * hertz;
    const double window = state.spectra.window() * (state.interval * 1e-6);
    image.note = "window " + numberText(window) + " s, step " + numberText(step) +
                 " s, 0 dB is an amplitude of ";
    if (set.scale == Scale::linear)
        image.note = "window " + numberText(window) + " s, step " + numberText(step) +
                     " s, greatest amplitude ";
    image.note += pictures::shortText(greatest);
    return image;
}

void draw(const State& state, const Raster& raster, const std::vector<double>& amplitudes,
          double divisor, const std::string& what)
{
    const double greatest = *std::max_element(amplitudes.begin(), amplitudes.end()) / divisor;
    pictures::ImagePad pad(describe(state, raster, what, greatest), raster.rows, pictureBuffer);
    std::vector<float> cells(static_cast<std::size_t>(raster.rows));
    auto value = amplitudes.begin();
    for (int column = 0; column < raster.columns; ++column) {
        for (auto cell = cells.rbegin(); cell != cells.rend(); ++cell, ++value) {
            const double amplitude = *value / divisor;
            *cell = static_cast<float>(
                state.set.scale == Scale::db
                    ? pictures::decibels(amplitude, greatest, -state.set.db_range)
                    : amplitude);
        }
        pad.addColumn(cells);
    }
}

// ---- For each trace ----

std::size_t cellsOf(const State& state, const Raster& raster, std::size_t bytesPerCell)
{
    const auto cells =
        static_cast<std::size_t>(raster.columns) * static_cast<std::size_t>(raster.rows);
    vorn_kit::allowMemory(state.set.memory_limit,
                          static_cast<std::int64_t>(cells * bytesPerCell) +
                              ShortTimeSpectra::bytesFor(state.spectra.window()) +
                              std::int64_t{8} * state.length,
                          "a picture of " + std::to_string(raster.columns) + " by " +
                              std::to_string(raster.rows) + " cells",
                          "give a larger step");
    return cells;
}

// A mean has sums of cells, and at last their values.
void beginMean(State& state, std::int64_t delay)
{
    constexpr std::size_t words = 5;
    state.raster = rasterOf(state, delay);
    state.sum.emplace(cellsOf(state, state.raster, words * sizeof(double)));
}

void addToMean(State& state, std::int64_t delay, const double* samples)
{
    if (!state.sum)
        beginMean(state, delay);
    double greatest = 0;
    for (int i = 0; i < state.length; ++i)
        greatest = std::max(greatest, std::fabs(samples[i]));
    const exact_batch batch = state.sum->begin(2.1 * greatest);
    addSpectra(state, state.raster, delay, samples, [&](std::size_t cell, double amplitude) {
        exact_batch_add(&batch, cell, amplitude);
    });
    ++state.drawn;
}

void drawTrace(State& state, const std::string& name, std::int64_t delay, const double* samples)
{
    if (state.drawn == state.set.max_pictures) {
        ++state.beyond;
        return;
    }
    const Raster raster = rasterOf(state, delay);
    std::vector<double> amplitudes(cellsOf(state, raster, sizeof(double)), 0.0);
    addSpectra(state, raster, delay, samples,
               [&](std::size_t cell, double amplitude) { amplitudes[cell] += amplitude; });
    ++state.drawn;
    draw(state, raster, amplitudes, 1, name);
}

void keepTrace(State& state, const std::string& name, std::int64_t delay, const double* samples)
{
    if (static_cast<std::int64_t>(state.kept.size()) == state.set.max_pictures)
        ++state.beyond;
    else
        state.kept.push_back({name, delay, std::vector<double>(samples, samples + state.length)});
}

void useTrace(State& state, void* in)
{
    ++state.chosen;
    const float* samples = state.length > 0 ? getTraceSamples(in, 0) : nullptr;
    if (samples == nullptr) {
        ++state.dead;
        return;
    }
    const bool isDead = std::all_of(samples, samples + state.length, [](float sample) {
        return sample == 0 || !std::isfinite(sample);
    });
    const double* values = state.finite.of(samples, state.length);
    if (isDead) {
        ++state.dead;
        return;
    }
    const std::int64_t delay = sampling::delayOf(in);
    const std::string name = words::nameOfTrace(in, state.before + state.traces);
    if (state.set.mean)
        addToMean(state, delay, values);
    else if (state.isPart)
        keepTrace(state, name, delay, values);
    else
        drawTrace(state, name, delay, values);
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    ++state.traces;
    if (state.choice.isChosen(in, state.before + state.traces))
        useTrace(state, in);
    if (out != nullptr)
        vorn_pass_trace(in, out);
}

// ---- After the last trace ----

void finish(State& state)
{
    if (state.traces == 0) {
        if (!vorn_job_has_failed())
            message(VORN_WARNING, "no trace arrived; there is no picture");
        return;
    }
    if (state.chosen == 0)
        message(VORN_WARNING, "none of " + std::to_string(state.traces) +
                                  " traces is chosen; there is no picture; give other numbers "
                                  "with traces, or another condition");
    if (state.dead > 0)
        message(VORN_WARNING, std::to_string(state.dead) + " of " + std::to_string(state.chosen) +
                                  " chosen traces are zeros and have no spectrum");
    if (state.beyond > 0)
        message(VORN_WARNING, std::to_string(state.beyond) +
                                  " chosen traces have no picture, since there are " +
                                  std::to_string(state.drawn) +
                                  " already; raise max_pictures, or draw their mean");
    const std::string warning = state.finite.warning();
    if (!warning.empty())
        message(VORN_WARNING, warning);
    if (!state.sum)
        return;
    state.sum->flush();
    std::vector<double> sums(state.sum->size());
    for (std::size_t i = 0; i < sums.size(); ++i)
        sums[i] = state.sum->value(i);
    draw(state, state.raster, sums, static_cast<double>(state.drawn),
         "mean of " + std::to_string(state.drawn) + (state.drawn == 1 ? " trace" : " traces"));
}

// ---- Parts ----

void save(State& state, vorn_kit::StateWriter& file)
{
    file(state.traces, state.chosen, state.drawn, state.dead, state.beyond, state.kept);
    state.finite.save(file);
    std::uint8_t hasMean = state.sum ? 1 : 0;
    file(hasMean);
    if (state.sum)
        file(state.raster.delay, *state.sum);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    state.traces += file.get<std::int64_t>();
    state.chosen += file.get<std::int64_t>();
    const auto drawn = file.get<std::int64_t>(); // into a mean
    state.dead += file.get<std::int64_t>();
    const auto beyond = file.get<std::int64_t>();
    for (const KeptTrace& trace : file.get<std::vector<KeptTrace>>()) {
        if (static_cast<int>(trace.samples.size()) != state.length)
            file.refuse("its traces have another length");
        drawTrace(state, trace.name, trace.delay, trace.samples.data());
    }
    state.drawn += drawn;
    state.beyond += beyond;
    state.finite.merge(file);
    if (file.get<std::uint8_t>() == 0)
        return;
    const auto delay = file.get<std::int64_t>();
    auto sum = file.get<sums::ExactSums>();
    if (!state.sum)
        beginMean(state, delay);
    if (delay != state.raster.delay)
        fail("the first chosen traces of two parts begin at " +
             sampling::secondsText(state.raster.delay) + " s and at " +
             sampling::secondsText(delay) +
             " s, and the first one says where the mean begins; run the job in one process");
    if (sum.size() != state.sum->size())
        file.refuse("its mean has another number of cells");
    state.sum->add(sum);
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
