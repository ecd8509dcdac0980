#pragma once

#include "pf/containers/KoIntrusive.h"
#include "pf/oswrapper/KoError.h"

namespace KoIntrusive
{

/// What a class inherits to be put on a TKoIntrusiveSlist: the link to the next hook, null while the object
/// is on no list. A copy of an object is on no list; what is assigned to an object is for its class to
/// say.
struct SKoSlistBaseHook
{
    SKoSlistBaseHook() noexcept = default;
    SKoSlistBaseHook(const SKoSlistBaseHook&) noexcept {}
    SKoSlistBaseHook& operator=(const SKoSlistBaseHook&) = delete;

    SKoSlistBaseHook* next = nullptr;
};

/// Converts between an element and the hook that it inherits; null to null.
template <class T>
struct TKoSlistBaseHookAccessor : TKoBaseHookAccessor<T, SKoSlistBaseHook>
{
};

} // namespace KoIntrusive

/// A singly linked list of objects that live elsewhere: one pointer, and one in each element. Erasing any but
/// the first element walks the list; where that matters, use TKoIntrusiveList.
///
///     class CJob : public KoIntrusive::SKoSlistBaseHook { ... };
///     TKoIntrusiveSlist<CJob, KoIntrusive::TKoSlistBaseHookAccessor<CJob>> jobs;
///     jobs.push_front(job);
///
/// An element must be erased before it is destroyed, and is on one list at a time. The list's end unlinks
/// what is left on it. Not copyable. One thread at a time. Misuse is reported in the name of the list's user
/// (KoIntrusive::TKoListUser) and changes nothing.
template <class T, class Accessor>
class TKoIntrusiveSlist
{
    using Hook = typename Accessor::Hook;

public:
    /// Walks the list forwards.
    template <class U>
    class TKoSlistIterator : public KoIntrusive::TKoPosition<U, Accessor>
    {
        using Position = KoIntrusive::TKoPosition<U, Accessor>;

    public:
        using iterator_category = std::forward_iterator_tag;

        TKoSlistIterator()
            : Position(nullptr)
        {
        }
        /// The place of an element, which is on a list; the null iterator for null.
        explicit TKoSlistIterator(U* element)
            : Position(Accessor::toHook(element))
        {
        }
        /// An iterator that may change the elements is one that reads them.
        template <class V, class = std::enable_if_t<std::is_same_v<const V, U> && !std::is_same_v<V, U>>>
        TKoSlistIterator(const TKoSlistIterator<V>& other)
            : Position(other.hook())
        {
        }

        TKoSlistIterator& operator++()
        {
            this->m_hook = this->checkStep() ? this->m_hook->next : nullptr;
            return *this;
        }
        TKoSlistIterator operator++(int)
        {
            TKoSlistIterator before = *this;
            ++*this;
            return before;
        }

    private:
        friend class TKoIntrusiveSlist;
        explicit TKoSlistIterator(typename Position::Hook* hook, int)
            : Position(hook)
        {
        }
    };

    using value_type = T;
    using iterator = TKoSlistIterator<T>;
    using const_iterator = TKoSlistIterator<const T>;

    TKoIntrusiveSlist() { m_head.next = &m_head; }
    ~TKoIntrusiveSlist()
    {
        while (!isEmpty())
        {
            pop_front();
        }
    }

    TKoIntrusiveSlist(const TKoIntrusiveSlist&) = delete;
    TKoIntrusiveSlist& operator=(const TKoIntrusiveSlist&) = delete;

    /// The first place, and the one behind the last element.
    iterator begin() { return iterator(m_head.next, 0); }
    iterator end() { return iterator(&m_head, 0); }
    const_iterator begin() const { return const_iterator(m_head.next, 0); }
    const_iterator end() const { return const_iterator(&m_head, 0); }

    bool isEmpty() const { return m_head.next == &m_head; }

    /// Makes `element` the first one. Reported when it is on a list already.
    void push_front(T& element)
    {
        Hook* const hook = Accessor::toHook(&element);
        if (hook->next != nullptr)
        {
            KoIntrusive::reportMisuse<T>(__LINE__);
            return;
        }
        hook->next = m_head.next;
        m_head.next = hook;
    }

    /// Unlinks the first element. Reported when there is none.
    void pop_front()
    {
        if (isEmpty())
        {
            KoIntrusive::reportMisuse<T>(__LINE__);
            return;
        }
        unlinkAfter(m_head);
    }

    /// Unlinks the element at `position`: at once when it is the first, else after a walk to the one before
    /// it. \return the place behind it. A null position is reported and gives the end. A position that is not
    /// on this list ends the process.
    iterator erase(iterator position)
    {
        if (position.hook() == nullptr)
        {
            KoIntrusive::reportMisuse<T>(__LINE__);
            return end();
        }
        if (position == begin())
        {
            pop_front();
            return begin();
        }
        Hook& before = findBefore(*position.hook());
        unlinkAfter(before);
        return iterator(before.next, 0);
    }

private:
    Hook& findBefore(const Hook& hook)
    {
        Hook* before = m_head.next;
        while (before->next != &hook || &hook == &m_head)
        {
            before = before->next;
            if (before == &m_head)
            {
                KoError::criticalError(0, "invalid iterator position");
            }
        }
        return *before;
    }

    static void unlinkAfter(Hook& before)
    {
        Hook* const hook = before.next;
        before.next = hook->next;
        hook->next = nullptr;
    }

    Hook m_head;
};
