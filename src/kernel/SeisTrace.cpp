#include "SeisTrace.h"

#include "JobManager.h"
#include "ScratchManager.h"
#include "kernel_messages.h"
#include "private/BlockBytes.h"
#include "private/BlockTable.h"
#include "private/wrapping.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <istream>
#include <new>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int headerStep = 64;
constexpr int64_t sampleBytes = sizeof(float);

// Accounted sizes have 32 bits; a wrapped size would give a block shorter than the trace says.
[[gnu::noinline, gnu::cold]] void refuseBlock(int64_t bytes)
{
    JobManager::getInstance()->sendMessage(4, kernel_messages::canNotAllocate +
                                                  std::to_string(bytes) +
                                                  kernel_messages::byteMemoryBlock);
}

// An uncleared block of accounted memory; null, after the kernel's message, when there is none.
template <typename T>
T* takeBlock(int64_t bytes, uint32_t& place)
{
    if (bytes < INT_MIN || bytes > INT_MAX) {
        refuseBlock(bytes);
        place = BlockTable::nowhere;
        return nullptr;
    }
    const AccountedBlock block =
        JobManager::getInstance()->allocateUncleared(static_cast<int>(bytes));
    place = block.place;
    return static_cast<T*>(block.address);
}

void copyBytes(void* to, const void* from, int64_t bytes)
{
    if (bytes > 0)
        std::memmove(to, from, static_cast<std::size_t>(bytes));
}

template <typename T>
UniVar readScalar(const unsigned char* from)
{
    T value;
    std::memcpy(&value, from, sizeof value);
    return UniVar(value);
}

// Headers are not aligned, so elements are copied as bytes into a value of the right size.
template <typename T>
UniVar readArray(const unsigned char* from, int dim, int64_t bytesThere,
                 T* (UniVar::*elements)() const)
{
    const int64_t bytes = dim * static_cast<int64_t>(sizeof(T));
    if (bytes > bytesThere)
        return UniVar();
    UniVar value(static_cast<T*>(nullptr), dim);
    copyBytes((value.*elements)(), from, bytes);
    return value;
}

template <typename T>
void writeScalar(unsigned char* to, T value, int size)
{
    copyBytes(to, &value, std::min<int64_t>(size, sizeof value));
}

template <typename T>
void writeArray(unsigned char* to, int size, const T* elements, int count)
{
    if (elements != nullptr)
        copyBytes(to, elements, std::min<int64_t>(size, count * static_cast<int64_t>(sizeof(T))));
}

void writeText(unsigned char* to, int size, const std::string& text)
{
    const std::size_t used = std::min(text.size(), static_cast<std::size_t>(size));
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result): fields of fixed size, zeros only behind
    std::memcpy(to, text.data(), used);
    std::memset(to + used, 0, static_cast<std::size_t>(size) - used);
}

// Every hop of a trace makes one trace and deletes one. A place just left is the quickest to reuse;
// those of a backlog that is gone go back to the heap.
struct FreePlace
{
    FreePlace* next;
};

struct Places
{
    FreePlace* first = nullptr;
    int count = 0;
};

#ifdef __SANITIZE_ADDRESS__
constexpr int mostFreePlaces = 0; // the sanitizer is to see every use after deletion
#else
constexpr int mostFreePlaces = 256;
#endif

Places& freePlaces()
{
    static Places places;
    return places;
}

// Header and samples lie in two blocks but go to the file in one piece: two calls of the operating
// system per record cost more than copying it. Longer records are not worth the second copy.
constexpr std::size_t longestPacked = 1 << 20;

std::vector<unsigned char>& packedRecord(std::size_t bytes)
{
    static std::vector<unsigned char> record;
    if (record.size() < bytes)
        record.resize(bytes);
    return record;
}

} // namespace

SeisTrace::SeisTrace(int length, int headerSize, AllFollows)
    : traceLength(length), traceFlag(0), traceHeaderSize(headerSize), traceOffset(-1),
      moreRecent(nullptr), lessRecent(nullptr), order(nullptr), arrivalNo(0), pendingEntries(0),
      scratchFileNo(0)
{
    const int64_t bytes = length * sampleBytes;
    if (bytes < 0 || bytes > INT_MAX ||
        !JobManager::getInstance()->reuseTraceBlocks(*this, static_cast<int>(bytes), headerSize))
    {
        traceSamples = takeBlock<float>(bytes, samplesPlace);
        traceHeader = takeBlock<unsigned char>(headerSize, headerPlace);
    }
}

SeisTrace::SeisTrace(int length, int headerSize, SamplesFollow)
    : SeisTrace(length, headerSize, AllFollows())
{
    clearTraceHeader();
}

