#include "traces/TracesToGive.h"

#include <algorithm>
#include <utility>

namespace traces {

TracesToGive::TracesToGive(const VORN::TraceSelection& wanted,
                           std::optional<VORN::NumberRanges> positionsGiven)
    : selection(wanted), part(std::move(positionsGiven))
{
}

std::string TracesToGive::text(const std::string& partText) const
{
    if (!part)
        return selection.text();
    return selection.text() + (selection.isEmpty() ? "part " : ", part ") + partText;
}

int64_t TracesToGive::add(int64_t traces, const VORN::TraceSelection::WordOf& wordOf)
{
    File file{traces, 0, 0, 0};
    if (part)
        file.given = addPart(file, wordOf);
    else
        file.given = selection.count(traces, wordOf);
    if (file.given > 0)
        lastGiven = files.size();
    files.push_back(file);
    remaining += file.given;
    return file.given;
}

// Finds the first trace of the file that is in the part. Behind the last position of the part,
// nothing is looked at.
int64_t TracesToGive::addPart(File& file, const VORN::TraceSelection::WordOf& wordOf)
{
    const int64_t before = positions;
    const std::optional<int64_t> first = part->next(before + 1);
    if (!first)
        return 0;
    if (!selection.readsHeaders()) {
        positions += selection.count(file.traces, wordOf);
        if (*first > positions)
            return 0;
        file.position = *first;
        file.index = selection.skip(selection.next(0, file.traces, wordOf), *first - before - 1,
                                    file.traces, wordOf);
        return part->count(*first, positions);
    }
    const int64_t last = part->greatest();
    int64_t given = 0;
    for (int64_t i = selection.next(0, file.traces, wordOf); i < file.traces;
         i = selection.next(i + 1, file.traces, wordOf))
    {
        ++positions;
        if (positions == *first) {
            file.position = positions;
            file.index = i;
        }
        if (part->contains(positions))
            ++given;
        if (positions == last)
            break;
    }
    return given;
}

std::optional<std::pair<TracePlace, TracePlace>> TracesToGive::endsByNumber() const
{
    if (part || selection.isEmpty() || selection.readsHeaders() || remaining == 0)
        return std::nullopt;
    const auto isGiven = [](const File& file) { return file.given > 0; };
    const auto firstFile = std::find_if(files.begin(), files.end(), isGiven);
    const File& lastFile = files[lastGiven];
    const VORN::TraceSelection::WordOf noWords; // is not called
    const TracePlace first = {static_cast<std::size_t>(firstFile - files.begin()),
                              selection.next(0, firstFile->traces, noWords)};
    const TracePlace last = {lastGiven,
                             selection.skip(selection.next(0, lastFile.traces, noWords),
                                            lastFile.given - 1, lastFile.traces, noWords)};
    return std::pair(first, last);
}

std::vector<int64_t> TracesToGive::tracesOfFiles() const
{
    std::vector<int64_t> traces;
    traces.reserve(files.size());
    for (const File& one : files)
        traces.push_back(one.traces);
    return traces;
}

std::size_t TracesToGive::file()
{
    if (sorted)
        return sorted->peek().file;
    while (files[current].given == 0 && current + 1 < files.size()) {
        ++current;
        isFirst = true;
    }
    return current;
}

int64_t TracesToGive::next(const VORN::TraceSelection::WordOf& wordOf)
{
    if (sorted)
        return sorted->take().index;
    File& now = files[file()];
    if (!part) {
        now.index = selection.next(isFirst ? 0 : now.index + 1, now.traces, wordOf);
    } else if (!isFirst) {
        const int64_t position = part->next(now.position + 1).value_or(now.position);
        now.index = selection.skip(now.index, position - now.position, now.traces, wordOf);
        now.position = position;
    }
    isFirst = false;
    --now.given;
    --remaining;
    return now.index;
}

} // namespace traces
