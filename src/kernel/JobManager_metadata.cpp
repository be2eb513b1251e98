// Metadata as modules see it: the job's map, the maps of the modules upstream, files and locks.
#include "JobManager.h"

#include "DataChannel.h"
#include "ModuleEntity.h"
#include "fileUtils.h"
#include "metadataprovider.h"
#include "private/JobRun.h"

namespace {

using MetaData = std::map<std::string, std::string>;

constexpr char additiveMark = '$';
constexpr char hiddenMark = '#';

// Throws std::out_of_range for an empty key, which has no last character.
bool isAdditive(const std::string& key)
{
    return key.at(key.size() - 1) == additiveMark;
}

// The producers of every input channel, in the order of channels and of attachment. One that feeds
// two channels stands there twice.
ModuleList upstreamOf(const ModuleEntity* module)
{
    ModuleList producers;
    for (const DataChannel* channel : module->inputDataChannels)
        producers.insert(producers.end(), channel->inputModules.begin(),
                         channel->inputModules.end());
    return producers;
}

ModuleEntity* pop(ModuleList& stack)
{
    ModuleEntity* module = stack.back();
    stack.pop_back();
    return module;
}

void append(MetaData& view, const std::string& key, const std::string& value)
{
    const auto [entry, fresh] = view.emplace(key, value);
    if (!fresh)
        entry->second += "\n" + value;
}

// `active` and everything upstream of it, once per path.
ModuleList sourcesOf(ModuleEntity* active)
{
    ModuleList sources{active};
    ModuleList stack{active};
    while (!stack.empty()) {
        for (ModuleEntity* producer : upstreamOf(pop(stack))) {
            sources.push_back(producer);
            stack.push_back(producer);
        }
    }
    return sources;
}

} // namespace

void JobManager::setMetaDataValue(int scope, const std::string& key, const std::string& value)
{
    if (scope == 0 || activeModule == nullptr)
        metaDataMap.emplace(key, value);
    else if (!key.empty() && key.front() != hiddenMark)
        activeModule->setMetaData(key, value);
}

void JobManager::setMetaDataOfRun(const std::string& key, const std::string& value)
{
    if (metaDataMap.find(key) != metaDataMap.end())
        return;
    JobRun::of(*this).runMetaData[key] = value;
    metaDataMap.emplace(key, value);
}

std::string JobManager::getMetaDataValue(int scope, const std::string& key)
{
    if (scope == 0 || activeModule == nullptr) {
        const auto entry = metaDataMap.find(key);
        return entry != metaDataMap.end() ? entry->second : std::string();
    }

    const bool additive = isAdditive(key);
    std::string result;
    ModuleList stack{activeModule};
    while (!stack.empty()) {
        for (ModuleEntity* producer : upstreamOf(pop(stack))) {
            const MetaData& values = producer->getMetaData();
            const auto entry = values.find(key);
            if (entry != values.end()) {
                if (!additive)
                    return entry->second;
                result += entry->second;
            }
            stack.push_back(producer);
        }
    }
    return result;
}

std::map<std::string, std::string> JobManager::getMetaDataValues(int scope)
{
    if (scope == 0 || activeModule == nullptr)
        return metaDataMap;

    MetaData view;
    for (const auto& [key, value] : metaDataMap) {
        if (!key.empty() && !isAdditive(key))
            view[key] = value;
    }
    const ModuleList sources = sourcesOf(activeModule);
    for (auto module = sources.rbegin(); module != sources.rend(); ++module) {
        for (const auto& [key, value] : (*module)->getMetaData()) {
            if (isAdditive(key))
                append(view, key, value);
            else
                view[key] = value;
        }
    }
    for (const auto& [key, value] : metaDataMap) {
        if (!key.empty() && isAdditive(key))
            append(view, key, value);
    }
    return view;
}

bool JobManager::storeExternalMetaData(const std::string& _file)
{
    return VORN::MetadataProvider::getInstance()->storeMetadata(_file, getMetaDataValues(1));
}

bool JobManager::loadExternalMetaData(const std::string& _file)
{
    return VORN::MetadataProvider::getInstance()->loadMetadata(
        _file, VORN::JobManagerUtils::storeModuleMetadata, nullptr);
}

int JobManager::lockFile(const std::string& nm, int lockMode)
{
    return VORN::FileLocksProvider::getInstance()->lockFile(nm, lockMode);
}

int JobManager::unlockFile(const std::string& nm, int lockMode)
{
    return VORN::FileLocksProvider::getInstance()->unlockFile(nm, lockMode);
}

namespace VORN::JobManagerUtils {

void storeModuleMetadata(void* /*ctx*/, const std::string& key, const std::string& val)
{
    JobManager::getInstance()->setMetaDataValue(1, key, val);
}

} // namespace VORN::JobManagerUtils