SeisTrace::SeisTrace(int length, int headerSize) : SeisTrace(length, headerSize, SamplesFollow())
{
    clearTraceSamples();
}

SeisTrace::~SeisTrace()
{
    ScratchManager::getInstance()->forget(this);
    JobManager::getInstance()->freeTraceBlocks(*this);
}

void* SeisTrace::operator new(std::size_t bytes)
{
    Places& places = freePlaces();
    if (bytes != sizeof(SeisTrace) || places.first == nullptr)
        return ::operator new(bytes);
    --places.count;
    return std::exchange(places.first, places.first->next);
}

void SeisTrace::operator delete(void* place, std::size_t bytes) noexcept
{
    Places& places = freePlaces();
    if (bytes != sizeof(SeisTrace) || places.count >= mostFreePlaces) {
        ::operator delete(place);
        return;
    }
    places.first = new (place) FreePlace{places.first};
    ++places.count;
}

UniVar SeisTrace::getAttribute(const traceAttIdent& ident) const
{
    if (!holds(ident))
        return UniVar();

    const unsigned char* from = traceHeader + ident.offset;
    const int64_t there = traceHeaderSize - ident.offset;
    // A slot may be resolved wider than its value only by hand; never read past the header.
    const auto scalarFits = [&](int64_t width) { return width <= there; };
    switch (ident.type) {
    case strAttType: {
        const char* text = reinterpret_cast<const char*>(from);
        return UniVar(std::string(text, strnlen(text, static_cast<std::size_t>(there))));
    }
    case int32AttType:
        return scalarFits(4) ? readScalar<int>(from) : UniVar();
    case int64AttType:
        return scalarFits(8) ? readScalar<int64_t>(from) : UniVar();
    case float32AttType:
        return scalarFits(4) ? readScalar<float>(from) : UniVar();
    case float64AttType:
        return scalarFits(8) ? readScalar<double>(from) : UniVar();
    case int32ArrayAttType:
        return readArray<int>(from, ident.dim, there, &UniVar::getI32ArrayValue);
    case int64ArrayAttType:
        return readArray<int64_t>(from, ident.dim, there, &UniVar::getI64ArrayValue);
    case float32ArrayAttType:
        return readArray<float>(from, ident.dim, there, &UniVar::getF32ArrayValue);
    case float64ArrayAttType:
        return readArray<double>(from, ident.dim, there, &UniVar::getF64ArrayValue);
    default:
        return UniVar();
    }
}

int SeisTrace::setAttribute(const traceAttIdent& ident, const UniVar& value)
{
    expandHeader(ident);
    if (!holds(ident))
        return 1;

    unsigned char* to = traceHeader + ident.offset;
    switch (ident.type) {
    case strAttType:
        writeText(to, ident.size, value.getStrValue());
        break;
    case int32AttType:
        writeScalar(to, value.getI32Value(), ident.size);
        break;
    case int64AttType:
        writeScalar(to, value.getI64Value(), ident.size);
        break;
    case float32AttType:
        writeScalar(to, value.getF32Value(), ident.size);
        break;
    case float64AttType:
        writeScalar(to, value.getF64Value(), ident.size);
        break;
    case int32ArrayAttType:
        writeArray(to, ident.size, value.getI32ArrayValue(), value.getArraySize());
        break;
    case int64ArrayAttType:
        writeArray(to, ident.size, value.getI64ArrayValue(), value.getArraySize());
        break;
    case float32ArrayAttType:
        writeArray(to, ident.size, value.getF32ArrayValue(), value.getArraySize());
        break;
    case float64ArrayAttType:
        writeArray(to, ident.size, value.getF64ArrayValue(), value.getArraySize());
        break;
    default:
        break;
    }
    return 1;
}

int SeisTrace::copyAttribute(const traceAttIdent& ident, SeisTrace* other,
                             const traceAttIdent& otherIdent)
{
    if (ident.type != otherIdent.type || ident.size != otherIdent.size)
        return 0;

    expandHeader(ident);
    if (!holds(ident))
        return 1;
    // Looked up after the growth: `other` may be this trace, whose header has then moved.
    unsigned char* to = traceHeader + ident.offset;
    if (other->holds(otherIdent))
        copyBytes(to, other->traceHeader + otherIdent.offset, ident.size);
    else
        std::memset(to, 0, static_cast<std::size_t>(ident.size));
    return 1;
}

int SeisTrace::setSamples(const float* samples)
{
    if (traceSamples != nullptr)
        blocks::copy(traceSamples, samples,
                     static_cast<std::size_t>(std::max(traceLength, 0)) * sizeof(float));
    return 1;
}

int SeisTrace::setHeader(const unsigned char* data, int n)
{
    expandHeader(n);
    if (traceHeader != nullptr)
        copyBytes(traceHeader, data, std::min(n, traceHeaderSize));
    return 1;
}

