#include "watch/ParameterAudit.h"

#include "base/Escaping.h"
#include "base/Suggestions.h"
#include "base/Text.h"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <utility>

namespace host {

namespace {

// What a getter gives: the part of its name between "get" or "copy" and "ModuleParameter", in lower
// case ("i32", "f64array", "str"); empty for other functions.
struct Getter
{
    std::string type;
    bool copies = false; ///< element by element, converted
};

Getter getterOf(const std::string& function)
{
    std::string name = lowerCase(function);
    const std::size_t end = name.find("moduleparameter");
    if (!name.starts_with("knl_") || end == std::string::npos)
        return {};
    name = name.substr(4, end - 4);
    for (const std::string_view verb : {"get", "copy"}) {
        if (name.starts_with(verb))
            return {name.substr(verb.size()), verb == "copy"};
    }
    return {};
}

UniVarType arrayTypeOf(const std::string& type)
{
    if (type == "i32array")
        return int32ArrayType;
    if (type == "i64array")
        return int64ArrayType;
    return type == "f32array" ? float32ArrayType : float64ArrayType;
}

const char* arrayName(UniVarType type)
{
    switch (type) {
    case int32ArrayType:
        return "I32";
    case int64ArrayType:
        return "I64";
    case float32ArrayType:
        return "F32";
    default:
        return "F64";
    }
}

bool isIntegerGetter(const Getter& getter)
{
    return getter.type == "i32" || getter.type == "i64";
}

bool isRealGetter(const Getter& getter)
{
    return getter.type == "f32" || getter.type == "f64";
}

// What happens with a parameter of this type, and what to call; empty where the getter fits.
std::string misfit(const ParameterSpec& spec, const Getter& getter, const UniVar* value)
{
    const bool isArray = getter.type.ends_with("array");
    switch (spec.type) {
    case ParameterType::integer:
    case ParameterType::boolean:
        if (isIntegerGetter(getter) || isRealGetter(getter))
            return "";
        return getter.type == "str" ? "gives digits as text; read it by an I32 or I64 getter"
                                    : "gives nothing; read it by an I32 or I64 getter";
    case ParameterType::real:
        if (isRealGetter(getter))
            return "";
        return isIntegerGetter(getter) ? "cuts off the fraction; read it by an F32 or F64 getter"
               : getter.type == "str"  ? "gives digits as text; read it by an F32 or F64 getter"
                                       : "gives nothing; read it by an F32 or F64 getter";
    case ParameterType::integerList:
    case ParameterType::realList:
        if (isArray) {
            return value == nullptr || value->getType() == arrayTypeOf(getter.type)
                       ? ""
                       : fmt::format("gives nothing: the list comes as {} numbers; read it by the "
                                     "getter of that type, or by one that copies and converts",
                                     arrayName(value->getType()));
        }
        if (getter.copies && (spec.type == ParameterType::integerList || isRealGetter(getter)))
            return "";
        return getter.copies ? "cuts off the fractions; copy F32 or F64 numbers"
                             : "gives no list; read it by an array getter, or by one that copies";
    default:
        return getter.type == "str" ? "" : "gives 0; read it by a Str getter";
    }
}

} // namespace

ParameterAudit::ParameterAudit(const ResolvedModule& audited) : module(audited) {}

AuditResult ParameterAudit::readParameter(const std::string& name, const std::string& function,
                                          const UniVar* value)
{
    read.insert(name);
    if (module.manifest == nullptr)
        return {};
    const ParameterSpec* spec = module.manifest->find(name);
    if (spec == nullptr)
        return {"undeclared_parameter",
                fmt::format("reads the parameter {}, which its manifest does not declare{}",
                            quote(name),
                            suggestion(name, module.manifest->parameterNames(), "it declares"))};
    const Getter getter = getterOf(function);
    if (getter.type.empty())
        return {};
    fetched.insert(name);
    const std::string wrong = misfit(*spec, getter, value);
    if (wrong.empty()) {
        if (isListType(spec->type))
            unfit[name] = {};
        return {};
    }
    AuditResult result = {"wrong_getter",
                          fmt::format("reads the parameter {}, of type {}, by {}, which {}",
                                      quote(name), parameterTypeName(spec->type), function, wrong)};
    if (!getter.type.ends_with("array") || !isListType(spec->type))
        return result;
    unfit.try_emplace(name, std::move(result));
    return {};
}

bool ParameterAudit::wantsGetter(const std::string& name) const
{
    const ParameterSpec* spec = module.manifest != nullptr ? module.manifest->find(name) : nullptr;
    return fetched.count(name) == 0 || (spec != nullptr && isListType(spec->type));
}

std::vector<AuditResult> ParameterAudit::unfitArrays() const
{
    std::vector<AuditResult> results;
    for (const auto& [name, result] : unfit) {
        if (!result.text.empty())
            results.push_back(result);
    }
    return results;
}

std::vector<std::string> ParameterAudit::unreadParameters() const
{
    std::vector<std::string> names;
    if (module.manifest == nullptr)
        return names;
    for (const std::string& name : module.manifest->parameterNames()) {
        if (read.count(name) == 0)
            names.push_back(name);
    }
    return names;
}

AuditResult ParameterAudit::readMissingAttribute(const std::string& name) const
{
    const auto isDeclared = [&](const Manifest& manifest) {
        return std::find(manifest.reads.begin(), manifest.reads.end(), name) !=
               manifest.reads.end();
    };
    if ((module.manifest != nullptr && isDeclared(*module.manifest)) || isNamedByParameter(name))
        return {};
    return {"missing_attribute",
            fmt::format("reads the trace attribute {}, which no module before it writes and the "
                        "schema of the job does not define: it reads as nothing; correct the name, "
                        "or declare it under \"reads\" of the manifest where it may be missing",
                        quote(name))};
}

AuditResult ParameterAudit::writeAttribute(const std::string& name) const
{
    if (module.manifest == nullptr)
        return {};
    const auto& writes = module.manifest->writes;
    const bool isDeclared = std::any_of(writes.begin(), writes.end(),
                                        [&](const AttributeSpec& one) { return one.name == name; });
    if (isDeclared || isNamedByParameter(name))
        return {};
    return {"undeclared_attribute",
            fmt::format("writes the trace attribute {}, which its manifest does not name under "
                        "\"writes\": the check of jobs and the modules behind rely on that",
                        quote(name))};
}

// Formulas, maps of words and lists have names in the middle of other text.
bool ParameterAudit::isNamedByParameter(const std::string& word) const
{
    const auto isPart = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
    };
    for (const ResolvedParameter& parameter : module.parameters) {
        const std::string& text = parameter.value.text;
        for (std::size_t at = text.find(word); at != std::string::npos;
             at = text.find(word, at + 1)) {
            const std::size_t end = at + word.size();
            if ((at == 0 || !isPart(text[at - 1])) && (end == text.size() || !isPart(text[end])))
                return true;
        }
    }
    return false;
}

} // namespace host
