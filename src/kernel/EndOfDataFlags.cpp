#include "EndOfDataFlags.h"

#include <algorithm>

int& EndOfDataFlags::search(ModuleEntity* module)
{
    const auto known = std::find_if(flags.begin(), flags.end(),
                                    [=](const Flag& flag) { return flag.module == module; });
    if (known != flags.end())
        return known->value;
    flags.push_back({module, 0});
    return flags.back().value;
}

void EndOfDataFlags::copyTo(std::map<ModuleEntity*, int>& map) const
{
    for (const Flag& flag : flags)
        map[flag.module] = flag.value;
}
