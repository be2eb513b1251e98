#include "parts/Stages.h"

#include "base/Numbers.h"
#include "base/Text.h"
#include "job/ModuleWords.h"

#include <algorithm>
#include <fmt/format.h>
#include <set>

namespace host {

namespace {

std::size_t at(int index)
{
    return static_cast<std::size_t>(index);
}

bool isSameText(const ParameterSpec& spec, const std::string& a, const std::string& b)
{
    if (spec.type == ParameterType::boolean)
        return parseBoolean(a) == parseBoolean(b);
    const auto number = parseNumber(b);
    return number ? parseNumber(a) == number : a == b;
}

// As rules between parameters understand it: other than the default, and not empty.
bool isGiven(const ResolvedModule& module, const ResolvedParameter& parameter)
{
    const ParameterSpec* spec = module.manifest->find(parameter.name);
    if (spec == nullptr || !parameter.given || parameter.value.text.empty())
        return false;
    const YamlValue& usual = spec->defaultValue;
    if (usual == nullptr)
        return spec->type != ParameterType::boolean ||
               parseBoolean(parameter.value.text).value_or(true);
    return !usual->isScalar() || !isSameText(*spec, parameter.value.text, usual->text);
}

bool holds(const ResolvedModule& module, const ParallelCondition& condition)
{
    const ResolvedParameter* parameter = findParameter(module, condition.parameter);
    if (parameter == nullptr)
        return false;
    if (condition.values.empty())
        return isGiven(module, *parameter);
    const ParameterSpec& spec = *module.manifest->find(condition.parameter);
    return std::any_of(
        condition.values.begin(), condition.values.end(),
        [&](const std::string& value) { return isSameText(spec, parameter->value.text, value); });
}

const ParallelCondition* firstThatHolds(const ResolvedModule& module,
                                        const std::vector<ParallelCondition>& conditions)
{
    const auto found =
        std::find_if(conditions.begin(), conditions.end(),
                     [&](const ParallelCondition& one) { return holds(module, one); });
    return found != conditions.end() ? &*found : nullptr;
}

int64_t blockOf(const ResolvedModule& module)
{
    const ResolvedParameter* parameter = findParameter(module, parallelOf(module).blockParameter);
    const auto number = parameter != nullptr ? parseInteger(parameter->value.text) : std::nullopt;
    return number && *number > 0 ? *number : 0;
}

bool writesFile(const ResolvedModule& module)
{
    return std::any_of(module.parameters.begin(), module.parameters.end(),
                       [](const ResolvedParameter& one) { return one.isOutputFile; });
}

// Which traces pass a port, as far as their count goes: ports with the same origin give one trace
// for one. The sources of a job in parts have one origin, since they are cut at the same places.
struct Origin
{
    int module = -1; ///< -1: the sources; else the module that has changed the count
    int port = 0;

    bool isOfSources() const { return module < 0; }
    bool operator==(const Origin& other) const
    {
        return module == other.module && port == other.port;
    }
};

class Staging
{
public:
    Staging(const ResolvedJob& given, const std::map<int, int64_t>& numbers)
        : job(given), traces(numbers), origins(job.modules.size()), sourcesOf(job.modules.size()),
          written(job.modules.size())
    {
        result.modules.resize(job.modules.size());
    }

    Stages run()
    {
        findLargest();
        for (const int module : inOrder())
            place(module);
        withdrawIdleSources();
        collect();
        return result;
    }

private:
    // Producers before their readers.
    std::vector<int> inOrder() const
    {
        std::vector<int> order;
        std::vector<bool> placed(job.modules.size(), false);
        for (bool grown = true; grown;) {
            grown = false;
            for (std::size_t i = 0; i < job.modules.size(); ++i) {
                const auto& inputs = job.modules[i].inputs;
                const bool isReady =
                    std::all_of(inputs.begin(), inputs.end(),
                                [&](const ResolvedInput& one) { return placed[at(one.module)]; });
                if (placed[i] || !isReady)
                    continue;
                placed[i] = grown = true;
                order.push_back(static_cast<int>(i));
            }
        }
        return order;
    }

    void findLargest()
    {
        for (const int source : rangeSourcesOf(job)) {
            const auto known = traces.find(source);
            if (known != traces.end() && (largest < 0 || known->second > traces.at(largest)))
                largest = source;
        }
    }

    const std::string& nameOf(int module) const { return job.modules[at(module)].name; }

    void place(int module)
    {
        PlannedModule& planned = result.modules[at(module)];
        planned.name = nameOf(module);
        std::string reason = obstacle(module);
        planned.stage = reason.empty() ? Stage::parts : Stage::merge;
        planned.reason = reason.empty() ? virtue(module) : std::move(reason);
        if (planned.stage == Stage::parts)
            notePassing(module);
    }

