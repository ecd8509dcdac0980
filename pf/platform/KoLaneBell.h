#pragma once

namespace KoPlatform
{

/// A bell is an eventfd that wakes who waits for it with an edge-triggered epoll set: nobody reads it, every
/// ring counts.

/// Makes one. \return the descriptor, or -1 with `errno`.
int makeBell() noexcept;

/// Rings it. Never blocks. Keeps `errno`.
void ringBell(int bell) noexcept;

/// Whether a descriptor that another process sent can be rung without harm, that is, without a signal. Makes
/// it not block.
bool isHarmlessBell(int descriptor) noexcept;

} // namespace KoPlatform
