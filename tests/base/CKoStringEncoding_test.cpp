#include "pf/base/CKoString.h"

#include <numeric>
#include <vector>

#include <gmock/gmock.h>

#include "tests/base/StringTesting.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/MemoryStream.h"

using namespace KoTest;
using testing::ElementsAre;

namespace
{

constexpr const char* MALFORMED = "The character sequence contains a wrong coded UTF-8 sequence !";
constexpr int ERROR_SEVERITY = 2;

TEST(CKoStringEncoding, AcceptsBySequenceLengthAndTopBitsOnly)
{
    struct Case
    {
        std::string bytes;
        unsigned int kept;
        unsigned int characters;
    };
    // clang-format off
    const Case cases[] = {
        {"a\xC3", 1, 1}, {"\x80", 0, 0}, {"\xE2\x82\xAC", 3, 1}, {"\xF0\x9F\x98\x80!", 5, 2},
        {"\xF8\x88\x80\x80\x80", 5, 1}, {"\xFC\x84\x80\x80\x80\x80", 6, 1}, {"\xFC\x84\x80\x80\x80", 0, 0},
        {"a\xFE\x80", 1, 1}, {"a\xFF", 1, 1}, {"\xC3x", 0, 0}, {"\xC3\xA9\xA9", 2, 1},
        {"\xC0\x80\xED\xA0\x80", 5, 2},                                   // overlong, and a surrogate
        {"\xC3\xC3", 2, 1}, {"\xE2\xFF\xC0x", 4, 2}, {"\xC3\xC3\xA9", 2, 1}, // any top bit continues
        {"\xC3\xFF\x80\x80\x80", 2, 1}, {"\xC3\xFE\x80", 2, 1}, {"\xE2\xE2\xE2\x80\x80", 3, 1},
    };
    // clang-format on
    for (const Case& c : cases)
    {
        // The rules hold wherever a scan in pieces meets the bytes.
        for (unsigned int before = 0; before < 40; ++before)
        {
            const std::string bytes = std::string(before, 'a') + c.bytes + "and so on for a while";
            const bool isWhole = c.kept == c.bytes.size();
            const std::string kept = isWhole ? bytes : bytes.substr(0, before + c.kept);
            const unsigned int size = static_cast<unsigned int>(bytes.size());
            const LogCapture log;
            EXPECT_EQ(see(make(bytes)), (Seen{kept, before + c.characters + (isWhole ? 21U : 0U), size}));
            EXPECT_EQ(log.texts(ERROR_SEVERITY), std::vector<std::string>(isWhole ? 0 : 1, MALFORMED));
        }
    }
}

/// Ways for raw bytes into a string; each gives what arrived.

Seen takeByFormat(const std::string& bytes)
{
    CKoString string("old");
    string.format("%s", bytes.c_str());
    return see(string);
}

Seen takeByStream(const std::string& bytes)
{
    const unsigned int size = static_cast<unsigned int>(bytes.size());
    MemoryStream stream;
    stream.write(&size, sizeof(size));
    stream.write(bytes.c_str(), size + 1U);
    CKoString string("old");
    CKoString::fromNubStream(stream, string);
    return see(string);
}

Seen takeByAppend(const std::string& bytes)
{
    CKoString string("#");
    string.append(bytes.c_str());
    return {textOf(string).substr(1), string.length() - 1U, 0U};
}

Seen takeInPlace(const std::string& bytes)
{
    CKoString string(static_cast<unsigned int>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), blockOf(string)->text());
    string.charConstruct(string.c_str(), string.capacity(), 0U);
    return see(string);
}

TEST(CKoStringEncoding, EveryEntryKeepsWhatTheModelKeeps)
{
    Seen (*const entries[])(const std::string&) = {[](const std::string& bytes)
                                                   { return see(CKoString(bytes.c_str())); },
                                                   takeByAppend, takeInPlace, takeByFormat, takeByStream};
    Random random;
    SCOPED_TRACE(random.trace());
    for (int turn = 0; turn < 3000 && !HasFailure(); ++turn)
    {
        // Mostly good text around some bytes that are good or not, so that faults come at all offsets.
        const std::string bytes = random.text(20) + random.bytes(turn % 3 == 0 ? 90 : 5) + random.text(20);
        const Accepted expected = accept(bytes);
        for (const auto entry : entries)
        {
            const LogCapture log;
            const Seen seen = entry(bytes);
            EXPECT_EQ(seen, (Seen{expected.text, expected.characters, seen.capacity}))
                << &entry - entries << ' ' << testing::PrintToString(bytes);
            EXPECT_EQ(log.size(), expected.text == bytes ? 0U : 1U);
        }
    }
}

TEST(CKoStringEncoding, LongTextIsCheckedAcrossAllPieceBoundaries)
{
    std::string text;
    while (text.size() < 50000)
    {
        text += "ascii only here, sixteen and more "
                "\xCE\xBB\xE4\xB8\x96\xF0\x9F\x98\x80\xC3\xA9\xFC\x84\x80\x80\x80\x80";
    }
    for (std::size_t shift = 0; shift < 70; ++shift)
    {
        // The shift moves characters over the boundaries; the fault shows that nothing behind it is kept.
        std::string bytes = std::string(5 * shift, 'x') + text;
        EXPECT_EQ(make(bytes).length(), accept(bytes).characters);
        bytes[40000 + shift * 3] = '\xFF';
        const LogCapture log;
        const CKoString string = make(bytes);
        ASSERT_EQ(textOf(string), accept(bytes).text) << shift;
        ASSERT_EQ(string.length(), accept(bytes).characters) << shift;
    }
}

