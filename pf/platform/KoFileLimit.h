#pragma once

#include <sys/resource.h>
#include <sys/types.h>

namespace KoPlatform
{

/// Whether the process may have a file of that size. To try would raise a signal that ends it.
inline bool isWithinFileLimit(off_t size) noexcept
{
    rlimit limit;
    return ::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
           static_cast<rlim_t>(size) <= limit.rlim_cur;
}

} // namespace KoPlatform
