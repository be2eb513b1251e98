#include "segy/TextHeader.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace VORN {

namespace {

constexpr std::size_t cardLength = 80;
constexpr std::size_t cards = 40;

// EBCDIC code page 037 to Latin-1.
constexpr std::array<unsigned char, 256> fromEbcdic = {
    // clang-format off
    0x00, 0x01, 0x02, 0x03, 0x9C, 0x09, 0x86, 0x7F, 0x97, 0x8D, 0x8E, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F,
    0x10, 0x11, 0x12, 0x13, 0x9D, 0x85, 0x08, 0x87, 0x18, 0x19, 0x92, 0x8F, 0x1C, 0x1D, 0x1E, 0x1F,
    0x80, 0x81, 0x82, 0x83, 0x84, 0x0A, 0x17, 0x1B, 0x88, 0x89, 0x8A, 0x8B, 0x8C, 0x05, 0x06, 0x07,
    0x90, 0x91, 0x16, 0x93, 0x94, 0x95, 0x96, 0x04, 0x98, 0x99, 0x9A, 0x9B, 0x14, 0x15, 0x9E, 0x1A,
    0x20, 0xA0, 0xE2, 0xE4, 0xE0, 0xE1, 0xE3, 0xE5, 0xE7, 0xF1, 0xA2, 0x2E, 0x3C, 0x28, 0x2B, 0x7C,
    0x26, 0xE9, 0xEA, 0xEB, 0xE8, 0xED, 0xEE, 0xEF, 0xEC, 0xDF, 0x21, 0x24, 0x2A, 0x29, 0x3B, 0xAC,
    0x2D, 0x2F, 0xC2, 0xC4, 0xC0, 0xC1, 0xC3, 0xC5, 0xC7, 0xD1, 0xA6, 0x2C, 0x25, 0x5F, 0x3E, 0x3F,
    0xF8, 0xC9, 0xCA, 0xCB, 0xC8, 0xCD, 0xCE, 0xCF, 0xCC, 0x60, 0x3A, 0x23, 0x40, 0x27, 0x3D, 0x22,
    0xD8, 0x61, 0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0xAB, 0xBB, 0xF0, 0xFD, 0xFE, 0xB1,
    0xB0, 0x6A, 0x6B, 0x6C, 0x6D, 0x6E, 0x6F, 0x70, 0x71, 0x72, 0xAA, 0xBA, 0xE6, 0xB8, 0xC6, 0xA4,
    0xB5, 0x7E, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0xA1, 0xBF, 0xD0, 0xDD, 0xDE, 0xAE,
    0x5E, 0xA3, 0xA5, 0xB7, 0xA9, 0xA7, 0xB6, 0xBC, 0xBD, 0xBE, 0x5B, 0x5D, 0xAF, 0xA8, 0xB4, 0xD7,
    0x7B, 0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0xAD, 0xF4, 0xF6, 0xF2, 0xF3, 0xF5,
    0x7D, 0x4A, 0x4B, 0x4C, 0x4D, 0x4E, 0x4F, 0x50, 0x51, 0x52, 0xB9, 0xFB, 0xFC, 0xF9, 0xFA, 0xFF,
    0x5C, 0xF7, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0xB2, 0xD4, 0xD6, 0xD2, 0xD3, 0xD5,
    0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0xB3, 0xDB, 0xDC, 0xD9, 0xDA, 0x9F,
    // clang-format on
};

constexpr unsigned char ebcdicBlank = 0x40;
constexpr unsigned char asciiBlank = 0x20;

bool isAscii(unsigned char c)
{
    return c >= 0x20 && c < 0x7F;
}

// Of Latin-1. A blank that does not break and a hyphen that does not show look like others.
bool isPrintable(unsigned char c)
{
    constexpr unsigned char fixedBlank = 0xA0;
    constexpr unsigned char softHyphen = 0xAD;
    return isAscii(c) || (c > fixedBlank && c != softHyphen);
}

bool isWordCharacter(unsigned char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == ' ';
}

std::size_t countIf(const unsigned char* bytes, std::size_t count, bool ebcdic,
                    bool (*wanted)(unsigned char))
{
    return static_cast<std::size_t>(std::count_if(bytes, bytes + count, [=](unsigned char byte) {
        return wanted(ebcdic ? fromEbcdic[byte] : byte);
    }));
}

std::array<unsigned char, 256> makeToEbcdic()
{
    std::array<unsigned char, 256> table;
    table.fill(ebcdicBlank);
    for (std::size_t code = 0; code < fromEbcdic.size(); ++code) {
        if (isPrintable(fromEbcdic[code]))
            table[fromEbcdic[code]] = static_cast<unsigned char>(code);
    }
    return table;
}

std::string utf8OfLatin1(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (code < 0x80) {
            result += c;
        } else {
            result += static_cast<char>(0xC0 | code >> 6);
            result += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
    return result;
}

// Other characters, and bytes that are not UTF-8, become a blank each.
std::string latin1OfUtf8(const std::string& text)
{
    const auto continues = [&](std::size_t at) {
        return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
    };
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t start = i++;
        if (lead >= 0xC0) {
            while (continues(i))
                ++i;
        }
        const bool ofLatin1 = (lead == 0xC2 || lead == 0xC3) && i == start + 2;
        if (lead < 0x80)
            result += text[start];
        else if (ofLatin1)
            result += static_cast<char>((lead & 0x03) << 6 | (text[start + 1] & 0x3F));
        else
            result += ' ';
    }
    return result;
}

// ---- Composing ----

constexpr std::size_t revisionCard = 38; // counted from 0
constexpr std::size_t endCard = 39;

std::string cardNumber(std::size_t index)
{
    const std::string digits = std::to_string(index + 1);
    return (digits.size() < 2 ? "C " : "C") + digits + " ";
}

// The card without "C12 " or "C 2" in front and blanks behind: what a reader would call its text.
std::string cardText(const std::string& card)
{
    std::size_t start = 0;
    if (!card.empty() && (card[0] == 'C' || card[0] == 'c')) {
        std::size_t at = card.find_first_not_of(' ', 1);
        const std::size_t digits = at;
        while (at != std::string::npos && at < card.size() && at < 3 && card[at] >= '0' &&
               card[at] <= '9')
            ++at;
        if (digits != std::string::npos && at > digits)
            start = at;
    }
    const std::size_t first = card.find_first_not_of(' ', start);
    return first == std::string::npos ? std::string()
                                      : card.substr(first, card.find_last_not_of(' ') + 1 - first);
}

// A line in UTF-8, in pieces that fit behind a card's number; the later ones are indented.
std::vector<std::string> brokenLine(const std::string& line)
{
    constexpr std::size_t width = cardLength - 4;
    const std::string indent = "  ";
    std::vector<std::string> pieces;
    std::string rest = latin1OfUtf8(line);
    while (rest.size() > width) {
        const std::size_t blank = rest.rfind(' ', width);
        const bool atBlank = blank != std::string::npos && blank > indent.size();
        const std::size_t end = atBlank ? blank : width;
        pieces.push_back(utf8OfLatin1(rest.substr(0, end)));
        rest = indent + rest.substr(atBlank ? end + 1 : end);
    }
    pieces.push_back(utf8OfLatin1(rest));
    return pieces;
}

// Takes the last `count` free cards before the closing ones away and moves up what stands below
// them, so that as many are free at the end. Requires: there are that many.
void closeUp(std::vector<std::string>& composed, std::size_t count)
{
    std::size_t to = revisionCard; // cards from there on are in place
    std::size_t taken = 0;
    while (taken < count)
        taken += cardText(composed[--to]).empty() ? 1U : 0U;
    for (std::size_t from = to; from < revisionCard; ++from) {
        const std::string card = composed[from];
        if (cardText(card).empty() && taken > 0) {
            --taken;
            continue;
        }
        const std::string number = cardNumber(from);
        const bool isNumbered = card.compare(0, number.size(), number) == 0;
        composed[to] = isNumbered ? cardNumber(to) + card.substr(number.size()) : card;
        ++to;
    }
}

bool saysRevision(const std::string& text)
{
    return text.rfind("SEG Y REV", 0) == 0 || text.rfind("SEG-Y REV", 0) == 0 ||
           text.rfind("SEGY REV", 0) == 0;
}

bool saysEnd(const std::string& text)
{
    return text.rfind("END TEXTUAL HEADER", 0) == 0 || text.rfind("END EBCDIC", 0) == 0;
}

// Gives cards 39 and 40 their text. Returns what stood there and has lost its place.
std::vector<std::string> setClosingCards(std::vector<std::string>& composed, int revision)
{
    const std::string revisionText = cardText(composed[revisionCard]);
    const std::string endText = cardText(composed[endCard]);
    std::vector<std::string> displaced;
    if (revision == 0) {
        if (saysRevision(revisionText))
            composed[revisionCard] = cardNumber(revisionCard);
        if (endText == "END TEXTUAL HEADER")
            composed[endCard] = cardNumber(endCard) + "END EBCDIC";
        return displaced;
    }
    if (!revisionText.empty() && !saysRevision(revisionText))
        displaced.push_back(revisionText);
    if (!endText.empty() && !saysEnd(endText))
        displaced.push_back(endText);
    composed[revisionCard] = cardNumber(revisionCard) + "SEG Y REV1";
    composed[endCard] = cardNumber(endCard) + "END TEXTUAL HEADER";
    return displaced;
}

} // namespace

