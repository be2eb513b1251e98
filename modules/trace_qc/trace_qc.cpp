// trace_qc: measures traces, and flags bad ones.
//
// A trace is weak, noisy or reversed only in comparison with others. So traces wait in a queue
// until their gather is complete (the kernel pages out what exceeds the job's limit of resident
// traces), are classified, and go on with the results in their headers. Samples are never changed.
// Without an output, the gather is dropped after that.
#include "MOXKernel.h"
#include "checks.h"
#include "gather_measures.h"
#include "level_curve.h"
#include "shared_hum.h"
#include "trace_measures.h"
#include "trace_names.h"
#include "trace_qc_parameters.hpp"
#include "vorn_parts.hpp"
#include "vorn_stream.hpp"

#include "file/OutputFile.h"
#include "traces/JobFiles.h"
#include "words/QualityFlags.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using trace_qc_parameters::Parameters;
using vorn_kit::fail;
using vorn_kit::message;
using vorn_kit::Stream;

// ---- Flags ----

// Which symbol of which pen marks it in the picture.
struct FlagStyle
{
    Flag flag;
    const char* name;
    int pen;
    int symbol;
    float height; // points; they differ, so that marks of one trace do not hide each other
};

constexpr std::array<FlagStyle, 14> flagStyles = {{
    {dead, "dead", 8, 4, 9},
    {weak, "weak", 3, 2, 10},
    {noisy, "noisy", 2, 5, 10},
    {clipped, "clipped", 5, 0, 7},
    {spiky, "spike", 6, 3, 12},
    {reversed, "reversed", 4, 1, 12},
    {ringing, "ringing", 2, 1, 16},
    {invalid, "invalid", 1, 4, 12},
    {hum, "hum", 5, 2, 14},
    {bias, "bias", 6, 0, 14},
    {duplicate, "duplicate", 4, 3, 16},
    {shifted, "shifted", 8, 1, 18},
    {geometry, "geometry", 3, 0, 18},
    {unlike, "unlike", 2, 2, 18},
}};

// Modules behind this one choose traces by the names.
constexpr bool haveCommonNames()
{
    return std::equal(
        flagStyles.begin(), flagStyles.end(), words::qualityFlags.begin(),
        words::qualityFlags.end(), [](const FlagStyle& style, const words::QualityFlag& flag) {
            return style.flag == flag.number && std::string_view(style.name) == flag.name;
        });
}
static_assert(haveCommonNames());

struct Measures
{
    std::string name; // as shown to the user: "fldr 16 tracf 2"
    TraceLevels levels;
    DominantFrequency dominant;
    double median = 0; // RMS of the traces around
    double polarity = 0;
    int run = 0; // samples at the limit
    int spikes = 0;
    int firstSpike = 0; // sample
    int flags = 0;
    SingleChecks single;
    GatherChecks compared;
    std::optional<double> offset; // of the header
    TraceIdentity identity;
};

// ---- Texts ----

std::string text(const char* format, double value)
{
    std::array<char, 64> written;
    std::snprintf(written.data(), written.size(), format, value);
    return written.data();
}

std::string number(double value)
{
    return text("%.4g", value);
}

// ---- Parameters ----

Parameters readSettings()
{
    Parameters set = trace_qc_parameters::readParameters();
    if (set.dead > set.weak)
        fail("dead is " + number(set.dead) + " and weak is " + number(set.weak) +
             "; dead must not be above weak");
    return set;
}

CheckRule ruleOf(const Parameters& set)
{
    CheckRule rule;
    rule.window = static_cast<int>(set.window);
    rule.outlier = set.outlier;
    rule.level = set.level;
    rule.hum = set.hum / 100;
    rule.bias = set.bias;
    rule.twin = set.duplicate / 100;
    rule.mismatch = set.unlike;
    return rule;
}

// ---- From one call to the next ----

struct Mark
{
    std::int64_t trace;
    double level; // dB
    int flags;
    std::int64_t number; // in the file where it is known, else that of its arrival

    template <typename File>
    void transfer(File& file)
    {
        file(trace, level, flags, number);
    }
};

// What is told in the end.
struct Findings
{
    static constexpr std::size_t mostPoints = 2000; // of a curve, of the marks
    static constexpr std::size_t mostNames = 1000;

    std::int64_t traces = 0;
    std::int64_t flagged = 0;
    std::int64_t named = 0; // by warnings, or would be without a limit of these
    std::array<std::int64_t, flagStyles.size()> counts{};
    std::vector<std::string> names;             // of flagged traces, with their flags
    std::vector<std::vector<std::string>> rows; // of the same traces, for the report
    LevelCurve level;                           // dB
    LevelCurve median;                          // dB
    std::vector<Mark> marks;
    bool numbersAreFromTheFile = false;
    bool someGatherIsJudged = false; // not each of them was too small

