// The functions of libcrypto that take no memory: its newer ones do, and end the process where they
// find none. They are deprecated, and there to stay, for those who ask for that one checksum.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "base/Sha256.h"

#include "base/LazyLibrary.h"

#include <openssl/sha.h>

namespace host {

namespace {

// The largest library of all that the command uses; jobs without checksums do without it.
struct Functions
{
    static constexpr LazyLibrary crypto = LazyLibrary(VORN_CRYPTO_SONAME, "checksums");

    decltype(&SHA256_Init) init =
        reinterpret_cast<decltype(&SHA256_Init)>(crypto.function("SHA256_Init"));
    decltype(&SHA256_Update) update =
        reinterpret_cast<decltype(&SHA256_Update)>(crypto.function("SHA256_Update"));
    decltype(&SHA256_Final) final =
        reinterpret_cast<decltype(&SHA256_Final)>(crypto.function("SHA256_Final"));
};

const Functions& functions()
{
    static const Functions loaded;
    return loaded;
}

} // namespace

struct Sha256::Context
{
    SHA256_CTX state = {};
};

Sha256::Sha256() : context(std::make_unique<Context>())
{
    functions().init(&context->state);
}

Sha256::~Sha256() = default;

void Sha256::add(const void* bytes, std::size_t count)
{
    functions().update(&context->state, bytes, count);
}

Sha256::Digest Sha256::digest() const
{
    SHA256_CTX copy = context->state;
    Digest digest{};
    functions().final(digest.data(), &copy);
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
