#pragma once

#include "pf/containers/KoConstRefCountedVectorAssertions.h"
#include "pf/containers/TKoSmallVector.h"
#include "pf/oswrapper/KoAtomic.h"

/// A sequence that is made once, never changes, and is shared by its copies: for tables that many hold and
/// nobody edits. To make another one, fill a TKoSmallVector and hand it over.
///
///     TKoSmallVector<int> primes = ...;
///     const TKoConstRefCountedVector<int> table(std::move(primes));
///
/// One pointer. A copy costs one atomic increment; an empty one owns no memory. Copies may be used, made and
/// dropped by several threads, one object by one thread at a time; the last one destroys the elements.
/// Element addresses hold as long as any copy. An index out of range is reported as "Index our of range" at
/// "TKoConstRefCountedVector".
template <class T>
class TKoConstRefCountedVector
{
public:
    /// The names that algorithms of the standard library expect.
    using value_type = T;
    using reference = const T&;
    using const_reference = const T&;
    using difference_type = std::ptrdiff_t;
    using size_type = int;
    using iterator = const T*;
    using const_iterator = const T*;

    /// Empty.
    TKoConstRefCountedVector() noexcept = default;

    /// Takes over the elements; none is copied when the argument is moved here.
    explicit TKoConstRefCountedVector(TKoSmallVector<T> elements)
        : m_shared(elements.isEmpty() ? nullptr : new SShared{1U, std::move(elements)})
    {
    }

    /// Shares the elements.
    TKoConstRefCountedVector(const TKoConstRefCountedVector& other) noexcept
        : m_shared(other.m_shared)
    {
        if (m_shared != nullptr)
        {
            KoAtomic::increment(m_shared->refCount);
        }
    }

    TKoConstRefCountedVector(TKoConstRefCountedVector&& other) noexcept
        : m_shared(std::exchange(other.m_shared, nullptr))
    {
    }

    ~TKoConstRefCountedVector()
    {
        if (m_shared != nullptr && !KoAtomic::testDecrement(m_shared->refCount))
        {
            delete m_shared;
        }
    }

    TKoConstRefCountedVector& operator=(TKoConstRefCountedVector other) noexcept
    {
        swap(other);
        return *this;
    }

    const_iterator begin() const { return m_shared != nullptr ? elements().begin() : nullptr; }
    const_iterator end() const { return m_shared != nullptr ? elements().end() : nullptr; }

    int size() const { return m_shared != nullptr ? elements().size() : 0; }
    bool isEmpty() const { return m_shared == nullptr; }

    /// \return the element; null, after a report, for an index outside 0 to size - 1.
    const T* get(int index) const
    {
        if (index >= 0 && index < size())
        {
            return begin() + index;
        }
        KoConstRefCountedVectorAssertions::doAssert(KoContainerAssertions::IndexOutOfRange, __LINE__);
        return nullptr;
    }

    /// \return the index of the first, or last, element equal to `value`; -1 when there is none.
    int find(const T& value) const { return m_shared != nullptr ? elements().find(value) : -1; }
    int rfind(const T& value) const { return m_shared != nullptr ? elements().rfind(value) : -1; }

    void swap(TKoConstRefCountedVector& other) noexcept { std::swap(m_shared, other.m_shared); }

    /// Whether both hold equal sequences.
    friend bool operator==(const TKoConstRefCountedVector& a, const TKoConstRefCountedVector& b)
    {
        const bool isOneEmpty = a.isEmpty() || b.isEmpty();
        return a.m_shared == b.m_shared || (!isOneEmpty && a.elements() == b.elements());
    }
    friend bool operator!=(const TKoConstRefCountedVector& a, const TKoConstRefCountedVector& b)
    {
        return !(a == b);
    }

private:
    struct SShared
    {
        unsigned int refCount; ///< vectors that point here; changed atomically
        TKoSmallVector<T> elements;
    };

    const TKoSmallVector<T>& elements() const { return m_shared->elements; }

    SShared* m_shared = nullptr;
};

/// One pointer to a block that knows of no address of the vector.
template <class T>
struct TKoIsRelocatable<TKoConstRefCountedVector<T>> : std::true_type
{
};