    // `before` traces precede those that are looked at.
    explicit Findings(std::int64_t before = 0)
        : level(mostPoints, before), median(mostPoints, before)
    {
    }

    template <typename File>
    void transfer(File& file)
    {
        file(traces, flagged, named, counts, names, rows, level, median, marks,
             numbersAreFromTheFile, someGatherIsJudged);
    }
};

struct State
{
    State(const Parameters& given, int samples, int microseconds)
        : set(given), length(samples), interval(microseconds * 1e-6), meter(samples),
          correlator(samples), checker(samples, microseconds * 1e-6, ruleOf(given)),
          sharedHum(leastHum(ruleOf(given), samples * microseconds * 1e-6))
    {
    }

    Parameters set;
    int length;
    double interval; // seconds; 0 when it is not known
    FrequencyMeter meter;
    Correlator correlator;
    Checker checker;

    std::unique_ptr<VORN::OutputFile> table; // null where none is asked for
    void* collection = nullptr;              // the queue of the gather's traces
    std::vector<Measures> gather;            // in the order of the queue
    double key = 0;                          // of the gather
    std::vector<const char*> writable;       // the results that the schema knows
    std::int64_t before = vorn_part_first(); // traces of the job before those of this process
    Findings found{before};
    SharedHum sharedHum;
};

// ---- Before the first trace ----

// Those of a host that reads no manifest have no type but that of whole numbers. `set` is null
// where nobody reads the output.
void defineResults(State& state, void* set)
{
    if (set != nullptr)
        defineTraceAttribute(set, "qc_flags");
    for (const char* name : {"qc_rms", "qc_peak", "qc_mean", "qc_freq"}) {
        const int type = getTraceAttributeType(name);
        if (type != VORN_TYPE_FLOAT32 && type != VORN_TYPE_FLOAT64) {
            message(VORN_DETAIL, std::string("the job's schema has no float attribute ") + name +
                                     "; it is not written");
            continue;
        }
        if (set != nullptr)
            defineTraceAttribute(set, name);
        state.writable.push_back(name);
    }
}

void beginTable(State& state);
std::vector<std::string> rowOf(const State& state, const Measures& m, const char* format);

std::unique_ptr<State> prepare(Stream& io)
{
    void* in = vorn_kit::requiredInput();
    // The modules before this one have described their outputs by now.
    void* out = vorn_build_output(0, in);
    const int length = getTraceLength(in);
    const Parameters set = readSettings();
    vorn_kit::allowMemory(set.memory_limit,
                          measuringBytes(length, set.neighbours, set.max_gather) +
                              checkingBytes(length, set.max_gather),
                          "measuring traces of " + std::to_string(length) + " samples",
                          "shorten the traces");
    auto state = std::make_unique<State>(set, length, std::max(getTraceSampleInterval(in), 0));
    defineResults(*state, out);
    beginTable(*state);
    state->collection = io.buildQueue(out != nullptr ? out : in);
    if (state->set.gather != "none" && isTraceAttributeExist(in, state->set.gather.c_str()) == 0)
        message(VORN_INFORMATION, "the traces have no header word \"" + state->set.gather +
                                      "\"; gathers are taken to have " +
                                      std::to_string(state->set.max_gather) +
                                      " traces; name another word with gather");
    return state;
}

// ---- Trace by trace ----

std::optional<int> word(void* traces, const char* name)
{
    if (isTraceAttributeExist(traces, name) == 0)
        return std::nullopt;
    return getTraceAttribute(traces, name, 0).getI32Value();
}

TraceIdentity identify(void* traces, std::int64_t arrival)
{
    TraceIdentity identity;
    identity.arrival = arrival;
    if (isTraceAttributeExist(traces, "filetrace") != 0) {
        const std::int64_t number = getTraceAttribute(traces, "filetrace", 0).getI64Value();
        if (number > 0)
            identity.fileTrace = number;
    }
    for (std::size_t i = 0; i < nameWords.size(); ++i)
        identity.words[i] = word(traces, nameWords[i]);
    return identity;
}

int spikeWindow(const State& state)
{
    constexpr int fewest = 10;
    const double samples = state.interval > 0 ? state.set.spike_window / state.interval : 0;
    return std::max(fewest, static_cast<int>(std::lround(std::min<double>(samples, state.length))));
}

