#include "SeisTraceSet.h"

#include "ScratchManager.h"
#include "private/BlockBytes.h"
#include "private/RecentNames.h"
#include "vorn_assert.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

namespace {

int64_t newLayoutNumber()
{
    static int64_t layouts = 0;
    return ++layouts;
}

int endOf(const traceAttIdent& ident)
{
    return ident.offset + ident.size;
}

inline void touchTrace(ScratchManager* manager, SeisTrace* trace)
{
    if (manager != nullptr)
        manager->touchTrace(trace);
    else if (trace->traceOffset >= 0)
        // Paged out before paging was switched off here, or while it was in another set.
        ScratchManager::getInstance()->restoreFromScratch(trace);
}

// Layouts of absurd dimensions have wrapped; only the traces' own checks can deal with those.
bool isSane(const traceAttIdent& ident)
{
    return ident.offset >= 0 && ident.size > 0 && ident.offset <= INT_MAX - ident.size;
}

} // namespace

SeisTraceSet::SeisTraceSet()
    : traceLength(0), sampleInterval(0), dataChannelFlag(0), totalNumTraces(0),
      currentHeaderSize(0), scratchManager(ScratchManager::getInstance()),
      layoutNumber(newLayoutNumber()), layoutExposed(false),
      recentNames(std::make_unique<RecentNames<traceAttIdent>>())
{
}

SeisTraceSet::~SeisTraceSet() = default;

int SeisTraceSet::addTrace(SeisTrace* trace)
{
    traces.push_back(trace);
    return getNumberOfTraces();
}

traceAttIdent& SeisTraceSet::getAttributeKey(const std::string& name)
{
    layoutExposed = true; // the caller may change the place, now and later
    return place(name);
}

traceAttIdent* SeisTraceSet::knownPlace(std::string_view name) const
{
    return recentNames->find(const_cast<std::map<std::string, traceAttIdent>&>(attrDefs), name);
}

traceAttIdent& SeisTraceSet::place(const std::string& name)
{
    if (traceAttIdent* known = knownPlace(name))
        return *known;
    layoutNumber = newLayoutNumber();
    recentNames->forget();
    return attrDefs.emplace(name, traceAttIdent(name, currentHeaderSize)).first->second;
}

int SeisTraceSet::defineAttribute(const std::string& name)
{
    place(name);
    return 1;
}

bool SeisTraceSet::isAttributePresent(const std::string& name, int /*traceNo*/) const
{
    return knownPlace(name) != nullptr;
}

std::vector<std::string> SeisTraceSet::getAttributesList() const
{
    std::vector<std::string> names;
    names.reserve(attrDefs.size());
    for (const auto& definition : attrDefs)
        names.push_back(definition.first);
    return names;
}

UniVar SeisTraceSet::getAttribute(const std::string& name, int traceNo)
{
    return valueAt(place(name), traceNo);
}

bool SeisTraceSet::fetchAttribute(const std::string& name, int traceNo, UniVar& value)
{
    const traceAttIdent* known = knownPlace(name);
    if (known != nullptr)
        value = valueAt(*known, traceNo);
    return known != nullptr;
}

unsigned char* SeisTraceSet::findNumber(std::string_view name, int traceNo, traceAttVarType type,
                                        int size)
{
    const traceAttIdent* known = knownPlace(name);
    if (known == nullptr || known->type != type || known->size != size)
        return nullptr;
    const SeisTrace* trace = getTrace(traceNo, true);
    if (trace == nullptr || !trace->holds(*known))
        return nullptr;
    return trace->traceHeader + known->offset;
}

UniVar SeisTraceSet::valueAt(const traceAttIdent& ident, int traceNo)
{
    const SeisTrace* trace = getTrace(traceNo, true);
    return trace != nullptr ? trace->getAttribute(ident) : UniVar();
}

int SeisTraceSet::setAttribute(const std::string& name, const UniVar& value, int traceNo)
{
    const traceAttIdent& ident = place(name);
    SeisTrace* trace = getTrace(traceNo, true);
    return trace != nullptr ? trace->setAttribute(ident, value) : 0;
}

void SeisTraceSet::setNumberOfTraces(int n)
{
    while (getNumberOfTraces() < n)
        addTrace(new SeisTrace(traceLength, currentHeaderSize));
}

// With the touch: most calls of modules come here.
inline SeisTrace* SeisTraceSet::touchedTrace(int traceNo)
{
    const std::size_t index = static_cast<std::size_t>(traceNo);
    if (index >= traces.size() && !makeTracesTo(traceNo))
        return nullptr;
    SeisTrace* trace = traces[index];
    if (trace != nullptr)
        touchTrace(scratchManager, trace);
    return trace;
}

