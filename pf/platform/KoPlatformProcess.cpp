#include "pf/platform/KoPlatformProcess.h"

#include "pf/platform/KoPlatformRetry.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

constexpr std::size_t FIRST_TEXT_SIZE = 65536U;

struct Arguments
{
    int count;
    char** vector;
};

/// Memory that is not the heap's; null when there is none.
void* mapPages(std::size_t size)
{
    void* pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return pages == MAP_FAILED ? nullptr : pages;
}

/// A private copy of the command line: texts that each end with a zero.
struct CommandLine
{
    char* text = nullptr;
    std::size_t length = 0U;
    std::size_t capacity = 0U;

    bool grow()
    {
        const std::size_t wanted = capacity == 0U ? FIRST_TEXT_SIZE : 2U * capacity;
        void* pages = capacity == 0U ? mapPages(wanted) : mremap(text, capacity, wanted, MREMAP_MAYMOVE);
        if (pages == nullptr || pages == MAP_FAILED)
        {
            return false;
        }
        text = static_cast<char*>(pages);
        capacity = wanted;
        return true;
    }

    /// Reads until the end; room for a final zero is always left, and fresh pages are zero.
    bool readFrom(int descriptor)
    {
        for (;;)
        {
            if (length + 1U >= capacity && !grow())
            {
                return false;
            }
            const ssize_t got = KoPlatform::repeatInterrupted(
                [&] { return read(descriptor, text + length, capacity - length - 1U); });
            if (got <= 0)
            {
                return got == 0;
            }
            length += static_cast<std::size_t>(got);
        }
    }

    int countTexts() const
    {
        int count = 0;
        for (std::size_t i = 0U; i < length; ++i)
        {
            const bool last = text[i] == '\0' || i + 1U == length;
            count += last ? 1 : 0;
        }
        return count;
    }
};

bool readCommandLine(CommandLine& line)
{
    const int descriptor =
        KoPlatform::repeatInterrupted([] { return open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC); });
    if (descriptor == -1)
    {
        return false;
    }
    const bool complete = line.readFrom(descriptor);
    close(descriptor);
    return complete;
}

char** splitTexts(const CommandLine& line, int count)
{
    auto** vector = static_cast<char**>(mapPages((static_cast<std::size_t>(count) + 1U) * sizeof(char*)));
    if (vector == nullptr)
    {
        return nullptr;
    }
    char* text = line.text;
    for (int i = 0; i < count; ++i)
    {
        vector[i] = text;
        while (*text != '\0')
        {
            ++text;
        }
        ++text;
    }
    return vector;
}

Arguments readArguments()
{
    static char* sNone[] = {nullptr};
    const int savedErrno = errno;
    CommandLine line;
    const int count = readCommandLine(line) ? line.countTexts() : 0;
    char** vector = count > 0 ? splitTexts(line, count) : nullptr;
    errno = savedErrno;
    return vector != nullptr ? Arguments{count, vector} : Arguments{0, sNone};
}

const Arguments& arguments()
{
    static const Arguments sArguments = readArguments();
    return sArguments;
}

/// Relaxed throughout: it stands for itself, and the texts stay.
std::atomic<bool> sAreDropped{false};

} // namespace

namespace KoPlatform
{

int argumentCount()
{
    return sAreDropped.load(std::memory_order_relaxed) ? 0 : arguments().count;
}

char** argumentVector()
{
    return arguments().vector;
}

void dropArguments()
{
    sAreDropped.store(true, std::memory_order_relaxed);
}

std::size_t stackAvailable()
{
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
    {
        return 0U;
    }
    void* lowest = nullptr;
    std::size_t size = 0U;
    const int error = pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    const auto end = reinterpret_cast<std::uintptr_t>(lowest);
    return error == 0 && here > end ? here - end : 0U;
}

int SignalProcmask(int pid, int tid, int how, const sigset_t* set, sigset_t* oldSet)
{
    const int error = SignalProcmask_r(pid, tid, how, set, oldSet);
    if (error == 0)
    {
        return 0;
    }
    errno = error;
    return -1;
}

int SignalProcmask_r(int pid, int tid, int how, const sigset_t* set, sigset_t* oldSet)
{
    static_assert(SIG_BLOCK == 0 && SIG_UNBLOCK == 1 && SIG_SETMASK == 2, "the host numbers the modes alike");
    return pid == 0 && tid == 0 ? pthread_sigmask(how, set, oldSet) : EINVAL;
}

} // namespace KoPlatform
