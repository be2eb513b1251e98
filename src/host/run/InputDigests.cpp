#include "run/InputDigests.h"

#include "JobManager.h"
#include "base/Sha256.h"

#include <algorithm>
#include <iterator>

namespace host {

struct InputDigests::Reading
{
    Reading(int64_t size, HashThread& thread) : bytes(size), hash(thread) {}

    // Merges [from, to) into the pieces that were read.
    void cover(int64_t from, int64_t to)
    {
        auto next = pieces.upper_bound(from);
        if (next != pieces.begin() && std::prev(next)->second >= from)
            --next;
        while (next != pieces.end() && next->first <= to) {
            from = std::min(from, next->first);
            to = std::max(to, next->second);
            next = pieces.erase(next);
        }
        pieces[from] = to;
    }

    int64_t covered() const
    {
        int64_t sum = 0;
        for (const auto& [from, to] : pieces)
            sum += to - from;
        return sum;
    }

    int64_t bytes;      // of the file, when it was opened
    int64_t hashed = 0; // bytes from its beginning on
    HashedStream hash;
    std::map<int64_t, int64_t> pieces; // first byte, and the one behind the last
};

InputDigests::InputDigests()
{
    [[maybe_unused]] const Sha256 first; // fails here, when it fails, and not while a module runs
    VORN::observeInputs(this);
}

InputDigests::~InputDigests()
{
    VORN::observeInputs(nullptr);
}

void InputDigests::opened(const VORN::InputFile& file)
{
    const std::lock_guard<std::mutex> lock(mutex);
    const auto reading = std::make_shared<Reading>(file.size(), thread);
    open[&file] = reading;
    known[{JobManager::getInstance()->getCurrentModuleName(), file.path()}] = reading;
}

void InputDigests::read(const VORN::InputFile& file, int64_t offset, const unsigned char* bytes,
                        std::size_t count)
{
    std::shared_ptr<Reading> reading;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        reading = open[&file];
    }
    if (reading == nullptr)
        return;
    const int64_t end = offset + static_cast<int64_t>(count);
    reading->cover(offset, end);
    if (offset > reading->hashed || end <= reading->hashed)
        return;
    reading->hash.add(bytes + (reading->hashed - offset),
                      static_cast<std::size_t>(end - reading->hashed));
    reading->hashed = end;
}

void InputDigests::closed(const VORN::InputFile& file) noexcept
{
    const std::lock_guard<std::mutex> lock(mutex);
    open.erase(&file);
}

void InputDigests::add(const std::string& module, const std::string& path,
                       const std::vector<std::pair<int64_t, int64_t>>& ranges)
{
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = known.find({module, path});
    if (found == known.end())
        return;
    for (const auto& [from, to] : ranges)
        found->second->cover(from, to);
}

std::optional<ReadRecord> InputDigests::find(const std::string& module,
                                             const std::string& path) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = known.find({module, path});
    if (found == known.end())
        return std::nullopt;
    Reading& reading = *found->second;
    ReadRecord record;
    record.bytesRead = reading.covered();
    record.ranges.assign(reading.pieces.begin(), reading.pieces.end());
    if (reading.hashed == reading.bytes)
        record.sha256 = reading.hash.hex();
    return record;
}

} // namespace host
