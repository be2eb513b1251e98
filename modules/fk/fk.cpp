// fk: draws f-k spectra of gathers, and passes or rejects dips.
//
// The samples of a gather are collected here; its traces wait in a queue, which the kernel pages,
// until the gather is complete, and leave with their new samples.
#include "FkSpectrum.h"
#include "FkTransform.h"
#include "MOXKernel.h"
#include "dip_fan.h"
#include "fk_parameters.hpp"
#include "pictures/ImagePad.h"
#include "pictures/ValueRange.h"
#include "sampling/SampleCounts.h"
#include "vorn_stream.hpp"
#include "words/TraceWords.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using fk_parameters::Filter;
using fk_parameters::Parameters;
using fk_parameters::Side;
using vorn_kit::fail;
using vorn_kit::message;
using vorn_kit::Stream;
using words::numberText;

constexpr int leastTraces = 3;     // fewer have no dip
constexpr double unevenness = 0.1; // of the spacing, that is told
constexpr int beforeBuffer = 0;    // work buffers of the pictures
constexpr int afterBuffer = 1;

struct Gather
{
    std::int64_t first = 0; // number of its first trace, from 1
    std::string name;       // "fldr 12"
    double key = 0;
    std::vector<double> samples; // trace by trace
    std::vector<double> positions;
    int traces = 0;
};

struct State
{
    Parameters set;
    double interval = 0; // seconds
    int length = 0;      // samples
    void* queue = nullptr;
    std::optional<DipFan> fan; // dips in seconds per metre until the spacing is known
    std::unique_ptr<words::TraceWords> reader;
    std::vector<double> values; // of the reader: key, position

    Gather gather;
    std::unique_ptr<FkTransform> transform;
    std::unique_ptr<FkSpectrum> before;
    std::unique_ptr<FkSpectrum> after;
    double spacing = 0;      // of the first gather
    bool isPerTrace = false; // the spacing is not known
    sampling::FiniteSamples finite;

    std::int64_t traces = 0;
    std::int64_t gathers = 0;
    std::int64_t tooSmall = 0; // gathers
    std::int64_t uneven = 0;   // gathers
    std::string firstUneven;
    std::int64_t otherSpacing = 0; // gathers
    double energyBefore = 0;
    double energyAfter = 0;
};

// ---- Before the first trace ----

void checkRange(const char* name, const std::vector<double>& range, const char* unit)
{
    if (range.size() == 2 && range[0] >= range[1])
        fail(std::string(name) + " are " + numberText(range[0]) + unit + " and " +
             numberText(range[1]) + unit + "; give the lower one first");
}

void check(const Parameters& set)
{
    const bool hasRange = !set.velocities.empty() || !set.dips.empty();
    if (!set.velocities.empty() && !set.dips.empty())
        fail("velocities and dips are both given; give one of them");
    if (set.filter != Filter::none && !hasRange)
        fail(std::string("filter is ") + wordOf(set.filter) +
             " and there is no range; give velocities or dips");
    if (set.filter == Filter::none && hasRange)
        fail("a range of dips is given and filter is none; give pass or reject as filter");
    checkRange("velocities", set.velocities, " m/s");
    checkRange("dips", set.dips, " s");
    if (set.filter == Filter::none && !set.picture)
        fail("there is nothing to do; give a filter, or let picture be true");
}

// Dips in seconds from trace to trace.
std::optional<DipFan> fanOf(const Parameters& set, double spacing)
{
    if (set.filter == Filter::none)
        return {};
    DipFan fan;
    if (!set.dips.empty()) {
        fan.low = set.dips[0];
        fan.high = set.dips[1];
    } else {
        fan.low = spacing / set.velocities[1];
        fan.high = set.velocities[0] > 0 ? spacing / set.velocities[0]
                                         : std::numeric_limits<double>::infinity();
    }
    fan.taper = set.taper / 100;
    fan.rejects = set.filter == Filter::reject;
    fan.side = set.side == Side::both       ? DipFan::Side::both
               : set.side == Side::positive ? DipFan::Side::positive
                                            : DipFan::Side::negative;
    return fan;
}

