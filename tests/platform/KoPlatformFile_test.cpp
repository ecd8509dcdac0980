#include "pf/platform/KoPlatformFile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace
{

std::string pathOf(int descriptor)
{
    char path[512];
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t length = ::readlink(link.c_str(), path, sizeof(path));
    return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

TEST(KoPlatformFile, LeadsTheSharedMemoryDirectoryToTheHosts)
{
    if (::access("/dev/shmem", F_OK) == 0)
    {
        GTEST_SKIP() << "this host has the directory itself";
    }
    const std::string name = "ko_open_" + std::to_string(getpid());
    for (const char* prefix : {"/dev/shmem/", "/dev/shmem//", "/dev/shm/"})
    {
        const int file = KoPlatform::open((prefix + name).c_str(), O_RDWR | O_CREAT, 0600);
        ASSERT_GE(file, 0) << prefix;
        EXPECT_EQ(pathOf(file), "/dev/shm/" + name);
        EXPECT_NE(::fcntl(file, F_GETFD) & FD_CLOEXEC, 0);
        ::close(file);
    }
    ::unlink(("/dev/shm/" + name).c_str());
    for (const char* path : {"/dev/shmemory/x", "/dev/shmem/missing/x"})
    {
        EXPECT_EQ(KoPlatform::open(path, O_RDONLY), -1);
        EXPECT_EQ(errno, ENOENT) << path;
    }
}

} // namespace