bool looksLikeEbcdic(const unsigned char* bytes, std::size_t count)
{
    return countIf(bytes, count, true, isWordCharacter) >=
           countIf(bytes, count, false, isWordCharacter);
}

bool looksLikeText(const unsigned char* bytes, std::size_t count)
{
    const std::size_t printable =
        std::max(countIf(bytes, count, true, isAscii), countIf(bytes, count, false, isAscii));
    return printable * 10 >= count * 9;
}

std::string damageOfText(const unsigned char* bytes, std::size_t count, bool ebcdic)
{
    const auto all = [=](auto wanted) {
        return static_cast<std::size_t>(std::count_if(bytes, bytes + count, wanted));
    };
    if (all([](unsigned char byte) { return byte == 0; }) == count)
        return "is empty: all of its " + std::to_string(count) + " bytes are 0";
    const auto isFiller = [](unsigned char c) { return c == 0 || (c >= 0x09 && c <= 0x0D); };
    const std::size_t strange = all([=](unsigned char byte) {
        const unsigned char c = ebcdic ? fromEbcdic[byte] : byte;
        return !isPrintable(c) && !isFiller(c) && c != 0x85; // next line, in EBCDIC
    });
    const std::size_t plain = all([=](unsigned char byte) {
        const unsigned char c = ebcdic ? fromEbcdic[byte] : byte;
        return isAscii(c) || isFiller(c) || c == 0x85;
    });
    const std::string coding = ebcdic ? "EBCDIC" : "ASCII";
    if (strange * 100 > count)
        return "is damaged: " + std::to_string(strange) + " of its " + std::to_string(count) +
               " bytes are not characters of " + coding + "; they are shown as blanks";
    if (plain * 10 < count * 9)
        return "is damaged: only " + std::to_string(plain) + " of its " + std::to_string(count) +
               " bytes are letters, digits and signs of " + coding;
    return "";
}