// A slow trend does not count, however much of the energy it has.
bool isRinging(const State& state, const DominantFrequency& dominant)
{
    constexpr double fewestPeriods = 10;
    return dominant.share * 100 > state.set.ringing &&
           dominant.frequency * state.length >= fewestPeriods;
}

Measures measure(State& state, std::span<const float> samples)
{
    Measures m;
    m.levels = levelsOf(samples);
    m.dominant = state.meter.measure(samples, m.levels.mean);
    m.run = longestRunAtTheLimit(samples);
    std::vector<int> spikes =
        findSpikes(samples, m.levels.mean, state.set.spike, spikeWindow(state));
    if (spikes.empty())
        spikes = findSpikes(interpolationErrors(samples), 0, state.set.spike, spikeWindow(state));
    m.spikes = static_cast<int>(spikes.size());
    m.firstSpike = spikes.empty() ? 0 : spikes.front();

    const bool isDead = m.levels.isConstant;
    m.flags |= isDead ? dead : 0;
    m.flags |= m.run >= state.set.clip_run ? clipped : 0;
    m.flags |= m.spikes > 0 ? spiky : 0;
    m.flags |= !isDead && isRinging(state, m.dominant) ? ringing : 0;
    m.flags |= m.levels.invalid > 0 ? invalid : 0;
    m.single = state.checker.measure(samples, m.levels);
    return m;
}

std::span<const float> samplesOf(const State& state, int trace)
{
    const float* samples = getTraceSamples(state.collection, trace);
    if (samples == nullptr)
        return {};
    return {samples, static_cast<std::size_t>(state.length)};
}

void collect(State& state, Stream& io)
{
    const auto arrival =
        state.before + state.found.traces + static_cast<std::int64_t>(state.gather.size()) + 1;
    // The trace leaves the input when it is queued.
    const TraceIdentity identity = identify(io.trace(), arrival);
    const std::optional<int> offset = word(io.trace(), "offset");
    const int place = io.queueTrace(state.collection, io.trace());
    const std::span<const float> samples = samplesOf(state, place);
    if (samples.empty() && state.length > 0)
        fail("not enough memory for a gather of " + std::to_string(place + 1) +
             " traces; give the job a lower limit of traces in memory, or "
             "lower max_gather");
    state.gather.push_back(measure(state, samples));
    if (offset)
        state.gather.back().offset = *offset;
    state.gather.back().identity = identity;
}

// 0 for all traces where no header word separates gathers.
double keyOf(const State& state, void* in)
{
    if (state.set.gather == "none" || isTraceAttributeExist(in, state.set.gather.c_str()) == 0)
        return 0;
    return getTraceAttribute(in, state.set.gather.c_str(), 0).getF64Value();
}

// ---- Gather by gather ----

void judgeLevels(State& state)
{
    std::vector<double> levels;
    for (const Measures& m : state.gather)
        levels.push_back((m.flags & dead) != 0 ? 0 : m.levels.rms);
    const std::vector<double> medians = runningMedian(levels, state.set.window);
    for (std::size_t i = 0; i < levels.size(); ++i) {
        Measures& m = state.gather[i];
        m.median = medians[i];
        if ((m.flags & dead) != 0 || m.median <= 0)
            continue;
        const double ratio = m.levels.rms / m.median;
        if (ratio <= state.set.dead)
            m.flags |= dead;
        else if (ratio < state.set.weak)
            m.flags |= weak;
        else if (ratio > state.set.noisy)
            m.flags |= noisy;
    }
}

// A trace whose level is bad anyway has no polarity, and must not be a measure for others.
// Most traces agree with their neighbours as they are, which is known by now; the others are
// correlated with them.
void judgePolarities(State& state, const std::vector<int>& flagsOfLevels)
{
    PolarityRule rule;
    rule.neighbours = state.set.neighbours;
    rule.threshold = state.set.reversed;
    rule.lag = state.interval > 0 ? static_cast<int>(std::lround(std::min<double>(
                                        state.set.lag / state.interval, state.length)))
                                  : 0;
    const auto samples = [&](int i) -> std::optional<std::span<const float>> {
        if ((flagsOfLevels[static_cast<std::size_t>(i)] & (dead | weak | noisy)) != 0)
            return std::nullopt;
        return samplesOf(state, i);
    };
    const auto isInQuestion = [&](int i) {
        return !agreesAsItIs(state.gather[static_cast<std::size_t>(i)].compared);
    };
    const std::vector<PolarityVerdict> verdicts = judgePolarity(
        static_cast<int>(state.gather.size()), samples, rule, state.correlator, isInQuestion);
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        state.gather[i].polarity = verdicts[i].toNeighbours;
        if (verdicts[i].isReversed)
            state.gather[i].flags |= reversed;
    }
}

