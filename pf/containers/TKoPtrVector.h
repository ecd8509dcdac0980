#pragma once

#include "pf/containers/KoPtrVectorAssertions.h"
#include "pf/containers/TKoSmallVector.h"

/// A dynamic array of pointers to objects that live elsewhere. The better choice than TKoSmallVector<T*>
/// where positions may be wrong, because get gives the object's pointer itself, or where the objects end
/// together (deleteAll).
///
///     TKoPtrVector<CSensor> sensors;
///     sensors.push_back(&pump);
///     if (CSensor* sensor = sensors.get(index)) sensor->read();
///
/// It owns the array and not the objects. Copies share the objects. One pointer; the empty one owns no
/// memory. Null is an element like any other. One thread at a time. Broken preconditions are reported at
/// "TKoPtrVector" and change nothing.
template <class T>
class TKoPtrVector
{
public:
    /// The names that algorithms of the standard library expect.
    using value_type = T*;
    using reference = T*&;
    using const_reference = T* const&;
    using difference_type = std::ptrdiff_t;
    using size_type = int;
    using iterator = T**;
    using const_iterator = T* const*;

    iterator begin() { return m_pointers.begin(); }
    iterator end() { return m_pointers.end(); }
    const_iterator begin() const { return m_pointers.begin(); }
    const_iterator end() const { return m_pointers.end(); }

    int size() const { return m_pointers.size(); }
    int capacity() const { return m_pointers.capacity(); }
    bool isEmpty() const { return m_pointers.isEmpty(); }

    /// \return the pointer at `index`; null, after a report, for an index outside 0 to size - 1.
    T* get(int index) const
    {
        return check(index >= 0 && index < size(), __LINE__) ? m_pointers.begin()[index] : nullptr;
    }

    void push_back(T* object) { m_pointers.push_back(object); }

    /// Removes the last pointer. \return it; null when there is none.
    T* pop_back()
    {
        T* const last = isEmpty() ? nullptr : m_pointers.end()[-1];
        m_pointers.pop_back();
        return last;
    }

    /// Inserts before `index`; an index equal to the size appends.
    void insert(int index, T* object)
    {
        if (check(index >= 0 && index <= size(), __LINE__))
        {
            m_pointers.insert(index, object);
        }
    }

    /// Puts `object` in the place of the pointer at `index`. \return that one; null, reported, when there is
    /// none.
    T* replace(int index, T* object)
    {
        return check(index >= 0 && index < size(), __LINE__)
                   ? std::exchange(m_pointers.begin()[index], object)
                   : nullptr;
    }

    /// Erases one pointer. \return it; null, reported, when there is none.
    T* erase(int index)
    {
        T* const erased = get(index);
        if (index >= 0 && index < size())
        {
            m_pointers.erase(index);
        }
        return erased;
    }

    /// \return the index of the first, or last, pointer to `object`; -1 when there is none.
    int find(const T* object) const { return m_pointers.find(const_cast<T*>(object)); }
    int rfind(const T* object) const { return m_pointers.rfind(const_cast<T*>(object)); }

    /// Makes room for `count` pointers.
    void reserve(int count) { m_pointers.reserve(count); }

    /// Removes all pointers; the capacity stays.
    void clear() { m_pointers.clear(); }

    /// Deletes the objects from first to last, and removes all pointers. The vector is empty already when the
    /// first destructor runs.
    void deleteAll()
    {
        TKoSmallVector<T*> pointers;
        pointers.swap(m_pointers);
        for (T* const object : pointers)
        {
            delete object;
        }
    }

    void swap(TKoPtrVector& other) noexcept { m_pointers.swap(other.m_pointers); }

    friend bool operator==(const TKoPtrVector& a, const TKoPtrVector& b)
    {
        return a.m_pointers == b.m_pointers;
    }
    friend bool operator!=(const TKoPtrVector& a, const TKoPtrVector& b) { return !(a == b); }

private:
    static bool check(bool isInside, unsigned int line)
    {
        if (!isInside)
        {
            KoPtrVectorAssertions::doAssert(KoContainerAssertions::IndexOutOfRange, line);
        }
        return isInside;
    }

    TKoSmallVector<T*> m_pointers;
};

/// One pointer to a block that knows of no address of the vector.
template <class T>
struct TKoIsRelocatable<TKoPtrVector<T>> : std::true_type
{
};
