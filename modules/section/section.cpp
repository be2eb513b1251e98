// section: draws traces on a pad, side by side.
//
// Each trace is placed in a work buffer of one trace, cut to the picture's time window, and shown
// from there: what the input holds besides belongs to later calls.
#include "MOXKernel.h"
#include "section_window.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <limits>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

enum MessageType
{
    information = 1,
    warning = 2,
    fatal = 4
};

constexpr int endOfData = 3;
constexpr int moduleScope = 1;
constexpr int jobScope = 0;
constexpr char stateName[] = "state";
constexpr int shown = 0;                        // the work buffer
constexpr char arrivalName[] = "section_trace"; // labels traces that nothing else labels

// ---- Parameters ----

struct Settings
{
    std::string mode = "density";
    std::string colormap = "gray";
    double clip = 98; // percentile
    double gain = 1.2;
    std::string label; // trace attribute; empty for the number of arrival
    double from = -std::numeric_limits<double>::infinity(); // seconds
    double to = std::numeric_limits<double>::infinity();
    int every = 1;
    int mostTraces = 2000;
    std::string title;
    std::string note;
};

std::string number(double value)
{
    std::array<char, 40> written;
    std::snprintf(written.data(), written.size(), "%g", value);
    return written.data();
}

// One line: a line feed would begin a directive of the pad.
std::string textParameter(const char* name, const std::string& otherwise)
{
    if (isModuleParameterPresent(name) == 0)
        return otherwise;
    std::string text = getModuleParameter(name).getStrValue();
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

std::string choiceParameter(const char* name, const std::vector<std::string>& choices)
{
    std::string given = textParameter(name, choices.front());
    if (std::find(choices.begin(), choices.end(), given) != choices.end())
        return given;
    std::string list;
    for (std::size_t i = 0; i < choices.size(); ++i)
        list += (i == 0 ? "" : i + 1 == choices.size() ? " or " : ", ") + choices[i];
    throw std::runtime_error(std::string(name) + " is \"" + given + "\"; give " + list);
}

// Above 0, and not above `most`.
double positiveParameter(const char* name, double otherwise, double most)
{
    if (isModuleParameterPresent(name) == 0)
        return otherwise;
    const double value = getModuleParameter(name).getF64Value();
    if (!(value > 0 && value <= most))
        throw std::runtime_error(std::string(name) + " is " + number(value) +
                                 "; give a number above 0, at most " + number(most));
    return value;
}

int countParameter(const char* name, int otherwise)
{
    if (isModuleParameterPresent(name) == 0)
        return otherwise;
    const int value = getModuleParameter(name).getI32Value();
    if (value < 1)
        throw std::runtime_error(std::string(name) + " is " + std::to_string(value) +
                                 "; give 1 or more");
    return value;
}

double timeParameter(const char* name, double otherwise)
{
    if (isModuleParameterPresent(name) == 0)
        return otherwise;
    const double value = getModuleParameter(name).getF64Value();
    if (!std::isfinite(value))
        throw std::runtime_error(std::string(name) + " is " + number(value) + " s; give a time");
    return value;
}

Settings readSettings()
{
    constexpr double mostGain = 100;
    Settings s;
    s.mode = choiceParameter("mode", {"density", "wiggle"});
    s.colormap = choiceParameter("colormap", {"gray", "seismic", "black-white-red"});
    s.clip = positiveParameter("clip", s.clip, 100);
    s.gain = positiveParameter("gain", s.gain, mostGain);
    s.label = textParameter("xattr", "");
    s.from = timeParameter("tmin", s.from);
    s.to = timeParameter("tmax", s.to);
    s.every = countParameter("every", s.every);
    s.mostTraces = countParameter("max_traces", s.mostTraces);
    s.title = textParameter("title", "");
    s.note = textParameter("note", "");
    if (s.from >= s.to)
        throw std::runtime_error("tmin is " + number(s.from) + " s and tmax is " + number(s.to) +
                                 " s; tmin must be below tmax");
    return s;
}

// ---- From one call to the next ----

struct State
{
    Settings set;
    int pad = -1;
    bool hasWindow = false;
    SectionWindow window;
    int64_t arrived = 0;
    int64_t drawn = 0;
    int64_t beyond = 0; // traces that max_traces leaves out
    int64_t odd = 0;    // samples that are no finite numbers
};

State* keptState()
{
    return static_cast<State*>(getModuleResource(stateName).getPointerValue());
}

void keepState(State* state)
{
    setModuleResource(stateName, UniVar(static_cast<void*>(state)));
}

// Nothing is drawn any more, and no output of the job becomes a file.
void fail(const std::string& what)
{
    sendMessage(fatal, what.c_str());
    setMetaDataValue(jobScope, "vorn.failed", "section: " + what);
    delete keptState();
    keepState(nullptr);
}

bool jobHasFailed()
{
    return !getMetaDataValue(jobScope, "vorn.failed").getStrValue().empty();
}

// ---- Before the first trace ----

// The module's name, and the file that the traces are from.
std::string defaultTitle()
{
    std::string title = getModuleName();
    const std::string path = getMetaDataValue(moduleScope, "segy.file").getStrValue();
    const std::string file = path.substr(path.find_last_of('/') + 1);
    if (!file.empty())
        title += ": " + file;
    std::replace_if(
        title.begin(), title.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return title;
}

std::string padTitle(const Settings& set)
{
    std::string title = set.title.empty() ? defaultTitle() : set.title;
    title += "\nmode: " + set.mode + "\ncolormap: " + set.colormap + "\nclip: " + number(set.clip) +
             "\ngain: " + number(set.gain) +
             "\nxattr: " + (set.label.empty() ? arrivalName : set.label) +
             "\nx: " + (set.label.empty() ? "trace" : set.label);
    std::string note =
        set.every > 1 ? "one trace of " + std::to_string(set.every) + " is drawn" : "";
    if (!set.note.empty())
        note += (note.empty() ? "" : "; ") + set.note;
    if (!note.empty())
        title += "\nnote: " + note;
    return title;
}

void prepare()
{
    constexpr int section = 1;
    void* in = getInputTraceBuffer(0);
    if (in == nullptr)
        throw std::runtime_error("the module has no input; connect one");
    // The modules before this one have described their outputs by now.
    bldOutputTraceBuffer(0, getTraceLength(in), getTraceSampleInterval(in), in);

    auto state = std::make_unique<State>();
    state->set = readSettings();
    Settings& set = state->set;
    if ((std::isfinite(set.from) || std::isfinite(set.to)) && getTraceSampleInterval(in) <= 0 &&
        !jobHasFailed())
        throw std::runtime_error(
            "the input has no sample interval, which tmin and tmax need; the module before this "
            "one has to set it");
    if (!set.label.empty() && isTraceAttributeExist(in, set.label.c_str()) == 0) {
        if (!jobHasFailed())
            sendMessage(warning, ("the traces have no header word \"" + set.label +
                                  "\"; they are numbered instead; name another with xattr")
                                     .c_str());
        set.label.clear();
    }
    state->pad = createPad(section, 0, 1, padTitle(set).c_str());
    keepState(state.release());
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
        throw std::runtime_error("the first trace has no sample from tmin to tmax; it begins at " +
                                 number(delay * 1e-3) + " s and ends at " +
                                 number(delay * 1e-3 + (length - 1) * step) + " s");
    void* work = bldWorkTraceBuffer(shown, state.window.samples, interval, 1, nullptr);
    const double start = std::clamp(state.window.start() * 1e3, -1e9, 1e9);
    setTraceAttribute(work, "delrt", UniVar(static_cast<int>(std::lround(start))), 0);
    state.hasWindow = true;
}

void show(State& state, void* in)
{
    if (!state.hasWindow)
        openWindow(state, in);
    void* work = getWorkTraceBuffer(shown);
    if (state.window.samples > 0) {
        const float* samples = getTraceSamples(in, 0);
        if (samples == nullptr)
            throw std::runtime_error("there is no memory for trace " +
                                     std::to_string(state.arrived) +
                                     "; give the job a lower limit of traces in memory");
        const std::span<const float> trace(samples, static_cast<std::size_t>(getTraceLength(in)));
        const std::vector<float> placed = samplesInWindow(state.window, trace, delayOf(in));
        state.odd += oddSamples(placed);
        setTraceSamples(work, placed.data(), 0);
    }
    if (state.set.label.empty())
        setTraceAttribute(work, arrivalName, UniVar(state.arrived), 0);
    else
        setTraceAttribute(work, state.set.label.c_str(),
                          getTraceAttribute(in, state.set.label.c_str(), 0), 0);
    addTraceToPad(state.pad, work);
    ++state.drawn;
}

void process(State& state, void* in, void* out)
{
    ++state.arrived;
    if ((state.arrived - 1) % state.set.every == 0) {
        if (state.drawn < state.set.mostTraces)
            show(state, in);
        else
            ++state.beyond;
    }
    // Header, samples, and the flag that says whether this is the last trace.
    if (out != nullptr)
        copyTraceToTrace(in, out, 1, 1, 0, getNumberOfTraces(out));
}

// ---- After the last trace ----

void sendSummary(const State& state)
{
    if (state.arrived == 0) {
        if (!jobHasFailed())
            sendMessage(warning, "no trace came; the picture is empty");
        return;
    }
    sendMessage(information, ("traces drawn: " + std::to_string(state.drawn) + " of " +
                              std::to_string(state.arrived))
                                 .c_str());
    if (state.beyond > 0)
        sendMessage(warning, ("the picture ends after " + std::to_string(state.drawn) +
                              " traces; " + std::to_string(state.beyond) +
                              " more are left out; raise max_traces, or see "
                              "them all with every: " +
                              std::to_string(evenStep(state.arrived, state.set.mostTraces)))
                                 .c_str());
    if (state.odd > 0)
        sendMessage(warning, ("samples that are infinite or no numbers: " +
                              std::to_string(state.odd) + "; they are drawn as 0")
                                 .c_str());
}

// Runs `action`; what it throws becomes the module's end.
template <typename Action>
void guarded(Action action)
{
    try {
        action();
    } catch (const std::exception& error) {
        fail(error.what());
    }
}

} // namespace

extern "C" int preprocess_()
{
    guarded(prepare);
    return 0;
}

extern "C" int process_()
{
    void* in = getInputTraceBuffer(0);
    void* out = getOutputTraceBuffer(0);
    if (State* state = keptState())
        guarded([=] { process(*state, in, out); });
    if (keptState() == nullptr && out != nullptr)
        setDataChannelFlag(out, endOfData);
    return 0;
}

extern "C" int postprocess_()
{
    if (const State* state = keptState())
        sendSummary(*state);
    delete keptState();
    keepState(nullptr);
    return 0;
}
