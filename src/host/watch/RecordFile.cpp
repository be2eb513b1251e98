#include "watch/RecordFile.h"

#include "base/CommandError.h"
#include "base/Escaping.h"

#include <fcntl.h>
#include <libdeflate.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <limits>
#include <string_view>

namespace host {

namespace {

constexpr std::string_view title = "VORN module record, format ";
constexpr int version = 1;
constexpr std::size_t longestLine = 64;
// Of a frame: kind, size, packed size; then the checksum of these and of the packed bytes.
constexpr std::size_t checkedHead = 9;
constexpr std::size_t frameHead = checkedHead + 4;
// Records are written while a job runs: the fastest level.
constexpr int compressionLevel = 1;
// What a byte can become at most, by the rules of the compressed format; a size above is damage.
constexpr uint64_t largestRatio = 1032;

void addNumber(std::string& bytes, uint32_t number)
{
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<char>(number >> shift & 0xFF));
}

uint32_t numberAt(const std::string& bytes, std::size_t at)
{
    uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
    return number;
}

uint32_t checksumOf(const std::string& head, const char* bytes, std::size_t size)
{
    return libdeflate_crc32(libdeflate_crc32(0, head.data(), checkedHead), bytes, size);
}

// As many bytes as there are, up to `size`; false on an error of the system.
bool readAll(int file, char* bytes, std::size_t size, std::size_t& got)
{
    for (got = 0; got < size;) {
        const ssize_t some = read(file, bytes + got, size - got);
        if (some < 0 && errno == EINTR)
            continue;
        if (some < 0)
            return false;
        if (some == 0)
            break;
        got += static_cast<std::size_t>(some);
    }
    return true;
}

// The first line without its end; "" where no line ends.
std::string firstLine(int file)
{
    std::string line(longestLine, '\0');
    std::size_t got = 0;
    if (!readAll(file, line.data(), line.size(), got))
        return "";
    line.resize(got);
    const auto end = line.find('\n');
    return end == std::string::npos ? "" : line.substr(0, end);
}

} // namespace

bool isRecord(const std::string& path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
        return false;
    const bool good = firstLine(file).starts_with(title);
    close(file);
    return good;
}

RecordWriter::RecordWriter(const std::string& path)
{
    struct stat known = {};
    if (stat(path.c_str(), &known) == 0 &&
        (!S_ISREG(known.st_mode) || (known.st_size > 0 && !isRecord(path))))
        throw CommandError("--record: " + quote(path) +
                           " exists and is not a record; give another name, or remove it");
    file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0)
        throw CommandError("--record: " + quote(path) +
                           " cannot be written: " + std::strerror(errno));
    compressor = libdeflate_alloc_compressor(compressionLevel);
    if (compressor == nullptr || !put(fmt::format("{}{}\n", title, version))) {
        libdeflate_free_compressor(compressor);
        close(file);
        throw CommandError("--record: " + quote(path) + " cannot be written: " +
                           (reason.empty() ? "there is no memory for it" : reason));
    }
}

RecordWriter::~RecordWriter()
{
    libdeflate_free_compressor(compressor);
    close(file);
}

bool RecordWriter::put(const std::string& bytes)
{
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t some = ::write(file, bytes.data() + done, bytes.size() - done);
        if (some < 0 && errno == EINTR)
            continue;
        if (some <= 0) {
            reason = std::strerror(some < 0 ? errno : ENOSPC);
            return false;
        }
        done += static_cast<std::size_t>(some);
    }
    return true;
}

bool RecordWriter::write(FrameKind kind, const std::string& bytes)
{
    if (!reason.empty())
        return false;
    const std::size_t most = libdeflate_zlib_compress_bound(compressor, bytes.size());
    if (std::max(bytes.size(), most) > std::numeric_limits<uint32_t>::max()) {
        reason = "one call of the module takes more than 4 GiB";
        return false;
    }
    packed.resize(frameHead + most);
    const std::size_t size = libdeflate_zlib_compress(compressor, bytes.data(), bytes.size(),
                                                      packed.data() + frameHead, most);
    packed.resize(frameHead + size);
    std::string head(1, static_cast<char>(kind));
    addNumber(head, static_cast<uint32_t>(bytes.size()));
    addNumber(head, static_cast<uint32_t>(size));
    addNumber(head, checksumOf(head, packed.data() + frameHead, size));
    packed.replace(0, frameHead, head);
    return put(packed);
}

RecordReader::RecordReader(const std::string& path)
{
    file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat known = {};
    if (file < 0 || fstat(file, &known) != 0 || !S_ISREG(known.st_mode)) {
        const std::string why = file < 0 ? std::strerror(errno) : "it is not a file";
        if (file >= 0)
            close(file);
        throw CommandError("the record " + quote(path) + " cannot be read: " + why);
    }
    size = static_cast<uint64_t>(known.st_size);
    const std::string line = firstLine(file);
    std::string problem;
    if (!line.starts_with(title))
        problem = quote(path) + " is not a record of a module; \"vorn run JOB --record "
                                "MODULE=FILE\" writes one";
    else if (line != fmt::format("{}{}", title, version))
        problem = fmt::format("the record {} has format {}, and this version of vorn reads format "
                              "{}: replay it with the version that wrote it, or record it again",
                              quote(path), escaped(line.substr(title.size())), version);
    else
        decompressor = libdeflate_alloc_decompressor();
    if (decompressor == nullptr) {
        close(file);
        throw CommandError(problem.empty() ? "there is no memory to read " + quote(path) : problem);
    }
    read = line.size() + 1;
    lseek(file, static_cast<off_t>(read), SEEK_SET);
}

RecordReader::~RecordReader()
{
    libdeflate_free_decompressor(decompressor);
    close(file);
}

bool RecordReader::fail(const std::string& why)
{
    reason = why;
    return false;
}

bool RecordReader::get(std::string& bytes, uint64_t wanted)
{
    if (wanted > size - read)
        return fail(fmt::format("is cut off: it ends after {} bytes, within a part", size));
    bytes.resize(wanted);
    std::size_t got = 0;
    if (!readAll(file, bytes.data(), bytes.size(), got))
        return fail(std::string("cannot be read any further: ") + std::strerror(errno));
    if (got != wanted)
        return fail(fmt::format("is cut off: it ends after {} bytes, within a part", read + got));
    read += got;
    return true;
}

bool RecordReader::next(Frame& frame)
{
    if (!reason.empty() || read == size)
        return false;
    const uint64_t at = read;
    std::string head;
    if (!get(head, frameHead))
        return false;
    const std::string damage = fmt::format("is damaged at byte {}", at);
    if (std::string_view("MBCEF").find(head.front()) == std::string_view::npos)
        return fail(damage);
    const uint64_t whole = numberAt(head, 1);
    const uint64_t packedSize = numberAt(head, 5);
    if (whole > largestRatio * packedSize)
        return fail(damage);
    if (!get(packed, packedSize))
        return false;
    if (checksumOf(head, packed.data(), packed.size()) != numberAt(head, checkedHead))
        return fail(damage);
    frame.kind = static_cast<FrameKind>(head.front());
    frame.bytes.resize(whole);
    std::size_t got = 0;
    if (libdeflate_zlib_decompress(decompressor, packed.data(), packed.size(), frame.bytes.data(),
                                   whole, &got) != LIBDEFLATE_SUCCESS ||
        got != whole)
        return fail(damage);
    return true;
}

} // namespace host
