/// @file SampleCoding.h
///
/// Whether the samples of a SEG-Y file are coded as its header says. Files whose format code is
/// wrong are common, and read under another coding of the same size they still give numbers.
#ifndef SAMPLECODING_H
#define SAMPLECODING_H

#include "segy/SegyLayout.h"

#include <string>

namespace VORN {

class InputFile;

/// A line that names the coding under which the samples of `file` look right, where the one of
/// `layout` does not and another of the same size clearly does; "" otherwise. `text` is the decoded
/// text header, whose words IEEE and IBM count.
///
/// Some traces are looked at, spread over the file: their samples under each coding and in each
/// byte order. Of a right coding nearly no sample is absurd (beyond 1e-25 to 1e25, not a number, an
/// IBM float that is not normalised), the first digits of IBM floats are distributed as digits to
/// the base 16 are, amplitudes do not all have one magnitude, and neighbours resemble each other at
/// least as much as under the other. Of integers the highest bytes are more alike than the lowest
/// ones. Few or few different samples, and samples of one byte, give no verdict.
///
/// Throws TraceFileError when the file cannot be read.
std::string doubtOfCoding(InputFile& file, const SegyLayout& layout, const std::string& text);

} // namespace VORN

#endif
