#include "pf/base/CKoString.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include "pf/base/TKoFormatString.h"
#include "tests/base/StringTesting.h"

using namespace KoTest;

namespace
{

/// Expects a position so many characters into the text, or at the start of a text that was empty.
void expectAt(const CKoString& string, const Position& position, int characters)
{
    EXPECT_EQ(position - string.begin(), *string.c_str() == 'a' ? characters : 0);
}

constexpr unsigned short NARROW[] = {0x41U, 0xD83DU, 0xDE00U};
constexpr unsigned int WIDE[] = {0x41U, 0x42U, 0x20ACU};
constexpr const char* START = "a\xC3\xA9 b";

/// An operation on a text in a block of capacity 10, and what it leaves in a block of its own and in a shared
/// one.
struct MutatorCase
{
    const char* name;
    void (*mutate)(CKoString& string);
    Seen own;
    unsigned int sharedCapacity; ///< what a shared block's successor has; text and count are the same
    const char* start = START;
};

// clang-format off
const MutatorCase MUTATORS[] = {
    {"append text", [](CKoString& s) { s.append("\xCE\xBB!"); }, {"a\xC3\xA9 b\xCE\xBB!", 6, 10}, 8},
    {"append ascii", [](CKoString& s) { s.append("12"); }, {"a\xC3\xA9 b12", 6, 10}, 7},
    {"append too much", [](CKoString& s) { s.append("123456"); }, {"a\xC3\xA9 b123456", 10, 11}, 11},
    {"append bounded", [](CKoString& s) { s.append("1234", 2U); }, {"a\xC3\xA9 b12", 6, 10}, 7},
    {"append malformed", [](CKoString& s) { s.append("1\xC3"); }, {"a\xC3\xA9 b1", 5, 10}, 7},
    {"append nothing", [](CKoString& s) { s.append(nullptr).append("").append("x", 0U).append(CKoString()); }, {START, 4, 10}, 10},
    {"append string", [](CKoString& s) { s.append(CKoString("\xCE\xBB")); }, {"a\xC3\xA9 b\xCE\xBB", 5, 10}, 7},
    {"append itself", [](CKoString& s) { s.append(s); }, {"a\xC3\xA9 ba\xC3\xA9 b", 8, 10}, 10},
    {"append own bytes", [](CKoString& s) { s.append(s.c_str() + 1); }, {"a\xC3\xA9 b\xC3\xA9 b", 7, 10}, 9},
    {"append unchecked", [](CKoString& s) { s.internalAppend("\xE2\x82\xAC+", 4U); }, {"a\xC3\xA9 b\xE2\x82\xAC+", 6, 10}, 9},
    {"append own unchecked", [](CKoString& s) { s.internalAppend(s.c_str(), 3U); }, {"a\xC3\xA9 ba\xC3\xA9", 6, 10}, 8},
    {"append nothing unchecked", [](CKoString& s) { s.internalAppend("", 3U).internalAppend(nullptr, 2U); }, {START, 4, 10}, 10},
    {"insert", [](CKoString& s) { Position p = at(s, 1); s.insert(p, CKoString("\xCE\xBB!")); expectAt(s, p, 1); }, {"a\xCE\xBB!\xC3\xA9 b", 6, 10}, 8},
    {"insert at the end", [](CKoString& s) { Position p = s.end(); s.insert(p, CKoString("123456")); expectAt(s, p, 4); }, {"a\xC3\xA9 b123456", 10, 11}, 11},
    {"insert itself", [](CKoString& s) { Position p = at(s, 2); s.insert(p, s); expectAt(s, p, 2); }, {"a\xC3\xA9" "a\xC3\xA9 b b", 8, 10}, 10},
    {"insert nothing", [](CKoString& s) { Position p = s.begin(); s.insert(p, CKoString()); }, {START, 4, 10}, 10},
    {"insert elsewhere", [](CKoString& s) { Position p(CKoString::null.c_str()); s.insert(p, CKoString("x")); }, {START, 4, 10}, 10},
    {"insert before the text", [](CKoString& s) { Position p = at(s, -1); s.insert(p, CKoString("x")); }, {START, 4, 10}, 10},
    {"remove", [](CKoString& s) { Position p = at(s, 1); s.remove(p, 2U); expectAt(s, p, 1); }, {"ab", 2, 10}, 2},
    {"remove too many", [](CKoString& s) { Position p = at(s, 1); s.remove(p, 99U); EXPECT_EQ(p, s.end()); }, {"a", 1, 10}, 1},
    {"remove none", [](CKoString& s) { Position p = s.begin(); s.remove(p, 0U); EXPECT_EQ(p, s.begin()); }, {START, 4, 10}, 5},
    {"remove at the end", [](CKoString& s) { Position p = s.end(); s.remove(p, 1U); EXPECT_EQ(p, s.end()); }, {START, 4, 10}, 5},
    {"remove outside", [](CKoString& s) { Position p(s.c_str() + 6); s.remove(p, 1U); }, {START, 4, 10}, 10},
    {"replace", [](CKoString& s) { Position p = at(s, 1); s.replace(p, 2U, CKoString("\xE2\x82\xAC")); expectAt(s, p, 1); }, {"a\xE2\x82\xAC" "b", 3, 10}, 5},
    {"replace by more", [](CKoString& s) { Position p = at(s, 3); s.replace(p, 9U, CKoString("12345678")); expectAt(s, p, 3); }, {"a\xC3\xA9 12345678", 11, 12}, 12},
    {"replace by itself", [](CKoString& s) { Position p = at(s, 1); s.replace(p, 2U, s); expectAt(s, p, 1); }, {"aa\xC3\xA9 bb", 6, 10}, 7},
    {"replace none", [](CKoString& s) { Position p = at(s, 3); s.replace(p, 0U, CKoString("-")); }, {"a\xC3\xA9 -b", 5, 10}, 6},
    {"replace by nothing", [](CKoString& s) { Position p = at(s, 1); s.replace(p, 1U, CKoString()); }, {"a b", 3, 10}, 3},
    {"replace at the end", [](CKoString& s) { Position p = s.end(); s.replace(p, 1U, CKoString("x")); }, {START, 4, 10}, 10},
    {"clear", [](CKoString& s) { s.clear(); }, {"", 0, 10}, 10},
    {"truncate to 2", [](CKoString& s) { s.truncate(2U); }, {"a\xC3\xA9", 2, 10}, 3},
    {"truncate to nothing", [](CKoString& s) { s.truncate(0U); }, {"", 0, 10}, 0},
    {"truncate to all", [](CKoString& s) { s.truncate(4U); }, {START, 4, 10}, 10},
    {"truncate at", [](CKoString& s) { s.truncate(at(s, 3)); }, {"a\xC3\xA9 ", 3, 10}, 4},
    {"truncate at the end", [](CKoString& s) { s.truncate(s.end()); }, {START, 4, 10}, 10},
    {"truncate outside", [](CKoString& s) { s.truncate(at(s, -1)); }, {START, 4, 10}, 10},
    {"trim nothing", [](CKoString& s) { s.trim(); }, {START, 4, 10}, 10},
    {"replaceAll", [](CKoString& s) { s.replaceAll(CKoString(" "), CKoString("__")); }, {"a\xC3\xA9__b", 5, 10}, 6},
    {"format", [](CKoString& s) { s.format("%s", s.c_str() + 1); }, {"\xC3\xA9 b", 3, 10}, 4},
    {"reserve less", [](CKoString& s) { s.reserve(9U); }, {START, 4, 10}, 10},
    {"reserve more", [](CKoString& s) { s.reserve(11U); }, {START, 4, 11}, 11},
    {"trim both ends", [](CKoString& s) { s.trim(); }, {"x", 1, 10}, 5, " \tx \r\n"},
    {"trim in front", [](CKoString& s) { s.trim(); }, {"\xC3\xA9", 1, 10}, 7, "\v\f \xC3\xA9"},
    {"trim behind", [](CKoString& s) { s.trim(); }, {"x y", 3, 10}, 9, "x y "},
    {"trim all", [](CKoString& s) { s.trim(); }, {"", 0, 10}, 7, " \n "},
    {"trim other blanks", [](CKoString& s) { s.trim(); }, {"\xC2\xA0x\x08\x0E", 4, 10}, 10, "\xC2\xA0x\x08\x0E"},
    {"from 16 bits", [](CKoString& s) { s.fromUCS2Sequence(NARROW, 3U); }, {"A\xED\xA0\xBD\xED\xB8\x80", 3, 10}, 7},
    {"from 32 bits", [](CKoString& s) { s.fromUCS4Sequence(WIDE, 3U); }, {"AB\xE2\x82\xAC", 3, 10}, 5},
    {"from nothing", [](CKoString& s) { s.fromUCS4Sequence(WIDE, 0U); }, {"", 0, 10}, 0},
    {"from a range", [](CKoString& s) { s.fromWCharSequence(WIDE, WIDE + 2); }, {"AB", 2, 2}, 2},
    {"from an empty range", [](CKoString& s) { s.fromWCharSequence(WIDE, WIDE); }, {"", 0, 0}, 0},
};
// clang-format on

TEST(CKoStringEdit, MutatorsKeepAnOwnBlockAndReplaceASharedOneByAnExactOne)
{
    for (const MutatorCase& c : MUTATORS)
    {
        SCOPED_TRACE(c.name);
        CKoString own(c.start);
        own.reserve(10U);
        CKoString shared(own);
        shared.addReference(true, 10U);
        const CKoString sharer(shared);
        const Seen before = see(sharer);
        c.mutate(own);
        c.mutate(shared);
        EXPECT_EQ(see(own), c.own);
        EXPECT_EQ(see(shared), (Seen{c.own.text, c.own.length, c.sharedCapacity}));
        EXPECT_EQ(see(sharer), before);
        EXPECT_EQ(own.c_str()[own.byteLength()] | shared.c_str()[shared.byteLength()], '\0');

        CKoString empty;
        c.mutate(empty);
        const CKoString::SStringData& data = CKoString::nullData;
        EXPECT_EQ(std::string(data.textStart, 3), std::string(3, '\0'));
        EXPECT_TRUE(data.refCount == 2U && data.byteLength == 0U && data.capacity == 0U);
    }
}

TEST(CKoStringEdit, PartsHaveBlocksOfExactlyTheirSize)
{
    const CKoString text("a\xC3\xA9\xE2\x82\xAC!");
    const CKoString empty;
    const Seen all = see(text);
    struct Case
    {
        CKoString part;
        Seen expected;
    };
    // clang-format off
    const Case cases[] = {
        {text.getLeft(2U), {"a\xC3\xA9", 2, 3}}, {text.getLeft(10U), all},
        {text.getLeft(at(text, 3)), {"a\xC3\xA9\xE2\x82\xAC", 3, 6}}, {text.getLeft(text.end()), all},
        {text.getRight(2U), {"\xE2\x82\xAC!", 2, 4}}, {text.getRight(4U), all},
        {text.getRight(at(text, 1)), {"\xC3\xA9\xE2\x82\xAC!", 3, 6}}, {text.getRight(text.begin()), all},
        {text.getMid(at(text, 1), 2U), {"\xC3\xA9\xE2\x82\xAC", 2, 5}}, {text.getMid(at(text, 2), 99U), {"\xE2\x82\xAC!", 2, 4}},
    };
    const CKoString nothings[] = {
        text.getLeft(0U), text.getLeft(text.begin()), text.getLeft(at(text, -1)), empty.getLeft(1U),
        text.getRight(0U), text.getRight(text.end()), text.getRight(empty.begin()), empty.getRight(1U),
        text.getMid(text.begin(), 0U), text.getMid(text.end(), 1U), text.getMid(Position(), 1U), empty.getMid(empty.begin(), 1U),
    };
    // clang-format on
    for (const Case& c : cases)
    {
        EXPECT_EQ(see(c.part), c.expected);
    }
    for (const CKoString& nothing : nothings)
    {
        EXPECT_EQ(blockOf(nothing), &CKoString::nullData);
    }
}

/// A text as a row of characters, edited the simple way.
using Characters = std::vector<std::string>;

struct Pair
{
    CKoString string;
    Characters model;
};

/// One random edit of a string and its model.
void edit(Pair& pair, const Pair& other, Random& random)
{
    CKoString& string = pair.string;
    Characters& model = pair.model;
    const Characters added = other.model;
    const unsigned int index = random.below(static_cast<unsigned int>(model.size()) + 1U);
    const unsigned int count = random.below(4);
    const Characters::iterator from = std::next(model.begin(), static_cast<int>(index));
    const auto to = std::next(from, std::min<std::ptrdiff_t>(static_cast<int>(count), model.end() - from));
    const auto put = [&](Characters::iterator where) { model.insert(where, added.begin(), added.end()); };
    const bool isPutting = from != model.end() || count == 0U;
    Position position = at(string, static_cast<int>(index));
    // clang-format off
    switch (random.below(10))
    {
    case 0: string.append(other.string); put(model.end()); break;
    case 1: string.append(other.string.c_str()); put(model.end()); break;
    case 2: string.insert(position, other.string); put(from); break;
    case 3: string.remove(position, count); model.erase(from, to); break;
    case 4: string.replace(position, count, other.string); if (isPutting) { put(model.erase(from, to)); } break;
    case 5: string.truncate(index); model.resize(index); break;
    case 6: string = string.getMid(position, count); model = Characters(from, to); break;
    case 7: string = string.getRight(count); model.erase(model.begin(), model.end() - std::min<std::ptrdiff_t>(static_cast<int>(count), model.end() - model.begin())); break;
    case 8: string = other.string; model = added; break;
    default: string.reserve(index * 3U); break;
    }
    // clang-format on
}

TEST(CKoStringEdit, RandomEditsOfStringsThatShareBlocksFollowTheModel)
{
    Random random;
    SCOPED_TRACE(random.trace());
    std::vector<Pair> pairs(5);
    for (int turn = 0; turn < 20000 && !HasFailure(); ++turn)
    {
        Pair& pair = pairs[random.below(5)];
        edit(pair, pairs[random.below(5)], random);
        if (pair.model.size() > 60 || random.below(10) == 0)
        {
            pair.model = {random.character(), random.character(), random.character()};
            pair.string = make(pair.model[0] + pair.model[1] + pair.model[2]);
        }
        for (const Pair& each : pairs)
        {
            const std::string text = std::accumulate(each.model.begin(), each.model.end(), std::string());
            ASSERT_EQ(textOf(each.string), text) << "turn " << turn;
            ASSERT_EQ(each.string.length(), each.model.size()) << "turn " << turn;
            ASSERT_LE(each.string.byteLength(), each.string.capacity());
            ASSERT_EQ(each.string.c_str()[each.string.byteLength()], '\0');
        }
    }
}

void editOddly(CKoString& string, const CKoString& other, Random& random)
{
    Position position = random.below(2) == 0 ? string.begin() : string.end();
    position += static_cast<int>(random.below(10)) - 5;
    const unsigned int count = random.below(9);
    // clang-format off
    switch (random.below(10))
    {
    case 0: string.insert(position, other); break;
    case 1: string.remove(position, count); break;
    case 2: string.replace(position, count, other); break;
    case 3: string.truncate(count); break;
    case 4: string.truncate(position); break;
    case 5: string = string.getLeft(count) + string.getRight(random.below(9)); break;
    case 6: string = string.getMid(position, count); break;
    case 7: string = string.getRight(position); break;
    case 8: string.replaceAll(other, string.getLeft(1U)); break;
    default: string.append(other).trim(); break;
    }
    // clang-format on
}

TEST(CKoStringEdit, TextWithOddContinuationBytesStaysInsideItsBlockAndKeepsAPlausibleCount)
{
    Random random;
    SCOPED_TRACE(random.trace());
    for (int turn = 0; turn < 20000 && !HasFailure(); ++turn)
    {
        // Exact blocks on the heap: a memory checker sees every step beyond them.
        CKoString string = make(random.bytes(24));
        const CKoString other = make(random.bytes(6));
        for (int step = 0; step < 6; ++step)
        {
            editOddly(string, other, random);
            const unsigned int bytes = string.byteLength();
            ASSERT_LE(string.length(), bytes);
            ASSERT_EQ(string.length() == 0U, bytes == 0U);
            ASSERT_EQ(std::strlen(string.c_str()), bytes);
            unsigned int steps = 0;
            for (Position each = string.begin(); each != string.end(); ++each, ++steps)
            {
                ASSERT_LT(*each, 0x80000000U);
                ASSERT_LT(steps, bytes);
            }
        }
    }
}

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
