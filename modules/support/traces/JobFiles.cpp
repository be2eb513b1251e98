#include "traces/JobFiles.h"

#include "MOXKernel.h"
#include "file/FileIdentity.h"

#include <stdexcept>

namespace traces {

namespace {

constexpr int jobScope = 0;
constexpr int warningMessage = 2;
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
    setMetaDataOfRun(inputKey(VORN::fileIdentity(path)), path);
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
            setMetaDataOfRun(key, getModuleName());
    }
}

bool isToBePublished(const std::string& path, bool hasTraces)
{
    if (isJobCancelled() != 0) {
        sendMessage(warningMessage,
                    (path + ": is not written, since the job was cancelled").c_str());
        return false;
    }
    const std::string failure = ofTheJob("vorn.failed");
    if (failure.empty() && hasTraces)
        return true;
    const std::string why =
        failure.empty() ? "no trace arrived" : "the job failed (" + failure + ")";
    sendMessage(errorMessage, (path + ": is not written, since " + why).c_str());
    return false;
}

void requireLength(const std::string& path, int64_t number, int samples, int length)
{
    if (samples != length)
        throw std::runtime_error(path + ": trace " + std::to_string(number) + " has " +
                                 std::to_string(samples) + " samples, those before " +
                                 std::to_string(length) +
                                 "; all traces of the file must have one length");
}

const float* samplesToWrite(void* input, const std::string& path, int64_t number, int length)
{
    requireLength(path, number, getTraceLength(input), length);
    const float* samples = getTraceSamples(input, 0);
    if (samples == nullptr)
        throw std::runtime_error(path + ": trace " + std::to_string(number) +
                                 " has no samples; there was no memory for it");
    return samples;
}

void requireRange(const VORN::OutputFile& file)
{
    if (!file.isRange())
        throw std::runtime_error(file.path() + ": is not an output that parts of a job write "
                                               "together; make a new plan");
}

std::string gapBetweenParts(int64_t first, int64_t before)
{
    return "its first trace is number " + std::to_string(first + 1) +
           " of the file, and the parts before it end with trace " + std::to_string(before);
}

} // namespace traces
