/// @file WatchedCalls.h
///
/// The calls that modules make into the kernel, seen from outside. Only the watched build of the
/// kernel's library has them: there every function of the facade (MOXKernel.h), and so every
/// function of the C and the Fortran form, tells an observer before and after its work. The
/// ordinary library is built without a trace of it.
///
/// A program finds out which of the two it runs on by `vornWatchCalls()`, looked up by name; it
/// does not link it.
#ifndef WATCHEDCALLS_H
#define WATCHEDCALLS_H

#include "UniVar.h"
#include "vorn_export.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace watched {

/// The address of a trace set, a library, a group, a list of attributes or memory of the kernel;
/// null where the module passed none.
struct Handle
{
    const void* address;
};

/// A text that the module passed or received. Bytes until the NUL, or all of a std::string.
struct Text
{
    const char* first; ///< null: the module passed a null address
    std::size_t size;
};

/// Numbers at an address of the module or the kernel: what a module passes in can be read before
/// and after the call, what it receives after the call.
struct Numbers
{
    enum class Type
    {
        int32,
        int64,
        float32,
        float64
    };
    Type type;
    const void* first; ///< may be null
    int64_t count;
    bool isOutput; ///< written by the call
};

/// Names of attributes.
struct Names
{
    const char* const* first; ///< may be null; so may each name
    int count;
};

/// One argument or result. What it points to lives as long as the call.
struct Argument
{
    std::variant<std::monostate, Handle, int64_t, double, Text, const UniVar*, Numbers, Names>
        value;

    Argument() = default; ///< of a call that returns nothing
    Argument(const void* address) : value(Handle{address}) {}
    Argument(int number) : value(static_cast<int64_t>(number)) {}
    Argument(int64_t number) : value(number) {}
    Argument(float number) : value(static_cast<double>(number)) {}
    Argument(double number) : value(number) {}
    Argument(const char* text)
        : value(Text{text, text != nullptr ? std::char_traits<char>::length(text) : 0})
    {
    }
    Argument(const std::string& text) : value(Text{text.data(), text.size()}) {}
    Argument(const UniVar& one) : value(&one) {}
    Argument(const Numbers& numbers) : value(numbers) {}
    Argument(const Names& names) : value(names) {}
};

/// One call of a function of the facade.
struct Call
{
    /// The facade's name. The form that the module called may have another: interfaceFunction().
    const char* function;
    std::span<const Argument> arguments; ///< in the order of the declaration in MOXKernel.h
};

/// Sees the calls, on whichever thread makes them. Calls that a function of the kernel makes itself
/// are not seen, and neither are those of the observer. What the functions here throw reaches the
/// module.
class Observer
{
public:
    virtual ~Observer() = default;

    /// Called before called(), by functions whose other arguments have sizes that the kernel reads
    /// behind these handles: the first arguments of the call, and nothing else.
    virtual void passed(const Call& /*handles*/) {}
    virtual void called(const Call& call) = 0;
    /// Not called when the function throws.
    virtual void returned(const Call& call, const Argument& result) = 0;

protected:
    Observer() = default;
    Observer(const Observer&) = default;
    Observer& operator=(const Observer&) = default;
};

/// The name of the exported function that the module called, `knl_gettracesamples_` for one; the
/// facade's name where it called that, or where it cannot be told. To be called by an observer, on
/// the thread of the call. Walks the stack: for findings, not for every call.
using InterfaceFunction = std::string (*)(const Call& call);

/// What `vornWatchCalls` returns.
struct Watch
{
    InterfaceFunction interfaceFunction;
};

} // namespace watched

/// Lets `observer` see all calls from now on; null: none does. Only one at a time.
extern "C" VORN_EXPORT const watched::Watch* vornWatchCalls(watched::Observer* observer);

#endif
