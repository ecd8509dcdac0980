#pragma once

#include "pf/containers/KoIntrusive.h"

namespace KoIntrusive
{

/// What a class inherits to be put on a TKoIntrusiveList: the links to the neighbours' hooks, null while the
/// object is on no list. A copy of an object is on no list; what is assigned to an object is for its class to
/// say.
struct SKoListBaseHook
{
    SKoListBaseHook() noexcept = default;
    SKoListBaseHook(const SKoListBaseHook&) noexcept {}
    SKoListBaseHook& operator=(const SKoListBaseHook&) = delete;

    /// Whether the object is on a list.
    bool isLinked() const noexcept { return next != nullptr; }

    SKoListBaseHook* next = nullptr;
    SKoListBaseHook* prev = nullptr;
};

/// Converts between an element and the hook that it inherits; null to null.
template <class T>
struct TKoListBaseHookAccessor : TKoBaseHookAccessor<T, SKoListBaseHook>
{
};

} // namespace KoIntrusive

/// A doubly linked list of objects that live elsewhere: two pointers, and two in each element. Every
/// operation takes constant time.
///
///     class CJob : public KoIntrusive::SKoListBaseHook { ... };
///     TKoIntrusiveList<CJob, KoIntrusive::TKoListBaseHookAccessor<CJob>> jobs;
///     jobs.insert(jobs.end(), job);
///
/// An element must be erased before it is destroyed, and is on one list at a time. The list's end unlinks
/// what is left on it. Not copyable. One thread at a time. Misuse is reported in the name of the list's user
/// (KoIntrusive::TKoListUser) and changes nothing.
template <class T, class Accessor>
class TKoIntrusiveList
{
    using Hook = typename Accessor::Hook;

public:
    /// Walks the list in both directions.
    template <class U>
    class TKoListIterator : public KoIntrusive::TKoPosition<U, Accessor>
    {
        using Position = KoIntrusive::TKoPosition<U, Accessor>;

    public:
        using iterator_category = std::bidirectional_iterator_tag;

        TKoListIterator()
            : Position(nullptr)
        {
        }
        /// The place of an element, which is on a list; the null iterator for null.
        explicit TKoListIterator(U* element)
            : Position(Accessor::toHook(element))
        {
        }
        /// An iterator that may change the elements is one that reads them.
        template <class V, class = std::enable_if_t<std::is_same_v<const V, U> && !std::is_same_v<V, U>>>
        TKoListIterator(const TKoListIterator<V>& other)
            : Position(other.hook())
        {
        }

        TKoListIterator& operator++()
        {
            this->m_hook = this->checkStep() ? this->m_hook->next : nullptr;
            return *this;
        }
        TKoListIterator operator++(int)
        {
            TKoListIterator before = *this;
            ++*this;
            return before;
        }
        TKoListIterator& operator--()
        {
            this->m_hook = this->checkStep() ? this->m_hook->prev : nullptr;
            return *this;
        }
        TKoListIterator operator--(int)
        {
            TKoListIterator before = *this;
            --*this;
            return before;
        }

    private:
        friend class TKoIntrusiveList;
        explicit TKoListIterator(typename Position::Hook* hook, int)
            : Position(hook)
        {
        }
    };

    using value_type = T;
    using iterator = TKoListIterator<T>;
    using const_iterator = TKoListIterator<const T>;

    TKoIntrusiveList() { join(m_head, m_head); }
    ~TKoIntrusiveList()
    {
        while (!isEmpty())
        {
            erase(begin());
        }
    }

    TKoIntrusiveList(const TKoIntrusiveList&) = delete;
    TKoIntrusiveList& operator=(const TKoIntrusiveList&) = delete;

    /// The first place, and the one behind the last element.
    iterator begin() { return iterator(m_head.next, 0); }
    iterator end() { return iterator(&m_head, 0); }
    const_iterator begin() const { return const_iterator(m_head.next, 0); }
    const_iterator end() const { return const_iterator(&m_head, 0); }

    bool isEmpty() const { return m_head.next == &m_head; }

    /// The first element; null, reported, when there is none.
    T* front()
    {
        if (isEmpty())
        {
            KoIntrusive::reportMisuse<T>(__LINE__);
            return nullptr;
        }
        return Accessor::toElement(m_head.next);
    }

    /// Links `element` directly before `position`. \return its place. Reported, with `position` returned,
    /// when that is null or the element is on a list already.
    iterator insert(iterator position, T& element)
    {
        Hook* const after = position.hook();
        Hook* const hook = Accessor::toHook(&element);
        if (after == nullptr || hook->next != nullptr)
        {
            KoIntrusive::reportMisuse<T>(__LINE__);
            return position;
        }
        hook->next = after;
        hook->prev = after->prev;
        hook->prev->next = hook;
        after->prev = hook;
        return iterator(hook, 0);
    }

    /// Unlinks the element at `position`, on whichever list it is. \return the place behind it. Reported,
    /// with the end returned, when there is no element at the position.
    iterator erase(iterator position)
    {
        Hook* const hook = position.hook();
        if (hook == nullptr || hook == &m_head || hook->next == nullptr)
        {
            KoIntrusive::reportMisuse<T>(__LINE__);
            return end();
        }
        Hook* const after = hook->next;
        join(*hook->prev, *after);
        hook->next = nullptr;
        hook->prev = nullptr;
        return iterator(after, 0);
    }

    /// Moves the elements from `first` up to and without `last` from their list to directly before
    /// `position`, which must not be among them.
    void splice(iterator position, iterator first, iterator last)
    {
        if (first == last || position == first || position == last)
        {
            return;
        }
        Hook* const lastMoved = last.hook()->prev;
        join(*first.hook()->prev, *last.hook());
        join(*position.hook()->prev, *first.hook());
        join(*lastMoved, *position.hook());
    }

private:
    static void join(Hook& before, Hook& after)
    {
        before.next = &after;
        after.prev = &before;
    }

    Hook m_head;
};
