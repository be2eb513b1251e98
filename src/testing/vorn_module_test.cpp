// The job of a test: a source for each input, the module, and a sink for each output. Sources and
// sinks are modules without a library. Their entry points have no argument, as those of all
// modules; they find the test in `running` and themselves by the job's active module.
#include "vorn_module_test.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "ModuleEntity.h"
#include "SeisTrace.h"
#include "SeisTraceSet.h"
#include "UniVar.h"

#include <QtGlobal>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int mostPorts = 100;
constexpr int endOfData = 3;
constexpr int errorMessage = 3;
constexpr int text64Type = 10; // in the attribute schema
constexpr int postProcessing = 3;

struct InputTrace
{
    std::vector<float> samples;
    std::map<std::string, UniVar> words;
};

struct Input
{
    std::vector<InputTrace> traces;
    std::map<std::string, int> words; // their types in the schema
};

struct OutputTrace
{
    std::vector<float> samples;
    std::map<std::string, UniVar> words;
    std::map<std::string, std::string> texts; // handed out
    int flag = 0;
};

struct Output
{
    std::vector<OutputTrace> traces;
    int interval = 0;
};

struct Message
{
    int type;
    std::string text;
};

} // namespace

struct vorn_test
{
    std::string module;
    std::map<std::string, UniVar> parameters;
    std::vector<Input> inputs;
    int inputCount = -1; // none given
    int outputCount = 1;
    int interval = 4000;
    bool isWronglyCalled = false;

    // Of the last run.
    int result = VORN_TEST_WRONG_CALL;
    std::string reason = "the module has not run";
    std::vector<Output> outputs;
    std::vector<Message> messages;
    int64_t bytesLeft = 0;

    std::vector<std::string> problems;
    std::size_t runProblem = 0; // the number of that of the last run, from 1; 0: there is none
};

