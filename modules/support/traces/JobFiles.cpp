#include "traces/JobFiles.h"

#include "MOXKernel.h"
#include "file/FileIdentity.h"

#include <stdexcept>

namespace traces {

namespace {

constexpr int jobScope = 0;
constexpr int errorMessage = 3;

// A file has one identity under all its names.
std::string inputKey(const std::string& identity)
{
    return "segy.reads." + identity;
}

std::string ofTheJob(const std::string& key)
{
    return getMetaDataValue(jobScope, key).getStrValue();
}

} // namespace

void announceInput(const std::string& path)
{
    setMetaDataValue(jobScope, inputKey(VORN::fileIdentity(path)), path);
}

void refuseInputs(const std::string& path)
{
    const std::string identity = VORN::fileIdentity(path);
    if (!identity.empty() && !ofTheJob(inputKey(identity)).empty())
        throw std::runtime_error(path + ": is read by this job and would be replaced; write to "
                                        "another file");
}

void refuseSecondWriter(const std::string& path)
{
    if (VORN::isWrittenThrough(path))
        return; // both get their bytes through
    // Hard links are one file under several paths.
    for (const std::string& place : {VORN::canonicalPath(path), VORN::fileIdentity(path)}) {
        const std::string key = "segy.writes." + place;
        const std::string other = place.empty() ? "" : ofTheJob(key);
        if (!other.empty())
            throw std::runtime_error(path + ": is written by module \"" + other +
                                     "\", too; write to another file");
        if (!place.empty())
            setMetaDataValue(jobScope, key, getModuleName());
    }
}

bool isToBePublished(const std::string& path, bool hasTraces)
{
    const std::string failure = ofTheJob("vorn.failed");
    if (failure.empty() && hasTraces)
        return true;
    const std::string why =
        failure.empty() ? "no trace arrived" : "the job failed (" + failure + ")";
    sendMessage(errorMessage, (path + ": is not written, since " + why).c_str());
    return false;
}

const float* samplesToWrite(void* input, const std::string& path, int64_t number, int length)
{
    const std::string trace = path + ": trace " + std::to_string(number);
    if (getTraceLength(input) != length)
        throw std::runtime_error(trace + " has " + std::to_string(getTraceLength(input)) +
                                 " samples, those before " + std::to_string(length) +
                                 "; all traces of the file must have one length");
    const float* samples = getTraceSamples(input, 0);
    if (samples == nullptr)
        throw std::runtime_error(trace + " has no samples; there was no memory for it");
    return samples;
}

} // namespace traces
