/// @file InputNotes.h
///
/// What the traces of a module's inputs hold while it runs, to tell whether it has changed them.
#ifndef INPUTNOTES_H
#define INPUTNOTES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <unordered_map>
#include <vector>

class ModuleEntity;
class SeisTrace;

namespace host {

/// The input traces that one call of `process_` has got at. Each is noted once, before the module
/// has it: a digest of its header, of its samples when the module asks for these, and its flag. So
/// the cost is a reading of what the module itself reads, and the memory does not depend on the
/// length of traces.
///
/// Usual order: `forget` before each call, `note` for each access, `compare` after the call.
class InputNotes
{
public:
    /// Notes trace `number` of input `input` (both zero-based) as it is now. Does nothing for what
    /// was noted before in this call, and for a trace that is in the scratch file. Returns whether
    /// its samples have been noted now.
    bool note(int input, int number, const SeisTrace& trace, bool withSamples);

    /// Something of a noted trace that is not as it was.
    struct Change
    {
        const char* what; ///< "samples", "header" or "flag"
        int input;
        int number;
    };
    /// Tells all changes. Traces that have left their input (the module has moved them on) or are
    /// in the scratch file now are not looked at.
    void compare(const ModuleEntity& module, const std::function<void(const Change&)>& tell) const;

    void forget();

private:
    struct Note
    {
        const SeisTrace* trace;
        int input;
        int number;
        int flag;
        int headerSize; ///< bytes
        int length;     ///< samples; -1: they were not noted
        uint64_t headerDigest;
        uint64_t samplesDigest;
    };

    std::vector<Note> notes;
    std::unordered_map<const SeisTrace*, std::size_t> places; ///< in `notes`
};

} // namespace host

#endif
