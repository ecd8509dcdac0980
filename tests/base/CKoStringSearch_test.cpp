#include "pf/base/CKoString.h"

#include "tests/base/StringTesting.h"
#include "tests/support/Deadline.h"
#include "tests/support/FaultInjection.h"

using namespace KoTest;

namespace
{

/// The search as it is defined: from character to character, up to the first zero byte.
Position findSlowly(const CKoString& text, Position from, const CKoString& pattern, bool forward)
{
    if (!forward && from == text.end())
    {
        --from;
    }
    for (; !pattern.isEmpty() && *from.address() != '\0'; from += forward ? 1 : -1)
    {
        const std::size_t left = static_cast<std::size_t>(text.end().address() - from.address());
        if (left >= pattern.byteLength() &&
            std::memcmp(from.address(), pattern.c_str(), pattern.byteLength()) == 0)
        {
            return from;
        }
        if (!forward && from == text.begin())
        {
            break;
        }
    }
    return text.end();
}

TEST(CKoStringSearch, FindsWhatTheStepsFind)
{
    Random random;
    SCOPED_TRACE(random.trace());
    for (int turn = 0; turn < 20000 && !HasFailure(); ++turn)
    {
        // Few different letters and repeated beginnings, so that candidates fail late.
        std::string bytes = turn % 4 == 0 ? random.bytes(40) : "";
        const std::string unit =
            std::string(random.below(5), 'a') + (turn % 3 == 0 ? random.character() : "b");
        for (unsigned int i = random.below(40); i != 0; --i)
        {
            bytes += random.below(12) == 0 ? random.character() : unit;
        }
        const CKoString text = make(bytes);
        const unsigned int start = random.below(text.byteLength() + 1U);
        const CKoString pattern =
            make(turn % 2 == 0 ? textOf(text).substr(start, random.below(40)) : unit + unit + random.text(1));
        const Position from = at(text, static_cast<int>(random.below(text.length() + 1U)));
        for (const bool forward : {true, false})
        {
            ASSERT_EQ(text.findString(from, pattern, forward), findSlowly(text, from, pattern, forward))
                << testing::PrintToString(textOf(text)) << " from " << from.address() - text.c_str() << ": "
                << testing::PrintToString(textOf(pattern)) << ' ' << forward;
        }
    }
}

TEST(CKoStringSearch, GivesTheEndWhenThereIsNothingToFind)
{
    const CKoString text("one two one");
    const CKoString other("one");
    EXPECT_EQ(text.find(CKoString()), text.end());
    EXPECT_EQ(text.find(CKoString("one two one!")), text.end());
    EXPECT_EQ(text.find(other, other.begin()), text.end());
    EXPECT_EQ(text.findString(text.end(), other, false) - text.begin(), 8) << "the last one";
    EXPECT_EQ(CKoString().findString(CKoString().end(), other, false), CKoString().end());

    const unsigned int units[] = {'a', 'b', 0U, 'a', 'c'};
    const CKoString withZero(units, units + 5);
    EXPECT_EQ(withZero.find(CKoString("ac")), withZero.end());
    EXPECT_EQ(withZero.findString(withZero.end(), CKoString("ab"), false), withZero.end());
    EXPECT_EQ(withZero.find(CKoString("ab")), withZero.begin());
    EXPECT_EQ(withZero.find(CKoString(units + 1, units + 4)) - withZero.begin(), 1);
}

TEST(CKoStringSearch, TakesLinearTimeForTheWorstPatterns)
{
    const std::string half(100000, 'a');
    const std::string quarter(50000, 'a');
    const Stopwatch stopwatch;
    for (const std::string& bytes : {half + half, half + "b" + half})
    {
        const CKoString text = make(bytes);
        for (const std::string& pattern : {quarter + "b" + quarter, "b" + half + "a", half + "ab"})
        {
            text.find(make(pattern));
            text.findString(text.end(), make(pattern), false);
        }
    }
    // A quadratic search compares some 10^10 bytes here.
    EXPECT_TRUE(stopwatch.isWithin(0, 1000));
}

/// The replacement as it is defined: one after the other.
void replaceStepwise(CKoString& string, const CKoString& from, const CKoString& to)
{
    Position position = string.find(from);
    while (position != string.end())
    {
        string.replace(position, from.length(), to);
        position = string.find(from, Position(position.address() + to.byteLength()));
    }
}

TEST(CKoStringReplaceAll, OnePassGivesTextCountAndCapacityOfTheSteps)
{
    Random random;
    SCOPED_TRACE(random.trace());
    for (int turn = 0; turn < 20000 && !HasFailure(); ++turn)
    {
        const bool isOdd = turn % 4 == 0;
        const CKoString from = make(turn % 7 == 0 ? random.bytes(3) : "a" + random.text(1));
        const CKoString to = make(turn % 5 == 0 ? random.bytes(3) : random.text(3));
        CKoString text = make(isOdd ? random.bytes(30) : random.text(10));
        for (unsigned int i = random.below(isOdd ? 6 : 900); i != 0; i /= 2)
        {
            text.append(from).append(make(isOdd ? random.bytes(9) : random.text(9)));
        }
        text.reserve(random.below(2 * text.byteLength() + 8U));
        const Seen before = see(text);
        for (const bool isShared : {true, false})
        {
            CKoString fast(text);
            CKoString slow(text);
            if (!isShared)
            {
                fast.swap(slow);
            }
            fast.replaceAll(from, to);
            replaceStepwise(slow, from, to);
            ASSERT_EQ(see(fast), see(slow))
                << isShared << testing::PrintToString(before.text) << ": "
                << testing::PrintToString(textOf(from)) << " by " << testing::PrintToString(textOf(to));
        }
        ASSERT_EQ(see(text), before);
    }
}

TEST(CKoStringReplaceAll, ManyMatchesTakeOneAllocation)
{
    CKoString text;
    for (int i = 0; i < 2000; ++i)
    {
        text.append("some {x} text");
    }
    const Seen before = see(text);
    const CKoString from("{x}");
    const CKoString to("value");
    const AllocationCounter allocations;
    text.replaceAll(from, to);
    const unsigned int count = allocations.count();
    EXPECT_EQ(see(text).length, before.length + 4000U);
    text.replaceAll(to, from);
    EXPECT_EQ(see(text), (Seen{before.text, before.length, before.length + 4000U}));
    EXPECT_EQ(count, FaultInjection::isAvailable() ? 1U : 0U);
}

TEST(CKoStringReplaceAll, ArgumentsCountAsTheyWereOnEntry)
{
    CKoString text("aXa");
    text.replaceAll(CKoString(), text);
    text.replaceAll(CKoString("a"), text);
    EXPECT_EQ(textOf(text), "aXaXaXa") << "what was inserted is not searched again";
    text.replaceAll(text, CKoString("done"));
    EXPECT_EQ(textOf(text), "done");
}

TEST(CKoStringReplaceArg, TakesTheLowestMarkerFirst)
{
    // clang-format off
    const char* const cases[][3] = {
        {"%2 %1", "%2 x", "x x"}, {"%1 %1", "x %1", "x x"}, {"%0%9", "x%9", "xx"}, {"%%3 %", "%x %", "%x %"},
        {"none %", "none %", "none %"}, {"%a %5 %:", "%a x %:", "%a x %:"}, {"\xC3\xA9%1", "\xC3\xA9x", "\xC3\xA9x"},
    };
    // clang-format on
    for (const auto& c : cases)
    {
        CKoString text(c[0]);
        text.replaceArg(CKoString("x"));
        EXPECT_EQ(textOf(text), c[1]);
        text.replaceArg(CKoString("x"));
        EXPECT_EQ(textOf(text), c[2]);
    }
    CKoString self("<%1>");
    self.replaceArg(self);
    EXPECT_EQ(textOf(self), "<<%1>>");
}

} // namespace
