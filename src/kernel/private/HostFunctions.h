/// @file HostFunctions.h
///
/// Private to the kernel: the functions of the host that are the entry points of modules.
#ifndef HOSTFUNCTIONS_H
#define HOSTFUNCTIONS_H

class ModuleEntity;

namespace host_functions {

/// Drops the functions of a module that ends; nothing for other modules.
void forget(const ModuleEntity* module);

/// Whether one of them is being called; a host may call them outside the phases, too.
bool areRunning() noexcept;

} // namespace host_functions

#endif
