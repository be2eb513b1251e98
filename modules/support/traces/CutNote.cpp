#include "traces/CutNote.h"

#include "MOXKernel.h"

#include <array>
#include <cstring>
#include <optional>
#include <string>

namespace traces {

namespace {

constexpr int jobScope = 0;

// "fldr=51 ep=51": what two traces have in common.
std::string commonWords(const TracePlace& one, const TracePlace& other,
                        const std::vector<VORN::HeaderWord>& words, const HeaderOf& headerOf)
{
    std::array<unsigned char, VORN::segyTraceHeaderBytes> header;
    const HeaderBytes first = headerOf(one);
    std::memcpy(header.data(), first.bytes, header.size());
    const HeaderBytes second = headerOf(other);
    std::string text;
    for (const VORN::HeaderWord& word : words) {
        const VORN::WordValue a = VORN::readWordValue(header.data(), word, first.isLittleEndian);
        const VORN::WordValue b = VORN::readWordValue(second.bytes, word, second.isLittleEndian);
        if (!a.isFloat && a.whole == b.whole)
            text += std::string(" ") + word.key + "=" + std::to_string(a.whole);
    }
    return text;
}

} // namespace

void noteCuts(const TracesToGive& given, const std::vector<VORN::HeaderWord>& words,
              const HeaderOf& headerOf)
{
    const auto ends = given.endsByNumber();
    if (!ends)
        return;
    const auto& [first, last] = *ends;
    std::string note;
    const auto add = [&](const char* end, const TracePlace& trace, int64_t neighbour) {
        note += std::string(note.empty() ? "" : "\n") + end + " " + std::to_string(neighbour + 1) +
                commonWords(trace, {trace.file, neighbour}, words, headerOf);
    };
    if (first.index > 0)
        add("first", first, first.index - 1);
    if (last.index + 1 < given.tracesOfFiles()[last.file])
        add("last", last, last.index + 1);
    if (!note.empty())
        setMetaDataValue(jobScope, std::string("vorn.cut.") + getModuleName(), note);
}

} // namespace traces
