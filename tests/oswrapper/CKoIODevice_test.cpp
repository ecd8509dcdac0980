#include "pf/oswrapper/CKoIODevice.h"

#include <atomic>
#include <climits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "pf/oswrapper/CKoSimuIODeviceServer.h"
#include "pf/oswrapper/KoIODeviceServerRegistry.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Deadline.h"
#include "tests/support/SignalStorm.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/Threads.h"

namespace
{

namespace Registry = KoIODeviceServerRegistry;
using KoTest::Stopwatch;
using KoTest::waitUntil;
using testing::ElementsAre;

constexpr auto READ_WRITE = CKoIODevice::READ_WRITE_CLOEXEC;

/// A server that notes what it is asked and answers as it is told.
template <class Base>
class Noting : public Base
{
public:
    using Base::Base;

    int onGetLastError() override { return note("error", answer ? 0 : 3); }
    bool onOpen(const char* path, CKoIODevice::AccessMode mode) override
    {
        return note("open " + std::string(path) + " " + std::to_string(mode), answer);
    }
    bool onDup() override { return note("dup", answer && Base::onDup()); }
    bool onIsOpened() override { return note("opened", answer); }
    bool onClose() override { return note("close", answer); }
    int onRead(void* buffer, int size, int timeoutMs) override
    {
        static_cast<char*>(buffer)[0] = 'r';
        return note("read " + std::to_string(size) + " " + std::to_string(timeoutMs), answer ? 1 : -7);
    }
    int onWrite(const void* buffer, int size, int timeoutMs) override
    {
        const std::string text(static_cast<const char*>(buffer), static_cast<std::size_t>(size));
        return note("write " + text + " " + std::to_string(timeoutMs), answer ? size : -7);
    }
    bool onDevctl(int command, void* data, int size, int* info, int timeoutMs) override
    {
        *static_cast<int*>(data) = *info = command + 1;
        return note("devctl " + std::to_string(size) + " " + std::to_string(timeoutMs), answer);
    }

