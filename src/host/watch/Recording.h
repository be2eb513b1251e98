/// @file Recording.h
///
/// Recording what modules of a job are given and what they give, for `vorn replay`.
#ifndef RECORDING_H
#define RECORDING_H

#include "ModuleEntity.h"
#include "run/RunExtension.h"
#include "run/RunningModule.h"
#include "watch/CallCoding.h"
#include "watch/ChannelCoding.h"
#include "watch/RecordFile.h"
#include "watch/RecordedModule.h"
#include "watched/WatchedCalls.h"

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace host {

/// A module to be recorded, and the file for it.
struct RecordRequest
{
    std::string module; ///< its name in the job
    std::string file;
};

/// Reads MODULE=FILE. Throws CommandError where it is something else, or where the job has no such
/// module.
RecordRequest readRecordRequest(const std::string& text, const ResolvedJob& job);

/// How a call is kept in a record: by numbers of names, the first occurrence with the names.
class CallNames
{
public:
    /// Appends the number, and the names where they are new.
    void write(const watched::Call& call, ByteWriter& bytes);

private:
    std::unordered_map<std::string, uint64_t> numbers; // by function and first text
    std::string key;                                   // kept for its memory
};

/// The record of one module while its job runs.
class ModuleRecording
{
public:
    /// Makes the file. Throws CommandError where that fails.
    explicit ModuleRecording(const RecordRequest& request);

    const std::string& name() const { return request.module; }
    const std::string& file() const { return request.file; }
    ModuleEntity* entity() const { return module; }
    /// Whether calls are still to be recorded.
    bool isOpen() const { return open; }
    /// Why the file could not be written; "" where it could.
    const std::string& problem() const { return writer.problem(); }

    /// Writes what the job says of the module. `entryPoints` are called between begin() and end().
    void connect(ModuleEntity* of, const RecordedModule& facts,
                 const std::array<AnyProcessFunctionType, 3>& entryPoints);
    /// Runs an entry point, which ends as it would without the record.
    int run(EntryPoint entry);
    /// Says in the file that it is whole. The module may be gone.
    void finish();

    void called(const watched::Call& call);
    void returned(const watched::Call& call, const watched::Argument& result);

private:
    void begin(EntryPoint entry);
    void end(bool isAbandoned);
    void write(FrameKind kind);
    void writeMetaData(EntryPoint entry);

    RecordRequest request;
    RecordWriter writer;
    ModuleEntity* module = nullptr;
    std::array<AnyProcessFunctionType, 3> functions = {};
    std::unique_ptr<CallCoder> coder;
    CallNames names;
    std::vector<ChannelMark> inputs; ///< as the module has left them, or has found them
    std::vector<ChannelMark> outputs;
    std::vector<ModuleEntity*> upstream; ///< whose metadata the module sees
    std::size_t metaDataSize = 0;        ///< entries of all that it sees
    int64_t limit = 0;
    int64_t calls = 0; ///< of `process_`
    EntryPoint last = EntryPoint::none;
    ByteWriter bytes;  ///< of the frame that is being made
    ByteWriter values; ///< of one call; kept for its memory
    bool open = true;
    bool isRunning = false;
};

/// Records modules of a job. Requires: this process runs on the watched library. The caller hands
/// the object to the run as its extension, and to WatchedCalls as an observer, behind a check of
/// the calls: what the check refuses is not looked into.
class Recording : public RunExtension, public watched::Observer
{
public:
    /// Makes the files; of each module at most `limit` calls of `process_` are recorded, all for 0.
    /// `version` is that of the command. Throws CommandError.
    Recording(const std::vector<RecordRequest>& requests, int64_t limit, std::string version);
    ~Recording() override;

    void connected(const RunView& view) override;
    void ended(RunResult& result) override;

    /// Called once, when no further call is to be recorded; not from within a call of the
    /// interface.
    std::function<void()> onFull;

    void called(const watched::Call& call) override;
    void returned(const watched::Call& call, const watched::Argument& result) override;

    /// Of the file of each record: its path, and the reason why it is not whole, or "".
    std::vector<std::pair<std::string, std::string>> files() const;

private:
    template <int index>
    static int callEntryPoint();
    void noteFull();
    ModuleRecording* active();

    std::vector<std::unique_ptr<ModuleRecording>> all;
    int64_t limit;
    std::string version;
    std::thread::id thread;
    bool isFull = false; ///< onFull was called
};

} // namespace host

#endif
