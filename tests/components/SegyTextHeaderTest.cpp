#include "textheader.h"

#include <SegyBytes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iconv.h>

using namespace VORN;
using ::testing::ElementsAre;

namespace {

// The character that the C library's code page 037 has for `code`; 0 without that code page.
unsigned char libraryCharacter(unsigned char code)
{
    const iconv_t converter = iconv_open("ISO-8859-1", "IBM037");
    if (converter == reinterpret_cast<iconv_t>(-1))
        return 0;
    char in = static_cast<char>(code);
    char out = 0;
    char* from = &in;
    char* to = &out;
    std::size_t left = 1;
    std::size_t room = 1;
    iconv(converter, &from, &left, &to, &room);
    iconv_close(converter);
    return static_cast<unsigned char>(out);
}

Bytes ebcdic(const std::string& text)
{
    Bytes bytes;
    for (const char c : text)
        bytes.push_back(SegyBytes::ebcdic(c));
    return bytes;
}

std::vector<std::string> numberedCards()
{
    std::vector<std::string> cards;
    for (int i = 1; i <= 40; ++i)
        cards.push_back((i < 10 ? "C " : "C") + std::to_string(i));
    return cards;
}

// `cards` without those that have nothing behind their number, which are the free ones.
std::vector<std::string> filled(const std::vector<std::string>& cards)
{
    std::vector<std::string> some;
    for (const std::string& card : cards) {
        if (card.find_first_not_of(' ', 3) != std::string::npos)
            some.push_back(card);
    }
    return some;
}

} // namespace

TEST(SegyTextHeaderTest, EbcdicIsReadAsTheCLibraryReadsIt)
{
    if (libraryCharacter(0xC1) != 'A')
        GTEST_SKIP() << "the C library has no code page 037 here";
    for (int code = 0; code < 256; ++code) {
        const auto byte = static_cast<unsigned char>(code);
        const unsigned char expected = libraryCharacter(byte);
        const bool printable = expected >= 0x20 && expected < 0x7F;
        EXPECT_EQ(decodeText(&byte, 1, true), std::string(1, printable ? char(expected) : ' '))
            << code;
    }
}

TEST(SegyTextHeaderTest, WhatCannotBePrintedBecomesABlank)
{
    const Bytes bytes = {'A', 0, '\n', 0x7F, 0xE9, 'B'};
    EXPECT_EQ(decodeText(bytes.data(), bytes.size(), false), "A    B");
}

TEST(SegyTextHeaderTest, TheCodingIsRecognised)
{
    const std::string text = "C 1 CLIENT: NOBODY   LINE: 12/A";
    const Bytes coded = ebcdic(text);
    const Bytes plain(text.begin(), text.end());
    EXPECT_TRUE(looksLikeEbcdic(coded.data(), coded.size()));
    EXPECT_FALSE(looksLikeEbcdic(plain.data(), plain.size()));
    EXPECT_EQ(decodeText(coded.data(), coded.size(), true), text);
}

TEST(SegyTextHeaderTest, RandomBytesAreNoText)
{
    Bytes bytes;
    for (unsigned i = 0; i < 3200; ++i)
        bytes.push_back(static_cast<unsigned char>(i * 2654435761u >> 11));
    EXPECT_FALSE(looksLikeText(bytes.data(), bytes.size()));
    const Bytes text = ebcdic(std::string(3200, 'X'));
    EXPECT_TRUE(looksLikeText(text.data(), text.size()));
}

TEST(SegyTextHeaderTest, CardsHave80CharactersAndLoseTheirBlanks)
{
    const std::string text = "C 1 FIRST" + std::string(71, ' ') + "C 2 SECOND" +
                             std::string(70, ' ') + std::string(80, ' ');
    EXPECT_THAT(textCards(text), ElementsAre("C 1 FIRST", "C 2 SECOND", ""));
}

TEST(SegyTextHeaderTest, EncodedCardsComeBack)
{
    const std::vector<std::string> cards = {"C 1 !\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~",
                                            "C 2 abcxyz ABCXYZ 0123456789",
                                            "C 3 " + std::string(100, 'L')};
    const std::vector<unsigned char> bytes = encodeCards(cards);
    ASSERT_EQ(bytes.size(), 3200u);
    const std::vector<std::string> back = textCards(decodeText(bytes.data(), bytes.size(), true));
    EXPECT_EQ(back[0], cards[0]);
    EXPECT_EQ(back[1], cards[1]);
    EXPECT_EQ(back[2], cards[2].substr(0, 80));
    EXPECT_EQ(back[3], "");
}

TEST(SegyTextHeaderTest, WhatEbcdicDoesNotHaveIsWrittenAsABlank)
{
    const std::vector<unsigned char> bytes = encodeCards({"A\xC3\xA9"
                                                          "B"});
    EXPECT_EQ(decodeText(bytes.data(), 4, true), "A  B");
}

