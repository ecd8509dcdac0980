#include "pf/platform/KoPlatformFile.h"

#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/platform/KoFailure.h"
#include "pf/platform/KoPlatformRetry.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace
{

using namespace KoPlatform;

/// A descriptor that is closed at the end of the scope, without disturbing `errno`.
class OwnedDescriptor
{
public:
    explicit OwnedDescriptor(int descriptor)
        : m_descriptor(descriptor)
    {
    }
    ~OwnedDescriptor()
    {
        const KoErrnoGuard guard;
        if (m_descriptor != -1)
        {
            ::close(m_descriptor);
        }
    }
    OwnedDescriptor(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;

    int get() const { return m_descriptor; }

private:
    const int m_descriptor;
};

/// One of the kernel's tables, read word by word in small pieces.
class Table
{
public:
    explicit Table(const char* path)
        : m_file(KoPlatform::open(path, O_RDONLY | O_CLOEXEC))
    {
    }

    bool isOpen() const { return m_file.get() != -1; }

    /// Reads the next word, cut to what a type's name may have. \return false at the end of the table.
    bool next()
    {
        std::size_t length = 0;
        for (m_end = get(); m_end != ' ' && m_end != '\t' && m_end != '\n' && m_end != '\0'; m_end = get())
        {
            if (length < sizeof(m_word) - 1)
            {
                m_word[length++] = m_end;
            }
        }
        m_word[length] = '\0';
        return m_end != '\0';
    }

    /// Reads on to a word within the line. \return whether it is there.
    bool skipTo(const char* word)
    {
        while (next() && !isAtEndOfLine())
        {
            if (std::strcmp(m_word, word) == 0)
            {
                return true;
            }
        }
        return false;
    }

    void skipLine()
    {
        while (!isAtEndOfLine() && next())
        {
        }
    }

    const char* word() const { return m_word; }

private:
    bool isAtEndOfLine() const { return m_end == '\n' || m_end == '\0'; }

    /// The next character, 0 at the end.
    char get()
    {
        if (m_position == m_length)
        {
            m_position = 0;
            const ssize_t length =
                repeatInterrupted([this] { return ::read(m_file.get(), m_chunk, sizeof(m_chunk)); });
            m_length = length > 0 ? static_cast<std::size_t>(length) : 0;
        }
        return m_length == 0 ? '\0' : m_chunk[m_position++];
    }

    OwnedDescriptor m_file;
    char m_word[FILE_SYSTEM_TYPE_SIZE] = {};
    char m_end = '\0';
    std::size_t m_position = 0;
    std::size_t m_length = 0;
    char m_chunk[512];
};

/// A table that is missing says nothing about the path that the caller asked for.
int failWithoutTable()
{
    return failWith(errno == ENOENT ? ENOTSUP : errno);
}

/// The number of the mount that an open file is on, as text.
int findMount(int file, char (&mount)[FILE_SYSTEM_TYPE_SIZE])
{
    char path[sizeof("/proc/self/fdinfo/") + 10];
    std::snprintf(path, sizeof(path), "/proc/self/fdinfo/%d", file);
    Table information(path);
    if (!information.isOpen())
    {
        return failWithoutTable();
    }
    while (information.next())
    {
        const bool isMount = std::strcmp(information.word(), "mnt_id:") == 0;
        if (isMount && information.next())
        {
            std::memcpy(mount, information.word(), sizeof(mount));
            return 0;
        }
    }
    return failWith(ENOTSUP);
}

/// Looks the mount up among lines of "number parent device root point options [tags] - type source options".
int findType(const char* mount, char (&type)[FILE_SYSTEM_TYPE_SIZE])
{
    Table mounts("/proc/self/mountinfo");
    if (!mounts.isOpen())
    {
        return failWithoutTable();
    }
    while (mounts.next())
    {
        const bool isWanted = std::strcmp(mounts.word(), mount) == 0;
        if (isWanted && mounts.skipTo("-") && mounts.next())
        {
            std::memcpy(type, mounts.word(), sizeof(type));
            return 0;
        }
        mounts.skipLine();
    }
    return failWith(ENOTSUP);
}

} // namespace

int KoPlatform::fileSystemType(const char* path, char (&type)[FILE_SYSTEM_TYPE_SIZE])
{
    // Only a name for the file: asks for no permission on it, and opens no device.
    const OwnedDescriptor file(KoPlatform::open(path, O_PATH | O_CLOEXEC));
    char mount[FILE_SYSTEM_TYPE_SIZE] = {};
    if (file.get() == -1 || findMount(file.get(), mount) != 0)
    {
        return -1;
    }
    return findType(mount, type);
}
