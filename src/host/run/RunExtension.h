/// @file RunExtension.h
///
/// What takes part in a run besides the modules of its job.
#ifndef RUNEXTENSION_H
#define RUNEXTENSION_H

#include "job/ResolvedJob.h"
#include "job/RunResult.h"
#include "run/JobBuilder.h"

#include <utility>
#include <vector>

class JobManager;
class ModuleEntity;

namespace host {

class JobRunner;

/// The job that runs, as the command sees it.
struct RunView
{
    JobRunner& runner;
    JobManager& manager;
    const ResolvedJob& job;
    const std::vector<ModuleEntity*>& modules; ///< of the job, in its order
    const BuiltJob& wiring;
    RunResult& result; ///< as far as it is known
};

/// Called between the steps of a run, on the thread that runs the job. What these functions throw
/// ends the job with an error; a CommandError also decides the exit code.
class RunExtension
{
public:
    virtual ~RunExtension() = default;

    /// The entry point of readers that are not modules of the job; null: there are none.
    virtual int (*readerFunction() const)() { return nullptr; }
    /// The modules exist and are connected; none has been called.
    virtual void connected(const RunView& /*view*/) {}
    /// All modules have prepared without a fatal error, and the kernel is about to process them.
    virtual void prepared(const RunView& /*view*/) {}
    /// The kernel has said that processing begins; no module has been called.
    virtual void processing(const RunView& /*view*/) {}
    /// Processing has ended; not called when prepared() was not.
    virtual void processed(const RunView& /*view*/, bool /*good*/) {}
    /// All modules have ended, and are no more.
    virtual void ended(RunResult& /*result*/) {}

protected:
    RunExtension() = default;
    RunExtension(const RunExtension&) = default;
    RunExtension& operator=(const RunExtension&) = default;
};

/// Several of them as one, called in their order. It owns none.
class RunExtensions : public RunExtension
{
public:
    /// None of them is null.
    explicit RunExtensions(std::vector<RunExtension*> extensions) : all(std::move(extensions)) {}

    /// That of the first one that has it.
    int (*readerFunction() const)() override
    {
        for (const RunExtension* one : all) {
            if (const auto function = one->readerFunction())
                return function;
        }
        return nullptr;
    }
    void connected(const RunView& view) override
    {
        for (RunExtension* one : all)
            one->connected(view);
    }
    void prepared(const RunView& view) override
    {
        for (RunExtension* one : all)
            one->prepared(view);
    }
    void processing(const RunView& view) override
    {
        for (RunExtension* one : all)
            one->processing(view);
    }
    void processed(const RunView& view, bool good) override
    {
        for (RunExtension* one : all)
            one->processed(view, good);
    }
    void ended(RunResult& result) override
    {
        for (RunExtension* one : all)
            one->ended(result);
    }

private:
    std::vector<RunExtension*> all;
};

} // namespace host

#endif
