#include "pf/platform/KoPlatformLog.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace
{

/// A system logger: receives what is sent to its socket while it lives.
class Logger
{
public:
    explicit Logger(const std::string& path)
        : m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        ::unlink(path.c_str());
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path.c_str());
        EXPECT_EQ(::bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    }
    ~Logger() { ::close(m_socket); }
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// The next datagram, empty when there is none.
    std::string next()
    {
        char text[2048];
        const ssize_t length = ::recv(m_socket, text, sizeof(text), MSG_DONTWAIT);
        return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : std::string();
    }

private:
    int m_socket;
};

class KoPlatformLogTest : public testing::Test
{
protected:
    KoPlatformLogTest() { KoPlatform::setLogSink(nullptr); }

    std::unique_ptr<Logger> startLogger() { return std::make_unique<Logger>(m_path); }

    /// Logs and gives 0 or the error number.
    static int log(const char* text)
    {
        errno = 0;
        return KoPlatform::slogf(10000, 3, "%s", text) >= 0 ? 0 : errno;
    }

    static std::string datagram(int opcode, int priority, const std::string& text)
    {
        return "<" + std::to_string(priority) + ">" + program_invocation_short_name + "[" +
               std::to_string(getpid()) + "]: (" + std::to_string(opcode) + ") " + text;
    }

    KoTest::TemporaryDirectory m_directory;
    std::string m_path = m_directory.file("log");
    KoTest::ScopedEnvironment m_variable{"KO_PLATFORM_LOG", m_path.c_str()};
};

TEST_F(KoPlatformLogTest, SendsOneDatagramPerLine)
{
    const auto logger = startLogger();
    const std::string expected = datagram(-17, 8 + 6, "a 1 \xC3\xA4");
    errno = EDOM;
    EXPECT_EQ(KoPlatform::slogf(-17, 6, "%s %d \xC3\xA4", "a", 1), static_cast<int>(expected.size()));
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(logger->next(), expected);
    EXPECT_EQ(log(std::string(5000, 'x').c_str()), 0);
    EXPECT_EQ(logger->next(), datagram(10000, 11, std::string(1151, 'x')));
    EXPECT_EQ(logger->next(), "");
}

TEST_F(KoPlatformLogTest, ToleratesALoggerThatIsMissingEndsAndComesBack)
{
    EXPECT_EQ(log("nobody"), ENOENT);
    auto logger = startLogger();
    EXPECT_EQ(log("first"), 0);
    EXPECT_EQ(logger->next(), datagram(10000, 11, "first"));
    logger.reset();
    EXPECT_EQ(log("dead"), ENOENT);
    logger = startLogger();
    EXPECT_EQ(log("second"), 0);
    EXPECT_EQ(logger->next(), datagram(10000, 11, "second"));
    logger = startLogger();
    EXPECT_EQ(log("third"), 0) << "restarted between two lines";
    EXPECT_EQ(logger->next(), datagram(10000, 11, "third"));
    logger.reset();
    ::unlink(m_path.c_str());
    EXPECT_EQ(log("gone"), ENOENT);
    const KoTest::ScopedEnvironment tooLong("KO_PLATFORM_LOG", std::string(200, '/').c_str());
    EXPECT_EQ(log("nowhere"), ENAMETOOLONG);
}

TEST_F(KoPlatformLogTest, CountsTheLinesThatAFullLoggerRefuses)
{
    const auto logger = startLogger();
    unsigned int taken = 0;
    while (log("fill") == 0)
    {
        ++taken;
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(log("refused"), EAGAIN);
    for (unsigned int i = 0; i < taken; ++i)
    {
        EXPECT_EQ(logger->next(), datagram(10000, 11, "fill"));
    }
    EXPECT_EQ(log("heard"), 0);
    EXPECT_EQ(logger->next(), datagram(0, 11, "2 log lines lost"));
    EXPECT_EQ(logger->next(), datagram(10000, 11, "heard"));
    EXPECT_EQ(log("quiet"), 0);
    EXPECT_EQ(logger->next(), datagram(10000, 11, "quiet"));
}

TEST_F(KoPlatformLogTest, SurvivesThatTheProcessForksOrClosesItsDescriptors)
{
    const auto logger = startLogger();
    EXPECT_EQ(log("before"), 0);
    EXPECT_EQ(logger->next(), datagram(10000, 11, "before"));
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
    EXPECT_NE(logger->next().find("[" + std::to_string(result.pid) + "]: (10000) child"), std::string::npos);
    EXPECT_EQ(log("after"), 0);
    EXPECT_EQ(logger->next(), datagram(10000, 11, "after"));
}

TEST_F(KoPlatformLogTest, ServesThreadsThatFindItsConnectionBrokenAtOnce)
{
    auto logger = startLogger();
    EXPECT_EQ(log("connected"), 0);
    logger.reset();
    logger = startLogger();
    const auto logTwice = [] { EXPECT_EQ(log("x") + log("x"), 0); };
    std::thread threads[] = {std::thread(logTwice), std::thread(logTwice), std::thread(logTwice)};
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    for (int i = 0; i < 6; ++i)
    {
        EXPECT_EQ(logger->next(), datagram(10000, 11, "x"));
    }
}

} // namespace
