#include "pf/containers/CKoCircularByteBuffer.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <numeric>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "pf/stream/KoStreamOperators.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/MemoryStream.h"

namespace
{

using KoTest::MemoryStream;
using Bytes = std::vector<unsigned char>;

CKoCircularByteBuffer ringOf(const Bytes& content, unsigned int capacity = 64, unsigned int position = 0)
{
    CKoCircularByteBuffer ring(capacity);
    const Bytes filler(position, 0xEE);
    Bytes read(position + 1);
    ring.doWrite(filler.data(), position);
    EXPECT_EQ(position, position == 0 ? 0 : ring.doRead(read.data(), position));
    EXPECT_EQ(content.size(), ring.doWrite(content.data(), static_cast<unsigned int>(content.size())));
    return ring;
}

/// Size and content as they are written to a stream.
Bytes streamed(const CKoCircularByteBuffer& ring)
{
    MemoryStream stream;
    stream << ring;
    return stream.bytes;
}

/// A ring beside a queue of what it holds and a picture of its storage.
struct Script
{
    Script(unsigned int capacity, unsigned int seed)
        : m_capacity(static_cast<int>(capacity))
        , m_random(seed)
        , m_ring(capacity)
        , m_start(m_ring.logicBegin())
        , m_storage(capacity + 1)
    {
    }

    std::set<std::pair<int, int>> visited;

    void step()
    {
        static constexpr void (Script::*OPERATIONS[])(int) = {
            &Script::moveBegin, &Script::moveEnd, &Script::setSize,   &Script::write,
            &Script::write,     &Script::read,    &Script::clearFlags};
        m_begin = static_cast<int>(m_ring.logicBegin() - m_start);
        m_end = static_cast<int>(m_ring.logicEnd() - m_start);
        visited.emplace(m_begin % m_span, m_end % m_span);
        const int count = static_cast<int>(m_random() % static_cast<unsigned int>(2 * m_span + 1)) - m_span;
        (this->*OPERATIONS[m_random() % std::size(OPERATIONS)])(count);
    }

    void check() const
    {
        MemoryStream expected;
        expected << size();
        for (const unsigned char byte : m_queue)
            expected << byte;
        ASSERT_EQ(expected.bytes, streamed(m_ring));
        ASSERT_TRUE(m_queue.size() == m_ring.size() && room() == static_cast<int>(m_ring.getFreeSize()));

        CKoCircularByteBuffer same(MAX_COUNT);
        expected >> same;
        ASSERT_TRUE(same == m_ring && m_ring == same);
        expected.bytes.back() ^= 1U;
        MemoryStream(expected.bytes) >> same;
        ASSERT_EQ(m_queue.empty(), same == m_ring);
    }

private:
    int size() const { return static_cast<int>(m_queue.size()); }
    int room() const { return std::max(0, m_capacity - size()); }
    unsigned char& stored(int position)
    {
        return m_storage[static_cast<unsigned int>(position + m_span) % m_storage.size()];
    }

    void resize(int count)
    {
        for (; size() < count; ++m_end)
            m_queue.push_back(stored(m_end));
        m_queue.resize(static_cast<unsigned int>(count));
    }

    void moveBegin(int delta)
    {
        bool allowed = delta <= size();
        if (delta < 0)
            allowed =
                size() - delta <= m_capacity ? m_begin != m_end : m_begin < m_end && m_begin + delta >= 0;
        ASSERT_EQ(allowed && !m_readError, m_ring.moveRelativeBegin(delta)) << delta;
        if (!(m_readError = m_readError || !allowed))
        {
            for (int i = 0; i < delta; ++i)
                m_queue.pop_front();
            for (int i = 1; i <= -delta; ++i)
                m_queue.push_front(stored(m_begin - i));
        }
    }

    void moveEnd(int delta)
    {
        const bool fitsUnwrapped = m_begin <= m_end && m_end + delta < m_span;
        const bool allowed = delta < 0 ? -delta <= size() : fitsUnwrapped || size() + delta < m_capacity;
        ASSERT_EQ(allowed && !m_writeError, m_ring.moveRelativeEnd(delta)) << delta;
        if (!(m_writeError = m_writeError || !allowed))
            resize(size() + delta);
    }

