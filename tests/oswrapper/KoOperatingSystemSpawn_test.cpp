#include "pf/oswrapper/KoOperatingSystem.h"

#include <cerrno>
#include <string>

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
        {"  -a   -b ", "[-a][-b][]"},
        {"   ", "[]"},
        {"tab\tand\nline 'quoted text'", "[tab\tand\nline]['quoted][text']"},
        {"1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16", "[1][2][3][4][5][6][7][8][9][10][11][12][13][14]"},
        {"1 2 3 4 5 6 7 8 9 10 11 12 13 14  ", "[1][2][3][4][5][6][7][8][9][10][11][12][13][14]"},
    };
    for (const auto& test : cases)
    {
        EXPECT_EQ(wordsOf(test.arguments), "[./tool]" + std::string(test.words))
            << (test.arguments != nullptr ? test.arguments : "null");
    }
}

TEST_F(Spawn, RefusesProgramsThatAreNotThereAndTextsThatDoNotFitIntoTheStack)
{
    for (const char* program : {"missing", "sh", "/bin/sh", static_cast<const char*>(nullptr)})
    {
        EXPECT_EQ(spawnProcess(program, nullptr), -1) << "looked up in the working directory only";
    }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
    const std::string text(64U * 1024U * 1024U, 'x');
    {
        const KoTest::AssertionCounter assertions(1);
        EXPECT_EQ(spawnProcess("tool", text.c_str()), -1);
    }
    const KoTest::AssertionCounter assertions(0);
    EXPECT_EQ(spawnProcess(text.c_str(), nullptr), -1) << "not reported";
}

TEST_F(Spawn, DecodesHowAChildEnded)
{
    for (const int code : {0, 7, 127, 128, 255})
    {
        EXPECT_EQ(joinProcess(spawnProcess("exit", std::to_string(code).c_str())),
                  code < 128 ? code : code - 256);
    }
    EXPECT_EQ(joinProcess(spawnProcess("die", "9")), 9);
    EXPECT_EQ(joinProcess(spawnProcess("die", "15")), 15);
    EXPECT_EQ(joinProcess(-1), -1);
    EXPECT_TRUE(joinProcess(getpid()) == -1 && errno == ECHILD) << "no child";
}

std::string endLine(int pid, int code)
{
    return "process " + std::to_string(pid) + " has terminated with exit code " + std::to_string(code);
}

TEST_F(Spawn, ReapsAndLogsEachChildThroughInterruptions)
{
    const KoTest::SignalStorm storm;
    writeProgram("slow", "sleep 0.2\nexit $1\n");
    EXPECT_EQ(joinProcess(spawnProcess("slow", "3")), 3);
    const KoTest::LogCapture log;
    TKoVector<int> pids;
    EXPECT_EQ(waitForProcesses(pids), 0);
    const int listed = spawnProcess("slow", "255");
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
    EXPECT_TRUE(storm.count() >= 20U || !KoTest::FaultInjection::isAvailable())
        << "held back by the sanitizer";
}

} // namespace
