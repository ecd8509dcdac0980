#pragma once

#include "pf/containers/KoPrivateVectorBase.h"
#include "pf/containers/KoQueueAssertions.h"
#include "pf/containers/TKoIsRelocatable.h"
#include "pf/oswrapper/KoMemory.h"

#include <climits>
#include <cstddef>
#include <iterator>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

/// A first-in first-out queue in one block whose end continues at its beginning: what leaves makes room for
/// what comes, and a queue that has grown to its working size allocates no more.
///
///     TKoQueue<CJob> jobs;
///     jobs.push(job);
///     for (CJob next; jobs.pop(next);) next.run();
///
/// Copies are deep. Element addresses hold until a push that grows the queue; iterators until the next push
/// or pop. The empty queue owns no memory before the first push; nothing but destruction gives memory back.
/// One thread at a time. Broken preconditions are reported as "Index our of range" at "TKoQueue" and change
/// nothing. A size whose block would not fit into 32 bits is reported as "Invalid parameter".
template <class T>
class TKoQueue : private KoPrivate::CKoVectorBase
{
    static_assert(alignof(T) <= alignof(std::max_align_t), "over-aligned elements need another container");

public:
    /// A place in a queue, the end included. \tparam U T or const T.
    template <class U>
    class TKoIterator
    {
        using Queue = std::conditional_t<std::is_const_v<U>, const TKoQueue, TKoQueue>;

    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = U*;
        using reference = U&;

        /// A place in no queue.
        TKoIterator() = default;
        /// An iterator that may change the elements is one that reads them.
        template <class V, class = std::enable_if_t<std::is_same_v<const V, U> && !std::is_same_v<V, U>>>
        TKoIterator(const TKoIterator<V>& other)
            : m_queue(other.m_queue)
            , m_index(other.m_index)
        {
        }

        U& operator*() const { return *m_queue->slot(m_index); }
        U* operator->() const { return m_queue->slot(m_index); }

        TKoIterator& operator++()
        {
            ++m_index;
            return *this;
        }
        TKoIterator operator++(int)
        {
            const TKoIterator before = *this;
            ++m_index;
            return before;
        }
        TKoIterator& operator--()
        {
            --m_index;
            return *this;
        }
        TKoIterator operator--(int)
        {
            const TKoIterator before = *this;
            --m_index;
            return before;
        }

        /// Whether both are the same place of one queue.
        friend bool operator==(const TKoIterator& a, const TKoIterator& b) { return a.m_index == b.m_index; }
        friend bool operator!=(const TKoIterator& a, const TKoIterator& b) { return !(a == b); }

    private:
        friend class TKoQueue;
        template <class V>
        friend class TKoIterator;
        TKoIterator(Queue* queue, int index)
            : m_queue(queue)
            , m_index(index)
        {
        }

        Queue* m_queue = nullptr;
        int m_index = 0; ///< counted from the front
    };

    /// The names that algorithms of the standard library expect.
    using value_type = T;
    using reference = T&;
    using const_reference = const T&;
    using difference_type = std::ptrdiff_t;
    using size_type = int;
    using iterator = TKoIterator<T>;
    using const_iterator = TKoIterator<const T>;

    /// Empty. The first push makes room for `capacity` elements, 4 when that is below 1.
    explicit TKoQueue(int capacity = 0)
        : CKoVectorBase(capacity)
    {
    }
    TKoQueue(const TKoQueue& other)
        : TKoQueue(other.size())
    {
        for (const T& value : other)
        {
            push(value);
        }
    }
    TKoQueue(TKoQueue&& other) noexcept
        : TKoQueue()
    {
        swap(other);
    }
    ~TKoQueue()
    {
        clear();
        KoMemory::release(m_slots);
    }

    TKoQueue& operator=(TKoQueue other) noexcept
    {
        swap(other);
        return *this;
    }

    /// From the element that leaves first to the one that came last.
    iterator begin() { return iterator(this, 0); }
    iterator end() { return iterator(this, m_size); }
    const_iterator begin() const { return const_iterator(this, 0); }
    const_iterator end() const { return const_iterator(this, m_size); }

    using CKoVectorBase::size;
    bool isEmpty() const { return m_size == 0; }

    /// The element that leaves first, or the one that came last; null, reported, when there is none.
    T* front() { return checked(0, __LINE__); }
    T* back() { return checked(m_size - 1, __LINE__); }
    const T* front() const { return checked(0, __LINE__); }
    const T* back() const { return checked(m_size - 1, __LINE__); }

    /// \return the element with `index` before it; null, reported, for an index outside 0 to size - 1.
    T* get(int index) { return checked(index, __LINE__); }
    const T* get(int index) const { return checked(index, __LINE__); }

    /// Adds an element at the end. \param value may be an element of this queue.
    void push(T value)
    {
        if ((m_slots == nullptr || m_size == m_capacity) && !grow())
        {
            return;
        }
        ::new (static_cast<void*>(slot(m_size))) T(std::move(value));
        ++m_size;
    }
    void push_back(T value) { push(std::move(value)); }

    /// Removes the first element. \return false when there is none.
    bool pop()
    {
        if (isEmpty())
        {
            return false;
        }
        std::destroy_at(slot(0));
        m_first = m_first + 1 < m_capacity ? m_first + 1 : 0;
        --m_size;
        return true;
    }

    /// Removes the first element and assigns it to `value`. \return false, with nothing assigned, when there
    /// is none.
    bool pop(T& value)
    {
        if (isEmpty())
        {
            return false;
        }
        value = std::move(*slot(0));
        return pop();
    }

    /// Removes all elements.
    void clear()
    {
        while (pop())
        {
        }
    }

    void swap(TKoQueue& other) noexcept
    {
        KoPrivate::swap(*this, other);
        std::swap(m_slots, other.m_slots);
        std::swap(m_first, other.m_first);
    }

private:
    T* slot(int index) const
    {
        const int untilEnd = m_capacity - m_first;
        return m_slots + (index < untilEnd ? m_first + index : index - untilEnd);
    }

    T* checked(int index, unsigned int line) const
    {
        if (index >= 0 && index < m_size)
        {
            return slot(index);
        }
        KoQueueAssertions::doAssert(KoContainerAssertions::IndexOutOfRange, line);
        return nullptr;
    }

    /// Moves the elements to the front of a block for one more. \return false, reported, when there cannot be
    /// so many.
    bool grow()
    {
        constexpr auto MOST = static_cast<int>(INT_MAX / sizeof(T));
        const int needed = m_slots == nullptr ? m_capacity : m_size + 1;
        if (needed > MOST)
        {
            KoQueueAssertions::doAssert(KoContainerAssertions::InvalidParameter, __LINE__);
            return false;
        }
        const int doubled = calcNewCapacity(needed);
        const int newCapacity = doubled < MOST ? doubled : MOST;
        const auto bytes = static_cast<unsigned int>(static_cast<std::size_t>(newCapacity) * sizeof(T));
        T* const grown = static_cast<T*>(KoMemory::allocChecked(bytes));
        T* next = grown;
        for (T& value : *this)
        {
            ::new (static_cast<void*>(next++)) T(std::move(value));
            std::destroy_at(std::addressof(value));
        }
        KoMemory::release(m_slots);
        m_slots = grown;
        m_capacity = newCapacity;
        m_first = 0;
        return true;
    }

    T* m_slots = nullptr; ///< room for m_capacity elements; null before the first push
    int m_first = 0;      ///< the slot of the element that leaves first
};

/// It knows of no address of itself.
template <class T>
struct TKoIsRelocatable<TKoQueue<T>> : std::true_type
{
};
