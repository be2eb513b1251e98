/// @file GuardedMemory.h
///
/// Accounted memory (samples, headers, what modules allocate) with guards around each block, in the
/// watched build of the kernel's library only. The ordinary library is built without a trace of it.
///
/// A guarded block has words of a pattern before and behind it. A freed one is filled with the
/// pattern and kept apart for a while before the heap gets it back. The pattern is a number that is
/// no number: what a module computes from memory that is not its own shows up in its samples.
///
/// A program gets at it by `vornGuardedMemory()`, looked up by name; it does not link it. Used on
/// the thread of the job only.
#ifndef GUARDEDMEMORY_H
#define GUARDEDMEMORY_H

#include "vorn_export.h"

#include <cstddef>

namespace watched {

/// Bytes of a block's surroundings, or of a freed block, that somebody has overwritten.
struct Damage
{
    enum class Kind
    {
        before,   ///< in front of the block
        behind,   ///< after its end
        afterFree ///< in the block, which has been freed
    };
    Kind kind;
    const void* block;
    std::size_t size;     ///< bytes of the block
    std::size_t distance; ///< of the damage from the block, or its place in the freed block
    std::size_t count;    ///< bytes from the first damaged one to the last
    unsigned tag;         ///< see GuardedMemory::setTag()
};

/// Told of each damage once: what is told is repaired.
class DamageListener
{
public:
    virtual ~DamageListener() = default;

    virtual void damaged(const Damage& damage) = 0;

protected:
    DamageListener() = default;
    DamageListener(const DamageListener&) = default;
    DamageListener& operator=(const DamageListener&) = default;
};

class GuardedMemory
{
public:
    virtual ~GuardedMemory() = default;

    enum class State
    {
        unknown, ///< not the address of a guarded block, or one that is back in the heap
        live,
        freed
    };

    /// Guards all blocks from now on. Each is checked when it is freed, and when the heap gets it
    /// back.
    virtual void begin(DamageListener& listener) = 0;
    /// Checks all blocks; those that come are not guarded. Guarded ones may be freed later.
    virtual void end() = 0;

    /// Checks the block at this address, live or freed; nothing for an unknown address.
    virtual void check(const void* block) = 0;
    /// Checks all blocks.
    virtual void checkAll() = 0;
    virtual State stateOf(const void* block) const = 0;
    /// Marks a block with a number of the caller's, which is told with its damages; 0 before.
    virtual void setTag(const void* block, unsigned tag) = 0;

protected:
    GuardedMemory() = default;
    GuardedMemory(const GuardedMemory&) = default;
    GuardedMemory& operator=(const GuardedMemory&) = default;
};

} // namespace watched

/// Of the process; never null.
extern "C" VORN_EXPORT watched::GuardedMemory* vornGuardedMemory();

#endif
