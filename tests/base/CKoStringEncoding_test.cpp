#include "pf/base/CKoString.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include <gmock/gmock.h>

#include "tests/base/StringTesting.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/MemoryStream.h"

using namespace KoTest;

namespace
{

constexpr const char* MALFORMED = "The character sequence contains a wrong coded UTF-8 sequence !";
constexpr int ERROR_SEVERITY = 2;

TEST(CKoStringEncoding, AcceptsBySequenceLengthAndTopBitsOnly)
{
    struct Case
    {
        const char* bytes;
        const char* kept;
        unsigned int characters;
    };
    const Case cases[] = {
        {"a\xC3", "a", 1},                   // cut off
        {"\x80", "", 0},                     // a continuation byte leads nothing
        {"\xE2\x82\xAC", "\xE2\x82\xAC", 1}, // the euro sign
        {"\xF0\x9F\x98\x80!", "\xF0\x9F\x98\x80!", 2},
        {"\xF8\x88\x80\x80\x80", "\xF8\x88\x80\x80\x80", 1},
        {"\xFC\x84\x80\x80\x80\x80", "\xFC\x84\x80\x80\x80\x80", 1},
        {"\xFC\x84\x80\x80\x80", "", 0},
        {"a\xFE\x80", "a", 1},
        {"a\xFF", "a", 1},
        {"\xC0\x80\xED\xA0\x80", "\xC0\x80\xED\xA0\x80", 2}, // overlong, and a surrogate
        {"\xC3\xC3", "\xC3\xC3", 1},                         // any top bit continues
        {"\xE2\xFF\xC0x", "\xE2\xFF\xC0x", 2},
        {"\xC3x", "", 0},
        {"\xC3\xA9\xA9", "\xC3\xA9", 1},
        {"\xC3\xC3\xA9", "\xC3\xC3", 1},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(testing::PrintToString(c.bytes));
        const LogCapture log;
        const CKoString string(c.bytes);
        const unsigned int bytes = static_cast<unsigned int>(std::strlen(c.bytes));
        EXPECT_EQ(see(string), (Seen{c.kept, c.characters, bytes}));
        const bool isCut = std::strlen(c.kept) != bytes;
        EXPECT_EQ(log.texts(ERROR_SEVERITY), std::vector<std::string>(isCut ? 1 : 0, MALFORMED));
    }
}

/// One way for raw bytes into a string; gives what arrived.
struct Entry
{
    const char* name;
    Seen (*take)(const std::string& bytes);
};

Seen takeByFormat(const std::string& bytes)
{
    CKoString string;
    string.format("%s", bytes.c_str());
    return see(string);
}

Seen takeByPrintf(const std::string& bytes)
{
    CKoString string("old");
    std::vector<char> buffer(bytes.size() + 1U);
    string.strprintf(buffer.data(), static_cast<unsigned int>(buffer.size()), "%s", bytes.c_str());
    EXPECT_EQ(bytes, buffer.data());
    return see(string);
}

MemoryStream streamOf(const std::string& bytes)
{
    const unsigned int size = static_cast<unsigned int>(bytes.size());
    MemoryStream stream;
    stream.write(&size, sizeof(size));
    stream.write(bytes.c_str(), size + 1U);
    return stream;
}

Seen takeByStream(const std::string& bytes)
{
    CKoString string("old");
    streamOf(bytes) >> string;
    return see(string);
}

Seen takeByAlignedStream(const std::string& bytes)
{
    CKoString string;
    CKoString::fromNubStream(streamOf(bytes), string);
    return see(string);
}

Seen takeByAppend(const std::string& bytes)
{
    CKoString string("##");
    string.append(bytes.c_str());
    EXPECT_EQ(textOf(string).substr(0, 2), "##");
    return {textOf(string).substr(2), string.length() - 2U, 0U};
}

Seen takeInPlace(const std::string& bytes)
{
    CKoString string(static_cast<unsigned int>(bytes.size()));
    char* const place = blockOf(string)->text();
    std::memcpy(place, bytes.data(), bytes.size());
    string.charConstruct(place, static_cast<unsigned int>(bytes.size()), 0U);
    return see(string);
}

const Entry ENTRIES[] = {
    {"constructor", [](const std::string& bytes) { return see(CKoString(bytes.c_str())); }},
    {"bounded constructor", [](const std::string& bytes) { return see(make(bytes)); }},
    {"append", takeByAppend},
    {"charConstruct in place", takeInPlace},
    {"format", takeByFormat},
    {"strprintf", takeByPrintf},
    {"operator>>", takeByStream},
    {"fromNubStream", takeByAlignedStream},
};

void expectAcceptedByAll(const std::string& bytes)
{
    const Accepted expected = accept(bytes);
    for (const Entry& entry : ENTRIES)
    {
        const LogCapture log;
        const Seen seen = entry.take(bytes);
        EXPECT_EQ(seen.text, expected.text) << entry.name << ' ' << testing::PrintToString(bytes);
        EXPECT_EQ(seen.length, expected.characters) << entry.name << ' ' << testing::PrintToString(bytes);
        EXPECT_EQ(log.size(), expected.text == bytes ? 0U : 1U) << entry.name;
    }
}

TEST(CKoStringEncoding, EveryEntryKeepsWhatTheModelKeeps)
{
    Random random;
    SCOPED_TRACE(random.trace());
    for (int turn = 0; turn < 3000 && !HasFailure(); ++turn)
    {
        // Mostly good text around some bytes that are good or not, so that faults come at all offsets.
        expectAcceptedByAll(random.text(20) + random.bytes(turn % 3 == 0 ? 120 : 4) + random.text(20));
    }
}

TEST(CKoStringEncoding, LongTextIsCheckedAcrossAllPieceBoundaries)
{
    const std::string unit = "ascii only here, sixteen and more "
                             "\xCE\xBB\xE4\xB8\x96\xF0\x9F\x98\x80\xC3\xA9\xFC\x84\x80\x80\x80\x80";
    std::string text;
    while (text.size() < 50000)
    {
        text += unit;
    }
    for (std::size_t shift = 0; shift < 70; ++shift)
    {
        // The shift moves characters over the boundaries; the fault shows that nothing behind it is kept.
        std::string bytes = std::string(shift, 'x') + text;
        EXPECT_EQ(make(bytes).length(), accept(bytes).characters);
        bytes[40000 + shift * 3] = '\xFF';
        const Accepted expected = accept(bytes);
        const LogCapture log;
        const CKoString string = make(bytes);
        ASSERT_EQ(textOf(string), expected.text) << shift;
        ASSERT_EQ(string.length(), expected.characters) << shift;
    }
}

TEST(CKoStringEncoding, NothingBehindTheZeroByteIsRead)
{
    for (unsigned int length = 0; length < 40; ++length)
    {
        // On the heap and exactly as long as it is, so that a memory checker sees every byte too many.
        const std::vector<char> text = [length]
        {
            std::vector<char> bytes(length, 'x');
            bytes.push_back('\0');
            return bytes;
        }();
        CKoString string(text.data(), 1000U);
        EXPECT_EQ(string.byteLength(), length);
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
        const char* bytes;
    };
    const Case cases[] = {
        {0x7FU, "\x7F"},
        {0x80U, "\xC2\x80"},
        {0x7FFU, "\xDF\xBF"},
        {0x800U, "\xE0\xA0\x80"},
        {0xD800U, "\xED\xA0\x80"},
        {0xFFFFU, "\xEF\xBF\xBF"},
        {0x10000U, "\xF0\x90\x80\x80"},
        {0x1FFFFFU, "\xF7\xBF\xBF\xBF"},
        {0x200000U, "\xF8\x88\x80\x80\x80"},
        {0x3FFFFFFU, "\xFB\xBF\xBF\xBF\xBF"},
        {0x4000000U, "\xFC\x84\x80\x80\x80\x80"},
        {0x7FFFFFFFU, "\xFD\xBF\xBF\xBF\xBF\xBF"},
    };
    for (const Case& c : cases)
    {
        CKoString string;
        string.fromUCS4Sequence(&c.codePoint, 1U);
        EXPECT_EQ(see(string), (Seen{c.bytes, 1U, static_cast<unsigned int>(std::strlen(c.bytes))}));
        EXPECT_EQ(*string.begin(), c.codePoint) << "decoding is the way back";
        EXPECT_EQ(string[0], c.codePoint);
    }
}

TEST(CKoStringEncoding, ConvertersReplaceTheContentAndLeaveSharersAlone)
{
    static const unsigned short NARROW[] = {0x41U, 0xD83DU, 0xDE00U};
    static const unsigned int WIDE[] = {0x41U, 0x42U, 0x20ACU};
    struct Case
    {
        void (*convert)(CKoString& string);
        Seen own; ///< from a block of capacity 20
        unsigned int sharedCapacity;
    };
    const Case cases[] = {
        {[](CKoString& s) { s.fromUCS2Sequence(NARROW, 3U); }, {"A\xED\xA0\xBD\xED\xB8\x80", 3U, 20U}, 7U},
        {[](CKoString& s) { s.fromUCS4Sequence(WIDE, 3U); }, {"AB\xE2\x82\xAC", 3U, 20U}, 5U},
        {[](CKoString& s) { s.fromWCharSequence(WIDE, WIDE + 2); }, {"AB", 2U, 2U}, 2U},
        {[](CKoString& s) { s.fromUCS4Sequence(WIDE, 0U); }, {"", 0U, 20U}, 0U},
        {[](CKoString& s) { s.fromWCharSequence(WIDE, WIDE); }, {"", 0U, 0U}, 0U},
    };
    for (const Case& c : cases)
    {
        CKoString own("old text");
        own.reserve(20U);
        CKoString shared("old text");
        const CKoString sharer(shared);
        c.convert(own);
        c.convert(shared);
        EXPECT_EQ(see(own), c.own);
        EXPECT_EQ(see(shared), (Seen{c.own.text, c.own.length, c.sharedCapacity}));
        EXPECT_EQ(textOf(sharer), "old text");
    }
}

TEST(CKoStringEncoding, AValueWithItsTopBitSetEndsTheConversion)
{
    const AssertionReports reports;
    const unsigned int units[] = {0x41U, 0x80000000U, 0x42U};
    CKoString string("old");
    string.fromUCS4Sequence(units, 3U);
    EXPECT_EQ(see(string), (Seen{"A", 1U, 3U}));
    string.fromWCharSequence(units + 1, units + 3);
    EXPECT_EQ(textOf(string), "");
    string.fromWCharSequence(units + 2, units);
    EXPECT_THAT(reports.summaries(), testing::ElementsAre("CKoString: ???", "CKoString: ???"));
}

} // namespace
