#include "pf/oswrapper/KoSharedMemoryAccess.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>

#include <csignal>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/CKoReferencedSharedMemory.h"
#include "pf/oswrapper/CKoShMem.h"
#include "pf/oswrapper/CKoSharedMemory.h"
#include "tests/oswrapper/SharedMemorySupport.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/SignalStorm.h"

namespace
{

using namespace KoSharedMemoryAccess;
using KoTest::ObjectName;

constexpr unsigned int PAGE = 4096;

std::ptrdiff_t openDescriptors()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

TEST(KoSharedMemoryAccess, OpensAsTheModeSays)
{
    struct Case
    {
        unsigned int mode;
        int errorWhenMissing;
        long long sizeWhenMissing;
        int errorWhenThere;
        long long sizeWhenThere;
    };
    for (const Case& each :
         {Case{OPEN_EXISTING, ENOENT, -1, 0, 100}, Case{CREATE_IF_MISSING, 0, 0, 0, 100},
          Case{EXCLUSIVE, ENOENT, -1, 0, 5000}, Case{CREATE_EXCLUSIVE, 0, 5000, EEXIST, 100},
          Case{OPEN_EXISTING | SET_SIZE, ENOENT, -1, 0, 5000},
          Case{CREATE_IF_MISSING | SET_SIZE, 0, 5000, 0, 5000},
          Case{CREATE_EXCLUSIVE | SET_SIZE, 0, 5000, EEXIST, 100}, Case{4, EINVAL, -1, EINVAL, 100}})
    {
        SCOPED_TRACE(each.mode);
        const std::ptrdiff_t before = openDescriptors();
        for (const bool isThere : {false, true})
        {
            const ObjectName name;
            if (isThere)
                KoSharedMemoryAccess::close(KoSharedMemoryAccess::open(name, 100, CREATE_EXCLUSIVE));
            errno = 0;
            const int descriptor = KoSharedMemoryAccess::open(name, 5000, each.mode);
            const int error = isThere ? each.errorWhenThere : each.errorWhenMissing;
            EXPECT_EQ(descriptor == -1 ? errno : 0, error);
            EXPECT_EQ(KoSharedMemoryAccess::close(descriptor), error == 0);
            EXPECT_EQ(name.size(), isThere ? each.sizeWhenThere : each.sizeWhenMissing);
        }
        EXPECT_EQ(openDescriptors(), before);
    }
}

TEST(KoSharedMemoryAccess, RefusesWhatCannotBe)
{
    const std::string longest(255, 'n');
    const std::string tooLong = longest + 'n';
    for (const char* name : {static_cast<const char*>(nullptr), "", "/", "//", "a/b", "/a/b", "..", "/.",
                             "../tmp/x", tooLong.c_str()})
        for (const unsigned int mode : {OPEN_EXISTING, CREATE_IF_MISSING, CREATE_EXCLUSIVE})
        {
            EXPECT_EQ(KoSharedMemoryAccess::open(name, PAGE, mode), -1);
            EXPECT_EQ(errno, EINVAL);
            EXPECT_FALSE(KoSharedMemoryAccess::unlink(name));
            EXPECT_EQ(errno, EINVAL);
        }
    EXPECT_TRUE(
        KoSharedMemoryAccess::close(KoSharedMemoryAccess::open(longest.c_str(), 1, CREATE_EXCLUSIVE)));
    EXPECT_TRUE(KoSharedMemoryAccess::unlink(longest.c_str()));
    EXPECT_FALSE(KoSharedMemoryAccess::unlink(longest.c_str()));
    EXPECT_EQ(errno, ENOENT);

    const ObjectName name;
    const int descriptor = KoSharedMemoryAccess::open(name, PAGE + 100, CREATE_EXCLUSIVE);
    struct Case
    {
        int descriptor;
        unsigned int size, offset, flags;
        int error; ///< 0 = it maps
    };
    for (const Case& each :
         {Case{-1, PAGE, 0, MAP_READ_ONLY, EINVAL}, Case{descriptor, 0, 0, MAP_READ_ONLY, EINVAL},
          Case{descriptor, PAGE, 0, 3, EINVAL}, Case{descriptor, PAGE, 1, MAP_READ_ONLY, EINVAL},
          Case{descriptor, 2 * PAGE, 0, MAP_READ_WRITE, 0},
          Case{descriptor, 2 * PAGE + 1, 0, MAP_READ_WRITE, ENXIO},
          Case{descriptor, PAGE, PAGE, MAP_WRITE_ONLY | MAP_LAZY, 0},
          Case{descriptor, 1, 2 * PAGE, MAP_READ_ONLY, ENXIO},
          Case{descriptor, 0xFFFFFFFFU, 0xFFFFF000U, MAP_READ_ONLY, ENXIO}})
    {
        errno = 0;
        void* const address = KoSharedMemoryAccess::map(each.descriptor, each.size, each.offset, each.flags);
        EXPECT_EQ(address == nullptr ? errno : 0, each.error) << each.size << " at " << each.offset;
        EXPECT_TRUE(address == nullptr || KoSharedMemoryAccess::unmap(address, each.size));
    }
    KoSharedMemoryAccess::close(descriptor);
    EXPECT_FALSE(KoSharedMemoryAccess::close(descriptor));
    EXPECT_FALSE(KoSharedMemoryAccess::unmap(nullptr, 0));
}

TEST(KoSharedMemoryAccess, NeverFollowsALink)
{
    const ObjectName target;
    const ObjectName link;
    KoSharedMemoryAccess::close(KoSharedMemoryAccess::open(target, PAGE, CREATE_EXCLUSIVE));
    std::filesystem::create_symlink(target.path(), link.path());
    for (const unsigned int mode : {OPEN_EXISTING, CREATE_IF_MISSING, CREATE_EXCLUSIVE})
        EXPECT_EQ(KoSharedMemoryAccess::open(link, PAGE, mode), -1);
    EXPECT_EQ(target.size(), PAGE);
}

TEST(KoSharedMemoryAccess, MapsReadOnlySoThatWritingIsRefusedByTheProcessor)
{
    const ObjectName name;
    CKoShMem writer(name, PAGE);
    ASSERT_EQ(writer.create(false), CKoShMem::CREATED);
    ASSERT_TRUE(writer.map(MAP_READ_WRITE | MAP_ZEROED));
    auto* const written = static_cast<volatile char*>(writer.getAddress());
    written[PAGE - 1] = 'x';
    const KoTest::ChildResult result = KoTest::ChildProcess::run(
        [&]
        {
            // Sanitizers would report the fault instead.
            signal(SIGSEGV, SIG_DFL);
            CKoShMem reader(name, PAGE);
            if (!reader.attach() || !reader.map(MAP_READ_ONLY | MAP_LAZY))
                return 1;
            auto* const read = static_cast<volatile char*>(reader.getAddress());
            if (read[PAGE - 1] != 'x')
                return 2;
            read[0] = 'y';
            return 3;
        });
    EXPECT_EQ(result.signal, SIGSEGV) << result.describe();
    EXPECT_EQ(written[0], '\0');
}

TEST(KoSharedMemoryAccess, SetsMemoryAsideThroughInterruptions)
{
    constexpr unsigned int SIZE = 16U << 20U;
    const ObjectName name;
    const KoTest::SignalStorm storm(KoTest::SignalStorm::CALLING_THREAD,
                                    500 * static_cast<long>(KoTest::slowness()));
    const int descriptor = KoSharedMemoryAccess::open(name, SIZE, CREATE_EXCLUSIVE);
    struct stat status = {};
    EXPECT_EQ(fstat(descriptor, &status), 0);
    EXPECT_GE(status.st_blocks, static_cast<blkcnt_t>(SIZE / 512));
    KoSharedMemoryAccess::close(descriptor);
}

TEST(KoSharedMemoryAccess, MakesObjectsWhereTheHostHasNoFilesWithoutNames)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const ObjectName name;
    {
        const KoTest::FailingCall noUnnamedFiles(KoTest::FAULT_OPEN, EOPNOTSUPP);
        KoSharedMemoryAccess::close(KoSharedMemoryAccess::open(name, PAGE, CREATE_EXCLUSIVE));
        EXPECT_EQ(noUnnamedFiles.failed(), 1U);
    }
    EXPECT_EQ(name.size(), PAGE);
    const std::string hidden = ".sys_vanta-" + std::to_string(getpid());
    for (const auto& entry : std::filesystem::directory_iterator(KoTest::HOST_DIRECTORY))
        EXPECT_NE(entry.path().filename().string().rfind(hidden, 0), 0U) << entry;
}

