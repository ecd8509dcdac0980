#include "pf/base/CKoString.h"

#include <cstring>
#include <string>

#include "tests/base/StringTesting.h"
#include "tests/support/Deadline.h"

using namespace KoTest;

namespace
{

using Position = CKoString::const_iterator;

/// The search as it is defined: from character to character, up to the first zero byte.
Position findSlowly(const CKoString& text, Position from, const CKoString& pattern, bool forward)
{
    if (pattern.isEmpty())
    {
        return text.end();
    }
    if (!forward && from == text.end())
    {
        --from;
    }
    for (; *from.address() != '\0'; from += forward ? 1 : -1)
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
            make(random.below(2) == 0 ? accept(bytes).text.substr(start, random.below(40))
                                      : unit + unit + random.text(1));
        Position from = text.begin();
        from += static_cast<int>(random.below(text.length() + 1U));
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
    EXPECT_EQ(text.find(CKoString("three")), text.end());
    EXPECT_EQ(text.find(CKoString("one two one!")), text.end());
    EXPECT_EQ(text.find(other, other.begin()), text.end());
    EXPECT_EQ(text.findString(text.end(), other, false) - text.begin(), 8) << "the last one";
    EXPECT_EQ(CKoString().find(other), CKoString().end());
    EXPECT_EQ(CKoString().findString(CKoString().end(), other, false), CKoString().end());
}

TEST(CKoStringSearch, EndsAtAZeroByteInTheText)
{
    const unsigned int units[] = {'a', 'b', 0U, 'a', 'c'};
    const CKoString text(units, units + 5);
    EXPECT_EQ(text.byteLength(), 5U);
    EXPECT_EQ(text.find(CKoString("ac")), text.end());
    EXPECT_EQ(text.findString(text.end(), CKoString("ab"), false), text.end());
    EXPECT_EQ(text.find(CKoString("ab")), text.begin());
    EXPECT_EQ(text.find(CKoString(units + 1, units + 4)) - text.begin(), 1);
}

TEST(CKoStringSearch, TakesLinearTimeForTheWorstPatterns)
{
    const std::string half(100000, 'a');
    const std::string texts[] = {half + half, half + "b" + half};
    const std::string patterns[] = {half.substr(0, 50000) + "b" + half.substr(0, 50000), "b" + half + "a",
                                    half + "ab"};
    const Stopwatch stopwatch;
    for (const std::string& bytes : texts)
    {
        const CKoString text(bytes.c_str());
        for (const std::string& pattern : patterns)
        {
            text.find(CKoString(pattern.c_str()));
            text.findString(text.end(), CKoString(pattern.c_str()), false);
        }
    }
    // A quadratic search compares some 10^10 bytes here.
    EXPECT_TRUE(stopwatch.isWithin(0, 1000));
}

} // namespace