    // What keeps a module from the first stage; empty: nothing.
    std::string obstacle(int module) const
    {
        const ResolvedModule& one = job.modules[at(module)];
        const ParallelSpec& spec = parallelOf(one);
        for (const ResolvedInput& input : one.inputs) {
            if (result.modules[at(input.module)].stage == Stage::merge)
                return fmt::format("{} reads {}, which does not run in parts", one.name,
                                   nameOf(input.module));
        }
        if (one.manifest == nullptr)
            return one.name + " has no manifest that says how it runs in parts";
        if (!spec.given)
            return fmt::format("the manifest of {} does not say how {} runs in parts", one.module,
                               one.name);
        if (spec.work == ParallelWork::whole && !isSorted(module))
            return one.name + " needs all traces";
        if (const ParallelCondition* condition = firstThatHolds(one, spec.wholeWhen))
            return fmt::format("{} needs all traces with {}", one.name, textOf(one, *condition));
        if (countsInFormulas(one))
            return one.name + " counts traces or gathers in a formula";
        if (spec.work != ParallelWork::sink && !spec.merge && writesFile(one))
            return one.name + " writes a file of all traces";
        if (spec.work == ParallelWork::source)
            return obstacleOfSource(module);
        std::string reason = obstacleOfCounts(module);
        return reason.empty() ? obstacleOfWords(module) : reason;
    }

    // Whether it is the module that sorts, and its source gives the traces sorted.
    bool isSorted(int module) const
    {
        return job.order && job.order->sorter == nameOf(module) &&
               result.isInParts(job.order->source);
    }

    // "every 3", "operation concatenate"
    static std::string textOf(const ResolvedModule& module, const ParallelCondition& condition)
    {
        const ResolvedParameter* parameter = findParameter(module, condition.parameter);
        if (parameter->value.items)
            return condition.parameter;
        return condition.parameter + " " + parameter->value.text;
    }

    std::string obstacleOfSource(int module) const
    {
        const ResolvedModule& one = job.modules[at(module)];
        const std::string& range = parallelOf(one).rangeParameter;
        if (findParameter(one, range) != nullptr)
            return fmt::format("{} has a range of its own ({}), by which the job would be cut",
                               one.name, range);
        const auto known = traces.find(module);
        if (known == traces.end() || largest < 0 || known->second == traces.at(largest))
            return "";
        return fmt::format("{} gives {}, and {} gives {}: they cannot be cut at the same places",
                           nameOf(module), counted(known->second, "trace"), nameOf(largest),
                           traces.at(largest));
    }

    std::string obstacleOfCounts(int module) const
    {
        const ResolvedModule& one = job.modules[at(module)];
        const ParallelSpec& spec = parallelOf(one);
        for (const ResolvedInput& input : one.inputs) {
            const Origin origin = originOf(input);
            if (!(origin == originOf(one.inputs.front())))
                return fmt::format("{} reads inputs with different counts of traces", one.name);
            if (origin.isOfSources())
                continue;
            const std::string& changer = nameOf(origin.module);
            if (spec.work == ParallelWork::gather)
                return fmt::format("{} works on gathers, and {} before it changes the count of "
                                   "traces",
                                   one.name, changer);
            if (spec.work == ParallelWork::sink)
                return fmt::format("{} writes each trace to its place in the file, and {} before "
                                   "it changes the count of traces",
                                   one.name, changer);
            if (const ParallelCondition* condition = firstThatHolds(one, spec.numberedWhen))
                return fmt::format("{} looks at numbers of traces with {}, and {} before it "
                                   "changes their count",
                                   one.name, textOf(one, *condition), changer);
        }
        return "";
    }

    // Parts are cut by the words that the sources give.
    std::string obstacleOfWords(int module) const
    {
        const ResolvedModule& one = job.modules[at(module)];
        if (parallelOf(one).work != ParallelWork::gather)
            return "";
        for (const std::string& word : gatherWords(one)) {
            for (const ResolvedInput& input : one.inputs) {
                const auto writer = written[at(input.module)].find(word);
                if (writer != written[at(input.module)].end())
                    return fmt::format("{} groups by {}, which {} writes", one.name, word,
                                       nameOf(writer->second));
            }
        }
        return "";
    }

    std::string virtue(int module) const
    {
        const ResolvedModule& one = job.modules[at(module)];
        switch (parallelOf(one).work) {
        case ParallelWork::whole:
            return fmt::format("{} takes the traces of {} sorted by {}", one.name,
                               nameOf(job.order->source), enumerated(job.order->keys, "and"));
        case ParallelWork::source:
            return one.name + " gives ranges of its " +
                   (job.order && job.order->source == module ? "sorted " : "") + "traces";
        case ParallelWork::sink:
            return one.name + " writes its range of the file";
        case ParallelWork::gather: {
            const std::vector<std::string> words = gatherWords(one);
            const int64_t block = blockOf(one);
            if (words.empty())
                return block > 0 ? fmt::format("{} works on groups of {}", one.name,
                                               counted(block, "trace"))
                                 : one.name + " works on one gather of all traces";
            return fmt::format("{} works on gathers of {}{}", one.name, enumerated(words, "and"),
                               block > 0 ? ", in blocks of " + counted(block, "trace") : "");
        }
        default:
            return one.name + " works trace by trace";
        }
    }

