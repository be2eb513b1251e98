#include "base/Diagnostics.h"

#include "base/Escaping.h"

#include <algorithm>
#include <fmt/format.h>
#include <tuple>

namespace host {

std::string Place::text() const
{
    return line > 0 ? fmt::format("{}:{}:{}", escaped(source), line, column) : escaped(source);
}

std::string Diagnostic::line() const
{
    return place.text() + (isWarning ? ": warning: " : ": ") + text;
}

void Diagnostics::error(const Place& place, const std::string& text)
{
    all.push_back({place, false, text});
    ++errorCount;
}

void Diagnostics::warning(const Place& place, const std::string& text)
{
    all.push_back({place, true, text});
}

std::vector<Diagnostic> Diagnostics::sorted() const
{
    std::vector<std::string> sources;
    for (const Diagnostic& one : all) {
        if (std::find(sources.begin(), sources.end(), one.place.source) == sources.end())
            sources.push_back(one.place.source);
    }
    const auto key = [&](const Diagnostic& one) {
        const auto source = std::find(sources.begin(), sources.end(), one.place.source);
        return std::make_tuple(source - sources.begin(), one.place.line, one.place.column);
    };
    std::vector<Diagnostic> result = all;
    std::stable_sort(result.begin(), result.end(),
                     [&](const Diagnostic& a, const Diagnostic& b) { return key(a) < key(b); });
    return result;
}

void Diagnostics::print(std::FILE* stream) const
{
    for (const Diagnostic& one : sorted())
        std::fputs(("vorn: " + one.line() + '\n').c_str(), stream);
}

} // namespace host
