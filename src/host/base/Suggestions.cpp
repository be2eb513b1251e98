#include "base/Suggestions.h"

#include "base/Escaping.h"
#include "base/Text.h"

#include <algorithm>
#include <numeric>

namespace host {

namespace {

// Insertions, deletions, replacements and swaps of neighbours that lead from one text to the other.
int editDistance(const std::string& a, const std::string& b)
{
    std::vector<std::vector<int>> d(a.size() + 1, std::vector<int>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        d[i][0] = static_cast<int>(i);
    std::iota(d[0].begin(), d[0].end(), 0);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const int replaced = d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[a.size()][b.size()];
}

} // namespace

std::string nearestName(const std::string& wrong, const std::vector<std::string>& names)
{
    // Names are short; a page of text gets no suggestion.
    constexpr std::size_t longest = 100;
    if (wrong.size() > longest)
        return "";
    const std::string lower = lowerCase(wrong);
    std::string nearest;
    // A third of the letters may be wrong, never all of them.
    const int letters = static_cast<int>(wrong.size());
    int least = std::min(letters, std::max(1, letters / 3) + 1);
    for (const std::string& name : names) {
        if (name.size() > longest)
            continue;
        const int distance = editDistance(lower, lowerCase(name));
        if (distance < least) {
            least = distance;
            nearest = name;
        }
    }
    return nearest;
}

std::string suggestion(const std::string& wrong, const std::vector<std::string>& names,
                       const std::string& otherwise)
{
    const std::string nearest = nearestName(wrong, names);
    if (!nearest.empty())
        return "; did you mean " + quote(nearest) + "?";
    if (names.empty() || otherwise.empty())
        return "";
    return "; " + otherwise + " " + escaped(joined(names, ", "));
}

} // namespace host
