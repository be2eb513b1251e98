#include "base/Sha256.h"

#include <new>
#include <openssl/evp.h>

namespace host {

namespace {

struct Freeing
{
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using Handle = std::unique_ptr<EVP_MD_CTX, Freeing>;

Handle newHandle()
{
    Handle handle(EVP_MD_CTX_new());
    if (handle == nullptr)
        throw std::bad_alloc();
    return handle;
}

// Of a checksum that every build of the library has, only memory can be missing.
void orThrow(int good)
{
    if (good != 1)
        throw std::bad_alloc();
}

} // namespace

struct Sha256::Context
{
    Handle handle = newHandle();
};

Sha256::Sha256() : context(std::make_unique<Context>())
{
    orThrow(EVP_DigestInit_ex(context->handle.get(), EVP_sha256(), nullptr));
}

Sha256::~Sha256() = default;

void Sha256::add(const void* bytes, std::size_t count)
{
    orThrow(EVP_DigestUpdate(context->handle.get(), bytes, count));
}

Sha256::Digest Sha256::digest() const
{
    const Handle copy = newHandle();
    Digest digest{};
    orThrow(EVP_MD_CTX_copy_ex(copy.get(), context->handle.get()));
    orThrow(EVP_DigestFinal_ex(copy.get(), digest.data(), nullptr));
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
