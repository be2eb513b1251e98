// Jobs of the kernel without a command around it, in which one call of the C library after the
// other fails: all traces in memory, traces paged out and back, metadata and locks.
#include "DataChannel.h"
#include "FaultRun.h"
#include "JobManager.h"
#include "ModuleEntity.h"
#include "ScratchManager.h"
#include "TestDirectory.h"
#include "failing.h"
#include "fileUtils.h"
#include "metadataprovider.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <map>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// What the tests do for themselves is not part of the job.
class Pause
{
public:
    Pause() { call("vorn_fault_pause"); }
    ~Pause() { call("vorn_fault_resume"); }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

private:
    static void call(const char* name)
    {
        reinterpret_cast<decltype(vorn_fault_pause)*>(dlsym(RTLD_DEFAULT, name))();
    }
};

void copyText(char* to, std::size_t room, const char* text)
{
    std::strncpy(to, text != nullptr ? text : "", room - 1);
}

int recordMessage(int type, char*, const char* module, const char* text, void* object)
{
    auto* record = static_cast<fault_record*>(object);
    const int place = record->messages++;
    if (place < FAULT_MOST_MESSAGES) {
        fault_message& message = record->message[place];
        message.type = type;
        copyText(message.module, sizeof message.module, module);
        copyText(message.text, sizeof message.text, text);
    }
    return 0;
}

void complain(fault_record& record, const std::string& text)
{
    if (record.complaint[0] == '\0')
        copyText(record.complaint, sizeof record.complaint, text.c_str());
}

// ---- A job of modules in C and Fortran ----

struct JobShape
{
    const char* name;
    bool keeps; // a module keeps all traces before it gives any
    int limit;  // traces in memory
    int traces;
    int samples;

    int modules() const { return keeps ? 4 : 3; }
};

void PrintTo(const JobShape& shape, std::ostream* stream)
{
    *stream << shape.name;
}

// A host as it should be: what the kernel or a module throws ends the phase, and the job is ended
// all the same.
class Host
{
public:
    Host(const JobShape& jobShape, fault_record& told) : shape(jobShape), record(told) {}

    void prepare(const std::string& scratch)
    {
        setenv("VORN_HOME", VORN_TEST_HOME, 1);
        setenv("VORN_SCRATCH", scratch.c_str(), 1);
        setenv("VORN_SCRATCH_SIZE", std::to_string(shape.limit).c_str(), 1);
        job().installMessageFunc(recordMessage, nullptr, &record);
        job().addTraceAttributeDefinition("tracl", int32AttType, 1, "", 0, 0, 0, 0, 0);
        job().addTraceAttributeDefinition("weight", float64AttType, 1, "", 0, 0, 0, 0, 0);
        job().addTraceAttributeDefinition("label", 10, 1, "", 0, 0, 0, 0, 0);
        job().addTraceAttributeDefinition("extra", int32AttType, 1, "", 0, 0, 0, 0, 0);
    }

    void run()
    {
        bool made = false;
        guarded([&] { made = build(); });
        bool good = made && record.exception[0] == '\0';
        good = good && phase(1, [] { return job().preProcessJob(); });
        good = good && phase(2, [] { return job().processJob(); });
        job().setActiveModule(nullptr);
        if (!phase(4, [] { return job().postProcessJob(); }))
            guarded([] { ScratchManager::getInstance()->deleteScratch(); });
        const Pause pause;
        compareTotals();
    }

private:
    static JobManager& job() { return *JobManager::getInstance(); }

    bool build()
    {
        std::vector<const char*> libraries = {"fault_source", "fault_keep", "fault_scale",
                                              "fault_sink"};
        if (!shape.keeps)
            libraries.erase(libraries.begin() + 1);
        ModuleEntity* former = nullptr;
        for (const char* library : libraries) {
            ModuleEntity* module =
                job().initJobModule(library, std::string("lib") + library + ".so");
            if (module == nullptr)
                return false;
            ++record.modulesMade;
            if (former != nullptr)
                connect(former, module);
            former = module;
        }
        job().jobModules.front()->setParameter("traces", UniVar(shape.traces));
        job().jobModules.front()->setParameter("samples", UniVar(shape.samples));
        job().jobModules.back()->setResource("record", UniVar(static_cast<void*>(&record)));
        return true;
    }

