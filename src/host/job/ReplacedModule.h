/// @file ReplacedModule.h
///
/// A source or a sink of the application in the place of a module of a job file.
#ifndef REPLACEDMODULE_H
#define REPLACEDMODULE_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

class ModuleEntity;

namespace host {

struct ResolvedAttribute;

/// What stands for the library, the parameters and the ports of the module. A source has one output
/// and no input, a sink one input and no output.
struct ReplacedModule
{
    bool isSource = false;
    std::vector<std::string> words;    ///< header words that it gives or takes
    std::vector<std::string> problems; ///< of its data, one sentence each; makes it unusable
    const void* storage = nullptr;     ///< where a sink puts its traces; null: nowhere
    /// Called before each run, also one that is then refused. May be empty.
    std::function<void()> begin;
    /// What is wrong with the values that a source has for a word of the job; "" when nothing is.
    /// May be empty.
    std::function<std::string(const ResolvedAttribute& word)> problemOfWord;
    /// Makes the module and appends it to those of the kernel's job, which deletes it. Called once
    /// for each run.
    std::function<ModuleEntity*(const std::string& name)> make;
};

/// Shared by a job file and its runs; null: the module is the one of the job file.
using ReplacedModulePointer = std::shared_ptr<const ReplacedModule>;

} // namespace host

#endif
