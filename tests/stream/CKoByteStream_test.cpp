#include "pf/stream/CKoByteStream.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <random>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "pf/stream/CKoBufferReader.h"
#include "tests/fuzz/StreamedTypes.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/LogCapture.h"

namespace
{

using KoTest::Bytes;
using KoTest::bytesOf;
using KoTest::streamOf;

unsigned int capacityOf(const CKoByteStream& stream)
{
    return stream.getMemoryBuffer().getSize();
}

/// A stream as it would be if it shared nothing.
struct Model
{
    std::string bytes;
    std::size_t position = 0;
    bool hasError = false;

    void skip(std::size_t count)
    {
        const std::size_t skipped = hasError ? 0 : std::min(count, bytes.size() - position);
        position += skipped;
        hasError = hasError || skipped < count;
    }
};

/// Does something to a stream that may share its block, and to its model.
void change(CKoByteStream& stream, Model& model, unsigned int action, unsigned int count)
{
    const bool isShared = stream.getMemoryBuffer().isShared();
    unsigned int capacity = capacityOf(stream);
    std::string expected(count, '?');
    std::string got(expected);
    switch (action)
    {
    case 0: // append the begin of its own bytes, or others
    case 1:
    {
        const std::string more = action == 0 ? model.bytes.substr(0, count) : expected;
        const auto need = static_cast<unsigned int>(model.bytes.size() + more.size());
        if (need > capacity)
            for (capacity = 32; capacity < need; capacity *= 2)
                ;
        else if (isShared && !more.empty())
            capacity = need;
        const auto size = static_cast<unsigned int>(more.size());
        IKoOStream& plain = stream;
        ASSERT_EQ(size, action == 0 ? stream.write(stream.getData(), size) : plain.write(more.data(), size));
        model.bytes += more;
        break;
    }
    case 2:
        if (!model.hasError && count > 0)
        {
            expected = model.bytes.substr(model.position, count);
            expected.resize(count);
        }
        stream.read(&got[0], count);
        ASSERT_EQ(expected, got);
        model.skip(count);
        break;
    case 3:
        stream.readSkip(count);
        model.skip(count);
        break;
    default:
        stream.reserve(capacity = count, true);
        model.bytes.resize(std::min<std::size_t>(count, model.bytes.size()));
        model.position = std::min(model.position, model.bytes.size());
    }
    ASSERT_EQ(capacity, capacityOf(stream));
}

TEST(CKoByteStream, agreesWithBytesThatNobodyShares)
{
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    CKoByteStream streams[3];
    Model models[3];
    const auto pick = [&](unsigned int count) { return static_cast<unsigned int>(random()) % count; };
    for (int i = 0; i < 5000 && !HasFatalFailure(); ++i)
    {
        const unsigned int index = pick(3);
        const unsigned int other = pick(3);
        change(streams[index], models[index], pick(5), pick(40));
        ASSERT_EQ(models[index].bytes == models[other].bytes, streams[index] == streams[other]);
        if (pick(4) == 0)
        {
            streams[other] = streams[index];
            models[other] = Model{models[index].bytes};
        }
        for (std::size_t k = 0; k < 3; ++k)
        {
            const Bytes bytes = bytesOf(streams[k]);
            ASSERT_EQ(models[k].bytes, std::string(bytes.begin(), bytes.end()));
            ASSERT_EQ(models[k].position, streams[k].position());
            ASSERT_EQ(models[k].hasError, streams[k].hasError());
        }
    }
}

TEST(CKoByteStream, sharesBytesWithBuffersAndIsCopiedIntoThem)
{
    CKoByteStream stream = streamOf({1, 2, 3});
    CKoBuffer buffer(stream);
    EXPECT_TRUE(buffer.getSize() == 3 && !buffer.isShared() && buffer.getBuffer()[2] == 3);
    const CKoByteStream copy(stream);
    stream = buffer;
    EXPECT_EQ(buffer.getUnsharedBuffer(), stream.getData());
    EXPECT_TRUE(stream == copy && CKoByteStream(buffer) == copy && capacityOf(copy) == 32);
    stream = CKoByteStream(99);
    EXPECT_TRUE(stream.length() == 0 && capacityOf(stream) == 3 && stream == CKoByteStream());
    buffer = stream;
    EXPECT_EQ(nullptr, buffer.getBuffer());
}

TEST(CKoByteStream, readsTextsUpToAZeroTheEndOrWhatIsNoText)
{
    const KoTest::LogCapture log;
    CKoByteStream stream = streamOf({'a', 'b', 0, 0, 'c', 0xFF, 'd', 0});
    const std::pair<const char*, unsigned int> expected[] = {{"ab", 3}, {"", 4}, {"c", 5}, {"", 5}};
    for (const auto& [text, position] : expected)
        EXPECT_TRUE(stream.toString() == CKoString(text) && stream.position() == position) << position;
    stream.readSkip(1);
    stream.reserve(7, true);
    EXPECT_TRUE(stream.toString() == CKoString("d") && stream.toString().isEmpty() && !stream.hasError());

    CKoString text("> ");
    streamOf({0x0A, 0xFF}).dump(text);
    streamOf(Bytes(65)).dump(text);
    EXPECT_TRUE(text.byteLength() == 2 + 67 * 3 && text.getLeft(11) == CKoString("> 0A FF 00 "));
}

TEST(CKoByteStream, takesWhatComesFromAStream)
{
    Bytes content(100000, 'x');
    const CKoByteStream source = streamOf(content);
    CKoByteStream stream = streamOf({1});
    EXPECT_EQ(70000U, stream.readFromIStream(source, 70000));
    EXPECT_EQ(30000U, stream.readFromIStream(source, UINT_MAX));
    content.insert(content.begin(), 1);
    EXPECT_TRUE(bytesOf(stream) == content && source.hasError() && !stream.hasError());

    CKoByteStream record;
    record << stream << 7;
    record >> record; // from its own beginning
    EXPECT_TRUE(record == stream && record.position() == 0 && capacityOf(record) == 100001);

    CKoByteStream cut = streamOf({200, 0, 0, 0, 1, 2});
    cut >> stream;
    EXPECT_TRUE(stream.hasError() && bytesOf(stream) == (Bytes{1, 2}));
    streamOf({0, 0, 0}) >> stream;
    EXPECT_TRUE(stream.hasError() && stream.length() == 0);
    streamOf({0, 0, 0, 0}) >> stream;
    EXPECT_FALSE(stream.hasError());
    CKoByteStream::toNubStream(cut = CKoByteStream(), CKoByteStream(3));
    EXPECT_EQ((Bytes{3, 0, 0, 0, 0, 0, 0}), bytesOf(cut)) << "room is nobody's old data";
    for (const unsigned int size : {3U, 1U})
    {
        stream = streamOf(content);
        CKoByteStream::fromNubStream(streamOf(Bytes(cut.getData(), cut.getData() + 4 + size)), stream);
        EXPECT_TRUE(stream.length() == size && capacityOf(stream) == size && stream.hasError() == (size < 3));
    }
}

TEST(CKoByteStream, brokenPreconditionsAreReported)
{
    CKoByteStream stream = streamOf({1, 2});
    CKoRCMemoryBuffer buffer = stream.getMemoryBuffer();
    const KoTest::ReportCase cases[] = {
        {"CKoByteStream: ???", [&] { EXPECT_EQ(0U, stream.write(nullptr, 1)); }},
        {"CKoByteStream: ???", [&] { EXPECT_EQ(0U, stream.read(nullptr, 1)); }},
        {"CKoByteStream: ???",
         [&] { EXPECT_EQ(0U, static_cast<IKoOStream&>(stream).write(&stream, UINT_MAX - 1)); }},
        {"CKoByteStream: ???", [&] { stream.reserve(UINT_MAX); }},
        {"CKoByteStream: ???", [&] { EXPECT_EQ(32U, CKoByteStream(buffer, 33).length()); }},
        {"CKoRCMemoryBuffer: ???", [&] { buffer.makePrivate(UINT_MAX); }},
        {"CKoBufferReader: ???", [] { EXPECT_EQ(0, CKoBufferReader(nullptr, 9).read(&errno, 4)); }},
        {"CKoBufferReader: ???", [] { EXPECT_FALSE(CKoBufferReader("", 0).seek(1, SEEK_DIRECTION_BEGIN)); }},
    };
    KoTest::expectReports(cases, [&] { EXPECT_TRUE(stream == streamOf({1, 2}) && !stream.hasError()); });
}

TEST(CKoBufferReader, seeksAndReadsAsAFileDoes)
{
    CKoBufferReader reader("0123456789", 10);
    const int cases[][4] = {{10, 0, true, 10}, {11, 0, false, 10},     {-1, 0, false, 10}, {-10, 1, true, 0},
                            {-1, 1, false, 0}, {4, 1, true, 4},        {7, 1, false, 4},   {-10, 2, true, 0},
                            {1, 2, false, 0},  {-11, 2, false, 0},     {0, 3, false, 0},   {0, 4, false, 0},
                            {0, -1, false, 0}, {INT_MIN, 2, false, 0}, {8, 0, true, 8}};
    for (const auto& [offset, direction, succeeds, position] : cases)
    {
        errno = 0;
        EXPECT_EQ(succeeds, reader.seek(offset, static_cast<SeekDirection>(direction)));
        EXPECT_TRUE(errno == (succeeds ? 0 : EINVAL) && reader.tell() == static_cast<unsigned int>(position))
            << offset;
    }
    char bytes[4] = "";
    EXPECT_TRUE(reader.read(nullptr, 0, 0) == 0 && reader.read(nullptr, 1, 0) == -1 && errno == EINVAL);
    EXPECT_EQ(2, reader.read(bytes, UINT_MAX, 0) + reader.read(bytes, 1, 0));
    EXPECT_STREQ("89", bytes);
}

} // namespace
