#include "pf/base/KoCharsetConversion.h"

#include <numeric>
#include <vector>

#include "tests/base/StringTesting.h"
#include "tests/support/AssertionCounter.h"

using namespace KoTest;

namespace
{

using Units = std::vector<unsigned short>;

std::string allBytes()
{
    std::string bytes(256, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    return bytes;
}

TEST(KoCharsetConversion, ConvertsAllBytesBothWays)
{
    // What ISO 8859-15 has in place of its predecessor's characters, as published.
    const std::pair<unsigned int, unsigned int> changes[] = {{0xA4, 0x20AC}, {0xA6, 0x160}, {0xA8, 0x161},
                                                             {0xB4, 0x17D},  {0xB8, 0x17E}, {0xBC, 0x152},
                                                             {0xBD, 0x153},  {0xBE, 0x178}};
    std::vector<unsigned int> first(255);
    std::iota(first.begin(), first.end(), 1U);
    std::vector<unsigned int> fifteenth = first;
    for (const auto& change : changes)
    {
        fifteenth[change.first - 1] = change.second;
    }
    const std::string bytes = allBytes();
    const auto check = [&](auto* from, auto* to, const std::vector<unsigned int>& expected)
    {
        // In one piece, where the zero byte is dropped, and byte by byte.
        const CKoString all = from(bytes.data(), 256U);
        EXPECT_EQ(all, CKoString(expected.data(), expected.data() + 255));
        EXPECT_EQ(all.length(), 255U);
        EXPECT_EQ(all.capacity(), all.byteLength() + 1);
        char back[257];
        EXPECT_EQ(to(all, back, sizeof(back), '?'), 255);
        EXPECT_EQ(std::string(back), bytes.substr(1));
        for (unsigned int i = 0; i < 255; ++i)
        {
            const CKoString one = from(&bytes[i + 1], 1U);
            EXPECT_EQ(one, CKoString(&expected[i], &expected[i] + 1));
            EXPECT_EQ(to(one, back, 2U, '?'), 1);
            EXPECT_EQ(back[0], bytes[i + 1]);
        }
    };
    check(KoConvertFrom8859_1, KoConvertTo8859_1, first);
    check(KoConvertFrom8859_15, KoConvertTo8859_15, fifteenth);
    EXPECT_EQ(see(KoConvertFrom8859_1(bytes.data(), 0U)), (Seen{"", 0U, 0U}));
    const AssertionCounter reports(1U);
    EXPECT_EQ(see(KoConvertFrom8859_1(nullptr, 1U)), (Seen{"", 0U, 0U}));
}

TEST(KoCharsetConversion, CutsAndReplacesWhatDoesNotFit)
{
    const std::string many(300, 'x');
    const std::string cases[][3] = {
        {"five!", "five!", "five!"},
        {"\u20AC\u0160\u00A4", "??\xA4", "\xA4\xA6?"},
        {"\xC1\x81|\xC0\x80|\xE0\x82\xA4|\u0100", "?|?|?|?", "?|?|?|?"}, // overlong forms have no entry
        {"\xC3\xFF|\xF0\x82\x82\xAC|\xF8\x88\x80\x80\x80|\u20AD", "?|?|?|?", "?|?|?|?"},
        {many + "\u00E9" + many, many + "\xE9" + many, many + "\xE9" + many},
        {many + "\u20AC\u20AC\u20AC\u20AC\u20AC\u20AC\u20AC\u20AC", many + "????????",
         many + std::string(8, '\xA4')},
    };
    for (const auto& [text, latin1, latin9] : cases)
    {
        const unsigned int length = static_cast<unsigned int>(latin1.size());
        for (unsigned int size = 1; size < length + 16; size += size + 40 < length ? 7 : 1)
        {
            const unsigned int kept = std::min(length, size - 1);
            std::vector<char> buffer(size + 1, '#');
            EXPECT_EQ(KoConvertTo8859_1(make(text), buffer.data(), size, '?'),
                      static_cast<int>(std::min(length, size)));
            const std::string untouched(size - kept, '#');
            EXPECT_EQ(std::string(buffer.begin(), buffer.end()), latin1.substr(0, kept) + '\0' + untouched);
            KoConvertTo8859_15(make(text), buffer.data(), size, '?');
            EXPECT_EQ(std::string(buffer.data(), kept + 1), latin9.substr(0, kept) + '\0');
        }
    }
    char one = '#';
    EXPECT_EQ(KoConvertTo8859_1(make("a"), &one, 0U, '?') + KoConvertTo8859_1(make("a"), nullptr, 9U, '?'),
              0);
    EXPECT_EQ(one, '#');
    EXPECT_EQ(KoConvertTo8859_1(CKoString(), &one, 1U, '?'), 0);
    EXPECT_EQ(one, '\0');
}

/// Converts with every room around what is needed, `expected` units or a failure.
void checkUnits(const std::string& text, const std::u16string* expected)
{
    const std::size_t needed = expected == nullptr ? text.size() + 1 : expected->size() + 1;
    for (std::size_t room = 0; room < needed + 3; ++room)
    {
        Units buffer(room + 1, 0xABCD);
        unsigned int count = static_cast<unsigned int>(room);
        const bool isDone = convertUTF8ToUTF16(make(text), buffer.data(), count);
        ASSERT_EQ(isDone, expected != nullptr && room >= needed) << testing::PrintToString(text);
        ASSERT_EQ(count, isDone ? needed : room);
        ASSERT_EQ(buffer[room], 0xABCD);
        ASSERT_TRUE(!isDone || std::equal(buffer.begin(), buffer.begin() + static_cast<long>(needed),
                                          expected->c_str()));
    }
}

TEST(KoCharsetConversion, ConvertsWellFormedTextToUnitsAndBack)
{
    const std::pair<std::string, std::u16string> cases[] = {
        {"", u""},
        {"A\x7F\u0080\u07FF", u"A\x7F\u0080\u07FF"},
        {"\u0800\uD7FF\uE000\uFFFF", u"\u0800\uD7FF\uE000\uFFFF"},
        {"\U00010000\U0001F600\U0010FFFF", u"\U00010000\U0001F600\U0010FFFF"},
        {"sixteen letters and\u00E9many more of them in a row\u4E16",
         u"sixteen letters and\u00E9many more of them in a row\u4E16"},
    };
    for (const auto& c : cases)
    {
        checkUnits(c.first, &c.second);
        const Units units(c.second.c_str(), c.second.c_str() + c.second.size() + 1);
        CKoString target("old");
        EXPECT_TRUE(convertUTF16ToUTF8(units.data(), target, static_cast<unsigned int>(units.size())));
        EXPECT_EQ(target, CKoString("old") + make(c.first));
        EXPECT_EQ(target.length(), 3 + make(c.first).length());
    }
    unsigned int count = 7;
    EXPECT_FALSE(convertUTF8ToUTF16(CKoString("a"), nullptr, count));
    EXPECT_EQ(count, 7U);
}

TEST(KoCharsetConversion, RefusesEveryClassOfIllFormedText)
{
    const char* const cases[] = {
        "\xC0\x80",
        "\xC1\xBF",
        "\xE0\x9F\xBF",
        "\xF0\x8F\xBF\xBF", // longer than need be
        "\xED\xA0\x80",
        "\xED\xBF\xBF",
        "\xF4\x90\x80\x80",
        "\xF5\x80\x80\x80", // surrogates, too large
        "\xF8\x88\x80\x80\x80",
        "\xFC\x84\x80\x80\x80\x80", // too long
        "\xC3\xC3",
        "\xE2\xC3\x80",
        "\xE2\x80\xFF",
        "\xF0\x90\xC0\x80",
        "\xF0\x90\x80\xFF", // what follows
    };
    for (const char* const bytes : cases)
    {
        checkUnits(bytes, nullptr);
        checkUnits(std::string("seventeen letters\u00E9") + bytes + "x", nullptr);
    }
    CKoString cutOff("a");
    cutOff.internalAppend("\xE2\x82", 2U);
    Units buffer(9, 0xABCD);
    unsigned int count = 9;
    EXPECT_FALSE(convertUTF8ToUTF16(cutOff, buffer.data(), count));
    EXPECT_EQ(buffer, (Units{'a', 0xABCD, 0xABCD, 0xABCD, 0xABCD, 0xABCD, 0xABCD, 0xABCD, 0xABCD}));
}

TEST(KoCharsetConversion, EncodesUnitsWithoutAPartnerByThemselves)
{
    struct Case
    {
        Units units;
        std::string appended;
        bool isDone;
    };
    const Case cases[] = {
        {{0xD83D, 0xDE00}, "\xF0\x9F\x98\x80", true},
        {{0xD83D, 'A'},
         "\xED\xA0\xBD"
         "A",
         true},
        {{0xDE00, 0xD83D, 0xD83D, 0xDE00}, "\xED\xB8\x80\xED\xA0\xBD\xF0\x9F\x98\x80", true},
        {{'a', 0, 0xE9, 0}, "a\u00E9", true},
        {{'a', 0xD83D}, "a", false},
        {{0xD83D}, "", false},
        {{0, 0}, "", true},
    };
    for (const Case& c : cases)
    {
        const CKoString before("t");
        CKoString target(before);
        EXPECT_EQ(convertUTF16ToUTF8(c.units.data(), target, static_cast<unsigned int>(c.units.size())),
                  c.isDone);
        EXPECT_EQ(see(target), see(before + make(c.appended)));
        EXPECT_EQ(textOf(before), "t");
    }
    CKoString target("t");
    EXPECT_FALSE(convertUTF16ToUTF8(nullptr, target, 0U));
    EXPECT_TRUE(convertUTF16ToUTF8(cases[0].units.data(), target, 0U));
    EXPECT_EQ(textOf(target), "t");
}

} // namespace
