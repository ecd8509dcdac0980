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
    const std::string expected[] = {"1 (10000) x",          "3 (3145733) 7 y",      "7 (1058576) 100% %n%s",
                                    "0 (10000) " + longest, "0 (10000) " + longest, "0 (10000) " + longest};
    ASSERT_EQ(log.size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i)
    {
        std::string withPrefix = expected[i];
        EXPECT_EQ(log.lines()[i].describe(),
                  withPrefix.insert(withPrefix.find(')') + 2, KoTest::pidPrefix()));
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
