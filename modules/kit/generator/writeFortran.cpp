#include "Names.h"
#include "Writers.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <limits>
#include <stdexcept>

namespace generator {

namespace {

struct Member
{
    const Field* field = nullptr;
    std::string name;
    std::string word; // of a choice: the function that gives its words
    std::vector<std::string> enumerators;
};

std::vector<Member> membersOf(const std::string& module, const std::vector<Field>& fields)
{
    Names names(Names::Language::fortran);
    Names globals(Names::Language::fortran);
    // What the module names itself.
    globals.reserve(module);
    for (const char* used :
         {"parameters", "read_parameters", "c_double", "c_int", "c_int64_t", "vorn_describe",
          "vorn_kit", "vorn_parameter", "vorn_read", "vorn_read_choice", "vorn_text"})
        globals.reserve(used);
    std::vector<Member> members;
    for (const Field& field : fields) {
        members.push_back({&field, names.take(field.name), "", {}});
        if (field.kind != FieldKind::choice)
            continue;
        for (const std::string& word : field.words)
            members.back().enumerators.push_back(globals.take(field.name + "_" + identifier(word)));
    }
    for (Member& member : members) {
        if (member.field->kind == FieldKind::choice)
            member.word = globals.take(member.field->name + "_word");
    }
    return members;
}

// A literal, broken into lines that any compiler accepts. Bytes beyond ASCII stay as they are.
std::string quoted(const std::string& text)
{
    constexpr std::size_t longest = 60;
    std::string result = "'";
    std::size_t inLine = 0;
    for (const char c : text) {
        if (inLine >= longest) {
            result += "' // &\n        '";
            inLine = 0;
        }
        const auto byte = static_cast<unsigned char>(c);
        if (byte < ' ' || byte == 127) {
            result += fmt::format("' // achar({}) // '", byte);
            inLine += 20;
        } else {
            result += c == '\'' ? "''" : std::string(1, c);
            ++inLine;
        }
    }
    return result + "'";
}

// Nothing where there is no limit.
std::string real(double value)
{
    const std::string digits = fmt::format("{}", value);
    return (digits.find_first_of(".e") == std::string::npos ? digits + ".0" : digits) + "_c_double";
}

std::string wide(const std::string& digits)
{
    // The lowest number has no literal.
    return digits == std::to_string(std::numeric_limits<long long>::min())
               ? "(-huge(1_c_int64_t) - 1_c_int64_t)"
               : digits + "_c_int64_t";
}

std::string narrow(const std::string& digits)
{
    return digits == std::to_string(INT_MIN) ? "(-huge(1_c_int) - 1_c_int)" : digits + "_c_int";
}

std::string literal(const Field& field, const std::string& value)
{
    switch (field.kind) {
    case FieldKind::real:
    case FieldKind::realList:
        return real(std::strtod(value.c_str(), nullptr));
    case FieldKind::integer:
    case FieldKind::integerList:
        return narrow(value);
    case FieldKind::wideInteger:
    case FieldKind::wideIntegerList:
        return wide(value);
    case FieldKind::boolean:
        return value == "true" ? ".true." : ".false.";
    default:
        return quoted(value);
    }
}

std::string declaration(const Member& member)
{
    const auto scalar = [&](const std::string& type, const std::string& absent) {
        return type + (member.field->isOptional() ? ", allocatable :: " : " :: ") + member.name +
               (member.field->isOptional() ? "" : " = " + absent);
    };
    switch (member.field->kind) {
    case FieldKind::real:
        return scalar("real(c_double)", "0");
    case FieldKind::integer:
    case FieldKind::choice:
        return scalar("integer(c_int)", "0");
    case FieldKind::wideInteger:
        return scalar("integer(c_int64_t)", "0");
    case FieldKind::boolean:
        return scalar("logical", ".false.");
    case FieldKind::realList:
        return "real(c_double), allocatable :: " + member.name + "(:)";
    case FieldKind::integerList:
        return "integer(c_int), allocatable :: " + member.name + "(:)";
    case FieldKind::wideIntegerList:
        return "integer(c_int64_t), allocatable :: " + member.name + "(:)";
    case FieldKind::textList:
        return "type(vorn_text), allocatable :: " + member.name + "(:)";
    default:
        return "character(len=:), allocatable :: " + member.name;
    }
}

std::string declarations(const std::vector<Member>& members)
{
    std::string text;
    for (const Member& member : members) {
        text += "    !> " + member.field->comment() + ".\n";
        text += "    " + declaration(member) + "\n";
    }
    return text.empty() ? "    integer :: none = 0 ! the module has no parameters\n" : text;
}

std::string enumerations(const std::vector<Member>& members)
{
    std::string text;
    for (const Member& member : members) {
        if (member.field->kind != FieldKind::choice)
            continue;
        text += fmt::format("  ! Values of the parameter {}.\n", member.field->name);
        for (std::size_t i = 0; i < member.enumerators.size(); ++i)
            text += fmt::format("  integer(c_int), parameter, public :: {} = {}\n",
                                member.enumerators[i], i);
        text += fmt::format("  public :: {}\n\n", member.word);
    }
    return text;
}

std::string wordFunctions(const std::vector<Member>& members)
{
    std::string text;
    for (const Member& member : members) {
        if (member.field->kind != FieldKind::choice)
            continue;
        text += fmt::format(R"(
  !> The word of the job file for a value of the parameter {1}.
  pure function {0}(value) result(word)
    integer(c_int), intent(in) :: value
    character(len=:), allocatable :: word

    select case (value)
)",
                            member.word, member.field->name);
        for (std::size_t i = 0; i < member.enumerators.size(); ++i)
            text += fmt::format("    case ({})\n      word = {}\n", member.enumerators[i],
                                quoted(member.field->words[i]));
        text += fmt::format("    case default\n      word = ''\n    end select\n"
                            "  end function {}\n",
                            member.word);
    }
    return text;
}

// What holds until the job's value is read.
std::string setDefault(const Member& member)
{
    const Field& field = *member.field;
    const std::string target = "    values%" + member.name;
    if (field.kind == FieldKind::textList) {
        std::string text =
            fmt::format("    allocate (values%{}({}))\n", member.name, field.defaults.size());
        for (std::size_t i = 0; i < field.defaults.size(); ++i)
            text += fmt::format("    values%{}({})%text = &\n        {}\n", member.name, i + 1,
                                quoted(field.defaults[i]));
        return text;
    }
    if (isListKind(field.kind)) {
        std::string text =
            fmt::format("    allocate (values%{}({}))\n", member.name, field.defaults.size());
        for (std::size_t i = 0; i < field.defaults.size(); ++i)
            text += fmt::format("    values%{}({}) = {}\n", member.name, i + 1,
                                literal(field, field.defaults[i]));
        return text;
    }
    if (field.kind == FieldKind::text && !field.isOptional())
        return target + " = &\n        " +
               quoted(field.hasDefault ? field.defaults[0] : std::string()) + "\n";
    if (!field.hasDefault)
        return "";
    if (field.kind != FieldKind::choice)
        return target + " = " + literal(field, field.defaults[0]) + "\n";
    const auto word = std::find(field.words.begin(), field.words.end(), field.defaults[0]);
    return target + " = " +
           member.enumerators[static_cast<std::size_t>(word - field.words.begin())] + "\n";
}

std::string description(const Field& field)
{
    std::string text = fmt::format(
        "vorn_describe( &\n        {}, &\n        {}, &\n        {}", quoted(field.name),
        quoted(field.unit.empty() ? "" : " " + field.unit), quoted(field.expected));
    const auto add = [&](const std::string& name, const std::string& value) {
        text += ", &\n        " + name + "=" + value;
    };
    if (field.isRequired)
        add("is_required", ".true.");
    if (!std::isinf(field.least))
        add("least", real(field.least));
    if (!std::isinf(field.greatest))
        add("greatest", real(field.greatest));
    if (field.excludesLeast)
        add("excludes_least", ".true.");
    if (field.excludesGreatest)
        add("excludes_greatest", ".true.");
    if (field.leastCount > 0)
        add("least_count", std::to_string(field.leastCount));
    if (field.greatestCount < INT_MAX)
        add("greatest_count", std::to_string(field.greatestCount));
    return text + ")";
}

// The words as an array, whose elements have one length.
std::string wordArray(const Field& field)
{
    std::size_t longest = 1;
    for (const std::string& word : field.words)
        longest = std::max(longest, word.size());
    std::string text = fmt::format("[character(len={}) ::", longest);
    for (std::size_t i = 0; i < field.words.size(); ++i)
        text += (i > 0 ? "," : "") + std::string(" &\n        ") + quoted(field.words[i]);
    return text + "]";
}

// Names of Fortran begin with a letter.
std::string fortranPrefix(const std::string& file)
{
    return !file.empty() && file[0] == '_' ? "m" + file : file;
}

std::string scalarType(FieldKind kind)
{
    switch (kind) {
    case FieldKind::real:
        return "real(c_double)";
    case FieldKind::wideInteger:
        return "integer(c_int64_t)";
    case FieldKind::boolean:
        return "logical";
    default:
        return "integer(c_int)";
    }
}

std::string readCall(const Member& member)
{
    const Field& field = *member.field;
    const auto call = [&](const std::string& target) {
        if (field.kind == FieldKind::choice)
            return fmt::format("call vorn_read_choice(p, {}, {}, found, good)\n", wordArray(field),
                               target);
        if (field.kind == FieldKind::textList && !field.words.empty())
            return fmt::format("call vorn_read(p, {}, found, good, {})\n", target,
                               wordArray(field));
        return fmt::format("call vorn_read(p, {}, found, good)\n", target);
    };
    std::string text = "    p = " + description(field) + "\n";
    const bool isScalar = field.kind != FieldKind::text && !isListKind(field.kind);
    if (field.isOptional() && isScalar)
        text +=
            fmt::format(R"(    block
      {} :: value

      value = {}
      {}      if (found) values%{} = value
    end block
)",
                        scalarType(field.kind), field.kind == FieldKind::boolean ? ".false." : "0",
                        call("value"), member.name);
    else
        text += "    " + call("values%" + member.name);
    return text + "    if (.not. good) return\n";
}

} // namespace

