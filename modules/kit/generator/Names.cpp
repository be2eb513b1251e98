#include "Names.h"

#include <algorithm>
#include <cctype>

namespace generator {

namespace {

// Keywords, and names that usual headers define as macros.
constexpr const char* wordsOfC[] = {"auto",
                                    "break",
                                    "case",
                                    "char",
                                    "const",
                                    "continue",
                                    "default",
                                    "do",
                                    "double",
                                    "else",
                                    "enum",
                                    "extern",
                                    "float",
                                    "for",
                                    "goto",
                                    "if",
                                    "inline",
                                    "int",
                                    "long",
                                    "register",
                                    "restrict",
                                    "return",
                                    "short",
                                    "signed",
                                    "sizeof",
                                    "static",
                                    "struct",
                                    "switch",
                                    "typedef",
                                    "typeof",
                                    "union",
                                    "unsigned",
                                    "void",
                                    "volatile",
                                    "while",
                                    "alignas",
                                    "alignof",
                                    "bool",
                                    "constexpr",
                                    "false",
                                    "nullptr",
                                    "static_assert",
                                    "thread_local",
                                    "true",
                                    "asm",
                                    "typeof_unqual",
                                    "NULL",
                                    "EOF",
                                    "INFINITY",
                                    "NAN",
                                    "HUGE_VAL",
                                    "errno",
                                    "stdin",
                                    "stdout",
                                    "stderr",
                                    "unix",
                                    "linux",
                                    "i386",
                                    "I",
                                    "complex",
                                    "imaginary",
                                    "assert",
                                    "offsetof",
                                    "noreturn",
                                    "BUFSIZ",
                                    "RAND_MAX",
                                    "EXIT_FAILURE",
                                    "EXIT_SUCCESS",
                                    "INT_MAX",
                                    "INT_MIN",
                                    "M_PI",
                                    "SEEK_SET",
                                    "math_errhandling"};

constexpr const char* wordsOfCxx[] = {
    "and",       "and_eq",   "bitand",    "bitor",     "catch",        "char16_t",
    "char32_t",  "char8_t",  "class",     "co_await",  "co_return",    "co_yield",
    "compl",     "concept",  "consteval", "constinit", "const_cast",   "decltype",
    "delete",    "explicit", "export",    "friend",    "dynamic_cast", "mutable",
    "namespace", "new",      "noexcept",  "not",       "not_eq",       "operator",
    "or",        "or_eq",    "private",   "protected", "public",       "reinterpret_cast",
    "requires",  "template", "this",      "throw",     "static_cast",  "try",
    "typeid",    "typename", "using",     "virtual",   "wchar_t",      "xor",
    "xor_eq",    "std",      "signals",   "slots",     "emit",         "Q_OBJECT",
    "vorn_kit",  "int64_t"};

bool isLetterOrDigit(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 && static_cast<unsigned char>(c) < 128;
}

} // namespace

Names::Names(Language chosen) : language(chosen)
{
    if (language == Language::fortran)
        return; // it has no reserved words
    for (const char* word : wordsOfC)
        reserve(word);
    if (language == Language::c)
        return;
    for (const char* word : wordsOfCxx)
        reserve(word);
}

std::string Names::take(const std::string& wanted)
{
    std::string name = wanted;
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0])) != 0 || name[0] == '_')
        name = "p" + name;
    if (language == Language::fortran)
        name.resize(std::min(name.size(), longestInFortran));
    for (int i = 1; taken.count(folded(name)) > 0; ++i) {
        if (language != Language::fortran || name.size() < longestInFortran) {
            name += '_';
        } else {
            const std::string number = "_" + std::to_string(i);
            name.replace(longestInFortran - number.size(), number.size(), number);
        }
    }
    reserve(name);
    return name;
}

void Names::reserve(const std::string& name)
{
    taken.insert(folded(name));
}

std::string Names::folded(const std::string& name) const
{
    return language == Language::fortran ? upperCase(name) : name;
}

std::string identifier(const std::string& text)
{
    std::string name = text;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !isLetterOrDigit(c); }, '_');
    return name;
}

std::string moduleIdentifier(const std::string& module)
{
    const std::string name = identifier(module);
    const bool beginsWithDigit = !name.empty() && name[0] >= '0' && name[0] <= '9';
    return beginsWithDigit ? "_" + name : name;
}

std::string upperCase(const std::string& text)
{
    std::string upper = text;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return upper;
}

std::string camelCase(const std::string& text)
{
    std::string camel;
    bool atStart = true;
    for (const char c : text) {
        if (c == '_') {
            atStart = true;
            continue;
        }
        camel += atStart ? upperCase(std::string(1, c)) : std::string(1, c);
        atStart = false;
    }
    return camel;
}

} // namespace generator
