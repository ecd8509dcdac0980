#include "pf/containers/CKoBuffer.h"

#include <climits>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "pf/containers/CKoRawMemoryBuffer.h"
#include "pf/oswrapper/KoMemory.h"
#include "pf/stream/KoStreamOperators.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/MemoryStream.h"

namespace
{

using KoTest::MemoryStream;
using Bytes = std::vector<unsigned char>;

CKoBuffer bufferOf(const std::string& text)
{
    CKoBuffer buffer;
    buffer.copyTo(text.data(), static_cast<unsigned int>(text.size()), 0);
    return buffer;
}

std::string textOf(const CKoRCMemoryBuffer& buffer)
{
    return std::string(buffer.getBuffer(), buffer.getBuffer() + buffer.getSize());
}

const unsigned char* blockOf(const CKoRCMemoryBuffer& buffer)
{
    return buffer.getBuffer();
}

TEST(CKoRCMemoryBuffer, emptyBuffersShareTheNullBlock)
{
    const KoTest::AllocationCounter allocations;
    const CKoRCMemoryBuffer empty;
    CKoRCMemoryBuffer sized(0);
    CKoRCMemoryBuffer copy(sized);
    copy = empty;
    copy.addRef();
    copy.removeRef();
    EXPECT_TRUE(copy == empty && !(copy != sized) && !copy.isShared() && sized.getBuffer() == nullptr);
    EXPECT_TRUE(!KoTest::FaultInjection::isAvailable() || allocations.count() == 0U);
}

TEST(CKoRCMemoryBuffer, copiesShareUntilTheyAreDropped)
{
    CKoRCMemoryBuffer first(5);
    EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(first.getBuffer()) % 8);
    {
        CKoRCMemoryBuffer second(first);
        second = first;
        EXPECT_TRUE(first.isShared());
        EXPECT_EQ(blockOf(first), blockOf(second));
        second = CKoRCMemoryBuffer(2);
        EXPECT_FALSE(first.isShared());
        second = first;
    }
    CKoRCMemoryBuffer last(first);
    first.removeRef();
    EXPECT_EQ(nullptr, first.getBuffer());
    EXPECT_EQ(5U, last.getSize());
}

TEST(CKoRCMemoryBuffer, equalityLooksAtBlocksThenBytes)
{
    const CKoBuffer abc = bufferOf("abc");
    EXPECT_TRUE(abc == bufferOf("abc") && abc != bufferOf("abd") && abc != bufferOf("abcd"));
    EXPECT_TRUE(abc != CKoBuffer() && CKoBuffer() != abc);
}

TEST(CKoBuffer, resizingReplacesTheBlockAndTruncatingKeepsIt)
{
    CKoBuffer buffer = bufferOf("abcdef");
    const CKoBuffer original(buffer);
    buffer.resize(6);
    EXPECT_EQ(blockOf(original), blockOf(buffer));
    buffer.resize(6, true);
    EXPECT_NE(blockOf(original), blockOf(buffer));
    EXPECT_EQ("abcdef", textOf(buffer));
    buffer.resize(2);
    EXPECT_EQ("ab", textOf(buffer));
    buffer.reserve(1);
    EXPECT_EQ(2U, buffer.getSize());
    buffer.reserve(100);
    EXPECT_EQ("ab", textOf(buffer).substr(0, 2));
    EXPECT_EQ(100U, buffer.getSize());
    buffer = original;
    buffer.reserve(3, true);
    EXPECT_FALSE(buffer.isShared());
    EXPECT_EQ("abcdef", textOf(buffer));
    const unsigned char* const block = blockOf(buffer);
    buffer.truncate(6);
    buffer.truncate(2);
    EXPECT_EQ(block, blockOf(buffer));
    EXPECT_EQ("ab", textOf(buffer));
    buffer.truncate(5);
    EXPECT_EQ(5U, buffer.getSize());
    buffer.truncate(0);
    EXPECT_TRUE(buffer == CKoBuffer());
    EXPECT_EQ("abcdef", textOf(original));
}

