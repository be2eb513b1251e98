// {
//   "format": "vorn-plan", "format_version": 1,
//   "plan": { ... },
//   "checksum": SHA-256 of the compact form of "plan"
// }
//
// The checksum finds what is still JSON after a byte has changed. Texts must be UTF-8.
#include "parts/PlanFile.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Sha256.h"
#include "base/Text.h"
#include "parts/OwnFile.h"
#include "run/RunFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace {

using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

constexpr const char* formatName = "vorn-plan";
constexpr int formatVersion = 1;

std::string pathOf(const std::string& directory)
{
    return (fs::path(directory) / planFileName).string();
}

// ---- To JSON and back ----

template <typename Item, typename Function>
Json listOf(const std::vector<Item>& items, Function function)
{
    Json array = Json::array();
    for (const Item& item : items)
        array.push_back(function(item));
    return array;
}

template <typename Item, typename Function>
std::vector<Item> itemsOf(const Json& array, Function function)
{
    std::vector<Item> items;
    items.reserve(array.size());
    for (const Json& one : array)
        items.push_back(function(one));
    return items;
}

Json jsonOf(const Plan& plan)
{
    Json json;
    json["vorn_version"] = plan.vornVersion;
    json["vorn_home"] = plan.vornHome;
    json["job"] = plan.jobFile;
    json["job_as_given"] = plan.jobPath;
    json["job_sha256"] = plan.jobSha256;
    json["settings"] = plan.settings;
    json["module_directories"] = plan.moduleDirectories;
    json["scratch_directory"] = plan.scratchDirectory;
    json["scratch_traces"] = plan.scratchTraces;
    json["working_directory"] = plan.workingDirectory;
    json["cpu_class"] = plan.cpuClass;
    json["portable"] = plan.portable;
    json["facts"] = plan.facts;
    if (!plan.lasting)
        json["lasting"] = false;
    json["traces"] = plan.traces;
    json["parts"] = listOf(plan.parts, [](const PlannedPart& part) {
        return Json{{"first", part.first}, {"count", part.count}};
    });
    json["modules"] = listOf(plan.modules, [](const PlannedModule& module) {
        return Json{{"name", module.name},
                    {"stage", static_cast<int>(module.stage)},
                    {"reason", module.reason}};
    });
    json["spools"] = listOf(plan.spools, [](const PlannedSpool& spool) {
        return Json{{"module", spool.module}, {"port", spool.port}};
    });
    json["inputs"] = listOf(plan.inputs, [](const PlannedInput& input) {
        return Json{{"path", input.path},
                    {"bytes", input.bytes},
                    {"modified", {input.modifiedSeconds, input.modifiedNanoseconds}}};
    });
    json["outputs"] = listOf(plan.outputs, [](const PlannedOutput& output) {
        return Json{{"module", output.module}, {"path", output.path}, {"target", output.target}};
    });
    if (plan.order)
        json["order"] = Json{{"source", plan.order->source},
                             {"sorter", plan.order->sorter},
                             {"keys", plan.order->keys},
                             {"file", plan.order->file}};
    return json;
}

PlannedModule moduleOf(const Json& json)
{
    PlannedModule module;
    module.name = json.at("name").get<std::string>();
    module.stage =
        json.at("stage").get<int>() == static_cast<int>(Stage::parts) ? Stage::parts : Stage::merge;
    module.reason = json.at("reason").get<std::string>();
    return module;
}

PlannedInput inputOf(const Json& json)
{
    PlannedInput input;
    input.path = json.at("path").get<std::string>();
    input.bytes = json.at("bytes").get<int64_t>();
    input.modifiedSeconds = json.at("modified").at(0).get<int64_t>();
    input.modifiedNanoseconds = json.at("modified").at(1).get<int64_t>();
    return input;
}

