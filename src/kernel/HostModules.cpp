#include "HostModules.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "MOXKernel.h"
#include "ModuleEntity.h"
#include "SeisTraceSet.h"
#include "private/HostFunctions.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <unordered_map>
#include <utility>

namespace {

constexpr int errorMessage = 3;
constexpr int fatal = 4;
constexpr int endOfData = 3;

struct HostModule
{
    VORN::ModuleFunctions functions;
    bool runs = false; // one of them
};

// By module: entry points have no arguments, and a module has no place for its functions.
using FunctionTable = std::unordered_map<const ModuleEntity*, HostModule>;

// Made with the first such module, and never destroyed: modules may end with the process.
FunctionTable* functionTable = nullptr;

int functionsRunning = 0;

// As long as it lives, a function of `module` runs.
class Running
{
public:
    explicit Running(HostModule& called) : module(called)
    {
        module.runs = true;
        ++functionsRunning;
    }
    ~Running()
    {
        module.runs = false;
        --functionsRunning;
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

private:
    HostModule& module;
};

// Stands in the place of an entry point. Which module is called is known by the active one alone:
// a host that calls processModule() of another module from within a function, without making that
// one active, would run the same function again, and again from within that.
template <std::function<void()> VORN::ModuleFunctions::*function>
int call()
{
    const auto found = functionTable->find(JobManager::getInstance()->getActiveModule());
    if (found == functionTable->end())
        return 0;
    HostModule& module = found->second;
    if (module.runs) {
        sendMessage(errorMessage,
                    "The call of an entry point is refused, since one of this module is still "
                    "running; make the module that is meant the active one");
        return 0;
    }
    const auto& entryPoint = module.functions.*function;
    if (!entryPoint)
        return 0;
    const Running running(module);
    entryPoint();
    return 0;
}

void sendFatal(const std::string& text)
{
    sendMessage(fatal, text.c_str());
}

// The first output with its shape, or null after a message.
void* buildOutput(int traceLength, int sampleInterval, const std::vector<std::string>& words)
{
    if (traceLength < 1) {
        sendFatal("A trace needs at least 1 sample, not " + std::to_string(traceLength));
        return nullptr;
    }
    if (sampleInterval < 1) {
        sendFatal("The sample interval must be at least 1 microsecond, not " +
                  std::to_string(sampleInterval));
        return nullptr;
    }
    void* output = bldOutputTraceBuffer(0, traceLength, sampleInterval, nullptr);
    if (output == nullptr) {
        sendFatal("The source has no output channel");
        return nullptr;
    }
    for (const std::string& word : words) {
        if (getTraceAttributeType(word.c_str()) < 0 ||
            defineTraceAttribute(output, word.c_str()) != 1) {
            sendFatal("\"" + word + "\" is not a trace attribute of the job's schema");
            return nullptr;
        }
    }
    return output;
}

// What is left of a source that cannot work: consumers get the end.
void giveEnd()
{
    if (void* output = getOutputTraceBuffer(0))
        setDataChannelFlag(output, endOfData);
}

class ArraySource
{
public:
    explicit ArraySource(VORN::TraceArray given) : traces(std::move(given)) {}

    void preprocess()
    {
        std::vector<std::string> names;
        names.reserve(traces.words.size());
        for (const auto& [name, values] : traces.words)
            names.push_back(name);
        if (traces.count < 0) {
            sendFatal("The number of traces is " + std::to_string(traces.count));
            return;
        }
        if (traces.count > 0 && traces.samples == nullptr) {
            sendFatal(std::to_string(traces.count) +
                      " traces were announced, but there are no samples");
            return;
        }
        for (const auto& [name, values] : traces.words) {
            if (values == nullptr) {
                sendFatal("There are no values for \"" + name + "\"");
                return;
            }
        }
        void* output = buildOutput(traces.traceLength, traces.sampleInterval, names);
        isGood = output != nullptr;
        if (isGood)
            informTotalTracesNumber(output, traces.count);
    }

    void process()
    {
        void* output = getOutputTraceBuffer(0);
        if (!isGood || next >= traces.count) {
            giveEnd();
            return;
        }
        const auto row =
            static_cast<std::size_t>(next) * static_cast<std::size_t>(traces.traceLength);
        setTraceSamples(output, traces.samples + row, 0);
        for (const auto& [name, values] : traces.words)
            setTraceAttribute(output, name.c_str(), UniVar(values[next]), 0);
        if (++next == traces.count)
            setDataChannelFlag(output, endOfData);
    }

private:
    VORN::TraceArray traces;
    int next = 0;
    bool isGood = false;
};

class CalledSource
{
public:
    CalledSource(int length, int interval, std::vector<std::string> names, VORN::MakeTrace function)
        : traceLength(length), sampleInterval(interval), words(std::move(names)),
          make(std::move(function))
    {
    }

    void preprocess()
    {
        void* output = buildOutput(traceLength, sampleInterval, words);
        isGood = output != nullptr && bldWorkTraceBufferLike(0, output) != nullptr;
    }

