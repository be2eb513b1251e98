#include "LibraryEntity.h"

LibraryEntity::LibraryEntity(const std::string& libType, const std::string& libPath)
    : libraryType(libType), libraryPath(libPath)
{
}

std::string LibraryEntity::getLibraryType() const
{
    return libraryType;
}

std::string LibraryEntity::getLibraryPath() const
{
    return libraryPath;
}

int LibraryEntity::setParameter(const std::string& name, const UniVar& value)
{
    libriParams[name] = value;
    return 1;
}

UniVar LibraryEntity::getParameter(const std::string& name)
{
    return libriParams[name];
}

bool LibraryEntity::isParameterPresent(const std::string& name) const
{
    return libriParams.contains(name);
}
