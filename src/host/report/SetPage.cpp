#include "report/SetPage.h"

#include "base/Escaping.h"
#include "base/Quantities.h"
#include "base/Text.h"
#include "report/HtmlText.h"
#include "report/ReportAssets.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fmt/format.h>

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t longestName = 300;
constexpr std::size_t mostThumbnails = 8; // of a file

std::string name(const std::string& text)
{
    return html(text, longestName);
}

std::string badge(const std::string& kind, const std::string& text)
{
    return "<span class=\"badge " + kind + "\">" + text + "</span>";
}

std::string soft(const std::string& content)
{
    return content.empty() ? "" : "<span class=\"soft\">" + content + "</span>";
}

std::string seconds(double value)
{
    return formatMicros(value * 1e6);
}

// ---- the head of the page ----

std::string verdictBadge(const SetResult& result)
{
    const int failed = result.countOf(FileVerdict::failed);
    if (failed > 0)
        return badge("error", std::to_string(failed) + " failed");
    if (result.interrupted)
        return badge("warning", "interrupted");
    if (result.running)
        return badge("warning", "running");
    return badge("good", "all passed");
}

std::string figures(const SetResult& result)
{
    const int notRun = result.countOf(FileVerdict::notRun);
    std::vector<std::pair<std::string, std::string>> facts = {
        {"files", std::to_string(result.files.size())},
        {"passed", std::to_string(result.countOf(FileVerdict::passed))},
        {"failed", std::to_string(result.countOf(FileVerdict::failed))}};
    if (notRun > 0)
        facts.emplace_back(result.running ? "to be run" : "not run", std::to_string(notRun));
    facts.emplace_back("traces", std::to_string(result.traces()));
    if (result.isChecked())
        facts.emplace_back("flagged traces", std::to_string(result.flagged()));
    facts.emplace_back("warnings", std::to_string(result.warnings()));
    facts.emplace_back("run time", seconds(result.seconds));
    std::string out = "<dl class=\"figures\">\n";
    for (const auto& [label, value] : facts)
        out += "<div><dt>" + label + "</dt><dd>" + value + "</dd></div>\n";
    return out + "</dl>\n";
}

std::string header(const SetResult& result)
{
    return "<header>\n<p class=\"overline\">vorn, one job on many files</p>\n"
           "<div class=\"headline\"><h1>" +
           name(result.jobName) + "</h1>" + verdictBadge(result) + "</div>\n<p class=\"subline\">" +
           html(result.started) + ", " + seconds(result.seconds) + ", on " + name(result.host) +
           "<br>" + html(result.jobFile) + "</p>\n" + figures(result) + "</header>\n";
}

// ---- the table ----

struct Column
{
    const char* title;
    const char* classes;
    bool isSorted;
};

constexpr Column columns[] = {
    {"file", "", true},     {"verdict", "", true},   {"traces", "n", true}, {"flagged", "n", true},
    {"flags", "", false},   {"warnings", "n", true}, {"time", "n", true},   {"memory", "n", true},
    {"results", "", false}, {"pictures", "", false},
};

std::string cell(const std::string& classes, const std::string& sortedBy,
                 const std::string& content)
{
    return "<td" + (classes.empty() ? "" : " class=\"" + classes + "\"") +
           (sortedBy.empty() ? "" : " data-sort=\"" + sortedBy + "\"") + ">" + content + "</td>";
}

std::string numberCell(double value, const std::string& shown)
{
    return cell("n", fmt::format("{:.6g}", value), shown);
}

std::string countCell(int64_t value, const std::string& shown)
{
    return cell("n", std::to_string(value), shown);
}

// As the rows are sorted at first: what needs a look comes first.
int rank(const SetFile& file)
{
    switch (file.verdict) {
    case FileVerdict::failed:
        return 0;
    case FileVerdict::notRun:
        return 1;
    case FileVerdict::passed:
        break;
    }
    return file.flagged > 0 ? 2 : 3;
}

std::string verdictCell(const SetFile& file)
{
    std::string content;
    switch (file.verdict) {
    case FileVerdict::failed:
        content = badge("error", "failed") + soft(htmlLines(file.message));
        break;
    case FileVerdict::notRun:
        content = badge("warning", "not run") + soft(html(file.message));
        break;
    case FileVerdict::passed:
        content =
            file.warnings > 0 ? badge("warning", "passed, with warnings") : badge("good", "passed");
        break;
    }
    if (file.kept)
        content += soft("kept from an earlier call");
    return cell("verdict", std::to_string(rank(file)), content);
}