    Origin originOf(const ResolvedInput& input) const
    {
        const auto& ports = origins[at(input.module)];
        const auto known = ports.find(input.port);
        return known != ports.end() ? known->second : Origin{};
    }

    // The counts, sources and words of what leaves a module of the first stage.
    void notePassing(int module)
    {
        const ResolvedModule& one = job.modules[at(module)];
        const ParallelSpec& spec = parallelOf(one);
        for (std::size_t port = 0; port < one.consumers.size(); ++port) {
            const int number = static_cast<int>(port);
            if (spec.count != ParallelCount::same)
                origins[at(module)][number] = {module, number};
            else if (!one.inputs.empty())
                origins[at(module)][number] = originOf(one.inputs.front());
        }
        if (spec.work == ParallelWork::source) {
            sourcesOf[at(module)] = {module};
            return; // its words are those by which parts are cut
        }
        for (const ResolvedInput& input : one.inputs) {
            const std::set<int>& sources = sourcesOf[at(input.module)];
            sourcesOf[at(module)].insert(sources.begin(), sources.end());
            written[at(module)].insert(written[at(input.module)].begin(),
                                       written[at(input.module)].end());
        }
        for (const std::string& word : wordsWritten(one))
            written[at(module)][word] = module;
    }

    // Likewise a module that sorts: to sort in parts pays only where something else is done there.
    void withdrawIdleSources()
    {
        for (std::size_t i = 0; i < job.modules.size(); ++i) {
            PlannedModule& planned = result.modules[i];
            const auto module = static_cast<int>(i);
            if (planned.stage == Stage::parts && isSorted(module) && !isReadInParts(module)) {
                planned.stage = Stage::merge;
                planned.reason = planned.name + " needs all traces";
            }
        }
        for (std::size_t i = 0; i < job.modules.size(); ++i) {
            PlannedModule& planned = result.modules[i];
            if (planned.stage != Stage::parts ||
                parallelOf(job.modules[i]).work != ParallelWork::source)
                continue;
            if (isReadInParts(static_cast<int>(i)))
                continue;
            planned.stage = Stage::merge;
            planned.reason = planned.name + " has no reader that runs in parts";
        }
    }

    bool isReadInParts(int module) const
    {
        for (std::size_t i = 0; i < job.modules.size(); ++i) {
            for (const ResolvedInput& input : job.modules[i].inputs) {
                if (input.module == module && result.modules[i].stage == Stage::parts)
                    return true;
            }
        }
        return false;
    }

    void collect()
    {
        std::set<std::pair<int, int>> ports; // that wait for the second stage
        for (std::size_t i = 0; i < job.modules.size(); ++i) {
            const ResolvedModule& one = job.modules[i];
            const int module = static_cast<int>(i);
            if (result.modules[i].stage == Stage::merge) {
                for (const ResolvedInput& input : one.inputs) {
                    if (result.isInParts(input.module))
                        ports.insert({input.module, input.port});
                }
                continue;
            }
            const ParallelSpec& spec = parallelOf(one);
            if (spec.work == ParallelWork::source)
                result.sources.push_back(module);
            if (spec.work == ParallelWork::gather) {
                for (const int source : sourcesOf[i])
                    result.gathers.push_back({module, source, gatherWords(one), blockOf(one)});
            }
            if (spec.work == ParallelWork::sink)
                collectSink(module);
        }
        for (const auto& [module, port] : ports)
            result.spools.push_back({module, port});
    }

    void collectSink(int module)
    {
        const ResolvedModule& one = job.modules[at(module)];
        for (const ResolvedParameter& parameter : one.parameters) {
            if (parameter.isOutputFile)
                result.sinks.push_back(
                    {module, *sourcesOf[at(module)].begin(), parameter.value.text});
        }
    }

    const ResolvedJob& job;
    const std::map<int, int64_t>& traces;
    int largest = -1;                           ///< the source with the most traces
    std::vector<std::map<int, Origin>> origins; ///< by module and port; none: of the sources
    std::vector<std::set<int>> sourcesOf;       ///< by module: those whose traces reach it
    std::vector<std::map<std::string, int>>
        written; ///< by module: words that have been written, and the module
    Stages result;
};

} // namespace

std::vector<int> rangeSourcesOf(const ResolvedJob& job)
{
    std::vector<int> sources;
    for (std::size_t i = 0; i < job.modules.size(); ++i) {
        if (parallelOf(job.modules[i]).work == ParallelWork::source)
            sources.push_back(static_cast<int>(i));
    }
    return sources;
}

Stages stagesOf(const ResolvedJob& job, const std::map<int, int64_t>& traces)
{
    return Staging(job, traces).run();
}

} // namespace host
