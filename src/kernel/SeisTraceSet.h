/// @file SeisTraceSet.h
///
/// A numbered buffer of traces that share one header layout.
#ifndef SEISTRACESET_H
#define SEISTRACESET_H

#include "FrontArray.h"
#include "SeisTrace.h"
#include "TraceAttribute.h"
#include "UniVar.h"
#include "vorn_export.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class ScratchManager;
template <typename Value>
class RecentNames;

/// Modules see trace sets as their input, output and work buffers. A set turns attribute names into
/// places in its traces' headers, creates traces on demand, and (unless told otherwise) lets the
/// scratch manager page those that are not in use.
///
/// Trace numbers count from 0. Asking for a trace beyond the end creates every missing trace up to
/// it, also in `removeTrace` and `moveFromTrace`. A negative number, or an entry whose trace has
/// been moved away, has no trace: pointers read as null, values as undefined, counts as 0, and
/// writes return 0.
///
/// The set references its traces: `removeTrace` destroys the one that it removes, the destructor
/// destroys none.
class VORN_EXPORT SeisTraceSet
{
public:
    std::map<std::string, traceAttIdent> attrDefs; ///< the header layout, by attribute name
    FrontArray<SeisTrace*> traces; ///< by trace number; null where one was moved away
    int traceLength;               ///< samples of the traces that the set creates from now on
    int sampleInterval;     ///< microseconds by agreement of the modules; the kernel keeps it only
    int dataChannelFlag;    ///< the flag word while the set holds no trace
    int64_t totalNumTraces; ///< total number of traces that a module announced; 0 when none did
    int currentHeaderSize;  ///< bytes: the place of the next attribute, the header of new traces
    ScratchManager* scratchManager; ///< pages the traces; null when paging is off

    /// How headers of another set come into this one, resolved once for all traces.
    struct HeaderCopy
    {
        /// Bytes that are copied in one piece.
        struct Run
        {
            int to;   ///< bytes from the start of the header here
            int from; ///< bytes from the start of the header there
            int size; ///< bytes
        };
        int64_t sourceLayout = 0;    ///< for which layouts it holds; 0: for none
        int64_t targetLayout = 0;    ///< likewise
        std::size_t sourceCount = 0; ///< of attributes: hosts can erase some by hand
        std::size_t targetCount = 0; ///< likewise
        std::vector<Run> runs; ///< neighbouring attributes that are neighbours in both sets are one
        std::vector<int> ends; ///< header sizes that the attributes need, in order of their names
        int sourceSize = 0;    ///< bytes of a source header that holds all of them
        int targetSize = 0;    ///< bytes of a header here that holds all of them
    };
    int64_t layoutNumber;  ///< sets of different layouts never have the same
    HeaderCopy headerCopy; ///< of the set that was copied from last
    bool layoutExposed; ///< a reference by which places can change at any time has been handed out

    /// An empty set with paging on, everything else zero.
    SeisTraceSet();
    SeisTraceSet(const SeisTraceSet&) = delete;
    SeisTraceSet& operator=(const SeisTraceSet&) = delete;

    /// Appends a trace and returns the new number of traces.
    virtual int addTrace(SeisTrace* trace);
    virtual ~SeisTraceSet();

    /// The place of an attribute, defined now if the set does not have it. The reference stays
    /// valid as long as the set.
    traceAttIdent& getAttributeKey(const std::string& name);
    /// Gives the attribute a place behind all others unless it has one; returns 1.
    int defineAttribute(const std::string& name);
    /// Whether the set has the attribute; all traces share the layout, so `traceNo` is not looked
    /// at.
    bool isAttributePresent(const std::string& name, int traceNo) const;
    /// The names in ascending order of their bytes.
    std::vector<std::string> getAttributesList() const;
    /// The attribute's value in a trace; defines the attribute if the set does not have it.
    UniVar getAttribute(const std::string& name, int traceNo);
    /// The attribute's value in a trace; false, and nothing changed, if the set does not have it.
    bool fetchAttribute(const std::string& name, int traceNo, UniVar& value);
    /// Where a trace's header holds the attribute as one number of exactly `type`, which takes
    /// `size` bytes; null when it holds it otherwise or not at all: `fetchAttribute` and
    /// `setAttribute` know what to do then. Not aligned; valid until the header grows.
    unsigned char* findNumber(std::string_view name, int traceNo, traceAttVarType type, int size);
    /// Stores a value in a trace, defining the attribute if need be; returns 1.
    int setAttribute(const std::string& name, const UniVar& value, int traceNo);

    /// The number of entries, those without a trace counted.
    int getNumberOfTraces() const { return static_cast<int>(traces.size()); }
    /// Creates traces until there are `n`; never removes any.
    void setNumberOfTraces(int n);
    /// The trace, created if need be; `touchScratch` brings it into memory and marks it as used.
    SeisTrace* getTrace(int traceNo, bool touchScratch);
    /// Puts `trace` (which may be null) at `traceNo`: in place of the trace there, which stays
    /// alive, or at the end after creating the traces before it. Requires: traceNo >= 0.
    void setTrace(SeisTrace* trace, int traceNo);
    /// Destroys a trace and moves later ones down; the set's flag word becomes the flag of the
    /// trace that is first now.
    void removeTrace(int traceNo);