SeisTrace* SeisTraceSet::getTrace(int traceNo, bool touchScratch)
{
    const std::size_t index = static_cast<std::size_t>(traceNo);
    if (index >= traces.size() && !makeTracesTo(traceNo))
        return nullptr;
    SeisTrace* trace = traces[index];
    if (touchScratch && trace != nullptr)
        touchTrace(scratchManager, trace);
    return trace;
}

bool SeisTraceSet::makeTracesTo(int traceNo)
{
    if (traceNo < 0 || traceNo == INT_MAX)
        return false;
    setNumberOfTraces(traceNo + 1);
    return true;
}

void SeisTraceSet::touch(SeisTrace* trace)
{
    if (trace != nullptr)
        touchTrace(scratchManager, trace);
}

void SeisTraceSet::setTrace(SeisTrace* trace, int traceNo)
{
    setNumberOfTraces(traceNo);
    VORN_ASSERT(traceNo >= 0);
    if (traceNo < getNumberOfTraces())
        traces[static_cast<std::size_t>(traceNo)] = trace;
    else
        addTrace(trace);
}

// A touch can move others to the scratch file. Where it would not, the trace need not come to the
// front of an order that it is about to leave.
SeisTrace* SeisTraceSet::getLeavingTrace(int traceNo)
{
    SeisTrace* trace = getTrace(traceNo, false);
    if (trace != nullptr && (scratchManager == nullptr || !scratchManager->isAtRest(trace)))
        touchTrace(scratchManager, trace);
    return trace;
}

void SeisTraceSet::removeTrace(int traceNo)
{
    SeisTrace* trace = getLeavingTrace(traceNo);
    if (static_cast<std::size_t>(traceNo) < traces.size())
        destroyTrace(trace, traceNo);
}

void SeisTraceSet::destroyTrace(SeisTrace* trace, int traceNo)
{
    traceLeaves(trace, traceNo, false);
    delete trace;
    traces.erase(traces.begin() + traceNo);
    if (!traces.empty() && traces.front() != nullptr)
        dataChannelFlag = traces.front()->traceFlag;
}

float* SeisTraceSet::getSamples(int traceNo)
{
    const SeisTrace* trace = getTrace(traceNo, true);
    return trace != nullptr ? trace->getSamples() : nullptr;
}

int SeisTraceSet::setSamples(const float* samples, int traceNo)
{
    SeisTrace* trace = getTrace(traceNo, true);
    return trace != nullptr ? trace->setSamples(samples) : 0;
}

unsigned char* SeisTraceSet::getHeader(int traceNo)
{
    const SeisTrace* trace = getTrace(traceNo, true);
    return trace != nullptr ? trace->getHeader() : nullptr;
}

int SeisTraceSet::getHeaderSize(int traceNo)
{
    const SeisTrace* trace = getTrace(traceNo, true);
    return trace != nullptr ? trace->getHeaderSize() : 0;
}

int SeisTraceSet::setHeader(const unsigned char* data, int size, int traceNo)
{
    SeisTrace* trace = getTrace(traceNo, true);
    return trace != nullptr ? trace->setHeader(data, size) : 0;
}

int SeisTraceSet::clearTraceSet()
{
    for (int i = 0; i < getNumberOfTraces(); ++i) {
        if (SeisTrace* trace = getTrace(i, true))
            trace->clearTrace();
    }
    return 1;
}

int SeisTraceSet::getDataChannelFlag() const
{
    return !traces.empty() && traces.front() != nullptr ? traces.front()->traceFlag
                                                        : dataChannelFlag;
}

void SeisTraceSet::setDataChannelFlag(int flag)
{
    if (!traces.empty() && traces.back() != nullptr)
        traces.back()->traceFlag = flag;
    else
        dataChannelFlag = flag;
}

void SeisTraceSet::setUseScratch(bool use)
{
    scratchManager = use ? ScratchManager::getInstance() : nullptr;
}

int SeisTraceSet::configureByTemplate(int length, int interval, SeisTraceSet* templ)
{
    setTraceLength(length);
    setTraceSampleInterval(interval);
    if (templ != nullptr) {
        for (const auto& definition : templ->attrDefs)
            defineAttribute(definition.first);
    }
    return 1;
}

int SeisTraceSet::configureLike(const SeisTraceSet* model)
{
    if (model == nullptr || !attrDefs.empty() || !traces.empty())
        return 0;
    attrDefs = model->attrDefs;
    currentHeaderSize = model->currentHeaderSize;
    layoutNumber = model->layoutExposed ? newLayoutNumber() : model->layoutNumber;
    recentNames->forget();
    setTraceLength(model->traceLength);
    setTraceSampleInterval(model->sampleInterval);
    return 1;
}

