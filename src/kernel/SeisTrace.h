/// @file SeisTrace.h
///
/// One seismic trace: samples and a growable header in which named attributes live.
#ifndef SEISTRACE_H
#define SEISTRACE_H

#include "TraceAttribute.h"
#include "UniVar.h"
#include "vorn_export.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iosfwd>

class TraceOrder;

/// A block of 32-bit float samples and a block of header bytes, both from the job's accounted
/// memory. A trace is resident (both blocks present) or paged out (both null, `traceOffset` names
/// its record in the scratch file); only the scratch manager changes that. The operations here work
/// on a resident trace; on a paged-out one they read as empty and write nothing.
///
/// The lengths that count are the trace's own: the set that holds it may have been given
/// another length since. Reading and writing never leave the trace's blocks.
class VORN_EXPORT SeisTrace
{
public:
    float* traceSamples;        ///< `traceLength` samples; null while paged out
    unsigned char* traceHeader; ///< `traceHeaderSize` bytes; null while paged out
    int traceLength;            ///< number of samples
    int traceFlag;              ///< flag word that travels with the trace (3: end of data)
    int traceHeaderSize;        ///< bytes in the header block
    int64_t traceOffset;        ///< byte position of the record in the scratch file; -1: no record

    // What other classes keep in the trace, so that they find its place without a search.
    SeisTrace* moreRecent; ///< scratch manager: neighbour towards the most recently touched trace
    SeisTrace* lessRecent; ///< scratch manager: neighbour towards the least recently touched trace
    TraceOrder* order;     ///< scratch manager: the order that the trace stands in, or null
    int64_t arrivalNo;     ///< data channel: number in order of arrival; -1: find it by searching
    int pendingEntries;    ///< data channel: entries of consumers' queues that hold the trace
    int scratchFileNo;     ///< scratch manager: the file that the record lies in
    uint32_t samplesPlace; ///< job manager: where the samples are listed (see AccountedBlock)
    uint32_t headerPlace;  ///< job manager: where the header is listed

    /// A resident trace of `length` zero samples and `headerSize` zero bytes, charged to the
    /// running module. When memory is short (or a length is negative) the kernel's message has been
    /// sent and the block in question is null.
    SeisTrace(int length, int headerSize);
    /// For a trace whose samples the caller overwrites next: they are not cleared.
    struct SamplesFollow
    {
    };
    /// The same, but the samples are whatever the memory held.
    SeisTrace(int length, int headerSize, SamplesFollow);
    /// For a trace whose header the caller overwrites next, too: it is not cleared either.
    struct AllFollows
    {
    };
    /// The same, but the header as well is whatever the memory held.
    SeisTrace(int length, int headerSize, AllFollows);
    SeisTrace(const SeisTrace&) = delete;
    SeisTrace& operator=(const SeisTrace&) = delete;

    /// Makes the scratch manager forget the trace and gives both blocks back.
    ~SeisTrace();

    /// The place of a trace that was deleted, or a new one.
    static void* operator new(std::size_t bytes);
    /// Keeps the place for the next trace.
    static void operator delete(void* place, std::size_t bytes) noexcept;

    /// The attribute's value; undefined when it lies beyond the header's end. Text is read from the
    /// attribute's first byte to the next zero byte of the header, across the attribute's own end.
    UniVar getAttribute(const traceAttIdent& ident) const;

    /// Stores `value` under `ident`, growing the header to hold it, and returns 1. Numbers are
    /// converted; text fills the attribute's `size` bytes (zeros behind its end). Array attributes
    /// take the value's own array of the same type, as many elements as both have; any other value
    /// stores nothing there.
    int setAttribute(const traceAttIdent& ident, const UniVar& value);

    /// Copies `otherIdent` of `other` to `ident` here, growing this header, and returns 1; returns
    /// 0 and changes nothing when the two differ in type or size. Bytes beyond the other header's
    /// end read as zero. `other` may be this trace.
    int copyAttribute(const traceAttIdent& ident, SeisTrace* other,
                      const traceAttIdent& otherIdent);

    /// `traceLength` samples, owned by the trace; null while paged out.
    float* getSamples() const { return traceSamples; }
    /// Copies `traceLength` samples in; returns 1.
    int setSamples(const float* samples);

    /// `getHeaderSize()` bytes, owned by the trace, moved by the next growth; null while paged out.
    unsigned char* getHeader() const { return traceHeader; }
    /// Bytes of the header block, also while paged out.
    int getHeaderSize() const { return traceHeaderSize; }
    /// Grows the header to hold `n` bytes, copies them in and returns 1.
    int setHeader(const unsigned char* data, int n);

    /// Zeroes the samples.
    void clearTraceSamples();
    /// Zeroes the header.
    void clearTraceHeader();
    /// Zeroes both.
    void clearTrace();

    /// The flag word.
    int getTraceFlag() const { return traceFlag; }
    /// Sets the flag word.
    void setTraceFlag(int flag) { traceFlag = flag; }

    /// Bytes of header and samples, which is also the size of the scratch record.
    int getTraceMemorySize() const;

    /// Writes the record (header bytes, then samples as raw 32-bit floats) at the file's position.
    /// Returns 1, or 0 when fewer bytes went out.
    int store(FILE* file) const;
    /// Reads the record into the existing blocks. Returns 1, or 0 when fewer bytes came in; what
    /// came is kept.
    int retrieve(FILE* file);

    /// Grows the header to hold `n` bytes: nothing when it does already, else the multiple of 64
    /// next above `n` (64 gives 128). Sample pointers stay, header pointers do not.
    void expandHeader(int n);
    /// The same, to hold an attribute.
    void expandHeader(const traceAttIdent& ident);

    /// Whether the attribute's bytes lie within the header as it is.
    bool holds(const traceAttIdent& ident) const
    {
        return traceHeader != nullptr && ident.offset >= 0 && ident.size >= 0 &&
               static_cast<int64_t>(ident.offset) + ident.size <= traceHeaderSize;
    }
};

/// Writes the trace's record as `store` does.
VORN_EXPORT std::ostream& operator<<(std::ostream& stream, const SeisTrace& trace);
/// Reads a record into the blocks that `trace` has; allocates nothing.
VORN_EXPORT std::istream& operator>>(std::istream& stream, SeisTrace& trace);

#endif
