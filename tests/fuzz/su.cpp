// Seismic Unix files through the C interface, as su_in reads them and su_out writes them. The input
// is the file; what a person states is taken from its first bytes.
#include "FuzzInput.h"

#include "FuzzDirectory.h"
#include "su/segy_c.h"

#include <memory>

namespace {

using Reader = std::unique_ptr<vorn_su_reader, void (*)(vorn_su_reader*)>;
using Writer = std::unique_ptr<vorn_su_writer, void (*)(vorn_su_writer*)>;
using Samples = std::vector<float>;

constexpr int64_t mostTraces = 200;
constexpr float untouched = 12345.5F;

// Room for the error of one call, of any size.
class ErrorRoom
{
public:
    explicit ErrorRoom(int bytes) : block(static_cast<std::size_t>(bytes)) {}

    char* data() { return block.data(); }
    int size() const { return static_cast<int>(block.size()); }

    void checkWritten(const std::string& path)
    {
        block.check();
        if (block.size() == 0)
            return;
        const std::string all = block.text();
        VORN_ASSERT(all.find('\0') != std::string::npos);
        const std::string text = all.c_str();
        VORN_ASSERT(isPlainLine(text));
        const std::string begin = path + ": ";
        const std::size_t told = std::min(begin.size(), text.size());
        VORN_ASSERT(text.compare(0, told, begin, 0, told) == 0);
    }

