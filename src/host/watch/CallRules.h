/// @file CallRules.h
///
/// What the arguments of the functions of the module interface mean: which are handles, numbers of
/// traces and numbers of channels.
#ifndef CALLRULES_H
#define CALLRULES_H

#include <cstddef>

namespace host {

/// What a call does with a trace that it names.
enum class TraceUse
{
    none,
    access, ///< makes the trace where there is none
    source, ///< reads it to copy or move it; makes it, too
    look    ///< makes none
};

enum class CallKind
{
    other,
    channel,   ///< argument 0 is the number of a channel or work buffer
    parameter, ///< argument 0 is the name of a parameter
    readAttribute,
    writeAttribute,
    samples, ///< the result points to samples
    flag,    ///< marks the last trace of the set
    clear,   ///< writes to all traces of the set
    allocate,
    free,
    buildList,
    freeList,
    message
};

/// Of one function of the facade. Numbers are those of arguments; -1: there is none.
struct CallRule
{
    const char* function;
    CallKind kind = CallKind::other;
    int set = -1; ///< a trace set
    int trace = -1;
    TraceUse use = TraceUse::none;
    int secondSet = -1; ///< another one, as the target of a copy
    int secondTrace = -1;
    int list = -1;  ///< a list of attributes
    int table = -1; ///< a library or a group
    bool setMayBeNull = false;
};

/// The rule of a function; null where none of its arguments means anything here. `function` is a
/// text of the watched library, which stays where it is.
const CallRule* callRuleOf(const char* function);

} // namespace host

#endif
