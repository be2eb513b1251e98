#include "segy/HexBytes.h"

#include <SegyBytes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace VORN;
using ::testing::IsEmpty;

TEST(SegyHexBytesTest, EveryByteComesBack)
{
    Bytes bytes;
    for (int i = 0; i < 256; ++i)
        bytes.push_back(static_cast<unsigned char>(i));
    EXPECT_EQ(hexOf({0x00, 0x09, 0xAF}), "0009af");
    EXPECT_EQ(bytesOfHex(hexOf(bytes)), bytes);
}

TEST(SegyHexBytesTest, WhatIsNoSuchTextGivesNoBytes)
{
    for (const char* text : {"", "0", "0g", "00 1", "0x00", "0009AF"})
        EXPECT_THAT(bytesOfHex(text), IsEmpty()) << text;
}
