/// @file EndOfDataFlags.h
///
/// Which modules of a job have reached the end of their data.
#ifndef ENDOFDATAFLAGS_H
#define ENDOFDATAFLAGS_H

#include "ModuleEntity.h"
#include "vorn_export.h"

#include <cstddef>
#include <map>
#include <vector>

/// End-of-data flags by module, read and written like a map that starts every module at 0. A module
/// remembers its place, so that the scheduler, which asks several times per trace, does not search.
class VORN_EXPORT EndOfDataFlags
{
public:
    /// The flag of `module`, 0 when it has not been asked for before. Requires: not null. The
    /// reference is valid until another module is asked for.
    int& operator[](ModuleEntity* module)
    {
        const std::size_t place = static_cast<std::size_t>(module->jobIndex);
        if (place < flags.size() && flags[place].module == module)
            return flags[place].value;
        return search(module);
    }

    /// Writes the flag of every module asked for so far into `map`.
    void copyTo(std::map<ModuleEntity*, int>& map) const;

private:
    int& search(ModuleEntity* module);

    struct Flag
    {
        ModuleEntity* module;
        int value;
    };
    std::vector<Flag> flags;
};

#endif
