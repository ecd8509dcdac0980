#include "pf/base/CKoString.h"

#include <numeric>

#include <gmock/gmock.h>

#include "tests/base/StringTesting.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/MemoryStream.h"

using namespace KoTest;
using testing::ElementsAre;

namespace
{

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
