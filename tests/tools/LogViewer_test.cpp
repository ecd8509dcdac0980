#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/Deadline.h"
#include "tests/support/LogSocket.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

/// Runs the viewer on a private socket, sends it datagrams and tells it to end afterwards.
class LogViewer : public testing::Test
{
protected:
    KoTest::ChildResult view(const std::vector<std::string>& options,
                             const std::vector<std::string>& datagrams, int endSignal = SIGTERM)
    {
        KoTest::ChildProcess::Program program{KO_LOGVIEW, {"--socket", m_path}, {}, {}};
        program.arguments.insert(program.arguments.end(), options.begin(), options.end());
        program.whileRunning = [&](pid_t viewer)
        {
            send(datagrams);
            if (endSignal != 0)
            {
                kill(viewer, endSignal);
            }
        };
        return KoTest::ChildProcess::execute(program);
    }

    void send(const std::vector<std::string>& datagrams)
    {
        int descriptor = -1;
        // The viewer may still be on its way to listening.
        EXPECT_TRUE(
            KoTest::waitUntil([&] { return (descriptor = KoTest::openLogSocket(&connect, m_path)) >= 0; }));
        for (const std::string& datagram : datagrams)
        {
            EXPECT_EQ(::send(descriptor, datagram.data(), datagram.size(), MSG_NOSIGNAL),
                      static_cast<ssize_t>(datagram.size()));
        }
        close(descriptor);
    }

    bool socketExists() const { return access(m_path.c_str(), F_OK) == 0; }

    KoTest::TemporaryDirectory m_directory;
    std::string m_path = m_directory.file("log");
};

/// The lines without their arrival time, whose length is fixed.
std::vector<std::string> linesOf(const std::string& output)
{
    const std::size_t timeLength = std::strlen("2000-01-01 00:00:00.000  ");
    std::vector<std::string> lines;
    std::size_t begin = 0;
    for (std::size_t end = output.find('\n'); end != std::string::npos; end = output.find('\n', begin))
    {
        EXPECT_GT(end - begin, timeLength);
        lines.push_back(output.substr(begin + timeLength, end - begin - timeLength));
        begin = end + 1;
    }
    return lines;
}

TEST_F(LogViewer, printsSeveritySenderModuleCodeAndTextOfEachLine)
{
    const KoTest::ChildResult result =
        view({}, {"<9>app[12]: (10000) pid 12: ASSERTION \"x\" failed in CKoString 7",
                  "<15>a b[1]: (3145733) pid 1: \xCE\xB1 %s"});

    EXPECT_THAT(
        linesOf(result.standardOutput),
        ElementsAre("Critical  app[12]  module 0  code 10000  pid 12: ASSERTION \"x\" failed in CKoString 7",
                    "Debug2    a b[1]  module 3  code 5  pid 1: \xCE\xB1 %s"));
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    EXPECT_FALSE(socketExists());
}

TEST_F(LogViewer, hidesLinesLessSevereThanAsked)
{
    const std::vector<std::string> datagrams = {"<8>a[1]: (10000) shutdown", "<10>a[1]: (10000) error",
                                                "<11>a[1]: (10000) warning"};
    for (const char* const severity : {"Error", "error", "2"})
    {
        const KoTest::ChildResult result = view({"--severity", severity}, datagrams, SIGINT);
        EXPECT_THAT(linesOf(result.standardOutput),
                    ElementsAre("Shutdown  a[1]  module 0  code 10000  shutdown",
                                "Error     a[1]  module 0  code 10000  error"));
        EXPECT_EQ(result.exitStatus, 0);
    }
}

