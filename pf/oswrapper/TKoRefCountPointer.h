#pragma once

#include <utility>

/// A pointer that holds one reference to an object while it is not null.
///
/// \tparam T a CKoThreadSafeRefCounter.
///
/// One word. Pointers to one object may be used in different threads; a single pointer is for one thread at a
/// time. A copy costs one atomic increment, a move none.
template <class T>
class TKoRefCountPointer
{
public:
    TKoRefCountPointer() noexcept = default;

    /// Takes a reference, unless null.
    TKoRefCountPointer(T* object)
        : m_object(object)
    {
        if (m_object != nullptr)
        {
            m_object->addReference();
        }
    }

    TKoRefCountPointer(const TKoRefCountPointer& other)
        : TKoRefCountPointer(other.m_object)
    {
    }

    TKoRefCountPointer(TKoRefCountPointer&& other) noexcept
        : m_object(std::exchange(other.m_object, nullptr))
    {
    }

    ~TKoRefCountPointer() { drop(m_object); }

    /// Assigning the object that it points to does nothing. The new object is held before the old one is
    /// dropped, which may have been the one that kept the new one alive.
    TKoRefCountPointer& operator=(const TKoRefCountPointer& other)
    {
        if (m_object != other.m_object)
        {
            TKoRefCountPointer held(other);
            std::swap(m_object, held.m_object);
        }
        return *this;
    }

    TKoRefCountPointer& operator=(TKoRefCountPointer&& other) noexcept
    {
        if (this != &other)
        {
            TKoRefCountPointer held(std::move(other));
            std::swap(m_object, held.m_object);
        }
        return *this;
    }

    T* get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

    friend bool operator==(const TKoRefCountPointer& a, const TKoRefCountPointer& b) noexcept
    {
        return a.m_object == b.m_object;
    }
    friend bool operator!=(const TKoRefCountPointer& a, const TKoRefCountPointer& b) noexcept
    {
        return a.m_object != b.m_object;
    }

private:
    static void drop(T* object)
    {
        if (object != nullptr)
        {
            object->removeReference();
        }
    }

    T* m_object = nullptr;
};