namespace {

// ---- What the job is told and tells ----

struct Job
{
    vorn_test& test;
    ModuleEntity* tested = nullptr;
    std::map<const ModuleEntity*, std::size_t> ports;   // of sources and sinks: their numbers
    std::map<const ModuleEntity*, std::size_t> emitted; // traces, of sources
    std::string loaderText;
    std::size_t lastStatistics = 0; // so many have come in the last phase
};

Job* running = nullptr;

JobManager& manager()
{
    return *JobManager::getInstance();
}

ModuleEntity& activeModule()
{
    return *manager().getActiveModule();
}

int onMessage(int type, char*, const char* module, const char* text, void*)
{
    if (running->tested == nullptr)
        running->loaderText = text; // the library is being loaded
    else if (module == running->tested->moduleName &&
             std::string_view(text).substr(0, 10) != "**********") // a phase begins
        running->test.messages.push_back({type, text});
    return 0;
}

// The traces that nobody has read: neither the job nor the channel destroys them.
void removeTraces(const ModuleEntity& module)
{
    for (SeisTraceSet* set : module.outputDataChannels) {
        while (set->getNumberOfTraces() > 0)
            set->removeTrace(0);
    }
}

// Statistics come before the first and after every post-process entry: the last ones are the last
// chance to see what the modules have left.
int onStatistic(jobStatisticStruct* statistic, void*)
{
    const ModuleList& modules = manager().jobModules;
    if (statistic->jobPhase != postProcessing || running->lastStatistics++ < modules.size())
        return 0;
    std::for_each(modules.begin(), modules.end(),
                  [](const ModuleEntity* module) { removeTraces(*module); });
    running->test.bytesLeft = running->tested->totalModuleMemoryUsed;
    return 0;
}

void installCallBacks(bool on)
{
    manager().installMessageFunc(on ? onMessage : nullptr, nullptr, nullptr);
    manager().installStatisticFunc(on ? onStatistic : nullptr, nullptr);
    manager().installCreatePadFunc(nullptr, nullptr);
    manager().installAddTraceToPadFuncFunc(nullptr, nullptr);
    manager().installAddPlotToPadFuncFunc(nullptr, nullptr);
    manager().installExecAppliFunc(nullptr, nullptr);
}

// ---- Sources and sinks ----

int nothing()
{
    return 0;
}

int prepareSource()
{
    ModuleEntity& source = activeModule();
    const Input& input = running->test.inputs[running->ports[&source]];
    DataChannel& out = *source.outputDataChannels.front();
    std::size_t length = 0;
    for (const InputTrace& trace : input.traces)
        length = std::max(length, trace.samples.size());
    out.setTraceLength(static_cast<int>(length));
    out.setTraceSampleInterval(running->test.interval);
    for (const auto& word : input.words)
        out.defineAttribute(word.first);
    out.informTotalTracesNumber(static_cast<int64_t>(input.traces.size()));
    return 0;
}

int emitTrace()
{
    ModuleEntity& source = activeModule();
    const std::vector<InputTrace>& traces = running->test.inputs[running->ports[&source]].traces;
    std::size_t& emitted = running->emitted[&source];
    DataChannel& out = *source.outputDataChannels.front();
    if (emitted < traces.size()) {
        const InputTrace& trace = traces[emitted++];
        const int number = out.getNumberOfTraces();
        float* samples = out.getSamples(number); // makes the trace
        if (samples != nullptr)
            std::copy(trace.samples.begin(), trace.samples.end(), samples);
        for (const auto& [word, value] : trace.words)
            out.setAttribute(word, value, number);
    }
    if (emitted == traces.size())
        out.setDataChannelFlag(endOfData);
    return 0;
}

int takeTrace()
{
    ModuleEntity& sink = activeModule();
    Output& output = running->test.outputs[running->ports[&sink]];
    DataChannel& in = *sink.inputDataChannels.front();
    const SeisTrace* first = in.getTrace(0, true);
    OutputTrace trace;
    if (first->traceSamples != nullptr)
        trace.samples.assign(first->traceSamples, first->traceSamples + first->traceLength);
    for (const std::string& word : in.getAttributesList())
        trace.words[word] = in.getAttribute(word, 0);
    trace.flag = in.getDataChannelFlag();
    output.interval = in.getTraceSampleInterval();
    output.traces.push_back(std::move(trace));
    return 0;
}

// ---- The job ----

ModuleEntity* addFunctions(const std::string& name, std::size_t port,
                           AnyProcessFunctionType prepare, AnyProcessFunctionType process)
{
    auto module = std::make_unique<ModuleEntity>(name + std::to_string(port + 1));
    module->preProcessFunction = prepare;
    module->processFunction = process;
    module->postProcessFunction = nothing;
    running->ports[module.get()] = port;
    manager().jobModules.push_back(module.get());
    return module.release();
}

void join(ModuleEntity* producer, ModuleEntity* consumer)
{
    auto* channel = new DataChannel; // the job deletes it after post-processing
    producer->setOutputDataChannel(channel, 0);
    consumer->setInputDataChannel(channel, 0);
}

std::string libraryOf(const std::string& module)
{
    if (module.find('/') != std::string::npos)
        return module;
    if (const char* directory = std::getenv("VORN_TEST_MODULES"))
        return std::string(directory) + "/lib" + module + ".so";
    const char* home = std::getenv("VORN_HOME");
    return std::string(home != nullptr ? home : ".") + "/lib/lib" + module + ".so";
}

// Adds the module `tested` to the job; null where an entry point is missing, which `loaderText`
// tells.
ModuleEntity* loadTested()
{
    auto module = std::make_unique<ModuleEntity>("tested");
    void* library = LoadLibrary(libraryOf(running->test.module).c_str());
    module->moduleLibraryHandle = library; // closed with the module
    if (library == nullptr)
        return nullptr;
    const auto find = [library](const char* name) {
        return reinterpret_cast<AnyProcessFunctionType>(GetProcAddress(library, name));
    };
    module->preProcessFunction = find("preprocess_");
    module->processFunction = module->preProcessFunction ? find("process_") : nullptr;
    module->postProcessFunction = module->processFunction ? find("postprocess_") : nullptr;
    if (module->postProcessFunction == nullptr)
        return nullptr;
    manager().jobModules.push_back(module.get());
    return module.release();
}

void defineWords(const vorn_test& test)
{
    for (const Input& input : test.inputs) {
        for (const auto& [word, type] : input.words)
            manager().addTraceAttributeDefinition(word, type, 1, "", 0, 0, 0, 0, 0);
    }
}

bool buildJob(vorn_test& test)
{
    ModuleEntity* module = loadTested();
    if (module == nullptr)
        return false;
    defineWords(test);
    running->tested = module;
    for (const auto& [name, value] : test.parameters)
        module->setParameter(name, value);
    for (std::size_t i = 0; i < test.inputs.size(); ++i)
        join(addFunctions("input", i, prepareSource, emitTrace), module);
    for (std::size_t i = 0; i < test.outputs.size(); ++i)
        join(module, addFunctions("output", i, nothing, takeTrace));
    return true;
}

// What an exception of the module says; empty where there was none.
template <typename Phase>
std::string textOfException(Phase phase)
{
    try {
        phase();
    } catch (const std::exception& exception) {
        return std::string("an exception left the module: ") + exception.what();
    } catch (...) {
        return "an exception left the module";
    }
    return "";
}

std::string runPhases()
{
    std::string text = textOfException([] { manager().preProcessJob(); });
    if (text.empty())
        text = textOfException([] { manager().processJob(); });
    const std::string last = textOfException([] { manager().postProcessJob(); });
    return text.empty() ? last : text;
}

void clearJob()
{
    manager().trAttDefsList.clear();
    manager().metaDataMap.clear();
    manager().setActiveModule(nullptr); // the processing phase leaves the last module there
}

// The kernel lists the modules of a job in Qt's debug stream, which says nothing in a test.
class WithoutDebugStream
{
public:
    WithoutDebugStream() : before(qInstallMessageHandler(filter)) { beforeAll = before; }
    WithoutDebugStream(const WithoutDebugStream&) = delete;
    WithoutDebugStream& operator=(const WithoutDebugStream&) = delete;
    ~WithoutDebugStream() { qInstallMessageHandler(before); }

private:
    static void filter(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        if (type != QtDebugMsg && beforeAll != nullptr)
            beforeAll(type, context, text);
    }

