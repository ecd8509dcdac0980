#pragma once

#include "pf/containers/TKoIsRelocatable.h"

#include <cstring>
#include <memory>
#include <new>

namespace KoPrivate
{

/// Whether an object of type T can lie in the slot of a hash table, a pointer's size that moves bitwise.
template <class T>
inline constexpr bool FITS_HASH_SLOT = TKoIsRelocatable<T>::value && sizeof(T) <= sizeof(void*) &&
                                       alignof(T) <= alignof(void*);

/// How the slots of hash tables hold objects of type T: IN_PLACE in the slot itself, else in a block of their
/// own. A borrowed content stands for an object elsewhere; own turns it into a copy that belongs to the slot.
template <class T, bool IN_PLACE>
struct TKoHashSlot
{
    /// Makes a borrowed content readable.
    class Borrowed
    {
    public:
        explicit Borrowed(void* content) { std::memcpy(m_bytes, &content, sizeof(T)); }
        const T& get() const
        {
            return *std::launder(static_cast<const T*>(static_cast<const void*>(m_bytes)));
        }

    private:
        alignas(T) unsigned char m_bytes[sizeof(T)];
    };

    static void* borrow(const T& object)
    {
        void* content = nullptr;
        std::memcpy(&content, static_cast<const void*>(std::addressof(object)), sizeof(T));
        return content;
    }
    static void own(void** slot)
    {
        if constexpr (!std::is_trivially_copyable_v<T>)
        {
            const Borrowed original(*slot);
            ::new (static_cast<void*>(slot)) T(original.get());
        }
    }
    static void create(void** slot)
    {
        *slot = nullptr; // what the object does not cover
        ::new (static_cast<void*>(slot)) T();
    }
    static T& get(void** slot) { return *std::launder(static_cast<T*>(static_cast<void*>(slot))); }
    static void destroy(void** slot) { get(slot).~T(); }
};

template <class T>
struct TKoHashSlot<T, false>
{
    class Borrowed
    {
    public:
        explicit Borrowed(void* content)
            : m_object(static_cast<const T*>(content))
        {
        }
        const T& get() const { return *m_object; }

    private:
        const T* m_object;
    };

    static void* borrow(const T& object) { return const_cast<T*>(std::addressof(object)); }
    static void own(void** slot) { *slot = new T(get(slot)); }
    static void create(void** slot) { *slot = new T(); }
    static T& get(void** slot) { return *static_cast<T*>(*slot); }
    static void destroy(void** slot) { delete &get(slot); }
};

} // namespace KoPrivate
