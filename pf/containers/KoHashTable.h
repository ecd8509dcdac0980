#pragma once

#include "pf/platform/KoPlatformMemory.h"

#include <cstddef>
#include <cstdint>
#include <new>

/// What the hash array and the hash map share; not for other callers.
namespace KoPrivate
{

/// The smallest power of two that is neither below `size` nor below `minimum`, itself one; 2^31 for larger
/// sizes.
inline unsigned int tableSizeFor(unsigned int size, unsigned int minimum)
{
    constexpr unsigned int LARGEST = 1U << 31U;
    unsigned int result = minimum;
    while (result < size && result < LARGEST)
    {
        result *= 2U;
    }
    return result;
}

/// Storage for `count` items; a size that cannot be is left to the operator to refuse.
template <class Item>
Item* allocateTable(std::uint64_t count)
{
    const bool fits = count <= SIZE_MAX / sizeof(Item);
    const std::size_t byteLength = fits ? static_cast<std::size_t>(count) * sizeof(Item) : SIZE_MAX;
    void* const table = ::operator new[](byteLength);
    KoPlatform::preferLargePages(table, byteLength);
    return static_cast<Item*>(table);
}

template <class Item>
void freeTable(Item* table)
{
    ::operator delete[](static_cast<void*>(table));
}

} // namespace KoPrivate
