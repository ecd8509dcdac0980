#pragma once

#include "pf/base/KoExport.h"

#include <sys/types.h>

/// Files of the platform.
namespace KoPlatform
{

/// Opens a file like the C library's `open`, retrying interruptions; the descriptor is not inherited by
/// started programs.
///
/// Paths in the directory "/dev/shmem" lead to the host's shared-memory directory where "/dev/shmem" does
/// not exist. Allocates nothing. Any thread may call it.
/// \return the descriptor, or -1 with `errno`.
KO_EXPORT int open(const char* path, int flags, mode_t mode = 0);

} // namespace KoPlatform