Plan planOf(const Json& json)
{
    Plan plan;
    plan.vornVersion = json.at("vorn_version").get<std::string>();
    plan.vornHome = json.at("vorn_home").get<std::string>();
    plan.jobFile = json.at("job").get<std::string>();
    plan.jobPath = json.at("job_as_given").get<std::string>();
    plan.jobSha256 = json.at("job_sha256").get<std::string>();
    plan.settings = json.at("settings").get<std::vector<std::string>>();
    plan.moduleDirectories = json.at("module_directories").get<std::vector<std::string>>();
    plan.scratchDirectory = json.at("scratch_directory").get<std::string>();
    plan.scratchTraces = json.at("scratch_traces").get<std::string>();
    plan.workingDirectory = json.at("working_directory").get<std::string>();
    plan.cpuClass = json.at("cpu_class").get<std::string>();
    plan.portable = json.at("portable").get<bool>();
    plan.facts = json.at("facts").get<bool>();
    plan.lasting = json.value("lasting", true);
    plan.traces = json.at("traces").get<int64_t>();
    plan.parts = itemsOf<PlannedPart>(json.at("parts"), [](const Json& part) {
        return PlannedPart{part.at("first").get<int64_t>(), part.at("count").get<int64_t>()};
    });
    plan.modules = itemsOf<PlannedModule>(json.at("modules"), moduleOf);
    plan.spools = itemsOf<PlannedSpool>(json.at("spools"), [](const Json& spool) {
        return PlannedSpool{spool.at("module").get<int>(), spool.at("port").get<int>()};
    });
    plan.inputs = itemsOf<PlannedInput>(json.at("inputs"), inputOf);
    plan.outputs = itemsOf<PlannedOutput>(json.at("outputs"), [](const Json& output) {
        return PlannedOutput{output.at("module").get<std::string>(),
                             output.at("path").get<std::string>(),
                             output.at("target").get<std::string>()};
    });
    if (json.contains("order")) {
        const Json& order = json.at("order");
        plan.order = PlannedOrder{
            order.at("source").get<int>(), order.at("sorter").get<std::string>(),
            order.at("keys").get<std::vector<std::string>>(), order.at("file").get<std::string>()};
    }
    return plan;
}

std::string checksumOf(const Json& plan)
{
    return sha256Of(plan.dump());
}

[[noreturn]] void refuse(const std::string& path, const std::string& what)
{
    throw CommandError(
        fmt::format("the plan {} {}; make a new one with \"vorn plan\"", quote(path), what));
}

std::string readText(const std::string& directory, const std::string& path)
{
    std::error_code error;
    if (!fs::is_directory(directory, error))
        throw CommandError(quote(directory) +
                           " is not a directory; name one that \"vorn plan\" has made");
    if (!fs::exists(path, error))
        throw CommandError(fmt::format("{} has no {}, so that it is not a plan; name a directory "
                                       "that \"vorn plan\" has made",
                                       quote(directory), planFileName));
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file)
        throw CommandError(fmt::format("the plan {} cannot be read: {}", quote(path),
                                       std::strerror(errno != 0 ? errno : EIO)),
                           exitTryAgain);
    return text.str();
}

// ---- Changes ----

std::string timeText(int64_t seconds, int64_t nanoseconds)
{
    const auto time = static_cast<std::time_t>(seconds);
    std::tm local{};
    localtime_r(&time, &local);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return fmt::format("{}.{:09}", std::string(text, length), nanoseconds);
}

std::string inputText(const PlannedInput& input)
{
    return fmt::format("{}, changed at {}", counted(input.bytes, "byte"),
                       timeText(input.modifiedSeconds, input.modifiedNanoseconds));
}

bool isSame(const PlannedInput& a, const PlannedInput& b)
{
    return a.bytes == b.bytes && a.modifiedSeconds == b.modifiedSeconds &&
           a.modifiedNanoseconds == b.modifiedNanoseconds;
}

void addInputs(const Plan& plan, const Plan& now, std::vector<std::string>& changes)
{
    for (const PlannedInput& before : plan.inputs) {
        const auto same =
            std::find_if(now.inputs.begin(), now.inputs.end(),
                         [&](const PlannedInput& one) { return one.path == before.path; });
        if (same == now.inputs.end() || same->bytes < 0)
            changes.push_back(fmt::format("the input {} is gone; it had {}", quote(before.path),
                                          inputText(before)));
        else if (!isSame(before, *same))
            changes.push_back(fmt::format("the input {} had {}, and has {}", quote(before.path),
                                          inputText(before), inputText(*same)));
    }
}

} // namespace

