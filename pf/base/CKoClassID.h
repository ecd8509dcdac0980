#pragma once

#include "pf/base/KoExport.h"

/// Identifies a class by the identifier's own address: two identifiers are the same only when they are one
/// object, whatever their names. Each class that takes part in interface queries (see IKoRuntimeInfo) defines
/// exactly one:
///
///     const CKoClassID IKoShape::sClassID("IKoShape");
class KO_EXPORT CKoClassID
{
public:
    /// \param name is kept as a pointer and must outlive the identifier; for people only.
    constexpr explicit CKoClassID(const char* name)
        : m_name(name)
    {
    }

    /// Forgets the name.
    ~CKoClassID();
    CKoClassID(const CKoClassID&) = delete;
    CKoClassID& operator=(const CKoClassID&) = delete;

    const char* getName() const { return m_name; }

private:
    const char* m_name;
};