int SeisTraceSet::copyFromTrace(SeisTraceSet* src, bool copyHeader, bool copySamples,
                                int traceNoFrom, int traceNoTo)
{
    SeisTrace* from = src != nullptr ? src->touchedTrace(traceNoFrom) : nullptr;
    // With a limit of one resident trace, touching the target would page the source out.
    const ScratchManager::Hold hold(from);
    // All samples of a trace that comes into being here are written below: no need to clear them.
    const int count = getNumberOfTraces();
    const bool isNew = traceNoTo >= count;
    bool hasHeader = false; // it has been written
    if (from != nullptr && traceNoTo == count && copySamples && from->traceSamples != nullptr &&
        traceLength <= src->traceLength && traceLength <= from->traceLength)
    {
        hasHeader = copyHeader && isHeaderCopyKnown(src) && fits(headerCopy, *from);
        addTrace(newCopy(*from, hasHeader));
    }
    SeisTrace* to = touchedTrace(traceNoTo);
    if (from == nullptr || to == nullptr)
        return 0;

    if (copyHeader && !hasHeader) {
        if (!isNew)
            to->clearTraceHeader();
        copyHeaderFrom(src, from, to);
    }
    if (copySamples && from->traceSamples != nullptr && to->traceSamples != nullptr) {
        const int samples =
            std::min({traceLength, src->traceLength, to->traceLength, from->traceLength});
        if (samples > 0)
            blocks::copy(to->traceSamples, from->traceSamples,
                         static_cast<std::size_t>(samples) * sizeof(float));
    }
    to->traceFlag = from->traceFlag;
    return 1;
}

// Whether a header as traces are made with here takes over that of `from`, and neither grows.
inline bool SeisTraceSet::fits(const HeaderCopy& copy, const SeisTrace& from) const
{
    return from.traceHeader != nullptr && from.traceHeaderSize >= copy.sourceSize &&
           currentHeaderSize >= copy.targetSize;
}

// A trace of this set for the samples of `from`, with the header of `from` if that fits. Only what
// lies between the attributes is cleared: most often nothing.
inline SeisTrace* SeisTraceSet::newCopy(const SeisTrace& from, bool withHeader) const
{
    if (!withHeader)
        return new SeisTrace(traceLength, currentHeaderSize, SeisTrace::SamplesFollow());
    auto* const trace = new SeisTrace(traceLength, currentHeaderSize, SeisTrace::AllFollows());
    unsigned char* const header = trace->traceHeader;
    if (header == nullptr)
        return trace;
    int written = 0; // bytes from the start
    const auto clearTo = [&](int end) {
        if (end > written)
            std::memset(header + written, 0, static_cast<std::size_t>(end - written));
    };
    for (const HeaderCopy::Run& run : headerCopy.runs) {
        clearTo(run.to);
        std::memcpy(header + run.to, from.traceHeader + run.from,
                    static_cast<std::size_t>(run.size));
        written = std::max(written, run.to + run.size);
    }
    clearTo(currentHeaderSize);
    return trace;
}

// Into a header of zeros.
void SeisTraceSet::copyHeaderFrom(SeisTraceSet* src, SeisTrace* from, SeisTrace* to)
{
    const HeaderCopy& copy = isHeaderCopyKnown(src) ? headerCopy : headerCopyFrom(src);
    if (copy.sourceLayout == 0 || from->traceHeaderSize < copy.sourceSize ||
        from->traceHeader == nullptr)
    {
        for (const auto& [name, ident] : src->attrDefs)
            to->copyAttribute(place(name), from, ident);
        return;
    }
    if (to->traceHeaderSize < copy.targetSize) {
        for (const int end : copy.ends) // one by one: the steps decide where the header ends up
            to->expandHeader(end);
    }
    if (to->traceHeader == nullptr || to->traceHeaderSize < copy.targetSize)
        return; // no memory for the growth
    for (const HeaderCopy::Run& run : copy.runs)
        std::memmove(to->traceHeader + run.to, from->traceHeader + run.from,
                     static_cast<std::size_t>(run.size));
}

// Looking names up for every trace costs several times what the copying does; layouts hardly change
// once traces flow.
inline bool SeisTraceSet::isHeaderCopyKnown(const SeisTraceSet* src) const
{
    return !layoutExposed && !src->layoutExposed && headerCopy.sourceLayout == src->layoutNumber &&
           headerCopy.targetLayout == layoutNumber &&
           headerCopy.sourceCount == src->attrDefs.size() &&
           headerCopy.targetCount == attrDefs.size();
}

