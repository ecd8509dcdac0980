#include "pf/platform/KoPlatformFile.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <fstream>

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/platform/KoPlatformThread.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "tests/platform/LockTestSupport.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SignalStorm.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

using KoTest::SignalStorm;
using KoTest::Stopwatch;
using KoTest::waitUntil;

enum Kind
{
    PIPE,
    SOCKET,
    TERMINAL,       ///< written by the program at the terminal, read at the master side
    TERMINAL_MASTER ///< the other way
};
constexpr Kind KINDS[] = {PIPE, SOCKET, TERMINAL, TERMINAL_MASTER};

/// What is written at one end is read at the other.
class Line
{
public:
    explicit Line(Kind kind)
    {
        int ends[2] = {-1, -1};
        if (kind == PIPE)
            EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        else if (kind == SOCKET)
            EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        else
            openTerminal(ends[kind == TERMINAL ? 0 : 1], ends[kind == TERMINAL ? 1 : 0]);
        in = ends[0];
        out = ends[1];
    }
    ~Line()
    {
        closeEnd(in);
        closeEnd(out);
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    static void closeEnd(int& end)
    {
        if (end != -1)
            close(end);
        end = -1;
    }
    /// The flags of both descriptions.
    std::pair<int, int> flags() const { return {fcntl(in, F_GETFL), fcntl(out, F_GETFL)}; }

    int in;
    int out;

private:
    static void openTerminal(int& master, int& terminal)
    {
        termios raw{};
        cfmakeraw(&raw);
        raw.c_cflag |= CREAD;
        raw.c_cc[VMIN] = 1;
        EXPECT_EQ(openpty(&master, &terminal, nullptr, &raw, nullptr), 0);
    }
};

void arm(unsigned int ms)
{
    const unsigned long long deadline = KoTest::deadlineIn(ms);
    const unsigned int flags = KoPlatform::TIMEOUT_REPLY | KoPlatform::TIMEOUT_ABSOLUTE;
    KoPlatform::TimerTimeout(KoPlatform::CLOCK_ID_MONOTONIC, static_cast<int>(flags), nullptr, &deadline,
                             nullptr);
}

ssize_t timedWrite(int descriptor, const std::string& text, std::size_t from, unsigned int ms)
{
    arm(ms);
    return KoPlatform::write(descriptor, text.data() + from, text.size() - from);
}

/// \return what was read; empty, with the reason in errno, on failure, and with 0 at the end.
std::string timedRead(int descriptor, unsigned int ms, std::size_t size = 4096)
{
    std::string text(size, '\0');
    arm(ms);
    const ssize_t count = KoPlatform::read(descriptor, text.data(), size);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    errno = count >= 0 ? 0 : errno;
    return text;
}

/// How many bytes can be read at once.
int available(int descriptor)
{
    int count = -1;
    ioctl(descriptor, FIONREAD, &count);
    return count;
}

/// Bytes whose order shows.
std::string pattern(std::size_t size)
{
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        text[i] = static_cast<char>('!' + i * 7 % 91);
    return text;
}

std::string readAll(int descriptor, std::size_t size)
{
    std::string text;
    while (text.size() < size)
    {
        const std::string piece =
            timedRead(descriptor, 20000, std::min<std::size_t>(700, size - text.size()));
        if (piece.empty())
            break;
        text += piece;
    }
    return text;
}

TEST(KoPlatformFile, WaitsForDataUntilTheDeadlineWhateverSignalsCome)
{
    const SignalStorm storm;
    for (const Kind kind : KINDS)
    {
        SCOPED_TRACE(kind);
        const Line line(kind);
        const auto flags = line.flags();
        for (const unsigned int ms : {0U, 40U})
        {
            const Stopwatch watch;
            EXPECT_EQ(timedRead(line.in, ms), "");
            EXPECT_EQ(errno, ETIMEDOUT);
            EXPECT_TRUE(watch.isWithin(ms, 5000));
        }
        EXPECT_EQ(timedWrite(line.out, "a", 0, 0), 1);
        EXPECT_EQ(timedRead(line.in, 20000, 1), "a");
        EXPECT_EQ(timedWrite(line.out, "bc", 0, 20000), 2);
        EXPECT_TRUE(waitUntil([&] { return available(line.in) == 2; }));
        EXPECT_EQ(timedRead(line.in, 0), "bc") << "what is there needs no time";
        EXPECT_EQ(line.flags(), flags);
    }
}

TEST(KoPlatformFile, ReturnsFromALargeWriteByTheDeadlineAndLosesNothing)
{
    const std::string text = pattern(1U << 20U);
    for (const Kind kind : KINDS)
    {
        SCOPED_TRACE(kind);
        const Line line(kind);
        const auto flags = line.flags();
        std::size_t written = 0;
        for (int full = 0; full < 2;)
        {
            const SignalStorm storm;
            const Stopwatch watch;
            const ssize_t count = timedWrite(line.out, text, written, 50);
            EXPECT_TRUE(watch.isWithin(50, 5000));
            EXPECT_TRUE(count > 0 || (count == -1 && errno == ETIMEDOUT)) << errno;
            EXPECT_TRUE(count > 0 || written > 0);
            written += count > 0 ? static_cast<std::size_t>(count) : 0;
            full += count > 0 ? 0 : 1;
        }
        EXPECT_LT(written, text.size());
        EXPECT_TRUE(readAll(line.in, written) == text.substr(0, written));
        EXPECT_EQ(line.flags(), flags);
    }
}

TEST(KoPlatformFile, WritesEverythingToAReaderThatTakesSmallPieces)
{
    for (const Kind kind : KINDS)
    {
        SCOPED_TRACE(kind);
        const Line line(kind);
        const std::string text = pattern((kind == TERMINAL_MASTER ? 5000U
                                          : kind == TERMINAL      ? 30000U
                                                                  : 300000U) /
                                         KoTest::slowness());
        std::string received;
        std::thread reader([&] { received = readAll(line.in, text.size()); });
        const SignalStorm storm;
        EXPECT_EQ(timedWrite(line.out, text, 0, 60000), static_cast<ssize_t>(text.size()));
        reader.join();
        EXPECT_TRUE(received == text) << received.size();
    }
}

TEST(KoPlatformFile, NeverBlocksWhenOthersAreFaster)
{
    for (const Kind kind : {PIPE, SOCKET, TERMINAL})
    {
        SCOPED_TRACE(kind);
        Line line(kind);
        const int rounds = KoTest::slowness() == 1 ? 500 : 100;
        std::atomic<int> calls{0};
        std::atomic<int> ended{0};
        std::atomic<bool> stopped{false};
        std::vector<std::thread> threads;
        const std::string text = pattern(3000);
        const auto compete = [&](auto call)
        {
            threads.emplace_back(
                [&, call]
                {
                    while (!stopped)
                    {
                        call();
                        ++calls;
                    }
                    ++ended;
                });
        };
        for (int i = 0; i < 3; ++i)
        {
            compete([&] { timedWrite(line.out, text, 0, 1); });
            compete([&] { timedRead(line.in, 1, 1000); });
        }
        EXPECT_TRUE(waitUntil([&] { return calls > rounds; }));
        stopped = true;
        EXPECT_TRUE(waitUntil([&] { return ended == 6; })) << "one call is stuck";
        // Lets go who is stuck.
        std::signal(SIGPIPE, SIG_IGN);
        Line::closeEnd(line.in);
        Line::closeEnd(line.out);
        for (std::thread& thread : threads)
            thread.join();
        std::signal(SIGPIPE, SIG_DFL);
    }
}

TEST(KoPlatformFile, TellsTheEndAndFailuresFromRunningOutOfTime)
{
    std::signal(SIGPIPE, SIG_IGN);
    for (const Kind kind : {PIPE, SOCKET})
    {
        Line line(kind);
        Line::closeEnd(line.out);
        EXPECT_EQ(timedRead(line.in, 60000), "");
        EXPECT_EQ(errno, 0);
        Line other(kind);
        std::thread leaving([&] { Line::closeEnd(other.in); });
        const std::string text = pattern(1U << 20U);
        ssize_t count = 0;
        while ((count = timedWrite(other.out, text, 0, 60000)) > 0)
        {
        }
        EXPECT_TRUE(count == -1 && (errno == EPIPE || errno == ECONNRESET)) << errno;
        leaving.join();
    }
    std::signal(SIGPIPE, SIG_DFL);

    const KoTest::TemporaryDirectory directory;
    directory.write("file", "text");
    const int file = KoPlatform::open(directory.file("file").c_str(), O_RDONLY);
    EXPECT_EQ(timedRead(file, 0, 10), "text");
    EXPECT_EQ(timedRead(file, 0), "");
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(timedWrite(file, "x", 0, 60000), -1);
    EXPECT_EQ(errno, EBADF);
    close(file);
    const struct
    {
        const char* path;
        int flags;
        int readError;
        int writeError;
    } cases[] = {
        {"/dev/null", O_RDWR, 0, 0},
        {"/dev/full", O_WRONLY, EBADF, ENOSPC},
        {"/proc/self", O_RDONLY, EISDIR, EBADF},
        {"/nowhere", O_RDONLY, EBADF, EBADF},
    };
    for (const auto& each : cases)
    {
        const int descriptor = KoPlatform::open(each.path, each.flags);
        timedRead(descriptor, 60000);
        EXPECT_EQ(errno, each.readError) << each.path;
        errno = 0;
        timedWrite(descriptor, "x", 0, 60000);
        EXPECT_EQ(errno, each.writeError) << each.path;
        close(descriptor);
    }
}

TEST(KoPlatformFile, LeavesADescriptorThatNeverBlocksToItself)
{
    for (const Kind kind : KINDS)
    {
        const Line line(kind);
        fcntl(line.in, F_SETFL, fcntl(line.in, F_GETFL) | O_NONBLOCK);
        const Stopwatch watch;
        EXPECT_EQ(timedRead(line.in, 60000), "");
        EXPECT_EQ(errno, EAGAIN) << kind;
        EXPECT_TRUE(watch.isWithin(0, 20000));
    }
}

TEST(KoPlatformFile, KeepsDatagramsApart)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends), 0);
    const std::string text = pattern(1000);
    int sent = 0;
    while (timedWrite(ends[1], text, 0, 20) == 1000)
        ++sent;
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(timedRead(ends[0], 0, 0), "");
    EXPECT_EQ(errno, 0);
    char byte = '\0';
    arm(0);
    EXPECT_EQ(KoPlatform::read(ends[0], &byte, std::size_t{SSIZE_MAX} + 1), -1);
    EXPECT_EQ(errno, EINVAL);
    for (; sent > 0; --sent)
        EXPECT_EQ(timedRead(ends[0], 0), text);
    EXPECT_EQ(timedRead(ends[0], 0), "") << "asking for nothing or too much has taken none";
    EXPECT_EQ(errno, ETIMEDOUT);
    close(ends[0]);
    close(ends[1]);
}

