/// @file PartsFixture.h
///
/// Jobs that run in parts, and what must be the same as with one process.
#ifndef PARTSFIXTURE_H
#define PARTSFIXTURE_H

#include "ProcessingTree.h"

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

/// The facts of a run: its JSON without what is measured.
inline nlohmann::json factsOf(nlohmann::json json)
{
    if (json.is_object()) {
        json.erase("measured");
        for (auto& [key, value] : json.items())
            value = factsOf(value);
    } else if (json.is_array()) {
        for (auto& value : json)
            value = factsOf(value);
    }
    return json;
}

/// A tree with a job of both stages, its input, and runs of it.
class PartsTree : public ProcessingTree
{
public:
    PartsTree()
    {
        write("make.yaml", "job: input\nmodules:\n"
                           "  - {name: s, module: synthetic, shots: 6, channels: 10, samples: 200,"
                           " bad: 4}\n"
                           "  - {name: w, module: segy_out, input: s, file: line.sgy}\n");
        made = run({"run", "make.yaml", "-q"});
        write("job.yaml", jobText());
    }

    static std::string jobText()
    {
        return "job: both stages\nmodules:\n"
               "  - {name: read, module: segy_in, file: line.sgy}\n"
               "  - {name: filtered, module: bandpass, input: read, corners: [5, 10, 40, 60]}\n"
               "  - {name: balanced, module: agc, input: filtered, window: 200 ms}\n"
               "  - {name: line, module: segy_out, input: balanced, file: out.sgy}\n"
               "  - {name: sorted, module: sort, input: filtered, keys: [-tracf, fldr]}\n"
               "  - {name: receivers, module: su_out, input: sorted, file: out.su}\n"
               "  - {name: spectrum, module: spectrum, input: filtered}\n";
    }

    /// The files that the job writes.
    static std::vector<std::string> outputs() { return {"out.sgy", "out.su"}; }

    /// Outputs and facts of a run that has left `json`, and removes them.
    std::map<std::string, std::string> take(const std::string& json = "facts.json") const
    {
        std::map<std::string, std::string> results;
        for (const std::string& name : outputs()) {
            results[name] = exists(name) ? read(name) : "(missing)";
            std::remove(path(name).c_str());
        }
        results["facts"] =
            exists(json) ? factsOf(nlohmann::json::parse(read(json))).dump(1) : "(missing)";
        std::remove(path(json).c_str());
        return results;
    }

    /// Names in the working directory that begin with a dot: what unfinished outputs leave.
    std::vector<std::string> hidden() const
    {
        std::vector<std::string> found;
        for (const std::string& name : names()) {
            if (name.starts_with("."))
                found.push_back(name);
        }
        return found;
    }

    ProcessResult made; ///< of the input
};

#endif
