#include "ScratchManager.h"

#include "JobManager.h"
#include "kernel_messages.h"
#include "private/JobRun.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

constexpr int defaultLimit = 10000;
constexpr int highestLimit = 99999999;
constexpr int nameAttempts = 1000;

int limitFromEnvironment()
{
    const char* text = std::getenv("VORN_SCRATCH_SIZE");
    if (text == nullptr)
        return 0;
    // Also of a number beyond 32 bits, which must not wrap into the range; no digits give 0.
    const long limit = std::strtol(text, nullptr, 10);
    return limit >= 1 && limit <= highestLimit ? static_cast<int>(limit) : 0;
}

// What a record really takes in the file; the 32-bit size of a huge trace has wrapped.
int64_t recordBytes(const SeisTrace* trace)
{
    return static_cast<int64_t>(std::max(trace->traceHeaderSize, 0)) +
           static_cast<int64_t>(std::max(trace->traceLength, 0)) * 4;
}

int newFileNo()
{
    static int files = 0;
    return ++files;
}

// The blocks of a resident trace in the order of its record.
using Record = std::array<iovec, 2>;

Record recordOf(SeisTrace* trace)
{
    const auto bytes = [](int64_t count) {
        return static_cast<std::size_t>(std::max<int64_t>(count, 0));
    };
    return {iovec{trace->traceHeader, bytes(trace->traceHeaderSize)},
            iovec{trace->traceSamples, bytes(static_cast<int64_t>(trace->traceLength) * 4)}};
}

// Calls `transfer` (preadv or pwritev) until the whole record has gone over, or no more of it does.
// Returns what is left of it.
template <typename Transfer>
Record transferAll(Transfer transfer, int descriptor, Record record, int64_t position)
{
    std::size_t part = 0;
    while (part < record.size()) {
        if (record[part].iov_len == 0) {
            ++part;
            continue;
        }
        const ssize_t done =
            transfer(descriptor, &record[part], static_cast<int>(record.size() - part), position);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            break;
        position += done;
        std::size_t rest = static_cast<std::size_t>(done);
        for (; rest > 0; ++part) {
            const std::size_t here = std::min(rest, record[part].iov_len);
            record[part].iov_base = static_cast<char*>(record[part].iov_base) + here;
            record[part].iov_len -= here;
            rest -= here;
            if (record[part].iov_len > 0)
                break;
        }
    }
    return record;
}

bool isEmpty(const Record& record)
{
    return record[0].iov_len == 0 && record[1].iov_len == 0;
}

void clear(const Record& record)
{
    for (const iovec& part : record) {
        if (part.iov_len > 0)
            std::memset(part.iov_base, 0, part.iov_len);
    }
}

} // namespace

ScratchManager* ScratchManager::ScratchManagerInstance = nullptr;
int ScratchManager::MAX_TRACES_IN_SCRATCH_V = defaultLimit;

void ScratchManager::makeInstance()
{
    ScratchManagerInstance = new ScratchManager;
}

ScratchManager::ScratchManager()
    : scratchFile(nullptr), fileEnd(0), fileNo(0), held(nullptr), heldLeft(false)
{
    if (const int limit = limitFromEnvironment())
        MAX_TRACES_IN_SCRATCH_V = limit;
}

ScratchManager::~ScratchManager()
{
    deleteScratch();
}

void ScratchManager::bringToFront(SeisTrace* trace)
{
    const bool resident = trace->traceSamples != nullptr || trace->traceHeader != nullptr;
    if (!resident && !traces_cache.contains(trace))
        restoreFromScratch(trace);
    traces_cache.push_front(trace);

    while (!traces_cache.empty() &&
           static_cast<int64_t>(traces_cache.size()) > MAX_TRACES_IN_SCRATCH_V) {
        SeisTrace* last = traces_cache.back();
        if (last == held)
            heldLeft = true;
        else
            putToScratch(last);
        traces_cache.pop_back();
    }
}

void ScratchManager::removeTrace(SeisTrace* trace)
{
    if (trace->order != nullptr)
        trace->order->erase(trace);
    if (trace == held)
        held = nullptr;
    if (trace->traceOffset < 0)
        return;
    try {
        freeRecord(trace);
    } catch (const std::bad_alloc&) {
        // The place is not used again: a trace must be destroyed without memory, too.
    }
}

