#include "report/HtmlReport.h"

#include "base/Numbers.h"
#include "base/Quantities.h"
#include "base/Text.h"
#include "draw/PadRenderer.h"
#include "draw/Page.h"
#include "report/HtmlText.h"
#include "report/NotedTable.h"
#include "report/ReportAssets.h"
#include "report/RunTable.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <optional>

namespace host {

namespace {

constexpr std::size_t mostShownOfGroup = 200;         // messages of one module and severity
constexpr std::size_t mostPictureBytes = 48ull << 20; // of all pictures, before base64
constexpr std::size_t longestName = 300;
constexpr std::size_t longestJob = 1 << 20;

// A part of the page, with an entry in the list of contents.
struct Part
{
    std::string id;
    std::string title;
    std::string content;
};

std::string name(const std::string& text)
{
    return html(text, longestName);
}

std::string micros(int64_t value)
{
    return formatMicros(static_cast<double>(value));
}

std::string bytes(int64_t value)
{
    return formatBytes(static_cast<double>(value));
}

std::string soft(const std::string& content)
{
    return content.empty() ? "" : "<span class=\"soft\">" + content + "</span>";
}

std::string paragraph(const std::string& content)
{
    return "<p>" + content + "</p>\n";
}

// ---- tables ----

struct Column
{
    std::string title;
    std::string classes; ///< "n": a number
};

std::string classAttribute(const std::string& classes)
{
    return classes.empty() ? "" : " class=\"" + classes + "\"";
}

// A table that scrolls by itself where the page is narrow. Cells are HTML.
class HtmlTable
{
public:
    HtmlTable(const std::string& label, std::vector<Column> columnsOfTable)
        : columns(std::move(columnsOfTable)),
          out("<div class=\"scroll\" role=\"region\" tabindex=\"0\" aria-label=\"" + label +
              "\"><table>\n<thead><tr>")
    {
        for (const Column& column : columns)
            out +=
                "<th scope=\"col\"" + classAttribute(column.classes) + ">" + column.title + "</th>";
        out += "</tr></thead>\n<tbody>\n";
    }

    void row(const std::vector<std::string>& cells)
    {
        out += "<tr>";
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const std::string tag = i == 0 ? "th" : "td";
            out += "<" + tag + (i == 0 ? " scope=\"row\"" : "") +
                   classAttribute(columns[i].classes) + ">" + cells[i] + "</" + tag + ">";
        }
        out += "</tr>\n";
    }
    void beginFoot() { out += "</tbody>\n<tfoot>\n", foot = true; }

