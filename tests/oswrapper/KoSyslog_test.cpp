#include "pf/oswrapper/KoSyslog.h"

#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <string>
#include <unistd.h>

namespace
{

using KoTest::LogCapture;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

TEST(KoSyslog, HandsOpcodeSeverityAndAtMost1024CharactersToTheLogger)
{
    LogCapture log;
    void (*const logUnchecked)(int, KoSyslog::Severity, const char*, ...) = KoSyslog::logMsg;
    logUnchecked(0, KoSyslog::Critical, nullptr);
    KoSyslog::logMsg(0, KoSyslog::Critical, "x");
    KoSyslog::logMsg(5, 3, KoSyslog::Warning, "%d %s", 7, "y");
    KoSyslog::logMsg(1, KoSyslog::Debug2, "100%% %s", "%n%s");
    const std::string longest(1024 - KoTest::pidPrefix().size(), 'm');
    for (const std::string& text : {longest, longest + "n", longest + longest})
    {
        KoSyslog::logMsg(0, KoSyslog::Shutdown, "%s", text.c_str());
    }
    const struct
    {
        int opcode;
        int severity;
        std::string text;
    } expected[] = {{10000, 1, "x"},     {3145733, 3, "7 y"}, {10000 | (1 << 20), 7, "100% %n%s"},
                    {10000, 0, longest}, {10000, 0, longest}, {10000, 0, longest}};
    ASSERT_EQ(log.size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i)
    {
        const KoTest::LogLine line = log.lines()[i];
        EXPECT_EQ(line.opcode, expected[i].opcode);
        EXPECT_EQ(line.severity, expected[i].severity);
        EXPECT_EQ(line.text, KoTest::pidPrefix() + expected[i].text);
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
