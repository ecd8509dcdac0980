#include "pf/util/CKoConfigFileParser.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/FaultInjection.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

using testing::ElementsAre;
using Lines = std::vector<std::string>;

/// Keeps each line as "section id:line number:text".
class Listener final : public CKoConfigFileParser::ICallback
{
public:
    bool processConfigFileEntry(unsigned short sectionId, const char* line) override
    {
        lines.push_back(std::to_string(sectionId) + ':' + std::to_string(lineNumber) + ':' + line);
        return lines.size() != stopAt;
    }

    Lines lines;
    std::size_t stopAt = 0;
    unsigned int lineNumber = 0;
};

class CKoConfigFileParserTest : public testing::Test
{
protected:
    /// What arrives from a file with this content, for the sections "net" (1) and "" (2).
    Lines linesOf(const std::string& content)
    {
        m_directory.write("file", content);
        return linesOfFile(m_directory.file("file"));
    }
    static Lines linesOfFile(const std::string& path)
    {
        Listener listener;
        EXPECT_TRUE(parserFor(listener).parse(path.c_str(), listener.lineNumber)) << path;
        return listener.lines;
    }
    static CKoConfigFileParser parserFor(Listener& listener)
    {
        CKoConfigFileParser parser;
        EXPECT_TRUE(parser.addSectionCallback("net", 1, &listener));
        EXPECT_TRUE(parser.addSectionCallback("", 2, &listener));
        return parser;
    }

    KoTest::TemporaryDirectory m_directory;
};

TEST_F(CKoConfigFileParserTest, takesCommentsBlanksAndHeadersApart)
{
    const std::string whole(1023, 'x');
    const std::string first(1023, 'y');
    struct Case
    {
        std::string content;
        Lines expected;
    };
    const Case cases[] = {
        {"", {}},
        {"# only\n\n   \t\r\n#\n", {}},
        {"before\n[net]\n  a = b   # note\nlast", {"1:3:  a = b", "1:4:last"}},
        {"[net]\npath=a\\#b # c\n\\##x\n\\\\#\n\\#\\#\\# #\n\\a\\\n#\\#\n",
         {"1:2:path=a#b", "1:3:#", "1:4:\\#", "1:5:###", "1:6:\\a\\"}},
        {"[net]\n   [other]\n[net] trailing\na\n[ net ]\nb\n[Net]\nc\n[net\nd\n[ne\\#t]\ne\n[net]x]\nf\n",
         {"1:2:   [other]", "1:4:a", "1:14:f"}},
        {"[]\na\n[net # ]\nb\n[net]\nc\n]\n[]]\nd\n", {"2:2:a", "1:6:c", "1:7:]", "2:9:d"}},
        {"[net\x80]\na\n[net]\ntext \xC3\xA4\nend \x80\xFF\x7F \x01\x1F\r\n",
         {"1:4:text \xC3\xA4", "1:5:end \x80\xFF\x7F"}},
        {std::string("[net]\na\0b\nc\n\0\n d\n", 17), {"1:2:a", "1:3:c", "1:5: d"}},
        {"[net]\n" + whole + "\n" + first + "#[net]" + "\nz\n", {"1:2:" + whole, "1:3:" + first, "1:4:z"}},
        // The pieces behind the first are lines of their own: text, a header, and text again.
        {"[net]\n#" + whole + "x\n" + first + "[other]\na\n[net]\n" + first + std::string(477, 'z') + "\n",
         {"1:2:xx", "1:3:" + first, "1:6:" + first, "1:6:" + std::string(477, 'z')}}};
    for (const Case& each : cases)
    {
        const KoTest::LogCapture log;
        EXPECT_EQ(linesOf(each.content), each.expected) << testing::PrintToString(each.content);
        EXPECT_EQ(log.size(), 0U);
    }
}