    QtMessageHandler before;
    static QtMessageHandler beforeAll;
};

QtMessageHandler WithoutDebugStream::beforeAll = nullptr;

void runJob(vorn_test& test)
{
    Job job{test, nullptr, {}, {}, "", 0};
    running = &job;
    clearJob();
    installCallBacks(true);
    std::string exception;
    if (buildJob(test)) {
        const WithoutDebugStream quiet;
        exception = runPhases();
        test.result = VORN_TEST_DONE;
        test.reason.clear();
    } else {
        test.result = VORN_TEST_NOT_LOADED;
        test.reason = job.loaderText;
    }
    installCallBacks(false);
    clearJob();
    running = nullptr;

    const auto error =
        std::find_if(test.messages.begin(), test.messages.end(),
                     [](const Message& message) { return message.type >= errorMessage; });
    if (!exception.empty())
        test.reason = exception;
    else if (error != test.messages.end())
        test.reason = error->text;
    if (test.result == VORN_TEST_DONE && !test.reason.empty())
        test.result = VORN_TEST_FAILED;
}

// ---- Problems ----

// Returns 1.
int addProblem(vorn_test* test, const std::string& text)
{
    if (test != nullptr)
        test->problems.push_back(text);
    return 1;
}

// A call that makes no sense: nothing runs then, since the result would not be what was meant.
int refuse(vorn_test* test, const std::string& text)
{
    if (test != nullptr)
        test->isWronglyCalled = true;
    return addProblem(test, text);
}

std::string number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.7g", value);
    return text;
}

std::string placeOf(int output, int trace)
{
    return "output " + std::to_string(output) + ", trace " + std::to_string(trace);
}

const Output* findOutput(const vorn_test* test, int output)
{
    const bool exists =
        test != nullptr && output >= 0 && static_cast<std::size_t>(output) < test->outputs.size();
    return exists ? &test->outputs[static_cast<std::size_t>(output)] : nullptr;
}

const OutputTrace* findTrace(const vorn_test* test, int output, int trace)
{
    const Output* found = findOutput(test, output);
    const bool exists =
        found != nullptr && trace >= 0 && static_cast<std::size_t>(trace) < found->traces.size();
    return exists ? &found->traces[static_cast<std::size_t>(trace)] : nullptr;
}

const UniVar* findWord(const vorn_test* test, int output, int trace, const char* word)
{
    const OutputTrace* found = findTrace(test, output, trace);
    if (found == nullptr || word == nullptr)
        return nullptr;
    const auto value = found->words.find(word);
    return value != found->words.end() ? &value->second : nullptr;
}

// ---- What goes in ----

int setParameter(vorn_test* test, const char* name, const UniVar& value)
{
    if (test == nullptr || name == nullptr || *name == '\0')
        return refuse(test, "a parameter has no name");
    test->parameters[name] = value;
    return 0;
}

template <typename Number>
int setList(vorn_test* test, const char* name, const Number* values, int count)
{
    if (count < 0 || (values == nullptr && count > 0))
        return refuse(test, std::string("the parameter ") + (name != nullptr ? name : "") +
                                " has " + std::to_string(count) + " values");
    return setParameter(test, name, UniVar(values, count));
}

