#include "Names.h"
#include "Writers.h"

#include <climits>
#include <cmath>
#include <fmt/format.h>
#include <limits>

namespace generator {

namespace {

// Of a field in the structure, beyond the field itself.
struct Member
{
    const Field* field = nullptr;
    std::string name;
    std::string presence; // of an optional field: the name of what says whether it is there
    std::string count;    // of a list
    std::string tag;      // of a choice: the enumeration
    std::string word;     // of a choice: the function that gives its words
    std::vector<std::string> enumerators;
};

std::string includeGuard(const std::string& prefix)
{
    return upperCase(prefix) + "_PARAMETERS_H";
}

std::vector<Member> membersOf(const std::string& prefix, const std::vector<Field>& fields)
{
    Names names(Names::Language::c);
    names.reserve("memory");
    std::vector<Member> members;
    members.reserve(fields.size());
    for (const Field& field : fields)
        members.push_back({&field, names.take(field.name), "", "", "", "", {}});
    Names globals(Names::Language::c);
    for (const std::string& used : {prefix + "_parameters", prefix + "_read_parameters",
                                    prefix + "_free_parameters", includeGuard(prefix)})
        globals.reserve(used);
    for (Member& member : members) {
        const Field& field = *member.field;
        if (field.isOptional())
            member.presence = names.take("has_" + field.name);
        if (isListKind(field.kind))
            member.count = names.take(field.name + "_count");
        if (field.kind != FieldKind::choice)
            continue;
        member.tag = globals.take(prefix + "_" + field.name + "_choice");
        member.word = globals.take(prefix + "_" + field.name + "_word");
        for (const std::string& word : field.words)
            member.enumerators.push_back(
                globals.take(upperCase(prefix + "_" + field.name + "_" + identifier(word))));
    }
    return members;
}

// Splits what would end the comment, and what would seem to begin another one.
std::string commentText(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        const char before = result.empty() ? ' ' : result.back();
        if ((before == '*' && c == '/') || (before == '/' && c == '*'))
            result += ' ';
        result += c;
    }
    return result;
}

std::string typeOf(const Member& member)
{
    switch (member.field->kind) {
    case FieldKind::real:
        return "double ";
    case FieldKind::integer:
        return "int ";
    case FieldKind::wideInteger:
        return "int64_t ";
    case FieldKind::boolean:
        return "bool ";
    case FieldKind::choice:
        return "enum " + member.tag + " ";
    case FieldKind::realList:
        return "const double* ";
    case FieldKind::integerList:
        return "const int* ";
    case FieldKind::wideIntegerList:
        return "const int64_t* ";
    case FieldKind::textList:
        return "const char* const* ";
    default:
        return "const char* ";
    }
}

std::string structure(const std::vector<Member>& members)
{
    std::string text;
    for (const Member& member : members) {
        text += "    /** " + commentText(member.field->comment()) + ". */\n";
        text += "    " + typeOf(member) + member.name + ";\n";
        if (!member.count.empty())
            text += "    int " + member.count + ";\n";
        if (!member.presence.empty())
            text += "    bool " + member.presence + ";\n";
    }
    return text;
}

std::string enumerations(const std::vector<Member>& members)
{
    std::string text;
    for (const Member& member : members) {
        if (member.field->kind != FieldKind::choice)
            continue;
        text += fmt::format("/** Values of the parameter {}. */\nenum {}\n{{\n", member.field->name,
                            member.tag);
        for (std::size_t i = 0; i < member.enumerators.size(); ++i)
            text += fmt::format("    {}{}\n", member.enumerators[i],
                                i + 1 < member.enumerators.size() ? "," : "");
        text += "};\n\n";
        text += fmt::format("/** The word of the job file. */\n"
                            "const char* {}(enum {} value);\n\n",
                            member.word, member.tag);
    }
    return text;
}

std::string wordFunctions(const std::vector<Member>& members)
{
    std::string text;
    for (std::size_t i = 0; i < members.size(); ++i) {
        if (members[i].field->kind == FieldKind::choice)
            text += fmt::format("const char* {}(enum {} value)\n{{\n"
                                "    return words_{}[(int)value];\n}}\n\n",
                                members[i].word, members[i].tag, i);
    }
    return text;
}

std::string header(const std::string& prefix, const std::string& module,
                   const std::vector<Member>& members)
{
    return fmt::format(R"(/* Made from the manifest of the module {1}, where changes belong. */
#ifndef {2}
#define {2}

#include "vorn_parameters.h"

{3}/** Parameters of the module {1}. Texts and lists stay until {0}_free_parameters(). */
typedef struct {0}_parameters
{{
{4}    vorn_memory memory; /**< of texts and lists */
}} {0}_parameters;

/** Fills `parameters` with what the job gives the running module, and with defaults. Returns false
 * after a fatal message; nothing needs to be freed then. */
bool {0}_read_parameters({0}_parameters* parameters);
/** Frees texts and lists; zero-filled parameters are accepted. */
void {0}_free_parameters({0}_parameters* parameters);

#endif
)",
                       prefix, commentText(module), includeGuard(prefix), enumerations(members),
                       structure(members));
}