void judgeChecks(State& state)
{
    std::vector<CheckedTrace> traces;
    for (const Measures& m : state.gather)
        traces.push_back({m.flags, m.levels, m.single, m.offset, {}});
    state.checker.judge(traces, [&](int i) { return samplesOf(state, i); });
    for (std::size_t i = 0; i < traces.size(); ++i) {
        state.gather[i].flags = traces[i].flags;
        state.gather[i].compared = traces[i].compared;
    }
}

// Only the whole gather shows which words tell its traces apart.
void nameTraces(State& state)
{
    std::vector<TraceIdentity> identities;
    for (const Measures& m : state.gather)
        identities.push_back(m.identity);
    const std::vector<std::string> names = namesOf(identities);
    for (std::size_t i = 0; i < names.size(); ++i)
        state.gather[i].name = names[i];
}

std::string flagNames(int flags)
{
    std::string names;
    for (const FlagStyle& style : flagStyles) {
        if ((flags & style.flag) != 0)
            names += (names.empty() ? "" : ", ") + std::string(style.name);
    }
    return names;
}

std::string reason(const State& state, const Measures& m, Flag flag)
{
    const double rms = m.levels.rms;
    switch (flag) {
    case dead:
        return m.levels.isConstant ? "all samples are " + number(m.levels.mean)
                                   : "RMS " + number(rms) + ", around it " + number(m.median);
    case weak:
    case noisy:
        return "RMS " + number(rms) + ", around it " + number(m.median) +
               state.checker.reason(flag, m.single, m.compared);
    case clipped:
        return std::to_string(m.run) + " samples in succession at the trace's limit";
    case spiky:
        return std::to_string(m.spikes) + ", the first at sample " +
               std::to_string(m.firstSpike + 1);
    case reversed:
        return "polarity " + text("%.2f", m.polarity) + " to its neighbours";
    case ringing:
        return text("%.0f %% of the energy", m.dominant.share * 100) +
               (state.interval > 0 ? text(" near %.1f Hz", m.dominant.frequency / state.interval)
                                   : "");
    case invalid:
        return std::to_string(m.levels.invalid) + " samples are infinite or NaN";
    case hum:
    case bias:
    case duplicate:
    case shifted:
    case geometry:
    case unlike:
        return state.checker.reason(flag, m.single, m.compared);
    }
    return "";
}

// One of the first warnings of the job, as many as the user wants.
void sendWarning(const State& state, const Measures& m)
{
    std::string line = m.name + ":";
    const char* separator = " ";
    for (const FlagStyle& style : flagStyles) {
        if ((m.flags & style.flag) == 0)
            continue;
        line += separator + std::string(style.name) + " (" + reason(state, m, style.flag) + ")";
        separator = ", ";
    }
    vorn_kit::messageFirst(VORN_WARNING, "flagged", state.set.messages, line);
}

double decibels(double level)
{
    return 20 * std::log10(level);
}

// Traces that have nothing but the hum of their whole gather are not named one by one.
void note(State& state, const Measures& m, bool isHumShared)
{
    Findings& found = state.found;
    ++found.traces;
    if (m.levels.rms > 0)
        found.level.add(decibels(m.levels.rms));
    else
        found.level.skip();
    if (m.median > 0)
        found.median.add(decibels(m.median));
    else
        found.median.skip();
    if (m.flags == 0)
        return;
    for (std::size_t i = 0; i < flagStyles.size(); ++i)
        found.counts[i] += (m.flags & flagStyles[i].flag) != 0 ? 1 : 0;
    const bool isNamed = !(isHumShared && m.flags == hum);
    if (isNamed && found.named++ < state.set.messages)
        sendWarning(state, m);
    ++found.flagged;
    found.numbersAreFromTheFile = found.numbersAreFromTheFile || m.identity.fileTrace;
    if (found.names.size() < Findings::mostNames) {
        found.names.push_back(m.name + ": " + flagNames(m.flags));
        found.rows.push_back(rowOf(state, m, "%.4g"));
    }
    const std::int64_t arrival = m.identity.arrival;
    if (found.marks.size() < Findings::mostPoints)
        found.marks.push_back(
            {arrival, decibels(m.levels.rms), m.flags, m.identity.fileTrace.value_or(arrival)});
}

// ---- The table ----

void writeLine(VORN::OutputFile& file, const std::string& line)
{
    unsigned char* room = file.append(line.size() + 1);
    std::copy(line.begin(), line.end(), room);
    room[line.size()] = '\n';
}

