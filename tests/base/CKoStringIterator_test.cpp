#include "pf/base/CKoString.h"

#include <vector>

#include "tests/base/StringTesting.h"

using namespace KoTest;

namespace
{

TEST(CKoStringIterator, GoesThroughTheCharactersBothWays)
{
    const CKoString text("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    const std::vector<unsigned int> expected = {0x61U, 0xE9U, 0x20ACU, 0x1F600U};
    std::vector<unsigned int> forward;
    std::vector<unsigned int> backward;
    for (Position at = text.begin(), back = text.end(); at != text.end(); ++at)
    {
        forward.push_back(*at);
        backward.insert(backward.begin(), *--back);
    }
    EXPECT_EQ(forward, expected);
    EXPECT_EQ(backward, expected);
    for (const unsigned int index : {0U, 1U, 2U, 3U, 4U, 5U, 0xFFFFFFFFU})
    {
        EXPECT_EQ(text[index], index < 4 ? expected[index] : 0U);
    }
}

TEST(CKoStringIterator, StopsAtTheEndAndTurnsAtTheZeroBeforeTheText)
{
    struct Case
    {
        const char* text;
        int fromBegin[7]; ///< bytes from the first character after -3 to 3 steps
        int fromEnd[7];
    };
    const Case cases[] = {
        {"ab", {0, 0, -1, 0, 1, 2, 2}, {-1, 0, 1, 2, 2, 2, 2}},
        {"", {0, 0, -1, 0, 0, 0, 0}, {0, 0, -1, 0, 0, 0, 0}},
        {"\xC3\xA9", {0, 0, -1, 0, 2, 2, 2}, {0, -1, 0, 2, 2, 2, 2}},
        {"\xE2\xC3\xA9", {0, 0, -1, 0, 1, 3, 3}, {-1, 0, 1, 3, 3, 3, 3}},
    };
    for (const Case& c : cases)
    {
        const CKoString text(c.text);
        for (int steps = -3; steps <= 3; ++steps)
        {
            Position first = text.begin();
            Position last = text.end();
            EXPECT_EQ((first += steps).address() - text.c_str(), c.fromBegin[steps + 3]) << c.text << steps;
            EXPECT_EQ((last += steps).address() - text.c_str(), c.fromEnd[steps + 3]) << c.text << steps;
            EXPECT_EQ(*first == 0U, first == text.end() || first.address() < text.c_str());
        }
        Position far = text.begin();
        EXPECT_EQ(far += 0x7FFFFFFF, text.end());
        EXPECT_EQ(*(far += -0x7FFFFFFF), *text.begin());
    }
}

TEST(CKoStringIterator, NullPositionsAreHarmless)
{
    CKoString text("a");
    Position nowhere;
    EXPECT_EQ(*++nowhere, 0U);
    EXPECT_EQ(text.begin() - nowhere, 0);
    text.begin().incrementSteps(nullptr, 1);
    text.insert(nowhere, CKoString("x"));
    text.remove(nowhere, 1U);
    EXPECT_EQ(textOf(text), "a");
    EXPECT_EQ(text.findString(nowhere, CKoString("a"), true), text.end());
}

TEST(CKoStringIterator, DifferencesAreSignedCountsOfCharacters)
{
    CKoString text("\xC3\xA9\xE2\x82\xAC");
    text.append(std::string(90, '.').c_str()).replaceAll(CKoString("..."), CKoString("..\xC3\xA9"));
    Position from = text.begin();
    for (int i = 0; i <= 92; ++i, ++from)
    {
        ASSERT_TRUE(from - text.begin() == i && text.begin() - from == -i && text.end() - from == 92 - i)
            << i;
    }
    EXPECT_EQ(text.begin() - at(text, -1), 1);
}

TEST(CKoStringIterator, DecodingNeverReadsBehindTheText)
{
    // Leads as continuation bytes: positions inside them ask for more bytes than the text has.
    const CKoString text("\xC3\xFC");
    EXPECT_EQ(*text.begin(), 0xFCU);
    EXPECT_EQ(*at(text, 1), 0U) << "the low bits of a lead that stands alone";
    EXPECT_EQ(at(text, 2), text.end());
    EXPECT_EQ(*at(CKoString("\xE2\xFF\xFE"), 1), 0xFFU) << "a byte that leads nothing stands for itself";
}

} // namespace
