#include "watch/Replay.h"

#include "JobManager.h"
#include "ModuleEntity.h"
#include "ScratchManager.h"
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "job/RunResult.h"
#include "run/CountingChannel.h"
#include "run/ProcessEnd.h"
#include "run/RunningModule.h"
#include "run/ScratchSpace.h"
#include "watch/CallCoding.h"
#include "watch/ChannelCoding.h"
#include "watch/RecordEvents.h"
#include "watch/RecordFile.h"
#include "watch/RecordedModule.h"
#include "watch/WatchedLibrary.h"

#include <QString>
#include <QtGlobal>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <exception>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <memory>
#include <unistd.h>
#include <utility>

namespace host {

namespace {

namespace fs = std::filesystem;

// ---- what is told when the module ends the process ----

std::atomic<const char*> lastFunction{nullptr};
std::atomic<int64_t> callsOfEntry{0};
std::atomic<int64_t> entryOfRecord{0};

// In a handler of signals: snprintf() of integers and texts allocates nothing.
void tellLastCall()
{
    char line[256];
    const char* const function = lastFunction.load();
    const auto entry = static_cast<long long>(entryOfRecord.load());
    const int size =
        function == nullptr
            ? std::snprintf(line, sizeof line,
                            "vorn: in entry %lld of the record, before any call of the interface\n",
                            entry)
            : std::snprintf(line, sizeof line,
                            "vorn: in entry %lld of the record, after call %lld of the interface "
                            "in it, %s\n",
                            entry, static_cast<long long>(callsOfEntry.load()), function);
    [[maybe_unused]] const ssize_t written =
        write(STDERR_FILENO, line, static_cast<std::size_t>(std::max(0, size)));
}

struct LastCallTold
{
    LastCallTold() { setTellMore(tellLastCall); }
    ~LastCallTold() { setTellMore(nullptr); }
    LastCallTold(const LastCallTold&) = delete;
    LastCallTold& operator=(const LastCallTold&) = delete;
};

// ---- calls ----

std::string callText(const std::string& function, const std::vector<CallValue>& arguments)
{
    std::string text = function + "(";
    for (std::size_t i = 0; i < arguments.size(); ++i)
        text += (i > 0 ? ", " : "") + arguments[i].text();
    return text + ")";
}

// Compares the calls of one entry point, as they come, with the recorded ones.
class CallComparison : public watched::Observer
{
public:
    CallComparison(CallCoder& callCoder, double allowed) : coder(callCoder), tolerance(allowed) {}

    int64_t calls = 0;                   // that were compared
    std::vector<std::string> difference; // the first one

    // The calls of the next entry point. `isCut`: the record ends within them.
    void begin(const std::string& events, bool isCut)
    {
        recorded = ByteReader(events);
        cut = isCut;
        inEntry = 0;
        isActive = true;
        callsOfEntry = 0;
        lastFunction = nullptr;
    }

    // The entry point has returned. What follows the events in the record.
    ByteReader end()
    {
        isActive = false;
        if (!difference.empty() || (cut && recorded.atEnd()))
            return recorded;
        const RecordedEvent event = next();
        if (event.kind != RecordEvent::none)
            report({"recorded " + textOf(event), "now the entry point has returned"});
        return recorded;
    }

    void called(const watched::Call& call) override
    {
        lastFunction = call.function;
        ++callsOfEntry;
        if (!isActive || !difference.empty() || (cut && recorded.atEnd()))
            return;
        ++calls;
        ++inEntry;
        now.bytes.clear();
        coder.called(call, now);
        current = next();
        if (current.kind == RecordEvent::none)
            report({"recorded: the entry point has returned", "now " + textOf(call)});
        else if (current.kind != RecordEvent::call || names[current.name].function != call.function)
            report({"recorded " + textOf(current), "now " + textOf(call)});
        else if (current.values != now.bytes)
            compare("argument", call, names[current.name].shown);
    }

    void returned(const watched::Call& call, const watched::Argument& result) override
    {
        now.bytes.clear();
        coder.returned(call, result, now); // also for what it remembers
        if (!isActive || !difference.empty() || (cut && recorded.atEnd()))
            return;
        const RecordedEvent former = current;
        current = next();
        if (current.kind != RecordEvent::result)
            report({"recorded: an exception left " + textOf(former), "now it has returned"});
        else if (current.values != now.bytes)
            compare("result", call, names[former.name].shown);
    }

