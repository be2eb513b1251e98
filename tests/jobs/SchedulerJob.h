/// @file SchedulerJob.h
///
/// Jobs to be run by the kernel and by its model, and the form in which both tell what happened.
#ifndef SCHEDULERJOB_H
#define SCHEDULERJOB_H

#include <string>
#include <vector>

namespace scheduler_model {

constexpr int unchanged = -1; ///< in place of a flag or option that is left alone

/// What a module writes to one of its output channels in one call.
struct Writing
{
    int traces = 0;         ///< new traces, appended
    bool overFirst = false; ///< writes over the first trace (made if there is none) first
    bool passOn = false;    ///< new traces are copies of input 0's first trace, flag included
    int flag = unchanged;   ///< data-channel flag to set afterwards
};

/// What a module does in one call, or in several alike.
struct Step
{
    int times = 1;
    std::vector<Writing> outputs; ///< by output number
    std::vector<int> inputBits; ///< by input number: channel flags to raise; bit 1 keeps the trace
    int respectEod = unchanged; ///< "RespectEOD" to set
};

struct Module
{
    std::string name;
    bool respectEod = false;   ///< set by the host
    bool readsBlindly = false; ///< asks for the first trace of each input, there or not
    Step preProcess;           ///< only `outputs` and `respectEod` count
    std::vector<Step> process; ///< in this order; the last one again and again

    const Step& stepOfCall(int callNo) const; ///< calls are counted from 0
};

/// The host's work, in order.
struct Wiring
{
    enum Kind
    {
        input,  ///< `channel` becomes the next input of `module`
        output, ///< `channel` becomes the next output of `module`
        trace   ///< a trace is put into `channel`
    };
    Kind kind;
    int module;
    int channel;
};

struct Job
{
    std::vector<Module> modules; ///< in the order of creation
    int channels = 0;
    std::vector<Wiring> wiring;
    bool isLong = false; ///< a source means to run more than a thousand times
};

/// A job without cycles of at most eight modules, always the same for the same seed.
Job randomJob(unsigned seed);

/// For a person to read when something differs.
std::string describe(const Job& job);

/// The number of the trace that a module writes as its `count`-th, counted from 1.
int traceNumber(int module, int count);

/// How many traces are pending for a module in an input channel, how many the channel holds, and
/// which is the first.
struct InputView
{
    int pending;
    int held;
    int first; ///< its number; 0 for a trace that no module has written, meaningless without traces
};

/// Traces that a module has taken in and given out, as statistics count them.
struct StatisticRow
{
    std::string module;
    int tracesIn;
    int tracesOut;
};

/// A trace as it lies in a channel.
struct TraceView
{
    int number;
    int flag;
};

/// @name Events and states as text
/// The same from the model and from the kernel.
/// @{
std::string callText(const std::string& entryPoint, const std::string& module,
                     const std::vector<InputView>& inputs);
std::string statisticText(int phase, const std::vector<StatisticRow>& rows);
/// `pending` by consumer, in the order of attachment.
std::string channelText(const std::vector<TraceView>& traces, int ownFlag, int bits,
                        const std::vector<int>& pending);
/// @}

} // namespace scheduler_model

#endif