std::string literal(const Field& field, const std::string& value)
{
    switch (field.kind) {
    case FieldKind::wideInteger:
    case FieldKind::wideIntegerList:
        return wideForC(value);
    case FieldKind::text:
    case FieldKind::textList:
        return quotedForC(value);
    default:
        return value;
    }
}

std::string elements(const Field& field)
{
    std::string text;
    for (const std::string& value : field.defaults)
        text += (text.empty() ? "" : ", ") + literal(field, value);
    return text;
}

// Arrays that the rows and the defaults refer to.
std::string arrays(const std::vector<Member>& members)
{
    std::string text;
    for (std::size_t i = 0; i < members.size(); ++i) {
        const Field& field = *members[i].field;
        if (!field.words.empty()) {
            text += fmt::format("static const char* const words_{}[] = {{", i);
            for (std::size_t k = 0; k < field.words.size(); ++k)
                text += (k > 0 ? ", " : "") + quotedForC(field.words[k]);
            text += "};\n";
        }
        if (isListKind(field.kind) && !field.defaults.empty()) {
            std::string type = typeOf(members[i]);
            type.resize(type.size() - 2); // without "* "
            text += fmt::format("static {} default_{}[] = {{{}}};\n", type, i, elements(field));
        }
    }
    return text;
}

std::string defaultOf(const Member& member, std::size_t i)
{
    const Field& field = *member.field;
    if (field.kind == FieldKind::text && !field.hasDefault)
        return fmt::format("    parameters->{} = \"\";\n", member.name);
    if (!field.hasDefault || (isListKind(field.kind) && field.defaults.empty()))
        return "";
    if (isListKind(field.kind))
        return fmt::format("    parameters->{} = default_{};\n    parameters->{} = {};\n",
                           member.name, i, member.count, field.defaults.size());
    if (field.kind != FieldKind::choice)
        return fmt::format("    parameters->{} = {};\n", member.name,
                           literal(field, field.defaults[0]));
    std::string enumerator;
    for (std::size_t k = 0; k < field.words.size(); ++k) {
        if (field.words[k] == field.defaults[0])
            enumerator = member.enumerators[k];
    }
    return fmt::format("    parameters->{} = {};\n", member.name, enumerator);
}

std::string readCall(const Member& member, std::size_t i)
{
    const Field& field = *member.field;
    const std::string target = "&parameters->" + member.name;
    const std::string given =
        member.presence.empty() ? "&given" : "&parameters->" + member.presence;
    const auto call = [&](const std::string& reader, const std::string& more) {
        return fmt::format("    if (!vorn_read_{}(&rows[{}], {}))\n        return false;\n", reader,
                           i, more);
    };
    const std::string list = "&parameters->memory, " + target + ", &parameters->" + member.count;
    switch (field.kind) {
    case FieldKind::real:
        return call("double", target + ", " + given);
    case FieldKind::integer:
        return call("int", target + ", " + given);
    case FieldKind::wideInteger:
        return call("int64", target + ", " + given);
    case FieldKind::boolean:
        return call("bool", target + ", " + given);
    case FieldKind::text:
        return call("text", "&parameters->memory, " + target + ", " + given);
    case FieldKind::choice:
        return fmt::format("    word = (int)parameters->{};\n", member.name) +
               call("choice", "&word, " + given) +
               fmt::format("    parameters->{} = (enum {})word;\n", member.name, member.tag);
    case FieldKind::realList:
        return call("doubles", list);
    case FieldKind::integerList:
        return call("ints", list);
    case FieldKind::wideIntegerList:
        return call("int64s", list);
    case FieldKind::textList:
        return call("texts", list);
    }
    return "";
}