    void setSize(int count)
    {
        count = std::abs(count);
        const bool allowed = count <= m_capacity && (m_begin == m_end || count <= size());
        ASSERT_EQ(allowed, m_ring.setSize(static_cast<unsigned int>(count))) << count;
        if (allowed)
            return resize(count);
        m_readError = false;
        m_writeError = true;
    }

    void write(int count)
    {
        count = std::abs(count);
        unsigned char bytes[MAX_COUNT];
        std::iota(bytes, bytes + count, static_cast<unsigned char>(m_random()));
        const int written = static_cast<int>(m_ring.write(bytes, static_cast<unsigned int>(count)));
        ASSERT_EQ(m_writeError ? 0 : std::min(count, room()), written);
        for (int i = 0; i < written; ++i)
            stored(m_end + i) = bytes[i];
        resize(size() + written);
        m_writeError = m_writeError || written < count;
    }

    void read(int count)
    {
        count = std::abs(count);
        unsigned char bytes[MAX_COUNT];
        const int arrived = static_cast<int>(m_ring.read(bytes, static_cast<unsigned int>(count)));
        ASSERT_EQ(m_readError ? 0 : std::min(count, size()), arrived);
        ASSERT_TRUE(std::equal(bytes, bytes + arrived, m_queue.begin()));
        m_queue.erase(m_queue.begin(), m_queue.begin() + arrived);
        m_readError = m_readError || arrived < count || m_begin == m_end;
    }

    /// The one way that keeps the positions.
    void clearFlags(int)
    {
        m_ring = CKoCircularByteBuffer(m_ring);
        m_readError = m_writeError = false;
    }