// Defines what is missing here.
const SeisTraceSet::HeaderCopy& SeisTraceSet::headerCopyFrom(SeisTraceSet* src)
{
    if (isHeaderCopyKnown(src))
        return headerCopy;

    HeaderCopy copy;
    bool sane = true;
    for (const auto& [name, from] : src->attrDefs) {
        const traceAttIdent& to = place(name);
        if (to.type != from.type || to.size != from.size)
            continue;
        if (!isSane(from) || !isSane(to)) {
            sane = false;
            continue;
        }
        copy.ends.push_back(endOf(to));
        copy.sourceSize = std::max(copy.sourceSize, endOf(from));
        copy.targetSize = std::max(copy.targetSize, endOf(to));
        copy.runs.push_back({to.offset, from.offset, to.size});
    }
    std::sort(copy.runs.begin(), copy.runs.end(),
              [](const HeaderCopy::Run& a, const HeaderCopy::Run& b) { return a.to < b.to; });
    std::vector<HeaderCopy::Run> joined;
    for (const HeaderCopy::Run& run : copy.runs) {
        HeaderCopy::Run* last = joined.empty() ? nullptr : &joined.back();
        if (last != nullptr && last->to + last->size == run.to &&
            last->from + last->size == run.from)
            last->size += run.size;
        else
            joined.push_back(run);
    }
    copy.runs = std::move(joined);
    copy.sourceLayout = sane ? src->layoutNumber : 0;
    copy.targetLayout = layoutNumber;
    copy.sourceCount = src->attrDefs.size();
    copy.targetCount = attrDefs.size();
    headerCopy = std::move(copy);
    return headerCopy;
}

int SeisTraceSet::moveFromTrace(SeisTraceSet* src, int traceNoFrom, int traceNoTo)
{
    SeisTrace* trace = src != nullptr ? src->getTrace(traceNoFrom, false) : nullptr;
    if (trace == nullptr)
        return 0;
    if (src == this && traceNoFrom == traceNoTo)
        return 1;
    src->traces[static_cast<std::size_t>(traceNoFrom)] = nullptr;
    src->traceLeaves(trace, traceNoFrom, true);
    setTrace(trace, traceNoTo);
    return 1;
}

int SeisTraceSet::transferFromTrace(SeisTraceSet* src, int traceNoFrom, int traceNoTo)
{
    const std::size_t from = static_cast<std::size_t>(traceNoFrom);
    SeisTrace* trace = src != nullptr && from < src->traces.size() ? src->traces[from] : nullptr;
    if (trace == nullptr || traceNoTo < 0)
        return 0;
    if (src == this || trace->pendingEntries > 1 || trace->traceLength != traceLength)
        return copyFromTrace(src, true, true, traceNoFrom, traceNoTo);
    return adaptHeader(src, trace) ? moveFromTrace(src, traceNoFrom, traceNoTo) : 0;
}

bool SeisTraceSet::hasLayoutOf(SeisTraceSet* src)
{
    if (currentHeaderSize != src->currentHeaderSize || attrDefs.size() != src->attrDefs.size())
        return false;
    if (!layoutExposed && !src->layoutExposed && layoutNumber == src->layoutNumber)
        return true;
    const HeaderCopy& copy = headerCopyFrom(src);
    return copy.sourceLayout != 0 &&
           (attrDefs.empty() || (copy.runs.size() == 1 && copy.runs[0].from == 0 &&
                                 copy.runs[0].to == 0 && copy.runs[0].size == currentHeaderSize));
}

// Whether the header of `trace`, which is one of `src`, is laid out as here now. Between sets of
// one layout it is so already, and stays untouched, in the scratch file if need be.
bool SeisTraceSet::adaptHeader(SeisTraceSet* src, SeisTrace* trace)
{
    if (hasLayoutOf(src) && trace->traceHeaderSize >= currentHeaderSize)
        return true;

    touchTrace(scratchManager, trace);
    SeisTrace adapted(0, currentHeaderSize);
    if (trace->traceHeader == nullptr || adapted.traceHeader == nullptr)
        return false;
    copyHeaderFrom(src, trace, &adapted);
    std::swap(trace->traceHeader, adapted.traceHeader);
    std::swap(trace->traceHeaderSize, adapted.traceHeaderSize);
    std::swap(trace->headerPlace, adapted.headerPlace);
    return true;
}

void SeisTraceSet::removeAllTraces()
{
    for (int i = getNumberOfTraces() - 1; i >= 0; --i) {
        SeisTrace* trace = traces[static_cast<std::size_t>(i)];
        traceLeaves(trace, i, true);
        delete trace;
    }
    traces.clear();
}

void SeisTraceSet::traceLeaves(SeisTrace* /*trace*/, int /*traceNo*/, bool /*entryStays*/) {}
