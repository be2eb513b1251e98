#include "base/Sha256.h"

#include <gtest/gtest.h>
#include <string>

using host::Sha256;
using host::sha256Of;

namespace {

// Of FIPS 180-4 and the test vectors that go with it.
constexpr char ofNothing[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr char ofAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr char ofMillion[] = "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";

} // namespace

TEST(Sha256Test, TextsHaveTheChecksumsOfTheStandard)
{
    EXPECT_EQ(sha256Of(""), ofNothing);
    EXPECT_EQ(sha256Of("abc"), ofAbc);
    EXPECT_EQ(sha256Of(std::string(1000000, 'a')), ofMillion);
}

TEST(Sha256Test, BytesMayComeInAnyPiecesAndMoreMayFollowADigest)
{
    Sha256 hash;
    EXPECT_EQ(hash.hex(), ofNothing);
    hash.add("a");
    hash.add("");
    hash.add("bc");
    EXPECT_EQ(hash.hex(), ofAbc);
    EXPECT_EQ(hash.hex(), ofAbc);
    EXPECT_EQ(hash.digest()[0], 0xBA);
    EXPECT_EQ(hash.digest()[31], 0xAD);
    hash.add("d");
    EXPECT_EQ(hash.hex(), sha256Of("abcd"));
}
