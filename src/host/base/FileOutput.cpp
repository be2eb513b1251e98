#include "base/FileOutput.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "file/FileIdentity.h"
#include "file/OutputFile.h"

#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace host {

namespace {

// Enough to reach the binary words behind the text that seismic files begin with.
std::string beginningOf(const std::string& path)
{
    constexpr std::streamsize bytes = 65536;
    std::string text(static_cast<std::size_t>(bytes), '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(text.data(), bytes);
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
}

bool beginsWith(const std::string& text, char expected)
{
    for (const char c : text) {
        if (std::isspace(static_cast<unsigned char>(c)) == 0)
            return c == expected;
    }
    return false;
}

bool isOfKind(const std::string& beginning, Content content)
{
    switch (content) {
    case Content::json:
        return beginsWith(beginning, '{');
    case Content::page:
        return beginsWith(beginning, '<');
    case Content::text:
        return beginning.find('\0') == std::string::npos;
    case Content::any:
        break;
    }
    return true;
}

const char* kindName(Content content)
{
    switch (content) {
    case Content::json:
        return "not JSON";
    case Content::page:
        return "not an HTML page";
    case Content::text:
    case Content::any:
        break;
    }
    return "not text";
}

} // namespace

void refuseToReplace(const std::string& option, const std::string& path, Content content)
{
    std::error_code none;
    if (!std::filesystem::is_regular_file(path, none))
        return;
    if (VORN::isWriteProtected(path))
        throw CommandError(option + ": the file " + quote(path) +
                           " is write-protected; write to another file, or give yourself "
                           "permission first (chmod u+w)");
    if (std::filesystem::file_size(path, none) > 0 && !isOfKind(beginningOf(path), content))
        throw CommandError(option + ": the file " + quote(path) + " is there already and is " +
                           kindName(content) +
                           ", so it is not replaced; write to another file, "
                           "or remove it first");
}

void writeWholeFile(const std::string& path, const std::string& bytes)
{
    try {
        VORN::OutputFile file(path, true);
        if (!bytes.empty())
            std::memcpy(file.append(bytes.size()), bytes.data(), bytes.size());
        file.commit();
    } catch (const VORN::TraceFileError& error) {
        const std::string text = error.what();
        const std::string named = path + ": ";
        throw CommandError("the file " + quote(path) + " " +
                           (text.starts_with(named) ? text.substr(named.size()) : text));
    }
}

} // namespace host
