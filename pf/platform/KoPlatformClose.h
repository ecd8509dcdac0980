#pragma once

#include <cerrno>

#include <dirent.h>
#include <unistd.h>

namespace KoPlatform
{

/// Closes a descriptor, once: on this platform it is gone whatever the call says, unless it was none
/// (`EBADF`). A second try would close what another thread has opened meanwhile. An interrupted call counts
/// as done; another failure (`EIO`, `ENOSPC`, `EDQUOT`) says that written data is lost.
inline int close(int descriptor) noexcept
{
    const int result = ::close(descriptor);
    return result == -1 && errno == EINTR ? 0 : result;
}

/// Closes a directory stream, which is gone in any case, by the same rules.
inline int closedir(DIR* directory) noexcept
{
    const int result = ::closedir(directory);
    return result == -1 && errno == EINTR ? 0 : result;
}

} // namespace KoPlatform