// Without memory for the tables the trace stays where it is: paging out must not fail, since it
// also happens where a hold ends.
int ScratchManager::putToScratch(SeisTrace* trace)
{
    try {
        return writeOut(trace);
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

int ScratchManager::writeOut(SeisTrace* trace)
{
    if (trace->traceSamples == nullptr || trace->traceHeader == nullptr || !checkScratchFile())
        return 0;

    const int size = trace->getTraceMemorySize();
    const int64_t position = trace->traceOffset == -1 ? choosePosition(size) : trace->traceOffset;
    JobManager* job = JobManager::getInstance();
    const int64_t formerEnd = fileEnd;
    if (!writeRecord(trace, position)) {
        const std::string reason = std::strerror(errno);
        // What was appended in part is cut off again; a place within the file is free as before,
        // but others are tried first.
        if (position >= formerEnd && ftruncate(fileno(scratchFile), formerEnd) == 0)
            fileEnd = formerEnd;
        else if (trace->traceOffset == -1)
            keepPosition(size, position);
        job->sendMessage(3, kernel_messages::canNotWriteToScratchFile + scratchFileName + ": " +
                                reason);
        return 0;
    }
    trace->traceOffset = position;
    trace->scratchFileNo = fileNo;

    job->freeTraceBlocks(*trace);
    trace->traceHeader = nullptr;
    trace->traceSamples = nullptr;
    return 1;
}

int ScratchManager::restoreFromScratch(SeisTrace* trace)
{
    const bool resident = trace->traceSamples != nullptr || trace->traceHeader != nullptr;
    if (resident || !checkScratchFile() || trace->traceOffset == -1)
        return 0;

    if (!takeBlocks(trace))
        return 0;
    readRecord(trace);
    freeRecord(trace);
    trace->traceOffset = -1;
    return 1;
}

// Of a trace that has none. Where there is no memory, the record stays the only copy; a trace half
// in memory would lose it.
bool ScratchManager::takeBlocks(SeisTrace* trace)
{
    JobManager* job = JobManager::getInstance();
    const int sampleBytes = 4 * trace->traceLength;
    if (job->reuseTraceBlocks(*trace, sampleBytes, trace->traceHeaderSize))
        return true;
    const AccountedBlock header = job->allocateUncleared(trace->traceHeaderSize);
    const AccountedBlock samples = job->allocateUncleared(sampleBytes);
    if (header.address == nullptr || samples.address == nullptr) {
        job->freeBlock(header);
        job->freeBlock(samples);
        return false;
    }
    trace->traceHeader = static_cast<unsigned char*>(header.address);
    trace->headerPlace = header.place;
    trace->traceSamples = static_cast<float*>(samples.address);
    trace->samplesPlace = samples.place;
    return true;
}

void ScratchManager::deleteScratch()
{
    if (scratchFile == nullptr)
        return;
    std::fclose(scratchFile);
    scratchFile = nullptr;
    fileNo = 0;
    fileEnd = 0;
    const bool removed = unlink(scratchFileName.c_str()) == 0; // before what needs memory
    reserveListed();
    if (removed)
        JobManager::getInstance()->sendMessage(0, kernel_messages::scratchFile + scratchFileName +
                                                      kernel_messages::successfullyRemoved);
}

int ScratchManager::checkScratchFile()
{
    if (scratchFile != nullptr)
        return 1;
    JobManager* job = JobManager::getInstance();
    const char* directory = std::getenv("VORN_SCRATCH");
    if (directory == nullptr) {
        job->sendMessage(3, kernel_messages::scratchVariableNotSet);
        return 0;
    }
    selfCleaning();

    scratchFile = createFile(directory);
    if (scratchFile == nullptr)
        return 0;
    // Unbuffered: with a buffer a write reports success for a record that a full disk then loses at
    // the next seek, when the trace's memory is already gone.
    std::setvbuf(scratchFile, nullptr, _IONBF, 0);
    fileNo = newFileNo();
    fileEnd = 0;
    reserveListed();
    job->sendMessage(0, kernel_messages::scratchFile + scratchFileName +
                            kernel_messages::successfullyCreated);
    return 1;
}

void ScratchManager::selfCleaning() {}

// The file must be ours alone: another job that started in the same second draws the same numbers,
// and a link of that name could lead anywhere. An existing name therefore means the next number.
FILE* ScratchManager::createFile(const std::string& directory)
{
    std::string path;
    int descriptor = -1;
    for (int attempt = 0; attempt < nameAttempts && descriptor < 0; ++attempt) {
        path = directory + "/" + "SF" + std::to_string(JobRun::newFileNumber()) + ".tmp";
        descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (descriptor < 0 && errno != EEXIST)
            break;
    }
    FILE* file = descriptor >= 0 ? fdopen(descriptor, "w+b") : nullptr;
    if (file != nullptr) {
        scratchFileName.swap(path); // a copy could fail, and the file's name would be lost
        return file;
    }
    if (descriptor >= 0) {
        close(descriptor);
        unlink(path.c_str());
    }
    JobManager::getInstance()->sendMessage(3, kernel_messages::canNotCreateScratchFile + path);
    return nullptr;
}

int64_t ScratchManager::choosePosition(int recordSize)
{
    FrontArray<int64_t>& freed = free_blocks[recordSize];
    while (!freed.empty()) {
        const int64_t position = freed.front();
        freed.pop_front();
        const auto passedOver = overwritten.find({recordSize, position});
        if (passedOver == overwritten.end())
            return position;
        overwritten.erase(passedOver);
    }
    return endPosition(recordSize);
}

// A record is appended at the end whatever a former file has left behind it; what it covers is no
// longer taken.
int64_t ScratchManager::endPosition(int64_t recordSize)
{
    while (!reserved.empty() && reserved.begin()->first < fileEnd + recordSize) {
        const auto [start, end] = *reserved.begin();
        if (end > fileEnd)
            overwritten.insert({static_cast<int>(end - start), start});
        reserved.erase(reserved.begin());
    }
    return fileEnd;
}

// Header and samples in one call of the operating system, which says at once whether the disk is
// full. A stream without a file behind it does as it can.
bool ScratchManager::writeRecord(SeisTrace* trace, int64_t position)
{
    const int descriptor = fileno(scratchFile);
    bool written;
    if (descriptor >= 0)
        written = isEmpty(transferAll(pwritev, descriptor, recordOf(trace), position));
    else
        written = fseeko(scratchFile, static_cast<off_t>(position), SEEK_SET) == 0 &&
                  trace->store(scratchFile) == 1;
    if (written) {
        fileEnd = std::max(fileEnd, position + recordBytes(trace));
    } else {
        const int reason = errno;
        // Part of the record may be there; the next one is appended behind it.
        std::clearerr(scratchFile);
        if (fseeko(scratchFile, 0, SEEK_END) == 0)
            fileEnd = std::max(fileEnd, static_cast<int64_t>(ftello(scratchFile)));
        errno = reason;
    }
    return written;
}

// A position that a host has set itself is trusted.
bool ScratchManager::isOfCurrentFile(const SeisTrace* trace) const
{
    return fileNo != 0 && (trace->scratchFileNo == fileNo || trace->scratchFileNo == 0);
}

// What cannot be read becomes zeros. A record of a file that is gone has left nothing to read:
// other records stand there now.
void ScratchManager::readRecord(SeisTrace* trace)
{
    const Record record = recordOf(trace);
    const int descriptor = fileno(scratchFile);
    const bool isThere = isOfCurrentFile(trace);
    if (isThere && descriptor >= 0) {
        errno = 0;
        const Record rest = transferAll(preadv, descriptor, record, trace->traceOffset);
        const int reason = errno;
        clear(rest);
        if (!isEmpty(rest))
            JobManager::getInstance()->sendMessage(
                4, kernel_messages::canNotReadFromScratchFile + scratchFileName + ": " +
                       (reason != 0 ? std::strerror(reason) : "it is too short"));
        return;
    }
    clear(record);
    if (isThere && fseeko(scratchFile, static_cast<off_t>(trace->traceOffset), SEEK_SET) == 0)
        trace->retrieve(scratchFile);
}

// Gives a position that was chosen but not used back: the next trace of this size takes it, unless
// a record has been appended across it by then.
void ScratchManager::keepPosition(int recordSize, int64_t position)
{
    free_blocks[recordSize].push_back(position);
    reserve(position, recordSize);
}

// Lists the record of a trace as free. A record of a former file is taken again only where no
// record of the current file and no other listed one can be: two living traces must never be given
// overlapping places.
void ScratchManager::freeRecord(const SeisTrace* trace)
{
    const int size = trace->getTraceMemorySize();
    if (!isOfCurrentFile(trace))
        reserveOrPassOver(trace->traceOffset, size);
    free_blocks[size].push_back(trace->traceOffset);
}

void ScratchManager::reserveOrPassOver(int64_t position, int recordSize)
{
    if (position < fileEnd || overlapsReserved(position, recordSize))
        overwritten.insert({recordSize, position});
    else
        reserve(position, recordSize);
}

void ScratchManager::reserve(int64_t position, int64_t recordSize)
{
    if (recordSize > 0 && position + recordSize > fileEnd) {
        int64_t& end = reserved[position];
        end = std::max(end, position + recordSize);
    }
}

bool ScratchManager::overlapsReserved(int64_t position, int64_t recordSize) const
{
    const auto after = reserved.lower_bound(position + recordSize);
    return after != reserved.begin() && std::prev(after)->second > position;
}

void ScratchManager::reserveListed()
{
    reserved.clear();
    overwritten.clear();
    for (const auto& [size, positions] : free_blocks) {
        for (const int64_t position : positions)
            reserveOrPassOver(position, size);
    }
}

void ScratchManager::pageOutLeft(SeisTrace* trace)
{
    if (!traces_cache.contains(trace))
        putToScratch(trace);
}