TEST(CKoBuffer, copiesOutWhatIsThere)
{
    const CKoBuffer buffer = bufferOf("abcdef");
    const struct
    {
        unsigned int count;
        unsigned int offset;
        const char* expected;
    } cases[] = {{2, 1, "bc"}, {9, 4, "ef"}, {1, 6, ""}, {1, UINT_MAX, ""}, {UINT_MAX, 5, "f"}, {0, 0, ""}};
    for (const auto& [count, offset, expected] : cases)
    {
        char bytes[8] = {};
        EXPECT_EQ(std::strlen(expected), buffer.copyFrom(bytes, count, offset));
        EXPECT_STREQ(expected, bytes);
    }
    EXPECT_EQ(0U, buffer.copyFrom(nullptr, 1, 0));
}

TEST(CKoBuffer, copyingInSeparatesGrowsAndOverlaps)
{
    CKoBuffer buffer = bufferOf("abcdef");
    const CKoBuffer original(buffer);
    EXPECT_EQ(2U, buffer.copyTo("XY", 2, 1));
    EXPECT_EQ("aXYdef", textOf(buffer));
    EXPECT_EQ("abcdef", textOf(original));

    const unsigned char* const block = blockOf(buffer);
    EXPECT_EQ(3U, buffer.copyTo(buffer.getBuffer(), 3, 1));
    EXPECT_EQ(block, blockOf(buffer)) << "a private block with room stays";
    EXPECT_EQ("aaXYef", textOf(buffer));
    EXPECT_EQ(6U, buffer.copyTo(buffer.getBuffer(), 6, 4));
    EXPECT_EQ("aaXYaaXYef", textOf(buffer));

    const CKoBuffer sharer(buffer);
    EXPECT_EQ(2U, buffer.copyTo(blockOf(buffer) + 8, 2, 0));
    EXPECT_EQ("efXYaaXYef", textOf(buffer));
    EXPECT_EQ("aaXYaaXYef", textOf(sharer));
    EXPECT_EQ(0U, buffer.copyTo(nullptr, 2, 0));
    EXPECT_EQ(0U, buffer.copyTo("x", 0, 12));
    EXPECT_EQ(12U, buffer.getSize());
}

TEST(CKoBuffer, brokenPreconditionsAreReported)
{
    CKoBuffer shared = bufferOf("abcd");
    const CKoBuffer sharer(shared);
    CKoBuffer own = bufferOf("xy");
    MemoryStream full;
    full.writeLimit = 5;

    const struct
    {
        const char* summary;
        std::function<void()> call;
    } cases[] = {
        {"CKoRCMemoryBuffer: ???", [&] { EXPECT_EQ(blockOf(sharer), shared.getBuffer()); }},
        {"CKoRCMemoryBuffer: ???", [] { EXPECT_EQ(0U, CKoBuffer(UINT_MAX).getSize()); }},
        {"CKoRCMemoryBuffer: ???", [&] { full << own; }},
        {"CKoBuffer: ???", [&] { own.resize(UINT_MAX - 8); }},
        {"CKoBuffer: ???", [&] { own.reserve(UINT_MAX); }},
        {"CKoBuffer: ???", [&] { own.truncate(UINT_MAX); }},
        {"CKoBuffer: ???", [&] { EXPECT_EQ(0U, own.copyTo("abc", 3, UINT_MAX - 1)); }},
        {"CKoBuffer: ???", [&] { EXPECT_EQ(0U, own.copyTo("abc", 3, UINT_MAX - 8)); }},
        {"CKoBuffer: ???", [&] { shared.truncate(3); }},
        {"CKoRawMemoryBuffer: ???", [] { EXPECT_EQ(nullptr, CKoRawMemoryBuffer(UINT_MAX - 7).getBuffer()); }},
    };
    for (const auto& [summary, call] : cases)
    {
        KoTest::AssertionReports reports;
        call();
        EXPECT_EQ(std::vector<std::string>{summary}, reports.summaries());
        EXPECT_EQ("xy", textOf(own));
    }
    EXPECT_EQ("abc", textOf(sharer)) << "a reported truncation goes on";
    EXPECT_EQ((Bytes{2, 0, 0, 0, 'x'}), full.bytes);
}

