/// @file list_model.h
///
/// What the modules list_source, list_step, list_split and list_sink make of lists of traces. The
/// modules use it trace by trace, the model for whole lists.
#ifndef LIST_MODEL_H
#define LIST_MODEL_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

/// A trace: three words of its header, and its samples.
struct ListTrace
{
    int id = 0;     ///< tracl
    int key = 0;    ///< cdp
    int offset = 0; ///< offset
    std::vector<float> samples;
    bool operator==(const ListTrace&) const = default;
};

using List = std::vector<ListTrace>;

constexpr int listSamples = 24;
constexpr int listInterval = 2000; ///< microseconds

/// Trace number `id` of a source. Some neighbours have the same key; offsets are in no order.
inline ListTrace listTrace(int id)
{
    ListTrace trace = {id, id / 3 % 5 + 1, id * 37 % 101 * 10 - 300, {}};
    for (int i = 0; i < listSamples; ++i)
        trace.samples.push_back(static_cast<float>((id * 7 + i * i * 13) % 61 - 30));
    trace.samples[0] = static_cast<float>(id % 4096);
    return trace;
}

/// All of the trace in a few characters: its words, and a hash of its samples.
inline std::string listText(const ListTrace& trace)
{
    uint64_t hash = 14695981039346656037U; // FNV-1a
    for (const float sample : trace.samples) {
        uint32_t bits;
        std::memcpy(&bits, &sample, sizeof bits);
        hash = (hash ^ bits) * 1099511628211U;
    }
    char text[100];
    std::snprintf(text, sizeof text, "%d:%d:%d:%zu:%08x ", trace.id, trace.key, trace.offset,
                  trace.samples.size(), static_cast<unsigned>(hash ^ (hash >> 32U)));
    return text;
}

/// @name Lists in files
/// Numbers as the machine has them: id, key, offset, number of samples, samples.
/// @{
inline void appendTrace(std::FILE* file, const ListTrace& trace)
{
    const int words[] = {trace.id, trace.key, trace.offset, static_cast<int>(trace.samples.size())};
    std::fwrite(words, sizeof words, 1, file);
    std::fwrite(trace.samples.data(), sizeof(float), trace.samples.size(), file);
}

inline List readList(const std::string& path)
{
    List list;
    std::FILE* file = std::fopen(path.c_str(), "rb");
    int words[4];
    while (file != nullptr && std::fread(words, sizeof words, 1, file) == 1) {
        ListTrace trace = {words[0], words[1], words[2],
                           std::vector<float>(static_cast<std::size_t>(words[3]))};
        if (std::fread(trace.samples.data(), sizeof(float), trace.samples.size(), file) !=
            trace.samples.size())
            break;
        list.push_back(trace);
    }
    if (file != nullptr)
        std::fclose(file);
    return list;
}
/// @}

enum class ListKind : int
{
    pass,   ///< each trace, changed
    drop,   ///< without each `n`th trace
    repeat, ///< each trace `n` times
    gather, ///< `n` at a time, in reverse order
    ahead,  ///< each trace with the samples added that are `n` traces behind it
    first,  ///< the first `n`, then the end
    pairs,  ///< joins in step, ends with the shortest input
    merge,  ///< joins in step, ends with the longest input
    concat, ///< joins: all of the first input, then all of the next one
    match,  ///< joins traces with the same id, inputs in ascending order; ends with the shortest
    interleave, ///< joins: of the traces that are first, the one with the smallest id goes first
    count
};

inline bool isJoin(ListKind kind)
{
    return kind >= ListKind::pairs && kind < ListKind::count;
}

struct ListStep
{
    ListKind kind = ListKind::pass;
    int n = 1;
    int calls = 1;          ///< pass: a trace is kept until it has been seen so often
    bool scribbles = false; ///< pass: writes into the samples and headers of its input afterwards
    bool defines = false;   ///< pass: defines an attribute in its input while traces flow
};

/// A trace of each input, or null where the input has ended.
using ListRow = std::vector<const ListTrace*>;

/// One step, which is shown the first trace of each input at a time.
class ListMachine
{
public:
    explicit ListMachine(const ListStep& what) : step(what) {}

    // Factors are powers of 2, so that results do not depend on how a compiler joins operations.
    static float changed(float sample) { return 0.5F * sample + 1.0F; }

    /// Which traces of `row` take() takes; the others are shown again.
    std::vector<bool> uses(const ListRow& row) const
    {
        std::vector<bool> used(row.size(), true);
        if (step.kind == ListKind::concat || step.kind == ListKind::interleave) {
            const std::size_t chosen = choice(row);
            for (std::size_t i = 0; i < row.size(); ++i)
                used[i] = i == chosen;
        } else if (step.kind == ListKind::match) {
            const std::size_t chosen = choice(row);
            for (std::size_t i = 0; i < row.size(); ++i)
                used[i] = row[i] != nullptr && row[i]->id == row[chosen]->id;
        }
        return used;
    }

    void take(const ListRow& row, std::deque<ListTrace>& out)
    {
        if (isFinished)
            return;
        if (isJoin(step.kind))
            join(row, out);
        else if (row[0] != nullptr)
            takeOne(*row[0], out);
    }