int setWord(vorn_test* test, int input, int trace, const char* word, const UniVar& value, int type)
{
    if (test == nullptr || word == nullptr || *word == '\0')
        return refuse(test, "a header word has no name");
    const auto in = static_cast<std::size_t>(input);
    const auto at = static_cast<std::size_t>(trace);
    if (input < 0 || in >= test->inputs.size() || trace < 0 || at >= test->inputs[in].traces.size())
        return refuse(test, "the header word " + std::string(word) + " is set in trace " +
                                std::to_string(trace) + " of input " + std::to_string(input) +
                                ", which does not exist; add the trace first");
    // One schema holds for all traces of the job; whole numbers fit into a word of numbers.
    for (Input& one : test->inputs) {
        const auto known = one.words.find(word);
        if (known == one.words.end() || known->second == type)
            continue;
        if (type == text64Type || known->second == text64Type)
            return refuse(test, "the header word " + std::string(word) +
                                    " is set to a text and to a number");
        known->second = type = float64AttType;
    }
    test->inputs[in].words[word] = type;
    test->inputs[in].traces[at].words[word] = value;
    return 0;
}

} // namespace

vorn_test* vorn_test_open(const char* module)
{
    auto* test = new (std::nothrow) vorn_test;
    if (test == nullptr)
        return nullptr;
    test->module = module != nullptr ? module : "";
    if (test->module.empty())
        refuse(test, "the module to test has no name");
    return test;
}

int vorn_test_close(vorn_test* test)
{
    if (test == nullptr)
        return 1;
    const bool isGood = test->problems.empty();
    for (const std::string& text : test->problems)
        std::fprintf(stderr, "%s: %s\n", test->module.c_str(), text.c_str());
    if (!isGood) {
        for (const Message& message : test->messages)
            std::fprintf(stderr, "%s: message of type %d: %s\n", test->module.c_str(), message.type,
                         message.text.c_str());
    }
    delete test;
    return isGood ? 0 : 1;
}

int vorn_test_set_int(vorn_test* test, const char* name, int64_t value)
{
    const bool isShort = value >= INT32_MIN && value <= INT32_MAX;
    return setParameter(test, name, isShort ? UniVar(static_cast<int>(value)) : UniVar(value));
}

int vorn_test_set_number(vorn_test* test, const char* name, double value)
{
    return setParameter(test, name, UniVar(value));
}

int vorn_test_set_text(vorn_test* test, const char* name, const char* value)
{
    return setParameter(test, name, UniVar(std::string(value != nullptr ? value : "")));
}

int vorn_test_set_ints(vorn_test* test, const char* name, const int* values, int count)
{
    return setList(test, name, values, count);
}

int vorn_test_set_numbers(vorn_test* test, const char* name, const double* values, int count)
{
    return setList(test, name, values, count);
}

int vorn_test_set_inputs(vorn_test* test, int count)
{
    if (test == nullptr || count < 0 || count > mostPorts)
        return refuse(test, std::to_string(count) + " inputs are asked for; give 0 to 100");
    test->inputCount = count;
    return 0;
}

int vorn_test_set_outputs(vorn_test* test, int count)
{
    if (test == nullptr || count < 0 || count > mostPorts)
        return refuse(test, std::to_string(count) + " outputs are asked for; give 0 to 100");
    test->outputCount = count;
    return 0;
}

int vorn_test_set_interval(vorn_test* test, int microseconds)
{
    if (test == nullptr)
        return 1;
    test->interval = microseconds; // a wrong one may be what is tested
    return 0;
}

int vorn_test_add_trace(vorn_test* test, int input, const float* samples, int count)
{
    if (test == nullptr || input < 0 || input >= mostPorts || count < 0 ||
        (samples == nullptr && count > 0))
    {
        refuse(test, "a trace of " + std::to_string(count) + " samples cannot be added to input " +
                         std::to_string(input));
        return -1;
    }
    const auto at = static_cast<std::size_t>(input);
    if (test->inputs.size() <= at)
        test->inputs.resize(at + 1);
    std::vector<InputTrace>& traces = test->inputs[at].traces;
    traces.emplace_back();
    if (count > 0)
        traces.back().samples.assign(samples, samples + count);
    return static_cast<int>(traces.size()) - 1;
}

int vorn_test_set_header(vorn_test* test, int input, int trace, const char* word, int value)
{
    return setWord(test, input, trace, word, UniVar(value), int32AttType);
}

