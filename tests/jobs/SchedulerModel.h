/// @file SchedulerModel.h
///
/// The scheduling of a job, played through with numbers in place of modules, channels and traces.
/// It knows nothing of the kernel, so that the two can be compared.
#ifndef SCHEDULERMODEL_H
#define SCHEDULERMODEL_H

#include <map>
#include <string>
#include <vector>

namespace scheduler_model {

constexpr int unchanged = -1;

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
    int first; ///< its number; 0 for a trace that nobody has written, meaningless without traces
};

/// Events as text, the same from the model and from the kernel.
std::string callText(const std::string& entryPoint, const std::string& module,
                     const std::vector<InputView>& inputs);
struct StatisticRow
{
    std::string module;
    int tracesIn;
    int tracesOut;
};
std::string statisticText(int phase, const std::vector<StatisticRow>& rows);
struct TraceView
{
    int number;
    int flag;
};
/// `pending` by consumer, in the order of attachment.
std::string channelText(const std::vector<TraceView>& traces, int ownFlag, int bits,
                        const std::vector<int>& pending);

class Simulation
{
public:
    explicit Simulation(const Job& job);

    std::vector<std::string> events; ///< calls and statistics, in order
    int calls = 0;                   ///< of process entry points

    void preProcess();
    /// Whether the job ends within so many passes and calls.
    bool process(int passesAtMost, int callsAtMost);
    /// So many passes, or fewer when no sink is left; sends no statistics.
    void processPasses(int passes);
    void postProcess();

    /// One text per channel.
    std::vector<std::string> channels() const;

private:
    struct Trace
    {
        int number;
        int flag;
    };
    struct Channel
    {
        std::vector<int> producers;
        std::vector<int> consumers;
        std::vector<int> traces;                // indices of allTraces
        std::map<int, std::vector<int>> queues; // by consumer
        int ownFlag = 0;
        int bits = 0;
    };
    struct State
    {
        std::vector<int> inputs;
        std::vector<int> outputs;
        bool respectEod;
        bool ended = false;
        int calls = 0;
        int written = 0;
        int tracesIn = 0;
        int tracesOut = 0;
        int priority = 0;
    };

    const Job job;
    std::vector<Trace> allTraces;
    std::vector<Channel> channelStates;
    std::vector<State> states;
    std::vector<int> order; // modules as the job keeps them

    void append(Channel& channel, Trace trace);
    Trace& traceAt(Channel& channel, int place);
    void removeFirst(Channel& channel);
    int pending(const Channel& channel, int module) const;
    void take(Channel& channel, int module);
    int flagOf(const Channel& channel) const;
    void setFlag(Channel& channel, int flag);

    void definePriorities();
    int deepen(int source, int priority);

    std::vector<int> sinks() const;
    int pass(std::vector<int>& modules);
    bool lacksInput(int module) const;
    bool mustWait(int module) const;
    std::vector<int> liveProducers(int module) const;

    void call(int module);
    std::vector<InputView> look(int module);
    void perform(int module, const Step& step);
    void write(int module, Channel& channel, const Writing& writing);
    void sendStatistic(int phase);
    bool reads(int module) const;
    bool feeds(int module) const;
};

} // namespace scheduler_model

#endif
