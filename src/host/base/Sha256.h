/// @file Sha256.h
///
/// The checksum SHA-256.
#ifndef SHA256_H
#define SHA256_H

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace host {

/// The checksum of bytes that come piece by piece.
class Sha256
{
public:
    using Digest = std::array<unsigned char, 32>;

    /// Throws std::bad_alloc when there is no memory for it. The first one of the process loads
    /// libcrypto, and throws CommandError when it cannot be loaded.
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void add(const void* bytes, std::size_t count);
    void add(std::string_view text) { add(text.data(), text.size()); }

    /// Of all bytes so far; more may follow.
    Digest digest() const;
    /// The same in hexadecimal digits.
    std::string hex() const;

private:
    struct Context;
    std::unique_ptr<Context> context;
};

/// The checksum of a text, in hexadecimal digits.
std::string sha256Of(std::string_view text);

} // namespace host

#endif