    /// The samples of a trace: the trace's own block, valid until it is paged out or removed.
    float* getSamples(int traceNo);
    /// Copies in as many samples as the trace has.
    int setSamples(const float* samples, int traceNo);
    /// The header bytes of a trace: its own block, valid until it grows or the trace is paged out.
    unsigned char* getHeader(int traceNo);
    /// Bytes of that header.
    int getHeaderSize(int traceNo);
    /// Copies `size` header bytes in, growing the header if need be; returns 1.
    int setHeader(const unsigned char* data, int size, int traceNo);
    /// Zeroes samples and headers of all traces; returns 1.
    int clearTraceSet();

    /// Samples of the traces that the set creates.
    int getTraceLength() const { return traceLength; }
    /// Of the traces that the set creates from now on.
    void setTraceLength(int length) { traceLength = length; }
    /// As it was set.
    int getTraceSampleInterval() const { return sampleInterval; }
    /// Microseconds by agreement of the modules.
    void setTraceSampleInterval(int interval) { sampleInterval = interval; }

    /// The flag of the first trace, or the set's own word when it holds no trace. Deliberate:
    /// reading looks at the first trace and writing marks the last, so a mark behind queued traces
    /// is seen when everything before it has been taken.
    int getDataChannelFlag() const;
    /// Sets the flag of the last trace, or the set's own word when it holds no trace.
    void setDataChannelFlag(int flag);

    /// Keeps the total number of traces that a module announces.
    void informTotalTracesNumber(int64_t total) { totalNumTraces = total; }
    /// The number announced last; 0 when none was.
    int64_t getTotalTracesNumber() const { return totalNumTraces; }

    /// Switches paging on or off for traces handed out from now on.
    void setUseScratch(bool use);
    /// Whether paging is on.
    bool isUseScratch() const { return scratchManager != nullptr; }

    /// Sets length and interval and, given a template, defines all its attributes here in ascending
    /// order of their names; returns 1.
    int configureByTemplate(int length, int interval, SeisTraceSet* templ);

    /// Takes over length, interval and the very layout of `model`, so that traces can be moved
    /// between the two as they are. Returns 1, or 0, nothing changed, when this set has attributes
    /// or traces already.
    int configureLike(const SeisTraceSet* model);

    /// Copies trace `traceNoFrom` of `src` into trace `traceNoTo` here, always with its flag. The
    /// header is copied attribute by attribute into a cleared header (attributes that differ in
    /// type or size between the sets are skipped), samples from the start, as many as both sets and
    /// both traces have. Returns 1, or 0 when there is no source or no target trace.
    int copyFromTrace(SeisTraceSet* src, bool copyHeader, bool copySamples, int traceNoFrom,
                      int traceNoTo);

    /// Moves the trace itself here; its entry in `src` becomes null. The header bytes stay as they
    /// are, so both sets should have one layout. Returns 1, or 0 when there is no source trace.
    int moveFromTrace(SeisTraceSet* src, int traceNoFrom, int traceNoTo);

    /// What `copyFromTrace` of header and samples gives here, at the cost of a move where that is
    /// possible: the trace itself comes here, its header is laid out as here, and its entry in
    /// `src` becomes null. Where the trace must stay (other consumers of `src` wait for it, or it
    /// has another length than traces here), it is copied. Returns 1, or 0, nothing changed, when
    /// the source trace does not exist (none is created), `traceNoTo` is negative, or there is no
    /// memory for the header.
    int transferFromTrace(SeisTraceSet* src, int traceNoFrom, int traceNoTo);

    /// Destroys all traces, without reading those back that were paged out.
    void removeAllTraces();

protected:
    /// `trace` (null where it has been moved away) leaves entry `traceNo`: it has been moved to
    /// another set and the entry is null now, or the trace is to be destroyed and the entry erased.
    virtual void traceLeaves(SeisTrace* trace, int traceNo, bool entryStays);
    /// Brings `trace` (which may be null) into memory and marks it as used.
    void touch(SeisTrace* trace);
    /// The trace as `getTrace` gives it, touched as far as other traces notice.
    SeisTrace* getLeavingTrace(int traceNo);
    /// The rest of `removeTrace` for that trace, or null. Requires: there is an entry `traceNo`.
    void destroyTrace(SeisTrace* trace, int traceNo);

private:
    std::unique_ptr<RecentNames<traceAttIdent>> recentNames; // of attrDefs

    [[gnu::noinline]] bool makeTracesTo(int traceNo);
    SeisTrace* touchedTrace(int traceNo);
    bool isHeaderCopyKnown(const SeisTraceSet* src) const;
    bool fits(const HeaderCopy& copy, const SeisTrace& from) const;
    SeisTrace* newCopy(const SeisTrace& from, bool withHeader) const;
    traceAttIdent* knownPlace(std::string_view name) const;
    UniVar valueAt(const traceAttIdent& ident, int traceNo);
    traceAttIdent& place(const std::string& name);
    void copyHeaderFrom(SeisTraceSet* src, SeisTrace* from, SeisTrace* to);
    const HeaderCopy& headerCopyFrom(SeisTraceSet* src);
    bool hasLayoutOf(SeisTraceSet* src);
    bool adaptHeader(SeisTraceSet* src, SeisTrace* trace);
};

#endif
