#include "vorn_tools.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

std::string_view field(const char* text, int length)
{
    if (text == nullptr || length <= 0)
        return "";
    return {text, static_cast<size_t>(length)};
}

std::string_view cText(const char* text)
{
    return text == nullptr ? "" : text;
}

std::string_view withoutLeadingBlanks(std::string_view text)
{
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

std::string_view withoutTrailingBlanks(std::string_view text)
{
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

// Every trailing blank becomes a NUL, not only the first: `dest` ends up the same, byte for byte,
// over the whole length of what was copied.
void copyTerminated(std::string_view text, char* dest)
{
    if (dest == nullptr)
        return;
    const size_t kept = withoutTrailingBlanks(text).size();
    std::memmove(dest, text.data(), kept); // a field may be converted in its own place
    std::memset(dest + kept, '\0', text.size() - kept + 1);
}

} // namespace

void f2ccpy(const char* source, char* dest, int len)
{
    copyTerminated(withoutLeadingBlanks(field(source, len)), dest);
}

void f2ccpy_leadbl(const char* source, char* dest, int len)
{
    copyTerminated(field(source, len), dest);
}

void c2fcpy(const char* source, char* dest, int len)
{
    if (dest == nullptr || len <= 0)
        return;
    // Only `len` bytes of the source are looked at: a longer one need not even be terminated.
    const size_t room = static_cast<size_t>(len);
    size_t used = 0;
    if (source != nullptr) {
        while (used < room && source[used] != '\0' && source[used] != '\n') {
            dest[used] = source[used];
            ++used;
        }
    }
    std::memset(dest + used, ' ', room - used);
}

int f2ccmp(const char* fort, const char* c, int lfort)
{
    const std::string_view left = withoutTrailingBlanks(withoutLeadingBlanks(field(fort, lfort)));
    const std::string_view right = withoutTrailingBlanks(cText(c));
    return left == right ? 1 : 0;
}
