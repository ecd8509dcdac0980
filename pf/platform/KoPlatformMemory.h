#pragma once

#include <cstddef>

/// Memory of the process.
namespace KoPlatform
{

/// Tells the kernel that a block which was just allocated is large and will be used all over, so that it may
/// back it with large pages: fewer faults while it is filled, fewer table walks while it is read. A hint,
/// ignored where the host has none; blocks below a few large pages are left alone. Preserves `errno`.
void preferLargePages(void* block, std::size_t byteLength);

} // namespace KoPlatform