int vorn_test_set_header_number(vorn_test* test, int input, int trace, const char* word,
                                double value)
{
    return setWord(test, input, trace, word, UniVar(value), float64AttType);
}

int vorn_test_set_header_text(vorn_test* test, int input, int trace, const char* word,
                              const char* value)
{
    return setWord(test, input, trace, word, UniVar(std::string(value != nullptr ? value : "")),
                   text64Type);
}

int vorn_test_run(vorn_test* test)
{
    if (test == nullptr)
        return VORN_TEST_WRONG_CALL;
    test->messages.clear();
    test->outputs.clear();
    test->bytesLeft = 0;
    test->runProblem = 0;
    if (test->inputCount >= 0) {
        if (static_cast<std::size_t>(test->inputCount) < test->inputs.size())
            refuse(test, std::to_string(test->inputCount) +
                             " inputs are asked for, and traces are given to " +
                             std::to_string(test->inputs.size()));
        else
            test->inputs.resize(static_cast<std::size_t>(test->inputCount));
    }
    if (test->isWronglyCalled || running != nullptr) {
        test->result = VORN_TEST_WRONG_CALL;
        test->reason = running != nullptr ? "another test is running" : test->problems.back();
        return test->result;
    }
    test->outputs.resize(static_cast<std::size_t>(test->outputCount));
    runJob(*test);
    if (test->result != VORN_TEST_DONE) {
        addProblem(test, test->reason);
        test->runProblem = test->problems.size();
    }
    return test->result;
}

const char* vorn_test_reason(const vorn_test* test)
{
    return test != nullptr ? test->reason.c_str() : "there is no test";
}

int vorn_test_traces(const vorn_test* test, int output)
{
    const Output* found = findOutput(test, output);
    return found != nullptr ? static_cast<int>(found->traces.size()) : 0;
}

int vorn_test_interval(const vorn_test* test, int output)
{
    const Output* found = findOutput(test, output);
    return found != nullptr ? found->interval : 0;
}

const float* vorn_test_samples(const vorn_test* test, int output, int trace, int* count)
{
    const OutputTrace* found = findTrace(test, output, trace);
    if (count != nullptr)
        *count = found != nullptr ? static_cast<int>(found->samples.size()) : 0;
    return found != nullptr ? found->samples.data() : nullptr;
}

int vorn_test_header(const vorn_test* test, int output, int trace, const char* word, int* value)
{
    const UniVar* found = findWord(test, output, trace, word);
    if (found == nullptr || value == nullptr)
        return 1;
    *value = found->getI32Value();
    return 0;
}

int vorn_test_header_number(const vorn_test* test, int output, int trace, const char* word,
                            double* value)
{
    const UniVar* found = findWord(test, output, trace, word);
    if (found == nullptr || value == nullptr)
        return 1;
    *value = found->getF64Value();
    return 0;
}

const char* vorn_test_header_text(const vorn_test* test, int output, int trace, const char* word)
{
    const UniVar* found = findWord(test, output, trace, word);
    if (found == nullptr)
        return nullptr;
    // The trace is the test's, which only hands the text out.
    auto* holder = const_cast<OutputTrace*>(findTrace(test, output, trace));
    return (holder->texts[word] = found->getStrValue()).c_str();
}

int vorn_test_messages(const vorn_test* test)
{
    return test != nullptr ? static_cast<int>(test->messages.size()) : 0;
}

const char* vorn_test_message(const vorn_test* test, int number, int* type)
{
    if (number < 0 || number >= vorn_test_messages(test))
        return nullptr;
    const Message& message = test->messages[static_cast<std::size_t>(number)];
    if (type != nullptr)
        *type = message.type;
    return message.text.c_str();
}

int64_t vorn_test_bytes_left(const vorn_test* test)
{
    return test != nullptr ? test->bytesLeft : 0;
}

int vorn_test_problems(const vorn_test* test)
{
    return test != nullptr ? static_cast<int>(test->problems.size()) : 0;
}

const char* vorn_test_problem(const vorn_test* test, int number)
{
    if (number < 0 || number >= vorn_test_problems(test))
        return nullptr;
    return test->problems[static_cast<std::size_t>(number)].c_str();
}

