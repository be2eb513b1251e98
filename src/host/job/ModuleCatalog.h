/// @file ModuleCatalog.h
///
/// The modules that jobs can use: libNAME.so, and NAME.yaml beside it, in VORN_HOME/lib.
#ifndef MODULECATALOG_H
#define MODULECATALOG_H

#include <optional>
#include <string>
#include <vector>

namespace host {

/// The module tree: VORN_HOME where it is set, else the first of `places` that is one, else the one
/// that belongs to the running program, installed or in its build directory. Throws CommandError
/// when there is none.
std::string findVornHome(const std::vector<std::string>& places = {});

/// A module library, a manifest, or both.
struct CatalogModule
{
    std::string name;
    std::string library;  ///< absolute path; empty: there is a manifest only
    std::string manifest; ///< absolute path; empty: there is none
    /// Files of modules of the same name in later directories, which are not used.
    std::vector<std::string> hidden;
};

/// Which of several modules of one name is used, as one line; empty where there is only one.
std::string ambiguity(const CatalogModule& module);

/// The modules that were found; read once, when it is made.
class ModuleCatalog
{
public:
    /// Looks in `home`/lib, then in `directories`, in this order; the first of equal names counts.
    explicit ModuleCatalog(const std::string& home,
                           const std::vector<std::string>& directories = {});

    /// The module tree, as given.
    const std::string& home() const { return homeDirectory; }
    std::string libraryDirectory() const { return homeDirectory + "/lib"; }
    const std::vector<CatalogModule>& modules() const { return all; } ///< sorted by name
    const CatalogModule* find(const std::string& name) const;
    /// The names of all modules, sorted.
    std::vector<std::string> names() const;

    /// The library of `module` as the kernel wants it: a path relative to VORN_HOME/lib.
    std::string relativeLibrary(const CatalogModule& module) const;

private:
    void scan(const std::string& directory);

    std::string homeDirectory;
    std::vector<CatalogModule> all;
};

} // namespace host

#endif
