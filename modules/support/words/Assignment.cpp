#include "words/Assignment.h"

#include <stdexcept>

namespace words {

namespace {

// The first "=" that is not part of "==", "<=", ">=" or "!=".
std::size_t placeOfSign(const std::string& text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '=')
            continue;
        const bool isPair = i + 1 < text.size() && text[i + 1] == '=';
        const bool isBehind = i > 0 && std::string("<>!=").find(text[i - 1]) != std::string::npos;
        if (!isPair && !isBehind)
            return i;
    }
    return std::string::npos;
}

std::string trimmed(const std::string& text)
{
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos)
        return "";
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

} // namespace

Assignment parseAssignment(const std::string& text)
{
    const std::size_t sign = placeOfSign(text);
    if (sign == std::string::npos)
        throw std::runtime_error("\"" + text +
                                 "\" does not assign; write \"word = formula\", as in cdpx = (sx + "
                                 "gx) / 2");
    const std::string word = trimmed(text.substr(0, sign));
    if (!isWordName(word) || word == "trace" || word.starts_with(columnPrefix))
        throw std::runtime_error("\"" + text + "\" assigns to \"" + word +
                                 "\", which is not a name for a header word");
    const std::string formula = trimmed(text.substr(sign + 1));
    if (formula.empty())
        throw std::runtime_error("\"" + text + "\" has no formula behind the \"=\"");
    return {word, Expression(formula)};
}

} // namespace words