const std::vector<std::string>& columnsOfTable()
{
    static const std::vector<std::string> columns = [] {
        std::vector<std::string> names = {"trace", "filetrace"};
        names.insert(names.end(), nameWords.begin(), nameWords.end());
        for (const char* measure : {"rms",
                                    "rms_db_from_neighbours",
                                    "peak",
                                    "mean",
                                    "bias",
                                    "frequency_hz",
                                    "share_at_frequency",
                                    "hum_share",
                                    "hum_hz",
                                    "run_at_limit",
                                    "spikes",
                                    "first_arrival_s",
                                    "arrival_s_from_neighbours",
                                    "arrival_s_from_offset",
                                    "rms_before_arrival",
                                    "rms_late",
                                    "signal_to_noise",
                                    "roughness",
                                    "twin_difference",
                                    "agreement",
                                    "lag_s",
                                    "flags"})
            names.emplace_back(measure);
        return names;
    }();
    return columns;
}

std::string joinedBy(const char* separator, const std::vector<std::string>& parts)
{
    std::string line;
    for (const std::string& part : parts)
        line += (line.empty() && &part == &parts.front() ? "" : separator) + part;
    return line;
}

void beginTable(State& state)
{
    if (!state.set.table)
        return;
    traces::refuseInputs(*state.set.table);
    traces::refuseSecondWriter(*state.set.table);
    state.table = std::make_unique<VORN::OutputFile>(*state.set.table, state.set.overwrite,
                                                     "the table", getModuleName());
    writeLine(*state.table, joinedBy(",", columnsOfTable()));
}

// The cells of a trace, in the order of the columns. Empty where something is not known.
std::vector<std::string> rowOf(const State& state, const Measures& m, const char* format)
{
    const SingleChecks& single = m.single;
    const GatherChecks& c = m.compared;
    std::vector<std::string> row = {std::to_string(m.identity.arrival),
                                    m.identity.fileTrace ? std::to_string(*m.identity.fileTrace)
                                                         : ""};
    for (const std::optional<int>& value : m.identity.words)
        row.push_back(value ? std::to_string(*value) : "");
    const auto add = [&](bool isKnown, double value) {
        row.push_back(isKnown ? text(format, value) : "");
    };
    const bool isTimed = state.interval > 0;
    add(true, m.levels.rms);
    add(c.level.isKnown, c.level.distance);
    add(true, m.levels.peak);
    add(true, m.levels.mean);
    add(true, single.bias);
    add(isTimed, isTimed ? m.dominant.frequency / state.interval : 0);
    add(true, m.dominant.share);
    add(isTimed, single.hum.share);
    add(single.hum.mains > 0, single.hum.mains);
    row.push_back(std::to_string(m.run));
    row.push_back(std::to_string(m.spikes));
    add(isTimed && single.arrival, single.arrival.value_or(0) * state.interval);
    add(c.arrival.isKnown, c.arrival.distance);
    add(c.offset.isKnown, c.offset.distance);
    add(single.noise.before > 0, single.noise.before);
    add(true, single.noise.late);
    add(single.noise.ratio > 0, single.noise.ratio);
    add(true, single.roughness);
    add(c.twinTrace >= 0, c.twin);
    add(c.prediction.isKnown, c.prediction.zero);
    add(isTimed && c.prediction.isKnown, c.prediction.lag * state.interval);
    std::vector<std::string> flags;
    for (const FlagStyle& style : flagStyles) {
        if ((m.flags & style.flag) != 0)
            flags.emplace_back(style.name);
    }
    row.push_back(joinedBy(" ", flags));
    return row;
}

// The names and flags of the flagged traces, and the measures that most flags come from; without
// columns that are empty, or 0 for a header word.
std::string tableOfReport(const Findings& found)
{
    const std::vector<std::string> wanted = {"trace",
                                             "filetrace",
                                             "flags",
                                             "rms",
                                             "rms_db_from_neighbours",
                                             "bias",
                                             "frequency_hz",
                                             "hum_share",
                                             "run_at_limit",
                                             "spikes",
                                             "first_arrival_s",
                                             "arrival_s_from_neighbours",
                                             "signal_to_noise",
                                             "twin_difference",
                                             "agreement",
                                             "lag_s"};
    std::vector<std::string> names = {wanted[0], wanted[1]};
    names.insert(names.end(), nameWords.begin(), nameWords.end());
    names.insert(names.end(), wanted.begin() + 2, wanted.end());
    const std::vector<std::string>& all = columnsOfTable();
    std::vector<std::size_t> places;
    std::vector<std::string> heading;
    for (const std::string& one : names) {
        const auto place =
            static_cast<std::size_t>(std::find(all.begin(), all.end(), one) - all.begin());
        const bool isWord = std::find(nameWords.begin(), nameWords.end(), one) != nameWords.end();
        const bool isUsed = std::any_of(found.rows.begin(), found.rows.end(), [&](const auto& row) {
            return !row[place].empty() && (!isWord || row[place] != "0");
        });
        if (!isUsed)
            continue;
        places.push_back(place);
        heading.push_back(one);
    }
    std::string csv = joinedBy(",", heading) + "\n";
    for (const std::vector<std::string>& row : found.rows) {
        std::vector<std::string> cells;
        cells.reserve(places.size());
        for (const std::size_t place : places)
            cells.push_back(row[place]);
        csv += joinedBy(",", cells) + "\n";
    }
    return csv;
}

