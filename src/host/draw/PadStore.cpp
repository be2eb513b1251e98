#include "draw/PadStore.h"

#include "JobManager.h"
#include "SeisTraceSet.h"
#include "base/Text.h"

#include <algorithm>
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

std::string trimmed(const std::string& text)
{
    const auto first = text.find_first_not_of(" \t\r");
    const auto last = text.find_last_not_of(" \t\r");
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
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
    const std::string label = pad->directive("xattr");
    const bool labelled = !label.empty() && set.isAttributePresent(label, 0);
    for (int i = 0; i < set.getNumberOfTraces(); ++i) {
        const SeisTrace* trace = set.getTrace(i, true);
        if (trace == nullptr || trace->getSamples() == nullptr)
            continue;
        if (pad->traces.empty() && set.isAttributePresent("delrt", 0))
            pad->delay = set.getAttribute("delrt", i).getF64Value();
        PadTrace copy;
        copy.samples.assign(trace->getSamples(), trace->getSamples() + trace->traceLength);
        copy.label = labelled ? set.getAttribute(label, i).getF64Value()
                              : static_cast<double>(pad->traces.size() + 1);
        pad->traces.push_back(std::move(copy));
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