    void compareTotals()
    {
        int sum = 0;
        for (const auto& [block, size] : job().jobMemoryMap)
            sum += size;
        if (sum != job().totalJobMemoryUsed)
            complain(record, "the job is charged " + std::to_string(job().totalJobMemoryUsed) +
                                 " bytes and has " + std::to_string(sum));
    }

    static void connect(ModuleEntity* from, ModuleEntity* to)
    {
        auto* channel = new DataChannel;
        from->setOutputDataChannel(channel, 0);
        to->setInputDataChannel(channel, 0);
    }

    bool phase(int bit, const std::function<int()>& body)
    {
        bool good = false;
        guarded([&] { good = body() == 0; });
        record.phases |= good ? bit : 0;
        return good;
    }

    void guarded(const std::function<void()>& body)
    {
        try {
            body();
        } catch (const std::exception& error) {
            const Pause pause;
            copyText(record.exception, sizeof record.exception, error.what());
        }
    }

    const JobShape& shape;
    fault_record& record;
};

const Fault memoryFails = {"malloc", ENOMEM, VORN_FAULT_ONCE};

const Fault fileFaults[] = {
    {"open", EACCES, VORN_FAULT_ONCE},      {"fdopen", ENOMEM, VORN_FAULT_ONCE},
    {"write", ENOSPC, VORN_FAULT_ONCE},     {"write", EIO, VORN_FAULT_ONCE},
    {"write", EINTR, VORN_FAULT_ONCE},      {"write", 0, VORN_FAULT_SHORT},
    {"write", ENOSPC, VORN_FAULT_FROM_NOW}, {"fseeko", EIO, VORN_FAULT_ONCE},
    {"fwrite", ENOSPC, VORN_FAULT_ONCE},    {"fread", EIO, VORN_FAULT_ONCE},
    {"read", EIO, VORN_FAULT_ONCE},         {"read", EINTR, VORN_FAULT_ONCE},
    {"read", 0, VORN_FAULT_SHORT},          {"fclose", EIO, VORN_FAULT_ONCE},
    {"unlink", EACCES, VORN_FAULT_ONCE},    {"ftruncate", EIO, VORN_FAULT_ONCE},
    {"close", EIO, VORN_FAULT_ONCE},        {"fcntl", ENOLCK, VORN_FAULT_ONCE},
    {"dlopen", EACCES, VORN_FAULT_ONCE},
};

bool isOneOf(const Fault& fault, std::initializer_list<const char*> functions)
{
    return std::any_of(functions.begin(), functions.end(), [&](const char* function) {
        return std::strcmp(function, fault.function) == 0;
    });
}

// What the kernel goes on with at once.
bool isHarmless(const Fault& fault)
{
    return fault.kind == VORN_FAULT_SHORT || fault.error == EINTR;
}

// What must not cost a trace: one that cannot be paged out stays in memory.
bool isHarmless(const Fault& fault, const ChildResult& result)
{
    if (isHarmless(fault) || result.record->happened == 0)
        return true;
    return !isOneOf(fault, {"malloc", "read", "dlopen"});
}

class KernelFaultTest : public testing::TestWithParam<JobShape>
{
protected:
    ChildResult run(const Fault& fault, long nth)
    {
        return faults.run(
            [&](fault_record& record, const std::function<void()>& armed) {
                Host host(GetParam(), record);
                host.prepare(scratch.path());
                armed();
                host.run();
                return 0;
            },
            fault, nth);
    }

    // The number of the trace that is to arrive at `place`, from 0.
    int expectedNumber(int place) const
    {
        return GetParam().keeps ? GetParam().traces - place : place + 1;
    }

    // What is wrong with the traces that arrived; "" for nothing. Each message of type 4 may stand
    // for one trace that the kernel has lost: the host takes such a job as failed.
    std::string wrongTraces(const ChildResult& result) const
    {
        int place = 0;
        int lost = 0;
        const int messages = result.messagesOfType(4);
        for (int i = 0; i < std::min<int>(result.record->traces, FAULT_MOST_TRACES); ++i) {
            const fault_trace& trace = result.record->trace[i];
            if (!trace.hasSamples || !trace.goodHead || !trace.goodData) {
                if (++lost <= messages)
                    continue;
                return "trace " + std::to_string(trace.number) + " arrived with " +
                       (!trace.hasSamples ? "no samples"
                        : !trace.goodData ? "wrong samples"
                                          : "a wrong header") +
                       ", and nobody is told";
            }
            while (place < GetParam().traces && expectedNumber(place) != trace.number)
                ++place;
            if (place++ == GetParam().traces)
                return "trace " + std::to_string(trace.number) + " arrived out of its turn";
        }
        return "";
    }