std::string historyOf(const Parameters& set)
{
    std::string line = std::string("fk filter=") + wordOf(set.filter);
    if (!set.velocities.empty())
        line += " velocities=" + numberText(set.velocities[0]) + "," +
                numberText(set.velocities[1]) + " m/s";
    if (!set.dips.empty())
        line += " dips=" + numberText(set.dips[0]) + "," + numberText(set.dips[1]) + " s";
    return line + " side=" + wordOf(set.side) + " taper=" + numberText(set.taper) + " %";
}

// Whether positions of traces are needed: for the spacing, which dips do without.
bool readsPositions(const Parameters& set)
{
    return !set.spacing && (set.picture || !set.velocities.empty());
}

std::unique_ptr<State> prepare(Stream& io)
{
    void* in = vorn_kit::requiredInput();
    auto state = std::make_unique<State>();
    void* out = io.outputs() > 0 ? vorn_kit::buildRequiredOutput(0, in) : nullptr;
    state->set = fk_parameters::readParameters();
    const Parameters& set = state->set;
    check(set);
    if (set.filter != Filter::none && out == nullptr && !set.picture)
        fail("filter is given and the module has no output; connect one");
    const int interval = getTraceSampleInterval(in);
    if (interval <= 0) {
        vorn_fail_without_interval();
        throw vorn_kit::Failed();
    }
    state->interval = interval * 1e-6;
    state->length = std::max(getTraceLength(in), 0);
    if (out != nullptr)
        state->queue = io.buildQueue(out);
    std::vector<std::string> names;
    if (!set.whole)
        names.push_back(set.gather);
    if (readsPositions(set) && (names.empty() || set.word != names[0]))
        names.push_back(set.word);
    state->reader = std::make_unique<words::TraceWords>(names);
    if (set.filter != Filter::none)
        vorn_kit::addHistory(historyOf(set));
    return state;
}

// ---- Spacing ----

struct Spacing
{
    double value = 0; // 0 where it cannot be found
    bool isEven = true;
};

// The median of the distances between neighbours: a gap or two do not count.
Spacing spacingOf(const std::vector<double>& positions)
{
    std::vector<double> steps;
    steps.reserve(positions.size());
    for (std::size_t i = 1; i < positions.size(); ++i)
        steps.push_back(std::fabs(positions[i] - positions[i - 1]));
    if (steps.empty())
        return {};
    const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
    std::nth_element(steps.begin(), middle, steps.end());
    Spacing found{*middle, true};
    for (const double step : steps)
        found.isEven = found.isEven && std::fabs(step - found.value) <= unevenness * found.value;
    return found;
}

// Of the present gather, in metres; 1 where it is not known and not needed.
double findSpacing(State& state)
{
    if (state.set.spacing)
        return *state.set.spacing;
    if (!readsPositions(state.set) || state.isPerTrace)
        return 1;
    const Spacing found = spacingOf(state.gather.positions);
    if (found.value == 0) {
        const std::string problem = state.gather.name + ": most neighbours have the same " +
                                    state.set.word + ", so the distance of traces is not known";
        if (!state.set.velocities.empty())
            fail(problem + "; give spacing, or another word");
        if (!state.isPerTrace)
            message(VORN_WARNING, problem + ": wavenumbers are those per trace; give spacing, or "
                                            "another word");
        state.isPerTrace = true;
        return 1;
    }
    if (!found.isEven && state.uneven++ == 0)
        state.firstUneven = state.gather.name;
    return found.value;
}

// ---- A gather ----

// A wider transform serves smaller gathers as well; spectra have the same cells then.
void makeTransform(State& state)
{
    if (state.transform && state.gather.traces <= state.transform->mostTraces())
        return;
    state.transform.reset();
    state.transform = std::make_unique<FkTransform>(state.gather.traces, state.length);
}

void emitAll(State& state, Stream& io)
{
    const Gather& gather = state.gather;
    if (state.queue == nullptr)
        return;
    for (int i = 0; i < gather.traces; ++i) {
        void* out = io.emitTrace(state.queue, 0, i);
        if (!state.fan || state.length == 0)
            continue;
        float* samples = getTraceSamples(out, 0);
        const double* from = gather.samples.data() + static_cast<std::ptrdiff_t>(i) * state.length;
        if (samples == nullptr)
            fail("not enough memory for a trace; give the job a lower limit of traces in memory");
        std::transform(from, from + state.length, samples, sampling::toSample);
    }
    vorn_clear_queue(state.queue);
}

