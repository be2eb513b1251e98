// Metadata files: any bytes are read as entries, entries are written, and what was written is read
// back.
#include "FuzzInput.h"

#include "metadataprovider.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <utility>

namespace {

using VORN::MetadataProvider;
using Entries = std::vector<std::pair<std::string, std::string>>;
using Map = std::map<std::string, std::string>;

void collect(void* ctx, const std::string& key, const std::string& value)
{
    static_cast<Entries*>(ctx)->emplace_back(key, value);
}

Entries parse(const std::vector<char>& bytes)
{
    Entries entries;
    VORN_ASSERT(MetadataProvider::getInstance()->parseMetadata(
        bytes.data(), static_cast<int>(bytes.size()), collect, &entries));
    return entries;
}

// The rules once more, in the most simple way: texts up to a NUL or the end, until an empty one.
Entries expected(const std::vector<char>& bytes)
{
    std::vector<std::string> texts;
    auto at = bytes.begin();
    while (at != bytes.end() && *at != '\0') {
        const auto end = std::find(at, bytes.end(), '\0');
        texts.emplace_back(at, end);
        at = end == bytes.end() ? end : end + 1;
    }
    Entries entries;
    for (std::size_t i = 1; i < texts.size(); i += 2)
        entries.emplace_back(texts[i - 1], texts[i]);
    return entries;
}

std::vector<char> pack(const Map& map)
{
    char* packed = nullptr;
    const int size = MetadataProvider::getInstance()->packMetadata(&packed, map);
    VORN_ASSERT(packed != nullptr && size >= 2);
    const std::unique_ptr<char, void (*)(void*)> owner(packed, std::free);
    return {packed, packed + size};
}

void checkNegativeSizes(const std::vector<char>& bytes)
{
    for (const int size : {0, -1, INT_MIN}) {
        Entries entries;
        MetadataProvider::getInstance()->parseMetadata(bytes.data(), size, collect, &entries);
        VORN_ASSERT(entries.empty());
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    const std::vector<char> bytes(data, data + size);
    const Entries entries = parse(bytes);
    VORN_ASSERT(entries == expected(bytes));
    checkNegativeSizes(bytes);

    const Map map(entries.begin(), entries.end());
    const std::vector<char> packed = pack(map);
    VORN_ASSERT(packed.size() >= 2 && packed.back() == '\0' && packed[packed.size() - 2] == '\0');
    VORN_ASSERT(parse(packed) == Entries(map.begin(), map.end()));
    return 0;
}
