#include "pf/platform/KoLaneBell.h"

#include "pf/platform/KoPlatformRetry.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KoPlatform
{

int makeBell() noexcept
{
    return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

void ringBell(int bell) noexcept
{
    const int savedErrno = errno;
    const std::uint64_t once = 1;
    // Refused only when the count is at its limit, which rings already.
    repeatInterrupted([&] { return ::write(bell, &once, sizeof(once)); });
    errno = savedErrno;
}

bool isHarmlessBell(int descriptor) noexcept
{
    struct stat status;
    // Events have no type of file; pipes, sockets and terminals, whose writers may be sent signals, have.
    return ::fstat(descriptor, &status) == 0 && (status.st_mode & S_IFMT) == 0 &&
           ::fcntl(descriptor, F_SETFL, O_NONBLOCK) == 0;
}

} // namespace KoPlatform
