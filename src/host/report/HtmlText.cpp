#include "report/HtmlText.h"

#include "base/Escaping.h"
#include "base/Sha256.h"

#include <QByteArray>

namespace host {

namespace {

std::string withEntities(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '\0':
            result += "\\x00";
            break;
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            result += c;
            break;
        }
    }
    return result;
}

// The number of leading bytes that stay: at most `most`, ending with a whole character.
std::size_t kept(std::string_view text, std::size_t most)
{
    if (text.size() <= most)
        return text.size();
    while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xc0) == 0x80)
        --most;
    return most;
}

std::string cutNote(std::size_t leftOut)
{
    return leftOut == 0 ? "" : " … (" + std::to_string(leftOut) + " more bytes)";
}

QByteArray bytesOf(std::string_view text)
{
    return QByteArray::fromRawData(text.data(), static_cast<int>(text.size()));
}

} // namespace

std::string html(std::string_view text, std::size_t most)
{
    const std::size_t length = kept(text, most);
    return withEntities(escaped(text.substr(0, length))) + cutNote(text.size() - length);
}

std::string htmlLines(std::string_view text, std::size_t most)
{
    const std::size_t length = kept(text, most);
    return withEntities(escapedLines(text.substr(0, length))) + cutNote(text.size() - length);
}

std::string base64(std::string_view bytes)
{
    return bytesOf(bytes).toBase64().toStdString();
}

std::string dataUri(const std::string& mediaType, std::string_view bytes)
{
    return "data:" + mediaType + ";base64," + base64(bytes);
}

std::string policyHash(std::string_view text)
{
    Sha256 hash;
    hash.add(text);
    const Sha256::Digest digest = hash.digest();
    return "'sha256-" + base64({reinterpret_cast<const char*>(digest.data()), digest.size()}) + "'";
}

} // namespace host
