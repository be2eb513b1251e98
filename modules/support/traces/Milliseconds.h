/// @file Milliseconds.h
///
/// Times in messages.
#ifndef MILLISECONDS_H
#define MILLISECONDS_H

#include <string>

namespace traces {

/// A time as in "4 ms" or "0.333 ms".
inline std::string milliseconds(int microseconds)
{
    std::string text = std::to_string(microseconds / 1000.0);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.')
        text.pop_back();
    return text + " ms";
}

} // namespace traces

#endif
