#pragma once

#include "pf/containers/KoVectorAssertions.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <vector>

/// A dynamic array over the standard library's vector whose own operations take int indexes and report those
/// that are out of range. Use it for interfaces of the library; TKoSmallVector is the better choice for many,
/// mostly empty arrays.
///
/// What is not declared here (size, push_back, iteration, ...) is the standard vector's and is not checked.
/// One thread at a time may use a vector.
template <class T>
class TKoVector : public std::vector<T>
{
public:
    using std::vector<T>::vector;

    /// \return the element, owned by the vector and valid until it changes; null, after a report, for an
    /// index outside 0 to size - 1.
    T* get(int index) { return isValid(index) ? std::addressof((*this)[toSize(index)]) : nullptr; }
    const T* get(int index) const
    {
        return isValid(index) ? std::addressof((*this)[toSize(index)]) : nullptr;
    }

    /// Inserts before `index`; an index equal to the size appends. `value` may be an element of this vector.
    /// An index outside 0 to size is reported and nothing is inserted.
    void insert(int index, const T& value)
    {
        if (KoVectorAssertions::checkInsert(index, std::addressof(value), count(), __LINE__))
        {
            std::vector<T>::insert(this->begin() + index, value);
        }
    }

    /// Removes the first element equal to `value`; does nothing when there is none.
    void remove(const T& value)
    {
        const auto position = std::find(this->begin(), this->end(), value);
        if (position != this->end())
        {
            this->erase(position);
        }
    }

protected:
    /// The size as an index; elements beyond the largest int are out of every index's reach.
    int count() const
    {
        constexpr std::size_t MAX_COUNT = INT_MAX;
        return static_cast<int>(std::min(this->size(), MAX_COUNT));
    }

private:
    using Size = typename std::vector<T>::size_type;

    static Size toSize(int index) { return static_cast<Size>(index); }
    bool isValid(int index) const
    {
        const bool isInside = index >= 0 && toSize(index) < this->size();
        return isInside || KoVectorAssertions::checkGet(index, count(), __LINE__);
    }
};
