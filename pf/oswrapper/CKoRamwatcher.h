#pragma once

#include "pf/base/KoExport.h"

#include <atomic>

/// A table of usage counters per element size and thread, which the vectors keep up to date while the
/// environment variable "ENABLE_RAMWATCH" is set. Off, it costs one flag test.
///
/// Any thread may call. Counters change by atomic add and subtract (KoAtomic); only the thread that owns a
/// record creates it. Records are never reused: after 512 pairs of element size and thread all others share
/// one overflow record.
class KO_EXPORT CKoRamwatcher
{
public:
    /// Usage of all storage blocks of one element size that one thread created.
    struct sElement
    {
        unsigned int instanceCount; ///< storage blocks; counted up by getElement, down by the owner
        unsigned int elementCount;  ///< elements in use, kept by the owner
        unsigned int capacityCount; ///< elements reserved, kept by the owner
        unsigned int elementSize;   ///< bytes of one element
    };

    static constexpr unsigned int MAX_ELEMENTS = 512;

    CKoRamwatcher() = delete;

    /// Whether usage is watched; evaluated on the first call.
    static bool isEnabled()
    {
        // Acquire: pairs with the store at the end of evalIsEnabled, behind which the tables stand.
        return mIsInitialized.load(std::memory_order_acquire) ? mIsEnabled.load(std::memory_order_relaxed)
                                                              : evalIsEnabled();
    }

    /// Reads the environment variable and allocates the tables when it is set.
    static bool evalIsEnabled();

    /// The record of `elementSize` (in bytes) and the calling thread, with one instance more. The overflow
    /// record, unchanged, when the table is full or not there. Never null.
    static sElement* getElement(unsigned int elementSize);

    /// Hands out the next slot number; keeps counting past the table size.
    static unsigned int getNewIndex();

    /// Copies records to `out`, each with its thread's id times 100000 added to `instanceCount`.
    /// \param count capacity of `out` on entry, records copied on return. A null `out` is reported; `count`
    /// is left alone then.
    static void dumpWatches(sElement* out, unsigned int& count);

    /// Releases the tables; watched owners must be gone by then.
    static void releaseElements();

private:
    static std::atomic<bool> mIsEnabled;
    static std::atomic<bool> mIsInitialized;
    static std::atomic<unsigned int> mIndex;
    static sElement* elements;
    static unsigned int* threadIds;
    static sElement dummyElement;
};
