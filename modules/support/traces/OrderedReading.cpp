#include "traces/OrderedReading.h"

#include "MOXKernel.h"
#include "order/PositionSorter.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <unistd.h>

namespace traces {

namespace {

// Of a window of traces that are read ahead.
constexpr int64_t windowBytes = int64_t{32} << 20;
// All files are open while they are read in jumps.
constexpr std::size_t mostFiles = 64;

std::vector<const VORN::HeaderWord*> wordsOf(const OrderRequest& request,
                                             const HeaderToAttributes& words)
{
    std::vector<const VORN::HeaderWord*> found;
    found.reserve(request.keys.size());
    for (const OrderKey& key : request.keys)
        found.push_back(words.integerWord(key.word));
    return found;
}

// Walks through a copy of what is to be given.
void addTraces(const std::vector<const VORN::HeaderWord*>& words, const FilesInOrder& files,
               TracesToGive all, order::PositionSorter& sorter)
{
    std::vector<int64_t> starts = {0};
    for (const int64_t traces : all.tracesOfFiles())
        starts.push_back(starts.back() + traces);
    std::array<int32_t, order::PositionSorter::mostKeys> values = {};
    std::size_t file = starts.size();
    VORN::TraceSelection::WordOf wordOf;
    bool little = false;
    while (all.left() > 0) {
        if (all.file() != file) {
            file = all.file();
            wordOf = files.wordOf(file);
            little = files.isLittleEndian(file);
        }
        const int64_t index = all.next(wordOf);
        const unsigned char* header = files.header(file, index);
        for (std::size_t i = 0; i < words.size(); ++i)
            values[i] = VORN::readWord(header, *words[i], little);
        sorter.add(values.data(), starts[file] + index);
    }
}

order::PositionList orderOf(const OrderRequest& request,
                            const std::vector<const VORN::HeaderWord*>& words,
                            const FilesInOrder& files, const TracesToGive& given, int64_t traces)
{
    if (!request.file.empty() && access(request.file.c_str(), F_OK) == 0)
        return {request.file, traces};
    std::vector<bool> descending;
    for (const OrderKey& key : request.keys)
        descending.push_back(key.descending);
    const char* scratch = getScratchDir();
    const std::string directory = scratch != nullptr ? scratch : "";
    order::PositionSorter sorter(descending, directory);
    addTraces(words, files, given, sorter);
    order::PositionWriter writer(request.file, directory, traces);
    sorter.finish(writer);
    return writer.finish();
}

} // namespace

std::optional<OrderRequest> orderRequest(const HeaderToAttributes& words, std::size_t files)
{
    std::optional<OrderRequest> request = orderRequest();
    if (!request || files > mostFiles || request->keys.empty() ||
        request->keys.size() > order::PositionSorter::mostKeys)
        return std::nullopt;
    const auto found = wordsOf(*request, words);
    if (std::find(found.begin(), found.end(), nullptr) != found.end())
        return std::nullopt;
    return request;
}

void sortTraces(const OrderRequest& request, const HeaderToAttributes& words,
                const FilesInOrder& files, const std::optional<VORN::NumberRanges>& part,
                TracesToGive& given)
{
    const std::vector<int64_t> traces = given.tracesOfFiles();
    const int64_t all = std::accumulate(traces.begin(), traces.end(), int64_t{0});
    const int64_t window =
        std::clamp<int64_t>(windowBytes / std::max<int64_t>(1, files.traceBytes), 16, 1 << 16);
    given.reorder(SortedTraces(orderOf(request, wordsOf(request, words), files, given, all), traces,
                               request.file.empty() ? std::nullopt : part, files.willRead, window));
    acceptOrder(request);
}

} // namespace traces