    void report(std::vector<std::string> lines)
    {
        if (inEntry > 0)
            lines.insert(lines.begin(), fmt::format("call {} of the interface in it:", inEntry));
        difference = std::move(lines);
    }
    // The next difference is none of a call.
    void leaveCalls() { inEntry = 0; }

private:
    struct Name
    {
        std::string function; // of the facade
        std::string shown;    // as the author of the module knows it
    };
    struct RecordedEvent
    {
        RecordEvent kind = RecordEvent::none;
        std::size_t name = 0;
        std::string_view values;
    };

    RecordedEvent next()
    {
        RecordedEvent event;
        const int kind = recorded.byte();
        if (kind < 0 || kind > static_cast<int>(RecordEvent::result))
            throw RecordError("an event has an unknown kind");
        event.kind = static_cast<RecordEvent>(kind);
        if (event.kind == RecordEvent::call) {
            event.name = recorded.count();
            if (event.name > names.size())
                throw RecordError("a function has no name");
            if (event.name == names.size()) {
                Name name;
                name.function = recorded.text();
                name.shown = recorded.text();
                names.push_back(std::move(name));
            }
        }
        if (event.kind != RecordEvent::none)
            event.values = recorded.text();
        return event;
    }

    std::string textOf(const RecordedEvent& event) const
    {
        return event.kind == RecordEvent::call
                   ? callText(names[event.name].shown, readValues(event.values))
                   : "the end of a call";
    }

    std::string textOf(const watched::Call& call) const
    {
        return callText(WatchedCalls::interfaceFunction(call), readValues(now.bytes));
    }

    // `what` of a call differs, byte by byte.
    void compare(const char* what, const watched::Call& call, const std::string& shown)
    {
        const std::vector<CallValue> was = readValues(current.values);
        const std::vector<CallValue> is = readValues(now.bytes);
        for (std::size_t i = 0; i < std::max(was.size(), is.size()); ++i) {
            const CallValue nothing;
            const std::string text = describeDifference(i < was.size() ? was[i] : nothing,
                                                        i < is.size() ? is[i] : nothing, tolerance);
            if (text.empty())
                continue;
            const bool isArgument = *what == 'a';
            const std::string function = WatchedCalls::interfaceFunction(call);
            std::string line = isArgument ? callText(function, is) : function;
            if (function != shown)
                line += " (recorded: " + shown + ")";
            report({line, isArgument || was.size() > 1 ? fmt::format("{} {}: {}", what, i + 1, text)
                                                       : fmt::format("{}: {}", what, text)});
            return;
        }
    }

    CallCoder& coder;
    double tolerance;
    std::vector<Name> names;
    ByteReader recorded;
    RecordedEvent current;
    ByteWriter now;
    int64_t inEntry = 0;
    bool cut = false;
    bool isActive = false;
};

// ---- the kernel ----

std::string findLibrary(const ReplaySettings& settings, const RecordedModule& facts)
{
    if (!settings.library.empty()) {
        if (access(settings.library.c_str(), R_OK) != 0)
            throw CommandError("--library: " + quote(settings.library) + " cannot be read");
        return fs::absolute(settings.library).string();
    }
    const std::string own = (fs::path(settings.vornHome) / "lib" / facts.library).string();
    for (const std::string& path : {own, facts.libraryPath}) {
        if (access(path.c_str(), R_OK) == 0)
            return fs::path(path).lexically_normal().string();
    }
    throw CommandError("the library of the recorded module " + quote(facts.name) + ", " +
                       quote(facts.library) + ", is neither in " +
                       quote(settings.vornHome + "/lib") + " nor at " + quote(facts.libraryPath) +
                       "; name it with --library");
}

AnyProcessFunctionType entryPointOf(void* library, const char* name, const std::string& path)
{
    void* const address = dlsym(library, name);
    if (address == nullptr)
        throw CommandError(quote(path) + " has no entry point " + name +
                           ": it is not the library of a module");
    return reinterpret_cast<AnyProcessFunctionType>(address);
}

void ignoreDiagnostics(QtMsgType, const QMessageLogContext&, const QString&) {}

int showMessage(int type, char*, const char* module, const char* text, void* settings)
{
    if (static_cast<const ReplaySettings*>(settings)->showMessages)
        std::fprintf(stderr, "%-11s %s: %s\n", severityName(type), escaped(module).c_str(),
                     escaped(text).c_str());
    return 0;
}

int ignoreArgument(const char*, void*)
{
    return 0;
}

int acceptPad(int, int, int, int, const char*, void*)
{
    return 0;
}

const char* nameOf(EntryPoint entry)
{
    switch (entry) {
    case EntryPoint::preprocess:
        return "preprocess_";
    case EntryPoint::process:
        return "process_";
    case EntryPoint::postprocess:
        return "postprocess_";
    default:
        return "an entry point";
    }
}

// The recorded module in a kernel of its own.
class ReplayedModule
{
public:
    ReplayedModule(const ReplaySettings& wanted, RecordedModule recorded)
        : settings(wanted), facts(std::move(recorded)), scratch(fs::temp_directory_path().string()),
          manager(*JobManager::getInstance())
    {
        libraryPath = findLibrary(settings, facts);
        prepareKernel();
        makeModule();
        connect();
        setValues();
    }

