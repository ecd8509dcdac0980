#include "pf/platform/KoSharedMemoryDraft.h"

#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/platform/KoPlatformRetry.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace
{

/// "/proc/self/fd/" and a number.
constexpr std::size_t DESCRIPTOR_PATH = 32;

/// A process that had this one's id and was killed may have left some.
constexpr int HIDDEN_NAME_TRIES = 64;

bool isNameOfItself(const char* name, std::size_t length)
{
    return (length == 1 && name[0] == '.') || (length == 2 && name[0] == '.' && name[1] == '.');
}

} // namespace

namespace KoPlatform
{

bool SharedMemoryPath::set(const char* name) noexcept
{
    if (name == nullptr)
    {
        errno = EINVAL;
        return false;
    }
    name += std::strspn(name, "/");
    const std::size_t length = ::strnlen(name, SHARED_MEMORY_NAME_MAX + 1U);
    if (length == 0 || length > SHARED_MEMORY_NAME_MAX || isNameOfItself(name, length) ||
        std::memchr(name, '/', length) != nullptr)
    {
        errno = EINVAL;
        return false;
    }
    constexpr std::size_t DIRECTORY_LENGTH = sizeof(SHARED_MEMORY_DIRECTORY) - 1;
    std::memcpy(m_path, SHARED_MEMORY_DIRECTORY, DIRECTORY_LENGTH);
    m_path[DIRECTORY_LENGTH] = '/';
    std::memcpy(m_path + DIRECTORY_LENGTH + 1, name, length + 1);
    return true;
}

/// Never through a symbolic link, which anybody may have put into a directory that all may write.
int openSharedMemory(const char* path, int flags, mode_t mode) noexcept
{
    return repeatInterrupted(
        [=] { return ::openat(AT_FDCWD, path, O_RDWR | O_NOFOLLOW | O_CLOEXEC | flags, mode); });
}

SharedMemoryDraft::~SharedMemoryDraft()
{
    const KoErrnoGuard guard;
    if (m_isHidden)
    {
        ::unlink(m_hidden.c_str());
    }
    if (m_descriptor != -1)
    {
        ::close(m_descriptor);
    }
}

bool SharedMemoryDraft::create(mode_t mode) noexcept
{
    m_descriptor = openSharedMemory(SHARED_MEMORY_DIRECTORY, O_TMPFILE, mode);
    if (m_descriptor != -1)
    {
        return true;
    }
    const bool hasUnnamedFiles = errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL;
    return !hasUnnamedFiles && createHidden(mode);
}

bool SharedMemoryDraft::createHidden(mode_t mode) noexcept
{
    static std::atomic<unsigned int> sCount{0};
    for (int tries = 0; tries < HIDDEN_NAME_TRIES; ++tries)
    {
        char name[SHARED_MEMORY_NAME_MAX];
        // Relaxed: the numbers only have to differ.
        const unsigned int number = sCount.fetch_add(1U, std::memory_order_relaxed);
        std::snprintf(name, sizeof(name), ".sys_vanta-%d-%u", static_cast<int>(::getpid()), number);
        m_hidden.set(name);
        m_descriptor = openSharedMemory(m_hidden.c_str(), O_CREAT | O_EXCL, mode);
        m_isHidden = m_descriptor != -1;
        if (m_isHidden || errno != EEXIST)
        {
            return m_isHidden;
        }
    }
    return false;
}

bool SharedMemoryDraft::begin(const unsigned int* firstWord) noexcept
{
    if (firstWord == nullptr)
    {
        return true;
    }
    const ssize_t written =
        repeatInterrupted([=] { return ::pwrite(m_descriptor, firstWord, sizeof(*firstWord), 0); });
    return written == static_cast<ssize_t>(sizeof(*firstWord)) && shm_mark(m_descriptor) == 0;
}

bool SharedMemoryDraft::publish(const SharedMemoryPath& path) noexcept
{
    return m_isHidden ? ::link(m_hidden.c_str(), path.c_str()) == 0 : publishUnnamed(path);
}

/// By the descriptor itself, which not every kernel lets every process do (`ENOENT`), or by its path.
bool SharedMemoryDraft::publishUnnamed(const SharedMemoryPath& path) noexcept
{
    if (::linkat(m_descriptor, "", AT_FDCWD, path.c_str(), AT_EMPTY_PATH) == 0)
    {
        return true;
    }
    if (errno != ENOENT)
    {
        return false;
    }
    char self[DESCRIPTOR_PATH];
    std::snprintf(self, sizeof(self), "/proc/self/fd/%d", m_descriptor);
    return ::linkat(AT_FDCWD, self, AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

int SharedMemoryDraft::take() noexcept
{
    const int taken = m_descriptor;
    m_descriptor = -1;
    return taken;
}

} // namespace KoPlatform
