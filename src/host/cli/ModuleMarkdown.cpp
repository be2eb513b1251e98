#include "cli/ModuleMarkdown.h"

#include "base/Escaping.h"
#include "base/Text.h"
#include "job/ParameterValue.h"

#include <algorithm>
#include <fmt/format.h>
#include <vector>

namespace host {

namespace {

// "|" would end the cell of a table.
std::string withoutBars(const std::string& text)
{
    std::string result;
    for (const char c : text)
        result += c == '|' ? "\\|" : std::string(1, c);
    return result;
}

// "<file>" would be a tag of HTML, but for code, in which it stands for itself.
std::string withoutTags(const std::string& text)
{
    std::string result;
    bool inCode = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '`')
            inCode = !inCode && text.find('`', i + 1) != std::string::npos;
        if (text[i] == '<' && !inCode)
            result += '\\';
        result += text[i];
    }
    return result;
}

// A cell of a table is one line.
std::string cell(const std::string& text)
{
    return withoutTags(withoutBars(escaped(text)));
}

std::string code(const std::string& text)
{
    return "`" + withoutBars(escaped(text)) + "`";
}

std::string codes(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + code(name);
    return text.empty() ? "none" : text;
}

std::string defaultCell(const ParameterSpec& spec)
{
    if (spec.required)
        return "required";
    if (spec.defaultValue == nullptr)
        return "none";
    std::vector<std::string> items;
    for (const YamlValue& item : spec.defaultValue->items)
        items.push_back(item->text);
    const std::string value =
        spec.defaultValue->isList() ? "[" + joined(items, ", ") + "]" : spec.defaultValue->text;
    return cell(value + (spec.unit.empty() ? "" : " " + spec.unit));
}

std::string parameterTable(const Manifest& manifest)
{
    if (manifest.parameters.empty())
        return "The module has no parameters.\n";
    std::string table = "| Parameter | Value | Default | Meaning |\n|---|---|---|---|\n";
    for (const ParameterSpec& spec : manifest.parameters)
        table += fmt::format("| {} | {} | {} | {} |\n", code(spec.name), cell(expectedValue(spec)),
                             defaultCell(spec), cell(trimmed(spec.help)));
    return table;
}

// A list of the rules between parameters, in the words of messages.
std::string rulesText(const Manifest& manifest)
{
    std::string text = manifest.rules.empty() ? "" : "\nRules between parameters:\n\n";
    for (const ParameterRule& rule : manifest.rules)
        text += "- " + cell(rule.text()) + "\n";
    return text;
}

std::string portsText(const PortSpec& ports)
{
    return ports.countText() + (ports.names.empty() ? "" : " (" + joined(ports.names, ", ") + ")");
}

std::string attributes(const Manifest& manifest)
{
    std::vector<std::string> written;
    for (const AttributeSpec& attribute : manifest.writes)
        written.push_back(attribute.name);
    std::string text = fmt::format("Trace attributes read: {}. Written: {}.\n",
                                   codes(manifest.reads), codes(written));
    const bool anyHelp =
        std::any_of(manifest.writes.begin(), manifest.writes.end(),
                    [](const AttributeSpec& attribute) { return !attribute.help.empty(); });
    if (!anyHelp)
        return text;
    text += "\n| Attribute | Type | Meaning |\n|---|---|---|\n";
    for (const AttributeSpec& attribute : manifest.writes)
        text += fmt::format("| {} | {} | {} |\n", code(attribute.name),
                            attributeTypeName(attribute.type), cell(attribute.help));
    return text;
}

// Modules that say nothing need all traces.
std::string partsText(const ParallelSpec& spec)
{
    return spec.given ? fmt::format("\nIn parts: {}.\n", cell(spec.text())) : "";
}

} // namespace

std::string interfaceMarkdown(const Manifest& manifest)
{
    return parameterTable(manifest) + rulesText(manifest) + "\n" +
           fmt::format("Inputs: {}. Outputs: {}. Draws: {}.\n\n", cell(portsText(manifest.inputs)),
                       cell(portsText(manifest.outputs)), cell(manifest.draws)) +
           attributes(manifest) + partsText(manifest.parallel);
}

std::string chapterMarkdown(const Manifest& manifest)
{
    const std::string purpose = cell(trimmed(manifest.purpose));
    std::string text = fmt::format("## {}\n\n{}{}\n\n", cell(manifest.module), purpose,
                                   purpose.ends_with('.') ? "" : ".");
    const std::string description = withoutTags(trimmed(escapedLines(manifest.description)));
    if (!description.empty())
        text += description + "\n\n";
    return text + interfaceMarkdown(manifest);
}

} // namespace host
