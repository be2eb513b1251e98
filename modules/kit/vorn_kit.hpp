/// @file vorn_kit.hpp
///
/// What every processing module in C++ would otherwise repeat: the module's own state, its failure,
/// and entry points that turn exceptions into fatal messages. The constants and the functions of
/// vorn_kit.h are there too.
///
///     #include "sort_parameters.hpp"  // made from sort.yaml
///     #include "vorn_kit.hpp"
///
///     namespace {
///     struct State { ... };
///     std::unique_ptr<State> prepare() { ... }   // before the first trace
///     void process(State& state) { ... }         // whenever each input has a trace
///     void finish(State& state) { ... }          // after the last trace
///     }
///
///     VORN_MODULE(prepare, process, finish);
///
/// A function that cannot go on throws an exception whose text is for the user. It becomes the
/// module's failure: a fatal message and the job's mark; the state is destroyed, finish is not
/// called, and all outputs are at the end of their data.
#ifndef VORN_KIT_HPP
#define VORN_KIT_HPP

#include "vorn_kit.h"

#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace vorn_kit {

/// Thrown after the fatal message has been sent.
class Failed : public std::exception
{
public:
    const char* what() const noexcept override { return "the module has failed"; }
};

/// Ends the module; `text` is for the user.
[[noreturn]] inline void fail(const std::string& text)
{
    throw std::runtime_error(text);
}

inline void message(int type, const std::string& text)
{
    knl_sendMessage(type, text.c_str());
}

/// The fatal message and the job's mark, at any length where there is memory for it. The entry
/// points call it; fail() is for everything below them.
inline void reportFailure(const char* text)
{
    try {
        const std::string noted = VORN_MODULE_NAME ": " + std::string(text);
        knl_sendMessage(VORN_FATAL, text);
        knl_setMetaDataValue(VORN_SCOPE_JOB, VORN_FAILED_KEY, noted.c_str());
    } catch (const std::bad_alloc&) {
        vorn_fail("%s", text);
    }
}

/// Returns when `bytes` of memory are within `limit` megabytes, the module's parameter
/// memory_limit, and ends the module otherwise: see vorn_allow_memory().
inline void allowMemory(int limit, int64_t bytes, const std::string& what, const char* advice)
{
    if (!vorn_allow_memory(limit, bytes, what.c_str(), advice))
        throw Failed();
}

inline void addHistory(const std::string& line)
{
    vorn_add_history(line.c_str());
}

/// @name Buffers that must be there
/// @{
inline void* requiredInput(int channel = 0)
{
    void* in = vorn_required_input(channel);
    if (in == nullptr)
        throw Failed();
    return in;
}

/// The output with the trace length, sample interval and attributes of `like`.
inline void* buildRequiredOutput(int channel, void* like)
{
    void* out = vorn_build_required_output(channel, like);
    if (out == nullptr)
        throw Failed();
    return out;
}
/// @}

/// The state of the running module; null before it is kept and after a failure.
template <typename State>
State* state()
{
    return static_cast<State*>(vorn_state());
}

// Where not even the address can be forgotten for lack of memory, the state stays: the end of the
// job destroys it.
template <typename State>
void destroyState() noexcept
{
    State* kept = nullptr;
    try {
        kept = state<State>();
        if (kept != nullptr)
            vorn_keep_state(nullptr);
    } catch (...) {
        return;
    }
    delete kept;
    knl_removeWorkTraces();
}

/// Runs `action`. What it throws becomes the failure of the module. Its state is destroyed first:
/// that needs no memory, and removes files that are not complete. Where even the message finds no
/// memory, the exception goes on to the host, which ends the job: swallowed here, the failure would
/// go unnoticed.
template <typename State, typename Action>
void guarded(Action action)
{
    try {
        action();
    } catch (const Failed&) {
        destroyState<State>(); // the message has been sent
    } catch (const std::bad_alloc&) {
        destroyState<State>();
        vorn_fail("there is not enough memory");
    } catch (const std::exception& error) {
        destroyState<State>();
        reportFailure(error.what());
    } catch (...) {
        destroyState<State>();
        vorn_fail("an unknown exception was thrown");
    }
}

/// @name Bodies of the entry points, for VORN_MODULE
/// @{
template <typename Prepare>
int preprocess(Prepare prepare)
{
    using State = typename std::invoke_result_t<Prepare>::element_type;
    guarded<State>([&] {
        auto made = prepare();
        vorn_keep_state(made.get()); // may find no memory: only then is it the kernel's
        static_cast<void>(made.release());
        vorn_ask_for_end();
    });
    return 0;
}

template <typename State>
int process(void (*action)(State&))
{
    if (State* kept = state<State>())
        guarded<State>([&] {
            if (!vorn_pass_end())
                action(*kept);
        });
    if (vorn_state() == nullptr)
        vorn_end_module();
    return 0;
}

template <typename State>
int postprocess(void (*action)(State&))
{
    if (State* kept = state<State>())
        guarded<State>([&] { action(*kept); });
    destroyState<State>();
    return 0;
}
/// @}

} // namespace vorn_kit

/// Defines preprocess_, process_ and postprocess_ from three functions of a module that gives one
/// trace for each that it takes, with its flag (others are easier to write with vorn_stream.hpp):
/// `std::unique_ptr<State> prepare()`, `void process(State&)` and `void finish(State&)`.
#define VORN_MODULE(prepare, process, finish)                                                      \
    extern "C" int preprocess_()                                                                   \
    {                                                                                              \
        return vorn_kit::preprocess(prepare);                                                      \
    }                                                                                              \
    extern "C" int process_()                                                                      \
    {                                                                                              \
        return vorn_kit::process(process);                                                         \
    }                                                                                              \
    extern "C" int postprocess_()                                                                  \
    {                                                                                              \
        return vorn_kit::postprocess(finish);                                                      \
    }                                                                                              \
    static_assert(true, "the macro takes a semicolon")

#endif