TEST(KoPlatformFile, TakesTheTimeoutByEveryCallAndHeedsItsStates)
{
    const Line line(PIPE);
    char byte = '\0';
    const std::function<void()> calls[] = {
        [] { KoPlatform::open("/nowhere", O_RDONLY); },
        [&] { KoPlatform::read(line.in, &byte, 0); },
        [&] { KoPlatform::write(line.out, &byte, 0); },
        [&] { KoPlatform::devctl(line.in, 0, nullptr, 0, nullptr); },
    };
    for (const auto& call : calls)
    {
        arm(60000);
        call();
        EXPECT_EQ(KoPlatform::takeTimeout(KoPlatform::TIMEOUT_REPLY, nullptr), KoPlatform::NO_DEADLINE);
    }
    // A limit for other waits is gone, too, but limits nothing here: the call waits for the writer.
    std::thread writer(
        [&]
        {
            const Stopwatch watch;
            waitUntil([&] { return watch.isWithin(50, 60000); });
            EXPECT_EQ(write(line.out, "x", 1), 1);
        });
    const unsigned long long past = 1;
    const unsigned int flags = KoPlatform::TIMEOUT_JOIN | KoPlatform::TIMEOUT_ABSOLUTE;
    KoPlatform::TimerTimeout(KoPlatform::CLOCK_ID_MONOTONIC, static_cast<int>(flags), nullptr, &past,
                             nullptr);
    EXPECT_EQ(KoPlatform::read(line.in, &byte, 1), 1);
    writer.join();
}

