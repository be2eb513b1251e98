// section: draws traces on a pad, side by side.
//
// Each trace is placed in a work buffer of one trace, cut to the picture's time window, and shown
// from there: further traces of the input belong to later calls.
#include "MOXKernel.h"
#include "section_parameters.hpp"
#include "section_window.h"
#include "vorn_parts.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace {

using section_parameters::Parameters;
using vorn_kit::fail;
using vorn_kit::message;

constexpr int shown = 0;                        // the work buffer
constexpr int kept = 1;                         // another, in a part: traces to be drawn later
constexpr char arrivalName[] = "section_trace"; // labels traces that nothing else labels

// ---- Parameters ----

std::string number(double value)
{
    std::array<char, 40> written;
    std::snprintf(written.data(), written.size(), "%.9g", value);
    return written.data();
}

// A line feed would begin a directive of the pad.
std::string oneLine(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

struct Settings
{
    Parameters given;
    std::string label;  // trace attribute; empty for the number of arrival
    std::string second; // likewise, of the second row; empty for none
    std::string gather; // that tells gathers apart; empty for none
    std::string picks;  // empty for none
    double from;        // seconds; minus infinity where the picture begins with the first trace
    double to;          // likewise
};

Settings readSettings()
{
    constexpr double unlimited = std::numeric_limits<double>::infinity();
    Settings set;
    set.given = section_parameters::readParameters();
    set.label = oneLine(set.given.xattr.value_or(""));
    set.second = oneLine(set.given.xattr2.value_or(""));
    set.gather = oneLine(set.given.gather.value_or(""));
    set.picks = oneLine(set.given.picks.value_or(""));
    set.from = set.given.tmin.value_or(-unlimited);
    set.to = set.given.tmax.value_or(unlimited);
    if (set.from >= set.to)
        fail("tmin is " + number(set.from) + " s and tmax is " + number(set.to) +
             " s; tmin must be below tmax");
    return set;
}

// ---- From one call to the next ----

struct State
{
    // Whether each gather has a picture of its own.
    bool isSplit() const
    {
        return set.given.pictures == section_parameters::Pictures::gather && !set.gather.empty();
    }

    Settings set;
    int pad = -1;
    double gather = 0;         // of the traces in the picture
    int64_t pictures = 0;      // of gathers
    int64_t gathersBeyond = 0; // those that max_pictures leaves out
    int64_t inPicture = 0;     // traces in the picture
    bool hasWindow = false;
    SectionWindow window;
    int64_t arrived = 0;
    int64_t drawn = 0;
    int64_t beyond = 0; // traces that max_traces leaves out
    int64_t odd = 0;    // samples that are infinite or NaN
    int64_t picks = 0;  // of the traces that are drawn
    int64_t picksOutside = 0;
    int64_t outsideTrace = 0;           // the first trace with such a pick, from 1
    double outsidePick = 0;             // and its pick, in seconds
    std::optional<std::int64_t> before; // in a part: traces of the job before those of this process
    int keptTraces = 0;                 // in a part
};

// ---- Before the first trace ----

// The module's name, and the file that the traces are from.
std::string defaultTitle()
{
    std::string title = getModuleName();
    const std::string path = getMetaDataValue(VORN_SCOPE_MODULE, "segy.file").getStrValue();
    const std::string file = path.substr(path.find_last_of('/') + 1);
    if (!file.empty())
        title += ": " + file;
    return oneLine(title);
}

// Of a picture of one gather, `gather` is its value; empty otherwise.
std::string padTitle(const Settings& set, const std::string& gather)
{
    const Parameters& given = set.given;
    std::string title = oneLine(given.title.value_or(""));
    if (title.empty())
        title = defaultTitle();
    if (!gather.empty()) {
        title += ", " + set.gather + " " + gather;
        title += "\nname: " + oneLine(getModuleName()) + "-" + set.gather + "-" + gather;
    }
    title += std::string("\nmode: ") + wordOf(given.mode) +
             "\ncolormap: " + wordOf(given.colormap) + "\nclip: " + number(given.clip) +
             "\ngain: " + number(given.gain) +
             "\nxattr: " + (set.label.empty() ? arrivalName : set.label) +
             "\nx: " + (set.label.empty() ? "trace" : set.label);
    const std::string vertical = oneLine(given.ylabel.value_or(""));
    if (!vertical.empty())
        title += "\ny: " + vertical;
    if (!set.second.empty())
        title += "\nxattr2: " + set.second;
    if (!set.gather.empty())
        title += "\ngather: " + set.gather;
    if (!set.picks.empty())
        title += "\npicks: " + set.picks + "\npickunit: " + wordOf(given.picks_unit) +
                 "\npickmark: " + wordOf(given.picks_as);
    std::string note =
        given.every > 1 ? "one trace of " + std::to_string(given.every) + " is drawn" : "";
    const std::string remark = oneLine(given.note.value_or(""));
    if (!remark.empty())
        note += (note.empty() ? "" : "; ") + remark;
    if (!note.empty())
        title += "\nnote: " + note;
    return title;
}

// Leaves out what the traces do not have.
void requireWord(void* in, std::string& name, const char* parameter, const char* instead)
{
    if (name.empty() || isTraceAttributeExist(in, name.c_str()) != 0)
        return;
    if (!vorn_job_has_failed())
        message(VORN_WARNING, "the traces have no header word \"" + name + "\"; " + instead +
                                  "; name another with " + parameter);
    name.clear();
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    // The modules before this one have described their outputs by now.
    vorn_build_output(0, in);

    auto state = std::make_unique<State>();
    state->set = readSettings();
    Settings& set = state->set;
    if ((std::isfinite(set.from) || std::isfinite(set.to)) && getTraceSampleInterval(in) <= 0 &&
        !vorn_job_has_failed())
        fail("the input has no sample interval, which tmin and tmax need; the module before this "
             "one has to set it");
    if (!set.picks.empty() && getTraceSampleInterval(in) <= 0 && !vorn_job_has_failed())
        fail("the input has no sample interval, which picks need; the module before this one has "
             "to set it");
    requireWord(in, set.label, "xattr", "they are numbered instead");
    requireWord(in, set.second, "xattr2", "there is no second row of labels");
    requireWord(in, set.gather, "gather", "they are drawn without gaps");
    requireWord(in, set.picks, "picks", "no picks are drawn");
    if (set.given.pictures == section_parameters::Pictures::gather && !set.given.gather)
        fail("pictures is gather, and no header word tells gathers apart; name one with gather");
    if (vorn_part part; vorn_find_part(&part)) {
        state->before = part.first;
        bldWorkTraceBuffer(kept, getTraceLength(in), std::max(getTraceSampleInterval(in), 0), 1,
                           in);
    }
    if (!state->isSplit())
        state->pad = createPad(VORN_PAD_SECTION, 0, 1, padTitle(set, "").c_str());
    return state;
}

// ---- Trace by trace ----

int delayOf(void* traces)
{
    return isTraceAttributeExist(traces, "delrt") != 0
               ? getTraceAttribute(traces, "delrt", 0).getI32Value()
               : 0;
}

// The first trace says where the picture begins.
void openWindow(State& state, void* in)
{
    const int length = getTraceLength(in);
    const int interval = std::max(getTraceSampleInterval(in), 0);
    const int delay = delayOf(in);
    const double step = interval * 1e-6;
    state.window = sectionWindow(length, delay, step, state.set.from, state.set.to);
    if (state.window.samples == 0 && length > 0)
        fail("the first trace has no sample from tmin to tmax; it begins at " +
             number(delay * 1e-3) + " s and ends at " + number(delay * 1e-3 + (length - 1) * step) +
             " s");
    vorn_kit::allowMemory(state.set.given.memory_limit, int64_t{8} * state.window.samples,
                          "a window of " + std::to_string(state.window.samples) + " samples",
                          "choose a shorter one with tmin and tmax");
    void* work = bldWorkTraceBuffer(shown, state.window.samples, interval, 1, nullptr);
    const double start = std::clamp(state.window.start() * 1e3, -1e9, 1e9);
    setTraceAttribute(work, "delrt", UniVar(static_cast<int>(std::lround(start))), 0);
    state.hasWindow = true;
}

void copyWord(void* in, void* work, const std::string& name)
{
    if (!name.empty())
        setTraceAttribute(work, name.c_str(), getTraceAttribute(in, name.c_str(), 0), 0);
}

// Times in the wrong unit lie far outside of the trace.
void notePick(State& state, void* in)
{
    if (state.set.picks.empty())
        return;
    const double value = getTraceAttribute(in, state.set.picks.c_str(), 0).getF64Value();
    if (value == 0 || std::isnan(value))
        return;
    ++state.picks;
    const double time =
        state.set.given.picks_unit == section_parameters::PicksUnit::s ? value : value * 1e-3;
    const double start = delayOf(in) * 1e-3;
    if (time >= start && time <= start + (getTraceLength(in) - 1) * state.window.interval)
        return;
    if (state.picksOutside++ == 0) {
        state.outsideTrace = state.arrived;
        state.outsidePick = time;
    }
}

void show(State& state, void* in)
{
    if (!state.hasWindow)
        openWindow(state, in);
    void* work = getWorkTraceBuffer(shown);
    if (state.window.samples > 0) {
        const float* samples = getTraceSamples(in, 0);
        if (samples == nullptr)
            fail("not enough memory for trace " + std::to_string(state.arrived) +
                 "; give the job a lower limit of traces in memory");
        const std::span<const float> trace(samples, static_cast<std::size_t>(getTraceLength(in)));
        const std::vector<float> placed = samplesInWindow(state.window, trace, delayOf(in));
        state.odd += oddSamples(placed);
        setTraceSamples(work, placed.data(), 0);
    }
    if (state.set.label.empty())
        setTraceAttribute(work, arrivalName, UniVar(state.arrived), 0);
    for (const std::string* name :
         {&state.set.label, &state.set.second, &state.set.gather, &state.set.picks})
        copyWord(in, work, *name);
    notePick(state, in);
    addTraceToPad(state.pad, work);
    ++state.drawn;
    ++state.inPicture;
}

// All digits of whole numbers.
std::string keyText(double value)
{
    std::array<char, 40> written;
    std::snprintf(written.data(), written.size(), "%.12g", value);
    return written.data();
}

// The first trace of a gather begins its picture.
void beginGather(State& state, void* in)
{
    const double gather = getTraceAttribute(in, state.set.gather.c_str(), 0).getF64Value();
    const bool isSame = gather == state.gather || (std::isnan(gather) && std::isnan(state.gather));
    if (state.arrived > 1 && isSame)
        return;
    state.gather = gather;
    state.inPicture = 0;
    state.pad = -1;
    if (state.pictures == state.set.given.max_pictures) {
        ++state.gathersBeyond;
        return;
    }
    ++state.pictures;
    state.pad = createPad(VORN_PAD_SECTION, 0, 1, padTitle(state.set, keyText(gather)).c_str());
}

// A part does not know the first trace, which says where the picture begins: it keeps its traces.
void keep(State& state, void* in)
{
    copyTraceToTrace(in, getWorkTraceBuffer(kept), 1, 1, 0, state.keptTraces++);
}

// Whether a trace, counted from 1, is one of those that are drawn as long as there is room.
bool isInQuestion(const State& state, std::int64_t trace)
{
    return (trace - 1) % state.set.given.every == 0 && state.gathersBeyond == 0;
}

void lookAtPart(State& state, void* in)
{
    const std::int64_t trace = *state.before + state.arrived;
    if (!isInQuestion(state, trace))
        return;
    if ((trace - 1) / state.set.given.every < state.set.given.max_traces)
        keep(state, in);
    else
        ++state.beyond;
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    ++state.arrived;
    if (state.isSplit())
        beginGather(state, in);
    if (state.before) {
        lookAtPart(state, in);
    } else if (isInQuestion(state, state.arrived)) {
        if (state.inPicture < state.set.given.max_traces)
            show(state, in);
        else
            ++state.beyond;
    }
    // Header, samples, and the flag that says whether this is the last trace.
    if (out != nullptr)
        vorn_pass_trace(in, out);
}

// ---- After the last trace ----

void reportPicks(const State& state)
{
    if (state.set.picks.empty())
        return;
    const std::string& name = state.set.picks;
    if (state.picks == 0) {
        message(VORN_WARNING,
                "no trace that is drawn has a pick: " + name + " is 0 in all of them");
        return;
    }
    message(VORN_INFORMATION, "picks: " + std::to_string(state.picks) + " in " +
                                  std::to_string(state.drawn) + " traces");
    if (state.picksOutside > 0)
        message(VORN_WARNING,
                "picks outside of their traces: " + std::to_string(state.picksOutside) + " of " +
                    std::to_string(state.picks) + "; the first is at " + number(state.outsidePick) +
                    " s, of trace " + std::to_string(state.outsideTrace) + ", where " + name +
                    " is taken as " + wordOf(state.set.given.picks_unit) +
                    "; picks_unit says in which unit it is");
}

void finish(State& state)
{
    if (state.arrived == 0) {
        if (!vorn_job_has_failed())
            message(VORN_WARNING, "no trace arrived; the picture is empty");
        return;
    }
    message(VORN_INFORMATION, "traces drawn: " + std::to_string(state.drawn) + " of " +
                                  std::to_string(state.arrived));
    reportPicks(state);
    if (state.gathersBeyond > 0)
        message(VORN_WARNING,
                "the first " + std::to_string(state.pictures) + " gathers have a picture; " +
                    std::to_string(state.gathersBeyond) +
                    (state.gathersBeyond == 1 ? " is" : " are") + " left out; raise max_pictures");
    if (state.beyond > 0 && state.isSplit())
        message(VORN_WARNING, "pictures end after " + std::to_string(state.set.given.max_traces) +
                                  (state.set.given.max_traces == 1 ? " trace; " : " traces; ") +
                                  std::to_string(state.beyond) +
                                  " more are left out; raise max_traces");
    else if (state.beyond > 0)
        message(VORN_WARNING,
                "the picture ends after " + std::to_string(state.drawn) + " traces; " +
                    std::to_string(state.beyond) +
                    " more are left out; raise max_traces, or see "
                    "them all with every: " +
                    std::to_string(evenStep(state.arrived, state.set.given.max_traces)));
    if (state.odd > 0)
        message(VORN_WARNING, "samples that are infinite or NaN: " + std::to_string(state.odd) +
                                  "; they are drawn as 0");
}

// ---- Parts ----

// The attributes that the picture needs, each once.
std::vector<std::string> neededWords(const Settings& set, void* traces)
{
    std::vector<std::string> words = {"delrt", set.label, set.second, set.gather, set.picks};
    std::sort(words.begin(), words.end());
    words.erase(std::unique(words.begin(), words.end()), words.end());
    const auto isMissing = [&](const std::string& word) {
        return word.empty() || isTraceAttributeExist(traces, word.c_str()) == 0;
    };
    words.erase(std::remove_if(words.begin(), words.end(), isMissing), words.end());
    return words;
}

void saveAttribute(vorn_kit::StateWriter& file, const UniVar& value)
{
    int type = value.getType();
    std::string text = value.getStrValue();
    std::int64_t whole = type == int32Type || type == int64Type ? value.getI64Value() : 0;
    double real = type == float32Type || type == float64Type ? value.getF64Value() : 0;
    file(type, text, whole, real);
}

UniVar readAttribute(vorn_kit::StateReader& file)
{
    const auto type = file.get<int>();
    const auto text = file.get<std::string>();
    const auto whole = file.get<std::int64_t>();
    const auto real = file.get<double>();
    if (type == int32Type || type == int64Type)
        return UniVar(whole);
    if (type == float32Type || type == float64Type)
        return UniVar(real);
    return UniVar(text);
}

void save(State& state, vorn_kit::StateWriter& file)
{
    void* traces = getWorkTraceBuffer(kept);
    const auto length = static_cast<std::uint64_t>(std::max(getTraceLength(traces), 0));
    const std::vector<std::string> words = neededWords(state.set, traces);
    file(state.arrived, state.beyond, state.keptTraces);
    for (int i = 0; i < state.keptTraces; ++i) {
        const float* samples = length > 0 ? getTraceSamples(traces, i) : nullptr;
        if (samples == nullptr && length > 0)
            fail(
                "not enough memory for a trace that is drawn; give the job a lower limit of traces "
                "in memory");
        file.putArray(samples, length);
        for (const std::string& word : words)
            saveAttribute(file, getTraceAttribute(traces, word.c_str(), i));
    }
}

void merge(State& state, vorn_kit::StateReader& file)
{
    void* in = vorn_kit::requiredInput();
    const int length = std::max(getTraceLength(in), 0);
    void* trace = bldWorkTraceBuffer(kept, length, std::max(getTraceSampleInterval(in), 0), 1, in);
    const std::vector<std::string> words = neededWords(state.set, trace);
    const std::int64_t before = state.arrived;
    const auto arrived = file.get<std::int64_t>();
    const auto beyond = file.get<std::int64_t>();
    const std::int64_t every = state.set.given.every;
    state.arrived = (before + every - 1) / every * every + 1; // the first one that is drawn
    std::vector<float> samples(static_cast<std::size_t>(length));
    for (auto left = file.get<int>(); left > 0; --left) {
        file.readArray(samples.data(), samples.size());
        setTraceSamples(trace, samples.data(), 0);
        for (const std::string& word : words)
            setTraceAttribute(trace, word.c_str(), readAttribute(file), 0);
        show(state, trace);
        state.arrived += every;
    }
    state.arrived = before + arrived;
    state.beyond += beyond;
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
