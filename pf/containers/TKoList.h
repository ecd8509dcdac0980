#pragma once

#include "pf/containers/CKoListBase.h"
#include "pf/containers/KoListAssertions.h"

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <type_traits>
#include <utility>

/// A doubly linked list that owns its elements, each in a block of its own: elements stay where they are
/// while others come and go, and move between lists without being copied. For a plain sequence TKoVector is
/// smaller and faster.
///
///     TKoList<CKoString> names;
///     names.push_back("first");
///     for (const CKoString& name : names) print(name);
///
/// Copies are deep. An iterator holds until its element is erased. Two pointers and a count; two pointers per
/// element. All but copies, reversing and destruction takes constant time. One thread at a time. Broken
/// preconditions are reported as "Invalid iterator position" at "TKoList" and change nothing.
template <class T>
class TKoList
{
    struct SNode : CKoListNodeBase
    {
        template <class... Args>
        explicit SNode(std::in_place_t, Args&&... args)
            : value(std::forward<Args>(args)...)
        {
        }

        T value;
    };

public:
    /// A place in a list, the end included. \tparam U T or const T.
    template <class U>
    class TKoIterator
    {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = U*;
        using reference = U&;

        /// The null iterator, which every operation of a list refuses.
        TKoIterator() = default;
        /// An iterator that may change the elements is one that reads them.
        template <class V, class = std::enable_if_t<std::is_same_v<const V, U> && !std::is_same_v<V, U>>>
        TKoIterator(const TKoIterator<V>& other)
            : m_node(other.m_node)
        {
        }

        U& operator*() const { return static_cast<SNode*>(m_node)->value; }
        U* operator->() const { return &**this; }

        TKoIterator& operator++()
        {
            m_node = m_node->next();
            return *this;
        }
        TKoIterator operator++(int)
        {
            const TKoIterator before = *this;
            ++*this;
            return before;
        }
        TKoIterator& operator--()
        {
            m_node = m_node->prev();
            return *this;
        }
        TKoIterator operator--(int)
        {
            const TKoIterator before = *this;
            --*this;
            return before;
        }

        /// Whether both are the same place.
        friend bool operator==(const TKoIterator& a, const TKoIterator& b) { return a.m_node == b.m_node; }
        friend bool operator!=(const TKoIterator& a, const TKoIterator& b) { return a.m_node != b.m_node; }

    private:
        friend class TKoList;
        explicit TKoIterator(CKoListNodeBase* node)
            : m_node(node)
        {
        }

        CKoListNodeBase* m_node = nullptr;
    };

    /// The names that algorithms of the standard library expect.
    using value_type = T;
    using reference = T&;
    using const_reference = const T&;
    using difference_type = std::ptrdiff_t;
    using size_type = int;
    using iterator = TKoIterator<T>;
    using const_iterator = TKoIterator<const T>;

    TKoList() = default;
    // Delegating: an element whose copy throws leaves a list that is destroyed.
    TKoList(std::initializer_list<T> values)
        : TKoList()
    {
        append(values.begin(), values.end());
    }
    TKoList(const TKoList& other)
        : TKoList()
    {
        append(other.begin(), other.end());
    }
    TKoList(TKoList&& other) noexcept { swap(other); }
    ~TKoList() { clear(); }

    TKoList& operator=(TKoList other) noexcept
    {
        swap(other);
        return *this;
    }

    iterator begin() { return iterator(m_ring.next()); }
    iterator end() { return iterator(&m_ring); }
    const_iterator begin() const { return const_iterator(m_ring.next()); }
    const_iterator end() const { return const_iterator(const_cast<CKoListBase*>(&m_ring)); }

    int size() const { return m_size; }
    bool isEmpty() const { return m_size == 0; }

    /// \return the first or last element; null, reported, when there is none.
    T* front() { return elementAt(m_ring.next(), __LINE__); }
    T* back() { return elementAt(m_ring.prev(), __LINE__); }
    const T* front() const { return elementAt(m_ring.next(), __LINE__); }
    const T* back() const { return elementAt(m_ring.prev(), __LINE__); }

    /// Adds an element at an end. \param value may be an element of this list.
    void push_front(T value) { insert(begin(), std::move(value)); }
    void push_back(T value) { insert(end(), std::move(value)); }

    /// Removes the first or last element. Reported when there is none.
    void pop_front() { removeAt(m_ring.next(), __LINE__); }
    void pop_back() { removeAt(m_ring.prev(), __LINE__); }

    /// Inserts an element before `position`. \return its place; `position`, reported, when that is null.
    iterator insert(iterator position, T value) { return emplace(position, std::move(value)); }

    /// The same with an element that is built in place.
    template <class... Args>
    iterator emplace(iterator position, Args&&... args)
    {
        if (!KoListAssertions::checkNode(position.m_node, __LINE__))
        {
            return position;
        }
        auto* const node = new SNode(std::in_place, std::forward<Args>(args)...);
        node->hook(position.m_node);
        ++m_size;
        return iterator(node);
    }

    /// Removes the element at `position`. \return the place behind it; the end, reported, when there is no
    /// element at the position.
    iterator erase(iterator position)
    {
        CKoListNodeBase* const node = position.m_node;
        if (!m_ring.checkNode(node, __LINE__))
        {
            return end();
        }
        const iterator after(node->next());
        remove(node);
        return after;
    }

    /// Moves all elements of `other`, another list, to before `position`.
    void splice(iterator position, TKoList& other)
    {
        if (&other == this || !KoListAssertions::checkNode(position.m_node, __LINE__))
        {
            return;
        }
        position.m_node->transfer(other.m_ring.next(), &other.m_ring);
        m_size += std::exchange(other.m_size, 0);
    }

    /// Moves the element at `element` in `other`, which may be this list, to before `position`.
    void splice(iterator position, TKoList& other, iterator element)
    {
        if (!KoListAssertions::checkNode(position.m_node, __LINE__) ||
            !other.m_ring.checkNode(element.m_node, __LINE__) || position == element)
        {
            return;
        }
        position.m_node->transfer(element.m_node, element.m_node->next());
        --other.m_size;
        ++m_size;
    }

    /// Removes all elements.
    void clear()
    {
        while (!isEmpty())
        {
            remove(m_ring.next());
        }
    }

    /// Reverses the order of the elements; iterators keep their elements.
    void reverse() { m_ring.reverse(); }

    /// Exchanges the elements of two lists; iterators keep their elements.
    void swap(TKoList& other) noexcept
    {
        CKoListNodeBase::swap(m_ring, other.m_ring);
        std::swap(m_size, other.m_size);
    }

private:
    template <class Iterator>
    void append(Iterator first, Iterator last)
    {
        for (; first != last; ++first)
        {
            emplace(end(), *first);
        }
    }

    T* elementAt(CKoListNodeBase* node, unsigned int line) const
    {
        return m_ring.checkNode(node, line) ? &*iterator(node) : nullptr;
    }

    void removeAt(CKoListNodeBase* node, unsigned int line)
    {
        if (m_ring.checkNode(node, line))
        {
            remove(node);
        }
    }

    void remove(CKoListNodeBase* node)
    {
        node->unhook();
        --m_size;
        delete static_cast<SNode*>(node);
    }

    CKoListBase m_ring;
    int m_size = 0;
};
