#include "Names.h"
#include "Writers.h"

#include <fmt/format.h>

namespace generator {

namespace {

struct Member
{
    const Field* field = nullptr;
    std::string name;
    std::string type; // without std::optional
    std::vector<std::string> enumerators;
};

std::string typeOf(const Field& field)
{
    switch (field.kind) {
    case FieldKind::real:
        return "double";
    case FieldKind::integer:
        return "int";
    case FieldKind::wideInteger:
        return "std::int64_t";
    case FieldKind::boolean:
        return "bool";
    case FieldKind::realList:
        return "std::vector<double>";
    case FieldKind::integerList:
        return "std::vector<int>";
    case FieldKind::wideIntegerList:
        return "std::vector<std::int64_t>";
    case FieldKind::textList:
        return "std::vector<std::string>";
    default:
        return "std::string";
    }
}

std::string includeGuard(const std::string& prefix)
{
    return upperCase(prefix) + "_PARAMETERS_HPP";
}

std::vector<Member> membersOf(const std::string& prefix, const std::vector<Field>& fields)
{
    Names names(Names::Language::cxx); // of members and of types: neither may hide the other
    names.reserve(includeGuard(prefix));
    for (const char* used : {"Parameters", "readParameters", "wordOf", "rows"})
        names.reserve(used);
    std::vector<Member> members;
    members.reserve(fields.size());
    for (const Field& field : fields)
        members.push_back({&field, names.take(field.name), typeOf(field), {}});
    for (Member& member : members) {
        if (member.field->kind != FieldKind::choice)
            continue;
        member.type = names.take(camelCase(member.field->name));
        Names enumerators(Names::Language::cxx);
        enumerators.reserve(includeGuard(prefix));
        for (const std::string& word : member.field->words)
            member.enumerators.push_back(enumerators.take(identifier(word)));
    }
    return members;
}

// A line comment must not end with a backslash, which would take the next line along.
std::string commentText(std::string text)
{
    for (char& c : text) {
        if (c == '\\')
            c = '/';
    }
    return text;
}

std::string literal(const Field& field, const std::string& value)
{
    switch (field.kind) {
    case FieldKind::wideInteger:
    case FieldKind::wideIntegerList:
        return wideForC(value);
    case FieldKind::text:
    case FieldKind::textList:
        // The length is stated, so that bytes of all kinds arrive.
        return fmt::format("std::string({}, {})", quotedForC(value), value.size());
    default:
        return value;
    }
}

std::string initializer(const Member& member)
{
    const Field& field = *member.field;
    if (field.isOptional())
        return "";
    if (isListKind(field.kind)) {
        std::string elements;
        for (const std::string& value : field.defaults)
            elements += (elements.empty() ? "" : ", ") + literal(field, value);
        return elements.empty() ? "" : " = {" + elements + "}";
    }
    if (field.kind == FieldKind::choice) {
        std::string enumerator = member.enumerators.front();
        for (std::size_t i = 0; field.hasDefault && i < field.words.size(); ++i) {
            if (field.words[i] == field.defaults[0])
                enumerator = member.enumerators[i];
        }
        return " = " + member.type + "::" + enumerator;
    }
    if (field.hasDefault)
        return " = " + literal(field, field.defaults[0]);
    return field.kind == FieldKind::text      ? ""
           : field.kind == FieldKind::boolean ? " = false"
                                              : " = 0";
}

std::string header(const std::string& prefix, const std::string& module,
                   const std::vector<Member>& members)
{
    std::string enumerations, structure;
    for (const Member& member : members) {
        if (member.field->kind == FieldKind::choice) {
            enumerations += fmt::format("/// Values of the parameter {}.\nenum class {}\n{{\n",
                                        member.field->name, member.type);
            for (const std::string& enumerator : member.enumerators)
                enumerations += "    " + enumerator + ",\n";
            enumerations += fmt::format("}};\n\n/// The word of the job file.\n"
                                        "const char* wordOf({} value);\n\n",
                                        member.type);
        }
        const std::string type =
            member.field->isOptional() ? "std::optional<" + member.type + ">" : member.type;
        structure +=
            fmt::format("    /// {}.\n    {} {}{};\n", commentText(member.field->comment()), type,
                        member.name, initializer(member));
    }
    return fmt::format(R"(// Made from the manifest of the module {1}, where changes belong.
#ifndef {2}
#define {2}

#include "vorn_parameters.hpp"

namespace {0}_parameters {{

{3}/// Parameters of the module {1}.
struct Parameters
{{
{4}}};

/// What the job gives the running module, and defaults. Throws vorn_kit::Failed after a fatal
/// message.
Parameters readParameters();

}} // namespace {0}_parameters

#endif
)",
                       prefix, commentText(module), includeGuard(prefix), enumerations, structure);
}

std::string source(const std::string& prefix, const std::string& module,
                   const std::vector<Member>& members)
{
    std::string words, wordFunctions, rows, calls;
    for (std::size_t i = 0; i < members.size(); ++i) {
        const Field& field = *members[i].field;
        if (!field.words.empty()) {
            words += fmt::format("const char* const words_{}[] = {{", i);
            for (std::size_t k = 0; k < field.words.size(); ++k)
                words += (k > 0 ? ", " : "") + quotedForC(field.words[k]);
            words += "};\n";
        }
        if (field.kind == FieldKind::choice)
            wordFunctions += fmt::format("const char* wordOf({} value)\n{{{{\n"
                                         "    return words_{}[static_cast<int>(value)];\n}}}}\n\n",
                                         members[i].type, i);
        rows +=
            "    " +
            descriptionForC(field, field.words.empty() ? "nullptr" : fmt::format("words_{}", i)) +
            ",\n";
        calls += fmt::format("    vorn_kit::readParameter(rows[{}], parameters.{});\n", i,
                             members[i].name);
    }
    if (!rows.empty())
        rows = "const vorn_parameter rows[] = {\n" + rows + "};\n";
    return fmt::format(R"(// Made from the manifest of the module {1}, where changes belong.
#include "{0}_parameters.hpp"

namespace {0}_parameters {{

namespace {{

{2}{3}
}} // namespace

{5}Parameters readParameters()
{{
    Parameters parameters;
{4}    return parameters;
}}

}} // namespace {0}_parameters
)",
                       prefix, commentText(module), words, rows, calls, wordFunctions);
}

} // namespace

std::vector<SourceFile> writeCxx(const std::string& module, const std::vector<Field>& fields)
{
    const std::string prefix = moduleIdentifier(module);
    const std::vector<Member> members = membersOf(prefix, fields);
    return {{prefix + "_parameters.hpp", header(prefix, module, members)},
            {prefix + "_parameters.cpp", source(prefix, module, members)}};
}

} // namespace generator
