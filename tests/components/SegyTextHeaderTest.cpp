#include "segy/TextHeader.h"

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
        const bool printable =
            (expected >= 0x20 && expected < 0x7F) || (expected > 0xA0 && expected != 0xAD);
        EXPECT_EQ(decodeText(&byte, 1, true), std::string(1, printable ? char(expected) : ' '))
            << code;
    }
}

TEST(SegyTextHeaderTest, WhatCannotBePrintedBecomesABlank)
{
    const Bytes bytes = {'A', 0, '\n', 0x7F, 0x9B, 0xA0, 0xAD, 'B'};
    EXPECT_EQ(decodeText(bytes.data(), bytes.size(), false), "A      B");
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

TEST(SegyTextHeaderTest, CardsAreUtf8)
{
    std::string text(160, ' ');
    text[0] = static_cast<char>(0xC5);
    text[79] = static_cast<char>(0xE9);
    text[80] = static_cast<char>(0xA6);
    EXPECT_THAT(textCards(text), ElementsAre("Å" + std::string(78, ' ') + "é", "¦"));
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

TEST(SegyTextHeaderTest, EveryCharacterOfEbcdicIsWritten)
{
    std::string text;
    for (int code = 0xA1; code < 0x100; ++code) {
        if (code != 0xAD)
            text += static_cast<char>(code);
    }
    text.resize(160, '.');
    const std::vector<unsigned char> bytes = encodeCards(textCards(text));
    EXPECT_EQ(decodeText(bytes.data(), 160, true), text);
}

TEST(SegyTextHeaderTest, WhatTheCodingDoesNotHaveIsWrittenAsABlank)
{
    const std::string card = "AΩB€C\xFF"
                             "D\xC3"
                             "E";
    const std::string expected = "A B C D E ";
    const std::vector<unsigned char> bytes = encodeCards({card});
    EXPECT_EQ(decodeText(bytes.data(), 10, true), expected);
    const std::vector<unsigned char> ascii = encodeCards({card}, Bytes(3200, 'x'));
    EXPECT_EQ(std::string(ascii.begin(), ascii.begin() + 10), expected);
}

TEST(SegyTextHeaderTest, CardsThatReadAsBeforeHaveTheBytesThatTheyHad)
{
    Bytes original = ebcdic(std::string(3200, ' '));
    const Bytes odd = {0x6A, 0x00, 0x41, 0xC1, 0x07, 0x80};
    for (const std::size_t card : {3, 4})
        std::copy(odd.begin(), odd.end(), original.begin() + 80 * static_cast<int>(card));
    std::vector<std::string> cards = textCards(decodeText(original.data(), 3200, true));
    ASSERT_EQ(cards[3], "¦  A Ø");
    EXPECT_EQ(encodeCards(cards, original), original);

    cards[3] += "!";
    const std::vector<unsigned char> bytes = encodeCards(cards, original);
    EXPECT_EQ(Bytes(bytes.begin() + 240, bytes.begin() + 247),
              (Bytes{0x6A, 0x40, 0x40, 0xC1, 0x40, 0x80, 0x5A}));
    EXPECT_TRUE(std::equal(bytes.begin() + 320, bytes.end(), original.begin() + 320));
}

TEST(SegyTextHeaderTest, NewCardsHaveTheCodingOfTheOriginal)
{
    const std::string line = "C 1 PLAIN TEXT WITH NULS";
    Bytes original(3200);
    std::copy(line.begin(), line.end(), original.begin());
    const std::vector<unsigned char> bytes = encodeCards({line, "C 2 É NEW"}, original);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + 80, original.begin()));
    EXPECT_EQ(std::string(bytes.begin() + 80, bytes.begin() + 90), "C 2 \xC9 NEW ");
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

TEST(SegyTextHeaderTest, LinesStandBelowAllTextThatIsThereAlready)
{
    std::vector<std::string> input = numberedCards();
    input[0] = "C 1 CLIENT";
    input[35] = "C36 bandpass corners=5,10,60,80";
    input[36] = "not numbered";
    input[37] = "C38 agc window=0.5 s";
    const auto cards = composeCards(input, {"sort keys=cdp", "stack"}, std::nullopt, nullptr);
    EXPECT_EQ(cards[0], "C 1 CLIENT");
    EXPECT_EQ(cards[32], numberedCards()[32]);
    EXPECT_EQ(cards[33], "C34 bandpass corners=5,10,60,80");
    EXPECT_EQ(cards[34], "not numbered");
    EXPECT_EQ(cards[35], "C36 agc window=0.5 s");
    EXPECT_EQ(cards[36], "C37 sort keys=cdp");
    EXPECT_EQ(cards[37], "C38 stack");
    // A third run goes on below.
    const auto third = composeCards(cards, {"gain factor=2"}, std::nullopt, nullptr);
    EXPECT_EQ(third[32], "C33 bandpass corners=5,10,60,80");
    EXPECT_EQ(third[36], "C37 stack");
    EXPECT_EQ(third[37], "C38 gain factor=2");
}

TEST(SegyTextHeaderTest, LinesTakeTheRoomOfTheLastFreeCardsInTheirOrder)
{
    std::vector<std::string> input = numberedCards();
    input[0] = "C 1 CLIENT";
    input[36] = "C37 LAST WORDS";
    std::size_t leftOut = 77;
    const auto cards = composeCards(input, {"agc window=0.5 s", "gain factor=2"}, 1, &leftOut);
    EXPECT_EQ(leftOut, 0u);
    EXPECT_THAT(filled(cards),
                ElementsAre("C 1 CLIENT", "C36 LAST WORDS", "C37 agc window=0.5 s",
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

TEST(SegyTextHeaderTest, ALineIsAsLongAsItsCharacters)
{
    std::string line;
    for (int i = 0; i < 76; ++i)
        line += "é";
    EXPECT_EQ(composeCards(numberedCards(), {line}, 1, nullptr)[37], "C38 " + line);
    const auto cards = composeCards(numberedCards(), {line + "ü"}, 1, nullptr);
    EXPECT_EQ(cards[36], "C37 " + line);
    EXPECT_EQ(cards[37], "C38   ü");
}

TEST(SegyTextHeaderTest, WithoutARevisionTheClosingCardsStay)
{
    std::vector<std::string> input = numberedCards();
    input[38] = "C39 SEG Y REV1";
    input[39].clear();
    const auto cards = composeCards(input, {"agc"}, std::nullopt, nullptr);
    EXPECT_THAT(filled(cards), ElementsAre("C38 agc", "C39 SEG Y REV1"));
    EXPECT_EQ(cards[39], "");
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
    EXPECT_THAT(filled(cards), ElementsAre("COMPANY Geometrics", "CDP 12", "C38 agc",
                                           "C39 SEG Y REV1", "C40 END TEXTUAL HEADER"));
}
