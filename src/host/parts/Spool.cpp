#include "parts/Spool.h"

#include "SeisTrace.h"
#include "base/CommandError.h"
#include "base/Escaping.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <sys/stat.h>
#include <vector>

namespace host {

namespace {

constexpr char magic[8] = {'V', 'O', 'R', 'N', 's', 'p', 'l', '1'};
constexpr std::size_t bufferBytes = std::size_t{1} << 20;
constexpr int32_t mostSamples = 1 << 28;
constexpr int32_t mostHeaderBytes = 1 << 24;

enum Record : uint8_t
{
    layoutRecord = 'L',
    traceRecord = 'T',
    endRecord = 'E'
};

} // namespace

// ---- writing ----

SpoolWriter::SpoolWriter(const std::string& path)
    : own(path), name(path), file(std::fopen(own.temporaryPath().c_str(), "we"))
{
    if (file == nullptr)
        throw CommandError("the spool " + quote(name) + " cannot be made: " + std::strerror(errno),
                           exitTryAgain);
    std::setvbuf(file.get(), nullptr, _IOFBF, bufferBytes);
    put(magic);
}

void SpoolWriter::put(const void* bytes, std::size_t size)
{
    if (size > 0 && std::fwrite(bytes, size, 1, file.get()) != 1)
        throw CommandError("the spool " + quote(name) +
                               " cannot be written: " + std::strerror(errno),
                           exitTryAgain);
}

// Places in headers follow from the names in their order, and the schema of the job.
void SpoolWriter::putLayout(const SeisTraceSet& set)
{
    std::vector<std::pair<int, std::string>> names;
    names.reserve(set.attrDefs.size());
    for (const auto& [attribute, place] : set.attrDefs)
        names.emplace_back(place.offset, attribute);
    std::sort(names.begin(), names.end());
    put(layoutRecord);
    put(static_cast<int32_t>(names.size()));
    for (const auto& [offset, attribute] : names) {
        put(static_cast<int32_t>(attribute.size()));
        put(attribute.data(), attribute.size());
    }
    put(static_cast<int32_t>(set.currentHeaderSize));
    put(static_cast<int32_t>(set.traceLength));
    put(static_cast<int32_t>(set.sampleInterval));
    layout = set.layoutNumber;
    length = set.traceLength;
    interval = set.sampleInterval;
}

void SpoolWriter::write(SeisTraceSet& set)
{
    const SeisTrace* trace = set.getTrace(0, true);
    if (trace == nullptr)
        return;
    if (count == 0 || set.layoutExposed || layout != set.layoutNumber ||
        length != set.traceLength || interval != set.sampleInterval)
        putLayout(set);
    const int samples = trace->traceSamples != nullptr ? trace->traceLength : 0;
    const int headerBytes = trace->traceHeader != nullptr ? trace->traceHeaderSize : 0;
    put(traceRecord);
    put(static_cast<int32_t>(trace->traceFlag));
    put(static_cast<int32_t>(headerBytes));
    put(static_cast<int32_t>(samples));
    put(trace->traceHeader, static_cast<std::size_t>(headerBytes));
    put(trace->traceSamples, static_cast<std::size_t>(samples) * sizeof(float));
    ++count;
}

void SpoolWriter::close(bool onDisk)
{
    put(endRecord);
    put(count);
    FILE* const last = file.release();
    const bool whole = std::fflush(last) == 0;
    const int error = errno;
    std::fclose(last);
    if (!whole)
        throw CommandError("the spool " + quote(name) +
                               " cannot be written: " + std::strerror(error),
                           exitTryAgain);
    if (onDisk)
        own.sync();
    own.publish();
}

// ---- reading ----

SpoolReader::SpoolReader(const std::string& path) : name(path), file(std::fopen(path.c_str(), "re"))
{
    if (file == nullptr)
        throw CommandError("the spool " + quote(name) + " cannot be read: " + std::strerror(errno),
                           exitJobErrors);
    struct stat status = {};
    if (fstat(fileno(file.get()), &status) == 0)
        bytes = status.st_size;
    std::setvbuf(file.get(), nullptr, _IOFBF, bufferBytes);
    char first[sizeof magic];
    get(first, sizeof first);
    if (std::memcmp(first, magic, sizeof magic) != 0)
        refuse("is not a spool of this version");
    advance();
}

void SpoolReader::refuse(const std::string& why) const
{
    throw CommandError(
        fmt::format("the spool {} {} (trace {}); run its part again", quote(name), why, count + 1),
        exitJobErrors);
}

void SpoolReader::get(void* to, std::size_t size)
{
    if (size > 0 && std::fread(to, size, 1, file.get()) != 1)
        refuse("is cut");
}

// To the next trace, or to the end.
void SpoolReader::advance()
{
    for (;;) {
        switch (get<uint8_t>()) {
        case layoutRecord:
            readLayout();
            break;
        case traceRecord:
            return;
        case endRecord:
            if (get<int64_t>() != count)
                refuse("has another number of traces than it says");
            ended = true;
            return;
        default:
            refuse("is damaged");
        }
    }
}

void SpoolReader::readLayout()
{
    staging = std::make_unique<SeisTraceSet>();
    staging->setUseScratch(false);
    const auto names = get<int32_t>();
    if (names < 0 || names > mostHeaderBytes)
        refuse("is damaged");
    std::string attribute;
    for (int32_t i = 0; i < names; ++i) {
        const auto size = get<int32_t>();
        if (size < 0 || size > mostHeaderBytes)
            refuse("is damaged");
        attribute.resize(static_cast<std::size_t>(size));
        get(attribute.data(), attribute.size());
        staging->defineAttribute(attribute);
    }
    if (get<int32_t>() != staging->currentHeaderSize)
        refuse("was written with another schema");
    staging->setTraceLength(get<int32_t>());
    staging->setTraceSampleInterval(get<int32_t>());
    isNewLayout = true;
}

int SpoolReader::read(SeisTraceSet& set)
{
    const auto flag = get<int32_t>();
    const auto headerBytes = get<int32_t>();
    const auto samples = get<int32_t>();
    // No more memory than the file can fill.
    if (staging == nullptr || headerBytes < 0 || samples < 0 || headerBytes > mostHeaderBytes ||
        samples > mostSamples || int64_t{4} * samples + headerBytes > bytes)
        refuse("is damaged");
    if (isNewLayout) {
        for (const auto& [attribute, place] : staging->attrDefs)
            set.defineAttribute(attribute);
        set.setTraceLength(staging->getTraceLength());
        set.setTraceSampleInterval(staging->getTraceSampleInterval());
        isNewLayout = false;
    }
    auto trace = std::make_unique<SeisTrace>(samples, headerBytes, SeisTrace::SamplesFollow());
    if ((samples > 0 && trace->traceSamples == nullptr) ||
        (headerBytes > 0 && trace->traceHeader == nullptr))
        throw CommandError("there is no memory for a trace of the spool " + quote(name),
                           exitTryAgain);
    get(trace->traceHeader, static_cast<std::size_t>(headerBytes));
    get(trace->traceSamples, static_cast<std::size_t>(samples) * sizeof(float));
    trace->traceFlag = 0;
    staging->addTrace(trace.release());
    set.copyFromTrace(staging.get(), true, true, 0, set.getNumberOfTraces());
    staging->removeTrace(0);
    ++count;
    advance();
    return flag;
}

} // namespace host
