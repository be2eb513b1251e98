/// @file vorn_stream.hpp
///
/// The stream form of a module in C++: for modules that give another number of traces than they
/// take, or take traces of several inputs. Such modules hold back, leave out, multiply, gather,
/// sort or join traces. The form keeps the rules for the end of the data; vorn_stream.h says how.
///
///     #include "thin_parameters.hpp"  // made from thin.yaml
///     #include "vorn_stream.hpp"
///
///     namespace {
///     using vorn_kit::Stream;
///
///     struct State { thin_parameters::Parameters set; int taken = 0; };
///
///     std::unique_ptr<State> prepare(Stream& io)       // before the first trace
///     {
///         vorn_kit::buildRequiredOutput(0, vorn_kit::requiredInput());
///         return std::make_unique<State>(State{thin_parameters::readParameters()});
///     }
///     void onTrace(State& state, Stream& io)           // for each trace: emit none, one or many
///     {
///         if (state.taken++ % state.set.step == 0)
///             io.emitTrace(io.trace());
///     }
///     void onEnd(State& state, Stream& io) {}          // after the last trace: emit what is left
///     void finish(State& state) {}                     // when all modules have ended
///     }
///
///     VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
///
/// Traces are handed over as trace sets of which trace 0 is meant. An emitted trace may be changed
/// until the next one is emitted to the same output, or until the function returns. A function that
/// cannot go on throws; what was emitted goes out, and the rest is as in vorn_kit.hpp.
#ifndef VORN_STREAM_HPP
#define VORN_STREAM_HPP

#include "vorn_kit.hpp"
#include "vorn_stream.h"

#include <string>
#include <utility>
#include <vector>

namespace vorn_kit {

/// The inputs and outputs of a stream module; counted from 0. Functions that fail throw.
class Stream
{
public:
    /// Inputs that are connected.
    int inputs() const { return io.inputs; }
    /// Outputs that are connected.
    int outputs() const { return io.outputs; }

    /// The trace of this call that comes from an input, as the first trace of a set; null where the
    /// input has none: see vorn_trace().
    void* trace(int input = 0) const { return vorn_trace(&io, input); }
    /// Whether no other trace of the input follows that of this call, as far as is known yet.
    bool hasEnded(int input = 0) const { return vorn_has_ended(&io, input); }
    /// Takes no further trace: onEnd follows, and the outputs end.
    void stop() { vorn_stop(&io); }

    /// In prepare: inputs are matched by header words instead of in step. See vorn_match().
    void match(const std::vector<std::string>& words)
    {
        std::vector<const char*> pointers;
        for (const std::string& word : words)
            pointers.push_back(word.c_str());
        if (!vorn_match(&io, pointers.data(), static_cast<int>(pointers.size())))
            throw Failed();
    }

    /// @name Emission
    /// Each returns the set whose first trace was emitted; null where the output does not exist.
    /// @{

    /// A new trace of zeros.
    void* emit(int output = 0) { return checked(vorn_emit(&io, output)); }
    /// A copy of the first trace of `from`, or of trace `number`.
    void* emitCopy(void* from, int output = 0, int number = 0)
    {
        return checked(vorn_emit_copy_of(&io, output, from, number));
    }
    /// The first trace of `from` itself, an input or a queue, or trace `number`. It is not to be
    /// used there any more; its place stays, empty.
    void* emitTrace(void* from, int output = 0, int number = 0)
    {
        return checked(vorn_emit_queued(&io, output, from, number));
    }
    /// @}

    /// @name Queues
    /// For traces that the module keeps: work buffers, which the kernel pages.
    /// @{

    /// In prepare: a new queue of the length and layout of `like`. See vorn_build_queue().
    void* buildQueue(void* like) { return vorn_build_queue(&io, like); }
    /// Puts the first trace of `from` itself at the end of a queue. Its number there.
    int queueTrace(void* queue, void* from) { return checked(vorn_queue_trace(&io, queue, from)); }
    /// Puts a copy of it there.
    int queueCopy(void* queue, void* from) { return checked(vorn_queue_copy(&io, queue, from)); }
    /// @}