TEST(SegyTextHeaderTest, WithoutInputThereAreNumberedCards)
{
    const std::vector<std::string> cards = composeCards({}, {}, 1, nullptr);
    ASSERT_EQ(cards.size(), 40u);
    EXPECT_EQ(cards[0], "C 1 ");
    EXPECT_EQ(cards[9], "C10 ");
    EXPECT_EQ(cards[38], "C39 SEG Y REV1");
    EXPECT_EQ(cards[39], "C40 END TEXTUAL HEADER");
}

TEST(SegyTextHeaderTest, LinesTakeTheLastFreeCardsInTheirOrder)
{
    std::vector<std::string> input = numberedCards();
    input[0] = "C 1 CLIENT";
    input[36] = "C37 LAST WORDS";
    std::size_t leftOut = 77;
    const auto cards = composeCards(input, {"agc window=0.5 s", "gain factor=2"}, 1, &leftOut);
    EXPECT_EQ(leftOut, 0u);
    EXPECT_THAT(filled(cards),
                ElementsAre("C 1 CLIENT", "C36 agc window=0.5 s", "C37 LAST WORDS",
                            "C38 gain factor=2", "C39 SEG Y REV1", "C40 END TEXTUAL HEADER"));
}

TEST(SegyTextHeaderTest, ALongLineIsContinuedAtABlank)
{
    const std::string line = "bandpass " + std::string(59, 'f') + " corners follow here";
    const auto cards = composeCards(numberedCards(), {line}, 1, nullptr);
    EXPECT_EQ(cards[36], "C37 bandpass " + std::string(59, 'f') + " corners");
    EXPECT_EQ(cards[37], "C38   follow here");
}

TEST(SegyTextHeaderTest, AWordLongerThanACardIsCut)
{
    const auto cards = composeCards(numberedCards(), {std::string(160, 'x')}, 1, nullptr);
    EXPECT_EQ(cards[35], "C36 " + std::string(76, 'x'));
    EXPECT_EQ(cards[36], "C37   " + std::string(74, 'x'));
    EXPECT_EQ(cards[37], "C38   " + std::string(10, 'x'));
}

TEST(SegyTextHeaderTest, WhenCardsRunOutTheLastLinesStay)
{
    std::vector<std::string> input = numberedCards();
    for (std::size_t i = 0; i < 36; ++i)
        input[i] += " TEXT";
    std::size_t leftOut = 77;
    const auto cards = composeCards(input, {"first", "second", "third"}, 1, &leftOut);
    EXPECT_EQ(leftOut, 1u);
    EXPECT_EQ(cards[36], "C37 second");
    EXPECT_EQ(cards[37], "C38 third");
}

TEST(SegyTextHeaderTest, TextOnTheClosingCardsMovesToFreeOnes)
{
    std::vector<std::string> input = numberedCards();
    input[38] = "C39 BYTES 95-96 SDOM";
    input[39] = "C40 MORE OF IT";
    const auto cards = composeCards(input, {"agc"}, 1, nullptr);
    EXPECT_THAT(filled(cards), ElementsAre("C36 BYTES 95-96 SDOM", "C37 MORE OF IT", "C38 agc",
                                           "C39 SEG Y REV1", "C40 END TEXTUAL HEADER"));
}

TEST(SegyTextHeaderTest, ClosingCardsOfTheOtherRevisionAreNoText)
{
    std::vector<std::string> input = numberedCards();
    input[39] = "C40 END EBCDIC";
    EXPECT_THAT(filled(composeCards(input, {}, 1, nullptr)),
                ElementsAre("C39 SEG Y REV1", "C40 END TEXTUAL HEADER"));

    input[38] = "C39 SEG Y REV1";
    input[39] = "C40 END TEXTUAL HEADER";
    EXPECT_THAT(filled(composeCards(input, {}, 0, nullptr)), ElementsAre("C40 END EBCDIC"));
}

TEST(SegyTextHeaderTest, Revision0KeepsWhatStandsOnTheClosingCards)
{
    std::vector<std::string> input = numberedCards();
    input[38] = "C39 BYTES 95-96 SDOM";
    input[39] = "C40 END EBCDIC:";
    EXPECT_THAT(filled(composeCards(input, {"agc"}, 0, nullptr)),
                ElementsAre("C38 agc", "C39 BYTES 95-96 SDOM", "C40 END EBCDIC:"));
}

TEST(SegyTextHeaderTest, CardsWithoutNumbersAreTextFromTheFirstCharacterOn)
{
    std::vector<std::string> input(40);
    input[0] = "COMPANY Geometrics";
    input[37] = "CDP 12";
    const auto cards = composeCards(input, {"agc"}, 1, nullptr);
    EXPECT_THAT(filled(cards), ElementsAre("COMPANY Geometrics", "C37 agc", "CDP 12",
                                           "C39 SEG Y REV1", "C40 END TEXTUAL HEADER"));
}