void SeisTrace::clearTraceSamples()
{
    if (traceSamples != nullptr && traceLength > 0)
        blocks::clear(traceSamples, static_cast<std::size_t>(traceLength) * sizeof(float));
}

void SeisTrace::clearTraceHeader()
{
    if (traceHeader != nullptr && traceHeaderSize > 0)
        std::memset(traceHeader, 0, static_cast<std::size_t>(traceHeaderSize));
}

void SeisTrace::clearTrace()
{
    clearTraceSamples();
    clearTraceHeader();
}

int SeisTrace::getTraceMemorySize() const
{
    return wrapping::sum(traceHeaderSize, wrapping::product(4, traceLength));
}

int SeisTrace::store(FILE* file) const
{
    if (traceHeader == nullptr || traceSamples == nullptr)
        return 0;
    const std::size_t headerBytes = static_cast<std::size_t>(traceHeaderSize);
    const std::size_t traceBytes = static_cast<std::size_t>(traceLength) * sizeof(float);
    const std::size_t bytes = headerBytes + traceBytes;
    if (bytes > longestPacked)
        return std::fwrite(traceHeader, 1, headerBytes, file) == headerBytes &&
               std::fwrite(traceSamples, 1, traceBytes, file) == traceBytes;

    std::vector<unsigned char>& record = packedRecord(bytes);
    copyBytes(record.data(), traceHeader, traceHeaderSize);
    copyBytes(record.data() + headerBytes, traceSamples, traceLength * sampleBytes);
    return bytes == 0 || std::fwrite(record.data(), 1, bytes, file) == bytes;
}

int SeisTrace::retrieve(FILE* file)
{
    if (traceHeader == nullptr || traceSamples == nullptr)
        return 0;
    const std::size_t headerBytes = static_cast<std::size_t>(traceHeaderSize);
    const std::size_t traceBytes = static_cast<std::size_t>(traceLength) * sizeof(float);
    const std::size_t bytes = headerBytes + traceBytes;
    if (bytes > longestPacked)
        return std::fread(traceHeader, 1, headerBytes, file) == headerBytes &&
               std::fread(traceSamples, 1, traceBytes, file) == traceBytes;

    std::vector<unsigned char>& record = packedRecord(bytes);
    const std::size_t got = bytes == 0 ? 0 : std::fread(record.data(), 1, bytes, file);
    copyBytes(traceHeader, record.data(), static_cast<int64_t>(std::min(got, headerBytes)));
    if (got > headerBytes)
        copyBytes(traceSamples, record.data() + headerBytes,
                  static_cast<int64_t>(got - headerBytes));
    return got == bytes;
}

void SeisTrace::expandHeader(int n)
{
    const bool pagedOut = traceHeader == nullptr && traceOffset >= 0;
    if (traceHeaderSize >= n || pagedOut)
        return;

    const int64_t size = (static_cast<int64_t>(n) / headerStep + 1) * headerStep;
    uint32_t place;
    auto* header = takeBlock<unsigned char>(size, place);
    if (header == nullptr)
        return;
    const int kept = traceHeader != nullptr ? std::max(traceHeaderSize, 0) : 0;
    std::memset(header + kept, 0, static_cast<std::size_t>(size - kept));
    if (traceHeader != nullptr) {
        copyBytes(header, traceHeader, kept);
        JobManager::getInstance()->freeBlock({traceHeader, headerPlace});
    }
    headerPlace = place;
    traceHeader = header;
    traceHeaderSize = static_cast<int>(size);
}

void SeisTrace::expandHeader(const traceAttIdent& ident)
{
    const int64_t end = static_cast<int64_t>(ident.offset) + ident.size;
    if (end <= INT_MAX)
        expandHeader(static_cast<int>(std::max<int64_t>(end, 0)));
}

std::ostream& operator<<(std::ostream& stream, const SeisTrace& trace)
{
    if (trace.traceHeader != nullptr && trace.traceHeaderSize > 0)
        stream.write(reinterpret_cast<const char*>(trace.traceHeader), trace.traceHeaderSize);
    if (trace.traceSamples != nullptr && trace.traceLength > 0)
        stream.write(reinterpret_cast<const char*>(trace.traceSamples),
                     trace.traceLength * sampleBytes);
    return stream;
}

std::istream& operator>>(std::istream& stream, SeisTrace& trace)
{
    if (trace.traceHeader != nullptr && trace.traceHeaderSize > 0)
        stream.read(reinterpret_cast<char*>(trace.traceHeader), trace.traceHeaderSize);
    if (trace.traceSamples != nullptr && trace.traceLength > 0)
        stream.read(reinterpret_cast<char*>(trace.traceSamples), trace.traceLength * sampleBytes);
    return stream;
}
