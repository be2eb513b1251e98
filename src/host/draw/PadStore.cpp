#include "draw/PadStore.h"

#include "JobManager.h"
#include "SeisTraceSet.h"
#include "base/Text.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cmath>
#include <sstream>

namespace host {

namespace {

int padCreated(int ident, int type, int align, int visible, const char* title, void* store)
{
    static_cast<PadStore*>(store)->create(ident, type, align, visible, title);
    return 0;
}

int tracesAdded(int ident, void* traceSet, void* store)
{
    static_cast<PadStore*>(store)->addTraces(ident, traceSet);
    return 0;
}

// cppcheck-suppress passedByValue ; the call-back's type says so
int commandAdded(int ident, plotCommandStruct command, void* store)
{
    static_cast<PadStore*>(store)->addCommand(ident, command);
    return 0;
}

// Finer than any picture, whatever the shape of the section: a page has some 1,600 by 1,000 pixels.
constexpr std::size_t mostValues = std::size_t{1} << 24;
constexpr std::size_t mostValuesOfTrace = 4096;

float stronger(float a, float b)
{
    return !std::isfinite(a) || std::fabs(b) > std::fabs(a) ? b : a;
}

// The strongest of each `count` samples.
std::vector<float> strongest(const float* samples, std::size_t size, int64_t count)
{
    const auto width = static_cast<std::size_t>(count);
    if (width == 1)
        return {samples, samples + size};
    std::vector<float> values;
    values.reserve((size + width - 1) / width);
    for (std::size_t begin = 0; begin < size; begin += width) {
        float value = samples[begin];
        for (std::size_t i = begin + 1; i < std::min(begin + width, size); ++i)
            value = stronger(value, samples[i]);
        values.push_back(value);
    }
    return values;
}

// Halves what is kept: along the traces as long as they have more values than any picture, else
// every second of them.
void reduce(Pad& pad)
{
    const auto isLong = [](const PadTrace& trace) {
        return trace.samples.size() > mostValuesOfTrace;
    };
    if (std::any_of(pad.traces.begin(), pad.traces.end(), isLong)) {
        pad.samplesPerValue *= 2;
        for (PadTrace& trace : pad.traces)
            trace.samples = strongest(trace.samples.data(), trace.samples.size(), 2);
        return;
    }
    pad.keptEvery *= 2;
    for (std::size_t i = 0; i < pad.traces.size(); ++i) {
        if (i % pad.keptEvery != 0)
            pad.traces[i].samples = {};
    }
}

std::size_t valuesIn(const Pad& pad)
{
    std::size_t values = 0;
    for (const PadTrace& trace : pad.traces)
        values += trace.samples.size();
    return values;
}

// So that two pictures of the same detail are told apart by the samples that are left out.
uint64_t fingerprint(uint64_t before, const float* samples, std::size_t size)
{
    uint64_t print = before;
    for (std::size_t i = 0; i < size; ++i) {
        print = (print ^ std::bit_cast<uint32_t>(samples[i])) * 0x9E3779B97F4A7C15U;
        print ^= print >> 32;
    }
    return print;
}

std::string trimmed(const std::string& text)
{
    const auto first = text.find_first_not_of(" \t\r");
    const auto last = text.find_last_not_of(" \t\r");
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

// The value of the attribute that the directive names, of trace `trace` (from 0).
double namedValue(const Pad& pad, const char* key, SeisTraceSet& set, int trace, double otherwise)
{
    const std::string name = pad.directive(key);
    return !name.empty() && set.isAttributePresent(name, 0)
               ? set.getAttribute(name, trace).getF64Value()
               : otherwise;
}

bool readNumber(std::istringstream& stream, double& value)
{
    stream.imbue(std::locale::classic());
    return static_cast<bool>(stream >> value) && std::isfinite(value);
}

} // namespace

std::string Pad::directive(const std::string& key, const std::string& otherwise) const
{
    const auto found = directives.find(key);
    return found != directives.end() ? found->second : otherwise;
}

double Pad::number(const std::string& key, double otherwise) const
{
    std::istringstream stream(directive(key));
    double value = 0;
    return readNumber(stream, value) ? value : otherwise;
}

bool Pad::range(const std::string& key, double& from, double& to) const
{
    std::istringstream stream(directive(key));
    double low = 0;
    double high = 0;
    if (!readNumber(stream, low) || !readNumber(stream, high))
        return false;
    from = low;
    to = high;
    return true;
}

std::size_t Pad::longest() const
{
    std::size_t samples = longestTrace;
    for (const PadTrace& trace : traces)
        samples = std::max(samples, trace.samples.size());
    return samples;
}

std::string Pad::fileStem() const
{
    std::string stem = directive("name", module);
    for (char& c : stem) {
        const bool harmless =
            std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_';
        if (!harmless)
            c = '_';
    }
    return stem.empty() ? "pad" : stem;
}

void PadStore::install(JobManager& job)
{
    job.installCreatePadFunc(padCreated, this);
    job.installAddTraceToPadFuncFunc(tracesAdded, this);
    job.installAddPlotToPadFuncFunc(commandAdded, this);
}

void PadStore::create(int ident, int type, int align, int visible, const std::string& title)
{
    Pad pad;
    pad.ident = ident;
    pad.type = type;
    pad.align = align;
    pad.visible = visible;
    pad.module = JobManager::getInstance()->getCurrentModuleName();

    std::istringstream lines(title);
    std::getline(lines, pad.title);
    for (std::string line; std::getline(lines, line);) {
        const auto colon = line.find(':');
        if (colon != std::string::npos)
            pad.directives.emplace(trimmed(line.substr(0, colon)), trimmed(line.substr(colon + 1)));
    }
    drawn.push_back(std::move(pad));
}

// The kernel does not rule out two pads with one identifier; the newer one is meant then.
Pad* PadStore::find(int ident)
{
    const auto pad = std::find_if(drawn.rbegin(), drawn.rend(),
                                  [=](const Pad& one) { return one.ident == ident; });
    return pad != drawn.rend() ? &*pad : nullptr;
}

void PadStore::addTraces(int ident, void* traceSet)
{
    Pad* pad = find(ident);
    if (pad == nullptr || traceSet == nullptr)
        return;
    SeisTraceSet& set = *static_cast<SeisTraceSet*>(traceSet);
    pad->sampleInterval = set.getTraceSampleInterval();
    for (int i = 0; i < set.getNumberOfTraces(); ++i) {
        const SeisTrace* trace = set.getTrace(i, true);
        if (trace == nullptr || trace->getSamples() == nullptr)
            continue;
        if (pad->traces.empty() && set.isAttributePresent("delrt", 0))
            pad->delay = set.getAttribute("delrt", i).getF64Value();
        PadTrace copy;
        const float* samples = trace->getSamples();
        const auto size = static_cast<std::size_t>(std::max(trace->traceLength, 0));
        if (pad->traces.size() % pad->keptEvery == 0)
            copy.samples = strongest(samples, size, pad->samplesPerValue);
        pad->longestTrace = std::max(pad->longestTrace, size);
        pad->fingerprint = fingerprint(pad->fingerprint, samples, size);
        copy.label = namedValue(*pad, "xattr", set, i, static_cast<double>(pad->traces.size() + 1));
        copy.secondLabel = namedValue(*pad, "xattr2", set, i, 0);
        copy.gather = namedValue(*pad, "gather", set, i, 0);
        copy.pick = namedValue(*pad, "picks", set, i, 0);
        pad->traces.push_back(std::move(copy));
        pad->values += pad->traces.back().samples.size();
        while (pad->values > mostValues) {
            reduce(*pad);
            pad->values = valuesIn(*pad);
        }
    }
}

void PadStore::addCommand(int ident, const plotCommandStruct& command)
{
    Pad* pad = find(ident);
    if (pad == nullptr)
        return;
    PadCommand copy;
    copy.command = command;
    copy.command.cbcd = nullptr;
    if (command.cbcd != nullptr)
        copy.text = command.cbcd;
    pad->commands.push_back(std::move(copy));
}

} // namespace host