int vorn_test_expect_traces(vorn_test* test, int output, int count)
{
    const Output* found = findOutput(test, output);
    if (found == nullptr)
        return addProblem(test, "output " + std::to_string(output) + " does not exist");
    const int traces = vorn_test_traces(test, output);
    if (traces != count)
        return addProblem(test, "output " + std::to_string(output) + " has " +
                                    std::to_string(traces) + " traces; expected " +
                                    std::to_string(count));
    for (int i = 0; i < traces; ++i) {
        const bool isMarked = found->traces[static_cast<std::size_t>(i)].flag == endOfData;
        if (isMarked && i + 1 < traces)
            return addProblem(test, placeOf(output, i) + " is marked as the end of the data, and " +
                                        std::to_string(traces - i - 1) + " follow");
        if (!isMarked && i + 1 == traces)
            return addProblem(test, placeOf(output, i) +
                                        " is the last one, and not marked as the end of the data");
    }
    return 0;
}

int vorn_test_expect_samples(vorn_test* test, int output, int trace, const float* expected,
                             int count, double tolerance)
{
    int length = 0;
    const float* samples = vorn_test_samples(test, output, trace, &length);
    if (findTrace(test, output, trace) == nullptr)
        return addProblem(test, placeOf(output, trace) + " does not exist");
    if (length != count)
        return addProblem(test, placeOf(output, trace) + " has " + std::to_string(length) +
                                    " samples; expected " + std::to_string(count));
    if (expected == nullptr && count > 0)
        return addProblem(test, placeOf(output, trace) + ": there are no expected samples");
    for (int i = 0; i < count; ++i) {
        const double is = static_cast<double>(samples[i]);
        const double wanted = static_cast<double>(expected[i]);
        const bool isEqual = samples[i] == expected[i] || // two infinite ones, too
                             std::abs(is - wanted) <= tolerance ||
                             (std::isnan(samples[i]) && std::isnan(expected[i]));
        if (!isEqual)
            return addProblem(test, placeOf(output, trace) + ", sample " + std::to_string(i) +
                                        " is " + number(is) + "; expected " + number(wanted));
    }
    return 0;
}

int vorn_test_expect_header(vorn_test* test, int output, int trace, const char* word, double value)
{
    double is = 0;
    const std::string name = word != nullptr ? word : "";
    if (vorn_test_header_number(test, output, trace, word, &is) != 0)
        return addProblem(test, placeOf(output, trace) + " does not exist, or has no header word " +
                                    name);
    if (is == value)
        return 0;
    return addProblem(test, placeOf(output, trace) + ": " + name + " is " + number(is) +
                                "; expected " + number(value));
}

int vorn_test_expect_header_text(vorn_test* test, int output, int trace, const char* word,
                                 const char* value)
{
    const char* is = vorn_test_header_text(test, output, trace, word);
    const std::string name = word != nullptr ? word : "";
    const std::string wanted = value != nullptr ? value : "";
    if (is == nullptr)
        return addProblem(test, placeOf(output, trace) + " does not exist, or has no header word " +
                                    name);
    if (is == wanted)
        return 0;
    return addProblem(test, placeOf(output, trace) + ": " + name + " is \"" + is +
                                "\"; expected \"" + wanted + "\"");
}

int vorn_test_expect_message(vorn_test* test, const char* part)
{
    const std::string wanted = part != nullptr ? part : "";
    const bool isThere =
        test != nullptr &&
        std::any_of(test->messages.begin(), test->messages.end(), [&](const Message& message) {
            return message.text.find(wanted) != std::string::npos;
        });
    return isThere ? 0 : addProblem(test, "no message contains \"" + wanted + "\"");
}

int vorn_test_expect_failure(vorn_test* test, const char* part)
{
    const std::string wanted = part != nullptr ? part : "";
    if (test == nullptr || test->result != VORN_TEST_FAILED)
        return addProblem(test, "the module was expected to fail, and did not");
    if (test->reason.find(wanted) == std::string::npos)
        return addProblem(test, "the module was expected to fail for a reason that contains \"" +
                                    wanted + "\"");
    if (test->runProblem > 0)
        test->problems.erase(test->problems.begin() +
                             static_cast<std::ptrdiff_t>(test->runProblem) - 1);
    test->runProblem = 0;
    return 0;
}

int vorn_test_expect_no_leak(vorn_test* test)
{
    const int64_t bytes = vorn_test_bytes_left(test);
    if (test != nullptr && bytes == 0)
        return 0;
    return addProblem(test, std::to_string(bytes) +
                                " bytes of memory are not freed at the end: call knl_freeResource "
                                "for what knl_allocateResource gave, and knl_removeWorkTraces in "
                                "postprocess_");
}
