#pragma once

#include "pf/base/CKoClassID.h"
#include "pf/base/KoExport.h"

/// The root of interfaces that can be queried without the language's run-time type information. A class
/// answers for the identifiers of its own interfaces and passes others on to its bases:
///
///     void* CKoCircle::queryInterface(const CKoClassID& id)
///     {
///         return &id == &IKoShape::sClassID ? static_cast<IKoShape*>(this) : castToPtr(id);
///     }
class KO_EXPORT IKoRuntimeInfo
{
public:
    static const CKoClassID sClassID; ///< named "IKoRuntimeInfo"

    virtual ~IKoRuntimeInfo();

    /// The object's part that is the interface `id` identifies: a pointer to that very interface, still owned
    /// by the object; null when the object has no such interface.
    virtual void* queryInterface(const CKoClassID& id) = 0;

    /// This object as an IKoRuntimeInfo when `id` is IKoRuntimeInfo::sClassID itself, otherwise null.
    void* castToPtr(const CKoClassID& id);
    const void* castToPtr(const CKoClassID& id) const;

protected:
    IKoRuntimeInfo() = default;
    IKoRuntimeInfo(const IKoRuntimeInfo&) = default;
    IKoRuntimeInfo& operator=(const IKoRuntimeInfo&) = default;
};
