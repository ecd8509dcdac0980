#include "pf/oswrapper/KoOperatingSystem.h"

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pf/containers/TKoVector.h"
#include "pf/oswrapper/KoSyslog.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SignalStorm.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

using KoOperatingSystem::joinProcess;
using KoOperatingSystem::spawnProcess;
using KoOperatingSystem::waitForProcesses;

/// Runs each test in a working directory of its own that holds the program "tool", which writes its arguments
/// into a file.
class Spawn : public testing::Test
{
protected:
    Spawn()
    {
        writeProgram("tool", "for word in \"$0\" \"$@\"; do printf '[%s]' \"$word\"; done > out\n");
        writeProgram("exit", "exit $1\n");
        writeProgram("die", "kill -$1 $$\n");
        m_former = get_current_dir_name();
        EXPECT_EQ(chdir(m_directory.path().c_str()), 0);
    }
    ~Spawn() override
    {
        EXPECT_EQ(chdir(m_former), 0);
        std::free(m_former);
    }

    void writeProgram(const char* name, const std::string& body) const
    {
        m_directory.write(name, "#!/bin/sh\n" + body);
        chmod(m_directory.file(name).c_str(), 0700);
    }

    std::string wordsOf(const char* arguments) const
    {
        EXPECT_EQ(joinProcess(spawnProcess("tool", arguments)), 0);
        return m_directory.read("out");
    }

    KoTest::TemporaryDirectory m_directory;

private:
    char* m_former;
};

TEST_F(Spawn, CutsArgumentsIntoWordsAtBlanks)
{
    // The program's own name is what the kernel starts the script with.
    const struct
    {
        const char* arguments;
        const char* words;
    } cases[] = {
        {nullptr, ""},
        {"", ""},
        {"one", "[one]"},
        {"  -a   -b ", "[-a][-b][]"},
        {"  -a   -b", "[-a][-b]"},
        {"   ", "[]"},
        {"tab\tand\nline 'quoted text'", "[tab\tand\nline]['quoted][text']"},
        {"1 2 3 4 5 6 7 8 9 10 11 12 13 14", "[1][2][3][4][5][6][7][8][9][10][11][12][13][14]"},
        {"1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16", "[1][2][3][4][5][6][7][8][9][10][11][12][13][14]"},
        {"1 2 3 4 5 6 7 8 9 10 11 12 13 14  ", "[1][2][3][4][5][6][7][8][9][10][11][12][13][14]"},
        {"1 2 3 4 5 6 7 8 9 10 11 12 13 ", "[1][2][3][4][5][6][7][8][9][10][11][12][13][]"},
    };
    for (const auto& test : cases)
    {
        EXPECT_EQ(wordsOf(test.arguments), "[./tool]" + std::string(test.words))
            << (test.arguments != nullptr ? test.arguments : "null");
    }
    const std::string longWord(100000, 'w');
    EXPECT_EQ(wordsOf(longWord.c_str()), "[./tool][" + longWord + "]");
}

TEST_F(Spawn, StartsOnlyWhatIsInTheWorkingDirectory)
{
    EXPECT_EQ(spawnProcess(nullptr, "x"), -1);
    for (const char* program : {"missing", "sh", "/bin/sh", ""})
    {
        EXPECT_EQ(spawnProcess(program, nullptr), -1) << program;
    }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD) << "no child is left";
}

/// On a thread with little stack: long arguments are reported, a long program name is not.
TEST_F(Spawn, RefusesTextsThatDoNotFitIntoTheStack)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 512U * 1024U);
    const auto body = [](void*) -> void*
    {
        const std::string text(1024U * 1024U, 'x');
        {
            const KoTest::AssertionCounter assertions(1);
            EXPECT_EQ(spawnProcess("tool", text.c_str()), -1);
        }
        const KoTest::AssertionCounter assertions(0);
        EXPECT_EQ(spawnProcess(text.c_str(), nullptr), -1);
        return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &attributes, body, nullptr), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST_F(Spawn, DecodesHowAChildEnded)
{
    const struct
    {
        const char* program;
        const char* argument;
        int result;
    } cases[] = {{"exit", "0", 0},    {"exit", "7", 7}, {"exit", "127", 127}, {"exit", "128", -128},
                 {"exit", "255", -1}, {"die", "9", 9},  {"die", "15", 15}};
    for (const auto& test : cases)
    {
        EXPECT_EQ(joinProcess(spawnProcess(test.program, test.argument)), test.result)
            << test.program << " " << test.argument;
    }
    EXPECT_EQ(joinProcess(-1), -1);
    EXPECT_EQ(joinProcess(getpid()), -1) << "no child";
    EXPECT_EQ(KoOperatingSystem::getLastError(), ECHILD);
}

TEST_F(Spawn, WaitsForChildrenThroughInterruptions)
{
    const KoTest::SignalStorm storm;
    writeProgram("slow", "sleep 0.2\nexit 3\n");
    EXPECT_EQ(joinProcess(spawnProcess("slow", nullptr)), 3);
    TKoVector<int> pids;
    pids.push_back(spawnProcess("slow", nullptr));
    EXPECT_EQ(waitForProcesses(pids), -1);
    EXPECT_TRUE(pids.empty());
    EXPECT_TRUE(storm.count() >= 20U || !KoTest::FaultInjection::isAvailable())
        << "held back by the sanitizer";
}

std::string endLine(int pid, int code)
{
    return "process " + std::to_string(pid) + " has terminated with exit code " + std::to_string(code);
}

TEST_F(Spawn, ReapsAndLogsEachChild)
{
    const KoTest::LogCapture log;
    TKoVector<int> pids;
    EXPECT_EQ(waitForProcesses(pids), 0);
    const int listed = spawnProcess("exit", "255");
    const int killed = spawnProcess("die", "9");
    const int stranger = spawnProcess("exit", "4");
    pids.push_back(listed);
    pids.push_back(killed);
    pids.push_back(killed);
    EXPECT_EQ(waitForProcesses(pids), -1) << "the second entry of the same child is never matched";
    EXPECT_TRUE(pids.empty()) << "no child is left";
    EXPECT_THAT(
        log.texts(KoSyslog::Info),
        testing::UnorderedElementsAre(endLine(listed, 255), endLine(killed, -1), endLine(stranger, 4)));
    EXPECT_EQ(log.size(), 3U);
}

} // namespace
