#include "parts/Cuts.h"

#include "parts/HeaderScan.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <optional>
#include <string>

namespace host {

namespace {

// Traces that are read at first behind the end of a share. Most shot gathers end within a few times
// as many, and each step doubles them.
constexpr int64_t firstWindow = 64;
constexpr int64_t largestWindow = 1 << 16;

// Whether the rule sees a change from one trace to the next. A value that is not a number equals
// only itself.
bool differs(const CutRule& rule, const double* before, const double* behind)
{
    return std::any_of(rule.columns.begin(), rule.columns.end(), [&](std::size_t column) {
        const double a = before[column];
        const double b = behind[column];
        return a != b && !(std::isnan(a) && std::isnan(b));
    });
}

// Whether the traces of a run are counted.
bool hasBlocks(const CutRule& rule)
{
    return rule.block > 1 && !rule.columns.empty();
}

enum class Answer
{
    no,
    yes,
    unknown ///< more has to be read
};

Answer answer(bool isSo)
{
    return isSo ? Answer::yes : Answer::no;
}

/// The end of a share, on its way to the next place that suits all rules.
///
/// Traces behind it are looked at one by one. Where a rule has blocks, they count from the first
/// trace of the run, which may lie far before: it is looked for backwards, up to the end of the
/// share before, which then knows more.
class Candidate
{
public:
    /// `last` is the end of the next share: from there on, that one searches. `previous` is the one
    /// before, or null.
    Candidate(const std::vector<CutRule>& cutRules, std::size_t values, int64_t begin, int64_t last,
              Candidate* previous)
        : rules(&cutRules), width(values), place(begin), limit(last), before(previous), next(begin),
          low(begin - 1), high(begin - 1), firstRuns(cutRules.size()), runs(cutRules.size())
    {
    }

    /// Goes on as far as the traces are known.
    void advance()
    {
        wantsBehind = false;
        while (!isFound && next < limit) {
            const Answer boundary = isBoundary();
            if (boundary == Answer::unknown)
                return;
            isFound = boundary == Answer::yes;
            if (!isFound)
                step();
        }
    }

    bool isSearching() const { return !isFound && next < limit; }

    /// Has the end of the share before look back, where its runs reach up to here.
    void ask() const
    {
        if (before != nullptr && needsRuns() && low <= floor())
            before->wantsBefore = true;
    }

    /// Takes over what the end of the share before knows of runs that reach up to here.
    void inherit()
    {
        if (!needsRuns() || low > floor())
            return;
        for (std::size_t i = 0; i < rules->size(); ++i) {
            if (firstRuns[i])
                continue;
            if (before == nullptr)
                learn(i, 0);
            else if (before->firstRuns[i])
                learn(i, *before->firstRuns[i]);
        }
    }

    /// The place that was found; nothing as long as none is, and where the next share searches on.
    std::optional<int64_t> found() const { return isFound ? std::optional(next) : std::nullopt; }

    /// What is to be read now; nothing when the search has ended and nobody waits for more.
    std::vector<PlannedPart> wanted()
    {
        std::vector<PlannedPart> ranges;
        if (needsRuns() && low > floor()) {
            const int64_t first = std::max(floor(), low - window);
            ranges.push_back({first, low - first});
        }
        if (wantsBehind) {
            const int64_t last = std::min(limit, std::max(high, place) + window);
            ranges.push_back({high, last - high});
        }
        if (!ranges.empty())
            window = std::min(2 * window, largestWindow);
        return ranges;
    }

    /// The values of a range that was wanted.
    void take(const PlannedPart& range, const double* given)
    {
        if (range.first == high)
            takeBehind(range, given);
        else
            takeBefore(range, given);
    }

private:
    // Where looking back ends: the trace before the end of the share before.
    int64_t floor() const { return before != nullptr ? before->place - 1 : 0; }

    const double* valuesOf(int64_t trace) const
    {
        return ahead.data() + static_cast<std::size_t>(trace - firstAhead) * width;
    }

    // Whether `next` may begin a part.
    Answer isBoundary()
    {
        if (width > 0 && next >= high) {
            wantsBehind = true;
            return Answer::unknown;
        }
        Answer all = Answer::yes;
        for (std::size_t i = 0; i < rules->size(); ++i) {
            const Answer one = isBoundary((*rules)[i], runs[i]);
            if (one == Answer::no)
                return one; // whatever the others say
            if (one == Answer::unknown)
                all = one;
        }
        return all;
    }

    Answer isBoundary(const CutRule& rule, const std::optional<int64_t>& run)
    {
        if (rule.columns.empty())
            return answer(next % rule.block == 0);
        if (rule.block == 1 || differs(rule, valuesOf(next - 1), valuesOf(next)))
            return Answer::yes;
        if (rule.block == 0)
            return Answer::no;
        if (!run) {
            wantsBefore = true;
            return Answer::unknown;
        }
        return answer((next - *run) % rule.block == 0);
    }

