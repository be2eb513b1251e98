/// @file PadStore.h
///
/// Keeps what the modules of a job draw, as they draw it.
#ifndef PADSTORE_H
#define PADSTORE_H

#include "hostcallbacks.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

class JobManager;

namespace host {

/// One trace as it was when a module showed it.
struct PadTrace
{
    /// All of them, or one for each `Pad::samplesPerValue`; none of a trace that is left out.
    std::vector<float> samples;
    double label =
        0; ///< value of the attribute that labels the trace axis; else its number, from 1
    double secondLabel = 0; ///< value of the attribute of the second row of labels; else 0
    double gather = 0;      ///< value of the attribute that tells gathers apart; else 0
    double pick = 0;        ///< value of the attribute with a time to mark; 0 for none
};

/// A pen command with its text copied.
struct PadCommand
{
    plotCommandStruct command{}; ///< `cbcd` is null
    std::string text;
};

/// A drawing surface that a module asked for.
///
/// The first line of a pad's title is its title; lines after it are directives, `key: value`, that
/// say how it is to be drawn (docs/pads.md lists them).
struct Pad
{
    int ident = 0;
    int type = 0; ///< 1 section, 2 graph, 3 both
    int align = 0;
    int visible = 0;
    std::string module; ///< name of the module that drew it
    std::string title;
    std::map<std::string, std::string> directives; ///< the first of equal keys counts
    double sampleInterval = 0;                     ///< microseconds; 0 when no trace came
    double delay = 0;                              ///< milliseconds of the first sample
    std::vector<PadTrace> traces;
    std::vector<PadCommand> commands; ///< in the order in which they came
    /// @name Of pads with more samples than a picture shows
    /// @{
    int64_t samplesPerValue = 1;  ///< the strongest of so many is kept
    std::size_t keptEvery = 1;    ///< samples are kept of every n-th trace, from the first on
    std::size_t longestTrace = 0; ///< samples of the longest trace that came
    uint64_t fingerprint = 0;     ///< of all samples that came
    std::size_t values = 0;       ///< kept in all traces
    /// @}

    /// The samples of trace `index`, or of the one before it that stands for it.
    const std::vector<float>& samplesOf(std::size_t index) const
    {
        return traces[index - index % keptEvery].samples;
    }
    /// Samples of the longest trace, as it came.
    std::size_t longest() const;
    /// Whether samples are left out.
    bool isReduced() const { return samplesPerValue > 1 || keptEvery > 1; }

    /// The directive's text, or `otherwise`.
    std::string directive(const std::string& key, const std::string& otherwise = "") const;
    /// The directive as a number; `otherwise` when it is missing or not a number.
    double number(const std::string& key, double otherwise) const;
    /// Two numbers separated by blanks; false, and nothing changed, when they are not there.
    bool range(const std::string& key, double& from, double& to) const;
    /// A name for files: the directive `name` or the module's, with the characters that file names
    /// may have.
    std::string fileStem() const;
};

/// Listens to the pad call-backs of a job. Of a pad, up to 16 million samples are kept as they
/// came; of more, the strongest of several and every n-th trace, still with more detail than a
/// picture has: so pads need memory by their pixels, not by the data. Pads stay in the order in
/// which they were created. Requires: lives until the job has ended.
class PadStore
{
public:
    /// Makes the job send its pads here.
    void install(JobManager& job);
    /// The pads so far, in the order in which they were created.
    const std::vector<Pad>& pads() const { return drawn; }

    /// @name Called by the kernel; see hostcallbacks.h
    /// @{
    void create(int ident, int type, int align, int visible, const std::string& title);
    void addTraces(int ident, void* traceSet);
    void addCommand(int ident, const plotCommandStruct& command);
    /// @}

private:
    Pad* find(int ident);

    std::vector<Pad> drawn;
};

} // namespace host

#endif
