#include "pf/util/KoFileOperations.h"

#include <cerrno>
#include <cstdio>
#include <functional>
#include <set>
#include <utility>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "pf/util/KoDirectory.h"
#include "tests/support/ChannelPeers.h"
#include "tests/support/SignalStorm.h"
#include "tests/util/FileTesting.h"

namespace
{

using namespace KoTest;
using namespace KoFileOperations;
namespace files = std::filesystem;

CKoPath pathOf(const std::string& text)
{
    return text.c_str();
}

bool exists(const std::string& path)
{
    return files::symlink_status(path).type() != files::file_type::not_found;
}

/// Does something right after a name turned out to be no file, before what it is instead is looked at.
class AfterFailedUnlink
{
public:
    AfterFailedUnlink(const char* name, std::function<void()> action)
        : m_name(name)
        , m_action(std::move(action))
    {
        sActive = this;
    }
    ~AfterFailedUnlink() { sActive = nullptr; }
    AfterFailedUnlink(const AfterFailedUnlink&) = delete;
    AfterFailedUnlink& operator=(const AfterFailedUnlink&) = delete;

    static void actOn(const char* name)
    {
        const AfterFailedUnlink* const active = sActive;
        if (active == nullptr || active->m_name != name)
            return;
        sActive = nullptr;
        active->m_action();
    }

private:
    static inline const AfterFailedUnlink* sActive = nullptr;

    std::string m_name;
    std::function<void()> m_action;
};

} // namespace

/// Stands in front of the C library's function.
extern "C" int unlinkat(int directory, const char* name, int flags) noexcept
{
    const long result = syscall(SYS_unlinkat, directory, name, flags);
    const int error = errno;
    if (result != 0)
        AfterFailedUnlink::actOn(name);
    errno = error;
    return static_cast<int>(result);
}

