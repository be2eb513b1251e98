#include "watch/CallRules.h"

#include <string_view>
#include <unordered_map>

namespace host {

namespace {

constexpr auto access = TraceUse::access;
constexpr auto source = TraceUse::source;
constexpr auto look = TraceUse::look;

constexpr CallRule rules[] = {
    {.function = "getInputTraceBuffer", .kind = CallKind::channel},
    {.function = "getOutputTraceBuffer", .kind = CallKind::channel},
    {.function = "getWorkTraceBuffer", .kind = CallKind::channel},
    {.function = "setInputTraceBufferFlag", .kind = CallKind::channel},
    {.function = "isInputTraceBufferFlagged", .kind = CallKind::channel},
    {.function = "bldOutputTraceBuffer", .kind = CallKind::channel, .set = 3, .setMayBeNull = true},
    {.function = "bldWorkTraceBuffer", .kind = CallKind::channel, .set = 4, .setMayBeNull = true},
    {.function = "bldWorkTraceBufferLike", .kind = CallKind::channel, .set = 1},
    {.function = "isModuleParameterPresent", .kind = CallKind::parameter},
    {.function = "getModuleParameter", .kind = CallKind::parameter},
    {.function = "isTraceAttributeExist", .set = 0},
    {.function = "defineTraceAttribute", .kind = CallKind::writeAttribute, .set = 0},
    {.function = "getTraceAttribute",
     .kind = CallKind::readAttribute,
     .set = 0,
     .trace = 2,
     .use = access},
    {.function = "setTraceAttribute",
     .kind = CallKind::writeAttribute,
     .set = 0,
     .trace = 3,
     .use = access},
    {.function = "getNumberOfTraces", .set = 0},
    {.function = "getTraceLength", .set = 0},
    {.function = "getTraceSampleInterval", .set = 0},
    {.function = "setNumberOfTraces", .set = 0},
    {.function = "setTraceLength", .set = 0},
    {.function = "setTraceSampleInterval", .set = 0},
    {.function = "clearTraceSet", .kind = CallKind::clear, .set = 0},
    {.function = "copyTraceToTrace",
     .set = 0,
     .trace = 4,
     .use = source,
     .secondSet = 1,
     .secondTrace = 5},
    {.function = "moveTraceToTrace",
     .set = 0,
     .trace = 2,
     .use = source,
     .secondSet = 1,
     .secondTrace = 3},
    {.function = "transferTraceToTrace",
     .set = 0,
     .trace = 2,
     .use = look,
     .secondSet = 1,
     .secondTrace = 3},
    {.function = "removeTrace", .set = 0, .trace = 1, .use = look},
    {.function = "informTotalTracesNumber", .set = 0},
    {.function = "setTraceBufferUseScratch", .set = 0},
    {.function = "isTraceBufferUseScratch", .set = 0},
    {.function = "getDataChannelFlag", .set = 0},
    {.function = "setDataChannelFlag", .kind = CallKind::flag, .set = 0},
    {.function = "getTraceSamples", .kind = CallKind::samples, .set = 0, .trace = 1, .use = access},
    {.function = "setTraceSamples", .set = 0, .trace = 2, .use = access},
    {.function = "bldAttributeList", .kind = CallKind::buildList},
    {.function = "freeAttributeList", .kind = CallKind::freeList, .list = 0},
    {.function = "getAttributeListSize", .list = 0},
    {.function = "getAttributeListPresence", .set = 1, .list = 0},
    {.function = "getTraceAttributes", .set = 1, .trace = 2, .use = access, .list = 0},
    {.function = "setTraceAttributes", .set = 1, .trace = 2, .use = access, .list = 0},
    {.function = "getLibraryType", .table = 0},
    {.function = "isLibraryParameterPresent", .table = 0},
    {.function = "getLibraryParameter", .table = 0},
    {.function = "setLibraryParameter", .table = 0},
    {.function = "getGroupParameterSize", .table = 0},
    {.function = "isGroupParameterPresent", .table = 0},
    {.function = "getGroupParameter", .table = 0},
    {.function = "setGroupParameter", .table = 0},
    {.function = "sendMessage", .kind = CallKind::message},
    {.function = "addTraceToPad", .set = 1},
    {.function = "allocateResource", .kind = CallKind::allocate},
    {.function = "freeResource", .kind = CallKind::free},
};

const CallRule* findByName(std::string_view function)
{
    for (const CallRule& rule : rules) {
        if (function == rule.function)
            return &rule;
    }
    return nullptr;
}

} // namespace

// By address first: a name is looked up once for each place in the library that has it.
const CallRule* callRuleOf(const char* function)
{
    static std::unordered_map<const char*, const CallRule*> known;
    const auto [place, isNew] = known.try_emplace(function, nullptr);
    if (isNew)
        place->second = findByName(function);
    return place->second;
}

} // namespace host