    ~ReplayedModule()
    {
        if (module == nullptr)
            return;
        module->preProcessFunction = module->processFunction = nullptr;
        module->postProcessFunction = nullptr;
        for (const auto& one : upstream)
            one->inputDataChannels.clear();
        manager.setActiveModule(nullptr);
        for (const auto* channels : {&module->inputDataChannels, &module->outputDataChannels}) {
            for (DataChannel* channel : *channels)
                channel->removeAllTraces(); // of a record that ends before the job
        }
        manager.postProcessJob(); // deletes the module, its channels and its buffers
        manager.installMessageFunc(nullptr, nullptr, nullptr);
        manager.installCreatePadFunc(nullptr, nullptr);
        qInstallMessageHandler(nullptr);
    }
    ReplayedModule(const ReplayedModule&) = delete;
    ReplayedModule& operator=(const ReplayedModule&) = delete;

    const RecordedModule& recorded() const { return facts; }
    const std::string& library() const { return libraryPath; }
    ModuleEntity& entity() { return *module; }

    // Writes its calls as they would have been in the recorded job.
    CallCoder& callCoder() { return *coder; }

    void setMetaData(const VisibleMetaData& values)
    {
        manager.metaDataMap = values.job;
        std::vector<ModuleEntity*> producers;
        producers.reserve(values.upstream.size() + 1);
        for (std::size_t i = 0; i < values.upstream.size(); ++i) {
            if (i == upstream.size())
                upstream.push_back(std::make_unique<ModuleEntity>("upstream"));
            upstream[i]->moduleMetaData = values.upstream[i];
            producers.push_back(upstream[i].get());
        }
        if (module->inputDataChannels.empty())
            return;
        producers.push_back(&producer);
        module->inputDataChannels.front()->inputModules = std::move(producers);
    }

    void repeatChanges(ByteReader& bytes)
    {
        for (DataChannel* channel : module->inputDataChannels)
            repeatChange(bytes, *channel, {&producer, module});
        for (DataChannel* channel : module->outputDataChannels)
            repeatChange(bytes, *channel, {&producer, &consumer});
    }

    void run(EntryPoint entry)
    {
        if (entry == EntryPoint::preprocess) {
            module->preProcessModule();
        } else if (entry == EntryPoint::postprocess) {
            module->postProcessModule();
        } else {
            manager.setActiveModule(module);
            module->processModule();
        }
    }