    static constexpr int MAX_COUNT = 256;
    int m_capacity, m_span = m_capacity + 1;
    std::mt19937 m_random;
    CKoCircularByteBuffer m_ring;
    const unsigned char* m_start;
    Bytes m_storage;
    std::deque<unsigned char> m_queue;
    int m_begin = 0, m_end = 0;
    bool m_readError = false, m_writeError = false;
};

TEST(CKoCircularByteBuffer, agreesWithAQueueAtEveryPositionOfBothEnds)
{
    const unsigned int seed = std::random_device()();
    for (unsigned int run = 0; run <= 18; ++run)
    {
        const unsigned int capacity = run <= 17 ? run : 200; // the last for transfers of every length
        SCOPED_TRACE("seed " + std::to_string(seed) + ", capacity " + std::to_string(capacity));
        Script script(capacity, seed + capacity);
        const std::size_t positions = run <= 17 ? (capacity + 1) * (capacity + 1) : 0;
        for (int i = 0; (i < 2000 || script.visited.size() < positions) && !HasFatalFailure(); ++i)
        {
            ASSERT_LT(i, 200000) << script.visited.size() << " positions only";
            script.step();
            script.check();
        }
    }
}

TEST(CKoCircularByteBuffer, keepsOfAStreamWhatFitsAndBelievesNoLength)
{
    const struct
    {
        unsigned int claimed, arriving, kept, room;
        std::vector<unsigned int> reads;
    } cases[] = {{2, 3, 2, 1, {4, 2}},
                 {0, 1, 0, 1, {4}},
                 {10, 10, 4, 0, {4, 4, 6}},
                 {3000, 2500, 4, 0, {4, 4, 1024, 1024, 948}},
                 {0xFFFFFFFE, 3, 3, 1, {4, 4}}};
    for (const auto& [claimed, arriving, kept, room, reads] : cases)
    {
        MemoryStream stream;
        stream << claimed;
        stream.doWrite(Bytes(5000, 7).data(), arriving);
        CKoCircularByteBuffer ring = ringOf({1, 2}, 4, 3);
        stream >> ring;
        EXPECT_EQ(reads, stream.reads) << claimed;
        EXPECT_TRUE(ring.size() == kept && ring.doWrite("x", 1) == room);
        ring.reset();
        EXPECT_TRUE(ring.waitToRead(-1) && ring.waitToWrite(-1) && ring.doWrite("abcde", 5) == 4);
        EXPECT_EQ((Bytes{1, 0, 0, 0, 9}), streamed(ring = ringOf({9}, 2)));
    }
    MemoryStream full;
    full.writeLimit = 6;
    full << ringOf({1, 2, 3, 4}, 6, 4);
    EXPECT_EQ((std::vector<unsigned int>{4, 3}), full.writes) << "no second part after a short first";

    CKoCircularByteBuffer own = ringOf({1, 2, 3}, 12, 11);
    own << own;
    EXPECT_EQ(2U, own.doWrite(own.logicEnd() - 2, 9)) << "a part of the content";
    EXPECT_EQ((Bytes{12, 0, 0, 0, 1, 2, 3, 3, 0, 0, 0, 1, 2, 3, 2, 3}), streamed(own));
    own.reset();
    own >> own;
    EXPECT_TRUE(own.size() == 0 && !own.moveRelativeBegin(0));
}

TEST(CKoCircularByteBuffer, findsStringRecordsAcrossTheEndOfItsStorage)
{
    const CKoString text("h\u00E9llo");
    for (unsigned int position = 0; position < 40; ++position)
    {
        CKoCircularByteBuffer ring = ringOf({0, 0xFF, 2, 0, 0, 0, 'x', 3, 1, 0, 0, 0x80}, 39, position);
        EXPECT_EQ(7U, ring.serializeString(text) + ring.serializeString("x") + ring.serializeString(""));
        CKoCircularByteBuffer copy(ring);
        EXPECT_TRUE(!copy.beginsWith("x") && copy.goNextString(text) && copy.size() == 19);
        EXPECT_TRUE(copy.beginsWith(text) && !copy.beginsWith("h\u00E9ll") && !copy.beginsWith(""));
        EXPECT_TRUE(copy.moveRelativeBegin(4) && copy.moveRelativeEnd(-9));
        EXPECT_EQ(text, copy.toString(copy.logicBegin(), copy.logicEnd()));
        CKoString read;
        EXPECT_TRUE(ring.goNextString("x") && ring.size() == 9);
        ring >> read;
        EXPECT_TRUE(read == "x" && ring.goNextString("") && !ring.goNextString("12345") && ring.size() == 4);
        EXPECT_TRUE(!ring.goNextString("1234") && ring.size() == 3);
    }
}

TEST(CKoCircularByteBuffer, cutsARecordThatDoesNotFit)
{
    const unsigned char record[] = {3, 0, 0, 0, 'a', 'b', 'c'};
    for (unsigned int capacity = 1; capacity <= 7; ++capacity)
    {
        CKoCircularByteBuffer ring(capacity);
        EXPECT_EQ(std::max(capacity, 4U) - 4U, ring.serializeString("abc"));
        EXPECT_TRUE(ring == ringOf(Bytes(record, record + capacity)));
        EXPECT_EQ(capacity == 7, ring.beginsWith("abc"));
    }
    CKoCircularByteBuffer empty(8);
    EXPECT_FALSE(empty.goNextString("")) << "nothing to discard";
    EXPECT_EQ(3U, empty.serializeString("abc")) << "a read error does not hinder writing";
    EXPECT_TRUE(empty.goNextString("abc") && !empty.goNextString("ab"));
}

TEST(CKoCircularByteBuffer, dumpsSixteenBytesALine)
{
    const std::string blanks(76, ' ');
    const std::string lines[] = {
        "0:        41 42 00 1F 20 7F 80 FF 30 31 32 33 34 35 36 37   AB.. \x7F..01234567",
        "10:       38 " + blanks.substr(0, 47) + "8" + blanks.substr(0, 15),
        "11:       " + blanks.substr(10)};
    const CKoCircularByteBuffer ring = ringOf(
        {'A', 'B', 0, 0x1F, ' ', 0x7F, 0x80, 0xFF, '0', '1', '2', '3', '4', '5', '6', '7', '8'}, 20, 10);
    const unsigned int offsets[] = {0, 16, 17};
    for (unsigned int i = 0; i < 3; ++i)
        EXPECT_EQ(lines[i], ring.dumpLine(offsets[i]).c_str());
    EXPECT_TRUE(ring.dumpLine(18).isEmpty() && ring.dumpLine(UINT_MAX).isEmpty());
    EXPECT_EQ("0:" + blanks.substr(2), CKoCircularByteBuffer(3).dumpLine(0).c_str());

    const void* const pointers[] = {ring.logicBegin() - 10, ring.logicBegin() + 11, ring.logicBegin(),
                                    ring.logicEnd()};
    char header[400];
    std::snprintf(header, sizeof(header),
                  "CKoCircularByteBuffer: size = 17, free size = 3\nphys  begin = 0x%p, phys  end = 0x%p\n"
                  "logic begin = 0x%p, logic end = 0x%p\nlogic rel begin = 10, logic rel end = 6\n",
                  pointers[0], pointers[1], pointers[2], pointers[3]);
    EXPECT_EQ(header + lines[0] + "\n" + lines[1] + "\n", ring.dumpString().c_str());
}

TEST(CKoCircularByteBuffer, logsWhenItIsInvalidAndExplainsWhy)
{
    CKoCircularByteBuffer none(1);
    CKoCircularByteBuffer ring = ringOf({1, 2});
    const unsigned char outside = 0;
    const KoTest::ReportCase misuses[] = {
        {"CKoCircularByteBuffer: ???", [&] { EXPECT_EQ(0U, ring.doWrite(nullptr, 1)); }},
        {"CKoCircularByteBuffer: ???", [&] { EXPECT_EQ(0U, ring.doRead(nullptr, 1)); }},
        {"CKoCircularByteBuffer: ???", [&] { ring.toString(&outside, ring.logicEnd()); }},
        {"CKoRCMemoryBuffer: ???", [&] { none = CKoCircularByteBuffer(UINT_MAX - 1); }},
        {"CKoCircularByteBuffer: ???", [&] { none = CKoCircularByteBuffer(UINT_MAX); }}};
    KoTest::expectReports(misuses, [&] { EXPECT_TRUE(ring == ringOf({1, 2})); });
    none.reset();
    MemoryStream(Bytes{2, 0, 0, 0, 1, 2}) >> none;

    const KoTest::LogCapture log;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(none.size() > 0 || none.getFreeSize() > 0 || none.beginsWith("") || none.setSize(0) ||
                 none.moveRelativeBegin(0) || none.moveRelativeEnd(0) || none == ring || ring == none ||
                 none.doWrite("a", 1) > 0 || none.doRead(&none, 1) > 0);
    const std::string name = "[CKoCircularByteBuffer::";
    const std::string nulls =
        name + "explainError] m_physBegin is null\n" + name + "explainError] m_physEnd is null\n" + name +
        "explainError] m_logicBegin is null\n" + name + "explainError] m_logicEnd is null\n";
    const std::string last = name + "explainError] m_physBegin == m_physEnd\n";
    const std::string printed = name + "explainError] error occured:\n" + nulls + last;
    EXPECT_EQ(printed + printed, testing::internal::GetCapturedStdout());
    std::string expected;
    for (const std::string operation : {"size", "size", "size", "setSize", "moveRelativeBegin",
                                        "moveRelativeEnd", "operator ==", "write", "read"})
    {
        expected += name + operation + ":] invalid buffer\n";
        if (operation == "write" || operation == "read")
            expected += nulls + name + "explainError] m_logicBegin >=  m_physEnd\n" + last;
    }
    std::string logged;
    for (const std::string& line : log.texts(2))
        for (const char character : line + "\n")
            logged.append(std::isdigit(character) ? 0 : 1, character);
    EXPECT_EQ(expected, logged);

    MemoryStream(Bytes(4, 0xFF)) >> ring;
    EXPECT_EQ(Bytes(4, 0xFF), streamed(ring));
    EXPECT_TRUE(ring == none && ring.toString(ring.logicBegin(), ring.logicBegin() + 1).isEmpty());
    ring.reset();
    EXPECT_TRUE(!ring.isInvalid() && none.dumpString().length() > 100);
}

} // namespace