std::string decodeText(const unsigned char* bytes, std::size_t count, bool ebcdic)
{
    std::string text(count, ' ');
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned char c = ebcdic ? fromEbcdic[bytes[i]] : bytes[i];
        if (isPrintable(c))
            text[i] = static_cast<char>(c);
    }
    return text;
}

std::vector<std::string> textCards(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size(); at += cardLength) {
        std::string card = text.substr(at, cardLength);
        card.erase(card.find_last_not_of(' ') + 1);
        lines.push_back(utf8OfLatin1(card));
    }
    return lines;
}

std::vector<std::string> composeCards(const std::vector<std::string>& input,
                                      const std::vector<std::string>& lines,
                                      std::optional<int> revision, std::size_t* leftOut)
{
    std::vector<std::string> composed(
        input.begin(), input.begin() + static_cast<std::ptrdiff_t>(std::min(input.size(), cards)));
    while (composed.size() < cards)
        composed.push_back(cardNumber(composed.size()));
    std::vector<std::string> wanted;
    if (revision)
        wanted = setClosingCards(composed, *revision);
    wanted.insert(wanted.end(), lines.begin(), lines.end());

    const auto free = static_cast<std::size_t>(
        std::count_if(composed.begin(), composed.begin() + revisionCard,
                      [](const std::string& card) { return cardText(card).empty(); }));
    // From the last line to the first: the latest processing is the one that must be known.
    std::vector<std::string> below; // pieces, the last one first
    std::size_t placed = 0;
    for (; placed < wanted.size(); ++placed) {
        const std::vector<std::string> pieces = brokenLine(wanted[wanted.size() - 1 - placed]);
        if (below.size() + pieces.size() > free)
            break;
        below.insert(below.end(), pieces.rbegin(), pieces.rend());
    }
    closeUp(composed, below.size());
    for (std::size_t i = 0; i < below.size(); ++i) {
        const std::size_t card = revisionCard - 1 - i;
        composed[card] = cardNumber(card) + below[i];
    }
    if (leftOut != nullptr)
        *leftOut = wanted.size() - placed;
    return composed;
}

std::vector<unsigned char> encodeCards(const std::vector<std::string>& lines,
                                       const std::vector<unsigned char>& original)
{
    static const std::array<unsigned char, 256> toEbcdic = makeToEbcdic();
    constexpr std::size_t length = cards * cardLength;
    const bool hasOriginal = original.size() == length;
    const bool ebcdic = !hasOriginal || looksLikeEbcdic(original.data(), length);
    std::vector<std::string> before;
    if (hasOriginal)
        before = textCards(decodeText(original.data(), length, ebcdic));

    std::vector<unsigned char> bytes(length, ebcdic ? ebcdicBlank : asciiBlank);
    for (std::size_t card = 0; card < std::min(lines.size(), cards); ++card) {
        const auto start = static_cast<std::ptrdiff_t>(card * cardLength);
        if (hasOriginal && lines[card] == before[card]) {
            std::copy_n(original.begin() + start, cardLength, bytes.begin() + start);
            continue;
        }
        const std::string line = latin1OfUtf8(lines[card]).substr(0, cardLength);
        std::transform(line.begin(), line.end(), bytes.begin() + start, [&](char c) {
            const auto code = static_cast<unsigned char>(c);
            return ebcdic ? toEbcdic[code] : isPrintable(code) ? code : asciiBlank;
        });
    }
    return bytes;
}

} // namespace VORN
