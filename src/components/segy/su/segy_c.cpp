#include "su/segy_c.h"

#include "file/FileIdentity.h"
#include "segy/HeaderWords.h"
#include "segy/NumberRanges.h"
#include "su/SuReader.h"
#include "su/SuWriter.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <sys/stat.h>

struct vorn_ranges
{
    VORN::NumberRanges ranges;
};

struct vorn_su_reader
{
    VORN::SuReader reader;
};

struct vorn_su_writer
{
    VORN::OutputFile file;
    std::unique_ptr<VORN::SuWriter> writer; // from `vorn_su_begin` on
};

namespace {

void copyText(const std::string& text, char* to, int size)
{
    if (size < 1)
        return;
    const std::size_t length = std::min(text.size(), static_cast<std::size_t>(size) - 1);
    std::memcpy(to, text.data(), length);
    to[length] = '\0';
}

// The result of `action`; null or 0, and the exception's text, when it throws. No exception gets
// into C code.
template <typename Action>
auto guarded(char* error, int size, Action action) -> decltype(action())
{
    try {
        return action();
    } catch (const std::exception& failure) {
        copyText(failure.what(), error, size);
        return {};
    }
}

const VORN::HeaderWord& wordAt(int word)
{
    return VORN::suHeaderWords()[static_cast<std::size_t>(word)];
}

} // namespace

int vorn_su_words(void)
{
    return static_cast<int>(VORN::suHeaderWords().size());
}

const char* vorn_su_word_key(int word)
{
    return wordAt(word).key;
}

int vorn_su_word_is_float(int word)
{
    return wordAt(word).isFloat ? 1 : 0;
}

int32_t vorn_su_get_word(const unsigned char* header, int word, int littleEndian)
{
    return VORN::readWord(header, wordAt(word), littleEndian != 0);
}

int vorn_su_set_word(unsigned char* header, int word, int littleEndian, int32_t value)
{
    return VORN::writeWord(header, wordAt(word), littleEndian != 0, value) ? 1 : 0;
}

int vorn_su_native_order(void)
{
    return std::endian::native == std::endian::little ? 1 : 0;
}

int vorn_su_identity(const char* path, char* text, int size)
{
    // As VORN::fileIdentity, without memory: an input that is not recognised would be replaced.
    struct stat status;
    const bool exists = stat(path, &status) == 0;
    if (size > 0)
        text[0] = '\0';
    if (exists)
        std::snprintf(text, static_cast<std::size_t>(size), "%ju.%ju",
                      static_cast<uintmax_t>(status.st_dev), static_cast<uintmax_t>(status.st_ino));
    return exists ? 1 : 0;
}

void vorn_su_canonical(const char* path, char* text, int size)
{
    guarded(text, size, [=] {
        copyText(VORN::canonicalPath(path), text, size);
        return 1;
    });
}

vorn_ranges* vorn_ranges_parse(const char* text, char* error, int size)
{
    return guarded(error, size, [=] { return new vorn_ranges{VORN::NumberRanges(text)}; });
}

int vorn_ranges_contain(const vorn_ranges* ranges, int64_t value)
{
    return ranges->ranges.contains(value) ? 1 : 0;
}

void vorn_ranges_free(vorn_ranges* ranges)
{
    delete ranges;
}

vorn_su_reader* vorn_su_open(const char* path, int samples, int littleEndian, char* error, int size)
{
    VORN::SuOverrides overrides;
    if (samples != -1)
        overrides.samples = samples;
    if (littleEndian != -1)
        overrides.littleEndian = littleEndian != 0;
    return guarded(error, size,
                   [&] { return new vorn_su_reader{VORN::SuReader(path, overrides)}; });
}

void vorn_su_close(vorn_su_reader* reader)
{
    delete reader;
}

int vorn_su_little_endian(const vorn_su_reader* reader)
{
    return reader->reader.littleEndian() ? 1 : 0;
}

int vorn_su_samples(const vorn_su_reader* reader)
{
    return reader->reader.samples();
}

int vorn_su_interval(const vorn_su_reader* reader)
{
    return reader->reader.interval();
}

int64_t vorn_su_traces(const vorn_su_reader* reader)
{
    return reader->reader.traces();
}

const char* vorn_su_warning(const vorn_su_reader* reader, int line)
{
    const auto& lines = reader->reader.warnings();
    const auto index = static_cast<std::size_t>(line);
    return index < lines.size() ? lines[index].c_str() : nullptr;
}

int vorn_su_read(vorn_su_reader* reader, int64_t index, unsigned char* header, float* samples,
                 char* error, int size)
{
    return guarded(error, size, [=] {
        reader->reader.read(index, header, samples);
        return 1;
    });
}

vorn_su_writer* vorn_su_create(const char* path, int overwrite, char* error, int size)
{
    return guarded(error, size, [=] {
        return new vorn_su_writer{VORN::OutputFile(path, overwrite != 0), nullptr};
    });
}

void vorn_su_discard(vorn_su_writer* writer)
{
    delete writer;
}

int vorn_su_begin(vorn_su_writer* writer, int samples, int littleEndian, char* error, int size)
{
    return guarded(error, size, [=] {
        writer->writer = std::make_unique<VORN::SuWriter>(writer->file, samples, littleEndian != 0);
        return 1;
    });
}

int vorn_su_write(vorn_su_writer* writer, const unsigned char* header, const float* samples,
                  char* error, int size)
{
    return guarded(error, size, [=] {
        writer->writer->write(header, samples);
        return 1;
    });
}

int vorn_su_commit(vorn_su_writer* writer, char* error, int size)
{
    return guarded(error, size, [=] {
        writer->file.commit();
        return 1;
    });
}

int64_t vorn_su_size(const vorn_su_writer* writer)
{
    return writer->file.size();
}
