#include "parts/PartNumber.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Numbers.h"
#include "base/Text.h"

#include <cstdlib>
#include <fmt/format.h>
#include <optional>
#include <vector>

namespace host {

namespace {

struct Variable
{
    const char* name;
    bool isRank; // counts from 0, and may be beyond the last part
};

constexpr Variable variables[] = {
    {"SLURM_ARRAY_TASK_ID", false}, {"PBS_ARRAY_INDEX", false},     {"PBS_ARRAYID", false},
    {"SGE_TASK_ID", false},         {"OMPI_COMM_WORLD_RANK", true}, {"PMI_RANK", true},
    {"SLURM_PROCID", true},
};

std::string rangeOfParts(int parts)
{
    return parts == 1 ? "the plan has one part, 1"
                      : fmt::format("the plan has parts 1 to {}", parts);
}

PartChoice fromVariable(const Variable& variable, const std::string& value, int parts)
{
    const std::optional<long long> number = parseInteger(value);
    if (!number || *number < 0)
        throw CommandError(fmt::format("{} is {}; expected the number of a {}; give the number of "
                                       "the part in place of auto, or unset the variable",
                                       variable.name, quote(value),
                                       variable.isRank ? "process, from 0" : "part, from 1"));
    if (variable.isRank && *number >= parts)
        return {0, fmt::format("{} is {}, and {}: nothing is left for this process", variable.name,
                               *number, rangeOfParts(parts))};
    const long long part = variable.isRank ? *number + 1 : *number;
    if (part < 1 || part > parts)
        throw CommandError(fmt::format("{} is {}, but {}; submit an array with these numbers",
                                       variable.name, *number, rangeOfParts(parts)));
    return {static_cast<int>(part), ""};
}

PartChoice fromEnvironment(int parts)
{
    std::vector<std::string> names;
    for (const Variable& variable : variables) {
        const char* const value = std::getenv(variable.name);
        if (value != nullptr && *value != '\0' && std::string(value) != "undefined")
            return fromVariable(variable, value, parts);
        names.emplace_back(variable.name);
    }
    throw CommandError(
        "auto: no part is given by the environment; none of these variables is set: " +
        joined(names, ", ") + "; give the number of the part instead");
}

} // namespace

PartChoice partNumber(const std::string& text, int parts)
{
    if (text == "auto")
        return fromEnvironment(parts);
    const std::optional<long long> number = parseInteger(text);
    if (!number)
        throw CommandError(
            fmt::format("the part is {}; expected a number from 1, or auto", quote(text)));
    if (*number < 1 || *number > parts)
        throw CommandError(fmt::format("there is no part {}: {}", *number, rangeOfParts(parts)));
    return {static_cast<int>(*number), ""};
}

} // namespace host
