#include "file/PartOutputs.h"

#include "file/FileIdentity.h"

#include <map>
#include <mutex>
#include <utility>

namespace VORN {

namespace {

struct Announced
{
    std::mutex mutex;
    std::map<std::string, PartOutput> outputs; // by canonical path
};

Announced& announced()
{
    static Announced all;
    return all;
}

void announce(const std::string& path, PartOutput output)
{
    Announced& all = announced();
    const std::lock_guard<std::mutex> lock(all.mutex);
    all.outputs[canonicalPath(path)] = std::move(output);
}

} // namespace

void setPartOutput(const std::string& path, const std::string& target, int64_t firstTrace)
{
    announce(path, {target, false, firstTrace});
}

void setWholeOutput(const std::string& path, const std::string& target)
{
    announce(path, {target, true, 0});
}

void clearPartOutputs()
{
    Announced& all = announced();
    const std::lock_guard<std::mutex> lock(all.mutex);
    all.outputs.clear();
}

std::optional<PartOutput> findPartOutput(const std::string& path)
{
    Announced& all = announced();
    const std::lock_guard<std::mutex> lock(all.mutex);
    const auto found =
        all.outputs.empty() ? all.outputs.end() : all.outputs.find(canonicalPath(path));
    return found == all.outputs.end() ? std::nullopt : std::optional(found->second);
}

} // namespace VORN
