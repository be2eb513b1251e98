#include "base/HashThread.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <new>
#include <sched.h>
#include <system_error>
#include <utility>

namespace host {

namespace {

bool hasProcessors()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    return sched_getaffinity(0, sizeof set, &set) != 0 || CPU_COUNT(&set) > 1;
}

} // namespace

HashThread::HashThread(bool isAllowed) : isUsed(isAllowed && hasProcessors())
{
    if (isUsed)
        spare.reserve(mostBlocks + 1);
}

HashThread::~HashThread()
{
    if (!thread.joinable())
        return;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ends = true;
    }
    hasWork.notify_one();
    thread.join();
}

// Null where there is no memory.
HashThread::Block HashThread::takeBlock() noexcept
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!spare.empty()) {
            Block block = std::move(spare.back());
            spare.pop_back();
            return block;
        }
    }
    return Block(new (std::nothrow) unsigned char[blockBytes]);
}

void HashThread::giveBack(Block block) noexcept
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (spare.size() < spare.capacity())
        spare.push_back(std::move(block));
}

// Signals are for the other threads.
bool HashThread::start()
{
    sigset_t all;
    sigset_t former;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &former);
    try {
        thread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        isUsed = false; // as many as the user may have are running
    } catch (const std::bad_alloc&) {
        isUsed = false;
    }
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    return isUsed;
}

// Takes the block; false where there is no thread for it.
bool HashThread::submit(const std::shared_ptr<Stream>& stream, Block& block, std::size_t bytes)
{
    if (!thread.joinable() && !start())
        return false;
    std::unique_lock<std::mutex> lock(mutex);
    hasDone.wait(lock, [this] { return count < queue.size(); });
    queue[(first + count) % queue.size()] = {stream, std::move(block), bytes};
    ++count;
    ++stream->waiting;
    const bool wakes = isWorthWaking();
    lock.unlock();
    if (wakes)
        hasWork.notify_one();
    return true;
}

void HashThread::await(const Stream& stream)
{
    std::unique_lock<std::mutex> lock(mutex);
    if (stream.waiting == 0)
        return;
    ++awaited;
    hasWork.notify_one();
    hasDone.wait(lock, [&stream] { return stream.waiting == 0; });
    --awaited;
}

bool HashThread::isWorthWaking() const
{
    return ends || count >= wakingBlocks || (count > 0 && awaited > 0);
}

// What waits at the end belongs to streams that nobody asks for any more. The thread does not take
// the processor from the one that gives it work, which a block that arrives would make it do.
void HashThread::run()
{
    const sched_param batch{};
    sched_setscheduler(0, SCHED_BATCH, &batch);
    std::unique_lock<std::mutex> lock(mutex);
    while (true) {
        if (count == 0)
            hasWork.wait(lock, [this] { return isWorthWaking(); });
        if (ends)
            return;
        Item item = std::move(queue[first]);
        first = (first + 1) % queue.size();
        --count;
        lock.unlock();
        item.stream->hash.add(item.block.get(), item.bytes);
        lock.lock();
        --item.stream->waiting;
        if (spare.size() < spare.capacity())
            spare.push_back(std::move(item.block));
        hasDone.notify_all();
    }
}

HashedStream::HashedStream(HashThread& thread)
    : worker(thread), stream(std::make_shared<HashThread::Stream>())
{
}

HashedStream::~HashedStream()
{
    if (block != nullptr)
        worker.giveBack(std::move(block));
}

// In the order of the bytes: behind those that wait.
void HashedStream::addNow(const unsigned char* bytes, std::size_t count)
{
    worker.await(*stream);
    stream->hash.add(bytes, count);
}

void HashedStream::handOver()
{
    if (!worker.submit(stream, block, used))
        addNow(block.get(), used);
    used = 0;
}

void HashedStream::add(const void* bytes, std::size_t count)
{
    const auto* rest = static_cast<const unsigned char*>(bytes);
    while (count > 0) {
        if (worker.isUsed && block == nullptr)
            block = worker.takeBlock();
        if (block == nullptr) {
            addNow(rest, count);
            return;
        }
        const std::size_t piece = std::min(count, HashThread::blockBytes - used);
        std::memcpy(block.get() + used, rest, piece);
        used += piece;
        rest += piece;
        count -= piece;
        if (used == HashThread::blockBytes)
            handOver();
    }
}

std::string HashedStream::hex()
{
    if (used > 0)
        addNow(block.get(), used);
    used = 0;
    worker.await(*stream);
    return stream->hash.hex();
}

} // namespace host