    // Notes which runs begin at `next`, and goes past it.
    void step()
    {
        for (std::size_t i = 0; i < rules->size(); ++i) {
            if (!(*rules)[i].columns.empty() &&
                differs((*rules)[i], valuesOf(next - 1), valuesOf(next)))
                runs[i] = next;
        }
        ++next;
    }

    void takeBehind(const PlannedPart& range, const double* given)
    {
        if (ahead.empty()) {
            firstAhead = range.first;
            lowValues.assign(given, given + width);
        } else {                           // of those behind us, only the last is needed
            const int64_t keep = next - 1; // next is high
            ahead.erase(ahead.begin(), ahead.begin() + (valuesOf(keep) - ahead.data()));
            firstAhead = keep;
        }
        ahead.insert(ahead.end(), given, given + static_cast<std::size_t>(range.count) * width);
        high = range.first + range.count;
    }

    void takeBefore(const PlannedPart& range, const double* given)
    {
        const double* behind = lowValues.data();
        for (int64_t trace = low; trace > range.first; --trace) {
            const double* here = given + static_cast<std::size_t>(trace - 1 - range.first) * width;
            for (std::size_t i = 0; i < rules->size(); ++i) {
                if (!firstRuns[i] && differs((*rules)[i], here, behind))
                    learn(i, trace);
            }
            behind = here;
        }
        lowValues.assign(given, given + width);
        low = range.first;
    }

    // Whether the run of a rule is asked for, and not known.
    bool needsRuns() const
    {
        if (!wantsBefore)
            return false;
        for (std::size_t i = 0; i < rules->size(); ++i) {
            if (!firstRuns[i] && hasBlocks((*rules)[i]))
                return true;
        }
        return false;
    }

    // The run of rule `i` that holds the trace before `place` begins at `trace`.
    void learn(std::size_t i, int64_t trace)
    {
        firstRuns[i] = trace;
        if (!runs[i])
            runs[i] = trace;
    }