/// The rules once more, line by line, with the C library's calls.
Lines modelOf(const std::string& path)
{
    const std::map<std::string, std::string> ids = {{"net", "1:"}, {"", "2:"}};
    Lines lines;
    std::string current;
    unsigned int lineNumber = 1;
    std::FILE* const file = std::fopen(path.c_str(), "r");
    std::string buffer(1024, '\1');
    while (std::fgets(&buffer[0], 1024, file) != nullptr)
    {
        const bool isWhole = buffer.find('\n') != std::string::npos;
        std::string line = buffer.c_str();
        std::size_t at = line.find('#');
        while (at != std::string::npos && at > 0 && line[at - 1] == '\\')
        {
            line.erase(at - 1, 1);
            at = line.find('#', at);
        }
        line.erase(std::min(at, line.size()));
        while (!line.empty() && static_cast<unsigned char>(line.back()) <= 32)
        {
            line.pop_back();
        }
        if (!line.empty() && line[0] == '[')
        {
            const std::size_t end = line.find(']');
            const auto id = end == std::string::npos ? ids.end() : ids.find(line.substr(1, end - 1));
            current = id == ids.end() ? "" : id->second;
        }
        else if (!line.empty() && !current.empty())
        {
            lines.push_back(current + std::to_string(lineNumber) + ':' + line);
        }
        lineNumber += isWhole ? 1 : 0;
        buffer.assign(1024, '\1');
    }
    std::fclose(file);
    return lines;
}

TEST_F(CKoConfigFileParserTest, agreesWithTheRulesOnRandomFiles)
{
    const std::string pieces[] = {"\n",
                                  "\n",
                                  "\n[net]\n",
                                  "[net]",
                                  "\n[]",
                                  "\n[other]\n",
                                  "#",
                                  "\\#",
                                  "\\",
                                  "[",
                                  "]",
                                  " ",
                                  "\t\r",
                                  "\xC3",
                                  "\x80",
                                  "a",
                                  "net",
                                  std::string(1, '\0'),
                                  std::string(60, 'b'),
                                  std::string(1010, 'c')};
    std::mt19937 random(20261123);
    for (int round = 0; round < 100; ++round)
    {
        std::string content = "[net]\n";
        const std::size_t size = random() % 20000;
        while (content.size() < size)
        {
            content += pieces[random() % (std::size(pieces) - (random() % 8 == 0 ? 0U : 1U))];
        }
        const Lines lines = linesOf(content);
        ASSERT_EQ(lines, modelOf(m_directory.file("file"))) << "round " << round;
    }
}

TEST_F(CKoConfigFileParserTest, endsWhereACallbackWantsItTo)
{
    m_directory.write("file", "[net]\na\nb\nc\n");
    const CKoString path(m_directory.file("file").c_str());
    Listener listener;
    const CKoConfigFileParser parser = parserFor(listener);
    listener.stopAt = 2;
    EXPECT_TRUE(parser.parse(path, listener.lineNumber));
    EXPECT_THAT(listener.lines, ElementsAre("1:2:a", "1:3:b"));
    EXPECT_EQ(listener.lineNumber, 3U);
    EXPECT_TRUE(parser.parse(path));
    EXPECT_EQ(listener.lines.size(), 5U) << "parsed again from the front, and without numbers";
}

TEST_F(CKoConfigFileParserTest, keepsTheFirstRegistrationOfAName)
{
    Listener listener;
    Listener other;
    CKoConfigFileParser parser = parserFor(listener);
    EXPECT_FALSE(parser.addSectionCallback("net", 7, &other));
    EXPECT_TRUE(parser.addSectionCallback("Net", 0xFFFF, &other));
    EXPECT_TRUE(parser.addSectionCallback("silent", 3, nullptr));
    m_directory.write("file", "[net]\na\n[silent]\nb\n[Net]\nc\n[silent]\nd\n[net]\ne\n");
    EXPECT_TRUE(parser.parse(m_directory.file("file").c_str()));
    EXPECT_THAT(listener.lines, ElementsAre("1:0:a", "1:0:e"));
    EXPECT_THAT(other.lines, ElementsAre("65535:0:c"));
}

/// Parses another file, and registers a section, in the middle of a parse.
class Nesting final : public CKoConfigFileParser::ICallback
{
public:
    Nesting(CKoConfigFileParser& parser, Listener& listener, const std::string& path)
        : m_parser(parser)
        , m_listener(listener)
        , m_path(path)
    {
    }
    bool processConfigFileEntry(unsigned short, const char* line) override
    {
        m_parser.addSectionCallback(line, 9, &m_listener);
        return m_parser.parse(m_path.c_str());
    }

private:
    CKoConfigFileParser& m_parser;
    Listener& m_listener;
    std::string m_path;
};