namespace
{

TEST(KoFileOperations, RenamesLinksAndRemoves)
{
    const TemporaryDirectory directory;
    const CKoPath top = pathOf(directory.path());
    EXPECT_TRUE(makeDir(top / "dir", 0700));
    EXPECT_EQ(errorOf([&] { return makeDir(top / "dir", 0700); }), EEXIST);
    directory.write("dir/file", "text");
    EXPECT_EQ(errorOf([&] { return remove(top / "dir"); }), ENOTEMPTY);
    EXPECT_TRUE(rename(top / "dir/file", top / "file") && remove(top / "dir"));
    EXPECT_TRUE(createSymlink("file", top / "link"));
    EXPECT_EQ(directory.read("link"), "text");
    EXPECT_TRUE(remove(top / "link"));
    EXPECT_EQ(errorOf([&] { return remove(top / "link"); }), ENOENT);
    EXPECT_EQ(errorOf([&] { return rename(top / "link", top / "other"); }), ENOENT);
    EXPECT_EQ(errorOf([&] { return createSymlink("x", top / "file"); }), EEXIST);
    EXPECT_EQ(errorOf([&] { return setPermissions(top / "link", 0400); }), ENOENT);
    EXPECT_EQ(directory.names(), std::set<std::string>{"file"});
}

TEST(KoFileOperations, FillsTheStatusOfAFileAndOfALink)
{
    const TemporaryDirectory directory;
    const CKoPath top = pathOf(directory.path());
    CKoFileHandle(top / "file", O_WRONLY | O_CREAT).truncate(5ULL << 30U);
    EXPECT_TRUE(setPermissions(top / "file", 0640) && createSymlink("file", top / "link"));
    const timespec times[2] = {{1000, 123}, {-2, 999999999}};
    EXPECT_EQ(utimensat(AT_FDCWD, directory.file("file").c_str(), times, 0), 0);
    struct stat expected
    {
    };
    EXPECT_EQ(stat(directory.file("file").c_str(), &expected), 0);
    CKoFileStatus status;
    EXPECT_TRUE(getFileStatus(top / "link", status));
    EXPECT_EQ(std::make_tuple(status.st_mode, status.st_size, status.st_ino, status.st_dev, status.st_nlink),
              std::make_tuple(S_IFREG | 0640U, 5LL << 30U, expected.st_ino, expected.st_dev, 1U));
    EXPECT_EQ(std::make_tuple(status.st_uid, status.st_gid, status.st_blocks, status.st_blksize),
              std::make_tuple(geteuid(), expected.st_gid, expected.st_blocks, expected.st_blksize));
    EXPECT_EQ(std::make_tuple(status.st_atim.tv_sec, status.st_atim.tv_nsec, status.st_ctim.tv_sec),
              std::make_tuple(1000, 123, expected.st_ctim.tv_sec));
    EXPECT_EQ(std::make_tuple(status.st_mtim.tv_sec, status.st_mtim.tv_nsec), std::make_tuple(-2, 999999999));
    EXPECT_TRUE(getSymlinkStatus(top / "link", status));
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_TRUE(getFileStatus("/dev/zero", status));
    EXPECT_EQ(status.st_rdev, 0x105U);
    EXPECT_EQ(errorOf([&] { return getFileStatus(top / "none", status); }), ENOENT);
    EXPECT_EQ(errorOf([&] { return getSymlinkStatus(top / "none", status); }), ENOENT);
}

TEST(KoFileOperations, TellsARefusalFromAFailureToTell)
{
    const TemporaryDirectory directory;
    const std::string secret = directory.file("secret");
    directory.write("secret", "");
    EXPECT_TRUE(setPermissions(pathOf(secret), 0) && setPermissions(pathOf(directory.path()), 0755));
    const struct
    {
        std::string path;
        unsigned int mode;
        bool isGranted;
        bool isError;
    } cases[] = {{secret, F_OK, true, false},
                 {secret, R_OK, false, false},
                 {directory.path(), R_OK | X_OK, true, false},
                 {directory.path() + "/none", F_OK, false, true},
                 {secret + "/below", F_OK, false, true},
                 {secret, 0xFFFFU, false, true}};
    inChild(
        [&]
        {
            becomeNobody();
            for (const auto& each : cases)
            {
                bool isError = !each.isError;
                EXPECT_EQ(isGranted(pathOf(each.path), each.mode, &isError), each.isGranted) << each.path;
                EXPECT_EQ(isError, each.isError) << each.path << " " << each.mode;
                EXPECT_EQ(isGranted(pathOf(each.path), each.mode, nullptr), each.isGranted);
            }
        });
}

TEST(KoFileOperations, KnowsTheCurrentDirectoryOrNone)
{
    const TemporaryDirectory directory;
    inChild(
        [&]
        {
            const LogCapture log;
            const CKoPath top = pathOf(files::canonical(directory.path()).string());
            EXPECT_TRUE(changeDir("/tmp"));
            EXPECT_STREQ(getCurrentDir().getString().c_str(), "/tmp");
            EXPECT_EQ(errorOf([] { return changeDir("/dev/null"); }), ENOTDIR);
            EXPECT_TRUE(changeDir(top));
            // The first ends in half a character, the second is what is left without it.
            EXPECT_EQ(mkdir("half\xC3", 0700) | mkdir("half", 0700) | chdir("half\xC3"), 0);
            EXPECT_EQ(errorOf([] { return getCurrentDir().isValid(); }), EILSEQ);
            EXPECT_TRUE(changeDir(top));
            const std::string name(100, 'd');
            while (getCurrentDir().isValid())
                ASSERT_EQ(mkdir(name.c_str(), 0700) | chdir(name.c_str()), 0);
            EXPECT_EQ(errno, ERANGE);
            EXPECT_TRUE(changeDir(".."));
            EXPECT_GT(getCurrentDir().getString().byteLength(), 1023U - 101U);
        });
}

TEST(KoFileOperations, NamesTheTypeOfTheFileSystem)
{
    char name[16] = {};
    EXPECT_TRUE(getFileSystemType("/proc/self", name, sizeof(name)));
    EXPECT_STREQ(name, "proc");
    EXPECT_TRUE(getFileSystemType("/proc", name, 5U));
    EXPECT_EQ(errorOf([&] { return getFileSystemType("/proc", name, 4U); }), EINVAL);
    EXPECT_EQ(errorOf([&] { return getFileSystemType("/proc", name, 0U); }), EINVAL);
    EXPECT_EQ(errorOf([&] { return getFileSystemType("/proc", nullptr, 16U); }), EINVAL);
    EXPECT_EQ(errorOf([&] { return getFileSystemType("/missing", name, 16U); }), ENOENT);
}

TEST(KoFileOperations, CreatesWhatIsMissingAboveADirectory)
{
    const TemporaryDirectory directory;
    directory.write("file", "");
    files::create_symlink("nowhere", directory.file("dangling"));
    files::create_directory(directory.file("dir"));
    files::create_directory_symlink("dir", directory.file("link"));
    const std::string top = directory.path();
    const struct
    {
        std::string path;
        int error;
    } cases[] = {{top + "/a/b/c", 0},
                 {top + "/a/b/c", EEXIST},
                 {top + "/a//b///e/", 0},
                 {top + "/link/x", 0},
                 {top + "/file/x/y", ENOTDIR},
                 {"", ENOENT},
                 {"/", 0},
                 {"//proc//", 0},
                 {"/dev/null/x", ENOTDIR},
                 {"single", 0},
                 {"single", 0},
                 {"link", 0},
                 {"file", ENOTDIR},
                 {"dangling", EEXIST},
                 {"r/s/t", 0}};
    inChild(
        [&]
        {
            umask(0);
            EXPECT_TRUE(changeDir(pathOf(top)));
            for (const auto& each : cases)
            {
                const CKoPath path = pathOf(each.path);
                EXPECT_EQ(errorOf([&] { return makeDirRecursive(path, 0711); }), each.error) << each.path;
                EXPECT_TRUE(each.error != 0 || files::is_directory(each.path)) << each.path;
            }
            for (const char* created : {"a", "a/b", "a/b/c", "r/s", "single", "dir/x"})
                EXPECT_EQ(files::status(created).permissions(), files::perms(0711)) << created;
        });
}

/// A directory to be removed beside one that its links lead to.
class LinkedTree : public TemporaryDirectory
{
public:
    LinkedTree()
    {
        files::create_directories(file("tree/a/b/c"));
        files::create_directories(file("outside/kept"));
        for (const char* name : {"outside/kept/file", "tree/a/file", "tree/a/b/\xFF"})
            write(name, "");
        EXPECT_EQ(mkfifo(file("tree/a/b/pipe").c_str(), 0600), 0);
        files::create_directory_symlink(file("outside"), file("tree/a/link"));
        files::create_symlink(file("outside/kept/file"), file("tree/link"));
        files::create_symlink("nowhere", file("tree/a/dangling"));
        files::create_directory_symlink("../..", file("tree/a/b/up"));
    }

