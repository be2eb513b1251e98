#include "report/InlineSvg.h"

#include "base/Escaping.h"
#include "report/HtmlText.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace host {

namespace {

using std::string_view;

constexpr std::array<string_view, 7> allowedElements = {"svg",     "g",        "path", "polygon",
                                                        "ellipse", "polyline", "text"};
constexpr std::array<string_view, 21> allowedAttributes = {
    "class",  "width", "height",      "viewBox",   "transform",        "fill",         "stroke",
    "points", "d",     "x",           "y",         "text-anchor",      "cx",           "cy",
    "rx",     "ry",    "font-family", "font-size", "stroke-dasharray", "stroke-width", "opacity"};

// What Graphviz makes of characters; other references may stand for anything.
constexpr std::array<string_view, 7> allowedReferences = {"&amp;", "&lt;",  "&gt;",  "&quot;",
                                                          "&#39;", "&#45;", "&#160;"};

template <std::size_t Size>
bool isIn(const std::array<string_view, Size>& names, string_view name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Reads from the front of a text; what is not there as expected makes it fail for good.
class Scanner
{
public:
    explicit Scanner(string_view text) : rest(text) {}

    bool failed = false;

    bool atEnd() const { return failed || rest.empty(); }
    bool startsWith(string_view what) const { return rest.starts_with(what); }
    bool skip(string_view what)
    {
        if (!startsWith(what))
            return false;
        rest.remove_prefix(what.size());
        return true;
    }
    // Up to `end`, which is consumed.
    string_view until(string_view end)
    {
        const std::size_t at = rest.find(end);
        if (at == string_view::npos) {
            failed = true;
            return {};
        }
        const string_view found = rest.substr(0, at);
        rest.remove_prefix(at + end.size());
        return found;
    }
    // Up to the first of `ends`, which is not consumed.
    string_view before(string_view ends)
    {
        const std::size_t at = std::min(rest.find_first_of(ends), rest.size());
        const string_view found = rest.substr(0, at);
        rest.remove_prefix(at);
        return found;
    }
    void skipBlanks()
    {
        rest.remove_prefix(std::min(rest.find_first_not_of(" \t\r\n"), rest.size()));
    }

private:
    string_view rest;
};

bool isPlain(string_view value)
{
    return value.find_first_of("<>&\\") == string_view::npos &&
           value.find("url") == string_view::npos;
}

std::string plainText(string_view text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool known =
            std::any_of(allowedReferences.begin(), allowedReferences.end(),
                        [&](string_view one) { return text.substr(i).starts_with(one); });
        result += text[i] == '&' && !known ? "&amp;" : std::string(1, text[i]);
    }
    return escapedLines(result);
}

class Cleaner
{
public:
    Cleaner(string_view svg, const std::string& description) : in(svg), label(description) {}

    std::string run()
    {
        while (!in.atEnd())
            next();
        return in.failed || depth != 0 || !complete ? "" : out;
    }

private:
    void next()
    {
        if (in.skip("<?"))
            in.until("?>");
        else if (in.skip("<!--"))
            in.until("-->");
        else if (in.skip("<!DOCTYPE"))
            in.until(">");
        else if (in.skip("<title>"))
            in.until("</title>"); // names of nodes in Graphviz' language, which say nothing here
        else if (in.skip("</"))
            close(in.until(">"));
        else if (in.skip("<"))
            open();
        else
            text(in.before("<"));
    }

    void text(string_view found)
    {
        if (depth > 0)
            out += plainText(found);
    }

    void close(string_view name)
    {
        if (!isIn(allowedElements, name) || depth == 0)
            in.failed = true;
        out += "</" + std::string(name) + ">";
        --depth;
        complete = complete || (depth == 0 && name == "svg");
    }

    void open()
    {
        const string_view name = in.before(" \t\r\n/>");
        const bool first = out.empty();
        if (!isIn(allowedElements, name) || first != (name == "svg")) {
            in.failed = true;
            return;
        }
        out += "<" + std::string(name);
        if (first)
            out += " role=\"img\" aria-label=\"" + html(label) + "\"";
        for (in.skipBlanks(); !in.startsWith(">") && !in.startsWith("/>") && !in.atEnd();
             in.skipBlanks())
            attribute();
        if (in.skip("/>")) {
            out += "/>";
        } else {
            in.until(">");
            out += ">";
            ++depth;
        }
    }

    void attribute()
    {
        const string_view name = in.before("= \t\r\n/>");
        if (!in.skip("=\"")) {
            in.failed = true;
            return;
        }
        const string_view value = in.until("\"");
        if (isIn(allowedAttributes, name) && isPlain(value))
            out += " " + std::string(name) + "=\"" + std::string(value) + "\"";
    }

    Scanner in;
    const std::string& label;
    std::string out;
    int depth = 0;
    bool complete = false;
};

} // namespace

std::string inlineSvg(const std::string& svg, const std::string& label)
{
    return Cleaner(svg, label).run();
}

} // namespace host
