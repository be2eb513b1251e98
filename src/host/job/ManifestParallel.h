/// @file ManifestParallel.h
///
/// How a module may run in parts, each on a range of the traces: the key `parallel` of manifests.
#ifndef MANIFESTPARALLEL_H
#define MANIFESTPARALLEL_H

#include "base/Diagnostics.h"

#include <string>
#include <vector>

namespace host {

struct Manifest;
class YamlFields;

/// What a module needs to see at once. The names in manifests are those of parallelWorkName.
enum class ParallelWork
{
    whole,  ///< all traces, in order
    source, ///< none: emits the same traces in the same order on any range
    trace,  ///< one trace
    gather, ///< consecutive traces of equal key words
    sink    ///< one trace, which it writes to its place in a file
};

/// Traces that come out for the traces that go in. The names in manifests are those of
/// parallelCountName.
enum class ParallelCount
{
    same,  ///< one for one, on every output
    fewer, ///< some are dropped or become one
    other  ///< anything
};

/// A condition on a parameter, as in rules.
struct ParallelCondition
{
    std::string parameter;           ///< given: other than its default, and not empty
    std::vector<std::string> values; ///< of the parameter; empty: the condition is that it is given

    /// "every", or "mode a or b".
    std::string text() const;
};

/// The key `parallel` of a manifest. A manifest without it has `work: whole`.
struct ParallelSpec
{
    ParallelWork work = ParallelWork::whole;
    std::vector<std::string> key; ///< of gathers: header words
    std::string keyParameter; ///< of gathers: the parameter with the words; empty: `key` has them
    /// Of gathers: the parameter with a number of traces, counted from the first of the gather,
    /// after which a gather may be cut, too; empty: it is never cut.
    std::string blockParameter;
    ParallelCount count = ParallelCount::same;
    bool merge = false;         ///< its library has save_ and merge_
    std::string rangeParameter; ///< of sources: the parameter that takes the range
    /// Of modules that need all traces: the parameter with the header words by which they sort
    /// their input, which they give unchanged otherwise; empty: they do something else.
    std::string sortParameter;
    bool sortable = false;                    ///< of sources: they can give their traces sorted
    std::vector<ParallelCondition> wholeWhen; ///< the module needs all traces if one of these holds
    std::vector<ParallelCondition> numberedWhen; ///< it looks at numbers of traces if one holds
    bool given = false;                          ///< the manifest has the key
    Place place;                                 ///< of its value

    /// What it says in words, for pages: "runs in parts, cut between gathers of key".
    std::string text() const;
};

/// "whole", "source", "trace", "gather", "sink".
const char* parallelWorkName(ParallelWork work);
/// "same", "fewer", "other".
const char* parallelCountName(ParallelCount count);

/// Reads the value of `parallel`, whose keys are in `fields`. Names of parameters and whether their
/// types fit are checked against `manifest`, whose parameters and ports have been read.
ParallelSpec readParallel(YamlFields& fields, const Manifest& manifest, Diagnostics& diagnostics);

} // namespace host

#endif