    std::vector<std::string> calls;
    bool answer = true;

private:
    template <class Result>
    Result note(const std::string& call, Result result)
    {
        calls.push_back(call);
        return result;
    }
};

class Server : public Noting<IKoIODeviceServer>
{
public:
    explicit Server(const char* name, eUsage usage = eUsageRegistered)
        : Noting<IKoIODeviceServer>(usage, name)
    {
    }
};

/// A pipe with a name: what is written to a device on it can be read from it.
class NamedPipe
{
public:
    NamedPipe() { EXPECT_EQ(mkfifo(path.c_str(), 0600), 0); }

private:
    KoTest::TemporaryDirectory m_directory;

public:
    const std::string path = m_directory.file("pipe");
};

bool isFailed(const CKoIODevice& device)
{
    return device.getLastError() == CKoIODevice::FAILED;
}

TEST(CKoIODevice, OpensFilesInTheirModes)
{
    const struct
    {
        CKoIODevice::AccessMode mode;
        int read;
        int written;
        int descriptorFlags;
    } cases[] = {
        {CKoIODevice::READ_ONLY, 4, -1, 0},
        {CKoIODevice::READ_ONLY_CLOEXEC, 4, -1, FD_CLOEXEC},
        {CKoIODevice::WRITE_ONLY_CLOEXEC, -1, 1, FD_CLOEXEC},
        {CKoIODevice::READ_WRITE_CLOEXEC, 4, 1, FD_CLOEXEC},
    };
    const KoTest::TemporaryDirectory directory;
    directory.write("file", "text");
    for (const auto& each : cases)
    {
        const int next = dup(0);
        close(next);
        CKoIODevice device;
        ASSERT_TRUE(device.open(directory.path().c_str(), "file", each.mode));
        EXPECT_EQ(fcntl(next, F_GETFD), each.descriptorFlags);
        char buffer[8];
        for (const int timeoutMs : {-1, 0, 100})
        {
            directory.write("file", "text");
            lseek(next, 0, SEEK_SET);
            EXPECT_EQ(device.read(buffer, sizeof(buffer), timeoutMs), each.read);
            EXPECT_EQ(isFailed(device), each.read < 0);
            EXPECT_EQ(device.write("t", 1, timeoutMs), each.written);
            EXPECT_EQ(isFailed(device), each.written < 0);
        }
        EXPECT_FALSE(device.open("/dev/null", each.mode)) << "is open";
        EXPECT_TRUE(isFailed(device) && device.isOpened());
        EXPECT_TRUE(device.close());
        EXPECT_TRUE(!isFailed(device) && !device.isOpened());
        EXPECT_EQ(fcntl(next, F_GETFD), -1);
    }
    CKoIODevice device;
    EXPECT_TRUE(device.open("/dev/null", READ_WRITE));
    EXPECT_EQ(device.write("12345", 5, -1), 5);
    EXPECT_EQ(device.getLastError(), 0);
    EXPECT_TRUE(device.close());
    EXPECT_FALSE(device.open("/dev/null", static_cast<CKoIODevice::AccessMode>(4)));
    EXPECT_TRUE(isFailed(device) && errno == EINVAL);
    EXPECT_FALSE(device.open("/nowhere", READ_WRITE));
    EXPECT_TRUE(isFailed(device) && errno == ENOENT);
}

TEST(CKoIODevice, FailsWithoutADescriptorWhateverTheTimeout)
{
    CKoIODevice device;
    EXPECT_TRUE(!device.isOpened() && device.getLastError() == 0);
    int data = 0;
    for (const int timeoutMs : {-1, 0, 10})
    {
        EXPECT_TRUE(device.read(&data, 4, timeoutMs) == -1 && isFailed(device) && errno == EBADF);
        EXPECT_TRUE(device.write(&data, 4, timeoutMs) == -1 && isFailed(device) && errno == EBADF);
        EXPECT_FALSE(device.devctl(FIONREAD, &data, 4, nullptr, timeoutMs));
        EXPECT_TRUE(isFailed(device) && errno == EBADF);
    }
    EXPECT_TRUE(!device.close() && isFailed(device));
    const CKoIODevice copy(device);
    EXPECT_TRUE(!copy.isOpened() && isFailed(copy));
    CKoIODevice nullPath;
    const auto check = [&] { EXPECT_TRUE(isFailed(nullPath) && !nullPath.isOpened()); };
    KoTest::expectReports({{"CKoIODeviceQNX 111: ???", [&] { nullPath.open(nullptr, READ_WRITE); }},
                           {"CKoIODeviceQNX 111: ???", [&] { nullPath.open("/dev", nullptr, READ_WRITE); }}},
                          check);
}

TEST(CKoIODevice, JoinsPathsThroughTheHook)
{
    const Server server("/mnt/x/b");
    CKoIODevice device;
    CKoIODevice::spDeviceIO2MountPointFunc = [](const char* name) { return *name == 'x' ? "/mnt/x" : name; };
    EXPECT_TRUE(device.open("x", "b", READ_WRITE));
    EXPECT_FALSE(device.open("y", "b", READ_WRITE));
    CKoIODevice::spDeviceIO2MountPointFunc = CKoIODevice::getMountPointNullImpl;
    EXPECT_TRUE(device.open("/mnt/x", "b", READ_WRITE));

    const std::string longest(1023 - 2, 'n');
    const Server longName(("a/" + longest).c_str());
    EXPECT_TRUE(device.open("a", longest.c_str(), READ_WRITE));
    CKoIODevice unchanged;
    const std::string tooLong = longest + "n"; // takes memory, which changes errno
    errno = 77;
    EXPECT_FALSE(unchanged.open("a", tooLong.c_str(), READ_WRITE));
    EXPECT_TRUE(unchanged.getLastError() == 0 && errno == 77);
}

TEST(CKoIODevice, TellsRunningOutOfTimeFromSuccessAndFailure)
{
    const NamedPipe pipe;
    CKoIODevice device;
    ASSERT_TRUE(device.open(pipe.path.c_str(), READ_WRITE));
    const KoTest::SignalStorm storm;
    char buffer[8];
    for (const int timeoutMs : {0, 40})
    {
        const Stopwatch watch;
        EXPECT_EQ(device.read(buffer, sizeof(buffer), timeoutMs), 0);
        EXPECT_TRUE(device.getLastError() == CKoIODevice::TIMED_OUT && errno == ETIMEDOUT);
        EXPECT_TRUE(watch.isWithin(static_cast<unsigned int>(timeoutMs), 5000));
    }
    const std::string large(1U << 20U, 'x');
    const Stopwatch watch;
    const int written = device.write(large.data(), 1 << 20, 40);
    EXPECT_TRUE(written > 0 && written < 1 << 20);
    EXPECT_TRUE(device.getLastError() == 0 && errno == 0);
    EXPECT_EQ(device.write(large.data(), 1 << 20, 0), 0);
    EXPECT_EQ(device.getLastError(), CKoIODevice::TIMED_OUT);
    EXPECT_TRUE(watch.isWithin(40, 5000));
    int waiting = 0;
    EXPECT_TRUE(device.devctl(FIONREAD, &waiting, sizeof(waiting), nullptr, 10));
    EXPECT_TRUE(waiting == written && device.getLastError() == 0 && errno == 0);
    EXPECT_FALSE(device.devctl(TIOCGWINSZ, buffer, sizeof(buffer), nullptr, -1));
    EXPECT_TRUE(isFailed(device) && errno == ENOTTY);
    EXPECT_EQ(device.read(buffer, sizeof(buffer), 0), 8);
    EXPECT_TRUE(device.getLastError() == 0 && errno == 0);
}

TEST(CKoIODevice, WaitsWithoutLimitThroughInterruptions)
{
    const NamedPipe pipe;
    CKoIODevice device;
    ASSERT_TRUE(device.open(pipe.path.c_str(), READ_WRITE));
    CKoIODevice copy(device);
    const KoTest::SignalStorm storm;
    std::thread writer(
        [&]
        {
            EXPECT_TRUE(waitUntil([&] { return storm.count() > 20; }));
            EXPECT_EQ(copy.write("abc", 3, 20000), 3);
        });
    char buffer[8];
    EXPECT_EQ(device.read(buffer, sizeof(buffer), -1), 3);
    EXPECT_EQ(device.getLastError(), 0);
    writer.join();
}

TEST(CKoIODevice, CopiesShareTheFileAndEachClosesItsOwn)
{
    const auto body = []
    {
        CKoIODevice device;
        EXPECT_TRUE(device.open("/proc/version", CKoIODevice::READ_ONLY_CLOEXEC));
        char first[4];
        char second[4];
        {
            CKoIODevice copy(device);
            EXPECT_TRUE(copy.isOpened() && copy.getLastError() == 0);
            EXPECT_EQ(copy.read(first, 4, -1), 4);
        }
        EXPECT_EQ(device.read(second, 4, -1), 4);
        EXPECT_EQ(std::string(first, 4) + std::string(second, 4), "Linux ve");
        rlimit limit{};
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
        limit.rlim_cur = 1;
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        const CKoIODevice refused(device);
        EXPECT_TRUE(!refused.isOpened() && isFailed(refused) && errno == EMFILE);
        CKoIODevice other;
        EXPECT_FALSE(other.open("/dev/null", READ_WRITE));
        EXPECT_TRUE(isFailed(other) && errno == EMFILE);
        return 0;
    };
    const KoTest::ChildResult result = KoTest::ChildProcess::run(body);
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
}

TEST(CKoIODevice, PassesEverythingToItsServer)
{
    Server server("/dev/x");
    CKoIODevice device;
    char buffer[4] = {};
    int data = 0;
    int info = 0;
    for (const bool answer : {true, false})
    {
        server.answer = answer;
        server.calls.clear();
        const auto open = [&] { return device.open("/dev/x", CKoIODevice::WRITE_ONLY_CLOEXEC); };
        EXPECT_EQ(open(), answer);
        EXPECT_EQ(device.isOpened(), answer);
        EXPECT_EQ(device.read(buffer, 4, 5), answer ? 1 : -7);
        EXPECT_EQ(device.write("abc", 3, -1), answer ? 3 : -7);
        EXPECT_EQ(device.devctl(41, &data, 4, &info, 0), answer);
        EXPECT_EQ(errno, answer ? 0 : -1);
        EXPECT_TRUE(buffer[0] == 'r' && data == 42 && info == 42);
        EXPECT_EQ(device.getLastError(), answer ? 0 : 3);
        EXPECT_EQ(device.close(), answer);
        EXPECT_EQ(open(), answer) << "a closed device is still bound, and one that is bound may be opened";
        EXPECT_THAT(server.calls, ElementsAre("open /dev/x 2", "opened", "read 4 5", "write abc -1",
                                              "devctl 4 0", "error", "close", "open /dev/x 2"));
    }
    server.answer = true;
    CKoIODevice copy(device);
    EXPECT_EQ(server.calls.back(), "dup");
    EXPECT_EQ(copy.write("abc", 3, 0), 3) << "bound although the server has refused";
}

TEST(CKoIODevice, IsBoundToTheNewestServerOfExactlyItsPath)
{
    const KoTest::TemporaryDirectory directory;
    directory.write("file", "text");
    const std::string path = directory.file("file");
    Server simulated(path.c_str(), IKoIODeviceServer::eUsageSimulation);
    const Noting<CKoSimuIODeviceServer> alsoSimulated(path.c_str());
    CKoIODevice real;
    EXPECT_TRUE(real.open(path.c_str(), CKoIODevice::READ_ONLY));
    Server older(path.c_str());
    auto newer = std::make_unique<Server>(path.c_str());
    const Server longer((path + "x").c_str());
    CKoIODevice device;
    EXPECT_TRUE(device.open(path.c_str(), CKoIODevice::READ_ONLY));
    EXPECT_THAT(newer->calls, ElementsAre("open " + path + " 0"));
    char buffer[8];
    EXPECT_EQ(real.read(buffer, 8, -1), 4) << "who has the file keeps it";

    newer.reset();
    int handle = 0;
    EXPECT_TRUE(Registry::onOpen(handle, path.c_str(), READ_WRITE));
    const Server newest(path.c_str());
    int newHandle = 0;
    EXPECT_TRUE(Registry::onOpen(newHandle, path.c_str(), READ_WRITE));
    EXPECT_EQ(newHandle, handle + 3) << "keys are not used again";
    EXPECT_EQ(older.calls.size(), 1U);
    EXPECT_TRUE(simulated.calls.empty() && alsoSimulated.calls.empty());
}

TEST(CKoIODevice, FindsItselfUnopenedWhenItsServerHasGone)
{
    const std::function<void(CKoIODevice&)> firstCalls[] = {
        [](CKoIODevice& device) { EXPECT_EQ(device.getLastError(), CKoIODevice::FAILED); },
        [](CKoIODevice& device) { EXPECT_FALSE(device.isOpened()); },
        [](CKoIODevice& device) { EXPECT_TRUE(!device.close() && isFailed(device)); },
        [](CKoIODevice& device)
        {
            char byte = '\0';
            EXPECT_TRUE(device.read(&byte, 1, 10) == -1 && isFailed(device) && errno == EBADF);
        },
        [](CKoIODevice& device) { EXPECT_TRUE(device.write("x", 1, -1) == -1 && isFailed(device)); },
        [](CKoIODevice& device)
        {
            int data = 0;
            EXPECT_TRUE(!device.devctl(FIONREAD, &data, 4, nullptr, -1) && isFailed(device));
        },
        [](CKoIODevice& device) { EXPECT_TRUE(isFailed(CKoIODevice(device))); },
    };
    for (const bool isLast : {true, false})
    {
        const Server other("/dev/other", isLast ? IKoIODeviceServer::eUsageSimulation
                                                : IKoIODeviceServer::eUsageRegistered);
        for (const auto& call : firstCalls)
        {
            auto server = std::make_unique<Server>("/dev/x");
            CKoIODevice device;
            ASSERT_TRUE(device.open("/dev/x", READ_WRITE));
            server.reset();
            call(device);
            EXPECT_TRUE(device.open("/dev/null", READ_WRITE) && device.isOpened());
        }
    }
    for (const int nobody : {-1, -2, INT_MAX})
    {
        int handle = nobody;
        EXPECT_EQ(Registry::onGetLastError(handle), CKoIODevice::FAILED);
        EXPECT_EQ(handle, nobody == -2 ? -2 : -1);
        EXPECT_EQ(Registry::onRead(handle = nobody, nullptr, 0, 0), -1);
        EXPECT_EQ(Registry::onWrite(handle = nobody, nullptr, 0, 0), -1);
        EXPECT_FALSE(Registry::onDup(handle = nobody) || Registry::onIsOpened(handle = nobody) ||
                     Registry::onClose(handle = nobody) ||
                     Registry::onDevctl(handle = nobody, 0, nullptr, 0, nullptr, 0));
    }
}

/// Servers of which no two may be in an operation at the same time.
class Alone : public Noting<IKoIODeviceServer>
{
public:
    explicit Alone(const char* name)
        : Noting<IKoIODeviceServer>(eUsageSimulation, name)
    {
        Registry::registerServer(eUsageRegistered, name, *this);
    }
    ~Alone() override { Registry::unRegisterServer(*this); }

