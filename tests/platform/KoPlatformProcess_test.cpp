#include "pf/platform/KoPlatformProcess.h"

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

TEST(PlatformProcess, ReadsArgumentsOfAnyLength)
{
    using KoPlatform::argumentVector;
    const std::string filter = "--gtest_filter=PlatformProcess.ReadsArgumentsOfAnyLength";
    const std::vector<std::string> arguments = {filter,       std::string(100000, 'x'), "",
                                                "\xc3\xa9\n", std::string(70000, 'y'),  ""};
    if (KoPlatform::argumentCount() < 7)
    {
        KoTest::ChildProcess::Program program;
        program.path = argumentVector()[0];
        program.arguments = arguments;
        EXPECT_EQ(KoTest::ChildProcess::execute(program).exitStatus, 0);
        return;
    }
    EXPECT_EQ(std::vector<std::string>(argumentVector() + 1, argumentVector() + 7), arguments);
    EXPECT_EQ(argumentVector()[7], nullptr);
}

char** makeVector(const std::string& program)
{
    static char* sVector[2];
    sVector[0] = const_cast<char*>(program.c_str());
    sVector[1] = nullptr;
    return sVector;
}

TEST(PlatformProcess, TellsWhyAProgramCannotBeStartedAndLeavesNoChild)
{
    const KoTest::TemporaryDirectory directory;
    directory.write("text", "no program");
    directory.write("garbage", "no format");
    chmod(directory.file("garbage").c_str(), 0700);
    const struct
    {
        const char* name;
        int error;
    } cases[] = {{"missing", ENOENT}, {"text", EACCES}, {"garbage", ENOEXEC}, {"text/below", ENOTDIR}};
    for (const auto& test : cases)
    {
        const std::string path = directory.file(test.name);
        errno = 0;
        EXPECT_EQ(KoPlatform::spawnvp(KoPlatform::SPAWN_NO_WAIT, path.c_str(), makeVector(path)), -1) << path;
        EXPECT_EQ(errno, test.error) << path;
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << path;
        EXPECT_EQ(errno, ECHILD) << path;
    }
    EXPECT_EQ(KoPlatform::spawnvp(KoPlatform::SPAWN_WAIT, "/bin/true", makeVector("/bin/true")), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(PlatformProcess, StartsAProgramWithTheCallersMaskAndWithoutItsHandlers)
{
    const KoTest::TemporaryDirectory directory;
    // The shell ends itself by a signal that this process handles: with the handler gone it dies of it.
    directory.write("program", "#!/bin/sh\n"
                               "while read key value; do\n"
                               "  [ \"$key\" = SigBlk: ] && echo $value > \"$0.out\"\n"
                               "done < /proc/$$/status\n"
                               "kill -USR1 $$\n"
                               "exit 5\n");
    chmod(directory.file("program").c_str(), 0700);
    std::signal(SIGUSR1, [](int) {});
    sigset_t blocked;
    sigset_t former;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGWINCH);
    ASSERT_EQ(KoPlatform::SignalProcmask(0, 0, SIG_SETMASK, &blocked, &former), 0);
    const std::string path = directory.file("program");
    const int pid = KoPlatform::spawnvp(KoPlatform::SPAWN_NO_WAIT, path.c_str(), makeVector(path));
    ASSERT_EQ(KoPlatform::SignalProcmask_r(0, 0, SIG_SETMASK, &former, &blocked), 0);
    ASSERT_GT(pid, 0);
    EXPECT_EQ(sigismember(&blocked, SIGWINCH), 1) << "the caller's own mask is back";
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, SIGUSR1);
    EXPECT_EQ(directory.read("program.out"), "0000000008000000\n");
    std::signal(SIGUSR1, SIG_DFL);
}

} // namespace
