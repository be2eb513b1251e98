#include "run/CutGathers.h"

#include "base/Text.h"
#include "job/ModuleWords.h"

#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <set>
#include <sstream>

namespace host {

namespace {

// The source whose traces reach a module one for one, in their order, with these words.
std::optional<std::size_t> sourceOf(const ResolvedJob& job, std::size_t module,
                                    const std::vector<std::string>& words)
{
    while (!job.modules[module].inputs.empty()) {
        if (job.modules[module].inputs.size() > 1)
            return std::nullopt;
        module = static_cast<std::size_t>(job.modules[module].inputs.front().module);
        const ResolvedModule& before = job.modules[module];
        if (before.inputs.empty())
            return module;
        const ParallelSpec& spec = parallelOf(before);
        if (!spec.given || spec.count != ParallelCount::same ||
            (spec.work != ParallelWork::trace && spec.work != ParallelWork::gather))
            return std::nullopt;
        const std::vector<std::string> written = wordsWritten(before);
        if (std::any_of(words.begin(), words.end(), [&](const std::string& word) {
                return std::find(written.begin(), written.end(), word) != written.end();
            }))
            return std::nullopt;
    }
    return std::nullopt;
}

// The sentence for a line of a note; "" where the gather ends with the selection.
std::string sentence(const std::string& line, const std::vector<std::string>& words,
                     const std::string& source)
{
    std::istringstream pieces(line);
    std::string end;
    std::string neighbour;
    pieces >> end >> neighbour;
    std::set<std::string> common;
    for (std::string piece; pieces >> piece;)
        common.insert(piece);
    std::vector<std::string> values;
    for (const std::string& word : words) {
        const auto found = common.lower_bound(word + "=");
        if (found == common.end() || !found->starts_with(word + "="))
            return "";
        values.push_back(*found);
    }
    return fmt::format("its {} gather is cut: trace {} of the file, {} that {} takes, has {}, too; "
                       "select whole gathers, unless this is meant",
                       end, neighbour,
                       end == "first" ? "right before the first one" : "right behind the last one",
                       source, enumerated(values, "and"));
}

} // namespace

std::vector<CutGather>
cutGathers(const ResolvedJob& job,
           const std::function<std::string(const std::string& source)>& noteOf)
{
    std::vector<CutGather> cut;
    for (std::size_t i = 0; i < job.modules.size(); ++i) {
        if (parallelOf(job.modules[i]).work != ParallelWork::gather)
            continue;
        const std::vector<std::string> words = gatherWords(job.modules[i]);
        const auto source = words.empty() ? std::nullopt : sourceOf(job, i, words);
        if (!source)
            continue;
        std::istringstream lines(noteOf(job.modules[*source].name));
        for (std::string line; std::getline(lines, line);) {
            std::string text = sentence(line, words, job.modules[*source].name);
            if (!text.empty())
                cut.push_back({i, std::move(text)});
        }
    }
    return cut;
}

} // namespace host