    /// For the entry points: the same as C sees it.
    vorn_stream* handle() { return &io; }

private:
    template <typename Result>
    Result checked(Result result)
    {
        if (io.has_failed)
            throw Failed();
        return result;
    }

    vorn_stream io{};
};

/// What a stream module keeps.
template <typename State>
struct StreamState
{
    StreamState() = default;
    StreamState(const StreamState&) = delete;
    StreamState& operator=(const StreamState&) = delete;
    ~StreamState() { vorn_stream_close(io.handle()); }

    Stream io;
    std::unique_ptr<State> own;
    void (*onTrace)(State&, Stream&) = nullptr;
    void (*onEnd)(State&, Stream&) = nullptr;
};

/// @name Bodies of the entry points, for VORN_STREAM_MODULE
/// @{
template <typename Prepare>
int preprocessStream(Prepare prepare)
{
    using State = typename std::invoke_result_t<Prepare, Stream&>::element_type;
    guarded<StreamState<State>>([&] {
        auto made = std::make_unique<StreamState<State>>();
        vorn_stream_open(made->io.handle());
        made->own = prepare(made->io);
        if (!vorn_stream_start(made->io.handle()))
            throw Failed();
        vorn_keep_state(made.get()); // may find no memory: only then is it the kernel's
        static_cast<void>(made.release());
    });
    return 0;
}

template <typename State>
void runStream(StreamState<State>& kept)
{
    const auto onTrace = [](void* address, vorn_stream*) {
        auto& run = *static_cast<StreamState<State>*>(address);
        run.onTrace(*run.own, run.io);
        return true;
    };
    const auto onEnd = [](void* address, vorn_stream*) {
        auto& run = *static_cast<StreamState<State>*>(address);
        run.onEnd(*run.own, run.io);
        return true;
    };
    try {
        if (!vorn_stream_process(kept.io.handle(), &kept, onTrace, onEnd))
            throw Failed();
    } catch (...) {
        vorn_stream_give_all(kept.io.handle());
        throw;
    }
}

template <typename State>
int processStream(void (*onTrace)(State&, Stream&), void (*onEnd)(State&, Stream&))
{
    if (auto* kept = state<StreamState<State>>()) {
        kept->onTrace = onTrace;
        kept->onEnd = onEnd;
        guarded<StreamState<State>>([&] { runStream(*kept); });
    }
    if (vorn_state() == nullptr)
        vorn_end_module();
    return 0;
}

template <typename State>
int postprocessStream(void (*finish)(State&))
{
    if (auto* kept = state<StreamState<State>>())
        guarded<StreamState<State>>([&] { finish(*kept->own); });
    destroyState<StreamState<State>>();
    return 0;
}
/// @}

} // namespace vorn_kit

/// Defines preprocess_, process_ and postprocess_ from four functions:
/// `std::unique_ptr<State> prepare(Stream&)`, `void onTrace(State&, Stream&)`, for each trace of
/// the input or each row of traces of several inputs (a module without inputs is called until it
/// has called `stop`), `void onEnd(State&, Stream&)`, once after the last trace, also when there
/// was none, and `void finish(State&)`, when all modules have ended.
#define VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish)                                        \
    extern "C" int preprocess_()                                                                   \
    {                                                                                              \
        return vorn_kit::preprocessStream(prepare);                                                \
    }                                                                                              \
    extern "C" int process_()                                                                      \
    {                                                                                              \
        return vorn_kit::processStream(onTrace, onEnd);                                            \
    }                                                                                              \
    extern "C" int postprocess_()                                                                  \
    {                                                                                              \
        return vorn_kit::postprocessStream(finish);                                                \
    }                                                                                              \
    static_assert(true, "the macro takes a semicolon")

#endif
