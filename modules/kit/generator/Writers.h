/// @file Writers.h
///
/// The sources that read the parameters of a module, in each language.
#ifndef WRITERS_H
#define WRITERS_H

#include "Fields.h"

#include <string>
#include <vector>

namespace generator {

struct SourceFile
{
    std::string name;
    std::string text;
};

/// MODULE_parameters.h and .c: a structure, a function that fills it, one that frees it.
std::vector<SourceFile> writeC(const std::string& module, const std::vector<Field>& fields);
/// MODULE_parameters.hpp and .cpp: a structure and a function that returns it, in a namespace of
/// the file's name.
std::vector<SourceFile> writeCxx(const std::string& module, const std::vector<Field>& fields);
/// MODULE_parameters.f90: a module of that name, with a type and a subroutine that fills it. Where
/// the name begins with "_" or a digit, the module's begins with "m_". Throws std::runtime_error
/// for a name that is too long for Fortran.
std::vector<SourceFile> writeFortran(const std::string& module, const std::vector<Field>& fields);

/// A literal of C and C++ for any bytes.
std::string quotedForC(const std::string& text);
/// A floating-point literal or constant expression of C and C++ for any double.
std::string realForC(double value);
/// The row of the table that describes a field to vorn_parameters.h; `words` is the name of the
/// array of its words, or "NULL".
std::string descriptionForC(const Field& field, const std::string& words);
/// A 64-bit literal of C and C++ for a whole number that has been checked.
std::string wideForC(const std::string& digits);

} // namespace generator

#endif
