#pragma once

#include <cstddef>

namespace KoPrivate
{

/// The address of a slot of a block whose slots follow its header.
template <class Block>
const char* slotAt(const Block* block, int index, int elemSize)
{
    const auto offset = static_cast<std::size_t>(index) * static_cast<std::size_t>(elemSize);
    return static_cast<const char*>(static_cast<const void*>(block + 1)) + offset;
}

template <class Block>
char* slotAt(Block* block, int index, int elemSize)
{
    const auto offset = static_cast<std::size_t>(index) * static_cast<std::size_t>(elemSize);
    return static_cast<char*>(static_cast<void*>(block + 1)) + offset;
}

} // namespace KoPrivate
