/// @file RecordFile.h
///
/// The file of a record: a line that names format and version, then frames, each compressed and
/// with a checksum of its own. A frame is on its way to the disk when `write` returns, so that what
/// a process leaves that crashes or is killed can be read up to its last frame.
#ifndef RECORDFILE_H
#define RECORDFILE_H

#include <cstdint>
#include <memory>
#include <string>

struct libdeflate_compressor;
struct libdeflate_decompressor;

namespace host {

/// What a frame holds.
enum class FrameKind : unsigned char
{
    module = 'M', ///< the module, its parameters and the job: the first one
    begin = 'B',  ///< an entry point is about to be called: what it finds
    calls = 'C',  ///< some of its calls
    end = 'E',    ///< the rest of them, and what it leaves
    finish = 'F'  ///< the record is whole
};

struct Frame
{
    FrameKind kind = FrameKind::finish;
    std::string bytes; ///< see RecordBytes.h
};

/// Whether a file with this name exists and is a record, of whatever version.
bool isRecord(const std::string& path);

/// Writes a record.
class RecordWriter
{
public:
    /// Makes the file, or empties it. Throws CommandError where that fails, or where the file is
    /// something else than a record.
    explicit RecordWriter(const std::string& path);
    ~RecordWriter();
    RecordWriter(const RecordWriter&) = delete;
    RecordWriter& operator=(const RecordWriter&) = delete;

    /// False when the frame could not be written: problem() says why, and nothing more is written.
    bool write(FrameKind kind, const std::string& bytes);
    /// The reason of the system; "" while all is well.
    const std::string& problem() const { return reason; }

private:
    bool put(const std::string& bytes);

    int file = -1;
    libdeflate_compressor* compressor = nullptr;
    std::string packed;
    std::string reason;
};

/// Reads a record.
class RecordReader
{
public:
    /// Throws CommandError where the file cannot be read, is not a record or has another version.
    explicit RecordReader(const std::string& path);
    ~RecordReader();
    RecordReader(const RecordReader&) = delete;
    RecordReader& operator=(const RecordReader&) = delete;

    /// The next frame; false where there is none, or none that can be read.
    bool next(Frame& frame);
    /// Why next() found no further frame before the file's end: "is cut off after 1234 bytes". ""
    /// where the file ends behind a frame.
    const std::string& problem() const { return reason; }
    /// Bytes read so far.
    uint64_t position() const { return read; }

private:
    bool fail(const std::string& why);
    bool get(std::string& bytes, uint64_t size);

    int file = -1;
    libdeflate_decompressor* decompressor = nullptr;
    uint64_t size = 0;
    uint64_t read = 0;
    std::string packed;
    std::string reason;
};

} // namespace host

#endif
