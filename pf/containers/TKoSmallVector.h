#pragma once

#include "pf/containers/CKoVectorBase.h"
#include "pf/containers/KoElementFunctions.h"

/// A dynamic array whose object is a single pointer; the empty one owns no memory. The better choice than
/// TKoVector where there are many arrays and most are empty, and for elements that move bitwise
/// (TKoIsRelocatable): growing then copies bytes and touches no element.
///
/// Copies are deep. Element addresses hold until the vector grows or elements before them come or go. One
/// thread at a time. Broken preconditions are reported at "TKoVector" and leave the vector as it was.
template <class T>
class TKoSmallVector : public CKoVectorBase
{
    using Functions = KoPrivate::TKoElementFunctions<T>;
    static constexpr int ELEMENT_SIZE = static_cast<int>(sizeof(T));
    static_assert(alignof(T) <= alignof(std::max_align_t), "over-aligned elements need another container");

public:
    /// The names that algorithms of the standard library expect.
    using value_type = T;
    using reference = T&;
    using const_reference = const T&;
    using difference_type = std::ptrdiff_t;
    using size_type = int;
    using iterator = T*;
    using const_iterator = const T*;

    TKoSmallVector()
        : CKoVectorBase(0, nullptr, ELEMENT_SIZE)
    {
    }

    /// Empty, with room for `capacity` elements; `capacityFunction` replaces the doubling growth.
    explicit TKoSmallVector(int capacity, CapacityFunction capacityFunction = nullptr)
        : CKoVectorBase(capacity, capacityFunction, ELEMENT_SIZE)
    {
    }

    TKoSmallVector(const TKoSmallVector& other)
        : CKoVectorBase(other.m_data, ELEMENT_SIZE)
    {
        if (!isEmpty())
        {
            Functions::copyConstruct(begin(), other.begin(), size());
        }
    }

    TKoSmallVector(TKoSmallVector&& other) noexcept
        : TKoSmallVector()
    {
        swap(other);
    }

    ~TKoSmallVector() { internal_destruct(m_data, &Functions::destroy); }

    TKoSmallVector& operator=(TKoSmallVector other) noexcept
    {
        swap(other);
        return *this;
    }

    /// The elements in order, one behind the other; null for both ends without a block.
    iterator begin() { return m_data != nullptr ? slots(m_data) : nullptr; }
    iterator end() { return begin() + size(); }
    const_iterator begin() const { return m_data != nullptr ? slots(m_data) : nullptr; }
    const_iterator end() const { return begin() + size(); }

    /// \return the element; null, after a report, for an index outside 0 to size - 1.
    T* get(int index)
    {
        return isInside(index) ? begin() + index : static_cast<T*>(internal_get(index, ELEMENT_SIZE));
    }
    const T* get(int index) const
    {
        return isInside(index) ? begin() + index : static_cast<const T*>(internal_get(index, ELEMENT_SIZE));
    }

    /// Appends a copy of `value`, which may be an element of this vector.
    void push_back(const T& value)
    {
        SVectorData* const block = m_data;
        if (__builtin_expect(block == nullptr || block->ramWatch != nullptr || block->size == block->capacity,
                             0))
        {
            return pushBackSlowly(value);
        }
        // The size first: the next append waits for it and not for the element.
        const auto index = static_cast<unsigned int>(block->size);
        block->size = static_cast<int>(index + 1);
        ::new (static_cast<void*>(slots(block) + index)) T(value);
    }

    /// Removes the last element. \return false when there is none.
    bool pop_back()
    {
        const bool dropped = internal_pop_back();
        if (dropped)
        {
            Functions::destroy(end(), 1);
        }
        return dropped;
    }

    /// Inserts before `index`; an index equal to the size appends. `value` may be an element of this vector.
    void insert(int index, const T& value) { insert(index, 1, std::addressof(value)); }

