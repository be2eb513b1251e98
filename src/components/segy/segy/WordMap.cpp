#include "segy/WordMap.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <stdexcept>

namespace VORN {

namespace {

std::string withoutBlanks(const std::string& text)
{
    std::string kept;
    std::copy_if(text.begin(), text.end(), std::back_inserter(kept),
                 [](char c) { return c != ' ' && c != '\t' && c != '\r'; });
    return kept;
}

bool isKey(const std::string& key)
{
    const auto isLetter = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    };
    return !key.empty() && isLetter(key[0]) && std::all_of(key.begin(), key.end(), [&](char c) {
        return isLetter(c) || (c >= '0' && c <= '9');
    });
}

std::optional<int> toNumber(const std::string& digits)
{
    int value = 0;
    const char* end = digits.data() + digits.size();
    const auto [stopped, error] = std::from_chars(digits.data(), end, value);
    return error == std::errc() && stopped == end ? std::optional(value) : std::nullopt;
}

// Of either kind of trace header.
const HeaderWord* findStandardWord(const std::string& key)
{
    if (const HeaderWord* word = findTraceHeaderWord(key))
        return word;
    const std::vector<HeaderWord>& words = suHeaderWords();
    const auto word = std::find_if(words.begin(), words.end(),
                                   [&](const HeaderWord& one) { return one.key == key; });
    return word != words.end() ? &*word : nullptr;
}

// Sets how the word is stored; false for a name that is not a type.
bool setType(const std::string& type, HeaderWord& word)
{
    word.isFloat = type == "ieee" || type == "ibm" || type == "double";
    word.isIbm = type == "ibm";
    word.isUnsigned = type.rfind("uint", 0) == 0;
    if (word.isFloat) {
        word.bytes = type == "double" ? 8 : 4;
        return true;
    }
    const std::size_t prefix = word.isUnsigned ? 4 : 3;
    if (!word.isUnsigned && type.rfind("int", 0) != 0)
        return false;
    const int bits = toNumber(type.substr(prefix)).value_or(0);
    word.bytes = bits / 8;
    return bits >= 8 && bits <= 64 && bits % 8 == 0;
}

int lastByte(const HeaderWord& word)
{
    return word.byte + word.bytes - 1;
}

bool overlap(const HeaderWord& a, const HeaderWord& b)
{
    return a.byte <= lastByte(b) && b.byte <= lastByte(a);
}

} // namespace

WordMap::WordMap(const std::string& text)
{
    const std::string whole = withoutBlanks(text);
    for (std::size_t at = 0; at <= whole.size();) {
        const std::size_t end = std::min(whole.find_first_of(",\n", at), whole.size());
        const std::string piece = whole.substr(at, end - at);
        at = end + 1;
        if (!piece.empty() || whole.empty())
            add(piece);
    }
}

void WordMap::add(const std::string& piece)
{
    const auto refuse = [&](const std::string& why) {
        throw std::invalid_argument("\"" + piece + "\" " + why);
    };
    const std::size_t equals = piece.find('=');
    if (equals == std::string::npos)
        refuse("is not WORD=BYTE or WORD=BYTE:TYPE, as in iline=9 or cdpx=73:int32");
    const std::string key = piece.substr(0, equals);
    const std::size_t colon = std::min(piece.find(':', equals), piece.size());
    const std::string byte = piece.substr(equals + 1, colon - equals - 1);
    if (!isKey(key))
        refuse("names no word; a word has letters, digits and \"_\"");
    if (key == "ns" || key == "dt")
        refuse("maps the " + std::string(key == "ns" ? "length" : "sample interval") +
               " of the traces, which is always read from its own bytes; state `" +
               (key == "ns" ? "samples" : "interval") + "` instead");
    if (has(key))
        refuse("maps a word that is mapped already; keep one of the two");

    const HeaderWord* known = findStandardWord(key);
    HeaderWord word = known != nullptr ? *known : HeaderWord{"", 1, 4, false, "word of the job"};
    if (colon < piece.size() && !setType(piece.substr(colon + 1), word))
        refuse("has the type \"" + piece.substr(colon + 1) +
               "\"; expected int8, uint8, int16, uint16 and so on up to uint64, ieee, ibm or "
               "double");
    const std::optional<int> first = toNumber(byte);
    if (!first || *first < 1 || *first > segyTraceHeaderBytes)
        refuse("begins at byte \"" + byte + "\"; expected a number from 1 to " +
               std::to_string(segyTraceHeaderBytes));
    word.byte = *first;
    if (lastByte(word) > segyTraceHeaderBytes)
        refuse("ends at byte " + std::to_string(lastByte(word)) + "; a trace header has " +
               std::to_string(segyTraceHeaderBytes));
    if (known == nullptr)
        word.key = names->emplace_back(key).c_str();
    mapped.push_back(word);
}

bool WordMap::has(std::string_view key) const
{
    return std::any_of(mapped.begin(), mapped.end(),
                       [=](const HeaderWord& word) { return word.key == key; });
}

std::string WordMap::text() const
{
    std::string all;
    for (const HeaderWord& word : mapped)
        all += (all.empty() ? "" : ", ") + std::string(word.key) + "=" + std::to_string(word.byte) +
               ":" + wordTypeName(word);
    return all;
}

std::vector<HeaderWord> WordMap::applied(const std::vector<HeaderWord>& standard) const
{
    std::vector<HeaderWord> words = standard;
    for (const HeaderWord& word : mapped) {
        const auto same = std::find_if(words.begin(), words.end(), [&](const HeaderWord& one) {
            return std::string_view(one.key) == word.key;
        });
        if (same != words.end())
            *same = word;
        else
            words.push_back(word);
    }
    return words;
}

std::string WordMap::problemOfWriting() const
{
    const HeaderWord layout{"", 115, 4, false, ""};
    for (std::size_t i = 0; i < mapped.size(); ++i) {
        const std::string key = mapped[i].key;
        if (overlap(mapped[i], layout))
            return "the word " + key + " takes bytes " + std::to_string(mapped[i].byte) + " to " +
                   std::to_string(lastByte(mapped[i])) +
                   ", and bytes 115 to 118 hold length and interval of the trace; map it to others";
        for (std::size_t k = 0; k < i; ++k) {
            if (overlap(mapped[i], mapped[k]))
                return "the words " + std::string(mapped[k].key) + " and " + key +
                       " share bytes of the trace header; map one of them to others";
        }
    }
    return "";
}

} // namespace VORN
