/// @file BlockHeap.h
///
/// Private to the kernel: where accounted blocks come from and go to. In the ordinary library that
/// is the C heap; in the watched one the blocks may be guarded (watched/GuardedMemory.h).
#ifndef BLOCKHEAP_H
#define BLOCKHEAP_H

#include <cstddef>
#include <cstdlib>

namespace heap {

#ifdef VORN_WATCHED
/// Whether blocks are guarded, or some that were guarded are still there: none is kept for reuse.
bool isGuarded();
void* take(std::size_t size);
void give(void* block);
#else
constexpr bool isGuarded()
{
    return false;
}
inline void* take(std::size_t size)
{
    return std::malloc(size);
}
inline void give(void* block)
{
    std::free(block);
}
#endif

} // namespace heap

#endif
