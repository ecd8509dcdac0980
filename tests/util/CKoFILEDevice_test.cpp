#include "pf/util/CKoFILEDevice.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/oswrapper/KoSyslog.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/Deadline.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/SignalStorm.h"
#include "tests/util/FileTesting.h"

namespace
{

using namespace KoTest;

/// A full disk; it is noticed when the stream hands over what it has.
constexpr char FULL_DEVICE[] = "/dev/full";

unsigned int sizeOf(const std::string& text)
{
    return static_cast<unsigned int>(text.size());
}

int writeText(CKoFILEDevice& device, const std::string& text)
{
    return device.write(text.data(), sizeOf(text), -1);
}

/// What a read of up to `size` bytes gives.
std::string readText(CKoFILEDevice& device, unsigned int size)
{
    std::string text(size, '?');
    const int result = device.read(text.data(), size, -1);
    EXPECT_GE(result, 0);
    text.resize(static_cast<std::size_t>(std::max(result, 0)));
    return text;
}

/// Bytes that tell their place.
std::string placedBytes(std::size_t count)
{
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<char>(i % 251);
    return bytes;
}

TEST(CKoFILEDevice, ChoosesTheModeByTheFlags)
{
    const struct
    {
        int flags;
        int missing;      ///< the error for a file that is not there
        int existing;     ///< and for one that is
        std::string left; ///< what "X" makes of a file with "abcd"
    } cases[] = {
        {0, ENOENT, 0, "abcd"},
        {O_WRONLY | O_CREAT | O_TRUNC, 0, 0, "X"},
        {O_RDWR | O_TRUNC | O_APPEND, 0, 0, "X"},
        {O_TRUNC, EINVAL, EINVAL, "abcd"},
        {O_WRONLY | O_APPEND, 0, 0, "abcdX"},
        {O_RDWR | O_APPEND | O_CREAT, 0, 0, "abcdX"},
        {O_APPEND | O_CREAT, EINVAL, EINVAL, "abcd"},
        {O_WRONLY | O_CREAT, 0, 0, "X"},
        {O_RDWR | O_CREAT | O_EXCL, 0, 0, "X"},
        {O_CREAT, EINVAL, EINVAL, "abcd"},
        {O_WRONLY, ENOENT, 0, "Xbcd"},
        {O_RDWR, ENOENT, 0, "Xbcd"},
        {O_CLOEXEC, ENOENT, 0, "Xbcd"},
    };
    for (const auto& each : cases)
    {
        SCOPED_TRACE(each.flags);
        const TemporaryDirectory directory;
        directory.write("there", "abcd");
        const auto flags = static_cast<unsigned int>(each.flags);
        CKoFILEDevice device;
        EXPECT_EQ(errorOf([&] { return device.open(directory.file("missing").c_str(), flags); }),
                  each.missing);
        EXPECT_EQ(errorOf([&] { return device.open(directory.file("there").c_str(), flags); }),
                  each.existing);
        const bool isWritable = each.existing == 0 && flags != 0U;
        if (each.existing == 0)
        {
            EXPECT_EQ(writeText(device, "X"), isWritable ? 1 : -1);
        }
        EXPECT_TRUE(device.close());
        EXPECT_TRUE(device.close());
        EXPECT_EQ(directory.read("there"), each.left);
    }
}

TEST(CKoFILEDevice, ReadsToTheEndAndWritesAfterReading)
{
    const TemporaryDirectory directory;
    directory.write("file", "abcd");
    const std::ptrdiff_t before = openDescriptors();
    {
        CKoFILEDevice device;
        ASSERT_TRUE(device.open(directory.file("file").c_str(), O_RDWR));
        EXPECT_EQ(readText(device, 10), "abcd");
        EXPECT_EQ(readText(device, 10), "");
        EXPECT_EQ(writeText(device, "ef"), 2);
        EXPECT_TRUE(device.sync());
        EXPECT_EQ(directory.read("file"), "abcdef");
        EXPECT_EQ(writeText(device, "g"), 1);
        ASSERT_TRUE(device.open(directory.file("file").c_str(), 0));
        EXPECT_EQ(readText(device, 6), "abcdef");
        EXPECT_EQ(readText(device, 6), "g");
        EXPECT_EQ(openDescriptors(), before + 1);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(CKoFILEDevice, ChecksItsArguments)
{
    CKoFILEDevice device;
    char byte = 0;
    const ReportCase cases[] = {
        {"CKoFILEDevice 93: ???", [&] { EXPECT_FALSE(device.sync()); }},
        {"CKoFILEDevice 108: ???", [&] { EXPECT_EQ(device.write(&byte, 1, -1), -1); }},
        {"CKoFILEDevice 156: ???", [&] { EXPECT_EQ(device.read(nullptr, 0, -1), -1); }},
    };
    expectReports(cases, [&] { EXPECT_TRUE(device.close()); });

    ASSERT_TRUE(device.open("/dev/zero", O_RDWR));
    constexpr unsigned int TOO_MANY = 0x80000000U;
    const struct
    {
        char* buffer;
        unsigned int size;
        int result;
        int error;
    } transfers[] = {{nullptr, 0, 0, ENOENT},
                     {nullptr, 4, -1, EINVAL},
                     {&byte, 0, -1, ENOENT},
                     {&byte, TOO_MANY, -1, EINVAL}};
    for (const auto& each : transfers)
    {
        errno = ENOENT;
        EXPECT_EQ(device.read(each.buffer, each.size, -1), each.result);
        EXPECT_EQ(errno, each.error);
        errno = ENOENT;
        EXPECT_EQ(device.write(each.buffer, each.size, -1), each.result);
        EXPECT_EQ(errno, each.error);
    }
}

TEST(CKoFILEDevice, TellsThatTheDiskIsFull)
{
    constexpr unsigned int WRITING = O_WRONLY | O_CREAT | O_TRUNC;
    CKoFILEDevice device;
    ASSERT_TRUE(device.open(FULL_DEVICE, WRITING));
    EXPECT_EQ(writeText(device, "lost"), 4);
    EXPECT_EQ(errorOf([&] { return device.sync(); }), ENOSPC);
    EXPECT_EQ(errorOf([&] { return writeText(device, std::string(100000, 'x')) != -1; }), ENOSPC);
    EXPECT_EQ(writeText(device, "lost"), 4);
    EXPECT_EQ(errorOf([&] { return device.close(); }), ENOSPC);

    // The C library has let the stream go: nothing may touch it again.
    char byte = 0;
    EXPECT_EQ(errorOf([&] { return device.close(); }), EBADF);
    EXPECT_EQ(errorOf([&] { return device.sync(); }), EBADF);
    EXPECT_EQ(errorOf([&] { return device.read(&byte, 1, -1) != -1; }), EBADF);
    EXPECT_EQ(errorOf([&] { return device.write(&byte, 1, -1) != -1; }), EBADF);

    const LogCapture log;
    ASSERT_TRUE(device.open(FULL_DEVICE, WRITING));
    EXPECT_EQ(writeText(device, "lost"), 4);
    ASSERT_TRUE(device.open("/dev/null", WRITING));
    {
        CKoFILEDevice forgotten;
        ASSERT_TRUE(forgotten.open(FULL_DEVICE, WRITING));
        EXPECT_EQ(writeText(forgotten, "lost"), 4);
        errno = ENOENT;
    }
    EXPECT_EQ(errno, ENOENT);
    const std::string line = "closing file failed (operating system error 28, No space left on device)";
    EXPECT_EQ(log.texts(KoSyslog::Error), (std::vector<std::string>{line, line}));
}

/// Moves all bytes through the pipe in pieces; `pause` comes before each.
template <typename Pause>
void transfer(const std::string& pipe, bool isWriter, std::string& bytes, Pause pause)
{
    constexpr unsigned int PIECE = 20000;
    CKoFILEDevice device;
    EXPECT_TRUE(device.open(pipe.c_str(), isWriter ? O_WRONLY | O_APPEND : 0));
    for (std::size_t at = 0; at < bytes.size(); at += PIECE)
    {
        pause();
        EXPECT_EQ(isWriter ? device.write(&bytes[at], PIECE, -1) : device.read(&bytes[at], PIECE, -1),
                  static_cast<int>(PIECE));
        EXPECT_TRUE(!isWriter || device.sync());
    }
    EXPECT_TRUE(device.close());
}

TEST(CKoFILEDevice, LosesNothingToInterruptions)
{
    const TemporaryDirectory directory;
    const std::string pipe = directory.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string sent = placedBytes(200000);
    // Interruptions hit this thread, as the writer and as the reader, while the other one lets it wait.
    for (const bool writesUnderStorm : {true, false})
    {
        std::string outgoing(sent);
        std::string incoming(sent.size(), '?');
        const SignalStorm storm;
        const auto waitForInterruption = [&]
        {
            const unsigned int before = storm.count();
            EXPECT_TRUE(waitUntil([&] { return storm.count() != before; }));
        };
        std::thread other(
            [&] {
                transfer(pipe, !writesUnderStorm, writesUnderStorm ? incoming : outgoing,
                         waitForInterruption);
            });
        transfer(pipe, writesUnderStorm, writesUnderStorm ? outgoing : incoming, [] {});
        other.join();
        EXPECT_TRUE(incoming == sent);
    }
}

TEST(CKoFILEDevice, TakesShortTransfersAndReportsFailures)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const TemporaryDirectory directory;
    const CKoPath path = directory.file("file").c_str();
    const std::string sent = placedBytes(5000);
    CKoFILEDevice device;
    ASSERT_TRUE(device.open(path, O_WRONLY | O_CREAT | O_TRUNC));
    {
        const FailingCall interrupted(FAULT_WRITE, EINTR, 3, 2, 700);
        EXPECT_EQ(writeText(device, sent), 5000);
        EXPECT_TRUE(device.close());
        EXPECT_EQ(interrupted.failed(), 3U);
    }
    EXPECT_EQ(directory.read("file"), sent);

    ASSERT_TRUE(device.open(path, O_RDWR));
    {
        const FailingCall interrupted(FAULT_READ, EINTR, 3, 2, 700);
        EXPECT_EQ(readText(device, 4096), sent.substr(0, 4096));
        EXPECT_EQ(interrupted.failed(), 3U);
    }
    {
        const FailingCall failing(FAULT_READ, EIO);
        std::string lost(5000, '?');
        EXPECT_EQ(errorOf([&] { return device.read(lost.data(), 5000, -1) != -1; }), EIO);
    }
    const std::string rest = readText(device, 5000);
    EXPECT_FALSE(rest.empty());
    EXPECT_EQ(rest, sent.substr(sent.size() - rest.size())) << "each call is judged by itself";
    EXPECT_TRUE(device.close());

    const std::ptrdiff_t before = openDescriptors();
    for (const int flags : {O_RDONLY, O_RDWR})
    {
        const FailingAllocation failing(1);
        EXPECT_EQ(errorOf([&] { return device.open(path, static_cast<unsigned int>(flags)); }), ENOMEM);
    }
    {
        const FailingCall failing(FAULT_OPEN, EMFILE);
        EXPECT_EQ(errorOf([&] { return device.open(path, 0); }), EMFILE);
    }
    EXPECT_EQ(openDescriptors(), before);
}

} // namespace