TEST(CKoBuffer, isStreamedAsSizeAndBytes)
{
    MemoryStream stream;
    stream << bufferOf("abc") << CKoBuffer();
    EXPECT_EQ((Bytes{3, 0, 0, 0, 'a', 'b', 'c', 0, 0, 0, 0}), stream.bytes);
    EXPECT_EQ((std::vector<unsigned int>{4, 3, 4}), stream.writes);
    CKoBuffer::toNubStream(stream, bufferOf("d"));

    CKoBuffer buffer = bufferOf("old");
    const CKoBuffer sharer(buffer);
    stream >> buffer;
    EXPECT_EQ("abc", textOf(buffer));
    EXPECT_EQ("old", textOf(sharer));
    CKoRCMemoryBuffer base(4);
    stream >> base;
    EXPECT_TRUE(base == CKoBuffer());
    CKoBuffer::fromNubStream(stream, buffer);
    EXPECT_EQ("d", textOf(buffer));
    EXPECT_EQ((std::vector<unsigned int>{4, 3, 4, 4, 1}), stream.reads);
    EXPECT_EQ((std::vector<unsigned int>{4, 4}), stream.aligns);
}

TEST(CKoBuffer, aClaimedSizeCostsNoMoreThanWhatArrives)
{
    for (const unsigned int claimed :
         {4U, 65536U, 65600U, 200000U, 0x7FFFFFFFU, 0x80000000U, UINT_MAX - 15, UINT_MAX})
    {
        for (const unsigned int arriving : {0U, 3U, 65536U + 20U, 200000U})
        {
            MemoryStream stream;
            stream << claimed;
            for (unsigned int i = 0; i < arriving; ++i)
                stream.bytes.push_back(static_cast<unsigned char>(i * 7U >> 3U));
            CKoBuffer buffer = bufferOf("old");
            stream >> buffer;
            ASSERT_EQ(std::min(claimed, arriving), buffer.getSize()) << claimed;
            EXPECT_TRUE(
                std::equal(blockOf(buffer), blockOf(buffer) + buffer.getSize(), stream.bytes.begin() + 4));
            for (const unsigned int asked : stream.reads)
                EXPECT_LE(asked, std::max(arriving, 65536U)) << claimed;
        }
    }
    for (const Bytes& cut : {Bytes{}, Bytes{9}, Bytes{9, 0, 0}})
    {
        MemoryStream stream(cut);
        CKoBuffer buffer = bufferOf("old");
        stream >> buffer;
        EXPECT_TRUE(buffer == CKoBuffer());
    }
}

TEST(CKoRCMemoryBuffer, threadsShareAndDropOneBlock)
{
    CKoRCMemoryBuffer buffer(100);
    std::memset(buffer.getBuffer(), 'x', 100);
    const auto copyAndDrop = [](CKoRCMemoryBuffer own)
    {
        unsigned int sum = 0;
        for (int i = 0; i < 2000; ++i)
        {
            const CKoRCMemoryBuffer copy(own);
            CKoRCMemoryBuffer assigned;
            assigned = copy;
            sum += assigned == own ? 1U : 0U;
        }
        EXPECT_EQ(2000U, sum);
    };
    std::thread threads[] = {std::thread(copyAndDrop, buffer), std::thread(copyAndDrop, buffer)};
    buffer.removeRef();
    for (std::thread& thread : threads)
        thread.join();
}

bool sRefuse = false;
unsigned int sAsked = 0;
int sGivenBack = 0;

void* allocateCustom(unsigned int size)
{
    sAsked = size;
    return sRefuse ? nullptr : std::malloc(size);
}

void giveBack(void* block)
{
    ++sGivenBack;
    std::free(block);
}

TEST(CKoRawMemoryBuffer, ownsARawBlockAndReleasesItByTheMatchingFunction)
{
    const unsigned int expected[][2] = {{0, 8}, {3, 8}, {8, 8}, {9, 9}, {1000, 1000}};
    for (const auto& [requested, capacity] : expected)
    {
        const CKoRawMemoryBuffer buffer(requested);
        ASSERT_EQ(capacity, buffer.getCapacity());
        std::memset(buffer.getBuffer(), 1, capacity);
    }
    const CKoRawMemoryBuffer ofMemory(20, &KoMemory::alloc);
    EXPECT_EQ(20U, ofMemory.getCapacity());

    CKoRawMemoryBuffer custom(3, &allocateCustom);
    EXPECT_EQ(16U, sAsked) << "two words and the capacity";
    custom.release(&giveBack);
    custom.release(&giveBack);
    EXPECT_EQ(1, sGivenBack);

    sRefuse = true;
    const CKoRawMemoryBuffer refused(3, &allocateCustom);
    EXPECT_EQ(nullptr, refused.getBuffer());
    EXPECT_EQ(0U, refused.getCapacity());
}

} // namespace
