#pragma once

#include "pf/oswrapper/KoMemory.h"

#include <cstring>

namespace KoPrivate
{

/// A copy of an object's name, to be given back to KoMemory; null of a missing or an empty one.
inline char* copyName(const char* name)
{
    if (name == nullptr || *name == '\0')
    {
        return nullptr;
    }
    const std::size_t size = std::strlen(name) + 1;
    return static_cast<char*>(
        std::memcpy(KoMemory::allocChecked(static_cast<unsigned int>(size)), name, size));
}

} // namespace KoPrivate
