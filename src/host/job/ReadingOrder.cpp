#include "job/ReadingOrder.h"

#include "job/ModuleWords.h"

#include <algorithm>

namespace host {

namespace {

// The only module without inputs; -1 where there are several, or a module has more than one input.
int onlySource(const ResolvedJob& job)
{
    int source = -1;
    for (std::size_t i = 0; i < job.modules.size(); ++i) {
        const std::size_t inputs = job.modules[i].inputs.size();
        if (inputs > 1 || (inputs == 0 && source >= 0))
            return -1;
        if (inputs == 0)
            source = static_cast<int>(i);
    }
    return source;
}

// The module that takes the traces of `source` if it is the only one; null otherwise.
const ResolvedModule* onlyReader(const ResolvedJob& job, int source)
{
    const std::vector<int>& consumers = job.modules[static_cast<std::size_t>(source)].consumers;
    if (consumers.size() != 1 || consumers.front() != 1)
        return nullptr;
    for (const ResolvedModule& module : job.modules) {
        if (!module.inputs.empty() && module.inputs.front().module == source)
            return &module;
    }
    return nullptr;
}

// As the module reads them: blanks around words do not count. None where it would refuse them.
std::vector<std::string> keysOf(const ResolvedModule& sorter)
{
    const ResolvedParameter* parameter = findParameter(sorter, parallelOf(sorter).sortParameter);
    if (parameter == nullptr || !parameter->value.items)
        return {};
    std::vector<std::string> keys;
    std::vector<std::string> words;
    for (const std::string& item : *parameter->value.items) {
        const bool descends = item.starts_with('-');
        const std::string word = item.substr(descends ? 1 : 0);
        if (word.empty() || word.find_first_of(" \t\r\n,-") != std::string::npos ||
            std::find(words.begin(), words.end(), word) != words.end())
            return {};
        words.push_back(word);
        keys.push_back(item);
    }
    return keys;
}

} // namespace

std::optional<ReadingOrder> readingOrderOf(const ResolvedJob& job)
{
    const int source = onlySource(job);
    if (source < 0 || !parallelOf(job.modules[static_cast<std::size_t>(source)]).sortable)
        return std::nullopt;
    const ResolvedModule* sorter = onlyReader(job, source);
    if (sorter == nullptr || parallelOf(*sorter).sortParameter.empty())
        return std::nullopt;
    std::vector<std::string> keys = keysOf(*sorter);
    if (keys.empty())
        return std::nullopt;
    return ReadingOrder{source, sorter->name, std::move(keys), ""};
}

} // namespace host
