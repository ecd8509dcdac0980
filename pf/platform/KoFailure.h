#pragma once

#include <cerrno>

namespace KoPlatform
{

/// How a call of the layer fails: with `errno` and -1.
inline int failWith(int error) noexcept
{
    errno = error;
    return -1;
}

} // namespace KoPlatform
