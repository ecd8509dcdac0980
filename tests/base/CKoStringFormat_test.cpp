#include "pf/base/CKoString.h"

#include "pf/base/TKoFormatString.h"
#include "tests/base/StringTesting.h"

using namespace KoTest;

namespace
{

/// A conversion that no formatter can form: the character has no encoding in the "C" locale.
constexpr wchar_t UNFORMATTABLE[] = L"\x4E16";
constexpr const char* NONE = nullptr;

TEST(CKoStringFormat, CutsAt256BytesAtACharacterBoundary)
{
    struct Case
    {
        std::string text;
        Seen expected;
        bool isWhole;
    };
    const Case cases[] = {
        {"", {"", 0, 0}, true},
        {std::string(256, 'x'), {std::string(256, 'x'), 256, 256}, true},
        {std::string(300, 'x'), {std::string(256, 'x'), 256, 256}, false},
        {std::string(255, 'x') + "\xC3\xA9", {std::string(255, 'x'), 255, 255}, false},
        {"a\xC3\xA9\xFFz", {"a\xC3\xA9", 2, 3}, true},
    };
    for (const Case& c : cases)
    {
        CKoString string;
        EXPECT_EQ(string.format("%s", c.text.c_str()), c.isWhole);
        EXPECT_EQ(see(string), c.expected);
    }
    CKoString failed("old");
    EXPECT_FALSE(failed.format("%ls", UNFORMATTABLE));
    EXPECT_EQ(see(failed), (Seen{"", 0, 3}));
    EXPECT_FALSE(failed.append("x").format(NONE));
    EXPECT_EQ(textOf(failed), "");
}

TEST(CKoStringFormat, StrprintfUsesTheCallersBuffer)
{
    CKoString string("old");
    char buffer[6] = "?????";
    EXPECT_FALSE(string.strprintf(buffer, 0U, "%s", "text"));
    EXPECT_FALSE(string.strprintf(nullptr, 6U, "%s", "text"));
    EXPECT_STREQ(buffer, "?????");
    EXPECT_EQ(textOf(string), "old");
    EXPECT_TRUE(string.strprintf(buffer, 6U, "%s", "\xC3\xA9\xFF!"));
    EXPECT_STREQ(buffer, "\xC3\xA9\xFF!") << "the buffer keeps the raw bytes";
    EXPECT_EQ(textOf(string), "\xC3\xA9");
    EXPECT_FALSE(string.strprintf(buffer, 6U, "%s", "1234567"));
    EXPECT_STREQ(buffer, "12345");
    EXPECT_EQ(textOf(string), "12345");
    EXPECT_FALSE(string.strprintf(buffer, 1U, "x"));
    EXPECT_EQ(textOf(string), "");
}

TEST(TKoFormatString, HoldsWhatFitsOrNothing)
{
    EXPECT_STREQ(TKoFormatString<8>("%s", "0123456789").c_str(), "0123456");
    EXPECT_STREQ(TKoFormatString<>("\xC3%c", 'x').c_str(), "\xC3x");
    EXPECT_STREQ(TKoFormatString<>(NONE).c_str(), "");
    EXPECT_STREQ(TKoFormatString<16>("ab%ls", UNFORMATTABLE).c_str(), "");
    EXPECT_EQ(sizeof(TKoFormatString<>), 256U);
}

} // namespace
