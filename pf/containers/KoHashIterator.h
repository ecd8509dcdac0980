#pragma once

#include "pf/containers/KoContainerAssertions.h"
#include "pf/containers/TKoHashEntry.h"

#include <cstddef>
#include <iterator>
#include <type_traits>

namespace KoPrivate
{

/// A place in a hash table, the end included. Several may be under way at a time; none survives an insertion
/// or removal. A step beyond the end is reported as "Invalid iterator position" and does nothing.
/// \tparam V the value type, const for a table that must not be changed.
template <class Table, class Item, class K, class V>
class TKoHashIterator
{
public:
    using iterator_category = std::input_iterator_tag;  // for it makes what it refers to on the way
    using iterator_concept = std::forward_iterator_tag; // which later standards allow, C++20 on
    using value_type = TKoHashEntry<K, V>;
    using difference_type = std::ptrdiff_t;
    using pointer = value_type;
    using reference = value_type;

    /// A place in no table.
    TKoHashIterator() = default;
    /// An iterator that may change values is one that reads them.
    template <class W, class = std::enable_if_t<std::is_same_v<const W, V> && !std::is_same_v<W, V>>>
    TKoHashIterator(const TKoHashIterator<Table, Item, K, W>& other)
        : TKoHashIterator(other.m_table, other.m_item, other.m_bucket)
    {
    }

    reference operator*() const
    {
        const auto entry = m_table->entryOf(m_item);
        return {entry.key, entry.value};
    }
    pointer operator->() const { return **this; }

    TKoHashIterator& operator++()
    {
        if (m_item == nullptr)
        {
            KoContainerAssertions::reportAssertion(KoContainerAssertions::InvalidIteratorPosition,
                                                   Table::FILE_TEXT, __LINE__);
            return *this;
        }
        m_item = m_table->itemBehind(m_item, m_bucket);
        return *this;
    }
    TKoHashIterator operator++(int)
    {
        const TKoHashIterator before = *this;
        ++*this;
        return before;
    }

    friend bool operator==(const TKoHashIterator& a, const TKoHashIterator& b)
    {
        return a.m_item == b.m_item;
    }
    friend bool operator!=(const TKoHashIterator& a, const TKoHashIterator& b) { return !(a == b); }

private:
    friend Table;
    template <class OtherTable, class OtherItem, class OtherK, class OtherV>
    friend class TKoHashIterator;

    TKoHashIterator(const Table* table, Item* item, unsigned int bucket = 0U)
        : m_table(table)
        , m_item(item)
        , m_bucket(bucket)
    {
    }

    const Table* m_table = nullptr;
    Item* m_item = nullptr; ///< null at the end
    unsigned int m_bucket = 0U;
};

} // namespace KoPrivate