void computeGather(State& state)
{
    Gather& gather = state.gather;
    const double spacing = findSpacing(state);
    if (state.spacing == 0)
        state.spacing = spacing;
    else if (std::fabs(spacing - state.spacing) > unevenness * state.spacing)
        ++state.otherSpacing;
    makeTransform(state);
    state.fan = fanOf(state.set, spacing);
    FkTransform& transform = *state.transform;
    transform.forward(gather.samples.data(), gather.traces);
    state.energyBefore += transform.energy();
    const auto show = [&](std::unique_ptr<FkSpectrum>& spectrum) {
        if (!state.set.picture)
            return;
        if (!spectrum)
            spectrum = std::make_unique<FkSpectrum>(
                transform, state.interval,
                state.set.fmax.value_or(std::numeric_limits<double>::infinity()));
        spectrum->add(transform);
    };
    show(state.before);
    if (!state.fan)
        return;
    transform.apply(*state.fan, state.interval);
    state.energyAfter += transform.energy();
    show(state.after);
    transform.backward(gather.samples.data(), gather.traces);
}

void endGather(State& state, Stream& io)
{
    if (state.gather.traces == 0)
        return;
    ++state.gathers;
    if (state.gather.traces >= leastTraces && state.length > 0)
        computeGather(state);
    else
        ++state.tooSmall;
    emitAll(state, io);
    state.gather = {};
}

// ---- For each trace ----

void allow(const State& state)
{
    const int traces = state.gather.traces + 1;
    const std::int64_t transform = FkTransform::bytesFor(traces, state.length);
    if (transform < 0)
        fail(state.gather.name + " has more than " + std::to_string(state.gather.traces) +
             " traces of " + std::to_string(state.length) +
             " samples, too many for a transform; gather by another word");
    // Vectors take up to twice as much when they grow.
    const std::int64_t samples = 24 * std::int64_t{traces} * (state.length + 1);
    const std::int64_t spectra = state.set.picture ? 2 * FkSpectrum::mostBytes : 0;
    if (state.gather.traces == 0 ||
        state.gather.samples.capacity() <
            state.gather.samples.size() + static_cast<std::size_t>(state.length))
        vorn_kit::allowMemory(state.set.memory_limit, samples + transform + spectra,
                              "the transform of " + std::to_string(traces) + " traces of " +
                                  std::to_string(state.length) + " samples",
                              "gather by another word, or shorten the traces");
}

void beginGather(State& state, double key)
{
    state.gather.first = state.traces;
    state.gather.key = key;
    state.gather.name = state.set.whole ? "the input" : state.set.gather + " " + numberText(key);
}

void onTrace(State& state, Stream& io)
{
    void* in = io.trace();
    ++state.traces;
    state.reader->read(in, state.traces, state.values);
    const double key = state.set.whole ? 0 : state.values.front();
    if (state.gather.traces > 0 && key != state.gather.key)
        endGather(state, io);
    if (state.gather.traces == 0)
        beginGather(state, key);
    allow(state);
    Gather& gather = state.gather;
    if (state.length > 0) {
        const float* samples = getTraceSamples(in, 0);
        if (samples == nullptr)
            fail("not enough memory for a trace; give the job a lower limit of traces in memory");
        const double* values = state.finite.of(samples, state.length);
        gather.samples.insert(gather.samples.end(), values, values + state.length);
    }
    if (readsPositions(state.set))
        gather.positions.push_back(state.values.back());
    ++gather.traces;
    if (state.queue != nullptr)
        io.queueTrace(state.queue, in);
}

void onEnd(State& state, Stream& io)
{
    endGather(state, io);
}

// ---- Pictures ----

// The edges of the fan as lines from the origin, in the units of the axes.
void drawFan(const State& state, int pad, double perMetre, double top)
{
    addNewPenToPad(pad, VORN_PEN_RED);
    for (const double dip : {state.fan->low, state.fan->high}) {
        if (dip == 0 || !std::isfinite(dip))
            continue;
        for (const double sign : {-1.0, 1.0}) {
            if ((sign < 0 && state.fan->side == DipFan::Side::positive) ||
                (sign > 0 && state.fan->side == DipFan::Side::negative))
                continue;
            // To the Nyquist wavenumber or the highest frequency, whichever comes first.
            const double frequency = std::min(top, 0.5 / dip);
            addPlotToPad(pad, 0, 0, VORN_MOVE);
            addPlotToPad(pad, static_cast<float>(sign * dip * frequency * perMetre),
                         static_cast<float>(frequency), VORN_DRAW);
        }
    }
}