    bool isComplete(const ChildResult& result) const
    {
        if (result.record->traces != GetParam().traces)
            return false;
        for (int i = 0; i < GetParam().traces; ++i) {
            const fault_trace& trace = result.record->trace[i];
            if (!trace.goodHead || !trace.goodData || trace.number != expectedNumber(i))
                return false;
        }
        return true;
    }

    std::string verdict(const ChildResult& result, const Fault& fault) const
    {
        if (result.signal == SIGALRM)
            return "the job hangs";
        if (result.signal != 0)
            return std::string("the job crashes: ") + strsignal(result.signal);
        if (result.exitCode != 0 || result.record->complaint[0] != '\0')
            return "the host ends with " + std::to_string(result.exitCode) + ": " +
                   result.record->complaint;
        if (const std::string wrong = wrongTraces(result); !wrong.empty())
            return wrong;
        const bool reported = result.isReported(GetParam().modules());
        if (!isComplete(result) && !reported)
            return "traces are missing, and nobody is told";
        if (isHarmless(fault, result) && !isComplete(result))
            return "traces are missing without need";
        if ((isHarmless(fault) || result.record->happened == 0) && reported)
            return "the host is told of a failure that is none";
        const bool cannotBeRemoved = std::strcmp(fault.function, "unlink") == 0;
        if (!scratch.names().empty() && !cannotBeRemoved)
            return "a scratch file is left: " + scratch.names().front();
        return "";
    }

    // Lets call after call fail, until the job has no such call any more.
    void sweep(const Fault& fault, long most)
    {
        const long calls = run(fault, 0).record->calls;
        scratch.clear();
        FaultSweep sweep(fault, calls, most);
        while (sweep.next()) {
            const ChildResult result = run(fault, sweep.call());
            const std::string what = verdict(result, fault);
            sweep.note(result, what, result.messages());
            scratch.clear();
        }
        sweep.tell(GetParam().name);
    }

    TestDirectory scratch;
    FaultRun faults;
};

} // namespace

TEST_P(KernelFaultTest, RunsWithoutFaults)
{
    const ChildResult result = run(memoryFails, 0);

    EXPECT_EQ(verdict(result, memoryFails), "") << result.messages();
    EXPECT_TRUE(isComplete(result));
}

TEST_P(KernelFaultTest, SurvivesEveryFailureOfTheHeap)
{
    sweep(memoryFails, 600);
}

TEST_P(KernelFaultTest, SurvivesEveryFailureOfTheHeapThatLasts)
{
    sweep({"malloc", ENOMEM, VORN_FAULT_FROM_NOW}, 300);
}

TEST_P(KernelFaultTest, SurvivesEveryFailureWithFiles)
{
    for (const Fault& fault : fileFaults)
        sweep(fault, 200);
}

TEST_P(KernelFaultTest, AModuleThatCannotBeLoadedIsReportedInTheKernelsWords)
{
    const char* const libraries[] = {"fault_source", "fault_keep", "fault_scale", "fault_sink"};
    const Fault fault = {"dlopen", EACCES, VORN_FAULT_ONCE};
    for (int nth = 1; nth <= GetParam().modules(); ++nth) {
        const ChildResult result = run(fault, nth);
        const int place = nth > 1 && !GetParam().keeps ? nth : nth - 1;
        const std::string name = libraries[place];

        EXPECT_EQ(result.record->modulesMade, nth - 1);
        EXPECT_EQ(result.record->traces, 0);
        EXPECT_NE(result.messages().find("1 Kernel: Module library " VORN_TEST_HOME "/lib/lib" +
                                         name + ".so load error \n1 Kernel: Module " + name +
                                         " can not load library lib" + name + ".so\n"),
                  std::string::npos)
            << result.messages();
    }
}

INSTANTIATE_TEST_SUITE_P(Jobs, KernelFaultTest,
                         testing::Values(JobShape{"in_memory", false, 10000, 12, 40},
                                         JobShape{"kept_in_memory", true, 10000, 12, 40},
                                         JobShape{"paging", true, 3, 16, 40},
                                         JobShape{"paging_all_but_one", true, 1, 10, 40}),
                         [](const auto& row) { return std::string(row.param.name); });

namespace {

class PagingFaultTest : public KernelFaultTest
{
};

} // namespace

