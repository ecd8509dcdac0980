#include "pf/platform/KoPlatformLog.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/LogSocket.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/Threads.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <unistd.h>

namespace
{

class KoPlatformLogTest : public testing::Test
{
protected:
    KoPlatformLogTest() { KoPlatform::setLogSink(nullptr); }
    ~KoPlatformLogTest() override { stopLogger(); }

    /// Replaces the logger, if there is one, by a new one with an empty queue.
    void startLogger()
    {
        stopLogger();
        ::unlink(m_path.c_str());
        m_logger = KoTest::openLogSocket(&::bind, m_path);
    }

    void stopLogger()
    {
        ::close(m_logger);
        m_logger = -1;
    }

    /// The next datagram, empty when there is none.
    std::string next() const
    {
        char text[2048];
        const ssize_t length = ::recv(m_logger, text, sizeof(text), MSG_DONTWAIT);
        return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : std::string();
    }

    /// Logs and gives 0 or the error number.
    static int log(const char* text)
    {
        errno = 0;
        return KoPlatform::slogf(10000, 3, "%s", text) >= 0 ? 0 : errno;
    }

    static std::string line(const std::string& text) { return datagram(10000, 11, text); }

    static std::string datagram(int opcode, int priority, const std::string& text)
    {
        return "<" + std::to_string(priority) + ">" + program_invocation_short_name + "[" +
               std::to_string(getpid()) + "]: (" + std::to_string(opcode) + ") " + text;
    }

    int m_logger = -1;
    KoTest::TemporaryDirectory m_directory;
    std::string m_path = m_directory.file("log");
    KoTest::ScopedEnvironment m_variable{"KO_PLATFORM_LOG", m_path.c_str()};
};

TEST_F(KoPlatformLogTest, SendsOneDatagramPerLine)
{
    startLogger();
    const std::string expected = datagram(-17, 8 + 6, "a 1 \xC3\xA4");
    errno = EDOM;
    EXPECT_EQ(KoPlatform::slogf(-17, 6, "%s %d \xC3\xA4", "a", 1), static_cast<int>(expected.size()));
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(next(), expected);
    EXPECT_EQ(log(std::string(5000, 'x').c_str()), 0);
    EXPECT_EQ(next(), line(std::string(1151, 'x')));
    EXPECT_EQ(next(), "");
}

TEST_F(KoPlatformLogTest, ToleratesALoggerThatIsMissingEndsAndComesBack)
{
    EXPECT_EQ(log("nobody"), ENOENT);
    for (const char* text : {"first", "second"})
    {
        startLogger();
        EXPECT_EQ(log(text), 0);
        EXPECT_EQ(next(), line(text));
        stopLogger();
        EXPECT_EQ(log("dead"), ENOENT);
    }
    startLogger();
    EXPECT_EQ(log("before a restart"), 0);
    startLogger();
    KoTest::inThreads(3, [](int) { EXPECT_EQ(log("x"), 0); });
    EXPECT_EQ(next() + next() + next() + next(), line("x") + line("x") + line("x"));
    stopLogger();
    ::unlink(m_path.c_str());
    EXPECT_EQ(log("gone"), ENOENT);
    const KoTest::ScopedEnvironment tooLong("KO_PLATFORM_LOG", std::string(200, '/').c_str());
    EXPECT_EQ(log("nowhere"), ENAMETOOLONG);
}

TEST_F(KoPlatformLogTest, CountsTheLinesThatAFullLoggerRefuses)
{
    startLogger();
    while (log("fill") == 0)
    {
    }
    EXPECT_EQ(log("refused"), EAGAIN);
    while (next() == line("fill"))
    {
    }
    EXPECT_EQ(log("heard") + log("quiet"), 0);
    for (const std::string& expected : {datagram(0, 11, "2 log lines lost"), line("heard"), line("quiet")})
    {
        EXPECT_EQ(next(), expected);
    }
}

TEST_F(KoPlatformLogTest, SurvivesThatTheProcessForksOrClosesItsDescriptors)
{
    startLogger();
    EXPECT_EQ(log("before"), 0);
    EXPECT_EQ(next(), line("before"));
    const KoTest::ChildResult result = KoTest::ChildProcess::run(
        [this]
        {
            KoPlatform::setLogSink(nullptr);
            ::setenv("KO_PLATFORM_LOG", m_path.c_str(), 1);
            for (int descriptor = 3; descriptor < 1024; ++descriptor)
            {
                ::close(descriptor);
            }
            return log("child");
        });
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    EXPECT_NE(next().find("[" + std::to_string(result.pid) + "]: (10000) child"), std::string::npos);
    EXPECT_EQ(log("after"), 0);
    EXPECT_EQ(next(), line("after"));
}

} // namespace
