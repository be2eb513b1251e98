#include "FileOutput.h"

#include "CommandTable.h"
#include "TextTools.h"
#include "tracefile.h"

#include <cstring>

namespace vorn {

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

} // namespace vorn