    // Files of parameters that the module would read and that are not here.
    std::vector<std::string> missingFiles() const
    {
        std::vector<std::string> missing;
        for (const std::string& name : facts.inputFiles) {
            const auto parameter = facts.parameters.find(name);
            if (parameter == facts.parameters.end() || parameter->second.getType() != strType)
                continue;
            const std::string path = parameter->second.getStrValue();
            if (!path.empty() && path != "-" && !fs::exists(path))
                missing.push_back(fmt::format("the file {} of the parameter {} does not exist here",
                                              quote(path), quote(name)));
        }
        return missing;
    }

private:
    void prepareKernel()
    {
        setenv("VORN_HOME", settings.vornHome.c_str(), 1);
        setenv("VORN_SCRATCH", scratch.path().c_str(), 1);
        setenv("VORN_SCRATCH_SIZE", std::to_string(facts.scratchTraces).c_str(), 1);
        ScratchManager::getInstance();
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = facts.scratchTraces;
        qInstallMessageHandler(ignoreDiagnostics);
        manager.installMessageFunc(showMessage, ignoreArgument,
                                   const_cast<ReplaySettings*>(&settings));
        manager.installCreatePadFunc(acceptPad, nullptr);
        manager.jobStartTime = manager.getCurrentTime();
        manager.setActiveModule(nullptr);
        manager.metaDataMap.clear();
        forgetRunningModules();
        manager.setJobName(facts.job.c_str());
        manager.setProjectDir(QString::fromStdString(facts.projectDirectory));
        manager.setScratchDir(QString::fromStdString(scratch.path()));
        manager.trAttDefsList.clear();
        for (const RecordedAttribute& one : facts.schema) {
            trAttDefStr& definition = manager.trAttDefsList[one.name];
            definition = {one.type,    one.dimension, one.description, one.cstSlot,
                          one.cstType, one.bitA,      one.bitZ,        one.mapCoefficient};
        }
    }

    void makeModule()
    {
        const LibraryCall loading(EntryPoint::loading, facts.name);
        void* const library = dlopen(libraryPath.c_str(), RTLD_LAZY);
        if (library == nullptr) {
            const char* const reason = dlerror();
            throw CommandError(quote(libraryPath) + " cannot be loaded: " +
                               (reason != nullptr ? reason : "no reason is known"));
        }
        auto made = std::make_unique<ModuleEntity>(facts.name);
        made->moduleLibraryHandle = made->loadedHandle = library; // closes it
        made->preProcessFunction = entryPointOf(library, "preprocess_", libraryPath);
        made->processFunction = entryPointOf(library, "process_", libraryPath);
        made->postProcessFunction = entryPointOf(library, "postprocess_", libraryPath);
        module = made.release(); // the manager's from here on
        manager.jobModules.push_back(module);
    }

    void connect()
    {
        for (int i = 0; i < facts.inputs; ++i) {
            auto* channel = new CountingChannel;
            channel->attachInputModule(&producer);
            module->setInputDataChannel(channel, i);
        }
        for (std::size_t i = 0; i < facts.consumers.size(); ++i) {
            auto* channel = new CountingChannel;
            module->setOutputDataChannel(channel, static_cast<int>(i));
            if (facts.consumers[i] > 0)
                channel->attachOutputModule(&consumer);
        }
        watchEntryPoints({module});
    }

    void setValues()
    {
        coder = std::make_unique<CallCoder>(*module);
        module->moduleParameters = facts.parameters;
        module->moduleResources = facts.resources;
        for (const auto& [name, value] : facts.options)
            module->setProcessingOption(name, value);
        // Files that a module makes where it stands are removed as well.
        if (chdir(scratch.path().c_str()) != 0)
            throw CommandError(quote(scratch.path()) +
                               " cannot be entered: " + std::strerror(errno));
        for (std::size_t i = 0; i < facts.outputFiles.size(); ++i)
            redirect(facts.outputFiles[i], i);
        coder->replaceInTexts(scratch.path(), facts.scratchDirectory);
    }