std::ptrdiff_t countDescriptors()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

TEST(KoPlatformFile, LetsAThreadBeEndedWhileItWaits)
{
    const auto before = countDescriptors();
    for (const Kind kind : KINDS)
    {
        static std::atomic<bool> sReading;
        sReading = false;
        Line line(kind);
        const auto read = [](void* in) -> void*
        {
            char byte = 0; // ended without unwinding, so nothing here may own memory
            arm(1000000);
            sReading = true;
            KoPlatform::read(*static_cast<int*>(in), &byte, 1);
            return nullptr;
        };
        const int tid = KoPlatform::ThreadCreate(0, read, &line.in, nullptr);
        EXPECT_TRUE(waitUntil([] { return sReading.load(); }));
        EXPECT_EQ(KoPlatform::ThreadDestroy(tid, -1, &line), 0);
        void* status = nullptr;
        EXPECT_EQ(KoPlatform::ThreadJoin_r(tid, &status), 0);
        EXPECT_EQ(status, &line) << kind;
    }
    EXPECT_EQ(countDescriptors(), before);
}

TEST(KoPlatformFile, FailsCleanlyWhenDescriptorsRunOut)
{
    const auto body = []
    {
        const Line line(TERMINAL);
        const std::string text = pattern(1U << 20U);
        const auto before = countDescriptors();
        rlimit limit{};
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
        const rlim_t many = limit.rlim_cur;
        const auto allow = [&](rlim_t count)
        {
            limit.rlim_cur = count;
            EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        };
        for (rlim_t free = 0; free < 2; ++free)
        {
            allow(static_cast<rlim_t>(line.out) + 1 + free);
            char type[KoPlatform::FILE_SYSTEM_TYPE_SIZE];
            EXPECT_EQ(KoPlatform::fileSystemType("/", type), -1);
            EXPECT_EQ(errno, EMFILE);
        }
        allow(1);
        EXPECT_EQ(KoPlatform::open("/dev/null", O_RDONLY), -1);
        EXPECT_EQ(errno, EMFILE);
        const Stopwatch watch;
        const ssize_t written = timedWrite(line.out, text, 0, 50);
        EXPECT_GT(written, 0);
        EXPECT_TRUE(watch.isWithin(50, 5000));
        const std::size_t count = std::min<std::size_t>(1000, static_cast<std::size_t>(written));
        EXPECT_TRUE(readAll(line.in, count) == text.substr(0, count));
        allow(many);
        EXPECT_EQ(countDescriptors(), before);
        return 0;
    };
    const KoTest::ChildResult result = KoTest::ChildProcess::run(body);
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
}