/// Runs with a shared-memory directory of its own, of 1 MiB; 77 where the process may not have one.
int withSmallDirectory(const std::function<int()>& body)
{
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/dev/shm", "tmpfs", 0, "size=1m") != 0)
        return 77;
    CKoAsserter::setExpectedAssertions(0xFFFFFFFFU);
    CKoAsserter::setOccuredAssertions(0);
    return body();
}

int fillDirectory(const ObjectName& name)
{
    constexpr unsigned int TOO_MUCH = 3U << 20U;
    EXPECT_EQ(KoSharedMemoryAccess::open(name, TOO_MUCH, CREATE_EXCLUSIVE), -1);
    EXPECT_EQ(errno, ENOSPC);
    CKoSharedMemory first(name, TOO_MUCH);
    EXPECT_TRUE(first.map(false, false, true));
    EXPECT_EQ(first.getAddress(), nullptr);
    EXPECT_TRUE(first.map2(false, true, false));
    EXPECT_EQ(first.getAddress(), nullptr);
    EXPECT_FALSE(CKoReferencedSharedMemory::create(name, TOO_MUCH));
    EXPECT_EQ(CKoAsserter::getOccuredAssertions(), 5U);
    EXPECT_TRUE(std::filesystem::is_empty(KoTest::HOST_DIRECTORY));

    CKoShMem small(name, PAGE);
    EXPECT_EQ(small.create(false), CKoShMem::CREATED);
    EXPECT_TRUE(small.map(MAP_READ_WRITE));
    CKoShMem grown(name, TOO_MUCH);
    EXPECT_EQ(grown.create(true), CKoShMem::FAILED);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(name.size(), PAGE) << "as it was";
    std::memset(small.getAddress(), 1, PAGE);
    const ObjectName rest;
    EXPECT_NE(KoSharedMemoryAccess::open(rest, 900U << 10U, CREATE_EXCLUSIVE), -1) << "nothing is held back";
    return testing::Test::HasFailure() ? 1 : 0;
}