std::string counted(std::int64_t count, const char* what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string spacingText(const State& state)
{
    const bool isKnown =
        state.spacing > 0 && !state.isPerTrace && (readsPositions(state.set) || state.set.spacing);
    return isKnown ? ", spacing " + numberText(state.spacing) + " m" : "";
}

void draw(const State& state, const FkSpectrum& spectrum, double reference, bool isAfter)
{
    const Parameters& set = state.set;
    const double perMetre = 1 / state.spacing;
    pictures::ImageDescription image;
    image.title = set.title.value_or(std::string(getModuleName()) + ": f-k spectrum");
    if (state.fan)
        image.title += isAfter ? ", after the filter" : ", before the filter";
    image.x = state.isPerTrace ? "wavenumber (1/trace)" : "wavenumber (1/m)";
    image.y = "frequency (Hz)";
    image.bar = "amplitude (dB)";
    image.note = "mean of " + counted(state.gathers - state.tooSmall, "gather") +
                 spacingText(state) + "; events on the right are later from trace to trace";
    image.colourMap = wordOf(set.colormap);
    image.left = spectrum.left() * perMetre;
    image.right = spectrum.right() * perMetre;
    image.bottom = spectrum.bottom();
    image.top = spectrum.top();
    image.low = -set.db_range;
    image.high = 0;
    pictures::ImagePad pad(image, spectrum.rows(), isAfter ? afterBuffer : beforeBuffer);
    std::vector<float> cells(static_cast<std::size_t>(spectrum.rows()));
    for (int column = 0; column < spectrum.columns(); ++column) {
        for (int row = 0; row < spectrum.rows(); ++row)
            cells[static_cast<std::size_t>(spectrum.rows() - 1 - row)] = static_cast<float>(
                pictures::decibels(spectrum.amplitude(column, row), reference, -set.db_range));
        pad.addColumn(cells);
    }
    if (state.fan)
        drawFan(state, pad.ident(), perMetre, spectrum.top());
}

// ---- After the last trace ----

void report(const State& state)
{
    std::string text = counted(state.traces, "trace") + " in " + counted(state.gathers, "gather") +
                       spacingText(state);
    if (state.fan && state.energyBefore > 0)
        text += "; the filter keeps " +
                numberText(std::round(1e4 * state.energyAfter / state.energyBefore) / 100) +
                " % of the energy";
    message(VORN_INFORMATION, text);
    if (state.tooSmall > 0)
        message(VORN_WARNING, std::to_string(state.tooSmall) + " of " +
                                  std::to_string(state.gathers) + " gathers have fewer than " +
                                  std::to_string(leastTraces) +
                                  " traces and stay as they are; gather by another word, or "
                                  "give whole: true for a section");
    if (state.uneven > 0)
        message(VORN_WARNING, std::to_string(state.uneven) + " of " +
                                  std::to_string(state.gathers) +
                                  " gathers have traces that are not evenly spaced, the first is " +
                                  state.firstUneven + "; their median spacing is used");
    if (state.otherSpacing > 0)
        message(VORN_WARNING, std::to_string(state.otherSpacing) + " of " +
                                  std::to_string(state.gathers) +
                                  " gathers have another spacing than the first; wavenumbers of "
                                  "the picture are those of the first");
    const std::string warning = state.finite.warning();
    if (!warning.empty())
        message(VORN_WARNING, warning);
}

void finish(State& state)
{
    if (state.traces == 0) {
        if (!vorn_job_has_failed())
            message(VORN_WARNING, "no trace arrived; there is no spectrum");
        return;
    }
    report(state);
    if (!state.before)
        return;
    const double reference = state.before->greatest();
    if (reference == 0) {
        message(VORN_WARNING, "all samples are 0; there is no spectrum");
        return;
    }
    draw(state, *state.before, reference, false);
    if (state.after)
        draw(state, *state.after, reference, true);
}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
