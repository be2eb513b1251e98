// The functions of libcrypto that take no memory: its newer ones do, and end the process where they
// find none. They are deprecated, and there to stay, for those who ask for that one checksum.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "base/Sha256.h"

#include <openssl/sha.h>

namespace host {

struct Sha256::Context
{
    SHA256_CTX state = {};
};

Sha256::Sha256() : context(std::make_unique<Context>())
{
    SHA256_Init(&context->state);
}

Sha256::~Sha256() = default;

void Sha256::add(const void* bytes, std::size_t count)
{
    SHA256_Update(&context->state, bytes, count);
}

Sha256::Digest Sha256::digest() const
{
    SHA256_CTX copy = context->state;
    Digest digest{};
    SHA256_Final(digest.data(), &copy);
    return digest;
}

std::string Sha256::hex() const
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : digest()) {
        text += digits[byte / 16];
        text += digits[byte % 16];
    }
    return text;
}

std::string sha256Of(std::string_view text)
{
    Sha256 hash;
    hash.add(text);
    return hash.hex();
}

} // namespace host