    std::string text() const { return out + (foot ? "</tfoot>" : "</tbody>") + "</table></div>\n"; }

private:
    std::vector<Column> columns;
    std::string out;
    bool foot = false;
};

// ---- messages ----

struct MessageGroup
{
    std::string module;
    int severity = 0; // as severityName counts them, -1 to 4
    std::size_t place = 0;
    std::vector<const RunMessage*> messages;
};

int shownSeverity(int severity)
{
    return std::clamp(severity, -1, static_cast<int>(fatalSeverity));
}

// Groups of the messages whose severity is in [from, to], in the order of the job's modules.
std::vector<MessageGroup> groupsOf(const RunResult& result, int from, int to)
{
    std::map<std::string, std::size_t> places;
    for (const RunModule& module : result.modules)
        places.emplace(module.name, places.size());
    std::map<std::pair<std::size_t, int>, MessageGroup> groups;
    for (const RunMessage& message : result.messages) {
        const int severity = shownSeverity(message.severity);
        if (severity < from || severity > to)
            continue;
        const std::size_t place = places.emplace(message.module, places.size()).first->second;
        MessageGroup& group = groups[{place, -severity}];
        group.module = message.module;
        group.severity = severity;
        group.place = place;
        group.messages.push_back(&message);
    }
    std::vector<MessageGroup> sorted;
    sorted.reserve(groups.size());
    for (auto& [key, group] : groups)
        sorted.push_back(std::move(group));
    return sorted;
}

std::string messageItem(const RunMessage& message)
{
    std::string text = htmlLines(message.text);
    for (const std::string& argument : message.arguments)
        text += "\n" + soft(htmlLines(argument));
    return "<li><time>" + html(message.time) + "</time><div class=\"text\">" + text +
           "</div></li>\n";
}

std::string severityBadge(int severity)
{
    const std::string word = severityName(severity);
    return "<span class=\"badge " + word + "\">" + word + "</span>";
}

std::string groupDetails(const MessageGroup& group, bool open)
{
    std::string out = fmt::format(
        "<details data-module=\"{0}\" data-severity=\"{1}\"{2}><summary>{3} "
        "<strong>{0}</strong> <span class=\"small\">{4}</span></summary>\n<ol "
        "class=\"messages\">\n",
        name(group.module), severityName(group.severity), open ? " open" : "",
        severityBadge(group.severity), counted(int64_t(group.messages.size()), "message"));
    const std::size_t shown = std::min(group.messages.size(), mostShownOfGroup);
    for (std::size_t i = 0; i < shown; ++i)
        out += messageItem(*group.messages[i]);
    if (shown < group.messages.size())
        out += fmt::format("<li class=\"more\">and {} more, which are not shown here</li>\n",
                           group.messages.size() - shown);
    return out + "</ol></details>\n";
}

// Warnings of the check of the job file.
std::string checkDetails(const RunResult& result)
{
    if (result.checkWarnings.empty())
        return "";
    std::string out = "<details data-module=\"\" data-severity=\"warning\" open><summary>" +
                      severityBadge(warningSeverity) +
                      " <strong>the job file</strong> <span class=\"small\">" +
                      counted(int64_t(result.checkWarnings.size()), "message") +
                      "</span></summary>\n<ol class=\"messages\">\n";
    for (const std::string& warning : result.checkWarnings)
        out += "<li><div class=\"text\">" + html(warning) + "</div></li>\n";
    return out + "</ol></details>\n";
}

Part warningsPart(const RunResult& result)
{
    std::vector<MessageGroup> groups = groupsOf(result, warningSeverity, fatalSeverity);
    std::stable_sort(groups.begin(), groups.end(),
                     [](const auto& a, const auto& b) { return a.severity > b.severity; });
    std::string content;
    for (const MessageGroup& group : groups)
        content += groupDetails(group, true);
    content += checkDetails(result);
    if (content.empty())
        content = "<p><span class=\"badge good\">none</span> No module has reported a warning or "
                  "an error.</p>\n";
    return {"warnings", "Warnings and errors", content};
}

Part messagesPart(const RunResult& result)
{
    std::string content;
    for (const MessageGroup& group : groupsOf(result, -1, informationSeverity))
        content += groupDetails(group, false);
    if (content.empty())
        content = paragraph("There are no further messages.");
    if (result.messagesLeftOut > 0)
        content += paragraph(
            fmt::format("{} of modules that sent thousands of one severity are not kept here; "
                        "<code>--log FILE</code> writes all.",
                        counted(result.messagesLeftOut, "further message")));
    return {"messages", "Messages", content};
}

// ---- tables that modules noted ----

// The report's script lets people sort and copy it; without the script it is a plain table.
std::string notedTableHtml(const RunModule& module, const std::string& key, const NotedTable& noted)
{
    constexpr std::size_t longestCell = 200;
    const auto note = module.metadata.find(key + ".note");
    const std::string text = note == module.metadata.end() ? "" : note->second;
    const std::size_t line = std::min(text.find('\n'), text.size());
    std::string about = "noted by " + name(module.name);
    if (line + 1 < text.size())
        about += "; " + html(text.substr(line + 1));
    if (noted.rowsLeftOut > 0)
        about += fmt::format("; {} more, which are not shown here",
                             counted(int64_t(noted.rowsLeftOut), "row"));
    std::vector<Column> columns;
    columns.reserve(noted.columns.size());
    for (std::size_t i = 0; i < noted.columns.size(); ++i)
        columns.push_back(
            {html(noted.columns[i], longestCell), noted.isNumeric[i] != 0 ? "n" : ""});
    const std::string title = line == 0 ? name(key) : name(text.substr(0, line));
    HtmlTable table(title, columns);
    for (const std::vector<std::string>& row : noted.rows) {
        std::vector<std::string> cells;
        cells.reserve(row.size());
        for (const std::string& cell : row)
            cells.push_back(html(cell, longestCell));
        table.row(cells);
    }
    return fmt::format("<div class=\"noted\" id=\"table-{}-{}\"><div class=\"caption\"><div><h3>{}"
                       "</h3><p class=\"soft small\">{}</p></div><button type=\"button\" "
                       "hidden>Copy as CSV</button></div>\n{}</div>\n",
                       module.order, name(key), title, about, table.text());
}

// All tables of the module of this name.
std::string notedTables(const RunResult& result, const std::string& moduleName)
{
    std::string content;
    for (const RunModule& module : result.modules) {
        if (module.name != moduleName)
            continue;
        for (const auto& [key, value] : module.metadata) {
            if (!isTableKey(key))
                continue;
            if (const std::optional<NotedTable> noted = notedTable(value))
                content += notedTableHtml(module, key, *noted);
        }
    }
    return content;
}

// Those of modules that have drawn nothing: the others stand below the pictures.
Part tablesPart(const RunResult& result, const std::vector<Pad>& pads)
{
    std::string content;
    for (const RunModule& module : result.modules) {
        const bool hasPicture = std::any_of(
            pads.begin(), pads.end(), [&](const Pad& pad) { return pad.module == module.name; });
        if (!hasPicture)
            content += notedTables(result, module.name);
    }
    return {"tables", "Tables", content};
}

// ---- pictures ----

std::string extent(const Pad& pad)
{
    if (pad.traces.empty())
        return "";
    return fmt::format("{} of {}", counted(int64_t(pad.traces.size()), "trace"),
                       counted(int64_t(pad.longest()), "sample"));
}

// What the picture shows, as its text alternative.
std::string description(const Pad& pad)
{
    std::string text = pad.title + ": ";
    if (!pad.traces.empty())
        text += (pad.directive("mode") == "image" ? "image, " : "section, ") + extent(pad);
    if (!pad.traces.empty() && !pad.commands.empty())
        text += ", and ";
    if (!pad.commands.empty())
        text +=
            "graph of " + pad.directive("y", "values") + " against " + pad.directive("x", "values");
    if (pad.traces.empty() && pad.commands.empty())
        text += "nothing drawn";
    const std::string note = pad.directive("note");
    return text + (note.empty() ? "" : "; " + note);
}

std::string pictureImage(const Pad& pad, const PadPicture& picture)
{
    return fmt::format("<img src=\"{}\" alt=\"{}\" data-title=\"{}\" width=\"{}\" height=\"{}\">\n",
                       dataUri(picture.mediaType, picture.bytes),
                       html(description(pad), longestName), name(pad.title), picture.width,
                       picture.height);
}

std::string figure(const Pad& pad, std::size_t number, const std::string& image)
{
    const std::string what = extent(pad);
    return fmt::format("<figure id=\"picture-{}\"><figcaption><div><h3>{}</h3><p class=\"soft "
                       "small\">{}{}</p></div><button type=\"button\" hidden>Enlarge</button>"
                       "</figcaption>\n{}</figure>\n",
                       number, name(pad.title.empty() ? "untitled" : pad.title),
                       "drawn by " + name(pad.module), what.empty() ? "" : ", " + what, image);
}

Part picturesPart(const RunResult& result, const std::vector<Pad>& pads)
{
    std::string content;
    std::size_t room = mostPictureBytes;
    std::size_t leftOut = 0;
    const auto tablesAfter = [&](std::size_t i) {
        const bool isLast =
            std::none_of(pads.begin() + static_cast<std::ptrdiff_t>(i) + 1, pads.end(),
                         [&](const Pad& pad) { return pad.module == pads[i].module; });
        return isLast ? notedTables(result, pads[i].module) : "";
    };
    for (std::size_t i = 0; i < pads.size(); ++i) {
        if (room == 0) {
            ++leftOut;
            content += tablesAfter(i);
            continue;
        }
        std::string image;
        try {
            const PadPicture picture = pictureOf(pads[i]);
            room -= std::min(room, picture.bytes.size());
            image = pictureImage(pads[i], picture);
        } catch (const DrawingError& error) {
            image = paragraph(html(error.what()));
        }
        content += figure(pads[i], i + 1, image) + tablesAfter(i);
    }
    if (leftOut > 0)
        content += paragraph(fmt::format("{} would make this page too large; <code>--pictures "
                                         "DIR</code> writes all.",
                                         counted(int64_t(leftOut), "further picture")));
    return {"pictures", "Pictures", content};
}

// ---- job graph ----

// Whether readers of the module use several of its ports, so that inputs must name the port.
bool hasSeveralPorts(const RunResult& result, const std::string& module)
{
    for (const RunModule& consumer : result.modules) {
        for (const RunInput& input : consumer.inputs) {
            if (input.module == module && input.port > 1)
                return true;
        }
    }
    return false;
}

std::string inputNames(const RunResult& result, const RunModule& module)
{
    std::vector<std::string> names;
    for (const RunInput& input : module.inputs) {
        const std::string port =
            input.portName.empty() ? std::to_string(input.port) : input.portName;
        names.push_back(input.module + (hasSeveralPorts(result, input.module) ? "." + port : ""));
    }
    return joined(names, ", ");
}

std::string graphAsText(const RunResult& result)
{
    std::vector<const RunModule*> modules;
    for (const RunModule& module : result.modules)
        modules.push_back(&module);
    std::stable_sort(modules.begin(), modules.end(),
                     [](const auto* a, const auto* b) { return a->order < b->order; });
    std::string out = "<ol>\n";
    for (const RunModule* module : modules)
        out += fmt::format(
            "<li><strong>{}</strong> ({}){}</li>\n", name(module->name), name(module->module),
            module->inputs.empty() ? "" : " takes from " + name(inputNames(result, *module)));
    return out + "</ol>\n";
}

// The picture as Graphviz drew it, with the colours of the page.
std::string styledGraph(const std::string& svg)
{
    const std::size_t tag = svg.find("<svg");
    const std::size_t end = tag == std::string::npos ? tag : svg.find('>', tag);
    if (end == std::string::npos)
        return svg;
    return svg.substr(0, end + 1) + "<style>" + std::string(graphStyle) + "</style>" +
           svg.substr(end + 1);
}

// An image of its own, whatever is in the picture: browsers run no scripts of images and load
// nothing that they refer to.
std::string graphImage(const RunResult& result)
{
    return fmt::format(
        "<img src=\"{}\" alt=\"Job graph: {}; the inputs of each are in the table of "
        "modules\">\n",
        dataUri("image/svg+xml", styledGraph(result.graphSvg)),
        counted(int64_t(result.modules.size()), "module"));
}

Part graphPart(const RunResult& result)
{
    std::string content = result.graphSvg.empty() ? graphAsText(result) : graphImage(result);
    if (result.graphSvg.empty())
        content += "<p class=\"soft small\">The modules in the order in which they run. With "
                   "Graphviz installed, this is a picture.</p>\n";
    return {"flow", "Job graph", "<div class=\"flow\">" + content + "</div>\n"};
}

// ---- modules ----

std::string shareBar(double share)
{
    const double percent = std::clamp(share, 0.0, 1.0) * 100;
    return fmt::format(
        "<svg class=\"bar\" aria-hidden=\"true\"><rect class=\"full\" width=\"100%\" "
        "height=\"100%\" rx=\"2\"/><rect class=\"part\" width=\"{:.1f}%\" "
        "height=\"100%\" rx=\"2\"/></svg><span class=\"percent\">{:.1f} %</span>",
        percent, share * 100);
}

std::string moduleKind(const RunModule& module)
{
    const std::string version = module.version.empty() ? "" : " " + module.version;
    return (module.module == module.name ? "" : module.module) + version;
}

std::vector<std::string> moduleRow(const RunResult& result, const RunModule& module)
{
    const RunStatistics& one = module.statistics;
    const bool anyTrace = one.tracesIn + one.tracesOut > 0;
    return {name(module.name) + soft(name(moduleKind(module))),
            module.inputs.empty() ? "" : name(inputNames(result, module)),
            module.inputs.empty() ? "" : std::to_string(one.tracesIn),
            std::to_string(one.tracesOut),
            micros(one.totalMicros()),
            anyTrace ? formatMicros(one.microsPerTrace()) : "",
            shareBar(one.share),
            bytes(one.peakBytes)};
}

Part modulesPart(const RunResult& result)
{
    HtmlTable table("Modules", {{"module", ""},
                                {"takes from", ""},
                                {"traces in", "n"},
                                {"traces out", "n"},
                                {"time", "n"},
                                {"per trace", "n"},
                                {"share of the time", "n"},
                                {"memory", "n"}});
    int64_t ofModules = 0;
    for (const std::vector<RunModule>* rows : {&result.modules, &result.tees}) {
        for (const RunModule& module : *rows) {
            ofModules += module.statistics.totalMicros();
            table.row(moduleRow(result, module));
        }
    }
    const int64_t rest = std::max<int64_t>(0, result.busyMicros - ofModules);
    const double whole = static_cast<double>(std::max<int64_t>(1, result.busyMicros));
    table.beginFoot();
    table.row({"kernel and host", "", "", "", micros(rest), "",
               shareBar(static_cast<double>(rest) / whole), ""});
    table.row(
        {"whole job", "", "", "", micros(result.wallMicros), "", "", bytes(result.peakJobBytes)});
    return {"modules", "Modules",
            table.text() + "<p class=\"soft small\">Time is wall clock inside the module, in all "
                           "phases; per trace it is that of processing alone. Memory is the most "
                           "that a module held at a time, its traces included.</p>\n"};
}

// ---- what modules noted ----

// The cards of the file that the module has read, to be opened.
std::string textHeader(const RunModule& module)
{
    constexpr std::size_t mostOfIt = 40000; // some extended headers have thousands of cards
    if (module.textHeader.empty())
        return "";
    return "<details class=\"cards\"><summary>Text header of the file</summary>\n<pre>" +
           htmlLines(module.textHeader, mostOfIt) + "</pre></details>\n";
}

Part metadataPart(const RunResult& result)
{
    std::string content;
    for (const RunModule& module : result.modules) {
        if (module.metadata.empty())
            continue;
        HtmlTable table("Metadata of " + name(module.name), {{"key", ""}, {"value", "lines"}});
        for (const auto& [key, value] : module.metadata) {
            const auto noted = isTableKey(key) ? notedTable(value) : std::nullopt;
            table.row({"<code>" + name(key) + "</code>",
                       noted ? fmt::format("<a href=\"#table-{}-{}\">{}, shown as a table</a>",
                                           module.order, name(key),
                                           counted(int64_t(noted->rows.size()), "row"))
                             : htmlLines(value)});
        }
        content += "<h3>" + name(module.name) + "</h3>\n" + textHeader(module) + table.text();
    }
    if (content.empty())
        content = paragraph("No module noted anything.");
    return {"metadata", "What modules noted", content};
}

// ---- what was read ----

std::string sourceLine(const SourceData& source)
{
    std::string line = counted(source.traces, "trace");
    if (source.samples <= 0)
        return line;
    line += " of " + counted(source.samples, "sample");
    if (source.intervalMicros > 0)
        line += fmt::format(" at {} ms, {} s long", formatNumber(source.intervalMicros / 1e3),
                            formatNumber(source.intervalMicros / 1e6 * (source.samples - 1)));
    return line;
}

std::string wordTable(const SourceData& source)
{
    HtmlTable table("Header words of " + name(source.module), {{"word", ""},
                                                               {"meaning", "text"},
                                                               {"minimum", "n"},
                                                               {"maximum", "n"},
                                                               {"first", "n"},
                                                               {"last", "n"},
                                                               {"changes", "n"}});
    for (const HeaderRange& word : source.words)
        table.row({"<code>" + name(word.word) + "</code>", name(word.description),
                   std::to_string(word.minimum), std::to_string(word.maximum),
                   std::to_string(word.first), std::to_string(word.last),
                   std::to_string(word.changes)});
    return table.text();
}

Part dataPart(const RunResult& result)
{
    std::string content;
    for (const SourceData& source : result.sources) {
        content += "<h3>" + name(source.module) + "</h3>\n" + paragraph(html(sourceLine(source)));
        content += source.words.empty()
                       ? paragraph("No header word has a value other than 0.")
                       : wordTable(source) + "<p class=\"soft small\">Words that are 0 in all "
                                             "traces are left out.</p>\n";
    }
    if (content.empty())
        content = paragraph("No trace was read.");
    return {"data", "What was read", content};
}

// ---- files ----

std::string usedBy(const RunFile& file)
{
    return soft(name(file.module + "." + file.parameter));
}

std::string checksum(const RunFile& file)
{
    return file.sha256.empty() ? "" : "<code>" + html(file.sha256) + "</code>";
}

std::string inputChecksum(const RunFile& file)
{
    if (!file.sha256.empty())
        return checksum(file);
    if (file.bytesRead >= 0 && file.bytesRead < file.bytes)
        return html("read in part: " + bytes(file.bytesRead) + " of " + bytes(file.bytes));
    return "no checksum: could not be read, or changed meanwhile";
}

std::string inputTable(const std::vector<RunFile>& files)
{
    HtmlTable table(
        "Input files",
        {{"input", "path"}, {"size", "n"}, {"last change", "when"}, {"SHA-256", "sum"}});
    for (const RunFile& file : files)
        table.row({name(file.path) + usedBy(file), file.exists ? bytes(file.bytes) : "missing",
                   html(file.modified), inputChecksum(file)});
    return table.text();
}

std::string outputState(const RunFile& file)
{
    if (file.written && file.exists)
        return "written";
    return std::string("<span class=\"badge error\">not written</span>") +
           (file.exists ? soft("the existing file of that name is older") : "");
}

std::string outputTable(const std::vector<RunFile>& files)
{
    HtmlTable table("Output files",
                    {{"output", "path"}, {"size", "n"}, {"state", ""}, {"SHA-256", "sum"}});
    for (const RunFile& file : files)
        table.row({name(file.path) + usedBy(file), file.exists ? bytes(file.bytes) : "",
                   outputState(file), checksum(file)});
    return table.text();
}

Part filesPart(const RunResult& result)
{
    std::string content;
    if (!result.inputs.empty())
        content += inputTable(result.inputs);
    if (!result.outputs.empty())
        content += outputTable(result.outputs);
    if (content.empty())
        content = paragraph("The job names no file.");
    return {"files", "Files", content};
}

// ---- job file, versions ----

Part jobPart(const RunResult& result)
{
    return {"job", "Job file",
            "<p class=\"soft small\">As it was run: with the values of the command line, the "
            "modules' defaults and absolute paths.</p>\n<pre>" +
                htmlLines(result.resolvedJob, longestJob) + "</pre>\n"};
}

std::string moduleVersions(const RunResult& result)
{
    std::map<std::string, std::string> versions;
    for (const RunModule& module : result.modules)
        versions.emplace(module.module, module.version);
    std::vector<std::string> list;
    list.reserve(versions.size());
    for (const auto& [module, version] : versions)
        list.push_back(module + (version.empty() ? "" : " " + version));
    return joined(list, ", ");
}

Part machinePart(const RunResult& result)
{
    const std::vector<std::pair<std::string, std::string>> facts = {
        {"vorn", result.vornVersion},
        {"modules", moduleVersions(result)},
        {"Qt", result.qtVersion},
        {"compiler", result.compiler},
        {"machine", result.host},
        {"module tree", result.vornHome},
        {"project", result.projectDirectory},
        {"scratch directory", result.scratchDirectory},
        {"traces in memory", fmt::format("at most {}", result.scratchTraces)},
        {"schema", result.schema},
    };
    std::string content = "<dl class=\"pairs\">\n";
    for (const auto& [key, value] : facts) {
        if (!value.empty())
            content += "<dt>" + key + "</dt><dd>" + html(value) + "</dd>\n";
    }
    return {"machine", "Versions and machine", content + "</dl>\n"};
}

// ---- the page ----

int countFrom(const RunResult& result, int severity)
{
    return static_cast<int>(
        std::count_if(result.messages.begin(), result.messages.end(),
                      [=](const RunMessage& one) { return one.severity >= severity; }));
}

int warnings(const RunResult& result)
{
    return result.countOf(warningSeverity) + static_cast<int>(result.checkWarnings.size());
}

std::string verdict(const RunResult& result)
{
    if (result.end == RunEnd::notStarted)
        return "<span class=\"badge error\">not started</span>";
    if (result.end == RunEnd::stalled)
        return "<span class=\"badge error\">deadlocked</span>";
    if (result.failed)
        return "<span class=\"badge error\">ended with errors</span>";
    if (warnings(result) > 0)
        return "<span class=\"badge warning\">done, with warnings</span>";
    return "<span class=\"badge good\">done</span>";
}

std::string figures(const RunResult& result)
{
    const double seconds =
        static_cast<double>(std::max<int64_t>(1, result.processWallMicros)) / 1e6;
    const bool anyTrace = result.sourceTraces > 0 && result.processWallMicros > 0;
    const std::vector<std::pair<std::string, std::string>> facts = {
        {"errors", std::to_string(countFrom(result, errorSeverity))},
        {"warnings", std::to_string(warnings(result))},
        {"traces read", std::to_string(result.sourceTraces)},
        {"run time", micros(result.wallMicros)},
        {"traces a second",
         anyTrace ? formatRate(static_cast<double>(result.sourceTraces) / seconds) : "–"},
        {"MB a second",
         anyTrace ? formatRate(static_cast<double>(result.sourceBytes) / 1e6 / seconds) : "–"},
        {"most memory", bytes(result.peakJobBytes)},
    };
    std::string out = "<dl class=\"figures\">\n";
    for (const auto& [label, value] : facts)
        out += "<div><dt>" + label + "</dt><dd>" + value + "</dd></div>\n";
    return out + "</dl>\n";
}

std::string header(const RunResult& result)
{
    return "<header>\n<p class=\"overline\">vorn report</p>\n<div class=\"headline\"><h1>" +
           name(result.jobName) + "</h1>" + verdict(result) + "</div>\n<p class=\"subline\">" +
           html(result.started) + ", " + micros(result.wallMicros) + ", on " + name(result.host) +
           "<br>" + html(result.jobFile) + "</p>\n" + figures(result) + "</header>\n";
}

std::string contents(const std::vector<Part>& parts)
{
    std::string out = "<nav aria-label=\"Contents\"><ul>\n";
    for (const Part& part : parts)
        out += "<li><a href=\"#" + part.id + "\">" + part.title + "</a></li>\n";
    return out + "</ul></nav>\n";
}

std::string head(const std::string& title)
{
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src "
           "data:; style-src " +
           policyHash(reportStyle) + "; script-src " + policyHash(reportScript) +
           "; base-uri 'none'; form-action 'none'\">\n"
           "<meta name=\"referrer\" content=\"no-referrer\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<link rel=\"icon\" href=\"data:,\">\n<title>" +
           title + " – vorn report</title>\n<style>" + std::string(reportStyle) +
           "</style>\n</head>\n";
}

constexpr char viewer[] =
    "<dialog id=\"viewer\" aria-label=\"Enlarged picture\"><div class=\"tools\"><h2></h2><output>"
    "</output><button type=\"button\" data-action=\"out\" aria-label=\"Smaller\">−</button>"
    "<button type=\"button\" data-action=\"in\" aria-label=\"Larger\">+</button>"
    "<button type=\"button\" data-action=\"fit\">Fit</button>"
    "<button type=\"button\" data-action=\"close\">Close</button></div>"
    "<div class=\"stage\" tabindex=\"0\" aria-label=\"Picture; plus and minus zoom, arrows "
    "move\"></div></dialog>\n";

} // namespace

std::string htmlReport(const RunResult& result, const std::vector<Pad>& pads)
{
    std::vector<Part> parts = {warningsPart(result)};
    if (!pads.empty())
        parts.push_back(picturesPart(result, pads));
    if (Part tables = tablesPart(result, pads); !tables.content.empty())
        parts.push_back(std::move(tables));
    for (auto* make : {graphPart, modulesPart, dataPart, metadataPart, messagesPart, filesPart,
                       jobPart, machinePart})
        parts.push_back(make(result));

    std::string page =
        head(name(result.jobName)) + "<body>\n" + header(result) + contents(parts) + "<main>\n";
    for (const Part& part : parts)
        page += "<section id=\"" + part.id + "\" aria-labelledby=\"" + part.id +
                "-title\">\n<h2 id=\"" + part.id + "-title\">" + part.title + "</h2>\n" +
                part.content + "</section>\n";
    page +=
        "</main>\n<footer>This page holds everything that it shows and loads nothing.</footer>\n";
    if (!pads.empty())
        page += viewer;
    return page + "<script>" + std::string(reportScript) + "</script>\n</body>\n</html>\n";
}

} // namespace host
