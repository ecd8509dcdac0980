#pragma once

/// Base of classes whose objects are neither copied nor moved. Empty: it takes no room in the derived class.
class CKoNonCopyable
{
public:
    CKoNonCopyable(const CKoNonCopyable&) = delete;
    CKoNonCopyable& operator=(const CKoNonCopyable&) = delete;

protected:
    CKoNonCopyable() = default;
    ~CKoNonCopyable() = default;
};
