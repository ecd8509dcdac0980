#pragma once

#include <new>

namespace KoPrivate
{

/// Builds values without arguments in storage that the caller provides.
class TKoInplaceFactory_0
{
public:
    /// Constructs a `T` at `where`; does nothing when `where` is null. The caller destroys it.
    template <class T>
    void apply(void* where) const
    {
        if (where != nullptr)
        {
            ::new (where) T();
        }
    }
};

} // namespace KoPrivate
