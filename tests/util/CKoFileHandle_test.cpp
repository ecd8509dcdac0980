#include "pf/util/CKoFileHandle.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <thread>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "pf/oswrapper/KoSyslog.h"
#include "tests/support/Deadline.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/SignalStorm.h"
#include "tests/util/FileTesting.h"

namespace
{

using namespace KoTest;

/// Bytes that tell their place.
std::string makeBytes(std::size_t count)
{
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

unsigned int sizeOf(const std::string& bytes)
{
    return static_cast<unsigned int>(bytes.size());
}

/// A pipe with a name, both ends in one handle: never at its end.
class NamedPipe : public TemporaryDirectory
{
public:
    NamedPipe()
    {
        EXPECT_EQ(mkfifo(file("pipe").c_str(), 0600), 0);
        EXPECT_TRUE(handle.open(file("pipe").c_str(), O_RDWR));
    }

    CKoFileHandle handle;
};

TEST(CKoFileHandle, OpensWithTheFlagsAsGivenAndClosesWhatWasOpen)
{
    const TemporaryDirectory directory;
    const CKoPath path = directory.file("new").c_str();
    const std::ptrdiff_t before = openDescriptors();
    {
        CKoFileHandle file(path, O_RDONLY);
        EXPECT_FALSE(file.isOpen());
        EXPECT_EQ(errno, ENOENT);

        const mode_t formerMask = umask(027);
        EXPECT_TRUE(file.open(path, O_RDWR | O_CREAT));
        umask(formerMask);
        struct stat status
        {
        };
        EXPECT_EQ(fstat(file.getDescriptor(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0750U);
        EXPECT_EQ(fcntl(file.getDescriptor(), F_GETFD), 0);

        EXPECT_TRUE(file.open(path, O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(fcntl(file.getDescriptor(), F_GETFD), FD_CLOEXEC);
        EXPECT_EQ(openDescriptors(), before + 1);
        EXPECT_EQ(errorOf([&] { return file.open(path, O_RDWR | O_CREAT | O_EXCL); }), EEXIST);
        EXPECT_EQ(file.getDescriptor(), -1);
        EXPECT_TRUE(file.close() && file.open(path, O_RDONLY) && file.close() && file.close());
        EXPECT_TRUE(file.open(path, O_RDONLY));
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(CKoFileHandle, KeepsADescriptorThatThePlatformRefusesToClose)
{
    const LogCapture log;
    {
        CKoFileHandle file("/dev/null", O_RDONLY);
        const int descriptor = file.getDescriptor();
        close(descriptor);
        EXPECT_EQ(errorOf([&] { return file.close(); }), EBADF);
        EXPECT_EQ(file.getDescriptor(), descriptor);
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
    const std::string line = "closing file failed (operating system error 9, Bad file descriptor)";
    EXPECT_EQ(log.texts(KoSyslog::Error), std::vector<std::string>{line});
}

TEST(CKoFileHandle, FailsWhenClosedAndForMissingBuffers)
{
    CKoFileHandle file;
    char byte = 0;
    for (const int timeoutMs : {-1, 0, 10})
    {
        EXPECT_EQ(errorOf([&] { return file.read(&byte, 1U, timeoutMs) != -1; }), EBADF);
        EXPECT_EQ(errorOf([&] { return file.write(&byte, 1U, timeoutMs) != -1; }), EBADF);
        EXPECT_EQ(errorOf([&] { return file.writeN(&byte, 1U, timeoutMs); }), EBADF);
        EXPECT_EQ(errorOf([&] { return file.read(nullptr, 4U, timeoutMs) != -1; }), EINVAL);
        EXPECT_EQ(errorOf([&] { return file.write(nullptr, 4U, timeoutMs) != -1; }), EINVAL);
        EXPECT_EQ(errorOf([&] { return file.writeN(nullptr, 4U, timeoutMs); }), EINVAL);
        errno = ENOENT;
        EXPECT_TRUE(file.writeN(nullptr, 0U, timeoutMs));
        EXPECT_EQ(errno, 0);
    }
    EXPECT_EQ(errorOf([&] { return file.sync(); }), EBADF);
    EXPECT_EQ(errorOf([&] { return file.tell() != -1; }), EBADF);
    EXPECT_EQ(errorOf([&] { return file.seek(0LL, SEEK_DIRECTION_BEGIN); }), EBADF);
    EXPECT_EQ(errorOf([&] { return file.truncate(0ULL); }), EBADF);
    ASSERT_TRUE(file.open("/dev/zero", O_RDWR));
    EXPECT_EQ(file.read(nullptr, 0U, -1), 0);
    EXPECT_EQ(file.write(nullptr, 0U, 10), 0);
}

TEST(CKoFileHandle, MovesCutsAndExtendsBeyondFourGiB)
{
    constexpr long long FAR = 5LL << 30U;
    const TemporaryDirectory directory;
    CKoFileHandle file(directory.file("sparse").c_str(), O_RDWR | O_CREAT);
    EXPECT_TRUE(file.seek(FAR, SEEK_DIRECTION_BEGIN));
    ASSERT_TRUE(file.writeN("end", 3U, -1)) << errno;
    EXPECT_TRUE(file.seek(-2LL, SEEK_DIRECTION_CURRENT));
    EXPECT_EQ(file.tell(), FAR + 1);
    char rest[8] = {};
    EXPECT_EQ(file.read(rest, sizeof(rest), 0), 2);
    EXPECT_STREQ(rest, "nd");
    EXPECT_TRUE(file.truncate(FAR + 100));
    EXPECT_TRUE(file.seek(0LL, SEEK_DIRECTION_END));
    EXPECT_EQ(file.tell(), FAR + 100);
    EXPECT_TRUE(file.truncate(0ULL) && file.sync());
    EXPECT_EQ(errorOf([&] { return file.seek(0LL, SEEK_DIRECTION_NONE); }), EINVAL);
    EXPECT_EQ(errorOf([&] { return file.seek(-1LL, SEEK_DIRECTION_BEGIN); }), EINVAL);
    EXPECT_EQ(errorOf([&] { return file.truncate(~0ULL); }), EINVAL);
    EXPECT_EQ(file.tell(), FAR + 100);
}

TEST(CKoFileHandle, TellsTheEndOfTheFileFromTheEndOfTheTime)
{
    const TemporaryDirectory directory;
    directory.write("file", "abc");
    CKoFileHandle file(directory.file("file").c_str(), O_RDWR);
    NamedPipe pipe;
    char bytes[16] = {};
    for (const int timeoutMs : {-1, 0, 50})
    {
        EXPECT_TRUE(file.seek(0LL, SEEK_DIRECTION_BEGIN));
        EXPECT_EQ(file.read(bytes, sizeof(bytes), timeoutMs), 3);
        errno = ENOENT;
        EXPECT_EQ(file.read(bytes, sizeof(bytes), timeoutMs), 0);
        EXPECT_EQ(errno, 0);
        // What is there comes at once, and no more.
        EXPECT_EQ(pipe.handle.write("12345", 5U, timeoutMs), 5);
        EXPECT_EQ(pipe.handle.read(bytes, sizeof(bytes), timeoutMs), 5);
        if (timeoutMs == -1)
            continue;
        const SignalStorm storm;
        const Stopwatch watch;
        EXPECT_EQ(pipe.handle.read(bytes, sizeof(bytes), timeoutMs), 0);
        EXPECT_EQ(errno, ETIMEDOUT);
        EXPECT_TRUE(watch.isWithin(static_cast<unsigned int>(timeoutMs), 3000));
    }
}

TEST(CKoFileHandle, ReturnsByItsDeadlineFromAWriteThatIsTooLarge)
{
    constexpr unsigned int LIMIT_MS = 100;
    const std::string bytes = makeBytes(1U << 20U);
    NamedPipe pipe;
    const int capacity = fcntl(pipe.handle.getDescriptor(), F_GETPIPE_SZ);
    const SignalStorm storm;
    const struct
    {
        std::function<int()> call;
        int result;
        int error; ///< 0 where there is none to be told
    } cases[] = {{[&] { return pipe.handle.write(bytes.data(), sizeOf(bytes), LIMIT_MS); }, capacity, 0},
                 {[&] { return pipe.handle.write(bytes.data(), sizeOf(bytes), LIMIT_MS); }, 0, ETIMEDOUT},
                 {[&] { return pipe.handle.writeN(bytes.data(), 1U, LIMIT_MS) ? 1 : 0; }, 0, ETIMEDOUT}};
    for (const auto& each : cases)
    {
        const Stopwatch watch;
        EXPECT_EQ(each.call(), each.result);
        EXPECT_TRUE(each.error == 0 || errno == each.error) << errno;
        EXPECT_TRUE(watch.isWithin(LIMIT_MS, 3000));
    }
    std::string taken(static_cast<std::size_t>(capacity), '\0');
    EXPECT_EQ(pipe.handle.read(taken.data(), sizeOf(taken), 0), capacity);
    EXPECT_TRUE(taken == bytes.substr(0, taken.size()));
}

TEST(CKoFileHandle, LosesNothingWhileSignalsInterruptBothEnds)
{
    const std::string bytes = makeBytes(100000);
    for (const int timeoutMs : {-1, 20000})
    {
        NamedPipe pipe;
        std::string received;
        const SignalStorm storm(SignalStorm::WHOLE_PROCESS);
        std::thread reader(
            [&]
            {
                CKoFileHandle source(pipe.file("pipe").c_str(), O_RDONLY);
                std::string piece(777, '\0');
                for (int count = 1; count > 0 && received.size() < bytes.size();)
                {
                    count = source.read(piece.data(), sizeOf(piece), timeoutMs);
                    received.append(piece, 0, static_cast<std::size_t>(std::max(count, 0)));
                }
            });
        EXPECT_TRUE(waitUntil([&] { return storm.count() >= 20U; }));
        EXPECT_TRUE(pipe.handle.writeN(bytes.data(), sizeOf(bytes), timeoutMs));
        reader.join();
        EXPECT_TRUE(received == bytes);
    }
}

TEST(CKoFileHandle, WritesOnAfterShortAndInterruptedWrites)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const std::string bytes = makeBytes(10000);
    const TemporaryDirectory directory;
    CKoFileHandle file(directory.file("file").c_str(), O_WRONLY | O_CREAT);
    {
        const FailingCall call(FAULT_WRITE, EINTR, 3, 2, 999);
        EXPECT_TRUE(file.writeN(bytes.data(), sizeOf(bytes), -1));
        EXPECT_EQ(call.failed(), 3U);
    }
    EXPECT_TRUE(directory.read("file") == bytes);
    const FailingCall call(FAULT_WRITE, EIO, 1, 2, 999);
    EXPECT_EQ(errorOf([&] { return file.writeN(bytes.data(), sizeOf(bytes), -1); }), EIO);
    EXPECT_EQ(file.tell(), 10000 + 2 * 999);
}

TEST(CKoFileHandle, ReportsAFullDeviceAndKeepsWhatFitted)
{
    const std::string bytes = makeBytes(16384);
    for (const int timeoutMs : {-1, 50})
    {
        CKoFileHandle full("/dev/full", O_WRONLY);
        EXPECT_EQ(errorOf([&] { return full.write(bytes.data(), 1U, timeoutMs) != -1; }), ENOSPC);
        EXPECT_EQ(errorOf([&] { return full.writeN(bytes.data(), 16384U, timeoutMs); }), ENOSPC);
        const TemporaryDirectory directory;
        inChild(
            [&]
            {
                signal(SIGXFSZ, SIG_IGN);
                limit(RLIMIT_FSIZE, 10000);
                CKoFileHandle file(directory.file("file").c_str(), O_WRONLY | O_CREAT);
                EXPECT_EQ(errorOf([&] { return file.writeN(bytes.data(), 16384U, timeoutMs); }), EFBIG);
                EXPECT_TRUE(file.seek(4000LL, SEEK_DIRECTION_BEGIN));
                EXPECT_EQ(file.write(bytes.data() + 4000, 12384U, timeoutMs), 6000);
                EXPECT_EQ(errorOf([&] { return file.truncate(10001ULL); }), EFBIG);
            });
        EXPECT_TRUE(directory.read("file") == bytes.substr(0, 10000));
    }
}

TEST(CKoFileHandle, CountsWhatAnIntHoldsOfATransferThatIsLarger)
{
    if (sizeof(void*) == 4 || slowness() != 1)
        GTEST_SKIP() << "no room for so many bytes, or somebody looks at each of them";
    constexpr unsigned int SIZE = 0xF0000000U;
    void* const bytes = mmap(nullptr, SIZE, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(bytes, MAP_FAILED);
    CKoFileHandle file("/dev/null", O_WRONLY);
    for (const int timeoutMs : {-1, 60000})
    {
        EXPECT_GT(file.write(bytes, SIZE, timeoutMs), 1 << 30U);
        EXPECT_TRUE(file.writeN(bytes, SIZE, timeoutMs));
    }
    EXPECT_EQ(munmap(bytes, SIZE), 0);
}

} // namespace
