#include "traces/ReaderFiles.h"

#include "traces/Milliseconds.h"

#include <algorithm>
#include <stdexcept>

namespace traces {

namespace {

constexpr int lastByteOfRevision0 = 180;

// Words that revision 0 does not have, without those that the map touches.
std::vector<const VORN::HeaderWord*> laterWords(int revision, const VORN::WordMap& map)
{
    std::vector<const VORN::HeaderWord*> words;
    if (revision != 0)
        return words;
    for (const VORN::HeaderWord& word : VORN::traceHeaderWords()) {
        const auto shares = [&](const VORN::HeaderWord& other) {
            return word.byte < other.byte + other.bytes && other.byte < word.byte + word.bytes;
        };
        const bool isMapped =
            map.has(word.key) || std::any_of(map.words().begin(), map.words().end(), shares);
        if (word.byte > lastByteOfRevision0 && !isMapped)
            words.push_back(&word);
    }
    return words;
}

std::vector<const char*> keysOf(const std::vector<const VORN::HeaderWord*>& words)
{
    std::vector<const char*> keys;
    keys.reserve(words.size());
    for (const VORN::HeaderWord* word : words)
        keys.push_back(word->key);
    return keys;
}

} // namespace

void CommonLayout::add(const std::string& path, int samples, int interval)
{
    if (interval != 0 && microseconds != 0 && interval != microseconds)
        throw std::runtime_error(path + ": its sample interval is " + milliseconds(interval) +
                                 ", that of " + stating + " " + milliseconds(microseconds) +
                                 "; traces of one input have one interval: read the files in jobs "
                                 "of their own, or state `interval` where the headers are wrong");
    if (microseconds == 0 && interval != 0) {
        microseconds = interval;
        stating = path;
    }
    longest = std::max(longest, samples);
    files.push_back({path, samples, interval});
}

std::vector<std::string> CommonLayout::warnings() const
{
    // A line for the files that differ: how many, and the first of them.
    const auto line = [&](auto differs, const std::string& what, auto ofFile,
                          const std::string& then) {
        const auto first = std::find_if(files.begin(), files.end(), differs);
        const auto count = std::count_if(files.begin(), files.end(), differs);
        return std::to_string(count) + " of " + std::to_string(files.size()) + " files " + what +
               ", the first of them " + first->path + ofFile(*first) + "; " + then;
    };
    const auto isShorter = [&](const File& file) { return file.samples < longest; };
    const auto isSilent = [&](const File& file) { return file.interval != microseconds; };
    std::vector<std::string> lines;
    if (std::any_of(files.begin(), files.end(), isShorter))
        lines.push_back(line(
            isShorter, "have shorter traces than " + std::to_string(longest) + " samples",
            [](const File& file) { return " with " + std::to_string(file.samples); },
            "their traces are filled with zeros"));
    if (std::any_of(files.begin(), files.end(), isSilent))
        lines.push_back(line(
            isSilent, "state no sample interval", [](const File&) { return std::string(); },
            "it is taken to be " + milliseconds(microseconds) + ", as in " + stating));
    return lines;
}

std::string nothingSelected(const std::vector<std::string>& files, int64_t traces,
                            const std::string& selection)
{
    const std::string others = std::to_string(files.size() - 1);
    return files.front() +
           (files.size() == 1 ? ": none of its " : " and " + others + " more: none of their ") +
           std::to_string(traces) + " traces is selected by " + selection;
}

VendorBytes::VendorBytes(int revision, const VORN::WordMap& map)
    : words(laterWords(revision, map)), counts(keysOf(words))
{
}

void VendorBytes::see(const unsigned char* header)
{
    const auto isSet = [](unsigned char byte) { return byte != 0; };
    if (words.empty() ||
        std::none_of(header + lastByteOfRevision0, header + VORN::segyTraceHeaderBytes, isSet))
        return;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const unsigned char* from = header + words[i]->byte - 1;
        if (std::any_of(from, from + words[i]->bytes, isSet))
            counts.count(i);
    }
}

std::string VendorBytes::text() const
{
    constexpr std::size_t mostNamed = 6;
    const std::string named = counts.text(mostNamed);
    if (named.empty())
        return {};
    return "revision 0 leaves bytes 181 to 240 of trace headers to the maker of the file; what "
           "stands there is read as in revision 1: " +
           named + "; where it means something else, map the words with `words`";
}

} // namespace traces
