#pragma once

#include "pf/base/KoExport.h"

namespace KoPrivate
{

/// The two-word base of vectors that keep size and capacity in the object itself: the index checks, which
/// take the size from the object, and the growth policy. It owns no memory. One thread at a time.
class KO_EXPORT CKoVectorBase
{
public:
    /// Size 0; the capacity as given, 4 when that is below 1.
    explicit CKoVectorBase(int capacity);

    /// Number of elements.
    int size() const { return m_size; }
    /// Number of elements there is room for.
    int capacity() const { return m_capacity; }

    /// As the checks of KoVectorAssertions of the same names. \return whether the arguments are valid;
    /// reported at "TKoVector" and `line` when not. A range failure of checkErase reads "Index our of range".
    bool checkGet(int index, unsigned int line) const;
    bool checkResize(int newSize, unsigned int line) const;
    bool checkErase(int first, int last, unsigned int line) const;
    bool checkInsert(int index, const void* value, unsigned int line) const;

    /// \return the capacity when it is enough for `required` elements; else the capacity, at least 4, doubled
    /// until it is enough. A doubling beyond the largest int ends there.
    int calcNewCapacity(int required) const;

protected:
    int m_size;
    int m_capacity;

    friend KO_EXPORT void swap(CKoVectorBase& a, CKoVectorBase& b);
};

/// Exchanges both words.
KO_EXPORT void swap(CKoVectorBase& a, CKoVectorBase& b);

} // namespace KoPrivate
