/// @file TextHeader.h
///
/// The text headers of SEG-Y: 3200 characters, 40 cards of 80, in EBCDIC or ASCII.
#ifndef TEXTHEADER_H
#define TEXTHEADER_H

#include "segy_export.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace VORN {

/// Whether `bytes` read better as EBCDIC than as ASCII; blank text counts as EBCDIC.
VORN_SEGY_EXPORT bool looksLikeEbcdic(const unsigned char* bytes, std::size_t count);

/// Whether most of `bytes` are letters, digits, blanks and signs in either coding.
VORN_SEGY_EXPORT bool looksLikeText(const unsigned char* bytes, std::size_t count);

/// What is wrong with a text header, to stand behind "the text header": "is damaged: ...", or that
/// it is empty. "" for a text whose bytes are nearly all characters of its coding; NUL and line
/// ends, which some writers fill cards with, count as such.
VORN_SEGY_EXPORT std::string damageOfText(const unsigned char* bytes, std::size_t count,
                                          bool ebcdic);

/// The text in Latin-1, a byte for each character. What cannot be printed, NUL included, becomes a
/// blank, so the result has `count` printable characters.
VORN_SEGY_EXPORT std::string decodeText(const unsigned char* bytes, std::size_t count, bool ebcdic);

/// The cards of a decoded text in UTF-8, 80 characters each, without trailing blanks.
VORN_SEGY_EXPORT std::vector<std::string> textCards(const std::string& text);

/// 3200 bytes from at most 40 cards in UTF-8; a card's characters beyond the 80th are cut, what the
/// coding does not have becomes a blank.
///
/// `original` are the 3200 bytes of the text header from which the cards come, or none. A card that
/// reads as it does there has the bytes that it has there, and the coding is the same. Without an
/// original it is EBCDIC.
VORN_SEGY_EXPORT std::vector<unsigned char>
encodeCards(const std::vector<std::string>& cards, const std::vector<unsigned char>& original = {});

/// The cards of a text header to be written, 40 of them: those of `input` (which may be fewer), and
/// below them `lines`, in their order, so that a header reads in the order of the processing. The
/// lines take the room of the last free cards (nothing behind their number); text that stands below
/// those moves up and gets the numbers of its new places. Each line begins with the card's number,
/// "C 7 ", and takes further cards where it is too long.
///
/// Cards 39 and 40 stay when there is no `revision`. Otherwise they become those of a file of that
/// revision (0 or 1): revision 1 has "C39 SEG Y REV1" and "C40 END TEXTUAL HEADER"; revision 0
/// keeps what is there, except that it does not call itself revision 1. Other text of these two
/// cards moves to free ones, before `lines`.
///
/// Where there are too few free cards, the first lines are left out. `leftOut`, when not null,
/// receives how many.
VORN_SEGY_EXPORT std::vector<std::string> composeCards(const std::vector<std::string>& input,
                                                       const std::vector<std::string>& lines,
                                                       std::optional<int> revision,
                                                       std::size_t* leftOut);

} // namespace VORN

#endif