TEST(CKoStringEncoding, NothingBehindTheZeroByteIsRead)
{
    for (unsigned int length = 0; length < 40; ++length)
    {
        // On the heap and exactly as long as it is, so that a memory checker sees every byte too many.
        std::vector<char> text(length + 1U, 'x');
        text.back() = '\0';
        CKoString string(text.data(), 1000U);
        string.reserve(200U);
        string.append(text.data(), 1000U).append(text.data());
        EXPECT_EQ(string.byteLength(), 3U * length);
    }
}

TEST(CKoStringEncoding, CodePointsTakeOneToSixBytes)
{
    struct Case
    {
        unsigned int codePoint;
        std::string bytes;
    };
    // clang-format off
    const Case cases[] = {
        {0x7FU, "\x7F"}, {0x80U, "\xC2\x80"}, {0x7FFU, "\xDF\xBF"}, {0x800U, "\xE0\xA0\x80"}, {0xD800U, "\xED\xA0\x80"},
        {0xFFFFU, "\xEF\xBF\xBF"}, {0x10000U, "\xF0\x90\x80\x80"}, {0x1FFFFFU, "\xF7\xBF\xBF\xBF"},
        {0x200000U, "\xF8\x88\x80\x80\x80"}, {0x3FFFFFFU, "\xFB\xBF\xBF\xBF\xBF"},
        {0x4000000U, "\xFC\x84\x80\x80\x80\x80"}, {0x7FFFFFFFU, "\xFD\xBF\xBF\xBF\xBF\xBF"},
    };
    // clang-format on
    for (const Case& c : cases)
    {
        CKoString string;
        string.fromUCS4Sequence(&c.codePoint, 1U);
        EXPECT_EQ(see(string), (Seen{c.bytes, 1U, static_cast<unsigned int>(c.bytes.size())}));
        EXPECT_EQ(*string.begin(), c.codePoint) << "decoding is the way back";
    }
}

MemoryStream streamOf(unsigned int length, const std::string& bytes)
{
    MemoryStream stream;
    stream.write(&length, sizeof(length));
    stream.write(bytes.data(), static_cast<unsigned int>(bytes.size()));
    return stream;
}

TEST(CKoStringStream, BothFormsCarryTheLengthAndTheAlignedOneATerminatingZero)
{
    MemoryStream stream;
    stream << CKoString("\xC3\xA9!") << CKoString();
    EXPECT_THAT(stream.bytes, ElementsAre(3, 0, 0, 0, 0xC3, 0xA9, '!', 0, 0, 0, 0));
    MemoryStream aligned;
    CKoString::toNubStream(aligned, CKoString("ab"));
    CKoString::toNubStream(aligned, CKoString());
    EXPECT_THAT(aligned.bytes, ElementsAre(2, 0, 0, 0, 'a', 'b', 0, 0, 0, 0, 0, 0));

    CKoString string;
    CKoString empty("full");
    stream >> string >> empty;
    EXPECT_EQ(see(string), (Seen{"\xC3\xA9!", 2, 3}));
    EXPECT_EQ(see(empty), (Seen{"", 0, 4}));
    empty = string;
    CKoString::fromNubStream(aligned, string);
    CKoString::fromNubStream(aligned, empty);
    EXPECT_EQ(see(string), (Seen{"ab", 2, 2}));
    EXPECT_EQ(textOf(empty), "");
    EXPECT_THAT(aligned.aligns, ElementsAre(4U, 4U, 4U, 4U));
    EXPECT_EQ(std::accumulate(aligned.reads.begin(), aligned.reads.end(), 0U), 12U) << "every byte";
}

TEST(CKoStringStream, LengthsThatNoBlockCanHaveAreReportedAndLeaveTheTarget)
{
    const AssertionReports reports;
    CKoString string("old");
    streamOf(0xFFFFFFECU, "abc") >> string;
    CKoString::fromNubStream(streamOf(0xFFFFFFFFU, "abc"), string);
    EXPECT_EQ(textOf(string), "old");
    EXPECT_THAT(reports.summaries(), ElementsAre("CKoString: CKoString::ctor: Capacity -20 not valid!",
                                                 "CKoString: CKoString::ctor: Capacity -1 not valid!"));
}

TEST(CKoStringStream, ALengthThatIsNotTrueCostsOnlyWhatArrives)
{
    const std::string bytes(100000, 'x');
    CKoString string("old");
    streamOf(0xFFFFFFEBU, bytes) >> string;
    EXPECT_EQ(textOf(string), bytes);
    EXPECT_LE(string.capacity(), 4U * bytes.size());
    CKoString::fromNubStream(streamOf(5U, "abc"), string);
    EXPECT_EQ(textOf(string), "abc");
    CKoString::fromNubStream(MemoryStream(), string);
    EXPECT_EQ(textOf(string), "");
}

TEST(CKoStringStream, LongTextsArriveWholeInABlockOfTheirSize)
{
    for (const unsigned int size : {65535U, 65536U, 65537U, 131072U, 131073U, 500001U})
    {
        std::string bytes = "\xC3\xA9";
        bytes.resize(size, '.');
        MemoryStream stream;
        stream << make(bytes);
        CKoString::toNubStream(stream, make(bytes));
        CKoString plain;
        CKoString aligned;
        stream >> plain;
        CKoString::fromNubStream(stream, aligned);
        EXPECT_TRUE(see(plain) == (Seen{bytes, size - 1U, size}) && see(aligned) == see(plain)) << size;
    }
}

} // namespace
