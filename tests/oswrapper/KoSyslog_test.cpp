#include "pf/oswrapper/KoSyslog.h"

#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <unistd.h>

namespace
{

using KoTest::LogCapture;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

TEST(KoSyslog, HandsOpcodeSeverityAndPrefixedTextToTheLogger)
{
    LogCapture log;
    void (*const logUnchecked)(int, KoSyslog::Severity, const char*, ...) = KoSyslog::logMsg;
    logUnchecked(0, KoSyslog::Critical, nullptr);
    KoSyslog::logMsg(0, KoSyslog::Critical, "x");
    KoSyslog::logMsg(5, 3, KoSyslog::Warning, "%d %s", 7, "y");
    KoSyslog::logMsg(1, KoSyslog::Debug2, "100%% %s", "%n%s");
    const struct
    {
        int opcode;
        int severity;
        const char* text;
    } expected[] = {{10000, 1, "x"}, {3145733, 3, "7 y"}, {10000 | (1 << 20), 7, "100% %n%s"}};
    ASSERT_EQ(log.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i)
    {
        const KoTest::LogLine line = log.lines()[i];
        EXPECT_EQ(line.opcode, expected[i].opcode);
        EXPECT_EQ(line.severity, expected[i].severity);
        EXPECT_EQ(line.text, "pid " + std::to_string(getpid()) + ": " + expected[i].text);
    }
}

TEST(KoSyslog, CutsALineAt1024CharactersWithThePrefix)
{
    const std::size_t room = 1024 - KoTest::pidPrefix().size();
    for (const std::size_t length : {room - 1, room, room + 1, std::size_t{2000}})
    {
        LogCapture log;
        const std::string text(length, 'm');
        KoSyslog::logMsg(0, KoSyslog::Info, "%s", text.c_str());
        ASSERT_EQ(log.size(), 1U);
        EXPECT_EQ(log.lines()[0].text, KoTest::pidPrefix() + text.substr(0, room)) << length;
    }
}

TEST(KoSyslog, TellsOnStandardErrorThatTheLoggerFailedUnlessThereIsNone)
{
    LogCapture log;
    const std::string start = "pid: " + std::to_string(getpid()) + ": cannot write to syslog: ";
    for (const int error : {0, ENOENT, EAGAIN, EACCES})
    {
        log.failWith(error);
        CaptureStderr();
        errno = EDOM;
        KoSyslog::logMsg(0, KoSyslog::Error, "lost");
        EXPECT_EQ(errno, EDOM) << "a log line must not disturb the caller's error number";
        const bool isSilent = error == 0 || error == ENOENT;
        EXPECT_EQ(GetCapturedStderr(), isSilent ? "" : start + std::strerror(error) + "\n");
    }
}

} // namespace
