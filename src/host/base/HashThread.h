/// @file HashThread.h
///
/// Checksums that are made on a thread of their own, beside the work that gives the bytes.
///
/// The bytes are copied, which costs a small part of what the checksum costs, and handed over in
/// blocks. So nothing has to be read again, and what is not a file that could be read (a pipe, a
/// device) has a checksum too. The thread is woken for a megabyte, or when the checksum is asked
/// for: waking it takes the time of the caller. It falls behind by at most two megabytes: a caller
/// that gives more waits for it.
#ifndef HASHTHREAD_H
#define HASHTHREAD_H

#include "base/Sha256.h"

#include <array>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace host {

/// The thread; it begins with the first block of the first stream. It lives longer than its
/// streams.
class HashThread
{
public:
    /// Where the process may use one processor only, or `isAllowed` is false, there is no thread,
    /// and the caller that gives bytes makes the checksum.
    explicit HashThread(bool isAllowed = true);
    ~HashThread();
    HashThread(const HashThread&) = delete;
    HashThread& operator=(const HashThread&) = delete;

private:
    friend class HashedStream;

    static constexpr std::size_t blockBytes = 131072;
    static constexpr std::size_t mostBlocks = 16; // that wait
    static constexpr std::size_t wakingBlocks = 8;

    using Block = std::unique_ptr<unsigned char[]>;

    struct Stream
    {
        Sha256 hash;             // of the thread's as long as blocks wait
        std::size_t waiting = 0; // blocks
    };

    struct Item
    {
        std::shared_ptr<Stream> stream;
        Block block;
        std::size_t bytes = 0;
    };

    Block takeBlock() noexcept;
    void giveBack(Block block) noexcept;
    bool submit(const std::shared_ptr<Stream>& stream, Block& block, std::size_t bytes);
    void await(const Stream& stream);
    bool isWorthWaking() const;
    bool start();
    void run();

    bool isUsed;
    std::mutex mutex;
    std::condition_variable hasWork;
    std::condition_variable hasDone;
    std::array<Item, mostBlocks> queue; // a ring
    std::size_t first = 0;
    std::size_t count = 0;
    int awaited = 0; // how many wait for a checksum
    bool ends = false;
    std::vector<Block> spare;
    std::thread thread;
};

/// The checksum of bytes that come piece by piece, as Sha256. Where there is no memory for a block
/// or no thread, it is made at once.
class HashedStream
{
public:
    /// Throws what Sha256 throws.
    explicit HashedStream(HashThread& thread);
    ~HashedStream();
    HashedStream(const HashedStream&) = delete;
    HashedStream& operator=(const HashedStream&) = delete;

    void add(const void* bytes, std::size_t count);

    /// Of all bytes so far, in hexadecimal digits; more may follow. Waits for the thread.
    std::string hex();

private:
    void addNow(const unsigned char* bytes, std::size_t count);
    void handOver();

    HashThread& worker;
    std::shared_ptr<HashThread::Stream> stream;
    HashThread::Block block;
    std::size_t used = 0; // of `block`
};

} // namespace host

#endif
