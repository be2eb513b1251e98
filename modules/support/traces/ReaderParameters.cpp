#include "traces/ReaderParameters.h"

#include "MOXKernel.h"
#include "file/InputNames.h"

#include <stdexcept>

namespace traces {

std::vector<std::string> filesToRead(const std::vector<std::string>& names)
{
    std::vector<std::string> files;
    for (const std::string& name : names) {
        const std::vector<std::string> found = VORN::inputFiles(name);
        if (found.empty())
            throw std::runtime_error(name + ": no file matches this pattern");
        files.insert(files.end(), found.begin(), found.end());
    }
    if (files.empty())
        throw std::runtime_error("file is missing; give the name of a file");
    return files;
}

VORN::WordMap wordMap(const std::string& text)
{
    try {
        return VORN::WordMap(text);
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(std::string("words: ") + error.what());
    }
}

void addConditions(const std::string& select, const std::vector<VORN::HeaderWord>& words,
                   VORN::TraceSelection& selection)
{
    try {
        for (const auto& [key, numbers] : VORN::TraceSelection::split(select))
            selection.add(key, numbers, words);
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(std::string("select: ") + error.what());
    }
}

std::optional<VORN::NumberRanges> partOf(const std::optional<std::string>& part)
{
    if (!part)
        return std::nullopt;
    try {
        return VORN::NumberRanges(*part);
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(std::string("part: ") + error.what());
    }
}

bool isForHeadersOnly()
{
    constexpr int jobScope = 0;
    return !getMetaDataValue(jobScope, "vorn.headers").getStrValue().empty();
}

} // namespace traces
