#include "pf/base/CKoString.h"

#include <vector>

#include "tests/base/StringTesting.h"

using namespace KoTest;

namespace
{

using Position = CKoString::const_iterator;

/// A position a number of characters into a string.
Position at(const CKoString& string, int characters)
{
    Position position = string.begin();
    position += characters;
    return position;
}

/// An empty string has no such positions: there the start is what every position is.
void expectAt(const CKoString& string, const Position& position, int characters)
{
    const bool isAtStart = position == string.begin();
    EXPECT_TRUE(isAtStart || position == at(string, characters));
    EXPECT_EQ(isAtStart, textOf(string).compare(0, 1, "a") != 0);
}

/// An operation on the text "a\xC3\xA9 b" (4 characters, 5 bytes) in a block of capacity 10, and what it
/// leaves in a block of its own and in a shared one.
struct MutatorCase
{
    const char* name;
    void (*mutate)(CKoString& string);
    Seen own;
    unsigned int sharedCapacity; ///< what a shared block's successor has; text and count are the same
};

constexpr const char* START = "a\xC3\xA9 b";

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
    {"insert elsewhere", [](CKoString& s) { const CKoString other("other"); Position p = other.begin(); s.insert(p, other); }, {START, 4, 10}, 10},
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
};
// clang-format on

TEST(CKoStringEdit, MutatorsKeepAnOwnBlockAndReplaceASharedOneByAnExactOne)
{
    for (const MutatorCase& c : MUTATORS)
    {
        SCOPED_TRACE(c.name);
        CKoString own(START);
        own.reserve(10U);
        CKoString shared(START);
        shared.reserve(10U);
        const CKoString sharer(shared);
        c.mutate(own);
        c.mutate(shared);
        EXPECT_EQ(see(own), c.own);
        EXPECT_EQ(see(shared), (Seen{c.own.text, c.own.length, c.sharedCapacity}));
        EXPECT_EQ(see(sharer), (Seen{START, 4U, 10U}));
        EXPECT_EQ(own.c_str()[own.byteLength()], '\0');
        EXPECT_EQ(shared.c_str()[shared.byteLength()], '\0');
    }
}

TEST(CKoStringEdit, MutatorsOfEmptyStringsLeaveTheStaticBlockAlone)
{
    for (const MutatorCase& c : MUTATORS)
    {
        SCOPED_TRACE(c.name);
        CKoString string;
        c.mutate(string);
        EXPECT_EQ(std::string(CKoString::nullData.textStart, 3), std::string(3, '\0'));
        EXPECT_EQ(CKoString::nullData.refCount, 2U);
        EXPECT_EQ(CKoString::nullData.byteLength + CKoString::nullData.capacity, 0U);
    }
}

TEST(CKoStringEdit, TrimTakesTheSixBlanksOfBothEnds)
{
    struct Case
    {
        const char* text;
        Seen own; ///< from a block of capacity 20
        unsigned int sharedCapacity;
    };
    const Case cases[] = {
        {" \tx \r\n", {"x", 1, 20}, 15},
        {"\v\f \xC3\xA9", {"\xC3\xA9", 1, 20}, 17},
        {"x y ", {"x y", 3, 20}, 19},
        {" \n ", {"", 0, 20}, 17},
        {"\xC2\xA0x\x08\x0E", {"\xC2\xA0x\x08\x0E", 4, 20}, 20},
    };
    for (const Case& c : cases)
    {
        CKoString own(c.text);
        own.reserve(20U);
        CKoString shared(c.text);
        shared.reserve(20U);
        const CKoString sharer(shared);
        EXPECT_EQ(see(own.trim()), c.own);
        EXPECT_EQ(see(shared.trim()), (Seen{c.own.text, c.own.length, c.sharedCapacity}));
        EXPECT_EQ(textOf(sharer), c.text);
    }
}

TEST(CKoStringEdit, PartsHaveBlocksOfTheirOwnOfExactlyTheirSize)
{
    const CKoString text("a\xC3\xA9\xE2\x82\xAC!");
    struct Case
    {
        CKoString part;
        Seen expected;
    };
    const Case cases[] = {
        {text.getLeft(2U), {"a\xC3\xA9", 2, 3}},
        {text.getLeft(10U), {"a\xC3\xA9\xE2\x82\xAC!", 4, 7}},
        {text.getLeft(at(text, 3)), {"a\xC3\xA9\xE2\x82\xAC", 3, 6}},
        {text.getLeft(text.end()), {"a\xC3\xA9\xE2\x82\xAC!", 4, 7}},
        {text.getRight(2U), {"\xE2\x82\xAC!", 2, 4}},
        {text.getRight(4U), {"a\xC3\xA9\xE2\x82\xAC!", 4, 7}},
        {text.getRight(at(text, 1)), {"\xC3\xA9\xE2\x82\xAC!", 3, 6}},
        {text.getRight(text.begin()), {"a\xC3\xA9\xE2\x82\xAC!", 4, 7}},
        {text.getMid(at(text, 1), 2U), {"\xC3\xA9\xE2\x82\xAC", 2, 5}},
        {text.getMid(at(text, 2), 99U), {"\xE2\x82\xAC!", 2, 4}},
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(see(c.part), c.expected);
        EXPECT_EQ(blockOf(c.part)->refCount, 1U);
    }
    const CKoString empty;
    // clang-format off
    const CKoString nothings[] = {
        text.getLeft(0U), text.getLeft(text.begin()), text.getLeft(at(text, -1)), empty.getLeft(1U),
        text.getRight(0U), text.getRight(text.end()), text.getRight(empty.begin()), empty.getRight(1U),
        text.getMid(text.begin(), 0U), text.getMid(text.end(), 1U), text.getMid(Position(), 1U), empty.getMid(empty.begin(), 1U),
    };
    // clang-format on
    for (const CKoString& nothing : nothings)
    {
        EXPECT_EQ(blockOf(nothing), &CKoString::nullData);
    }
}

} // namespace
