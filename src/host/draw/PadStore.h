/// @file PadStore.h
///
/// Keeps what the modules of a job draw, as they draw it.
#ifndef PADSTORE_H
#define PADSTORE_H

#include "hostcallbacks.h"

#include <map>
#include <string>
#include <vector>

class JobManager;

namespace host {

/// One trace as it was when a module showed it.
struct PadTrace
{
    std::vector<float> samples; ///< all of them
    double label =
        0; ///< value of the attribute that labels the trace axis; else its number, from 1
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

/// Listens to the pad call-backs of a job. Pads stay in the order in which they were created.
/// Requires: lives until the job has ended.
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
