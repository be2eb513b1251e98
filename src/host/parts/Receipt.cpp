#include "parts/Receipt.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "parts/OwnFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace host {

namespace {

using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

constexpr const char* formatName = "vorn-part";
constexpr int formatVersion = 1;

std::string inDirectory(const std::string& directory, int part, const std::string& suffix)
{
    return (fs::path(directory) / ("part-" + std::to_string(part) + suffix)).string();
}

template <typename Item, typename Function>
Json listOf(const std::vector<Item>& items, Function function)
{
    Json array = Json::array();
    for (const Item& item : items)
        array.push_back(function(item));
    return array;
}

template <typename Item>
std::vector<Item> read(const Json& array, Item (*function)(const Json&))
{
    std::vector<Item> items;
    items.reserve(array.size());
    for (const Json& one : array)
        items.push_back(function(one));
    return items;
}

Json messageJson(const PartMessage& one)
{
    const RunMessage& message = one.message;
    return {{"seconds", message.seconds},     {"time", message.time},
            {"module", message.module},       {"place", message.place},
            {"severity", message.severity},   {"text", message.text},
            {"arguments", message.arguments}, {"once", one.onceKey}};
}

PartMessage readMessage(const Json& json)
{
    PartMessage one;
    one.message.seconds = json.at("seconds");
    one.message.time = json.at("time");
    one.message.module = json.at("module");
    one.message.place = json.at("place");
    one.message.severity = json.at("severity");
    one.message.text = json.at("text");
    one.message.arguments = json.at("arguments").get<std::vector<std::string>>();
    one.onceKey = json.at("once");
    return one;
}

Json moduleJson(const PartModule& module)
{
    return {{"name", module.name},
            {"traces_in", module.tracesIn},
            {"traces_out", module.tracesOut},
            {"process_microseconds", module.processMicros},
            {"peak_bytes", module.peakBytes},
            {"state_bytes", module.stateBytes}};
}

PartModule readModule(const Json& json)
{
    return {json.at("name"),       json.at("traces_in"),
            json.at("traces_out"), json.at("process_microseconds"),
            json.at("peak_bytes"), json.at("state_bytes")};
}

Json wordJson(const HeaderRange& word)
{
    return {{"word", word.word},       {"description", word.description},
            {"minimum", word.minimum}, {"maximum", word.maximum},
            {"first", word.first},     {"last", word.last},
            {"changes", word.changes}};
}

HeaderRange readWord(const Json& json)
{
    return {json.at("word"),  json.at("description"), json.at("minimum"), json.at("maximum"),
            json.at("first"), json.at("last"),        json.at("changes")};
}

Json sourceJson(const SourceData& source)
{
    return {{"module", source.module},
            {"traces", source.traces},
            {"announced", source.announced},
            {"samples", source.samples},
            {"interval_microseconds", source.intervalMicros},
            {"words", listOf(source.words, wordJson)}};
}

SourceData readSource(const Json& json)
{
    return {json.at("module"),
            json.at("traces"),
            json.at("announced"),
            json.at("samples"),
            json.at("interval_microseconds"),
            read(json.at("words"), readWord)};
}

Json readingJson(const PartReading& reading)
{
    return {{"module", reading.module}, {"path", reading.path}, {"ranges", reading.ranges}};
}

PartReading readReading(const Json& json)
{
    return {json.at("module"), json.at("path"),
            json.at("ranges").get<std::vector<std::pair<int64_t, int64_t>>>()};
}

} // namespace

std::string receiptPath(const std::string& directory, int part)
{
    return inDirectory(directory, part, ".json");
}

std::string failurePath(const std::string& directory, int part)
{
    return inDirectory(directory, part, ".failed.json");
}

std::string statePath(const std::string& directory, int part, const std::string& module)
{
    // A name may have characters that a file name must not have.
    std::string name;
    for (const char c : module) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-')
            name += c;
        else
            name += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return (fs::path(inDirectory(directory, part, ".state")) / name).string();
}

std::string spoolPath(const std::string& directory, int part, std::size_t spool)
{
    return inDirectory(directory, part, ".spool-" + std::to_string(spool + 1));
}

std::string livePath(const std::string& directory, int part)
{
    return inDirectory(directory, part, ".live");
}

std::string logPath(const std::string& directory, int part)
{
    return inDirectory(directory, part, ".log");
}

void writeReceipt(const std::string& path, const Receipt& receipt)
{
    const Json json = {{"format", formatName},
                       {"format_version", formatVersion},
                       {"plan_sha256", receipt.planSha256},
                       {"part", receipt.part},
                       {"failed", receipt.failed},
                       {"host", receipt.host},
                       {"started", receipt.started},
                       {"microseconds", receipt.wallMicros},
                       {"process_microseconds", receipt.processWallMicros},
                       {"peak_bytes", receipt.peakJobBytes},
                       {"messages", listOf(receipt.messages, messageJson)},
                       {"messages_left_out", receipt.messagesLeftOut},
                       {"modules", listOf(receipt.modules, moduleJson)},
                       {"sources", listOf(receipt.sources, sourceJson)},
                       {"spooled", receipt.spooled},
                       {"readings", listOf(receipt.readings, readingJson)},
                       {"whole", true}};
    const std::string text = json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
    OwnFile file(path);
    if (!file.write(text))
        throw CommandError("the receipt " + quote(path) +
                               " cannot be written: " + std::strerror(errno),
                           exitTryAgain);
    file.publish();
}

Receipt readReceipt(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw CommandError("the receipt " + quote(path) + " cannot be read; run its part again");
    std::ostringstream text;
    text << file.rdbuf();
    try {
        const Json json = Json::parse(text.str());
        if (json.at("format") != formatName || json.at("format_version") != formatVersion)
            throw CommandError("the receipt " + quote(path) +
                               " is of another version of vorn; run its part again");
        Receipt receipt;
        receipt.planSha256 = json.at("plan_sha256");
        receipt.part = json.at("part");
        receipt.failed = json.at("failed");
        receipt.host = json.at("host");
        receipt.started = json.at("started");
        receipt.wallMicros = json.at("microseconds");
        receipt.processWallMicros = json.at("process_microseconds");
        receipt.peakJobBytes = json.at("peak_bytes");
        receipt.messages = read(json.at("messages"), readMessage);
        receipt.messagesLeftOut = json.at("messages_left_out");
        receipt.modules = read(json.at("modules"), readModule);
        receipt.sources = read(json.at("sources"), readSource);
        receipt.spooled = json.at("spooled").get<std::vector<int64_t>>();
        receipt.readings = read(json.at("readings"), readReading);
        return receipt;
    } catch (const Json::exception&) {
        throw CommandError("the receipt " + quote(path) +
                           " is damaged or cut; remove it and run its part again");
    }
}

} // namespace host