    // What the module writes must not take the place of what it wrote in its job. The other path
    // has the same length: modules ask for as much memory as their texts take.
    void redirect(const std::string& name, std::size_t number)
    {
        const auto parameter = module->moduleParameters.find(name);
        if (parameter == module->moduleParameters.end() || parameter->second.getType() != strType ||
            parameter->second.getStrValue().empty())
            return;
        const std::string former = parameter->second.getStrValue();
        std::string now = former;
        std::replace_if(
            now.begin(), now.end(), [](char one) { return one == '/' || one == '-'; }, '_');
        constexpr std::size_t longestName = 200;
        for (std::size_t at = longestName; at + 1 < now.size(); at += longestName)
            now[at] = '/';
        const std::string directory = scratch.path() + "/";
        constexpr std::size_t fewest = 8; // of a name that still has its ending
        if (former.size() >= directory.size() + fewest)
            now = directory + now.substr(directory.size());
        now[now.rfind('/') + 1] = static_cast<char>('a' + number % 26);
        std::error_code ignored; // the module says what cannot be written
        fs::create_directories(fs::path(now).parent_path(), ignored);
        const auto& replaced = facts.replacedFiles;
        if (std::find(replaced.begin(), replaced.end(), name) != replaced.end())
            std::ofstream(now).flush();
        if (now.front() != '/')
            coder->replaceInTexts(directory + now, former);
        coder->replaceInTexts(now, former);
        parameter->second.setValue(now);
    }

    const ReplaySettings& settings;
    RecordedModule facts;
    ScratchSpace scratch;
    JobManager& manager;
    std::string libraryPath;
    ModuleEntity producer{"upstream"};
    ModuleEntity consumer{"downstream"};
    std::vector<std::unique_ptr<ModuleEntity>> upstream; // with the metadata of modules upstream
    ModuleEntity* module = nullptr;
    std::unique_ptr<CallCoder> coder;
};

// Replays one record.
class Player
{
public:
    explicit Player(const ReplaySettings& wanted) : settings(wanted), reader(wanted.file) {}

    ReplayResult play()
    {
        Frame frame;
        if (!reader.next(frame) || frame.kind != FrameKind::module)
            throw CommandError(
                "the record " + quote(settings.file) + " " +
                (reader.problem().empty() ? "ends before its first part" : reader.problem()));
        ByteReader bytes(frame.bytes);
        ReplayedModule module(settings, readModule(bytes));
        describe(module);
        CallComparison calls(module.callCoder(), settings.tolerance);
        const WatchedCalls watched({&calls});
        const LastCallTold told;
        while (!isOver && result.difference.empty() && reader.next(frame))
            take(frame, module, calls);
        result.calls = calls.calls;
        if (!isOver && result.difference.empty())
            noteEnd();
        if (result.entries > 0 && last != EntryPoint::postprocess)
            endModule(module);
        if (!result.difference.empty()) {
            for (const std::string& text : module.missingFiles())
                result.notes.push_back(text);
        }
        return result;
    }

private:
    void describe(const ReplayedModule& module)
    {
        const RecordedModule& facts = module.recorded();
        result.module = facts.name;
        result.kind = facts.module;
        result.job = facts.job;
        result.version = facts.vornVersion;
        result.library = module.library();
    }

    void take(Frame& frame, ReplayedModule& module, CallComparison& calls)
    {
        if (frame.kind == FrameKind::finish) {
            isOver = true;
            if (last != EntryPoint::postprocess)
                result.notes.push_back(
                    fmt::format("the record ends, as it was asked to, after {} calls of process_",
                                processCalls));
            return;
        }
        if (frame.kind != FrameKind::begin)
            throw RecordError("its parts are not in order");
        const std::string found = std::move(frame.bytes);
        bool cut = true;
        std::string events;
        while (cut && reader.next(frame)) {
            if (frame.kind != FrameKind::calls && frame.kind != FrameKind::end)
                throw RecordError("its parts are not in order");
            cut = frame.kind != FrameKind::end;
            events += frame.bytes;
        }
        playEntry(found, events, cut, module, calls);
        if (cut)
            isOver = true;
    }

