#pragma once

#include "pf/base/KoExport.h"
#include "pf/oswrapper/KoAtomic.h"

/// Base of objects that are shared by counting references, held by TKoRefCountPointer.
///
/// The count begins at 0 and is changed atomically: any thread that holds a reference may take further ones
/// and drop its own. Who drops the last one sees everything that the others did before they dropped theirs.
/// Not copyable. One word besides the virtual table.
class KO_EXPORT CKoThreadSafeRefCounter
{
public:
    virtual ~CKoThreadSafeRefCounter();

    /// Called once the last reference is gone, by the thread that dropped it; usually deletes the object.
    virtual void lastReferenceRemoved() = 0;

    CKoThreadSafeRefCounter(const CKoThreadSafeRefCounter&) = delete;
    CKoThreadSafeRefCounter& operator=(const CKoThreadSafeRefCounter&) = delete;

    /// Takes a reference.
    void addReference() { KoAtomic::increment(m_refCount); }

    /// Drops a reference that was taken; calls lastReferenceRemoved() with the last one.
    void removeReference()
    {
        if (!KoAtomic::testDecrement(m_refCount))
        {
            // From here on the object may be gone.
            lastReferenceRemoved();
        }
    }

protected:
    CKoThreadSafeRefCounter() = default;

private:
    unsigned int m_refCount = 0;
};
