/// @file OutputDigests.h
///
/// Checksums of what a job has written.
#ifndef OUTPUTDIGESTS_H
#define OUTPUTDIGESTS_H

#include "base/HashThread.h"
#include "file/OutputFile.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace host {

/// Hashes the bytes of outputs while they are written. Within the life of an object, every
/// VORN::OutputFile of the process is watched that begins under a name of its own; at most one
/// object exists at a time.
///
/// The hash takes bytes in their order. An output in which bytes are replaced later has none. A
/// thread of its own makes it, see HashThread.h.
class OutputDigests : public VORN::OutputObserver
{
public:
    OutputDigests();
    ~OutputDigests() override;
    OutputDigests(const OutputDigests&) = delete;
    OutputDigests& operator=(const OutputDigests&) = delete;

    /// Hexadecimal SHA-256 of the file at `path`; "" where it is not an output that this process
    /// has completed in order, or has changed since.
    std::string find(const std::string& path) const;

    void opened(const VORN::OutputFile& file) override;
    void written(const VORN::OutputFile& file, int64_t offset, const unsigned char* bytes,
                 std::size_t count) override;
    void completed(const VORN::OutputFile& file) override;
    void closed(const VORN::OutputFile& file) noexcept override;

private:
    struct Writing;

    HashThread thread;
    mutable std::mutex mutex;
    std::map<const VORN::OutputFile*, std::shared_ptr<Writing>> open;
    std::map<std::string, std::shared_ptr<Writing>> known; // completed, by canonical path
};

} // namespace host

#endif
