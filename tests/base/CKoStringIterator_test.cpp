#include "pf/base/CKoString.h"

#include <vector>

#include "tests/base/StringTesting.h"

using namespace KoTest;

namespace
{

using Position = CKoString::const_iterator;

TEST(CKoStringIterator, GoesThroughTheCharactersBothWays)
{
    const CKoString text("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    const std::vector<unsigned int> expected = {0x61U, 0xE9U, 0x20ACU, 0x1F600U};
    std::vector<unsigned int> forward;
    for (Position at = text.begin(); at != text.end(); ++at)
    {
        forward.push_back(*at);
    }
    std::vector<unsigned int> backward;
    for (Position at = text.end(); at != text.begin();)
    {
        backward.insert(backward.begin(), *--at);
    }
    EXPECT_EQ(forward, expected);
    EXPECT_EQ(backward, expected);
    for (unsigned int i = 0; i < 6; ++i)
    {
        EXPECT_EQ(text[i], i < 4 ? expected[i] : 0U);
    }
    EXPECT_EQ(text[0xFFFFFFFFU], 0U);
}

TEST(CKoStringIterator, StopsAtTheEndAndTurnsAtTheZeroBeforeTheText)
{
    struct Case
    {
        const char* text;
        bool fromEnd;
        int steps;
        int offset; ///< bytes from the first character
    };
    const Case cases[] = {
        {"ab", false, 0, 0},
        {"ab", false, 5, 2},
        {"ab", false, -1, -1},
        {"ab", false, -2, 0},
        {"ab", false, -7, 0},
        {"ab", true, 1, 2},
        {"ab", true, -1, 1},
        {"ab", true, -2, 0},
        {"ab", true, -3, -1},
        {"ab", true, -4, 0},
        {"ab", true, -5, 0},
        {"", true, 3, 0},
        {"", true, -1, -1},
        {"", true, -2, 0},
        {"\xC3\xA9", true, -1, 0},
        {"\xC3\xA9", true, -2, -1},
        {"\xC3\xC3", false, 1, 1},
        {"\xC3\xC3", false, 2, 2},
        {"\xE2\xC3\xA9", true, -1, 1},
        {"ab", true, -2147483647 - 1, 0},
        {"ab", false, 2147483647, 2},
    };
    for (const Case& c : cases)
    {
        const CKoString text(c.text);
        Position at = c.fromEnd ? text.end() : text.begin();
        at += c.steps;
        EXPECT_EQ(at.address() - text.c_str(), c.offset) << c.text << ' ' << c.fromEnd << ' ' << c.steps;
        if (c.offset < 0)
        {
            EXPECT_EQ(*at, 0U);
        }
    }
}

TEST(CKoStringIterator, PostfixFormsGiveThePositionFromBefore)
{
    const CKoString text("ab");
    Position at = text.begin();
    EXPECT_EQ(*at++, 0x61U);
    EXPECT_EQ(*at--, 0x62U);
    EXPECT_EQ(at, text.begin());
}

TEST(CKoStringIterator, NullPositionsAreHarmless)
{
    Position nowhere;
    ++nowhere;
    EXPECT_EQ(nowhere, Position(nullptr));
    EXPECT_EQ(*nowhere, 0U);
    const CKoString text("a");
    EXPECT_EQ(text.begin() - nowhere, 0);
    text.begin().incrementSteps(nullptr, 1);
    CKoString changed("a");
    changed.insert(nowhere, CKoString("x"));
    changed.remove(nowhere, 1U);
    EXPECT_EQ(textOf(changed), "a");
    EXPECT_EQ(changed.findString(nowhere, text, true), changed.end());
}

TEST(CKoStringIterator, DifferencesAreSignedCountsOfCharacters)
{
    std::string bytes = "\xC3\xA9\xE2\x82\xAC";
    for (int i = 0; i < 30; ++i)
    {
        bytes += "abc\xC3\xA9";
    }
    const CKoString text(bytes.c_str());
    Position from = text.begin();
    for (int i = 0; i <= 122; ++i, ++from)
    {
        ASSERT_EQ(from - text.begin(), i);
        ASSERT_EQ(text.begin() - from, -i);
        ASSERT_EQ(text.end() - from, 122 - i);
    }
    Position before = text.begin();
    --before;
    EXPECT_EQ(text.begin() - before, 1);
}

TEST(CKoStringIterator, DecodingNeverReadsBehindTheText)
{
    // Leads as continuation bytes: positions inside them ask for more bytes than the text has.
    const CKoString text("\xC3\xFC");
    Position at = text.begin();
    EXPECT_EQ(*at, 0xFCU);
    ++at;
    EXPECT_EQ(*at, 0U) << "the low bits of a lead that stands alone";
    ++at;
    EXPECT_EQ(at, text.end());

    const CKoString odd("\xE2\xFF\xFE");
    at = odd.begin();
    EXPECT_EQ(*++at, 0xFFU) << "a byte that leads nothing stands for itself";
}

} // namespace
