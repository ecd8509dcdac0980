#include "pf/stream/CKoBufferedOStream.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pf/stream/CKoBufferedOutputStream.h"
#include "tests/support/AssertionCounter.h"

namespace
{

/// Notes each call in order: a write as its bytes with zeros as dots, a flush as '!'.
class Recorder : public IKoOStream
{
public:
    std::string calls;

    void flush() override { calls += "!"; }
    bool waitToWrite(int timeoutMs) override { return timeoutMs == 5; }
    unsigned int doWrite(const void* src, unsigned int count) override
    {
        std::string bytes(static_cast<const char*>(src), count);
        std::replace(bytes.begin(), bytes.end(), '\0', '.');
        calls += "[" + bytes + "]";
        return 99;
    }
};

/// Writes the texts; "!" is a flush and '=' what the writes gave.
void writeAll(IKoOStream& stream, Recorder& target, const std::vector<std::string>& texts)
{
    for (const std::string& text : texts)
        if (text == "!")
            stream.flush();
        else
            target.calls +=
                '=' + std::to_string(stream.write(text.data(), static_cast<unsigned int>(text.size())));
    EXPECT_TRUE(stream.waitToWrite(5) && !stream.waitToWrite(6));
    target.calls += " end ";
}

TEST(CKoBufferedOStream, makesARecordOfEachFlush)
{
    Recorder target;
    {
        CKoBufferedOStream stream(target, 2U);
        writeAll(stream, target, {std::string(0x41, '-'), "!", "!", std::string(0x42, '+')});
    }
    EXPECT_EQ("=65[A...][" + std::string(65, '-') + "]![....]!=66 end [B...][" + std::string(66, '+') + "]!",
              target.calls);
}

TEST(CKoBufferedOutputStream, passesBytesOnInOrderAndInFewWrites)
{
    const KoTest::AssertionCounter assertions(1); // the last
    const struct
    {
        unsigned int capacity;
        bool isBuffered;
        std::vector<std::string> texts;
        const char* calls;
    } cases[] = {
        {8, true, {"abc", "defg", "!"}, "=3=4[abcdefg]! end !"},
        {8, true, {"abc", "defg", "h", "i"}, "=3=4[abcdefgh]=1=1 end [i]!"},
        {8, true, {"a", "bcdefghi", ""}, "=1[a]![bcdefghi]=99=0 end !"},
        {8, true, {"abcdefg", "hijklmn"}, "=7[abcdefghijklmn]=7 end !"},
        {4, false, {"a", "bcdef", "!", "g"}, "=1=5[abcdef]!=1 end [g]!"},
        {0, true, {"a"}, "=1 end [a]!"},
    };
    for (const auto& [capacity, isBuffered, texts, calls] : cases)
    {
        Recorder target;
        {
            CKoBufferedOutputStream stream(target, capacity, isBuffered);
            writeAll(stream, target, texts);
        }
        EXPECT_EQ(calls, target.calls);
    }
}

} // namespace