    bool onOpen(const char*, CKoIODevice::AccessMode) override
    {
        EXPECT_EQ(++sInside, 1);
        sched_yield();
        --sInside;
        return true;
    }
    int onRead(void* buffer, int, int) override { return onOpen(nullptr, READ_WRITE) && buffer != nullptr; }

private:
    static inline std::atomic<int> sInside{0};
};

TEST(CKoIODevice, LetsOneServerWorkAtATimeWhileOthersComeAndGo)
{
    const int rounds = 300 / static_cast<int>(KoTest::slowness());
    KoTest::inThreads(4,
                      [=](int index)
                      {
                          const char* const own = index % 2 == 0 ? "/dev/even" : "/dev/odd";
                          const char* const others = index % 2 == 0 ? "/dev/odd" : "/dev/even";
                          for (int i = 0; i < rounds; ++i)
                          {
                              const Alone server(own);
                              CKoIODevice device;
                              EXPECT_TRUE(device.open(own, READ_WRITE));
                              CKoIODevice stranger;
                              stranger.open(others, READ_WRITE);
                              char byte = '\0';
                              stranger.read(&byte, 1, -1);
                          }
                      });
    CKoIODevice device;
    EXPECT_FALSE(device.open("/dev/even", READ_WRITE)) << "all have gone";
}

/// A server that does in its operations what it must not.
class Careless : public Server
{
public:
    using Server::Server;

    bool onOpen(const char*, CKoIODevice::AccessMode mode) override
    {
        const Server passing("/dev/passing");
        return device.open("/dev/other", mode);
    }
    bool onClose() override
    {
        Registry::unRegisterServer(*this);
        return device.close();
    }

    CKoIODevice device;
};

TEST(CKoIODevice, SurvivesServersThatCallTheRegistry)
{
    Server other("/dev/other");
    Careless careless("/dev/x");
    CKoIODevice device;
    EXPECT_TRUE(device.open("/dev/x", READ_WRITE));
    std::thread([] { CKoIODevice().open("/dev/other", READ_WRITE); }).join();
    EXPECT_TRUE(device.close());
    EXPECT_THAT(other.calls, ElementsAre("open /dev/other 3", "open /dev/other 3", "close"));
    EXPECT_FALSE(device.isOpened()) << "the server has left";
}

} // namespace
