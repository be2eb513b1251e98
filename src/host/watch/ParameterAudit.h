/// @file ParameterAudit.h
///
/// What a module's code reads and writes by name, compared with what its manifest declares:
/// parameters and trace attributes.
#ifndef PARAMETERAUDIT_H
#define PARAMETERAUDIT_H

#include "UniVar.h"
#include "job/ResolvedJob.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace host {

/// What is wrong, as a sentence; empty: nothing is.
struct AuditResult
{
    const char* kind = "";
    std::string text;
};

/// Of one module of a job. Without a manifest there is nothing to compare with.
class ParameterAudit
{
public:
    explicit ParameterAudit(const ResolvedModule& module);

    /// The module has asked for parameter `name` by `function` ("knl_getI32ModuleParameter", or
    /// empty where that is not known); `value` is null where the job does not give it.
    AuditResult readParameter(const std::string& name, const std::string& function,
                              const UniVar* value);
    /// Whether readParameter() is to see the next getter of this name, too: of lists all are, since
    /// a module may try one type after the other.
    bool wantsGetter(const std::string& name) const;
    /// Arrays that were asked for as another type than theirs, and never as theirs.
    std::vector<AuditResult> unfitArrays() const;
    /// The declared parameters that it has not asked for.
    std::vector<std::string> unreadParameters() const;

    /// The module has asked for an attribute that its trace set does not have.
    AuditResult readMissingAttribute(const std::string& name) const;
    /// The module has written an attribute.
    AuditResult writeAttribute(const std::string& name) const;

private:
    bool isNamedByParameter(const std::string& word) const;

    const ResolvedModule& module;
    std::set<std::string> read;
    std::set<std::string> fetched;            ///< by a getter
    std::map<std::string, AuditResult> unfit; ///< arrays by parameter; no text: one getter did fit
};

} // namespace host

#endif
