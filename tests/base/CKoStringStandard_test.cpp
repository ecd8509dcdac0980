#include "pf/base/CKoString.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <gtest/gtest.h>

namespace
{

using namespace std::string_view_literals;
using CodePoints = std::vector<unsigned int>;

TEST(CKoStringStandard, takesTextsAndGivesThemBack)
{
    const std::string_view sentence = "gear pump"sv;
    const struct
    {
        std::string_view given;
        std::string_view kept;
    } cases[] = {
        {{}, ""},           {"", ""},           {sentence.substr(0, 4), "gear"}, // no zero byte behind it
        {"Größe", "Größe"}, {"ab\0cd"sv, "ab"},                                  // a text ends at a zero byte
    };
    for (const auto& each : cases)
    {
        const CKoString text(each.given);
        EXPECT_EQ(std::string_view(text), each.kept);
        EXPECT_TRUE(text == each.kept && each.kept == text);
        EXPECT_EQ(CKoString("> ").append(each.given), CKoString("> ").append(text));
        EXPECT_EQ(CKoString(std::string(text)), text);
    }
    EXPECT_EQ(std::string_view(CKoString("pump")).substr(1), "ump");
}

TEST(CKoStringStandard, sizeBeyondThirtyTwoBitsIsNotCutToItsLowBits)
{
    if constexpr (sizeof(std::size_t) > sizeof(unsigned int))
    {
        constexpr std::size_t CLAIMED = (std::size_t{1} << (sizeof(std::size_t) * 4U)) + 1U;
        EXPECT_EQ(CKoString(std::string_view("abc", CLAIMED)), CKoString("abc"));
        EXPECT_EQ(CKoString("x").append(std::string_view("abc", CLAIMED)), CKoString("xabc"));
    }
}

TEST(CKoStringStandard, equalTextsHaveEqualHashesHoweverTheyWereMade)
{
    const CKoString whole("gear pump");
    const CKoString shared = whole;
    CKoString built("gear");
    built.reserve(100);
    built.append(" pump");
    const std::hash<CKoString> hash{};
    EXPECT_EQ(hash(whole), hash(shared));
    EXPECT_EQ(hash(whole), hash(built));
    EXPECT_EQ(hash(whole), std::hash<std::string_view>()("gear pump"));
    EXPECT_EQ(hash(CKoString()), hash(CKoString(16U)));
    EXPECT_NE(hash(whole), hash(CKoString("gear pumq")));

    std::unordered_map<CKoString, int> litres{{"pump", 40}, {"valve", 2}};
    EXPECT_EQ(litres.at("pump") + litres.at("valve"), 42);
    const std::map<CKoString, int, std::less<std::string_view>> ordered{{"b", 2}, {"a", 1}};
    EXPECT_EQ(ordered.begin()->first, CKoString("a"));
}

TEST(CKoStringStandard, isARangeOfCodePoints)
{
    const CKoString text("aß€😀ß");
    const CodePoints expected{0x61, 0xDF, 0x20AC, 0x1F600, 0xDF};
    CodePoints walked;
    for (const unsigned int codePoint : text)
    {
        walked.push_back(codePoint);
    }
    EXPECT_EQ(walked, expected);
    EXPECT_EQ(CodePoints(text.begin(), text.end()), expected);
    EXPECT_EQ(CodePoints(std::make_reverse_iterator(text.end()), std::make_reverse_iterator(text.begin())),
              CodePoints(expected.rbegin(), expected.rend()));

    EXPECT_EQ(std::distance(text.begin(), text.end()), 5);
    EXPECT_EQ(std::count(text.begin(), text.end(), 0xDFU), 2);
    EXPECT_EQ(*std::prev(text.end(), 2), 0x1F600U);
    EXPECT_EQ(std::find(text.begin(), text.end(), 0x20ACU), text.find(CKoString("€")));
    const CKoString pair("€😀");
    EXPECT_EQ(std::search(text.begin(), text.end(), pair.begin(), pair.end()), std::next(text.begin(), 2));
    EXPECT_EQ(std::max_element(text.begin(), text.end()), std::next(text.begin(), 3));
    EXPECT_EQ(std::accumulate(CKoString().begin(), CKoString().end(), 7U), 7U);
}

} // namespace
