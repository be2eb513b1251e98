/// @file KernelFixture.h
///
/// A fresh kernel for every test, and a host that writes down what the kernel tells it.
#ifndef KERNELFIXTURE_H
#define KERNELFIXTURE_H

#include "JobManager.h"
#include "ScratchManager.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

/// A message as the host received it, with the arguments that followed it.
struct HostMessage
{
    int type;
    std::string timeStamp;
    std::string moduleName;
    std::string text;
};

/// What the call-backs of one test received, in order. Its address is every call-back's `funcObj`.
struct HostRecord
{
    std::vector<HostMessage> messages;
    std::vector<std::string> messageArguments;
    std::vector<jobStatisticStruct> statistics;

    std::vector<std::string> texts() const; ///< the messages' texts
    std::vector<std::string> textsOfType(int type) const;
};

/// Sets an environment variable (null: unsets it) for the lifetime of the object.
class ScopedEnvironment
{
public:
    ScopedEnvironment(const std::string& name, const char* value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name;
    bool wasSet;
    std::string former;
};

/// A directory of its own, removed with everything in it.
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string path() const { return directory.string(); }
    std::string operator/(const std::string& name) const { return (directory / name).string(); }
    std::vector<std::string> names() const; ///< entries, sorted

private:
    std::filesystem::path directory;
};

/// New singletons (job manager, scratch manager with its limit of 10000 traces) before each test
/// and again after it, `VORN_HOME` at the test modules, `VORN_SCRATCH` at a directory of the test's
/// own and `VORN_SCRATCH_SIZE` unset. Message and statistics call-backs are installed.
class KernelFixture : public ::testing::Test
{
protected:
    KernelFixture();
    ~KernelFixture() override;

    JobManager& job() { return *JobManager::getInstance(); }
    ScratchManager& scratch() { return *ScratchManager::getInstance(); }

    /// Deletes both singletons, so that the next use creates them.
    static void renewSingletons();
    void installRecorder();

    TemporaryDirectory scratchDirectory;
    ScopedEnvironment home;
    ScopedEnvironment scratchVariable;
    ScopedEnvironment scratchSize;
    HostRecord host;
};

#endif
