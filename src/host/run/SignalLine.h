/// @file SignalLine.h
///
/// Lines on standard error and in the log that are put together without memory, for handlers of
/// signals.
#ifndef SIGNALLINE_H
#define SIGNALLINE_H

#include "base/LogFile.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <unistd.h>

namespace host {

/// One line, which `write` writes in one call. What does not fit is cut off. Everything here may be
/// called in handlers of signals.
class SignalLine
{
public:
    explicit SignalLine(const char* begin) { add(begin); }

    SignalLine& add(const char* text)
    {
        while (*text != '\0' && used + 1 < bytes.size())
            bytes[used++] = *text++;
        return *this;
    }

    /// Left out of the log.
    SignalLine& addForTerminal(const char* text)
    {
        add(text);
        logFrom = used;
        return *this;
    }

    /// What may hold anything, such as the names of files: nothing that controls a terminal.
    SignalLine& addForeign(const char* text)
    {
        for (; *text != '\0' && used + 1 < bytes.size(); ++text)
            bytes[used++] = static_cast<unsigned char>(*text) < ' ' || *text == 0x7F ? '?' : *text;
        return *this;
    }

    SignalLine& add(int64_t number)
    {
        const uint64_t size =
            number < 0 ? 0 - static_cast<uint64_t>(number) : static_cast<uint64_t>(number);
        if (number < 0)
            add("-");
        return addDigits(size, 10);
    }
    SignalLine& add(int number) { return add(static_cast<int64_t>(number)); }

    /// As in 0x1f.
    SignalLine& addAddress(uint64_t address) { return add("0x").addDigits(address, 16); }

    /// Spaces until the line has `width` bytes.
    SignalLine& padTo(std::size_t width)
    {
        while (used < width)
            add(" ");
        return *this;
    }

    std::size_t size() const { return used; }

    /// Only once.
    void write()
    {
        bytes[used++] = '\n';
        // Nothing can be done about a failure.
        [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, bytes.data(), used);
        addToOpenLog(bytes.data() + logFrom, used - logFrom);
    }

private:
    SignalLine& addDigits(uint64_t number, unsigned base)
    {
        std::array<char, 24> digits;
        std::size_t at = digits.size() - 1;
        digits[at] = '\0';
        do {
            digits[--at] = "0123456789abcdef"[number % base];
            number /= base;
        } while (number != 0);
        return add(&digits[at]);
    }

    std::array<char, 5000> bytes;
    std::size_t used = 0;
    std::size_t logFrom = 0; ///< where the line begins in the log
};

} // namespace host

#endif
