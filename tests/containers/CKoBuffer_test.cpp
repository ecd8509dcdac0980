#include "pf/containers/CKoBuffer.h"

#include <climits>
#include <cstdlib>
#include <random>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "pf/containers/CKoRawMemoryBuffer.h"
#include "pf/oswrapper/KoMemory.h"
#include "pf/stream/KoStreamOperators.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/MemoryStream.h"
#include "tests/support/Threads.h"

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

TEST(CKoRCMemoryBuffer, copiesShareUntilTheyAreDroppedAndEmptyOnesTheNullBlock)
{
    const KoTest::AllocationCounter allocations;
    const CKoRCMemoryBuffer empty;
    CKoRCMemoryBuffer sized(0);
    CKoRCMemoryBuffer copy(sized);
    copy = empty;
    copy.addRef();
    copy.removeRef();
    EXPECT_TRUE(copy == empty && !(copy != sized) && !copy.isShared() && sized.getBuffer() == nullptr);
    EXPECT_EQ(0U, allocations.count());

    CKoRCMemoryBuffer first(5);
    EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(first.getBuffer()) % 8);
    {
        CKoRCMemoryBuffer second(first);
        second = first;
        EXPECT_TRUE(first.isShared() && blockOf(first) == blockOf(second));
        second = CKoRCMemoryBuffer(2);
        EXPECT_FALSE(first.isShared());
        second = first;
    }
    CKoRCMemoryBuffer last(first);
    first.removeRef();
    EXPECT_TRUE(first.getBuffer() == nullptr && last.getSize() == 5 && !last.isShared());
}

/// Three buffers that come to share blocks, and texts to compare with that share nothing.
struct Script
{
    std::mt19937 random{4711};
    CKoBuffer buffers[3];
    std::string models[3];

    unsigned int pick(unsigned int count) { return static_cast<unsigned int>(random()) % count; }

    /// Changes one buffer and its text. \return whether the block has to be the same afterwards.
    bool change(CKoBuffer& buffer, std::string& model, const CKoBuffer& source)
    {
        const unsigned int size = buffer.getSize();
        const unsigned int count = pick(12);
        const unsigned int offset = pick(size + 1);
        const bool force = pick(2) == 0;
        const bool shared = buffer.isShared();
        const std::string text = textOf(source).substr(0, count);
        switch (shared ? pick(3) : pick(4))
        {
        case 0:
            buffer.resize(count, force);
            model.resize(count);
            return count == size && !force;
        case 1:
            buffer.reserve(count, force);
            model.resize(std::max(count, size));
            return count <= size && !force;
        case 2:
            EXPECT_EQ(text.size(), buffer.copyTo(blockOf(source), std::min(count, source.getSize()), offset));
            model.replace(offset, text.size(), text);
            return source.getSize() == 0 || (!shared && model.size() == size);
        default:
            buffer.truncate(count);
            model.resize(count);
            return count <= size && count > 0;
        }
    }

    void step()
    {
        const unsigned int index = pick(3);
        const unsigned int other = pick(3);
        CKoBuffer& buffer = buffers[index];
        const unsigned char* const block = blockOf(buffer);
        const unsigned int size = buffer.getSize();
        const bool stays = change(buffer, models[index], buffers[other]);
        ASSERT_TRUE(block == nullptr || stays == (block == blockOf(buffer)));
        for (unsigned int i = size; i < buffer.getSize(); ++i) // what a growth added is undefined
            models[index][i] = static_cast<char>(buffer.getBuffer()[i] = 'x');
        for (unsigned int i = 0; i < 3; ++i)
        {
            ASSERT_EQ(models[i], textOf(buffers[i]));
            ASSERT_EQ(models[i] == models[0], buffers[i] == buffers[0]);
        }
        buffers[other] = buffer;
        models[other] = models[index];
    }
};

TEST(CKoBuffer, agreesWithTextsThatShareNothing)
{
    Script script;
    for (int i = 0; i < 5000 && !HasFatalFailure(); ++i)
        script.step();
}

TEST(CKoBuffer, copiesOutWhatIsThere)
{
    const CKoBuffer buffer = bufferOf("abcdef");
    const struct
    {
        unsigned int count, offset;
        std::string expected;
    } cases[] = {{2, 1, "bc"}, {9, 4, "ef"}, {1, 6, ""}, {1, UINT_MAX, ""}, {UINT_MAX, 5, "f"}, {0, 0, ""}};
    for (const auto& [count, offset, expected] : cases)
    {
        char bytes[8] = {};
        EXPECT_EQ(expected.size(), buffer.copyFrom(bytes, count, offset));
        EXPECT_EQ(expected, bytes);
    }
    EXPECT_EQ(0U, buffer.copyFrom(nullptr, 1, 0));
}