void writePlan(const Plan& plan, const std::string& directory)
{
    const std::string path = pathOf(directory);
    std::string text;
    try {
        const Json content = jsonOf(plan);
        const Json json = {{"format", formatName},
                           {"format_version", formatVersion},
                           {"plan", content},
                           {"checksum", checksumOf(content)}};
        text = json.dump(1) + "\n";
    } catch (const Json::exception&) {
        throw CommandError("the plan " + quote(path) +
                           " cannot be written: the name of a file or directory of the job is not "
                           "UTF-8; rename it");
    }
    OwnFile file(path);
    if (!file.write(text))
        throw CommandError(
            fmt::format("the plan {} cannot be written: {}", quote(path), std::strerror(errno)),
            exitTryAgain);
    file.publish();
}

namespace {

// Whether the numbers in it fit together: what is read next relies on it.
bool isSound(const Plan& plan)
{
    int64_t end = 0;
    for (const PlannedPart& part : plan.parts) {
        if (part.first != end || part.count < 0)
            return false;
        end += part.count;
    }
    const auto isModule = [&](int module) {
        return module >= 0 && static_cast<std::size_t>(module) < plan.modules.size();
    };
    return end == plan.traces && (!plan.order || isModule(plan.order->source)) &&
           std::all_of(plan.spools.begin(), plan.spools.end(), [&](const PlannedSpool& spool) {
               return isModule(spool.module) && spool.port >= 0;
           });
}

} // namespace

StoredPlan readPlan(const std::string& directory)
{
    const std::string path = pathOf(directory);
    const std::string text = readText(directory, path);
    try {
        const Json json = Json::parse(text);
        if (json.at("format") != formatName)
            refuse(path, "is not a plan of vorn");
        if (json.at("format_version") != formatVersion)
            refuse(path, fmt::format("has the format version {}, and this vorn reads version {}",
                                     json.at("format_version").dump(), formatVersion));
        const Json& content = json.at("plan");
        StoredPlan stored;
        stored.plan = planOf(content);
        if (json.at("checksum") != checksumOf(content) || !isSound(stored.plan))
            refuse(path, "is damaged");
        stored.sha256 = sha256Of(text);
        return stored;
    } catch (const Json::exception&) {
        refuse(path, "is damaged or cut");
    }
}

std::string cpuClass()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") != 0)
        return "avx512";
    if (__builtin_cpu_supports("avx2") != 0)
        return "avx2";
    if (__builtin_cpu_supports("avx") != 0)
        return "avx";
    return "sse2";
#elif defined(__aarch64__)
    return "neon";
#else
    return "scalar";
#endif
}

void noteInputs(Plan& plan)
{
    for (PlannedInput& input : plan.inputs) {
        struct stat status = {};
        if (stat(input.path.c_str(), &status) == 0)
            input = {input.path, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
        else
            input = {input.path, -1, 0, 0};
    }
}

std::vector<std::string> differences(const Plan& plan, const Plan& now)
{
    std::vector<std::string> changes;
    if (plan.vornVersion != now.vornVersion)
        changes.push_back(fmt::format("the plan was made by vorn {}, and this is vorn {}",
                                      escaped(plan.vornVersion), escaped(now.vornVersion)));
    if (plan.vornHome != now.vornHome)
        changes.push_back(fmt::format("the modules were those in {}, and are those in {}",
                                      quote(plan.vornHome), quote(now.vornHome)));
    if (plan.jobFile != now.jobFile)
        changes.push_back(
            fmt::format("the job file was {}, and is {}", quote(plan.jobFile), quote(now.jobFile)));
    else if (plan.jobSha256 != now.jobSha256)
        changes.push_back(
            fmt::format("the job file {} has changed: its SHA-256 was {}, and {}",
                        quote(plan.jobFile), plan.jobSha256,
                        now.jobSha256.empty() ? "cannot be computed now" : "is " + now.jobSha256));
    addInputs(plan, now, changes);
    if (!plan.portable && plan.cpuClass != now.cpuClass)
        changes.push_back(fmt::format(
            "the plan was made on a machine with {} instructions, and this one has {}: results "
            "would differ in their last bits; use machines of one kind, or plan with --portable",
            escaped(plan.cpuClass), escaped(now.cpuClass)));
    return changes;
}

} // namespace host
