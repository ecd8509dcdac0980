#include "pf/platform/KoFailure.h"
#include "pf/platform/KoPlatformProcess.h"
#include "pf/platform/KoPlatformRetry.h"
#include "pf/platform/KoThreadSanitizer.h"

#include <cerrno>
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

// The child borrows the parent's memory until its image is replaced, so that starting a program costs the
// same however large the process is. Why it could not be started comes back through a pipe that a successful
// start closes; emulators give the child a copy of the memory instead, where nothing else would tell.

namespace
{

using KoPlatform::failWith;

constexpr std::size_t CHILD_STACK_SIZE = 65536U;
constexpr int EXIT_NOT_STARTED = 127;

// The thread sanitizer keeps books on every thread in memory, which a child must not share.
constexpr int CLONE_FLAGS = KO_THREAD_SANITIZER ? SIGCHLD : CLONE_VM | CLONE_VFORK | SIGCHLD;

struct Request
{
    const char* path;
    char* const* arguments;
    int errorPipe;
    sigset_t mask;
};

/// The memory the child runs on until its image is replaced.
class ChildStack
{
public:
    ChildStack()
        : m_pages(mmap(nullptr, CHILD_STACK_SIZE, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0))
    {
    }
    ~ChildStack()
    {
        if (m_pages != MAP_FAILED)
        {
            munmap(m_pages, CHILD_STACK_SIZE);
        }
    }
    ChildStack(const ChildStack&) = delete;
    ChildStack& operator=(const ChildStack&) = delete;

    void* top() const
    {
        return m_pages == MAP_FAILED ? nullptr : static_cast<char*>(m_pages) + CHILD_STACK_SIZE;
    }

private:
    void* m_pages;
};

/// A handler must not run in the child: it would work on the parent's memory.
void dropSignalHandlers()
{
    for (int number = 1; number < NSIG; ++number)
    {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN &&
            action.sa_handler != SIG_DFL)
        {
            action.sa_handler = SIG_DFL;
            action.sa_flags = 0;
            sigaction(number, &action, nullptr);
        }
    }
}

int runChild(void* argument)
{
    const Request& request = *static_cast<const Request*>(argument);
    dropSignalHandlers();
    pthread_sigmask(SIG_SETMASK, &request.mask, nullptr);
    execve(request.path, request.arguments, environ);
    const int error = errno;
    KoPlatform::repeatInterrupted([&] { return write(request.errorPipe, &error, sizeof(error)); });
    return EXIT_NOT_STARTED;
}

/// Starts the child with all signals held back, so that none reaches it before its handlers are gone.
int startChild(Request& request, const ChildStack& stack)
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &request.mask);
    const int pid = clone(runChild, stack.top(), CLONE_FLAGS, &request);
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &request.mask, nullptr);
    errno = error;
    return pid;
}

/// \return 0 once the child's program runs, or why it does not.
int readStartError(int descriptor)
{
    int error = 0;
    const ssize_t got =
        KoPlatform::repeatInterrupted([&] { return read(descriptor, &error, sizeof(error)); });
    return got == static_cast<ssize_t>(sizeof(error)) ? error : 0;
}

/// Reaps a child that came to nothing.
int reapFailed(int pid, int error)
{
    int status = 0;
    KoPlatform::repeatInterrupted([&] { return waitpid(pid, &status, 0); });
    return failWith(error);
}

} // namespace

namespace KoPlatform
{

int spawnvp(int mode, const char* path, char* const* arguments)
{
    if (mode != SPAWN_NO_WAIT)
    {
        return failWith(EINVAL);
    }
    const int savedErrno = errno;
    const ChildStack stack;
    int ends[2] = {-1, -1};
    if (stack.top() == nullptr || pipe2(ends, O_CLOEXEC) != 0)
    {
        return -1;
    }
    Request request = {path, arguments, ends[1], {}};
    const int pid = startChild(request, stack);
    const int cloneError = errno;
    close(ends[1]);
    const int startError = pid == -1 ? cloneError : readStartError(ends[0]);
    close(ends[0]);
    if (pid == -1)
    {
        return failWith(cloneError);
    }
    if (startError != 0)
    {
        return reapFailed(pid, startError);
    }
    errno = savedErrno; // the child may have disturbed it
    return pid;
}

} // namespace KoPlatform