TEST_P(PagingFaultTest, ATraceThatCannotBeWrittenStaysAndTheHostIsToldOnce)
{
    const Fault fault = {"write", ENOSPC, VORN_FAULT_ONCE};
    const long calls = run(fault, 0).record->calls;
    ASSERT_GT(calls, GetParam().traces);
    for (long nth = 1; nth <= calls; ++nth) {
        const ChildResult result = run(fault, nth);
        EXPECT_TRUE(isComplete(result)) << "write " << nth;
        EXPECT_EQ(result.messagesLike("No space left on device"), 1) << "write " << nth << "\n"
                                                                     << result.messages();
    }
}

TEST_P(PagingFaultTest, ATraceThatCannotBeReadBackIsReported)
{
    const Fault fault = {"read", EIO, VORN_FAULT_ONCE};
    const long calls = run(fault, 0).record->calls;
    ASSERT_GT(calls, GetParam().traces);
    for (long nth = 1; nth <= calls; ++nth) {
        const ChildResult result = run(fault, nth);
        EXPECT_EQ(result.messagesLike("Input/output error"), 1) << "read " << nth << "\n"
                                                                << result.messages();
    }
}

INSTANTIATE_TEST_SUITE_P(Jobs, PagingFaultTest,
                         testing::Values(JobShape{"paging", true, 3, 16, 40},
                                         JobShape{"paging_all_but_one", true, 1, 10, 40}),
                         [](const auto& row) { return std::string(row.param.name); });

// ---- What must work without memory: destructors and all that they call ----

namespace {

class DestructionTest : public testing::Test
{
protected:
    // Runs `prepare`, and then `destroy` while the heap gives nothing.
    template <typename Prepare, typename Destroy>
    void expectSuccess(Prepare prepare, Destroy destroy)
    {
        const ChildResult result = faults.run(
            [&](fault_record&, const std::function<void()>& armed) {
                setenv("VORN_SCRATCH", scratch.path().c_str(), 1);
                setenv("VORN_SCRATCH_SIZE", "1", 1);
                setenv("VORN_HOME", VORN_TEST_HOME, 1);
                prepare();
                armed();
                destroy();
                return 0;
            },
            {"malloc", ENOMEM, VORN_FAULT_FROM_NOW}, 1);
        EXPECT_EQ(result.signal, 0) << strsignal(result.signal);
        EXPECT_EQ(result.exitCode, 0) << result.record->complaint;
    }

    static JobManager& job() { return *JobManager::getInstance(); }

    TestDirectory scratch;
    FaultRun faults;
    std::vector<void*> blocks;
    SeisTraceSet* set = nullptr;
    ModuleEntity* module = nullptr;
};

} // namespace

TEST_F(DestructionTest, BlocksAreFreed)
{
    expectSuccess(
        [this] {
            for (int i = 0; i < 3000; ++i)
                blocks.push_back(job().allocateResource(100));
        },
        [this] {
            for (void* block : blocks)
                job().freeResource(block);
        });
}

TEST_F(DestructionTest, TracesAreDestroyedInMemoryAndPagedOut)
{
    expectSuccess(
        [this] {
            set = new SeisTraceSet;
            set->setTraceLength(10);
            set->setUseScratch(true);
            for (int i = 0; i < 100; ++i)
                set->getTrace(i, true);
        },
        [this] {
            for (int i = 0; i < 100; ++i)
                delete set->getTrace(i, false);
        });
}

TEST_F(DestructionTest, ModulesThatHoldBlocksAreDeleted)
{
    expectSuccess(
        [this] {
            module = job().initJobModule("sink", "libfault_sink.so");
            job().setActiveModule(module);
            for (int i = 0; i < 10; ++i)
                job().allocateResource(100);
            job().setActiveModule(nullptr);
        },
        [this] { delete module; });
}

TEST_F(DestructionTest, TheScratchFileIsRemoved)
{
    expectSuccess(
        [this] {
            set = new SeisTraceSet;
            set->setTraceLength(10);
            for (int i = 0; i < 100; ++i)
                set->getTrace(i, true);
        },
        [] {
            try {
                ScratchManager::getInstance()->deleteScratch();
            } catch (const std::bad_alloc&) {
                // The message could not be sent.
            }
        });
    EXPECT_TRUE(scratch.names().empty());
}

// ---- Metadata and locks ----

