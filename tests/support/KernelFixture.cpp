#include "KernelFixture.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace {

int recordMessage(int type, char* stamp, const char* module, const char* text, void* object)
{
    static_cast<HostRecord*>(object)->messages.push_back({type, stamp, module, text});
    return 0;
}

int recordArgument(const char* text, void* object)
{
    static_cast<HostRecord*>(object)->messageArguments.emplace_back(text);
    return 0;
}

int recordStatistic(jobStatisticStruct* statistic, void* object)
{
    static_cast<HostRecord*>(object)->statistics.push_back(*statistic);
    return 0;
}

} // namespace

std::vector<std::string> HostRecord::texts() const
{
    std::vector<std::string> all;
    for (const HostMessage& message : messages)
        all.push_back(message.text);
    return all;
}

std::vector<std::string> HostRecord::textsOfType(int type) const
{
    std::vector<std::string> some;
    for (const HostMessage& message : messages) {
        if (message.type == type)
            some.push_back(message.text);
    }
    return some;
}

ScopedEnvironment::ScopedEnvironment(const std::string& variable, const char* value)
    : name(variable), wasSet(std::getenv(variable.c_str()) != nullptr)
{
    if (wasSet)
        former = std::getenv(name.c_str());
    if (value != nullptr)
        setenv(name.c_str(), value, 1);
    else
        unsetenv(name.c_str());
}

ScopedEnvironment::~ScopedEnvironment()
{
    if (wasSet)
        setenv(name.c_str(), former.c_str(), 1);
    else
        unsetenv(name.c_str());
}

TemporaryDirectory::TemporaryDirectory()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "vorn-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("no temporary directory " + pattern);
    directory = pattern;
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

std::vector<std::string> TemporaryDirectory::names() const
{
    std::vector<std::string> entries;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        entries.push_back(entry.path().filename().string());
    std::sort(entries.begin(), entries.end());
    return entries;
}

KernelFixture::KernelFixture()
    : home("VORN_HOME", VORN_TEST_HOME),
      scratchVariable("VORN_SCRATCH", scratchDirectory.path().c_str()),
      scratchSize("VORN_SCRATCH_SIZE", nullptr)
{
    renewSingletons();
    installRecorder();
}

KernelFixture::~KernelFixture()
{
    job().installMessageFunc(nullptr, nullptr, nullptr);
    job().installStatisticFunc(nullptr, nullptr);
    renewSingletons();
}

void KernelFixture::renewSingletons()
{
    delete ScratchManager::ScratchManagerInstance; // which may still send a message
    ScratchManager::ScratchManagerInstance = nullptr;
    delete JobManager::jobManagerInstance;
    JobManager::jobManagerInstance = nullptr;
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 10000;
}

void KernelFixture::installRecorder()
{
    job().installMessageFunc(recordMessage, recordArgument, &host);
    job().installStatisticFunc(recordStatistic, &host);
}