bool noteSharedHum(State& state)
{
    std::vector<Hum> live;
    live.reserve(state.gather.size());
    for (const Measures& m : state.gather) {
        if ((m.flags & dead) == 0)
            live.push_back(m.single.hum);
    }
    return state.sharedHum.add(live);
}

void judgeGather(State& state)
{
    constexpr std::size_t fewest = 3;
    judgeLevels(state);
    std::vector<int> flagsOfLevels;
    flagsOfLevels.reserve(state.gather.size());
    for (const Measures& m : state.gather)
        flagsOfLevels.push_back(m.flags);
    judgeChecks(state);
    judgePolarities(state, flagsOfLevels);
    nameTraces(state);
    state.found.someGatherIsJudged =
        state.found.someGatherIsJudged || state.gather.size() >= fewest;
    const bool isHumShared = noteSharedHum(state);
    for (const Measures& m : state.gather) {
        note(state, m, isHumShared);
        if (state.table)
            writeLine(*state.table, joinedBy(",", rowOf(state, m, "%.7g")));
    }
}

// ---- Emission ----

void writeResults(const State& state, const Measures& m, void* trace)
{
    setTraceAttribute(trace, "qc_flags", UniVar(m.flags), 0);
    for (const char* name : state.writable) {
        const std::string wanted = name;
        double value = 0;
        if (wanted == "qc_rms")
            value = m.levels.rms;
        else if (wanted == "qc_peak")
            value = m.levels.peak;
        else if (wanted == "qc_mean")
            value = m.levels.mean;
        else if (state.interval > 0)
            value = m.dominant.frequency / state.interval;
        setTraceAttribute(trace, name, UniVar(value), 0);
    }
}

// The gather is complete: it is classified and leaves.
void completeGather(State& state, Stream& io)
{
    judgeGather(state);
    for (std::size_t i = 0; i < state.gather.size() && io.outputs() > 0; ++i)
        writeResults(state, state.gather[i],
                     io.emitTrace(state.collection, 0, static_cast<int>(i)));
    vorn_clear_queue(state.collection);
    state.gather.clear();
}

void onTrace(State& state, Stream& io)
{
    const double key = keyOf(state, io.trace());
    if (!state.gather.empty() && key != state.key)
        completeGather(state, io);
    state.key = key;
    collect(state, io);
    if (static_cast<int>(state.gather.size()) == state.set.max_gather)
        completeGather(state, io);
}

void onEnd(State& state, Stream& io)
{
    if (!state.gather.empty())
        completeGather(state, io);
}

// ---- After the last trace ----

std::string countsText(const Findings& found)
{
    std::string counts;
    for (std::size_t i = 0; i < flagStyles.size(); ++i) {
        if (found.counts[i] > 0)
            counts += (counts.empty() ? "" : ", ") + std::string(flagStyles[i].name) + " " +
                      std::to_string(found.counts[i]);
    }
    return counts;
}

void sendSummary(const State& state)
{
    const Findings& found = state.found;
    if (found.traces == 0) {
        message(VORN_INFORMATION, "no trace arrived; nothing was measured");
        return;
    }
    const std::int64_t unnamed = found.named - state.set.messages;
    if (unnamed > 0)
        message(VORN_WARNING, std::to_string(unnamed) +
                                  " more flagged traces are not named here; the attribute qc_flags "
                                  "has them all, or raise messages");
    std::string line =
        std::to_string(found.traces) + " traces, flagged " + std::to_string(found.flagged);
    if (found.flagged > 0)
        line += ": " + countsText(found);
    const std::string shared = state.sharedHum.summary();
    if (!shared.empty())
        message(VORN_WARNING, "hum is shared by most channels, at " + shared +
                                  "; traces with no other flag are not named one by one");
    message(VORN_INFORMATION, line);
    if (!found.someGatherIsJudged)
        message(VORN_INFORMATION,
                "no gather has 3 traces or more; none could be found weak, noisy or "
                "reversed; gathers are told apart by gather=" +
                    state.set.gather);
}

