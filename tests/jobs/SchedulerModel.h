/// @file SchedulerModel.h
///
/// The scheduling of a job, played through with numbers in place of modules, channels and traces.
/// It knows nothing of the kernel, so that the two can be compared.
#ifndef SCHEDULERMODEL_H
#define SCHEDULERMODEL_H

#include "SchedulerJob.h"

#include <map>
#include <string>
#include <vector>

namespace scheduler_model {

/// One job, from pre-processing (`preProcess`, once) through processing to its end.
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
