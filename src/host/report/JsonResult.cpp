#include "report/JsonResult.h"

#include "base/Sha256.h"

#include <nlohmann/json.hpp>

namespace host {

namespace {

using Json = nlohmann::ordered_json;

template <typename Item, typename Function>
Json list(const std::vector<Item>& items, Function function)
{
    Json array = Json::array();
    for (const Item& item : items)
        array.push_back(function(item));
    return array;
}

const char* endName(RunEnd end)
{
    switch (end) {
    case RunEnd::stalled:
        return "stalled";
    case RunEnd::notStarted:
        return "not_started";
    case RunEnd::done:
        break;
    }
    return "done";
}

Json jobJson(const RunResult& result)
{
    return {{"name", result.jobName},
            {"file", result.jobFile},
            {"project", result.projectDirectory},
            {"scratch_directory", result.scratchDirectory},
            {"scratch_traces", result.scratchTraces},
            {"time_limit_seconds",
             result.timeLimitSeconds > 0 ? Json(result.timeLimitSeconds) : Json(nullptr)},
            {"schema", result.schema},
            {"warnings", result.checkWarnings},
            {"resolved", result.resolvedJob},
            {"graph", result.graphDot}};
}

Json countsJson(const RunResult& result)
{
    Json counts = Json::object();
    for (int severity = detailSeverity; severity <= fatalSeverity; ++severity)
        counts[severityName(severity)] = result.countOf(severity);
    counts["left_out"] = result.messagesLeftOut;
    return counts;
}

Json resultJson(const RunResult& result)
{
    return {{"end", endName(result.end)},
            {"failed", result.failed},
            {"traces", result.sourceTraces},
            {"bytes", result.sourceBytes},
            {"messages", countsJson(result)}};
}

Json inputJson(const RunInput& input)
{
    return {{"module", input.module}, {"port", input.port}, {"port_name", input.portName}};
}

Json parameterJson(const RunParameter& parameter)
{
    return {{"name", parameter.name},
            {"type", parameter.type},
            {"value", parameter.value},
            {"unit", parameter.unit},
            {"given", parameter.given}};
}

Json metadataJson(const std::map<std::string, std::string>& metadata)
{
    Json json = Json::object();
    for (const auto& [key, value] : metadata)
        json[key] = value;
    return json;
}

Json moduleJson(const RunModule& module)
{
    const RunStatistics& one = module.statistics;
    return {{"name", module.name},
            {"module", module.module},
            {"version", module.version},
            {"order", module.order},
            {"inputs", list(module.inputs, inputJson)},
            {"parameters", list(module.parameters, parameterJson)},
            {"traces_in", one.tracesIn},
            {"traces_out", one.tracesOut},
            {"traces_announced", one.tracesAnnounced},
            {"metadata", metadataJson(module.metadata)},
            {"measured",
             {{"preprocess_microseconds", one.preprocessMicros},
              {"process_microseconds", one.processMicros},
              {"postprocess_microseconds", one.postprocessMicros},
              {"microseconds_per_trace", one.microsPerTrace()},
              {"share", one.share},
              {"peak_bytes", one.peakBytes},
              {"bytes_left", one.bytesLeft}}}};
}

Json wordJson(const HeaderRange& word)
{
    return {{"word", word.word},       {"description", word.description},
            {"minimum", word.minimum}, {"maximum", word.maximum},
            {"first", word.first},     {"last", word.last},
            {"changes", word.changes}};
}

Json sourceJson(const SourceData& source)
{
    return {{"module", source.module},
            {"traces", source.traces},
            {"samples", source.samples},
            {"interval_microseconds", source.intervalMicros},
            {"words", list(source.words, wordJson)}};
}

void addNumber(Sha256& hash, double value)
{
    hash.add(&value, sizeof value);
}

// Of everything that was drawn, so that two pictures can be compared without looking at them.
std::string drawnSha256(const Pad& pad)
{
    Sha256 hash;
    addNumber(hash, pad.sampleInterval);
    addNumber(hash, pad.delay);
    for (const PadTrace& trace : pad.traces) {
        addNumber(hash, trace.label);
        for (const auto& [directive, value] :
             {std::pair("xattr2", trace.secondLabel), std::pair("gather", trace.gather),
              std::pair("picks", trace.pick)})
        {
            if (!pad.directive(directive).empty())
                addNumber(hash, value);
        }
        hash.add(trace.samples.data(), trace.samples.size() * sizeof(float));
    }
    if (pad.isReduced())
        hash.add(&pad.fingerprint, sizeof pad.fingerprint);
    for (const PadCommand& one : pad.commands) {
        const plotCommandStruct& command = one.command;
        for (const double value :
             {double(command.cmdType), double(command.xpage), double(command.ypage),
              double(command.ipen), double(command.height), double(command.fpn),
              double(command.angle), double(command.ndec), double(command.inteq),
              double(command.inchar), double(command.factor)})
            addNumber(hash, value);
        hash.add(one.text);
    }
    return hash.hex();
}

Json padJson(const Pad& pad)
{
    Json directives = Json::object();
    for (const auto& [key, value] : pad.directives)
        directives[key] = value;
    return {{"module", pad.module},
            {"title", pad.title},
            {"type", pad.type},
            {"directives", directives},
            {"traces", pad.traces.size()},
            {"commands", pad.commands.size()},
            {"sha256", drawnSha256(pad)}};
}

Json messageJson(const RunMessage& message)
{
    return {{"module", message.module},
            {"place", message.place},
            {"severity", message.severity},
            {"severity_name", severityName(message.severity)},
            {"text", message.text},
            {"arguments", message.arguments},
            {"measured", {{"seconds", message.seconds}, {"time", message.time}}}};
}

Json fileJson(const RunFile& file)
{
    return {{"path", file.path},
            {"module", file.module},
            {"parameter", file.parameter},
            {"exists", file.exists},
            {"bytes", file.bytes},
            {"sha256", file.sha256},
            {"measured", {{"modified", file.modified}}}};
}

// Null: unknown.
Json readFileJson(const RunFile& file)
{
    Json json = fileJson(file);
    json["bytes_read"] = file.bytesRead >= 0 ? Json(file.bytesRead) : Json();
    return json;
}

Json outputJson(const RunFile& file)
{
    Json json = fileJson(file);
    json["written"] = file.written;
    return json;
}

Json findingJson(const RunFinding& finding)
{
    return {{"module", finding.module},     {"kind", finding.kind}, {"place", finding.place},
            {"function", finding.function}, {"text", finding.text}, {"count", finding.count}};
}

Json environmentJson(const RunResult& result)
{
    return {{"vorn", result.vornVersion},
            {"qt", result.qtVersion},
            {"compiler", result.compiler},
            {"machine", result.host},
            {"module_tree", result.vornHome}};
}

double perSecond(int64_t amount, int64_t micros)
{
    return micros > 0 ? static_cast<double>(amount) / (static_cast<double>(micros) / 1e6) : 0;
}

Json measuredJson(const RunResult& result)
{
    return {{"started", result.started},
            {"microseconds", result.wallMicros},
            {"process_microseconds", result.processWallMicros},
            {"traces_per_second", perSecond(result.sourceTraces, result.processWallMicros)},
            {"bytes_per_second", perSecond(result.sourceBytes, result.processWallMicros)},
            {"peak_bytes", result.peakJobBytes}};
}

} // namespace

std::string jsonResult(const RunResult& result, const std::vector<Pad>& pads)
{
    Json json = {{"format", "vorn-run"},
                 {"format_version", 1},
                 {"job", jobJson(result)},
                 {"result", resultJson(result)},
                 {"modules", list(result.modules, moduleJson)},
                 {"sources", list(result.sources, sourceJson)},
                 {"pads", list(pads, padJson)},
                 {"inputs", list(result.inputs, readFileJson)},
                 {"outputs", list(result.outputs, outputJson)},
                 {"messages", list(result.messages, messageJson)},
                 {"environment", environmentJson(result)},
                 {"measured", measuredJson(result)}};
    if (result.isChecked)
        json["findings"] = list(result.findings, findingJson);
    if (!result.tees.empty())
        json["tees"] = list(result.tees, moduleJson);
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace host