namespace {

using MetaData = std::map<std::string, std::string>;

const MetaData formerData = {{"author", "somebody"}, {"units", "m"}};

MetaData newData()
{
    MetaData data = {{"line", "l001"}, {"shots", "240"}};
    data["text"] = std::string(20000, 'x'); // more than any buffer
    return data;
}

void collect(void* map, const std::string& key, const std::string& value)
{
    const Pause pause;
    static_cast<MetaData*>(map)->emplace(key, value);
}

bool exists(const std::string& path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

// Whether this process holds a record lock on the file. A lock of an open file is refused by one
// of the process's own, too.
bool isHeldHere(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    const bool held = fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    // The descriptor stays open: closing it would end the lock that was asked about.
    return held;
}

// What one call under faults must leave behind. Each step says what it found wrong in the record.
class MetadataAndLocks
{
public:
    MetadataAndLocks(const std::string& project, const Fault& fault, fault_record& told)
        : directory(project), data(directory + "/line.sgy"),
          mayNotOpen(isOneOf(fault, {"open", "fopen", "malloc"})),
          mayNotCut(isOneOf(fault, {"ftruncate"})), record(told)
    {
        provider().setRefDir(directory);
        mkdir((directory + "/.metadata").c_str(), 0700);
        if (!provider().storeMetadata(data, formerData))
            complain(record, "the former metadata cannot be stored");
    }

    void run()
    {
        record.modulesMade = 0;
        step([this] { lockAndUnlock(); });
        step([this] { storeAndLoad(); });
        step([this] { openLocked("shared", 64); });
        step([this] { openLocked("emptied", 128); });
        step([this] { openLocked("read", 1); });
        step([this] { openLocked("updated", 2); });
        record.phases = 7;
    }

private:
    static VORN::MetadataProvider& provider() { return *VORN::MetadataProvider::getInstance(); }
    static VORN::FileLocksProvider& locks() { return *VORN::FileLocksProvider::getInstance(); }

    void step(const std::function<void()>& body)
    {
        try {
            body();
        } catch (const std::bad_alloc&) {
            const Pause pause;
            copyText(record.exception, sizeof record.exception, "no memory");
        }
    }

    void expect(bool good, const std::string& text)
    {
        if (!good)
            complain(record, text);
    }

    void lockAndUnlock()
    {
        const int locked = locks().lockFile(data, 5);
        {
            const Pause pause;
            const bool there = exists(data + ".lck");
            expect(locked == 0 || locked == -1 || locked == -2,
                   "lockFile gives " + std::to_string(locked));
            expect(there == (locked == 0), "lockFile gives " + std::to_string(locked) +
                                               ", and the file is " +
                                               (there ? "there" : "not there"));
        }
        if (locked != 0)
            return;
        const int unlocked = locks().unlockFile(data, 5);
        const Pause pause;
        expect(unlocked == 0 || unlocked == -2, "unlockFile gives " + std::to_string(unlocked));
        unlink((data + ".lck").c_str());
    }

    // A file of metadata is whole, the former one or the new one, whatever fails.
    void storeAndLoad()
    {
        bool stored = false;
        bool threw = false;
        try {
            stored = provider().storeMetadata(data, newData());
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        MetaData there;
        {
            const Pause pause;
            provider().loadMetadata(data, collect, &there);
            expect(there == formerData || there == newData(),
                   std::string("storeMetadata has left half a file and ") + (threw ? "thrown"
                                                                             : stored
                                                                                 ? "given true"
                                                                                 : "given false"));
            // A file that cannot be opened is no failure for storeMetadata.
            expect(!stored || there == newData() || mayNotOpen,
                   "storeMetadata gives true, and the file is the former one");
        }
        MetaData loaded;
        const bool good = provider().loadMetadata(data, collect, &loaded);
        const Pause pause;
        expect(good ? loaded == there : loaded.empty(),
               std::string("loadMetadata gives ") + (good ? "true" : "false") + " and " +
                   std::to_string(loaded.size()) + " of " + std::to_string(there.size()) +
                   " entries");
    }

    void openLocked(const std::string& name, int mode)
    {
        const std::string path = directory + "/" + name;
        {
            const Pause pause;
            const int made = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
            expect(::write(made, "content", 7) == 7, "no content");
            ::close(made);
        }
        int reason = 77;
        FILE* stream = nullptr;
        bool threw = false;
        try {
            stream = locks().openSysLocked(path, mode, &reason);
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        const Pause pause;
        struct stat status = {};
        stat(path.c_str(), &status);
        const bool held = isHeldHere(path);
        const std::string mine = "openSysLocked with " + std::to_string(mode);
        if (stream != nullptr) {
            expect(held, mine + " gives a stream without a lock");
            expect(locks().getFile(path) == stream, mine + " does not know its stream");
            // What cannot be cut, as a device, is opened all the same.
            expect((status.st_size == 0) == (mode == 128) || mayNotCut,
                   mine + " has left a wrong content");
            expect(locks().closeFile(path) == 0, mine + " cannot be closed");
        } else if (mode == 64) {
            expect(threw ? !held : held == (reason == 77),
                   mine + " gives null, reason " + std::to_string(reason) + ", and the file is " +
                       (held ? "held" : "not held"));
            locks().closeFile(path);
        } else {
            expect(!held, mine + " fails and holds the file");
            expect(threw || reason == -1 || reason == -2,
                   mine + " fails with the reason " + std::to_string(reason));
        }
        expect(!isHeldHere(path), mine + ": the file stays locked");
    }

    std::string directory;
    std::string data;
    bool mayNotOpen;
    bool mayNotCut;
    fault_record& record;
};

class MetadataFaultTest : public testing::TestWithParam<Fault>
{
protected:
    ChildResult run(long nth)
    {
        TestDirectory project;
        const ChildResult result = faults.run(
            [&](fault_record& record, const std::function<void()>& armed) {
                MetadataAndLocks calls(project.path(), GetParam(), record);
                armed();
                calls.run();
                return 0;
            },
            GetParam(), nth);
        for (const std::string& name : project.names()) {
            static const char* const expected[] = {".metadata", "emptied", "line.sgy.lck",
                                                   "read",      "shared",  "updated"};
            EXPECT_NE(std::find(std::begin(expected), std::end(expected), name), std::end(expected))
                << name << " is left";
        }
        return result;
    }

    FaultRun faults;
};

} // namespace

TEST_P(MetadataFaultTest, LeavesWholeFilesAndTrueResults)
{
    FaultSweep sweep(GetParam(), run(0).record->calls, 1000);
    while (sweep.next()) {
        const ChildResult result = run(sweep.call());
        std::string what = result.record->complaint;
        if (result.signal != 0)
            what = strsignal(result.signal);
        else if (what.empty() && result.exitCode != 0)
            what = "the process ends with " + std::to_string(result.exitCode);
        sweep.note(result, what, "");
    }
    sweep.tell("metadata and locks");
}

INSTANTIATE_TEST_SUITE_P(
    Faults, MetadataFaultTest,
    testing::Values(Fault{"malloc", ENOMEM, VORN_FAULT_ONCE},
                    Fault{"malloc", ENOMEM, VORN_FAULT_FROM_NOW},
                    Fault{"open", EACCES, VORN_FAULT_ONCE}, Fault{"open", EMFILE, VORN_FAULT_ONCE},
                    Fault{"fopen", EMFILE, VORN_FAULT_ONCE},
                    Fault{"fdopen", ENOMEM, VORN_FAULT_ONCE},
                    Fault{"write", ENOSPC, VORN_FAULT_ONCE}, Fault{"write", EIO, VORN_FAULT_ONCE},
                    Fault{"write", EINTR, VORN_FAULT_ONCE}, Fault{"write", 0, VORN_FAULT_SHORT},
                    Fault{"fwrite", ENOSPC, VORN_FAULT_ONCE}, Fault{"read", EIO, VORN_FAULT_ONCE},
                    Fault{"read", EINTR, VORN_FAULT_ONCE}, Fault{"read", 0, VORN_FAULT_SHORT},
                    Fault{"fseeko", EIO, VORN_FAULT_ONCE}, Fault{"fcntl", ENOLCK, VORN_FAULT_ONCE},
                    Fault{"ftruncate", EIO, VORN_FAULT_ONCE},
                    Fault{"unlink", EACCES, VORN_FAULT_ONCE}, Fault{"rename", EIO, VORN_FAULT_ONCE},
                    Fault{"close", EIO, VORN_FAULT_ONCE}, Fault{"fclose", EIO, VORN_FAULT_ONCE},
                    Fault{"fsync", EIO, VORN_FAULT_ONCE}, Fault{"stat", EACCES, VORN_FAULT_ONCE}),
    [](const auto& row) {
        std::ostringstream name;
        name << row.param;
        std::string text = name.str();
        std::replace_if(
            text.begin(), text.end(), [](char c) { return !isalnum(c); }, '_');
        return text;
    });
