/// @file Assignment.h
///
/// Assignments to header words as they are typed. Independent of the kernel.
#ifndef ASSIGNMENT_H
#define ASSIGNMENT_H

#include "words/Expression.h"

#include <string>

namespace words {

/// "word = formula".
struct Assignment
{
    std::string word;
    Expression formula;
};

/// Throws std::runtime_error with the text and what is wrong with it.
Assignment parseAssignment(const std::string& text);

/// What stands before the name of a column in formulas that use a table.
inline const std::string columnPrefix = "table.";

} // namespace words

#endif
