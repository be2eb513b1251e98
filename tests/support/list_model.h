/// @file list_model.h
///
/// What the modules list_source, list_step and list_sink make of lists of traces. The modules use
/// it trace by trace, the model for whole lists.
#ifndef LIST_MODEL_H
#define LIST_MODEL_H

#include <deque>
#include <vector>

/// A trace: its number, and what its samples are made of. Values from 0 to 4095 are right.
struct ListTrace
{
    int id = 0;
    int value = 0;
    bool operator==(const ListTrace&) const = default;
};

enum class ListKind : int
{
    pass,   ///< each trace, changed
    drop,   ///< without each `n`th trace
    repeat, ///< each trace `n` times
    gather, ///< `n` at a time, in reverse order
    ahead,  ///< each trace with the value added that is `n` behind it
    first,  ///< the first `n`, then the end
    pairs,  ///< joins in step, ends with the shortest input
    merge,  ///< joins in step, ends with the longest input
    count
};

struct ListStep
{
    ListKind kind = ListKind::pass;
    int n = 1;
    int calls = 1;          ///< pass: a trace is kept until it has been seen so often
    bool scribbles = false; ///< pass: writes into the samples and headers of its input afterwards
    bool defines = false;   ///< pass: defines an attribute in its input while traces flow
};

constexpr int listSamples = 3;

inline int listCheck(int id)
{
    return id * 3 + 1;
}

inline void writeValue(int value, float* samples)
{
    for (int i = 0; i < listSamples; ++i)
        samples[i] = static_cast<float>(value + i);
}

/// -2 when samples or header are not those that belong together.
inline int readValue(const float* samples, int check, int id)
{
    for (int i = 0; i < listSamples; ++i) {
        if (samples[i] != samples[0] + static_cast<float>(i))
            return -2;
    }
    return check == listCheck(id) ? static_cast<int>(samples[0]) : -2;
}

/// One step, which takes a trace of each input at a time.
class ListMachine
{
public:
    explicit ListMachine(const ListStep& what) : step(what) {}

    int changed(int value) const { return value < 0 ? value : (value * 2 + 1) % 4096; }

    /// `row` has a trace of each input, or null where the input has ended.
    void take(const std::vector<const ListTrace*>& row, std::deque<ListTrace>& out)
    {
        if (isFinished)
            return;
        if (step.kind == ListKind::pairs || step.kind == ListKind::merge) {
            join(row, out);
            return;
        }
        if (row[0] == nullptr)
            return;
        ++taken;
        switch (step.kind) {
        case ListKind::pass:
            out.push_back({row[0]->id, changed(row[0]->value)});
            break;
        case ListKind::drop:
            if (taken % step.n != 0)
                out.push_back(*row[0]);
            break;
        case ListKind::repeat:
            out.insert(out.end(), static_cast<std::size_t>(step.n), *row[0]);
            break;
        case ListKind::gather:
            held.push_front(*row[0]);
            if (static_cast<int>(held.size()) == step.n)
                giveHeld(out);
            break;
        case ListKind::ahead:
            held.push_back(*row[0]);
            if (static_cast<int>(held.size()) > step.n) {
                held.front().value = (held.front().value + held.back().value) % 4096;
                out.push_back(held.front());
                held.pop_front();
            }
            break;
        case ListKind::first:
            if (taken <= step.n)
                out.push_back(*row[0]);
            isFinished = taken >= step.n;
            break;
        default:
            break;
        }
    }

    /// Whether no further trace can come of inputs of which these have ended.
    bool isAtEnd(const std::vector<bool>& ended) const
    {
        std::size_t ends = 0;
        for (const bool one : ended)
            ends += one ? 1 : 0;
        return isFinished || ends == ended.size() || (step.kind == ListKind::pairs && ends > 0);
    }

    /// What is given after the last trace.
    void finish(std::deque<ListTrace>& out)
    {
        isFinished = true;
        giveHeld(out);
    }

private:
    void giveHeld(std::deque<ListTrace>& out)
    {
        out.insert(out.end(), held.begin(), held.end());
        held.clear();
    }

    void join(const std::vector<const ListTrace*>& row, std::deque<ListTrace>& out)
    {
        ListTrace sum;
        bool any = false;
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (row[i] == nullptr && step.kind == ListKind::pairs)
                return;
            if (row[i] == nullptr)
                continue;
            if (!any)
                sum.id = row[i]->id;
            any = true;
            sum.value = (sum.value + static_cast<int>(i + 1) * row[i]->value) % 4096;
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
inline std::vector<ListTrace> listOf(const ListStep& step,
                                     const std::vector<std::vector<ListTrace>>& inputs)
{
    ListMachine machine(step);
    std::deque<ListTrace> out;
    for (std::size_t place = 0;; ++place) {
        std::vector<const ListTrace*> row;
        std::vector<bool> ended;
        for (const std::vector<ListTrace>& input : inputs) {
            row.push_back(place < input.size() ? &input[place] : nullptr);
            ended.push_back(place >= input.size());
        }
        if (machine.isAtEnd(ended))
            break;
        machine.take(row, out);
    }
    machine.finish(out);
    return {out.begin(), out.end()};
}

#endif
