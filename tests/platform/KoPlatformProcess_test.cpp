#include "pf/platform/KoPlatformProcess.h"

#include <cerrno>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

TEST(PlatformProcess, ReadsItsArgumentsBeforeAnyConstructorAndWithoutTheHeap)
{
    const std::vector<std::vector<std::string>> lines = {
        {"one", "", "two words", ""},
        {std::string(100000, 'x'), "\xc3\xa9\n", std::string(70000, 'y'), "end"},
    };
    for (const std::vector<std::string>& arguments : lines)
    {
        KoTest::ChildProcess::Program program;
        program.path = KO_ARGUMENT_PROBE;
        program.arguments = arguments;
        const KoTest::ChildResult result = KoTest::ChildProcess::execute(program);
        std::string expected = std::to_string(arguments.size() + 1) + "\n";
        for (const std::string& argument : arguments)
        {
            expected += "[" + argument + "]\n";
        }
        expected += "allocations 0, errno kept 1, same later 1, null at the end 1\n";
        EXPECT_EQ(result.exitStatus, 0) << result.describe();
        EXPECT_EQ(result.standardOutput, expected);
    }
}

constexpr std::size_t USED = 80U * 1024U;

/// How much stack is left when that much of it is in use.
__attribute__((noinline)) std::size_t availableBelow()
{
    char room[USED];
    asm volatile("" : : "r"(room) : "memory");
    const std::size_t available = KoPlatform::stackAvailable();
    asm volatile("" : : "r"(room) : "memory");
    return available;
}

TEST(PlatformProcess, TellsTheFreeStackOfTheCallingThread)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    constexpr std::size_t SIZE = 2048U * 1024U;
    pthread_attr_setstacksize(&attributes, SIZE);
    const auto body = [](void*) -> void*
    {
        const std::size_t atTop = KoPlatform::stackAvailable();
        EXPECT_GT(atTop, SIZE / 2U);
        pthread_attr_t real;
        std::size_t realSize = 0;
        EXPECT_EQ(pthread_getattr_np(pthread_self(), &real) + pthread_attr_getstacksize(&real, &realSize), 0);
        pthread_attr_destroy(&real);
        EXPECT_LE(atTop, realSize);
        const std::size_t below = availableBelow();
        EXPECT_LE(below + USED, atTop);
        EXPECT_GT(below, 0U);
        return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &attributes, body, nullptr), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_GT(KoPlatform::stackAvailable(), 65536U) << "main thread";
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
    directory.write("garbage", std::string("\x7f"
                                           "ELF garbage",
                                           11));
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
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const KoTest::FailingCall noMemory(KoTest::FAULT_MAP, ENOMEM);
    EXPECT_EQ(KoPlatform::spawnvp(KoPlatform::SPAWN_NO_WAIT, "/bin/true", makeVector("/bin/true")), -1);
    EXPECT_EQ(errno, ENOMEM);
}

extern "C" void ignoreSignal(int /*signal*/)
{
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
    std::signal(SIGUSR1, ignoreSignal);
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
