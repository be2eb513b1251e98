/// @file ModuleTemplates.h
///
/// The files of new modules, built into the command.
#ifndef MODULETEMPLATES_H
#define MODULETEMPLATES_H

#include <map>
#include <string>
#include <string_view>

namespace host {

/// Contents by path in the folder `templates` of the source tree ("c/filter.c").
const std::map<std::string, std::string_view>& moduleTemplates();

} // namespace host

#endif