    CKoPath at(const char* name) const { return pathOf(file(name)); }
    bool isOutsideWhole() const { return exists(file("outside/kept/file")); }
};

TEST(KoFileOperations, RemovesATreeAndFollowsNoLink)
{
    const LinkedTree tree;
    const std::ptrdiff_t before = openDescriptors();
    EXPECT_EQ(errorOf([&] { return recursiveRemove(tree.at("tree/a/link/")); }), ENOTDIR);
    EXPECT_EQ(errorOf([&] { return recursiveRemove(tree.at("tree/a/file/")); }), ENOTDIR);
    EXPECT_TRUE(recursiveRemove(tree.at("tree/link")) && recursiveRemove(tree.at("tree/a/file")));
    EXPECT_EQ(errorOf([&] { return recursiveRemove(tree.at("tree/a/file")); }), ENOENT);
    EXPECT_EQ(errorOf([&] { return recursiveRemove(""); }), ENOENT);
    EXPECT_TRUE(exists(tree.file("tree/a/link")));
    {
        const SignalStorm storm(SignalStorm::CALLING_THREAD, 200);
        EXPECT_TRUE(recursiveRemove(tree.at("tree//")));
    }
    EXPECT_EQ(tree.names(), std::set<std::string>{"outside"});
    EXPECT_TRUE(tree.isOutsideWhole());
    EXPECT_EQ(openDescriptors(), before);
}

TEST(KoFileOperations, IsNotTrickedByADirectoryThatBecomesALink)
{
    const LinkedTree tree;
    files::create_directories(tree.file("tree/victim"));
    const AfterFailedUnlink attack("victim",
                                   [&]
                                   {
                                       files::remove(tree.file("tree/victim"));
                                       files::create_symlink(tree.file("outside"), tree.file("tree/victim"));
                                   });
    EXPECT_FALSE(recursiveRemove(tree.at("tree")));
    EXPECT_TRUE(files::is_symlink(tree.file("tree/victim")));
    EXPECT_TRUE(tree.isOutsideWhole());
}

TEST(KoFileOperations, MakesAndRemovesDeepTreesAndCutsNoName)
{
    const TemporaryDirectory directory;
    std::string deep = directory.file("deep");
    while (deep.size() < 900)
        deep += "/d";
    EXPECT_TRUE(makeDirRecursive(pathOf(deep), 0700));
    inChild(
        [&]
        {
            // Only when it is cut, the longer name is that of its neighbour.
            const std::string fitting(1023 - deep.size() - 1, 'n');
            const std::string longer = fitting + "n";
            ASSERT_EQ(chdir(deep.c_str()) | mkdir(longer.c_str(), 0700), 0);
            EXPECT_EQ(errorOf([&] { return recursiveRemove(pathOf(directory.file("deep"))); }), ENAMETOOLONG);
            EXPECT_EQ(::rename(longer.c_str(), fitting.c_str()), 0);
        });
    EXPECT_TRUE(recursiveRemove(pathOf(directory.file("deep"))));
    EXPECT_TRUE(directory.names().empty());
}

TEST(KoFileOperations, StopsWherePermissionEnds)
{
    const TemporaryDirectory directory;
    EXPECT_TRUE(setPermissions(pathOf(directory.path()), 0777));
    inChild(
        [&]
        {
            becomeNobody();
            const CKoPath locked = pathOf(directory.file("locked"));
            CKoFileHandle file;
            CKoPath name = locked / "u*";
            EXPECT_TRUE(makeDirRecursive(locked / "inside", 0700));
            directory.write("locked/file", "");
            EXPECT_TRUE(setPermissions(locked, 0500));
            EXPECT_EQ(errorOf([&] { return recursiveRemove(locked / "file"); }), EACCES);
            EXPECT_EQ(errorOf([&] { return recursiveRemove(locked); }), EACCES);
            EXPECT_EQ(errorOf([&] { return makeDirRecursive(locked / "x/y", 0700); }), EACCES);
            EXPECT_EQ(errorOf([&] { return createUniqueFile(name, file); }), EACCES);
            EXPECT_EQ(std::string(name.getString().c_str()).find('*'), std::string::npos);
            EXPECT_TRUE(setPermissions(locked, 0300));
            EXPECT_EQ(errorOf([&] { return recursiveRemove(locked); }), EACCES);
            EXPECT_TRUE(exists(directory.file("locked/file")));
            EXPECT_TRUE(setPermissions(locked, 0700) && recursiveRemove(locked));
        });
}

TEST(KoFileOperations, NamesAUniqueFileAfterItsTemplate)
{
    const TemporaryDirectory directory;
    const std::string top = directory.path();
    const std::string unique = "[0-9]+-1-[0-9]+-[0-9]+";
    const struct
    {
        std::string given;
        std::string expected; ///< a pattern; empty for a template that is refused
    } cases[] = {{top + "/log*.txt", top + "/log" + unique + "\\.txt"},
                 {top + "/a*b*c", top + "/a\\*b" + unique + "c"},
                 {top + "/100%s*%n", top + "/100%s" + unique + "%n"},
                 {"here*", "here" + unique},
                 {"./\xC3\xA4*", "\\./\xC3\xA4" + unique},
                 {top + "/no mark", ""},
                 {top + "/*/leaf", ""},
                 {"", ""},
                 {std::string(1024, '*'), ""},
                 {top + std::string(1020 - top.size(), '/') + "*", ""}};
    inChild(
        [&]
        {
            EXPECT_TRUE(changeDir(pathOf(top)));
            for (const auto& each : cases)
            {
                CKoPath name = pathOf(each.given);
                CKoFileHandle file("/dev/null", O_RDONLY);
                const int expected = each.expected.empty() ? EINVAL : 0;
                EXPECT_EQ(errorOf([&] { return createUniqueFile(name, file); }), expected) << each.given;
                const std::string text = name.getString().c_str();
                EXPECT_TRUE(expected == 0 || text == each.given) << text;
                EXPECT_THAT(expected == 0 ? text : "", testing::MatchesRegex(each.expected));
                EXPECT_TRUE(expected != 0 || (file.writeN("x", 1U, -1) && files::file_size(text) == 1U));
            }
        });
}

TEST(KoFileOperations, GivesEveryThreadAndProcessAFileOfItsOwn)
{
    constexpr int THREADS = 4;
    const int count = slowness() == 1 ? 50 : 20;
    const TemporaryDirectory directory;
    const auto create = [&](int)
    {
        for (int i = 0; i < count; ++i)
        {
            CKoPath name = pathOf(directory.file("u*"));
            CKoFileHandle file;
            EXPECT_TRUE(createUniqueFile(name, file)) << errno;
            EXPECT_TRUE(file.writeN(name.getString().c_str(), name.getString().byteLength(), -1));
        }
    };
    {
        Peer first(IN_PROCESS, [&] { inThreads(THREADS, create); });
        Peer second(IN_PROCESS, [&] { inThreads(THREADS, create); });
        inThreads(THREADS, create);
    }
    const std::set<std::string> names = directory.names();
    EXPECT_EQ(names.size(), static_cast<std::size_t>(3 * THREADS * count));
    for (const std::string& name : names)
        EXPECT_EQ(directory.read(name), directory.file(name));
}

TEST(KoFileOperations, GoesAroundPlantedLinks)
{
    const TemporaryDirectory directory;
    CKoFileHandle file;
    CKoPath name = pathOf(directory.file("u*"));
    ASSERT_TRUE(createUniqueFile(name, file));
    unsigned int process = 0U, thread = 0U, seconds = 0U, number = 0U;
    constexpr char FORMAT[] = "u%u-%u-%u-%u";
    ASSERT_EQ(std::sscanf(name.getLeaf().c_str(), FORMAT, &process, &thread, &seconds, &number), 4);
    for (unsigned int time = seconds; time < seconds + 60U; ++time)
        for (unsigned int next = number + 1U; next <= number + 3U; ++next)
        {
            char planted[64];
            std::snprintf(planted, sizeof(planted), FORMAT, process, thread, time, next);
            files::create_symlink("victim", directory.file(planted));
        }
    name = pathOf(directory.file("u*"));
    ASSERT_TRUE(createUniqueFile(name, file));
    EXPECT_FALSE(exists(directory.file("victim")));
    unsigned int found = 0U;
    ASSERT_EQ(std::sscanf(name.getLeaf().c_str(), FORMAT, &process, &thread, &seconds, &found), 4);
    EXPECT_EQ(found, number + 4U);
}

TEST(KoFileOperations, FailsCleanlyWithoutDescriptors)
{
    const LinkedTree tree;
    inChild(
        [&]
        {
            const std::ptrdiff_t before = openDescriptors();
            const int lowest = dup(0);
            close(lowest);
            for (int left = 0; left < 3; ++left)
            {
                limit(RLIMIT_NOFILE, static_cast<rlim_t>(lowest + left));
                CKoFileHandle first;
                CKoFileHandle file;
                CKoPath name = tree.at("u*");
                EXPECT_EQ(errorOf([&] { return first.open("/", O_RDONLY); }), left == 0 ? EMFILE : 0);
                EXPECT_EQ(errorOf([&] { return createUniqueFile(name, file); }), left < 2 ? EMFILE : 0);
                EXPECT_EQ(exists(name.getString().c_str()), file.isOpen());
                file.close();
                EXPECT_EQ(errorOf([&] { return recursiveRemove(tree.at("tree")); }), EMFILE);
                EXPECT_TRUE(exists(tree.file("tree/a/b/c")));
            }
            limit(RLIMIT_NOFILE, static_cast<rlim_t>(lowest));
            EXPECT_EQ(errorOf([] { return vanta_qnx_safe_opendir("/") != nullptr; }), EMFILE);
            limit(RLIMIT_NOFILE, static_cast<rlim_t>(lowest + 8));
            EXPECT_EQ(openDescriptors(), before);
            EXPECT_TRUE(recursiveRemove(tree.at("tree")));
        });
    EXPECT_TRUE(tree.isOutsideWhole());
}

/// Lets this process mount what only it sees, as a superuser of its own where it is none.
bool getMountsOfItsOwn()
{
    const std::string user = "0 " + std::to_string(geteuid()) + " 1";
    const std::string group = "0 " + std::to_string(getegid()) + " 1";
    if (unshare(CLONE_NEWNS) != 0)
    {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return false;
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << user;
        std::ofstream("/proc/self/gid_map") << group;
    }
    return mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

TEST(KoFileOperations, ReportsAFullFileSystem)
{
    constexpr int NOT_PERMITTED = 7;
    const TemporaryDirectory directory;
    const ChildResult result = ChildProcess::run(
        [&]
        {
            if (!getMountsOfItsOwn() ||
                mount("none", directory.path().c_str(), "tmpfs", 0, "size=64k,nr_inodes=4") != 0)
                return NOT_PERMITTED;
            const CKoPath top = pathOf(directory.path());
            char type[16] = {};
            EXPECT_TRUE(getFileSystemType(top, type, sizeof(type)));
            EXPECT_STREQ(type, "tmpfs");
            const std::string bytes(100000, 'b');
            CKoFileHandle file;
            CKoPath name = top / "*";
            EXPECT_TRUE(createUniqueFile(name, file));
            for (const int timeoutMs : {-1, 50})
            {
                EXPECT_TRUE(file.truncate(0ULL) && file.seek(0LL, SEEK_DIRECTION_BEGIN));
                EXPECT_EQ(errorOf([&] { return file.writeN(bytes.data(), 100000U, timeoutMs); }), ENOSPC);
                EXPECT_EQ(file.tell(), 65536);
                EXPECT_TRUE(directory.read(name.getLeaf().c_str()) == bytes.substr(0, 65536));
            }
            EXPECT_EQ(errorOf([&] { return makeDirRecursive(top / "a/b/c", 0700); }), ENOSPC);
            EXPECT_TRUE(exists(directory.file("a/b")));
            name = top / "*";
            EXPECT_EQ(errorOf([&] { return createUniqueFile(name, file); }), ENOSPC);
            EXPECT_EQ(errorOf([&] { return createSymlink("x", top / "link"); }), ENOSPC);
            EXPECT_TRUE(recursiveRemove(top / "a"));
            return 0;
        });
    if (result.exitStatus == NOT_PERMITTED)
        GTEST_SKIP() << "no mounts here";
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
}

} // namespace
