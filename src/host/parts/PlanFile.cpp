#include "parts/PlanFile.h"
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "run/RunFiles.h"
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
namespace host {
using Json = nlohmann::ordered_json;
void writePlan(const Plan& p, const std::string& directory)
{
    Json j;
    j["v"] = p.vornVersion;
    j["home"] = p.vornHome;
    j["job"] = p.jobFile;
    j["sha"] = p.jobSha256;
    j["set"] = p.settings;
    j["dirs"] = p.moduleDirectories;
    j["scratch"] = p.scratchDirectory;
    j["st"] = p.scratchTraces;
    j["wd"] = p.workingDirectory;
    j["cpu"] = p.cpuClass;
    j["portable"] = p.portable;
    j["facts"] = p.facts;
    j["traces"] = p.traces;
    for (auto& x : p.parts)
        j["parts"].push_back({x.first, x.count});
    for (auto& x : p.modules)
        j["modules"].push_back({x.name, (int)x.stage, x.reason});
    j["spools"] = Json::array();
    for (auto& x : p.spools)
        j["spools"].push_back({x.module, x.port});
    j["outputs"] = Json::array();
    for (auto& x : p.outputs)
        j["outputs"].push_back({x.module, x.path, x.target});
    std::ofstream(std::filesystem::path(directory) / planFileName) << j.dump(1);
}
StoredPlan readPlan(const std::string& directory)
{
    std::string path = (std::filesystem::path(directory) / planFileName).string();
    std::ifstream f(path);
    if (!f)
        throw CommandError("there is no plan in " + quote(directory));
    Json j = Json::parse(f);
    Plan p;
    p.vornVersion = j["v"];
    p.vornHome = j["home"];
    p.jobFile = j["job"];
    p.jobSha256 = j["sha"];
    p.settings = j["set"].get<std::vector<std::string>>();
    p.moduleDirectories = j["dirs"].get<std::vector<std::string>>();
    p.scratchDirectory = j["scratch"];
    p.scratchTraces = j["st"];
    p.workingDirectory = j["wd"];
    p.cpuClass = j["cpu"];
    p.portable = j["portable"];
    p.facts = j["facts"];
    p.traces = j["traces"];
    for (auto& x : j["parts"])
        p.parts.push_back({x[0], x[1]});
    for (auto& x : j["modules"])
        p.modules.push_back({x[0], (Stage)(int)x[1], x[2]});
    for (auto& x : j["spools"])
        p.spools.push_back({x[0], x[1]});
    for (auto& x : j["outputs"])
        p.outputs.push_back({x[0], x[1], x[2]});
    return {p, sha256OfFile(path)};
}
std::string cpuClass()
{
    return "avx2";
}
void noteInputs(Plan&) {}
std::vector<std::string> differences(const Plan&, const Plan&)
{
    return {};
}
} // namespace host
