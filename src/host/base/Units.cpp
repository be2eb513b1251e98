#include "base/Units.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace host {

namespace {

struct Unit
{
    const char* name;
    const char* quantity;
    int power; // of ten, against the quantity's base unit
    bool isAlias = false;
};

// clang-format off
constexpr Unit units[] = {
    {"s",   "time",      0},
    {"ms",  "time",      -3},
    {"us",  "time",      -6},
    {"µs",  "time",      -6, true}, // micro sign
    {"μs",  "time",      -6, true}, // Greek letter
    {"Hz",  "frequency", 0},
    {"kHz", "frequency", 3},
    {"m",   "length",    0},
    {"km",  "length",    3},
    {"m/s", "velocity",  0},
    {"km/s","velocity",  3},
    {"kB",  "memory",    3},
    {"MB",  "memory",    6},
    {"GB",  "memory",    9},
};
// clang-format on

const Unit* find(const std::string& name)
{
    const auto unit = std::find_if(std::begin(units), std::end(units),
                                   [&](const Unit& one) { return name == one.name; });
    return unit != std::end(units) ? unit : nullptr;
}

std::string plain(const std::string& unit)
{
    return unit == "%" ? "percent" : unit;
}

} // namespace

std::optional<double> convertUnit(double value, const std::string& from, const std::string& to)
{
    if (plain(from) == plain(to))
        return value;
    const Unit* source = find(from);
    const Unit* target = find(to);
    if (source == nullptr || target == nullptr ||
        std::strcmp(source->quantity, target->quantity) != 0)
        return std::nullopt;
    // Divided where possible: 3 ms are then the double nearest to 0.003, as a person expects.
    const int power = source->power - target->power;
    return power < 0 ? value / std::pow(10, -power) : value * std::pow(10, power);
}

std::vector<std::string> unitsLike(const std::string& unit)
{
    std::vector<std::string> all = {unit};
    const Unit* known = find(unit);
    for (const Unit& one : units) {
        if (known != nullptr && !one.isAlias && unit != one.name &&
            std::strcmp(one.quantity, known->quantity) == 0)
            all.emplace_back(one.name);
    }
    return all;
}

} // namespace host