    /// Whether no further trace can come of inputs of which these have ended.
    bool isAtEnd(const std::vector<bool>& ended) const
    {
        const bool endsWithShortest = step.kind == ListKind::pairs || step.kind == ListKind::match;
        const auto ends = std::count(ended.begin(), ended.end(), true);
        return isFinished || ends == static_cast<std::ptrdiff_t>(ended.size()) ||
               (endsWithShortest && ends > 0);
    }

    /// What is given after the last trace.
    void finish(std::deque<ListTrace>& out)
    {
        isFinished = true;
        giveHeld(out);
    }

private:
    void takeOne(const ListTrace& trace, std::deque<ListTrace>& out)
    {
        ++taken;
        switch (step.kind) {
        case ListKind::pass:
            out.push_back(trace);
            for (float& sample : out.back().samples)
                sample = changed(sample);
            break;
        case ListKind::drop:
            if (taken % step.n != 0)
                out.push_back(trace);
            break;
        case ListKind::repeat:
            out.insert(out.end(), static_cast<std::size_t>(step.n), trace);
            break;
        case ListKind::gather:
            held.push_front(trace);
            if (static_cast<int>(held.size()) == step.n)
                giveHeld(out);
            break;
        case ListKind::ahead:
            held.push_back(trace);
            if (static_cast<int>(held.size()) > step.n) {
                add(held.back(), -0.5F, held.front());
                out.push_back(held.front());
                held.pop_front();
            }
            break;
        case ListKind::first:
            if (taken <= step.n)
                out.push_back(trace);
            isFinished = taken >= step.n;
            break;
        default:
            break;
        }
    }

    void giveHeld(std::deque<ListTrace>& out)
    {
        out.insert(out.end(), held.begin(), held.end());
        held.clear();
    }

    // The first one there is, or the one with the smallest id; 0 where there is none.
    std::size_t choice(const ListRow& row) const
    {
        std::size_t chosen = row.size();
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (row[i] == nullptr)
                continue;
            if (chosen == row.size() ||
                (step.kind != ListKind::concat && row[i]->id < row[chosen]->id))
                chosen = i;
        }
        return chosen == row.size() ? 0 : chosen;
    }

    static void add(const ListTrace& from, float factor, ListTrace& to)
    {
        for (std::size_t i = 0; i < std::min(from.samples.size(), to.samples.size()); ++i)
            to.samples[i] += factor * from.samples[i];
    }

    void join(const ListRow& row, std::deque<ListTrace>& out)
    {
        const bool needsAll = step.kind == ListKind::pairs || step.kind == ListKind::match;
        const std::vector<bool> used = uses(row);
        ListTrace sum;
        float factor = 1;
        bool any = false;
        for (std::size_t i = 0; i < row.size(); ++i, factor *= 0.5F) {
            if (row[i] == nullptr || !used[i]) {
                if (needsAll)
                    return;
                continue;
            }
            if (any)
                add(*row[i], factor, sum);
            else
                sum = *row[i];
            any = true;
        }
        if (any)
            out.push_back(sum);
    }

    ListStep step;
    std::deque<ListTrace> held;
    int taken = 0;
    bool isFinished = false;
};

/// The whole list that comes of whole lists.
inline List listOf(const ListStep& step, const std::vector<List>& inputs)
{
    ListMachine machine(step);
    std::deque<ListTrace> out;
    std::vector<std::size_t> places(inputs.size(), 0);
    for (;;) {
        ListRow row;
        std::vector<bool> ended;
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            row.push_back(places[i] < inputs[i].size() ? &inputs[i][places[i]] : nullptr);
            ended.push_back(places[i] >= inputs[i].size());
        }
        if (machine.isAtEnd(ended))
            break;
        const std::vector<bool> used = machine.uses(row);
        machine.take(row, out);
        for (std::size_t i = 0; i < inputs.size(); ++i)
            places[i] += used[i] && row[i] != nullptr ? 1 : 0;
    }
    machine.finish(out);
    return {out.begin(), out.end()};
}

/// Where a module with several outputs gives its traces.
enum class SplitKind : int
{
    deal,  ///< to one output after the other
    block, ///< to the first output for `n` traces, then to the next one, and so on
    rest,  ///< every `n`th trace to the first output, the others to the last one
    all,   ///< to every output
    count
};

/// Whether output `output` of `outputs` gets trace `place` of the input, both from 0.
inline bool isForOutput(SplitKind kind, int n, int place, int output, int outputs)
{
    switch (kind) {
    case SplitKind::deal:
        return place % outputs == output;
    case SplitKind::block:
        return place / n % outputs == output;
    case SplitKind::rest:
        return output == (place % n == 0 ? 0 : outputs - 1);
    default:
        return true;
    }
}

inline std::vector<List> splitOf(SplitKind kind, int n, int outputs, const List& input)
{
    std::vector<List> lists(static_cast<std::size_t>(outputs));
    for (std::size_t place = 0; place < input.size(); ++place) {
        for (int output = 0; output < outputs; ++output) {
            if (isForOutput(kind, n, static_cast<int>(place), output, outputs))
                lists[static_cast<std::size_t>(output)].push_back(input[place]);
        }
    }
    return lists;
}

#endif
