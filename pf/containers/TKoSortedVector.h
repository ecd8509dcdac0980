#pragma once

#include "pf/containers/KoSortedSearch.h"
#include "pf/containers/TKoVector.h"

/// A TKoVector kept in the order of `Cmp`: no element is before its predecessor. `Cmp()(a, b)` tells whether
/// a is before b; elements of which neither is before the other are equivalent.
///
/// Fill it with insert. What the vector underneath offers stays reachable, to remove elements and to change
/// parts of them that the order does not look at; whoever adds elements that way keeps the order himself.
/// Searches cost log2(size) comparisons, an insertion moves the elements behind it. One thread at a time.
template <class T, class Cmp = TKoBefore<T>>
class TKoSortedVector : public TKoVector<T>
{
public:
    /// \param allowDuplicates whether insert accepts an element equivalent to one that is there.
    explicit TKoSortedVector(bool allowDuplicates = false)
        : m_allowDuplicates(allowDuplicates)
    {
    }

    /// \return the index, 0 to size, of the first element that is not before `value`.
    int lower_bound(const T& value) const { return search(value).index; }

    /// \return the index of the first element equivalent to `value`, -1 when there is none.
    int find(const T& value) const { return findKey(value); }

    /// Inserts `value` in its place, before equivalent elements.
    /// \return false, with nothing changed, when an equivalent element is there and duplicates are not
    /// allowed.
    bool insert(const T& value)
    {
        const KoPrivate::SSortedPosition position = search(value);
        if (position.isFound && !m_allowDuplicates)
        {
            return false;
        }
        TKoVector<T>::insert(position.index, value);
        return true;
    }

protected:
    template <class Key>
    int findKey(const Key& key) const
    {
        const KoPrivate::SSortedPosition position = search(key);
        return position.isFound ? position.index : -1;
    }

private:
    template <class Key>
    KoPrivate::SSortedPosition search(const Key& key) const
    {
        return KoPrivate::search(this->data(), this->count(), key, Cmp());
    }

    bool m_allowDuplicates;
};
