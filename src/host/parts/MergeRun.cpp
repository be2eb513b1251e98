#include "parts/MergeRun.h"

#include "JobManager.h"
#include "ModuleEntity.h"
#include "base/CommandError.h"
#include "base/Text.h"
#include "parts/PartEntries.h"
#include "run/JobRunner.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <map>

namespace host {

namespace {

constexpr int64_t segyTraceHeaderBytes = 240;

// Joins the ranges of a word in `later` traces to those of the traces before.
void join(HeaderRange& before, const HeaderRange& later)
{
    before.minimum = std::min(before.minimum, later.minimum);
    before.maximum = std::max(before.maximum, later.maximum);
    before.changes += later.changes + (before.last != later.first ? 1 : 0);
    before.last = later.last;
}

// A word that was always 0 has no entry.
void joinWords(std::vector<HeaderRange>& words, const std::vector<HeaderRange>& later)
{
    for (const HeaderRange& word : later) {
        if (std::none_of(words.begin(), words.end(),
                         [&](const HeaderRange& one) { return one.word == word.word; }))
            words.push_back({word.word, word.description, 0, 0, 0, 0, 0});
    }
    for (HeaderRange& word : words) {
        const auto known = std::find_if(later.begin(), later.end(), [&](const HeaderRange& one) {
            return one.word == word.word;
        });
        join(word, known != later.end() ? *known : HeaderRange{word.word, "", 0, 0, 0, 0, 0});
    }
}

// How many messages with the key a job shows: the number behind a blank, or one.
int mostOf(const std::string& onceKey)
{
    const std::size_t blank = onceKey.rfind(' ');
    return blank == std::string::npos ? 1 : std::atoi(onceKey.c_str() + blank + 1);
}

} // namespace

MergeRun::MergeRun(const Plan& made, const std::string& planDirectory, std::vector<Receipt> ofParts)
    : plan(made), directory(planDirectory), receipts(std::move(ofParts))
{
}

void MergeRun::prepared(const RunView& view)
{
    for (const ResolvedAttribute& attribute : view.job.attributes)
        attributes.push_back(attribute.name);
    stage.emplace(view, plan, directory);
}

void MergeRun::processing(const RunView& view)
{
    repeatMessages(view);
    if (receipts.empty() || receipts.back().failed)
        throw CommandError("", view.result.exitCode);
    mergeStates(view);
}

void MergeRun::repeatMessages(const RunView& view) const
{
    std::map<std::pair<std::string, std::string>, int> told; // by module and key
    for (const Receipt& receipt : receipts) {
        for (const PartMessage& one : receipt.messages) {
            if (one.onceKey.empty() ||
                ++told[{one.message.module, one.onceKey}] <= mostOf(one.onceKey))
                view.runner.repeat(one.message);
        }
        view.result.messagesLeftOut += receipt.messagesLeftOut;
    }
}

void MergeRun::mergeStates(const RunView& view) const
{
    for (std::size_t i = 0; i < view.modules.size(); ++i) {
        if (plan.modules[i].stage != Stage::parts)
            continue;
        ModuleEntity& module = *view.modules[i];
        const PartEntry entry = findPartEntry(view.job.modules[i], module, "merge_");
        if (entry == nullptr)
            continue;
        for (const Receipt& receipt : receipts) {
            const std::string path = statePath(directory, receipt.part, module.getName());
            callPartEntry(
                view, module, entry, path,
                fmt::format("what part {} has saved cannot be merged; run that part again",
                            receipt.part));
        }
    }
}

void MergeRun::processed(const RunView& /*view*/, bool /*good*/)
{
    stage.reset();
}

void MergeRun::addTo(RunModule& row, std::size_t place) const
{
    if (plan.modules[place].stage != Stage::parts)
        return;
    RunStatistics& statistics = row.statistics;
    statistics.tracesIn = statistics.tracesOut = 0;
    for (const Receipt& receipt : receipts) {
        for (const PartModule& module : receipt.modules) {
            if (module.name != row.name)
                continue;
            statistics.tracesIn += module.tracesIn;
            statistics.tracesOut += module.tracesOut;
            statistics.processMicros += module.processMicros;
            statistics.peakBytes = std::max(statistics.peakBytes, module.peakBytes);
        }
    }
}

void MergeRun::addTo(SourceData& source) const
{
    bool isFirst = true;
    for (const Receipt& receipt : receipts) {
        for (const SourceData& part : receipt.sources) {
            if (part.module != source.module || part.traces == 0)
                continue;
            source.traces += part.traces;
            source.samples = part.samples;
            source.intervalMicros = part.intervalMicros;
            if (isFirst)
                source.words = part.words;
            else
                joinWords(source.words, part.words);
            isFirst = false;
        }
    }
    // In the order of the schema, as they are noted.
    std::stable_sort(source.words.begin(), source.words.end(),
                     [&](const HeaderRange& a, const HeaderRange& b) {
                         return std::find(attributes.begin(), attributes.end(), a.word) <
                                std::find(attributes.begin(), attributes.end(), b.word);
                     });
}

void MergeRun::ended(RunResult& result)
{
    for (std::size_t i = 0; i < result.modules.size(); ++i)
        addTo(result.modules[i], i);
    result.sourceTraces = result.sourceBytes = 0;
    for (SourceData& source : result.sources) {
        const bool inParts =
            std::any_of(plan.modules.begin(), plan.modules.end(), [&](const PlannedModule& module) {
                return module.name == source.module && module.stage == Stage::parts;
            });
        if (inParts) {
            source.traces = 0;
            addTo(source);
        }
        result.sourceTraces += source.traces;
        result.sourceBytes += source.traces * (segyTraceHeaderBytes + 4 * int64_t{source.samples});
    }
    for (const Receipt& receipt : receipts) {
        result.peakJobBytes = std::max(result.peakJobBytes, receipt.peakJobBytes);
        result.busyMicros += receipt.wallMicros;
    }
    result.parts = static_cast<int>(receipts.size());
}

} // namespace host
