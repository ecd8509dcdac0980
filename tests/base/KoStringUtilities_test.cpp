#include "pf/base/KoStringUtilities.h"

#include <chrono>
#include <numeric>
#include <vector>

#include "tests/base/StringTesting.h"

using namespace KoTest;
using KoStringUtilities::SKoCaseMappingTable;

namespace
{

const SKoCaseMappingTable& UPPER = KoStringUtilities::sToUpperCaseMappingTable;
const SKoCaseMappingTable& LOWER = KoStringUtilities::sToLowerCaseMappingTable;

std::string mapped(const std::string& text, const SKoCaseMappingTable& table)
{
    CKoString string = make(text);
    KoStringUtilities::doCaseMapping(string, table);
    return textOf(string);
}

TEST(KoStringUtilities, TablesHoldTheLettersOfUnicode40)
{
    struct Case
    {
        const SKoCaseMappingTable& table;
        int simple, range, special, values;
    };
    for (const Case& c : {Case{UPPER, 386, 28, 102, 220}, Case{LOWER, 380, 31, 1, 2}})
    {
        EXPECT_EQ(c.table.simpleCount16, c.simple);
        EXPECT_EQ(c.table.rangeCount16, c.range);
        EXPECT_EQ(c.table.specialCount16, c.special);
        EXPECT_EQ(c.table.simpleCount32 + c.table.rangeCount32 + c.table.specialCount32, 0);
        const SKoCaseMappingTable::SSpecial16& last = c.table.special16[c.special - 1];
        EXPECT_EQ(last.replacement + last.count - c.table.special16[0].replacement, c.values);
    }
    // clang-format off
    const unsigned int ranges[][3] = {
        {0x61, 26, 0x41}, {0xE0, 23, 0xC0}, {0xF8, 7, 0xD8}, {0x3B1, 17, 0x391}, {0x430, 32, 0x410},
        {0x450, 16, 0x400}, {0x561, 38, 0x531}, {0xFF41, 26, 0xFF21},
        {0x41, 26, 0x61}, {0x410, 32, 0x430}, {0x1F88, 8, 0x1F80}, {0x1F98, 8, 0x1F90}, {0x1FA8, 8, 0x1FA0}};
    // clang-format on
    for (const auto& row : ranges)
    {
        const SKoCaseMappingTable& table = &row < ranges + 8 ? UPPER : LOWER;
        EXPECT_EQ(std::count_if(table.range16, table.range16 + table.rangeCount16,
                                [&](const SKoCaseMappingTable::SRange16& range) {
                                    return range.start == row[0] && range.length == row[1] &&
                                           range.target == row[2];
                                }),
                  1)
            << row[0];
    }
}

TEST(KoStringUtilities, MapsTheTellingCharacters)
{
    // clang-format off
    const char* const cases[][3] = {
        {"Stra\u00DFe", "STRASSE", "stra\u00DFe"},
        {"\u0130", "\u0130", "i\u0307"},
        {"\u00B5\u00FF\u0101\u1FBE", "\u039C\u0178\u0100\u0399", "\u00B5\u00FF\u0101\u1FBE"},
        {"\u0149\u01F0\u0390\uFB17", "\u02BCNJ\u030C\u0399\u0308\u0301\u0544\u053D", "\u0149\u01F0\u0390\uFB17"},
        {"\u03F2\u03F8\u0131", "\u03F9\u03F7I", "\u03F2\u03F8\u0131"},
        {"\u212A\u2126", "\u212A\u2126", "k\u03C9"},
        {"\u04F7\u0180\u24D0\u2170\u20AC", "\u04F7\u0180\u24D0\u2170\u20AC", "\u04F7\u0180\u24D0\u2170\u20AC"},
        {"\U00010428\U0001F600z", "\U00010428\U0001F600Z", "\U00010428\U0001F600z"},
        {"\xF8\x88\x80\x80\x80\xED\xA0\x80", "\xF8\x88\x80\x80\x80\xED\xA0\x80", "\xF8\x88\x80\x80\x80\xED\xA0\x80"},
        {"\xC1\xA1z\xE0\x80\xA1", "AZ\xE0\x80\xA1", "\xC1\xA1z\xE0\x80\xA1"}, // overlong forms
        {"\xC2\xC2xyZz", "\xC2\xC2XYZz", "\xC2\xC2xyzz"}, // six steps, but five characters
    };
    // clang-format on
    for (const auto& [from, upper, lower] : cases)
    {
        EXPECT_EQ(mapped(from, UPPER), upper);
        EXPECT_EQ(mapped(from, LOWER), lower);
    }
}

/// The rule, character by character from the end.
void mapByTheRule(CKoString& text, const SKoCaseMappingTable& table)
{
    const auto findIn = [](const auto* entries, int count, unsigned int c)
    {
        const auto* const end = entries + count;
        const auto* const entry = std::find_if(entries, end, [=](const auto& e) { return e.from == c; });
        return entry == end ? nullptr : entry;
    };
    for (unsigned int i = text.length(); i-- != 0U;)
    {
        const unsigned int c = text[i];
        std::vector<unsigned int> to;
        if (const auto* const entry = findIn(table.simple16, table.simpleCount16, c))
        {
            to = {entry->to};
        }
        for (int r = 0; r != table.rangeCount16; ++r)
        {
            const SKoCaseMappingTable::SRange16& range = table.range16[r];
            if (to.empty() && c >= range.start && c < 0U + range.start + range.length)
            {
                to = {range.target + (c - range.start)};
            }
        }
        if (const auto* const entry = findIn(table.special16, table.specialCount16, c); entry && to.empty())
        {
            to.assign(entry->replacement, entry->replacement + entry->count);
        }
        const auto* const entry32 = findIn(table.special32, table.specialCount32, c);
        if (entry32 != nullptr)
        {
            to.assign(entry32->replacement, entry32->replacement + entry32->count);
        }
        if (entry32 != nullptr || !to.empty())
        {
            Position position = at(text, static_cast<int>(i));
            text.replace(position, 1U, CKoString(to.data(), to.data() + to.size()));
        }
    }
}

TEST(KoStringUtilities, MapsInOnePassWhatTheRuleMapsOneByOne)
{
    // Maps ASCII in no simple way, lets texts grow and shrink, and has a part beyond 16 bits.
    const SKoCaseMappingTable::SSimple16 simple[] = {{'a', 0x20AC}, {0x20AC, 'e'}};
    const SKoCaseMappingTable::SRange16 ranges[] = {{'b', 3, 'c'}, {0x3B0, 0x20, 0x410}};
    const unsigned int many[] = {0x1F600, 'x', 0xE9};
    const SKoCaseMappingTable::SSpecial32 special[] = {{0x1F600, 3, many}, {0x1F601, 0, many}};
    const SKoCaseMappingTable own = {2, simple, 2, ranges, 0, nullptr, 0, nullptr, 0, nullptr, 2, special};
    const char* const characters[] = {"a",          "b",          "z",
                                      "A",          " ",          "the quick Brown fox jumps over it",
                                      "\u00E9",     "\u00C9",     "\u00DF",
                                      "\u00E4",     "\u03B1",     "\u0434",
                                      "\u0401",     "\u0131",     "\u0130",
                                      "\u0390",     "\u1E9A",     "\u1F80",
                                      "\u1F88",     "\u1FB3",     "\uFB03",
                                      "\u212A",     "\u20AC",     "\u4E16",
                                      "\U0001F600", "\U0001F601", "\xF8\x88\x80\x80\x80"};
    Random random;
    SCOPED_TRACE(random.trace());
    for (unsigned int round = 0; round < 3000; ++round)
    {
        std::string bytes;
        // Few different characters in a text make it remember them, many make it forget.
        for (unsigned int i = random.below(40), kinds = 1 + random.below(27); i != 0; --i)
        {
            bytes += characters[(random.below(kinds) + round) % 27];
        }
        const CKoString source = make(bytes);
        for (const SKoCaseMappingTable* table : {&UPPER, &LOWER, &own})
        {
            CKoString expected(source);
            mapByTheRule(expected, *table);
            CKoString shared(source);
            CKoString owned = make(bytes);
            owned.reserve(owned.byteLength() + random.below(4));
            const unsigned int capacity = owned.capacity();
            KoStringUtilities::doCaseMapping(shared, *table);
            KoStringUtilities::doCaseMapping(owned, *table);
            ASSERT_EQ(textOf(shared), textOf(expected));
            ASSERT_EQ(textOf(owned), textOf(expected));
            ASSERT_EQ(shared.length(), expected.length());
            ASSERT_EQ(owned.length(), expected.length());
            ASSERT_EQ(textOf(source), bytes);
            ASSERT_EQ(blockOf(shared) == blockOf(source), blockOf(expected) == blockOf(source));
            ASSERT_GE(owned.capacity(), capacity);
        }
    }
}

TEST(KoStringUtilities, MapsEveryCharacterByTheRule)
{
    for (const SKoCaseMappingTable* table : {&UPPER, &LOWER})
    {
        for (unsigned int first = 0x20; first < 0x10000; first += 32)
        {
            unsigned int units[32];
            std::iota(units, units + 32, first);
            CKoString expected(units, units + 32);
            CKoString text = make(textOf(expected));
            mapByTheRule(expected, *table);
            KoStringUtilities::doCaseMapping(text, *table);
            ASSERT_EQ(textOf(text), textOf(expected));
        }
    }
}

TEST(KoStringUtilities, MapsAMegabyteInMilliseconds)
{
    std::string text;
    while (text.size() < 1U << 20U)
    {
        text += "Gr\u00FC\u00DFe, \u041C\u0438\u0440 \u0390 ";
    }
    CKoString string = make(text);
    const auto start = std::chrono::steady_clock::now();
    KoStringUtilities::toUpper(string);
    EXPECT_LT(std::chrono::steady_clock::now() - start,
              std::chrono::seconds(2)); // with sanitizers, under emulation
    EXPECT_EQ(string.getLeft(12), CKoString("GR\u00DCSSE, \u041C\u0418\u0420 "));
    // A zero byte within a text ends every walk over its characters.
    CKoString cut("ab");
    cut.internalAppend("c\0d", 3U);
    KoStringUtilities::toUpper(cut);
    EXPECT_EQ(textOf(cut), std::string("ABC\0d", 5));
}

TEST(KoStringUtilities, SplitsAtAnyOfTheSeparators)
{
    struct Case
    {
        const char* text;
        const char* separators;
        std::vector<std::string> all;
        std::vector<std::string> filled;
    };
    const Case cases[] = {
        {"a,,b", ",", {"a", "", "b"}, {"a", "b"}},
        {"a,", ",", {"a", ""}, {"a"}},
        {"", ",", {""}, {}},
        {",", ",", {"", ""}, {}},
        {"a;b,c", ";,", {"a", "b", "c"}, {"a", "b", "c"}},
        {"a,b", "", {"a,b"}, {"a,b"}},
        {"\u00E9\u20AC\u00E8\u20ACx", "\u20AC", {"\u00E9", "\u00E8", "x"}, {"\u00E9", "\u00E8", "x"}},
    };
    for (const Case& c : cases)
    {
        for (const bool skipEmpty : {false, true})
        {
            // The text and the separators may live in the vector that is filled.
            TKoVector<CKoString> parts = {CKoString(c.text), CKoString(c.separators)};
            KoStringUtilities::split(parts, parts[0], parts[1], skipEmpty);
            std::vector<std::string> texts;
            std::transform(parts.begin(), parts.end(), std::back_inserter(texts), textOf);
            EXPECT_EQ(texts, skipEmpty ? c.filled : c.all) << c.text;
        }
    }
    // A zero byte ends the separators, and the search for one.
    TKoVector<CKoString> parts;
    const unsigned int separators[] = {';', 0U, ','};
    KoStringUtilities::split(parts, CKoString("a,b;c"), CKoString(separators, separators + 3), false);
    ASSERT_EQ(parts.size(), 2);
    EXPECT_EQ(parts[0], CKoString("a,b"));
}

} // namespace
