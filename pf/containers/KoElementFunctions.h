#pragma once

#include "pf/containers/TKoIsRelocatable.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <utility>

namespace KoPrivate
{

/// The functions by which the untyped vector core handles elements of type T.
template <class T>
struct TKoElementFunctions
{
    static bool copyConstruct(void* dst, const void* src, int n)
    {
        if constexpr (std::is_trivially_copyable_v<T>)
        {
            std::memcpy(dst, src, byteCount(n));
        }
        else
        {
            std::uninitialized_copy_n(at(src), n, at(dst));
        }
        return std::is_trivially_copyable_v<T>;
    }

    static bool relocate(void* dst, const void* src, int n)
    {
        if constexpr (TKoIsRelocatable<T>::value)
        {
            std::memcpy(dst, src, byteCount(n));
        }
        else
        {
            // The source slots are given up by the caller, so its elements may be moved from.
            T* const from = const_cast<T*>(at(src));
            std::uninitialized_move_n(from, n, at(dst));
            std::destroy_n(from, n);
        }
        return true;
    }

    static void assign(void* dst, const void* src, int n)
    {
        if (n <= 0)
        {
            return;
        }
        if constexpr (std::is_trivially_copyable_v<T>)
        {
            std::memmove(dst, src, byteCount(n));
        }
        else if (std::less<const void*>()(dst, src))
        {
            std::copy(at(src), at(src) + n, at(dst));
        }
        else
        {
            std::copy_backward(at(src), at(src) + n, at(dst) + n);
        }
    }

    static void destroy(void* elements, int n) { std::destroy_n(at(elements), n); }

    static bool equal(const void* a, const void* b) { return *at(a) == *at(b); }

    static bool equalRuns(const void* a, const void* b, int n) { return std::equal(at(a), at(a) + n, at(b)); }

private:
    static T* at(void* address) { return static_cast<T*>(address); }
    static const T* at(const void* address) { return static_cast<const T*>(address); }
    static std::size_t byteCount(int n) { return static_cast<unsigned int>(n) * sizeof(T); }
};

} // namespace KoPrivate
