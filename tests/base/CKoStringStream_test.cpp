#include "pf/base/CKoString.h"

#include <numeric>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "pf/oswrapper/KoMemory.h"
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

TEST(CKoStringStream, WritesTheLengthAndTheBytes)
{
    MemoryStream stream;
    stream << CKoString("\xC3\xA9!") << CKoString();
    EXPECT_THAT(stream.bytes, ElementsAre(3, 0, 0, 0, 0xC3, 0xA9, '!', 0, 0, 0, 0));
    CKoString string;
    CKoString empty("full");
    stream >> string >> empty;
    EXPECT_EQ(see(string), (Seen{"\xC3\xA9!", 2, 3}));
    EXPECT_EQ(see(empty), (Seen{"", 0, 4}));
}

TEST(CKoStringStream, TheAlignedFormCarriesTheTerminatingZero)
{
    MemoryStream stream;
    CKoString::toNubStream(stream, CKoString("ab"));
    CKoString::toNubStream(stream, CKoString());
    EXPECT_THAT(stream.bytes, ElementsAre(2, 0, 0, 0, 'a', 'b', 0, 0, 0, 0, 0, 0));
    EXPECT_THAT(stream.aligns, ElementsAre(4U, 4U));
    CKoString string;
    CKoString empty("full");
    CKoString::fromNubStream(stream, string);
    CKoString::fromNubStream(stream, empty);
    EXPECT_EQ(see(string), (Seen{"ab", 2, 2}));
    EXPECT_EQ(textOf(empty), "");
    EXPECT_EQ(stream.aligns.size(), 4U);
    EXPECT_EQ(std::accumulate(stream.reads.begin(), stream.reads.end(), 0U), 12U) << "every byte is consumed";
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
    const MemoryStream stream = streamOf(0xFFFFFFEBU, bytes);
    CKoString string("old");
    stream >> string;
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
        std::string bytes;
        while (bytes.size() + 3U <= size)
        {
            bytes += "\xE4\xB8\x96";
        }
        bytes.resize(size, '.');
        const CKoString original(bytes.c_str());
        MemoryStream stream;
        stream << original;
        CKoString::toNubStream(stream, original);
        CKoString plain;
        CKoString aligned;
        stream >> plain;
        CKoString::fromNubStream(stream, aligned);
        EXPECT_TRUE(plain == original && aligned == original) << size;
        EXPECT_EQ(plain.capacity(), size);
        EXPECT_EQ(aligned.capacity(), size);
        EXPECT_EQ(plain.length(), original.length());
    }
}

} // namespace