    /// Inserts `count` elements from `values`, which may lie in this vector, before `index`.
    void insert(int index, int count, const T* values)
    {
        internal_insert(index, count, values, ELEMENT_SIZE, &Functions::assign, &Functions::copyConstruct,
                        &Functions::relocate);
    }

    /// Assigns `count` elements from `values`, which may lie in this vector, to those from `index` on.
    void replace(int index, int count, const T* values)
    {
        if (internal_replace(index, count, values))
        {
            Functions::assign(begin() + index, values, count);
        }
    }

    /// Erases one element, or those from `first` to `last`, both included. The capacity stays.
    void erase(int index) { erase(index, index); }
    void erase(int first, int last)
    {
        internal_erase(first, last, ELEMENT_SIZE, &Functions::assign, &Functions::destroy);
    }

    /// Shrinks, or grows by copies of `value`, which may be an element of this vector.
    void resize(int newSize, const T& value)
    {
        if (newSize <= capacity())
        {
            return resizeInPlace(newSize, value);
        }
        const T copy(value);
        if (internal_makeRoom(newSize - size(), ELEMENT_SIZE, RELOCATE))
        {
            resizeInPlace(newSize, copy);
        }
    }
    void resize(int newSize) { resize(newSize, T()); }

    /// Removes all elements; the capacity stays.
    void clear()
    {
        if (!isEmpty())
        {
            erase(0, size() - 1);
        }
    }

    /// Makes room for `count` elements by the growth policy.
    void reserve(int count) { reallocate(count, false); }

    /// Makes the capacity `count`, but not below the size. Without elements and growth policy, 0 gives the
    /// storage back.
    void reserveExactly(int count) { reallocate(count, true); }

    /// \return the index of the first, or last, element equal to `value`; -1 when there is none.
    int find(const T& value) const
    {
        return internal_find(&Functions::equal, ELEMENT_SIZE, std::addressof(value));
    }
    int rfind(const T& value) const
    {
        return internal_rfind(&Functions::equal, ELEMENT_SIZE, std::addressof(value));
    }

    void swap(TKoSmallVector& other) noexcept { std::swap(m_data, other.m_data); }

    friend bool operator==(const TKoSmallVector& a, const TKoSmallVector& b)
    {
        return a.internal_compare(b, &Functions::equalRuns);
    }
    friend bool operator!=(const TKoSmallVector& a, const TKoSmallVector& b) { return !(a == b); }

private:
    /// How elements move to a larger block: with the block where their bytes are all there is to them.
    static constexpr RelocateFunction RELOCATE = TKoIsRelocatable<T>::value ? nullptr : &Functions::relocate;

    bool isInside(int index) const { return index >= 0 && index < size(); }

    static T* slots(SVectorData* block) { return static_cast<T*>(static_cast<void*>(block + 1)); }

    /// How a value goes to the slow path: one that fits into registers by value, so that the caller's
    /// variable need not have an address.
    using Argument =
        std::conditional_t<std::is_trivially_copyable_v<T> && sizeof(T) <= sizeof(void*), T, const T&>;

    /// A copy made first survives the end of the block that `value` may lie in.
    __attribute__((noinline)) void pushBackSlowly(Argument value)
    {
        const T copy(value);
        if (internal_makeRoom(1, ELEMENT_SIZE, RELOCATE))
        {
            internal_push_back(ELEMENT_SIZE, std::addressof(copy), &Functions::copyConstruct,
                               &Functions::destroy);
        }
    }

    void resizeInPlace(int newSize, const T& value)
    {
        internal_resize(newSize, ELEMENT_SIZE, std::addressof(value), &Functions::copyConstruct,
                        &Functions::destroy);
    }

    void reallocate(int count, bool exact)
    {
        internal_destruct(internal_reserve(count, ELEMENT_SIZE, exact, &Functions::relocate),
                          &Functions::destroy);
    }
};

/// The vector is one pointer to its block and knows of no address of itself.
template <class T>
struct TKoIsRelocatable<TKoSmallVector<T>> : std::true_type
{
};
