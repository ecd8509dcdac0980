#include "pf/util/CKoMemoryMappedFile.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/oswrapper/KoSyslog.h"
#include "tests/support/Deadline.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/LogCapture.h"
#include "tests/util/FileTesting.h"

namespace
{

using namespace KoTest;

unsigned int pageSize()
{
    return static_cast<unsigned int>(sysconf(_SC_PAGESIZE));
}

std::string mappedText(const CKoMemoryMappedFile& file, std::size_t count)
{
    return std::string(static_cast<const char*>(file.getAddress()), count);
}

void expectUnmapped(const CKoMemoryMappedFile& file)
{
    EXPECT_EQ(file.getAddress(), nullptr);
    EXPECT_EQ(file.getSize(), 0U);
}

TEST(CKoMemoryMappedFile, GivesFreshMemoryWithoutAFile)
{
    CKoMemoryMappedFile memory;
    for (const bool lazy : {false, true})
    {
        ASSERT_TRUE(memory.map(12345, 4096, lazy));
        EXPECT_EQ(memory.getSize(), 4096U);
        EXPECT_EQ(mappedText(memory, 4096), std::string(4096, '\0'));
        std::fill_n(static_cast<char*>(memory.getAddress()), 4096, 'x');
    }
    EXPECT_TRUE(memory.unmap());
    expectUnmapped(memory);
    EXPECT_TRUE(memory.unmap());
    EXPECT_TRUE(memory.close());
}

TEST(CKoMemoryMappedFile, MapsRangesOfAFileOneAfterTheOther)
{
    const TemporaryDirectory directory;
    const unsigned int page = pageSize();
    directory.write("file", std::string(page, 'a') + std::string(page, 'b') + "end");
    // The emulator cuts the offset of a mapping to 32 bits.
    constexpr unsigned long long FAR = (isEmulated() ? 3ULL : 5ULL) << 30U;
    {
        CKoFileHandle file(directory.file("file").c_str(), O_WRONLY);
        EXPECT_TRUE(file.seek(FAR, SEEK_DIRECTION_BEGIN));
        EXPECT_TRUE(file.writeN("far", 3, -1));
    }

    const std::ptrdiff_t before = openDescriptors();
    CKoMemoryMappedFile file(directory.file("file").c_str());
    expectUnmapped(file);
    ASSERT_TRUE(file.map(page, 100, false));
    EXPECT_EQ(file.getSize(), 100U);
    EXPECT_EQ(mappedText(file, 100), std::string(100, 'b'));
    ASSERT_TRUE(file.map(0, 2 * page + 3, true));
    EXPECT_EQ(mappedText(file, 2 * page + 3).substr(2 * page - 2), "bbend");
    ASSERT_TRUE(file.map(FAR, 3, false));
    EXPECT_EQ(mappedText(file, 3), "far");
    EXPECT_TRUE(file.close());
    expectUnmapped(file);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(CKoMemoryMappedFile, MapsFilesReadOnly)
{
    const TemporaryDirectory directory;
    directory.write("file", "abcd");
    const ChildResult result = ChildProcess::run(
        [&]
        {
            std::signal(SIGSEGV, SIG_DFL);
            CKoMemoryMappedFile file(directory.file("file").c_str());
            EXPECT_TRUE(file.map(0, 4, false));
            EXPECT_EQ(mappedText(file, 4), "abcd");
            *static_cast<volatile char*>(file.getAddress()) = 'x';
            return 0;
        });
    EXPECT_EQ(result.signal, SIGSEGV) << result.describe();
    EXPECT_EQ(directory.read("file"), "abcd");
}

TEST(CKoMemoryMappedFile, FailsWithNothingMapped)
{
    const TemporaryDirectory directory;
    directory.write("file", "abcd");
    CKoMemoryMappedFile file;
    EXPECT_EQ(errorOf([&] { return file.open(directory.file("missing").c_str()); }), ENOENT);
    ASSERT_TRUE(file.open(directory.file("file").c_str()));
    const struct
    {
        unsigned long long offset;
        unsigned int size;
    } refused[] = {{0, 0}, {1, 4}, {~0ULL, 4}};
    for (const auto& each : refused)
    {
        ASSERT_TRUE(file.map(0, 4, false));
        EXPECT_EQ(errorOf([&] { return file.map(each.offset, each.size, false); }), EINVAL) << each.offset;
        expectUnmapped(file);
    }
    ASSERT_TRUE(file.open(directory.path().c_str()));
    EXPECT_EQ(errorOf([&] { return file.map(0, 4, false); }), ENODEV);
    expectUnmapped(file);
}

TEST(CKoMemoryMappedFile, RepeatsAndTranslatesWhatThePlatformRefuses)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    CKoMemoryMappedFile memory;
    const auto map = [&] { return memory.map(0, 4096, true); };
    {
        const FailingCall interrupted(FAULT_MAP, EINTR, 2);
        EXPECT_TRUE(map());
        EXPECT_EQ(interrupted.failed(), 2U);
    }
    {
        const FailingCall unsupported(FAULT_MAP, ENOTSUP);
        EXPECT_EQ(errorOf(map), ENOSYS);
    }
    expectUnmapped(memory);
}

TEST(CKoMemoryMappedFile, GoesOnWhenAMappingCannotBeEnded)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const LogCapture log;
    void* stranded[2];
    {
        const FailingCall refused(FAULT_UNMAP, ENOMEM, 4);
        CKoMemoryMappedFile file("/dev/zero");
        ASSERT_TRUE(file.map(0, 4096, false));
        stranded[0] = file.getAddress();
        EXPECT_EQ(errorOf([&] { return file.unmap(); }), ENOMEM);
        EXPECT_EQ(file.getAddress(), stranded[0]);
        EXPECT_EQ(file.getSize(), 4096U);

        EXPECT_TRUE(file.map(0, 8192, false));
        stranded[1] = file.getAddress();
        EXPECT_NE(stranded[1], stranded[0]);
        EXPECT_TRUE(file.close());
        EXPECT_FALSE(file.isOpen());
        EXPECT_EQ(file.getAddress(), stranded[1]);
        errno = EAGAIN;
    }
    EXPECT_EQ(errno, EAGAIN);
    const std::string reason = " (operating system error 12, Cannot allocate memory)";
    EXPECT_EQ(log.texts(KoSyslog::Error),
              (std::vector<std::string>{"unmapping memory mapping failed - mapping anyway" + reason,
                                        "unmapping memory mapping failed - closing anyway" + reason,
                                        "unmapping memory mapping failed - closing anyway" + reason}));
    munmap(stranded[0], 4096);
    munmap(stranded[1], 8192);
}

} // namespace
