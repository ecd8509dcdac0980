#pragma once

struct epoll_event;

namespace KoPlatform
{

/// Waits for events of an epoll set until the deadline, in absolute nanoseconds of the monotonic clock
/// (NO_DEADLINE for none). One that has passed only looks. \return the number of events; 0 at the deadline,
/// never before; -1 with `errno` = `EINTR` when a signal handler ran.
int waitForEvents(int epollDescriptor, epoll_event* events, int capacity,
                  unsigned long long deadlineNs) noexcept;

} // namespace KoPlatform
