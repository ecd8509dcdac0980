#include "pf/stream/CKoOTextStream.h"

#include <climits>
#include <functional>
#include <random>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "pf/base/CKoString.h"
#include "tests/support/AssertionCounter.h"

namespace
{

TEST(CKoOTextStream, formatsItemsByFlagsAndWidth)
{
    const std::string nul("a\0b", 3);
    const std::string many(300, 'x');
    const struct
    {
        std::string expected;
        std::function<void(CKoOTextStream&)> write;
    } cases[] = {
        {"10true", [](auto& out) { out << true << false << koBoolAlpha << true; }},
        {"false  1", [](auto& out) { out << koBoolAlpha << false << koNoBoolAlpha << koWidth(3) << true; }},
        {"    abc",
         [](auto& out)
         {
             out << koWidth(6) << "ab"
                 << "c";
         }},
        {"abc-2", [](auto& out) { out << koWidth(2) << "abc" << -2; }},
        {"  x 7", [](auto& out) { out << koWidth(3) << 'x' << koWidth(2) << 7U; }},
        {"\xC3\xA4  1", [](auto& out) { out << koWidth(3) << CKoString("\xC3\xA4") << 1; }},
        {"true  1", [](auto& out) { out << koBoolAlpha << koWidth(3) << true << 1; }},
        {"ab   c", [](auto& out) { out << koWidth(4), out.write("ab", 2), out << "c"; }},
        {"   5|x",
         [](auto& out) { out << koWidth(4), out.streamWrite("%d", 5), out.streamWrite("|%s", "x"); }},
        {many + "y", [&](auto& out) { out.streamWrite("%s%c", many.c_str(), 'y'); }},
        {" " + many, [&](auto& out) { out << koWidth(301), out.streamWrite("%s", many.c_str()); }},
        {nul, [](auto& out) { out.streamWrite("a%cb", 0); }},
        {"  a", [](auto& out) { out << koWidth(3), out.streamWrite("a%cb", 0); }},
        {std::string(400, ' ') + "1", [](auto& out) { out << koWidth(401) << 1; }},
        {"a&lt;b&amp;&apos;c&apos;", [](auto& out) { out << koXmlEscape << "a<b&'c'"; }},
        {"&gt;  &quot;# >",
         [](auto& out) { out << koXmlEscape << '>' << CKoString("  \"# ") << koNoXmlEscape << '>'; }},
        {"&lt;  1", [](auto& out) { out << koWidth(3) << koXmlEscape << "<" << 1; }},
        {"", [](auto& out) { out << static_cast<const char*>(nullptr) << "", out.write(nullptr, 3); }},
        {"", [](auto& out) { out << static_cast<void (*)(CKoOTextStream&)>(nullptr), out.write("x", 0); }},
    };
    for (const auto& [expected, write] : cases)
        for (const unsigned int capacity : {0U, 5U, 1000U})
        {
            CKoOTextStream stream(capacity);
            write(stream);
            EXPECT_EQ(expected, std::string(stream.c_str(), stream.length()));
            EXPECT_EQ('\0', stream.c_str()[stream.length()]);
        }
}

TEST(CKoOTextStream, numbersAreThoseOfTheStandardStream)
{
    CKoOTextStream stream;
    std::ostringstream expected;
    const auto write = [&](auto... values) { ((stream << values << ' ', expected << values << ' '), ...); };
    write(INT_MIN, UINT_MAX, LONG_MIN, ULONG_MAX, LLONG_MIN, ULLONG_MAX, static_cast<short>(-3), 0);
    write(0.0, -0.0, 1e5, 123456.5, 1e6, 1e-5, 0.1F, -1.5e300, 5e-324, 1.0 / 3, HUGE_VAL, -HUGE_VAL);
    EXPECT_EQ(expected.str(), stream.c_str());
}

TEST(CKoOTextStream, escapesTextsOfEveryShape)
{
    const unsigned int seed = std::random_device()();
    std::mt19937 random(seed);
    const char* const entities[] = {"&quot;", "&amp;", "&apos;", "&lt;", "&gt;"};
    for (unsigned int length = 0; length < 400; ++length)
    {
        std::string text, expected;
        for (unsigned int i = 0; i < length; ++i)
        {
            const std::size_t kind = random() % (length % 2 == 0 ? 8U : 100U);
            text += kind < 8 ? "\"&'<>#=\xE2"[kind] : 'x';
            expected += kind < 5 ? entities[kind] : text.substr(i);
        }
        CKoOTextStream stream;
        stream << koXmlEscape << text.c_str();
        ASSERT_EQ(expected, stream.c_str()) << "seed " << seed;
    }
}

TEST(CKoOTextStream, capacityDoublesAndIsGivenBack)
{
    CKoOTextStream stream(0);
    stream.trim();
    EXPECT_EQ(0U, stream.capacity());
    EXPECT_STREQ("", stream.c_str());
    EXPECT_EQ(128U, stream.capacity());
    stream << "0123456789";
    stream.resize(10);
    EXPECT_EQ(128U, stream.capacity());
    stream.trim();
    EXPECT_EQ(11U, stream.capacity());
    stream << stream.c_str() << koWidth(21) << stream.c_str() << koXmlEscape << stream.c_str() << koWidth(3);
    EXPECT_STREQ("01234567890123456789 0123456789012345678901234567890123456789 01234567890123456789",
                 stream.c_str());

    const CKoOTextStream copy(stream);
    CKoOTextStream assigned(5);
    assigned = stream;
    assigned = *&assigned;
    EXPECT_TRUE(copy.width() == 0 && assigned.width() == 3 && (copy.flags() & assigned.flags()) == 2U);
    EXPECT_TRUE(copy.capacity() == 88U && assigned.capacity() == 88U);
    stream.resize(0);
    EXPECT_TRUE(stream.length() == 0 && std::string(copy.c_str()) == assigned.c_str());

    const volatile unsigned int tooMany = UINT_MAX - 2;
    const KoTest::ReportCase cases[] = {
        {"CKoOTextStream: ???", [&] { EXPECT_FALSE(stream.checkSpare(UINT_MAX)); }},
        {"CKoOTextStream: ???", [&] { assigned.write(stream.c_str(), tooMany); }},
        {"CKoOTextStream: ???", [&] { stream << koWidth(UINT_MAX) << 1; }},
    };
    KoTest::expectReports(cases, [&] { EXPECT_TRUE(stream.length() == 0 && assigned.length() == 82); });
}

} // namespace
