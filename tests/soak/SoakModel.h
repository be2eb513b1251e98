/// @file SoakModel.h
///
/// What sets of traces should hold, kept in memory as a whole: the other side of the soak.
#ifndef SOAKMODEL_H
#define SOAKMODEL_H

#include "SeisTrace.h"
#include "UniVar.h"

#include <array>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// The attributes that the soak writes. Several, of several sizes, so that headers grow at many
/// places and records come in many sizes.
constexpr int soakAttributes = 14;

/// Number `attribute` of them.
std::string soakAttributeName(int attribute);
/// Type and dimension for the schema.
int soakAttributeType(int attribute);

/// The value that `number` stands for in the attribute's own type; 0 is what a cleared header
/// reads as.
UniVar soakValue(int attribute, int32_t number);
/// Whether `value`, as read back, is what `number` stands for.
bool isSoakValue(int attribute, const UniVar& value, int32_t number);

/// A trace as it should be. The kernel's trace is `real`.
struct SoakTrace
{
    SeisTrace* real = nullptr;
    std::vector<float> samples;
    std::array<int32_t, soakAttributes> values{}; ///< 0: never written, or cleared
    int flag = 0;

    bool resident = true;
    bool inOrder = false;
    std::list<SoakTrace*>::iterator place; ///< in the order of use, when it is in there
    int recordSize = 0;                    ///< bytes, while it is paged out
};

/// A set as it should be: its traces, and which attributes it has, in the order of their
/// definition.
struct SoakSet
{
    std::vector<SoakTrace*> traces;
    std::vector<int> attributes;
    std::array<bool, soakAttributes> has{};
    int length = 0;

    void define(int attribute);
};

/// Which traces are in memory and how large the file may be, by the rules alone: the least recently
/// touched goes out, freed records go to records of their size.
class SoakPager
{
public:
    explicit SoakPager(int limitOfTraces) : limit(limitOfTraces) {}

    /// After the kernel touched the trace.
    void touch(SoakTrace* trace);
    /// Before the trace is destroyed.
    void forget(SoakTrace* trace);
    void setLimit(int limitOfTraces) { limit = limitOfTraces; }

    /// Bytes of the file when every freed record has been reused.
    int64_t fileBytes() const { return file; }
    int64_t residentTraces() const { return static_cast<int64_t>(order.size()); }
    int64_t pagedOut() const { return outside; }

private:
    struct Records
    {
        int64_t now = 0;
        int64_t most = 0;
    };

    void takeIn(SoakTrace* trace);
    void putOut(SoakTrace* trace);

    std::list<SoakTrace*> order; ///< most recently touched first
    std::map<int, Records> records;
    int64_t file = 0;
    int64_t outside = 0;
    int limit;
};

#endif