std::string flagsCell(const SetFile& file)
{
    std::string content;
    for (const auto& [flag, count] : file.flags)
        content += (content.empty() ? "" : ", ") + name(flag) + "&nbsp;" + std::to_string(count);
    return cell("flags small", "", content);
}

std::string link(const std::string& path, const std::string& text)
{
    return path.empty() ? "" : "<a href=\"" + linkTo(path) + "\">" + text + "</a> ";
}

std::string resultsCell(const SetFile& file)
{
    return cell("links small", "",
                link(file.report, "report") + link(file.log, "log") + link(file.json, "JSON"));
}

bool isImage(const std::string& path)
{
    return path.ends_with(".png") || path.ends_with(".svg");
}

std::string picturesCell(const SetFile& file)
{
    std::string content;
    std::size_t shown = 0;
    for (const std::string& path : file.pictures) {
        if (shown++ == mostThumbnails)
            break;
        const std::string title = name(fs::path(path).stem().string());
        if (isImage(path))
            content += fmt::format("<a href=\"{0}\" title=\"{1}\"><img src=\"{0}\" alt=\"{1}\" "
                                   "loading=\"lazy\" width=\"120\" height=\"80\"></a>",
                                   linkTo(path), title);
        else
            content += link(path, title);
    }
    if (file.pictures.size() > mostThumbnails)
        content += soft(fmt::format("and {} more", file.pictures.size() - mostThumbnails));
    return cell("", "", content.empty() ? "" : "<div class=\"thumbs\">" + content + "</div>");
}

std::string row(const SetFile& file)
{
    const std::string classes = file.verdict == FileVerdict::failed   ? "failed"
                                : file.verdict == FileVerdict::notRun ? "notrun"
                                : file.flagged > 0                    ? "passed flagged"
                                                                      : "passed";
    const fs::path path = file.path;
    const bool isRun = file.verdict != FileVerdict::notRun && file.exitCode >= 0;
    const bool hasFacts = !file.json.empty();
    return "<tr class=\"" + classes + "\"><th scope=\"row\" data-sort=\"" + name(file.path) +
           "\">" + name(path.filename().string()) + soft(name(path.parent_path().string())) +
           "</th>" + verdictCell(file) +
           countCell(file.traces, hasFacts ? std::to_string(file.traces) : "") +
           countCell(file.isChecked ? file.flagged : -1,
                     file.isChecked ? std::to_string(file.flagged) : "") +
           flagsCell(file) +
           countCell(file.warnings, hasFacts ? std::to_string(file.warnings) : "") +
           numberCell(file.seconds, isRun ? seconds(file.seconds) : "") +
           countCell(file.peakBytes,
                     file.peakBytes > 0 ? formatBytes(static_cast<double>(file.peakBytes)) : "") +
           resultsCell(file) + picturesCell(file) + "</tr>\n";
}

std::string tableHead()
{
    std::string out = "<thead><tr>";
    for (const Column& column : columns)
        out += fmt::format(
            "<th scope=\"col\"{}{}>{}</th>",
            *column.classes != '\0' ? std::string(" class=\"") + column.classes + "\"" : "",
            column.isSorted ? " data-sorted=\"yes\"" : "", column.title);
    return out + "</tr></thead>\n";
}

std::string choices(const SetResult& result)
{
    std::string out =
        "<div class=\"choices\" id=\"choices\" hidden><input type=\"search\" "
        "placeholder=\"part of a file name\" aria-label=\"Part of a file name\">"
        "<button type=\"button\" data-show=\"all\" aria-pressed=\"true\">all</button>";
    if (result.countOf(FileVerdict::failed) > 0)
        out +=
            "<button type=\"button\" data-show=\"failed\" aria-pressed=\"false\">failed</button>";
    if (result.flagged() > 0)
        out +=
            "<button type=\"button\" data-show=\"flagged\" aria-pressed=\"false\">flagged</button>";
    if (result.countOf(FileVerdict::notRun) > 0)
        out +=
            "<button type=\"button\" data-show=\"notrun\" aria-pressed=\"false\">not run</button>";
    return out + "<output></output></div>\n";
}

