// The global allocation operators, under the policy and the accounting of KoMemory.
//
// The address and thread sanitizers bring operators of their own, which they need in order to see what was
// allocated how; there this file is empty.

#include "pf/base/KoExport.h"
#include "pf/oswrapper/KoMemory.h"
#include "pf/oswrapper/KoMemoryTrace.h"

#include <cerrno>
#include <climits>
#include <new>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KO_SANITIZER_OPERATORS
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KO_SANITIZER_OPERATORS
#endif

#if !defined(KO_SANITIZER_OPERATORS)

namespace
{

/// A size beyond the 32-bit interface is a failed allocation of that size.
inline bool fits(std::size_t size)
{
    return size <= UINT_MAX;
}

void* allocUnchecked(std::size_t size)
{
    if (!fits(size))
    {
        errno = ENOMEM;
        return nullptr;
    }
    return KoMemory::alloc(static_cast<unsigned int>(size));
}

inline void* allocChecked(std::size_t size)
{
    if (!fits(size))
    {
        KoPrivate::failAllocation(KoPrivate::FAILED_ALLOCATION, size, ENOMEM);
    }
    return KoMemory::allocChecked(static_cast<unsigned int>(size));
}

void* allocAlignedChecked(std::size_t size, std::align_val_t alignment)
{
    void* block = KoPrivate::allocAligned(size, static_cast<std::size_t>(alignment));
    if (block == nullptr && size > 0)
    {
        KoPrivate::failAllocation(KoPrivate::FAILED_ALLOCATION, size, errno);
    }
    return block;
}

} // namespace

// clang-format off
KO_EXPORT void* operator new(std::size_t size) { return allocChecked(size); }
KO_EXPORT void* operator new[](std::size_t size) { return allocChecked(size); }
KO_EXPORT void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocUnchecked(size); }
KO_EXPORT void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocUnchecked(size); }

KO_EXPORT void* operator new(std::size_t size, std::align_val_t alignment) { return allocAlignedChecked(size, alignment); }
KO_EXPORT void* operator new[](std::size_t size, std::align_val_t alignment) { return allocAlignedChecked(size, alignment); }
KO_EXPORT void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return KoPrivate::allocAligned(size, static_cast<std::size_t>(alignment));
}
KO_EXPORT void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return KoPrivate::allocAligned(size, static_cast<std::size_t>(alignment));
}

KO_EXPORT void operator delete(void* block) noexcept { KoMemory::release(block); }
KO_EXPORT void operator delete[](void* block) noexcept { KoMemory::release(block); }
KO_EXPORT void operator delete(void* block, const std::nothrow_t&) noexcept { KoMemory::release(block); }
KO_EXPORT void operator delete[](void* block, const std::nothrow_t&) noexcept { KoMemory::release(block); }
KO_EXPORT void operator delete(void* block, std::size_t) noexcept { KoMemory::release(block); }
KO_EXPORT void operator delete[](void* block, std::size_t) noexcept { KoMemory::release(block); }
KO_EXPORT void operator delete(void* block, std::align_val_t) noexcept { KoMemory::release(block); }
KO_EXPORT void operator delete[](void* block, std::align_val_t) noexcept { KoMemory::release(block); }
KO_EXPORT void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept { KoMemory::release(block); }
KO_EXPORT void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept { KoMemory::release(block); }
KO_EXPORT void operator delete(void* block, std::size_t, std::align_val_t) noexcept { KoMemory::release(block); }
KO_EXPORT void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { KoMemory::release(block); }
// clang-format on

#endif