    void checkUntouched()
    {
        block.check();
        VORN_ASSERT(block.text() == std::string(block.size(), '?'));
    }

private:
    GuardedBlock block;
};

struct Statement
{
    int samples = -1;
    int littleEndian = -1;
    int errorBytes = 200;
};

int64_t traceBytes(const vorn_su_reader* reader)
{
    return VORN_SU_HEADER_BYTES + int64_t{4} * vorn_su_samples(reader);
}

Reader openReader(const std::string& path, const Statement& stated)
{
    ErrorRoom error(stated.errorBytes);
    Reader reader(
        vorn_su_open(path.c_str(), stated.samples, stated.littleEndian, error.data(), error.size()),
        vorn_su_close);
    if (reader == nullptr)
        error.checkWritten(path);
    else
        error.checkUntouched();
    return reader;
}

void checkReader(const vorn_su_reader* reader, const Statement& stated, std::size_t fileBytes)
{
    VORN_ASSERT(vorn_su_samples(reader) > 0);
    VORN_ASSERT(stated.samples == -1 || vorn_su_samples(reader) == stated.samples);
    VORN_ASSERT(stated.littleEndian == -1 || vorn_su_little_endian(reader) == stated.littleEndian);
    VORN_ASSERT(vorn_su_interval(reader) >= 0);
    VORN_ASSERT(vorn_su_traces(reader) == static_cast<int64_t>(fileBytes) / traceBytes(reader));
    int lines = 0;
    while (const char* line = vorn_su_warning(reader, lines)) {
        VORN_ASSERT(*line != '\0' && isPlainLine(line));
        ++lines;
    }
    VORN_ASSERT(vorn_su_warning(reader, lines + 1) == nullptr);
    VORN_ASSERT(vorn_su_warning(reader, -1) == nullptr);
}

void readTrace(vorn_su_reader* reader, int64_t index, const uint8_t* file)
{
    const auto count = static_cast<std::size_t>(vorn_su_samples(reader));
    unsigned char header[VORN_SU_HEADER_BYTES];
    Samples samples(count + 1, untouched);
    ErrorRoom error(100);
    VORN_ASSERT(vorn_su_read(reader, index, header, samples.data(), error.data(), error.size()));
    error.checkUntouched();
    VORN_ASSERT(samples[count] == untouched);
    const uint8_t* expected = file + index * traceBytes(reader);
    VORN_ASSERT(std::memcmp(header, expected, sizeof header) == 0);
    if (vorn_su_little_endian(reader) == vorn_su_native_order())
        VORN_ASSERT(std::memcmp(samples.data(), expected + sizeof header, 4 * count) == 0);
}

void checkNoTrace(vorn_su_reader* reader, int64_t index, const std::string& path)
{
    ErrorRoom error(100);
    VORN_ASSERT(vorn_su_read(reader, index, nullptr, nullptr, error.data(), error.size()) == 0);
    error.checkWritten(path);
}

void readTraces(vorn_su_reader* reader, const uint8_t* file, const std::string& path)
{
    const int64_t traces = vorn_su_traces(reader);
    for (int64_t i = 0; i < std::min(traces, mostTraces); ++i)
        readTrace(reader, i, file);
    if (traces > 0)
        readTrace(reader, traces - 1, file);
    for (const int64_t wrong : {traces, traces + 1, int64_t{-1}, INT64_MIN, INT64_MAX})
        checkNoTrace(reader, wrong, path);
}

// Every word comes back as it was read, whatever is in the header, and changes no other.
void checkWords(const uint8_t* data, int littleEndian)
{
    unsigned char header[VORN_SU_HEADER_BYTES];
    std::memcpy(header, data, sizeof header);
    for (int word = 0; word < vorn_su_words(); ++word) {
        const int32_t value = vorn_su_get_word(header, word, littleEndian);
        VORN_ASSERT(vorn_su_set_word(header, word, littleEndian, value) == 1);
        VORN_ASSERT(vorn_su_get_word(header, word, littleEndian) == value);
        VORN_ASSERT(*vorn_su_word_key(word) != '\0');
    }
    VORN_ASSERT(std::memcmp(header, data, sizeof header) == 0);
}

// 1, or 0 when the samples are more than a header can state.
int writeCopy(vorn_su_reader* reader, const std::string& path)
{
    ErrorRoom error(200);
    const Writer writer(vorn_su_create(path.c_str(), 1, error.data(), error.size()),
                        vorn_su_discard);
    VORN_ASSERT(writer != nullptr);
    const int samples = vorn_su_samples(reader);
    if (!vorn_su_begin(writer.get(), samples, vorn_su_little_endian(reader), error.data(),
                       error.size()))
    {
        VORN_ASSERT(samples > 65535);
        error.checkWritten(path);
        return 0;
    }
    unsigned char header[VORN_SU_HEADER_BYTES];
    Samples read(static_cast<std::size_t>(samples));
    for (int64_t i = 0; i < vorn_su_traces(reader); ++i) {
        VORN_ASSERT(vorn_su_read(reader, i, header, read.data(), error.data(), error.size()));
        VORN_ASSERT(vorn_su_write(writer.get(), header, read.data(), error.data(), error.size()));
    }
    VORN_ASSERT(vorn_su_size(writer.get()) == vorn_su_traces(reader) * traceBytes(reader));
    VORN_ASSERT(vorn_su_commit(writer.get(), error.data(), error.size()));
    error.checkUntouched();
    return 1;
}

// The copy is the file without what was cut, apart from the number of samples in its headers; it
// needs no statement.
void checkCopy(vorn_su_reader* reader)
{
    const std::string path = fuzzDirectory() + "/copy.su";
    if (!writeCopy(reader, path))
        return;
    const Reader copy = openReader(path, {-1, vorn_su_little_endian(reader), 200});
    VORN_ASSERT(copy != nullptr && vorn_su_warning(copy.get(), 0) == nullptr);
    VORN_ASSERT(vorn_su_traces(copy.get()) == vorn_su_traces(reader));
    VORN_ASSERT(vorn_su_samples(copy.get()) == vorn_su_samples(reader));
    const auto count = static_cast<std::size_t>(vorn_su_samples(reader));
    Samples before(count);
    Samples after(count);
    for (int64_t i = 0; i < vorn_su_traces(reader); ++i) {
        VORN_ASSERT(vorn_su_read(reader, i, nullptr, before.data(), nullptr, 0));
        VORN_ASSERT(vorn_su_read(copy.get(), i, nullptr, after.data(), nullptr, 0));
        VORN_ASSERT(std::memcmp(before.data(), after.data(), 4 * count) == 0);
    }
}

Statement statedIn(const uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const int wanted = input.byte();
    Statement stated;
    if ((wanted & 1) != 0)
        stated.samples = 256 * input.byte() + input.byte() - 2;
    if ((wanted & 2) != 0)
        stated.samples = (wanted & 4) != 0 ? INT_MAX : INT_MIN;
    if ((wanted & 8) != 0)
        stated.littleEndian = (wanted & 16) != 0 ? 1 : 0;
    stated.errorBytes = input.byte() % 100;
    return stated;
}

void readFile(const std::string& path, const Statement& stated, const uint8_t* data,
              std::size_t size)
{
    const Reader reader = openReader(path, stated);
    if (reader == nullptr)
        return;
    checkReader(reader.get(), stated, size);
    readTraces(reader.get(), data, path);
    checkWords(data, vorn_su_little_endian(reader.get()));
    if (vorn_su_traces(reader.get()) > 0 && vorn_su_traces(reader.get()) <= mostTraces)
        checkCopy(reader.get());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    const MemoryFile file(data, size);
    readFile(file.path(), {}, data, size);
    readFile(file.path(), statedIn(data, size), data, size);
    return 0;
}
