#include "watch/InputNotes.h"

#include "DataChannel.h"
#include "ModuleEntity.h"
#include "SeisTrace.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace host {

namespace {

// Each step maps different words to different digests, so that a single change never goes
// unnoticed; it rotates, as a product alone never brings a high bit (the sign of a sample) down to
// the others. Several lanes, as one would wait for its own product.
uint64_t digestOf(const void* first, std::size_t size)
{
    constexpr uint64_t factor = 0x9E3779B97F4A7C15;
    constexpr std::size_t wordSize = sizeof(uint64_t);
    const auto* bytes = static_cast<const unsigned char*>(first);
    std::array<uint64_t, 4> lanes = {1, 2, 3, 4};
    const auto mix = [&](std::size_t lane, std::size_t at, std::size_t count) {
        uint64_t word = 0;
        std::memcpy(&word, bytes + at, count);
        lanes[lane] = std::rotl(lanes[lane] ^ word, 23) * factor;
    };
    std::size_t at = 0;
    for (; at + 4 * wordSize <= size; at += 4 * wordSize) {
        for (std::size_t lane = 0; lane < 4; ++lane)
            mix(lane, at + lane * wordSize, wordSize);
    }
    for (; at < size; at += wordSize)
        mix(0, at, std::min(wordSize, size - at));
    uint64_t digest = 0;
    for (const uint64_t lane : lanes)
        digest = std::rotl(digest ^ lane, 23) * factor;
    return digest;
}

uint64_t digestOfHeader(const SeisTrace& trace, int size)
{
    return digestOf(trace.traceHeader, static_cast<std::size_t>(size));
}

uint64_t digestOfSamples(const SeisTrace& trace)
{
    return digestOf(trace.traceSamples,
                    static_cast<std::size_t>(trace.traceLength) * sizeof(float));
}

bool isResident(const SeisTrace& trace)
{
    return trace.traceSamples != nullptr && trace.traceHeader != nullptr;
}

} // namespace

bool InputNotes::note(int input, int number, const SeisTrace& trace, bool withSamples)
{
    if (!isResident(trace))
        return false;
    const auto [place, isNew] = places.try_emplace(&trace, notes.size());
    if (isNew)
        notes.push_back({&trace, input, number, trace.traceFlag, trace.traceHeaderSize, -1,
                         digestOfHeader(trace, trace.traceHeaderSize), 0});
    Note& one = notes[place->second];
    if (!withSamples || one.length >= 0)
        return false;
    one.length = trace.traceLength;
    one.samplesDigest = digestOfSamples(trace);
    return true;
}

// What has gone may not be touched any more. A trace that is there is in its old place: what leaves
// an input while a module runs leaves an empty place.
void InputNotes::compare(const ModuleEntity& module,
                         const std::function<void(const Change&)>& tell) const
{
    const auto isThere = [&](const Note& one) {
        const auto& traces = module.inputDataChannels[static_cast<std::size_t>(one.input)]->traces;
        const auto number = static_cast<std::size_t>(one.number);
        return number < traces.size() && traces[number] == one.trace;
    };
    for (const Note& one : notes) {
        if (!isThere(one) || !isResident(*one.trace))
            continue;
        const SeisTrace& trace = *one.trace;
        if (trace.traceLength == one.length && digestOfSamples(trace) != one.samplesDigest)
            tell({"samples", one.input, one.number});
        // A header grows when an attribute is defined, which changes nothing of what it had.
        if (trace.traceHeaderSize >= one.headerSize &&
            digestOfHeader(trace, one.headerSize) != one.headerDigest)
            tell({"header", one.input, one.number});
        if (trace.traceFlag != one.flag)
            tell({"flag", one.input, one.number});
    }
}

// To clear a table takes as long as its largest call has made it.
void InputNotes::forget()
{
    constexpr std::size_t manyBuckets = 1024;
    notes.clear();
    if (places.bucket_count() > manyBuckets)
        places = {};
    else
        places.clear();
}

} // namespace host