std::vector<SourceFile> writeFortran(const std::string& module, const std::vector<Field>& fields)
{
    const std::string file = moduleIdentifier(module);
    const std::string prefix = fortranPrefix(file);
    const std::string name = prefix + "_parameters";
    if (name.size() > Names::longestInFortran)
        throw std::runtime_error(
            fmt::format("the name of the module {} is too long: {} has {} characters, and Fortran "
                        "takes {}",
                        module, name, name.size(), Names::longestInFortran));
    const std::vector<Member> members = membersOf(name, fields);
    std::string defaults, calls;
    for (const Member& member : members) {
        defaults += setDefault(member);
        calls += readCall(member);
    }
    const std::string body =
        members.empty()
            ? R"(    type(parameters), intent(out) :: values
    logical, intent(inout) :: good

    values%none = 0
    associate (unused => good)
    end associate
)"
            : R"(    use vorn_kit, only: vorn_describe, vorn_parameter, vorn_read, vorn_read_choice
    type(parameters), intent(out) :: values
    logical, intent(inout) :: good
    type(vorn_parameter) :: p
    logical :: found

    found = .false.
)" + defaults + calls;
    const std::string text = fmt::format(
        R"(! Made from the manifest of the module {1}, where changes belong.
module {0}_parameters
  use, intrinsic :: iso_c_binding, only: c_double, c_int, c_int64_t
  use vorn_kit, only: vorn_text
  implicit none
  private
  public :: parameters, read_parameters

{2}  !> Parameters of the module {1}.
  type :: parameters
{3}  end type parameters

contains

  !> Fills `values` with what the job gives the running module, and with defaults. `good` is false
  !> after a fatal message, and else stays as it is.
  subroutine read_parameters(values, good)
{4}  end subroutine read_parameters
{5}end module {0}_parameters
)",
        prefix, module, enumerations(members), declarations(members), body, wordFunctions(members));
    return {{file + "_parameters.f90", text}};
}

} // namespace generator