std::string section(const std::string& id, const std::string& title, const std::string& content)
{
    return fmt::format("<section id=\"{0}\" aria-labelledby=\"{0}-title\">\n<h2 "
                       "id=\"{0}-title\">{1}</h2>\n{2}</section>\n",
                       id, title, content);
}

std::string filesSection(const SetResult& result)
{
    std::vector<const SetFile*> sorted;
    sorted.reserve(result.files.size());
    for (const SetFile& file : result.files)
        sorted.push_back(&file);
    std::stable_sort(sorted.begin(), sorted.end(), [](const SetFile* a, const SetFile* b) {
        return rank(*a) != rank(*b) ? rank(*a) < rank(*b) : a->flagged > b->flagged;
    });
    std::string table = "<div class=\"scroll\" role=\"region\" tabindex=\"0\" "
                        "aria-label=\"Files\"><table>\n" +
                        tableHead() + "<tbody>\n";
    for (const SetFile* file : sorted)
        table += row(*file);
    return section("files", "Files",
                   choices(result) + table + "</tbody></table></div>\n" +
                       "<p class=\"soft small\">Failed files come first" +
                       (result.isChecked() ? ", then those with the most flagged traces" : "") +
                       ". Memory is the most that the process of the file had.</p>\n");
}

std::string flagsSection(const SetResult& result)
{
    if (!result.isChecked())
        return "";
    std::string content;
    for (const auto& [flag, count] : result.flags())
        content += "<li>" + badge("warning", name(flag) + " " + std::to_string(count)) + "</li>\n";
    content = content.empty() ? "<p>No trace is flagged.</p>\n"
                              : "<ul class=\"flag-list\">\n" + content + "</ul>\n";
    return section("flags", "Flagged traces of all files", content);
}

std::string factsSection(const SetResult& result)
{
    std::string patterns;
    for (const std::string& pattern : result.patterns)
        patterns += (patterns.empty() ? "" : ", ") + html(quote(pattern));
    const std::vector<std::pair<std::string, std::string>> facts = {
        {"job", html(result.jobFile)},
        {"gets each file", "<code>" + name(result.parameter) + "</code>"},
        {"files", patterns},
        {"results", html(result.directory)},
        {"at a time", counted(result.atATime, "file")},
        {"vorn", html(result.vornVersion)}};
    std::string content = "<dl class=\"pairs\">\n";
    for (const auto& [key, value] : facts)
        content += "<dt>" + key + "</dt><dd>" + value + "</dd>\n";
    for (const std::string& note : result.notes)
        content += "<dt>note</dt><dd>" + html(note) + "</dd>\n";
    return section("facts", "How it was run", content + "</dl>\n");
}

std::string head(const SetResult& result)
{
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src "
           "'self' file: data:; style-src " +
           policyHash(reportStyle) + " " + policyHash(indexStyle) + "; script-src " +
           policyHash(indexScript) +
           "; base-uri 'none'; form-action 'none'\">\n"
           "<meta name=\"referrer\" content=\"no-referrer\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<link rel=\"icon\" href=\"data:,\">\n<title>" +
           name(result.jobName) + " – vorn, " +
           counted(static_cast<int64_t>(result.files.size()), "file") + "</title>\n<style>" +
           std::string(reportStyle) + "</style>\n<style>" + std::string(indexStyle) +
           "</style>\n</head>\n";
}

} // namespace

std::string setPage(const SetResult& result)
{
    return head(result) + "<body>\n" + header(result) + "<main>\n" + filesSection(result) +
           flagsSection(result) + factsSection(result) +
           "</main>\n<footer>Reports and pictures are in the folders beside this page; it loads "
           "nothing else.</footer>\n<script>" +
           std::string(indexScript) + "</script>\n</body>\n</html>\n";
}

std::string linkTo(const std::string& path)
{
    std::string link;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isPlain = (byte < 0x80 && std::isalnum(byte) != 0) || c == '-' || c == '.' ||
                             c == '_' || c == '~' || c == '/';
        link += isPlain ? std::string(1, c) : fmt::format("%{:02X}", byte);
    }
    return link;
}

} // namespace host
