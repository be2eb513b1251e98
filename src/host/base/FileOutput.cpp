#include "base/FileOutput.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "file/FileIdentity.h"
#include "file/FileRoles.h"
#include "file/OutputFile.h"

#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

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

void claimOutput(const Output& output)
{
    const auto refuse = [&](const std::string& what) {
        throw CommandError(output.option + ": " + what);
    };
    const std::string& path = output.path;
    const std::string used = VORN::usedFiles().roleOf(path, output.option);
    if (!used.empty())
        refuse(output.role + " " + quote(path) + " would replace " + used +
               "; write to another file");
    const std::string link = VORN::foreignLinkOn(path);
    if (!link.empty())
        refuse("the link " + quote(link) +
               " has been put into a directory for all by somebody else and is not followed; write "
               "to another place");
    if (VORN::isWrittenThrough(path))
        return;
    std::error_code none;
    const std::filesystem::file_status status = std::filesystem::status(path, none);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        refuse(quote(path) + " is not a regular file; give the path of a file");
    if (VORN::isWriteProtected(path))
        refuse("the file " + quote(path) +
               " is write-protected; write to another file, or give yourself permission first "
               "(chmod u+w)");
    if (std::filesystem::exists(status) && std::filesystem::file_size(path, none) > 0 &&
        !isOfKind(beginningOf(path), output.content))
        refuse("the file " + quote(path) + " is there already and is " + kindName(output.content) +
               ", so it is not replaced; write to another file, or remove it first");
    VORN::usedFiles().add(path, output.role + " " + quote(path), output.option);
}

void writeWholeFile(const Output& output, const std::string& bytes)
{
    try {
        VORN::OutputFile file(output.path, true, output.role, output.option);
        if (!bytes.empty())
            std::memcpy(file.append(bytes.size()), bytes.data(), bytes.size());
        file.commit();
    } catch (const VORN::TraceFileError& error) {
        const std::string text = error.what();
        const std::string named = output.path + ": ";
        throw CommandError("the file " + quote(output.path) + " " +
                           (text.starts_with(named) ? text.substr(named.size()) : text));
    }
}

bool isStandardOutput(const std::string& path)
{
    return VORN::descriptorOf(path) == STDOUT_FILENO;
}

} // namespace host
