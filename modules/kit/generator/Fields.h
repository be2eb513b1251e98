/// @file Fields.h
///
/// The parameters of a manifest as the writers of the three languages need them: limits and
/// defaults worked out, names still those of the manifest.
#ifndef FIELDS_H
#define FIELDS_H

#include "job/Manifest.h"

#include <string>
#include <vector>

namespace generator {

/// What is stored for a parameter.
enum class FieldKind
{
    real,
    integer,
    wideInteger, ///< 64 bits
    boolean,
    text, ///< also names of files
    choice,
    realList,
    integerList,
    wideIntegerList,
    textList
};

bool isListKind(FieldKind kind);

struct Field
{
    std::string name;
    FieldKind kind = FieldKind::text;
    std::string help;     ///< one line
    std::string unit;     ///< empty: none
    std::string expected; ///< for messages: "a number above 0"
    bool isRequired = false;
    bool hasDefault = false;
    double least = 0;    ///< or minus infinity
    double greatest = 0; ///< or infinity
    bool excludesLeast = false;
    bool excludesGreatest = false;
    int leastCount = 0;                ///< elements of a list
    int greatestCount = 0;             ///< likewise; INT_MAX: any
    std::vector<std::string> words;    ///< of a choice, or those that a list of texts is made of
    std::vector<std::string> defaults; ///< one, or the elements of a list

    /// Whether the job may leave it out, and nothing stands for it then. An absent list is empty.
    bool isOptional() const { return !isRequired && !hasDefault && !isListKind(kind); }

    /// "Length of the window (s)", and what stands for it when the job leaves it out.
    std::string comment() const;
};

/// The fields of a correct manifest.
std::vector<Field> fieldsOf(const host::Manifest& manifest);

} // namespace generator

#endif