TEST(CKoBuffer, brokenPreconditionsAreReported)
{
    CKoBuffer shared = bufferOf("abcd");
    const CKoBuffer sharer(shared);
    CKoBuffer own = bufferOf("xy");
    MemoryStream full;
    full.writeLimit = 5;

    const KoTest::ReportCase cases[] = {
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
    KoTest::expectReports(cases, [&] { EXPECT_EQ("xy", textOf(own)); });
    EXPECT_EQ("abc", textOf(sharer)) << "a reported truncation goes on";
    EXPECT_EQ((Bytes{2, 0, 0, 0, 'x'}), full.bytes);
    EXPECT_EQ(0U, own.copyTo(nullptr, 2, 9) + own.copyTo("x", 0, 12));
    EXPECT_EQ(12U, own.getSize());
}

TEST(CKoBuffer, isStreamedAsSizeAndBytes)
{
    MemoryStream stream;
    stream << bufferOf("abc") << CKoBuffer();
    CKoBuffer::toNubStream(stream, bufferOf("d"));
    EXPECT_EQ((Bytes{3, 0, 0, 0, 'a', 'b', 'c', 0, 0, 0, 0, 1, 0, 0, 0, 'd'}), stream.bytes);

    CKoBuffer buffer = bufferOf("old");
    const CKoBuffer sharer(buffer);
    CKoRCMemoryBuffer base(4);
    stream >> buffer >> base;
    EXPECT_TRUE(buffer == bufferOf("abc") && sharer == bufferOf("old") && base == CKoBuffer());
    CKoBuffer::fromNubStream(stream, buffer);
    EXPECT_EQ("d", textOf(buffer));
    EXPECT_EQ((std::vector<unsigned int>{4, 3, 4, 4, 1}), stream.writes);
    EXPECT_EQ(stream.writes, stream.reads);
    EXPECT_EQ((std::vector<unsigned int>{4, 4}), stream.aligns);
}

TEST(CKoBuffer, aClaimedSizeCostsNoMoreThanWhatArrives)
{
    for (const unsigned int claimed : {4U, 65536U, 65600U, 200000U, 0x7FFFFFFFU, 0x80000000U, UINT_MAX})
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
                std::equal(blockOf(buffer), blockOf(buffer) + buffer.getSize(), &stream.bytes[3] + 1));
            EXPECT_LE(*std::max_element(stream.reads.begin(), stream.reads.end()),
                      std::max(arriving, 65536U));
        }
    }
    MemoryStream cut(Bytes{9, 0, 0});
    CKoBuffer buffer = bufferOf("old");
    cut >> buffer;
    EXPECT_TRUE(buffer == CKoBuffer());
}

TEST(CKoRCMemoryBuffer, threadsShareAndDropOneBlock)
{
    CKoRCMemoryBuffer buffer(100);
    std::memset(buffer.getBuffer(), 'x', 100);
    CKoRCMemoryBuffer owned[] = {buffer, buffer};
    buffer.removeRef();
    const auto copyAndDrop = [&owned](int index)
    {
        CKoRCMemoryBuffer& own = owned[index];
        for (int i = 0; i < 2000; ++i)
        {
            const CKoRCMemoryBuffer copy(own);
            own = CKoRCMemoryBuffer();
            own = copy;
            EXPECT_EQ('x', blockOf(own)[99]);
        }
        own.removeRef();
    };
    KoTest::inThreads(2, copyAndDrop);
}

unsigned int sAsked = 0;
int sGivenBack = 0;

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

    const auto allocate = [](unsigned int size) { return std::malloc(sAsked = size); };
    const auto giveBack = [](void* block) { std::free((++sGivenBack, block)); };
    CKoRawMemoryBuffer custom(3, allocate);
    EXPECT_EQ(16U, sAsked) << "two words and the capacity";
    custom.release(giveBack);
    custom.release(giveBack);
    EXPECT_EQ(1, sGivenBack);

    const CKoRawMemoryBuffer refused(3, [](unsigned int) -> void* { return nullptr; });
    EXPECT_TRUE(refused.getBuffer() == nullptr && refused.getCapacity() == 0);
}

} // namespace