void publish(const Findings& found)
{
    const auto set = [](const std::string& key, const std::string& value) {
        setMetaDataValue(VORN_SCOPE_MODULE, "qc." + key, value);
    };
    set("traces", std::to_string(found.traces));
    set("flagged", std::to_string(found.flagged));
    for (std::size_t i = 0; i < flagStyles.size(); ++i)
        set(flagStyles[i].name, std::to_string(found.counts[i]));
    std::string list;
    for (const std::string& name : found.names)
        list += (list.empty() ? "" : "\n") + name;
    if (list.empty())
        return;
    set("list", list);
    set("table", tableOfReport(found));
    const std::string shown = std::to_string(found.rows.size());
    const bool isWhole = found.flagged == static_cast<std::int64_t>(found.rows.size());
    set("table.note",
        "Flagged traces\n" +
            (isWhole ? "all " + shown
                     : "the first " + shown + " of " + std::to_string(found.flagged)) +
            "; with the parameter table a file gets all traces and measures");
}

// ---- The picture ----

struct Range
{
    double low;
    double high;
};

// With room for the numbers at the marks.
Range levelRange(const Findings& found)
{
    Range range{INFINITY, -INFINITY};
    for (const LevelCurve* curve : {&found.level, &found.median}) {
        for (const LevelCurve::Bin& bin : curve->bins()) {
            if (bin.traces == 0)
                continue;
            range.low = std::min(range.low, bin.least);
            range.high = std::max(range.high, bin.greatest);
        }
    }
    if (range.low > range.high)
        return {-1, 1};
    // Levels that are nearly equal must look so.
    constexpr double leastSpan = 6;
    const double missing = std::max(leastSpan - (range.high - range.low), 0.0);
    range.low -= missing / 2;
    range.high += missing / 2;
    const double span = range.high - range.low;
    // Below the curves for traces without a level, too.
    const bool someHaveNone =
        std::any_of(found.marks.begin(), found.marks.end(),
                    [](const Mark& mark) { return !std::isfinite(mark.level); });
    return {range.low - (someHaveNone ? 0.2 : 0.06) * span, range.high + 0.08 * span};
}

void drawCurve(int pad, const LevelCurve& curve, int pen)
{
    addNewPenToPad(pad, pen);
    bool isDrawing = false;
    for (std::size_t i = 0; i < curve.bins().size(); ++i) {
        const LevelCurve::Bin& bin = curve.bins()[i];
        if (bin.traces == 0) {
            isDrawing = false;
            continue;
        }
        const auto x = static_cast<float>(curve.place(i));
        addPlotToPad(pad, x, static_cast<float>(bin.least), isDrawing ? VORN_DRAW : VORN_MOVE);
        if (bin.greatest > bin.least)
            addPlotToPad(pad, x, static_cast<float>(bin.greatest), VORN_DRAW);
        isDrawing = true;
    }
}

void drawMarks(int pad, const Findings& found, const FlagStyle& style, double bottom)
{
    addNewPenToPad(pad, style.pen);
    for (const Mark& mark : found.marks) {
        if ((mark.flags & style.flag) != 0)
            addSymbolToPad(pad, static_cast<float>(mark.trace),
                           static_cast<float>(std::isfinite(mark.level) ? mark.level : bottom),
                           style.height, "", style.symbol, 0, -1);
    }
}

// Whether a mark stands beside the one before it for the same reason, at nearly the same level.
bool continues(const Mark& before, const Mark& mark, const Range& range)
{
    constexpr double nearly = 0.03; // of the axis
    const bool isNear = std::isfinite(mark.level) ? std::fabs(mark.level - before.level) <
                                                        nearly * (range.high - range.low)
                                                  : !std::isfinite(before.level);
    return isNear && mark.flags == before.flags && mark.trace == before.trace + 1 &&
           mark.number == before.number + 1;
}

// So that one can go to the traces: "17", or "17-23" for neighbours. The picture leaves out what it
// has no room for.
void drawNumbers(int pad, const Findings& found, const Range& range, double bottom)
{
    constexpr float points = 8;
    addNewPenToPad(pad, 1);
    for (std::size_t first = 0, next = 0; first < found.marks.size(); first = next) {
        for (next = first + 1; next < found.marks.size() &&
                               continues(found.marks[next - 1], found.marks[next], range);)
            ++next;
        const Mark& middle = found.marks[(first + next - 1) / 2];
        std::string number = std::to_string(found.marks[first].number);
        if (next - first > 1)
            number += "-" + std::to_string(found.marks[next - 1].number);
        addSymbolToPad(pad, static_cast<float>(middle.trace),
                       static_cast<float>(std::isfinite(middle.level) ? middle.level : bottom),
                       points, number, 0, 0, static_cast<int>(number.size()));
    }
}

