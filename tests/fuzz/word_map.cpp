// Maps of header words and selections by words, as they are written in job files.
#include "FuzzInput.h"

#include "segy/TraceSelection.h"
#include "segy/WordMap.h"

#include <array>
#include <cmath>
#include <optional>
#include <stdexcept>

namespace {

using VORN::HeaderWord;
using VORN::WordMap;
using VORN::WordValue;

std::optional<WordMap> parse(const std::string& text)
{
    try {
        return WordMap(text);
    } catch (const std::invalid_argument& error) {
        VORN_ASSERT(*error.what() != '\0');
        return std::nullopt;
    }
}

bool isSame(const WordValue& a, const WordValue& b)
{
    return a.isFloat ? a.real == b.real || (std::isnan(a.real) && std::isnan(b.real))
                     : a.whole == b.whole;
}

// What is read can be written again, and touches the bytes of the word only.
void checkWord(const HeaderWord& word, const std::array<unsigned char, 240>& header, bool little)
{
    VORN_ASSERT(word.byte >= 1 && word.bytes >= 1 && word.byte + word.bytes - 1 <= 240);
    const WordValue value = VORN::readWordValue(header.data(), word, little);
    std::array<unsigned char, 242> copy{};
    copy.fill(0xA5);
    const bool fits = VORN::writeWordValue(copy.data() + 1, word, little, value);
    for (int i = 0; i < 242; ++i) {
        const bool isOfWord = i >= word.byte && i < word.byte + word.bytes;
        VORN_ASSERT(isOfWord || copy[static_cast<std::size_t>(i)] == 0xA5);
    }
    // IBM floats reach further than the floats that encode them; NaNs have no place in them.
    if (fits && !word.isIbm)
        VORN_ASSERT(isSame(VORN::readWordValue(copy.data() + 1, word, little), value));
}

void checkMap(const WordMap& map, const std::string& bytes)
{
    VORN_ASSERT(!map.isEmpty() && WordMap(map.text()).text() == map.text());
    std::array<unsigned char, 240> header{};
    for (std::size_t i = 0; i < header.size() && !bytes.empty(); ++i)
        header[i] = static_cast<unsigned char>(bytes[i % bytes.size()]);
    for (const HeaderWord& word : map.applied(VORN::traceHeaderWords())) {
        checkWord(word, header, false);
        checkWord(word, header, true);
    }
    map.problemOfWriting();
}

void checkSelection(const std::string& text)
{
    try {
        VORN::TraceSelection selection;
        for (const auto& [key, numbers] : VORN::TraceSelection::split(text))
            selection.add(key, numbers);
        VORN_ASSERT(!selection.isEmpty());
    } catch (const std::invalid_argument& error) {
        VORN_ASSERT(*error.what() != '\0');
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    const std::string all(reinterpret_cast<const char*>(data), size);
    if (const std::optional<WordMap> map = parse(all.c_str()))
        checkMap(*map, all);
    checkSelection(all.c_str());
    return 0;
}