    void playEntry(const std::string& found, const std::string& events, bool cut,
                   ReplayedModule& module, CallComparison& calls)
    {
        ByteReader bytes(found);
        const int number = bytes.byte();
        if (number < static_cast<int>(EntryPoint::preprocess) ||
            number > static_cast<int>(EntryPoint::postprocess))
            throw RecordError("an entry point is not known");
        const auto entry = static_cast<EntryPoint>(number);
        processCalls = static_cast<int64_t>(bytes.count());
        if (bytes.byte() != 0)
            module.setMetaData(readMetaData(bytes));
        module.repeatChanges(bytes);
        const std::vector<ChannelMark> inputs = marksOf(module.entity().inputDataChannels);
        const std::vector<ChannelMark> outputs = marksOf(module.entity().outputDataChannels);
        last = entry;
        ++result.entries;
        entryOfRecord = result.entries;
        place = placeOfEntry(entry, module);
        if (cut && reader.problem().empty())
            result.notes.push_back("the record ends in " + place + ": the run ended there");
        else if (cut)
            noteEnd();
        calls.begin(events, cut);
        std::string exception;
        const bool isAbandoned = runEntry(entry, module, exception);
        ByteReader rest = calls.end();
        calls.leaveCalls();
        if (calls.difference.empty() && !cut)
            compareEnd(rest, isAbandoned, exception, {inputs, outputs}, module, calls);
        if (calls.difference.empty() && cut && isAbandoned)
            calls.report({"now: " + exception});
        if (!calls.difference.empty()) {
            result.difference = calls.difference;
            result.difference.insert(result.difference.begin(), "in " + place);
        }
    }

    struct Marks
    {
        const std::vector<ChannelMark>& inputs;
        const std::vector<ChannelMark>& outputs;
    };

    // "process_, call 3, trace 3 of its input"
    std::string placeOfEntry(EntryPoint entry, ReplayedModule& module) const
    {
        if (entry != EntryPoint::process)
            return nameOf(entry);
        std::string text = fmt::format("{}, call {}", nameOf(entry), processCalls);
        const auto& inputs = module.entity().inputDataChannels;
        if (inputs.empty())
            return text;
        const auto& input = static_cast<const CountingChannel&>(*inputs.front());
        return text + (input.getNumberOfTraces() == 0
                           ? fmt::format(", after trace {} of its input", input.departed())
                           : fmt::format(", trace {} of its input", input.departed() + 1));
    }

    // Whether an exception has left it.
    bool runEntry(EntryPoint entry, ReplayedModule& module, std::string& exception)
    {
        try {
            module.run(entry);
            return false;
        } catch (const std::exception& error) {
            exception = fmt::format("an exception: {}", error.what());
        } catch (...) {
            exception = "an exception";
        }
        return true;
    }

    void compareEnd(ByteReader& rest, bool isAbandoned, const std::string& exception,
                    const Marks& marks, ReplayedModule& module, CallComparison& calls)
    {
        const bool wasAbandoned = rest.byte() != 0;
        if (wasAbandoned != isAbandoned) {
            calls.report(
                {wasAbandoned ? "recorded: it ended with an exception" : "recorded: it returned",
                 isAbandoned ? "now: " + exception : "now it has returned"});
            return;
        }
        const auto compare = [&](const std::vector<DataChannel*>& channels,
                                 const std::vector<ChannelMark>& before, bool given,
                                 const char* what) {
            for (std::size_t i = 0; i < channels.size(); ++i) {
                ByteWriter bytes;
                writeResult(*channels[i], before[i], given, bytes);
                ByteReader now(bytes.bytes);
                const std::string text =
                    describeResultDifference(rest, now, *channels[i], settings.tolerance);
                if (!text.empty() && calls.difference.empty())
                    calls.report({fmt::format("what it leaves in {} {}:", what, i), text});
            }
        };
        compare(module.entity().inputDataChannels, marks.inputs, false, "input");
        compare(module.entity().outputDataChannels, marks.outputs, true, "output");
    }

    void noteEnd()
    {
        if (reader.problem().starts_with("is damaged") ||
            reader.problem().starts_with("cannot be read"))
            result.damage = reader.problem();
        else
            result.notes.push_back("the record " + (reader.problem().empty()
                                                        ? "ends before the run did"
                                                        : reader.problem()));
    }

    // Lets the module free what it holds; nothing of it is compared.
    void endModule(ReplayedModule& module)
    {
        std::string exception;
        runEntry(EntryPoint::postprocess, module, exception);
    }

    const ReplaySettings& settings;
    RecordReader reader;
    ReplayResult result;
    EntryPoint last = EntryPoint::none;
    int64_t processCalls = 0;
    std::string place;
    bool isOver = false;
};

} // namespace

ReplayResult replay(const ReplaySettings& settings)
{
    try {
        return Player(settings).play();
    } catch (const RecordError& error) {
        throw CommandError("the record " + quote(settings.file) + " is damaged: " + error.what());
    }
}

} // namespace host