TEST_F(CKoConfigFileParserTest, mayBeUsedByItsCallbacks)
{
    Listener listener;
    CKoConfigFileParser parser;
    Nesting nesting(parser, listener, m_directory.file("inner"));
    parser.addSectionCallback("outer", 1, &nesting);
    m_directory.write("inner", "[b]\nx\n");
    m_directory.write("file", "[outer]\na\nb\nc\n");
    EXPECT_TRUE(parser.parse(m_directory.file("file").c_str()));
    EXPECT_THAT(listener.lines, ElementsAre("9:0:x", "9:0:x"));
}

TEST_F(CKoConfigFileParserTest, readsAPipeLineByLine)
{
    const std::string path = m_directory.file("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const std::string content = "[net]\nfirst\n" + std::string(1500, 'x') + "\nlast";
    std::thread writer(
        [&]
        {
            const int pipe = open(path.c_str(), O_WRONLY | O_CLOEXEC);
            for (std::size_t at = 0; at < content.size(); at += 7)
            {
                EXPECT_GT(write(pipe, content.data() + at, std::min<std::size_t>(7, content.size() - at)), 0);
            }
            close(pipe);
        });
    const Lines lines = linesOfFile(path);
    writer.join();
    EXPECT_THAT(lines, ElementsAre("1:2:first", "1:3:" + std::string(1023, 'x'),
                                   "1:3:" + std::string(477, 'x'), "1:4:last"));
}

TEST_F(CKoConfigFileParserTest, refusesOnlyWhatCannotBeOpened)
{
    Listener listener;
    const CKoConfigFileParser parser = parserFor(listener);
    const int lowestFree = dup(0);
    close(lowestFree);
    for (const std::string& path : {m_directory.file("none"), std::string()})
    {
        listener.lineNumber = 5;
        errno = 0;
        EXPECT_FALSE(parser.parse(path.c_str(), listener.lineNumber));
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(listener.lineNumber, 0U);
    }
    const CKoString directory(m_directory.path().c_str());
    errno = EAGAIN;
    EXPECT_TRUE(parser.parse(directory)) << "a directory fails where it is read";
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_TRUE(listener.lines.empty());
    const int next = dup(0);
    close(next);
    EXPECT_EQ(next, lowestFree) << "a descriptor was left open";
}

TEST_F(CKoConfigFileParserTest, endsAtAReadErrorAndGoesOnAfterAnInterruption)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    std::string content = "[net]\n";
    Lines whole;
    for (unsigned int line = 2; line < 2000; ++line)
    {
        const std::string text = "line " + std::to_string(line);
        content += text + '\n';
        whole.push_back("1:" + std::to_string(line) + ':' + text);
    }
    EXPECT_EQ(linesOf(content), whole);
    {
        const KoTest::FailingCall interrupted(KoTest::FAULT_READ, EINTR, 3, 0, 100);
        EXPECT_EQ(linesOfFile(m_directory.file("file")), whole) << "in short pieces";
        EXPECT_EQ(interrupted.failed(), 3U);
    }
    m_directory.write("short", "[net]\nno line end");
    {
        const KoTest::FailingCall third(KoTest::FAULT_READ, EIO, 1, 2);
        EXPECT_THAT(linesOfFile(m_directory.file("short")), ElementsAre("1:2:no line end"));
        EXPECT_EQ(third.failed(), 0U) << "the end of a terminal is seen once";
    }
    const KoTest::FailingCall failing(KoTest::FAULT_READ, EIO, 1000, 1, 100);
    const Lines lines = linesOfFile(m_directory.file("file"));
    EXPECT_EQ(failing.failed(), 1U) << "not read again";
    EXPECT_EQ(lines, Lines(whole.begin(), whole.begin() + 12)) << "of 100 bytes; a cut line is dropped";
}

TEST_F(CKoConfigFileParserTest, allocatesNothingWhileItReads)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    class Counter final : public CKoConfigFileParser::ICallback
    {
    public:
        bool processConfigFileEntry(unsigned short, const char*) override { return ++count > 0; }
        int count = 0;
    };
    Counter counter;
    CKoConfigFileParser parser;
    parser.addSectionCallback("net", 1, &counter);
    m_directory.write("file", "[net]\na\n[other]\nb\n[a long name, longer than any short text that fits into "
                              "an object]\n[net]\nc\n");
    const CKoString path(m_directory.file("file").c_str());
    const KoTest::AllocationCounter allocations;
    EXPECT_TRUE(parser.parse(path));
    EXPECT_EQ(allocations.count(), 0U);
    EXPECT_EQ(counter.count, 2);
}

} // namespace
