#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

KoTest::ChildResult runProbe(const char* path, const std::vector<std::string>& arguments,
                             const std::string& backtraceDirectory = "/nonexistent")
{
    KoTest::ChildProcess::Program program{path, arguments, {}, {}};
    program.environment = {{"KO_ASSERTION_BACKTRACE_DIR", backtraceDirectory.c_str()}};
    return KoTest::ChildProcess::execute(program);
}

TEST(LibraryLoad, servesUsesThatComeBeforeItsConstructors)
{
    struct Case
    {
        std::vector<std::string> arguments;
        int level;
        int isBreakEnabled;
    };
    const Case cases[] = {
        {{}, 0, 1},
        {{"--memtrace=1"}, 1, 1},
        {{"--nobreak", "--memtrace= 1x"}, 1, 0},
        {{"--memtrace=1", "--nobreak", "--memtrace=0"}, 0, 0},
        {{"--memtrace=1", "--memtrace=2", "--memtrace=-1", "--memtrace=", "--memtrace=x"}, 1, 1},
        {{"--memtrace=4294967297", "--memtrace=-18446744073709551615", "--nobreaks", "-nobreak", "memtrace=1",
          "--memtrace"},
         0,
         1}};
    for (const Case& entry : cases)
    {
        const std::string level = std::to_string(entry.level);
        const std::string isBreakEnabled = std::to_string(entry.isBreakEnabled);
        // A sanitizer that interposes the C library brings its own operators, which count nothing.
        const bool isCounted = entry.level == 1 && KoTest::FaultInjection::isAvailable();
        const std::string bytes = isCounted ? "160" : "0";

        const KoTest::ChildResult result = runProbe(KO_LOAD_PROBE, entry.arguments);

        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.standardOutput, "early: level " + level + ", break " + isBreakEnabled + ", bytes " +
                                             bytes +
                                             ", aligned 1, text early, empty 1\n"
                                             "static: null string 1, null stream read 0\n"
                                             "main: level " +
                                             level + ", break " + isBreakEnabled + ", released " + bytes +
                                             ", same bias 1, threads added 0\n")
            << result.describe();
        EXPECT_EQ(result.standardError, "");
        EXPECT_TRUE(result.log.empty()) << result.describe();
    }
}

TEST(LibraryLoad, reportsInFullBeforeItsConstructorsAndAfterItsDestructors)
{
    const KoTest::TemporaryDirectory directory;
    const KoTest::ChildResult result = runProbe(KO_LOAD_PROBE, {"report"}, directory.path());

    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    const std::vector<std::string> messages = {"before the constructors", "between them",
                                               "after the destructors"};
    const std::string backtraces = directory.read("PID" + std::to_string(result.pid) + ".ass");
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < messages.size(); ++i)
    {
        const std::string number = std::to_string(i + 1);
        lines.push_back("load_probe:" + number + ": ASSERTION \"" + messages[i] + "\" failed");
        lines.push_back("ASSERTION \"" + messages[i] + "\" failed in load_probe " + number);
        EXPECT_THAT(backtraces, testing::HasSubstr("\n[QNX backtrace] INFO - " + lines.back() + "\n"));
    }
    EXPECT_THAT(result.logTexts(), testing::ElementsAreArray(lines));
}

TEST(LibraryLoad, takesTheMonotonicBiasInItsTurn)
{
    const KoTest::ChildResult result = runProbe(KO_LOAD_ORDER_PROBE, {});
    EXPECT_EQ(result.standardOutput, "bias taken after the memory trace record, in its turn: 1\n")
        << result.describe();
}

} // namespace
