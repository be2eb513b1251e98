// The job's trace attribute definitions.
#include "JobManager.h"

namespace {

constexpr int notDefined = -1;

void assign(int* output, int value)
{
    if (output != nullptr)
        *output = value;
}

int fieldOf(const trAttDefStr* definition, int trAttDefStr::*field)
{
    return definition != nullptr ? definition->*field : notDefined;
}

} // namespace

const trAttDefStr* JobManager::findDefinition(const std::string& name) const
{
    const auto definition = trAttDefsList.find(name);
    return definition != trAttDefsList.end() ? &definition->second : nullptr;
}

void JobManager::addTraceAttributeDefinition(const std::string& name, int type, int dim,
                                             const std::string& descr, int cstSlot, int bitA,
                                             int bitZ, int cstType, int mapCoef)
{
    trAttDefsList[name] = trAttDefStr{type, dim, descr, cstSlot, cstType, bitA, bitZ, mapCoef};
}

int JobManager::getTraceAttributeType(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::type);
}

int JobManager::getTraceAttributeDimension(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::dim);
}

int JobManager::getTraceAttributeCstSlot(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::cstSlot);
}

int JobManager::getTraceAttributeBitA(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::bitA);
}

int JobManager::getTraceAttributeBitZ(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::bitZ);
}

int JobManager::getTraceAttributeCstType(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::cstType);
}

int JobManager::getTraceAttributeMapCoef(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::mapCoef);
}

std::string JobManager::getTraceAttributeDescription(const std::string& name) const
{
    const trAttDefStr* definition = findDefinition(name);
    return definition != nullptr ? definition->descr : std::string();
}

int JobManager::getTraceAttributeDef(const std::string& name, int* type, int* dim, int* cstSlot,
                                     int* bitA, int* bitZ, int* cstType, int* mapCoef) const
{
    const trAttDefStr* definition = findDefinition(name);
    assign(type, fieldOf(definition, &trAttDefStr::type));
    assign(dim, fieldOf(definition, &trAttDefStr::dim));
    assign(cstSlot, fieldOf(definition, &trAttDefStr::cstSlot));
    assign(bitA, fieldOf(definition, &trAttDefStr::bitA));
    assign(bitZ, fieldOf(definition, &trAttDefStr::bitZ));
    assign(cstType, fieldOf(definition, &trAttDefStr::cstType));
    assign(mapCoef, fieldOf(definition, &trAttDefStr::mapCoef));
    return definition != nullptr ? 1 : notDefined;
}
