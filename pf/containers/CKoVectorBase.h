#pragma once

#include "pf/base/KoExport.h"
#include "pf/oswrapper/CKoRamwatcher.h"

#include <cstddef>

/// The untyped core of TKoSmallVector: one pointer to a block of header and element slots, null while there
/// is no storage. It moves raw bytes and is handed the size of an element and functions that handle elements.
///
/// It owns the block but has no destructor: the typed vector passes the block to internal_destruct. Not
/// copyable. One thread at a time. An empty vector costs one pointer and no allocation; growth doubles from
/// 4, and nothing but a reserve below 1 gives storage back. While CKoRamwatcher watches, every block is
/// booked into the record of its element size and of the thread that made the vector's first block.
///
/// A size whose block would not fit into 32 bits is reported as "Invalid parameter" and changes nothing.
class KO_EXPORT CKoVectorBase
{
public:
    /// Growth policy. \return the new capacity, at least `requested`.
    using CapacityFunction = int (*)(int requested, int oldCapacity);

    CKoVectorBase(const CKoVectorBase&) = delete;
    CKoVectorBase& operator=(const CKoVectorBase&) = delete;

    /// Number of elements; 0 without a block.
    int size() const { return m_data != nullptr ? m_data->size : 0; }
    /// Number of elements the block has room for; 0 without a block.
    int capacity() const { return m_data != nullptr ? m_data->capacity : 0; }
    /// Whether there are no elements. A block may be there all the same.
    bool isEmpty() const { return size() == 0; }

    /// The default growth policy: 4, 8, 16, ...; the largest int where a doubling would pass it. The old
    /// capacity is not consulted.
    static int calculateActualCapacity(int requested, int oldCapacity);

protected:
    /// Constructs n elements in raw slots at dst from those at src. \return true when the elements at src
    /// need no destruction any more because the type moves bitwise.
    using CopyConstructFunction = bool (*)(void* dst, const void* src, int n);
    /// Moves n elements into raw slots; the slots at src are given up without destruction. \return true.
    using RelocateFunction = bool (*)(void* dst, const void* src, int n);
    /// Assigns n elements; the ranges may overlap in either direction.
    using AssignFunction = void (*)(void* dst, const void* src, int n);
    /// Destroys n elements, whose slots stay.
    using DestroyFunction = void (*)(void* elements, int n);
    /// Compares one element with another.
    using EqualFunction = bool (*)(const void* a, const void* b);
    /// Compares n elements, n above 0, with as many others.
    using EqualRunsFunction = bool (*)(const void* a, const void* b, int n);

    /// Header of a block; the slots follow it, aligned for every standard type.
    struct alignas(std::max_align_t) SVectorData
    {
        int size;                          ///< constructed elements, 0 to capacity
        int capacity;                      ///< slots
        CKoRamwatcher::sElement* ramWatch; ///< the record this block is booked into; null when it is not
        CapacityFunction capacityFunction; ///< growth policy; null means the default one
    };

    /// No storage for a capacity below 1 without `capacityFunction`; with it such a capacity means 4.
    CKoVectorBase(int capacity, CapacityFunction capacityFunction, int elemSize);

    /// Storage for a copy of `other`, with its size and growth policy; the caller constructs the elements.
    CKoVectorBase(const SVectorData* other, int elemSize);

    ~CKoVectorBase() = default;

    /// Makes room for `requested` elements, or, when `exact`, a block of that capacity (not below the size).
    /// \param relocateOrCopy moves the elements into the new block; null leaves them to the caller.
    /// \return the old block when its elements are still to be destroyed and it is to be released.
    SVectorData* internal_reserve(int requested, int elemSize, bool exact, RelocateFunction relocateOrCopy);

    /// Makes room for `more` further elements, moving those that are there by `relocate`, or, when it is
    /// null, with the block as their bytes. \return false, reported, when there cannot be so many.
    bool internal_makeRoom(int more, int elemSize, RelocateFunction relocate);

    /// Inserts `count` elements from `src`, which may be elements of this vector, before `pos`.
    void internal_insert(int pos, int count, const void* src, int elemSize, AssignFunction assign,
                         CopyConstructFunction copyConstruct, RelocateFunction relocate);

    /// Erases the elements `first` to `last`, both included.
    void internal_erase(int first, int last, int elemSize, AssignFunction assign, DestroyFunction destroy);

    /// Shrinks by destroying at the end or grows by copies of `value`, which may be an element of this
    /// vector.
    void internal_resize(int newSize, int elemSize, const void* value, CopyConstructFunction copyConstruct,
                         DestroyFunction destroy);

    /// Appends a copy of `value`, which may be an element of this vector.
    void internal_push_back(int elemSize, const void* value, CopyConstructFunction copyConstruct,
                            DestroyFunction destroy);

    /// \return true when an element was dropped, which the caller then destroys.
    bool internal_pop_back();

    /// \return the address of the element; null, reported, for an index outside 0 to size - 1.
    void* internal_get(int index, int elemSize);
    const void* internal_get(int index, int elemSize) const;

    /// Checks only. \return true when the caller may assign `count` elements from `src` at `pos`.
    bool internal_replace(int pos, int count, const void* src);

    /// \return the index of the first element equal to `value`; -1 when there is none.
    int internal_find(EqualFunction equal, int elemSize, const void* value) const;

    /// \return the index of the last element equal to `value`; -1 when there is none.
    int internal_rfind(EqualFunction equal, int elemSize, const void* value) const;

    /// \return whether both hold equal sequences.
    bool internal_compare(const CKoVectorBase& other, EqualRunsFunction equalRuns) const;

    /// Destroys all elements of a block, books it out and releases it. Null is ignored.
    static void internal_destruct(SVectorData* block, DestroyFunction destroy);

    /// Books `change` elements in use, negative when they go. Needed only while the block has a record.
    static void internal_bookElements(const SVectorData* block, int change);

    SVectorData* m_data;

private:
    struct SInsertion;

    bool isWithin(const void* address, int elemSize) const;
    int grownCapacity(int requested, int elemSize) const;
    int exactCapacity(int requested) const;
    void growBitwise(int requested, int elemSize);
    void replaceBlock(int newCapacity, int elemSize);
    void insertInPlace(const SInsertion& insertion);
    void insertIntoNewBlock(const SInsertion& insertion, SVectorData* old);
    void fillGap(const SInsertion& insertion, int index, const char* src, int n);
    static void releaseOld(SVectorData* old, bool isBitwise, DestroyFunction destroy);
};
