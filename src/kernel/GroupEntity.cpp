#include "GroupEntity.h"

GroupEntity::GroupEntity(int numOccurences)
{
    setNumberOfOccurences(numOccurences);
}

int GroupEntity::getSize() const
{
    return static_cast<int>(groupParams.size());
}

void GroupEntity::setNumberOfOccurences(int numOccurences)
{
    if (getSize() <= numOccurences)
        groupParams.resize(static_cast<size_t>(numOccurences) + 1);
}

int GroupEntity::setParameter(const std::string& name, int index, const UniVar& value)
{
    if (index < 0)
        return 0;
    setNumberOfOccurences(index);
    groupParams[static_cast<size_t>(index)][name] = value;
    return 1;
}

UniVar GroupEntity::getParameter(const std::string& name, int index)
{
    if (index < 0)
        return UniVar();
    setNumberOfOccurences(index);
    return groupParams[static_cast<size_t>(index)][name];
}

bool GroupEntity::isParameterPresent(const std::string& name, int index) const
{
    if (index < 0 || index >= getSize())
        return false;
    return groupParams[static_cast<size_t>(index)].contains(name);
}
