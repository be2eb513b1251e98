/// @file assignments.h
///
/// Assignments to header words as they are typed. Independent of the kernel.
#ifndef ASSIGNMENTS_H
#define ASSIGNMENTS_H

#include "words/Expression.h"

#include <string>

/// "word = formula".
struct Assignment
{
    std::string word;
    words::Expression formula;
};

/// Throws std::runtime_error with the text and what is wrong with it.
Assignment parseAssignment(const std::string& text);

#endif
