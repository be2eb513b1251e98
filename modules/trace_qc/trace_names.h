/// @file trace_names.h
///
/// Names of traces by which they can be found again. Independent of the kernel.
#ifndef TRACE_NAMES_H
#define TRACE_NAMES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Header words that names are made of.
inline constexpr std::array<const char*, 7> nameWords = {"fldr", "tracf",  "iline", "xline",
                                                         "cdp",  "offset", "ep"};

struct TraceIdentity
{
    std::int64_t arrival = 0;              ///< number in the order of arrival, from 1
    std::optional<std::int64_t> fileTrace; ///< number in the file that it was read from, from 1
    std::array<std::optional<int>, nameWords.size()> words; ///< of nameWords, where it has them
};

/// The name of each trace of a gather: "trace 12 of the file, fldr 16 tracf 3".
///
/// The words are the first of these combinations that differ from trace to trace: fldr and tracf,
/// iline and xline, cdp and offset, ep and tracf, fldr and cdp, cdp, tracf. Those with a word that
/// is missing or 0 in all traces are skipped. Where none tells the traces apart, the first one with
/// values is used, and the number of the trace in the order of arrival is added unless the file has
/// one.
std::vector<std::string> namesOf(const std::vector<TraceIdentity>& gather);

#endif
