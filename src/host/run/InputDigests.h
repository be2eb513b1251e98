/// @file InputDigests.h
///
/// Checksums of what a job has really read.
#ifndef INPUTDIGESTS_H
#define INPUTDIGESTS_H

#include "base/HashThread.h"
#include "file/InputFile.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace host {

/// What was read of one file by one module.
struct ReadRecord
{
    int64_t bytesRead = 0; ///< different bytes, however often
    /// SHA-256 of the file, in hexadecimal digits, made of the bytes as they were read; empty when
    /// not all were read, or not in their order.
    std::string sha256;
    std::vector<std::pair<int64_t, int64_t>> ranges; ///< [first byte, byte behind the last)
};

/// Hashes the bytes of trace files while the modules read them. Within the life of an object, every
/// VORN::InputFile of the process is watched; at most one object exists at a time.
///
/// A reader goes forward as a rule, with glances at headers ahead and windows that overlap. So the
/// hash takes what continues the bytes that it has, and the rest counts as read without being
/// hashed: a file that is read in its order is hashed whole. A thread of its own does it, see
/// HashThread.h.
class InputDigests : public VORN::InputObserver
{
public:
    InputDigests();
    ~InputDigests() override;
    InputDigests(const InputDigests&) = delete;
    InputDigests& operator=(const InputDigests&) = delete;

    /// What `module` (its name in the job) has read of the file at `path`, as given to it; none
    /// when it has not opened the file through VORN::InputFile. The last time it was opened counts.
    std::optional<ReadRecord> find(const std::string& module, const std::string& path) const;

    /// What of the file at `path` another process has read for `module`, as [first byte, byte
    /// behind the last). Nothing happens where this process has not opened the file for it.
    void add(const std::string& module, const std::string& path,
             const std::vector<std::pair<int64_t, int64_t>>& ranges);

    void opened(const VORN::InputFile& file) override;
    void read(const VORN::InputFile& file, int64_t offset, const unsigned char* bytes,
              std::size_t count) override;
    void closed(const VORN::InputFile& file) noexcept override;

private:
    struct Reading;

    HashThread thread;
    mutable std::mutex mutex;
    std::map<const VORN::InputFile*, std::shared_ptr<Reading>> open;
    std::map<std::pair<std::string, std::string>, std::shared_ptr<Reading>> known; // module, path
};

} // namespace host

#endif