TEST_F(LogViewer, showsLinesThatSatisfyEveryFilter)
{
    // The texts name the lines; opcodes are module * 1048576 + code.
    const std::vector<std::string> datagrams = {"<12>pump[7]: (2097153) A",     "<12>pump[8]: (2097154) B b",
                                                "<12>valve[7]: (3145729) C",    "<10>77[9]: (1) D",
                                                "<12>x[y]: (7[6]: (1048577) E", "foreign F"};
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "ABCDEF"},
        {{"--module", "2", "--module", "3"}, "ABC"},
        {{"--code", "1"}, "ACD"},
        {{"--process", "pump", "--process", "9"}, "ABD"},
        {{"--process", "7"}, "AC"},
        {{"--process", "x[y]: (7"}, ""},
        {{"--text", "b", "--text", "F"}, "BF"},
        {{"--not-text", "B", "--not-text", "F"}, "ACDE"},
        {{"--module", "2", "--process", "7", "--code", "1", "--text", "A", "--not-text", "b"}, "A"},
        {{"--severity", "Error", "--code", "1"}, "D"}};
    for (const auto& [options, expected] : cases)
    {
        const KoTest::ChildResult result = view(options, datagrams);
        std::string shown;
        for (const std::string& line : linesOf(result.standardOutput))
        {
            shown += line.substr(line.find_first_of("ABCDEF", line.rfind("  "))).substr(0, 1);
        }
        EXPECT_EQ(shown, expected) << result.describe();
    }
}

TEST_F(LogViewer, showsForeignBytesEscapedAndGoesOnUntilItsCountIsReached)
{
    const std::string control = "\x1B[2J\x80\xC2\x9B";
    const std::vector<std::string> foreign = {"",
                                              "<9",
                                              "<9>",
                                              "<9>a]: (",
                                              "<9>a[1]: ()",
                                              "<9>a[1]: (1)",
                                              "<-1>[]: (1) x",
                                              std::string(9000, 'x'),
                                              control};
    for (const std::string& datagram : foreign)
    {
        const KoTest::ChildResult result = view({"--count", "2"}, {datagram, "<9>a[1]: (-1) \x01\n\xFF"}, 0);
        EXPECT_EQ(result.exitStatus, 0) << result.describe();
        const std::vector<std::string> shown = linesOf(result.standardOutput);
        ASSERT_EQ(shown.size(), 2U) << result.describe();
        EXPECT_EQ(shown[0], "foreign   " + (datagram == control ? "\\x1B[2J\\x80\\xC2\\x9B" : datagram));
        EXPECT_EQ(shown[1], "Critical  a[1]  module 4095  code 1048575  \\x01\\x0A\\xFF");
    }
}

TEST_F(LogViewer, replacesAnAbandonedSocketButNeitherAFileNorALivingLogger)
{
    const int abandoned = KoTest::openLogSocket(&bind, m_path);
    ASSERT_GE(abandoned, 0);

    const KoTest::ChildProcess::Program program{KO_LOGVIEW, {"--socket", m_path, "--count", "1"}, {}, {}};
    const KoTest::ChildResult inUse = KoTest::ChildProcess::execute(program);
    EXPECT_EQ(inUse.exitStatus, 1) << inUse.describe();
    EXPECT_THAT(inUse.standardError, HasSubstr("cannot listen at " + m_path));
    EXPECT_TRUE(socketExists());

    close(abandoned);
    const KoTest::ChildResult replaced = view({"--count", "1"}, {"<9>a[1]: (1) x"}, 0);
    EXPECT_EQ(replaced.exitStatus, 0) << replaced.describe();
    EXPECT_FALSE(socketExists());

    m_directory.write("log", "precious");
    EXPECT_EQ(KoTest::ChildProcess::execute(program).exitStatus, 1);
    EXPECT_EQ(m_directory.read("log"), "precious");
}

TEST_F(LogViewer, refusesWrongOptions)
{
    const std::vector<std::vector<std::string>> wrong = {{"--severity", "8"},
                                                         {"--count", "-1"},
                                                         {"--socket", std::string(200, 'x')},
                                                         {"--module", "x"},
                                                         {"x"}};
    for (const std::vector<std::string>& arguments : wrong)
    {
        const KoTest::ChildResult result =
            KoTest::ChildProcess::execute(KoTest::ChildProcess::Program{KO_LOGVIEW, arguments, {}, {}});
        EXPECT_GT(result.exitStatus, 0) << arguments.front();
        EXPECT_NE(result.standardError, "") << arguments.front();
    }
}

} // namespace