TEST(KoSharedMemoryAccess, ReportsAFullMemoryFileSystemWhenTheSizeIsSetAndLeavesNothingBehind)
{
    const ObjectName name;
    const std::string text = name.c_str();
    const KoTest::ChildResult result =
        KoTest::ChildProcess::run([&] { return withSmallDirectory([&] { return fillDirectory(name); }); });
    if (result.exitStatus == 77)
        GTEST_SKIP() << "the host does not let the test mount a file system";
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    const std::string line =
        "Unable to create file mapping handle named " + text + ": No space left on device";
    EXPECT_EQ(result.logTexts(),
              (std::vector<std::string>{line, line, "Could not create shared memory " + text}));
}

TEST(KoSharedMemoryAccess, RefusesASizeBeyondTheLimitOfTheProcessInsteadOfDying)
{
    const KoTest::ChildResult result = KoTest::ChildProcess::run(
        []
        {
            const rlimit limit{8 * PAGE, 8 * PAGE};
            setrlimit(RLIMIT_FSIZE, &limit);
            const ObjectName name;
            return KoSharedMemoryAccess::open(name, 9 * PAGE, CREATE_EXCLUSIVE) == -1 && errno == EFBIG &&
                           !name.exists() &&
                           KoSharedMemoryAccess::open(name, 8 * PAGE, CREATE_EXCLUSIVE) != -1
                       ? 0
                       : 1;
        });
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
}

TEST(CKoShMem, CreatesOrOpensAndMapsOncePerOpening)
{
    const ObjectName name;
    const std::ptrdiff_t before = openDescriptors();
    {
        CKoShMem first(name, 100);
        EXPECT_FALSE(first.attach());
        EXPECT_EQ(errno, ENOENT);
        EXPECT_FALSE(first);
        EXPECT_FALSE(first.map(MAP_READ_WRITE));
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(first.create(false), CKoShMem::CREATED);
        CKoShMem second(name, 100);
        EXPECT_EQ(second.create(false), CKoShMem::OPENED);
        EXPECT_TRUE(second.attach());
        ASSERT_TRUE(first.map(MAP_READ_WRITE));
        ASSERT_TRUE(second.map(MAP_READ_WRITE));
        std::memcpy(first.getAddress(), "shared", 7);
        EXPECT_STREQ(static_cast<const char*>(second.getAddress()), "shared");
        EXPECT_TRUE(second);

        EXPECT_FALSE(first.map(MAP_READ_WRITE)) << "the opening has served its mapping";
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(first.getAddress(), nullptr);

        CKoShMem larger(name, 3 * PAGE);
        EXPECT_EQ(larger.create(false), CKoShMem::OPENED);
        EXPECT_FALSE(larger.map(MAP_READ_WRITE)) << "pages that are not there";
        EXPECT_EQ(errno, ENXIO);
        EXPECT_EQ(larger.create(true), CKoShMem::OPENED);
        EXPECT_EQ(name.size(), 3 * PAGE);
        EXPECT_TRUE(larger.map(MAP_READ_WRITE)) << "the descriptor was kept";
        EXPECT_TRUE(larger.unlink());
        EXPECT_FALSE(larger.unlink());
        EXPECT_STREQ(static_cast<const char*>(larger.getAddress()), "shared") << "only the name is gone";
        CKoShMem open(name, 100);
        EXPECT_EQ(open.create(false), CKoShMem::CREATED);
    }
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(name.size(), 100) << "a destructor removes no name";
}

TEST(CKoShMem, ReportsAMissingNameAndSize)
{
    const KoTest::ReportCase cases[] = {
        {"CKoShMem: ???", [] { const CKoShMem nameless(nullptr, 100); }},
        {"CKoShMem: ???", [] { const CKoShMem empty("", 100); }},
        {"CKoShMem: ???", [] { const CKoShMem sizeless("/ko-test-sizeless", 0); }},
        {"CKoShMem: ???",
         []
         {
             CKoShMem nameless(nullptr, 100);
             EXPECT_EQ(nameless.create(true), CKoShMem::FAILED);
             EXPECT_FALSE(nameless.attach());
             EXPECT_FALSE(nameless.map(MAP_READ_WRITE));
             EXPECT_FALSE(nameless.unlink());
         }},
    };
    KoTest::expectReports(cases, [] {});
}

} // namespace