    const std::vector<CutRule>* rules;
    std::size_t width;
    int64_t place;     ///< the end of the share
    int64_t limit;     ///< the end of the next one
    Candidate* before; ///< the end of the share before; null: none
    int64_t next;      ///< the trace that is looked at
    int64_t low;       ///< the first trace that has been seen
    int64_t high;      ///< the one behind the last that has been seen
    /// By rule: the first trace of the run that holds the trace before `place`, once it is known.
    std::vector<std::optional<int64_t>> firstRuns;
    /// Likewise of the trace before `next`.
    std::vector<std::optional<int64_t>> runs;
    std::vector<double> lowValues; ///< of trace `low`
    std::vector<double> ahead;     ///< of the traces from `firstAhead` to `high`
    int64_t firstAhead = 0;
    int64_t window = firstWindow;
    bool isFound = false;
    bool wantsBefore = false;
    bool wantsBehind = false;
};

// One request of a candidate.
struct Request
{
    Candidate* candidate;
    PlannedPart range;
};

// Reads what several candidates want at once. Where ranges overlap, their traces are read once.
void readFor(std::vector<Request>& requests, std::size_t width, const ValueReader& read)
{
    std::sort(requests.begin(), requests.end(),
              [](const Request& a, const Request& b) { return a.range.first < b.range.first; });
    std::vector<PlannedPart> ranges;
    std::vector<int64_t> offsets; // of each request in what is read, in traces
    int64_t offset = 0;           // of the last range
    for (const Request& request : requests) {
        const PlannedPart& one = request.range;
        if (!ranges.empty() && one.first <= ranges.back().first + ranges.back().count) {
            PlannedPart& last = ranges.back();
            last.count = std::max(last.count, one.first + one.count - last.first);
        } else {
            offset += ranges.empty() ? 0 : ranges.back().count;
            ranges.push_back(one);
        }
        offsets.push_back(offset + one.first - ranges.back().first);
    }
    const std::vector<double> values = read(ranges);
    for (std::size_t i = 0; i < requests.size(); ++i)
        requests[i].candidate->take(requests[i].range,
                                    values.data() + static_cast<std::size_t>(offsets[i]) * width);
}

// Until none of them searches any more.
void findAll(std::deque<Candidate>& candidates, std::size_t width, const ValueReader& read)
{
    const auto isSearching = [](const Candidate& candidate) { return candidate.isSearching(); };
    while (std::any_of(candidates.begin(), candidates.end(), isSearching)) {
        for (Candidate& candidate : candidates)
            candidate.advance();
        for (auto candidate = candidates.rbegin(); candidate != candidates.rend(); ++candidate)
            candidate->ask();
        std::vector<Request> requests;
        for (Candidate& candidate : candidates) {
            candidate.inherit();
            for (const PlannedPart& range : candidate.wanted())
                requests.push_back({&candidate, range});
        }
        if (!requests.empty())
            readFor(requests, width, read);
    }
}

} // namespace

std::vector<PlannedPart> cutsFor(int64_t traces, int64_t parts, const std::vector<CutRule>& rules,
                                 std::size_t width, const ValueReader& read)
{
    const bool isOneRun = std::any_of(rules.begin(), rules.end(), [](const CutRule& rule) {
        return rule.columns.empty() && rule.block == 0;
    });
    const int64_t shares = isOneRun ? 1 : std::max<int64_t>(1, std::min(parts, traces));
    // Without a product, which may be too large.
    const auto endOf = [whole = traces / shares, rest = traces % shares](int64_t share) {
        return share * whole + std::min(share, rest);
    };
    const bool needsValues = std::any_of(rules.begin(), rules.end(),
                                         [](const CutRule& rule) { return !rule.columns.empty(); });
    std::deque<Candidate> candidates; // which know each other
    for (int64_t share = 1; share < shares; ++share)
        candidates.emplace_back(rules, needsValues ? width : 0, endOf(share), endOf(share + 1),
                                candidates.empty() ? nullptr : &candidates.back());
    findAll(candidates, width, read);

    std::vector<PlannedPart> ranges;
    int64_t first = 0;
    for (const Candidate& candidate : candidates) {
        if (const std::optional<int64_t> place = candidate.found()) {
            ranges.push_back({first, *place - first});
            first = *place;
        }
    }
    ranges.push_back({first, traces - first});
    return ranges;
}

namespace {

// The words that gathers of one source have, and where they stand among all values of a trace.
struct SourceWords
{
    int source = 0;
    std::vector<std::string> words;
    std::size_t column = 0; ///< of the first word
};

std::vector<SourceWords> wordsOf(const Stages& stages)
{
    std::vector<SourceWords> all;
    for (const int source : stages.sources) {
        SourceWords one{source, {}, 0};
        for (const GatherRule& rule : stages.gathers) {
            if (rule.source != source)
                continue;
            for (const std::string& word : rule.words) {
                if (std::find(one.words.begin(), one.words.end(), word) == one.words.end())
                    one.words.push_back(word);
            }
        }
        if (!all.empty())
            one.column = all.back().column + all.back().words.size();
        all.push_back(one);
    }
    return all;
}

CutRule ruleOf(const GatherRule& gather, const std::vector<SourceWords>& all)
{
    CutRule rule;
    rule.block = gather.block;
    for (const SourceWords& one : all) {
        if (one.source != gather.source)
            continue;
        for (const std::string& word : gather.words) {
            const auto place = std::find(one.words.begin(), one.words.end(), word);
            rule.columns.push_back(one.column +
                                   static_cast<std::size_t>(place - one.words.begin()));
        }
    }
    return rule;
}

std::vector<double> valuesOfAll(const ResolvedJob& job, const std::vector<SourceWords>& all,
                                std::size_t width, const std::vector<PlannedPart>& ranges)
{
    std::size_t traces = 0;
    for (const PlannedPart& range : ranges)
        traces += static_cast<std::size_t>(range.count);
    std::vector<double> values(traces * width);
    for (const SourceWords& one : all) {
        const std::size_t count = one.words.size();
        if (count == 0)
            continue;
        const std::vector<double> given = headerValues(job, one.source, ranges, one.words);
        for (std::size_t trace = 0; trace < traces; ++trace)
            std::copy_n(given.data() + trace * count, count,
                        values.data() + trace * width + one.column);
    }
    return values;
}

} // namespace

std::vector<PlannedPart> cutsFor(const ResolvedJob& job, const Stages& stages, int64_t traces,
                                 int64_t parts)
{
    const std::vector<SourceWords> all = wordsOf(stages);
    const std::size_t width = all.empty() ? 0 : all.back().column + all.back().words.size();
    std::vector<CutRule> rules;
    rules.reserve(stages.gathers.size());
    for (const GatherRule& gather : stages.gathers)
        rules.push_back(ruleOf(gather, all));
    return cutsFor(traces, parts, rules, width, [&](const std::vector<PlannedPart>& ranges) {
        return valuesOfAll(job, all, width, ranges);
    });
}

std::map<int, int64_t> tracesOfSources(const ResolvedJob& job)
{
    std::map<int, int64_t> traces;
    for (const int source : rangeSourcesOf(job))
        traces[source] = announcedTraces(job, source);
    return traces;
}

} // namespace host
