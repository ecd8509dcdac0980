#include "pf/oswrapper/KoStartupOptions.h"

#include "tests/support/ChildProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <unistd.h>

namespace
{

using KoTest::ChildProcess;

std::string ownExecutable()
{
    char path[1024];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof(path));
    return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

/// What the freshly executed program of the next test says.
TEST(KoStartupOptionsProbe, PrintsTheOptions)
{
    std::printf("<%d %u>\n", KoStartupOptions::isBreakEnabled() ? 1 : 0,
                KoStartupOptions::getMemoryTraceLevel());
}

TEST(KoStartupOptions, ComeFromTheArgumentsOfTheProcess)
{
    const struct
    {
        std::vector<std::string> arguments;
        const char* expected;
    } cases[] = {
        {{}, "<1 0>"},
        {{"--memtrace=1"}, "<1 1>"},
        {{"--nobreak", "--memtrace= 1x"}, "<0 1>"},
        {{"--memtrace=1", "--memtrace=0"}, "<1 0>"},
        {{"--memtrace=1", "--memtrace=2", "--memtrace=-1", "--memtrace=", "--memtrace=x"}, "<1 1>"},
        {{"--nobreaks", "-nobreak", "memtrace=1", "--memtrace"}, "<1 0>"},
    };
    for (const auto& wanted : cases)
    {
        ChildProcess::Program program;
        program.path = ownExecutable();
        program.arguments = {"--gtest_filter=KoStartupOptionsProbe.*"};
        program.arguments.insert(program.arguments.end(), wanted.arguments.begin(), wanted.arguments.end());
        const KoTest::ChildResult result = ChildProcess::execute(program);
        EXPECT_EQ(result.exitStatus, 0) << result.describe();
        EXPECT_THAT(result.standardOutput, testing::HasSubstr(wanted.expected))
            << testing::PrintToString(wanted.arguments);
    }
}

} // namespace