std::string padTitle(const Findings& found, const Range& range)
{
    std::string legend = "1=RMS of the trace, 7=median of the traces around it";
    for (std::size_t i = 0; i < flagStyles.size(); ++i) {
        if (found.counts[i] > 0)
            legend += ", " + std::to_string(flagStyles[i].pen) + ":" +
                      std::to_string(flagStyles[i].symbol) + "=" + flagStyles[i].name;
    }
    std::string title = "Trace levels: " + std::string(getModuleName()) +
                        "\nx: trace, in the order of arrival" + "\ny: RMS amplitude (dB)" +
                        "\nxrange: 0.5 " + text("%.1f", static_cast<double>(found.traces) + 0.5) +
                        "\nyrange: " + number(range.low) + " " + number(range.high) +
                        "\ntexts: apart" + "\nlegend: " + legend +
                        "\nnote: " + std::to_string(found.traces) + " traces, flagged " +
                        std::to_string(found.flagged);
    if (found.flagged > 0)
        title += ": " + countsText(found);
    if (found.flagged > 0)
        title += found.numbersAreFromTheFile ? "; marked with the number of the trace in the file"
                                             : "; marked with the number of the trace";
    if (found.flagged > static_cast<std::int64_t>(found.marks.size()))
        title += "; only the first " + std::to_string(found.marks.size()) + " are marked";
    if (found.level.tracesPerBin() > 1)
        title += "; lines span the lowest to the highest of " +
                 std::to_string(found.level.tracesPerBin()) + " traces";
    return title;
}

void draw(const Findings& found)
{
    const Range range = levelRange(found);
    const int pad = createPad(VORN_PAD_GRAPH, 0, 1, padTitle(found, range).c_str());
    if (pad < 0)
        return;
    drawCurve(pad, found.median, 7);
    drawCurve(pad, found.level, 1);
    // Whole symbols above the axis for traces without a level.
    const double bottom = range.low + 0.015 * (range.high - range.low);
    for (const FlagStyle& style : flagStyles)
        drawMarks(pad, found, style, bottom);
    drawNumbers(pad, found, range, bottom);
}

// A gather is left when the job was stopped.
void finish(State& state)
{
    if (!state.gather.empty())
        judgeGather(state);
    // A job that has failed leaves the table that was there before it.
    if (state.table && !vorn_job_has_failed()) {
        traces::refuseInputs(*state.set.table);
        state.table->commit();
    }
    sendSummary(state);
    publish(state.found);
    if (const std::string shared = state.sharedHum.summary(); !shared.empty())
        setMetaDataValue(VORN_SCOPE_MODULE, "qc.shared_hum", shared);
    if (state.set.plot && state.found.traces > 0)
        draw(state.found);
}

// ---- Parts ----

void save(State& state, vorn_kit::StateWriter& file)
{
    if (state.table)
        fail("the table has one row after the other and cannot be written in parts; run the job in "
             "one process, or leave out table");
    file(state.found, state.sharedHum);
}

// The first of `most`, of both together.
template <typename Value>
void appendFirst(std::vector<Value>& to, std::vector<Value>& from, std::size_t most)
{
    const std::size_t taken = std::min(from.size(), most - std::min(to.size(), most));
    std::move(from.begin(), from.begin() + static_cast<std::ptrdiff_t>(taken),
              std::back_inserter(to));
}

void merge(State& state, vorn_kit::StateReader& file)
{
    Findings part;
    SharedHum hum(0);
    file(part, hum);
    Findings& all = state.found;
    if (!all.level.append(part.level) || !all.median.append(part.median))
        file.refuse("its traces do not follow those of the part before");
    all.traces += part.traces;
    all.flagged += part.flagged;
    all.named += part.named;
    for (std::size_t i = 0; i < all.counts.size(); ++i)
        all.counts[i] += part.counts[i];
    appendFirst(all.names, part.names, Findings::mostNames);
    appendFirst(all.rows, part.rows, Findings::mostNames);
    appendFirst(all.marks, part.marks, Findings::mostPoints);
    all.numbersAreFromTheFile = all.numbersAreFromTheFile || part.numbersAreFromTheFile;
    all.someGatherIsJudged = all.someGatherIsJudged || part.someGatherIsJudged;
    state.sharedHum.add(hum);
}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
VORN_STREAM_MODULE_IN_PARTS(save, merge);