std::string source(const std::string& prefix, const std::string& module,
                   const std::vector<Member>& members)
{
    std::string rows, defaults, calls;
    for (std::size_t i = 0; i < members.size(); ++i) {
        const Field& field = *members[i].field;
        const std::string words = field.words.empty() ? "NULL" : fmt::format("words_{}", i);
        rows += "    " + descriptionForC(field, words) + ",\n";
        defaults += defaultOf(members[i], i);
        calls += readCall(members[i], i);
    }
    if (!rows.empty())
        rows = "static const vorn_parameter rows[] = {\n" + rows + "};\n\n";
    return fmt::format(R"(/* Made from the manifest of the module {1}, where changes belong. */
#include "{0}_parameters.h"

{2}
{3}{6}static void set_defaults({0}_parameters* parameters)
{{
    memset(parameters, 0, sizeof *parameters);
{4}}}

static bool read_all({0}_parameters* parameters)
{{
    bool given = false;
    int word = 0;

    (void)parameters;
    (void)given;
    (void)word;
{5}    return true;
}}

bool {0}_read_parameters({0}_parameters* parameters)
{{
    set_defaults(parameters);
    if (read_all(parameters))
        return true;
    {0}_free_parameters(parameters);
    return false;
}}

void {0}_free_parameters({0}_parameters* parameters)
{{
    vorn_free_memory(&parameters->memory);
}}
)",
                       prefix, commentText(module), arrays(members), rows, defaults, calls,
                       wordFunctions(members));
}

} // namespace

std::string quotedForC(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        // Three octal digits end an escape whatever follows; "?" might begin a trigraph.
        if (c == '"' || c == '\\' || c == '?')
            quoted += std::string("\\") + c;
        else if (byte < ' ' || byte >= 127)
            quoted += fmt::format("\\{:03o}", byte);
        else
            quoted += c;
    }
    return quoted + "\"";
}

std::string realForC(double value)
{
    if (std::isinf(value))
        return value > 0 ? "INFINITY" : "-INFINITY";
    const std::string digits = fmt::format("{}", value);
    return digits.find_first_of(".e") == std::string::npos ? digits + ".0" : digits;
}

std::string wideForC(const std::string& digits)
{
    // The lowest number has no literal.
    return digits == std::to_string(std::numeric_limits<long long>::min()) ? "INT64_MIN"
                                                                           : digits + "LL";
}

std::string descriptionForC(const Field& field, const std::string& words)
{
    const auto boolean = [](bool value) { return value ? "true" : "false"; };
    const auto count = [](int value) {
        return value == INT_MAX ? std::string("INT_MAX") : std::to_string(value);
    };
    return fmt::format("{{{}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}}}", quotedForC(field.name),
                       quotedForC(field.unit.empty() ? "" : " " + field.unit),
                       quotedForC(field.expected), boolean(field.isRequired), realForC(field.least),
                       realForC(field.greatest), boolean(field.excludesLeast),
                       boolean(field.excludesGreatest), count(field.leastCount),
                       count(field.greatestCount), words, field.words.size());
}

std::vector<SourceFile> writeC(const std::string& module, const std::vector<Field>& fields)
{
    const std::string prefix = moduleIdentifier(module);
    const std::vector<Member> members = membersOf(prefix, fields);
    return {{prefix + "_parameters.h", header(prefix, module, members)},
            {prefix + "_parameters.c", source(prefix, module, members)}};
}

} // namespace generator