    // Made apart and moved: a trace that is on the output is already on its way.
    void process()
    {
        void* work = isGood ? getWorkTraceBuffer(0) : nullptr;
        float* samples = work != nullptr ? getTraceSamples(work, 0) : nullptr;
        if (samples == nullptr || !make) {
            giveEnd();
            return;
        }
        std::fill_n(samples, traceLength, 0.0F);
        const VORN::MadeTrace made = make(work, samples);
        if (made != VORN::MadeTrace::none)
            transferTraceToTrace(work, getOutputTraceBuffer(0), 0, 0);
        removeTrace(work, 0); // the trace that is not wanted, or the place that it has left
        if (made != VORN::MadeTrace::more)
            giveEnd();
    }

private:
    int traceLength;
    int sampleInterval;
    std::vector<std::string> words;
    VORN::MakeTrace make;
    bool isGood = false;
};

class ArraySink
{
public:
    ArraySink(VORN::CollectedTraces* into, int expectedTraces)
        : traces(into), expected(expectedTraces)
    {
    }

    void preprocess() const
    {
        traces->samples.clear();
        traces->count = traces->traceLength = traces->sampleInterval = 0;
        for (auto& [name, values] : traces->words)
            values.clear();
    }

    void process() const
    {
        void* input = getInputTraceBuffer(0);
        if (input == nullptr || getNumberOfTraces(input) == 0)
            return;
        if (traces->count == 0)
            begin(input);
        const auto length = static_cast<std::size_t>(traces->traceLength);
        const float* samples = getTraceSamples(input, 0);
        if (samples == nullptr)
            traces->samples.resize(traces->samples.size() + length); // zeros
        else
            traces->samples.insert(traces->samples.end(), samples, samples + length);
        for (auto& [name, values] : traces->words) {
            const bool exists = isTraceAttributeExist(input, name.c_str()) == 1;
            values.push_back(exists ? getTraceAttribute(input, name.c_str(), 0).getI32Value() : 0);
        }
        ++traces->count;
    }

private:
    void begin(void* input) const
    {
        traces->traceLength = std::max(getTraceLength(input), 0);
        traces->sampleInterval = getTraceSampleInterval(input);
        const int64_t announced =
            expected > 0 ? expected : static_cast<DataChannel*>(input)->getTotalTracesNumber();
        // An announcement is a hint, and may be anything.
        const auto rows = static_cast<std::size_t>(std::clamp<int64_t>(announced, 0, 1 << 20));
        traces->samples.reserve(rows * static_cast<std::size_t>(traces->traceLength));
    }

    VORN::CollectedTraces* traces;
    int expected;
};

// The object lives as long as the module that calls it.
template <typename Object>
VORN::ModuleFunctions functionsOf(const std::shared_ptr<Object>& object)
{
    VORN::ModuleFunctions functions;
    functions.preprocess = [object] { object->preprocess(); };
    functions.process = [object] { object->process(); };
    return functions;
}

} // namespace

void host_functions::forget(const ModuleEntity* module)
{
    if (functionTable != nullptr) // destructors of modules allocate nothing
        functionTable->erase(module);
}

bool host_functions::areRunning() noexcept
{
    return functionsRunning > 0;
}

namespace VORN {

ModuleEntity* addModule(const std::string& name, ModuleFunctions functions)
{
    auto module = std::make_unique<ModuleEntity>(name);
    if (functions.preprocess)
        module->preProcessFunction = call<&ModuleFunctions::preprocess>;
    if (functions.process)
        module->processFunction = call<&ModuleFunctions::process>;
    if (functions.postprocess)
        module->postProcessFunction = call<&ModuleFunctions::postprocess>;
    if (functionTable == nullptr)
        functionTable = new FunctionTable;
    (*functionTable)[module.get()].functions = std::move(functions);
    JobManager::getInstance()->jobModules.push_back(module.get());
    return module.release();
}

DataChannel* connect(ModuleEntity* producer, ModuleEntity* consumer)
{
    if (producer == nullptr || consumer == nullptr)
        return nullptr;
    auto channel = std::make_unique<DataChannel>();
    producer->setOutputDataChannel(channel.get(), producer->getNumberOfOutputDataChannels());
    consumer->setInputDataChannel(channel.get(), consumer->getNumberOfInputDataChannels());
    return channel.release();
}

ModuleEntity* addTraceSource(const std::string& name, TraceArray traces)
{
    return addModule(name, functionsOf(std::make_shared<ArraySource>(std::move(traces))));
}

ModuleEntity* addTraceSource(const std::string& name, int traceLength, int sampleInterval,
                             std::vector<std::string> words, MakeTrace make)
{
    return addModule(name, functionsOf(std::make_shared<CalledSource>(
                               traceLength, sampleInterval, std::move(words), std::move(make))));
}

ModuleEntity* addTraceSink(const std::string& name, CollectedTraces* traces, int expected)
{
    return addModule(name, functionsOf(std::make_shared<ArraySink>(traces, expected)));
}

ModuleEntity* addTraceSink(const std::string& name, TakeTrace take)
{
    ModuleFunctions functions;
    functions.process = [take = std::move(take)] {
        void* input = getInputTraceBuffer(0);
        const float* samples =
            input != nullptr && getNumberOfTraces(input) > 0 ? getTraceSamples(input, 0) : nullptr;
        if (samples != nullptr && take)
            take(input, samples, getTraceLength(input));
    };
    return addModule(name, std::move(functions));
}

} // namespace VORN

ModuleEntity* JobManager::addModule(const std::string& name, HostModuleFunction preprocess,
                                    HostModuleFunction process, HostModuleFunction postprocess,
                                    void* context)
{
    const auto bound = [context](HostModuleFunction function) {
        return function != nullptr ? std::function<void()>([=] { function(context); })
                                   : std::function<void()>();
    };
    return VORN::addModule(name, {bound(preprocess), bound(process), bound(postprocess)});
}