TEST(KoPlatformFile, OpensWithTheFlagsAsTheyStand)
{
    for (const int flag : {0, O_CLOEXEC})
    {
        const int descriptor = KoPlatform::open("/dev/null", O_RDONLY | flag);
        EXPECT_EQ(fcntl(descriptor, F_GETFD), flag != 0 ? FD_CLOEXEC : 0);
        close(descriptor);
    }
}

TEST(KoPlatformFile, NamesTheTypesOfTheHostsFileSystems)
{
    std::ifstream list("/proc/filesystems");
    const std::string known(std::istreambuf_iterator<char>(list), {});
    const KoTest::TemporaryDirectory directory;
    ASSERT_EQ(symlink("/proc/version", directory.file("link").c_str()), 0);
    const std::string link = directory.file("link");
    const std::pair<std::string, const char*> cases[] = {{"/proc", "proc"},      {"/proc/version", "proc"},
                                                         {link, "proc"},         {"/", nullptr},
                                                         {"/dev/null", nullptr}, {directory.path(), nullptr}};
    for (const auto& [path, expected] : cases)
    {
        char type[KoPlatform::FILE_SYSTEM_TYPE_SIZE] = "?";
        EXPECT_EQ(KoPlatform::fileSystemType(path.c_str(), type), 0) << path;
        EXPECT_TRUE(expected == nullptr || type == std::string(expected)) << path << ": " << type;
        const std::string name = std::string(type).substr(0, std::string(type).find('.'));
        EXPECT_NE(known.find("\t" + name + "\n"), known.npos) << path << ": " << type;
    }
    char type[KoPlatform::FILE_SYSTEM_TYPE_SIZE] = "?";
    EXPECT_EQ(KoPlatform::fileSystemType("/nowhere", type), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_STREQ(type, "?");
}

TEST(KoPlatformFile, SendsCommandsToDrivers)
{
    const Line line(TERMINAL_MASTER);
    EXPECT_EQ(write(line.out, "abc", 3), 3);
    errno = 77;
    int value = -1;
    int info = -1;
    EXPECT_TRUE(waitUntil(
        [&]
        { return KoPlatform::devctl(line.in, FIONREAD, &value, sizeof(value), &info) == 0 && value == 3; }));
    EXPECT_EQ(info, 0);
    constexpr int ASKS_FOR_NUMBER = static_cast<int>(TIOCGPTN);
    value = info = -1;
    EXPECT_EQ(KoPlatform::devctl(line.out, ASKS_FOR_NUMBER, &value, sizeof(value) - 1, &info), EINVAL);
    EXPECT_EQ(KoPlatform::devctl(line.out, FIONREAD, nullptr, sizeof(value), &info), EINVAL);
    EXPECT_EQ(KoPlatform::devctl(line.in, ASKS_FOR_NUMBER, &value, sizeof(value), &info), ENOTTY);
    EXPECT_EQ(KoPlatform::devctl(-1, FIONREAD, &value, sizeof(value), &info), EBADF);
    EXPECT_TRUE(value == -1 && info == -1);
    EXPECT_EQ(KoPlatform::devctl(line.out, ASKS_FOR_NUMBER, &value, sizeof(value), nullptr), 0);
    EXPECT_GE(value, 0);
    EXPECT_EQ(errno, 77);
}

} // namespace
