#include "draw/JobGraph.h"

#include "base/Escaping.h"
#include "base/TextLayout.h"

#include <fmt/format.h>

namespace host {

namespace {

constexpr int longestValue = 40; // characters of a parameter in a box

std::string inDot(const std::string& text)
{
    std::string result;
    for (const char c : escaped(text)) {
        if (c == '"' || c == '\\')
            result += '\\';
        if (c == '&')
            result += "&amp;"; // Graphviz knows the entities of HTML
        else
            result += c;
    }
    return result;
}

bool continuesCharacter(char c)
{
    return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

// Whole characters are kept: of a path the last ones, which name the file, else the first ones.
std::string shortened(const ResolvedParameter& parameter)
{
    const std::string& text = parameter.value.text;
    if (displayWidth(text) <= longestValue)
        return text;
    if (parameter.isInputFile || parameter.isOutputFile) {
        std::size_t from = text.size() - longestValue;
        while (from < text.size() && continuesCharacter(text[from]))
            ++from;
        return "…" + text.substr(from);
    }
    std::size_t to = longestValue;
    while (to > 0 && continuesCharacter(text[to]))
        --to;
    return text.substr(0, to) + "…";
}

std::string boxOf(const ResolvedModule& module, int order)
{
    std::string label = fmt::format("{}. {}\\n", order, inDot(module.name));
    if (module.module != module.name)
        label += "(" + inDot(module.module) + ")\\n";
    for (const ResolvedParameter& parameter : module.parameters) {
        if (parameter.given)
            label += fmt::format("{}: {}{}\\l", inDot(parameter.name), inDot(shortened(parameter)),
                                 parameter.unit.empty() ? "" : " " + inDot(parameter.unit));
    }
    return label;
}

} // namespace

std::string graphDot(const ResolvedJob& job, const std::vector<int>& order, Tees tees)
{
    const auto hasTee = [&](int module, int port) {
        return tees == Tees::shown && job.modules[static_cast<std::size_t>(module)]
                                              .consumers[static_cast<std::size_t>(port)] > 1;
    };
    std::string dot = "digraph job {\n";
    dot += fmt::format("    label=\"{}\"; labelloc=t; fontname=\"sans-serif\"; rankdir=TB;\n",
                       inDot(job.name));
    dot += "    node [shape=box, style=\"rounded,filled\", fillcolor=\"#eef3f8\", "
           "fontname=\"sans-serif\", fontsize=11];\n";
    dot += "    edge [fontname=\"sans-serif\", fontsize=9, color=\"#50667a\"];\n";
    for (std::size_t i = 0; i < job.modules.size(); ++i)
        dot += fmt::format("    m{} [label=\"{}\"];\n", i, boxOf(job.modules[i], order[i]));
    // The name of a port stands where the traces leave the module.
    const auto addArrow = [&](int module, int port, const std::string& to) {
        dot += fmt::format("    m{} -> {}", module, to);
        if (job.modules[static_cast<std::size_t>(module)].consumers.size() > 1)
            dot += fmt::format(" [label=\"{}\"]", inDot(job.portName(module, port)));
        dot += ";\n";
    };
    for (int i = 0; i < static_cast<int>(job.modules.size()); ++i) {
        const auto ports =
            static_cast<int>(job.modules[static_cast<std::size_t>(i)].consumers.size());
        for (int port = 0; port < ports; ++port) {
            if (!hasTee(i, port))
                continue;
            const std::string tee = fmt::format("t{}_{}", i, port);
            dot += fmt::format("    {} [label=\"tee\", style=rounded, fontsize=9];\n", tee);
            addArrow(i, port, tee);
        }
    }
    for (std::size_t i = 0; i < job.modules.size(); ++i) {
        for (const ResolvedInput& input : job.modules[i].inputs) {
            if (hasTee(input.module, input.port))
                dot += fmt::format("    t{}_{} -> m{};\n", input.module, input.port, i);
            else
                addArrow(input.module, input.port, fmt::format("m{}", i));
        }
    }
    return dot + "}\n";
}

} // namespace host
