#pragma once

#include <cstddef>

#include <sys/types.h>

namespace KoPlatform
{

/// Reads and writes that a deadline bounds, in absolute nanoseconds of the monotonic clock. They wait for
/// readiness and then transfer in a way that cannot block, without touching the flags of the descriptor.
///
/// What another reader or writer takes in between is waited for anew, except on devices that know no transfer
/// without blocking and cannot be opened a second time either (the master side of a pseudo terminal): those
/// must have one reader and one writer.
/// \return as KoPlatform::read and KoPlatform::write.
ssize_t readUntil(int descriptor, void* buffer, std::size_t size, unsigned long long deadlineNs);
ssize_t writeUntil(int descriptor, const void* buffer, std::size_t size, unsigned long long deadlineNs);

} // namespace KoPlatform
